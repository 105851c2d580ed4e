// Threads, timers, the apartment scope.
#include "qv/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>

#include "qv/message_loop.h"
#include "qv/timer.h"

namespace qv {
namespace {

struct Runner : CThread {
    void Run() override { ran = GetCurrentThreadId(); }
    std::atomic<uint32_t> ran{0};
};

int addOne(void* number) { return ++*static_cast<int*>(number); }
uint32_t addTwo(void* number) {
    *static_cast<int*>(number) += 2;
    return 0;
}

size_t entriesOf(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(Thread, StartsInFourWays) {
    Runner runner;
    EXPECT_FALSE(runner.getRunning());
    EXPECT_EQ(runner.getHandle(), -1);
    runner.Join();  // Nothing to wait for.
    ASSERT_TRUE(runner.Create());
    runner.Join();
    EXPECT_EQ(runner.ran, runner.getID());
    EXPECT_NE(runner.getID(), CThread::GetCurrentThreadId());

    int number = 0;
    CThread plain;
    ASSERT_TRUE(plain.Create(&addOne, &number));
    plain.Join();
    ASSERT_TRUE(plain.Create(&addTwo, &number));
    EXPECT_TRUE(plain.JoinWithTimeout(10'000));
    ASSERT_TRUE(plain.Create(new invokable0(makeDelegate<>([&number] { number += 4; })), true));
    plain.Join(true);
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(plain.Create(static_cast<IInvokable*>(nullptr), true));

    std::atomic<bool> go{false};
    ASSERT_TRUE(plain.Create([&go] {
        while (!go) CThread::Yield();
    }));
    EXPECT_TRUE(plain.getRunning());
    EXPECT_FALSE(plain.JoinWithTimeout(5));
    go = true;
    plain.Join();
    EXPECT_FALSE(plain.getRunning());
}

TEST(Thread, LeavesNothingBehind) {
    CThread warm;
    warm.Create([] {});
    warm.Join();
    const size_t descriptors = entriesOf("/proc/self/fd"), threads = entriesOf("/proc/self/task");
    for (int i = 0; i < 500; ++i) {
        CThread thread;
        thread.Create([] {});
        if (i % 2 == 0) thread.Join();  // The others go on without their object.
    }
    for (int waited = 0; waited < 10'000 && entriesOf("/proc/self/task") > threads; ++waited) CThread::Sleep(1);
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
}

TEST(Thread, JoinThatPumpsRunsCallsUntilQuit) {
    CMessageQueueInvoker here;
    int ran = 0;
    CThread worker;
    worker.Create([&] {
        for (int i = 0; i < 50; ++i) here.Queue([&ran] { ++ran; });
        here.Invoke([&ran] { ran += 100; });
    });
    worker.Join(true);
    CMessageLoop::PumpWaiting();
    EXPECT_EQ(ran, 150);

    std::atomic<bool> go{false};
    worker.Create([&go] {
        while (!go) CThread::Sleep(1);
    });
    CMessageLoop::PostQuit();
    worker.Join(true);
    EXPECT_TRUE(worker.getRunning());
    go = true;
    worker.Join();
}

struct Counting : CTimer {
    void Tick() override {
        ++ticks;
        CTimer::Tick();
    }
    int ticks = 0;
};

TEST(Timer, TicksOnTheThreadThatPumps) {
    Counting timer;
    int fired = 0;
    void* sender = nullptr;
    timer.Ticked.AddHandler([&](void* from) {
        sender = from;
        if (++fired == 3) CMessageLoop::PostQuit();
    });
    EXPECT_TRUE(timer.Create(2));
    EXPECT_EQ(timer.GetInterval(), 2u);
    const uint32_t known = CTimer::m_Lookup.size();
    EXPECT_TRUE(timer.Start());
    EXPECT_TRUE(timer.Start());
    EXPECT_EQ(CTimer::m_Lookup.size(), known + 1);  // One system timer.
    CMessageLoop::Run();
    EXPECT_EQ(fired, 3);
    EXPECT_EQ(timer.ticks, 3);
    EXPECT_EQ(sender, &timer);

    const uintptr_t id = CTimer::m_Lookup.ConstGetItem(known).id;
    timer.SetInterval(1);
    EXPECT_NE(CTimer::m_Lookup.ConstGetItem(known).id, id);
    EXPECT_TRUE(timer.Stop());
    EXPECT_TRUE(timer.Stop());
    EXPECT_EQ(CTimer::m_Lookup.size(), known);
    EXPECT_FALSE(CMessageLoop::Wait(20));
    timer.Tick();  // Stopped: the event stays quiet.
    EXPECT_EQ(fired, 3);
}

TEST(Timer, IsNotStarvedByCallsAndStarvesNone) {
    CMessageQueueInvoker here;
    Counting timer;
    timer.Create(1);
    timer.Start();
    uint64_t calls = 0;
    auto again = [&](auto& self) -> void {
        ++calls;
        if (timer.ticks < 5) here.Queue([&self] { self(self); });
    };
    again(again);
    while (timer.ticks < 5) CMessageLoop::PumpWaiting();
    EXPECT_GT(calls, 5u);
}

TEST(Timer, MayBeStoppedFromAnotherThread) {
    Counting timer;
    timer.Create(1);
    timer.Start();
    std::atomic<bool> ticked{false};
    timer.Ticked.AddHandler([&ticked](void*) { ticked = true; });
    CThread other;
    other.Create([&] {
        while (!ticked) CThread::Yield();
        timer.Stop();
    });
    while (timer.getRunning()) CMessageLoop::PumpWaiting();
    other.Join();
    CMessageLoop::PumpWaiting();
    const int ticks = timer.ticks;
    EXPECT_FALSE(CMessageLoop::Wait(10));
    EXPECT_EQ(timer.ticks, ticks);
}

TEST(Timer, OneThatIsAlwaysLateHoldsUpNeitherQuitNorJoin) {
    struct Slow : CTimer {
        void Tick() override { CThread::Sleep(3); }
    };
    CThread thread;
    {
        Slow first;
        first.Create(1);
        first.Start();
        thread.Create([] { CThread::Sleep(5); });
        thread.Join(true);
        Slow second;
        second.Create(1);
        second.Start();
        CThread::Sleep(2);
        CMessageLoop::PostQuit(7);
        EXPECT_EQ(CMessageLoop::Run(), 7);
    }
    Slow third, fourth;  // An invoker's thread ends by an order to quit.
    CInvokerThread invoker;
    invoker.Invoke([&] {
        for (CTimer* timer : {&third, &fourth}) {
            timer->Create(1);
            timer->Start();
        }
    });
}

TEST(ComScope, KeepsTheThreadsFirstKind) {
    CThread thread;  // A thread of its own: apartments are the thread's.
    thread.Create([] {
        {
            const CCOMScope outer, inner, other(CCOMScope::multiThreaded);
            EXPECT_EQ(outer.result(), 0);
            EXPECT_EQ(inner.result(), 1);
            EXPECT_LT(other.result(), 0);
        }
        const CCOMScope fresh(CCOMScope::multiThreaded);  // The refused one closed nothing of the others'.
        EXPECT_EQ(fresh.result(), 0);
    });
    thread.Join();
}

TEST(MainThread, IsTheFirstThatAsks) {
    EXPECT_TRUE(qvInMainUIThread());
    EXPECT_TRUE(qvInMainUIThread());
    bool elsewhere = true;
    CThread thread;
    thread.Create([&elsewhere] { elsewhere = qvInMainUIThread(); });
    thread.Join();
    EXPECT_FALSE(elsewhere);
}

}  // namespace
}  // namespace qv
