#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

TEST(Reference, CompletesCommandsAndOptionsInBash) {
    const Workshop shop;
    shop.write("qv.bash", shop.qv("completion bash").out);
    shop.write("ask", "source ./qv.bash\nCOMP_WORDS=(\"$@\")\nCOMP_CWORD=$(($# - 1))\n_qv\necho \"${COMPREPLY[@]}\"\n");
    const struct {
        const char* words;
        const char* completions;
    } cases[] = {
        {"qv ca", "calibrate\n"},
        {"qv tags s", "set sort\n"},
        {"qv tags set run.saf --d", "--dry-run\n"},
        {"qv calibrate run.saf --be", "--between\n"},
    };
    for (const auto& row : cases) {
        const std::string command = "cd '" + shop.path() + "' && bash ask " + row.words + " >answer";
        ASSERT_EQ(std::system(command.c_str()), 0);
        EXPECT_EQ(shop.read("answer"), row.completions) << row.words;
    }
    EXPECT_EQ(shop.qv("completion fish").exitCode, 2);
}

TEST(Reference, NamesTheWordsThatItTakesAndThoseThatItDoesNot) {
    const Workplace place;
    EXPECT_NE(place.qv("calibrate --help").out.find("--to temperature|radiance "), std::string::npos);
    const struct {
        const char* arguments;
        const char* sentence;
    } cases[] = {{"frob", "there is no command frob\n"},
                 {"tags frob a.saf", "there is no command tags frob\n"},
                 {"render a.saf -o a.png --palette 1", "--palette: \"1\" is not one of iron|gray|rainbow\n"},
                 {"rcal new a.rcal --tag =1", "--tag: \"=1\" is not of the form NAME=VALUE\n"}};
    for (const auto& c : cases) {
        const ToolRun run = place.qv(c.arguments);
        EXPECT_EQ(run.exitCode, 2) << c.arguments;
        EXPECT_NE(run.error.find(c.sentence), std::string::npos) << run.error;
    }
}

TEST(Reference, PrintsAManualPageOfEachCommand) {
    const Workshop shop;
    const std::string page = shop.qv("man tags set").out;
    EXPECT_TRUE(page.starts_with(".TH qv\\-tags\\-set 1\n")) << page;
    EXPECT_NE(page.find("\\fB\\-\\-dry\\-run\\fR\nSay what would move"), std::string::npos) << page;
    EXPECT_NE(page.find(".SH EXAMPLES\n.nf\n  qv tags set run7.saf Camera=MW1\n"), std::string::npos) << page;
    EXPECT_NE(shop.qv("man").out.find("\\fBcalibrate\\fR\n"), std::string::npos);
    EXPECT_EQ(shop.qv("man nothing").exitCode, 2);
}

}  // namespace
}  // namespace qv::test
