// Case mapping and the reading of numbers.
#include "core/text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

#include "core/format.h"

namespace qv {
namespace {

TEST(TextCase, MapsSingleUnitsByTheSimpleMapping) {
    // Lower and upper case from the Unicode Character Database, UnicodeData.txt, fields 12 and 13.
    const struct {
        char16_t from, lower, upper;
    } rows[] = {{u'a', u'a', u'A'},       {u'Z', u'z', u'Z'},       {u'[', u'[', u'['},       {0xE4, 0xE4, 0xC4},
                {0xD7, 0xD7, 0xD7},       {0xDF, 0xDF, 0xDF},       {0xFF, 0xFF, 0x178},      {0xB5, 0xB5, 0x39C},
                {0x130, 0x69, 0x130},     {0x131, 0x131, 0x49},     {0x1C5, 0x1C6, 0x1C4},    {0x3C2, 0x3C2, 0x3A3},
                {0x3A3, 0x3C3, 0x3A3},    {0x416, 0x436, 0x416},    {0x1E9E, 0xDF, 0x1E9E},   {0x1F80, 0x1F80, 0x1F88},
                {0x2126, 0x3C9, 0x2126},  {0x13A0, 0xAB70, 0x13A0}, {0x1C88, 0x1C88, 0xA64A}, {0xFF41, 0xFF41, 0xFF21},
                {0xD801, 0xD801, 0xD801}, {0x4E00, 0x4E00, 0x4E00}};
    for (const auto& row : rows) {
        EXPECT_EQ(text::toLower(row.from), row.lower) << static_cast<int>(row.from);
        EXPECT_EQ(text::toUpper(row.from), row.upper) << static_cast<int>(row.from);
    }
}

TEST(TextCase, ComparisonEndsAtTheFirstNul) {
    EXPECT_EQ(text::compareNoCase(u"ÄB", u"äb"), 0);
    EXPECT_EQ(text::compareNoCase(std::u16string_view(u"a\0b", 3), std::u16string_view(u"A\0c", 3)), 0);
    EXPECT_EQ(text::compareNoCase("abc", "ABD", 2), 0);
    EXPECT_EQ(text::compareNoCase("ab", "ABD"), -1);
}

TEST(TextNumber, IntegersAreHeldToTheirLimits) {
    const struct {
        const char* text;
        int32_t value;
        int64_t value64;
    } rows[] = {{"42", 42, 42},
                {" \t\n\v\f\r-7x", -7, -7},
                {"+0012", 12, 12},
                {"", 0, 0},
                {"x1", 0, 0},
                {"- 1", 0, 0},
                {"2147483647", 2147483647, 2147483647},
                {"2147483648", INT32_MAX, 2147483648},
                {"-2147483648", INT32_MIN, INT32_MIN},
                {"-2147483649", INT32_MIN, -2147483649},
                {"9223372036854775807", INT32_MAX, INT64_MAX},
                {"-9223372036854775808", INT32_MIN, INT64_MIN},
                {"99999999999999999999", INT32_MAX, INT64_MAX}};
    for (const auto& row : rows) {
        const std::u16string wide = text::toUtf16(row.text);
        EXPECT_EQ(text::atol(row.text), row.value) << row.text;
        EXPECT_EQ(text::wtol(wide), row.value) << row.text;
        EXPECT_EQ(text::atoll(row.text), row.value64) << row.text;
        EXPECT_EQ(text::wtoll(wide), row.value64) << row.text;
    }
}

/// Value and length must be those of the C library, which the test program calls in the C locale.
void expectAsStrtod(const std::string& number) {
    char* end = nullptr;
    const double expected = std::strtod(number.c_str(), &end);
    size_t used = 0, usedWide = 0;
    const double value = text::atof(number, &used);
    const double wide = text::wtof(text::toUtf16(number), &usedWide);
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(value)) << number;
    } else {
        EXPECT_EQ(std::bit_cast<uint64_t>(value), std::bit_cast<uint64_t>(expected)) << number;
        EXPECT_EQ(std::bit_cast<uint64_t>(wide), std::bit_cast<uint64_t>(expected)) << number;
    }
    EXPECT_EQ(used, static_cast<size_t>(end - number.c_str())) << number;
    EXPECT_EQ(usedWide, used) << number;
}

TEST(TextNumber, RealsAreThoseOfTheCLibrary) {
    for (const char* number : {"",
                               "-",
                               " 1",
                               "1e",
                               "1e+",
                               "1e5",
                               "0x",
                               "0x1",
                               "0x.8",
                               "0x.",
                               "0x1p",
                               "-0x1p-1074",
                               "0x1p-1075",
                               "inf",
                               "0x1.8p-1075",
                               "0x1.fffffffffffff8p1023",
                               "0x1.fffffffffffff7p1023",
                               "0x1.00000000000008p0",
                               "INFINITY",
                               "0x1.000000000000080000000000000000000000000000001p0",
                               "infinit",
                               "nan",
                               "-NaN(ab_1)",
                               "nan(a",
                               "nan(a-)",
                               ".5",
                               "5.",
                               ".",
                               "-.",
                               "+.5e-3",
                               "1e400",
                               "-1e400",
                               "1e-400",
                               "4.9e-324",
                               "2.4703282292062327e-324",
                               "-0",
                               "2.4703282292062328e-324",
                               "1.7976931348623158e308",
                               "1.7976931348623159e308",
                               "0e999999999999999999999",
                               "1e99999999999999999999999",
                               "1e-99999999999999999999999",
                               "9007199254740993",
                               "9007199254740992.99999",
                               "1,5"}) {
        expectAsStrtod(number);
    }
    std::mt19937_64 random(3);
    for (int i = 0; i < 20000; ++i) {
        const char* const pattern = i % 3 == 0 ? "%.*e" : i % 3 == 1 ? "%.*g" : "%.*a";
        expectAsStrtod(text::formatted(pattern, static_cast<int>(random() % 25), std::bit_cast<double>(random())));
    }
}

TEST(TextNumber, LongTextsAreRoundedCorrectly) {
    std::mt19937_64 random(4);
    for (int i = 0; i < 300; ++i) {
        // Halfway between two neighbours, exactly and by one digit more.
        const double value = std::fabs(std::bit_cast<double>(random() & 0x7FDFFFFFFFFFFFFF));
        char exact[1300];
        std::snprintf(
            exact, sizeof(exact), "%.1100Le",
            (static_cast<long double>(value) + static_cast<long double>(std::nextafter(value, HUGE_VAL))) / 2);
        expectAsStrtod(exact);
        std::string above(exact);
        expectAsStrtod(above.insert(above.find('e'), "00001"));
    }
    expectAsStrtod("0." + std::string(100000, '0') + "1e100001");
    expectAsStrtod("1" + std::string(100000, '0') + "e-100000");
    expectAsStrtod("0x" + std::string(5000, '0') + "1" + std::string(2000, '0') + "p-8000");
}

}  // namespace
}  // namespace qv
