#include "qv/property_array.h"

#include <gtest/gtest.h>

#include "qv/file_system.h"

namespace qv {
namespace {

using Text = std::u16string_view;

TEST(PropertyArray, NamesKeepTheirFirstSpellingAndTheLastValue) {
    CPropertyArray array;
    array.SetValue(u"Name", u"x");
    array.SetValue(u"Other", u"z");
    array.SetValue(u"NAME", u"y");
    EXPECT_EQ(array.nValues(), 2u);
    EXPECT_EQ(Text(array.GetValue(u"nAme")), u"y");
    EXPECT_EQ(array.FindValue(u"other"), 1);
    EXPECT_EQ(array.FindValue(u"absent"), -1);
    EXPECT_EQ(Text(array.GetValue(u"absent")), u"");
    array[0] = u"by index";
    EXPECT_EQ(Text(array[u"name"]), u"by index");

    const CPropertyArray copy = array;
    array.Clear();
    EXPECT_EQ(copy.nValues(), 2u);
    EXPECT_EQ(copy.GetNameAt(0), u"Name");
    EXPECT_EQ(copy.GetValueAt(1), u"z");
    EXPECT_EQ(copy.GetNameAt(2), u"");
    EXPECT_EQ(array.nValues(), 0u);
}

TEST(PropertyArray, AnEntryStandsForItsNameWhetherOrNotItIsThere) {
    CPropertyArray array;
    CPropertyArray::CEntry entry = array[u"a"];
    EXPECT_FALSE(entry.Exists());
    EXPECT_EQ(static_cast<int>(entry), 0);
    EXPECT_EQ(static_cast<double>(entry), 0.0);
    EXPECT_EQ(Text(static_cast<const char16_t*>(entry)), u"");
    entry = -12;
    EXPECT_TRUE(entry.Exists());
    EXPECT_EQ(static_cast<int>(array[u"A"]), -12);
    const auto text = [&] { return Text(array.GetValue(u"a")); };
    EXPECT_EQ(text(), u"-12");
    entry = int64_t{-5000000000};
    EXPECT_EQ(static_cast<int64_t>(entry), -5000000000);
    EXPECT_EQ(static_cast<int>(entry), -2147483647 - 1);
    entry = 1.0 / 3;
    EXPECT_EQ(text(), u"0.333333");
    EXPECT_EQ(static_cast<double>(entry), 0.333333);
    entry = reinterpret_cast<void*>(uintptr_t{0xBEEF});
    EXPECT_EQ(text(), u"000000000000BEEF");

    array[u"b"] = u"two";
    entry = array[u"b"];  // Stands for another name now; nothing is copied.
    EXPECT_EQ(text(), u"000000000000BEEF");
    EXPECT_EQ(Text(entry), u"two");

    array[5] = u"nameless";
    EXPECT_EQ(array.nValues(), 3u);
    EXPECT_EQ(Text(array.GetValue(u"")), u"nameless");
}

TEST(PropertyArray, AValueWithANullHandleIsANullPointer) {
    CString null;
    null.Empty();
    CPropertyArray array;
    array[u"null"] = null;
    array[u"empty"] = u"";
    EXPECT_EQ(array.GetValue(u"null"), nullptr);
    EXPECT_NE(array.GetValue(u"empty"), nullptr);
    EXPECT_TRUE(array[u"null"].Exists());
    EXPECT_EQ(static_cast<int>(array[u"null"]), 0);
}

TEST(PropertyArray, DirectoryEntriesCarryTheirProperties) {
    IFileSystem::CDirectoryListing listing;
    for (const int i : {1, 2}) {
        IFileSystem::CDirectoryEntry entry;
        StrCpy(entry.name, i == 1 ? u"b" : u"a", IFileSystem::pathChars);
        entry.properties[u"number"] = i;
        listing.entries.Add(entry);
    }
    listing.Sort(1);
    EXPECT_EQ(static_cast<int>(listing.entries[0].properties[u"number"]), 2);
    EXPECT_EQ(static_cast<int>(listing.entries[1].properties[u"number"]), 1);
}

}  // namespace
}  // namespace qv
