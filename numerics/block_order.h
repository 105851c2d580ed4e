// Whether typed arrays that overlap may be worked on block by block.
#pragma once

#include <cstddef>
#include <functional>

#include "qv/typed_data.h"

namespace qv {

inline unsigned char* elementAt(STypedData data, size_t i) {
    return static_cast<unsigned char*>(data.pointer) + i * DataTypeSize(data.type);
}

/// Whether writing dst[0..i] leaves src[i+1..] alone for every i, so that a whole block may be read before it is
/// written.
inline bool blocksKeepOrder(STypedData dst, STypedData src, size_t count) {
    const std::less<const unsigned char*> before;
    const auto* d = static_cast<const unsigned char*>(dst.pointer);
    const auto* s = static_cast<const unsigned char*>(src.pointer);
    const size_t dstSize = DataTypeSize(dst.type);
    const size_t srcSize = DataTypeSize(src.type);
    const bool disjoint = !before(d, s + count * srcSize) || !before(s, d + count * dstSize);
    return disjoint || (!before(s, d) && dstSize <= srcSize);
}

}  // namespace qv
