// Who owns a lock.
#pragma once

#include <atomic>
#include <cstdint>

namespace qv::platform {

/// This thread's number, from 1. Unlike the system's it is not used again when the thread has ended.
inline uint64_t threadNumber() {
    static std::atomic<uint64_t> last{0};
    thread_local uint64_t number = 0;
    if (number == 0) number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return number;
}

}  // namespace qv::platform
