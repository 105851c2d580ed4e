#include <gtest/gtest.h>

#include "qv/tag_file.h"
#include "tools/support.h"

namespace qv::test {
namespace {

class Dict : public testing::Test {
protected:
    void SetUp() override {
        for (const char16_t* name : {u"Gain", u"Mode", u"Ratio"}) {
            CTagEntry entry;
            entry.SetName(name);
            entry.SetDescription(u"\u0394T");  // not in code page 1252
            entry.SetNumericBounds(true, 0.25, 2.5);
            entry.SetDataType(CTagEntry::DATA_TYPE::Flt64);
            if (name == CString(u"Mode")) {
                entry = CTagEntry();
                entry.SetName(name);
                entry.AddTextValue(u" on ");  // kept, though the mode says that it is not used
            }
            if (name == CString(u"Ratio")) entry.SetDataType(CTagEntry::DATA_TYPE::Flt32);
            tags.AddTagEntry(entry);
        }
        ASSERT_TRUE(tags.SaveSBF(CString(shop.file("tags.sbf")).c_str()));
    }
    CTagFile tags;
    Workshop shop;
};

TEST_F(Dict, ConvertsBetweenTheFormsAndTellsWhatIsLost) {
    const struct {
        const char* target;
        const char* begins;
        const char* remarks;
        const char* losses;
    } cases[] = {
        {"new.xml", "<?xml", "qv: new.xml: does not keep the text values of Mode\n", "Mode text values\n"},
        {"new.SBF", "SBF\x10TAGF", "", ""},
        {"new.dat --form binary", "TAGF\x03",
         "qv: new.dat: does not keep the bounds of Ratio\n"
         "qv: new.dat: does not keep the description of Gain and 1 more\n"
         "qv: new.dat: does not keep the text values of Mode\n",
         "Gain description\nMode text values\nRatio description\nRatio bounds\n"},
    };
    for (const auto& row : cases) {
        const std::string command = std::string("dict convert --json tags.sbf ") + row.target;
        const std::string name = std::string(row.target).substr(0, 7);
        EXPECT_EQ(shop.qv(command + " --dry-run").exitCode, 0);
        EXPECT_FALSE(shop.exists(name));
        const ToolRun strict = shop.qv(command + " --strict");
        EXPECT_EQ(strict.exitCode, *row.losses == '\0' ? 0 : 1) << name;
        EXPECT_EQ(shop.exists(name), *row.losses == '\0') << name;
        const ToolRun run = shop.qv(command + " --force");
        EXPECT_EQ(run.exitCode, 0) << run.error;
        EXPECT_EQ(run.error, row.remarks);
        auto facts = JsonReader::flatten(run.out);
        std::string losses;
        for (int i = 0; facts.contains("losses." + std::to_string(i) + ".name"); ++i) {
            const std::string loss = "losses." + std::to_string(i);
            losses += facts[loss + ".name"] + " " + facts[loss + ".field"] + "\n";
        }
        EXPECT_EQ(losses, row.losses);
        EXPECT_EQ(facts["entryCount"], "3");
        EXPECT_TRUE(shop.read(name).starts_with(row.begins)) << name;
        EXPECT_EQ(shop.qv(command).exitCode, 1) << "a target that is there stays";
        CTagFile back;
        EXPECT_TRUE(back.Load(CString(shop.file(name)).c_str()));
        EXPECT_EQ(back.nItems(), 3u);
    }
    EXPECT_EQ(shop.qv("dict convert new.SBF new.SBF --force").exitCode, 0);
    EXPECT_EQ(shop.read("new.SBF"), shop.read("tags.sbf"));
    EXPECT_EQ(shop.listing(), (std::vector<std::string>{"new.SBF", "new.dat", "new.xml", "tags.sbf"}));
}

TEST_F(Dict, ReadsOldVersionsAndRefusesOtherFiles) {
    shop.write("old.bin", std::string("TAGF\0\x01\0\0\0\x01\0\0\0a\x01\0\0\0\0\0", 20));
    shop.write("torn.bin", std::string("TAGF\x03\x01\0\0\0\x01", 10));
    shop.write("note.txt", "no dictionary\n");
    EXPECT_EQ(shop.qv("dict convert old.bin new.xml").out, "new.xml: tag dictionary in xml form, entries: 1\n");
    EXPECT_NE(shop.read("new.xml").find("Location=\"Include\""), std::string::npos);
    const std::pair<const char*, int> cases[] = {{"torn.bin new.sbf", 4},
                                                 {"note.txt new.sbf", 3},
                                                 {"none new.sbf", 5},
                                                 {"old.bin new.dat", 2},
                                                 {"old.bin no/new.sbf", 5}};
    for (const auto& [arguments, code] : cases) {
        const ToolRun run = shop.qv(std::string("dict convert ") + arguments);
        EXPECT_EQ(run.exitCode, code) << arguments;
        EXPECT_TRUE(isOneSentence(run.error)) << run.error;
    }
}

}  // namespace
}  // namespace qv::test
