// The table of array kernels: one entry for each combination of element types. Several tables give the same bits at
// different speed; one is chosen when the library is loaded.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "numerics/kernels/element.h"

namespace qv::kernels {

/// What a table asks of the machine.
enum KernelFeature : uint32_t { featureAvx2 = 1, featureAvx512 = 2 };

/// The output types of MinMax, in the order of the table's first index.
using MinMaxTypes = std::tuple<uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, float, double>;

template <class Function>
using ByType = std::array<Function, typeCount>;

/// The null entries are the combinations that are not handled.
struct KernelTable {
    using Binary = void (*)(void* dst, const void* src, size_t count);
    /// Writes |b[i] - a[i]| to `spans`, in the SpanType of the pair.
    using Span = void (*)(void* spans, const void* a, const void* b, size_t count);
    /// `min` and `max` point to the output type. REQUIRES: count > 0.
    using MinMax = void (*)(const void* data, size_t count, void* min, void* max);
    /// `divisor` points to one element.
    using Div = void (*)(void* data, const void* divisor, size_t count);

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
};

/// Whether the spans of two types are 32-bit magnitudes: both are integers of at most 32 bits.
constexpr bool hasNarrowSpan(size_t a, size_t b) { return a <= tagUInt32 && b <= tagUInt32; }

extern const KernelTable baselineKernels;

/// Every table of this build, the plainest first.
std::span<const KernelTable* const> allKernels();

/// The features of this machine.
uint32_t machineFeatures();

/// The last table that `features` allow, or the one called `forced` when that exists and is allowed.
const KernelTable& chooseKernels(uint32_t features, const char* forced);

/// The table in use.
const KernelTable& kernels();

}  // namespace qv::kernels
