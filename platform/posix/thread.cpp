#include "platform/thread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <new>
#include <semaphore>

namespace qv::platform {

/// Held by the thread that runs and by its starter; the last one frees it.
struct Thread {
    void (*run)(void*) = nullptr;
    void* argument = nullptr;
    uint32_t id = 0;
    WaitHandle ended = noHandle;
    pthread_t native{};
    std::binary_semaphore hasId{0};
    std::atomic<int> holders{2};
};

namespace {

void drop(Thread* thread, int holders) {
    if (thread->holders.fetch_sub(holders, std::memory_order_acq_rel) != holders) return;
    closeHandle(thread->ended);
    delete thread;
}

void* runThread(void* record) {
    auto* thread = static_cast<Thread*>(record);
    thread->id = currentThreadId();
    thread->hasId.release();
    thread->run(thread->argument);
    raiseSignal(thread->ended);
    drop(thread, 1);
    return nullptr;
}

}  // namespace

Thread* startThread(void (*run)(void*), void* argument) {
    auto* thread = new (std::nothrow) Thread;
    if (thread == nullptr) return nullptr;
    thread->run = run;
    thread->argument = argument;
    thread->ended = createSignal(0, false);
    if (thread->ended == noHandle || pthread_create(&thread->native, nullptr, &runThread, thread) != 0) {
        drop(thread, 2);
        return nullptr;
    }
    thread->hasId.acquire();
    return thread;
}

uint32_t threadId(const Thread* thread) { return thread->id; }
WaitHandle threadEnded(const Thread* thread) { return thread->ended; }

bool waitForThread(const Thread* thread, uint32_t milliseconds) {
    return waitForAny(&thread->ended, 1, milliseconds) == 0;
}

void releaseThread(Thread* thread) {
    if (thread == nullptr) return;
    const bool self = pthread_equal(thread->native, pthread_self()) != 0;
    if (!self && waitForThread(thread, 0)) {
        (void)pthread_join(thread->native, nullptr);
    } else {
        (void)pthread_detach(thread->native);
    }
    drop(thread, 1);
}

uint32_t currentThreadId() {
    thread_local const auto id = static_cast<uint32_t>(syscall(SYS_gettid));
    return id;
}

void sleepThread(uint32_t milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

}  // namespace qv::platform
