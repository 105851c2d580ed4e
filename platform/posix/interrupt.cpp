#include "platform/interrupt.h"

#include <signal.h>

#include <atomic>
#include <cerrno>

namespace qv::platform {

namespace {

std::atomic<WaitHandle> caught{noHandle};
std::atomic<int> lastSignal{0};
static_assert(std::atomic<WaitHandle>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void handle(int signal) {
    const int error = errno;
    lastSignal = signal;
    raiseSignal(caught);
    errno = error;
}

}  // namespace

WaitHandle catchInterrupts() {
    if (caught != noHandle) return caught;
    caught = createSignal(0, false);
    if (caught == noHandle) return noHandle;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue;
        action = {};
        action.sa_handler = &handle;
        action.sa_flags = SA_RESTART;
        (void)sigaction(signal, &action, nullptr);
    }
    return caught;
}

Interrupt takeInterrupt() {
    (void)takeSignal(caught);
    const int signal = lastSignal.exchange(0);
    if (signal == 0) return Interrupt::none;
    return signal == SIGINT ? Interrupt::byUser : Interrupt::toTheEnd;
}

}  // namespace qv::platform
