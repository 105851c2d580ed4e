// A progress bar for work that takes longer than a second, on a terminal only.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace tool {

/// Shows done/total, rate and time left on standard error. advance() may be called from any thread.
class Progress {
public:
    /// @param bytesPerStep  For the rate; 0 shows steps per second instead.
    Progress(std::string title, uint64_t total, double bytesPerStep);
    ~Progress();

    void advance(uint64_t steps = 1);

private:
    using Clock = std::chrono::steady_clock;
    void draw(Clock::time_point now);

    const std::string m_title;
    const uint64_t m_total;
    const double m_bytesPerStep;
    const bool m_shown;
    const Clock::time_point m_start = Clock::now();
    std::atomic<uint64_t> m_done{0};
    std::mutex m_mutex;
    Clock::time_point m_nextDraw = m_start + std::chrono::seconds(1);
    bool m_drawn = false;
};

}  // namespace tool
