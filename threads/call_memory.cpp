// Memory for the calls that carry a lambda: blocks of one size, made by the thread that queues and let go by the one
// that runs the call. Each thread keeps a few at hand and exchanges them with the others in groups, so that a call
// costs neither a visit to the heap nor a lock.
#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <new>

#include "qv/invoker.h"

namespace qv {
namespace {

constexpr size_t group = 64;
/// What is kept for all threads together, 1 MiB; more goes back to the heap.
constexpr size_t mostShared = (size_t{1} << 20) / Private::callBlockBytes;
static_assert(mostShared % group == 0);

void* newBlock() { return ::operator new(Private::callBlockBytes); }
void deleteBlock(void* block) { ::operator delete(block); }

struct Shared {
    std::mutex mutex;
    size_t count = 0;
    std::array<void*, mostShared> blocks;
};
constinit Shared shared{};

/// The blocks of one thread. Their addresses stand in an array, not in the blocks: those are in the other thread's
/// cache still, and only written to, which waits for nothing.
class Cache {
public:
    ~Cache() { std::for_each_n(m_blocks.begin(), m_count, deleteBlock); }

    void* take() {
        if (m_count == 0 && !fetchGroup()) return newBlock();
        return m_blocks[--m_count];
    }
    void give(void* block) {
        if (m_count == m_blocks.size()) bringGroup();
        m_blocks[m_count++] = block;
    }

private:
    bool fetchGroup() {
        const std::lock_guard lock(shared.mutex);
        if (shared.count == 0) return false;
        shared.count -= group;
        std::copy_n(shared.blocks.begin() + shared.count, group, m_blocks.begin());
        m_count = group;
        return true;
    }
    void bringGroup() {
        m_count -= group;
        const auto first = m_blocks.begin() + m_count;
        {
            const std::lock_guard lock(shared.mutex);
            if (shared.count != mostShared) {
                std::copy_n(first, group, shared.blocks.begin() + shared.count);
                shared.count += group;
                return;
            }
        }
        std::for_each_n(first, group, deleteBlock);
    }

    size_t m_count = 0;
    std::array<void*, 2 * group> m_blocks;
};

/// Plain words, so that they can be read while the thread's other objects are being destroyed.
thread_local constinit Cache* cacheOfThread = nullptr;
thread_local constinit bool ended = false;

struct CacheHolder {
    std::unique_ptr<Cache> cache{new (std::nothrow) Cache};
    CacheHolder() { cacheOfThread = cache.get(); }
    ~CacheHolder() {
        ended = true;
        cacheOfThread = nullptr;
    }
};

/// Null without memory, and when the thread is about to end.
Cache* openCache() {
    if (ended) return nullptr;
    thread_local const CacheHolder holder;
    return holder.cache.get();
}

inline Cache* cache() {
#if defined(__SANITIZE_ADDRESS__)
    return nullptr;  // A block that is used again would hide the use of a call that is gone.
#endif
    Cache* const made = cacheOfThread;
    return made != nullptr ? made : openCache();
}

}  // namespace

namespace Private {

void* newCallBlock() {
    Cache* const own = cache();
    return own != nullptr ? own->take() : newBlock();
}

void deleteCallBlock(void* block) noexcept {
    if (Cache* const own = cache()) {
        own->give(block);
    } else {
        deleteBlock(block);
    }
}

}  // namespace Private
}  // namespace qv
