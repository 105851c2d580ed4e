#include <random>
#include <string>

#include "qv/exception.h"
#include "qv/file_system.h"
#include "support.h"

namespace qv::test {
namespace {

using View = std::u16string_view;
using FS = IFileSystem;

std::string utf8(View text) { return CString(text).GetUTF8(); }

/// Rows of one helper that changes a path in place or copies it first.
struct Row {
    const char16_t* path;
    const char16_t* expected;
};
using InPlace = char16_t* (*)(char16_t*);
using Copying = char16_t* (*)(char16_t*, const char16_t*);

void check(const char* name, InPlace inPlace, Copying copying, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        char16_t buffer[600];
        if (inPlace != nullptr) {
            StrCpy(buffer, row.path, 600);
            EXPECT_EQ(utf8(inPlace(buffer)), utf8(row.expected)) << name << " " << utf8(row.path);
        }
        EXPECT_EQ(utf8(copying(buffer, row.path)), utf8(row.expected)) << name << " " << utf8(row.path);
        StrCpy(buffer, row.path, 600);
        EXPECT_EQ(utf8(copying(buffer, buffer)), utf8(row.expected)) << name << " " << utf8(row.path);
    }
}

TEST(PathHelpers, TakeTextApart) {
    check("GetFilename", nullptr, FS::GetFilename,
          {{u"a/b.c", u"b.c"}, {u"a\\b", u"b"}, {u"a/", u""}, {u"", u""}, {u"x", u"x"}});
    check("GetDirectory", FS::GetDirectory, FS::GetDirectory,
          {{u"/a", u"/"},
           {u"a", u""},
           {u"", u""},
           {u"/", u"/"},
           {u"a/b/c", u"a/b"},
           {u"a\\b", u"a"},
           {u"a/b/", u"a/b"},
           {u"a//b", u"a"},
           {u"a///b//c", u"a/b"},
           {u"//srv/share/f", u"//srv/share"},
           {u"//srv/share", u"//srv"},
           {u"\\\\s\\x", u"\\\\s"}});
    check("RemoveExtension", FS::RemoveExtension, FS::RemoveExtension,
          {{u"a.b/c.d", u"a.b/c"}, {u"a.b/c", u"a.b/c"}, {u".profile", u""}, {u"a.b.c", u"a.b"}, {u"a.", u"a"}});
    check("GetFirstPathItem", nullptr, FS::GetFirstPathItem,
          {{u"a/b", u"a"}, {u"//a", u"a"}, {u"", u""}, {u"\\", u""}});
    check("RemoveTrailingSlash", FS::RemoveTrailingSlash, FS::RemoveTrailingSlash,
          {{u"a/", u"a"}, {u"a//", u"a/"}, {u"a", u"a"}, {u"", u""}, {u"/", u""}, {u"a\\", u"a"}});
    check("RemoveLeadingSlash", FS::RemoveLeadingSlash, FS::RemoveLeadingSlash,
          {{u"/a", u"a"}, {u"\\/a", u"a"}, {u"a", u"a"}, {u"", u""}});
}

TEST(PathHelpers, AddSlashesWhereNoneStand) {
    check(
        "AppendTrailingSlash", [](char16_t* p) { return FS::AppendTrailingSlash(p, u'\\'); },
        [](char16_t* d, const char16_t* p) { return FS::AppendTrailingSlash(d, p, u'\\'); },
        {{u"a", u"a\\"}, {u"a/", u"a/"}, {u"", u"\\"}});
    check(
        "AppendLeadingSlash", [](char16_t* p) { return FS::AppendLeadingSlash(p, u'/'); },
        [](char16_t* d, const char16_t* p) { return FS::AppendLeadingSlash(d, p, u'/'); },
        {{u"a", u"/a"}, {u"\\a", u"\\a"}, {u"", u"/"}});
    check(
        "ConvertSlashes", [](char16_t* p) { return FS::ConvertSlashes(p, u'/'); },
        [](char16_t* d, const char16_t* p) { return FS::ConvertSlashes(d, p, 6, u'/'); },
        {{u"a\\b/c", u"a/b/c"}, {u"", u""}});
    char16_t four[4];
    EXPECT_EQ(utf8(FS::ConvertSlashes(four, u"a/b/c", 4, u'\\')), "a\\b");
}

TEST(PathHelpers, PutTextTogether) {
    char16_t buffer[64];
    EXPECT_EQ(utf8(FS::MakePath(buffer, u"a", u"b", u'\\')), "a\\b");
    EXPECT_EQ(utf8(FS::MakePath(buffer, u"a/", u"b", u'\\')), "a/b");
    EXPECT_EQ(utf8(FS::MakePath(buffer, buffer, u"c", u'/')), "a/b/c");
    EXPECT_EQ(utf8(FS::MakePath(buffer, u"", u"b", u'/')), "/b");
    EXPECT_EQ(utf8(FS::MakePath(CString(u"a"), CString(u"b"))), "a/b");
    EXPECT_EQ(utf8(FS::MakeFilename(buffer, u"a", u".b")), "a.b");
    EXPECT_EQ(utf8(FS::MakeSafeFilename(u"a.b:c/d\\e*f?g\"h<i>j|k")), "a_b_c_d_e_f_g_h_i_j_k");
}

TEST(PathHelpers, ExtensionsArePointersIntoThePath) {
    const char16_t *none = u"a.b/c", *profile = u".profile", *two = u"x/a.b.c";
    EXPECT_EQ(FS::GetExtension(none), none + 5);
    EXPECT_EQ(FS::GetExtension(profile), profile);
    EXPECT_EQ(FS::GetExtension(two), two + 5);
}

TEST(PathHelpers, SplittingDropsEmptyPieces) {
    TArray<CString> parts{CString(u"old")};
    FS::SplitPath(parts, u"/a\\\\b//c/");
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(utf8(CString::Join(parts, u"|")), "a|b|c");
    parts[0] = u"d/e";
    FS::SplitPath(parts, parts[0].c_str());
    EXPECT_EQ(utf8(CString::Join(parts, u"|")), "d|e");
    FS::SplitPath(parts, u"//");
    EXPECT_EQ(parts.size(), 0u);
}

TEST(PathHelpers, RelationsIgnoreCase) {
    struct Relation {
        const char16_t *a, *b;
        bool same, in, child;
    };
    const Relation rows[] = {
        {u"a", u"A/b", false, true, true},
        {u"a", u"a/b/c", false, false, true},
        {u"a/b", u"/A\\B/", true, false, false},
        {u"a/b", u"a", false, false, false},
        {u"a", u"ab", false, false, false},
        {u"", u"x", false, true, true},
        {u"\u00C4x", u"\u00E4X/y", false, true, true},
        {u"", u"/", true, false, false},
        {u"a", u"b/c", false, false, false},
    };
    for (const Relation& row : rows) {
        EXPECT_EQ(FS::IsSamePath(row.a, row.b), row.same) << utf8(row.a) << " " << utf8(row.b);
        EXPECT_EQ(FS::InDirectory(row.a, row.b), row.in) << utf8(row.a) << " " << utf8(row.b);
        EXPECT_EQ(FS::IsChildOfDirectory(row.a, row.b), row.child) << utf8(row.a) << " " << utf8(row.b);
    }
}

TEST(PathHelpers, KindsOfPaths) {
    struct Kind {
        const char16_t* path;
        bool windows, unc, unixPath, url;
    };
    const Kind rows[] = {
        {u"C:\\x", true, false, false, true},    {u"c:x", true, false, false, false},
        {u"//x", false, true, false, false},     {u"\\/x", false, true, false, false},
        {u"/x", false, false, true, false},      {u"/", false, false, true, false},
        {u"", false, false, false, false},       {u"http://x", false, false, false, true},
        {u"http:x", false, false, false, false}, {u"://x", false, false, false, false},
        {u"1:/x", false, false, false, false},   {u"x", false, false, false, false},
    };
    for (const Kind& row : rows) {
        EXPECT_EQ(FS::IsWindowsPath(row.path), row.windows) << utf8(row.path);
        EXPECT_EQ(FS::IsUNCPath(row.path), row.unc) << utf8(row.path);
        EXPECT_EQ(FS::IsUnixPath(row.path), row.unixPath) << utf8(row.path);
        EXPECT_EQ(FS::IsURL(row.path), row.url) << utf8(row.path);
    }
}

TEST(PathHelpers, RelativePaths) {
    struct Way {
        const char16_t *from, *to, *expected;
    };
    const Way rows[] = {
        {u"a/b/c", u"a/d", u"../../d"},
        {u"a", u"a", u""},
        {u"a", u"A/b", u"b"},
        {u"a/b", u"a", u".."},
        {u"x", u"y", u"../y"},
        {u"", u"a\\b", u"a\\b"},
        {u"a", u"", u""},
        {u"C:/a", u"D:/b", u"D:/b"},
        {u"C:/a", u"c:/b", u"../b"},
        {u"//s/a", u"//t/a", u"//t/a"},
        {u"a", u"http://x", u"http://x"},
        {u"/a\\b", u"/a\\c\\d", u"../c/d"},
    };
    for (const Way& row : rows) {
        char16_t buffer[64];
        EXPECT_EQ(utf8(FS::RelativePath(buffer, row.from, row.to)), utf8(row.expected)) << utf8(row.from);
        StrCpy(buffer, row.from, 64);
        EXPECT_EQ(utf8(FS::RelativePath(buffer, buffer, row.to)), utf8(row.expected)) << utf8(row.from);
    }
}

TEST(PathHelpers, ExpandedPaths) {
    struct Way {
        const char16_t *base, *relative, *expected;
    };
    const Way rows[] = {
        {u"a/b", u"../c", u"a/c"},    {u"a/b", u"c/d", u"a/b/c/d"},  {u"a/b/", u"c", u"a/b/c"},
        {u"a/b", u"", u"a/b/"},       {u"a/b", u"c/../d", u"a/b/d"}, {u"a/b", u"c/./d", u"a/b/d"},
        {u"a/b", u"../../c", u"c"},   {u"a/b", u"../../../c", u"c"}, {u"a/b", u"..", u"a/"},
        {u"a\\b", u"..\\c", u"a\\c"}, {u"/a", u"../../c", u"c"},     {u"a", u"x//y/", u"a/x/y"},
        {u"", u"x", u"/x"},
    };
    for (const Way& row : rows) {
        char16_t buffer[64];
        EXPECT_EQ(utf8(FS::ExpandRelativePath(buffer, row.base, row.relative)), utf8(row.expected))
            << utf8(row.base) << " " << utf8(row.relative);
    }
    char16_t buffer[600] = u"kept";
    EXPECT_THROW(FS::ExpandRelativePath(buffer, u"a", std::u16string(512, u'x').c_str()), CRuntimeErrorException);
    EXPECT_EQ(utf8(buffer), "kept");
    EXPECT_EQ(View(FS::ExpandRelativePath(buffer, u"a", std::u16string(511, u'x').c_str())).size(), 513u);
}

// Wildcards ---------------------------------------------------------------------------------------------------------

TEST(WildcardMatch, Rows) {
    struct Match {
        const char16_t *patterns, *name;
        bool matches;
    };
    const Match rows[] = {
        {u"*.TXT|*.log", u"a.txt", true},
        {u"*.TXT|*.log", u"a.log", true},
        {u"*.TXT|*.log", u"a.lo", false},
        {u"", u"a", false},
        {u"", u"", false},
        {u"*", u"", true},
        {u"?", u"", false},
        {u"?", u"ab", false},
        {u"a**b", u"aXYb", true},
        {u"|a", u"", false},
        {u"x||a", u"A", true},
        {u"*a*b*", u"xxaxxbxx", true},
        {u"*.*", u"abc", false},
        {u"\u00C4?", u"\u00E4\u20AC", true},
    };
    for (const Match& row : rows) {
        EXPECT_EQ(FS::WildcardMatch(row.patterns, row.name), row.matches)
            << utf8(row.patterns) << " " << utf8(row.name);
    }
    EXPECT_FALSE(FS::WildcardMatch(nullptr, u"a"));
    EXPECT_TRUE(FS::WildcardMatch(std::u16string(511, u'*').c_str(), u"a"));
    EXPECT_FALSE(FS::WildcardMatch(std::u16string(512, u'*').c_str(), u"a"));
    EXPECT_TRUE(FS::WildcardMatch(std::u16string(511, u'a').c_str(), std::u16string(511, u'A').c_str()));
}

bool matchesByTrying(View pattern, View name) {
    if (pattern.empty()) return name.empty();
    if (pattern[0] == u'*') {
        return matchesByTrying(pattern.substr(1), name) || (!name.empty() && matchesByTrying(pattern, name.substr(1)));
    }
    if (name.empty() || (pattern[0] != u'?' && pattern[0] != name[0])) return false;
    return matchesByTrying(pattern.substr(1), name.substr(1));
}

TEST(WildcardMatch, AgreesWithTrying) {
    std::mt19937 random(99);
    const auto text = [&random](View letters, size_t limit) {
        std::u16string made(random() % limit + 1, u'a');
        for (size_t i = 1; i < made.size(); ++i) made[i] = letters[random() % letters.size()];
        return made;
    };
    int matched = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::u16string pattern = text(u"ab?*", 8), name = text(u"ab", 10);
        const bool expected = matchesByTrying(pattern, name);
        matched += expected;
        ASSERT_EQ(FS::WildcardMatch(pattern.c_str(), name.c_str()), expected) << utf8(pattern) << " " << utf8(name);
    }
    EXPECT_GT(matched, 1000);
}

TEST(WildcardMatch, HostilePatternsEnd) {
    std::u16string pattern;
    for (int i = 0; i < 255; ++i) pattern += u"*a";
    EXPECT_FALSE(FS::WildcardMatch(pattern.c_str(), (std::u16string(5000, u'a') + u'b').c_str()));
}

}  // namespace
}  // namespace qv::test
