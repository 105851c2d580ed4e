#include "platform/memory.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>

namespace qv::platform {

namespace {

/// Adds a signed number of bytes to the soft limit, raising the hard one too where the process may.
void moveLockLimit(bool up, size_t bytes) {
    rlimit limit{};
    if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
    if (!up) {
        limit.rlim_cur = limit.rlim_cur > bytes ? limit.rlim_cur - bytes : 0;
    } else if (limit.rlim_cur > std::numeric_limits<rlim_t>::max() - 1 - bytes) {
        return;
    } else {
        limit.rlim_cur += bytes;
    }
    if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < limit.rlim_cur) limit.rlim_max = limit.rlim_cur;
    (void)setrlimit(RLIMIT_MEMLOCK, &limit);
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

void raiseLockLimit(size_t bytes) { moveLockLimit(true, bytes); }
void lowerLockLimit(size_t bytes) { moveLockLimit(false, bytes); }

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
