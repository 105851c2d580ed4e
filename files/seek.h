// Where a seek starts from.
#pragma once

#include <cstdint>

#include "qv/file.h"

namespace qv::Private {

/// The position that an origin stands for in a file that is read at `position` and has `size` bytes. False for an
/// origin that is none: such a seek moves nothing.
inline bool seekBase(uint32_t origin, int64_t position, int64_t size, int64_t& base) {
    switch (origin) {
        case IFile::fromBegin: base = 0; return true;
        case IFile::fromCurrent: base = position; return true;
        case IFile::fromEnd: base = size; return true;
        default: return false;
    }
}

}  // namespace qv::Private
