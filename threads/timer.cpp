#include "qv/timer.h"

#include <mutex>

#include "platform/message_queue.h"

namespace qv {

TArray<CTimer::LOOKUP>& CTimer::m_Lookup = *new TArray<CTimer::LOOKUP>;

namespace {
std::mutex& lookupMutex() {
    static auto* made = new std::mutex;  // Never destroyed: timers stop late.
    return *made;
}
}  // namespace

CTimer::CTimer() = default;
CTimer::~CTimer() { Stop(); }

bool CTimer::Create(uint32_t milliseconds) {
    m_interval = milliseconds;
    return true;
}

bool CTimer::Start() {
    if (m_running) return true;
    const std::lock_guard lock(lookupMutex());
    m_id = platform::messages::setTimer(m_interval, &staticTick);
    if (m_id == 0) return false;
    if (!m_Lookup.Add({m_id, this})) {
        platform::messages::killTimer(m_id);
        return false;
    }
    m_running = true;
    return true;
}

bool CTimer::Stop() {
    if (!m_running) return true;
    const std::lock_guard lock(lookupMutex());
    platform::messages::killTimer(m_id);
    for (uint32_t i = 0; i < m_Lookup.size(); ++i) {
        if (m_Lookup.ConstGetItem(i).id != m_id) continue;
        m_Lookup.Remove(i);
        break;
    }
    m_running = false;
    return true;
}

bool CTimer::Restart() {
    Stop();
    return Start();
}

void CTimer::SetInterval(uint32_t milliseconds) {
    const bool running = m_running;
    if (running) Stop();
    m_interval = milliseconds;
    if (running) Start();
}

void CTimer::Tick() {
    if (m_running) Ticked.Fire(this);
}

void CTimer::staticTick(uintptr_t id) {
    CTimer* timer = nullptr;
    {
        const std::lock_guard lock(lookupMutex());
        for (uint32_t i = 0; i < m_Lookup.size() && timer == nullptr; ++i) {
            if (m_Lookup.ConstGetItem(i).id == id) timer = m_Lookup.ConstGetItem(i).timer;
        }
    }
    if (timer != nullptr) timer->Tick();
}

}  // namespace qv
