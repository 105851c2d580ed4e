// qv atm run, csv, plot, band and curve, with a stand-in for the outside program.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>

#include "tools/support.h"

namespace qv::test {
namespace {

class AtmRun : public testing::Test {
protected:
    void SetUp() override { EXPECT_EQ(shop.qv("atm new path.tape5").exitCode, 0); }
    /// The deck with a word behind column 80 of its first card, by which the stand-in behaves.
    void order(const std::string& name, const std::string& word) {
        std::string deck = shop.read("path.tape5");
        std::string first = deck.substr(0, deck.find('\r'));
        first.resize(81, ' ');
        shop.write(name, first + word + deck.substr(deck.find('\r')));
    }
    ToolRun run(const std::string& arguments) { return shop.qv("atm run --exe " QV_STAND_IN " " + arguments); }
    Workshop shop;
};

TEST_F(AtmRun, OutputsStandBesideTheirDecks) {
    shop.write("other.tape5", shop.read("path.tape5"));
    const ToolRun outcome = run("path.tape5 other.tape5 --jobs 2");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_EQ(shop.read("path.tape7"), shop.read("other.tape7"));
    EXPECT_EQ(shop.qv("pack add all.cdfs path.tape5").exitCode, 0);
    std::filesystem::create_directory(shop.file("out"));
    EXPECT_EQ(run("all.cdfs:path.tape5 -o out").exitCode, 0);
    EXPECT_TRUE(shop.exists("out/path.tape7"));
    EXPECT_EQ(run("path.tape5").exitCode, 1);
    EXPECT_EQ(run("path.tape5 --force").exitCode, 0);

    const std::string csv = shop.qv("atm csv path.tape7").out;
    EXPECT_NE(csv.substr(0, csv.find('\n')).find("[1/cm]"), std::string::npos);
    // The stand-in's transmittance falls evenly over the frequency, from 0.9 at 2000 to 0.6 at 3335.
    auto facts = JsonReader::flatten(shop.qv("atm band path.tape7 --from 4 --to 4.5 --json").out);
    const double middle = 1e4 * std::log(4.5 / 4.0) / 0.5;
    EXPECT_NEAR(std::stod(facts["values.0.mean"]), 0.9 - 0.3 * (middle - 2000.0) / 1335.0, 1e-4);
    EXPECT_EQ(shop.qv("atm plot path.tape7 -o path.svg").exitCode, 0);
    EXPECT_NE(shop.read("path.svg").find("transmittance [1]"), std::string::npos);
    EXPECT_EQ(shop.qv("atm curve path.tape7 -o path.curve").exitCode, 0);
    EXPECT_EQ(shop.qv("rcal new air.rcal --band 3.5:4.5 --modtran path.curve --transmission --path").exitCode, 0);
}

TEST_F(AtmRun, NothingIsKeptOfARunThatFailed) {
    const struct {
        const char* word;
        const char* arguments;
        int code;
    } rows[] = {
        {"fail", "", 6}, {"marker", "", 6}, {"silent", "", 6}, {"die", "", 6}, {"hang", "--timeout 0.3", 6},
        {"code", "", 0},
    };
    for (const auto& row : rows) {
        const std::string name = std::string(row.word) + ".tape5";
        order(name, row.word);
        const ToolRun outcome = run(name + " " + row.arguments);
        EXPECT_EQ(outcome.exitCode, row.code) << row.word << '\n' << outcome.error;
        EXPECT_EQ(shop.exists(std::string(row.word) + ".tape7"), row.code == 0) << row.word;
    }
    // What one run gives is kept when the place of another's output is taken meanwhile, and no deck is written over.
    EXPECT_EQ(run("path.tape5 ./path.tape5").exitCode, 2);
    shop.write("self.tape7", shop.read("path.tape5"));
    EXPECT_EQ(run("self.tape7 --force").exitCode, 2);
    EXPECT_EQ(shop.read("self.tape7"), shop.read("path.tape5"));
    shop.write("path.tape7scn", "old");
    EXPECT_EQ(run("path.tape5").exitCode, 1);
    const ToolRun absent = shop.qv("atm run --exe ./absent/program path.tape5");
    EXPECT_EQ(absent.exitCode, 6);
    EXPECT_NE(absent.error.find("absent/program"), std::string::npos) << absent.error;
}

TEST_F(AtmRun, WhatAProgramLeavesRunningIsEnded) {
    order("orphan.tape5", "orphan");
    const std::string path = shop.file("lock");
    setenv("QV_STAND_IN_LOCK", path.c_str(), 1);
    EXPECT_EQ(run("orphan.tape5").exitCode, 0);
    unsetenv("QV_STAND_IN_LOCK");
    const int lock = open(path.c_str(), O_RDWR);
    ASSERT_GE(lock, 0);
    bool isFree = false;
    for (int i = 0; i < 1000 && !isFree; ++i) {
        isFree = flock(lock, LOCK_EX | LOCK_NB) == 0;
        if (!isFree) usleep(20000);
    }
    EXPECT_TRUE(isFree);
    close(lock);
}

TEST_F(AtmRun, WhatIsNoTableIsRefused) {
    shop.write("text", "no table\n");
    shop.write("cut.tape7", shop.read("path.tape5"));
    for (const char* verb : {"csv", "plot -o x.svg", "band", "curve -o x.curve"}) {
        EXPECT_EQ(shop.qv("atm " + std::string(verb) + " text").exitCode, 3) << verb;
        EXPECT_EQ(shop.qv("atm " + std::string(verb) + " cut.tape7").exitCode, 4) << verb;
        EXPECT_EQ(shop.qv("atm " + std::string(verb) + " absent").exitCode, 5) << verb;
    }
    EXPECT_EQ(run("path.tape5").exitCode, 0);
    const std::string table = shop.read("path.tape7");
    EXPECT_EQ(shop.qv("atm plot path.tape7 -o path.tape7 --force").exitCode, 2);
    EXPECT_EQ(shop.read("path.tape7"), table);
}

}  // namespace
}  // namespace qv::test
