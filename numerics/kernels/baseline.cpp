// The plain kernels: loops over the element rule, compiled for the baseline instruction set. They are the oracle for
// every other table. The compiler widens the loops by itself, behind its own test that the arrays do not overlap.
#include <cstring>
#include <functional>
#include <utility>

#include "numerics/kernels/kernel_table.h"

namespace qv::kernels {

namespace {

template <class To, class From>
void convertLoop(void* dst, const void* src, size_t count) {
    for (size_t i = 0; i < count; ++i) store(dst, i, convert<To>(load<From>(src, i)));
}

/// Elements that keep their bits are moved as a block, except where an ascending loop would read what it has written.
template <size_t width>
void copyElements(void* dst, const void* src, size_t count) {
    using Bits = std::make_unsigned_t<
        std::tuple_element_t<(width >= 4 ? width / 4 + 1 : width - 1), std::tuple<int8_t, int16_t, int32_t, int64_t>>>;
    static_assert(sizeof(Bits) == width);
    const std::less<const void*> before;
    if (before(src, dst) && before(dst, static_cast<const unsigned char*>(src) + count * width)) {
        convertLoop<Bits, Bits>(dst, src, count);
    } else if (count != 0) {
        std::memmove(dst, src, count * width);
    }
}

template <class D, class S>
void minLoop(void* dst, const void* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const D d = load<D>(dst, i);
        const D c = convert<D>(load<S>(src, i));
        store(dst, i, d < c ? d : c);
    }
}

template <class D, class S>
void maxLoop(void* dst, const void* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const D d = load<D>(dst, i);
        const D c = convert<D>(load<S>(src, i));
        store(dst, i, d > c ? d : c);
    }
}

template <class D, class S>
void sumLoop(void* dst, const void* src, size_t count) {
    for (size_t i = 0; i < count; ++i) store(dst, i, add(load<D>(dst, i), convert<D>(load<S>(src, i))));
}

template <class A, class B>
void spanLoop(void* spans, const void* a, const void* b, size_t count) {
    for (size_t i = 0; i < count; ++i) store(spans, i, span(load<A>(a, i), load<B>(b, i)));
}

template <class D>
void convertSpanLoop(void* dst, const void* spans, size_t count) {
    for (size_t i = 0; i < count; ++i) store(dst, i, convertSpan<D>(load<uint32_t>(spans, i)));
}

/// The extremes of the elements after conversion to T.
template <class T, class S>
void findMinMax(const void* data, size_t count, T& min, T& max) {
    T low = convert<T>(load<S>(data, 0));
    T high = low;
    for (size_t i = 1; i < count; ++i) {
        const T x = convert<T>(load<S>(data, i));
        high = x > high ? x : high;
        low = x < low ? x : low;
    }
    min = low;
    max = high;
}

template <class T, class S>
void minMaxLoop(const void* data, size_t count, void* min, void* max) {
    using Compared = std::conditional_t<keepsOrder<T, S>, S, T>;
    Compared low;
    Compared high;
    findMinMax<Compared, S>(data, count, low, high);
    store(min, 0, convert<T>(low));
    store(max, 0, convert<T>(high));
}

template <class T>
void divLoop(void* data, const void* divisor, size_t count) {
    const T d = load<T>(divisor, 0);
    if constexpr (std::is_signed_v<T> && std::is_integral_v<T>) {
        // The one quotient that does not fit is the lowest value by -1; the negation wraps.
        if (d == T(-1)) {
            using U = std::make_unsigned_t<T>;
            for (size_t i = 0; i < count; ++i) store(data, i, static_cast<U>(U(0) - load<U>(data, i)));
            return;
        }
    }
    for (size_t i = 0; i < count; ++i) store(data, i, static_cast<T>(load<T>(data, i) / d));
}

// Filling the table -----------------------------------------------------------------------------------------------

constexpr bool handled(size_t tag) { return tag != tagUInt64; }

template <size_t d, size_t s>
constexpr KernelTable::Binary convertEntry() {
    using D = Element<d>;
    using S = Element<s>;
    constexpr bool sameBits =
        std::is_same_v<D, S> || (std::is_integral_v<D> && std::is_integral_v<S> && sizeof(D) == sizeof(S));
    if constexpr (sameBits) {
        return copyElements<sizeof(D)>;
    } else {
        return convertLoop<CanonicalTarget<D, S>, CanonicalSource<D, S>>;
    }
}

template <size_t d, size_t s>
constexpr void fillPair(KernelTable& table) {
    if constexpr (handled(d) && handled(s)) {
        using D = Element<d>;
        using S = Element<s>;
        static_assert(std::is_same_v<SpanType<D, S>, uint32_t> == hasNarrowSpan(d, s));
        table.convert[d][s] = convertEntry<d, s>();
        table.min[d][s] = minLoop<D, CanonicalSource<D, S>>;
        table.max[d][s] = maxLoop<D, CanonicalSource<D, S>>;
        table.sum[d][s] = sumLoop<CanonicalTarget<D, S>, CanonicalSource<D, S>>;
        table.span[d][s] = spanLoop<D, S>;
    }
}

template <size_t s, size_t... t>
constexpr void fillMinMax(KernelTable& table, std::index_sequence<t...>) {
    ((table.minMax[t][s] = minMaxLoop<std::tuple_element_t<t, MinMaxTypes>,
                                      CanonicalSource<std::tuple_element_t<t, MinMaxTypes>, Element<s>>>),
     ...);
}

template <size_t s, size_t... d>
constexpr void fillColumn(KernelTable& table, std::index_sequence<d...>) {
    (fillPair<d, s>(table), ...);
    if constexpr (handled(s)) {
        fillMinMax<s>(table, std::make_index_sequence<std::tuple_size_v<MinMaxTypes>>());
        table.div[s] = divLoop<Element<s>>;
        table.convertSpan[s] = convertSpanLoop<Element<s>>;
    }
}

template <size_t... s>
constexpr KernelTable makeTable(std::index_sequence<s...> all) {
    KernelTable table{};
    table.name = "baseline";
    (fillColumn<s>(table, all), ...);
    return table;
}

}  // namespace

constinit const KernelTable baselineKernels = makeTable(std::make_index_sequence<typeCount>());

}  // namespace qv::kernels
