#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

/// Three frames of 40 by 30 counts, and the same as temperatures.
class Pictures : public testing::Test {
protected:
    void SetUp() override {
        std::vector<uint16_t> counts(40 * 30 * 3);
        std::vector<float> celsius(counts.size());
        for (size_t i = 0; i < counts.size(); ++i) {
            counts[i] = static_cast<uint16_t>(i * 17);
            celsius[i] = static_cast<float>(i) / 7;
        }
        shop.write("counts.saf", recording<uint16_t>(40, 30, "UInt16", counts));
        shop.write("celsius.saf", recording<float>(40, 30, "Flt32", celsius));
    }
    ToolRun done(const std::string& arguments) {
        const ToolRun outcome = shop.qv(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << arguments << '\n' << outcome.error;
        return outcome;
    }
    std::string frames(const std::string& name) { return bytesOf(dataOf<char>(shop.file(name))); }
    Workshop shop;
};

TEST_F(Pictures, FramesComeBackFromStacksAndGreyPictures) {
    done("export celsius.saf -o celsius.tif");
    EXPECT_NE(done("image info celsius.tif").out.find("3 pages, values as Flt32"), std::string::npos);
    done("import celsius.tif -o back.saf");
    EXPECT_EQ(frames("back.saf"), frames("celsius.saf"));
    done("export counts.saf -o grey.png");
    done("import grey-0000.png grey-0001.png grey-0002.png -o grey.saf");
    EXPECT_EQ(frames("grey.saf"), frames("counts.saf"));
    done("export celsius.saf --frames 1:1 --range 100:200 -o scaled.png");
    done("import scaled.png -o scaled.saf");
    done("export scaled.saf -o scaled.csv");
    EXPECT_EQ(shop.read("scaled.csv").substr(0, 5), "46811");  // 1200 / 7 degrees
    done("export celsius.saf --frames 0 -o first.csv");
    EXPECT_EQ(shop.read("first.csv").substr(0, 22), "0,0.14285715,0.2857143");
}

TEST_F(Pictures, AJpegCarriesItsFrameAndWhatGoesWithIt) {
    shop.write("camera.rcal", std::string(5000, 'c'));
    done("render counts.saf --frame 1 --radiometric --with camera.rcal -o frame.jpg");
    done("rjpeg unwrap frame.jpg -o data/");
    EXPECT_EQ(shop.read("data/camera.rcal"), shop.read("camera.rcal"));
    EXPECT_EQ(frames("data/counts.saf"), frames("counts.saf").substr(2400, 2400));
    done("render counts.saf --quality 50 -o plain.jpg");
    done("rjpeg wrap plain.jpg counts.saf -o whole.jpg");
    done("rjpeg unwrap whole.jpg -o whole.saf");
    EXPECT_EQ(shop.read("whole.saf"), shop.read("counts.saf"));
    EXPECT_EQ(shop.qv("rjpeg unwrap whole.jpg -o data/ --force").exitCode, 2);  // one file, without a name of its own
    EXPECT_EQ(shop.qv("rjpeg unwrap whole.jpg -o whole.jpg --force").exitCode, 2);
    done("rjpeg strip whole.jpg -o bare.jpg");
    EXPECT_EQ(shop.read("bare.jpg"), shop.read("plain.jpg"));
    done("image convert frame.jpg frame.bmp");
    done("rjpeg wrap frame.bmp counts.saf -o again.jpg");
    EXPECT_NE(done("rjpeg info again.jpg").out.find(std::to_string(shop.read("counts.saf").size()) + " B"),
              std::string::npos);
}

TEST_F(Pictures, ABrokenChainOfPagesCostsNoPageInFront) {
    done("export celsius.saf -o stack.tif");
    std::string stack = shop.read("stack.tif");
    stack.replace(stack.rfind("Tesnorik") - 4, 4, "\xFF\xFF\xFF\x7F");  // where the next page would be
    shop.write("broken.tif", stack);
    EXPECT_EQ(shop.qv("image convert stack.tif stack.png").exitCode, 3);  // floats
    const ToolRun info = shop.qv("image info broken.tif --json");
    EXPECT_EQ(info.exitCode, 4);
    auto facts = JsonReader::flatten(info.out);
    EXPECT_EQ(facts["pages"], "3");
    EXPECT_EQ("qv: " + facts["problem"] + "\n", info.error);
    EXPECT_NE(facts["problem"].find("page 4"), std::string::npos) << info.error;
    EXPECT_EQ(shop.qv("import broken.tif -o out.saf").exitCode, 4);
    done("render counts.saf -o counts.tif");
    std::string picture = shop.read("counts.tif");
    picture.replace(picture.rfind("Tesnorik") - 10, 4, "\xFF\xFF\xFF\x7F");  // in front of the bits of three channels
    shop.write("cut.tif", picture);
    EXPECT_NE(done("image convert cut.tif cut.png").error.find("qv: warning: cut.tif: "), std::string::npos);
    done("image convert counts.tif counts.png");
    EXPECT_TRUE(shop.read("cut.png") == shop.read("counts.png"));
}

TEST_F(Pictures, RefusalsSayWhatIsWrong) {
    done("render counts.saf -o plain.jpg");
    done("render counts.saf -o plain.png");
    shop.write("cut.png", shop.read("plain.png").substr(0, 500));
    shop.write("text.txt", "no picture");
    shop.write("cut.tif", std::string("II*\0\x08\0\0\0\x01\0\x0F\x01\x02\0\x01\0\0\0\0\0\0\0\0\0\0\0", 26));
    // A header that promises 900 megapixels of 16 bits in front of nothing.
    shop.write("bomb.png", std::string("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\x75\x30\0\0\x75\x30\x10\0\0\0\0", 29) +
                               std::string("\x13\xDC\x7B\x25\0\0\0\0IDAT\x35\xAF\x06\x1E", 16));
    const struct {
        const char* arguments;
        int code;
        const char* names;
    } cases[] = {
        {"image info text.txt", 3, "text.txt"},
        {"image info absent.png", 5, "absent.png"},
        {"image convert cut.png out.bmp", 4, "cut.png"},
        {"image convert plain.png plain.jpg", 1, "--force"},
        {"image convert plain.png out.png --quality 9", 2, "a PNG"},
        {"image convert plain.png out.TIF --compression 9", 2, "a TIFF"},
        {"image convert plain.png out.jpeg --bits 8", 2, "a JPEG"},
        {"image convert plain.png out.bmp --compression 9", 2, "rle"},
        {"image convert plain.png out.bmp --compression rle", 2, "--bits"},
        {"image convert plain.png out.png --compression rle", 2, "0 to 9"},
        {"image convert plain.png out.png --background white", 2, "white"},
        {"image convert plain.png out.bmp --bits 1", 2, "2 colours"},
        {"image info bomb.png", 4, "30000 by 30000"},
        {"image convert bomb.png out.bmp", 4, "30000 by 30000"},
        {"import bomb.png -o out.saf", 4, "30000 by 30000"},
        {"rjpeg info plain.jpg", 1, ""},
        {"rjpeg info plain.png", 3, "no JPEG"},
        {"rjpeg unwrap plain.jpg -o out", 1, "more than 3864 B"},
        {"rjpeg wrap text.txt counts.saf -o out.jpg", 3, "text.txt"},
        {"render counts.saf --radiometric -o out.png", 2, "JPEG"},
        {"render counts.saf -o counts.saf --force", 2, "is an input"},
        {"export counts.saf -o counts.saf --force", 2, ".tif"},
        {"rjpeg wrap plain.jpg counts.saf -o counts.saf --force", 2, "is an input"},
        {"rjpeg wrap plain.jpg counts.saf -o out.png", 2, "only a JPEG"},
        {"import plain.png -o plain.png --force", 2, "is an input"},
        {"export counts.saf -o out.gif", 2, ".tif"},
        {"export counts.saf --frames 3 -o out.csv", 1, "no frame 3"},
        {"export counts.saf --frames 2:1 -o out.csv", 2, "2:1"},
        {"export celsius.saf -o out.png", 2, "--range"},
        {"import plain.png -o out.saf", 3, "16-bit"},
        {"import cut.tif -o out.saf", 4, "a damaged one"},
        {"import plain.jpg -o out.saf", 3, "neither PNG nor TIFF"},
        {"import plain.png --type uint16 -o out.saf", 2, "--raw"},
    };
    const std::vector<std::string> before = shop.listing();
    for (const auto& row : cases) {
        const ToolRun outcome = shop.qv(row.arguments);
        EXPECT_EQ(outcome.exitCode, row.code) << row.arguments << '\n' << outcome.error;
        EXPECT_NE(outcome.error.find(row.names), std::string::npos) << row.arguments << '\n' << outcome.error;
    }
    EXPECT_EQ(shop.listing(), before);
}

}  // namespace
}  // namespace qv::test
