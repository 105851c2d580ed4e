// What a CDFS container and its files share.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "qv/cd_file_system.h"

namespace qv {

/// Lives as long as the container or one of its files. Under the lock.
struct CCDFileSystem::Session {
    Session(CCDFileSystem* container, std::shared_ptr<std::recursive_mutex> mutex)
        : owner(container), lock(std::move(mutex)) {}

    CCDFileSystem* owner;  ///< Null once the container is closed.
    std::shared_ptr<std::recursive_mutex> lock;
};

/// Where the entries begin, behind "CDFS" and two bytes.
inline constexpr int64_t cdfsTableStart = 6;
inline constexpr uint32_t cdfsMostFiles = 262'144;
inline constexpr int64_t cdfsMostTable = 512 << 20;

}  // namespace qv
