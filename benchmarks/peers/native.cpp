#include <cmath>

#define QV_PLACE native
#include "peers/planck_loops.h"

namespace peers {

namespace {

/// The element rule for values in range.
template <class D, class S>
D convert(S value) {
    if constexpr (std::is_floating_point_v<S> && std::is_integral_v<D>) {
        using Wide = std::conditional_t<(sizeof(D) < 4), int32_t, int64_t>;
        return static_cast<D>(static_cast<Wide>(value));
    } else {
        return static_cast<D>(value);
    }
}

template <class D, class S, Operation operation>
void loop(void* dst, const void* src, size_t count) {
    auto* d = static_cast<D*>(dst);
    const auto* s = static_cast<const S*>(src);
    for (size_t i = 0; i < count; ++i) {
        const D c = convert<D>(s[i]);
        if constexpr (operation == Operation::convert) d[i] = c;
        if constexpr (operation == Operation::lesser) d[i] = d[i] < c ? d[i] : c;
        if constexpr (operation == Operation::greater) d[i] = d[i] > c ? d[i] : c;
        if constexpr (operation == Operation::sum) d[i] = static_cast<D>(d[i] + c);
    }
}

template <class T>
void minMaxLoop(const T* data, size_t count, T& min, T& max) {
    T low = data[0];
    T high = data[0];
    for (size_t i = 1; i < count; ++i) {
        low = data[i] < low ? data[i] : low;
        high = data[i] > high ? data[i] : high;
    }
    min = low;
    max = high;
}

}  // namespace

Loop nativeLoop(Operation operation, qv::EDataType dst, qv::EDataType src) {
    return withTypes(dst, src, [operation]<class D, class S>(D*, S*) -> Loop {
        switch (operation) {
            case Operation::convert: return loop<D, S, Operation::convert>;
            case Operation::lesser: return loop<D, S, Operation::lesser>;
            case Operation::greater: return loop<D, S, Operation::greater>;
            default: return loop<D, S, Operation::sum>;
        }
    });
}

namespace native {

void span(uint16_t* dst, const uint16_t* a, const uint16_t* b, size_t count) {
    for (size_t i = 0; i < count; ++i) dst[i] = static_cast<uint16_t>(b[i] > a[i] ? b[i] - a[i] : a[i] - b[i]);
}

void span(float* dst, const float* a, const float* b, size_t count) {
    for (size_t i = 0; i < count; ++i) dst[i] = std::fabs(b[i] - a[i]);
}

void minMax(const uint16_t* data, size_t count, uint16_t& min, uint16_t& max) { minMaxLoop(data, count, min, max); }
void minMax(const float* data, size_t count, float& min, float& max) { minMaxLoop(data, count, min, max); }

void divide(uint16_t* data, uint16_t divisor, size_t count) {
    for (size_t i = 0; i < count; ++i) data[i] = static_cast<uint16_t>(data[i] / divisor);
}

void celsiusToFahrenheit(float* dst, const float* src, size_t count) {
    for (size_t i = 0; i < count; ++i) dst[i] = static_cast<float>(src[i] * 1.8 + 32.0);
}

void lookUp(float* dst, const uint16_t* counts, const float* table, size_t count) {
    for (size_t i = 0; i < count; ++i) dst[i] = table[counts[i]];
}

}  // namespace native

}  // namespace peers
