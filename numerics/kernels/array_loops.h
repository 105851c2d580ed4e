// The array operations of two operands: dst[i] = operation(dst[i], the converted src[i]), and the spans. Part of the
// region of an instruction set; see loops.h. The compiler widens these loops, behind its own test that the arrays do
// not overlap, but for the truncation of floats, which it does not know to be the processor's.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

/// In front of a loop: its elements are independent although dst and src may be one array, which the compiler's own
/// test takes for an overlap.
#ifdef __clang__
#define QV_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define QV_INDEPENDENT _Pragma("GCC ivdep")
#endif

// The operations, on elements and on vectors of them.
struct Keep {
    template <class T>
    static T apply(T, T c) {
        return c;
    }
};
struct Lesser {
    template <class T>
    static T apply(T d, T c) {
        return d < c ? d : c;
    }
};
struct Greater {
    template <class T>
    static T apply(T d, T c) {
        return d > c ? d : c;
    }
};
/// REQUIRES: T is unsigned, a float, or a vector of these: integers wrap.
struct Sum {
    template <class T>
    static T apply(T d, T c) {
        return static_cast<T>(d + c);
    }
};

/// Whether no element of src is read after an ascending loop has written to its place, so that a vector of elements may
/// be read before it is written.
template <class D, class S>
bool readsAhead(const void* dst, const void* src, size_t count) {
    const auto d = reinterpret_cast<uintptr_t>(dst);
    const auto s = reinterpret_cast<uintptr_t>(src);
    return d >= s + count * sizeof(S) || s >= d + count * sizeof(D) || (s >= d && sizeof(D) <= sizeof(S));
}

/// What an operation computes in: integers that may wrap are unsigned.
template <class D, class Operation>
using Computed = typename std::conditional_t<std::is_integral_v<D> && std::is_same_v<Operation, Sum>,
                                             std::make_unsigned<D>, std::type_identity<D>>::type;

/// As many elements as fill vectors; the result says how many.
template <class D, class S, class Operation>
size_t truncateVectors(void* dst, const void* src, size_t count) {
    constexpr size_t lanes = truncatedLanes<D>;
    using V = Vector<Computed<D, Operation>, lanes>;
    if (!readsAhead<D, S>(dst, src, count)) return 0;
    auto* out = static_cast<D*>(dst);
    const auto* in = static_cast<const S*>(src);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        storeVector(out + i, Operation::apply(loadVector<V>(out + i), (V)truncate<D, S>(in + i)));
    }
    return i;
}

template <class D, class S, class Operation>
void binaryLoop(void* dst, const void* src, size_t count) {
    using T = Computed<D, Operation>;
    size_t i = 0;
    if constexpr (truncatesVectors<D, S>) i = truncateVectors<D, S, Operation>(dst, src, count);
    for (; i < count; ++i) {
        store(dst, i, Operation::apply(load<T>(dst, i), static_cast<T>(converted<D>(load<S>(src, i)))));
    }
}

/// Elements that keep their bits are moved as a block, except where an ascending loop would read what it has written.
template <class Bits>
void copyElements(void* dst, const void* src, size_t count) {
    if (!readsAhead<Bits, Bits>(dst, src, count)) {
        binaryLoop<Bits, Bits, Keep>(dst, src, count);
    } else if (count != 0) {
        std::memmove(dst, src, count * sizeof(Bits));
    }
}

template <class D, class S>
void convertElements(void* dst, const void* src, size_t count) {
    if constexpr (keepsBits<D, S>) {
        copyElements<CanonicalTarget<D, S>>(dst, src, count);
    } else {
        binaryLoop<CanonicalTarget<D, S>, CanonicalSource<D, S>, Keep>(dst, src, count);
    }
}

template <class A, class B>
void spanLoop(void* spans, const void* a, const void* b, size_t count) {
    for (size_t i = 0; i < count; ++i) store(spans, i, span(load<A>(a, i), load<B>(b, i)));
}

template <class D>
void convertSpanLoop(void* dst, const void* spans, size_t count) {
    for (size_t i = 0; i < count; ++i) store(dst, i, convertSpan<D>(load<uint32_t>(spans, i)));
}

void streamLoop(void* dst, const void* src, size_t bytes) {
    for (size_t i = 0; i < bytes; i += vectorBytes) {
        streamVector(static_cast<unsigned char*>(dst) + i, static_cast<const unsigned char*>(src) + i);
    }
}

/// y = (x + before) * scale + after, or divided by the scale. The terms that a formula lacks are -0.0 and 1.0, which
/// change no bit.
template <class T, bool divides>
void affineLoop(void* dst, const void* src, size_t count, const AffineTerms& terms) {
    const double before = terms.before;
    const double scale = terms.scale;
    const double after = terms.after;
    auto* out = static_cast<Loose<T>*>(dst);
    const auto* in = static_cast<const Loose<T>*>(src);
    QV_INDEPENDENT
    for (size_t i = 0; i < count; ++i) {
        const double moved = static_cast<double>(in[i].value) + before;
        out[i].value = static_cast<T>((divides ? moved / scale : moved * scale) + after);
    }
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
