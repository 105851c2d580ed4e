#include <gtest/gtest.h>

#include <random>

#include "images/support.h"

namespace qv {
namespace {

using namespace test;

/// The file header and a header of 40 bytes; every number as it stands in the file.
std::string head(const char* pixelsAt, const char* width, const char* height, const char* bits, const char* compression,
                 const char* colours = "00000000") {
    return std::string("424D 00000000 00000000") + pixelsAt + "28000000" + width + height + "0100" + bits +
           compression + "00000000 00000000 00000000" + colours + "00000000";
}

const std::string zeros20(40, '0'), zeros39(78, '0'), zeros52(104, '0');
const std::string two = "00000000 FFFFFF00", four = two + "11223300 44556600";

const struct {
    const char* name;
    std::string file;
    const char* pixels;  ///< "" when the load fails.
} loads[] = {
    {"1 bit", head("3E000000", "03000000", "02000000", "0100", "00000000") + two + "40000000 A0000000",
     "FFFFFF 000000 FFFFFF / 000000 FFFFFF 000000"},
    {"4 bits, top-down, an index behind the palette",
     head("46000000", "03000000", "FEFFFFFF", "0400", "00000000", "04000000") + four + "12300000 03F00000",
     "FFFFFF 112233 445566 / 000000 445566 000000"},
    {"8 bits", head("46000000", "03000000", "01000000", "0800", "00000000", "04000000") + four + "03020100",
     "445566 112233 FFFFFF"},
    {"core header",
     "424D 00000000 00000000 4A000000 0C000000 0200 0100 0100 0400 000000 FFFFFF 112233" + zeros39 + "12000000",
     "FFFFFF 112233"},
    {"16 bits", head("36000000", "02000000", "01000000", "1000", "00000000") + "1F7C E003", "FF00FF 00FF00"},
    {"16 bits, 5-6-5",
     head("42000000", "02000000", "01000000", "1000", "03000000") + "00F80000 E0070000 1F000000 E007 10F8",
     "00FF00 8400FF"},
    {"24 bits, without the last padding",
     head("36000000", "01000000", "02000000", "1800", "00000000") + "01020300 040506", "040506 / 010203"},
    {"32 bits", head("36000000", "01000000", "01000000", "2000", "00000000") + "01020304", "010203"},
    {"V4 header, fields of 8, 6 and 10 bits",
     "424D 00000000 00000000 7A000000 6C000000 01000000 01000000 0100 2000 03000000" + zeros20 +
         "000000FF 0000FC00 FF030000 00000000" + zeros52 + "0002FC40",
     "80FF40"},
    {"RLE8",
     head("46000000", "04000000", "03000000", "0800", "01000000", "04000000") + four +
         "0201 0202 0000 0003 010203 00 0000 0002 0200 0103 0001",
     "000000 000000 445566 000000 / FFFFFF 112233 445566 000000 / FFFFFF FFFFFF 112233 112233"},
    {"RLE4",
     head("46000000", "05000000", "02000000", "0400", "02000000", "04000000") + four + "0512 0000 0003 1230 0201 0001",
     "FFFFFF 112233 445566 000000 FFFFFF / FFFFFF 112233 FFFFFF 112233 FFFFFF"},
    {"runs beyond the row are dropped",
     head("46000000", "02000000", "01000000", "0800", "01000000", "04000000") + four + "0901 0001", "FFFFFF FFFFFF"},
    {"RLE8, cut", head("46000000", "04000000", "02000000", "0800", "01000000", "04000000") + four + "0201", ""},
    {"pixels cut", head("36000000", "02000000", "02000000", "1800", "00000000") + "0102030405060000 010203", ""},
    {"4 gigapixels", head("36000000", "FFFF0000", "FFFF0000", "1800", "00000000") + "010203", ""},
    {"4 gigapixels of runs", head("46000000", "FFFF0000", "FFFF0000", "0800", "01000000") + four + "0001", ""},
    {"5 bits", head("36000000", "01000000", "01000000", "0500", "00000000") + "01020304", ""},
    {"a field with a hole",
     head("42000000", "01000000", "01000000", "1000", "03000000") + "00F50000 E0070000 1F000000 E007", ""},
};

TEST(BMP, LoadsEveryKind) {
    for (const auto& c : loads) {
        Picture picture(2, 2);  // released by the load
        const auto file = memoryFile(fromHex(c.file));
        EXPECT_TRUE(IsBMP(file)) << c.name;
        ClearDiagnostic();
        EXPECT_EQ(LoadBMP(file, picture.bitmap()), *c.pixels != 0) << c.name << ": " << diagnostic();
        EXPECT_EQ(picture.text(), c.pixels) << c.name;
        if (*c.pixels != 0) continue;
        EXPECT_TRUE(isZeroed(picture.bitmap())) << c.name;
        EXPECT_TRUE(LastDiagnostic().IsSet()) << c.name;
    }
}

TEST(BMP, WritesTheseBytes) {
    const auto saved = [](Picture& picture, const CPropertyArray& properties) {
        const auto file = memoryFile(std::string(200, 'x'));  // the old contents go
        EXPECT_TRUE(SaveBMP(picture.handle(), file, properties)) << diagnostic();
        return toHex(bytesOf(*file));
    };
    CPropertyArray properties;
    Picture small(1, 2);
    const uint8_t pixels[] = {1, 2, 3, 4, 5, 6};
    for (uint32_t y = 0; y < 2; ++y) std::copy_n(pixels + 3 * y, 3, small.at(0, y));
    EXPECT_EQ(saved(small, properties),
              toHex(fromHex("424D 3E000000 00000000 36000000 28000000 01000000 02000000 0100 1800 00000000 08000000"
                            "00000000 00000000 00000000 00000000 04050600 01020300")));
    properties[u"topDown"] = 1;
    properties[u"bits"] = 16;
    EXPECT_EQ(saved(small, properties).substr(36), toHex(fromHex("01000000 FEFFFFFF 0100 1000 00000000 08000000"
                                                                 "00000000 00000000 00000000 00000000 0000 0000 0000"
                                                                 "0000")));
    Picture runs(5, 1);
    for (uint32_t x = 0; x < 5; ++x) std::fill_n(runs.at(x, 0), 3, static_cast<uint8_t>(x == 4 ? 9 : 0));
    properties[u"bits"] = 8;
    properties[u"compression"] = u"rle";
    EXPECT_EQ(saved(runs, properties),
              toHex(fromHex("424D 46000000 00000000 3E000000 28000000 05000000 01000000 0100 0800 01000000 08000000"
                            "00000000 00000000 02000000 00000000 00000000 09090900 0400 0101 0000 0001")));
}

TEST(BMP, RoundTrips) {
    std::mt19937 random(5);
    for (int round = 0; round < 60; ++round) {
        const int bits[] = {1, 4, 8, 24, 32};
        const int depth = bits[round % 5];
        const auto width = static_cast<uint32_t>(random() % 600 + 1), height = static_cast<uint32_t>(random() % 5 + 1);
        const auto colours = static_cast<uint32_t>(depth > 8 ? 256 : 1 << depth);
        const auto stretch = static_cast<uint32_t>(random() % 4 + 1);
        Picture picture(width, height), back;
        for (uint32_t i = 0; i < width * height; i += stretch) {
            const auto value = static_cast<uint8_t>(random() % colours);
            for (uint32_t j = i; j < std::min(i + stretch, width * height); ++j) {
                std::fill_n(picture.at(j % width, j / width), 3, value);
            }
        }
        CPropertyArray properties;
        properties[u"bits"] = depth;
        properties[u"topDown"] = static_cast<int>(random() % 2);
        if (random() % 2 == 0) properties[u"compression"] = u"rle";
        const auto file = memoryFile("");
        ASSERT_TRUE(SaveBMP(picture.handle(), file, properties)) << diagnostic();
        ASSERT_TRUE(LoadBMP(file, back.bitmap())) << diagnostic();
        ASSERT_EQ(back.text(), picture.text()) << depth << " bits, round " << round;
    }
    Picture colourful(20, 20);
    CPropertyArray properties;
    properties[u"bits"] = 8;
    EXPECT_FALSE(SaveBMP(colourful.handle(), memoryFile(""), properties));
    EXPECT_EQ(diagnostic(), "expected a picture of at most 256 colours, found more");
}

}  // namespace
}  // namespace qv
