// What the library needs of the system to wait: signals that are descriptors, so that they can be waited for beside any
// other descriptor.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qv::platform {

/// A descriptor that becomes readable; -1 is none.
using WaitHandle = intptr_t;
inline constexpr WaitHandle noHandle = -1;

/// A time limit in milliseconds that never comes.
inline constexpr uint32_t forever = 0xFFFFFFFF;

/// A count that is readable while it is above 0. `oneByOne`: a take lowers it by 1, otherwise to 0.
/// noHandle when the process has no descriptor left. Descriptors do not survive an exec.
WaitHandle createSignal(uint32_t count, bool oneByOne);
void closeHandle(WaitHandle handle);

/// Adds to the count. What this thread did before is seen by the thread that takes the count or waits for it.
/// False when the handle is no signal.
bool raiseSignal(WaitHandle handle, uint32_t count = 1);
/// Lowers the count; false when it was 0. Never blocks.
bool takeSignal(WaitHandle handle);

/// Outcomes of a wait that are no index.
inline constexpr int waitTimedOut = -1;
inline constexpr int waitFailed = -2;

/// Waits until one of the handles is readable, and takes nothing from it. The index of the first that is; a handle that
/// is no descriptor gives waitFailed.
int waitForAny(const WaitHandle* handles, size_t count, uint32_t milliseconds);

/// Nanoseconds of a clock that never goes back.
int64_t monotonicNanoseconds();

/// The point in time at which a wait of `milliseconds` ends, and what is left until then (forever stays forever).
int64_t deadlineAfter(uint32_t milliseconds);
uint32_t millisecondsUntil(int64_t deadline);

}  // namespace qv::platform
