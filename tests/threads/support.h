// Helpers for tests of threads and locks.
#pragma once

#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <thread>

namespace qv::test {

/// Far longer than anything takes that works.
inline constexpr uint32_t generous = 60000;

inline bool isReadable(intptr_t handle) {
    pollfd entry{static_cast<int>(handle), POLLIN, 0};
    return poll(&entry, 1, 0) == 1 && (entry.revents & POLLIN) != 0;
}

/// Descriptors that this process has open.
inline ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

/// What `run()` gives on a thread of its own.
template <class Run>
auto elsewhere(Run run) {
    decltype(run()) result{};
    std::thread([&] { result = run(); }).join();
    return result;
}

}  // namespace qv::test
