// The flag word of CFile::Open, taken apart.
#pragma once

#include <cstdint>

#include "platform/file.h"
#include "qv/file.h"

namespace qv::Private {

inline platform::Disposition dispositionOf(uint32_t flags) {
    if (flags & CFile::openOrCreate) return platform::Disposition::openOrCreate;
    if (flags & CFile::openExisting) return platform::Disposition::openExisting;
    if (flags & CFile::createTruncate) return platform::Disposition::createTruncate;
    if (flags & CFile::createNew) return platform::Disposition::createNew;
    return platform::Disposition::openExisting;
}

/// What others may do meanwhile.
struct Shares {
    bool read, write;
};

inline Shares sharesOf(uint32_t flags) {
    constexpr uint32_t shares = CFile::shareRead | CFile::shareWrite;
    constexpr uint32_t denials = CFile::denyRead | CFile::denyWrite;
    if (flags & shares) return {(flags & CFile::shareRead) != 0, (flags & CFile::shareWrite) != 0};
    if (flags & denials) return {(flags & CFile::denyRead) == 0, (flags & CFile::denyWrite) == 0};
    return {(flags & CFile::accessWrite) == 0, false};
}

/// A file that this call creates is read-only for those that open it later.
inline bool createsReadOnly(uint32_t flags) {
    return (flags & CFile::attributeNormal) == 0 && (flags & CFile::attributeReadOnly) != 0;
}

/// Writes that follow the end of the file, see CFile::append.
inline bool appendsOnly(uint32_t flags) {
    return (flags & CFile::append) != 0 && (flags & CFile::accessWrite) != 0 && (flags & CFile::accessRead) == 0;
}

}  // namespace qv::Private
