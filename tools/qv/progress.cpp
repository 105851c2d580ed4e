#include "progress.h"

#include <algorithm>
#include <iostream>

#include "command.h"
#include "platform/terminal.h"
#include "text.h"

namespace tool {

Progress::Progress(std::string title, uint64_t total, double bytesPerStep)
    : m_title(std::move(title)),
      m_total(total),
      m_bytesPerStep(bytesPerStep),
      m_shown(!common().quiet && qv::platform::errorIsTerminal()) {}

Progress::~Progress() {
    if (m_drawn) std::cerr << "\r\033[K" << std::flush;
}

void Progress::advance(uint64_t steps) {
    m_done.fetch_add(steps, std::memory_order_relaxed);
    if (!m_shown) return;
    const Clock::time_point now = Clock::now();
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (lock.owns_lock() && now >= m_nextDraw) draw(now);
}

void Progress::draw(Clock::time_point now) {
    constexpr size_t barWidth = 24;
    const uint64_t done = m_done.load(std::memory_order_relaxed);
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const double rate = static_cast<double>(done) / std::max(seconds, 1e-9);
    const double fraction = m_total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(m_total);
    const auto filled = static_cast<size_t>(fraction * barWidth);
    const double left = rate > 0.0 ? static_cast<double>(m_total - std::min(done, m_total)) / rate : 0.0;
    std::cerr << '\r' << m_title << " [" << std::string(filled, '#') << std::string(barWidth - filled, '.') << "] "
              << done << '/' << m_total << "  "
              << (m_bytesPerStep > 0.0 ? bytes(rate * m_bytesPerStep) + "/s" : fixed(rate, 1) + "/s") << "  "
              << fixed(left, 0) << " s left\033[K" << std::flush;
    m_drawn = true;
    m_nextDraw = now + std::chrono::milliseconds(200);
}

}  // namespace tool
