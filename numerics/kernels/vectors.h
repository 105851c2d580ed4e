// Vectors as wide as the instruction set's registers, and the few operations on them for which the language has no
// expression. Part of the region of an instruction set; see loops.h.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

constexpr size_t vectorBytes = QV_VECTOR_BYTES;

template <class T, size_t count>
struct VectorOf {
    typedef T Type __attribute__((vector_size(count * sizeof(T))));
};
template <class T, size_t count = vectorBytes / sizeof(T)>
using Vector = typename VectorOf<T, count>::Type;

template <class V>
inline V loadVector(const void* elements) {
    return static_cast<const Loose<V>*>(elements)->value;
}
template <class V>
inline void storeVector(void* elements, V value) {
    static_cast<Loose<V>*>(elements)->value = value;
}

/// convert<D>(x), by the processor's own instruction where it has one for a single element only: the compiler does not
/// know that the test for what fits and the conversion are one.
template <class D, class S>
inline D converted(S x) {
#if defined(__SSE2__) && QV_VECTOR_BYTES < 64
    if constexpr (std::is_same_v<S, float> && std::is_integral_v<D>) {
        const __m128 loaded = _mm_set_ss(x);
        return static_cast<D>(narrowTruncation<D> ? _mm_cvttss_si32(loaded) : _mm_cvttss_si64(loaded));
    }
    if constexpr (std::is_same_v<S, double> && std::is_integral_v<D>) {
        const __m128d loaded = _mm_set_sd(x);
        return static_cast<D>(narrowTruncation<D> ? _mm_cvttsd_si32(loaded) : _mm_cvttsd_si64(loaded));
    }
#endif
    return convert<D>(x);
}

/// Whether truncate() takes floats to D in vectors.
template <class D, class S>
constexpr bool truncatesVectors = QV_HAS_VECTOR_TRUNCATION&& std::is_floating_point_v<S>&& std::is_integral_v<D> &&
                                  (sizeof(D) < 4 || std::is_same_v<D, int32_t> ||
                                   (QV_VECTOR_BYTES == 64 && std::is_same_v<D, uint32_t>));

#if QV_VECTOR_BYTES == 64

/// How many elements truncate() takes.
template <class D>
constexpr size_t truncatedLanes = 16;

inline __m512i joined(__m256i low, __m256i high) { return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1); }
inline __m512i truncate32(const float* x) { return _mm512_cvttps_epi32(_mm512_loadu_ps(x)); }
inline __m512i truncate32(const double* x) {
    return joined(_mm512_cvttpd_epi32(_mm512_loadu_pd(x)), _mm512_cvttpd_epi32(_mm512_loadu_pd(x + 8)));
}
inline __m256i low32(__m512i x) { return _mm512_cvtepi64_epi32(x); }
inline __m512i truncate64(const float* x) {
    return joined(low32(_mm512_cvttps_epi64(_mm256_loadu_ps(x))), low32(_mm512_cvttps_epi64(_mm256_loadu_ps(x + 8))));
}
inline __m512i truncate64(const double* x) {
    return joined(low32(_mm512_cvttpd_epi64(_mm512_loadu_pd(x))), low32(_mm512_cvttpd_epi64(_mm512_loadu_pd(x + 8))));
}

template <class D, class S>
inline Vector<D, truncatedLanes<D>> truncate(const S* x) {
    using Result = Vector<D, truncatedLanes<D>>;
    if constexpr (sizeof(D) == 1) return (Result)_mm512_cvtepi32_epi8(truncate32(x));
    if constexpr (sizeof(D) == 2) return (Result)_mm512_cvtepi32_epi16(truncate32(x));
    if constexpr (std::is_same_v<D, int32_t>) return (Result)truncate32(x);
    if constexpr (std::is_same_v<D, uint32_t>) return (Result)truncate64(x);
}

/// One vector from an aligned place to an aligned place, past the caches.
inline void streamVector(void* dst, const void* src) {
    _mm512_stream_si512(static_cast<__m512i*>(dst), _mm512_load_si512(src));
}

inline Vector<uint16_t> highProduct(Vector<uint16_t> a, Vector<uint16_t> b) {
    return (Vector<uint16_t>)_mm512_mulhi_epu16((__m512i)a, (__m512i)b);
}
inline Vector<uint16_t> shiftRight(Vector<uint16_t> a, int bits) {
    return (Vector<uint16_t>)_mm512_srl_epi16((__m512i)a, _mm_cvtsi32_si128(bits));
}

#elif QV_VECTOR_BYTES == 32

template <class D>
constexpr size_t truncatedLanes = vectorBytes / sizeof(D);

inline __m256i truncate32(const float* x) { return _mm256_cvttps_epi32(_mm256_loadu_ps(x)); }
inline __m256i truncate32(const double* x) {
    return _mm256_setr_m128i(_mm256_cvttpd_epi32(_mm256_loadu_pd(x)), _mm256_cvttpd_epi32(_mm256_loadu_pd(x + 4)));
}

/// The low bits of 32-bit elements, packed: the packing instructions saturate, and work on each half by itself.
template <class S>
inline __m256i packed16(const S* x, __m256i mask) {
    return _mm256_packus_epi32(_mm256_and_si256(truncate32(x), mask), _mm256_and_si256(truncate32(x + 8), mask));
}

template <class D, class S>
inline Vector<D> truncate(const S* x) {
    if constexpr (sizeof(D) == 1) {
        const __m256i mask = _mm256_set1_epi32(0xFF);
        const __m256i bytes = _mm256_packus_epi16(packed16(x, mask), packed16(x + 16, mask));
        return (Vector<D>)_mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    }
    if constexpr (sizeof(D) == 2) {
        return (Vector<D>)_mm256_permute4x64_epi64(packed16(x, _mm256_set1_epi32(0xFFFF)), 0xD8);
    }
    if constexpr (sizeof(D) == 4) return (Vector<D>)truncate32(x);
}

inline void streamVector(void* dst, const void* src) {
    _mm256_stream_si256(static_cast<__m256i*>(dst), _mm256_load_si256(static_cast<const __m256i*>(src)));
}

inline Vector<uint16_t> highProduct(Vector<uint16_t> a, Vector<uint16_t> b) {
    return (Vector<uint16_t>)_mm256_mulhi_epu16((__m256i)a, (__m256i)b);
}
inline Vector<uint16_t> shiftRight(Vector<uint16_t> a, int bits) {
    return (Vector<uint16_t>)_mm256_srl_epi16((__m256i)a, _mm_cvtsi32_si128(bits));
}

#elif defined(__SSE2__)

template <class D>
constexpr size_t truncatedLanes = vectorBytes / sizeof(D);

inline __m128i truncate32(const float* x) { return _mm_cvttps_epi32(_mm_loadu_ps(x)); }
inline __m128i truncate32(const double* x) {
    return _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_loadu_pd(x)), _mm_cvttpd_epi32(_mm_loadu_pd(x + 2)));
}

/// The low 16 bits of 32-bit elements. The packing instruction saturates, so they are spread with their sign first.
inline __m128i lowHalf(__m128i x) { return _mm_srai_epi32(_mm_slli_epi32(x, 16), 16); }
template <class S>
inline __m128i packed16(const S* x) {
    return _mm_packs_epi32(lowHalf(truncate32(x)), lowHalf(truncate32(x + 4)));
}

template <class D, class S>
inline Vector<D> truncate(const S* x) {
    if constexpr (sizeof(D) == 1) {
        const __m128i mask = _mm_set1_epi16(0xFF);
        return (Vector<D>)_mm_packus_epi16(_mm_and_si128(packed16(x), mask), _mm_and_si128(packed16(x + 8), mask));
    }
    if constexpr (sizeof(D) == 2) return (Vector<D>)packed16(x);
    if constexpr (sizeof(D) == 4) return (Vector<D>)truncate32(x);
}

inline void streamVector(void* dst, const void* src) {
    _mm_stream_si128(static_cast<__m128i*>(dst), _mm_load_si128(static_cast<const __m128i*>(src)));
}

inline Vector<uint16_t> highProduct(Vector<uint16_t> a, Vector<uint16_t> b) {
    return (Vector<uint16_t>)_mm_mulhi_epu16((__m128i)a, (__m128i)b);
}
inline Vector<uint16_t> shiftRight(Vector<uint16_t> a, int bits) {
    return (Vector<uint16_t>)_mm_srl_epi16((__m128i)a, _mm_cvtsi32_si128(bits));
}

#else

template <class D>
constexpr size_t truncatedLanes = vectorBytes / sizeof(D);
template <class D, class S>
Vector<D> truncate(const S* x);  // never called

inline void streamVector(void* dst, const void* src) { std::memcpy(dst, src, vectorBytes); }

inline Vector<uint16_t> highProduct(Vector<uint16_t> a, Vector<uint16_t> b) {
    for (size_t i = 0; i < vectorBytes / 2; ++i) a[i] = static_cast<uint16_t>(uint32_t{a[i]} * b[i] >> 16);
    return a;
}
inline Vector<uint16_t> shiftRight(Vector<uint16_t> a, int bits) { return a >> static_cast<uint16_t>(bits); }

#endif

inline void endStream() {
#if defined(__SSE2__)
    _mm_sfence();
#endif
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
