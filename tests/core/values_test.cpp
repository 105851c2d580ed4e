#include "qv/values.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace qv {
namespace {

TEST(Values, BoolsAreReadInEveryUsualSpelling) {
    EXPECT_EQ(CBool::ToString(true), u"true");
    EXPECT_EQ(CBool::ToString(false), u"false");
    for (const char16_t* yes : {u"true", u"TRUE", u" Yes\r\n", u"on", u"1", u"-2", u"0.5"})
        EXPECT_TRUE(CBool::Parse(yes));
    for (const char16_t* no : {u"false", u"no", u"off", u"0", u"0.0", u"", u"truely", u"y"})
        EXPECT_FALSE(CBool::Parse(no));
}

TEST(Values, IntegersAreReadAsFarAsTheyGo) {
    EXPECT_EQ(CInt32::ToString(-2147483647 - 1), u"-2147483648");
    EXPECT_EQ(CInt32::Parse(u" -12ab"), -12);
    EXPECT_EQ(CInt32::Parse(u"x"), 0);
    EXPECT_EQ(CUInt8::Parse(u"300"), 255);
    EXPECT_EQ(CUInt64::Parse(u"18446744073709551615"), ~uint64_t{0});
}

/// "ok 5", "range 255" or "syntax" for a text read as T.
template <class T>
CString outcome(const char16_t* text) {
    T value{};
    const EParse result = TValueText<T>::Parse(text, value);
    if (result == EParse::syntax) return u"syntax";
    return CString(result == EParse::ok ? u"ok " : u"range ") + TValueText<T>::ToStringExact(value);
}

TEST(Values, RangeErrorsAreToldFromSyntaxErrors) {
    const struct {
        CString (*read)(const char16_t*);
        const char16_t *text, *expected;
    } cases[] = {
        {outcome<bool>, u" ON\n", u"ok true"},
        {outcome<bool>, u"0x0", u"ok false"},
        {outcome<bool>, u"maybe", u"syntax"},
        {outcome<int8_t>, u"-128", u"ok -128"},
        {outcome<int8_t>, u"-129", u"range -128"},
        {outcome<uint8_t>, u"+255", u"ok 255"},
        {outcome<uint8_t>, u"256", u"range 255"},
        {outcome<uint16_t>, u"-0", u"ok 0"},
        {outcome<uint16_t>, u"-1", u"range 0"},
        {outcome<int32_t>, u"2147483648", u"range 2147483647"},
        {outcome<uint32_t>, u"4294967295", u"ok 4294967295"},
        {outcome<int64_t>, u"-9223372036854775808", u"ok -9223372036854775808"},
        {outcome<int64_t>, u"9223372036854775808", u"range 9223372036854775807"},
        {outcome<uint64_t>, u"18446744073709551616", u"range 18446744073709551615"},
        {outcome<uint64_t>, u"99999999999999999999999999", u"range 18446744073709551615"},
        {outcome<int32_t>, u"", u"syntax"},
        {outcome<int32_t>, u"12 3", u"syntax"},
        {outcome<int32_t>, u"-", u"syntax"},
        {outcome<float>, u"3.4028235e38", u"ok 3.4028235e+38"},
        {outcome<float>, u"3.5e38", u"range inf"},
        {outcome<float>, u"-1e-50", u"range -0"},
        {outcome<float>, u"0e-50", u"ok 0"},
        // Lies a little above the middle of two floats; by way of a double it would be taken for the middle.
        {outcome<float>, u"1.00000017881393432617187499", u"ok 1.0000001"},
        {outcome<float>, u"1.00000017881393432617187501", u"ok 1.0000002"},
        {outcome<double>, u"1e-400", u"range 0"},
        {outcome<double>, u"5e-324", u"ok 5e-324"},
        {outcome<double>, u"-Infinity", u"ok -inf"},
        {outcome<double>, u"1.5.", u"syntax"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.read(c.text), c.expected) << CStringMB(c.text).c_str();
}

TEST(Values, RealNumbersAreWrittenInTwoWays) {
    EXPECT_EQ(CFlt64::ToString(1.0 / 3), u"0.333333");
    EXPECT_EQ(CFlt64::ToStringExact(0.1), u"0.1");
    EXPECT_EQ(CFlt32::ToStringExact(0.1f), u"0.1");
    EXPECT_EQ(CFlt64::ToStringExact(-1e300), u"-1e+300");
    EXPECT_EQ(CFlt64::ToStringExact(1.0 / 3), u"0.3333333333333333");
    EXPECT_EQ(CFlt64::ToStringExact(-std::numeric_limits<double>::infinity()), u"-inf");
    EXPECT_EQ(CFlt64::ToStringExact(std::nan("")), u"nan");
    EXPECT_EQ(CFlt64::ToStringExact(std::bit_cast<double>(0xFFF0000000000001)), u"-nan(0x1)");
}

/// Whether the exact text and the bits in hexadecimal both read back to the bits of `value`.
template <class T, class Bits>
bool survives(Bits bits) {
    const T value = std::bit_cast<T>(bits);
    T exact{}, hex{};
    return TValueText<T>::Parse(TValueText<T>::ToStringExact(value), exact) == EParse::ok &&
           TValueText<T>::ParseHex(TValueText<T>::ToStringHex(value), hex) == EParse::ok &&
           std::bit_cast<Bits>(exact) == bits && std::bit_cast<Bits>(hex) == bits;
}

TEST(Values, TheExactTextReadsBackToTheSameBits) {
    for (uint32_t bits = 0; bits < 0x10000; ++bits) {
        ASSERT_TRUE(survives<int16_t>(static_cast<uint16_t>(bits))) << bits;
        ASSERT_TRUE(survives<float>(bits << 16 | (bits * 40503 & 0xFFFF))) << bits;  // Every exponent, NaNs too.
    }
    std::mt19937_64 random(9);
    for (int i = 0; i < 100000; ++i) {
        const uint64_t bits = random(), special = bits | 0x7FF0000000000000;
        ASSERT_TRUE(survives<double>(bits)) << bits;
        ASSERT_TRUE(survives<double>(special)) << special;
        ASSERT_TRUE(survives<double>(bits & 0x800FFFFFFFFFFFFF)) << bits;
        ASSERT_TRUE(survives<int64_t>(bits) && survives<uint64_t>(bits)) << bits;
    }
}

TEST(Values, HexadecimalTextIsTheBits) {
    EXPECT_EQ(CInt16::ToStringHex(-2), u"FFFE");
    EXPECT_EQ(CFlt32::ToStringHex(1), u"3F800000");
    EXPECT_EQ(CUIntPtr::ToStringHex(0xAB), u"00000000000000AB");
    int8_t value = 7;
    EXPECT_EQ(CInt8::ParseHex(u" 0x0ff ", value), EParse::ok);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(CInt8::ParseHex(u"100", value), EParse::range);
    EXPECT_EQ(CInt8::ParseHex(u"0x", value), EParse::syntax);
    EXPECT_EQ(CInt8::ParseHex(u"1g", value), EParse::syntax);
    EXPECT_EQ(value, -1);
}

}  // namespace
}  // namespace qv
