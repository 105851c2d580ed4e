#include "qv/cmdline.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "qv/diagnostic.h"

namespace qv::test {
namespace {

using Style = CCmdLine::Style;

std::string joined(const TArray<CString>& texts) { return CString::Join(texts, u"|").GetUTF8(); }

TEST(CmdLine, SplitsByTheQuotingRulesOfBothPlatforms) {
    struct Row {
        Style style;
        const char16_t* line;
        const char* expected;
    };
    const Row rows[] = {
        // The documented examples of the C runtime, behind a program's name.
        {Style::windows, uR"(p "a b c" d e)", "p|a b c|d|e"},
        {Style::windows, uR"(p "ab\"c" "\\" d)", R"(p|ab"c|\|d)"},
        {Style::windows, uR"(p a\\\b d"e f"g h)", R"(p|a\\\b|de fg|h)"},
        {Style::windows, uR"(p a\\\"b c d)", R"(p|a\"b|c|d)"},
        {Style::windows, uR"(p a\\\\"b c" d e)", R"(p|a\\b c|d|e)"},
        {Style::windows, uR"(p a"b"" c d)", R"(p|ab" c d)"},
        {Style::windows, uR"(p """a b""" "" x)", R"(p|"a b"||x)"},
        {Style::windows, u"\"C:\\my dir\\\"p.exe\ta\n\t b", "C:\\my dir\\p.exe|a\n|b"},
        {Style::windows, u" a", "|a"},
        {Style::windows, u"", ""},
        {Style::posix, uR"(p 'a b'"c d"e\ f)", "p|a bc de f"},
        {Style::posix, uR"(  p "\$\`\"\\\n" '\n' \\ '' $x;#~*)", R"(p|$`"\\n|\n|\||$x;#~*)"},
        {Style::posix, u"p a\\\nb \\\n \"c\\\nd\"\ne", "p|ab|cd|e"},
        {Style::posix, uR"(a\)", R"(a\)"},
        {Style::posix, u"", ""},
    };
    for (const Row& row : rows) {
        TArray<CString> arguments;
        EXPECT_TRUE(CCmdLine::SplitArguments(arguments, row.line, row.style));
        EXPECT_EQ(joined(arguments), row.expected) << CString(row.line).GetUTF8();
    }
    for (const char16_t* open : {u"p 'a", u"p \"a\\\"", u"p '"}) {
        TArray<CString> arguments;
        ClearDiagnostic();
        EXPECT_FALSE(CCmdLine::SplitArguments(arguments, open, Style::posix));
        EXPECT_TRUE(LastDiagnostic().IsSet());
        EXPECT_EQ(joined(arguments), "p");
    }
}

TEST(CmdLine, QuotedArgumentsComeBack) {
    std::mt19937 random(3);
    constexpr std::u16string_view letters = u"ab\\\\\"\"' \t\n$*;/-=\u00E4";
    for (int i = 0; i < 20000; ++i) {
        for (const Style style : {Style::windows, Style::posix}) {
            TArray<CString> arguments, again;
            for (size_t n = random() % 4 + 1; n-- > 0;) {
                std::u16string text;
                for (size_t size = random() % 7; size-- > 0;) text += letters[random() % letters.size()];
                if (style == Style::windows && arguments.size() == 0) std::erase(text, u'"');
                arguments.Add(CString(text));
            }
            const CString line = CCmdLine::JoinArguments(arguments, style);
            ASSERT_TRUE(CCmdLine::SplitArguments(again, line, style));
            ASSERT_EQ(again.size(), arguments.size()) << line.GetUTF8();
            ASSERT_EQ(joined(again), joined(arguments)) << line.GetUTF8();
        }
    }
}

TEST(CmdLine, TellsOptionsApart) {
    struct Row {
        Style style;
        const char16_t* line;
        const char *output, *flags, *positional;  // Values of "output", counts of v and x, positional arguments.
    };
    const Row rows[] = {
        {Style::posix, u"p -o a --out=b --out c -od -o=e f", "a|b|c|d|e", "00", "f"},
        {Style::posix, u"p -vxv -vo a b", "a", "31", "b"},
        {Style::posix, u"p -vog --verbose -- -o --x", "g", "20", "-o|--x"},
        {Style::posix, u"p --out= /v - -5 -.5 --O=1", "", "00", "/v|-|-5|-.5"},
        {Style::posix, u"p -o -x -x=3", "-x", "01", ""},
        {Style::windows, u"p /o:a -OUT=b /Out c --o d /V e", "a|b|c|d", "10", "e"},
        {Style::windows, u"p /out:C:\\x=1 / - -5 /x -- /x", "C:\\x=1", "01", "/|-|-5|/x"},
        {Style::windows, u"p /vx -verbose:no", "", "10", ""},
    };
    for (const Row& row : rows) {
        CCmdLine line;
        line.TakesValue(u"o|out");
        line.Flag(u"v|verbose");
        EXPECT_TRUE(line.Parse(row.line, row.style));
        EXPECT_EQ(joined(line.GetValues(u"out")), row.output) << CString(row.line).GetUTF8();
        EXPECT_EQ(std::to_string(line.GetCount(u"v")) + std::to_string(line.GetCount(u"x")), row.flags);
        EXPECT_EQ(joined(line.GetArguments()), row.positional) << CString(row.line).GetUTF8();
        EXPECT_STREQ(line.GetProgram().GetUTF8(), "p");
    }
    CCmdLine line;
    line.TakesValue(u"o");
    EXPECT_FALSE(line.Parse(u"p a -xyx --zed -o", Style::posix));
    EXPECT_STREQ(LastDiagnostic().expected.GetUTF8(), "a value for option o");
    EXPECT_EQ(joined(line.GetUnknown()), "x|y|zed");
    EXPECT_TRUE(line.IsSet(u"o"));
    EXPECT_FALSE(line.Parse(u"p '-o", Style::posix));
    EXPECT_EQ(joined(line.GetArguments()) + joined(line.GetUnknown()), "");
}

TEST(CmdLine, TypedValues) {
    const char* argv[] = {"p",
                          "--i=-16",
                          "--big=18446744073709551615",
                          "--min=-9223372036854775808",
                          "--f=1e-3",
                          "--t=\xC3\xA4",
                          "--no=OFF",
                          "--bad=12x",
                          "--hex=0xfF",
                          "--flag",
                          "--inf=1e999",
                          "--i32=2147483648"};
    CCmdLine line;
    EXPECT_TRUE(line.Parse(static_cast<int>(std::size(argv)), argv));
    EXPECT_EQ(line.Get(u"i", 1), -16);
    EXPECT_EQ(line.Get(u"i", 1u), 1u);
    EXPECT_EQ(line.Get(u"hex", uint64_t{1}), 255u);
    EXPECT_EQ(line.Get(u"big", uint64_t{0}), ~uint64_t{0});
    EXPECT_EQ(line.Get(u"big", int64_t{-1}), -1);
    EXPECT_EQ(line.Get(u"min", int64_t{0}), INT64_MIN);
    EXPECT_EQ(line.Get(u"i32", 7), 7);
    EXPECT_EQ(line.Get(u"i32", 7u), 2147483648u);
    EXPECT_EQ(line.Get(u"f", 0.0), 1e-3);
    EXPECT_EQ(line.Get(u"inf", 2.0), 2.0);
    EXPECT_STREQ(line.Get(u"t", u"").GetUTF8(), "\xC3\xA4");
    EXPECT_STREQ(line.Get(u"absent", u"x").GetUTF8(), "x");
    EXPECT_FALSE(line.Get(u"no", true));
    EXPECT_TRUE(line.Get(u"flag", false));
    EXPECT_TRUE(line.Get(u"absent", true));
    ClearDiagnostic();
    int32_t value = 5;
    EXPECT_FALSE(line.Read(u"absent", value));
    EXPECT_FALSE(LastDiagnostic().IsSet());
    EXPECT_FALSE(line.Read(u"bad", value) || line.Read(u"flag", value));
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_STREQ(line.ToString(Style::posix).Left(22).GetUTF8(), "p --i=-16 --big=184467");
}

}  // namespace
}  // namespace qv::test
