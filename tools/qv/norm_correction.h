// The correction of one frame: counts * gain + offset, then the substitutes of bad pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace tool {

/// The substitutes of a frame as a list: only the pixels that have one cost anything.
class Substitution {
public:
    /// @param subs  The index of the pixel to use, for each of `count` pixels; its own where nothing is replaced.
    Substitution(const uint32_t* subs, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            if (subs[i] != i) m_pairs.push_back({static_cast<uint32_t>(i), subs[i]});
        }
    }
    Substitution() = default;

    size_t size() const { return m_pairs.size(); }

    /// Replaces each pixel of the list by its substitute. All are read before any is written, so that a substitute that
    /// is itself in the list gives what it held before. Not for two threads at once.
    template <class T>
    void apply(T* frame) {
        m_values.resize(m_pairs.size() * sizeof(T));
        auto* const values = reinterpret_cast<T*>(m_values.data());
        for (size_t i = 0; i < m_pairs.size(); ++i) values[i] = frame[m_pairs[i].from];
        for (size_t i = 0; i < m_pairs.size(); ++i) frame[m_pairs[i].to] = values[i];
    }

private:
    struct Pair {
        uint32_t to;
        uint32_t from;
    };
    std::vector<Pair> m_pairs;
    std::vector<std::byte> m_values;
};

/// What became of the values of integer frames.
struct Rounded {
    uint64_t below = 0;  ///< Clipped to the type's lowest value.
    uint64_t above = 0;
    uint64_t undefined = 0;  ///< No number: written as 0.
};

/// A corrected value as an element: floats as they are, integers of up to 32 bits rounded to the nearest (halves to
/// even) and held to the type's range. Without branches, so that a loop of it is as wide as the machine.
template <class T>
T asElement(double value, Rounded& rounded) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        static_assert(sizeof(T) <= 4);
        constexpr auto low = static_cast<double>(std::numeric_limits<T>::lowest());
        constexpr auto high = static_cast<double>(std::numeric_limits<T>::max());
        constexpr double roundToWhole = 0x1.8p52;  // a sum with it keeps no fraction
        rounded.below += value < low - 0.5 ? 1u : 0u;
        rounded.above += value >= high + 0.5 ? 1u : 0u;
        rounded.undefined += value == value ? 0u : 1u;
        double held = value == value ? value : 0.0;
        held = held < low ? low : held;
        held = held > high ? high : held;
        using Whole = std::conditional_t<std::is_same_v<T, uint32_t>, int64_t, int32_t>;
        return static_cast<T>(static_cast<Whole>(held + roundToWhole - roundToWhole));
    }
}

/// Corrects `count` pixels. A null table is gain 1 or offset 0.
template <class From, class To>
void correct(const From* counts, To* out, size_t count, const float* gains, const int16_t* offsets, Rounded& rounded) {
    for (size_t i = 0; i < count; ++i) {
        const double gain = gains == nullptr ? 1.0 : static_cast<double>(gains[i]);
        const double offset = offsets == nullptr ? 0.0 : static_cast<double>(offsets[i]);
        out[i] = asElement<To>(static_cast<double>(counts[i]) * gain + offset, rounded);
    }
}

}  // namespace tool
