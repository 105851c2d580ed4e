// What turns frames of counts into values. Part of the region of an instruction set; see loops.h.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

/// The value of a polynomial, lowest power first.
inline Step horner(const Step& x, const double* coefficients, size_t order) {
    Step value = stepOf(0.0);
    for (size_t k = order; k-- > 0;) value = value * x + coefficients[k];
    return value;
}

void hornerLoop(double* values, size_t count, const double* coefficients, size_t order) {
    size_t i = 0;
    for (; i + stepLength <= count; i += stepLength) {
        storeStep(values + i, horner(loadStep(values + i), coefficients, order));
    }
    if (i == count) return;
    Tail tail(values + i, count - i);
    storeStep(tail.values, horner(loadStep(tail.values), coefficients, order));
    std::memcpy(values + i, tail.values, (count - i) * sizeof(double));
}

/// Four counts in one load, four values in one store.
inline void lookUpFour(void* dst, const void* bits, const float* table) {
    const auto four = load<uint64_t>(bits, 0);
    const Vector<float, 4> values = {table[four & 0xFFFF], table[four >> 16 & 0xFFFF], table[four >> 32 & 0xFFFF],
                                     table[four >> 48]};
    storeVector(dst, values);
}

/// The look-up is bound by its loads, one for each count and one more for four. The extremes ride along: hardly any
/// frame has a count outside, and one that has none need not be read again to count them.
template <class T>
void lookUpLoop(void* dst, const void* bits, size_t count, const float* table, int32_t& lowest, int32_t& highest) {
    using V = Vector<T>;
    constexpr size_t lanes = vectorBytes / sizeof(T);
    const auto* counts = static_cast<const unsigned char*>(bits);
    V low = V{} + std::numeric_limits<T>::max();
    V high = V{} + std::numeric_limits<T>::min();
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto* const from = counts + i * sizeof(T);
        const V x = loadVector<V>(from);
        low = x < low ? x : low;
        high = x > high ? x : high;
        for (size_t k = 0; k < lanes; k += 4)
            lookUpFour(static_cast<Loose<float>*>(dst) + i + k, from + k * sizeof(T), table);
    }
    int32_t least = std::numeric_limits<T>::max();
    int32_t most = std::numeric_limits<T>::min();
    for (size_t lane = 0; lane < lanes; ++lane) {
        least = low[lane] < least ? low[lane] : least;
        most = high[lane] > most ? high[lane] : most;
    }
    for (; i < count; ++i) {
        const int32_t x = load<T>(bits, i);
        least = x < least ? x : least;
        most = x > most ? x : most;
        store(dst, i, table[static_cast<uint16_t>(x)]);
    }
    lowest = least;
    highest = most;
}

template <class T>
void countOutsideLoop(const void* counts, size_t count, int32_t low, int32_t high, uint32_t& below, uint32_t& above) {
    uint32_t less = 0;
    uint32_t more = 0;
    for (size_t i = 0; i < count; ++i) {
        const int32_t x = load<T>(counts, i);
        less += x < low ? 1u : 0u;
        more += x > high ? 1u : 0u;
    }
    below += less;
    above += more;
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
