// Raw memory: the runtime's allocator, the process heap of the arrays, and pinned memory.
#pragma once

#include <cstddef>

#include "qv/api.h"

namespace qv {

/// The runtime's malloc, free and realloc, unchanged. A null result means that memory ran out.
QV_API void* Alloc(size_t size);
QV_API void Free(void* address);
QV_API void* Realloc(void* address, size_t size);

/// The process heap: where the buffers of TArray, TSimpleArray and CMemFile come from. A buffer given to an `Attach`
/// or taken from a `Detach` belongs to this heap. All three may be called from any thread.
/// HeapReAlloc keeps the old block when it returns null.
QV_API void* HeapAlloc(size_t size);
QV_API void* HeapReAlloc(void* address, size_t size);
QV_API void HeapFree(void* address);

/// Makes room in the process's limit on locked memory for a region of `size` bytes that the caller is about to pin,
/// and takes the room back. Both count in whole pages, always at least one page more than `size`. They report nothing;
/// where the limit cannot be moved (a soft limit at its hard limit, without privilege) nothing happens, and lockFree
/// takes back no more than lockAlloc could add. When the library loads it raises the soft limit to 100 MiB, or to the
/// hard limit where that is lower.
QV_API void lockAlloc(size_t size);
QV_API void lockFree(size_t size);

/// Page-aligned, zeroed memory that is pinned in RAM when the system allows it; memory that could not be pinned is
/// returned all the same. Null when there is no memory or `size` is 0.
QV_API void* virtAlloc(size_t size);

/// Releases what virtAlloc gave; `size` is the size that was asked for. A null address does nothing.
QV_API void virtFree(void* address, size_t size);

namespace Private {

/// Replaces the process heap's three functions, so that a test can count, fail or guard allocations; null restores the
/// runtime's. To be called while no other thread uses the heap.
struct HeapHooks {
    void* (*alloc)(size_t);
    void* (*reAlloc)(void*, size_t);
    void (*free)(void*);
};
QV_API void setHeapHooks(const HeapHooks* hooks);

}  // namespace Private
}  // namespace qv
