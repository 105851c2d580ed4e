// The element rule: how one element becomes one of another type. These templates are what every kernel, scalar or wide,
// must agree with to the bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <tuple>
#include <type_traits>

namespace qv::kernels {

/// The element types by their tags 0 to 9. Tag 7 (uint64) is stored and read but takes part in no array operation.
using ElementTypes =
    std::tuple<int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, float, double>;
inline constexpr size_t typeCount = std::tuple_size_v<ElementTypes>;
inline constexpr size_t tagUInt32 = 5;
inline constexpr size_t tagUInt64 = 7;
inline constexpr size_t tagFlt64 = 9;

template <size_t tag>
using Element = std::tuple_element_t<tag, ElementTypes>;

/// An element where it may stand at any address, and in an array that may overlap one of another type.
template <class T>
struct __attribute__((packed, may_alias)) Loose {
    T value;
};

/// Element `i` of an array of any alignment.
template <class T>
inline T load(const void* elements, size_t i) {
    return static_cast<const Loose<T>*>(elements)[i].value;
}

template <class T>
inline void store(void* elements, size_t i, T value) {
    static_cast<Loose<T>*>(elements)[i].value = value;
}

/// What the processor's truncating conversion gives: NaN and whatever does not fit become the lowest value.
/// The value is made fit before it is converted, which leaves no branch and nothing undefined.
template <class Int, class Float>
constexpr Int hardwareTruncate(Float x) {
    constexpr Float lowest = static_cast<Float>(std::numeric_limits<Int>::min());
    // One below the lowest, where Float can tell them apart: -2147483648.9 still truncates to the lowest int32.
    const bool fits = x > lowest - Float(1) && x < -lowest;
    return static_cast<Int>(fits ? x : lowest);
}

/// Whether floats become a To through 32 bits, and not through 64.
template <class To>
inline constexpr bool narrowTruncation = sizeof(To) < 4 || std::is_same_v<To, int32_t>;

/// The language's plain conversion, with float to integer as stated in qv/typed_data.h.
template <class To, class From>
constexpr To convert(From x) {
    if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>) {
        return static_cast<To>(hardwareTruncate<std::conditional_t<narrowTruncation<To>, int32_t, int64_t>>(x));
    } else {
        return static_cast<To>(x);
    }
}

/// A uint64 as a double: rounded as a signed number, and from 2^63 on once more when 2^64 is added to that.
constexpr double fromUInt64(uint64_t x) {
    const auto asSigned = static_cast<double>(static_cast<int64_t>(x));
    return static_cast<int64_t>(x) < 0 ? asSigned + 18446744073709551616.0 : asSigned;
}

/// The arithmetic type of a pair, in which the language would subtract the two.
template <class A, class B>
using PairType = decltype(A() + B());

/// What |b - a| is held in until it becomes an element: a 32-bit difference has a 32-bit magnitude, any other a double.
template <class A, class B>
using SpanType =
    std::conditional_t<std::is_integral_v<PairType<A, B>> && sizeof(PairType<A, B>) == 4, uint32_t, double>;

/// |b - a|, the difference taken in the arithmetic type of the pair, wrapping where that is an integer.
template <class A, class B>
constexpr SpanType<A, B> span(A a, B b) {
    using Pair = PairType<A, B>;
    if constexpr (std::is_floating_point_v<Pair>) {
        return __builtin_fabs(static_cast<double>(static_cast<Pair>(b) - static_cast<Pair>(a)));
    } else {
        using U = std::make_unsigned_t<Pair>;
        const U bits = static_cast<U>(b) - static_cast<U>(a);
        if constexpr (sizeof(Pair) == 8) {
            return __builtin_fabs(static_cast<double>(static_cast<Pair>(bits)));
        } else {
            return std::is_signed_v<Pair> && static_cast<int32_t>(bits) < 0 ? U(0) - bits : bits;
        }
    }
}

/// A 32-bit magnitude as an element. It stands for a double, which from 2^31 on does not fit a 32-bit conversion.
template <class To>
constexpr To convertSpan(uint32_t magnitude) {
    constexpr bool narrow = std::is_integral_v<To> && narrowTruncation<To>;
    return static_cast<To>(narrow && static_cast<int32_t>(magnitude) < 0 ? 0x80000000u : magnitude);
}

/// Whether converting keeps the order of any two values, and equal only what compares equal: the smallest element may
/// then be looked for before it is converted.
template <class To, class From>
inline constexpr bool keepsOrder = std::is_integral_v<From>
                                       ? std::is_floating_point_v<To> ||
                                             (sizeof(To) > sizeof(From) &&
                                              (std::is_signed_v<To> || std::is_unsigned_v<From>))
                                       : sizeof(To) >= sizeof(From) && std::is_floating_point_v<To>;

/// Whether an element keeps its bits.
template <class To, class From>
inline constexpr bool keepsBits = std::is_same_v<To, From> ||
                                  (std::is_integral_v<To> && std::is_integral_v<From> && sizeof(To) == sizeof(From));

/// The unsigned type of the same width where the sign cannot change a converted element, so that a loop which would be
/// the same for both is compiled once.
template <class To, class From>
using CanonicalSource =
    typename std::conditional_t<std::is_integral_v<To> && std::is_integral_v<From> && sizeof(To) <= sizeof(From),
                                std::make_unsigned<From>, std::type_identity<From>>::type;
template <class To, class From>
using CanonicalTarget =
    typename std::conditional_t<std::is_integral_v<To> && (std::is_integral_v<From> || sizeof(To) < 4),
                                std::make_unsigned<To>, std::type_identity<To>>::type;

}  // namespace qv::kernels
