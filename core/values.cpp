#include "qv/values.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <type_traits>

#include "core/text.h"

namespace qv {

namespace {

std::u16string_view trimmed(std::u16string_view text) {
    while (!text.empty() && text::isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && text::isSpace(text.back())) text.remove_suffix(1);
    return text;
}

template <class Number>
CString shortest(Number value) {
    char digits[32];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    return CString(std::string_view(digits, static_cast<size_t>(result.ptr - digits)));
}

// What sets the types apart: the bits behind a value, its text, and the reading of a beginning of a text.

template <class T>
struct Traits {
    using Bits = std::make_unsigned_t<T>;
    static CString toString(T value) { return shortest(value); }
    static CString toStringExact(T value) { return shortest(value); }
    static text::NumberRead<T> read(std::u16string_view text) { return text::readNumber<T>(text); }
};

template <>
struct Traits<bool> {
    using Bits = uint8_t;
    static CString toString(bool value) { return CString(value ? u"true" : u"false"); }
    static CString toStringExact(bool value) { return toString(value); }
    static text::NumberRead<bool> read(std::u16string_view text) {
        const std::u16string_view word = trimmed(text);
        for (const std::u16string_view yes : {u"true", u"yes", u"on"}) {
            if (text::compareNoCase(word, yes) == 0) return {true, text.size()};
        }
        for (const std::u16string_view no : {u"false", u"no", u"off"}) {
            if (text::compareNoCase(word, no) == 0) return {false, text.size()};
        }
        // A number too small to be told from 0 is still not 0.
        const text::NumberRead<double> number = text::readNumber<double>(text);
        return {number.value != 0 || !number.inRange, number.used};
    }
};

template <class Real>
struct RealTraits {
    using Bits = std::conditional_t<sizeof(Real) == 4, uint32_t, uint64_t>;
    static CString toString(Real value) { return CString::FromDouble(static_cast<double>(value)); }
    static CString toStringExact(Real value) {
        if (!std::isnan(value)) return shortest(value);
        constexpr Bits mantissa = (Bits{1} << (std::numeric_limits<Real>::digits - 1)) - 1;
        constexpr Bits plain = std::bit_cast<Bits>(std::numeric_limits<Real>::quiet_NaN()) & mantissa;
        const Bits payload = std::bit_cast<Bits>(value) & mantissa;
        const char16_t* sign = std::signbit(value) ? u"-" : u"";
        if (payload == plain) return sign + CString(u"nan");
        return CString::FromFormat(u"%snan(0x%I64x)", sign, uint64_t{payload});
    }
    static text::NumberRead<Real> read(std::u16string_view text) { return text::readNumber<Real>(text); }
};
template <>
struct Traits<float> : RealTraits<float> {};
template <>
struct Traits<double> : RealTraits<double> {};

}  // namespace

template <class T>
CString TValueText<T>::ToString(T value) {
    return Traits<T>::toString(value);
}

template <class T>
CString TValueText<T>::ToStringExact(T value) {
    return Traits<T>::toStringExact(value);
}

template <class T>
CString TValueText<T>::ToStringHex(T value) {
    constexpr size_t digits = 2 * sizeof(T);
    char text[digits];
    uint64_t bits = std::bit_cast<typename Traits<T>::Bits>(value);
    for (size_t i = digits; i-- > 0; bits >>= 4) text[i] = "0123456789ABCDEF"[bits & 15];
    return CString(std::string_view(text, digits));
}

template <class T>
T TValueText<T>::Parse(CString::Text text) {
    return Traits<T>::read(text.all()).value;
}

template <class T>
EParse TValueText<T>::Parse(CString::Text text, T& value) {
    const std::u16string_view whole = trimmed(text.all());
    const text::NumberRead<T> read = Traits<T>::read(whole);
    if (read.used == 0 || read.used != whole.size()) return EParse::syntax;
    value = read.value;
    return read.inRange ? EParse::ok : EParse::range;
}

template <class T>
EParse TValueText<T>::ParseHex(CString::Text text, T& value) {
    std::u16string_view digits = trimmed(text.all());
    if (digits.starts_with(u"0x") || digits.starts_with(u"0X")) digits.remove_prefix(2);
    if (digits.empty()) return EParse::syntax;
    constexpr uint64_t most = std::is_same_v<T, bool> ? 1 : std::numeric_limits<typename Traits<T>::Bits>::max();
    uint64_t bits = 0;
    bool inRange = true;
    for (const char16_t ch : digits) {
        const unsigned digit = text::hexDigit(ch);
        if (digit > 15) return EParse::syntax;
        inRange = inRange && bits <= most >> 4;
        bits = bits << 4 | digit;
    }
    if (!inRange || bits > most) return EParse::range;
    value = std::bit_cast<T>(static_cast<typename Traits<T>::Bits>(bits));
    return EParse::ok;
}

template class TValueText<bool>;
template class TValueText<int8_t>;
template class TValueText<uint8_t>;
template class TValueText<int16_t>;
template class TValueText<uint16_t>;
template class TValueText<int32_t>;
template class TValueText<uint32_t>;
template class TValueText<int64_t>;
template class TValueText<uint64_t>;
template class TValueText<float>;
template class TValueText<double>;

}  // namespace qv
