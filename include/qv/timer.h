// CTimer: ticks on the thread that started it, while that thread pumps its messages.
#pragma once

#include <atomic>
#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/event.h"

namespace qv {

/// A repeated tick. Ticks come on the thread that called Start, when it pumps (message_loop.h); those that it was too
/// late for are left out. One thread at a time uses the object; on the ticking thread no tick comes after Stop, on
/// another one that is running may still finish. A handler of Ticked must not destroy the timer.
class QV_API CTimer {
public:
    CTimer();
    /// Stops it.
    virtual ~CTimer();
    CTimer(const CTimer&) = delete;
    CTimer& operator=(const CTimer&) = delete;

    /// Stores the interval in milliseconds; a system timer takes 0 for 1. Always true.
    bool Create(uint32_t milliseconds);
    /// True also when it runs already; false when the system has no timer for it.
    bool Start();
    /// Always true.
    bool Stop();
    bool Restart();
    /// Starts a running timer anew with the interval.
    void SetInterval(uint32_t milliseconds);
    uint32_t GetInterval() const { return m_interval; }
    bool getRunning() const { return m_running.load(std::memory_order_relaxed); }

    /// Called at each tick. When the timer is running it fires Ticked, with the timer as sender.
    virtual void Tick();

    event0 Ticked;

    /// The timers that run, by the system's number.
    struct LOOKUP {
        uintptr_t id;
        CTimer* timer;
    };
    static TArray<LOOKUP>& m_Lookup;  ///< Guarded inside the library; lives as long as the process.

private:
    static void staticTick(uintptr_t id);

    uint32_t m_interval = 0;
    std::atomic<bool> m_running{false};  // Read by a tick while another thread stops the timer.
    uintptr_t m_id = 0;
};

}  // namespace qv
