// The capitalised interface, sharing and lifetime, in both widths. S("...") converts ASCII to either.
#include "qv/string.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "qv/array.h"

namespace qv {
namespace {

template <class S>
class StringTest : public testing::Test {
protected:
    static S null() {
        S made;
        made.Empty();
        return made;
    }
};
using Widths = testing::Types<CString, CStringMB>;
TYPED_TEST_SUITE(StringTest, Widths);

template <class S>
std::string utf8(const S& s) {
    return s.GetUTF8();
}

// Sharing and lifetime ------------------------------------------------------------------------------------------------

TYPED_TEST(StringTest, IsOnePointerAndMovesBitwise) {
    using S = TypeParam;
    static_assert(sizeof(S) == sizeof(void*) && !std::is_polymorphic_v<S>);
    TArray<S> strings;
    for (int i = 0; i < 100; ++i) strings.Add(S::FromInt(i));
    strings.Remove(0, 50);
    EXPECT_EQ(utf8(strings.ConstGetItem(0)), "50");
    EXPECT_EQ(utf8(strings.ConstGetItem(49)), "99");
}

TYPED_TEST(StringTest, CopiesShareUntilOneChanges) {
    using S = TypeParam;
    S a("abc");
    S b = a;
    EXPECT_EQ(static_cast<const S&>(a).data(), static_cast<const S&>(b).data());
    b += S("d");
    EXPECT_EQ(utf8(a), "abc");
    EXPECT_EQ(utf8(b), "abcd");
    const S& self = a;
    a = self;
    b = std::move(a);
    EXPECT_EQ(utf8(b), "abc");
}

TYPED_TEST(StringTest, EveryMutationLeavesTheOtherCopyAlone) {
    using S = TypeParam;
    const S original("hello");
    void (*const mutations[])(S&) = {
        [](S& s) { s.Delete(0, 2); },
        [](S& s) { s.Insert(1, S("x")); },
        [](S& s) { s[1] = 'x'; },
        [](S& s) { *s.begin() = 'x'; },
        [](S& s) { s.at(2) = 'x'; },
        [](S& s) { s.back() = 'x'; },
        [](S& s) { s.Replace(0, 1, S("x")); },
        [](S& s) { s.Replace(S("l"), S("x")); },
        [](S& s) { s.Truncate(2); },
        [](S& s) { s.GetBuffer()[0] = 'x'; },
        [](S& s) { s.Copy("other"); },
        [](S& s) { s.Format(S("%d"), 7); },
        [](S& s) { s.clear(); },
        [](S& s) { s.Empty(); },
        [](S& s) { s.resize(9); },
        [](S& s) { s.pop_back(); },
        [](S& s) { s.assign(2, 'x'); },
        [](S& s) { s.FromCodePage(1252, "x"); },
    };
    for (const auto mutate : mutations) {
        S copy = original;
        mutate(copy);
        EXPECT_NE(copy, original);
        EXPECT_EQ(utf8(original), "hello");
    }
}

TYPED_TEST(StringTest, NullHandleReadsAsEmpty) {
    using S = TypeParam;
    const S none = this->null();
    EXPECT_EQ(none.GetLength(), 0);
    EXPECT_TRUE(none.IsEmpty());
    EXPECT_STREQ(none.GetUTF8(), "");
    EXPECT_EQ(none.GetUTF16()[0], u'\0');
    EXPECT_EQ(none.GetTChar()[0], u'\0');
    EXPECT_EQ(none.c_str()[0], 0);
    EXPECT_STREQ(none.ConvertToCodePage(1252), "");
    EXPECT_EQ(none.Compare(S("")), -1);
    EXPECT_EQ(none.CompareNoCase(S("")), -1);
    EXPECT_FALSE(none.Equals(S("")));
    EXPECT_FALSE(none.EqualsNoCase(S("")));
    EXPECT_FALSE(none.StartsWith(S("")));
    EXPECT_FALSE(none.StartsWithNoCase(S("")));
    EXPECT_FALSE(none.EndsWith(S("")));
    EXPECT_FALSE(none.EndsWithNoCase(S("")));
    EXPECT_EQ(utf8(none.Trim()), "");
    EXPECT_TRUE(S().Equals(S("")));
    EXPECT_TRUE(S(nullptr).Equals(S("")));
    S grown = none;
    grown += S("x");
    EXPECT_EQ(utf8(grown), "x");
}

TYPED_TEST(StringTest, ClearKeepsTheRepresentationAndEmptyDoesNot) {
    using S = TypeParam;
    S s("abc");
    s.clear();
    EXPECT_EQ(s.capacity(), 3u);
    EXPECT_TRUE(s.Equals(S("")));
    s.Empty();
    EXPECT_EQ(s.capacity(), 0u);
    EXPECT_FALSE(s.Equals(S("")));
}

TYPED_TEST(StringTest, CapacityIsWhatIsAskedFor) {
    using S = TypeParam;
    S s("abc");
    EXPECT_EQ(s.capacity(), 3u);
    s += S("d");
    EXPECT_EQ(s.capacity(), 4u);
    s.reserve(10);
    s.Copy("xy");
    EXPECT_EQ(s.capacity(), 10u);
    s.Format(S("%s"), "0123456789");
    EXPECT_EQ(s.capacity(), 13u);
    s.Alloc(-5);
    S copy = s;
    copy.push_back('!');
    EXPECT_EQ(copy.capacity(), 13u);
    EXPECT_EQ(utf8(copy), "0123456789!");
}

TYPED_TEST(StringTest, BufferIsWrittenAndMeasured) {
    using S = TypeParam;
    S s("ab");
    auto* buffer = s.GetBuffer(5);
    for (int i = 0; i < 5; ++i) buffer[i] = 'x';
    buffer[5] = 0;
    s.ReleaseBuffer();
    EXPECT_EQ(utf8(s), "xxxxx");
    s.GetBuffer()[1] = 0;
    s.ReleaseBuffer();
    EXPECT_EQ(s.GetLength(), 1);
    buffer = s.GetBuffer();
    for (int i = 0; i <= 5; ++i) buffer[i] = 'y';  // No terminator at all.
    s.ReleaseBuffer();
    EXPECT_EQ(utf8(s), "yyyyy");
}

TYPED_TEST(StringTest, TextThatDoesNotFitIsAFailedAllocation) {
    using S = TypeParam;
    S s("abc");
    EXPECT_THROW(s.reserve(0x7FFFFFFF), std::bad_alloc);
    EXPECT_THROW(s.reserve(S::npos), std::bad_alloc);
    EXPECT_THROW(s.append(S::npos, 'x'), std::bad_alloc);
    EXPECT_THROW(s.resize(size_t{1} << 40), std::bad_alloc);
    EXPECT_EQ(utf8(s), "abc");
}

TYPED_TEST(StringTest, CopyTakesUpToTheCountAndTheTerminator) {
    using S = TypeParam;
    const char unterminated[] = {'a', 'b', 'c'};
    const struct {
        const char* text;
        ptrdiff_t n;
        const char* expected;
    } rows[] = {{"abc", -1, "abc"}, {"abc", 2, "ab"}, {"abc", 3, "abc"},        {"abc", 99, "abc"},
                {"abc", 0, ""},     {"", -1, ""},     {unterminated, 3, "abc"}, {nullptr, -1, ""}};
    for (const auto& row : rows) {
        S s = this->null();
        s.Copy(row.text, row.n);
        EXPECT_EQ(utf8(s), row.expected);
        EXPECT_TRUE(s.Equals(S(row.expected)));
    }
    S s("x");
    s.Copy(nullptr, -1);
    EXPECT_TRUE(s.Equals(S("")));
}

TYPED_TEST(StringTest, ArgumentsMayLieInTheStringItself) {
    using S = TypeParam;
    const struct {
        void (*act)(S&);
        const char* expected;
    } rows[] = {{[](S& s) { s.append(s); }, "abcdabcd"},
                {[](S& s) { s += s.c_str() + 2; }, "abcdcd"},
                {[](S& s) { s.Insert(1, s.c_str() + 2); }, "acdbcd"},
                {[](S& s) { s.Copy(s.c_str() + 1, -1); }, "bcd"},
                {[](S& s) { s.Copy(s.GetUTF8() + 1, -1); }, "bcd"},
                {[](S& s) { s.Copy(s.GetUTF16() + 1, -1); }, "bcd"},
                {[](S& s) { s.replace(1, 2, s, 0, 4); }, "aabcdd"},
                {[](S& s) { s.Replace(s.c_str() + 3, s.c_str()); }, "abcabcd"},
                {[](S& s) { s.assign(s, 2, 1); }, "c"},
                {[](S& s) { s.Format(S("%s-%s"), s, s.c_str()); }, "abcd-abcd"},
                {[](S& s) { s.insert(s.begin(), s.begin(), s.end()); }, "abcdabcd"}};
    for (const auto& row : rows) {
        S alone("abcd");
        row.act(alone);
        EXPECT_EQ(utf8(alone), row.expected);
        S shared("abcd");
        const S other = shared;
        row.act(shared);
        EXPECT_EQ(utf8(shared), row.expected);
        EXPECT_EQ(utf8(other), "abcd");
    }
}

// Comparison ----------------------------------------------------------------------------------------------------------

TYPED_TEST(StringTest, ComparesByUnsignedUnits) {
    using S = TypeParam;
    const struct {
        const char *a, *b;
        int n, order, orderNoCase;
    } rows[] = {
        {"a", "b", -1, -1, -1},  {"b", "a", -1, 1, 1},        {"abc", "abc", -1, 0, 0}, {"ab", "abc", -1, -1, -1},
        {"abc", "ab", -1, 1, 1}, {"", "", -1, 0, 0},          {"abX", "abY", 2, 0, 0},  {"a", "A", -1, 1, 0},
        {"B", "a", -1, -1, 1},   {"\xC3\xBF", "z", -1, 1, 1}, {"x", "y", 0, 0, 0},      {"ab", "ab", 9, 0, 0},
        {"_", "a", -1, -1, -1},  {"_", "A", -1, 1, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " / " + row.b);
        const S a(row.a), b(row.b);
        EXPECT_EQ(a.Compare(b, row.n), row.order);
        EXPECT_EQ(a.CompareTo(b.c_str(), row.n), row.order);
        EXPECT_EQ(a.CompareNoCase(b, row.n), row.orderNoCase);
        if (row.n != -1) continue;
        EXPECT_EQ(S::Compare(a, b), row.order);
        EXPECT_EQ(S::CompareNoCase(a, b), row.orderNoCase);
        EXPECT_EQ(a == b, row.order == 0);
        EXPECT_EQ(a < b, row.order < 0);
        EXPECT_EQ(b.c_str() <= a, row.order >= 0);
        EXPECT_EQ(a.view() != b, row.order != 0);
    }
}

TYPED_TEST(StringTest, BeginningsAndEndings) {
    using S = TypeParam;
    const struct {
        const char *text, *part;
        bool starts, ends, startsNoCase, endsNoCase;
    } rows[] = {{"frame.SAF", "frame", true, false, true, false},  {"frame.SAF", ".saf", false, false, false, true},
                {"frame.SAF", "FRAME", false, false, true, false}, {"frame.SAF", ".SAF", false, true, false, true},
                {"ab", "abc", false, false, false, false},         {"ab", "", true, true, true, true}};
    for (const auto& row : rows) {
        const S text(row.text), part(row.part);
        EXPECT_EQ(text.StartsWith(part), row.starts) << row.part;
        EXPECT_EQ(text.EndsWith(part), row.ends) << row.part;
        EXPECT_EQ(text.StartsWithNoCase(part), row.startsNoCase) << row.part;
        EXPECT_EQ(text.EndsWithNoCase(part), row.endsNoCase) << row.part;
    }
}

TEST(String, MeetsTheStringsOfTheStandardLibrary) {
    const std::u16string wide = u"wide";
    const std::string narrow = "n\xC3\xA4rrow";
    CString s = wide;
    s += u"-" + CString(narrow) + u'!' + std::u16string_view(u"v");
    EXPECT_EQ(s, u"wide-närrow!v");
    EXPECT_EQ(std::u16string_view(u"wide-närrow!v"), s);
    EXPECT_EQ(std::u16string(s), u"wide-närrow!v");
    EXPECT_EQ(CStringMB(s), "wide-n\xC3\xA4rrow!v");
    EXPECT_EQ('<' + CStringMB("x") + '>', "<x>");
    const CString withNul(std::u16string_view(u"a\0b", 3));
    EXPECT_EQ(withNul.GetLength(), 3);
    EXPECT_NE(withNul, u"a");
}

// Changing ------------------------------------------------------------------------------------------------------------

TYPED_TEST(StringTest, DeleteInsertReplaceByPosition) {
    using S = TypeParam;
    const struct {
        int (*act)(S&);
        const char* expected;
    } rows[] = {
        {[](S& s) { return s.Delete(1, 2); }, "aef"},
        {[](S& s) { return s.Delete(3, 99); }, "abe"},
        {[](S& s) { return s.Delete(5, 1); }, "abecd"},
        {[](S& s) { return s.Delete(-1, 1); }, "abecd"},
        {[](S& s) { return s.Delete(1, 0); }, "abecd"},
        {[](S& s) { return s.Insert(0, S("xyz"), 2); }, "xyabecd"},
        {[](S& s) { return s.Insert(5, S("xyz")); }, "abecdxyz"},
        {[](S& s) { return s.Insert(6, S("xyz")); }, "abecd"},
        {[](S& s) { return s.Insert(-1, S("xyz")); }, "abecd"},
        {[](S& s) { return s.Insert(2, 'x'); }, "abxecd"},
        {[](S& s) { return s.Replace(1, 2, S("xyz")); }, "axyzcd"},
        {[](S& s) { return s.Replace(1, 2, S("xyz"), 1); }, "axcd"},
        {[](S& s) { return s.Replace(3, 0x7FFFFFFF, S("xyz")); }, "abexyz"},
        {[](S& s) { return s.Replace(1, 0, S("xyz")); }, "abecd"},
        {[](S& s) { return s.Replace(5, 1, S("xyz")); }, "abecd"},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        S s(i == 0 ? "abcef" : "abecd");
        EXPECT_EQ(rows[i].act(s), static_cast<int>(std::string_view(rows[i].expected).size())) << i;
        EXPECT_EQ(utf8(s), rows[i].expected) << i;
    }
}

TYPED_TEST(StringTest, ReplaceAllDoesNotSearchTheReplacement) {
    using S = TypeParam;
    const struct {
        const char *text, *from, *to;
        bool caseSensitive;
        const char* expected;
        int count;
    } rows[] = {{"aaa", "a", "aa", true, "aaaaaa", 3}, {"aXbx", "x", "", false, "ab", 2},
                {"aXbx", "x", "", true, "aXb", 1},     {"abab", "ab", "b", true, "bb", 2},
                {"abc", "", "x", true, "abc", 0},      {"abc", "z", "x", true, "abc", 0}};
    for (const auto& row : rows) {
        S s(row.text);
        EXPECT_EQ(s.Replace(S(row.from), S(row.to), row.caseSensitive), row.count);
        EXPECT_EQ(utf8(s), row.expected);
    }
}

TYPED_TEST(StringTest, IndexAtTheEndInsertsANulAndBeyondIsShared) {
    using S = TypeParam;
    S s("ab"), t("cd");
    EXPECT_EQ(s[1], 'b');
    EXPECT_EQ(s[s.GetLength()], 0);
    EXPECT_EQ(s.GetLength(), 3);
    auto& shared = s[s.GetLength() + 1];
    EXPECT_EQ(s.GetLength(), 3);
    EXPECT_EQ(&shared, &t[99]);
    EXPECT_EQ(&shared, &t[-1]);
    S none = this->null();
    EXPECT_EQ(&shared, &none[0]);
}

TYPED_TEST(StringTest, TruncateWithinTheLengthOnly) {
    using S = TypeParam;
    S s("abc");
    EXPECT_FALSE(s.Truncate(3));
    EXPECT_FALSE(s.Truncate(-1));
    EXPECT_TRUE(s.Truncate(1));
    EXPECT_EQ(utf8(s), "a");
}

// Searching and parts -------------------------------------------------------------------------------------------------

TYPED_TEST(StringTest, Searches) {
    using S = TypeParam;
    const S s("abcabC");
    const struct {
        int found, expected;
    } rows[] = {
        {s.FindChar('b'), 1},
        {s.FindChar(2, 'b'), 4},
        {s.FindChar(9, 'b'), -1},
        {s.FindChar(-1, 'b'), -1},
        {s.FindChar(S("cb")), 1},
        {s.FindChar(2, S("zC")), 5},
        {s.FindChar(S("")), -1},
        {s.ReverseFindChar('b'), 4},
        {s.ReverseFindChar(3, 'b'), 1},
        {s.ReverseFindChar(6, 'C'), 5},
        {s.ReverseFindChar(S("ca")), 3},
        {s.ReverseFindChar(2, S("ca")), 2},
        {s.ReverseFindChar(-1, 'a'), -1},
        {s.FindString(S("bc")), 1},
        {s.FindString(2, S("bc")), -1},
        {s.FindString(2, S("BC"), false), 4},
        {s.FindString(S(""), true), 0},
        {s.FindString(6, S("")), 6},
        {s.FindString(7, S("")), -1},
        {s.FindString(7, S(""), false), -1},
        {s.FindString(-1, S("")), -1},
        {S("ab").FindString(3, S("x"), true), -1},
        {s.FindString(0, S("abcabCx")), -1},
        {S().FindString(S("")), 0},
        {s.Contains(S("CA")), 0},
        {s.ContainsNoCase(S("CA")), 1},
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].found, rows[i].expected) << i;
}

TYPED_TEST(StringTest, Parts) {
    using S = TypeParam;
    const S s("abcde"), space(" \t a b  ");
    const struct {
        S part;
        const char* expected;
    } rows[] = {
        {s.SubString(1, 2), "bc"},
        {s.SubString(3), "de"},
        {s.SubString(5), ""},
        {s.SubString(-1), ""},
        {s.Mid(0, 99), "abcde"},
        {s.Left(2), "ab"},
        {s.Left(0), ""},
        {s.Right(2), "de"},
        {s.Right(9), "abcde"},
        {s.Right(-1), ""},
        {s.TrimLeft(2), "cde"},
        {s.TrimLeft(-2), "abcde"},
        {s.TrimLeft(9), ""},
        {s.TrimRight(2), "abc"},
        {s.TrimRight(6), ""},
        {s.TrimRight(-1), "abcde"},
        {space.Trim(), "a b "},
        {space.LTrim(), "a b  "},
        {space.RTrim(), " \t a b "},
        {S(" x").RTrim(), " x"},
        {S(" x").LTrim(), "x"},
        {S("   ").Trim(), ""},
        {S("   ").RTrim(), "  "},
        {S("\n\v\f\rx\xC2\xA0").Trim(), "x\xC2\xA0"},
    };
    for (const auto& row : rows) EXPECT_EQ(utf8(row.part), row.expected);
    EXPECT_EQ(utf8(s), "abcde");
}

TYPED_TEST(StringTest, SplitAndJoin) {
    using S = TypeParam;
    const struct {
        const char *text, *delimiters, *joined;
        int count;
    } rows[] = {{"a,,b,", ",", "a||b|", 4},  {"", ",", "", 1},      {",", ",", "|", 2},
                {"a;b,c", ",;", "a|b|c", 3}, {"a,b", "", "a,b", 1}, {"a, b", ", ", "a||b", 3}};
    TArray<S> tokens;
    for (const auto& row : rows) {
        EXPECT_EQ(S(row.text).Split(tokens, S(row.delimiters)), row.count) << row.text;
        EXPECT_EQ(tokens.GetSize(), static_cast<uint32_t>(row.count));
        EXPECT_EQ(utf8(S::Join(tokens, S("|"))), row.joined);
    }
    tokens.Empty();
    EXPECT_EQ(utf8(S::Join(tokens, S("|"))), "");
    tokens.Add(S("x y"));
    EXPECT_EQ(tokens[0].Split(tokens, S(" ")), 2);  // The text is an element of the array that is filled.
    EXPECT_EQ(utf8(tokens[1]), "y");
}

TYPED_TEST(StringTest, PigLatin) {
    using S = TypeParam;
    const struct {
        const char *text, *expected;
    } rows[] = {{"Hello", "elloHay"},
                {"apple", "appleay"},
                {"my rhythm, Oh!", "myay rhythmay, Ohay!"},
                {"stra\xC3\x9F"
                 "e 42",
                 "astray\xC3\x9F"
                 "eay 42"},
                {"", ""},
                {"quiet", "uietqay"}};
    for (const auto& row : rows) EXPECT_EQ(utf8(S(row.text).ToPigLatin()), row.expected);
}

// Threads -------------------------------------------------------------------------------------------------------------

TEST(StringThreads, SharedTextIsCopiedReadAndChangedConcurrently) {
    const CString original(u"shared");
    std::vector<std::thread> threads;
    int failures[4] = {};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&original, &failures, t] {
            for (int i = 0; i < 2000; ++i) {
                CString copy = original;
                CString second = copy;
                second += u'x';
                if (copy != u"shared" || second != u"sharedx") ++failures[t];
                copy = second;
                second.Empty();
                copy.Delete(0, 1);
                if (copy != u"haredx") ++failures[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const int count : failures) EXPECT_EQ(count, 0);
    EXPECT_EQ(original, u"shared");
}

// Raw arrays ----------------------------------------------------------------------------------------------------------

TEST(RawText, TrimsInPlace) {
    char text[] = " \t a b \n ";
    EXPECT_STREQ(LTrim(text), "a b \n ");
    EXPECT_STREQ(Trim(text), "a b");
    EXPECT_EQ(text[sizeof(text) - 2], '\0');
    char16_t blank[] = u"  ";
    EXPECT_EQ(*Trim(blank), u'\0');
}

TEST(RawText, CopiesWithinTheSize) {
    char dst[6] = "?????";
    EXPECT_STREQ(StrCpy(dst, "abc", 3), "ab");
    EXPECT_EQ(dst[3], '?');
    EXPECT_STREQ(StrCat(dst, "cdefg", sizeof(dst)), "abcde");
    EXPECT_STREQ(StrCat(dst, "x", sizeof(dst)), "abcde");
    EXPECT_STREQ(StrCpy(dst, "z", 0), "abcde");
    char16_t wide[8];
    EXPECT_EQ(CString(StrCat(StrCpy(wide, u"ab", 8), u"cd", 8)), u"abcd");
}

TEST(RawText, Compares) {
    EXPECT_EQ(StrCmp("a", "B"), 1);
    EXPECT_EQ(StrICmp("a", "B"), -1);
    EXPECT_EQ(StrNCmp("abc", "abd", 2), 0);
    EXPECT_EQ(StrNICmp(u"ÄBc", u"äbd", 2), 0);
    EXPECT_EQ(StrICmp("\xC3\x84", "\xC3\xA4"), -1);  // Bytes of UTF-8 outside ASCII have no case.
    EXPECT_EQ(StrNCmp("ab\0c", "ab\0d", 4), 0);
    EXPECT_EQ(StrLen(u"abc"), 3u);
}

}  // namespace
}  // namespace qv
