#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "images/bmp_format.h"
#include "images/formats.h"
#include "images/picture_file.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

using Pixel = std::array<uint8_t, 3>;  ///< Blue, green, red.

struct Header {
    uint32_t width = 0;
    uint32_t height = 0;
    bool topDown = false;
    uint32_t bits = 0;
    uint32_t compression = bmp::none;
    uint32_t masks[3] = {};  ///< Red, green, blue.
    uint32_t paletteAt = 0;
    uint32_t paletteEntries = 0;
    uint32_t paletteEntryBytes = 4;
    uint32_t pixelsAt = 0;

    bool coded() const { return compression == bmp::rle4 || compression == bmp::rle8; }
};

bool isContiguous(uint32_t mask) {
    if (mask == 0) return true;
    const uint32_t low = mask >> std::countr_zero(mask);
    return (low & (low + 1)) == 0;
}

bool fitsBits(uint32_t compression, uint32_t bits) {
    switch (compression) {
        case bmp::none:
            return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
        case bmp::rle8: return bits == 8;
        case bmp::rle4: return bits == 4;
        case bmp::bitFields:
        case bmp::bitFieldsWithAlpha: return bits == 16 || bits == 32;
        default: return false;
    }
}

bool isHeaderSize(uint32_t size) {
    for (const uint32_t known : {12u, 16u, 40u, 52u, 56u, 64u, 108u, 124u}) {
        if (size == known) return true;
    }
    return false;
}

/// Width, height and depth. `at` has longestHeaderBytes, zeros behind `size`.
void readShape(const uint8_t* at, uint32_t size, Header& header) {
    if (size == bmp::coreHeaderBytes) {
        header.width = bmp::get16(at + 4);
        header.height = bmp::get16(at + 6);
        header.bits = bmp::get16(at + 10);
        header.paletteEntryBytes = 3;
        return;
    }
    const auto height = static_cast<int32_t>(bmp::get32(at + 8));
    header.width = bmp::get32(at + 4);
    header.topDown = height < 0;
    header.height = header.topDown ? 0u - static_cast<uint32_t>(height) : static_cast<uint32_t>(height);
    header.bits = bmp::get16(at + 14);
    header.compression = bmp::get32(at + 16);
    header.paletteEntries = bmp::get32(at + 32);
}

/// Reads the headers and leaves the file behind the picture's own. False for what is no BMP file; a picture that this
/// reader has no way to read is left to isReadable().
bool readHeader(IFile& file, Header& header) {
    uint8_t bytes[bmp::fileHeaderBytes + bmp::longestHeaderBytes + 16] = {};
    file.SeekToBegin();
    if (!file.ReadBytes(bytes, bmp::fileHeaderBytes + 4) || bytes[0] != 'B' || bytes[1] != 'M') return false;
    uint8_t* const picture = bytes + bmp::fileHeaderBytes;
    const uint32_t size = bmp::get32(picture);
    if (!isHeaderSize(size) || !file.ReadBytes(picture + 4, size - 4)) return false;
    readShape(picture, size, header);
    header.paletteAt = bmp::fileHeaderBytes + size;
    if (header.compression == bmp::bitFields || header.compression == bmp::bitFieldsWithAlpha) {
        if (size == bmp::infoHeaderBytes) {
            const uint32_t masksBytes = header.compression == bmp::bitFields ? 12 : 16;
            if (!file.ReadBytes(picture + size, masksBytes)) return false;
            header.paletteAt += masksBytes;
        }
        for (uint32_t i = 0; i < 3; ++i) header.masks[i] = bmp::get32(picture + bmp::infoHeaderBytes + 4 * i);
    } else if (header.bits == 16) {
        std::copy_n(std::array<uint32_t, 3>{31 << 10, 31 << 5, 31}.begin(), 3, header.masks);
    }
    if (header.bits > 8) {
        header.paletteEntries = 0;
    } else if (header.paletteEntries == 0 || header.paletteEntries > 1u << header.bits) {
        header.paletteEntries = 1u << header.bits;
    }
    // A palette may be shorter than it says: the pixels begin where the file header has them.
    header.pixelsAt = bmp::get32(bytes + 10);
    const uint32_t paletteEnd = header.paletteAt + header.paletteEntries * header.paletteEntryBytes;
    if (header.pixelsAt < header.paletteAt) header.pixelsAt = paletteEnd;
    if (header.pixelsAt < paletteEnd) {
        header.paletteEntries = (header.pixelsAt - header.paletteAt) / header.paletteEntryBytes;
    }
    return true;
}

bool isReadable(IFile& file, const Header& header) {
    const bool known = fitsBits(header.compression, header.bits) && header.width > 0 && header.height > 0 &&
                       std::all_of(header.masks, header.masks + 3, isContiguous);
    if (known) return true;
    return refuse(file, u"a BMP picture of a known depth and compression",
                  CString::FromFormat(u"%u by %u pixels of %u bits, compression %u", header.width, header.height,
                                      header.bits, header.compression));
}

/// Whether the file is long enough for the pixels: to the last byte where they are not coded.
bool holdsPixels(IFile& file, const Header& header) {
    const int64_t left = file.GetSize() - header.pixelsAt;
    const uint64_t stored = left < 0 ? 0 : static_cast<uint64_t>(left);
    const uint64_t pixels = uint64_t{header.width} * header.height;
    // Two bytes make at most 255 pixels; rows that are skipped have none, so that a small picture may be any size.
    const uint64_t row = (uint64_t{header.width} * header.bits + 7) / 8;
    const bool holds = header.coded()
                           ? pixels <= believedPixels || canHold(stored, 128, pixels)
                           : bmp::paddedRow(header.width, header.bits) <= UINT32_MAX &&
                                 bmp::paddedRow(header.width, header.bits) * (header.height - 1) + row <= stored;
    if (holds) return true;
    return refuse(file, CString::FromFormat(u"the pixels of %u by %u", header.width, header.height),
                  CString::FromFormat(u"%I64u bytes", stored), header.pixelsAt);
}

using Palette = std::array<Pixel, 256>;

bool readPalette(IFile& file, const Header& header, Palette& palette) {
    uint8_t bytes[256 * 4];
    palette = {};
    file.SetPosition(header.paletteAt);
    if (!file.ReadBytes(bytes, header.paletteEntries * header.paletteEntryBytes)) return false;
    for (uint32_t i = 0; i < header.paletteEntries; ++i) {
        std::memcpy(palette[i].data(), bytes + i * header.paletteEntryBytes, 3);
    }
    return true;
}

/// One channel of a bit field, scaled to 8 bits.
class Channel {
public:
    explicit Channel(uint32_t mask) : m_mask(mask) {
        if (mask == 0) return;
        const int width = std::popcount(mask);
        m_shift = std::countr_zero(mask) + std::max(0, width - 8);
        const uint32_t largest = (1u << std::min(width, 8)) - 1;
        for (uint32_t i = 0; i <= largest; ++i) m_levels[i] = static_cast<uint8_t>((i * 255 + largest / 2) / largest);
    }
    uint8_t operator()(uint32_t pixel) const { return m_levels[(pixel & m_mask) >> m_shift & 255]; }

private:
    uint32_t m_mask;
    int m_shift = 0;
    std::array<uint8_t, 256> m_levels{};
};

/// Turns the rows of a picture that is not coded into blue, green, red.
class RowConverter {
public:
    RowConverter(const Header& header, const Palette& palette)
        : m_header(header),
          m_palette(palette),
          m_red(header.masks[0]),
          m_green(header.masks[1]),
          m_blue(header.masks[2]),
          m_plain32(header.bits == 32 && header.compression == bmp::none) {}

    void convert(const uint8_t* in, uint8_t* out) const {
        if (m_header.bits <= 8) {
            convertIndexes(in, out);
        } else if (m_header.bits == 24) {
            std::memcpy(out, in, size_t{m_header.width} * 3);
        } else if (m_plain32) {
            for (uint32_t x = 0; x < m_header.width; ++x) std::memcpy(out + size_t{x} * 3, in + size_t{x} * 4, 3);
        } else if (m_header.bits == 32) {
            convertFields<4>(in, out);
        } else {
            convertFields<2>(in, out);
        }
    }

private:
    void convertIndexes(const uint8_t* in, uint8_t* out) const {
        const uint32_t bits = m_header.bits, perByte = 8 / bits, mask = (1u << bits) - 1;
        for (uint32_t x = 0; x < m_header.width; ++x, out += 3) {
            const uint32_t shift = (perByte - 1 - x % perByte) * bits;
            std::memcpy(out, m_palette[in[x / perByte] >> shift & mask].data(), 3);
        }
    }

    template <uint32_t bytes>
    void convertFields(const uint8_t* in, uint8_t* out) const {
        for (uint32_t x = 0; x < m_header.width; ++x, in += bytes, out += 3) {
            const uint32_t pixel = bytes == 2 ? bmp::get16(in) : bmp::get32(in);
            out[0] = m_blue(pixel);
            out[1] = m_green(pixel);
            out[2] = m_red(pixel);
        }
    }

    const Header& m_header;
    const Palette& m_palette;
    Channel m_red, m_green, m_blue;
    bool m_plain32;
};

/// The row of the bitmap for the row at index `y` of the file.
uint8_t* targetRow(const Header& header, const SBitmap& bitmap, uint32_t y) {
    return rowOf(bitmap, header.topDown ? y : header.height - 1 - y);
}

bool readRows(IFile& file, const Header& header, const Palette& palette, const SBitmap& bitmap) {
    const auto stride = static_cast<size_t>(bmp::paddedRow(header.width, header.bits));
    const size_t unpadded = (size_t{header.width} * header.bits + 7) / 8;
    const auto rowsAtOnce = static_cast<uint32_t>(std::clamp<size_t>((size_t{1} << 18) / stride, 1, header.height));
    const RowConverter converter(header, palette);
    std::vector<uint8_t> bytes(stride * rowsAtOnce);
    for (uint32_t y = 0; y < header.height;) {
        const uint32_t rows = std::min(rowsAtOnce, header.height - y);
        // The last row of the file may lack its padding.
        const size_t wanted = stride * (rows - 1) + (y + rows < header.height ? stride : unpadded);
        const int64_t at = file.GetPosition();
        if (!file.ReadBytes(bytes.data(), static_cast<uint32_t>(wanted))) {
            return refuse(file, u"the pixels of a BMP picture", u"the end of the file", at);
        }
        for (uint32_t i = 0; i < rows; ++i, ++y) converter.convert(&bytes[stride * i], targetRow(header, bitmap, y));
    }
    return true;
}

/// Decodes run-length coded pixels.
class RunReader {
public:
    RunReader(IFile& file, const Header& header, const Palette& palette, const SBitmap& bitmap)
        : m_header(header), m_palette(palette), m_bitmap(bitmap) {
        m_in.file = &file;
    }

    /// False when the file ends before the picture does.
    bool read() {
        uint8_t pair[2];
        while (m_y < m_header.height) {
            if (m_in.read(pair, 2) != 2) return false;
            if (pair[0] != 0) {
                run(pair[0], pair[1]);
            } else if (pair[1] == bmp::endOfLine) {
                m_x = 0;
                ++m_y;
            } else if (pair[1] == bmp::endOfPicture) {
                return true;
            } else if (pair[1] == bmp::move) {
                if (m_in.read(pair, 2) != 2) return false;
                m_x += pair[0];
                m_y += pair[1];
            } else if (!literals(pair[1])) {
                return false;
            }
        }
        return true;
    }

private:
    bool fourBits() const { return m_header.bits == 4; }

    /// Pixels to the right of the picture are dropped.
    void put(uint8_t index) {
        if (m_x < m_header.width) {
            std::memcpy(targetRow(m_header, m_bitmap, m_y) + size_t{m_x} * 3, m_palette[index].data(), 3);
        }
        ++m_x;
    }

    void run(uint32_t count, uint8_t value) {
        const uint8_t indexes[2] = {static_cast<uint8_t>(fourBits() ? value >> 4 : value),
                                    static_cast<uint8_t>(fourBits() ? value & 15 : value)};
        for (uint32_t i = 0; i < count; ++i) put(indexes[i & 1]);
    }

    /// Pixels one by one, padded to two bytes.
    bool literals(uint32_t count) {
        uint8_t bytes[256];
        const uint32_t size = fourBits() ? (count + 1) / 2 : count;
        if (m_in.read(bytes, size + (size & 1)) < size) return false;
        for (uint32_t i = 0; i < count; ++i) {
            put(fourBits() ? static_cast<uint8_t>(bytes[i / 2] >> (i & 1 ? 0 : 4) & 15) : bytes[i]);
        }
        return true;
    }

    const Header& m_header;
    const Palette& m_palette;
    const SBitmap& m_bitmap;
    ReadAhead m_in;
    uint32_t m_x = 0;
    uint32_t m_y = 0;
};

}  // namespace

bool IsBMP(const TSharedPtr<IFile>& file) {
    Header header;
    if (!file) return false;
    const bool is = readHeader(*file, header);
    file->SeekToBegin();
    return is;
}

bool LoadBMP(const TSharedPtr<IFile>& file, SBitmap& bitmap) {
    PendingBitmap pending(bitmap);
    if (!file) return false;
    Header header;
    Palette palette;
    if (!readHeader(*file, header) || !readPalette(*file, header, palette)) {
        return refuse(*file, u"the header of a BMP picture", u"something else or the file's end", 0);
    }
    if (!isReadable(*file, header) || !holdsPixels(*file, header)) return false;
    if (!CreateBitmap(header.width, header.height, 24, bitmap)) {
        return refuse(*file, u"memory for the picture",
                      CString::FromFormat(u"none for %u by %u pixels", header.width, header.height));
    }
    file->SetPosition(header.pixelsAt);
    if (!header.coded()) return readRows(*file, header, palette, bitmap) && pending.keep();
    if (RunReader(*file, header, palette, bitmap).read()) return pending.keep();
    return refuse(*file, u"the end of a run-length coded picture", u"the end of the file", file->GetSize());
}

bool Private::readBMPInfo(IFile& file, SImageInfo& info) {
    Header header;
    if (!readHeader(file, header)) return false;
    info.format = EImageFormat::bmp;
    info.width = header.width;
    info.height = header.height;
    info.palette = header.bits <= 8;
    info.bitsPerSample = header.bits <= 8 ? header.bits : header.bits == 16 ? 5 : 8;
    info.samples = info.palette ? 1 : 3;
    info.pages = 1;
    info.whole = isReadable(file, header) && holdsPixels(file, header);
    return true;
}

}  // namespace qv
