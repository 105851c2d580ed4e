// What the library needs of the system for memory, sorting with a context, and debug output.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qv::platform {

/// Bytes of one page.
size_t pageSize();

/// `size` rounded to whole pages, always at least one page above it in count: (size / page + 1) * page.
inline size_t wholePages(size_t size) { return (size / pageSize() + 1) * pageSize(); }

/// The process's limit on locked memory in bytes; all bits set when there is none.
uint64_t lockLimit();

/// Raises the limit to `bytes` where it is lower, as far as the process may without privilege. Nothing is reported.
void ensureLockLimit(uint64_t bytes);

/// Moves the limit by `bytes`, as far as the system lets it. Lowering takes back at most what was raised before, so
/// that a raise that was refused does not shrink the limit. Nothing is reported. May be called from any thread.
void raiseLockLimit(size_t bytes);
void lowerLockLimit(size_t bytes);

/// Zeroed pages, locked in memory when that works; null when there are none.
void* allocPinned(size_t size);
void freePinned(void* address, size_t size);

/// As qsort, with `context` as the comparator's first argument.
void sortWithContext(void* base, size_t count, size_t size, int (*compare)(void*, const void*, const void*),
                     void* context);

/// Shows text to a developer who is watching the process.
void debugOutput(const char* text);

/// Gives up the rest of this thread's time slice.
void yieldThread();

}  // namespace qv::platform
