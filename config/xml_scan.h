// Finding the byte that ends a name, a value or a text, sixteen bytes at a time where the processor can.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qv::Private {

/// Neighbouring bytes and what is true of each of them. A class of bytes is written once, as a function that takes
/// Lanes and gives Lanes.
#if defined(__SSE2__)
class Lanes {
public:
    static constexpr size_t count = 16;
    explicit Lanes(const char* at) : m_lanes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))) {}
    Lanes is(char ch) const { return Lanes(_mm_cmpeq_epi8(m_lanes, _mm_set1_epi8(ch))); }
    /// From `first` to the byte `more` behind it.
    Lanes isBetween(char first, char more) const {
        const __m128i from = _mm_sub_epi8(m_lanes, _mm_set1_epi8(first));
        return Lanes(_mm_cmpeq_epi8(_mm_min_epu8(from, _mm_set1_epi8(more)), from));
    }
    Lanes operator|(Lanes other) const { return Lanes(_mm_or_si128(m_lanes, other.m_lanes)); }
    /// A bit for each byte, the lowest for the first.
    unsigned bits() const { return static_cast<unsigned>(_mm_movemask_epi8(m_lanes)); }

private:
    explicit Lanes(__m128i lanes) : m_lanes(lanes) {}
    __m128i m_lanes;
};
#else
class Lanes {
public:
    static constexpr size_t count = 1;
    explicit Lanes(const char* at) : m_lane(static_cast<unsigned char>(*at)) {}
    Lanes is(char ch) const { return Lanes(m_lane == static_cast<unsigned char>(ch)); }
    Lanes isBetween(char first, char more) const {
        return Lanes(static_cast<unsigned char>(m_lane - first) <= static_cast<unsigned char>(more));
    }
    Lanes operator|(Lanes other) const { return Lanes(m_lane != 0 || other.m_lane != 0); }
    unsigned bits() const { return m_lane; }

private:
    explicit Lanes(bool lane) : m_lane(lane) {}
    unsigned char m_lane;
};
#endif
constexpr unsigned allLanes = (1U << Lanes::count) - 1;

// Objects and not functions, so that each is a type of its own and scans are made for it.

/// As isspace tells in the C locale.
inline constexpr auto isSpace = [](Lanes bytes) { return bytes.is(' ') | bytes.isBetween('\t', '\r' - '\t'); };
inline constexpr auto endsName = [](Lanes bytes) {
    return isSpace(bytes) | bytes.is('/') | bytes.is('<') | bytes.is('>');
};
inline constexpr auto endsNameOfInstruction = [](Lanes bytes) { return endsName(bytes) | bytes.is('?'); };
inline constexpr auto endsNameOfAttribute = [](Lanes bytes) {
    return isSpace(bytes) | bytes.is('/') | bytes.isBetween('<', '>' - '<');
};
inline constexpr auto endsText = [](Lanes bytes) { return bytes.is('<') | bytes.is('>'); };

/// The first byte from `at` on that is of the class, or NUL. Lanes::count NULs stand behind the text.
/// @param ampersands  Set where there is an '&' in front of it, otherwise left.
template <class Class>
inline const char* findStop(const char* at, Class isStop, bool& ampersands) {
    for (;; at += Lanes::count) {
        const Lanes bytes(at);
        const unsigned stops = (isStop(bytes) | bytes.is('\0')).bits(), references = bytes.is('&').bits();
        ampersands = ampersands || (references & (stops - 1) & ~stops) != 0;
        if (stops != 0) return at + std::countr_zero(stops);
    }
}

/// The first byte from `at` on that is no white space.
inline const char* behindSpace(const char* at) {
    while (true) {
        const unsigned others = ~isSpace(Lanes(at)).bits() & allLanes;
        if (others != 0) return at + std::countr_zero(others);
        at += Lanes::count;
    }
}

}  // namespace qv::Private
