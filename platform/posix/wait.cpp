#include "platform/wait.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <limits>
#include <vector>

#include "platform/posix/retry.h"

namespace qv::platform {

namespace {

/// A descriptor orders memory for the kernel's sake only. These words make the order part of the program: a signal
/// releases the word of its descriptor, a wait acquires it.
std::atomic<uint32_t> orders[256];
std::atomic<uint32_t>& orderOf(WaitHandle handle) { return orders[static_cast<size_t>(handle) % 256]; }
void acquire(WaitHandle handle) { orderOf(handle).fetch_add(0, std::memory_order_acq_rel); }

constexpr int64_t never = std::numeric_limits<int64_t>::max();

/// poll in nanoseconds; the signal mask stays.
int pollUntil(pollfd* entries, size_t count, int64_t deadline) {
    for (;;) {
        timespec left{};
        if (deadline != never) {
            const int64_t nanoseconds = std::max<int64_t>(deadline - monotonicNanoseconds(), 0);
            left = {nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
        }
        const int ready = ppoll(entries, count, deadline == never ? nullptr : &left, nullptr);
        if (ready >= 0 || errno != EINTR) return ready;
    }
}

}  // namespace

WaitHandle createSignal(uint32_t count, bool oneByOne) {
    return eventfd(count, EFD_CLOEXEC | EFD_NONBLOCK | (oneByOne ? EFD_SEMAPHORE : 0));
}

void closeHandle(WaitHandle handle) {
    if (handle != noHandle) (void)close(static_cast<int>(handle));
}

bool raiseSignal(WaitHandle handle, uint32_t count) {
    if (handle == noHandle) return false;
    orderOf(handle).fetch_add(1, std::memory_order_acq_rel);
    const uint64_t added = count;
    const ssize_t written = retried([&] { return write(static_cast<int>(handle), &added, sizeof added); });
    return written == sizeof added || errno == EAGAIN;  // A count at its end is readable all the same.
}

bool takeSignal(WaitHandle handle) {
    uint64_t taken = 0;
    if (retried([&] { return read(static_cast<int>(handle), &taken, sizeof taken); }) != sizeof taken) return false;
    acquire(handle);
    return true;
}

int waitForAny(const WaitHandle* handles, size_t count, uint32_t milliseconds) {
    constexpr size_t few = 16;
    pollfd local[few];
    std::vector<pollfd> many(count > few ? count : 0);
    pollfd* const entries = count > few ? many.data() : local;
    for (size_t i = 0; i < count; ++i) {
        if (handles[i] < 0 || handles[i] > std::numeric_limits<int>::max()) return waitFailed;
        entries[i] = {static_cast<int>(handles[i]), POLLIN, 0};
    }
    const int ready = pollUntil(entries, count, deadlineAfter(milliseconds));
    if (ready <= 0) return ready == 0 ? waitTimedOut : waitFailed;
    for (size_t i = 0; i < count; ++i) {
        if (entries[i].revents & POLLNVAL) return waitFailed;
        if (entries[i].revents == 0) continue;
        acquire(handles[i]);
        return static_cast<int>(i);
    }
    return waitFailed;
}

int64_t monotonicNanoseconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

int64_t deadlineAfter(uint32_t milliseconds) {
    return milliseconds == forever ? never : monotonicNanoseconds() + int64_t{milliseconds} * 1'000'000;
}

uint32_t millisecondsUntil(int64_t deadline) {
    if (deadline == never) return forever;
    const int64_t left = (deadline - monotonicNanoseconds() + 999'999) / 1'000'000;
    return static_cast<uint32_t>(std::clamp<int64_t>(left, 0, forever - 1));
}

}  // namespace qv::platform
