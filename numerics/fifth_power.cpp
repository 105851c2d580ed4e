#include "numerics/fifth_power.h"

#include <bit>
#include <cmath>
#include <cstdint>

namespace qv {

namespace {

void fifthPowersByPow(const double* x, double* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = std::pow(x[i], 5.0);
}

#if defined(__x86_64__)

/// Below this distance from the middle between two doubles, in units of the last place, rounding is left to pow.
constexpr double doubtfulUnits = 0.06;
/// Fifth powers between these stay normal, and so do the low halves of the products on the way.
constexpr double smallest = 1e-40;
constexpr double largest = 1e60;

__attribute__((target("fma"))) void fifthPowersByFma(const double* x, double* out, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const double v = x[i];
        // Each product as the sum of a double and what rounding took from it.
        const double square = v * v;
        const double squareRest = __builtin_fma(v, v, -square);
        const double fourth = square * square;
        const double fourthRest = __builtin_fma(square, square, -fourth) + 2.0 * square * squareRest;
        const double fifth = fourth * v;
        const double fifthRest = __builtin_fma(fourth, v, -fifth) + fourthRest * v;
        const double rounded = fifth + fifthRest;
        const double error = fifthRest - (rounded - fifth);
        // rounded + error is exact to 2^-100; an error just below half a unit in the last place is the doubtful case.
        const uint64_t exponent = std::bit_cast<uint64_t>(rounded) & 0x7FF0000000000000u;
        const double halfUnit = std::bit_cast<double>(exponent) * 0x1p-53;
        const bool sure = v > smallest && v < largest && std::fabs(error) < halfUnit * (1.0 - 2.0 * doubtfulUnits);
        out[i] = sure ? rounded : std::pow(v, 5.0);
    }
}

const bool hasFma = __builtin_cpu_supports("fma") != 0;

#endif

}  // namespace

void fifthPowers(const double* x, double* out, size_t count) {
#if defined(__x86_64__)
    if (hasFma) return fifthPowersByFma(x, out, count);
#endif
    fifthPowersByPow(x, out, count);
}

}  // namespace qv
