// MinMax. Part of the region of an instruction set; see loops.h.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

/// The first element that compares equal to zero, whose sign a search in lanes has lost.
template <class T>
T firstZero(const void* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (load<T>(data, i) == T(0)) return load<T>(data, i);
    }
    return T(0);
}

/// Carries running extremes on over more floats, four vectors abreast. A comparison with NaN replaces nothing.
template <class T>
void extendFloats(const void* data, size_t count, T& min, T& max) {
    using V = Vector<T>;
    constexpr size_t lanes = vectorBytes / sizeof(T);
    constexpr size_t abreast = 4;
    const auto* values = static_cast<const T*>(data);
    V low[abreast];
    V high[abreast];
    for (size_t k = 0; k < abreast; ++k) {
        low[k] = V{} + min;
        high[k] = V{} + max;
    }
    size_t i = 0;
    for (; i + abreast * lanes <= count; i += abreast * lanes) {
        for (size_t k = 0; k < abreast; ++k) {
            const V x = loadVector<V>(values + i + k * lanes);
            low[k] = x < low[k] ? x : low[k];
            high[k] = x > high[k] ? x : high[k];
        }
    }
    T lowest = min;
    T highest = max;
    for (size_t k = 0; k < abreast; ++k) {
        for (size_t lane = 0; lane < lanes; ++lane) {
            lowest = low[k][lane] < lowest ? low[k][lane] : lowest;
            highest = high[k][lane] > highest ? high[k][lane] : highest;
        }
    }
    for (; i < count; ++i) {
        const T x = load<T>(values, i);
        lowest = x < lowest ? x : lowest;
        highest = x > highest ? x : highest;
    }
    if (lowest < min) min = lowest == T(0) ? firstZero<T>(data, count) : lowest;
    if (highest > max) max = highest == T(0) ? firstZero<T>(data, count) : highest;
}

template <class T>
void extendIntegers(const void* data, size_t count, T& min, T& max) {
    T low = min;
    T high = max;
    for (size_t i = 0; i < count; ++i) {
        const T x = load<T>(data, i);
        high = x > high ? x : high;
        low = x < low ? x : low;
    }
    min = low;
    max = high;
}

template <class T>
__attribute__((noinline)) void extend(const void* data, size_t count, T& min, T& max) {
    if constexpr (std::is_floating_point_v<T>) {
        extendFloats<T>(data, count, min, max);
    } else {
        extendIntegers<T>(data, count, min, max);
    }
}

/// The extremes of the elements after conversion to T. Where that keeps their order they are looked for before;
/// otherwise blocks are converted that stay in the first-level cache.
template <class T, class S>
void minMaxLoop(const void* data, size_t count, void* min, void* max) {
    if constexpr (keepsOrder<T, S> || std::is_same_v<T, S>) {
        S low = load<S>(data, 0);
        S high = low;
        extend<S>(data, count, low, high);
        store(min, 0, convert<T>(low));
        store(max, 0, convert<T>(high));
    } else {
        constexpr size_t blockLength = 4096 / sizeof(T);
        T block[blockLength];
        T low = convert<T>(load<S>(data, 0));
        T high = low;
        for (size_t done = 0; done < count; done += blockLength) {
            const size_t n = count - done < blockLength ? count - done : blockLength;
            convertElements<T, S>(block, static_cast<const S*>(data) + done, n);
            extend<T>(block, n, low, high);
        }
        store(min, 0, low);
        store(max, 0, high);
    }
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
