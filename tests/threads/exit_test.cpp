// What is used while the process ends, after the exit pass and the end of the main thread's own objects.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "qv/event.h"
#include "qv/log.h"
#include "qv/message_loop.h"
#include "qv/thread.h"
#include "qv/timer.h"

namespace qv {
namespace {

/// Everything that a handler may reach for.
void useAll(event1<int>& event, bool& ranHere) {
    gLog->WriteLine(u"the process ends");
    directInvoker->Queue([] {});
    threadInvoker->Queue([] { gLog->WriteLine(u"on the invoker's thread"); });
    threadInvoker->Invoke([] {});  // Not run any more, and not waited for.
    messageQueueInvoker->Queue([] {});
    messageQueueInvoker->Invoke([&ranHere] { ranHere = true; });
    event.Fire(nullptr, 1);
    (void)fileSystem().FileExists(u"/");
    CMessageLoop::PumpWaiting();
    CTimer late;
    late.Create(1);
    late.Start();
}

/// Destroyed by exit() behind everything that was made after it.
struct Late {
    ~Late() {
        bool ran = false;
        useAll(event, ran);
        std::fputs(ran ? "late calls ran" : "late calls lost", stderr);
    }
    event1<int>& event = *new event1<int>;  // Its users outlive every destructor.
};

TEST(InvokerExitDeathTest, HandlersAndLinesWhileTheProcessEnds) {
    const auto run = [] {
        static Late late;
        static CTimer timer;
        late.event.AddHandler([](void*, int) {}, &*threadInvoker, false);
        late.event.AddHandler([](void*, int) {}, &*messageQueueInvoker, true);
        late.event.AddHandler([](void*, int) {}, &*messageQueueInvoker, false);
        timer.Create(1);
        timer.Start();
        // Threads that go on calling and firing while the main one leaves.
        for (int i = 0; i < 3; ++i) {
            CThread().Create([] {
                bool ran = false;
                for (;;) useAll(late.event, ran);
            });
        }
        CThread::Sleep(20);
        std::exit(0);
    };
    for (int i = 0; i < 5; ++i) EXPECT_EXIT(run(), testing::ExitedWithCode(0), "late calls ran");
}

}  // namespace
}  // namespace qv
