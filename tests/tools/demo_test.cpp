// The road from counts to temperatures, end to end.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "tools/support.h"

namespace qv::test {
namespace {

constexpr size_t width = 320;
constexpr size_t height = 256;
constexpr size_t frames = 30;

struct Truth {
    std::string name;
    double celsius, x, y, xPerFrame, radius;
};

/// The scene that the demonstration says it simulated.
std::vector<Truth> readTruth(const std::string& csv) {
    std::vector<Truth> all;
    std::istringstream lines(csv);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "name,temperature,x,y,xPerFrame,radius,shape");
    while (std::getline(lines, line)) {
        Truth truth;
        truth.name = line.substr(0, line.find(','));
        const int read = std::sscanf(line.c_str() + truth.name.size(), ",%lf,%lf,%lf,%lf,%lf", &truth.celsius, &truth.x,
                                     &truth.y, &truth.xPerFrame, &truth.radius);
        EXPECT_EQ(read, 5) << line;
        all.push_back(truth);
    }
    return all;
}

/// Mean of the square around a target's centre that lies inside both a disc and a square of its radius.
double meanAt(const std::vector<float>& values, const Truth& truth, size_t frame) {
    const double half = truth.radius * 0.6;
    double sum = 0.0;
    double count = 0.0;
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
            const double dx = static_cast<double>(x) - truth.x - truth.xPerFrame * static_cast<double>(frame);
            if (std::fabs(dx) > half || std::fabs(static_cast<double>(y) - truth.y) > half) continue;
            sum += double{values[(frame * height + y) * width + x]};
            ++count;
        }
    }
    return sum / count;
}

TEST(Demo, RecoversEveryTrueTemperatureWithinTwoTenthsOfAKelvin) {
    const Workshop shop;
    const ToolRun demo = shop.qv("demo data");
    ASSERT_EQ(demo.exitCode, 0) << demo.error;
    EXPECT_NE(demo.out.find("within 0.2 K"), std::string::npos);
    const std::vector<float> values = dataOf<float>(shop.file("data/celsius.saf"));
    ASSERT_EQ(values.size(), width * height * frames);
    const std::vector<Truth> targets = readTruth(shop.read("data/truth.csv"));
    ASSERT_EQ(targets.size(), 7u);
    for (const Truth& truth : targets) {
        for (size_t frame = 0; frame < frames; ++frame) {
            EXPECT_NEAR(meanAt(values, truth, frame), truth.celsius, 0.2) << truth.name << ", frame " << frame;
        }
    }
    EXPECT_EQ(shop.read("data/celsius.png").substr(1, 3), "PNG");
}

TEST(Demo, SoDoesThePagesOwnPolynomial) {
    const Workshop shop;
    ASSERT_EQ(shop.qv("demo data").exitCode, 0);
    const ToolRun outcome = shop.qv(
        "calibrate data/counts.saf --rcal data/camera.rcal --emissivity 0.95 --reflected 22 --inverse polynomial -o "
        "p.saf");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.error;
    const std::vector<float> values = dataOf<float>(shop.file("p.saf"));
    for (const Truth& truth : readTruth(shop.read("data/truth.csv"))) {
        EXPECT_NEAR(meanAt(values, truth, 0), truth.celsius, 0.2) << truth.name;
    }
}

TEST(Demo, GivesTheSameDataEachTimeAndReplacesThemOnlyWhenForced) {
    const Workshop shop;
    ASSERT_EQ(shop.qv("demo data").exitCode, 0);
    const std::string raw = shop.read("data/frames.raw");
    const ToolRun again = shop.qv("demo data");
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_TRUE(isOneSentence(again.error)) << again.error;
    ASSERT_EQ(shop.qv("demo data --force").exitCode, 0);
    EXPECT_TRUE(shop.read("data/frames.raw") == raw);
    ASSERT_EQ(shop.qv("demo other").exitCode, 0);
    EXPECT_TRUE(shop.read("other/frames.raw") == raw);
    EXPECT_EQ(shop.read("other/points.csv"), shop.read("data/points.csv"));
}

}  // namespace
}  // namespace qv::test
