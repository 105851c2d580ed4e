// Values as text and back, one class for each type: CBool, CInt8 to CUInt64, CFlt32, CFlt64, CUIntPtr. The text is the
// same in every locale.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// What became of a text that was to be a value.
enum class EParse : uint8_t {
    ok,
    syntax,  ///< The text is no value of the kind.
    range    ///< It is one that the type cannot hold.
};

/// The text of a value of type T: bool, an integer of 8 to 64 bits, float or double.
///
/// bool:      "true" or "false" is written; "true", "yes", "on" and "false", "no", "off" in any case are read, and a
///            number, which is true when it is not 0.
/// Integers:  decimal with an optional sign.
/// Reals:     decimal with an optional exponent, a hexadecimal one ("0x1.8p3"), "inf", "infinity", "nan", or
///            "nan(0x...)" with the bits of the mantissa, the quiet bit among them; correctly rounded.
/// Threads:   no state.
template <class T>
class QV_API TValueText {
public:
    using Type = T;

    /// Decimal; reals with six significant digits, as "%g".
    static CString ToString(T value);
    /// The bits of the value, two upper-case digits for each byte, the most significant first and no prefix: int16 -2
    /// is "FFFE", flt32 1 is "3F800000".
    static CString ToStringHex(T value);
    /// The shortest text that Parse reads back to the same bits, those of a NaN and the sign of zero included. For bool
    /// and the integers the same as ToString.
    static CString ToStringExact(T value);

    /// The longest value that the text begins with, after white space; false or 0 when there is none. A number outside
    /// the type's range gives the nearest limit; a real one infinity, or zero where it is too small. A bool takes the
    /// whole text, but for white space around it, or a number at its beginning.
    static T Parse(CString::Text text);
    /// The whole text, but for white space around it.
    /// @param value  Left as it was on EParse::syntax; the nearest limit, as above, on EParse::range.
    static EParse Parse(CString::Text text, T& value);
    /// Reads the digits of ToStringHex, in either case, with or without "0x" in front. Leading zeros may be missing.
    /// @param value  Left as it was on any failure.
    static EParse ParseHex(CString::Text text, T& value);
};

using CBool = TValueText<bool>;
using CInt8 = TValueText<int8_t>;
using CUInt8 = TValueText<uint8_t>;
using CInt16 = TValueText<int16_t>;
using CUInt16 = TValueText<uint16_t>;
using CInt32 = TValueText<int32_t>;
using CUInt32 = TValueText<uint32_t>;
using CInt64 = TValueText<int64_t>;
using CUInt64 = TValueText<uint64_t>;
using CFlt32 = TValueText<float>;
using CFlt64 = TValueText<double>;
/// An address or handle as a number.
using CUIntPtr = TValueText<uintptr_t>;

extern template class QV_API TValueText<bool>;
extern template class QV_API TValueText<int8_t>;
extern template class QV_API TValueText<uint8_t>;
extern template class QV_API TValueText<int16_t>;
extern template class QV_API TValueText<uint16_t>;
extern template class QV_API TValueText<int32_t>;
extern template class QV_API TValueText<uint32_t>;
extern template class QV_API TValueText<int64_t>;
extern template class QV_API TValueText<uint64_t>;
extern template class QV_API TValueText<float>;
extern template class QV_API TValueText<double>;

}  // namespace qv
