// qv rcal convert, import, export, extract and merge, as the built program.
#include <gtest/gtest.h>

#include <string>

#include "tools/tool.h"

namespace qv {
namespace {

using test::ToolRun;
using test::Workplace;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

/// Two calibrations of one page each.
void makeCalibrations(const Workplace& place) {
    place.write("a.csv", "temperature,counts\n10,1000\n30,2000.123456789\n60,4500\n");
    place.write("b.csv", "temperature,counts\n60,1000\n90,2000\n150,4500\n");
    for (const std::string name : {"a", "b"}) {
        ASSERT_EQ(place.qv("rcal new " + name + ".rcal --band 3:5 --tag Camera=" + name).exitCode, 0);
        ASSERT_EQ(place.qv("rcal points " + name + ".rcal " + name + ".csv").exitCode, 0);
    }
}

TEST(RcalFormsTool, ConvertsThereAndBack) {
    const Workplace place;
    makeCalibrations(place);
    EXPECT_TRUE(contains(place.qv("rcal convert a.rcal -o a.bin").out, "a.bin: binary"));
    EXPECT_EQ(place.read("a.bin").substr(0, 10), std::string("____RCAL\0\0", 10));
    const ToolRun back = place.qv("rcal convert a.bin -o back.rcal --json");
    EXPECT_TRUE(contains(back.out, "\"to\": \"xml\"") && contains(back.out, "\"exact\": true")) << back.out;
    EXPECT_EQ(place.read("back.rcal"), place.read("a.rcal"));
    EXPECT_EQ(place.qv("rcal convert a.rcal -o a.bin").exitCode, 1);
    EXPECT_EQ(place.qv("rcal convert a.bin -o a.bin --form binary --force").exitCode, 0);
    // What is edited in place keeps its form, and 14 digits are not always all.
    EXPECT_EQ(place.qv("rcal fit a.bin --lookup 0:70:0.7").exitCode, 0);
    EXPECT_TRUE(contains(place.qv("rcal convert a.bin -o c.rcal").out, "numbers to 14 digits"));
    EXPECT_EQ(place.qv("rcal convert a.csv -o d.rcal").exitCode, 3);
    place.write("cut.bin", place.read("a.bin").substr(0, 200));
    const ToolRun cut = place.qv("rcal convert cut.bin -o d.rcal");
    EXPECT_EQ(cut.exitCode, 4);
    EXPECT_TRUE(contains(cut.error, "cut.bin: expected")) << cut.error;
    EXPECT_EQ(place.qv("rcal convert a.rcal -o e.rcal --form text").exitCode, 2);
    EXPECT_FALSE(place.exists("d.rcal") || place.exists("e.rcal"));
}

TEST(RcalFormsTool, ExportsAndImportsAgain) {
    const Workplace place;
    makeCalibrations(place);
    const ToolRun written = place.qv("rcal export a.rcal -o old.cal");
    ASSERT_EQ(written.exitCode, 0) << written.error;
    for (const std::string name : {"old.cal", "old.inc", "old.rcal"}) EXPECT_TRUE(contains(written.out, name)) << name;
    const std::string header = place.read("old.cal");
    place.qv("rcal convert a.rcal -o a.bin");
    ASSERT_EQ(place.qv("rcal import old.cal -o back.bin --form binary").exitCode, 0);
    EXPECT_EQ(place.read("back.bin"), place.read("a.bin"));
    // Nothing is touched when one of the files exists.
    std::filesystem::remove(place.path() + "/old.inc");
    EXPECT_EQ(place.qv("rcal export b.rcal -o old.cal").exitCode, 1);
    EXPECT_FALSE(place.exists("old.inc"));
    EXPECT_EQ(place.read("old.cal"), header);
    // A calibration of the name that the companion would have is named, not replaced.
    const std::string before = place.read("a.rcal");
    EXPECT_EQ(place.qv("rcal export a.rcal -o a.cal --json").exitCode, 0);
    EXPECT_EQ(place.read("a.rcal"), before);
    EXPECT_TRUE(contains(place.read("a.cal"), "CAFile a.rcal\r\n"));
    std::filesystem::create_directory(place.path() + "/sub");
    EXPECT_EQ(place.qv("rcal export a.rcal -o sub/x.cal --calibration b.rcal").exitCode, 0);
    EXPECT_TRUE(contains(place.read("sub/x.cal"), "/b.rcal\r\n") && !place.exists("sub/x.rcal"));
    EXPECT_EQ(place.qv("rcal export a.rcal -o y.cal --calibration a.csv").exitCode, 3);
}

TEST(RcalFormsTool, SaysWhatAHeaderLacks) {
    const Workplace place;
    place.write(
        "h.cal",
        "HdSize auto\r\nCAFile gone.rcal\r\nBgFile_0 gone.bgimg\r\nPolyOrder 1\r\nCoeff0 1\r\nCoeff1 2\r\nDATA\r\n");
    const ToolRun run = place.qv("rcal import h.cal -o h.rcal --json");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(contains(run.error, "h.cal: CAFile gone.rcal: file does not exist")) << run.error;
    EXPECT_TRUE(contains(run.out, "\"key\": \"BgFile_0\"") && contains(run.out, "\"pages\": 1")) << run.out;
    EXPECT_EQ(place.qv("rcal import h.rcal -o i.rcal").exitCode, 3);
    EXPECT_EQ(place.qv("rcal import absent.cal -o i.rcal").exitCode, 5);
}

TEST(RcalFormsTool, MergesAndExtractsPages) {
    const Workplace place;
    makeCalibrations(place);
    const ToolRun merged = place.qv("rcal merge a.rcal b.rcal a.rcal --base 1 -o all.rcal");
    EXPECT_EQ(merged.exitCode, 0) << merged.error;
    EXPECT_TRUE(contains(merged.out, "responses and tags of b.rcal, 3 pages")) << merged.out;
    EXPECT_TRUE(contains(place.read("all.rcal"), "name=\"Camera\" value=\"b\""));
    EXPECT_EQ(place.qv("rcal extract all.rcal --page 1 -o one.rcal --json").exitCode, 0);
    EXPECT_EQ(place.read("one.rcal"), place.read("b.rcal"));
    const ToolRun absent = place.qv("rcal extract all.rcal --page 3 -o two.rcal");
    EXPECT_EQ(absent.exitCode, 1);
    EXPECT_TRUE(contains(absent.error, "there is no page 3 (it has 3)")) << absent.error;
    EXPECT_EQ(place.qv("rcal merge a.rcal b.rcal --base 2 -o x.rcal").exitCode, 2);
    ASSERT_EQ(place.qv("rcal new none.rcal --pages 0").exitCode, 0);
    EXPECT_EQ(place.qv("rcal merge a.rcal none.rcal -o x.rcal").exitCode, 1);
    EXPECT_FALSE(place.exists("x.rcal"));
}

}  // namespace
}  // namespace qv
