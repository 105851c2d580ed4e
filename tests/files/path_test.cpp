#include "qv/path.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "qv/file_system.h"

namespace qv::test {
namespace {

std::string utf8(const path& p) { return p.text().GetUTF8(); }

TEST(Path, Parts) {
    struct Row {
        const char *text, *root, *parent, *filename, *stem, *extension, *normal;
    };
    const Row rows[] = {
        {"a/b.c.d", "", "a", "b.c.d", "b.c", ".d", "a/b.c.d"},
        {"/a", "/", "/", "a", "a", "", "/a"},
        {"/", "/", "/", "", "", "", "/"},
        {"/../a/./b//../c/", "/", "/../a/./b//../c", "", "", "", "/a/c"},
        {"a\\..\\..\\b/../../x", "", "a\\..\\..\\b/../..", "x", "x", "", "../../x"},
        {"./C:/x", "", "./C:", "x", "x", "", "./C:/x"},
        {"a/..", "", "a", "..", "..", "", "."},
        {"", "", "", "", "", "", ""},
        {".profile", "", "", ".profile", "", ".profile", ".profile"},
        {"x.d/.", "", "x.d", ".", ".", "", "x.d"},
        {"C:\\a.b", "C:\\", "C:\\", "a.b", "a", ".b", "C:/a.b"},
        {"C:\\..\\a", "C:\\", "C:\\..", "a", "a", "", "C:/a"},
        {"c:x.y", "c:", "c:", "x.y", "x", ".y", "c:x.y"},
        {"c:../x", "c:", "c:..", "x", "x", "", "c:../x"},
        {"c:", "c:", "c:", "", "", "", "c:"},
        {"\\\\server\\\\share.x\\a\\..\\..\\b", "\\\\server\\\\share.x", "\\\\server\\\\share.x\\a\\..\\..", "b", "b",
         "", "//server/share.x/b"},
        {"//server/share.x", "//server/share.x", "//server/share.x", "", "", "", "//server/share.x"},
        {"//", "//", "//", "", "", "", "//"},
        {"http://host.de/a/../../b.c", "http://host.de", "http://host.de/a/../..", "b.c", "b", ".c",
         "http://host.de/b.c"},
        {"http://host.de", "http://host.de", "http://host.de", "", "", "", "http://host.de"},
        {"file:///x/y", "file:///", "file:///x", "y", "y", "", "file:///x/y"},
        {"cd:/x", "cd:/", "cd:/", "x", "x", "", "cd:/x"},
    };
    for (const Row& row : rows) {
        path p(row.text);
        EXPECT_EQ(utf8(p.root()), row.root) << row.text;
        EXPECT_EQ(utf8(p.filename()), row.filename) << row.text;
        EXPECT_EQ(utf8(p.stem()), row.stem) << row.text;
        EXPECT_EQ(utf8(p.extension()), row.extension) << row.text;
        EXPECT_EQ(utf8(p.parent()), row.parent) << row.text;
        EXPECT_EQ(utf8(p.lexically_normal()), row.normal) << row.text;
        EXPECT_EQ(p.lexically_normal().lexically_normal(), p.lexically_normal()) << row.text;
        EXPECT_EQ(utf8(path(p).replace_extension(p.extension())), row.text);
    }
    EXPECT_EQ(utf8(path("a/b.c").replace_extension("d")), "a/b.d");
    EXPECT_EQ(utf8(path("a.x/b").replace_extension(u".d")), "a.x/b.d");
    EXPECT_EQ(utf8(path("a/b.c").replace_extension()), "a/b");
    EXPECT_EQ(utf8(path("a/b").replace_filename("c")), "a/c");
    EXPECT_EQ(utf8(path("//s/t").replace_filename("c")), "//s/t/c");
}

TEST(Path, Joining) {
    struct Row {
        const char *left, *right, *expected;
    };
    const Row rows[] = {{"a", "b", "a/b"},       {"a/", "b", "a/b"},     {"a\\", "b", "a\\b"},
                        {"", "b", "b"},          {"a", "", "a"},         {"a", "/b", "/b"},
                        {"a", "C:b", "C:b"},     {"C:", "b", "C:b"},     {"//s/t", "b", "//s/t/b"},
                        {"a", "x://b", "x://b"}, {"a", "../b", "a/../b"}};
    for (const Row& row : rows)
        EXPECT_EQ(utf8(path(row.left) / row.right), row.expected) << row.left << " " << row.right;
    path twice("a");
    const path& itself = twice;
    twice /= itself;
    EXPECT_EQ(utf8(twice), "a/a");
}

TEST(Path, KindsRelationsAndPieces) {
    struct Row {
        const char* text;
        bool absolute, windows, unc, url;
    };
    const Row rows[] = {{"C:/x", true, true, false, false},     {"C:x", false, true, false, false},
                        {"\\\\s", true, false, true, false},    {"/x", true, false, false, false},
                        {"http://x", true, false, false, true}, {"x", false, false, false, false}};
    for (const Row& row : rows) {
        const path p(row.text);
        EXPECT_TRUE(p.is_absolute() == row.absolute && p.is_windows() == row.windows && p.is_unc() == row.unc &&
                    p.is_url() == row.url)
            << row.text;
    }
    const path deep("A\\b/C"), top("/a/");
    EXPECT_TRUE(deep.is_child_of(top) && !deep.is_in(top) && deep.is_in("a/B") && deep.is_same("/a//b/c/"));
    EXPECT_EQ(utf8(deep.relative_to("a/d/e")), "../../b/C");
    EXPECT_EQ(utf8(deep.relative_to(deep)), ".");
    std::string pieces;
    for (const std::u16string_view piece : path("//a\\b///c/")) pieces += utf8(piece) + "|";
    EXPECT_EQ(pieces, "a|b|c|");
    EXPECT_TRUE(path("//").begin() == path("").end());
}

TEST(Path, ComparesWithSeparatorsAlikeAndConverts) {
    EXPECT_EQ(path("a\\b"), path(u"a/b"));
    EXPECT_EQ(std::hash<path>()(path("a\\b")), std::hash<path>()(path("a/b")));
    EXPECT_TRUE(path("a") != path("A") && path("a/b") < path("a0") && path("a") < path("a/"));
    EXPECT_EQ(std::unordered_set<path>({"a/b", "a\\b", "c"}).size(), 2u);
    const std::filesystem::path native("m\xC3\xA4/x");
    const path p(native);
    EXPECT_EQ(p.view(), u"m\u00E4/x");
    EXPECT_EQ(std::filesystem::path(path(u"m\u00E4\\x")), native);
    const CString text = p;
    EXPECT_EQ(text.view(), p.view());
    EXPECT_EQ(utf8(path(std::u16string_view(u"a\0b", 3))), "a");
    EXPECT_TRUE(path(static_cast<const char16_t*>(nullptr)).empty());
}

TEST(Path, LongPathsAndRandomOnesAgreeWithTheHelpers) {
    std::u16string base, name(5000, u'n');
    for (int i = 0; i < 3000; ++i) base += u"x/";
    EXPECT_EQ(path(name).relative_to(base).view().size(), 3000u * 3 + 5000);
    EXPECT_EQ((path(base) / name).filename().view(), name);
    std::mt19937 random(5);
    for (int i = 0; i < 20'000; ++i) {
        std::string text;
        for (size_t size = random() % 12; size-- > 0;) text += "ab./\\:"[random() % 6];
        const path p(text), normal = p.lexically_normal();
        EXPECT_EQ(normal.lexically_normal(), normal) << text;
        EXPECT_EQ(normal.is_absolute(), p.is_absolute()) << text;
        EXPECT_TRUE(utf8(p).starts_with(utf8(p.parent()))) << text;
        EXPECT_EQ(p.parent().root(), p.root()) << text;
        EXPECT_EQ(utf8(p.stem()) + utf8(p.extension()), utf8(p.filename())) << text;
        if (!p.root().empty()) continue;
        EXPECT_EQ(utf8(p.filename()), utf8(IFileSystem::GetFilename(p.c_str()))) << text;
    }
}

}  // namespace
}  // namespace qv::test
