// Between the system's time and the 100 ns ticks since 1601 that the library counts in.
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/clock.h"

namespace qv::platform {

/// 0 for what lies before 1601.
inline uint64_t ticksOf(const timespec& time) {
    const int64_t seconds = static_cast<int64_t>(time.tv_sec) + secondsTo1970;
    if (seconds < 0) return 0;
    return static_cast<uint64_t>(seconds) * ticksPerSecond + static_cast<uint64_t>(time.tv_nsec) / 100;
}

inline timespec timeOf(uint64_t ticks) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(static_cast<int64_t>(ticks / ticksPerSecond) - secondsTo1970);
    time.tv_nsec = static_cast<long>(ticks % ticksPerSecond * 100);
    return time;
}

}  // namespace qv::platform
