// pow(x, 5.0) for whole axes, with the bits of the runtime's pow.
#pragma once

#include <cstddef>

namespace qv {

/// out[i] = std::pow(x[i], 5.0). Where the processor has fused multiply-add, the power is computed in twice the
/// precision and rounded; the runtime's pow is asked only where the exact value lies so near the middle between two
/// doubles that a function right to 0.55 units in the last place could round either way, or is no normal number.
void fifthPowers(const double* x, double* out, size_t count);

}  // namespace qv
