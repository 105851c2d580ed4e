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

void lookUpLoop(float* dst, const void* bits, size_t count, const float* table) {
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        // Four counts in one load, four values in one store.
        const auto four = load<uint64_t>(static_cast<const unsigned char*>(bits) + 2 * i, 0);
        const Vector<float, 4> values = {table[four & 0xFFFF], table[four >> 16 & 0xFFFF], table[four >> 32 & 0xFFFF],
                                         table[four >> 48]};
        storeVector(dst + i, values);
    }
    for (; i < count; ++i) dst[i] = table[load<uint16_t>(bits, i)];
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
