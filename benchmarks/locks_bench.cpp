// Each lock beside its peer in the standard library: taken and given back by one thread, fought over by two, and with
// its descriptor in use; a token that two threads pass to and fro; all of several at once beside std::scoped_lock.
#include "rows.h"

#include <condition_variable>
#include <mutex>
#include <semaphore>
#include <shared_mutex>
#include <thread>

#include "qv/locks.h"
#include "qv/shared_memory.h"

namespace {

using StdSemaphore = std::counting_semaphore<1>;

/// The C library locks without atomics until a process has had a second thread.
const bool multithreaded = (std::thread([] {}).join(), true);

// Taken and given back ------------------------------------------------------------------------------------------------

void take(auto& lock) { lock.lock(); }
void give(auto& lock) { lock.unlock(); }
void take(StdSemaphore& lock) { lock.acquire(); }
void give(StdSemaphore& lock) { lock.release(); }

template <class Lock>
struct Fresh {
    static Lock& get() {
        static Lock lock;
        return lock;
    }
};
template <>
struct Fresh<StdSemaphore> {
    static StdSemaphore& get() {
        static StdSemaphore lock(1);
        return lock;
    }
};
template <>
struct Fresh<qv::CSharedMemory> {
    static qv::CSharedMemory& get() {
        static qv::CSharedMemory lock;
        static const bool open = lock.Create(u"locks_bench", 4096);
        benchmark::DoNotOptimize(open);
        return lock;
    }
};

int64_t guarded = 0;

template <class Lock>
void TakeAndGive(benchmark::State& state) {
    Lock& lock = Fresh<Lock>::get();
    for (auto _ : state) {
        take(lock);
        benchmark::DoNotOptimize(++guarded);
        give(lock);
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("take and give a critical section", "qv", TakeAndGive<qv::CCriticalSection>)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
QV_ROW("take and give a mutex", "qv", TakeAndGive<qv::CMutex>)->Threads(1)->Threads(2)->UseRealTime();
QV_ROW("take and give a mutex", "recursive_mutex", TakeAndGive<std::recursive_mutex>)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
QV_ROW("take and give a critical section", "mutex", TakeAndGive<std::mutex>)->Threads(1)->Threads(2)->UseRealTime();
QV_ROW("take and give a semaphore", "qv", TakeAndGive<qv::CSemaphore>)->Threads(1)->Threads(2)->UseRealTime();
QV_ROW("take and give a semaphore", "std", TakeAndGive<StdSemaphore>)->Threads(1)->Threads(2)->UseRealTime();
QV_ROW("take and give a read-write lock", "qv", TakeAndGive<qv::CRWLock>)->Threads(1)->Threads(2)->UseRealTime();
QV_ROW("take and give a read-write lock", "shared_mutex", TakeAndGive<std::shared_mutex>)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
QV_ROW("take and give a shared memory", "qv", TakeAndGive<qv::CSharedMemory>)->Threads(1)->Threads(2)->UseRealTime();

/// As every take would be if the descriptor carried the state: two system calls.
void TakeAndGiveWithDescriptor(benchmark::State& state) {
    qv::CMutex lock;
    benchmark::DoNotOptimize(lock.getHandle());
    for (auto _ : state) {
        lock.Lock();
        lock.Unlock();
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("take and give a mutex with a descriptor", "qv", TakeAndGiveWithDescriptor);

// A token to and fro --------------------------------------------------------------------------------------------------

/// An automatic event of the standard library's parts.
class StdEvent {
public:
    void Set() {
        const std::lock_guard guard(m_mutex);
        m_set = true;
        m_changed.notify_one();
    }
    void Wait() {
        std::unique_lock guard(m_mutex);
        m_changed.wait(guard, [this] { return m_set; });
        m_set = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_set = false;
};

template <class Event>
void PassToAndFro(benchmark::State& state) {
    Event there, back;
    bool end = false;
    std::thread other([&] {
        while (there.Wait(), !end) back.Set();
    });
    for (auto _ : state) {
        there.Set();
        back.Wait();
    }
    end = true;
    there.Set();
    other.join();
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("event to another thread and back", "qv", PassToAndFro<qv::CEvent>)->UseRealTime();
QV_ROW("event to another thread and back", "std", PassToAndFro<StdEvent>)->UseRealTime();

template <class Event>
void SetAndWait(benchmark::State& state) {
    Event event;
    for (auto _ : state) {
        event.Set();
        event.Wait();
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("set an event and wait", "qv", SetAndWait<qv::CEvent>);
QV_ROW("set an event and wait", "std", SetAndWait<StdEvent>);

// Several at once -----------------------------------------------------------------------------------------------------

void AllOfThree(benchmark::State& state) {
    qv::CMutex a, b, c;
    qv::CMultiLock lock{&a, &b, &c};
    for (auto _ : state) {
        lock.Lock(true);
        lock.Unlock();
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("take three locks at once", "qv", AllOfThree);

void AllOfThreeStd(benchmark::State& state) {
    std::recursive_mutex a, b, c;
    for (auto _ : state) {
        const std::scoped_lock lock(a, b, c);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("take three locks at once", "scoped_lock", AllOfThreeStd);

}  // namespace

BENCHMARK_MAIN();
