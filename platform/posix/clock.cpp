#include "platform/clock.h"

#include <ctime>

#include "platform/posix/file_time.h"

namespace qv::platform {

uint64_t systemTimeTicks() {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return ticksOf(now);
}

int64_t performanceCounter() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * performanceFrequency() + now.tv_nsec;
}

int64_t performanceFrequency() { return 1'000'000'000; }

int32_t localOffsetSeconds(int64_t secondsSince1970) {
    const time_t instant = secondsSince1970;
    tm local{};
    if (localtime_r(&instant, &local) == nullptr) return 0;
    return static_cast<int32_t>(local.tm_gmtoff);
}

}  // namespace qv::platform
