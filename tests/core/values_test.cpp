#include "qv/values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
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
}

TEST(Values, TheExactTextOfARealNumberReadsBackToTheSameBits) {
    EXPECT_EQ(CFlt64::ToString(1.0 / 3), u"0.333333");
    EXPECT_EQ(CFlt64::ToStringExact(0.1), u"0.1");
    EXPECT_EQ(CFlt64::ToStringExact(-1e300), u"-1e+300");
    EXPECT_EQ(CFlt64::ToStringExact(1.0 / 3), u"0.3333333333333333");
    EXPECT_EQ(CFlt64::ToStringExact(-std::numeric_limits<double>::infinity()), u"-inf");
    EXPECT_TRUE(std::isnan(CFlt64::Parse(CFlt64::ToStringExact(std::nan("")))));
    std::mt19937_64 random(9);
    for (int i = 0; i < 10000; ++i) {
        const uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isnan(value)) continue;
        const double back = CFlt64::Parse(CFlt64::ToStringExact(value));
        ASSERT_EQ(std::memcmp(&back, &value, sizeof value), 0) << value;
    }
}

}  // namespace
}  // namespace qv
