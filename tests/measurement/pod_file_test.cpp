#include "qv/pod_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/tag_file.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using test::TempFolder;

std::string narrow(const char16_t* text) { return text == nullptr ? "(null)" : CStringMB(text).c_str(); }
CString wide(const std::string& text) { return CString(std::string_view(text)); }

/// The smallest header, with other tags behind it.
std::string header(const std::string& tags) { return "HdSize auto\r\nKeyWrd POD\r\n" + tags + "DATA\r\n"; }
const std::string threeColumns = header("NumDPs auto\r\nNParam 3\r\nPNSize 20\r\n");

/// A table in a folder of its own.
struct Disk {
    bool load(const std::string& bytes, bool requireHeader = true) {
        table.Destroy();
        write(bytes);
        ClearDiagnostic();
        return table.Load(&fileSystem(), path.c_str(), requireHeader);
    }
    void write(const std::string& bytes) {
        TSharedPtr<IFile> file = fileSystem().CreateFileW(path.c_str(), 0x28);
        file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    std::string read(const CString& name) { return test::bytesOf(*fileSystem().CreateFileW(name.c_str(), 0x212)); }
    std::string read() { return read(path); }
    bool save() { return table.Save(&fileSystem(), path.c_str(), false, false); }
    /// The cells, "|" between columns and a line break between rows.
    std::string cells() { return cellsOf(table); }
    static std::string cellsOf(CPODFile& table) {
        std::string all;
        for (uint32_t row = 0; row < table.nDPs(); ++row) {
            for (uint32_t column = 0; column < table.nParams(); ++column) {
                all.append(column == 0 ? "" : "|").append(narrow(table.GetValue(column, row)));
            }
            all += '\n';
        }
        return all;
    }
    TempFolder folder;
    CString path = folder.path(u"table.pod");
    CPODFile table;
};

TEST(PodLoad, LinesAreCutIntoFields) {
    const struct {
        const char* name;
        std::string lines;
        const char* cells;
    } rows[] = {
        {"each separator, and runs of them", "1\t2,3\r\n4;5 6\n7|8, ,|\t9\n", "1|2|3\n4|5|6\n7|8|9\n"},
        {"separators at both ends", "\t 1 2 3 ; \r\n", "1|2|3\n"},
        {"quotes", "\"a b\" \"\" \"c,|;\td\"\r\n\"x y\"z w\r\n", "a b||c,|;\td\nx y|z|w\n"},
        {"a quote inside, and one that stays open", "5\"x 6\" 7\r\n1 \"2 3\r\n", "5\"x|6\"|7\n1|2 3|\n"},
        {"short and long lines", "1\r\n1 2 3 4 5\r\n", "1||\n1|2|3\n"},
        {"a blank line is a row", "1 2 3\r\n\r\n4 5 6\r\n", "1|2|3\n||\n4|5|6\n"},
        {"a last line without an end is one, an empty one not", "1 2 3\n4 5 6", "1|2|3\n4|5|6\n"},
        {"UTF-8", "\xC3\xA4 \xE2\x82\xAC \xFF\n", "\xC3\xA4|\xE2\x82\xAC|\xEF\xBF\xBD\n"},
        {"no row", "", ""},
    };
    for (const auto& row : rows) {
        Disk disk;
        ASSERT_TRUE(disk.load(threeColumns + "a b c\r\n" + row.lines)) << row.name;
        EXPECT_EQ(disk.cells(), row.cells) << row.name;
        EXPECT_EQ(disk.table.GetRowEntrySize(), 36u);
    }
}

TEST(PodLoad, HeadersAndDescriptions) {
    const std::string all = "NumDPs 1\r\nNParam 2\r\nPNSize 1\r\nPUSize 1\r\nPCSize 1\r\nPTSize 1\r\n";
    const std::string lines = "time \"a b\"\r\nsec deg\r\nU\r\nFlt64 Text\r\n1 2\r\n";
    const struct {
        const char* name;
        std::string bytes;
        bool requireHeader;
        bool loads;
        const char* columns;
        const char* cells;
    } rows[] = {
        {"all descriptions", header(all) + lines, true, true, "time,sec,U,Flt64;a b,deg,,Text;", "1|2\n"},
        {"zero is none", header("NumDPs 1\r\nNParam 2\r\nPNSize 0\r\nPUSize x\r\n") + "1 2\r\n", true, true, ",,,;,,,;",
         "1|2\n"},
        {"without header", "t,\"a b\"\nsec,deg\nU,U\n1,2\n", false, true, "t,sec,U,;a b,deg,U,;", "1|2\n"},
        {"a header is wanted", "t,x\nsec,deg\nU,U\n1,2\n", true, false, "", ""},
        {"CR separates there too", threeColumns + "a\rb \"c\rd\"\r\n1 2 3\n", true, true, "a,,,;b,,,;c\rd,,,;",
         "1|2|3\n"},
        {"no columns", header("NumDPs auto\r\nNParam 0\r\n") + "1\r\n", true, true, "", "\n"},
        {"another kind", "HdSize auto\r\nKeyWrd IMG\r\nNumDPs 1\r\nNParam 1\r\nDATA\r\n1\r\n", false, false, "", ""},
        {"no kind", "HdSize auto\r\nNumDPs 1\r\nNParam 1\r\nDATA\r\n1\r\n", true, false, "", ""},
        {"no NParam", header("NumDPs 1\r\n"), true, false, "", ""},
        {"no NumDPs", header("NParam 1\r\n"), true, false, "", ""},
        {"columns below zero", header("NumDPs 1\r\nNParam -1\r\n"), true, false, "", ""},
        {"too many columns", header("NumDPs 1\r\nNParam 4097\r\n"), true, false, "", ""},
        {"more columns than 32 bits", header("NumDPs 1\r\nNParam 4294967297\r\n"), true, false, "", ""},
        {"no names where some are promised", header("NumDPs 1\r\nNParam 1\r\nPNSize 9\r\n"), true, false, "", ""},
        {"names too long", threeColumns + std::string(2048, 'n') + "\r\n", true, false, "", ""},
        {"a line too long", threeColumns + "n\r\n" + std::string(8192, '1') + "\n", true, false, "", ""},
        {"no end of lines at all", threeColumns + "n\r\n" + std::string(600000, '1'), true, false, "", ""},
        {"an empty file", "", false, false, "", ""},
    };
    for (const auto& row : rows) {
        Disk disk;
        ASSERT_EQ(disk.load(row.bytes, row.requireHeader), row.loads) << row.name;
        EXPECT_EQ(disk.table.IsValid(), row.loads) << row.name;
        EXPECT_EQ(LastDiagnostic().IsSet() || row.loads, true) << row.name;
        std::string columns;
        for (uint32_t i = 0; i < disk.table.nParams(); ++i) {
            CString name, classification, units, type;
            EXPECT_TRUE(disk.table.GetColumnInfo(i, &name, &classification, &units, &type));
            for (const CString& text : {name, units, classification}) columns += narrow(text.c_str()) + ",";
            columns += narrow(type.c_str()) + ";";
        }
        EXPECT_EQ(columns, row.columns) << row.name;
        EXPECT_EQ(disk.cells(), row.cells) << row.name;
    }
    Disk disk;  // the longest lines that are allowed
    const std::string names = std::string(2046, 'n') + "\r\n", line = "1 2 " + std::string(8188 - 1, '3') + "\n";
    EXPECT_TRUE(disk.load(threeColumns + names + line));
    EXPECT_EQ(narrow(disk.table.GetValue(2, 0)), std::string(255, '3'));
}

TEST(PodSave, WritesByTheRulesOfTheFormat) {
    Disk disk;
    CPODFile& table = disk.table;
    EXPECT_FALSE(table.AddRow());
    EXPECT_FALSE(disk.save());
    ASSERT_TRUE(table.New());
    EXPECT_TRUE(table.AddColumn(u"time", u"U", u"seconds", u"Flt64"));
    EXPECT_TRUE(table.AddColumn(u"gone", u"", u"", u""));
    EXPECT_EQ(table[u"two words"].GetIndex(), 2u);
    EXPECT_TRUE(table.AllocRows(2));
    EXPECT_TRUE(table.PutValue(0, 0, u"1.5"));
    EXPECT_TRUE(table.PutValue(1, 0, u"no"));
    EXPECT_TRUE(table.PutValue(2, 0, u"a;b"));
    table[u"TIME"][1] = table[u"two words"][0];
    table[u"time"].type = table[u"time"].units;
    table[u"two words"][1] = 0.125;
    EXPECT_TRUE(table.RemoveCol(1));
    EXPECT_FALSE(table.RemoveCol(1));
    EXPECT_EQ(table.GetValue(1, 0), nullptr);
    EXPECT_FALSE(table.UpdateColumn(1, u"x", nullptr, nullptr, nullptr));
    table.GetHeader().AddTag(u"Note", u"first light");
    ASSERT_TRUE(disk.save());
    const std::string golden =
        "HdSize auto\r\nKeyWrd POD\r\nNumDPs auto\r\nNParam 2\r\nPNSize 20\r\nPUSize 20\r\nPCSize 20\r\n"
        "Note first light\r\nDATA\r\n"
        "time\t\"two words\"\r\nseconds\tNone\r\nU\tUnclassified\r\n1.5\t\"a;b\"\r\n\"a;b\"\t0.125\r\n";
    EXPECT_EQ(disk.read(), golden);
    // The tags of the file that is there; a number of points that is not "auto"; room in the header.
    disk.write(header("NumDPs 7\r\nOld tag\r\nPTSize 1\r\n"));
    ASSERT_TRUE(table.Save(&fileSystem(), disk.path.c_str(), true, true));
    const std::string padded = disk.read();
    EXPECT_EQ(padded.substr(0, 79),
              "HdSize auto\r\nKeyWrd POD\r\nNumDPs 2\r\nOld tag\r\nPTSize 1\r\nNParam 2\r\nsaf_padding The");
    EXPECT_EQ(padded.substr(64 + 2048), "DATA\r\nseconds\t\"\"\r\n1.5\t\"a;b\"\r\n\"a;b\"\t0.125\r\n");
    EXPECT_FALSE(table.Save(&fileSystem(), disk.folder.path(u"none/x").c_str(), false, false));
    EXPECT_FALSE(table.Save(&fileSystem(), disk.folder.path(u"none.pod").c_str(), true, false));
    CPODFile copy;
    EXPECT_TRUE(table.MakeDuplicate(copy));
    EXPECT_EQ(Disk::cellsOf(copy), "1.5|a;b\na;b|0.125\n");
}

TEST(PodSave, WhatWasNotChangedStaysToTheByteAndWhatCannotBeReadAgainIsNotWritten) {
    Disk disk;
    const std::string lines =
        "a b c\r\n" + std::string(300, '\x80') + "\t" + std::string(400, 'y') + "\tx\r\n1\t2\t3\r\n";
    ASSERT_TRUE(disk.load(threeColumns + lines));
    EXPECT_EQ(narrow(disk.table.GetValue(1, 0)).size(), 255u);
    CPODFile::LINE_INFO info;
    EXPECT_TRUE(disk.table.GetLineInfo(0, info));
    EXPECT_EQ(std::to_string(info.length) + " " + std::to_string(info.fields) + " " + std::to_string(info.cut),
              "705 3 2");
    EXPECT_TRUE(disk.table.PutValue(2, 0, u"new"));
    for (const char16_t* bad : {u"two\nlines", u"\"quoted\"", u"in \"it"}) EXPECT_FALSE(disk.table.PutValue(2, 0, bad));
    EXPECT_FALSE(disk.table.AddColumn(u"a\nb", u"", u"", u""));
    EXPECT_FALSE(disk.table.IsValid() && disk.table.UpdateColumn(0, u"\"", nullptr, nullptr, nullptr));
    ASSERT_TRUE(disk.save());
    EXPECT_EQ(disk.read(), threeColumns + "a\tb\tc\r\n" + lines.substr(7, 702) + "new\r\n1\t2\t3\r\n");
    EXPECT_FALSE(disk.table.IsModified());

    const std::string before = disk.read();
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(disk.table.AddColumn(std::u16string(60, u'n').c_str(), u"", u"", u""));
    EXPECT_FALSE(disk.save());  // the names take more than a line of descriptions
    for (uint32_t i = 3; i < 43; ++i) {
        EXPECT_TRUE(disk.table.UpdateColumn(i, u"n", nullptr, nullptr, nullptr));
        EXPECT_TRUE(disk.table.PutValue(i, 1, std::u16string(255, u'\x4E00').c_str()));
    }
    EXPECT_FALSE(disk.save());  // and the row more than a line
    EXPECT_EQ(disk.read(), before);
    EXPECT_TRUE(disk.table.RemoveRow(1));
    EXPECT_TRUE(disk.save());
}

/// The plain table that the real one is held against. Columns keep their numbers until the table is loaded anew.
struct Model {
    std::vector<std::string> names;
    std::vector<bool> inUse;
    std::vector<std::vector<std::string>> rows;

    void compact() {
        for (size_t i = names.size(); i-- != 0;) {
            if (inUse[i]) continue;
            const auto at = static_cast<std::ptrdiff_t>(i);
            names.erase(names.begin() + at);
            inUse.erase(inUse.begin() + at);
            for (auto& row : rows) row.erase(row.begin() + at);
        }
    }
    std::string cells() const {
        std::string all;
        for (const auto& row : rows) {
            for (size_t i = 0; i < row.size(); ++i) all.append(i == 0 ? "" : "|").append(inUse[i] ? row[i] : "(null)");
            all += '\n';
        }
        return all;
    }
};

TEST(Pod, RandomOperationsMatchAPlainTable) {
    const std::string texts[] = {"1", "-2.5e3", "", "two words", "a\tb", "5\"", "\xC3\xA4;\xE2\x82\xAC", "x|y,z"};
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](size_t n) { return static_cast<uint32_t>(random() % n); };
        Disk disk;
        CPODFile& table = disk.table;
        Model model;
        ASSERT_TRUE(table.New());
        const auto addColumn = [&] {
            model.names.push_back(std::to_string(random() % 1000));
            model.inUse.push_back(true);
            for (auto& row : model.rows) row.emplace_back();
            ASSERT_TRUE(table.AddColumn(wide(model.names.back()).c_str(), u"", u"", u""));
        };
        // Enough of both to turn all caches over, in a row as well as between rows.
        while (model.names.size() < (seed == 1 ? 40u : 5u)) addColumn();
        // The index of the second fills more than its window.
        const uint32_t rows = seed == 2 ? 10000 : 150;
        model.rows.resize(rows, std::vector<std::string>(model.names.size()));
        ASSERT_TRUE(table.AllocRows(rows));
        for (int step = 0; step < 6000; ++step) {
            const uint32_t column = below(model.names.size());
            const uint32_t row = below(model.rows.size());
            const uint32_t dice = below(1000);
            if (dice < 500) {
                const std::string text = texts[below(8)] + (below(2) == 0 ? std::to_string(step) : "");
                ASSERT_EQ(table.PutValue(column, row, wide(text).c_str()), model.inUse[column]);
                if (model.inUse[column]) model.rows[row][column] = text;
            } else if (dice < 960) {
                ASSERT_EQ(narrow(table.GetValue(column, row)),
                          model.inUse[column] ? model.rows[row][column] : "(null)");
            } else if (dice < 975) {
                ASSERT_TRUE(table.AddRow());
                model.rows.emplace_back(model.names.size());
            } else if (dice < 988) {
                ASSERT_TRUE(table.RemoveRow(row));
                model.rows.erase(model.rows.begin() + row);
            } else if (dice < 991) {
                addColumn();
            } else if (dice < 993) {
                const bool spare = std::count(model.inUse.begin(), model.inUse.end(), true) > 2;
                if (spare && model.inUse[column]) {
                    ASSERT_TRUE(table.RemoveCol(column));
                    model.inUse[column] = false;
                }
            } else if (dice < 996) {
                ASSERT_TRUE(disk.save());
                if (dice == 993) {
                    ASSERT_TRUE(table.Load(&fileSystem(), disk.path.c_str(), true));
                    model.compact();
                } else if (!table.GetHeader().GetFilename().IsEmpty()) {
                    model.compact();
                }
            } else if (dice == 996) {
                CPODFile other;
                const CString elsewhere = disk.folder.path(u"other.pod");
                ASSERT_TRUE(table.Save(&fileSystem(), elsewhere.c_str(), false, true));
                ASSERT_TRUE(other.Load(&fileSystem(), elsewhere.c_str(), true));
                Model saved = model;
                saved.compact();
                ASSERT_EQ(Disk::cellsOf(other), saved.cells());
            }
            ASSERT_EQ(table.nDPs(), model.rows.size());
        }
        ASSERT_EQ(disk.cells(), model.cells()) << seed;
    }
}

TEST(PodUnits, FactorsAndTheDictionary) {
    const struct {
        const char16_t *from, *to;
        double value;
    } rows[] = {{u"meters", u"milimeters", 2000},
                {u"m", u"INCHES", 78.816},
                {u"in", u"ft", 0.1666},
                {u"deg", u"mrad", 34.90658},
                {u"rad", u"deg", 114.591559},
                {u"sec", u"min", 2.0 / 60},
                {u"minutes", u"seconds", 120},
                {u"hours", u"ms", 7200000},
                {u"ms", u"hrs", 2.0 / 3600000},
                {u"cm", u"mi", 1.244e-05},
                {u"nothing", u"NOTHING", 2},
                {u"m", u"sec", 0},
                {u"m", u"nothing", 0},
                {u"umrad", u"umrad", 2}};
    for (const auto& row : rows) {
        double value = 2.0;
        EXPECT_EQ(IPODFile::ConvertUnit(value, row.from, row.to), row.value != 0) << narrow(row.from);
        EXPECT_DOUBLE_EQ(value, row.value == 0 ? 2.0 : row.value) << narrow(row.from) << narrow(row.to);
    }
    CPODFile table;
    ASSERT_TRUE(table.New());
    CTagFile& dictionary = *table.GetTagFile();
    for (const auto units : {CTagEntry::UNITS::None, CTagEntry::UNITS::Days, CTagEntry::UNITS::Microradians}) {
        CTagEntry entry;
        entry.SetName(CTagEntry::UnitsToStr(units));
        entry.SetUnits(units);
        dictionary.AddTagEntry(entry);
    }
    dictionary.Sort();
    EXPECT_EQ(table.GetUnitConversionIndex(u"Microradians"), 14);
    EXPECT_EQ(table.GetUnitConversionIndex(u"Days"), -1);
    EXPECT_EQ(table.GetUnitConversionIndex(u"unknown"), -1);
    EXPECT_TRUE(table.IsCorrectUnit(u"Days", u"days") && table.IsCorrectUnit(u"None", u"x"));
    EXPECT_TRUE(table.IsCorrectUnit(u"unknown", u"x") && !table.IsCorrectUnit(u"Days", u"hours"));
    dictionary.Destroy();
}

TEST(PodFormat, ReadsAndWritesByAPattern) {
    const struct {
        const char16_t *format, *data;
        bool reads;
        double value;
        const char* written;
    } rows[] = {{u"%f(1)", u"-1.5e2", true, -150, "-150"},
                {u"%d(60):%f(1)", u"2:30.5", true, 150.5, "2:30.5"},
                {u"%d(3600)h%d(60)m%d(1)s", u"1h02m08s", true, 3728, "1h2m8s"},
                {u"%f(60):%d(1)", u"0.5:60", true, 90, "0:90"},
                {u"T+%f(0.001) ", u"T+250 ", true, 0.25, "T+250 "},
                {u"%d(0.1)", u"3", true, 0.30000000000000004, "3"},
                {u"%f(1)", u" 7 ", true, 7, "7"},
                {u"", u"anything", true, 0, ""},
                {u"%f(1)", u"7x", false, 0, ""},
                {u"%f(1)", u"", false, 0, ""},
                {u"a%f(1)", u"b1", false, 0, ""},
                {u"%d(1)", u"99999999999999999999", false, 0, ""},
                {u"%x(1)", u"1", false, 0, ""},
                {u"%f", u"1", false, 0, ""},
                {u"%f(1", u"1", false, 0, ""},
                {u"%f()", u"1", false, 0, ""},
                {u"%", u"1", false, 0, ""}};
    for (const auto& row : rows) {
        double value = 99;
        EXPECT_EQ(IPODFile::GetValue(value, row.data, row.format), row.reads) << narrow(row.format);
        EXPECT_EQ(value, row.reads ? row.value : 99) << narrow(row.format);
        CString text;
        if (!row.reads) continue;
        EXPECT_TRUE(IPODFile::PutValue(row.value, text, row.format)) << narrow(row.format);
        EXPECT_EQ(narrow(text.c_str()), row.written);
    }
    CString text;
    EXPECT_FALSE(IPODFile::PutValue(1, text, u"%d(0)"));
    EXPECT_FALSE(IPODFile::PutValue(1e300, text, u"%d(1)"));
    EXPECT_FALSE(IPODFile::PutValue(std::nan(""), text, u"%f(1)"));
    EXPECT_TRUE(IPODFile::PutValue(59.7, text, u"%d(60):%d(1)"));
    EXPECT_EQ(narrow(text.c_str()), "1:0");
}

std::vector<std::string> split(const std::string& text, char at) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, at);) parts.push_back(part);
    return parts;
}

/// A table of "name unit;name unit" and of "cell,cell;cell,cell", a row each.
void fill(CPODFile& table, const std::string& columns, const std::string& cells) {
    ASSERT_TRUE(table.New());
    for (const std::string& column : split(columns, ';')) {
        const auto words = split(column, ' ');
        ASSERT_TRUE(table.AddColumn(wide(words[0]).c_str(), u"U", wide(words[1]).c_str(), u""));
    }
    for (const std::string& row : split(cells, ';')) {
        ASSERT_TRUE(table.AddRow());
        const auto texts = split(row, ',');
        for (uint32_t i = 0; i < texts.size(); ++i) {
            ASSERT_TRUE(table.PutValue(i, table.nDPs() - 1, wide(texts[i]).c_str()));
        }
    }
}

TEST(PodMerge, WorkedByHand) {
    const char toLetter[] = "interpolated, out of range, to the letter", turned[] = "a first key lower; a turn apart";
    enum { text = 0, number = 1, days = 2 };
    const struct {
        const char *name, *to, *toCells, *add, *addCells;
        int mode;
        const char* outcome;  ///< Rows, or a sentence.
        uint32_t matched;
    } rows[] = {
        {toLetter, "t sec", "0.5;1;2.5;4", "t sec;v m", "1,10.00;2,20;3,40", number, "0.5|\n1|10.00\n2.5|30\n4|\n", 2},
        {"any order; an empty value", "t sec", "2.5;1;3", "t seconds;v m", "3,40;1,10;2,", number, "2.5|\n1|10\n3|40\n",
         3},
        {"nearest text", "t sec", "1.4;1.5;1.6;9", "t sec;v m", "1,a b;2,c", text, "1.4|a b\n1.5|a b\n1.6|c\n9|\n", 3},
        {"units", "t sec;v ft", "90,7;300,7", "t min;v m", "1,2;2,4", number, "90|9.852\n300|7\n", 1},
        {"degrees", "t degrees", "352;358;4", "t degrees;v m", "350,0;10,20", number, "352|2\n358|8\n4|14\n", 3},
        {turned, "t degrees", "4;100", "t degrees;v m", "5,15;355,5;350,0", number, "4|14\n100|\n", 1},
        {"IRIG is not cyclic", "t IRIG", "86399;43200", "t IRIG;v m", "86398,0;2,4", number, "86399|\n43200|2\n", 1},
        {"days", "t IRIG", "86399;1;0", "t IRIG;v m", "86398,0;2,4", number | days, "86399|1\n1|3\n0|\n", 2},
        {"days", "t m", "5;3", "t m;v m", "4,0;86404,86400", number | days, "5|1\n3|86399\n", 2},
        {"no key", "t sec", "1", "u sec;v m", "1,1", number, "Key column does not exist in pod file or add file.", 0},
        {"no column", "t sec", "1", "t sec;w m", "1,1", number, "Add column does not exists in add file.", 0},
        {"key", "t m", "1;x", "t m;v m", "1,1", number, "Could not get value from data \"x\" with format \"%f(1)\".",
         0},
        {"value", "t m", "1", "t m;v m", "1,a", number, "Could not get value from data \"a\" with format \"%f(1)\".",
         0},
        {"units", "t sec;v ft", "1", "t sec;v sec", "1,1", number, "No appropriate conversion available.", 0},
    };
    for (const auto& row : rows) {
        CPODFile to, add;
        fill(to, row.to, row.toCells);
        fill(add, row.add, row.addCells);
        const std::string before = Disk::cellsOf(to);
        uint32_t matched = 99;
        const bool merged = to.MergeWith(add, u"t", u"v", nullptr, u"", nullptr, (row.mode & number) != 0,
                                         (row.mode & days) != 0, &matched);
        EXPECT_EQ(merged ? Disk::cellsOf(to) : narrow(to.GetError().c_str()), row.outcome) << row.name;
        EXPECT_TRUE(merged || Disk::cellsOf(to) == before) << row.name;
        EXPECT_EQ(matched, row.matched) << row.name;
    }
    CPODFile to, add;  // formats, and a column of type Text
    fill(to, "t sec", "1:30");
    fill(add, "t sec;v m", "T60,[2];T120,[4]");
    EXPECT_TRUE(to.MergeWith(add, u"t", u"v", u"%d(60):%d(1)", u"T%f(1)", u"[%f(1)]", true, false));
    EXPECT_TRUE(add.UpdateColumn(1, u"w", nullptr, nullptr, u"text"));
    EXPECT_TRUE(to.MergeWith(add, u"t", u"w", u"%d(60):%d(1)", u"T%f(1)", u"", true, false));
    EXPECT_EQ(Disk::cellsOf(to), "1:30|[3]|[2]\n");
}

TEST(PodMerge, MatchesASearchOfAllKeys) {
    std::mt19937 random(7);
    std::vector<double> keys;
    CPODFile to, add;
    fill(to, "k m", "");
    fill(add, "k m;v m", "");
    ASSERT_TRUE(add.AllocRows(3000) && to.AllocRows(3000));
    for (uint32_t i = 0; i < 3000; ++i) {
        keys.push_back(i * 2.0);
        add[u"k"][i] = keys[i];
        add[u"v"][i] = std::sqrt(keys[i]);
        to[u"k"][i] = static_cast<int32_t>(i % 3 == 0 ? i : random() % 7000);
    }
    uint32_t matched = 0, inRange = 0;
    ASSERT_TRUE(to.MergeWith(add, u"k", u"v", nullptr, nullptr, nullptr, true, false, &matched));
    for (uint32_t i = 0; i < 3000; ++i) {
        const double key = to[u"k"][i].ToDouble();
        const bool isIn = key <= keys.back();
        inRange += isIn ? 1 : 0;
        const double low = std::floor(key / 2) * 2, high = std::ceil(key / 2) * 2;
        const double expected = isIn ? (std::sqrt(low) + std::sqrt(high)) / 2 : -1;
        ASSERT_NEAR(to[u"v"][i].ToDouble(-1), expected, 1e-7) << key;
    }
    EXPECT_EQ(matched, inRange);
}

/// A disk that is full once it is told so.
class FullDisk : public CFileSystem {
public:
    struct FullFile : CFile {
        uint32_t Write(const void*, uint32_t) override { return 0; }
    };
    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override {
        if (!full || (flags & CFile::accessWrite) == 0) return CFileSystem::CreateFileW(path, flags);
        auto* const file = new FullFile;
        file->Open(path, flags);
        return TSharedPtr<IFile>(file);
    }
    bool full = false;
};

TEST(PodSave, AFullDiskLosesNothing) {
    Disk disk;
    FullDisk full;
    disk.write(threeColumns + "a b c\r\n1 2 3\r\n");
    ASSERT_TRUE(disk.table.Load(&full, disk.path.c_str(), true));
    EXPECT_TRUE(disk.table.PutValue(1, 0, u"new"));
    full.full = true;
    const CString other = disk.folder.path(u"other.pod");
    EXPECT_FALSE(disk.table.Save(&full, other.c_str(), false, false));
    EXPECT_FALSE(disk.table.Save(&full, disk.path.c_str(), false, false));  // over its own file
    EXPECT_TRUE(LastDiagnostic().IsSet() && disk.table.IsModified());
    EXPECT_FALSE(full.FileExists(other.c_str()) || full.FileExists(disk.path.c_str()));
    EXPECT_EQ(disk.cells(), "1|new|3\n");
    full.full = false;
    EXPECT_TRUE(disk.table.Save(&full, disk.path.c_str(), false, false));
    EXPECT_EQ(disk.read(), threeColumns + "a\tb\tc\r\n1\tnew\t3\r\n");
}

TEST(PodSave, AFileThatWouldNotReadAgainIsNotWritten) {
    Disk disk;
    const std::string lines = "a b c\r\n1 2 3\r\n4 5 6\r\n";
    ASSERT_TRUE(disk.load(threeColumns + lines));
    for (const std::u16string& value : {std::u16string(600, u'x'), std::u16string(u"x\r\nDATA")}) {
        disk.table.GetHeader().SetTagValue(u"Note", value.c_str());
        EXPECT_FALSE(disk.save());
    }
    disk.table.GetHeader().Destroy();
    EXPECT_FALSE(disk.save());
    EXPECT_EQ(disk.read(), threeColumns + lines);
    EXPECT_EQ(disk.cells(), "1|2|3\n4|5|6\n");
    // Somebody else writes to the file: its lines begin elsewhere.
    ASSERT_TRUE(disk.load(threeColumns + lines));
    std::fstream(CStringMB(disk.path).c_str(), std::ios::in | std::ios::out).seekp(-5, std::ios::end).write("\n", 1);
    EXPECT_EQ(disk.table.GetValue(1, 1), nullptr);
    EXPECT_FALSE(disk.table.Save(&fileSystem(), disk.folder.path(u"other.pod").c_str(), false, false));
    EXPECT_EQ(narrow(LastDiagnostic().found.c_str()), "a file that was changed since it was loaded");
    // A header that ends with the file keeps its last tag.
    ASSERT_TRUE(disk.load("HdSize auto\r\nKeyWrd POD\r\nNumDPs auto\r\nNParam 1\r\n") && disk.table.AddRow());
    EXPECT_TRUE(disk.save());
    EXPECT_EQ(disk.read(), header("NumDPs auto\r\nNParam 1\r\n") + "\"\"\r\n");
}

/// Runs `work` while no file may grow behind `bytes`.
template <class Work>
void withRoom(rlim_t bytes, Work work) {
    rlimit room{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &room), 0);
    const rlimit little{bytes, room.rlim_max};
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    work();
    setrlimit(RLIMIT_FSIZE, &room);
    std::signal(SIGXFSZ, before);
}

TEST(Pod, WithoutRoomForChangesNoneIsLost) {
    Disk disk;
    std::string lines = "a b c\r\n", changed;
    for (int i = 0; i < 300; ++i) lines += "1 2 3\r\n";
    ASSERT_TRUE(disk.load(threeColumns + lines));
    withRoom(5200, [&] {  // ten cells in the diff file
        for (uint32_t row = 0; row < 300; ++row) {
            changed += disk.table.PutValue(1, row, u"new") ? "1|new|3\n" : "1|2|3\n";
        }
        EXPECT_FALSE(disk.table.AddColumn(u"d", u"", u"", u""));
    });
    EXPECT_EQ(std::count(changed.begin(), changed.end(), 'w'), 64 + 32 + 10);
    EXPECT_EQ(disk.cells(), changed);
    EXPECT_TRUE(disk.table.AddColumn(u"d", u"", u"", u"") && disk.table.RemoveCol(3) && disk.save());
    EXPECT_EQ(disk.cells(), changed);
}

/// Lines of 8192 bytes without end, a header in front of them.
class EndlessFile : public CFile {
public:
    EndlessFile(const std::string& head, int64_t size) : m_head(head), m_size(size), m_lines(1 << 20, 'x') {
        for (size_t i = 8191; i < m_lines.size(); i += 8192) m_lines[i] = '\n';
    }
    uint32_t Read(void* data, uint32_t count) override {
        const auto head = static_cast<int64_t>(m_head.size());
        count = static_cast<uint32_t>(std::min<int64_t>(count, m_size - m_at));
        const bool inHead = m_at < head;
        const auto from = static_cast<size_t>(inHead ? m_at : (m_at - head) % 8192);
        const std::string& source = inHead ? m_head : m_lines;
        count = static_cast<uint32_t>(std::min<size_t>(count, source.size() - from));
        std::memcpy(data, source.data() + from, count);
        m_at += count;
        return count;
    }
    int64_t GetSize() override { return m_size; }
    int64_t GetPosition() override { return m_at; }
    int64_t Seek(int64_t offset, uint32_t origin) override {
        return m_at = origin == fromBegin ? offset : origin == fromCurrent ? m_at + offset : m_size + offset;
    }

private:
    std::string m_head;
    int64_t m_size, m_at = 0;
    std::string m_lines;
};
class EndlessDisk : public CFileSystem {
public:
    TSharedPtr<IFile> CreateFileW(const char16_t*, uint32_t) override {
        return TSharedPtr<IFile>(new EndlessFile(header("NumDPs auto\r\nNParam 1\r\n"), size));
    }
    int64_t size = 0;
};

TEST(PodLoad, RowsBehindFourGibibytesAreRefused) {
    const int64_t head = static_cast<int64_t>(header("NumDPs auto\r\nNParam 1\r\n").size());
    EndlessDisk disk;
    CPODFile table;
    disk.size = head + (int64_t{1} << 32);  // the last row begins just below
    ASSERT_TRUE(table.Load(&disk, u"x", true));
    EXPECT_EQ(table.nDPs(), 524288u);
    EXPECT_EQ(narrow(table.GetValue(0, 524287)), std::string(255, 'x'));
    disk.size += 8192;
    EXPECT_FALSE(table.Load(&disk, u"x", true));
    EXPECT_NE(narrow(LastDiagnostic().ToString().c_str()).find("4 GiB"), std::string::npos);
    EXPECT_FALSE(table.IsValid());
}

}  // namespace
}  // namespace qv
