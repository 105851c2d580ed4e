// GUID: the 128-bit identifier as files store it, and CGUID: its text forms and fresh values.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// A 128-bit identifier in its four customary fields. Sixteen bytes without padding.
struct GUID {
    uint32_t Data1 = 0;
    uint16_t Data2 = 0;
    uint16_t Data3 = 0;
    uint8_t Data4[8] = {};

    friend bool operator==(const GUID&, const GUID&) = default;
};
static_assert(sizeof(GUID) == 16);

/// A GUID with its text form, 8-4-4-4-12 hexadecimal digits.
class QV_API CGUID : public GUID {
public:
    /// All zero.
    CGUID() = default;
    CGUID(const GUID& value) : GUID(value) {}

    /// A fresh random identifier (version 4, variant 1 of RFC 9562). All zero when the system has no random source.
    static CGUID Create();

    /// Reads the text form, in either case, with or without the braces around it and nothing else.
    /// @return  False, the value left as it was, when the text has any other form.
    bool FromString(const CString& text);

    /// "{01234567-89AB-CDEF-0123-456789ABCDEF}", upper case; without the braces when `braces` is false.
    CString ToString(bool braces = true) const;

    /// True when every bit is 0.
    bool IsNull() const { return *this == GUID{}; }
};

}  // namespace qv
