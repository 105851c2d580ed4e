#include "qv/locks.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "qv/diagnostic.h"
#include "support.h"

namespace {

using namespace qv::test;
using qv::CEvent, qv::CMultiLock, qv::CMutex, qv::CSemaphore, qv::IWaitable;

template <class Lock>
class StandardForms : public testing::Test {};
using Exclusive = testing::Types<qv::CCriticalSection, CMutex, CSemaphore, qv::CRWLock>;
TYPED_TEST_SUITE(StandardForms, Exclusive);

TYPED_TEST(StandardForms, GuardACounterOnFourThreads) {
    TypeParam lock;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                const std::unique_lock<TypeParam> hold(lock);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, 20000);
    const std::lock_guard hold(lock);
    EXPECT_FALSE(elsewhere([&] { return lock.try_lock(); }));
}

TEST(RWLock, ManyReadOrOneWrites) {
    qv::CRWLock lock;
    {
        const std::shared_lock reader(lock);
        EXPECT_TRUE(elsewhere([&] { return lock.TryLockRead() && (lock.UnlockRead(), true); }));
        EXPECT_FALSE(elsewhere([&] { return lock.TryLockWrite(); }));
    }
    lock.LockWrite();
    EXPECT_FALSE(elsewhere([&] { return lock.TryLockRead(); }));
    lock.UnlockWrite();
}

TEST(Mutex, BelongsToOneThreadAsDeepAsItWasTaken) {
    for (const bool watched : {false, true}) {
        CMutex mutex(true);
        EXPECT_FALSE(watched && isReadable(mutex.getHandle()));
        EXPECT_TRUE(mutex.TryLock());
        EXPECT_TRUE(mutex.Unlock());
        EXPECT_FALSE(elsewhere([&] { return mutex.TryLock() || mutex.Lock(1) || mutex.Unlock(); }));
        EXPECT_TRUE(elsewhere([&] { return !mutex.Unlock() && qv::LastDiagnostic().IsSet(); }));
        EXPECT_TRUE(mutex.Unlock());
        EXPECT_FALSE(mutex.Unlock());
        EXPECT_TRUE(elsewhere([&] { return mutex.Lock(0) && mutex.Unlock(); }));
    }
}

// One thread's random steps against a plain number, and the descriptor against what a take would give.
TEST(Waitable, ValuesAndDescriptorsFollowAModel) {
    enum Kind { automatic, manual, semaphore };
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        const auto kind = static_cast<Kind>(round % 3);
        const uint32_t maximum = kind == semaphore ? 5 : 1;
        uint32_t model = random() % 2;
        CEvent event(model != 0, kind == manual);
        CSemaphore counted(model, maximum);
        IWaitable& object = kind == semaphore ? static_cast<IWaitable&>(counted) : event;
        intptr_t handle = -1;
        for (int i = 0; i < 100; ++i) {
            const uint32_t action = random() % 4, n = random() % 4;
            uint32_t before = model;
            if (action == 0) {
                ASSERT_EQ(n == 0 ? object.Lock(1) : object.TryLock(), model > 0);
                model -= model > 0 && kind != manual;
            } else if (action == 1) {
                if (i >= 50) handle = object.getHandle();
            } else if (kind == semaphore) {
                ASSERT_EQ(counted.Release(n, &before), model + n <= maximum);
                ASSERT_EQ(before, model);
                if (model + n <= maximum) model += n;
            } else {
                action == 2 ? event.Reset() : event.Set();
                model = action - 2;
            }
            ASSERT_TRUE(handle == -1 || isReadable(handle) == (model > 0)) << "kind " << kind << " step " << i;
        }
    }
    EXPECT_FALSE(CSemaphore(5, 3).Release());
    EXPECT_FALSE(CSemaphore(1, 0xFFFFFFFF).Release(0xFFFFFFFF));
}

TEST(Event, AManualOneLetsEverybodyPassAnAutomaticOneEachTimeOne) {
    for (const bool manual : {false, true}) {
        CEvent event(false, manual);
        std::atomic<int> passed{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) threads.emplace_back([&] { passed += event.Wait(generous); });
        for (int sets = 1; sets <= (manual ? 1 : 4); ++sets) {
            event.Set();
            while (passed < sets) std::this_thread::yield();
            EXPECT_TRUE(manual || passed == sets);
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(passed, 4);
        EXPECT_EQ(event.Wait(0), manual);
    }
}

// Who was let through may destroy the object, while the thread that let it through is still on its way out.
TEST(Event, MayBeDestroyedByTheThreadThatItWoke) {
    CEvent begin, end;
    CEvent* shared = nullptr;
    std::thread setter([&] {
        while (begin.Wait() && shared != nullptr) {
            shared->Set();
            end.Set();
        }
    });
    for (int i = 0; i < 2000; ++i) {
        auto event = std::make_unique<CEvent>();
        if (i % 2 == 0) event->getHandle();
        shared = event.get();
        begin.Set();
        ASSERT_TRUE(event->Wait(generous));
        event.reset();
        ASSERT_TRUE(end.Wait(generous));
    }
    shared = nullptr;
    begin.Set();
    setter.join();
}

/// Somebody else's kind of object.
class Foreign final : public IWaitable {
public:
    explicit Foreign(uint64_t count) : m_handle(eventfd(static_cast<unsigned>(count), EFD_SEMAPHORE | EFD_NONBLOCK)) {}
    ~Foreign() override { close(m_handle); }
    intptr_t getHandle() const override { return m_handle; }
    bool TryLock() override {
        uint64_t taken = 0;
        return read(m_handle, &taken, sizeof taken) == sizeof taken;
    }
    bool Unlock() override { return eventfd_write(m_handle, 1) == 0; }

private:
    int m_handle;
};

TEST(MultiLock, TakesOneOrAllAndNothingInBetween) {
    CMutex mutex;
    CEvent event;
    CSemaphore semaphore(1, 1);
    Foreign foreign(1), foreignEmpty(0);
    {
        EXPECT_EQ((CMultiLock{&foreign, &foreignEmpty}.Lock(true, 2)), CMultiLock::timedOut);
        CMultiLock lock{&event, &foreign, &mutex, &semaphore, &mutex};
        EXPECT_EQ(lock.Lock(true, 2), CMultiLock::timedOut);
        EXPECT_TRUE(elsewhere([&] { return mutex.TryLock() && mutex.Unlock(); }));
        EXPECT_TRUE(isReadable(foreign.getHandle()));
        EXPECT_EQ(lock.Lock(false), 1);
        EXPECT_EQ(lock.Lock(false), 2);
        EXPECT_FALSE(lock.Unlock(0));
        EXPECT_TRUE(lock.Unlock(1));
        EXPECT_FALSE(lock.Unlock(1));
        event.Set();
        EXPECT_EQ(lock.Lock(true, generous), 0);  // the mutex, twice in the list, once more
        EXPECT_FALSE(event.Wait(0));
        EXPECT_FALSE(lock.IsLocked(4));
        EXPECT_FALSE(isReadable(foreign.getHandle()));
    }
    EXPECT_TRUE(elsewhere([&] { return mutex.TryLock() && mutex.Unlock(); }));
    EXPECT_TRUE(semaphore.TryLock());
    EXPECT_FALSE(event.TryLock());
    std::thread setter([&] { event.Set(); });
    EXPECT_EQ((CMultiLock{&semaphore, &event}.Lock(false, generous)), 1);
    setter.join();
    for (CMultiLock* bad : {new CMultiLock{}, new CMultiLock{&mutex, nullptr}, new CMultiLock(nullptr, 3)}) {
        qv::ClearDiagnostic();
        EXPECT_EQ(bad->Lock(true, 0), CMultiLock::failed);
        EXPECT_TRUE(qv::LastDiagnostic().IsSet());
        delete bad;
    }
}

TEST(MultiLock, SaysWhenNoDescriptorIsLeft) {
    CEvent event, before;
    // A sanitizer needs descriptors to look at a type that it has not seen yet.
    EXPECT_EQ(CMultiLock{&before}.Lock(false, 1), CMultiLock::timedOut);
    EXPECT_FALSE(before.Wait(1));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    qv::ClearDiagnostic();
    const int result = CMultiLock{&event}.Lock(false);
    const bool alone = event.Wait(1), diagnosed = qv::LastDiagnostic().IsSet();
    const intptr_t handle = event.getHandle();
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(result, CMultiLock::failed);
    EXPECT_TRUE(diagnosed && !alone && handle == -1 && event.getHandle() != -1);
}

// Four threads take random objects in random order, some alone and some together. Each taken mutex has one owner, and
// what the semaphores and the automatic event hold is neither lost nor doubled.
TEST(MultiLock, RandomSubsetsAreOwnedExclusively) {
    const ptrdiff_t before = openDescriptors();
    {
        constexpr size_t mutexes = 5, all = 8;
        std::array<CMutex, mutexes> mutex;
        CSemaphore one(1, 1), three(3, 3);
        CEvent token(true);
        std::array<IWaitable*, all> objects{&mutex[0], &mutex[1], &mutex[2], &mutex[3],
                                            &mutex[4], &one,      &three,    &token};
        const std::array<int, all> capacity{1, 1, 1, 1, 1, 1, 3, 1};
        std::array<int64_t, mutexes> counted{};  // each by its mutex's owner
        std::array<std::atomic<int>, all> holders{};
        std::atomic<int> faults{0};
        std::atomic<int64_t> takes{0};
        const auto enter = [&](size_t i) {
            if (i < mutexes) ++counted[i], ++takes;
            if (++holders[i] > capacity[i]) ++faults;
        };
        const auto work = [&](unsigned seed) {
            std::mt19937 random(seed);
            for (int round = 0; round < 1500; ++round) {
                std::array<size_t, all> order{0, 1, 2, 3, 4, 5, 6, 7};
                std::shuffle(order.begin(), order.end(), random);
                const uint32_t count = 1 + random() % 4;
                std::vector<IWaitable*> wanted;
                for (uint32_t i = 0; i < count; ++i) wanted.push_back(objects[order[i]]);
                const bool together = random() % 2 == 0;
                CMultiLock lock(wanted.data(), count);
                const int index = random() % 4 == 0 ? lock.Lock(together, 0) : lock.Lock(together, generous);
                if (index == CMultiLock::timedOut) continue;
                if (index < 0) ++faults;
                for (uint32_t i = 0; i < count; ++i) {
                    if (lock.IsLocked(i) != (together || index == static_cast<int>(i))) ++faults;
                    if (lock.IsLocked(i)) enter(order[i]);
                }
                if (round % 4 == 0) std::this_thread::yield();  // the others run into what is held
                for (uint32_t i = 0; i < count; ++i) {
                    if (!lock.IsLocked(i)) continue;
                    --holders[order[i]];
                    if (objects[order[i]] == &token) token.Set();
                }
                CMutex& alone = mutex[random() % mutexes];
                if (!lock.Unlock()) ++faults;
                if (!alone.Lock(generous) || !alone.Unlock()) ++faults;
            }
        };
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < 4; ++t) threads.emplace_back(work, t);
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(faults, 0);
        EXPECT_EQ(counted[0] + counted[1] + counted[2] + counted[3] + counted[4], takes);
        EXPECT_EQ((CMultiLock(objects.data(), all).Lock(true, 0)), 0);
        EXPECT_TRUE(three.Release(0));
        EXPECT_FALSE(three.Release(1));
        for (CMutex& each : mutex) EXPECT_TRUE(each.TryLock() && each.Unlock());
    }
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
