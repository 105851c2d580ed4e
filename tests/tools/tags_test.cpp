#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

class Tags : public testing::Test {
protected:
    void SetUp() override {
        shop.write("a.raw", "12345678");
        ASSERT_EQ(shop.run("import --raw 2x2 a.raw --tag Camera=MW1 --tag Note=one -o run.saf").code, 0);
    }
    std::string data() const { return bytesOf(dataOf<char>(shop.file("run.saf"))); }
    Workshop shop;
};

TEST_F(Tags, AreSetInPlaceWhileThePadAbsorbsTheChange) {
    const size_t size = shop.read("run.saf").size();
    const Outcome outcome = shop.run("tags set run.saf Camera=MW2 \"Place=north wall\"");
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("pad absorbed, 0 data bytes moved"), std::string::npos) << outcome.out;
    EXPECT_EQ(shop.run("tags get run.saf camera Place").out, "MW2\nnorth wall\n");
    EXPECT_EQ(shop.read("run.saf").size(), size);
    EXPECT_EQ(data(), "12345678");
}

TEST_F(Tags, MoveTheDataWhenThePadIsUsedUpAndSaySo) {
    std::string command = "tags set run.saf";
    for (int i = 0; i < 5; ++i) command += " Long" + std::to_string(i) + "=" + std::string(480, 'x');
    const std::string before = shop.read("run.saf");
    auto plan = JsonReader::flatten(shop.run(command + " --dry-run --json").out);
    EXPECT_EQ(plan["dataBytesMoved"], "8");
    EXPECT_TRUE(shop.read("run.saf") == before);
    const Outcome outcome = shop.run(command);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("8 data bytes moved"), std::string::npos) << outcome.out;
    EXPECT_EQ(data(), "12345678");
    EXPECT_EQ(shop.run("info run.saf").code, 0);
}

TEST_F(Tags, AreListedForPeopleAndForPrograms) {
    EXPECT_NE(shop.run("tags ls run.saf").out.find("Camera  MW1\n"), std::string::npos);
    EXPECT_EQ(shop.run("tags ls run.saf --csv").out.substr(0, 10), "tag,value\n");
    auto facts = JsonReader::flatten(shop.run("tags ls run.saf --json").out);
    EXPECT_EQ(facts["schema"], "qv.tags.1");
    EXPECT_EQ(facts["tags.0.name"], "HdSize");
    EXPECT_EQ(facts["tags.9.value"], "one");
}

TEST_F(Tags, ThatAreMissingOrDifferGiveExitCodeOne) {
    const Outcome missing = shop.run("tags get run.saf Nothing");
    EXPECT_EQ(missing.code, 1);
    EXPECT_TRUE(isOneSentence(missing.err)) << missing.err;
    EXPECT_EQ(shop.run("tags rm run.saf Nothing").code, 1);
    shop.write("other.saf", shop.read("run.saf"));
    EXPECT_EQ(shop.run("tags diff run.saf other.saf").code, 0);
    ASSERT_EQ(shop.run("tags rm other.saf Note").code, 0);
    const Outcome difference = shop.run("tags diff run.saf other.saf --csv");
    EXPECT_EQ(difference.code, 1);
    EXPECT_NE(difference.out.find("Note,one,(absent)\n"), std::string::npos) << difference.out;
}

TEST_F(Tags, ThatCannotBeHeldByAHeaderAreRefused) {
    const std::string before = shop.read("run.saf");
    const std::string tooLong = "Long=" + std::string(520, 'x');
    for (const std::string& tag : {std::string("NoValue"), std::string("'two words=1'"), std::string("HdSize=7"),
                                   std::string("data=7"), std::string("'Note= blank'"), tooLong}) {
        const Outcome outcome = shop.run("tags set run.saf " + tag);
        EXPECT_EQ(outcome.code, 2) << tag;
        EXPECT_TRUE(isOneSentence(outcome.err)) << outcome.err;
    }
    EXPECT_EQ(shop.run("tags set a.raw X=1").code, 3);
    EXPECT_EQ(shop.run("tags set absent.saf X=1").code, 5);
    EXPECT_TRUE(shop.read("run.saf") == before);
}

}  // namespace
}  // namespace qv::test
