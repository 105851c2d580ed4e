// GUID: the 128-bit identifier as files store it, and CGUID: its text and byte forms and fresh values.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>

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
    /// Field by field, which is the order of the texts and of the bytes in network order.
    friend std::strong_ordering operator<=>(const GUID&, const GUID&) = default;
};
static_assert(sizeof(GUID) == 16);

/// A GUID with its text and byte forms.
class QV_API CGUID : public GUID {
public:
    /// How the text looks. X stands for a hexadecimal digit.
    enum class Form {
        plain,        ///< XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX
        braces,       ///< {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}
        parentheses,  ///< (XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX)
        digits,       ///< XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX
        urn,          ///< urn:uuid:xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx, always in lower case (RFC 9562)
        initializer   ///< {0xXXXXXXXX,0xXXXX,0xXXXX,{0xXX,0xXX,0xXX,0xXX,0xXX,0xXX,0xXX,0xXX}}
    };
    using Bytes = std::array<uint8_t, 16>;

    /// All zero.
    CGUID() = default;
    CGUID(const GUID& value) : GUID(value) {}

    /// A fresh random identifier (version 4, variant 1 of RFC 9562). All zero when the system has no random source.
    static CGUID Create();

    /// Reads any of the forms above, in either case and with nothing before or behind it. In the form of an
    /// initializer white space may stand between the numbers and their punctuation, and leading zeros may be absent.
    /// @return  False, the value left as it was, with a diagnostic, when the text has no such form.
    bool FromString(const CString& text);

    /// Digits in upper case, or in lower case (0x is always lower).
    CString ToString(Form form, bool lowerCase = false) const;
    /// "{01234567-89AB-CDEF-0123-456789ABCDEF}", upper case; without the braces when `braces` is false.
    CString ToString(bool braces = true) const { return ToString(braces ? Form::braces : Form::plain); }

    /// The sixteen bytes as a little-endian machine holds the structure: the first three fields lowest byte first.
    Bytes ToLittleEndian() const;
    static CGUID FromLittleEndian(const Bytes& bytes);
    /// The sixteen bytes in the order of the text's digits: the network order of RFC 9562.
    Bytes ToBigEndian() const;
    static CGUID FromBigEndian(const Bytes& bytes);

    /// True when every bit is 0.
    bool IsNull() const { return *this == GUID{}; }
};

}  // namespace qv

/// Mixes all bits, so that identifiers with equal parts spread as well as random ones.
template <>
struct std::hash<qv::GUID> {
    size_t operator()(const qv::GUID& value) const noexcept {
        const auto halves = std::bit_cast<std::array<uint64_t, 2>>(value);
        uint64_t mixed = halves[0] * 0x9E3779B97F4A7C15u;
        mixed = (mixed ^ mixed >> 32 ^ halves[1]) * 0xD6E8FEB86659FD93u;
        return static_cast<size_t>(mixed ^ mixed >> 32);
    }
};
template <>
struct std::hash<qv::CGUID> : std::hash<qv::GUID> {};
