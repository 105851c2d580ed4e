// The frames of a recording handed to a pool of threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "progress.h"
#include "recording.h"

namespace tool {

/// Calls a worker for every frame of `source`, in any order, with a progress bar. Each thread makes a worker of its own
/// by `make()`, calls it with frame numbers, and hands it to `finish(worker)`, which runs for one worker at a time.
/// The first exception ends the work and is thrown on.
template <class Make, class Finish>
void overFrames(const Recording& source, const std::string& title, Make make, Finish finish) {
    const Layout& layout = source.layout();
    Progress progress(title, layout.frames, layout.frameBytes());
    std::atomic<uint32_t> next{0};
    std::mutex mutex;
    std::exception_ptr failure;

    const auto work = [&] {
        try {
            auto worker = make();
            for (uint32_t frame = next++; frame < layout.frames; frame = next++) {
                worker(frame);
                progress.advance();
            }
            const std::lock_guard lock(mutex);
            finish(worker);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
            next = layout.frames;
        }
    };
    std::vector<std::thread> pool;
    const uint32_t threads = std::clamp(std::thread::hardware_concurrency(), 1u, layout.frames);
    for (uint32_t i = 1; i < threads; ++i) pool.emplace_back(work);
    work();
    for (std::thread& thread : pool) thread.join();
    if (failure) std::rethrow_exception(failure);
}

}  // namespace tool
