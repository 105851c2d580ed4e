// What the library needs of the system to share memory by name between processes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/wait.h"

namespace qv::platform {

/// A segment that this process has open.
struct SharedSegment;

enum class SegmentResult {
    opened,
    created,
    absent,        ///< Nobody has it open.
    notOurs,       ///< Something else stands at the place of the name, or another user's.
    otherVersion,  ///< A segment whose layout this library does not know.
    damaged,       ///< A segment whose file is not what its header says.
    tooSmall,      ///< It is there with fewer bytes than were asked for.
    refused,       ///< By the system, for the reason `error`.
};

/// Opens the segment; with `bytes` above 0 it is made when nobody has it open, and then zero. `segment` is set for
/// `opened` and `created` alone. The name is not empty.
SegmentResult openSegment(std::u16string_view name, size_t bytes, SharedSegment*& segment, int& error);
/// Lets go of it; the last user takes the name away. REQUIRES: this process does not have its lock.
void closeSegment(SharedSegment* segment);

void* segmentData(const SharedSegment* segment);
size_t segmentBytes(const SharedSegment* segment);

enum class SegmentLock {
    taken,
    abandoned,  ///< Taken; the thread or process that had it is gone.
    timedOut,
    ownAlready,  ///< This thread has it.
    broken,
};

/// The lock in the segment, between threads and processes; not recursive.
SegmentLock lockSegment(SharedSegment* segment, uint32_t milliseconds);
/// REQUIRES: this thread has the lock.
bool unlockSegment(SharedSegment* segment);

}  // namespace qv::platform
