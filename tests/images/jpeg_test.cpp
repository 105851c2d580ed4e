#include <gtest/gtest.h>

#include <cstdio>

extern "C" {
#include <jpeglib.h>
}

#include "images/support.h"

namespace qv {
namespace {

using namespace test;

std::string savedJPEG(const std::string& payload, int quality = 90, uint32_t width = 40, uint32_t height = 30) {
    Picture picture(width, height);
    CPropertyArray properties;
    properties[u"quality"] = quality;
    const auto file = memoryFile("");
    EXPECT_TRUE(SaveJPEG(picture.handle(), file, memoryFile(payload), properties)) << diagnostic();
    return bytesOf(*file);
}

/// KVOR segments as the format's page lays them out.
std::string kvorSegments(const std::string& payload) {
    std::string out;
    const size_t count = (payload.size() + 65523) / 65524;
    for (size_t i = 0; i < count; ++i) {
        const std::string data = payload.substr(i * 65524, 65524);
        const size_t length = data.size() + 10;
        out += "\xFF\xE1";
        out += static_cast<char>(length >> 8);
        out += static_cast<char>(length);
        out += std::string("KVOR\0\x01", 6) + static_cast<char>(i) + static_cast<char>(count - 1) + data;
    }
    return out;
}

std::string segment(char marker, const std::string& contents) {
    return std::string("\xFF") + marker + '\0' + static_cast<char>(contents.size() + 2) + contents;
}

constexpr size_t jfifEnd = 20;  ///< SOI and the JFIF segment that libjpeg writes.

/// A picture of `components` in a colour space, by libjpeg itself.
std::string codedJPEG(J_COLOR_SPACE space, int components, bool progressive, uint8_t level, bool arithmetic = false) {
    jpeg_compress_struct encoder = {};
    jpeg_error_mgr errors;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    encoder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&encoder);
    jpeg_mem_dest(&encoder, &bytes, &size);
    encoder.image_width = encoder.image_height = 16;
    encoder.input_components = components;
    encoder.in_color_space = space;
    jpeg_set_defaults(&encoder);
    if (progressive) jpeg_simple_progression(&encoder);
    encoder.arith_code = arithmetic ? TRUE : FALSE;
    jpeg_start_compress(&encoder, TRUE);
    std::vector<uint8_t> row(64, level);
    JSAMPROW rows[1] = {row.data()};
    while (encoder.next_scanline < 16) jpeg_write_scanlines(&encoder, rows, 1);
    jpeg_finish_compress(&encoder);
    jpeg_destroy_compress(&encoder);
    const std::string made(reinterpret_cast<char*>(bytes), size);
    std::free(bytes);
    return made;
}

TEST(JPEG, LoadsEveryColourSpace) {
    const struct {
        J_COLOR_SPACE space;
        int components;
        bool progressive;
        const char* pixel;
    } cases[] = {{JCS_GRAYSCALE, 1, false, "C8C8C8"}, {JCS_RGB, 3, true, "C8C8C8"}, {JCS_CMYK, 4, false, "9D9D9D"}};
    for (const auto& c : cases) {
        Picture picture;
        ASSERT_TRUE(LoadJPEG(memoryFile(codedJPEG(c.space, c.components, c.progressive, 200)), picture.bitmap()))
            << diagnostic();
        EXPECT_EQ(picture.text().substr(0, 6), c.pixel) << c.space;
    }
}

TEST(JPEG, PicturesReturnNearlyAndQualityCounts) {
    Picture picture(40, 30), back;
    ASSERT_TRUE(LoadJPEG(memoryFile(savedJPEG("", 100)), back.bitmap()));
    for (uint32_t y = 0; y < 30; ++y) {
        for (uint32_t x = 0; x < 40; ++x) {
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(picture.at(x, y)[c], back.at(x, y)[c], 12) << x << ' ' << y;
        }
    }
    const auto plain = memoryFile(std::string(100000, 'x'));
    ASSERT_TRUE(SaveJPEG(picture.handle(), plain));
    EXPECT_EQ(bytesOf(*plain), savedJPEG("", 75)) << "libjpeg's default";
    EXPECT_EQ(savedJPEG("", 101), savedJPEG("", 75));
    EXPECT_NE(savedJPEG("", 100), savedJPEG("", 75));
}

TEST(RadiometricJPEG, SegmentsToTheByte) {
    const std::string plain = savedJPEG("");
    for (const size_t size : {0u, 1u, 65524u, 65525u, 131048u, 131049u}) {
        const std::string payload = someBytes(size), file = savedJPEG(payload);
        EXPECT_EQ(file, plain.substr(0, jfifEnd) + kvorSegments(payload) + plain.substr(jfifEnd)) << size;
    }
}

TEST(RadiometricJPEG, PayloadReturns) {
    const TSharedPtr<CMemFile> memory = CMemFile::Create();
    memory->WriteBytes("old contents that are longer", 28);
    const TSharedPtr<IFile> payload(memory);
    // More segments than one byte can count; fewer bytes than were there before; nothing.
    for (const size_t size : {size_t{256} * 65524 + 5, size_t{1} << 20, size_t{3865}, size_t{3864}, size_t{0}}) {
        const std::string bytes = someBytes(size);
        const auto file = memoryFile(savedJPEG(bytes));
        ClearDiagnostic();
        EXPECT_EQ(RadiometricJPEG(file, payload), size > 3864) << size;
        EXPECT_EQ(payload->GetPosition(), 0);
        EXPECT_TRUE(bytesOf(*payload) == bytes) << size;
        if (size == 3864) {
            EXPECT_EQ(diagnostic(), "expected a measurement of more than 3864 bytes in the picture, found 3864 bytes");
        }
        SRadiometricInfo info;
        EXPECT_TRUE(GetRadiometricInfo(file, info));
        EXPECT_EQ(info.payloadSize, static_cast<int64_t>(size));
        EXPECT_EQ(info.segments, (size + 65523) / 65524);
        EXPECT_TRUE(info.inOrder);
    }
    EXPECT_FALSE(RadiometricJPEG(memoryFile("BM no JPEG"), payload));
}

TEST(RadiometricJPEG, SegmentsInFileOrderIntoAnyFile) {
    const std::string plain = savedJPEG(""), first = std::string(65524, 'a'), second = "the second";
    const std::string one = kvorSegments(first), two = kvorSegments(second);  // both have index 0
    const auto file = memoryFile(plain.substr(0, jfifEnd) + two + segment('\xE1', "Exif") + segment('\xE1', "KVOR") +
                                 one + plain.substr(jfifEnd));
    // A file that is no CMemFile gets the bytes at its position and keeps what is behind them.
    const auto window = CBoundedFile::Create(memoryFile(std::string(70000, '.')), 0, 70000);
    window->SetPosition(10);
    Picture picture;
    ASSERT_TRUE(LoadJPEG(file, picture.bitmap(), window)) << diagnostic();
    EXPECT_EQ(window->GetPosition(), 10 + 10 + 65524);
    EXPECT_TRUE(bytesOf(*window) == std::string(10, '.') + second + first + std::string(70000 - 65544, '.'));
    SRadiometricInfo info;
    ASSERT_TRUE(GetRadiometricInfo(file, info));
    EXPECT_EQ(info.segments, 3u);
    EXPECT_FALSE(info.inOrder);
    const auto out = memoryFile("");
    ASSERT_TRUE(UnwrapRadiometricJPEG(file, out));
    EXPECT_TRUE(bytesOf(*out) == second + first);
}

TEST(RadiometricJPEG, WrapAndStripLeaveTheRest) {
    const std::string plain = savedJPEG(""), payload = someBytes(70000), other = someBytes(5000);
    const std::string exif = segment('\xE1', "Exif with FF D9: \xFF\xD9"), icc = segment('\xE2', "ICC_PROFILE");
    const std::string comment = segment('\xFE', "said"), front = plain.substr(0, jfifEnd), rest = plain.substr(jfifEnd);
    const std::string trailer = "\xFF\xD8 a second picture \xFF\xE1 KVOR";
    const std::string picture = front + exif + icc + comment + rest + trailer;
    const auto wrapped = memoryFile(std::string(200000, 'x')), stripped = memoryFile("");
    ASSERT_TRUE(WrapRadiometricJPEG(memoryFile(picture), memoryFile(payload), wrapped)) << diagnostic();
    EXPECT_TRUE(bytesOf(*wrapped) == front + exif + icc + kvorSegments(payload) + comment + rest + trailer);
    ASSERT_TRUE(StripRadiometricJPEG(wrapped, stripped));
    EXPECT_TRUE(bytesOf(*stripped) == picture);

    // What a picture carried before goes, wherever it stood.
    const auto again = memoryFile("");
    ASSERT_TRUE(WrapRadiometricJPEG(memoryFile(front + kvorSegments(payload) + exif + kvorSegments(other) + rest),
                                    memoryFile(other), again));
    EXPECT_TRUE(bytesOf(*again) == front + exif + kvorSegments(other) + rest);

    // Fill bytes go with the marker behind them, so that they do not turn stray bytes into one.
    ASSERT_TRUE(StripRadiometricJPEG(memoryFile(front + "\xFF" + kvorSegments(other) + "\x05" + rest), stripped));
    EXPECT_TRUE(bytesOf(*stripped) == front + "\x05" + rest);

    EXPECT_FALSE(StripRadiometricJPEG(memoryFile(front + exif.substr(0, 9)), stripped));
    EXPECT_EQ(diagnostic(), "expected a whole segment of a JPEG picture, found the end of the file (byte 29)");
    EXPECT_FALSE(WrapRadiometricJPEG(wrapped, wrapped, stripped));
    EXPECT_FALSE(UnwrapRadiometricJPEG(memoryFile("BM"), stripped));
}

TEST(JPEG, CutAndHugePicturesAreRefused) {
    const std::string whole = savedJPEG(someBytes(5000));
    Picture picture(2, 2);
    for (const size_t cut : {size_t{3}, size_t{200}, whole.size() / 2 + 2600, whole.size() - 40}) {
        ClearDiagnostic();
        EXPECT_FALSE(LoadJPEG(memoryFile(whole.substr(0, cut)), picture.bitmap())) << cut;
        EXPECT_EQ(LastDiagnostic().found, CString("the end of the file")) << cut;
        EXPECT_TRUE(isZeroed(picture.bitmap()));
    }
    EXPECT_TRUE(LoadJPEG(memoryFile(whole.substr(0, whole.size() - 2)), picture.bitmap())) << "only its last marker";

    std::string huge = whole;
    const size_t frame = huge.find("\xFF\xC0");
    huge.replace(frame + 5, 4, "\xFF\xDC\xFF\xDC");
    EXPECT_FALSE(LoadJPEG(memoryFile(huge), picture.bitmap()));
    EXPECT_TRUE(diagnostic().starts_with("expected the pixels of 65500 by 65500, found ")) << diagnostic();
    SImageInfo info;
    EXPECT_TRUE(GetImageInfo(memoryFile(huge), info));
    EXPECT_TRUE(info.width == 65500u && !info.whole);
}

TEST(JPEG, CutArithmeticAndProgressivePicturesAreRefused) {
    for (const int kind : {0, 1, 2, 3}) {
        const bool progressive = kind % 2 != 0, arithmetic = kind >= 2;
        const std::string whole = codedJPEG(JCS_RGB, 3, progressive, 200, arithmetic);
        Picture picture;
        ASSERT_TRUE(LoadJPEG(memoryFile(whole), picture.bitmap())) << kind << diagnostic();
        EXPECT_EQ(picture.text().substr(0, 6), "C8C8C8") << kind;
        const size_t end = whole.size() - (progressive || arithmetic ? 0 : 2);  // the last marker holds no pixel
        for (size_t cut = 0; cut < end; ++cut) {
            EXPECT_FALSE(LoadJPEG(memoryFile(whole.substr(0, cut)), picture.bitmap())) << kind << ' ' << cut;
            EXPECT_TRUE(isZeroed(picture.bitmap()));
        }
    }
}

TEST(JPEG, WarningsGoToTheDiagnostic) {
    std::string damaged = savedJPEG("");
    damaged.insert(jfifEnd, "stray bytes");
    Picture picture;
    ClearDiagnostic();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(LoadJPEG(memoryFile(damaged), picture.bitmap()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(diagnostic().find("extraneous bytes"), std::string::npos) << diagnostic();
}

}  // namespace
}  // namespace qv
