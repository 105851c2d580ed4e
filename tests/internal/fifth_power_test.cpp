#include "numerics/fifth_power.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace qv {
namespace {

TEST(FifthPower, HasTheBitsOfPow) {
    std::vector<double> x = {0.0,
                             -0.0,
                             -2.5,
                             1.0,
                             2.0,
                             1e-70,
                             1e70,
                             5e-324,
                             1e-40,
                             1e60,
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()};
    std::mt19937_64 random(5);
    for (int i = 0; i < 2000000; ++i) {
        const double unit = static_cast<double>(random() >> 11) * 0x1p-53;
        x.push_back(i % 2 == 0 ? 0.3 + 40.0 * unit : std::exp(200.0 * (unit - 0.5)));
    }
    std::vector<double> powers(x.size());
    fifthPowers(x.data(), powers.data(), x.size());
    for (size_t i = 0; i < x.size(); ++i) {
        const double expected = std::pow(x[i], 5.0);
        ASSERT_EQ(std::memcmp(&powers[i], &expected, sizeof expected), 0) << x[i];
    }
}

}  // namespace
}  // namespace qv
