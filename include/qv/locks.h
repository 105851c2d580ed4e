// Locks within a process: critical section, mutex, event, semaphore, reader-writer lock, and a wait for several of
// them. Everything here may be used from any thread. An object outlives the calls that are made on it; destroying one
// that another thread waits for or holds is the caller's mistake.
//
// Each class has its functions a second time under the names of the standard library (lock, try_lock, unlock), so that
// std::lock_guard, std::unique_lock, std::shared_lock and std::scoped_lock take it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "qv/api.h"

namespace qv {

/// A time limit in milliseconds that never comes.
inline constexpr uint32_t waitForever = 0xFFFFFFFF;

/// Something that a thread takes, and waits for until it can: what CMultiLock waits for several of.
///
/// CMutex, CEvent and CSemaphore are such things; anything that has a descriptor can be made one by deriving from it.
class QV_API IWaitable {
public:
    IWaitable() = default;
    IWaitable(const IWaitable&) = delete;
    IWaitable& operator=(const IWaitable&) = delete;
    virtual ~IWaitable();

    /// A descriptor for poll() or another toolkit's loop: readable as long as a take may succeed for a thread that
    /// holds nothing. All bits set when the process has no descriptor left. It belongs to the object. Waiting on it
    /// takes nothing: whoever was woken calls TryLock, and is not the only one who may.
    virtual intptr_t getHandle() const = 0;
    /// Takes it if that needs no wait.
    virtual bool TryLock() = 0;
    /// Gives back one take; false, with a diagnostic, when that is not the caller's to do.
    virtual bool Unlock() = 0;
    /// Takes it; false when that did not succeed within the time. Nobody is first in line: a thread that comes just
    /// when the object gets free may be faster than one that has waited for long.
    virtual bool Lock(uint32_t milliseconds = waitForever);

    /// Throws std::system_error where Lock() is false for another reason than the time.
    void lock();
    bool try_lock() { return TryLock(); }
    void unlock() { Unlock(); }
};

class CMultiLock;

namespace Private {

/// The common part of mutex, event and semaphore: a value that a take and a release step on.
///
/// As long as nobody waits, a step is one exchange of the word `m_state`. The bit `watched` in it sends every step
/// through `m_guard` instead; it stands while threads wait, while the descriptor is in use, and while one thread must
/// see several objects stand still. The descriptor is made when it is first asked for, and follows the value only while
/// somebody waits for it; once getHandle() has given it away, for ever.
class QV_API CWaitable : public IWaitable {
public:
    ~CWaitable() override;
    intptr_t getHandle() const override;
    bool TryLock() override;
    bool Lock(uint32_t milliseconds = waitForever) override;

protected:
    static constexpr uint64_t watched = uint64_t{1} << 63;
    /// No value: the step cannot be made.
    static constexpr uint64_t refused = ~uint64_t{0};

    explicit CWaitable(uint64_t value) : m_state(value) {}
    /// The value after a take by that thread, or refused.
    virtual uint64_t afterTake(uint64_t value, uint64_t thread) const = 0;
    /// Makes the step `next(value)`; false when that is refused.
    template <class Next>
    bool step(Next next);

private:
    friend class qv::CMultiLock;

    bool isFree(uint64_t value) const;
    /// With the guard: nobody else changes the value until settle() ends that with its new one.
    uint64_t freeze() const;
    void settle(uint64_t value) const;
    /// Between these two the descriptor follows the value.
    intptr_t beginWatch() const;
    void endWatch() const;

    mutable std::atomic<uint64_t> m_state;
    mutable std::mutex m_guard;
    mutable std::condition_variable m_freed;
    mutable intptr_t m_handle = -1;
    mutable bool m_raised = false;    ///< The descriptor is readable.
    mutable uint64_t m_watchers = 0;  ///< Waits for the descriptor, and calls of getHandle().
    uint32_t m_waiters = 0;           ///< Waits for m_freed.
};

}  // namespace Private

/// Belongs to one thread at a time, which may take it again (16 million times deep) and gives it back as often. A
/// thread that ends while it owns a mutex leaves it taken.
///
/// Free of system calls while there is one thread at a time and no descriptor in use; with a descriptor, taking and
/// giving back cost one each.
class QV_API CMutex final : public Private::CWaitable {
public:
    explicit CMutex(bool initiallyOwned = false);
    /// False, with a diagnostic, and nothing changed when the calling thread does not own it.
    bool Unlock() override;

private:
    uint64_t afterTake(uint64_t value, uint64_t thread) const override;
};

/// A flag that threads wait for. With manual reset it stays set, and lets everybody pass, until Reset(). With automatic
/// reset one take uses it up, so that each Set() lets one thread pass; setting what is set changes nothing.
///
/// What a thread did before Set() is seen by the threads that Wait() lets pass. Waiting on the raw descriptor does not
/// use up an automatic event: the descriptor stays readable until somebody's TryLock(), Lock() or Wait().
class QV_API CEvent final : public Private::CWaitable {
public:
    explicit CEvent(bool initiallySet = false, bool manualReset = false);
    void Set();
    void Reset();
    /// True when the event was set within the time. Lock() by another name.
    bool Wait(uint32_t milliseconds = waitForever) { return Lock(milliseconds); }
    /// Changes nothing, and is true: an automatic event that was taken stays used up.
    bool Unlock() override;

private:
    uint64_t afterTake(uint64_t value, uint64_t thread) const override;
    const bool m_manualReset;
};

/// A count of things to be had: a take lowers it by 1 and waits while it is 0. Any thread may give back.
class QV_API CSemaphore final : public Private::CWaitable {
public:
    /// A maximum of 0 counts as 1; `initial` is held to the maximum.
    explicit CSemaphore(uint32_t initial = 1, uint32_t maximum = 1);
    /// Adds to the count. When that would pass the maximum nothing is added, and it is false with a diagnostic.
    /// `previous`, where given, receives the count before.
    bool Release(uint32_t count = 1, uint32_t* previous = nullptr);
    /// Release(1).
    bool Unlock() override { return Release(); }

private:
    uint64_t afterTake(uint64_t value, uint64_t thread) const override;
    const uint32_t m_maximum;
};

/// Belongs to one thread at a time, which may take it again and gives it back as often. The lock to use where nothing
/// else is asked for: it has no time limit and no descriptor.
class QV_API CCriticalSection {
public:
    void Lock() { m_mutex.lock(); }
    bool TryLock() { return m_mutex.try_lock(); }
    /// REQUIRES: the calling thread owns it.
    void Unlock() { m_mutex.unlock(); }

    void lock() { Lock(); }
    bool try_lock() { return TryLock(); }
    void unlock() { Unlock(); }

private:
    std::recursive_mutex m_mutex;
};

/// Many readers or one writer. Not recursive: a thread that holds it in either way does not ask for it again, and a
/// reader cannot turn into a writer without letting go.
class QV_API CRWLock {
public:
    void LockRead() { m_mutex.lock_shared(); }
    bool TryLockRead() { return m_mutex.try_lock_shared(); }
    void UnlockRead() { m_mutex.unlock_shared(); }
    void LockWrite() { m_mutex.lock(); }
    bool TryLockWrite() { return m_mutex.try_lock(); }
    void UnlockWrite() { m_mutex.unlock(); }

    void lock_shared() { LockRead(); }
    bool try_lock_shared() { return TryLockRead(); }
    void unlock_shared() { UnlockRead(); }
    void lock() { LockWrite(); }
    bool try_lock() { return TryLockWrite(); }
    void unlock() { UnlockWrite(); }

private:
    std::shared_mutex m_mutex;
};

/// Waits for one or for all of several waitable objects, which outlive it. The CMultiLock itself belongs to one thread.
///
/// Waiting for all holds nothing while it waits, and takes mutexes, events and semaphores in one step that no other
/// thread sees half done: two of these with the same objects in another order cannot lock each other up. Other
/// implementations of IWaitable are taken by TryLock just before that step, and given back by Unlock when it fails.
/// Waiting needs a descriptor of each object. The number of objects is not limited, but ThreadSanitizer cannot follow a
/// wait for all of more than 64. An object that stands in the list twice counts once, at its first place.
class QV_API CMultiLock {
public:
    static constexpr int timedOut = -1;
    /// The list is empty or holds a null pointer, or the process has no descriptor left; with a diagnostic.
    static constexpr int failed = -2;

    CMultiLock(IWaitable* const* objects, uint32_t count);
    CMultiLock(std::initializer_list<IWaitable*> objects);
    /// Gives back what it holds.
    ~CMultiLock();
    CMultiLock(const CMultiLock&) = delete;
    CMultiLock& operator=(const CMultiLock&) = delete;

    /// The index of the one that was taken: the first in the list that could be. With `all`, 0 once all are taken.
    /// Otherwise timedOut or failed, and nothing was taken. A further Lock adds to what is held.
    int Lock(bool all, uint32_t milliseconds = waitForever);
    /// Gives back all that is held; false when one of them refused.
    bool Unlock();
    /// Gives back one take of one object; false when it is not held.
    bool Unlock(uint32_t index);
    bool IsLocked(uint32_t index) const;

private:
    struct Entry {
        IWaitable* object = nullptr;
        Private::CWaitable* own = nullptr;  ///< The same, where it takes part in the one step.
        uint32_t held = 0;                  ///< Takes to be given back.
        uint64_t value = 0, next = 0;       ///< Its value before and after the step under way.
    };
    class Watch;

    int takeAny();
    int takeAll(size_t& blocker);
    bool takeOthers(size_t& blocker);
    bool takeOwn(size_t& blocker);

    std::vector<Entry> m_entries;  ///< By index; a repeated object is null.
    std::vector<Entry*> m_own;     ///< In the order of their addresses, in which guards are taken.
    bool m_valid = false;
};

}  // namespace qv
