#include <array>
#include <bit>
#include <vector>

#include "images/formats.h"
#include "images/png_library.h"
#include "qv/image.h"
#include "qv/values.h"

namespace qv {

namespace {

using namespace Private;

using Background = std::array<uint8_t, 3>;  ///< Blue, green, red.

/// White, too, when the property's text is none of the two forms.
Background backgroundOf(const CPropertyArray& properties) {
    const CString text(properties.GetValue(u"BackgroundColor"));
    uint32_t colour = 0xFFFFFF;
    if (text.size() == 7 && text.c_str()[0] == u'#') {
        if (CUInt32::ParseHex(text.c_str() + 1, colour) != EParse::ok) colour = 0xFFFFFF;
        return {static_cast<uint8_t>(colour), static_cast<uint8_t>(colour >> 8), static_cast<uint8_t>(colour >> 16)};
    }
    if (CUInt32::Parse(text.c_str(), colour) != EParse::ok) colour = 0xFFFFFF;
    return {static_cast<uint8_t>(colour >> 16), static_cast<uint8_t>(colour >> 8), static_cast<uint8_t>(colour)};
}

/// Lays a row of blue, green, red, alpha over a background.
void compose(const uint8_t* in, uint32_t width, const Background& background, uint8_t* out) {
    for (uint32_t x = 0; x < width; ++x, in += 4, out += 3) {
        const uint32_t alpha = in[3];
        for (uint32_t channel = 0; channel < 3; ++channel) {
            out[channel] =
                static_cast<uint8_t>((in[channel] * alpha + background[channel] * (255 - alpha) + 127) / 255);
        }
    }
}

/// Has the library give blue, green, red, and alpha where there is any, of 8 bits each.
void askForColours(png_structp png, png_infop info) {
    png_set_expand(png);
    png_set_scale_16(png);
    png_set_gray_to_rgb(png);
    png_set_bgr(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
}

/// Reads all passes into rows `stride` bytes apart.
bool readPasses(PngReader& reader, uint8_t* rows, size_t stride) {
    return reader.run([&] {
        const int passes = png_set_interlace_handling(reader.png());
        const uint32_t height = reader.height();
        for (int pass = 0; pass < passes; ++pass) {
            for (uint32_t y = 0; y < height; ++y) png_read_row(reader.png(), rows + stride * y, nullptr);
        }
    });
}

bool readComposed(PngReader& reader, const Background& background, const SBitmap& bitmap) {
    if (png_get_interlace_type(reader.png(), reader.info()) == PNG_INTERLACE_NONE) {
        std::vector<uint8_t> row(size_t{bitmap.width} * 4);
        return reader.run([&] {
            for (uint32_t y = 0; y < bitmap.height; ++y) {
                png_read_row(reader.png(), row.data(), nullptr);
                compose(row.data(), bitmap.width, background, rowOf(bitmap, y));
            }
        });
    }
    SBitmap whole;
    if (!CreateBitmap(bitmap.width, bitmap.height, 32, whole)) {
        return reader.run([&] { png_error(reader.png(), pngNoBitmap); });
    }
    const bool read = readPasses(reader, whole.pixels, whole.bytesPerRow);
    for (uint32_t y = 0; read && y < bitmap.height; ++y) {
        compose(rowOf(whole, y), bitmap.width, background, rowOf(bitmap, y));
    }
    DestroyBitmap(whole);
    return read;
}

}  // namespace

bool IsPNG(const TSharedPtr<IFile>& file) {
    uint8_t signature[8];
    if (!file) return false;
    file->SeekToBegin();
    const bool is = file->ReadBytes(signature, sizeof signature) && png_sig_cmp(signature, 0, sizeof signature) == 0;
    file->SeekToBegin();
    return is;
}

bool LoadPNG(const TSharedPtr<IFile>& file, const CPropertyArray& properties, SBitmap& bitmap) {
    PendingBitmap pending(bitmap);
    if (!file) return false;
    PngReader reader(*file);
    if (!reader.readHeader()) return reader.fail();
    const bool made = reader.isPlausible() && CreateBitmap(reader.width(), reader.height(), 24, bitmap);
    const bool ready = reader.run([&] {
        if (!made) png_error(reader.png(), pngNoBitmap);
        askForColours(reader.png(), reader.info());
    });
    if (!ready) return reader.fail();
    const bool opaque = png_get_channels(reader.png(), reader.info()) == 3;
    const bool read = opaque ? readPasses(reader, bitmap.pixels, bitmap.bytesPerRow)
                             : readComposed(reader, backgroundOf(properties), bitmap);
    if (!read) return reader.fail();
    reader.finish();
    return pending.keep();
}

bool LoadPNG16(const TSharedPtr<IFile>& file, uint16_t* buffer, uint32_t size) {
    if (!file || buffer == nullptr) return false;
    PngReader reader(*file);
    if (!reader.readHeader()) return reader.fail();
    const bool ready = reader.run([&] {
        png_structp png = reader.png();
        if (png_get_bit_depth(png, reader.info()) != 16) png_error(png, pngNot16Bit);
        if (png_get_color_type(png, reader.info()) != PNG_COLOR_TYPE_GRAY) png_error(png, pngUnexpected);
        if (uint64_t{reader.width()} * reader.height() > size / sizeof *buffer) png_error(png, pngSmallBuffer);
        if constexpr (std::endian::native == std::endian::little) png_set_swap(png);
        png_set_interlace_handling(png);
        png_read_update_info(png, reader.info());
    });
    const size_t stride = size_t{reader.width()} * sizeof *buffer;
    if (!ready || !readPasses(reader, reinterpret_cast<uint8_t*>(buffer), stride)) return reader.fail();
    reader.finish();
    return true;
}

bool Private::readPNGInfo(IFile& file, SImageInfo& info) {
    PngReader reader(file);
    if (!reader.readHeader()) return false;
    const int type = png_get_color_type(reader.png(), reader.info());
    info.format = EImageFormat::png;
    info.width = reader.width();
    info.height = reader.height();
    info.bitsPerSample = png_get_bit_depth(reader.png(), reader.info());
    info.samples = png_get_channels(reader.png(), reader.info());
    info.palette = type == PNG_COLOR_TYPE_PALETTE;
    info.pages = 1;
    if (info.bitsPerSample == 16 && type == PNG_COLOR_TYPE_GRAY) info.dataType = EDataType::uint16;
    info.whole =
        reader.isPlausible() || refuse(file, CString::FromFormat(u"the pixels of %u by %u", info.width, info.height),
                                       CString::FromFormat(u"%I64d bytes", file.GetSize()));
    return true;
}

}  // namespace qv
