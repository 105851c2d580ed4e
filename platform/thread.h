// What the library needs of the system for threads.
#pragma once

#include <cstdint>

#include "platform/wait.h"

namespace qv::platform {

/// A thread that was started; belongs to the starter until releaseThread.
struct Thread;

/// Starts `run(argument)`; null when the system has no thread (or descriptor) for it.
Thread* startThread(void (*run)(void*), void* argument);
/// The system's number of the thread.
uint32_t threadId(const Thread* thread);
/// Readable for ever once `run` has returned.
WaitHandle threadEnded(const Thread* thread);
/// True when the thread ended within the time. What it did is seen afterwards.
bool waitForThread(const Thread* thread, uint32_t milliseconds);
/// Lets go of the thread: one that has ended is gone from the process when this returns, one that runs goes on.
void releaseThread(Thread* thread);

/// The system's number of this thread, never 0.
uint32_t currentThreadId();
void sleepThread(uint32_t milliseconds);

}  // namespace qv::platform
