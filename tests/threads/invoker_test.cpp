// Calls, invokers and the message loop, on one thread and across several.
#include "qv/invoker.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "qv/locks.h"
#include "qv/message_loop.h"
#include "qv/thread.h"
#include "support.h"
#include "support/slots.h"

namespace qv {
namespace {

struct Notes {
    std::string text;
    void a() { text += 'a'; }
    void b() { text += 'b'; }
};

/// Counts the objects that live.
struct Owned : IInvokable {
    Owned(std::string& log, char letter) : m_log(log), m_letter(letter) { ++alive; }
    ~Owned() override { --alive; }
    void Invoke() override { m_log += m_letter; }
    bool SameHandler(IInvokable* other) override {
        const auto* same = dynamic_cast<Owned*>(other);
        return same != nullptr && same->m_letter == m_letter;
    }
    static inline int alive = 0;

private:
    std::string& m_log;
    char m_letter;
};

TEST(InvokerInterfaces, SlotsStandInTheirOrder) {
    const size_t slots[][4] = {
        {test::slotOf(&IInvokable::Invoke), test::slotOf(&IInvokable::SameHandler), 4, 5},
        {test::slotOf<void (IInvoker::*)(IInvokable*)>(&IInvoker::Invoke),
         test::slotOf<void (IInvoker::*)(IInvokable*, bool)>(&IInvoker::Queue),
         test::slotOf(&IInvoker::DequeueDuplicates), test::slotOf(&IInvoker::GetThreadID)},
        {test::slotOf(&delegate1<int>::Invoke), test::slotOf(&delegate1<int>::Equals),
         test::slotOf(&delegate1<int>::Clone), test::slotOf(&delegate1<int>::Release)},
    };
    for (const auto& row : slots) {
        for (size_t i = 0; i < 4; ++i) EXPECT_EQ(row[i], i + 2);
    }
}

TEST(Invokables, AreTheSameByWhatTheyCall) {
    Notes one, two;
    invokable0 a(makeDelegate(&one, &Notes::a)), again(makeDelegate(&one, &Notes::a));
    invokable0 b(makeDelegate(&one, &Notes::b)), other(makeDelegate(&two, &Notes::a));
    EXPECT_TRUE(a.SameHandler(&again));
    EXPECT_FALSE(a.SameHandler(&b));
    EXPECT_FALSE(a.SameHandler(&other));
    // Arguments do not count, their types do.
    int sum = 0;
    delegate1<int>* add = makeDelegate<int>([&sum](int x) { sum += x; });
    invokable1<int> three(add->Clone(), 3), four(add->Clone(), 4);
    invokable1<long> foreign(makeDelegate<long>([&sum](long) { sum = -1; }), 3);
    EXPECT_TRUE(three.SameHandler(&four));
    EXPECT_FALSE(three.SameHandler(&foreign));
    three.Invoke(), four.Invoke();
    EXPECT_EQ(sum, 7);
    add->Release();
}

TEST(Invokables, KeepTextOfTheirOwn) {
    std::u16string seen, source = u"a/b.saf";
    bool sawNull = false;
    const auto note = [&](const char16_t* text, int, double) {
        sawNull = text == nullptr;
        if (text != nullptr) seen = text;
    };
    invokable3<const char16_t*, int, double> call(makeDelegate<const char16_t*, int, double>(note), source.c_str(), 1,
                                                  2.0);
    source.assign(20, u'x');
    call.Invoke();
    EXPECT_EQ(seen, u"a/b.saf");
    invokable3<const char16_t*, int, double>(makeDelegate<const char16_t*, int, double>(note), nullptr, 1, 2.0)
        .Invoke();
    EXPECT_TRUE(sawNull);
}

TEST(DirectInvoker, RunsAtOnceAndDeletesOwnedCalls) {
    std::string log;
    Owned kept(log, 'k');
    directInvoker->Invoke(&kept);
    directInvoker->Queue(&kept, false);
    directInvoker->Queue(new Owned(log, 'o'), true);
    directInvoker->Queue([&log] { log += 'l'; });
    directInvoker->Invoke(nullptr);
    EXPECT_EQ(log, "kkol");
    EXPECT_EQ(Owned::alive, 1);
}

TEST(MessageQueueInvoker, RunsQueuedCallsInOrderEachInItsMessage) {
    std::string log;
    CMessageQueueInvoker invoker;
    EXPECT_EQ(invoker.GetThreadID(), CThread::GetCurrentThreadId());
    for (const char letter : {'1', '2', '3'}) invoker.Queue(new Owned(log, letter), true);
    invoker.Invoke([&log] { log += '!'; });  // At once on the owning thread.
    EXPECT_EQ(log, "!");
    CMessageLoop::PostQuit(7);  // Comes behind what is posted.
    EXPECT_EQ(CMessageLoop::Run(), 7);
    EXPECT_EQ(log, "!123");
    EXPECT_EQ(Owned::alive, 0);

    // A message whose call is gone does nothing; a call without a message waits for the next one.
    IInvokable* call = nullptr;
    bool owned = false;
    invoker.Queue([&log] { log += 'x'; });
    ASSERT_TRUE(invoker.Pop(call, owned));
    delete call;
    EXPECT_FALSE(invoker.Pop(call, owned));
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(log, "!123");
}

TEST(MessageQueueInvoker, DequeuesDuplicatesAndDeletesOwnedOnes) {
    std::string log;
    CMessageQueueInvoker invoker;
    Owned sample(log, 'd');
    for (const char letter : {'d', 'e', 'd', 'f', 'd'}) invoker.Queue(new Owned(log, letter), true);
    invoker.Queue(&sample, false);
    invoker.DequeueDuplicates(&sample);
    EXPECT_EQ(Owned::alive, 3);
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(log, "ef");
    {
        CMessageQueueInvoker brief;
        brief.Queue(new Owned(log, 'n'), true);
    }
    EXPECT_EQ(Owned::alive, 1);  // What never ran is deleted with the invoker,
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(log, "ef");  // and its message finds nobody.
}

TEST(MessageQueueInvoker, ACallThatPumpsLetsTheNextOnesRunInside) {
    std::string log;
    CMessageQueueInvoker invoker;
    invoker.Queue([&log] {
        log += '(';
        CMessageLoop::PumpWaiting();
        log += ')';
    });
    invoker.Queue([&log] { log += '2'; });
    invoker.Queue([&log] { log += '3'; });
    for (int i = 0; i < 4; ++i) CMessageLoop::PumpWaiting();
    EXPECT_EQ(log, "(23)");
}

TEST(MessageQueueInvoker, CallsBehindTheRunningOneAreStillInTheQueue) {
    std::string log;
    CMessageQueueInvoker invoker;
    Owned sample(log, 'd');
    invoker.Queue([&] {
        for (const char letter : {'4', 'd', '5'}) invoker.Queue(new Owned(log, letter), true);
        invoker.DequeueDuplicates(&sample);  // Of those queued before and those queued here.
        IInvokable* call = nullptr;
        bool owned = false;
        ASSERT_TRUE(invoker.Pop(call, owned));
        call->Invoke();
        delete call;
        log += '(';
        CMessageLoop::PumpWaiting();
        log += ')';
    });
    for (const char letter : {'1', 'd', '2', 'd', '3'}) invoker.Queue(new Owned(log, letter), true);
    CMessageLoop::PumpWaiting();
    EXPECT_EQ(log, "1(2345)");
    EXPECT_EQ(Owned::alive, 1);
}

TEST(MessageQueueInvoker, RandomOperationsAgreeWithAPlainQueue) {
    std::minstd_rand random(7);
    std::string log, expected, queue;
    CMessageQueueInvoker invoker;
    size_t messages = 0;
    for (int i = 0; i < 20'000; ++i) {
        const auto letter = static_cast<char>('a' + random() % 6);
        const auto kind = random() % 64;
        if (kind < 40) {
            invoker.Queue(new Owned(log, letter), true);
            queue += letter;
            ++messages;
        } else if (kind < 44) {
            invoker.Push(new Owned(log, letter), true);
            queue += letter;
        } else if (kind < 56) {
            IInvokable* call = nullptr;
            bool owned = false;
            ASSERT_EQ(invoker.Pop(call, owned), !queue.empty());
            if (call != nullptr) call->Invoke();
            delete call;
            expected += queue.substr(0, 1);
            queue.erase(0, 1);
        } else if (kind < 63) {
            Owned sample(log, letter);
            invoker.DequeueDuplicates(&sample);
            std::erase(queue, letter);
        } else {
            CMessageLoop::PumpWaiting();
            expected += queue.substr(0, messages);
            queue.erase(0, std::exchange(messages, 0));
        }
        ASSERT_EQ(log, expected);
        ASSERT_EQ(Owned::alive, static_cast<int>(queue.size()));
        if (log.size() > 100) log.clear(), expected.clear();
    }
}

/// A call of `size` bytes beside its address.
template <size_t size, size_t alignment>
auto callOf(std::atomic<size_t>& whole, char fill) {
    struct alignas(alignment) Bytes {
        std::array<char, size> of;
    };
    Bytes bytes{};
    bytes.of.fill(fill);
    return [bytes, fill, &whole] {
        const bool aligned = reinterpret_cast<uintptr_t>(&bytes) % alignment == 0;
        whole += aligned && std::count(bytes.of.begin(), bytes.of.end(), fill) == ptrdiff_t{size} ? 1u : 0u;
    };
}

TEST(InvokerThread, KeepsCallsOfAnySizeWholeFromManyThreads) {
    constexpr size_t threads = 3, rounds = 5000;
    std::atomic<size_t> whole{0};
    CInvokerThread target;
    CThread senders[threads];
    for (CThread& sender : senders) {
        sender.Create([&] {
            for (size_t i = 0; i < rounds; ++i) {
                const auto fill = static_cast<char>(i);
                target.Queue(callOf<1, 1>(whole, fill));
                target.Queue(callOf<8, 8>(whole, fill));
                target.Queue(callOf<100, 1>(whole, fill));
                target.Queue(callOf<16, 64>(whole, fill));
            }
        });
    }
    for (CThread& sender : senders) sender.Join();
    CEvent drained(false, true);
    target.Queue([&drained] { drained.Set(); });
    ASSERT_TRUE(drained.Wait(test::generous));
    EXPECT_EQ(whole, threads * rounds * 4);
}

TEST(MessageLoop, DrivesAPlainPollLoop) {
    const auto descriptor = static_cast<int>(CMessageLoop::GetDescriptor());
    const auto readable = [descriptor](int milliseconds) {
        pollfd entry{descriptor, POLLIN, 0};
        return poll(&entry, 1, milliseconds) == 1;
    };
    CMessageLoop::PumpWaiting();
    EXPECT_FALSE(readable(0));
    constexpr int calls = 200;
    int queued = 0, sent = 0;
    std::atomic<bool> finished{false};
    CThread worker;
    CMessageQueueInvoker& here = *messageQueueInvoker;
    ASSERT_EQ(here.GetThreadID(), CThread::GetCurrentThreadId());  // The thread that loaded the library.
    worker.Create([&] {
        for (int i = 0; i < calls; ++i) {
            here.Queue([&queued] { ++queued; });
            here.Invoke([&sent] { ++sent; });
            if (i % 50 == 0) CThread::Sleep(2);
        }
        finished = true;
        here.Queue([] { CMessageLoop::PostQuit(3); });
    });
    int32_t code = 0;
    while (readable(10'000) && CMessageLoop::PumpWaiting(&code)) {
    }
    worker.Join();
    EXPECT_EQ(code, 3);
    EXPECT_EQ(queued, calls);
    EXPECT_EQ(sent, calls);
    CMessageLoop::PumpWaiting();
    EXPECT_FALSE(readable(0));
}

TEST(MessageQueueInvoker, SafeWaitServesSentCallsOnly) {
    CMessageQueueInvoker invoker;
    std::string log;
    invoker.Queue([&log] { log += 'q'; });
    CThread worker;
    worker.Create([&] {
        invoker.Invoke([&log] { log += 's'; });
        invoker.Queue([&log] { log += 'r'; });
        invoker.Invoke([&log] { log += 't'; });
    });
    EXPECT_TRUE(CMessageQueueInvoker::SafeWait(worker.getHandle(), 10'000));
    EXPECT_EQ(log, "st");
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(log, "stqr");

    CThread sleeper;
    CMessageQueueInvoker here;
    std::atomic<bool> go{false};
    sleeper.Create([&] {
        while (!go) CThread::Sleep(1);
    });
    EXPECT_FALSE(CMessageQueueInvoker::SafeWait(sleeper.getHandle(), 5));  // Time over.
    CMessageLoop::PostQuit();
    EXPECT_FALSE(CMessageQueueInvoker::SafeWait(sleeper.getHandle(), 10'000));  // Quit, which is used up:
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_FALSE(CMessageQueueInvoker::SafeWait(-1, 10));
    go = true;
    sleeper.Join();
}

TEST(InvokerThread, RunsOnItsOwnThreadAndEndsWithTheCallInProgress) {
    std::string log;
    uint32_t ranOn = 0;
    {
        CInvokerThread thread;
        EXPECT_NE(thread.GetThreadID(), CThread::GetCurrentThreadId());
        thread.Invoke([&] { ranOn = CThread::GetCurrentThreadId(); });
        EXPECT_EQ(ranOn, thread.GetThreadID());
        thread.Invoke([&thread, &log] { thread.Invoke([&log] { log += 'n'; }); });  // Nested on its own thread.
        std::atomic<bool> began{false};
        thread.Queue([&] {
            began = true;
            CThread::Sleep(20);
            log += 'e';
        });
        while (!began) CThread::Yield();
        thread.Queue([&log] { log += 'x'; });  // Dropped: the thread ends first.
    }
    EXPECT_EQ(log, "ne");
}

TEST(InvokerThread, EndsWhileItsCallCallsBack) {
    std::string log;
    CMessageQueueInvoker here;
    auto thread = std::make_unique<CInvokerThread>();
    std::atomic<bool> began{false};
    thread->Queue([&] {
        began = true;
        CThread::Sleep(10);
        here.Invoke([&log] { log += 'c'; });
    });
    while (!began) CThread::Yield();
    thread.reset();  // Serves the call that it sends here.
    EXPECT_EQ(log, "c");
}

TEST(InvokerThread, DestroyedByItsOwnCall) {
    std::atomic<bool> gone{false};
    auto* thread = new CInvokerThread;
    thread->Queue([thread, &gone] {
        delete thread;
        gone = true;
    });
    while (!gone) CThread::Sleep(1);
}

TEST(MessageQueueInvoker, DestroyedByItsOwnCall) {
    std::string log;
    auto* invoker = new CMessageQueueInvoker;
    invoker->Queue([&] {
        invoker->Queue([&] { delete invoker; });
        CMessageLoop::PumpWaiting();
        log += 'x';
    });
    invoker->Queue(new Owned(log, 'o'), true);
    CMessageLoop::PumpWaiting();
    EXPECT_EQ(log, "ox");
    EXPECT_EQ(Owned::alive, 0);

    // What stood behind the call, before and since it began, is deleted and does not run.
    log.clear();
    invoker = new CMessageQueueInvoker;
    invoker->Queue([&] {
        invoker->Queue(new Owned(log, 'n'), true);
        delete invoker;
        log += 'd';
    });
    for (int i = 0; i < 3; ++i) invoker->Queue(new Owned(log, 'o'), true);
    CMessageLoop::PumpWaiting();
    EXPECT_EQ(log, "d");
    EXPECT_EQ(Owned::alive, 0);
}

/// Joins a thread and ends an invoker thread while both call back; whether all that was awaited. On a thread that has
/// not waited yet.
bool waitsServe(bool descriptors) {
    return test::elsewhere([descriptors] {
        CMessageQueueInvoker here;
        CThread thread;
        auto invokerThread = std::make_unique<CInvokerThread>();
        std::atomic<bool> runs{false};
        int served = 0, ended = 0;
        const auto work = [&] {
            runs = true;
            here.Invoke([&] { ++served; });
            ++ended;
        };
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit few{3, limit.rlim_max};
        bool whole = thread.Create(work);
        if (!descriptors) setrlimit(RLIMIT_NOFILE, &few);
        thread.Join(true);
        whole = whole && served == 1 && ended == 1;
        runs = false;
        invokerThread->Queue(work);
        while (!runs) CThread::Yield();
        invokerThread.reset();
        setrlimit(RLIMIT_NOFILE, &limit);
        return whole && served == 2 && ended == 2;
    });
}

TEST(MessageQueueInvoker, WaitsServeCallsAlsoWithoutADescriptorLeft) {
    // First with descriptors, which a sanitizer needs to look at a type that it has not seen yet.
    EXPECT_TRUE(waitsServe(true));
    EXPECT_TRUE(waitsServe(false));
    for (const intptr_t none : {intptr_t{0x80000005}, intptr_t{1} << 32}) {
        EXPECT_FALSE(CMessageQueueInvoker::SafeWait(none, 0xFFFFFFFF));
    }
}

TEST(MessageQueueInvoker, OfAThreadThatEndedRefusesCalls) {
    std::unique_ptr<CMessageQueueInvoker> orphan;
    CThread thread;
    thread.Create([&orphan] { orphan = std::make_unique<CMessageQueueInvoker>(); });
    thread.Join();
    std::string log;
    orphan->Invoke([&log] { log += 'i'; });
    orphan->Queue(new Owned(log, 'q'), true);
    EXPECT_EQ(log, "");
    orphan->Init();  // Moves here, with what is queued.
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(log, "q");
    EXPECT_EQ(Owned::alive, 0);
}

}  // namespace
}  // namespace qv
