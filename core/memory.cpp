#include "qv/memory.h"

#include <cstdlib>

#include "platform/memory.h"
#include "qv/array.h"

namespace qv {

namespace {
/// Room for pinned memory that is asked for when the library loads: 100 MiB, where the process may have it.
constexpr uint64_t lockedBytesAtLoad = 0x6400000;

[[maybe_unused]] const bool lockLimitRaised = [] {
    platform::ensureLockLimit(lockedBytesAtLoad);
    return true;
}();

constexpr Private::HeapHooks runtimeHeap = {std::malloc, std::realloc, std::free};
constinit Private::HeapHooks heap = runtimeHeap;
}  // namespace

void* Alloc(size_t size) { return std::malloc(size); }
void Free(void* address) { std::free(address); }
void* Realloc(void* address, size_t size) { return std::realloc(address, size); }

// realloc with a size of 0 frees the block on this runtime, so an empty block is asked for as one byte.
void* HeapAlloc(size_t size) { return heap.alloc(size == 0 ? 1 : size); }
void* HeapReAlloc(void* address, size_t size) { return heap.reAlloc(address, size == 0 ? 1 : size); }
void HeapFree(void* address) { heap.free(address); }

void lockAlloc(size_t size) { platform::raiseLockLimit(platform::wholePages(size)); }
void lockFree(size_t size) { platform::lowerLockLimit(platform::wholePages(size)); }
void* virtAlloc(size_t size) { return platform::allocPinned(size); }
void virtFree(void* address, size_t size) { platform::freePinned(address, size); }

namespace Private {

void setHeapHooks(const HeapHooks* hooks) { heap = hooks == nullptr ? runtimeHeap : *hooks; }

void sortRecords(void* base, size_t count, size_t size, int (*compare)(const void*, const void*)) {
    if (count > 1) std::qsort(base, count, size, compare);
}

void sortRecords(void* base, size_t count, size_t size, int (*compare)(void*, const void*, const void*),
                 void* context) {
    if (count > 1) platform::sortWithContext(base, count, size, compare, context);
}

void debugOutput(const char* text) { platform::debugOutput(text); }

}  // namespace Private
}  // namespace qv
