#include "qv/locks.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <system_error>

#include "platform/thread_number.h"
#include "platform/wait.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

/// A mutex's value is its owner's number above the depth; 0 when it is free.
constexpr unsigned depthBits = 24;
constexpr uint64_t deepest = (uint64_t{1} << depthBits) - 1;
constexpr uint64_t owned(uint64_t thread) { return thread << depthBits; }
constexpr bool isOwner(uint64_t value, uint64_t thread) { return value >> depthBits == thread; }
/// The number of no thread.
constexpr uint64_t nobody = (uint64_t{1} << (63 - depthBits)) - 1;

bool canWait(intptr_t handle, uint32_t milliseconds) {
    if (platform::waitForAny(&handle, 1, milliseconds) != platform::waitFailed) return true;
    SetDiagnostic(u"", u"a descriptor to wait for", handle < 0 ? u"none left" : u"one that cannot be waited for");
    return false;
}

}  // namespace

// IWaitable -----------------------------------------------------------------------------------------------------------

IWaitable::~IWaitable() = default;

bool IWaitable::Lock(uint32_t milliseconds) {
    const int64_t deadline = platform::deadlineAfter(milliseconds);
    while (!TryLock()) {
        const uint32_t left = platform::millisecondsUntil(deadline);
        if (left == 0 || !canWait(getHandle(), left)) return false;
    }
    return true;
}

void IWaitable::lock() {
    if (!Lock()) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

// CWaitable -----------------------------------------------------------------------------------------------------------

namespace Private {

CWaitable::~CWaitable() {
    // The last release may have let another thread go on, and destroy this, before it left the guard itself.
    const std::lock_guard leaving(m_guard);
    platform::closeHandle(m_handle);
}

template <class Next>
bool CWaitable::step(Next next) {
    uint64_t value = m_state.load(std::memory_order_acquire);
    while ((value & watched) == 0) {
        const uint64_t wanted = next(value);
        if (wanted == refused) return false;
        if (m_state.compare_exchange_weak(value, wanted, std::memory_order_acq_rel, std::memory_order_acquire))
            return true;
    }
    const std::lock_guard guard(m_guard);
    value = freeze();
    const uint64_t wanted = next(value);
    settle(wanted == refused ? value : wanted);
    return wanted != refused;
}

bool CWaitable::TryLock() {
    return step([this, me = platform::threadNumber()](uint64_t value) { return afterTake(value, me); });
}

bool CWaitable::Lock(uint32_t milliseconds) {
    if (TryLock()) return true;
    if (milliseconds == 0) return false;
    const uint64_t me = platform::threadNumber();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::unique_lock guard(m_guard);
    ++m_waiters;
    uint64_t value = freeze();
    for (bool inTime = true; inTime && afterTake(value, me) == refused; value = freeze()) {
        if (milliseconds == waitForever) {
            m_freed.wait(guard);
        } else {
            inTime = m_freed.wait_until(guard, deadline) == std::cv_status::no_timeout;
        }
    }
    --m_waiters;
    const uint64_t wanted = afterTake(value, me);
    settle(wanted == refused ? value : wanted);
    return wanted != refused;
}

bool CWaitable::isFree(uint64_t value) const { return afterTake(value, nobody) != refused; }

uint64_t CWaitable::freeze() const { return m_state.fetch_or(watched, std::memory_order_acq_rel) & ~watched; }

void CWaitable::settle(uint64_t value) const {
    const bool followed = m_handle != platform::noHandle && m_watchers > 0;
    const bool free = isFree(value);
    if (followed && free != m_raised) {
        m_raised = free;
        if (free) {
            (void)platform::raiseSignal(m_handle);
        } else {
            (void)platform::takeSignal(m_handle);
        }
    }
    m_state.store(followed || m_waiters > 0 ? value | watched : value, std::memory_order_release);
    // One is enough: when something is left after its take, that take's settle() calls the next.
    if (free && m_waiters > 0) m_freed.notify_one();
}

intptr_t CWaitable::beginWatch() const {
    const std::lock_guard guard(m_guard);
    const uint64_t value = freeze();
    ++m_watchers;
    if (m_handle == platform::noHandle) m_handle = platform::createSignal(0, false);
    settle(value);
    return m_handle;
}

void CWaitable::endWatch() const {
    const std::lock_guard guard(m_guard);
    const uint64_t value = freeze();
    --m_watchers;
    settle(value);
}

/// A watch that nobody ends.
intptr_t CWaitable::getHandle() const { return beginWatch(); }

}  // namespace Private

// The locks -----------------------------------------------------------------------------------------------------------

CMutex::CMutex(bool initiallyOwned) : CWaitable(initiallyOwned ? owned(platform::threadNumber()) + 1 : 0) {}

uint64_t CMutex::afterTake(uint64_t value, uint64_t thread) const {
    if (value == 0) return owned(thread) + 1;
    return isOwner(value, thread) && (value & deepest) != deepest ? value + 1 : refused;
}

bool CMutex::Unlock() {
    const bool released = step([me = platform::threadNumber()](uint64_t value) {
        if (!isOwner(value, me)) return refused;
        return (value & deepest) == 1 ? uint64_t{0} : value - 1;
    });
    if (!released) SetDiagnostic(u"", u"a mutex that this thread owns", u"one that it does not");
    return released;
}

CEvent::CEvent(bool initiallySet, bool manualReset) : CWaitable(initiallySet ? 1 : 0), m_manualReset(manualReset) {}

uint64_t CEvent::afterTake(uint64_t value, uint64_t) const {
    if (value == 0) return refused;
    return m_manualReset ? 1 : 0;
}

void CEvent::Set() {
    step([](uint64_t) { return uint64_t{1}; });
}
void CEvent::Reset() {
    step([](uint64_t) { return uint64_t{0}; });
}
bool CEvent::Unlock() { return true; }

CSemaphore::CSemaphore(uint32_t initial, uint32_t maximum)
    : CWaitable(std::min(initial, std::max(maximum, 1u))), m_maximum(std::max(maximum, 1u)) {}

uint64_t CSemaphore::afterTake(uint64_t value, uint64_t) const { return value == 0 ? refused : value - 1; }

bool CSemaphore::Release(uint32_t count, uint32_t* previous) {
    uint64_t before = 0;
    const bool released = step([&](uint64_t value) {
        before = value;
        return value + count <= m_maximum ? value + count : refused;
    });
    if (previous != nullptr) *previous = static_cast<uint32_t>(before);
    if (!released) {
        SetDiagnostic(u"", CString::FromFormat(u"a semaphore's count up to %u", m_maximum),
                      CString::FromFormat(u"%I64u", before + count));
    }
    return released;
}

// CMultiLock ----------------------------------------------------------------------------------------------------------

CMultiLock::CMultiLock(std::initializer_list<IWaitable*> objects)
    : CMultiLock(objects.begin(), static_cast<uint32_t>(objects.size())) {}

CMultiLock::CMultiLock(IWaitable* const* objects, uint32_t count) : m_entries(objects == nullptr ? 0 : count) {
    m_valid = !m_entries.empty();
    for (size_t i = 0; i < m_entries.size(); ++i) {
        if (objects[i] == nullptr) m_valid = false;
        if (std::find(objects, objects + i, objects[i]) != objects + i) continue;
        m_entries[i].object = objects[i];
        m_entries[i].own = dynamic_cast<Private::CWaitable*>(objects[i]);
        if (m_entries[i].own != nullptr) m_own.push_back(&m_entries[i]);
    }
    std::sort(m_own.begin(), m_own.end(),
              [](const Entry* a, const Entry* b) { return std::less<const void*>()(a->own, b->own); });
}

CMultiLock::~CMultiLock() { Unlock(); }

/// The descriptors of a wait; those of our own objects follow their values until it is over.
class CMultiLock::Watch {
public:
    explicit Watch(std::vector<Entry>& entries) : m_entries(entries) {}
    ~Watch() {
        for (size_t i = 0; i < m_begun; ++i) {
            if (m_entries[i].own != nullptr) m_entries[i].own->endWatch();
        }
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// False when there is nothing that could be waited for.
    bool wait(const size_t* one, uint32_t milliseconds) {
        if (m_handles.empty()) begin();
        const size_t count = one != nullptr ? 1 : m_handles.size();
        return platform::waitForAny(one != nullptr ? &m_handles[m_places[*one]] : m_handles.data(), count,
                                    milliseconds) != platform::waitFailed;
    }

private:
    void begin() {
        m_handles.reserve(m_entries.size());
        m_places.resize(m_entries.size());
        for (; m_begun < m_entries.size(); ++m_begun) {
            const Entry& entry = m_entries[m_begun];
            if (entry.object == nullptr) continue;
            m_places[m_begun] = m_handles.size();
            m_handles.push_back(entry.own != nullptr ? entry.own->beginWatch() : entry.object->getHandle());
        }
    }

    std::vector<Entry>& m_entries;
    std::vector<platform::WaitHandle> m_handles;
    std::vector<size_t> m_places;  ///< Of an entry's descriptor.
    size_t m_begun = 0;
};

int CMultiLock::Lock(bool all, uint32_t milliseconds) {
    if (!m_valid) {
        SetDiagnostic(u"", u"objects to wait for", m_entries.empty() ? u"none" : u"a null pointer");
        return failed;
    }
    const int64_t deadline = platform::deadlineAfter(milliseconds);
    Watch watch(m_entries);
    for (;;) {
        size_t blocker = 0;
        const int index = all ? takeAll(blocker) : takeAny();
        if (index != timedOut) return index;
        const uint32_t left = platform::millisecondsUntil(deadline);
        if (left == 0) return timedOut;
        if (watch.wait(all ? &blocker : nullptr, left)) continue;
        SetDiagnostic(u"", u"a descriptor for each object", u"none left, or one that cannot be waited for");
        return failed;
    }
}

int CMultiLock::takeAny() {
    for (size_t i = 0; i < m_entries.size(); ++i) {
        if (m_entries[i].object == nullptr || !m_entries[i].object->TryLock()) continue;
        ++m_entries[i].held;
        return static_cast<int>(i);
    }
    return timedOut;
}

int CMultiLock::takeAll(size_t& blocker) {
    if (!takeOthers(blocker)) return timedOut;
    const bool taken = takeOwn(blocker);
    for (Entry& entry : m_entries) {
        if (entry.object == nullptr) continue;
        if (taken) {
            ++entry.held;
        } else if (entry.own == nullptr) {
            entry.object->Unlock();
        }
    }
    return taken ? 0 : timedOut;
}

bool CMultiLock::takeOthers(size_t& blocker) {
    for (size_t i = 0; i < m_entries.size(); ++i) {
        const Entry& entry = m_entries[i];
        if (entry.object == nullptr || entry.own != nullptr || entry.object->TryLock()) continue;
        blocker = i;
        while (i-- > 0) {
            if (m_entries[i].object != nullptr && m_entries[i].own == nullptr) m_entries[i].object->Unlock();
        }
        return false;
    }
    return true;
}

bool CMultiLock::takeOwn(size_t& blocker) {
    const uint64_t me = platform::threadNumber();
    bool taken = true;
    for (Entry* entry : m_own) entry->own->m_guard.lock();
    for (Entry* entry : m_own) {
        entry->value = entry->own->freeze();
        entry->next = entry->own->afterTake(entry->value, me);
        if (entry->next != Private::CWaitable::refused) continue;
        blocker = static_cast<size_t>(entry - m_entries.data());
        taken = false;
    }
    for (Entry* entry : m_own) {
        entry->own->settle(taken ? entry->next : entry->value);
        entry->own->m_guard.unlock();
    }
    return taken;
}

bool CMultiLock::Unlock() {
    bool released = true;
    for (size_t i = m_entries.size(); i-- > 0;) {
        while (IsLocked(static_cast<uint32_t>(i))) released = Unlock(static_cast<uint32_t>(i)) && released;
    }
    return released;
}

bool CMultiLock::Unlock(uint32_t index) {
    if (!IsLocked(index)) {
        SetDiagnostic(u"", u"an object that is held", u"one that is not");
        return false;
    }
    --m_entries[index].held;
    return m_entries[index].object->Unlock();
}

bool CMultiLock::IsLocked(uint32_t index) const { return index < m_entries.size() && m_entries[index].held > 0; }

}  // namespace qv
