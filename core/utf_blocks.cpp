// Several characters are moved by one shuffle of 16 bytes. Which one, tells the pattern of the places where characters
// end (UTF-8), or the pattern of their lengths (UTF-16); the tables are made at compile time.
#include "core/utf_blocks.h"

#include <array>
#include <bit>
#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qv::text {

#if defined(__x86_64__)

namespace {

#define QV_WIDE __attribute__((target("sse4.1,popcnt")))

using Bytes = std::array<uint8_t, 16>;
constexpr uint8_t nothing = 0x80;  ///< A place of a shuffle that gives 0.

QV_WIDE inline __m128i load(const void* from) { return _mm_loadu_si128(static_cast<const __m128i*>(from)); }
QV_WIDE inline void store(void* to, __m128i value) { _mm_storeu_si128(static_cast<__m128i*>(to), value); }
/// Behind the first `n` units of an output, if there is one.
template <bool Write, class T>
inline T* behind(T* dst, size_t n) {
    return Write ? dst + n : dst;
}
QV_WIDE inline bool isAll(__m128i condition) { return _mm_movemask_epi8(condition) == 0xFFFF; }

// UTF-8 to UTF-16 -----------------------------------------------------------------------------------------------------

constexpr size_t stretchBytes = 64;  // whose character ends are found at once
constexpr size_t patternBits = 12;   // of which a step looks at
constexpr size_t readAheadBytes = stretchBytes + 16;

/// What the ends of the characters in the next 12 bytes call for: six characters of up to two bytes, or four of up to
/// three; otherwise one character alone.
struct Step {
    uint8_t shuffle;
    uint8_t bytes;
};
constexpr size_t shortCount = 6, longCount = 4, shortShuffles = 64;
constexpr uint8_t oneAlone = 255;

struct WideningTables {
    std::array<Step, size_t{1} << patternBits> steps{};
    std::array<Bytes, shortShuffles + 81> shuffles{};
};

/// The lengths of the first `count` characters as digits of a number, or -1 where one is longer than `longest`.
constexpr int lengthsOf(unsigned ends, size_t count, int longest, int& bytes) {
    int digits = 0, factor = 1;
    bytes = 0;
    for (size_t i = 0; i < count; ++i) {
        if (ends == 0) return -1;
        const int length = std::countr_zero(ends) + 1;
        if (length > longest) return -1;
        digits += (length - 1) * factor;
        factor *= longest;
        ends >>= length;
        bytes += length;
    }
    return digits;
}

/// Each character's bytes in a lane of its own, the last byte lowest.
constexpr Bytes laneShuffle(int digits, size_t count, int longest) {
    Bytes shuffle{};
    shuffle.fill(nothing);
    const size_t laneBytes = count == shortCount ? 2 : 4;
    uint8_t at = 0;
    for (size_t lane = 0; lane < count; ++lane, digits /= longest) {
        const auto length = static_cast<uint8_t>(digits % longest + 1);
        for (uint8_t i = 0; i < length; ++i) shuffle[lane * laneBytes + i] = static_cast<uint8_t>(at + length - 1 - i);
        at = static_cast<uint8_t>(at + length);
    }
    return shuffle;
}

constexpr WideningTables makeWideningTables() {
    WideningTables made;
    for (unsigned ends = 0; ends < made.steps.size(); ++ends) {
        int bytes = 0;
        Step& step = made.steps[ends];
        if (const int digits = lengthsOf(ends, shortCount, 2, bytes); digits >= 0) {
            step = {static_cast<uint8_t>(digits), static_cast<uint8_t>(bytes)};
        } else if (const int larger = lengthsOf(ends, longCount, 3, bytes); larger >= 0) {
            step = {static_cast<uint8_t>(shortShuffles + static_cast<size_t>(larger)), static_cast<uint8_t>(bytes)};
        } else {
            step = {oneAlone, static_cast<uint8_t>(ends == 0 ? patternBits : size_t(std::countr_zero(ends)) + 1)};
        }
    }
    for (int i = 0; i < 64; ++i) made.shuffles[static_cast<size_t>(i)] = laneShuffle(i, shortCount, 2);
    for (int i = 0; i < 81; ++i) made.shuffles[shortShuffles + static_cast<size_t>(i)] = laneShuffle(i, longCount, 3);
    return made;
}
alignas(64) constexpr WideningTables widening = makeWideningTables();

// 64 bytes at once: of every byte the unit that it would be the last byte of is made, in two halves, and those of the
// last bytes are kept.

#define QV_WIDEST __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vbmi2,bmi,popcnt")))

QV_WIDEST inline __m512i all(unsigned byte) { return _mm512_set1_epi8(static_cast<char>(byte)); }
/// The bytes `n` places in front of each, 0 where there is none.
QV_WIDEST inline __m512i inFront(__m512i bytes, unsigned n) {
    alignas(64) static constexpr auto places = [] {
        std::array<uint8_t, 64> made{};
        for (size_t i = 0; i < made.size(); ++i) made[i] = static_cast<uint8_t>(i);
        return made;
    }();
    const __m512i from = _mm512_sub_epi8(_mm512_load_si512(places.data()), all(n));
    return _mm512_maskz_permutexvar_epi8(~uint64_t{0} << n, from, bytes);
}
QV_WIDEST inline uint64_t areBetween(__m512i bytes, unsigned low, unsigned high) {
    return _mm512_cmple_epu8_mask(_mm512_sub_epi8(bytes, all(low)), all(high - low));
}

/// Where the characters of some length begin among 64 bytes.
struct Leads {
    uint64_t two, three, four;
};

/// How many of the bytes, which begin with a character, are whole characters; 0 where one is malformed.
QV_WIDEST inline unsigned wholeCharacters(__m512i bytes, const Leads& leads) {
    const uint64_t follows = areBetween(bytes, 0x80, 0xBF);
    const uint64_t outside = static_cast<uint64_t>(_mm512_movepi8_mask(bytes));
    const uint64_t wanted =
        (leads.two | leads.three | leads.four) << 1 | (leads.three | leads.four) << 2 | leads.four << 3;
    // Overlong forms, surrogates and what lies above U+10FFFF show in the second byte.
    const uint64_t low = areBetween(bytes, 0x80, 0x9F), lowest = areBetween(bytes, 0x80, 0x8F);
    const auto behind = [bytes](unsigned lead) QV_WIDEST { return _mm512_cmpeq_epu8_mask(bytes, all(lead)) << 1; };
    const uint64_t wrong =
        (behind(0xE0) & low) | (behind(0xED) & ~low) | (behind(0xF0) & lowest) | (behind(0xF4) & ~lowest);
    const uint64_t stray = outside & ~(follows | leads.two | leads.three | leads.four);
    if (((wanted ^ follows) | stray | (wrong & follows)) != 0) return 0;
    if (((leads.two | leads.three | leads.four) >> 63) != 0) return 63;
    if (((leads.three | leads.four) >> 62 & 1) != 0) return 62;
    return (leads.four >> 61 & 1) != 0 ? 61 : 64;
}

/// Half of the units, by their low and high bytes.
template <int half>
QV_WIDEST inline void join(__m512i low, __m512i high, char16_t* dst) {
    const __m512i lows = _mm512_cvtepu8_epi16(_mm512_maskz_extracti64x4_epi64(0xFF, low, half));
    const __m512i highs = _mm512_cvtepu8_epi16(_mm512_maskz_extracti64x4_epi64(0xFF, high, half));
    _mm512_storeu_si512(dst, _mm512_or_si512(lows, _mm512_slli_epi16(highs, 8)));
}

QV_WIDEST inline void widenAscii(__m512i bytes, char16_t* dst) {
    join<0>(bytes, _mm512_setzero_si512(), dst);
    join<1>(bytes, _mm512_setzero_si512(), dst + 32);
}

/// The units of the bytes that are kept.
QV_WIDEST inline void writeUnits(__m512i bytes, const Leads& leads, uint64_t kept, char16_t* dst) {
    const auto outside = static_cast<uint64_t>(_mm512_movepi8_mask(bytes));
    const __m512i second = inFront(bytes, 2), six = all(0x3F);
    const __m512i tail = _mm512_and_si512(bytes, six), middle = _mm512_and_si512(inFront(bytes, 1), six);
    const __m512i quarter = _mm512_and_si512(_mm512_srli_epi16(middle, 2), six);
    __m512i low = _mm512_or_si512(tail, _mm512_and_si512(_mm512_slli_epi16(middle, 6), all(0xC0)));
    low = _mm512_mask_blend_epi8(outside, bytes, low);
    __m512i high = _mm512_maskz_mov_epi8(outside, quarter);
    const __m512i top = _mm512_and_si512(_mm512_slli_epi16(second, 4), all(0xF0));
    high = _mm512_mask_blend_epi8(leads.three << 2, high, _mm512_or_si512(high, top));
    if (leads.four != 0) {
        // D7C0 and the upper bits of the character, which 40 of the C0 takes 10000 from; DC00 and the lower ten.
        const uint64_t thirds = leads.four << 2, lasts = leads.four << 3;
        const __m512i part =
            _mm512_or_si512(_mm512_slli_epi16(middle, 2), _mm512_and_si512(_mm512_srli_epi16(tail, 4), all(3)));
        high = _mm512_mask_mov_epi8(high, lasts, _mm512_or_si512(_mm512_and_si512(quarter, all(3)), all(0xDC)));
        low = _mm512_mask_add_epi8(low, thirds, part, all(0xC0));
        high = _mm512_mask_add_epi8(high, thirds, _mm512_and_si512(second, all(7)), all(0xD7));
        high = _mm512_mask_add_epi8(high, thirds & _mm512_cmpge_epu8_mask(part, all(0x40)), high, all(1));
    }
    low = _mm512_maskz_compress_epi8(kept, low);
    high = _mm512_maskz_compress_epi8(kept, high);
    join<0>(low, high, dst);
    join<1>(low, high, dst + 32);
}

template <bool Write>
QV_WIDEST Stretch widenWhole(std::string_view text, char16_t* dst, size_t room) {
    Stretch done;
    while (text.size() - done.read >= stretchBytes && room - done.written >= stretchBytes) {
        const __m512i bytes = _mm512_loadu_si512(text.data() + done.read);
        const auto outside = static_cast<uint64_t>(_mm512_movepi8_mask(bytes));
        if (outside == 0) {
            if (Write) widenAscii(bytes, dst + done.written);
            done.read += stretchBytes, done.written += stretchBytes;
            continue;
        }
        const Leads leads = {areBetween(bytes, 0xC2, 0xDF), areBetween(bytes, 0xE0, 0xEF),
                             areBetween(bytes, 0xF0, 0xF4)};
        const unsigned whole = wholeCharacters(bytes, leads);
        if (whole == 0) break;
        // A character of four bytes gives a unit with its third one, too.
        const uint64_t lasts = leads.two << 1 | leads.three << 2 | leads.four << 2 | leads.four << 3;
        const uint64_t kept = (~outside | lasts) & ~uint64_t{0} >> (stretchBytes - whole);
        if (Write) writeUnits(bytes, leads, kept, dst + done.written);
        done.read += whole, done.written += static_cast<size_t>(std::popcount(kept));
    }
    return done;
}

// Otherwise by steps of a few characters.

/// 64 bytes of a text: those that are not ASCII, and those that a character ends with as far as the next one tells.
struct Ends {
    uint64_t outside, ends;
};
QV_WIDE inline Ends findEnds(const char* at) {
    Ends found{};
    uint64_t follows = 0;
    const __m128i least = _mm_set1_epi8(static_cast<char>(0xC0));
    for (unsigned i = 0; i < 4; ++i) {
        const __m128i bytes = load(at + size_t{16} * i);
        const auto outside = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        const auto below = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(bytes, least)));
        found.outside |= uint64_t{outside} << 16 * i;
        follows |= uint64_t{below} << 16 * i;
    }
    found.ends = ~follows >> 1;
    return found;
}

/// Six characters; false, with nothing right written, where one of them is malformed.
template <bool Write>
QV_WIDE inline bool widenShort(__m128i bytes, const Bytes& shuffle, char16_t* dst) {
    const __m128i lanes = _mm_shuffle_epi8(bytes, load(shuffle.data()));
    const __m128i two = _mm_sub_epi16(lanes, _mm_set1_epi16(static_cast<short>(0xC280)));
    const __m128i isOne = _mm_cmpeq_epi16(_mm_min_epu16(lanes, _mm_set1_epi16(0x7F)), lanes);
    const __m128i isTwo = _mm_cmpeq_epi16(_mm_min_epu16(two, _mm_set1_epi16(0x1D7F)), two);
    if (Write) {
        store(dst, _mm_or_si128(_mm_and_si128(lanes, _mm_set1_epi16(0x7F)),
                                _mm_srli_epi16(_mm_and_si128(lanes, _mm_set1_epi16(0x1F00)), 2)));
    }
    return isAll(_mm_or_si128(isOne, isTwo));
}

/// Four characters.
template <bool Write>
QV_WIDE inline bool widenLong(__m128i bytes, const Bytes& shuffle, char16_t* dst) {
    const __m128i lanes = _mm_shuffle_epi8(bytes, load(shuffle.data()));
    const auto isBetween = [lanes](int low, int end) QV_WIDE {
        return _mm_and_si128(_mm_cmpgt_epi32(lanes, _mm_set1_epi32(low - 1)),
                             _mm_cmplt_epi32(lanes, _mm_set1_epi32(end)));
    };
    const __m128i low = _mm_and_si128(lanes, _mm_set1_epi32(0x7F));
    const __m128i middle = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x3F00)), 2);
    const __m128i high = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x0F0000)), 4);
    const __m128i characters = _mm_or_si128(_mm_or_si128(low, middle), high);
    const __m128i isSurrogate =
        _mm_cmpeq_epi32(_mm_and_si128(characters, _mm_set1_epi32(0xF800)), _mm_set1_epi32(0xD800));
    const __m128i isThree = _mm_andnot_si128(isSurrogate, isBetween(0xE0A080, 0xF00000));
    if (Write) _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi32(characters, characters));
    return isAll(_mm_or_si128(_mm_or_si128(isBetween(0, 0x80), isBetween(0xC280, 0xE000)), isThree));
}

/// One character of that many bytes; the units of it, 0 where it is malformed.
template <bool Write>
inline size_t widenOne(const char* at, size_t bytes, char16_t* dst) {
    const auto byte = [at](int i) { return static_cast<char32_t>(static_cast<unsigned char>(at[i])); };
    char32_t character = byte(0), least = 0, end = 0x80;
    if (bytes == 2) character = (byte(0) & 0x1F) << 6 | (byte(1) & 0x3F), least = 0x80, end = 0x800;
    if (bytes == 3) {
        character = (byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F), least = 0x800, end = 0x10000;
    }
    if (bytes == 4) {
        character = (byte(0) & 7) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
        least = 0x10000, end = 0x110000;
    }
    constexpr unsigned leads[5][2] = {{}, {0, 0x80}, {0xC2, 0xE0}, {0xE0, 0xF0}, {0xF0, 0xF5}};
    if (bytes > 4 || byte(0) < leads[bytes][0] || byte(0) >= leads[bytes][1] || character < least || character >= end ||
        character - 0xD800 < 0x800) {
        return 0;
    }
    if (character < 0x10000) {
        if (Write) *dst = static_cast<char16_t>(character);
        return 1;
    }
    if (Write) {
        dst[0] = static_cast<char16_t>(0xD7C0 + (character >> 10));
        dst[1] = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    }
    return 2;
}

template <bool Write>
QV_WIDE inline void widenAscii(const char* at, char16_t* dst) {
    if (!Write) return;
    const __m128i bytes = load(at), zero = _mm_setzero_si128();
    store(dst, _mm_unpacklo_epi8(bytes, zero));
    store(dst + 8, _mm_unpackhi_epi8(bytes, zero));
}

/// One step from `at`, by the ends from there on. False where something is malformed.
template <bool Write>
QV_WIDE inline bool widenStep(const char* at, uint64_t ends, char16_t* dst, Stretch& done) {
    const Step step = widening.steps[ends & ((1U << patternBits) - 1)];
    if (step.shuffle < shortShuffles) {
        if (!widenShort<Write>(load(at), widening.shuffles[step.shuffle], dst)) return false;
        done = {step.bytes, shortCount};
    } else if (step.shuffle != oneAlone) {
        if (!widenLong<Write>(load(at), widening.shuffles[step.shuffle], dst)) return false;
        done = {step.bytes, longCount};
    } else {
        done = {step.bytes, widenOne<Write>(at, step.bytes, dst)};
        return done.written != 0;
    }
    return true;
}

template <bool Write>
QV_WIDE Stretch widen(std::string_view text, char16_t* dst, size_t room) {
    Stretch all;
    while (text.size() - all.read >= readAheadBytes && room - all.written >= readAheadBytes) {
        const char* const from = text.data() + all.read;
        const Ends found = findEnds(from);
        if (found.outside == 0) {
            for (size_t i = 0; i < stretchBytes; i += 16)
                widenAscii<Write>(from + i, behind<Write>(dst, all.written + i));
            all.read += stretchBytes, all.written += stretchBytes;
            continue;
        }
        for (size_t at = 0; at < stretchBytes - patternBits;) {
            Stretch done;
            if (at <= stretchBytes - 16 && (found.outside >> at & 0xFFFF) == 0) {
                widenAscii<Write>(from + at, behind<Write>(dst, all.written));
                done = {16, 16};
            } else if (!widenStep<Write>(from + at, found.ends >> at, behind<Write>(dst, all.written), done)) {
                return all;
            }
            at += done.read;
            all.read += done.read, all.written += done.written;
        }
    }
    return all;
}

// UTF-16 to UTF-8 -----------------------------------------------------------------------------------------------------

constexpr size_t groupUnits = 8, asciiUnits = 32;

/// Drops the bytes that a character has not got.
struct Packing {
    Bytes shuffle{};
    uint8_t bytes = 0;
};
using Packings = std::array<Packing, 256>;

/// Eight characters of one or two bytes; a bit for each of one.
constexpr Packings makeShortPackings() {
    Packings made;
    for (unsigned ones = 0; ones < made.size(); ++ones) {
        Packing& packing = made[ones];
        packing.shuffle.fill(nothing);
        for (unsigned lane = 0; lane < 8; ++lane) {
            for (unsigned i = 0; i < ((ones >> lane & 1) != 0 ? 1U : 2U); ++i) {
                packing.shuffle[packing.bytes++] = static_cast<uint8_t>(lane * 2 + i);
            }
        }
    }
    return made;
}

/// Four characters of up to three bytes; a bit for each of one, and for each of up to two.
constexpr Packings makeLongPackings() {
    Packings made;
    for (unsigned lengths = 0; lengths < made.size(); ++lengths) {
        Packing& packing = made[lengths];
        packing.shuffle.fill(nothing);
        for (unsigned lane = 0; lane < 4; ++lane) {
            const unsigned length = (lengths >> lane & 1) != 0 ? 1U : (lengths >> (lane + 4) & 1) != 0 ? 2U : 3U;
            for (unsigned i = 0; i < length; ++i) {
                packing.shuffle[packing.bytes++] = static_cast<uint8_t>(lane * 4 + i);
            }
        }
    }
    return made;
}
alignas(64) constexpr Packings shortPackings = makeShortPackings(), longPackings = makeLongPackings();

template <bool Write>
QV_WIDE inline size_t pack(__m128i lanes, const Packing& packing, char* dst) {
    if (Write) store(dst, _mm_shuffle_epi8(lanes, load(packing.shuffle.data())));
    return packing.bytes;
}

/// Eight units below 0x800.
template <bool Write>
QV_WIDE inline size_t narrowShort(__m128i units, char* dst) {
    const __m128i isOne = _mm_cmplt_epi16(units, _mm_set1_epi16(0x80));
    const __m128i two = _mm_or_si128(
        _mm_or_si128(_mm_srli_epi16(units, 6), _mm_slli_epi16(_mm_and_si128(units, _mm_set1_epi16(0x3F)), 8)),
        _mm_set1_epi16(static_cast<short>(0x80C0)));
    const auto ones = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(isOne, _mm_setzero_si128())));
    return pack<Write>(_mm_blendv_epi8(two, units, isOne), shortPackings[ones & 0xFF], dst);
}

/// Four units in lanes of 32 bits, none of them a surrogate.
template <bool Write>
QV_WIDE inline size_t narrowLong(__m128i units, char* dst) {
    const auto tail = [units](int shift, int to) QV_WIDE {
        return _mm_slli_epi32(_mm_and_si128(_mm_srli_epi32(units, shift), _mm_set1_epi32(0x3F)), to);
    };
    const __m128i isOne = _mm_cmplt_epi32(units, _mm_set1_epi32(0x80));
    const __m128i isShort = _mm_cmplt_epi32(units, _mm_set1_epi32(0x800));
    const __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(units, 6), tail(0, 8)), _mm_set1_epi32(0x80C0));
    const __m128i three = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(units, 12), tail(6, 8)),
                                       _mm_or_si128(tail(0, 16), _mm_set1_epi32(0x8080E0)));
    const __m128i lanes = _mm_blendv_epi8(_mm_blendv_epi8(three, two, isShort), units, isOne);
    const int lengths = _mm_movemask_ps(_mm_castsi128_ps(isOne)) | _mm_movemask_ps(_mm_castsi128_ps(isShort)) << 4;
    return pack<Write>(lanes, longPackings[static_cast<size_t>(lengths)], dst);
}

/// The units in front of a pair of surrogates among eight, and the pair; nothing where it is no pair.
template <bool Write>
QV_WIDE inline Stretch narrowPair(const char16_t* at, unsigned surrogates, __m128i units, char* dst) {
    const auto first = static_cast<size_t>(std::countr_zero(surrogates));
    const char16_t high = at[first], low = at[first + 1];
    if (high > 0xDBFF || low < 0xDC00 || low > 0xDFFF) return {};
    size_t written = 0;
    for (size_t i = 0; i < first; i += 4) {
        // What is not in front of the pair counts as NUL, and is written over.
        const __m128i kept =
            _mm_cmplt_epi32(_mm_add_epi32(_mm_set1_epi32(static_cast<int>(i)), _mm_set_epi32(3, 2, 1, 0)),
                            _mm_set1_epi32(static_cast<int>(first)));
        const __m128i four = _mm_cvtepu16_epi32(i == 0 ? units : _mm_srli_si128(units, 8));
        written += narrowLong<Write>(_mm_and_si128(four, kept), behind<Write>(dst, written));
        if (first - i < 4) written -= 4 - (first - i);
    }
    if (Write) {
        const char32_t character = 0x10000 + ((high - 0xD800U) << 10) + (low - 0xDC00U);
        for (unsigned i = 0; i < 4; ++i) {
            const char32_t bits = character >> (18 - 6 * i);
            dst[written + i] = static_cast<char>(i == 0 ? 0xF0 | bits : 0x80 | (bits & 0x3F));
        }
    }
    return {first + 2, written + 4};
}

/// Eight units, or fewer up to a pair of surrogates.
template <bool Write>
QV_WIDE inline Stretch narrowGroup(const char16_t* at, char* dst) {
    const __m128i units = load(at), none = _mm_setzero_si128();
    if (_mm_testz_si128(units, _mm_set1_epi16(static_cast<short>(0xF800))) != 0) {
        return {groupUnits, narrowShort<Write>(units, dst)};
    }
    const __m128i isSurrogate = _mm_cmpeq_epi16(_mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xF800))),
                                                _mm_set1_epi16(static_cast<short>(0xD800)));
    const auto surrogates = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(isSurrogate, none))) & 0xFF;
    if (surrogates != 0) return narrowPair<Write>(at, surrogates, units, dst);
    const size_t first = narrowLong<Write>(_mm_unpacklo_epi16(units, none), dst);
    return {groupUnits, first + narrowLong<Write>(_mm_unpackhi_epi16(units, none), behind<Write>(dst, first))};
}

QV_WIDE inline bool areAscii(const char16_t* at) {
    const __m128i some = _mm_or_si128(_mm_or_si128(load(at), load(at + 8)), _mm_or_si128(load(at + 16), load(at + 24)));
    return _mm_testz_si128(some, _mm_set1_epi16(static_cast<short>(0xFF80))) != 0;
}

template <bool Write>
QV_WIDE Stretch narrow(std::u16string_view text, char* dst, size_t room) {
    constexpr size_t roomForGroup = 4 * groupUnits + 16;
    static_assert(roomForGroup > asciiUnits);
    Stretch all;
    while (text.size() - all.read > asciiUnits && room - all.written >= roomForGroup) {
        const char16_t* const from = text.data() + all.read;
        if (areAscii(from)) {
            for (size_t i = 0; Write && i < asciiUnits; i += 16) {
                store(dst + all.written + i, _mm_packus_epi16(load(from + i), load(from + i + 8)));
            }
            all.read += asciiUnits, all.written += asciiUnits;
            continue;
        }
        const Stretch done = narrowGroup<Write>(from, behind<Write>(dst, all.written));
        if (done.read == 0) break;
        all.read += done.read, all.written += done.written;
    }
    return all;
}

}  // namespace

static BlockWay findBlockWay() {
    if (__builtin_cpu_supports("sse4.1") == 0 || __builtin_cpu_supports("popcnt") == 0) return BlockWay::none;
    const bool compresses = __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vbmi") != 0 &&
                            __builtin_cpu_supports("avx512vbmi2") != 0;
    return compresses ? BlockWay::compression : BlockWay::shuffles;
}
const BlockWay bestBlockWay = findBlockWay();

Stretch convertBlocks(std::string_view utf8, char16_t* dst, size_t room, BlockWay way) {
    if (way == BlockWay::compression) {
        return dst != nullptr ? widenWhole<true>(utf8, dst, room) : widenWhole<false>(utf8, dst, room);
    }
    if (way == BlockWay::none) return {};
    return dst != nullptr ? widen<true>(utf8, dst, room) : widen<false>(utf8, dst, room);
}
Stretch convertBlocks(std::u16string_view utf16, char* dst, size_t room, BlockWay way) {
    if (way == BlockWay::none) return {};
    return dst != nullptr ? narrow<true>(utf16, dst, room) : narrow<false>(utf16, dst, room);
}

#undef QV_WIDE
#undef QV_WIDEST

#else

const BlockWay bestBlockWay = BlockWay::none;
Stretch convertBlocks(std::string_view, char16_t*, size_t, BlockWay) { return {}; }
Stretch convertBlocks(std::u16string_view, char*, size_t, BlockWay) { return {}; }

#endif

}  // namespace qv::text
