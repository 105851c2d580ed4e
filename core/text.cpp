#include "core/text.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/text.h"

namespace qv::text {

namespace {

#include "core/case_table.inc"

constexpr char32_t replacement = 0xFFFD;

// Runs of ASCII -------------------------------------------------------------------------------------------------------

constexpr size_t blockUnits = 16;

/// The next 16 units, copied to `dst` in its width when all of them are ASCII; `dst` may be null. False, and nothing
/// written, when one is not.
#if defined(__SSE2__)
bool copyAsciiBlock(const char* src, char16_t* dst) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    if (_mm_movemask_epi8(bytes) != 0) return false;
    if (dst == nullptr) return true;
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_unpacklo_epi8(bytes, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8), _mm_unpackhi_epi8(bytes, zero));
    return true;
}
bool copyAsciiBlock(const char16_t* src, char* dst) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8));
    const __m128i outside = _mm_and_si128(_mm_or_si128(low, high), _mm_set1_epi16(static_cast<short>(0xFF80)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(outside, _mm_setzero_si128())) != 0xFFFF) return false;
    if (dst != nullptr) _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(low, high));
    return true;
}
#else
template <class From, class To>
bool copyAsciiBlock(const From* src, To* dst) {
    unsigned any = 0;
    for (size_t i = 0; i < blockUnits; ++i) any |= static_cast<std::make_unsigned_t<From>>(src[i]);
    if (any >= 0x80) return false;
    for (size_t i = 0; dst != nullptr && i < blockUnits; ++i) dst[i] = static_cast<To>(src[i]);
    return true;
}
#endif

// One character -------------------------------------------------------------------------------------------------------

/// What a lead byte says: the count of bytes that follow and the range of the first of them; none for a byte that no
/// character begins with. The ranges keep out overlong forms, surrogates and what lies above U+10FFFF.
struct Lead {
    unsigned follow, low, high;
};
constexpr Lead leadOf(unsigned byte) {
    if (byte >= 0xC2 && byte <= 0xDF) return {1, 0x80, 0xBF};
    if (byte == 0xE0) return {2, 0xA0, 0xBF};
    if (byte == 0xED) return {2, 0x80, 0x9F};
    if (byte >= 0xE1 && byte <= 0xEF) return {2, 0x80, 0xBF};
    if (byte == 0xF0) return {3, 0x90, 0xBF};
    if (byte >= 0xF1 && byte <= 0xF3) return {3, 0x80, 0xBF};
    if (byte == 0xF4) return {3, 0x80, 0x8F};
    return {0, 0, 0};
}

/// Reads the character at `at`, which is not ASCII, and moves `at` behind it, or behind the maximal part of one.
char32_t readCharacter(const char*& at, const char* end) {
    const unsigned byte = static_cast<unsigned char>(*at++);
    const Lead lead = leadOf(byte);
    if (lead.follow == 0) return replacement;
    char32_t character = byte & (0x3Fu >> lead.follow);
    unsigned low = lead.low, high = lead.high;
    for (unsigned i = 0; i < lead.follow; ++i) {
        if (at == end) return replacement;
        const unsigned next = static_cast<unsigned char>(*at);
        if (next < low || next > high) return replacement;
        character = character << 6 | (next & 0x3F);
        low = 0x80, high = 0xBF;
        ++at;
    }
    return character;
}

char32_t readCharacter(const char16_t*& at, const char16_t* end) {
    const char32_t unit = *at++;
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    if (unit > 0xDBFF || at == end || *at < 0xDC00 || *at > 0xDFFF) return replacement;
    return 0x10000 + ((unit - 0xD800) << 10) + (*at++ - 0xDC00u);
}

inline size_t unitsOf(char32_t character, const char*) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}
inline size_t unitsOf(char32_t character, const char16_t*) {
    return character < 0x10000 ? 1 : 2;
}

inline char* writeCharacter(char32_t character, char* dst) {
    const auto put = [&dst](char32_t byte) { *dst++ = static_cast<char>(static_cast<unsigned char>(byte)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6), put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12), put(0x80 | (character >> 6 & 0x3F)), put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | character >> 18), put(0x80 | (character >> 12 & 0x3F));
        put(0x80 | (character >> 6 & 0x3F)), put(0x80 | (character & 0x3F));
    }
    return dst;
}
inline char16_t* writeCharacter(char32_t character, char16_t* dst) {
    if (character < 0x10000) {
        *dst++ = static_cast<char16_t>(character);
    } else {
        *dst++ = static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
        *dst++ = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    }
    return dst;
}

// Whole texts ---------------------------------------------------------------------------------------------------------

template <class From>
inline bool isAscii(From unit) {
    return static_cast<std::make_unsigned_t<From>>(unit) < 0x80;
}

/// Units of `text` in the width To; written to `dst` when Write.
template <bool Write, class From, class To>
size_t run(std::basic_string_view<From> text, To* dst) {
    const From* at = text.data();
    const From* end = at + text.size();
    size_t units = 0;
    while (at != end) {
        if (isAscii(*at)) {
            while (static_cast<size_t>(end - at) >= blockUnits && copyAsciiBlock(at, Write ? dst + units : nullptr)) {
                at += blockUnits, units += blockUnits;
            }
            for (; at != end && isAscii(*at); ++at, ++units) {
                if constexpr (Write) dst[units] = static_cast<To>(*at);
            }
        } else {
            const char32_t character = readCharacter(at, end);
            if constexpr (Write) writeCharacter(character, dst + units);
            units += unitsOf(character, dst);
        }
    }
    return units;
}

template <class Ch>
int compareUnits(std::basic_string_view<Ch> a, std::basic_string_view<Ch> b, bool fold) {
    using Unsigned = std::make_unsigned_t<Ch>;
    for (size_t i = 0;; ++i) {
        Ch x = i < a.size() ? a[i] : Ch(), y = i < b.size() ? b[i] : Ch();
        if (x != y && fold) x = toLower(x), y = toLower(y);
        if (x != y) return static_cast<Unsigned>(x) < static_cast<Unsigned>(y) ? -1 : 1;
        if (x == Ch()) return 0;
    }
}

inline char16_t mapped(char16_t ch, const uint8_t (&index)[0x10000 / caseBlockSize]) {
    return static_cast<char16_t>(ch + caseDifference[index[ch / caseBlockSize] * caseBlockSize + ch % caseBlockSize]);
}

constexpr char32_t asCharacter(char32_t code) {
    return code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF) ? replacement : code;
}

}  // namespace

size_t convertedLength(std::string_view utf8) {
    return run<false>(utf8, static_cast<char16_t*>(nullptr));
}
size_t convertedLength(std::u16string_view utf16) {
    return run<false>(utf16, static_cast<char*>(nullptr));
}
size_t convert(std::string_view utf8, char16_t* dst) {
    return run<true>(utf8, dst);
}
size_t convert(std::u16string_view utf16, char* dst) {
    return run<true>(utf16, dst);
}

std::u16string toUtf16(std::string_view utf8) {
    std::u16string text(convertedLength(utf8), u'\0');
    convert(utf8, text.data());
    return text;
}

std::string toUtf8(std::u16string_view utf16) {
    std::string text(convertedLength(utf16), '\0');
    convert(utf16, text.data());
    return text;
}

size_t encode(char32_t character, char* dst) {
    return static_cast<size_t>(writeCharacter(asCharacter(character), dst) - dst);
}
size_t encode(char32_t character, char16_t* dst) {
    return static_cast<size_t>(writeCharacter(asCharacter(character), dst) - dst);
}

bool decode(unsigned codePage, std::string_view bytes, std::u16string& utf16) {
    if (codePage != codePageUtf8 && codePage != 0) return platform::decodeCodePage(codePage, bytes, utf16);
    utf16 += toUtf16(bytes);
    return true;
}

bool encode(unsigned codePage, std::u16string_view utf16, std::string& bytes) {
    if (codePage != codePageUtf8 && codePage != 0) return platform::encodeCodePage(codePage, utf16, bytes);
    bytes += toUtf8(utf16);
    return true;
}

char16_t toLowerOutsideAscii(char16_t ch) {
    return mapped(ch, lowerIndex);
}
char16_t toUpperOutsideAscii(char16_t ch) {
    return mapped(ch, upperIndex);
}

int compareToNul(std::string_view a, std::string_view b) {
    return compareUnits(a, b, false);
}
int compareToNul(std::u16string_view a, std::u16string_view b) {
    return compareUnits(a, b, false);
}
int compareNoCase(std::string_view a, std::string_view b) {
    return compareUnits(a, b, true);
}
int compareNoCase(std::u16string_view a, std::u16string_view b) {
    return compareUnits(a, b, true);
}
int compareNoCase(std::string_view a, std::string_view b, size_t n) {
    return compareUnits(a.substr(0, n), b.substr(0, n), true);
}
int compareNoCase(std::u16string_view a, std::u16string_view b, size_t n) {
    return compareUnits(a.substr(0, n), b.substr(0, n), true);
}

}  // namespace qv::text
