// Values as text and back, one class for each type. The text is the same in every locale.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// The text of a truth value.
class QV_API CBool {
public:
    /// "true" or "false".
    static CString ToString(bool value);
    /// True for "true", "yes" and "on" in any case and for a number other than 0; false for every other text. White
    /// space around the word does not count.
    static bool Parse(const CString& text);
};

/// The text of a signed 32-bit number.
class QV_API CInt32 {
public:
    /// Decimal.
    static CString ToString(int32_t value);
    /// Leading white space and a sign are taken, the number ends at the first character that is no digit; 0 when there
    /// is none.
    static int32_t Parse(const CString& text);
};

/// The text of a 64-bit real number.
class QV_API CFlt64 {
public:
    /// Six significant digits, as "%g".
    static CString ToString(double value);
    /// The shortest text that reads back to the same bits; "inf", "-inf", "nan" for what is no finite number.
    static CString ToStringExact(double value);
    /// The longest number that the text begins with, after white space; 0 when there is none.
    static double Parse(const CString& text);
};

}  // namespace qv
