#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

class Config : public testing::Test {
protected:
    void SetUp() override {
        setenv("XDG_CONFIG_HOME", shop.file(".config").c_str(), 1);
        shop.write("viewer.ini", viewer);
        ASSERT_EQ(shop.qv("config convert viewer.ini typed.db").exitCode, 0);
        ASSERT_EQ(shop.qv("config set typed.db view/low=-20 --type Int32").exitCode, 0);
    }
    void TearDown() override { unsetenv("XDG_CONFIG_HOME"); }
    const std::string viewer = "; mine\n[view]\nlow = 1\ntitle = \"a b \"\n";
    Workshop shop;
};

TEST_F(Config, ValuesAreListedAndGot) {
    EXPECT_EQ(shop.qv("config list typed.db").out,
              "path        type    value\nview/low    Int32   -20\nview/title  String  a b\n");
    EXPECT_EQ(shop.qv("config list viewer.ini //VIEW/ --csv").out,
              "path,type,value\nVIEW/low,String,1\nVIEW/title,String,a b \n");
    auto facts = JsonReader::flatten(shop.qv("config list typed.db --json").out);
    EXPECT_EQ(facts["schema"], "qv.config.1");
    EXPECT_EQ(facts["form"], "sqlite");
    EXPECT_EQ(facts["values.0.type"], "Int32");
    EXPECT_EQ(facts["values.1.value"], "a b ");
    EXPECT_EQ(shop.qv("config get typed.db View/Title").out, "a b \n");
    EXPECT_EQ(JsonReader::flatten(shop.qv("config get typed.db none --json").out)["value"], "null");
    EXPECT_EQ(JsonReader::flatten(shop.qv("config get typed.db view//low/ --json").out)["path"], "view/low");
    EXPECT_EQ(shop.qv("config get typed.db //").exitCode, 2);
    ASSERT_EQ(shop.qv("config set viewer.ini \"$(printf 'two=a\\n\\033b')\"").exitCode, 0);
    EXPECT_NE(shop.qv("config list viewer.ini").out.find("a\\n\\x1Bb\n"), std::string::npos);
}

TEST_F(Config, EveryFormTakesASetValueAndKeepsTheRest) {
    for (const std::string store : {"viewer.ini", "new.ini", "new.xml", "new.db", "typed.db", "reg:Maker/Viewer"}) {
        const bool typed = store.ends_with("db") || store.starts_with("reg");
        EXPECT_EQ(shop.qv("config set " + store + " --type Flt64 view/gain=0.50 b=1 c/d=2").exitCode, 0) << store;
        EXPECT_EQ(shop.qv("config set " + store + " View/Gain=1e3 --remove b --remove c --dry-run").exitCode, 0);
        EXPECT_EQ(shop.qv("config get " + store + " view/gain").out, "0.5\n") << store;
        EXPECT_EQ(shop.qv("config get " + store + " c/d").out, "2\n") << store;
        const ToolRun run = shop.qv("config set " + store + " View//Gain/=1e3 --remove b --remove c/ --json");
        auto changes = JsonReader::flatten(run.out);
        EXPECT_EQ(changes["changes.1.path"] + changes["changes.2.path"], "c/dView/Gain") << store << run.error;
        EXPECT_EQ(changes["changes.2.after.type"], typed ? "Flt64" : "String") << store;
        EXPECT_EQ(shop.qv("config get " + store + " view/gain").out, typed ? "1000\n" : "1e3\n") << store;
        EXPECT_EQ(shop.qv("config get " + store + " b").exitCode, 1) << store;
        EXPECT_EQ(shop.qv("config list " + store + " c").exitCode, 1) << store;
    }
    EXPECT_EQ(shop.read("viewer.ini"), viewer + "gain = 1e3\n\n");
    EXPECT_EQ(
        shop.read("new.xml"),
        "<store>\r\n\t<entry name=\"view\">\r\n\t\t<entry name=\"gain\">1e3</entry>\r\n\t</entry>\r\n</store>\r\n");
    EXPECT_EQ(shop.read(".config/qv/registry/Maker/Viewer.ini"), "[view]\ngain = Flt64:1000\n\n");
}

TEST_F(Config, WhatCannotBeSetLeavesTheStoreAsItWas) {
    shop.write("a.xml", "<store><entry name=\"v\">1</entry></store>");
    const std::string before = shop.read("typed.db");
    const struct {
        const char* arguments;
        int code;
    } cases[] = {{"typed.db view/low=x", 2},
                 {"typed.db b=1 view/low=2147483648", 2},
                 {"typed.db --type UInt8 b=-1", 2},
                 {"typed.db --type Flt32 b=1e40", 2},
                 {"typed.db --type Blob b=ABC", 2},
                 {"typed.db --type Word b=1", 2},
                 {"typed.db /=1", 2},
                 {"typed.db b", 2},
                 {"typed.db", 2},
                 {"typed.db \"$(printf 'b=\\377')\"", 2},
                 {"typed.db b=1 --remove none", 1},
                 {"a.xml empty=", 2},
                 {"a.xml 'b= 1'", 2},
                 {"a.xml v/below=1", 2},
                 {"new.txt b=1", 2},
                 {"no/such/folder.ini b=1", 5},
                 {"reg:a/../b b=1", 2}};
    for (const auto& row : cases) {
        const ToolRun run = shop.qv(std::string("config set ") + row.arguments);
        EXPECT_EQ(run.exitCode, row.code) << row.arguments << '\n' << run.error;
    }
    EXPECT_TRUE(shop.read("typed.db") == before);
    EXPECT_EQ(shop.read("a.xml"), "<store><entry name=\"v\">1</entry></store>");
    shop.write("a.xml",
               "<?xml version=\"1.0\"?><!-- c --><store a=\"\"><entry name=\"v\" b=\"\">1</entry></store><x/>");
    EXPECT_NE(shop.qv("config set a.xml v=2").error.find("(4) do not stay\n"), std::string::npos);
}

TEST_F(Config, AConversionTellsWhatItsFormCannotKeep) {
    ASSERT_EQ(shop.qv("config set typed.db view=here empty=").exitCode, 0);
    const struct {
        const char* target;
        const char* losses;
    } cases[] = {
        {"new.ini", "view/low type\n"},
        {"new.xml", "view valueOfSection\nview/low type\nview/title space\nempty emptyValue\n"},
        {"new.sqlite", ""},
        {"reg:Maker/New", ""},
    };
    for (const auto& [name, losses] : cases) {
        const std::string command = std::string("config convert typed.db ") + name + " --json";
        if (*losses != '\0') {
            EXPECT_EQ(shop.qv(command + " --strict").exitCode, 1) << name;
        }
        EXPECT_EQ(shop.qv(command + " --dry-run").exitCode, 0) << name;
        const ToolRun run = shop.qv(command);
        EXPECT_EQ(run.exitCode, 0) << name << run.error;
        auto facts = JsonReader::flatten(run.out);
        std::string told;
        for (int i = 0; facts.contains("losses." + std::to_string(i) + ".path"); ++i) {
            const std::string loss = "losses." + std::to_string(i);
            told += facts[loss + ".path"] + " " + facts[loss + ".loss"] + "\n";
        }
        EXPECT_EQ(told, losses) << name;
        EXPECT_EQ(std::count(run.error.begin(), run.error.end(), '\n'), std::count(told.begin(), told.end(), '\n'));
        EXPECT_EQ(shop.qv(command).exitCode, 1) << name << ": a target that is there stays";
        EXPECT_EQ(shop.qv("config convert viewer.ini --force " + std::string(name)).exitCode, 0) << name;
        const std::string all = shop.qv("config list --csv " + std::string(name)).out;
        EXPECT_TRUE(all.starts_with("path,type,value\nview/low,String,1\nview/title,String,a b")) << name << all;
        EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 3) << name << all;
    }
    EXPECT_EQ(shop.listing(), (std::vector<std::string>{"new.ini", "new.sqlite", "new.xml", "typed.db", "viewer.ini"}));
}

TEST_F(Config, SettingsAreToldFromOtherFiles) {
    std::string torn = shop.read("typed.db"), other = torn;
    torn.resize(5000);
    other[68] = 'x';
    const struct {
        const char* name;
        std::string bytes;
        int configCode;
        int infoCode;
        const char* facts;  ///< Form, values and sections.
    } cases[] = {
        {"a", viewer, 0, 0, "ini 2 1"},
        {"b", "[only]\n", 0, 0, "ini 0 0"},
        {"c", "a = 1\nwhat\n", 3, 3, ""},
        {"c.ini", "a = 1\nwhat\n", 0, 3, ""},
        {"d", "", 0, 3, ""},
        {"e", std::string("a = 1\n\0", 7), 3, 3, ""},
        {"f", "<?xml version=\"1.0\"?>\n<!-- <b> -->\n<Store><entry name=\"a\">1</entry></Store>", 0, 0, "xml 1 0"},
        {"g", "<stores/>", 3, 3, ""},
        {"h", "<store><entry", 4, 4, ""},
        {"i", shop.read("typed.db"), 0, 0, "sqlite 2 1"},
        {"j", torn, 4, 4, ""},
        {"k", other, 3, 3, ""},
        {"l", "HdSize auto\r\nNote none\r\nDATA\r\nabc", 3, 0, ""}};
    for (const auto& row : cases) {
        shop.write(row.name, row.bytes);
        const std::string name = row.name;
        for (const std::string& command : {"list " + name, "set --dry-run " + name + " x=1"}) {
            const ToolRun run = shop.qv("config " + command);
            EXPECT_EQ(run.exitCode, row.configCode) << command << run.error;
            EXPECT_TRUE(row.configCode == 0 || isOneSentence(run.error)) << run.error;
        }
        const ToolRun info = shop.qv("info --json " + name);
        EXPECT_EQ(info.exitCode, row.infoCode) << name << info.error;
        auto facts = JsonReader::flatten(info.out);
        if (facts["files.0.kind"] == "settings" && info.exitCode == 0) {
            EXPECT_EQ(facts["files.0.form"] + " " + facts["files.0.valueCount"] + " " + facts["files.0.sectionCount"],
                      row.facts);
        } else {
            EXPECT_STREQ(row.facts, "") << name;
        }
        EXPECT_TRUE(shop.read(name) == row.bytes) << name;
    }
    EXPECT_NE(shop.qv("config convert viewer.ini new.ini").error.find("(1) do not stay\n"), std::string::npos);
    EXPECT_EQ(shop.qv("config convert viewer.ini \"\"").exitCode, 2);
    EXPECT_EQ(shop.qv("config convert viewer.ini l --force").exitCode, 2) << "no store, and not named as one";
    EXPECT_EQ(shop.qv("config convert viewer.ini k --force --target-type sqlite").exitCode, 3);
    EXPECT_EQ(shop.qv("config list reg:None").exitCode, 5);
}

}  // namespace
}  // namespace qv::test
