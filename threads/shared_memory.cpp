#include "qv/shared_memory.h"

#include <system_error>

#include "platform/file.h"
#include "platform/shared_memory.h"
#include "platform/thread_number.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

void setDiagnostic(const char16_t* name, platform::SegmentResult result, int error) {
    switch (result) {
        case platform::SegmentResult::absent:
            SetDiagnostic(name, u"shared memory that somebody has open", u"none of that name");
            break;
        case platform::SegmentResult::notOurs:
            SetDiagnostic(name, u"shared memory of this user", u"something else at the place of that name");
            break;
        case platform::SegmentResult::otherVersion:
            SetDiagnostic(name, u"shared memory of this version", u"another version's");
            break;
        case platform::SegmentResult::damaged:
            SetDiagnostic(name, u"shared memory as long as its header says", u"another length");
            break;
        case platform::SegmentResult::tooSmall:
            SetDiagnostic(name, u"shared memory of at least the wanted size", u"a smaller one");
            break;
        default: SetDiagnostic(name, u"shared memory", platform::errorText(error));
    }
}

bool refuse(const char16_t* expected, const char16_t* found) {
    SetDiagnostic(u"", expected, found);
    return false;
}

}  // namespace

bool CSharedMemory::Create(const char16_t* name, size_t bytes) {
    Close();
    return bytes > 0 ? open(name, bytes) : refuse(u"a size above 0 for shared memory", u"0");
}

bool CSharedMemory::Open(const char16_t* name) {
    Close();
    return open(name, 0);
}

bool CSharedMemory::open(const char16_t* name, size_t bytes) {
    if (name == nullptr || *name == 0) return refuse(u"a name for shared memory", u"an empty one");
    int error = 0;
    const platform::SegmentResult result = platform::openSegment(name, bytes, m_segment, error);
    if (m_segment == nullptr) {
        setDiagnostic(name, result, error);
        return false;
    }
    m_created = result == platform::SegmentResult::created;
    m_data = platform::segmentData(m_segment);
    m_size = platform::segmentBytes(m_segment);
    return true;
}

void CSharedMemory::Close() {
    if (m_segment == nullptr) return;
    if (m_owner.load(std::memory_order_relaxed) == platform::threadNumber()) {
        while (m_depth > 0) Unlock();
    }
    platform::closeSegment(m_segment);
    m_segment = nullptr;
    m_data = nullptr;
    m_size = 0;
    m_created = m_abandoned = false;
}

bool CSharedMemory::Lock(uint32_t milliseconds) {
    if (m_segment == nullptr) return refuse(u"open shared memory to lock", u"none");
    const uint64_t me = platform::threadNumber();
    // Nobody but this thread writes its own number here.
    if (m_owner.load(std::memory_order_relaxed) == me) {
        ++m_depth;
        return true;
    }
    const platform::SegmentLock result = platform::lockSegment(m_segment, milliseconds);
    switch (result) {
        case platform::SegmentLock::taken:
        case platform::SegmentLock::abandoned:
            m_owner.store(me, std::memory_order_relaxed);
            m_depth = 1;
            m_abandoned = result == platform::SegmentLock::abandoned;
            return true;
        case platform::SegmentLock::timedOut: return false;
        case platform::SegmentLock::ownAlready:
            return refuse(u"a lock on shared memory that this thread does not have",
                          u"one that it has through another object");
        default: return refuse(u"the lock of shared memory", u"a damaged one");
    }
}

bool CSharedMemory::Unlock() {
    if (m_segment == nullptr || m_owner.load(std::memory_order_relaxed) != platform::threadNumber()) {
        return refuse(u"a lock on shared memory that this thread has", u"one that it has not");
    }
    if (--m_depth > 0) return true;
    m_owner.store(0, std::memory_order_relaxed);
    return platform::unlockSegment(m_segment) || refuse(u"the lock of shared memory", u"a damaged one");
}

void CSharedMemory::lock() {
    if (!Lock()) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

}  // namespace qv
