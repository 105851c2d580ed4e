// Loops of peers that need a translation unit of their own: for its flags, or to keep its headers to itself.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qv/typed_data.h"

namespace peers {

/// The array operations of two operands: dst[i] = src[i], or the lesser, the greater or the sum of dst[i] and src[i].
enum class Operation { convert, lesser, greater, sum };

/// An operation on arrays of known types.
using Loop = void (*)(void* dst, const void* src, size_t count);

/// Null where the peer lacks it.
Loop nativeLoop(Operation operation, qv::EDataType dst, qv::EDataType src);
Loop eigenLoop(Operation operation, qv::EDataType dst, qv::EDataType src);
Loop opencvLoop(Operation operation, qv::EDataType dst, qv::EDataType src);

/// Calls make with null pointers to the two element types; null for types that no benchmark uses.
template <class Make>
Loop withTypes(qv::EDataType dst, qv::EDataType src, Make make) {
    const auto withSource = [&](auto* d) -> Loop {
        switch (src) {
            case qv::EDataType::uint8: return make(d, static_cast<uint8_t*>(nullptr));
            case qv::EDataType::uint16: return make(d, static_cast<uint16_t*>(nullptr));
            case qv::EDataType::flt32: return make(d, static_cast<float*>(nullptr));
            case qv::EDataType::flt64: return make(d, static_cast<double*>(nullptr));
            default: return nullptr;
        }
    };
    switch (dst) {
        case qv::EDataType::int16: return withSource(static_cast<int16_t*>(nullptr));
        case qv::EDataType::uint16: return withSource(static_cast<uint16_t*>(nullptr));
        case qv::EDataType::uint32: return withSource(static_cast<uint32_t*>(nullptr));
        case qv::EDataType::flt32: return withSource(static_cast<float*>(nullptr));
        default: return nullptr;
    }
}

// Plain loops compiled for the machine at hand (-O3 -march=native).
namespace native {

void span(uint16_t* dst, const uint16_t* a, const uint16_t* b, size_t count);
void span(float* dst, const float* a, const float* b, size_t count);
void minMax(const uint16_t* data, size_t count, uint16_t& min, uint16_t& max);
void minMax(const float* data, size_t count, float& min, float& max);
void divide(uint16_t* data, uint16_t divisor, size_t count);
void celsiusToFahrenheit(float* dst, const float* src, size_t count);
/// dst[i] = table[counts[i]]
void lookUp(float* dst, const uint16_t* counts, const float* table, size_t count);

}  // namespace native

/// The Planck curve of qv/spectral.h, and the same times a response, summed by right-hand rectangles over the axis.
#define QV_PLANCK_LOOPS(place)                                                                               \
    namespace place {                                                                                        \
    void planck(double* y, const double* x, size_t count, double celsius, double emissivity);                \
    double inBand(const double* x, const double* response, size_t count, double celsius, double emissivity); \
    }
QV_PLANCK_LOOPS(native)   ///< exp and pow of the C library
QV_PLANCK_LOOPS(libmvec)  ///< with -ffast-math: the vector forms of the C library
#undef QV_PLANCK_LOOPS

/// Smallest and largest element by OpenCV.
void opencvMinMax(qv::EDataType type, void* data, size_t count, double& min, double& max);

}  // namespace peers
