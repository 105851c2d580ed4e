#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

const std::string header = "HdSize auto\r\nKeyWrd POD\r\nNumDPs 3\r\nNParam 3\r\nPNSize 20\r\nPUSize 20\r\nDATA\r\n";
const std::string track = header +
                          "time\trange\tnote\r\nseconds\tmeters\tNone\r\n"
                          "1\t10.50\t\"first light\"\r\n2\t\"\"\t\"a,b\"\r\n4\t13\t\"\"\r\n";
const std::string radar =
    "HdSize auto\r\nKeyWrd POD\r\nNumDPs auto\r\nNParam 2\r\nPNSize 1\r\nPUSize 1\r\nDATA\r\n"
    "time azimuth\r\nseconds degrees\r\n0 350\r\n3 353\r\n";

class TableTool : public testing::Test {
protected:
    void SetUp() override {
        shop.write("track.pod", track);
        shop.write("radar.pod", radar);
        shop.write("plain.csv", "t,x\nsec,m\nU,U\n1,2\n");
    }
    Workshop shop;
};

TEST_F(TableTool, LooksAtRowsAndColumns) {
    const struct {
        const char* arguments;
        const char* out;
    } cases[] = {
        {"head track.pod --rows 2",
         "row  time [seconds]  range [meters]         note\n  0               1           10.50  first light\n"
         "  1               2                          a,b\n"},
        {"head track.pod note '#0' --from 1 --rows 9 --csv", "row,note,time [seconds]\n1,\"a,b\",2\n2,,4\n"},
        {"head plain.csv --headerless", "row  t [sec]  x [m]\n  0        1      2\n"},
        {"cols track.pod --csv",
         "#,name,unit,classification,type\n0,time,seconds,,\n1,range,meters,,\n2,note,None,,\n"},
        {"stats track.pod --csv",
         "column [unit],numbers,empty,texts,lowest,mean,highest,standard deviation\n"
         "time [seconds],3,0,0,1,2.3333333,4,1.5275252\nrange [meters],2,1,0,10.5,11.75,13,1.767767\n"
         "note,0,1,2,,,,\n"},
        {"get track.pod 0 NOTE range", "first light\n10.50\n"},
        {"csv track.pod", "time [seconds],range [meters],note\n1,10.50,first light\n2,,\"a,b\"\n4,13,\n"},
        {"check track.pod", "track.pod: 3 rows, 3 columns, in order\n"},
    };
    for (const auto& row : cases) {
        const ToolRun run = shop.qv(std::string("table ") + row.arguments);
        EXPECT_EQ(run.exitCode, 0) << row.arguments << run.error;
        EXPECT_EQ(run.out, row.out) << row.arguments;
    }
    auto facts = JsonReader::flatten(shop.qv("table head track.pod --json --from 2").out);
    EXPECT_EQ(facts["schema"] + facts["rowCount"] + facts["columns.1.units"] + facts["rows.0.1"],
              "qv.table.13meters13");
    facts = JsonReader::flatten(shop.qv("table stats track.pod --json").out);
    EXPECT_EQ(facts["columns.1.mean"] + facts["columns.2.mean"], "11.75null");
    facts = JsonReader::flatten(shop.qv("table get track.pod 2 range --json").out);
    EXPECT_EQ(facts["values.range.value"], "13");
}

TEST_F(TableTool, SetsValuesInPlaceAndElsewhere) {
    EXPECT_EQ(shop.qv("table set track.pod 1 range=11 --dry-run").exitCode, 0);
    EXPECT_EQ(shop.read("track.pod"), track);
    const ToolRun run = shop.qv("table set track.pod 1 range=11 'note=c d'");
    EXPECT_EQ(run.out, "column [unit]   before  after\nrange [meters]          11\nnote            a,b     c d\n");
    std::string changed = track;
    changed.replace(changed.find("2\t\"\"\t\"a,b\""), 10, "2\t11\t\"c d\"");
    EXPECT_EQ(shop.read("track.pod"), changed);
    EXPECT_EQ(shop.qv("table set track.pod new time=5 -o longer.pod").exitCode, 0);
    EXPECT_EQ(shop.read("track.pod"), changed);
    changed.replace(changed.find("NumDPs 3"), 8, "NumDPs 4");
    EXPECT_EQ(shop.read("longer.pod"), changed + "5\t\"\"\t\"\"\r\n");
    EXPECT_EQ(shop.qv("table csv track.pod time -o out.csv").exitCode, 0);
    EXPECT_EQ(shop.read("out.csv"), "time [seconds]\n1\n2\n4\n");
    EXPECT_EQ(shop.listing(),
              (std::vector<std::string>{"longer.pod", "out.csv", "plain.csv", "radar.pod", "track.pod"}));
}

TEST_F(TableTool, MergesAndSaysHowManyKeysMatched) {
    const ToolRun dry = shop.qv("table merge track.pod radar.pod --key time --column azimuth --dry-run");
    EXPECT_EQ(dry.out, "would be: azimuth [degrees]: 2 of 3 keys matched, column added\n") << dry.error;
    EXPECT_EQ(shop.read("track.pod"), track);
    const ToolRun run = shop.qv("table merge track.pod radar.pod --key time --column azimuth -o out.pod --json");
    auto facts = JsonReader::flatten(run.out);
    EXPECT_EQ(facts["columns.0.matched"] + facts["columns.0.added"], "2true") << run.error;
    EXPECT_EQ(shop.qv("table csv out.pod time azimuth").out, "time [seconds],azimuth [degrees]\n1,351\n2,352\n4,\n");
    EXPECT_EQ(shop.qv("table merge radar.pod track.pod --key time --column note --nearest").exitCode, 0);
    EXPECT_EQ(shop.qv("table get radar.pod 1 note").out, "a,b\n");
    EXPECT_EQ(shop.qv("table merge track.pod radar.pod --key time --column none").error,
              "qv: track.pod with radar.pod, column none: Add column does not exists in add file.\n");
}

TEST_F(TableTool, TellsWhatIsWrong) {
    shop.write("odd.pod",
               header + "a\tA\t\"\"\r\nm m m\r\n1 2\r\n1 2 3 4\r\n" + std::string(300, 'x') + " 2 3\r\n1\r\n");
    const ToolRun odd = shop.qv("table check odd.pod --csv");
    EXPECT_EQ(odd.exitCode, 1);
    EXPECT_EQ(odd.out,
              "finding,count,first row\nnumber of rows in NumDPs is another,1,\ncolumns without a name,1,\n"
              "columns with the name of another,1,\nrows with fewer fields than columns,2,0\n"
              "\"rows with more fields than columns, which are not read\",1,1\n"
              "\"values of more than 255 characters, which are read cut\",1,2\n");
    shop.write("long.pod", header + "a\r\nm\r\n" + std::string(9000, 'x') + "\r\n");
    shop.write("far.pod", header + "time x y\r\nseconds m m\r\n9 9 9\r\n");
    const std::string far = shop.read("far.pod");
    shop.write("image.saf", "HdSize auto\r\nKeyWrd IMG\r\nDATA\r\n");
    const struct {
        const char* arguments;
        int code;
    } cases[] = {{"head long.pod", 4},
                 {"head image.saf", 3},
                 {"head plain.csv", 3},
                 {"head none.pod", 5},
                 {"head track.pod none", 1},
                 {"head track.pod '#3'", 1},
                 {"get track.pod 3 time", 1},
                 {"get track.pod x time", 2},
                 {"set track.pod 0 time", 2},
                 {"set track.pod 0 none=1", 1},
                 {"set track.pod 0 'note=\"x'", 2},
                 {"set track.pod 0 note=$(printf '%300s' | tr ' ' x)", 2},
                 {"csv track.pod -o radar.pod", 1},
                 {"merge far.pod radar.pod --key time --column azimuth", 1},
                 {"merge track.pod radar.pod --key none --column azimuth", 1},
                 {"merge track.pod radar.pod --key time --column none", 1},
                 {"merge track.pod radar.pod --key time --column azimuth --key-format %x", 2}};
    for (const auto& row : cases) {
        const ToolRun run = shop.qv(std::string("table ") + row.arguments);
        EXPECT_EQ(run.exitCode, row.code) << row.arguments << '\n' << run.error;
        EXPECT_TRUE(isOneSentence(run.error)) << row.arguments << '\n' << run.error;
    }
    const ToolRun nowhere =
        shop.qv("info track.pod >.out && TMPDIR=/no/such/folder '" QV_TOOL "' table head track.pod");
    EXPECT_EQ(nowhere.exitCode, 5) << nowhere.error;
    EXPECT_EQ(shop.read("track.pod"), track);
    EXPECT_EQ(shop.read("radar.pod"), radar);
    EXPECT_EQ(shop.read("far.pod"), far);
}

}  // namespace
}  // namespace qv::test
