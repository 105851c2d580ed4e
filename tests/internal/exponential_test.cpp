// The exponential and the fifth power of the Planck kernels beside a reference of 64 bits.
#if defined(__SSE2__)
#include <immintrin.h>
#endif
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "numerics/double_double.h"
#include "numerics/kernels/kernel_table.h"

#define QV_KERNEL_SET tested
#define QV_VECTOR_BYTES 16
#define QV_HAS_VECTOR_TRUNCATION false
// clang-format off
#include "numerics/kernels/vectors.h"
#include "numerics/kernels/exponential.h"
// clang-format on

namespace {

using namespace qv::kernels::tested;

/// How many doubles lie between two of one sign.
int64_t unitsBetween(double a, double b) { return std::abs(std::bit_cast<int64_t>(a) - std::bit_cast<int64_t>(b)); }

/// The greatest distance from the rounded reference, over `x`.
template <class Function, class Reference>
int64_t worstUnits(const std::vector<double>& x, Function function, Reference reference) {
    int64_t worst = 0;
    double found[stepLength];
    for (size_t i = 0; i + stepLength <= x.size(); i += stepLength) {
        storeStep(found, function(loadStep(x.data() + i)));
        for (size_t k = 0; k < stepLength; ++k) {
            const auto expected = static_cast<double>(reference(static_cast<long double>(x[i + k])));
            worst =
                std::max(worst, std::isnan(expected) && std::isnan(found[k]) ? 0 : unitsBetween(found[k], expected));
        }
    }
    return worst;
}

TEST(Exponential, LiesWithinOneUnitOfTheRoundedValue) {
    // Where it over- and underflows, where results become subnormal, and around the multiples of log 2.
    std::vector<double> x = {0.0,    -0.0,   1e-300,  -1e-20,   INFINITY, -INFINITY, NAN,     709.782712893384,
                             709.79, 710.0,  1e300,   -708.4,   -740.0,   -745.13,   -745.14, -746.0,
                             -800.0, -1e300, 0.34657, -0.34658, 5e-324,   1.0};
    std::mt19937_64 random(3);
    while (x.size() % stepLength != 0 || x.size() < 400000) {
        const double unit = static_cast<double>(random() >> 11) * 0x1p-53;
        const double scales[] = {-752.0 + 1470.0 * unit, 60.0 * unit, unit - 0.5, -708.0 - 38.0 * unit};
        x.push_back(scales[x.size() % 4]);
    }
    EXPECT_LE(worstUnits(
                  x, [](const Step& v) { return exponential(v); }, [](long double v) { return std::exp(v); }),
              1);
}

TEST(FifthPower, LiesWithinOneUnitOfTheRoundedValue) {
    std::vector<double> x;
    std::mt19937_64 random(5);
    while (x.size() < 400000) {
        const double unit = static_cast<double>(random() >> 11) * 0x1p-53;
        x.push_back(x.size() % 2 == 0 ? 0.3 + 40.0 * unit : smallestBase * std::pow(largestBase / smallestBase, unit));
    }
    EXPECT_LE(worstUnits(
                  x, [](const Step& v) { return fifthPower(v); }, [](long double v) { return v * v * v * v * v; }),
              1);
}

}  // namespace
