#include "qv/saf_file.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/tag_file.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using test::bytesOf;
using test::memoryFile;
using test::TempFolder;

std::string narrow(const char16_t* text) { return text == nullptr ? "(null)" : CStringMB(text).c_str(); }

/// The tags as "name=value;".
std::string tagsOf(const CSAFFile& header) {
    std::string text;
    for (uint32_t i = 0; i < header.nTags(); ++i) {
        text += narrow(header[i].name.c_str()) + "=" + narrow(header[i].value.c_str()) + ";";
    }
    return text;
}

TEST(SafLoad, ReadsEveryFormOfHeader) {
    const struct {
        const char* name;
        std::string bytes;
        bool loads;
        std::string tags;
        uint32_t dataPosition;
    } rows[] = {
        {"automatic size", "HdSize auto\r\nxPixls 320\r\nDATA\r\nxyz", true, "HdSize=auto;xPixls=320;DATA=;", 31},
        {"padding is not kept", "HdSize auto\r\nsaf_padding The pad\r\na b\r\nDATA\r\n", true, "HdSize=auto;a=b;DATA=;",
         45},
        {"any case, inner blanks", "hdSIZE auto\r\nnote   two  words  \r\ndata\r\n", true,
         "hdSIZE=auto;note=two  words;data=;", 40},
        {"fixed size without DATA", "HdSize 19\r\nab cde\r\nbinary", true, "HdSize=Auto;ab=cde;DATA=;", 19},
        {"fixed size with DATA", "HdSize 99\r\nDATA\r\nbinary", true, "HdSize=Auto;DATA=;", 17},
        // A padding line that ends at the stated size does not end the header.
        {"fixed size ending in padding", "HdSize 26\r\nsaf_padding x\r\nbin\r\nDATA\r\n", true,
         "HdSize=Auto;bin=;DATA=;", 37},
        {"automatic size without DATA", "HdSize auto\r\na b\r\n", true, "HdSize=auto;a=b;", 18},
        {"last line without an end", "HdSize auto\r\na b", true, "HdSize=auto;a=b;", 16},
        {"line feeds alone", "HdSize auto\na b\nDATA\n", true, "HdSize=auto;a=b;DATA=;", 21},
        {"511 bytes fit a line", "HdSize auto\r\na " + std::string(507, 'x') + "\r\nDATA\r\n", true,
         "HdSize=auto;a=" + std::string(507, 'x') + ";DATA=;", 13 + 511 + 6},
        {"a line too long ends the reading", "HdSize auto\r\nb c\r\na " + std::string(600, 'x') + "\r\nDATA\r\n", true,
         "HdSize=auto;b=c;", 18},
        {"another beginning", "HdSiz", false, "", 0},
        {"six letters of a longer name", "HdSizeX auto\r\nDATA\r\n", false, "", 0},
        {"empty file", "", false, "", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CSAFFile header;
        ClearDiagnostic();
        EXPECT_EQ(header.Load(memoryFile(row.bytes)), row.loads);
        EXPECT_EQ(LastDiagnostic().IsSet(), !row.loads);
        if (!row.loads) continue;
        EXPECT_EQ(tagsOf(header), row.tags);
        EXPECT_EQ(header.GetDataPosition(), row.dataPosition);
    }
}

TEST(SafLoad, ManyLinesThatAreNoHeaderAreRefused) {
    std::string bytes = "HdSize auto\r\n";
    for (int i = 0; i < 300000; ++i) bytes += "a\n";
    CSAFFile header;
    EXPECT_FALSE(header.Load(memoryFile(bytes)));
}

TEST(SafTags, AreFoundWithoutRegardToCaseAndConverted) {
    CSAFFile header;
    EXPECT_FALSE(header.SetTagValue(u"a", u"b"));
    EXPECT_FALSE(header.AddTag(u"a", u"b"));
    header.New(false);
    header[u"xPixls"] = 640;
    header[u"Gain"] = 0.125;
    header[u"Note"] = u" 12 apples";
    EXPECT_EQ(tagsOf(header), "HdSize=auto;xPixls=640;Gain=1.250000e-01;Note= 12 apples;DATA=;");
    EXPECT_EQ(static_cast<int32_t>(header[u"XPIXLS"]), 640);
    EXPECT_EQ(header[u"note"].ToDouble(1), 12.0);
    EXPECT_EQ(header[u"absent"].ToLong(7), 7);
    EXPECT_EQ(static_cast<double>(header[u"absent"]), 0.0);
    EXPECT_FALSE(header[u"absent"].Exists());
    EXPECT_EQ(header.GetTagValue(u"absent"), nullptr);
    EXPECT_TRUE(header.AddTag(u"xPixls", u"2"));
    EXPECT_TRUE(header.RemoveTag(u"xpixls"));
    EXPECT_EQ(narrow(header.GetTagValue(u"xPixls")), "2");
    CSAFFile copy;
    EXPECT_TRUE(header.MakeDuplicate(copy));
    EXPECT_EQ(tagsOf(copy), tagsOf(header));
}

// The pad's text, by hand: two full lines, or a short line, or blanks behind the last line.
TEST(SafSave, PadIsWrittenToTheByte) {
    const std::string one = "saf_padding The pad tag is used to    ";
    const std::string two = "saf_padding reserve space for newly   ";
    TempFolder folder;
    const CString path = folder.path(u"pad.saf");
    const struct {
        size_t tagBytes;
        std::string pad;
    } rows[] = {{2048 - 80, one + "\r\n" + two + "\r\n"},
                {2048 - 94, one + "\r\n" + two + std::string(14, ' ') + "\r\n"},
                {2048 - 95, one + "\r\n" + two + "\r\nsaf_padding a\r\n"},
                {2048 - 16, "saf_padding Th\r\n"}};
    for (const auto& row : rows) {
        CSAFFile header;
        header.New(false);
        ASSERT_TRUE(header.Save(path.c_str(), true));
        {
            TSharedPtr<IFile> file = CFile::Create(path.c_str(), 0x22);
            file->SeekToEnd();
            file->WriteBytes("data", 4);
        }
        std::string tags;
        for (size_t left = row.tagBytes; left > 0;) {
            const size_t line = left > 500 ? 250 : left;
            header.AddTag(u"a", CString(std::string_view(std::string(line - 4, 'x'))).c_str());
            tags += "a " + std::string(line - 4, 'x') + "\r\n";
            left -= line;
        }
        ASSERT_TRUE(header.Save());
        TSharedPtr<IFile> file = CFile::Create(path.c_str(), 0x12);
        EXPECT_EQ(bytesOf(*file), "HdSize auto\r\n" + tags + row.pad + "DATA\r\ndata");
    }
}

TEST(SafSave, NewFileHasAPadOf2048Bytes) {
    TempFolder folder;
    CSAFFile header;
    header.New(false);
    ASSERT_TRUE(header.Save(folder.path(u"a.saf").c_str(), true));
    EXPECT_EQ(header.GetDataPosition(), header.HeaderSize() + 2048u);
    CSAFFile loaded;
    ASSERT_TRUE(loaded.Load(folder.path(u"a.saf").c_str()));
    EXPECT_EQ(loaded.GetDataPosition(), header.GetDataPosition());
    EXPECT_EQ(loaded.nTags(), 2u);
    // Without data the pad goes and the file is cut to the header.
    ASSERT_TRUE(loaded.Save());
    EXPECT_EQ(fileSystem().GetFileInfo(folder.path(u"a.saf").c_str()).size, loaded.HeaderSize());
    // Without tags the header is the DATA line.
    CSAFFile none;
    const CString b = folder.path(u"b.saf");
    for (const char16_t* path : {b.c_str(), static_cast<const char16_t*>(nullptr)}) {
        ASSERT_TRUE(none.Save(path, false));
        EXPECT_EQ(none.GetDataPosition(), 6u);
        EXPECT_EQ(none.HeaderSize(), 6u);
        EXPECT_EQ(fileSystem().GetFileInfo(b.c_str()).size, 6);
    }
}

TEST(SafSave, SplicesTheFrontOnlyOutsideTheBoundsOfThePad) {
    // The header is 19 bytes without further tags; a tag line of n bytes makes it 19 + n.
    const struct {
        const char* name;
        int32_t padAfterChange;  ///< what the change would leave
        int32_t padInFile;
    } rows[] = {{"16 stay", 16, 16},      {"15 insert", 15, 2048},   {"none is exact", 0, 0},
                {"negative", -100, 2048}, {"4096 stay", 4096, 4096}, {"4097 remove", 4097, 2048}};
    const std::string data = "0123456789 binary \0 data";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CSAFFile header;
        header.New(false);
        header.AddTag(u"tag", CString(100u, u'x').c_str());
        const int64_t size = header.HeaderSize();
        const auto start = static_cast<uint32_t>(size + row.padAfterChange);
        TSharedPtr<IFile> file = memoryFile(std::string(start, '?') + data);
        uint32_t position = start;
        EXPECT_TRUE(header.Update(file, position, true));
        EXPECT_EQ(position, size + row.padInFile);
        const std::string bytes = bytesOf(*file);
        EXPECT_EQ(bytes.substr(position - 6), "DATA\r\n" + data);
        CSAFFile loaded;
        file->SeekToBegin();
        EXPECT_TRUE(loaded.Load(file));
        EXPECT_EQ(loaded.GetDataPosition(), position);
        EXPECT_EQ(tagsOf(loaded), tagsOf(header));
    }
}

TEST(SafSave, WritesNoHeaderOverDataThatCouldNotBeMoved) {
    CSAFFile header;
    header.New(false);
    header.AddTag(u"tag", CString(100u, u'x').c_str());
    const std::string before = "HdSize auto\r\nDATA\r\n0123456789";
    TSharedPtr<CMemFile> full = CMemFile::Create();
    full->WriteBytes(before.data(), static_cast<uint32_t>(before.size()));
    full->SetGrow(false);  // as a full disk: nothing behind the end can be written
    uint32_t position = 19;
    ClearDiagnostic();
    EXPECT_TRUE(header.Update(full, position, true));
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_EQ(position, 19u);
    EXPECT_EQ(bytesOf(*full), before);
}

TEST(SafSave, ToAnotherFileTakesTheDataAlong) {
    TempFolder folder;
    CSAFFile header;
    header.New(false);
    ASSERT_TRUE(header.Save(folder.path(u"a.saf").c_str(), false));
    {
        TSharedPtr<IFile> file = CFile::Create(folder.path(u"a.saf").c_str(), 0x62);
        file->WriteBytes("data", 4);
    }
    header.AddTag(u"k", u"v");
    ASSERT_TRUE(header.Save(folder.path(u"b.saf").c_str(), false));
    EXPECT_EQ(header.GetDataPosition(), header.HeaderSize() + 2048u);
    TSharedPtr<IFile> file = CFile::Create(folder.path(u"b.saf").c_str(), 0x12);
    const std::string bytes = bytesOf(*file);
    EXPECT_EQ(bytes.substr(bytes.size() - 10), "DATA\r\ndata");
    // A fresh header over the same data.
    file.Release();
    header.New(true);
    ASSERT_TRUE(header.Save());
    file = CFile::Create(folder.path(u"b.saf").c_str(), 0x12);
    EXPECT_EQ(bytesOf(*file).substr(header.GetDataPosition()), "data");
}

TEST(SafSave, DataOfASparseGigabyteIsNotRewrittenWhileThePadLasts) {
    TempFolder folder;
    const CString path = folder.path(u"big.saf");
    CSAFFile header;
    header.New(false);
    ASSERT_TRUE(header.Save(path.c_str(), true));
    CFile file;
    ASSERT_TRUE(file.Open(path.c_str(), 0x32));
    ASSERT_TRUE(file.SetSize(int64_t{1} << 30));
    file.Close();
    const int64_t blocks = test::blocksOnDisk(path);
    header.AddTag(u"note", u"changed in place");
    ASSERT_TRUE(header.Save());
    EXPECT_EQ(test::blocksOnDisk(path), blocks);  // a data segment that was written would fill its hole
    EXPECT_EQ(fileSystem().GetFileInfo(path.c_str()).size, int64_t{1} << 30);
}

class SafGroupsTest : public ::testing::Test {
protected:
    void SetUp() override {
        GetTagFile().Destroy();
        const std::pair<const char16_t*, CTagEntry::CATEGORY> known[] = {{u"xPixls", CTagEntry::CATEGORY::Data},
                                                                         {u"Band%%", CTagEntry::CATEGORY::SensorInfo},
                                                                         {u"Remark", CTagEntry::CATEGORY::Comment},
                                                                         {u"Sensor", CTagEntry::CATEGORY::SensorInfo}};
        for (const auto& [name, category] : known) {
            CTagEntry entry;
            entry.SetName(name);
            entry.SetCategory(category);
            GetTagFile().AddTagEntry(entry);
        }
        GetTagFile().Sort();
    }
    void TearDown() override { GetTagFile().Destroy(); }

    static CSAFFile make(const std::vector<std::pair<const char16_t*, const char16_t*>>& tags) {
        CSAFFile header;
        header.New(false);
        for (const auto& [name, value] : tags) header.AddTag(name, value);
        return header;
    }
};

TEST_F(SafGroupsTest, BubblingExchangesHeadingsToTheFront) {
    CSAFFile header = make({{u"a", u"1"},
                            {u"Group", u"Data Tags"},
                            {u"b", u"2"},
                            {u"Group", u"No Such Group"},
                            {u"GroupComment", u"of the data"},
                            {u"group", u"sensor info"}});
    EXPECT_TRUE(header.BubbleGroups());
    EXPECT_EQ(
        tagsOf(header),
        "HdSize=auto;Group=Data Tags;GroupComment=of the data;group=sensor info;Group=No Such Group;a=1;b=2;DATA=;");
}

TEST_F(SafGroupsTest, SortingPutsTagsIntoTheirGroupsInNumericOrder) {
    const std::vector<std::pair<const char16_t*, const char16_t*>> tags = {
        {u"Band10", u""}, {u"xPixls", u"320"}, {u"Remark", u"1"}, {u"Remark", u"2"}, {u"Band9", u""},
        {u"zzz", u""},    {u"Band1", u""},     {u"aaa", u""},     {u"Remark", u"3"}};
    CSAFFile header = make(tags);
    EXPECT_TRUE(header.SortByGroups(true));
    EXPECT_EQ(tagsOf(header),
              "HdSize=auto;Group=Sensor Info;Band1=;Remark=1;Remark=2;Band9=;Band10=;Group=Data Tags;xPixls=320;"
              "Group=Misc Tags;aaa=;zzz=;Remark=3;DATA=;");
    header = make(tags);
    EXPECT_TRUE(header.SortByGroups(false));
    EXPECT_EQ(tagsOf(header), tagsOf(make(tags)));
}

TEST(SafSelfTest, Passes) {
    TempFolder folder;
    TArray<CString> report;
    EXPECT_TRUE(safTest(folder.path(u"run").c_str(), report)) << [&] {
        std::string text;
        for (const CString& line : report) text += narrow(line.c_str()) + "\n";
        return text;
    }();
    // Three variants, three routes, nine cases; each says its title, what it compares, two matches and its result.
    EXPECT_EQ(report.size(), 3u * 3 * 9 * 5 + 1);
    EXPECT_EQ(narrow(report.back().c_str()), "Test passed.");
}

}  // namespace
TEST(SafSave, AHeaderThatDoesNotFitItsFileLeavesADiagnostic) {
    CSAFFile header;
    header.New(false);
    header[u"Camera"] = u"MW1";
    for (const uint32_t room : {0u, 1u, 20u}) {
        const auto file = CMemFile::Create();
        file->SetSize(room);
        file->SetGrow(false);
        TSharedPtr<IFile> target = file;
        uint32_t position = room;
        ClearDiagnostic();
        EXPECT_TRUE(header.Update(target, position, false)) << room;
        EXPECT_TRUE(LastDiagnostic().IsSet()) << room;
    }
    ClearDiagnostic();
}

}  // namespace qv
