#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

class Tags : public testing::Test {
protected:
    void SetUp() override {
        shop.write("a.raw", "12345678");
        ASSERT_EQ(shop.qv("import --raw 2x2 a.raw --tag Camera=MW1 --tag Note=one -o run.saf").exitCode, 0);
    }
    std::string data() const { return bytesOf(dataOf<char>(shop.file("run.saf"))); }
    Workshop shop;
};

TEST_F(Tags, AreSetInPlaceWhileThePadAbsorbsTheChange) {
    const size_t size = shop.read("run.saf").size();
    const ToolRun outcome = shop.qv("tags set run.saf Camera=MW2 \"Place=north wall\"");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_NE(outcome.out.find("pad absorbed, 0 data bytes moved"), std::string::npos) << outcome.out;
    EXPECT_EQ(shop.qv("tags get run.saf camera Place").out, "MW2\nnorth wall\n");
    EXPECT_EQ(shop.read("run.saf").size(), size);
    EXPECT_EQ(data(), "12345678");
}

TEST_F(Tags, MoveTheDataWhenThePadIsUsedUpAndSaySo) {
    std::string command = "tags set run.saf";
    for (int i = 0; i < 5; ++i) command += " Long" + std::to_string(i) + "=" + std::string(480, 'x');
    const std::string before = shop.read("run.saf");
    auto plan = JsonReader::flatten(shop.qv(command + " --dry-run --json").out);
    EXPECT_EQ(plan["dataBytesMoved"], "8");
    EXPECT_TRUE(shop.read("run.saf") == before);
    const ToolRun outcome = shop.qv(command);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_NE(outcome.out.find("8 data bytes moved"), std::string::npos) << outcome.out;
    EXPECT_EQ(data(), "12345678");
    EXPECT_EQ(shop.qv("info run.saf").exitCode, 0);
}

TEST_F(Tags, AreListedForPeopleAndForPrograms) {
    EXPECT_NE(shop.qv("tags ls run.saf").out.find("Camera  MW1\n"), std::string::npos);
    EXPECT_EQ(shop.qv("tags ls run.saf --csv").out.substr(0, 10), "tag,value\n");
    auto facts = JsonReader::flatten(shop.qv("tags ls run.saf --json").out);
    EXPECT_EQ(facts["schema"], "qv.tags.1");
    EXPECT_EQ(facts["tags.0.name"], "HdSize");
    EXPECT_EQ(facts["tags.9.value"], "one");
}

TEST_F(Tags, ThatAreMissingOrDifferGiveExitCodeOne) {
    const ToolRun missing = shop.qv("tags get run.saf Nothing");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(isOneSentence(missing.error)) << missing.error;
    EXPECT_EQ(shop.qv("tags rm run.saf Nothing").exitCode, 1);
    shop.write("other.saf", shop.read("run.saf"));
    EXPECT_EQ(shop.qv("tags diff run.saf other.saf").exitCode, 0);
    ASSERT_EQ(shop.qv("tags rm other.saf Note").exitCode, 0);
    const ToolRun difference = shop.qv("tags diff run.saf other.saf --csv");
    EXPECT_EQ(difference.exitCode, 1);
    EXPECT_NE(difference.out.find("Note,one,(absent)\n"), std::string::npos) << difference.out;
}

TEST_F(Tags, ThatCannotBeHeldByAHeaderAreRefused) {
    const std::string before = shop.read("run.saf");
    const std::string tooLong = "Long=" + std::string(520, 'x');
    for (const std::string& tag : {std::string("NoValue"), std::string("'two words=1'"), std::string("HdSize=7"),
                                   std::string("data=7"), std::string("'Note= blank'"), tooLong}) {
        const ToolRun outcome = shop.qv("tags set run.saf " + tag);
        EXPECT_EQ(outcome.exitCode, 2) << tag;
        EXPECT_TRUE(isOneSentence(outcome.error)) << outcome.error;
    }
    EXPECT_EQ(shop.qv("tags set a.raw X=1").exitCode, 3);
    EXPECT_EQ(shop.qv("tags set absent.saf X=1").exitCode, 5);
    EXPECT_TRUE(shop.read("run.saf") == before);
}

}  // namespace
}  // namespace qv::test
