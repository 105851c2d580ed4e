// The pump of a thread that owns invokers or timers: queued calls, synchronous calls and ticks run while it pumps.
#pragma once

#include <cstdint>

#include "qv/api.h"

namespace qv {

/// The calling thread's message loop. A program that has a loop of its own (a toolkit's, or plain poll) puts
/// GetDescriptor into it and calls PumpWaiting whenever that is readable; others call Run.
class QV_API CMessageLoop {
public:
    /// Pumps until PostQuit.
    /// @return  The exit code that PostQuit was given.
    static int32_t Run();

    /// Runs the messages and due ticks that wait, at most one round of those that they post again, and returns.
    /// @param exitCode  Where not null, receives the code when the result is false.
    /// @return  False when the order to quit was reached; it is used up then.
    static bool PumpWaiting(int32_t* exitCode = nullptr);

    /// Waits until there is something to pump, for at most `milliseconds` (0xFFFFFFFF: no limit). False when the time
    /// is over.
    static bool Wait(uint32_t milliseconds);

    /// Has this thread's Run return once no queued call waits any more; ticks that are due do not hold it up. To quit
    /// another thread's loop, queue a call there.
    static void PostQuit(int32_t exitCode = 0);

    /// A descriptor that is readable while PumpWaiting has something to do, ticks that are due included. It belongs to
    /// the thread's queue: not to be read or closed, and gone when the thread ends. -1 when there is none.
    static intptr_t GetDescriptor();
};

}  // namespace qv
