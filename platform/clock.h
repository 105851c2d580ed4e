// What the library needs of the system for the time of day and for spans of time.
#pragma once

#include <cstdint>

namespace qv::platform {

/// Seconds from 1601-01-01 to 1970-01-01, and the ticks of 100 ns in a second.
inline constexpr int64_t secondsTo1970 = 11'644'473'600;
inline constexpr int64_t ticksPerSecond = 10'000'000;

/// Now, in ticks since 1601-01-01 UTC.
uint64_t systemTimeTicks();

/// Seconds that local time is ahead of UTC at an instant, given in seconds since 1970-01-01 UTC.
int32_t localOffsetSeconds(int64_t secondsSince1970);

/// A counter that never goes back and that no change of the time of day moves, and its counts in a second.
int64_t performanceCounter();
int64_t performanceFrequency();

}  // namespace qv::platform
