// Memory that processes share by a name.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qv/api.h"
#include "qv/locks.h"

namespace qv {

namespace platform {
struct SharedSegment;
}

/// A piece of memory that every process of one user reaches by its name, with a mutex in it.
///
/// Life: the name and the bytes last until the last object that opened them is closed. A process that ends, in whatever
/// way, counts as one that closed its objects; what it left behind alone is cleared by the next to use the name. So the
/// bytes that Create() makes are always zero, and a name that nobody has open does not exist.
///
/// Names are any text but the empty one, exact to the character, and each user's own. On Linux they stand in /dev/shm
/// as "qv.<user id>.<name>" for that user only, characters but letters, digits, `-`, `_` and `.` as `%` and four
/// hexadecimal digits. The memory is reserved when it is created: a full /dev/shm fails there, not at a later access.
///
/// An object belongs to the process that opened it. A child made by fork() without exec finds the memory, but opens the
/// name itself to take the lock or to count as a user of it; should its parent be killed, the child takes its place as
/// one.
///
/// Create, Open and Close are for one thread at a time, while no other uses the object; the rest may be called from
/// any. What stands in the memory is as trustworthy as the user's other processes.
class QV_API CSharedMemory {
public:
    CSharedMemory() = default;
    ~CSharedMemory() { Close(); }
    CSharedMemory(const CSharedMemory&) = delete;
    CSharedMemory& operator=(const CSharedMemory&) = delete;

    /// Makes the memory, of `bytes` zeros, or opens what another made under the name: WasCreated() tells which. Memory
    /// that is there keeps its size; when that is below `bytes`, it is not opened.
    /// False with a diagnostic on failure. What this object had open is closed in any case.
    bool Create(const char16_t* name, size_t bytes);
    /// Opens what another made; false with a diagnostic when nobody has it open, or when it is something else.
    bool Open(const char16_t* name);
    /// Gives back the lock if this thread has it, and lets go of the memory. REQUIRES: no other thread has the lock
    /// through this object.
    void Close();

    bool IsOpen() const { return m_segment != nullptr; }
    bool WasCreated() const { return m_created; }
    /// The memory, aligned for any type; null when none is open.
    void* data() const { return m_data; }
    /// Bytes as they were created; 0 when none is open.
    size_t GetSize() const { return m_size; }

    /// Takes the mutex that all users of the name share. A thread may take it again through the same object and gives
    /// it back as often. False when it did not get free within the time; false with a diagnostic when none is open, and
    /// when this thread has it through another object of the name.
    bool Lock(uint32_t milliseconds = waitForever);
    bool TryLock() { return Lock(0); }
    /// False, with a diagnostic, when this thread does not have it through this object.
    bool Unlock();
    /// For the thread that has the lock: whoever had it before ended without giving it back, and may have left the
    /// memory half changed. The mutex itself is sound again. Stands until the next time that this object takes it.
    bool WasAbandoned() const { return m_abandoned; }

    /// Throws std::system_error where Lock() is false.
    void lock();
    bool try_lock() { return TryLock(); }
    void unlock() { Unlock(); }

private:
    bool open(const char16_t* name, size_t bytes);

    platform::SharedSegment* m_segment = nullptr;
    void* m_data = nullptr;
    size_t m_size = 0;
    bool m_created = false;
    std::atomic<uint64_t> m_owner{0};  ///< The thread that has the lock through this object; the next two are its.
    uint32_t m_depth = 0;
    bool m_abandoned = false;
};

}  // namespace qv
