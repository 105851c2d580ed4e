// TIFF files as pictures.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "images/tiff_library.h"

namespace qv {

namespace {

using namespace Private;

bool isVersion(uint32_t version) { return version == TIFF_VERSION_CLASSIC || version == TIFF_VERSION_BIG; }

/// The library's view of a page as colours.
class Colours {
public:
    explicit Colours(TIFF* tiff) : m_tiff(tiff) {}
    Colours(const Colours&) = delete;
    Colours& operator=(const Colours&) = delete;
    ~Colours() {
        if (m_begun) TIFFRGBAImageEnd(&m_image);
    }

    bool begin(char (&why)[1024]) {
        m_begun = TIFFRGBAImageOK(m_tiff, why) && TIFFRGBAImageBegin(&m_image, m_tiff, 1, why);
        // Rows as they are stored: place() turns them.
        if (m_begun) m_image.req_orientation = m_image.orientation;
        return m_begun;
    }

    bool read(const SBitmap& bitmap) {
        const uint32_t rows = rowsAtOnce(bitmap);
        SBitmap band;
        bool good = CreateBitmap(bitmap.width, rows, 32, band);
        for (uint32_t y = 0; good && y < bitmap.height; y += std::min(rows, bitmap.height - y)) {
            const uint32_t count = std::min(rows, bitmap.height - y);
            m_image.row_offset = static_cast<int>(y);
            auto* const pixels = reinterpret_cast<uint32_t*>(band.pixels);
            good = TIFFRGBAImageGet(&m_image, pixels, bitmap.width, count) != 0;
            for (uint32_t i = 0; good && i < count; ++i) place(pixels + size_t{bitmap.width} * i, y + i, bitmap);
        }
        DestroyBitmap(band);
        return good;
    }

private:
    /// Whole strips or rows of tiles, so that none is decoded twice.
    uint32_t rowsAtOnce(const SBitmap& bitmap) const {
        uint32_t unit = 0;
        TIFFGetFieldDefaulted(m_tiff, TIFFIsTiled(m_tiff) ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, &unit);
        unit = std::clamp<uint32_t>(unit, 1, bitmap.height);
        const uint64_t units = std::max<uint64_t>((uint64_t{1} << 18) / (uint64_t{unit} * bitmap.width), 1);
        return static_cast<uint32_t>(std::min<uint64_t>(unit * units, bitmap.height));
    }

    /// Stores a row with premultiplied alpha where the orientation has it, over white.
    void place(const uint32_t* row, uint32_t y, const SBitmap& bitmap) const {
        const uint16_t o = m_image.orientation;
        const bool upsideDown = o == ORIENTATION_BOTRIGHT || o == ORIENTATION_BOTLEFT || o == ORIENTATION_RIGHTBOT ||
                                o == ORIENTATION_LEFTBOT;
        const bool mirrored = o == ORIENTATION_TOPRIGHT || o == ORIENTATION_BOTRIGHT || o == ORIENTATION_RIGHTTOP ||
                              o == ORIENTATION_RIGHTBOT;
        uint8_t* out = rowOf(bitmap, upsideDown ? bitmap.height - 1 - y : y);
        for (uint32_t x = 0; x < bitmap.width; ++x, out += 3) {
            const uint32_t pixel = row[mirrored ? bitmap.width - 1 - x : x];
            const uint32_t under = 255 - TIFFGetA(pixel);
            out[0] = static_cast<uint8_t>(std::min<uint32_t>(TIFFGetB(pixel) + under, 255));
            out[1] = static_cast<uint8_t>(std::min<uint32_t>(TIFFGetG(pixel) + under, 255));
            out[2] = static_cast<uint8_t>(std::min<uint32_t>(TIFFGetR(pixel) + under, 255));
        }
    }

    TIFF* m_tiff;
    TIFFRGBAImage m_image;
    bool m_begun = false;
};

}  // namespace

bool IsTIFF(const TSharedPtr<IFile>& file) {
    uint8_t bytes[4];
    if (!file) return false;
    file->SeekToBegin();
    bool is = false;
    if (file->ReadBytes(bytes, sizeof bytes)) {
        const uint32_t mark = bytes[0] | uint32_t{bytes[1]} << 8;
        const bool big = mark == 19789 || mark == 17744;
        const bool known = big || mark == 18761 || mark == 20549;
        const uint32_t version = big ? uint32_t{bytes[2]} << 8 | bytes[3] : uint32_t{bytes[3]} << 8 | bytes[2];
        TiffFile tiff;
        is = known && isVersion(version) && tiff.open(*file, "rh");
    }
    file->SeekToBegin();
    return is;
}

bool LoadTIFF(const TSharedPtr<IFile>& file, SBitmap& bitmap) {
    PendingBitmap pending(bitmap);
    TiffFile tiff;
    TiffPage page;
    if (!file) return false;
    if (!tiff.open(*file, "r") || !readPage(tiff, page)) return tiff.fail(u"a TIFF picture");
    if (!isPlausible(tiff, page)) return false;
    // A picture in a single strip is held whole, and as many as four planes of it.
    if (4 * page.storedBytes() > believedBytes && !tiff.open(*file, "r", 4 * page.storedBytes())) {
        return tiff.fail(u"a TIFF picture");
    }
    Colours colours(tiff.get());
    char why[1024] = {};
    if (!colours.begin(why)) return refuse(*file, u"a TIFF picture that can be shown", CString(why));
    if (!CreateBitmap(page.width, page.height, 24, bitmap)) return refuse(*file, u"memory for the picture", u"none");
    if (!colours.read(bitmap)) return tiff.fail(u"the pixels of a TIFF picture");
    tiff.tellWarning();
    return pending.keep();
}

bool SaveTIFF(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray&) {
    if (bitmap == nullptr || !file) return false;
    PixelRows rows(bitmap);
    std::vector<uint8_t> row(size_t{rows.width()} * 3);
    TiffFile tiff;
    bool written = tiff.open(*file, "wl");
    if (written) writeTags(tiff.get(), rows.width(), rows.height(), EDataType::rgb24);
    for (uint32_t y = 0; written && y < rows.height(); ++y) {
        const uint8_t* const from = rows.row(y);
        for (size_t i = 0; i < row.size(); i += 3) {
            row[i] = from[i + 2];
            row[i + 1] = from[i + 1];
            row[i + 2] = from[i];
        }
        written = TIFFWriteScanline(tiff.get(), row.data(), y, 0) >= 0;
    }
    if (!written) {
        tiff.abandon();
        return tiff.fail(u"room for a TIFF picture");
    }
    if (!tiff.close()) return false;
    file->SeekToEnd();
    return true;
}

}  // namespace qv
