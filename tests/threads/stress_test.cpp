// Many calls between threads at once: nothing lost, order kept, no lock-up.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <vector>

#include "qv/invoker.h"
#include "qv/thread.h"

namespace qv {
namespace {

constexpr uint32_t threads = 4;
constexpr uint32_t callsOfEach = 25'000;

/// One call of a sender. Calls of one sender and kind are the same to DequeueDuplicates.
struct Numbered : IInvokable {
    struct Receiver {
        std::vector<uint32_t> last = std::vector<uint32_t>(threads, 0);
        uint64_t ran = 0;
        bool ordered = true;
    };
    Numbered(Receiver& to, uint32_t from, uint32_t serial, bool removable)
        : m_to(to), m_from(from), m_serial(serial), m_removable(removable) {}
    ~Numbered() override { ++deleted; }
    void Invoke() override {
        ++m_to.ran;
        m_to.ordered = m_to.ordered && m_serial > m_to.last[m_from];
        m_to.last[m_from] = m_serial;
    }
    bool SameHandler(IInvokable* other) override {
        const auto* same = dynamic_cast<Numbered*>(other);
        return same != nullptr && m_removable && same->m_from == m_from;
    }
    static inline std::atomic<uint64_t> deleted{0};

private:
    Receiver& m_to;
    uint32_t m_from, m_serial;
    bool m_removable;
};

TEST(InvokerStress, NothingIsLostAndOrderIsKept) {
    std::vector<std::unique_ptr<CInvokerThread>> invokers;
    std::vector<Numbered::Receiver> receivers(threads);
    for (uint32_t i = 0; i < threads; ++i) invokers.push_back(std::make_unique<CInvokerThread>());
    std::atomic<uint64_t> queuedKept{0}, queuedRemovable{0}, sent{0}, sentRan{0};
    const auto senderLoop = [&](uint32_t self) {
        std::minstd_rand random(self + 1);
        for (uint32_t i = 1; i <= callsOfEach; ++i) {
            const uint32_t to = random() % threads;
            IInvoker& target = *invokers[to];
            const uint32_t kind = random() % 16;
            if (kind == 0) {
                Numbered sample(receivers[to], self, 0, true);
                target.DequeueDuplicates(&sample);
            } else if (kind < 4) {
                ++sent;
                target.Invoke([&sentRan] { ++sentRan; });
            } else {
                const bool removable = kind < 6;
                ++(removable ? queuedRemovable : queuedKept);
                target.Queue(new Numbered(receivers[to], self, i, removable), true);
            }
        }
    };
    // Each loop runs on an invoker's own thread, so that the threads send to each other in all directions.
    std::atomic<uint32_t> done{0};
    for (uint32_t i = 0; i < threads; ++i) {
        invokers[i]->Queue([&, i] {
            senderLoop(i);
            ++done;
        });
    }
    for (uint32_t waited = 0; done < threads && waited < 120'000; ++waited) CThread::Sleep(1);
    ASSERT_EQ(done, threads) << "lock-up";
    for (auto& invoker : invokers) {
        // The queue runs in order, so a call behind the others says that they have run.
        std::atomic<bool> drained{false};
        invoker->Queue([&drained] { drained = true; });
        while (!drained) CThread::Sleep(1);
    }
    uint64_t ran = 0;
    for (const Numbered::Receiver& receiver : receivers) {
        EXPECT_TRUE(receiver.ordered);
        ran += receiver.ran;
    }
    EXPECT_EQ(sent, sentRan);
    EXPECT_GE(ran, queuedKept);
    EXPECT_LE(ran, queuedKept + queuedRemovable);
    invokers.clear();
    EXPECT_GE(Numbered::deleted, queuedKept + queuedRemovable);
}

TEST(InvokerStress, TwoThreadsThatCallEachOtherDoNotLockUp) {
    CInvokerThread left, right;
    std::atomic<int> depth{0}, deepest{0};
    const auto bounce = [&](auto& self, int levels) -> void {
        if (levels == 0) return;
        deepest = std::max<int>(deepest, ++depth);
        IInvoker& next = levels % 2 == 0 ? right : left;
        next.Invoke([&] { self(self, levels - 1); });
        --depth;
    };
    std::atomic<int> finished{0};
    for (CInvokerThread* thread : {&left, &right}) {
        thread->Queue([&, thread] {
            for (int i = 0; i < 500; ++i) {
                (thread == &left ? right : left).Invoke([] {});
                bounce(bounce, 6);
            }
            ++finished;
        });
    }
    for (uint32_t waited = 0; finished < 2 && waited < 60'000; ++waited) CThread::Sleep(1);
    ASSERT_EQ(finished, 2) << "lock-up";
    EXPECT_GE(deepest, 6);
}

}  // namespace
}  // namespace qv
