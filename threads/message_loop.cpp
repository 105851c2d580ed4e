#include "qv/message_loop.h"

#include "platform/message_queue.h"

namespace qv {

using platform::messages::Outcome;

int32_t CMessageLoop::Run() {
    int32_t exitCode = 0;
    for (;;) {
        const Outcome outcome = platform::messages::dispatchOne(exitCode);
        if (outcome == Outcome::quit) return exitCode;
        if (outcome == Outcome::empty && !platform::messages::waitForMessage()) return exitCode;  // The thread ends.
    }
}

bool CMessageLoop::PumpWaiting(int32_t* exitCode) {
    int32_t code = 0;
    // One more than there is: the last look lowers the descriptor.
    for (size_t left = platform::messages::waiting() + 1; left > 0; --left) {
        const Outcome outcome = platform::messages::dispatchOne(code);
        if (outcome == Outcome::empty) return true;
        if (outcome == Outcome::dispatched) continue;
        if (exitCode != nullptr) *exitCode = code;
        return false;
    }
    return true;
}

bool CMessageLoop::Wait(uint32_t milliseconds) { return platform::messages::waitForMessage(milliseconds); }

void CMessageLoop::PostQuit(int32_t exitCode) { platform::messages::postQuit(exitCode); }

intptr_t CMessageLoop::GetDescriptor() { return platform::messages::descriptor(); }

}  // namespace qv
