#include "qv/tag_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <string>
#include <tuple>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/sb_file.h"
#include "qv/xml_file.h"
#include "support/memory_file.h"

namespace qv {
namespace {

using test::bytesOf;
using test::memoryFile;

std::string operator""_b(const char* text, size_t size) { return std::string(text, size); }

CTagEntry entry(const char16_t* name) {
    CTagEntry made;
    made.SetName(name);
    return made;
}

// One entry of each kind, every field, in version 3.
const std::string goldenFile =
    "TAGF\x03\x03\0\0\0"_b
    // Band: Int32, bounds, sensor information, microns, change all, header
    "\x04\0\0\0Band\x04\x20\x02\0\0\0\xB5m\x06\x09\x02\x00"_b
    "\x01\0\0\0\0\0\0\0\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"_b
    // Gain: Flt64 with bounds
    "\x04\0\0\0Gain\x10\x20\0\0\0\0\0\0\0\x01"_b
    "\0\0\0\0\0\0\xF8\x3F\0\0\0\0\0\0\x04\x40"_b
    // Mode: text with suggestions
    "\x04\0\0\0Mode\x01\x40\0\0\0\0\0\0\x03\x02\x02\0\0\0\x01\0\0\0a\x02\0\0\0\xC3\xA9"_b;

CTagFile goldenTags() {
    CTagFile tags;
    CTagEntry band = entry(u"Band");
    band.SetDescription(u"\u00B5m");  // stored in code page 1252
    band.SetDataType(CTagEntry::DATA_TYPE::Int32);
    band.SetNumericBounds(true, 1.7, -2.9);  // cut to integers
    band.SetCategory(CTagEntry::CATEGORY::SensorInfo);
    band.SetUnits(CTagEntry::UNITS::Microns);
    band.SetWriteMode(CTagEntry::WRITE_MODE::ChangeAll);
    CTagEntry gain = entry(u"Gain");
    gain.SetDataType(CTagEntry::DATA_TYPE::Flt64);
    gain.SetNumericBounds(true, 1.5, 2.5);
    gain.SetLocation(CTagEntry::LOCATION::Include);
    CTagEntry mode = entry(u"Mode");
    mode.SetTextValuesMode(CTagEntry::TEXT_VALUES_MODE::UseAsSuggestions);
    mode.AddTextValue(u"a");
    mode.AddTextValue(u"\u00E9");
    mode.SetWriteMode(CTagEntry::WRITE_MODE::ReadOnly);
    mode.SetLocation(CTagEntry::LOCATION::Default);
    tags.AddTagEntry(mode);
    tags.AddTagEntry(gain);
    tags.AddTagEntry(band);
    return tags;
}

TEST(TagFileBinary, MatchesGoldenBytesAndReadsThemBack) {
    CTagFile tags = goldenTags();
    EXPECT_FALSE(tags.AddTagEntry(entry(u"GAIN")));
    TSharedPtr<IFile> file = CMemFile::Create();
    ASSERT_TRUE(tags.Save(file));
    EXPECT_EQ(bytesOf(*file), goldenFile);
    CTagFile loaded;
    ASSERT_TRUE(loaded.Load(memoryFile(goldenFile)));
    ASSERT_EQ(loaded.nItems(), 3u);
    bool use = false;
    double low = 0, high = 0;
    loaded[0].GetNumericBounds(use, low, high);
    EXPECT_TRUE(use && low == 1.0 && high == -2.0);
    EXPECT_EQ(CStringMB(loaded[0].GetDescription().c_str()), "\xC2\xB5m");
    EXPECT_EQ(loaded[2].GetTextValue(2), nullptr);
    file = CMemFile::Create();
    ASSERT_TRUE(loaded.SaveBinary(file));
    EXPECT_EQ(bytesOf(*file), goldenFile);
}

TEST(TagFileBinary, OlderVersionsHaveFewerFields) {
    const struct {
        std::string bytes;
        CTagEntry::CATEGORY category;
        CTagEntry::UNITS units;
        CTagEntry::WRITE_MODE writeMode;
        CTagEntry::LOCATION location;
    } rows[] = {
        {"TAGF\0\x01\0\0\0\x01\0\0\0a\x01\0\0\0\0\0"_b, CTagEntry::CATEGORY::Misc, CTagEntry::UNITS::None,
         CTagEntry::WRITE_MODE::PromptForUpdate, CTagEntry::LOCATION::Include},
        {"TAGF\x01\x01\0\0\0\x01\0\0\0a\x01\0\0\0\0\0\x04\x03"_b, CTagEntry::CATEGORY::TimeInfo, CTagEntry::UNITS::None,
         CTagEntry::WRITE_MODE::ReadOnly, CTagEntry::LOCATION::Header},
        {"TAGF\x02\x01\0\0\0\x01\0\0\0a\x01\0\0\0\0\0\x04\x0F\x03"_b, CTagEntry::CATEGORY::TimeInfo,
         CTagEntry::UNITS::Kelvin, CTagEntry::WRITE_MODE::ReadOnly, CTagEntry::LOCATION::Header},
    };
    for (const auto& row : rows) {
        CTagFile tags;
        ASSERT_TRUE(tags.Load(memoryFile(row.bytes)));
        ASSERT_EQ(tags.nItems(), 1u);
        EXPECT_EQ(tags[0].GetCategory(), row.category);
        EXPECT_EQ(tags[0].GetUnits(), row.units);
        EXPECT_EQ(tags[0].GetWriteMode(), row.writeMode);
        EXPECT_EQ(tags[0].GetLocation(), row.location);
    }
    CTagFile tags;
    EXPECT_FALSE(tags.Load(memoryFile("TAGF\x04\0\0\0\0"_b)));
    EXPECT_FALSE(tags.Load(memoryFile("SBF"_b)));
}

TEST(TagFileBinary, EveryPrefixFailsAndKeepsWhatItRead) {
    for (size_t n = 0; n < goldenFile.size(); ++n) {
        CTagFile tags;
        EXPECT_FALSE(tags.LoadBinary(memoryFile(goldenFile.substr(0, n)))) << n;
        EXPECT_LE(tags.nItems(), 2u);
    }
    CTagFile tags;
    EXPECT_FALSE(tags.Load(memoryFile("TAGF\x03\xFF\xFF\xFF\xFF\x01\0\0\0a\x01\0\0\0\0\0\0\0\0\0"_b)));
    EXPECT_EQ(tags.nItems(), 1u);
    EXPECT_EQ(tags.SetGrowthRate(5), 5u);  // a load borrows it, also a failed one
}

TEST(TagFile, XmlAndStructuredFormKeepWhatTheBinaryFormLoses) {
    CTagFile tags = goldenTags();
    CTagEntry flt32 = entry(u"Ratio");
    flt32.SetDataType(CTagEntry::DATA_TYPE::Flt32);
    flt32.SetNumericBounds(true, 0.1, 1e300);
    tags.AddTagEntry(flt32);
    TSharedPtr<IFile> binary = CMemFile::Create();
    TSharedPtr<IFile> xml = CMemFile::Create();
    TSharedPtr<IFile> structured = CMemFile::Create();
    ASSERT_TRUE(tags.SaveBinary(binary) && tags.SaveXML(xml) && tags.SaveSBF(structured));
    const std::string text = bytesOf(*xml);
    EXPECT_EQ(text.substr(0, text.find("\r\n\t\t<TextValue")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<TagFile>\r\n"
              "\t<TagEntry Name=\"Band\" Description=\"\xC2\xB5m\" DataType=\"Int32\" UseNumericBounds=\"true\" "
              "LowBound=\"1.7\" HighBound=\"-2.9\" TextValuesMode=\"Disabled\" Category=\"Sensor Info\" "
              "WriteMode=\"Change All\" Units=\"Microns\" Location=\"Header\"/>\r\n"
              "\t<TagEntry Name=\"Gain\" Description=\"\" DataType=\"Flt64\" UseNumericBounds=\"true\" "
              "LowBound=\"1.5\" HighBound=\"2.5\" TextValuesMode=\"Disabled\" Category=\"Misc Tags\" "
              "WriteMode=\"Prompt For Update\" Units=\"None\" Location=\"Include\"/>\r\n"
              "\t<TagEntry Name=\"Mode\" Description=\"\" DataType=\"Text\" UseNumericBounds=\"false\" "
              "LowBound=\"0\" HighBound=\"0\" TextValuesMode=\"Use As Suggestions\" Category=\"Misc Tags\" "
              "WriteMode=\"Read Only\" Units=\"None\" Location=\"Default\">");
    for (const auto& [file, kept] : {std::pair{binary, false}, std::pair{xml, true}, std::pair{structured, true}}) {
        file->SeekToBegin();
        CTagFile loaded;
        ASSERT_TRUE(loaded.Load(file));
        bool use = false;
        double low = 0, high = 0;
        loaded[3].GetNumericBounds(use, low, high);
        EXPECT_TRUE(use);
        EXPECT_EQ(low == 0.1 && high == 1e300, kept);
        EXPECT_EQ(loaded[2].nTextValues(), 2u);
    }
}

TEST(TagFile, StructuredFormKeepsEveryFieldOfAnEntry) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr double bounds[] = {0.0,
                                 -0.0,
                                 0.1,
                                 1.7976931348623157e308,
                                 5e-324,
                                 -9007199254740993.0,
                                 inf,
                                 -inf,
                                 std::numeric_limits<double>::quiet_NaN()};
    const CString texts[] = {u"", u" a\t\r\n ", u"\u20AC\U0001F600", CString(u"a\0b", 3), u"<&\">%%"};
    CTagFile tags;
    for (int32_t i = 0; i < 45; ++i) {
        CTagEntry made = entry(u"same");
        const double low = bounds[i % 9], high = bounds[(i + 4) % 9];
        if (i % 5 != 0) made.SetName(i % 10 < 5 ? texts[i % 5] : CString(u"SAME"));
        made.SetDescription(texts[(i + 1) % 5]);
        made.SetDataType(static_cast<CTagEntry::DATA_TYPE>(i % 7 - 1));
        made.SetNumericBounds(i % 2 != 0, low, high);
        made.SetTextValuesMode(static_cast<CTagEntry::TEXT_VALUES_MODE>(i % 3));
        made.SetCategory(static_cast<CTagEntry::CATEGORY>(i * 300));
        made.SetWriteMode(static_cast<CTagEntry::WRITE_MODE>(i % 4));
        made.SetUnits(static_cast<CTagEntry::UNITS>(INT32_MIN + i));
        made.SetLocation(static_cast<CTagEntry::LOCATION>(i % 3));
        for (int32_t n = 0; n < i % 4; ++n) made.AddTextValue(texts[n].c_str());
        tags.Add(made);
    }
    TSharedPtr<IFile> file = CMemFile::Create();
    ASSERT_TRUE(tags.SaveSBF(file));  // sorted now; entries of one name keep their order
    file->SeekToBegin();
    CTagFile loaded;
    ASSERT_TRUE(loaded.Load(file));
    ASSERT_EQ(loaded.nItems(), tags.nItems());
    const auto bits = [](CTagEntry& of) {
        bool use = false;
        double low = 0, high = 0;
        of.GetNumericBounds(use, low, high);
        return std::tuple(use, std::bit_cast<uint64_t>(low), std::bit_cast<uint64_t>(high));
    };
    for (uint32_t i = 0; i < tags.nItems(); ++i) {
        CTagEntry &a = tags[i], &b = loaded[i];
        EXPECT_TRUE(a.GetName() == b.GetName() && a.GetDescription() == b.GetDescription()) << i;
        EXPECT_EQ(std::tuple(a.GetDataType(), a.GetTextValuesMode(), a.GetCategory(), a.GetWriteMode(), a.GetUnits(),
                             a.GetLocation(), a.nTextValues()),
                  std::tuple(b.GetDataType(), b.GetTextValuesMode(), b.GetCategory(), b.GetWriteMode(), b.GetUnits(),
                             b.GetLocation(), b.nTextValues()));
        EXPECT_EQ(bits(a), bits(b));
        for (uint32_t n = 0; n < a.nTextValues(); ++n) EXPECT_EQ(CString(a.GetTextValue(n)), b.GetTextValue(n));
    }
}

TEST(TagFile, StructuredFormHasTypedAttributesInTheirOrder) {
    CTagFile tags = goldenTags();
    TSharedPtr<IFile> file = CMemFile::Create();
    ASSERT_TRUE(tags.SaveSBF(file));
    file->SeekToBegin();
    CSBFile tree;
    ASSERT_TRUE(tree.Load(file));
    EXPECT_STREQ(tree.GetIdentifier(), "TAGF");
    EXPECT_EQ(tree.GetRoot()->NumChildren(), 3u);
    ASSERT_TRUE(tree.FindFirstChild(u"TagEntry"));
    const std::pair<const char16_t*, CSBFile::TYPE> expected[] = {
        {u"Name", CSBFile::TYPE_STRING},          {u"Description", CSBFile::TYPE_STRING},
        {u"DataType", CSBFile::TYPE_INT32},       {u"UseNumericBounds", CSBFile::TYPE_BOOL},
        {u"LowBound", CSBFile::TYPE_FLT64},       {u"HighBound", CSBFile::TYPE_FLT64},
        {u"TextValuesMode", CSBFile::TYPE_INT32}, {u"Category", CSBFile::TYPE_INT32},
        {u"WriteMode", CSBFile::TYPE_INT32},      {u"Units", CSBFile::TYPE_INT32},
        {u"Location", CSBFile::TYPE_INT32}};
    const CSBFile::CAttribArray& attributes = tree.Curr()->attributes;
    ASSERT_EQ(attributes.size(), std::size(expected));
    for (uint32_t i = 0; i < attributes.size(); ++i) {
        EXPECT_EQ(attributes[i].name, expected[i].first);
        EXPECT_EQ(attributes[i].value.GetType(), expected[i].second);
    }
    EXPECT_EQ(tree.Curr()->GetFlt64(u"HighBound"), -2.9);
    ASSERT_TRUE(tree.Last() && tree.FindFirstChild(u"TextValue"));
    EXPECT_EQ(tree.NumPeers(), 2u);
    EXPECT_EQ(tree.Curr()->GetString(u"Value"), tags[2].GetTextValue(0));

    // Another kind of content is refused; elements of other names are passed over.
    CSBFile other("OTHR");
    file = CMemFile::Create();
    ASSERT_TRUE(other.Save(file));
    file->SeekToBegin();
    CTagFile loaded;
    EXPECT_FALSE(loaded.Load(file));
    ASSERT_TRUE(other.SetIdentifier("TAGF"));
    other.InsertChild(new CSBFile::CElement(u"Stranger"), true);
    other.Insert(new CSBFile::CElement(u"tagentry"), true);
    file = CMemFile::Create();
    ASSERT_TRUE(other.Save(file));
    file->SeekToBegin();
    EXPECT_TRUE(loaded.Load(file));
    EXPECT_EQ(loaded.nItems(), 1u);
}

TEST(TagFileBinary, APathMayStandInTheDictionaryThatItReplaces) {
    CTagFile tags;
    tags.AddTagEntry(entry(CString(fileSystem().GetTempFilename()).c_str()));  // an empty file
    const CString path(tags[0].GetName().c_str());
    ClearDiagnostic();
    EXPECT_FALSE(tags.LoadBinary(tags[0].GetName().c_str()));
    EXPECT_EQ(LastDiagnostic().file, path);
    EXPECT_EQ(tags.nItems(), 0u);
    fileSystem().DeleteFileW(path.c_str());
}

TEST(TagFileXml, AnEntryIsSavedUnderTheCursor) {
    CXMLFile tree;
    EXPECT_TRUE(entry(u"root").Save(tree));
    EXPECT_TRUE(entry(u"child").Save(tree));
    EXPECT_EQ(tree.GetAttribute(u"Name"), CString(u"root"));
    EXPECT_EQ(tree.Curr()->NumChildren(u"TagEntry"), 1u);
    CTagEntry loaded;
    EXPECT_TRUE(tree.Child() && loaded.Load(tree));
    EXPECT_EQ(loaded.GetName(), CString(u"child"));
    tree.SetCurr(nullptr);
    EXPECT_FALSE(entry(u"nowhere").Save(tree));
}

TEST(TagNames, MatchPatternsWithVariables) {
    const struct {
        const char16_t* pattern;
        const char16_t* name;
        bool matches;
        std::vector<int> vars;
    } rows[] = {
        {u"Band%2%Center", u"Band12Center", true, {12}},
        {u"Band%3%Center", u"Band12Center", false, {}},
        {u"Band%%Center", u"band1CENTER", true, {1}},
        {u"Band%%Center", u"Band123Center", true, {123}},
        {u"Band%1%Center", u"Band12Center", false, {}},
        {u"Band%0%", u"Band1", false, {}},
        {u"Band%x%", u"Band77", true, {77}},
        {u"A%%B%%", u"A1B2", true, {1, 2}},
        {u"A%%B%%", u"A1B", false, {}},
        {u"A%", u"A%", false, {}},
        {u"Plain", u"PLAIN", true, {}},
        {u"%%", u"", false, {}},
    };
    for (const auto& row : rows) {
        CTagFile tags;
        tags.AddTagEntry(entry(row.pattern));
        uint32_t index = 99;
        EXPECT_EQ(tags.FindTag(row.name, index), row.matches) << CStringMB(row.pattern).c_str();
        TArray<int32_t> vars;
        if (!row.matches) continue;
        EXPECT_TRUE(tags.GetVars(row.name, index, vars));
        EXPECT_EQ(std::vector<int>(vars.begin(), vars.end()), row.vars);
    }
    CTagFile tags;
    tags.AddTagEntry(entry(u"A%"));
    TArray<int32_t> vars;
    EXPECT_FALSE(tags.GetVars(u"A5", 0, vars));
    EXPECT_FALSE(tags.GetVars(u"A5", 1, vars));
}

TEST(TagNames, SeriesCompareByTheRightmostVariableFirst) {
    CTagFile tags;
    tags.AddTagEntry(entry(u"S%%P%%"));
    EXPECT_GT(tags.CompareTags(u"S1P9", u"S2P3"), 0);
    EXPECT_LT(tags.CompareTags(u"S1P9", u"S2P10"), 0);
    EXPECT_EQ(tags.CompareTags(u"S1P9", u"s1p9"), 0);
    EXPECT_LT(tags.CompareTags(u"S1P9", u"Unknown"), 0);
    EXPECT_GT(tags.CompareTags(u"S2147483647P1", u"S0P1"), 0);
}

TEST(TagTexts, OutOfRangeValuesHaveAFallback) {
    EXPECT_STREQ(CStringMB(CTagEntry::LocationToStr(CTagEntry::LOCATION(7))).c_str(), "Include");
    EXPECT_STREQ(CStringMB(CTagEntry::UnitsToStr(CTagEntry::UNITS(20))).c_str(), "None");
    EXPECT_STREQ(CStringMB(CTagEntry::CategoryToStr(CTagEntry::CATEGORY(18))).c_str(), "Misc Tags");
    CTagEntry::UNITS units = CTagEntry::UNITS::Kelvin;
    EXPECT_FALSE(CTagEntry::StrToUnits(u"furlongs", units));
    EXPECT_EQ(units, CTagEntry::UNITS::None);
    for (int32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(CTagEntry::StrToUnits(CTagEntry::UnitsToStr(CTagEntry::UNITS(i))), CTagEntry::UNITS(i));
    }
}

TEST(TagArray, IsAListOfNamedValues) {
    CTagArray tags;
    tags[u"a"] = 3;
    tags[u"B"] = 0.5;
    tags.Set(u"A", u"x");
    tags.Set(nullptr, u"x");
    EXPECT_EQ(tags.nItems(), 2u);
    EXPECT_EQ(CStringMB(tags.Get(u"a")), "x");
    EXPECT_EQ(CStringMB(tags[u"b"]), "0.5");
    tags[2].name = u"c";
    EXPECT_EQ(tags.FindTag(u"C"), 2u);
    tags[-1].name = u"dummy";
    tags[9].name = u"dummy";
    EXPECT_EQ(tags.nItems(), 3u);
    EXPECT_TRUE(tags.Remove(u"a"));
    EXPECT_FALSE(tags.Exists(u"a"));
    EXPECT_EQ(tags.FindTag(u"a"), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace qv
