#include <bit>

#include "images/png_library.h"
#include "measurement/whole_file.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

void onWrite(png_structp png, png_bytep data, size_t count) {
    auto& out = *static_cast<WriteBehind*>(png_get_io_ptr(png));
    if (!out.write(data, static_cast<uint32_t>(count))) png_error(png, "Write Error");
}

void onFlush(png_structp) {}

/// What the two kinds of picture differ in.
struct Shape {
    uint32_t width;
    uint32_t height;
    int bits;
    int colours;
};

/// Writes a picture whose rows `rowAt` gives (const uint8_t*(uint32_t)); it runs while the library may jump, so that no
/// object of its own may have a destructor.
template <class RowAt>
bool writePicture(IFile& file, const Shape& shape, int compression, RowAt rowAt) {
    PngTexts texts;
    WriteBehind out;
    out.file = &file;
    file.SeekToBegin();
    png_structp png = png_create_write_struct(pngVersion, &texts, PngTexts::onError, PngTexts::onWarning);
    if (png == nullptr) return refuse(file, u"a PNG picture to be written", u"no memory");
    png_infop info = png_create_info_struct(png);
    const bool written = guarded(texts.place, [&] {
        png_set_write_fn(png, &out, onWrite, onFlush);
        png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
        png_set_IHDR(png, info, shape.width, shape.height, shape.bits, shape.colours, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (compression >= 0 && compression <= 9) png_set_compression_level(png, compression);
        png_write_info(png, info);
        if (shape.colours == PNG_COLOR_TYPE_RGB) png_set_bgr(png);
        if (shape.bits == 16 && std::endian::native == std::endian::little) png_set_swap(png);
        for (uint32_t y = 0; y < shape.height; ++y) png_write_row(png, rowAt(y));
        png_write_end(png, nullptr);
        if (!out.flush()) png_error(png, "Write Error");
    });
    png_destroy_write_struct(&png, &info);
    if (!written) return refuse(file, u"a PNG picture to be written", CString(texts.error));
    return endPictureHere(file);
}

}  // namespace

bool SavePNG(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties) {
    if (bitmap == nullptr || !file) return false;
    PixelRows rows(bitmap);
    return writePicture(*file, {rows.width(), rows.height(), 8, PNG_COLOR_TYPE_RGB},
                        numberOf(properties, u"compression", -1), [&](uint32_t y) { return rows.row(y); });
}

bool SavePNG16(const TSharedPtr<IFile>& file, const uint16_t* data, uint32_t width, uint32_t height,
               const CPropertyArray& properties) {
    if (!file || data == nullptr) return false;
    return writePicture(*file, {width, height, 16, PNG_COLOR_TYPE_GRAY}, numberOf(properties, u"compression", -1),
                        [&](uint32_t y) { return reinterpret_cast<const uint8_t*>(data + size_t{y} * width); });
}

bool SavePNG16(IFileSystem* fs, const char16_t* path, const uint16_t* data, uint32_t width, uint32_t height,
               const CPropertyArray& properties) {
    return writeWhole(fs, path,
                      [&](const TSharedPtr<IFile>& file) { return SavePNG16(file, data, width, height, properties); });
}

}  // namespace qv
