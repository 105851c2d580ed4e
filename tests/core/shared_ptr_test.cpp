#include "qv/shared_ptr.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace qv {
namespace {

struct Base {
    explicit Base(int* deaths) : m_deaths(deaths) {}
    virtual ~Base() { ++*m_deaths; }
    int* m_deaths;
};
struct Derived : Base {
    using Base::Base;
};

TEST(SharedPtr, TheLastShareDeletes) {
    int deaths = 0;
    TSharedPtr<Base> first(new Derived(&deaths));
    {
        const TSharedPtr<Base> second = first;
        EXPECT_EQ(first.useCount(), 2);
        EXPECT_TRUE(first == second);
        first = nullptr;
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
    EXPECT_TRUE(first == nullptr);
    EXPECT_EQ(first.useCount(), 0);
}

TEST(SharedPtr, TheDestroyFunctionDecides) {
    int deaths = 0;
    static int calls;
    calls = 0;
    Base object(&deaths);
    {
        const TSharedPtr<Base> own(
            &object, +[](Base*) { ++calls; });
    }
    EXPECT_EQ(calls, 1);
    { const TSharedPtr<Base> borrowed(&object, TSharedPtr<Base>::notOwned()); }
    EXPECT_EQ(deaths, 0);
    {
        const TSharedPtr<Base> nothing(
            nullptr, +[](Base*) { ++calls; });
    }
    EXPECT_EQ(calls, 1);
}

TEST(SharedPtr, ConvertsToTheBaseClassSharingTheCount) {
    int deaths = 0;
    TSharedPtr<Derived> derived(new Derived(&deaths));
    TSharedPtr<Base> base = derived;
    EXPECT_EQ(derived.useCount(), 2);
    derived.reset();
    EXPECT_EQ(deaths, 0);
    base.reset();
    EXPECT_EQ(deaths, 1);
}

struct Ring {
    TSharedPtr<Ring> self;
    int* deaths;
    ~Ring() {
        self.Release();
        ++*deaths;
    }
};

TEST(SharedPtr, ADestructorMayReleaseThePointerThatRunsIt) {
    int deaths = 0;
    static TSharedPtr<Ring>* holder;
    TSharedPtr<Ring> pointer(
        new Ring{nullptr, &deaths}, +[](Ring* ring) {
            holder->Release();
            delete ring;
        });
    holder = &pointer;
    pointer.Release();
    EXPECT_EQ(deaths, 1);
}

TEST(SharedPtr, CopiesOnManyThreadsKeepOneCount) {
    int deaths = 0;
    {
        const TSharedPtr<Base> shared(new Base(&deaths));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([mine = shared] {
                std::vector<TSharedPtr<Base>> copies;
                for (int i = 0; i < 5000; ++i) copies.push_back(mine);
            });
        }
        for (std::thread& thread : threads) thread.join();
        threads.clear();
        EXPECT_EQ(shared.useCount(), 1);
    }
    EXPECT_EQ(deaths, 1);
}

}  // namespace
}  // namespace qv
