// A lane of 128 bits that lies D bits in front of another is congruent to its two halves multiplied by powers of x near
// x^D, taken modulo the polynomial; the products, of less than 128 bits, are added to the other lane. So a block
// shrinks to its last lane. After V. Gopal et al., "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ
// Instruction", 2009.
#include "files/crc_folding.h"

#ifdef __x86_64__

#include <immintrin.h>

#define QV_NARROW __attribute__((target("pclmul,ssse3")))
#define QV_NARROW_PART __attribute__((target("pclmul,ssse3"), always_inline)) inline
#define QV_WIDE __attribute__((target("pclmul,ssse3,avx512f,avx512bw,vpclmulqdq")))
#define QV_WIDE_PART __attribute__((target("pclmul,ssse3,avx512f,avx512bw,vpclmulqdq"), always_inline)) inline

namespace qv::Private::crc {

namespace {

constexpr size_t laneBytes = 16, vectorBytes = 64, accumulators = 4;
constexpr uint32_t bitsPerByte = 8;

/// What the low and the high half of a lane are multiplied by.
struct Factors {
    uint64_t low, high;
};

/// x^power modulo the polynomial of that degree.
constexpr uint64_t powerOfX(uint32_t power, uint32_t polynomial, int degree) {
    uint64_t rest = 1;
    for (; power != 0; --power) {
        rest <<= 1;
        if ((rest >> degree & 1) != 0) rest ^= uint64_t{1} << degree | polynomial;
    }
    return rest;
}

/// CRC-32: the lowest bit of the first byte is the highest power.
struct Reflected32 {
    static constexpr bool swaps = false;
    static constexpr uint64_t factor(uint32_t power) {
        const uint64_t rest = powerOfX(power, 0x04C11DB7, 32);
        uint64_t reflected = 0;
        for (int bit = 0; bit < 32; ++bit) reflected |= (rest >> bit & 1) << (31 - bit);
        return reflected << 1;  // a product of reflected factors comes out one place too low
    }
    static constexpr Factors factors(uint32_t bits) { return {factor(bits + 32), factor(bits - 32)}; }
};
static_assert(Reflected32::factor(544) == 0x154442BD4 && Reflected32::factor(480) == 0x1C6E41596);

/// CRC-16 of 0x1021: the highest bit of the first byte is the highest power.
struct Straight16 {
    static constexpr bool swaps = true;
    static constexpr uint64_t factor(uint32_t power) { return powerOfX(power, 0x1021, 16); }
    static constexpr Factors factors(uint32_t bits) { return {factor(bits), factor(bits + 64)}; }
};

template <class Crc>
QV_NARROW_PART __m128i ordered(__m128i lane) {
    if constexpr (!Crc::swaps) return lane;
    return _mm_shuffle_epi8(lane, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}
template <class Crc>
QV_NARROW_PART __m128i lane(const uint8_t* at) {
    return ordered<Crc>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at)));
}
template <class Crc, size_t distance>
QV_NARROW_PART __m128i fold(__m128i x, __m128i next) {
    constexpr Factors by = Crc::factors(distance * bitsPerByte);
    const __m128i factors = _mm_set_epi64x(static_cast<int64_t>(by.high), static_cast<int64_t>(by.low));
    const __m128i low = _mm_clmulepi64_si128(x, factors, 0x00), high = _mm_clmulepi64_si128(x, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

/// Folds the lanes from `at` to `end` onto x, and gives the last of them.
template <class Crc>
QV_NARROW_PART void finish(__m128i x, const uint8_t* at, const uint8_t* end, uint8_t (&rest)[16]) {
    for (; at != end; at += laneBytes) x = fold<Crc, laneBytes>(x, lane<Crc>(at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rest), ordered<Crc>(x));
}

/// One lane at a time in four places; `size` is a multiple of a lane, and four of them at least.
template <class Crc>
QV_NARROW void foldNarrow(const uint8_t* at, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]) {
    constexpr size_t step = accumulators * laneBytes;
    const uint8_t* const end = at + size;
    __m128i x[accumulators];
    for (size_t i = 0; i < accumulators; ++i) x[i] = lane<Crc>(at + i * laneBytes);
    x[0] = _mm_xor_si128(x[0], lane<Crc>(start));
    for (at += step; static_cast<size_t>(end - at) >= step; at += step) {
        for (size_t i = 0; i < accumulators; ++i) x[i] = fold<Crc, step>(x[i], lane<Crc>(at + i * laneBytes));
    }
    for (size_t i = 1; i < accumulators; ++i) x[i] = fold<Crc, laneBytes>(x[i - 1], x[i]);
    finish<Crc>(x[accumulators - 1], at, end, rest);
}

template <class Crc>
QV_WIDE_PART __m512i ordered(__m512i lanes) {
    if constexpr (!Crc::swaps) return lanes;
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm512_shuffle_epi8(lanes, _mm512_maskz_broadcast_i32x4(0xFFFF, reverse));
}
template <class Crc>
QV_WIDE_PART __m512i lanes(const uint8_t* at) {
    return ordered<Crc>(_mm512_loadu_si512(at));
}
template <class Crc, size_t distance>
QV_WIDE_PART __m512i fold(__m512i x, __m512i next) {
    constexpr Factors by = Crc::factors(distance * bitsPerByte);
    const __m512i factors = _mm512_maskz_broadcast_i32x4(
        0xFFFF, _mm_set_epi64x(static_cast<int64_t>(by.high), static_cast<int64_t>(by.low)));
    constexpr int sumOfThree = 0x96;
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, factors, 0x00),
                                     _mm512_clmulepi64_epi128(x, factors, 0x11), next, sumOfThree);
}

/// Four lanes at a time in four places; `size` is a multiple of a lane, and sixteen of them at least.
template <class Crc>
QV_WIDE void foldWide(const uint8_t* at, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]) {
    constexpr size_t step = accumulators * vectorBytes;
    const uint8_t* const end = at + size;
    __m512i x[accumulators];
    for (size_t i = 0; i < accumulators; ++i) x[i] = lanes<Crc>(at + i * vectorBytes);
    x[0] = _mm512_xor_si512(x[0], _mm512_zextsi128_si512(lane<Crc>(start)));
    for (at += step; static_cast<size_t>(end - at) >= step; at += step) {
        for (size_t i = 0; i < accumulators; ++i) x[i] = fold<Crc, step>(x[i], lanes<Crc>(at + i * vectorBytes));
    }
    for (size_t i = 1; i < accumulators; ++i) x[i] = fold<Crc, vectorBytes>(x[i - 1], x[i]);
    __m512i last = x[accumulators - 1];
    for (; static_cast<size_t>(end - at) >= vectorBytes; at += vectorBytes) {
        last = fold<Crc, vectorBytes>(last, lanes<Crc>(at));
    }
    // The masked forms, of all parts, are free of a compiler's false warning.
    __m128i one = _mm512_maskz_extracti32x4_epi32(0xF, last, 0);
    one = fold<Crc, laneBytes>(one, _mm512_maskz_extracti32x4_epi32(0xF, last, 1));
    one = fold<Crc, laneBytes>(one, _mm512_maskz_extracti32x4_epi32(0xF, last, 2));
    one = fold<Crc, laneBytes>(one, _mm512_maskz_extracti32x4_epi32(0xF, last, 3));
    finish<Crc>(one, at, end, rest);
}

enum class Width { none, narrow, wide };

Width widthOfMachine() {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("pclmul") || !__builtin_cpu_supports("ssse3")) return Width::none;
    const bool wide =
        __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("vpclmulqdq");
    return wide ? Width::wide : Width::narrow;
}
const Width width = widthOfMachine();  // none until the library is loaded

template <class Crc>
size_t foldBlock(const uint8_t* data, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]) {
    const size_t whole = size - size % laneBytes;
    if (width == Width::wide && whole >= accumulators * vectorBytes) {
        foldWide<Crc>(data, whole, start, rest);
    } else if (width != Width::none && whole >= accumulators * laneBytes) {
        foldNarrow<Crc>(data, whole, start, rest);
    } else {
        return 0;
    }
    return whole;
}

}  // namespace

size_t foldReflected32(const uint8_t* data, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]) {
    return foldBlock<Reflected32>(data, size, start, rest);
}
size_t foldStraight16(const uint8_t* data, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]) {
    return foldBlock<Straight16>(data, size, start, rest);
}

}  // namespace qv::Private::crc

#else

namespace qv::Private::crc {
size_t foldReflected32(const uint8_t*, size_t, const uint8_t (&)[16], uint8_t (&)[16]) { return 0; }
size_t foldStraight16(const uint8_t*, size_t, const uint8_t (&)[16], uint8_t (&)[16]) { return 0; }
}  // namespace qv::Private::crc

#endif
