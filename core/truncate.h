// Conversion of floating-point values to integers by the hardware's rule, without undefined behaviour.
#pragma once

#include <cstdint>
#include <limits>

namespace qv {

/// Truncation toward zero; NaN and values outside the range give the smallest integer, as the hardware's conversion
/// does.
constexpr int64_t truncateToInt64(double value) {
    return value >= -9223372036854775808.0 && value < 9223372036854775808.0 ? static_cast<int64_t>(value)
                                                                            : std::numeric_limits<int64_t>::min();
}
constexpr int32_t truncateToInt32(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value)
                                                         : std::numeric_limits<int32_t>::min();
}

}  // namespace qv
