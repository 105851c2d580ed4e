// TypedDiv. Part of the region of an instruction set; see loops.h. Integers are divided by multiplication with a
// reciprocal that makes every quotient exact (T. Granlund, P. Montgomery, Division by invariant integers using
// multiplication, PLDI 1994, figure 4.1); signed ones by their magnitudes, so that the lowest value by -1 wraps.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

template <class U>
struct Wider;
template <>
struct Wider<uint16_t> : std::type_identity<uint32_t> {};
template <>
struct Wider<uint32_t> : std::type_identity<uint64_t> {};
template <>
struct Wider<uint64_t> {
    __extension__ typedef unsigned __int128 type;
};

/// x / d = (h + ((x - h) >> firstShift)) >> secondShift, where h is the upper half of factor * x.
template <class U>
struct Reciprocal {
    using Wide = typename Wider<U>::type;
    static constexpr int bits = 8 * sizeof(U);
    U factor;
    int firstShift;
    int secondShift;

    /// A divisor of zero traps, like the division that this stands for.
    explicit Reciprocal(U d) {
        int log = 0;
        while (log < bits && (Wide(1) << log) < d) ++log;
        factor = static_cast<U>((((Wide(1) << log) - d) << bits) / d + 1);
        firstShift = log < 1 ? log : 1;
        secondShift = log < 1 ? 0 : log - 1;
    }
    U quotient(U x) const {
        const U high = static_cast<U>(Wide(factor) * x >> bits);
        return static_cast<U>((high + (static_cast<U>(x - high) >> firstShift)) >> secondShift);
    }
};

template <class T>
T quotient(const Reciprocal<std::make_unsigned_t<T>>& reciprocal, std::make_unsigned_t<T> divisorSign, T x) {
    using U = std::make_unsigned_t<T>;
    if constexpr (std::is_unsigned_v<T>) {
        return reciprocal.quotient(x);
    } else {
        const U own = x < 0 ? static_cast<U>(-1) : U(0);
        const U sign = own ^ divisorSign;
        const U magnitude = static_cast<U>((static_cast<U>(x) ^ own) - own);
        return static_cast<T>(static_cast<U>((reciprocal.quotient(magnitude) ^ sign) - sign));
    }
}

template <class T>
size_t divideVectors(T* data, const Reciprocal<uint16_t>& reciprocal, uint16_t divisorSign, size_t count) {
    using V = Vector<uint16_t>;
    constexpr size_t lanes = vectorBytes / sizeof(T);
    const V factor = V{} + reciprocal.factor;
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        V x = loadVector<V>(data + i);
        V sign{};
        if constexpr (std::is_signed_v<T>) {
            const V own = (V)((Vector<T>)x < 0);
            sign = own ^ divisorSign;
            x = (x ^ own) - own;
        }
        const V high = highProduct(factor, x);
        const V q = shiftRight(high + shiftRight(x - high, reciprocal.firstShift), reciprocal.secondShift);
        storeVector<V>(data + i, std::is_signed_v<T> ? (q ^ sign) - sign : q);
    }
    return i;
}

template <class T>
void divideIntegers(void* data, T d, size_t count) {
    using U = std::make_unsigned_t<T>;
    const bool negative = d < T(0);
    const auto magnitude = static_cast<U>(negative ? U(0) - static_cast<U>(d) : static_cast<U>(d));
    const auto sign = static_cast<U>(negative ? -1 : 0);
    const Reciprocal<U> reciprocal(magnitude);
    size_t i = 0;
    if constexpr (sizeof(T) == 2) i = divideVectors<T>(static_cast<T*>(data), reciprocal, sign, count);
    for (; i < count; ++i) store(data, i, quotient<T>(reciprocal, sign, load<T>(data, i)));
}

/// Elements of 8 bits are divided as ones of 16, block by block.
template <class T>
void divideBytes(void* data, T d, size_t count) {
    using Wide = std::conditional_t<std::is_signed_v<T>, int16_t, uint16_t>;
    constexpr size_t blockLength = 1024;
    Wide block[blockLength];
    for (size_t done = 0; done < count; done += blockLength) {
        const size_t n = count - done < blockLength ? count - done : blockLength;
        convertElements<Wide, T>(block, static_cast<T*>(data) + done, n);
        divideIntegers<Wide>(block, d, n);
        convertElements<uint8_t, uint16_t>(static_cast<T*>(data) + done, block, n);
    }
}

template <class T>
void divLoop(void* data, const void* divisor, size_t count) {
    if (count == 0) return;
    const T d = load<T>(divisor, 0);
    if constexpr (std::is_floating_point_v<T>) {
        for (size_t i = 0; i < count; ++i) store(data, i, load<T>(data, i) / d);
    } else if constexpr (sizeof(T) == 1) {
        divideBytes<T>(data, d, count);
    } else {
        divideIntegers<T>(data, d, count);
    }
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
