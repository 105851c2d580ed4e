#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {

namespace {

class AtmDeck : public testing::Test {
protected:
    ToolRun run(const std::string& arguments, int exitCode = 0) const {
        const ToolRun result = shop.qv("atm " + arguments);
        EXPECT_EQ(result.exitCode, exitCode) << arguments << "\n" << result.out << result.error;
        return result;
    }
    Workshop shop;
};

}  // namespace

TEST_F(AtmDeck, EveryPresetIsADeckWithoutWarnings) {
    for (const char* preset : {"mwir", "lwir", "transmittance", "solar"}) {
        run(std::string("new ") + preset + " --preset " + preset);
        run(std::string("lint ") + preset);
    }
    run("new mwir", 1);  // it is there
    run("new other H1=1 FOO=2", 2);
    EXPECT_FALSE(shop.exists("other"));
}

TEST_F(AtmDeck, SetChangesTheNamedFieldsAlone) {
    run("new deck MODEL=7 IM=1 ML=2 ZM.2=1.5");
    const std::string before = shop.read("deck");
    auto facts = JsonReader::flatten(run("set deck zm.1=0.12345 AATEMP=300 --dry-run --json").out);
    EXPECT_EQ(facts["changes.0.before"], "0");
    EXPECT_EQ(facts["changes.0.after"], "0.12345");
    EXPECT_EQ(facts["changes.0.written"], "0.123");
    EXPECT_EQ(facts["changes.1.written"], "");  // no card 4A here
    EXPECT_EQ(shop.read("deck"), before);
    EXPECT_NE(run("set deck PHI=45").error.find("reads 5 instead of 45"), std::string::npos);
    std::string expected = before;
    const size_t phi = expected.find("    0     0.000\r\n") + 5;
    EXPECT_EQ(shop.read("deck"), expected.replace(phi, 10, "    45.000"));
    run("set deck PHI=0 MODEL=12", 2);  // refused as a whole
    run("set deck ZM.3=1", 2);
    run("set deck H1=1 h1=2", 2);
    run("set deck --run 1 PHI=0", 1);
    EXPECT_EQ(shop.read("deck"), expected);
    facts = JsonReader::flatten(run("lint deck --json", 1).out);
    EXPECT_EQ(facts["warnings.0.field"], "PHI");
    EXPECT_EQ(facts["warnings.0.firstColumn"], "66");
}

TEST_F(AtmDeck, ShowListsCardsWithColumnsAndValues) {
    run("new deck");
    auto facts = JsonReader::flatten(run("show deck --json").out);
    EXPECT_EQ(facts["runCount"], "1");
    EXPECT_EQ(facts["cards.3.card"], "3");
    EXPECT_EQ(facts["cards.3.fields.2.name"], "ANGLE");
    EXPECT_EQ(facts["cards.3.fields.2.firstColumn"], "21");
    EXPECT_EQ(facts["cards.3.fields.2.value"], "60");
    const std::string text = run("show deck").out;
    EXPECT_NE(text.find("Card 3, line of sight (run 0, line 4)"), std::string::npos);
    std::string bytes = shop.read("deck");
    shop.write("cut", bytes.substr(0, bytes.size() / 2));
    shop.write("other", "FREQ  TRANS\n");
    EXPECT_EQ(run("show cut", 4).error,
              "qv: cut: expected a line (card 3, line of sight), found the end of the deck (line 4)\n");
    run("show other", 3);
    run("show missing", 5);
    // A deck of others is laid out anew, which is said; --resaved judges that.
    bytes.replace(bytes.find("    0     0.000\r\n"), 17, "    0          45.000 up\r\n");
    shop.write("theirs", bytes);
    run("lint theirs");
    run("lint theirs --resaved", 1);
    EXPECT_NE(run("set theirs H1=0").error.find("laid out anew"), std::string::npos);
}

TEST_F(AtmDeck, WhatTheLayoutTakesIsTold) {
    const auto deckWith = [&](const std::string& meant, const std::string& found) {
        std::string bytes = shop.read("plain");
        bytes.replace(bytes.find(meant), meant.size(), found);
        shop.write("theirs", bytes);
    };
    EXPECT_NE(run("new plain H1=1.23456 MODEL=7 IM=1 ML=1 IRD2=1 SURREF=.123 HMODEL=air --json")
                  .error.find("H1: is written as 1.235\nqv: SURREF: is written as 0.12\n"),
              std::string::npos);
    EXPECT_EQ(run("set plain H2=3").error, "");
    deckWith("     3.000", "   3.00049");
    EXPECT_NE(run("set theirs H1=2").error.find("theirs: run 0, card 3: H2 is rewritten: 3.00049 -> 3.000\n"),
              std::string::npos);
    EXPECT_EQ(run("set theirs H1=2").error, "");
    deckWith("   0.12", " 0.1249");  // the text of a number
    EXPECT_NE(run("set theirs H1=2").error.find("SURREF is rewritten: 0.1249 -> 0.12\n"), std::string::npos);
    deckWith("    0.000     0.000     0.000    0    0", "    0.000     0.000     0.000    4    2");
    auto facts = JsonReader::flatten(run("set theirs ALBEDO=0.3 --json").out);
    EXPECT_EQ(facts["rewritten.0.field"], "ICLD1.1");
    EXPECT_EQ(facts["rewritten.0.before"] + facts["rewritten.0.after"], "20");
    EXPECT_EQ(facts.count("rewritten.1.field"), 0u);
    EXPECT_NE(run("set theirs MODEL=2").error.find("card 2C3: is not part of the run any more"), std::string::npos);
    // A value that has no place on the written cards can be taken out.
    deckWith("F F F F ", "F F F F T");
    std::string bytes = shop.read("theirs");
    shop.write("theirs", bytes.insert(bytes.find("\r\n    1 "), "\r\nDATA/"));
    run("set theirs H1=2", 2);
    EXPECT_NE(run("set theirs LDATDR=F").error.find("card 1A4: is not part"), std::string::npos);
    // Bytes that are no UTF-8 leave the output valid.
    deckWith("air", "\xE4ir");
    EXPECT_NE(run("show theirs --json").out.find("\xEF\xBF\xBDir\""), std::string::npos);
}

}  // namespace qv::test
