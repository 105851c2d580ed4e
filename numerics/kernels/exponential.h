// exp(x) and pow(x, 5) of vectors of doubles, without fused multiply-add in their sums, so that every instruction set
// gives the same bits. Part of the region of an instruction set; see loops.h.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

using Doubles = Vector<double>;
constexpr size_t doubleLanes = vectorBytes / sizeof(double);

inline Doubles allOf(double x) { return Doubles{} + x; }

#if QV_VECTOR_BYTES == 64
inline Doubles scaled(Doubles x, Doubles k) { return (Doubles)_mm512_scalef_pd((__m512d)x, (__m512d)k); }
#else
/// 2^k for whole k from -1022 to 1023, which come as the low bits of 1.5 * 2^52 + k.
inline Doubles powerOfTwo(Doubles shifted) { return (Doubles)(((Vector<int64_t>)shifted + 1023) << 52); }

/// x * 2^k with one rounding, for x near 1 and whole k that are at most twice what an exponent holds.
inline Doubles scaled(Doubles x, Doubles k) {
    constexpr double toWhole = 0x1.8p52;
    const Doubles half = k * 0.5 + toWhole;
    const Doubles rest = (k - (half - toWhole)) + toWhole;
    return (x * powerOfTwo(half)) * powerOfTwo(rest);
}
#endif

/// Vectors abreast: each operation is written for all of them before the next one, so that the processor finds work
/// while a long chain of operations waits.
constexpr size_t abreast = 4;
constexpr size_t stepLength = abreast * doubleLanes;
struct Step {
    Doubles v[abreast];
};
#define QV_STEP_OPERATOR(sign)                                                                     \
    inline Step operator sign(const Step& a, const Step& b) {                                      \
        return {{a.v[0] sign b.v[0], a.v[1] sign b.v[1], a.v[2] sign b.v[2], a.v[3] sign b.v[3]}}; \
    }                                                                                              \
    inline Step operator sign(const Step& a, double b) {                                           \
        return {{a.v[0] sign b, a.v[1] sign b, a.v[2] sign b, a.v[3] sign b}};                     \
    }                                                                                              \
    inline Step operator sign(double a, const Step& b) {                                           \
        return {{a sign b.v[0], a sign b.v[1], a sign b.v[2], a sign b.v[3]}};                     \
    }
QV_STEP_OPERATOR(+)
QV_STEP_OPERATOR(-)
QV_STEP_OPERATOR(*)
QV_STEP_OPERATOR(/)
#undef QV_STEP_OPERATOR

inline Step stepOf(double x) { return {{allOf(x), allOf(x), allOf(x), allOf(x)}}; }
inline Step loadStep(const double* values) {
    return {{loadVector<Doubles>(values), loadVector<Doubles>(values + doubleLanes),
             loadVector<Doubles>(values + 2 * doubleLanes), loadVector<Doubles>(values + 3 * doubleLanes)}};
}
inline void storeStep(double* values, const Step& step) {
    for (size_t i = 0; i < abreast; ++i) storeVector(values + i * doubleLanes, step.v[i]);
}

/// To within the bounds; a NaN passes.
inline Doubles bounded(Doubles x, Doubles low, Doubles high) {
    x = high < x ? high : x;
    return low > x ? low : x;
}
inline Step bounded(const Step& x, double low, double high) {
    const Doubles l = allOf(low);
    const Doubles h = allOf(high);
    return {{bounded(x.v[0], l, h), bounded(x.v[1], l, h), bounded(x.v[2], l, h), bounded(x.v[3], l, h)}};
}

/// exp(x), within 1 unit in the last place of the correctly rounded value; subnormal results, zero, infinity and NaN
/// come out as exp has them.
///
/// x = k log 2 + r with |r| <= log(2) / 2, exp(x) = 2^k (1 + r + r^2 q(r)). k log 2 is subtracted in two parts, the
/// first without error (W. Cody, W. Waite, Software Manual for the Elementary Functions, 1980). q is the polynomial of
/// degree 10 through the Chebyshev nodes; it leaves 4e-19.
inline Step exponential(const Step& argument) {
    constexpr double toWhole = 0x1.8p52;
    constexpr double log2High = 0x1.62e42fefa3p-1;  // 41 bits
    constexpr double log2Low = 0x1.3de6af278ece6p-42;
    constexpr double perLog2 = 0x1.71547652b82fep+0;
    // Beyond these the result is infinite or zero anyway.
    const Step x = bounded(argument, -760.0, 720.0);

    const Step k = (x * perLog2 + toWhole) - toWhole;
    const Step r = (x - k * log2High) - k * log2Low;
    const Step r2 = r * r;
    const Step r4 = r2 * r2;
    const Step low = (0.5 + r * 0x1.5555555555557p-3) + (0x1.5555555555556p-5 + r * 0x1.11111111100dcp-7) * r2;
    const Step middle =
        (0x1.6c16c16c162d4p-10 + r * 0x1.a01a01abe7fe1p-13) + (0x1.a01a01a6d889cp-16 + r * 0x1.71de0231960ebp-19) * r2;
    const Step high = (0x1.27e4db646b17ep-22 + r * 0x1.af4de97ca4194p-26) + r2 * 0x1.1f730349868cep-29;
    const Step q = (low + middle * r4) + high * (r4 * r4);
    const Step value = 1.0 + (r + r2 * q);
    return {{scaled(value.v[0], k.v[0]), scaled(value.v[1], k.v[1]), scaled(value.v[2], k.v[2]),
             scaled(value.v[3], k.v[3])}};
}

/// Whether a comparison holds in every lane.
inline bool allTrue(Vector<int64_t> comparison) {
#if QV_VECTOR_BYTES == 64
    return _mm512_movepi64_mask((__m512i)comparison) == 0xFF;
#elif QV_VECTOR_BYTES == 32
    return _mm256_movemask_pd((__m256d)comparison) == 0xF;
#else
    bool all = true;
    for (size_t i = 0; i < doubleLanes; ++i) all &= comparison[i] != 0;
    return all;
#endif
}

/// Whether every lane lies strictly between the bounds.
inline bool allBetween(const Step& x, double low, double high) {
    Vector<int64_t> between = (x.v[0] > low) & (x.v[0] < high);
    for (size_t i = 1; i < abreast; ++i) between &= (x.v[i] > low) & (x.v[i] < high);
    return allTrue(between);
}

/// What rounding took from the product a * b. Exact while nothing under- or overflows, however it is computed.
inline Doubles productError(Doubles a, Doubles b, [[maybe_unused]] Doubles product) {
#if QV_VECTOR_BYTES == 64
    return (Doubles)_mm512_fmsub_pd((__m512d)a, (__m512d)b, (__m512d)product);
#elif QV_VECTOR_BYTES == 32
    return (Doubles)_mm256_fmsub_pd((__m256d)a, (__m256d)b, (__m256d)product);
#else
    return twoProduct(a, b).lo;
#endif
}

inline Step productError(const Step& a, const Step& b, const Step& c) {
    return {{productError(a.v[0], b.v[0], c.v[0]), productError(a.v[1], b.v[1], c.v[1]),
             productError(a.v[2], b.v[2], c.v[2]), productError(a.v[3], b.v[3], c.v[3])}};
}

/// The fifth powers of numbers between these stay normal, and so does what rounding takes on the way.
constexpr double smallestBase = 1e-40;
constexpr double largestBase = 1e60;

/// x^5 for x from smallestBase to largestBase: computed in twice the precision, then rounded.
inline Step fifthPower(const Step& x) {
    const Step square = x * x;
    const Step squareRest = productError(x, x, square);
    const Step fourth = square * square;
    const Step fourthRest = productError(square, square, fourth) + 2.0 * square * squareRest;
    const Step fifth = fourth * x;
    const Step fifthRest = productError(fourth, x, fifth) + fourthRest * x;
    return fifth + fifthRest;
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
