// The values of TIFF pages without a change.
#include <algorithm>
#include <cstring>
#include <vector>

#include "images/formats.h"
#include "images/tiff_library.h"
#include "measurement/whole_file.h"
#include "qv/file_system.h"

namespace qv {

namespace Private {

namespace {

struct RawKind {
    EDataType type;
    uint16_t bits;
    uint16_t samples;
    uint16_t photometric;
    uint16_t format;  ///< SAMPLEFORMAT_UINT is what a page without the tag has, and is not written.
};

constexpr RawKind rawKinds[] = {
    {EDataType::uint16, 16, 1, PHOTOMETRIC_MINISBLACK, SAMPLEFORMAT_UINT},
    {EDataType::flt32, 32, 1, PHOTOMETRIC_MINISBLACK, SAMPLEFORMAT_IEEEFP},
    {EDataType::flt64, 64, 1, PHOTOMETRIC_MINISBLACK, SAMPLEFORMAT_IEEEFP},
    {EDataType::rgb24, 8, 3, PHOTOMETRIC_RGB, SAMPLEFORMAT_UINT},
};

const RawKind* kindOf(EDataType type) {
    for (const RawKind& kind : rawKinds) {
        if (kind.type == type) return &kind;
    }
    return nullptr;
}

/// JPEG-coded pages keep luminance and colour differences, and libtiff makes RGB of them when asked.
bool isCodedColour(const TiffPage& page) {
    return page.compression == COMPRESSION_JPEG && page.photometric == PHOTOMETRIC_YCBCR && !page.separate;
}

EDataType typeOf(const TiffPage& page) {
    const uint16_t photometric = isCodedColour(page) ? uint16_t{PHOTOMETRIC_RGB} : page.photometric;
    for (const RawKind& kind : rawKinds) {
        if (page.bits == kind.bits && page.samples == kind.samples && photometric == kind.photometric &&
            page.format == kind.format) {
            return kind.type;
        }
    }
    return EDataType::none;
}

/// Bytes that a method makes of one at best, generously; 0 where it knows no bound.
uint64_t ratioOf(const TiffPage& page) {
    // Colour differences may be kept for every sixteenth pixel only.
    const uint64_t thinned = page.photometric == PHOTOMETRIC_YCBCR ? 4 : 1;
    switch (page.compression) {
        case COMPRESSION_NONE: return thinned;
        case COMPRESSION_PACKBITS: return 64 * thinned;
        case COMPRESSION_LZW: return 4096 * thinned;
        case COMPRESSION_ADOBE_DEFLATE:
        case COMPRESSION_DEFLATE: return 1100 * thinned;
        case COMPRESSION_JPEG: return 2048;
        default: return 0;
    }
}

/// Reads one page into rows of the caller's.
class RawReader {
public:
    RawReader(const TiffFile& tiff, const TiffPage& page, uint8_t* out)
        : m_tiff(tiff), m_page(page), m_out(out), m_pixelBytes(DataTypeSize(page.type)) {}

    bool read() {
        if (isCodedColour(m_page)) TIFFSetField(m_tiff.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        const bool planes = m_page.separate && m_page.samples > 1;
        if (TIFFIsTiled(m_tiff.get())) return readTiles(planes);
        return planes ? readPlanes() : readStrips();
    }

private:
    size_t rowBytes() const { return size_t{m_page.width} * m_pixelBytes; }
    uint8_t* pixel(uint32_t x, uint32_t y) const { return m_out + rowBytes() * y + size_t{x} * m_pixelBytes; }

    bool readStrips() {
        uint32_t rowsPerStrip = 0;
        TIFFGetFieldDefaulted(m_tiff.get(), TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        rowsPerStrip = std::clamp<uint32_t>(rowsPerStrip, 1, m_page.height);
        if (static_cast<size_t>(TIFFScanlineSize(m_tiff.get())) != rowBytes()) return false;
        for (uint32_t y = 0; y < m_page.height; y += std::min(rowsPerStrip, m_page.height - y)) {
            const auto bytes = static_cast<tmsize_t>(rowBytes() * std::min(rowsPerStrip, m_page.height - y));
            if (TIFFReadEncodedStrip(m_tiff.get(), TIFFComputeStrip(m_tiff.get(), y, 0), pixel(0, y), bytes) != bytes) {
                return false;
            }
        }
        return true;
    }

    bool readPlanes() {
        const tmsize_t bytes = TIFFScanlineSize(m_tiff.get());
        if (bytes < tmsize_t{m_page.width}) return false;
        std::vector<uint8_t> row(static_cast<size_t>(bytes));
        for (uint16_t sample = 0; sample < m_page.samples; ++sample) {
            for (uint32_t y = 0; y < m_page.height; ++y) {
                if (TIFFReadScanline(m_tiff.get(), row.data(), y, sample) < 0) return false;
                for (uint32_t x = 0; x < m_page.width; ++x) pixel(x, y)[sample] = row[x];
            }
        }
        return true;
    }

    bool readTiles(bool planes) {
        uint32_t width = 0, height = 0;
        TIFFGetField(m_tiff.get(), TIFFTAG_TILEWIDTH, &width);
        TIFFGetField(m_tiff.get(), TIFFTAG_TILELENGTH, &height);
        const tmsize_t bytes = TIFFTileSize(m_tiff.get());
        const uint64_t stride = uint64_t{width} * (planes ? 1 : m_pixelBytes);
        // A tile may be larger than its page, in reason.
        constexpr uint64_t smallTile = 1 << 26;
        if (bytes <= 0 || width == 0 || height == 0 || static_cast<uint64_t>(bytes) != stride * height) return false;
        if (static_cast<uint64_t>(bytes) > smallTile + 4 * m_page.rawBytes()) return false;
        std::vector<uint8_t> tile(static_cast<size_t>(bytes));
        for (uint16_t sample = 0; sample < (planes ? m_page.samples : 1); ++sample) {
            for (uint64_t y = 0; y < m_page.height; y += height) {
                for (uint64_t x = 0; x < m_page.width; x += width) {
                    const auto left = static_cast<uint32_t>(x), top = static_cast<uint32_t>(y);
                    if (TIFFReadTile(m_tiff.get(), tile.data(), left, top, 0, sample) != bytes) return false;
                    const uint32_t columns = std::min(width, m_page.width - left);
                    const uint32_t rows = std::min(height, m_page.height - top);
                    for (uint32_t row = 0; row < rows; ++row) {
                        const uint8_t* const from = tile.data() + static_cast<size_t>(stride) * row;
                        copyTileRow(from, columns, pixel(left, top + row), planes, sample);
                    }
                }
            }
        }
        return true;
    }

    void copyTileRow(const uint8_t* from, uint32_t columns, uint8_t* to, bool planes, uint16_t sample) const {
        if (!planes) {
            std::memcpy(to, from, size_t{columns} * m_pixelBytes);
            return;
        }
        for (uint32_t x = 0; x < columns; ++x) to[size_t{x} * m_pixelBytes + sample] = from[x];
    }

    const TiffFile& m_tiff;
    const TiffPage& m_page;
    uint8_t* m_out;
    size_t m_pixelBytes;
};

}  // namespace

bool isRawType(EDataType type) { return kindOf(type) != nullptr; }

bool readPage(const TiffFile& tiff, TiffPage& page) {
    TIFF* const tif = tiff.get();
    page = TiffPage();
    if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &page.width) || !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &page.height)) {
        return false;
    }
    uint16_t planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &page.bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &page.samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &page.format);
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &page.compression);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &page.photometric)) {
        page.photometric = page.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    }
    page.separate = planar == PLANARCONFIG_SEPARATE;
    page.type = typeOf(page);
    return page.width > 0 && page.height > 0;
}

bool isPlausible(const TiffFile& tiff, const TiffPage& page) {
    const uint64_t ratio = ratioOf(page), bytes = page.storedBytes();
    if (canHold(tiff.size(), ratio == 0 ? 65536 : ratio, bytes) || (ratio == 0 && bytes <= believedBytes)) return true;
    return refuse(tiff.file(), CString::FromFormat(u"the pixels of %u by %u", page.width, page.height),
                  CString::FromFormat(u"%I64u bytes", tiff.size()));
}

bool readRaw(const TiffFile& tiff, void* buffer, uint64_t size) {
    TiffPage page;
    if (!readPage(tiff, page)) return tiff.fail(u"a page with a size");
    if (page.type == EDataType::none) {
        return refuse(tiff.file(), u"16-bit integers, 32-bit or 64-bit floats, or 24-bit RGB",
                      CString::FromFormat(u"%u samples of %u bits", page.samples, page.bits));
    }
    if (page.rawBytes() > size) {
        return refuse(tiff.file(), CString::FromFormat(u"a buffer of %I64u bytes", page.rawBytes()),
                      CString::FromFormat(u"%I64u bytes", size));
    }
    if (!isPlausible(tiff, page)) return false;
    if (!RawReader(tiff, page, static_cast<uint8_t*>(buffer)).read()) return tiff.fail(u"the pixels of a TIFF picture");
    tiff.tellWarning();
    return true;
}

void writeTags(TIFF* tiff, uint32_t width, uint32_t height, EDataType type) {
    const RawKind& kind = *kindOf(type);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, kind.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, kind.samples);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kind.photometric);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_SOFTWARE, "Tesnorik");
    if (kind.format != SAMPLEFORMAT_UINT) TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, kind.format);
}

bool writeRaw(const TiffFile& tiff, const void* data, uint32_t width, uint32_t height, EDataType type) {
    writeTags(tiff.get(), width, height, type);
    const size_t rowBytes = size_t{width} * DataTypeSize(type);
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* const row = static_cast<const uint8_t*>(data) + rowBytes * y;
        // The library only reads the row: what is not compressed is copied first.
        if (TIFFWriteScanline(tiff.get(), const_cast<uint8_t*>(row), y, 0) < 0) return false;
    }
    return true;
}

}  // namespace Private

using namespace Private;

bool LoadTIFFRaw(const TSharedPtr<IFile>& file, void* buffer, uint32_t size) {
    TiffFile tiff;
    if (!file || buffer == nullptr) return false;
    return tiff.open(*file, "r") ? readRaw(tiff, buffer, size) : tiff.fail(u"a TIFF picture");
}

bool GetTIFFInfo(const TSharedPtr<IFile>& file, uint32_t& width, uint32_t& height, EDataType& type) {
    TiffFile tiff;
    TiffPage page;
    if (!file) return false;
    if (!tiff.open(*file, "r") || !readPage(tiff, page)) return tiff.fail(u"a TIFF picture");
    width = page.width;
    height = page.height;
    type = page.type;
    return true;
}

bool GetTIFFInfo(const TSharedPtr<IFile>& file, uint32_t& width, uint32_t& height, EDataType& type, uint32_t& pages) {
    TiffChain chain;
    if (!GetTIFFInfo(file, width, height, type) || !chain.follow(*file)) return false;
    pages = static_cast<uint32_t>(chain.directories().size());
    return true;
}

bool SaveTIFFRaw(const TSharedPtr<IFile>& file, const void* data, uint32_t width, uint32_t height, EDataType type) {
    if (!file || data == nullptr) return false;
    if (!isRawType(type) || width == 0 || height == 0) {
        return refuse(*file, u"pixels of uint16, flt32, flt64 or rgb24", u"others, or none");
    }
    TiffFile tiff;
    if (!tiff.open(*file, "wl") || !writeRaw(tiff, data, width, height, type)) {
        tiff.abandon();
        return tiff.fail(u"room for a TIFF picture");
    }
    if (!tiff.close()) return false;
    file->SeekToEnd();
    return true;
}

bool SaveTIFFRaw(IFileSystem* fs, const char16_t* path, const void* data, uint32_t width, uint32_t height,
                 EDataType type) {
    return writeWhole(fs, path,
                      [&](const TSharedPtr<IFile>& file) { return SaveTIFFRaw(file, data, width, height, type); });
}

bool SaveTIFFRaw(const char16_t* path, const void* data, uint32_t width, uint32_t height, EDataType type) {
    return SaveTIFFRaw(&fileSystem(), path, data, width, height, type);
}

bool Private::readTIFFInfo(IFile& file, SImageInfo& info) {
    TiffFile tiff;
    TiffPage page;
    TiffChain chain;
    if (!tiff.open(file, "r") || !readPage(tiff, page)) return false;
    info.format = EImageFormat::tiff;
    info.width = page.width;
    info.height = page.height;
    info.bitsPerSample = page.bits;
    info.samples = page.samples;
    info.palette = page.photometric == PHOTOMETRIC_PALETTE;
    info.dataType = page.type;
    const bool holds = isPlausible(tiff, page);
    info.whole = chain.follow(file) && holds;
    info.pages = chain.reached();
    return true;
}

}  // namespace qv
