// Typed arrays: a pointer with a type tag (STypedData), a buffer that owns its elements (ITypedBuffer,
// AllocTypedBuffer) and the array operations that take the element types at run time. Start with AllocTypedBuffer and
// ConvertArray.
//
// The element rule. Every operation first converts each source element to the destination's type, as a plain conversion
// without clamping or rounding, and computes in that type:
//   integer to integer      the low bits are kept; int16 300 to uint8 is 44, int16 -1 to uint8 is 255;
//   float to integer        truncation toward zero through a 32-bit integer (8-bit and 16-bit types and int32) or a
//                           64-bit one (uint32 and the 64-bit types), then the low bits; NaN and what does not fit
//                           that integer convert as its lowest value, so flt64 1e10 is -2147483648 as int32 and 0 as
//                           uint16;
//   to float                the nearest value; flt64 to flt32 may give an infinity.
//
// What is not handled is a silent no-op: uint64, the RGB types, `none` and values outside the enumeration, in any
// operand. Elements are processed in ascending order, so arrays that overlap give what the plain loop over the elements
// gives. Pointers need not be aligned. The length of an array is the caller's duty; nothing is allocated and nothing
// reported. Threads: no locks; calls on disjoint arrays may run at the same time.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/shared_ptr.h"

namespace qv {

/// Element types. The numbers are stored in files and in callers' structures.
enum class EDataType : int32_t {
    int8 = 0,
    uint8 = 1,
    int16 = 2,
    uint16 = 3,
    int32 = 4,
    uint32 = 5,
    int64 = 6,
    uint64 = 7,
    flt32 = 8,
    flt64 = 9,
    rgb24 = 10,  ///< SRGB
    rgb48 = 11,  ///< three unsigned 16-bit channels
    none = 12,   ///< no type: an empty STypedData or CTypedBuffer
};

/// One element of an rgb24 array.
struct SRGB {
    uint8_t r;
    uint8_t g;
    uint8_t b;
};
static_assert(sizeof(SRGB) == 3);

/// Bytes of one element; 1 for `none` and for values outside the enumeration.
constexpr uint32_t DataTypeSize(EDataType type) {
    switch (type) {
        case EDataType::int16:
        case EDataType::uint16: return 2;
        case EDataType::int32:
        case EDataType::uint32:
        case EDataType::flt32: return 4;
        case EDataType::int64:
        case EDataType::uint64:
        case EDataType::flt64: return 8;
        case EDataType::rgb24: return 3;
        case EDataType::rgb48: return 6;
        default: return 1;
    }
}

/// A pointer to elements that somebody else owns, and their type. Passed by value.
struct QV_API STypedData {
    void* pointer = nullptr;
    EDataType type = EDataType::none;

    STypedData() = default;
    /// REQUIRES: `elements` holds elements of that type, and outlives this.
    STypedData(void* elements, EDataType elementType) : pointer(elements), type(elementType) {}

    /// One element of an STypedData: reads as double and takes a double, by the rules of ITypedBuffer's getAt and
    /// setAt. REQUIRES: the STypedData is still there, and the index lies within its array.
    class QV_API VALUE {
    public:
        VALUE(const STypedData* data, int index) : m_data(data), m_index(index) {}
        VALUE(const VALUE&) = default;
        operator double() const;
        VALUE& operator=(double value);
        VALUE& operator=(const VALUE& other) { return *this = static_cast<double>(other); }

    private:
        const STypedData* m_data;
        int m_index;
    };

    VALUE operator[](int index) const { return VALUE(this, index); }
};

/// A buffer that owns its elements. Derive from it to hand memory of your own to code that wants a buffer.
class QV_API ITypedBuffer {
public:
    virtual ~ITypedBuffer();
    /// The type of the elements.
    virtual EDataType type() const = 0;
    /// The first element; null when the buffer is empty.
    virtual void* data() const = 0;
    /// The number of elements.
    virtual uint32_t size() const = 0;

    /// data() as a pointer to the named type. None of them looks at type().
    int8_t* int8() const { return static_cast<int8_t*>(data()); }
    uint8_t* uint8() const { return static_cast<uint8_t*>(data()); }
    int16_t* int16() const { return static_cast<int16_t*>(data()); }
    uint16_t* uint16() const { return static_cast<uint16_t*>(data()); }
    int32_t* int32() const { return static_cast<int32_t*>(data()); }
    uint32_t* uint32() const { return static_cast<uint32_t*>(data()); }
    int64_t* int64() const { return static_cast<int64_t*>(data()); }
    uint64_t* uint64() const { return static_cast<uint64_t*>(data()); }
    float* flt32() const { return static_cast<float*>(data()); }
    double* flt64() const { return static_cast<double*>(data()); }
    SRGB* rgb24() const { return static_cast<SRGB*>(data()); }

    /// Pointer and type, for the functions on arrays; the buffer keeps the ownership.
    STypedData typedData() const { return STypedData(data(), type()); }
    /// Bytes of all elements, as a 32-bit product.
    uint32_t sizeInBytes() const { return DataTypeSize(type()) * size(); }

    /// The element as a double; an rgb24 element reads as the mean of its channels, a uint64 from 2^63 on as its bits
    /// taken for an int64 plus 2^64, rounded twice. 0.0 for rgb48, `none`, null data and a null `this`. The index is
    /// not checked.
    double getAt(uint32_t index) const;

    /// Stores `value` by the element rule; a uint64 element also takes values from 2^63 on. Does nothing for the RGB
    /// types, `none`, null data and a null `this`. The index is not checked.
    void setAt(uint32_t index, double value);

protected:
    ITypedBuffer() = default;
    ITypedBuffer(const ITypedBuffer&) = default;
    ITypedBuffer& operator=(const ITypedBuffer&) = default;
};

/// The buffer of AllocTypedBuffer: elements on the process heap.
///
/// A copy is shallow: it holds the same data pointer, and so does the source still. Both destructors would release it,
/// so only one of the two may be destroyed. Assignment does not release what the target held. Buffers are shared
/// through the TSharedPtr of AllocTypedBuffer instead.
class QV_API CTypedBuffer : public ITypedBuffer {
public:
    CTypedBuffer() = default;
    CTypedBuffer(const CTypedBuffer&) = default;
    CTypedBuffer& operator=(const CTypedBuffer&) = default;
    ~CTypedBuffer() override;

    EDataType type() const override { return m_type; }
    void* data() const override { return m_data; }
    uint32_t size() const override { return m_size; }

    /// Replaces the contents by `count` elements, which are not cleared. Types from rgb48 on are refused: false, and
    /// the old content stays. Without memory, or when the bytes do not fit 32 bits: false, and the buffer is empty.
    bool Alloc(EDataType type, uint32_t count);

private:
    EDataType m_type = EDataType::none;
    void* m_data = nullptr;
    uint32_t m_size = 0;
};

/// A new buffer of `count` elements, not cleared; null when CTypedBuffer::Alloc fails.
QV_API TSharedPtr<ITypedBuffer> AllocTypedBuffer(EDataType type, uint32_t count);

/// dst[i] = src[i] by the element rule.
QV_API void ConvertArray(STypedData dst, STypedData src, uint32_t count);

// Smallest and largest element, each converted to the outputs' type by the element rule before it is compared. Both
// start from element 0; a later element replaces one only when strictly smaller or greater. A NaN therefore counts only
// as element 0, and then stays in both. With no elements, or a type that is not handled, the outputs stay as they were.
QV_API void MinMax(STypedData data, uint32_t count, uint8_t& min, uint8_t& max);
QV_API void MinMax(STypedData data, uint32_t count, int16_t& min, int16_t& max);
QV_API void MinMax(STypedData data, uint32_t count, uint16_t& min, uint16_t& max);
QV_API void MinMax(STypedData data, uint32_t count, int32_t& min, int32_t& max);
QV_API void MinMax(STypedData data, uint32_t count, uint32_t& min, uint32_t& max);
QV_API void MinMax(STypedData data, uint32_t count, int64_t& min, int64_t& max);
QV_API void MinMax(STypedData data, uint32_t count, float& min, float& max);
QV_API void MinMax(STypedData data, uint32_t count, double& min, double& max);

/// dst[i] = the smaller of dst[i] and the converted src[i]; the latter when either is NaN.
QV_API void TypedMin(STypedData dst, STypedData src, uint32_t count);

/// dst[i] = the greater of dst[i] and the converted src[i]; the latter when either is NaN.
QV_API void TypedMax(STypedData dst, STypedData src, uint32_t count);

/// dst[i] = dst[i] + the converted src[i]. Integers wrap in the destination's width.
QV_API void TypedSum(STypedData dst, STypedData src, uint32_t count);

// data[i] = data[i] / d, where d is the divisor converted once to the element type: a divisor of 2.5 divides integers
// by 2. Integers truncate toward zero; the lowest int32 or int64 divided by -1 wraps to itself. That d is not 0 for
// integers is the caller's duty: nothing tests it, and the processor traps. Floats are truly divided. `char` counts as
// signed.
QV_API void TypedDiv(STypedData data, char divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, uint8_t divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, int16_t divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, uint16_t divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, int32_t divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, uint32_t divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, int64_t divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, float divisor, uint32_t count);
QV_API void TypedDiv(STypedData data, double divisor, uint32_t count);

/// dst[i] = |b[i] - a[i]|, converted to dst's type by the element rule.
///
/// The difference is taken in the language's arithmetic type of the pair (int32 for narrow integers; wrapping for
/// int32, uint32 and int64; float or double as soon as one operand is), then its absolute value as a double.
QV_API void TypedSpan(STypedData dst, STypedData a, STypedData b, uint32_t count);

namespace Private {
/// The name of the kernel table in use. The environment variable QV_KERNELS, read once, names another one.
QV_API const char* kernelName();
}  // namespace Private

}  // namespace qv
