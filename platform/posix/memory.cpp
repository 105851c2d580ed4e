#include "platform/memory.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <mutex>

namespace qv::platform {

namespace {

/// What raiseLockLimit has added so far, and the lock of the limit itself.
std::mutex limitMutex;
rlim_t raisedBytes = 0;

bool readLimit(rlimit& limit) { return getrlimit(RLIMIT_MEMLOCK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY; }

/// Sets the soft limit, and the hard one with it where it stands lower and the process may move it.
/// @return the soft limit that is in force afterwards.
rlim_t setSoftLimit(rlimit limit, rlim_t wanted) {
    const rlim_t before = limit.rlim_cur;
    const rlim_t hard = limit.rlim_max;
    limit.rlim_cur = wanted;
    limit.rlim_max = std::max(hard, wanted);
    if (setrlimit(RLIMIT_MEMLOCK, &limit) == 0) return wanted;
    limit.rlim_cur = std::min(hard, wanted);
    limit.rlim_max = hard;
    return setrlimit(RLIMIT_MEMLOCK, &limit) == 0 ? limit.rlim_cur : before;
}

struct ContextComparator {
    int (*compare)(void*, const void*, const void*);
    void* context;
};

int compareWithContext(const void* a, const void* b, void* arg) {
    const auto* comparator = static_cast<const ContextComparator*>(arg);
    return comparator->compare(comparator->context, a, b);
}

}  // namespace

size_t pageSize() {
    static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

uint64_t lockLimit() {
    rlimit limit{};
    return readLimit(limit) ? limit.rlim_cur : ~uint64_t{0};
}

void ensureLockLimit(uint64_t bytes) {
    const std::lock_guard lock(limitMutex);
    rlimit limit{};
    if (!readLimit(limit) || limit.rlim_cur >= bytes) return;
    limit.rlim_cur = std::min<rlim_t>(bytes, limit.rlim_max);
    (void)setrlimit(RLIMIT_MEMLOCK, &limit);
}

void raiseLockLimit(size_t bytes) {
    const std::lock_guard lock(limitMutex);
    rlimit limit{};
    if (!readLimit(limit) || bytes >= std::numeric_limits<rlim_t>::max() - limit.rlim_cur) return;
    raisedBytes += setSoftLimit(limit, limit.rlim_cur + bytes) - limit.rlim_cur;
}

void lowerLockLimit(size_t bytes) {
    const std::lock_guard lock(limitMutex);
    rlimit limit{};
    if (!readLimit(limit)) return;
    const rlim_t down = std::min({rlim_t{bytes}, raisedBytes, limit.rlim_cur});
    raisedBytes -= limit.rlim_cur - setSoftLimit(limit, limit.rlim_cur - down);
}

void* allocPinned(size_t size) {
    if (size == 0) return nullptr;
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address == MAP_FAILED) return nullptr;
    (void)mlock(address, size);
    return address;
}

void freePinned(void* address, size_t size) {
    if (address == nullptr) return;
    (void)munlock(address, size);
    (void)munmap(address, size);
}

void sortWithContext(void* base, size_t count, size_t size, int (*compare)(void*, const void*, const void*),
                     void* context) {
    ContextComparator comparator{compare, context};
    qsort_r(base, count, size, compareWithContext, &comparator);
}

void debugOutput(const char* text) { (void)std::fputs(text, stderr); }

void yieldThread() { (void)sched_yield(); }

}  // namespace qv::platform
