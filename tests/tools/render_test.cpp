#include <gtest/gtest.h>
#include <png.h>

#include "tools/support.h"

namespace qv::test {
namespace {

struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;

    std::vector<int> at(uint32_t x, uint32_t y) const {
        const uint8_t* pixel = rgb.data() + (size_t{y} * width + x) * 3;
        return {pixel[0], pixel[1], pixel[2]};
    }
};

Picture readPng(const std::string& bytes) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Picture picture;
    if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0) return picture;
    image.format = PNG_FORMAT_RGB;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr);
    picture.width = image.width;
    picture.height = image.height;
    return picture;
}

/// Two columns, cold and hot, of a frame that is magnified to 640 by 640 pixels.
class Render : public testing::Test {
protected:
    void SetUp() override { shop.write("run.saf", recording<float>(2, 2, "Flt32", {20, 40, 20, 40, 10, 30, 10, 30})); }
    Picture draw(const std::string& arguments) {
        const ToolRun outcome = shop.qv("render run.saf --force -o frame.png " + arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
        return readPng(shop.read("frame.png"));
    }
    Workshop shop;
};

TEST_F(Render, DrawsTheFrameInItsPaletteBesideAScale) {
    const Picture gray = draw("--palette gray");
    ASSERT_GT(gray.width, 640u + 100u);
    ASSERT_GT(gray.height, 640u);
    EXPECT_EQ(gray.at(200, 300), (std::vector{0, 0, 0}));
    EXPECT_EQ(gray.at(500, 300), (std::vector{255, 255, 255}));
    const Picture iron = draw("");
    EXPECT_EQ(iron.at(500, 300), (std::vector{255, 255, 246}));
    EXPECT_NE(draw("--palette rainbow").at(500, 300), iron.at(500, 300));
}

TEST_F(Render, HoldsTheColoursToTheRangeThatIsAskedFor) {
    const Picture half = draw("--palette gray --range 0:40");
    EXPECT_EQ(half.at(200, 300), (std::vector{128, 128, 128}));
    const Picture clipped = draw("--palette gray --range 30:35");
    EXPECT_EQ(clipped.at(200, 300), (std::vector{0, 0, 0}));
    EXPECT_EQ(clipped.at(500, 300), (std::vector{255, 255, 255}));
    EXPECT_EQ(draw("--palette gray --range 0:40 --frame 1").at(500, 300), (std::vector{191, 191, 191}));
}

TEST_F(Render, MarksPixelsWithoutAValueInAColourOfNoPalette) {
    shop.write("run.saf", recording<float>(2, 1, "Flt32", {std::numeric_limits<float>::quiet_NaN(), 40}));
    EXPECT_EQ(draw("").at(200, 200), (std::vector{70, 90, 120}));
}

TEST_F(Render, StatesItsFacts) {
    const ToolRun outcome = shop.qv("render run.saf --frame 1 -o frame.png --json");
    auto facts = JsonReader::flatten(outcome.out);
    EXPECT_EQ(facts["schema"], "qv.render.1");
    EXPECT_EQ(facts["low"], "10");
    EXPECT_EQ(facts["high"], "30");
    EXPECT_EQ(facts["unit"], "counts");
}

TEST_F(Render, SaysWhatIsWrongAndLeavesNothingBehind) {
    const std::vector<std::string> before = shop.listing();
    const struct {
        const char* arguments;
        int code;
    } cases[] = {
        {"run.saf --frame 2 -o f.png", 1},
        {"run.saf --range 5:5 -o f.png", 2},
        {"run.saf --range 5 -o f.png", 2},
        {"absent.saf -o f.png", 5},
        {"run.saf -o nowhere/f.png", 5},
        {"run.saf -o run.saf", 1},
        {".out -o f.png", 3},
    };
    for (const auto& row : cases) {
        const ToolRun outcome = shop.qv(std::string("render ") + row.arguments);
        EXPECT_EQ(outcome.exitCode, row.code) << row.arguments << '\n' << outcome.error;
        EXPECT_TRUE(isOneSentence(outcome.error)) << row.arguments << '\n' << outcome.error;
    }
    EXPECT_EQ(shop.listing(), before);
}

}  // namespace
}  // namespace qv::test
