// The table of array kernels: one entry for each combination of element types. Several tables give the same bits at
// different speed; one is chosen when the library is loaded.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "numerics/kernels/element.h"
#include "qv/typed_data.h"

namespace qv::kernels {

/// What a table asks of the machine.
enum KernelFeature : uint32_t { featureAvx2 = 1, featureAvx512 = 2 };

/// The output types of MinMax, in the order of the table's first index.
using MinMaxTypes = std::tuple<uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, float, double>;

template <class Function>
using ByType = std::array<Function, typeCount>;

/// y = (x + before) * scale + after, each step rounded; or with the scale as a divisor.
struct AffineTerms {
    double before = -0.0;
    double scale = 1.0;
    double after = -0.0;
};

/// The null entries are the combinations that are not handled.
struct KernelTable {
    using Binary = void (*)(void* dst, const void* src, size_t count);
    /// Writes |b[i] - a[i]| to `spans`, in the SpanType of the pair.
    using Span = void (*)(void* spans, const void* a, const void* b, size_t count);
    /// `min` and `max` point to the output type. REQUIRES: count > 0.
    using MinMax = void (*)(const void* data, size_t count, void* min, void* max);
    /// `divisor` points to one element.
    using Div = void (*)(void* data, const void* divisor, size_t count);

    /// In double. REQUIRES: dst and src are one array, or dst starts before src, or they do not overlap.
    using Affine = void (*)(void* dst, const void* src, size_t count, const AffineTerms& terms);

    const char* name;
    uint32_t features;
    ByType<ByType<Binary>> convert;  ///< [destination][source], and so the next three
    ByType<ByType<Binary>> min;
    ByType<ByType<Binary>> max;
    ByType<ByType<Binary>> sum;
    ByType<ByType<Span>> span;   ///< [a][b]; convert[destination][tagFlt64] turns doubles into elements,
    ByType<Binary> convertSpan;  ///< [destination], 32-bit magnitudes
    std::array<ByType<MinMax>, std::tuple_size_v<MinMaxTypes>> minMax;
    ByType<Div> div;
    std::array<std::array<Affine, 2>, 2> affine;  ///< [0 for float arrays, 1 for double][1 when the scale divides]

    /// Copies whole lines of 64 bytes between addresses that are multiples of 64, past the caches where the machine
    /// can.
    void (*stream)(void* dst, const void* src, size_t bytes);
    /// Behind it, other threads see what was streamed in the order of the program.
    void (*endStream)();

    // Planck's law with the constants of qv/spectral.h, x in microns. Every result is that of the documented formula,
    // with an exponential and a fifth power of the kernels' own, each within 2 units in the last place of the exact
    // one.
    /// out[i] = 11910.06 / x[i]^5. `out` may be x.
    void (*planckStrengths)(const double* x, double* out, size_t count);
    /// y[i] = emissivity * strengths[i] * (1 / (exp(14388.3 / (kelvin * x[i])) - 1)). y may be one of the inputs.
    void (*planckCurve)(const double* x, const double* strengths, double* y, size_t count, double kelvin,
                        double emissivity);
    /// IntegrateRectTR over x of that curve times `response`; 0 for fewer than two points.
    double (*planckBand)(const double* x, const double* strengths, const double* response, size_t count, double kelvin,
                         double emissivity);

    // Frames of counts.
    /// values[i] = the polynomial at values[i], lowest power first, by Horner's rule.
    void (*horner)(double* values, size_t count, const double* coefficients, size_t order);
    /// dst[i] = table[bits[i]], and the extremes of the counts. `bits` are 16-bit counts, `dst` floats, each at any
    /// address.
    /// REQUIRES: count > 0.
    using LookUp = void (*)(void* dst, const void* bits, size_t count, const float* table, int32_t& lowest,
                            int32_t& highest);
    std::array<LookUp, 2> lookUp;  ///< [0 for uint16, 1 for int16]
    /// Adds how many of the counts lie below `low` and above `high`.
    using CountOutside = void (*)(const void* counts, size_t count, int32_t low, int32_t high, uint32_t& below,
                                  uint32_t& above);
    std::array<CountOutside, 2> countOutside;  ///< [0 for uint16, 1 for int16]
};

/// Whether the spans of two types are 32-bit magnitudes: both are integers of at most 32 bits.
constexpr bool hasNarrowSpan(size_t a, size_t b) { return a <= tagUInt32 && b <= tagUInt32; }

/// The plain kernels, for the instruction set that the whole library is compiled for, and the wider ones.
namespace baseline {
extern const KernelTable table;
}
#if defined(__x86_64__)
namespace avx2 {
extern const KernelTable table;
}
namespace avx512 {
extern const KernelTable table;
}
#endif

/// Every table of this build, the plainest first.
std::span<const KernelTable* const> allKernels();

/// The features of this machine.
uint32_t machineFeatures();

/// The last table that `features` allow, or the one called `forced` when that exists and is allowed.
const KernelTable& chooseKernels(uint32_t features, const char* forced);

/// The table in use.
const KernelTable& kernels();

/// The tag as an index into the kernel tables, or typeCount when no table has it.
inline size_t tagOf(EDataType type) {
    const auto tag = static_cast<uint32_t>(type);
    return tag < typeCount ? tag : typeCount;
}

/// The kernel of a pair of tags; null where the pair is not handled.
template <class Table>
auto pairKernel(const Table& table, EDataType first, EDataType second) -> typename Table::value_type::value_type {
    const size_t row = tagOf(first);
    const size_t column = tagOf(second);
    if (row == typeCount || column == typeCount) return nullptr;
    return table[row][column];
}

}  // namespace qv::kernels
