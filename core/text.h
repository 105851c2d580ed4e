// Text primitives under the string classes: UTF-8 and UTF-16, case, comparison, numbers. The same on every machine and
// in every locale; nothing here allocates except the two functions that return a string.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace qv::text {

// UTF-8 and UTF-16 ----------------------------------------------------------------------------------------------------
// A malformed UTF-8 sequence becomes one U+FFFD for each maximal part that could have begun a character; a lone
// surrogate becomes U+FFFD.

/// More units than there is room for.
inline constexpr size_t noRoom = ~size_t{0};
/// Units that convert() writes.
size_t convertedLength(std::string_view utf8);
size_t convertedLength(std::u16string_view utf16);
/// Converts to `dst`, which holds `room` units; returns the units written, or noRoom when they do not fit: then `dst`
/// holds a part. No terminator is written.
size_t convert(std::string_view utf8, char16_t* dst, size_t room);
size_t convert(std::u16string_view utf16, char* dst, size_t room);

std::u16string toUtf16(std::string_view utf8);
std::string toUtf8(std::u16string_view utf16);

/// Writes one character as UTF-8 to `dst` (room for 4); returns the units written. Not a character: U+FFFD.
size_t encode(char32_t character, char* dst);
/// The same as UTF-16 (room for 2).
size_t encode(char32_t character, char16_t* dst);

/// Windows code pages. 0 stands for UTF-8.
inline constexpr unsigned codePageUtf8 = 65001;
/// False when the code page is unknown. Bytes that it does not define become U+FFFD.
bool decode(unsigned codePage, std::string_view bytes, std::u16string& utf16);
/// False when the code page is unknown. What it cannot express becomes '?'.
bool encode(unsigned codePage, std::u16string_view utf16, std::string& bytes);

// Case ----------------------------------------------------------------------------------------------------------------

/// Simple Unicode case mapping of one unit; surrogates map to themselves.
char16_t toLowerOutsideAscii(char16_t ch);
char16_t toUpperOutsideAscii(char16_t ch);

inline char16_t toLower(char16_t ch) {
    if (ch < 0x80) return ch >= u'A' && ch <= u'Z' ? static_cast<char16_t>(ch + 32) : ch;
    return toLowerOutsideAscii(ch);
}
inline char16_t toUpper(char16_t ch) {
    if (ch < 0x80) return ch >= u'a' && ch <= u'z' ? static_cast<char16_t>(ch - 32) : ch;
    return toUpperOutsideAscii(ch);
}
/// ASCII letters alone: a unit of UTF-8 outside ASCII is no character.
inline char toLower(char ch) { return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch; }
inline char toUpper(char ch) { return ch >= 'a' && ch <= 'z' ? static_cast<char>(ch - 32) : ch; }

/// Blank, \t, \n, \v, \f, \r.
template <class Ch>
constexpr bool isSpace(Ch ch) {
    return ch == Ch(' ') || (ch >= Ch('\t') && ch <= Ch('\r'));
}

/// An ASCII digit, an ASCII letter.
template <class Ch>
constexpr bool isDigit(Ch ch) {
    return ch >= Ch('0') && ch <= Ch('9');
}
template <class Ch>
constexpr bool isLetter(Ch ch) {
    return (ch >= Ch('a') && ch <= Ch('z')) || (ch >= Ch('A') && ch <= Ch('Z'));
}

// Comparison: -1, 0 or 1 by unsigned units. The first NUL ends a text.
// -------------------------------------------------

int compareToNul(std::string_view a, std::string_view b);
int compareToNul(std::u16string_view a, std::u16string_view b);
/// By lower-case units.
int compareNoCase(std::string_view a, std::string_view b);
int compareNoCase(std::u16string_view a, std::u16string_view b);
/// The same over at most `n` units.
int compareNoCase(std::string_view a, std::string_view b, size_t n);
int compareNoCase(std::u16string_view a, std::u16string_view b, size_t n);

// Numbers, in the C locale. Leading white space is skipped, then the longest valid beginning counts; 0 without one.
// ----

/// The number that a text begins with.
template <class Number>
struct NumberRead {
    Number value = 0;
    size_t used = 0;      ///< Units read, white space included; 0 when there is no number.
    bool inRange = true;  ///< False when `value` is only the nearest that the type has.
};

/// Integers of 8 to 64 bits: decimal with an optional sign; what does not fit is held to the nearest limit.
/// float and double: optional sign, then a decimal number with an optional exponent, a hexadecimal one ("0x1.8p3"),
/// "inf", "infinity", "nan" or "nan(...)" in any case. Correctly rounded; out of range gives infinity or zero with the
/// sign. A hexadecimal number in the parenthesis is the bits of the mantissa, the quiet bit among them; any other text
/// there gives the plain NaN.
template <class Number>
NumberRead<Number> readNumber(std::string_view text);
template <class Number>
NumberRead<Number> readNumber(std::u16string_view text);

inline int32_t atol(std::string_view text) { return readNumber<int32_t>(text).value; }
inline int32_t wtol(std::u16string_view text) { return readNumber<int32_t>(text).value; }
inline int64_t atoll(std::string_view text) { return readNumber<int64_t>(text).value; }
inline int64_t wtoll(std::u16string_view text) { return readNumber<int64_t>(text).value; }
/// `used`, where given, receives the units read.
double atof(std::string_view text, size_t* used = nullptr);
double wtof(std::u16string_view text, size_t* used = nullptr);

/// The value of a hexadecimal digit; 16 for any other unit.
template <class Ch>
constexpr unsigned hexDigit(Ch ch) {
    if (isDigit(ch)) return static_cast<unsigned>(ch - Ch('0'));
    const auto letter = static_cast<unsigned>(ch | Ch(0x20)) - 'a';
    return isLetter(ch) && letter < 6 ? letter + 10 : 16;
}

}  // namespace qv::text
