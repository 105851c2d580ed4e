#include "core/text.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/utf_blocks.h"
#include "platform/text.h"

namespace qv::text {

namespace {

#include "core/case_table.inc"

constexpr char32_t replacement = 0xFFFD;

// Runs of ASCII -------------------------------------------------------------------------------------------------------

constexpr size_t blockUnits = 16;
constexpr ptrdiff_t longText = 80;  // worth a call

/// A bit for each of the next 16 units that is not ASCII, the lowest for the first. Where `dst` is given, 16 units are
/// stored there; those in front of the first bit are the right ones.
#if defined(__SSE2__)
inline unsigned copyBlock(const char* src, char16_t* dst) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    if (dst != nullptr) {
        const __m128i zero = _mm_setzero_si128();
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_unpacklo_epi8(bytes, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8), _mm_unpackhi_epi8(bytes, zero));
    }
    return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}
inline unsigned copyBlock(const char16_t* src, char* dst) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8));
    if (dst != nullptr) _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(low, high));
    const __m128i above = _mm_set1_epi16(static_cast<short>(0xFF80)), zero = _mm_setzero_si128();
    const __m128i inside = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(low, above), zero),
                                           _mm_cmpeq_epi16(_mm_and_si128(high, above), zero));
    return static_cast<unsigned>(_mm_movemask_epi8(inside)) ^ 0xFFFF;
}
#else
template <class From, class To>
unsigned copyBlock(const From* src, To* dst) {
    unsigned outside = 0;
    for (unsigned i = 0; i < blockUnits; ++i) {
        outside |= static_cast<unsigned>(static_cast<std::make_unsigned_t<From>>(src[i]) >= 0x80) << i;
        if (dst != nullptr) dst[i] = static_cast<To>(src[i]);
    }
    return outside;
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

/// Where no valid character stands at `at`: the place behind the maximal part of one.
const char* behindMalformed(const char* at, const char* end) {
    const Lead lead = leadOf(static_cast<unsigned char>(*at++));
    unsigned low = lead.low, high = lead.high;
    for (unsigned i = 0; i < lead.follow && at != end; ++i, ++at) {
        const unsigned next = static_cast<unsigned char>(*at);
        if (next < low || next > high) break;
        low = 0x80, high = 0xBF;
    }
    return at;
}

/// Reads the character at `at`, which is not ASCII, and moves `at` behind it.
inline char32_t readCharacter(const char*& at, const char* end) {
    const auto byte = [at](int i) { return static_cast<char32_t>(static_cast<unsigned char>(at[i])); };
    const auto follows = [byte](int i) { return (byte(i) & 0xC0) == 0x80; };
    const ptrdiff_t left = end - at;
    const char32_t lead = byte(0);
    if (lead < 0xE0) {
        if (lead >= 0xC2 && left >= 2 && follows(1)) return at += 2, (lead & 0x1F) << 6 | (byte(1) & 0x3F);
    } else if (lead < 0xF0) {
        if (left >= 3 && follows(1) && follows(2)) {
            const char32_t character = (lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
            if (character >= 0x800 && character - 0xD800 >= 0x800) return at += 3, character;
        }
    } else if (lead < 0xF8 && left >= 4 && follows(1) && follows(2) && follows(3)) {
        const char32_t character =
            (lead & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
        if (character - 0x10000 < 0x100000) return at += 4, character;
    }
    at = behindMalformed(at, end);
    return replacement;
}

inline char32_t readCharacter(const char16_t*& at, const char16_t* end) {
    const char32_t unit = *at++;
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    if (unit > 0xDBFF || at == end || *at < 0xDC00 || *at > 0xDFFF) return replacement;
    return 0x10000 + ((unit - 0xD800) << 10) + (*at++ - 0xDC00u);
}

inline size_t unitsOf(char32_t character, const char*) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}
inline size_t unitsOf(char32_t character, const char16_t*) { return character < 0x10000 ? 1 : 2; }

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

/// A text on its way from one width to the other: measured, or written to `dst` when Write.
template <bool Write, class From, class To>
class Conversion {
public:
    Conversion(std::basic_string_view<From> text, To* dst, size_t room)
        : m_at(text.data()), m_end(text.data() + text.size()), m_dst(dst), m_room(room) {}

    /// The units of the whole text, or noRoom.
    size_t run() {
        while (hasBlock()) {
            if (m_end - m_at >= longText) {
                advanceBlocks();
                if (!hasBlock()) break;
            }
            const unsigned outside = copyBlock(m_at, Write ? m_dst + m_units : nullptr);
            if (outside == 0) {
                advanceAscii(blockUnits);
                continue;
            }
            advanceAscii(static_cast<size_t>(std::countr_zero(outside)));
            do {
                if (!putCharacter(readCharacter(m_at, m_end))) return noRoom;
            } while (m_at != m_end && !isAscii(*m_at));
        }
        while (m_at != m_end) {
            const bool ascii = isAscii(*m_at);
            if (!putCharacter(ascii ? static_cast<char32_t>(*m_at++) : readCharacter(m_at, m_end))) return noRoom;
        }
        return m_units;
    }

private:
    bool hasBlock() const { return static_cast<size_t>(m_end - m_at) >= blockUnits && m_room - m_units >= blockUnits; }
    /// As far as many characters at a time go.
    void advanceBlocks() {
        const Stretch done = convertBlocks(std::basic_string_view<From>(m_at, static_cast<size_t>(m_end - m_at)),
                                           Write ? m_dst + m_units : nullptr, m_room - m_units);
        m_at += done.read, m_units += done.written;
    }
    void advanceAscii(size_t n) { m_at += n, m_units += n; }
    bool putCharacter(char32_t character) {
        constexpr size_t most = 4;
        if (Write && m_room - m_units >= most) {
            m_units = static_cast<size_t>(writeCharacter(character, m_dst + m_units) - m_dst);
            return true;
        }
        const size_t count = unitsOf(character, m_dst);
        if (count > m_room - m_units) return false;
        if constexpr (Write) writeCharacter(character, m_dst + m_units);
        m_units += count;
        return true;
    }

    const From* m_at;
    const From* m_end;
    To* m_dst;
    size_t m_room;
    size_t m_units = 0;
};

// Short ASCII texts are most of all that is converted. The last step goes over what an earlier one did, where the size
// is no multiple of the step.

template <class Ch>
inline bool isAsciiWord(const Ch* at) {
    uint64_t word = 0;
    std::memcpy(&word, at, sizeof(word));
    return (word & (sizeof(Ch) == 1 ? 0x8080808080808080 : 0xFF80FF80FF80FF80)) == 0;
}

template <class Ch>
inline bool isShortAscii(std::basic_string_view<Ch> text) {
    const Ch* const at = text.data();
    const size_t size = text.size(), step = sizeof(uint64_t) / sizeof(Ch);
    if (size >= static_cast<size_t>(longText)) return false;
    if (size < step) return std::all_of(at, at + size, [](Ch unit) { return isAscii(unit); });
    for (size_t i = 0; i < size - step; i += step) {
        if (!isAsciiWord(at + i)) return false;
    }
    return isAsciiWord(at + size - step);
}

template <size_t count, class From, class To>
inline void copyStep(const From* src, To* dst) {
    for (size_t i = 0; i < count; ++i) dst[i] = static_cast<To>(src[i]);
}

template <class From, class To>
inline void copyAscii(std::basic_string_view<From> text, To* dst) {
    constexpr size_t step = 8, half = step / 2;
    const From* const src = text.data();
    const size_t size = text.size();
    if (size >= step) {
        for (size_t i = 0; i < size - step; i += step) copyStep<step>(src + i, dst + i);
        copyStep<step>(src + size - step, dst + size - step);
    } else if (size >= half) {
        copyStep<half>(src, dst);
        copyStep<half>(src + size - half, dst + size - half);
    } else {
        std::copy_n(src, size, dst);
    }
}

template <class From, class To>
inline size_t measured(std::basic_string_view<From> text) {
    return isShortAscii(text) ? text.size() : Conversion<false, From, To>(text, nullptr, noRoom).run();
}

template <class From, class To>
inline size_t converted(std::basic_string_view<From> text, To* dst, size_t room) {
    if (text.size() > room || !isShortAscii(text)) return Conversion<true, From, To>(text, dst, room).run();
    copyAscii(text, dst);
    return text.size();
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

size_t convertedLength(std::string_view utf8) { return measured<char, char16_t>(utf8); }
size_t convertedLength(std::u16string_view utf16) { return measured<char16_t, char>(utf16); }
size_t convert(std::string_view utf8, char16_t* dst, size_t room) { return converted(utf8, dst, room); }
size_t convert(std::u16string_view utf16, char* dst, size_t room) { return converted(utf16, dst, room); }

std::u16string toUtf16(std::string_view utf8) {
    std::u16string text(convertedLength(utf8), u'\0');
    convert(utf8, text.data(), text.size());
    return text;
}

std::string toUtf8(std::u16string_view utf16) {
    std::string text(convertedLength(utf16), '\0');
    convert(utf16, text.data(), text.size());
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

char16_t toLowerOutsideAscii(char16_t ch) { return mapped(ch, lowerIndex); }
char16_t toUpperOutsideAscii(char16_t ch) { return mapped(ch, upperIndex); }

int compareToNul(std::string_view a, std::string_view b) { return compareUnits(a, b, false); }
int compareToNul(std::u16string_view a, std::u16string_view b) { return compareUnits(a, b, false); }
int compareNoCase(std::string_view a, std::string_view b) { return compareUnits(a, b, true); }
int compareNoCase(std::u16string_view a, std::u16string_view b) { return compareUnits(a, b, true); }
int compareNoCase(std::string_view a, std::string_view b, size_t n) {
    return compareUnits(a.substr(0, n), b.substr(0, n), true);
}
int compareNoCase(std::u16string_view a, std::u16string_view b, size_t n) {
    return compareUnits(a.substr(0, n), b.substr(0, n), true);
}

}  // namespace qv::text
