#include <gtest/gtest.h>
#include <png.h>

#include "images/support.h"

namespace qv {
namespace {

using namespace test;

struct Made {
    uint32_t width;
    uint32_t height;
    int bits;
    int colours;
    bool interlaced;
    std::string rows;  ///< Hexadecimal, packed as PNG has them.
    std::string palette, alphas;
};

/// A file by libpng itself, so that interlacing and chunks are as others write them.
std::string makePNG(const Made& made) {
    std::string bytes, data = fromHex(made.rows);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &bytes,
        [](png_structp p, png_bytep from, size_t count) {
            static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<const char*>(from), count);
        },
        nullptr);
    png_set_IHDR(png, info, made.width, made.height, made.bits, made.colours,
                 made.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, 0, 0);
    const std::string palette = fromHex(made.palette), alphas = fromHex(made.alphas);
    if (!palette.empty()) {
        png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(palette.data()),
                     static_cast<int>(palette.size() / 3));
    }
    if (!alphas.empty()) {
        png_set_tRNS(png, info, reinterpret_cast<png_const_bytep>(alphas.data()), static_cast<int>(alphas.size()),
                     nullptr);
    }
    const size_t stride = data.size() / made.height;
    std::vector<png_bytep> rows(made.height);
    for (uint32_t y = 0; y < made.height; ++y) rows[y] = reinterpret_cast<png_bytep>(data.data() + stride * y);
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    return bytes;
}

TEST(PNG, LoadsEveryKind) {
    const struct {
        const char* name;
        Made made;
        const char* background;
        const char* pixels;
    } cases[] = {
        {"grey of 1 bit, interlaced",
         {3, 2, 1, PNG_COLOR_TYPE_GRAY, true, "A0 40", "", ""},
         nullptr,
         "FFFFFF 000000 FFFFFF / 000000 FFFFFF 000000"},
        {"grey of 16 bits is rounded",
         {2, 1, 16, PNG_COLOR_TYPE_GRAY, false, "0180 017F", "", ""},
         nullptr,
         "010101 010101"},
        {"palette of 4 bits",
         {2, 1, 4, PNG_COLOR_TYPE_PALETTE, false, "12", "000000 010203 040506", ""},
         nullptr,
         "030201 060504"},
        {"palette with transparency",
         {2, 1, 8, PNG_COLOR_TYPE_PALETTE, true, "0001", "0A0B0C 010203", "80 00"},
         "#204080",
         "462515 804020"},
        {"colours with alpha over white",
         {2, 2, 8, PNG_COLOR_TYPE_RGB_ALPHA, false, "01020300 01020380 010203FF 0A0B0CFE", "", ""},
         nullptr,
         "FFFFFF 818080 / 030201 0D0C0B"},
        {"interlaced alpha over a number",
         {1, 1, 16, PNG_COLOR_TYPE_GRAY_ALPHA, true, "FFFF 0000", "", ""},
         "66051",
         "010203"},
        {"a background that is none is white",
         {1, 1, 8, PNG_COLOR_TYPE_GRAY_ALPHA, false, "0000", "", ""},
         "#12345",
         "FFFFFF"},
    };
    for (const auto& c : cases) {
        CPropertyArray properties;
        if (c.background != nullptr) properties[u"BackgroundColor"] = CString(c.background);
        const auto file = memoryFile(makePNG(c.made));
        Picture picture;
        EXPECT_TRUE(IsPNG(file)) << c.name;
        EXPECT_TRUE(LoadPNG(file, properties, picture.bitmap())) << c.name << diagnostic();
        EXPECT_EQ(picture.text(), c.pixels) << c.name;
    }
}

TEST(PNG, SixteenBitValuesComeUnchanged) {
    const Made made{3, 3, 16, PNG_COLOR_TYPE_GRAY, true, "0001 FFFE 0300 0400 1234 0006 0007 8000 0009", "", ""};
    const std::vector<uint16_t> expected{1, 0xFFFE, 0x300, 0x400, 0x1234, 6, 7, 0x8000, 9};
    std::vector<uint16_t> values(9);
    ASSERT_TRUE(LoadPNG16(memoryFile(makePNG(made)), values.data(), 18)) << diagnostic();
    EXPECT_EQ(values, expected);

    const auto file = memoryFile(std::string(500, 'x'));
    ASSERT_TRUE(SavePNG16(file, expected.data(), 3, 3));
    values.assign(9, 0);
    ASSERT_TRUE(LoadPNG16(file, values.data(), 18));
    EXPECT_EQ(values, expected);
    SImageInfo info;
    EXPECT_TRUE(GetImageInfo(file, info));
    EXPECT_EQ(info.dataType, EDataType::uint16);
    EXPECT_EQ(info.bitsPerSample, 16u);
    EXPECT_EQ(file->GetSize(), static_cast<int64_t>(bytesOf(*file).find("IEND") + 8));
}

TEST(PNG, SaysWhyInItsWords) {
    const std::string grey16 = makePNG({3, 3, 16, PNG_COLOR_TYPE_GRAY, false, std::string(36, '7'), "", ""});
    uint16_t values[9];
    const auto word = [&](const std::string& file, uint32_t size) {
        EXPECT_FALSE(LoadPNG16(memoryFile(file), values, size));
        return std::string(CStringMB(LastDiagnostic().found.c_str()).c_str());
    };
    EXPECT_EQ(word(grey16, 17), "Buffer too small");
    EXPECT_EQ(word(grey16.substr(0, grey16.size() - 20), 18), "Read Error");
    EXPECT_EQ(word(makePNG({1, 1, 8, PNG_COLOR_TYPE_GRAY, false, "07", "", ""}), 18), "Not a 16-bit file");
    EXPECT_EQ(word(makePNG({1, 1, 16, PNG_COLOR_TYPE_RGB, false, "070707070707", "", ""}), 18),
              "Not what you're expecting");

    // A header that promises 4 gigapixels in front of a few bytes.
    const std::string huge = fromHex(
        "89504E470D0A1A0A 0000000D 49484452 00010000 00010000 08 02 00 00 00 E3E6A7B4 00000000 49444154 35AF061E");
    Picture picture(2, 2);
    SImageInfo info;
    EXPECT_TRUE(GetImageInfo(memoryFile(huge), info) && !info.whole);
    EXPECT_FALSE(LoadPNG(memoryFile(huge), CPropertyArray(), picture.bitmap()));
    EXPECT_EQ(LastDiagnostic().found, CString("Can't create bitmap"));
    EXPECT_TRUE(isZeroed(picture.bitmap()));
}

TEST(PNG, PicturesReturn) {
    Picture picture(33, 9), back;
    CPropertyArray properties;
    for (const int level : {0, 9}) {
        const auto file = memoryFile("");
        properties[u"compression"] = level;
        ASSERT_TRUE(SavePNG(picture.handle(), file, properties));
        ASSERT_TRUE(LoadPNG(file, CPropertyArray(), back.bitmap()));
        EXPECT_EQ(back.text(), picture.text());
    }
}

}  // namespace
}  // namespace qv
