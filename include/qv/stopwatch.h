// CStopwatch: measures spans of time at the resolution of the machine's counter.
#pragma once

#include <cstdint>

#include "qv/api.h"

namespace qv {

/// Adds up the time between Start() and Stop(), on a counter that never goes back and that no change of the clock
/// moves.
///
/// It is stopped, at 0 seconds, after construction. Threads: no locks.
class QV_API CStopwatch {
public:
    CStopwatch();

    /// Goes on from the time that has been added up; nothing when it runs.
    void Start();
    /// Adds the time since the last start; nothing when it is stopped.
    void Stop();
    /// Stops it at 0 seconds.
    void Reset();
    /// Starts it at 0 seconds, whether it runs or not.
    void Restart();

    /// Seconds so far, those since the last start included when it runs.
    double elapsed() const;
    /// The same; when it runs, it then starts anew at 0 seconds, with no time lost between two laps.
    double Lap();
    bool isRunning() const { return m_running; }

private:
    double secondsAt(int64_t now) const;

    int64_t m_ticks = 0;
    int64_t m_start = 0;
    int64_t m_ticksPerSecond;
    bool m_running = false;
};

}  // namespace qv
