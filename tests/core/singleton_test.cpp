#include "qv/singleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace qv {
namespace {

struct Counted {
    Counted() {
        std::this_thread::yield();
        ++made;
    }
    static inline std::atomic<int> made{0};
};

TEST(Singleton, ManyThreadsGetOneInstance) {
    using Pointer = TSingletonPtr<Counted, 1, 0>;
    EXPECT_EQ(Counted::made, 0);
    std::vector<Counted*> seen(8);
    std::vector<std::thread> threads;
    for (Counted*& slot : seen) threads.emplace_back([&slot] { slot = Pointer::GetInstance(); });
    for (std::thread& thread : threads) thread.join();
    for (const Counted* instance : seen) EXPECT_EQ(instance, seen[0]);
    EXPECT_EQ(Counted::made, 1);
    EXPECT_EQ(Pointer().operator->(), seen[0]);
}

template <int>
struct Eager {
    Eager() { made = true; }
    static inline bool made = false;
};

TEST(Singleton, OnlyTheEagerOneIsMadeByItsPointer) {
    const TSingletonPtr<Eager<0>, 1, 0> lazy;
    const TSingletonPtr<Eager<1>, 1, 1> eager;
    (void)lazy, (void)eager;
    EXPECT_FALSE(Eager<0>::made);
    EXPECT_TRUE(Eager<1>::made);
}

// The exit pass, watched on the standard error of a child process.

void say(const char* text) { std::fputs(text, stderr); }
void sayLate(void*) { say("late "); }
void sayLater(void*) { say("later "); }

template <int Id, bool Registers = false>
struct Speaker {
    ~Speaker() {
        const char name[] = {static_cast<char>('0' + Id), ' ', '\0'};
        say(name);
        if (!Registers) return;
        // Taken along by the pass that is running: the higher order first.
        Private::DeleteAtExit(nullptr, 1, &sayLate);
        Private::DeleteAtExit(nullptr, 9, &sayLater);
        if (TSingletonPtr<Speaker<1>, 1, 0>::GetInstance() != nullptr) say("sees-1 ");
    }
};

struct Retiring {
    ~Retiring() { say("destroyed "); }
    void retire() { say("retired "); }
};

TEST(SingletonDeathTest, ExitRetiresWhatCanBeRetired) {
    const auto run = [] {
        TSingletonPtr<Speaker<6>, 1, 0>::GetInstance();
        TSingletonPtr<Retiring, 1, 0>::GetInstance();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "^retired 6 $");
}

TEST(SingletonDeathTest, ExitDestroysByOrderThenNewestFirst) {
    const auto run = [] {
        TSingletonPtr<Speaker<1>, 1, 0>::GetInstance();
        TSingletonPtr<Speaker<2>, 5, 0>::GetInstance();
        TSingletonPtr<Speaker<3, true>, 1, 0>::GetInstance();
        TSingletonPtr<Speaker<4>, 1, 0>::GetInstance();
        TSingletonPtr<Speaker<5>, 5, 0>::GetInstance();
        std::exit(0);
    };
    // 5 and 2 have the higher order. 3 registers while four callbacks of the runtime are still to come, so its
    // registrations are sorted into the table and run in front of what is left there.
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "^5 2 4 3 sees-1 later late 1 $");
}

}  // namespace
}  // namespace qv
