#include "qv/stopwatch.h"

#include "platform/clock.h"

namespace qv {

using platform::performanceCounter;

CStopwatch::CStopwatch() : m_ticksPerSecond(platform::performanceFrequency()) {}

void CStopwatch::Start() {
    if (m_running) return;
    m_start = performanceCounter();
    m_running = true;
}

void CStopwatch::Stop() {
    if (!m_running) return;
    m_ticks += performanceCounter() - m_start;
    m_running = false;
}

void CStopwatch::Reset() {
    m_ticks = m_start = 0;
    m_running = false;
}

void CStopwatch::Restart() {
    m_ticks = 0;
    m_start = performanceCounter();
    m_running = true;
}

double CStopwatch::secondsAt(int64_t now) const {
    const int64_t ticks = m_ticks + (m_running ? now - m_start : 0);
    return static_cast<double>(ticks) * (1.0 / static_cast<double>(m_ticksPerSecond));
}

double CStopwatch::elapsed() const { return secondsAt(performanceCounter()); }

double CStopwatch::Lap() {
    const int64_t now = performanceCounter();
    const double seconds = secondsAt(now);
    if (m_running) {
        m_ticks = 0;
        m_start = now;
    }
    return seconds;
}

}  // namespace qv
