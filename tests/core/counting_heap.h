// A process heap for tests that counts blocks and can be told to fail.
#pragma once

#include <cstddef>
#include <cstdlib>

#include "qv/memory.h"

namespace qv_test {

/// While it lives, the process heap is malloc with a count of live blocks; with failAfter(n) the n-th request from then
/// on and all behind it fail.
class CountingHeap {
public:
    CountingHeap() {
        live() = 0;
        left() = never;
        static constexpr qv::Private::HeapHooks hooks = {&alloc, &reAlloc, &release};
        qv::Private::setHeapHooks(&hooks);
    }
    ~CountingHeap() { qv::Private::setHeapHooks(nullptr); }
    CountingHeap(const CountingHeap&) = delete;
    CountingHeap& operator=(const CountingHeap&) = delete;

    static void failAfter(long requests) { left() = requests; }
    static void succeed() { left() = never; }
    static long liveBlocks() { return live(); }

private:
    static constexpr long never = -1;
    static long& live() {
        static long count = 0;
        return count;
    }
    static long& left() {
        static long count = never;
        return count;
    }
    static bool refuses() {
        if (left() == never) return false;
        if (left() == 0) return true;
        --left();
        return false;
    }
    static void* alloc(size_t size) {
        if (refuses()) return nullptr;
        ++live();
        return std::malloc(size);
    }
    static void* reAlloc(void* address, size_t size) { return refuses() ? nullptr : std::realloc(address, size); }
    static void release(void* address) {
        if (address != nullptr) --live();
        std::free(address);
    }
};

}  // namespace qv_test
