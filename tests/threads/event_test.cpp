// Events, and the one-function callback.
#include "qv/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "qv/message_loop.h"
#include "qv/thread.h"

namespace qv {
namespace {

std::string heard;
void hear(void* sender) { heard += sender == &heard ? 'h' : '?'; }
void hearToo(void*) { heard += 't'; }

struct Listener {
    void on(void*, int value, CString text) { heard += std::to_string(value) + CStringMB(text).c_str(); }
};

TEST(Event, CallsHandlersInOrderWithSenderAndArguments) {
    heard.clear();
    event0 plain;
    EXPECT_FALSE(plain.HasHandlers());
    plain.Fire(&heard);
    plain.AddHandler(&hear);
    plain.AddHandler(&hearToo);
    plain.AddHandler([](void* sender) { heard += sender == &heard ? 'l' : '?'; });
    plain.Fire(&heard);
    EXPECT_EQ(heard, "htl");

    // Removal by what compares equal; an unknown handler stays with its owner.
    auto* unknown = makeDelegate<void*>([](void*) {});
    EXPECT_FALSE(plain.RemoveHandlerEx(unknown));
    unknown->Release();
    EXPECT_TRUE(plain.RemoveHandlerEx(makeDelegate(&hear)));
    plain.Fire(&heard);
    EXPECT_EQ(heard, "htltl");

    heard.clear();
    Listener listener;
    event2<int, CString> two;
    two.AddHandler(&listener, &Listener::on);
    two.Fire(nullptr, 4, u"x");
    EXPECT_EQ(heard, "4x");
}

TEST(Event, RunsHandlersWhereTheyBelong) {
    heard.clear();
    CMessageQueueInvoker here;
    CInvokerThread there;
    std::u16string direct, synchronous, queued;
    uint32_t ranOn[3] = {};
    event1<const char16_t*> named;
    const auto note = [&ranOn](int which, std::u16string& to) {
        return [which, &to, &ranOn](void*, const char16_t* text) {
            ranOn[which] = CThread::GetCurrentThreadId();
            to = text;
        };
    };
    named.AddHandler(note(0, direct));
    named.AddHandler(note(1, synchronous), &there);
    named.AddHandler(note(2, queued), &here, true);
    {
        std::u16string name = u"folder/run 7.saf";
        named.Fire(nullptr, name.c_str());
        name.assign(16, u'#');
    }
    EXPECT_EQ(direct, u"folder/run 7.saf");
    EXPECT_EQ(synchronous, direct);
    EXPECT_EQ(queued, u"");
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(queued, direct);
    const uint32_t self = CThread::GetCurrentThreadId();
    EXPECT_EQ(ranOn[0], self);
    EXPECT_EQ(ranOn[1], there.GetThreadID());
    EXPECT_EQ(ranOn[2], self);

    // A queued firing can be taken back by its handler.
    auto* counted = makeDelegate<void*, const char16_t*>([](void*, const char16_t*) { heard += 'c'; });
    invokable2<void*, const char16_t*> sample(counted->Clone(), nullptr, nullptr);
    named.AddHandlerEx(counted, &here, true);
    named.Fire(nullptr, u"again");
    here.DequeueDuplicates(&sample);
    EXPECT_TRUE(CMessageLoop::PumpWaiting());
    EXPECT_EQ(heard, "");
}

TEST(Event, HandlersMayChangeTheListTheyAreCalledFrom) {
    heard.clear();
    event0 once;
    event0::Handler *first = nullptr, *third = nullptr;
    first = once.AddHandler([&](void*) {
        heard += '1';
        EXPECT_TRUE(once.RemoveHandler(first));
        EXPECT_TRUE(once.RemoveHandler(third));
        once.AddHandler(&hearToo);
    });
    once.AddHandler([](void*) { heard += '2'; });
    third = once.AddHandler([](void*) { heard += '3'; });
    once.Fire(nullptr);
    EXPECT_EQ(heard, "12");
    once.Fire(nullptr);
    EXPECT_EQ(heard, "122t");
}

TEST(Event, ManyThreadsAddFireAndRemove) {
    event0 busy;
    std::atomic<int> calls{0};
    busy.AddHandler([&calls](void*) { ++calls; });
    constexpr int rounds = 2000;
    CThread threads[4];
    for (CThread& thread : threads) {
        thread.Create([&] {
            for (int i = 0; i < rounds; ++i) {
                auto* mine = busy.AddHandler([&calls](void*) { ++calls; });
                busy.Fire(nullptr);
                EXPECT_TRUE(busy.RemoveHandler(mine));
            }
        });
    }
    for (CThread& thread : threads) thread.Join();
    EXPECT_GE(calls, 4 * rounds * 2);  // Each hears itself and the first handler at least.
    calls = 0;
    busy.Fire(nullptr);
    EXPECT_EQ(calls, 1);
}

int twice(int x) { return 2 * x; }
void shout() { heard += '!'; }

TEST(Callback, HoldsOneFunctionOrNone) {
    heard.clear();
    TCallback<void, void, void, void, void> plain;
    plain();
    plain.set(&shout);
    plain();
    EXPECT_EQ(heard, "!");
    TCallback<int, int> number;
    EXPECT_FALSE(number.isset());
    EXPECT_EQ(number(4), 0);
    number.set(&twice);
    EXPECT_EQ(number(4), 8);
    number.unset();
    EXPECT_FALSE(number.isset());
}

}  // namespace
}  // namespace qv
