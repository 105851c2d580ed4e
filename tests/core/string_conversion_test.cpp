// UTF-8, UTF-16 and code pages.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "qv/string.h"

namespace qv {
namespace {

TEST(StringConversion, MalformedUtf8BecomesReplacementCharacters) {
    const struct {
        const char* name;
        std::string_view bytes;
        std::u16string_view expected;
    } rows[] = {
        {"two, three and four bytes", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", u"ä€😀"},
        {"first and last of each length", "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         u"\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"},
        {"lone continuation",
         "a\x80"
         "b",
         u"a\uFFFDb"},
        {"overlong slash", "\xC0\xAF", u"\uFFFD\uFFFD"},
        {"overlong in three", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
        {"overlong in four", "\xF0\x80\x80\xAF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"encoded surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"above the last character", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"never a lead", "\xFE\xFF\xF5", u"\uFFFD\uFFFD\uFFFD"},
        // The Unicode Standard, chapter 3, table 3-11: truncated sequences.
        {"truncated", "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", u"\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {"cut at the end", "x\xF0\x9F\x98", u"x\uFFFD"},
        {"behind a run of ASCII", "0123456789abcdef0123456789abcde\xFFz", u"0123456789abcdef0123456789abcde\uFFFDz"}};
    for (const auto& row : rows) EXPECT_EQ(CString(row.bytes), row.expected) << row.name;
}

TEST(StringConversion, LoneSurrogatesBecomeReplacementCharacters) {
    const std::u16string rows[] = {{u'a', 0xD800, u'!'}, {0xDC00}, {0xD83D}, {0xDE00, 0xD83D}};
    const char* expected[] = {"a\uFFFD!", "\uFFFD", "\uFFFD", "\uFFFD\uFFFD"};
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(CStringMB(rows[i]), expected[i]);
}

TEST(StringConversion, EveryCharacterComesBack) {
    for (char32_t character = 1; character <= 0x10FFFF; character += character < 0x10000 ? 1 : 257) {
        const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
        const CStringMB narrow = CStringMB::FromFormat("%c", character);
        const CString wide(narrow);
        const CString expected = CString::FromFormat(u"%c", isSurrogate ? U'\uFFFD' : character);
        ASSERT_EQ(wide, expected) << static_cast<uint32_t>(character);
        ASSERT_EQ(CStringMB(wide), narrow);
        ASSERT_EQ(wide.length(), character < 0x10000 ? 1u : 2u);
        ASSERT_EQ(narrow.length(), character < 0x80 ? 1u : character < 0x800 ? 2u : character < 0x10000 ? 3u : 4u);
    }
}

TEST(StringConversion, RunsOfEveryLengthAndPlaceConvert) {
    std::mt19937 random(5);
    for (int i = 0; i < 2000; ++i) {
        std::u16string text(random() % 70, u'a');
        for (char16_t& ch : text) ch = static_cast<char16_t>('a' + random() % 26);
        if (!text.empty() && i % 4 != 0) text[random() % text.size()] = u'ß';
        const CStringMB narrow(text);
        ASSERT_EQ(CString(narrow), text);
        ASSERT_EQ(narrow.length(), text.size() + (text.find(u'ß') != text.npos ? 1 : 0));
    }
}

TEST(StringConversion, TheConversionBufferFollowsEachCall) {
    CString s(u"grüß");
    const CString other = s;
    const char* first = s.GetUTF8();
    EXPECT_STREQ(first, "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(other.GetUTF8(), first);  // It belongs to the shared text.
    EXPECT_STREQ(s.ConvertToCodePage(1252), "gr\xFC\xDF");
    s += u" €";
    EXPECT_STREQ(s.ConvertToUTF8(), "gr\xC3\xBC\xC3\x9F \xE2\x82\xAC");
    EXPECT_STREQ(other.GetUTF8(), "gr\xC3\xBC\xC3\x9F");
    EXPECT_STREQ(CStringMB("\xC3\xBC").ConvertToCodePage(1252), "\xFC");
    EXPECT_EQ(s.GetUTF16(), s.c_str());
    const CStringMB narrow("\xC3\xBC");
    EXPECT_EQ(narrow.GetUTF8(), narrow.c_str());
    EXPECT_EQ(CString(u"").GetUTF8(), CString().GetUTF8());  // Not stored: threads may share an empty text.
    EXPECT_EQ(std::u16string_view(narrow.GetTChar()), u"ü");
}

TEST(StringConversion, CodePages) {
    const struct {
        unsigned page;
        const char* bytes;
        const char16_t* text;
    } rows[] = {{1252, "\x80\xE9", u"€é"}, {28591, "\xE9", u"é"},     {437, "\x81", u"ü"},   {1251, "\xC4", u"Д"},
                {932, "\x83\x65", u"テ"},  {65001, "\xC3\xA9", u"é"}, {0, "\xC3\xA9", u"é"}, {20127, "abc", u"abc"}};
    for (const auto& row : rows) {
        CString s;
        s.FromCodePage(row.page, row.bytes);
        EXPECT_EQ(s, row.text) << row.page;
        EXPECT_STREQ(s.ConvertToCodePage(row.page), row.bytes) << row.page;
    }
    CString s;
    s.FromCodePage(20127,
                   "a\xE9"
                   "b");
    EXPECT_EQ(s, u"a\uFFFDb");
    EXPECT_STREQ(CString(u"aДb😀").ConvertToCodePage(28591), "a?b?");
    s.FromCodePage(4711, "abc");
    EXPECT_EQ(s, u"");
    EXPECT_STREQ(CString(u"abc").ConvertToCodePage(4711), "");
}

TEST(StringConversion, StaticConversionsMeasureAndConvert) {
    const struct {
        const char16_t* src;
        int srcLen, dstLen, result;
        const char* written;  // The bytes of dst that changed.
    } rows[] = {{u"aé", -1, 0, 4, ""},         {u"aé", 2, 0, 3, ""},           {u"aé", -1, 8, 4, "a\xC3\xA9"},
                {u"aé", 2, 8, 3, "a\xC3\xA9"}, {u"aé", 2, 3, 3, "a\xC3\xA9?"}, {u"aé", 2, 2, 0, ""},
                {u"aé", -1, 3, 0, ""},         {u"aé", 0, 8, 0, "?"},          {nullptr, -1, 8, 0, "?"},
                {u"aé", -2, 8, 0, "?"},        {u"aé", 1, 2, 1, "a"}};
    for (const unsigned page : {0u, 65001u}) {
        for (const auto& row : rows) {
            char dst[10] = "?????????";
            char* target = row.dstLen == 0 ? nullptr : dst;
            EXPECT_EQ(page == 0 ? CString::ConvertToUTF8(row.src, row.srcLen, target, row.dstLen)
                                : CString::ConvertToCodePage(page, row.src, row.srcLen, target, row.dstLen),
                      row.result);
            const std::string_view written(row.written);
            EXPECT_EQ(std::string_view(dst, written.size()), written);
            EXPECT_EQ(dst[row.dstLen], '?');  // Nothing goes past the room.
            if (row.result > 0 && !written.ends_with('?') && target != nullptr) {
                EXPECT_EQ(dst[written.size()], '\0');
            }
        }
    }
    char16_t wide[4] = {u'?', u'?', u'?', u'?'};
    EXPECT_EQ(CString::ConvertToUTF16("\xC3\xA9", -1, nullptr, 0), 2);
    EXPECT_EQ(CString::ConvertToTCHAR("\xC3\xA9x", -1, wide, 4), 3);
    EXPECT_EQ(CString(wide), u"éx");
    EXPECT_EQ(CStringMB::ConvertFromCodePage(1252, "\xE9", 1, wide, 4), 1);
    EXPECT_EQ(CString(wide), u"é");
    EXPECT_EQ(CString::ConvertFromCodePage(4711, "a", 1, wide, 4), 0);
}

TEST(StringConversion, WideToTcharIsAPlainCopy) {
    char16_t dst[4] = {u'?', u'?', u'?', u'?'};
    EXPECT_EQ(CString::ConvertToTCHAR(u"ab", -1, dst, 1), -1);
    EXPECT_EQ(dst[0], u'?');
    EXPECT_EQ(CString::ConvertToTCHAR(u"ab", -1, dst, 0), 2);
    EXPECT_EQ(CString::ConvertToTCHAR(u"ab", -1, dst, 2), 2);
    EXPECT_EQ(std::u16string_view(dst, 3), u"ab?");
    EXPECT_EQ(CString::ConvertToTCHAR(u"abc", 2, dst, 4), 2);
    EXPECT_EQ(CString(dst), u"ab");
}

}  // namespace
}  // namespace qv
