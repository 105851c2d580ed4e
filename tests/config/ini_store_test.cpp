#include "qv/ini_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "config/store_conformance.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"

namespace qv::test {
namespace {

class IniUnderTest : public StoreUnderTest {
public:
    IniUnderTest() { EXPECT_FALSE(m_store->Load(m_path.c_str())); }  // Not there yet: Flush makes it.
    IConfigStore& store() override { return *m_store; }
    void reopen() override {
        EXPECT_TRUE(m_store->Flush());
        m_store = std::make_unique<CINIStore>();
        EXPECT_TRUE(m_store->Load(m_path.c_str()) || !fileSystem().FileExists(m_path.c_str()));
    }

private:
    TempFolder m_folder;
    CString m_path = m_folder.path(u"settings.ini");
    std::unique_ptr<CINIStore> m_store = std::make_unique<CINIStore>();
};

INSTANTIATE_TEST_SUITE_P(Ini, StoreConformance,
                         ::testing::Values(StoreKind{.name = "CINIStore",
                                                     .make = [] { return std::make_unique<IniUnderTest>(); },
                                                     .keepsNewSpelling = false,
                                                     .order = StoreKind::orderValuesFirst}),
                         nameOfStore);

std::string saved(CINIStore& store) {
    const TSharedPtr<IFile> file = memoryFile("");
    EXPECT_TRUE(store.Save(file));
    return bytesOf(*file);
}

const std::string foreign =
    "\xEF\xBB\xBF; written by hand\r\n"
    "top=1\r\n"
    "\r\n"
    "[Camera]   # the first\r\n"
    "  Name\t=  MW1; north  \r\n"
    "lens = \"25\\tmm\\x\" ; quoted\r\n"
    "path = C:\\data\\new\r\n"
    "what is this?\r\n"
    "=nameless\r\n"
    "\r\n"
    "[ View/Palette ]\r\n"
    "range/low = \xFF-20\r\n"
    "range/low = -40\r\n"
    "open = \"never closed\r\n"
    "both = \"a\" \"b\"\r\n"
    "[unclosed\r\n"
    "[camera]\r\n"
    "\"a = b\"=last\r\n"
    "empty =";

TEST(IniStore, ReadsWhatPeopleWrite) {
    CINIStore store;
    ASSERT_TRUE(store.Load(memoryFile(foreign)));
    const std::pair<const char16_t*, const char16_t*> values[] = {
        {u"top", u"1"},
        {u"camera/name", u"MW1; north"},
        {u"Camera/lens", u"25\tmm\\x"},
        {u"Camera/path", u"C:\\data\\new"},
        {u"View/Palette/range/low", u"-40"},
        {u"View/Palette/open", u"\"never closed"},
        {u"View/Palette/both", u"\"a\" \"b\""},
        {u"Camera/a = b", u"last"},
        {u"Camera/empty", u""},
    };
    for (const auto& [path, text] : values)
        EXPECT_EQ(store.GetString(path, u"absent"), text) << CString(path).GetUTF8();
    EXPECT_EQ(store.GetChildren().size(), 3u);
    EXPECT_EQ(store.GetChildren(u"camera").size(), 5u);
    const CINIStore::SLineCounts lines = store.CountLines();
    EXPECT_EQ((std::vector{lines.blank, lines.comment, lines.section, lines.value, lines.unknown}),
              (std::vector<uint32_t>{2, 1, 3, 10, 3}));
}

TEST(IniStore, ASaveChangesTheLinesOfChangedValuesAlone) {
    CINIStore store;
    ASSERT_TRUE(store.Load(memoryFile(foreign)));
    EXPECT_EQ(saved(store), foreign);

    store.SetString(u"camera/NAME", u"MW2");
    store.SetString(u"Camera/lens", u"plain");
    store.SetInt32(u"Camera/frames", 50);
    store.SetString(u"Camera/empty", u" ");
    store.SetString(u"view/palette/range/low", u"a;\nb");
    store.Remove(u"View/Palette/both");
    store.Remove(u"top");
    store.SetBool(u"New/[1]/x=y", true);
    store.SetString(u"also top", u"two");
    const std::string expected =
        "\xEF\xBB\xBF; written by hand\r\n"
        "also top = two\r\n"
        "\r\n"
        "[Camera]   # the first\r\n"
        "  Name\t=  MW2  \r\n"
        "lens = \"plain\" ; quoted\r\n"
        "path = C:\\data\\new\r\n"
        "what is this?\r\n"
        "=nameless\r\n"
        "\r\n"
        "[ View/Palette ]\r\n"
        "range/low = \xFF-20\r\n"
        "range/low = \"a;\\nb\"\r\n"
        "open = \"never closed\r\n"
        "[unclosed\r\n"
        "[camera]\r\n"
        "\"a = b\"=last\r\n"
        "empty =\" \"\r\n"
        "frames = 50\r\n"
        "\r\n"
        "[\"New/[1]\"]\r\n"
        "\"x=y\" = true\r\n";
    EXPECT_EQ(saved(store), expected);
    EXPECT_EQ(saved(store), expected);
    CINIStore again;
    ASSERT_TRUE(again.Load(memoryFile(expected)));
    EXPECT_TRUE(again.GetBool(u"new/[1]/X=Y"));
    EXPECT_EQ(again.GetString(u"View/Palette/range/low"), u"a;\nb");
}

TEST(IniStore, ANameThatLooksLikeAByteOrderMarkStaysWhole) {
    CINIStore store, back;
    store.SetInt32(u"\uFEFFn", 1);
    const TSharedPtr<IFile> file = memoryFile("");
    ASSERT_TRUE(store.Save(file));
    EXPECT_EQ(bytesOf(*file), "\"\xEF\xBB\xBFn\" = 1\n");
    file->SeekToBegin();
    ASSERT_TRUE(back.Load(file));
    EXPECT_EQ(back.GetInt32(u"\uFEFFn"), 1);
}

TEST(IniStore, AHeaderGoesWithTheLastOfItsLines) {
    CINIStore store;
    ASSERT_TRUE(store.Load(memoryFile("a=1\n[s]\nx=1\nx=2\n\n[t]\n; note\ny=1\n[u]\n")));
    store.RemoveSection(u"s");
    store.RemoveSection(u"t");
    EXPECT_EQ(saved(store), "a=1\n[t]\n; note\n[u]\n");
    store.SetInt32(u"s/z", 1);
    EXPECT_EQ(saved(store), "a=1\n[t]\n; note\n[u]\n\n[s]\nz = 1\n");
}

TEST(IniStore, WhatIsNoTextIsRefused) {
    CINIStore store;
    store.SetInt32(u"old", 1);
    const std::string utf16(
        "\xFF\xFE"
        "a\0=\0"
        "1\0",
        8);
    EXPECT_FALSE(store.Load(memoryFile(utf16)));
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_TRUE(store.GetChildren().empty());

    // Lines whose paths are too deep are kept as unknown ones.
    std::string deep = "[";
    for (int i = 0; i < 100; ++i) deep += "d/";
    deep += "]\nok=1\n" + deep.substr(1, 100) + "=2\n[" + deep.substr(1, 199) + deep.substr(1, 199) + "]\nx=3\n";
    ASSERT_TRUE(store.Load(memoryFile(deep)));
    EXPECT_EQ(store.GetChildren().size(), 1u);
    EXPECT_EQ(saved(store), deep);
}

TEST(IniStore, ADiskFileIsReplacedAsAWhole) {
    const TempFolder folder;
    const CString path = folder.path(u"a.ini"), link = folder.path(u"link.ini");
    CINIStore store;
    store.SetInt32(u"x", 1);
    ASSERT_TRUE(store.Save(path.c_str()));
    const std::string native = CStringMB(path.c_str()).c_str();
    ASSERT_EQ(chmod(native.c_str(), 0640), 0);
    ASSERT_EQ(symlink("a.ini", CStringMB(link.c_str()).c_str()), 0);

    CINIStore other;
    ASSERT_TRUE(other.Load(link.c_str()));
    other.SetInt32(u"x", 2);
    EXPECT_TRUE(other.Flush());
    struct stat info {};
    ASSERT_EQ(lstat(CStringMB(link.c_str()).c_str(), &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode));
    ASSERT_EQ(stat(native.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    ASSERT_TRUE(store.Load(path.c_str()));
    EXPECT_EQ(store.GetInt32(u"x"), 2);
    EXPECT_EQ(fileSystem().GetDirectoryListing(folder.path().c_str(), nullptr).entries.size(), 2u);

    ASSERT_EQ(chmod(native.c_str(), 0440), 0);
    store.SetInt32(u"x", 3);
    EXPECT_FALSE(store.Flush());
    ASSERT_EQ(chmod(native.c_str(), 0640), 0);
    fileSystem().CreateFileW(path.c_str(), CFile::accessWrite)->WriteBytes("\0", 1);
    EXPECT_FALSE(other.Load(path.c_str()));  // A foreign file now: not to be overwritten.
    other.SetInt32(u"x", 4);
    EXPECT_FALSE(other.Flush());
    EXPECT_FALSE(store.Save(folder.path().c_str()));
    EXPECT_FALSE(store.Save(folder.path(u"no/such.ini").c_str()));
    EXPECT_EQ(fileSystem().GetDirectoryListing(folder.path().c_str(), nullptr).entries.size(), 2u);
}

}  // namespace
}  // namespace qv::test
