// qv norm on sensors of a few pixels whose tables are worked out by hand.
#include "qv/norm_file.h"

#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

/// Eight frames of 3 by 3: `means` with an unrest of 1 count, times `unrest[i]`.
std::string frames(const std::vector<int>& means, const std::vector<int>& unrest) {
    std::vector<uint16_t> counts;
    for (int frame = 0; frame < 8; ++frame) {
        for (size_t i = 0; i < 9; ++i) {
            counts.push_back(static_cast<uint16_t>(means[i] + (frame % 2 == 0 ? unrest[i] : -unrest[i])));
        }
    }
    return recording(3, 3, "UInt16", counts);
}

class Norm : public testing::Test {
protected:
    ToolRun run(const std::string& arguments, int code = 0) {
        const ToolRun outcome = shop.qv("norm " + arguments);
        EXPECT_EQ(outcome.exitCode, code) << arguments << '\n' << outcome.out << outcome.error;
        return outcome;
    }
    CNormFile table(const std::string& name) {
        CNormFile norm;
        EXPECT_TRUE(norm.Load(&fileSystem(), CString(shop.file(name)).c_str()));
        return norm;
    }
    Workshop shop;
};

TEST_F(Norm, TwoSourcesGiveGainOffsetAndTheBadPixels) {
    // Level 1000 and 2000. Pixel 1 has twice the gain, pixel 3 half of it; 2 is dead, 4 noisy, 5 stuck, 6 too steep.
    const std::vector<int> unrest = {1, 1, 1, 1, 9, 0, 1, 1, 1};
    shop.write("hot.saf", frames({2000, 3000, 700, 1600, 2000, 2000, 3600, 2000, 2000}, unrest));
    shop.write("cold.saf", frames({1000, 1600, 700, 800, 1000, 1000, 1000, 1000, 1000}, unrest));
    const std::string build = "build hot.saf cold.saf --gain g --offset o --bad b --subframe 3";
    auto facts = JsonReader::flatten(run(build + " --json").out);
    EXPECT_EQ(facts["schema"], "qv.norm.build.1");
    EXPECT_EQ(facts["sources.0.recording"], "cold.saf");
    EXPECT_EQ(facts["sources.1.levelCounts"], "2000");
    EXPECT_EQ(facts["bad"], "4");
    for (const auto& [rule, pixels] : {std::pair{"0", "2"}, {"1", "1"}, {"2", "1"}, {"3", "0"}}) {
        EXPECT_EQ(facts[std::string("rules.") + rule + ".pixels"], pixels) << rule;
    }
    CNormFile gain = table("g"), offset = table("o"), bad = table("b");
    EXPECT_EQ(gain.subframe(), 3);
    EXPECT_EQ(gain.numAvg(), 16);
    EXPECT_EQ(std::vector<float>(gain.GetGains(), gain.GetGains() + 4), (std::vector{1.0F, 1 / 1.4F, 1.0F, 1.25F}));
    EXPECT_EQ(offset.GetOffsets()[1], -143);  // 1000 - 1600 / 1.4
    EXPECT_EQ(offset.GetOffsets()[3], 0);
    const CNormFile::BPINFO map = bad.GetBadPixels();
    EXPECT_EQ(std::vector<int>(map.flags, map.flags + 9), (std::vector{0, 0, 1, 0, 1, 1, 1, 0, 0}));
    EXPECT_EQ(std::vector<uint32_t>(map.subs, map.subs + 9), (std::vector<uint32_t>{0, 1, 1, 3, 1, 8, 3, 7, 8}));

    EXPECT_TRUE(isOneSentence(run(build, 1).error));  // they exist
    EXPECT_NE(run(build + " --force").out.find("rounded to whole counts"), std::string::npos);
}

TEST_F(Norm, OneSourceGivesOffsetsAndSmallNumbersOfFramesNoNoise) {
    shop.write("one.saf", recording<uint16_t>(3, 1, "UInt16", {100, 90, 111}));
    EXPECT_NE(run("build one.saf --offset o --bad b --tolerance 0.1").error.find("noise is not judged"),
              std::string::npos);
    CNormFile offset = table("o"), bad = table("b");
    EXPECT_EQ(std::vector<int>(offset.GetOffsets(), offset.GetOffsets() + 3), (std::vector{0, 10, 0}));
    EXPECT_EQ(bad.GetBadPixels().flags[2], 1);
    EXPECT_EQ(bad.GetBadPixels().tolerance, double{0.1F});
}

TEST_F(Norm, ApplyCorrectsRoundsClipsAndSubstitutes) {
    float gains[] = {1.5F, 1, 1, 0.5F, 1, 1};
    const int16_t offsets[] = {0, -50, 300, 0, 0, 0};
    const uint8_t flags[] = {0, 0, 0, 0, 1, 1};
    const uint32_t subs[] = {0, 1, 2, 3, 3, 5};
    IFileSystem& disk = fileSystem();
    ASSERT_TRUE(CNormFile::SaveGainTable(&disk, CString(shop.file("g")).c_str(), 6, 1, 0, gains));
    ASSERT_TRUE(CNormFile::SaveOffsetTable(&disk, CString(shop.file("o")).c_str(), 6, 1, 0, offsets));
    ASSERT_TRUE(CNormFile::SaveBadPixelTable(&disk, CString(shop.file("b")).c_str(), 6, 1, 0, flags, subs));
    shop.write("run.saf", recording<uint16_t>(6, 1, "UInt16", {3, 10, 65500, 5, 7, 8, 5, 60, 1, 7, 7, 8}));
    auto facts = JsonReader::flatten(run("apply run.saf --gain g --offset o --bad b -o even.saf --json").out);
    EXPECT_EQ(dataOf<uint16_t>(shop.file("even.saf")),  // 4.5 and 2.5 go to the even count
              (std::vector<uint16_t>{4, 0, 65535, 2, 2, 8, 8, 10, 301, 4, 4, 8}));
    EXPECT_EQ(facts["clippedBelow"], "1");
    EXPECT_EQ(facts["clippedAbove"], "1");
    EXPECT_EQ(facts["substitutedPerFrame"], "1");
    EXPECT_EQ(facts["badWithoutSubstitute"], "1");
    run("apply run.saf --gain g --offset o --bad b --float -o floats.saf");
    EXPECT_EQ(dataOf<float>(shop.file("floats.saf")),
              (std::vector<float>{4.5F, -40, 65800, 2.5F, 2.5F, 8, 7.5F, 10, 301, 3.5F, 3.5F, 8}));
}

TEST_F(Norm, InfoTellsWhatATableHoldsInEitherByteOrder) {
    run("new map --type bad-pixel --size 40x20 --bad 3,3 --bad 4,4 --bad 39,0 --cal-type 7 --averages 258");
    auto facts = JsonReader::flatten(run("info map --json").out);
    EXPECT_EQ(facts["files.0.map.bad"], "3");
    EXPECT_EQ(facts["files.0.map.clusters"], "2");
    EXPECT_EQ(facts["files.0.map.largestCluster"], "2");
    EXPECT_EQ(facts["files.0.calType"], "7");
    std::string bytes = shop.read("map");
    for (const size_t at : {2u, 4u, 6u, 29u}) std::swap(bytes[at], bytes[at + 1]);
    std::reverse(bytes.begin() + 31, bytes.begin() + 35);
    shop.write("big", bytes);
    facts = JsonReader::flatten(run("info big --json").out);
    EXPECT_EQ(facts["files.0.bigEndian"], "true");
    EXPECT_EQ(facts["files.0.framesAveraged"], "258");
    EXPECT_EQ(facts["files.0.tolerance"], "0.5");
    EXPECT_NE(run("view big -o map.png").out.find("single                        1       1"), std::string::npos);
    EXPECT_EQ(shop.read("map.png").substr(1, 3), "PNG");
}

TEST_F(Norm, SaysWhatIsWrongAndLeavesNothingBehind) {
    run("new g --type gain --size 3x3");
    shop.write("cut", shop.read("g").substr(0, 440));
    shop.write("run.saf", recording<uint16_t>(2, 1, "UInt16", {1, 2}));
    const std::vector<std::string> before = shop.listing();
    const struct {
        const char* arguments;
        int code;
    } cases[] = {
        {"info run.saf", 3},
        {"info cut", 4},
        {"info absent", 5},
        {"new g --type gain --size 3x3", 1},
        {"new h --type gain --size 3", 2},
        {"new h --type gain --size 3x3 --bad 1,1", 2},
        {"new h --type bad-pixel --size 3x3 --bad 3,1", 2},
        {"build run.saf --gain h", 2},
        {"build run.saf run.saf --gain h", 1},
        {"build run.saf", 2},
        {"apply run.saf --gain g -o h", 1},
        {"apply run.saf --offset g -o h", 3},
        {"apply run.saf -o h", 2},
        {"view g -o h --range 2:1", 2},
    };
    for (const auto& [arguments, code] : cases) EXPECT_TRUE(isOneSentence(run(arguments, code).error)) << arguments;
    EXPECT_EQ(shop.listing(), before);
}

}  // namespace
}  // namespace qv::test
