// The formatter, against the C library's where that one is defined, and by tables where this one differs.
#include "core/format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "qv/string.h"

namespace qv {
namespace {

using text::formatted;

/// What the C library prints; the test program runs in the C locale.
template <class T>
std::string printed(const std::string& pattern, int width, int precision, T value) {
    char buffer[4000];
    std::snprintf(buffer, sizeof(buffer), pattern.c_str(), width, precision, value);
    return buffer;
}

class RandomPattern {
public:
    uint64_t bits() { return m_random(); }
    int number(int low, int high) { return std::uniform_int_distribution(low, high)(m_random); }
    /// "%", some of `flags`, "*.*", the length, one of `types`.
    std::string pattern(std::string_view flags, const char* length, std::string_view types) {
        std::string text = "%";
        for (const char flag : flags) {
            if (number(0, 2) == 0) text += flag;
        }
        return text + "*.*" + length + types[static_cast<size_t>(number(0, static_cast<int>(types.size()) - 1))];
    }

private:
    std::mt19937_64 m_random{7};
};

TEST(Format, RealsAreThoseOfTheCLibrary) {
    const double values[] = {0.0,
                             -0.0,
                             1,
                             -1,
                             0.5,
                             1.5,
                             2.5,
                             9.5,
                             99999.95,
                             0.0001,
                             0.000099999995,
                             1e5,
                             1e6,
                             123456789,
                             1e21,
                             1e22,
                             1e23,
                             0.1,
                             5e-324,
                             2.2250738585072014e-308,
                             1.7976931348623157e308,
                             HUGE_VAL,
                             -HUGE_VAL,
                             std::numeric_limits<double>::quiet_NaN()};
    RandomPattern random;
    for (int i = 0; i < 30000; ++i) {
        double value = values[static_cast<size_t>(i) % std::size(values)];
        if (i % 3 == 1)
            value = std::ldexp(static_cast<double>(random.number(-1000000, 1000000)), random.number(-30, 10));
        if (i % 3 == 2) value = std::bit_cast<double>(random.bits());
        // "#" with "g" stands apart: the C library loses its zeros where rounding carries into a new digit.
        const bool alternate = random.number(0, 3) == 0;
        const std::string pattern = random.pattern(alternate ? "-+ #0" : "-+ 0", "", alternate ? "fFeEaA" : "fFeEgGaA");
        const int width = random.number(-30, 30), precision = random.number(-3, 25);
        ASSERT_EQ(formatted(pattern, width, precision, value), printed(pattern, width, precision, value)) << pattern;
    }
    for (const double value : values) {
        for (const char* pattern : {"%*.*f", "%*.*e", "%*.*g", "%*.*a", "%-*.*g|"}) {
            ASSERT_EQ(formatted(pattern, 3, 1400, value), printed(pattern, 3, 1400, value)) << pattern;
        }
    }
    EXPECT_EQ(formatted("%#g %#.3g %#g", 999999.5, 1.0, 1e-5), "1.00000e+06 1.00 1.00000e-05");
}

TEST(Format, IntegersAreThoseOfTheCLibrary) {
    RandomPattern random;
    for (int i = 0; i < 20000; ++i) {
        const int64_t value = i % 20 == 0 ? 0 : static_cast<int64_t>(random.bits()) >> random.number(0, 63);
        const int width = random.number(-20, 30), precision = random.number(-3, 25);
        const std::string narrow = random.pattern("-+ 0", "", "diuxXo");
        ASSERT_EQ(formatted(narrow, width, precision, value),
                  printed(narrow, width, precision, static_cast<int>(value)))
            << narrow;
        const std::string wide = random.pattern("-+ #0", "ll", "dixXo");
        ASSERT_EQ(formatted(wide, width, precision, value), printed(wide, width, precision, value)) << wide;
    }
}

TEST(Format, TakesEachArgumentByItsType) {
    enum class Colour : uint8_t { Red = 7 };
    const char unterminated[] = {'a', 'b', 'c'};
    const char* const none = nullptr;
    const struct {
        std::string text;
        const char* expected;
    } rows[] = {
        {formatted("%s %S", u"ä", "ö"), "ä ö"},
        {formatted("%s|%s|%s", std::string("a\0b", 3), std::u16string_view(u"c"), CString(u"d")), "a\0b|c|d"},
        {formatted("%5s|%-5s|%.2s", "ab", u"cd", "xyz"), "   ab|cd   |xy"},
        {formatted("%.*s %.3S", 3, unterminated, unterminated), "abc abc"},
        {formatted("%.3s|", "aäö"), "aä|"},
        {formatted("%.2s|%.1s|", u"a😀", u"😀"), "a||"},
        {formatted("%s %.3s", none, none), "(null) (nu"},
        {formatted("%s|%d", nullptr, nullptr), "(null)|"},
        {formatted("%c%c%c%C", 'a', u'ä', U'😀', 0x42), "aä😀B"},
        {formatted("%d %u %d", Colour::Red, true, 'A'), "7 1 65"},
        {formatted("%d %u", int64_t{0x100000005}, uint64_t{0x100000005}), "5 5"},
        {formatted("%I64d %lld %zu %jd %td", INT64_MIN, INT64_MAX, ~size_t{0}, int64_t{-1}, int64_t{-2}),
         "-9223372036854775808 9223372036854775807 18446744073709551615 -1 -2"},
        {formatted("%hhd %hd %ld %I32d %hhu", 0x1FF, 0x18000, 0x80000000u, -1, -1), "-1 -32768 -2147483648 -1 255"},
        {formatted("%u %x", -1, -1), "4294967295 ffffffff"},
        {formatted("%I64x", -1), "ffffffffffffffff"},
        {formatted("%g %.1f", 3, 4u), "3 4.0"},
        {formatted("%p", reinterpret_cast<void*>(0xABC)), "0xabc"},
        {formatted("%*d|%-*d|%*d|", 4, 1, 4, 2, -4, 3), "   1|2   |3   |"},
        {formatted("%.*f|%.*f", 1, 2.25, -1, 2.0), "2.2|2.000000"},
        {formatted("100%% %5% %"), "100% % %"},
        {formatted("%y %! %l"), "%y %! %l"}};
    for (const auto& row : rows) EXPECT_STREQ(row.text.c_str(), std::string(row.expected).c_str());
    EXPECT_EQ(rows[1].text.size(), 7u);
}

TEST(Format, WhatHasNoFittingArgumentPrintsNothing) {
    EXPECT_EQ(formatted("[%d|%s|%f|%c|%p|%n|%*d|%.*s]"), "[|||||||]");
    EXPECT_EQ(formatted("[%d|%s|%f|%p|%c]", "x", 5, "y", 1.5, "z"), "[||||]");
    EXPECT_EQ(formatted("%n%d", 1, 2), "2");
    EXPECT_EQ(formatted("%*d", "x", 5), "5");
}

TEST(Format, HugeWidthsAndPrecisionsAreBounded) {
    constexpr size_t limit = 1 << 20;
    for (const char* pattern : {"%99999999999999999999d", "%.99999999999999999999d", "%-2147483647s", "%2000000c"}) {
        EXPECT_EQ(formatted(pattern, 7).size(), std::strchr(pattern, 's') != nullptr ? 0 : limit) << pattern;
    }
    EXPECT_EQ(formatted("%.99999999f", 0.5).size(), limit + 2);
    EXPECT_EQ(formatted("%.99999999s", "abc"), "abc");
}

TEST(Format, BothWidthsPrintTheSame) {
    const CString wide = CString::FromFormat(u"%s %S %-6d|%+.3e|%c", u"ä😀", "ö", 42, 1.5, u'é');
    const CStringMB narrow = CStringMB::FromFormat("%s %S %-6d|%+.3e|%c", u"ä😀", "ö", 42, 1.5, u'é');
    EXPECT_EQ(wide, u"ä😀 ö 42    |+1.500e+00|é");
    EXPECT_EQ(CString(narrow), wide);
    EXPECT_EQ(CString::FromInt(-2147483647 - 1), u"-2147483648");
    EXPECT_EQ(CString::FromDouble(1e100 / 3), u"3.33333e+99");
    EXPECT_EQ(CStringMB::FromFormat("a%cb", 0), "a");  // A NUL ends the text of a string.
}

}  // namespace
}  // namespace qv
