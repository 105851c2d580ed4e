// Interrupts from outside, as something to wait for. Compiled into the tool: it is no part of the library's interface.
#pragma once

#include "platform/wait.h"

namespace qv::platform {

enum class Interrupt {
    none,
    byUser,    ///< From the terminal, which tells it to the programs that this one started as well.
    toTheEnd,  ///< The order to end, or the terminal is gone.
};

/// From now on interrupts do not end the process, but make the result readable. One that was ignored when the process
/// was started stays ignored. noHandle without a descriptor; nothing changes then.
WaitHandle catchInterrupts();
/// The last interrupt since the last call.
Interrupt takeInterrupt();

}  // namespace qv::platform
