// The array operations of qv/typed_data.h: tags in, one kernel found, one call.
#include <algorithm>
#include <cstddef>

#include "numerics/block_order.h"
#include "numerics/kernels/kernel_table.h"
#include "qv/typed_data.h"

namespace qv {

namespace {

using kernels::KernelTable;
using kernels::pairKernel;
using kernels::tagOf;

void runBinary(const kernels::ByType<kernels::ByType<KernelTable::Binary>>& table, STypedData dst, STypedData src,
               uint32_t count) {
    if (const auto kernel = pairKernel(table, dst.type, src.type)) kernel(dst.pointer, src.pointer, count);
}

/// Results of at least so many bytes are gone from the caches before anybody reads them.
constexpr uint64_t streamedFrom = uint64_t{16} << 20;

/// Whether a conversion mostly writes, and more than the caches keep: then it pays to make the elements in a block of
/// the first-level cache and to stream them past the caches, which spares the memory from being read before it is
/// overwritten.
bool streams(STypedData dst, STypedData src, uint32_t count) {
    const uint32_t size = DataTypeSize(dst.type);
    return size > DataTypeSize(src.type) && uint64_t{count} * size >= streamedFrom &&
           reinterpret_cast<uintptr_t>(dst.pointer) % size == 0 && blocksKeepOrder(dst, src, count);
}

void convertStreaming(KernelTable::Binary convert, STypedData dst, STypedData src, uint32_t count) {
    constexpr uint32_t lineBytes = 64;
    alignas(lineBytes) std::byte block[4096];
    const uint32_t size = DataTypeSize(dst.type);
    const auto misplaced = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(dst.pointer) % lineBytes);
    uint32_t done = (lineBytes - misplaced) % lineBytes / size;
    convert(dst.pointer, src.pointer, done);
    const auto blockLength = static_cast<uint32_t>(sizeof block / size);
    for (; count - done >= blockLength; done += blockLength) {
        convert(block, elementAt(src, done), blockLength);
        kernels::kernels().stream(elementAt(dst, done), block, sizeof block);
    }
    kernels::kernels().endStream();
    convert(elementAt(dst, done), elementAt(src, done), count - done);
}

template <class T, size_t index = 0>
constexpr size_t minMaxIndex() {
    if constexpr (std::is_same_v<T, std::tuple_element_t<index, kernels::MinMaxTypes>>) {
        return index;
    } else {
        return minMaxIndex<T, index + 1>();
    }
}

template <class T>
void minMax(STypedData data, uint32_t count, T& min, T& max) {
    const size_t tag = tagOf(data.type);
    if (count == 0 || tag == kernels::typeCount) return;
    if (const auto kernel = kernels::kernels().minMax[minMaxIndex<T>()][tag]) kernel(data.pointer, count, &min, &max);
}

/// The divisor becomes an element once; the kernel then sees elements only.
template <size_t tag, class T>
void divideBy(STypedData data, T divisor, uint32_t count) {
    const auto element = kernels::convert<kernels::Element<tag>>(divisor);
    kernels::kernels().div[tag](data.pointer, &element, count);
}

template <class T>
void divide(STypedData data, T divisor, uint32_t count) {
    switch (data.type) {
        case EDataType::int8: return divideBy<0>(data, divisor, count);
        case EDataType::uint8: return divideBy<1>(data, divisor, count);
        case EDataType::int16: return divideBy<2>(data, divisor, count);
        case EDataType::uint16: return divideBy<3>(data, divisor, count);
        case EDataType::int32: return divideBy<4>(data, divisor, count);
        case EDataType::uint32: return divideBy<5>(data, divisor, count);
        case EDataType::int64: return divideBy<6>(data, divisor, count);
        case EDataType::flt32: return divideBy<8>(data, divisor, count);
        case EDataType::flt64: return divideBy<9>(data, divisor, count);
        default: return;
    }
}

}  // namespace

void ConvertArray(STypedData dst, STypedData src, uint32_t count) {
    const auto convert = pairKernel(kernels::kernels().convert, dst.type, src.type);
    if (convert == nullptr) return;
    if (streams(dst, src, count)) return convertStreaming(convert, dst, src, count);
    convert(dst.pointer, src.pointer, count);
}
void TypedMin(STypedData dst, STypedData src, uint32_t count) { runBinary(kernels::kernels().min, dst, src, count); }
void TypedMax(STypedData dst, STypedData src, uint32_t count) { runBinary(kernels::kernels().max, dst, src, count); }
void TypedSum(STypedData dst, STypedData src, uint32_t count) { runBinary(kernels::kernels().sum, dst, src, count); }

void MinMax(STypedData data, uint32_t count, uint8_t& min, uint8_t& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, int16_t& min, int16_t& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, uint16_t& min, uint16_t& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, int32_t& min, int32_t& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, uint32_t& min, uint32_t& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, int64_t& min, int64_t& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, float& min, float& max) { minMax(data, count, min, max); }
void MinMax(STypedData data, uint32_t count, double& min, double& max) { minMax(data, count, min, max); }

void TypedDiv(STypedData data, char divisor, uint32_t count) { divide(data, static_cast<int8_t>(divisor), count); }
void TypedDiv(STypedData data, uint8_t divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, int16_t divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, uint16_t divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, int32_t divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, uint32_t divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, int64_t divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, float divisor, uint32_t count) { divide(data, divisor, count); }
void TypedDiv(STypedData data, double divisor, uint32_t count) { divide(data, divisor, count); }

// The spans of a block are taken (81 kernels) and then converted (18 kernels), which gives the bits of the 729 fused
// loops in a tenth of their code. The block stays in the first-level cache. Arrays that overlap so that a block would
// read what an ascending loop has already overwritten go one element at a time.
void TypedSpan(STypedData dst, STypedData a, STypedData b, uint32_t count) {
    constexpr size_t blockLength = 512;
    const KernelTable& table = kernels::kernels();
    const auto span = pairKernel(table.span, a.type, b.type);
    auto convert = pairKernel(table.convert, dst.type, EDataType::flt64);
    if (span == nullptr || convert == nullptr) return;
    if (kernels::hasNarrowSpan(tagOf(a.type), tagOf(b.type))) convert = table.convertSpan[tagOf(dst.type)];

    const bool whole = blocksKeepOrder(dst, a, count) && blocksKeepOrder(dst, b, count);
    const size_t step = whole ? blockLength : 1;
    double spans[blockLength];
    for (size_t done = 0; done < count; done += step) {
        const size_t n = std::min(step, count - done);
        span(spans, elementAt(a, done), elementAt(b, done), n);
        convert(elementAt(dst, done), spans, n);
    }
}

}  // namespace qv
