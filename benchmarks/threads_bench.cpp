// Calls between threads: queued calls and synchronous round trips, against Boost.Asio and plain queues with a mutex
// and a condition variable. Events and waits beside them.
#include "rows.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "qv/event.h"
#include "qv/invoker.h"
#include "qv/message_loop.h"

#if defined(QV_PEER_BOOST)
#include <boost/asio.hpp>
#endif

namespace {

constexpr int64_t calls = 100'000;

/// What people write who have no library: one thread, a queue of functions.
class PlainQueue {
public:
    PlainQueue() : m_thread([this] { run(); }) {}
    ~PlainQueue() {
        post({});
        m_thread.join();
    }
    void post(std::function<void()> call) {
        {
            const std::lock_guard lock(m_mutex);
            m_queue.push_back(std::move(call));
        }
        m_condition.notify_one();
    }

private:
    void run() {
        for (;;) {
            std::unique_lock lock(m_mutex);
            m_condition.wait(lock, [this] { return !m_queue.empty(); });
            const std::function<void()> call = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            if (!call) return;
            call();
        }
    }
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::deque<std::function<void()>> m_queue;
    std::thread m_thread;
};

/// The same taking all that waits at once: one lock for many calls when they come fast.
class BatchQueue {
public:
    BatchQueue() : m_thread([this] { run(); }) {}
    ~BatchQueue() {
        post({});
        m_thread.join();
    }
    void post(std::function<void()> call) {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(call));
        if (m_queue.size() == 1) m_condition.notify_one();
    }

private:
    void run() {
        for (std::vector<std::function<void()>> taken;; taken.clear()) {
            std::unique_lock lock(m_mutex);
            m_condition.wait(lock, [this] { return !m_queue.empty(); });
            taken.swap(m_queue);
            lock.unlock();
            for (const std::function<void()>& call : taken) {
                if (!call) return;
                call();
            }
        }
    }
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::vector<std::function<void()>> m_queue;
    std::thread m_thread;
};

class QvThread {
public:
    void post(auto call) { m_invoker.Queue(std::move(call)); }
    void send(auto call) { m_invoker.Invoke(call); }

private:
    qv::CInvokerThread m_invoker;
};

/// Synchronous calls for peers that only post.
template <class Poster>
void sendThrough(Poster& poster, auto call) {
    std::promise<void> done;
    poster.post([&] {
        call();
        done.set_value();
    });
    done.get_future().wait();
}

class Plain : public PlainQueue {
public:
    void send(auto call) { sendThrough(*this, call); }
};

#if defined(QV_PEER_BOOST)
class Asio {
public:
    ~Asio() {
        m_work.reset();
        m_thread.join();
    }
    void post(auto call) { boost::asio::post(m_context, std::move(call)); }
    void send(auto call) { sendThrough(*this, call); }

private:
    boost::asio::io_context m_context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_work{m_context.get_executor()};
    std::thread m_thread{[this] { m_context.run(); }};
};
#endif

/// From one thread to another, as fast as they go.
template <class Thread>
void queuedAcrossThreads(benchmark::State& state) {
    Thread thread;
    for (auto _ : state) {
        std::atomic<int64_t> ran{0};
        for (int64_t i = 0; i < calls; ++i) thread.post([&ran] { ran.fetch_add(1, std::memory_order_relaxed); });
        std::promise<void> last;
        thread.post([&last] { last.set_value(); });
        last.get_future().wait();
        if (ran != calls) state.SkipWithError("calls were lost");
    }
    state.SetItemsProcessed(state.iterations() * calls);
}
/// One after the other: each wakes a thread that sleeps.
template <class Thread>
void roundTrip(benchmark::State& state) {
    Thread thread;
    int64_t ran = 0;
    for (auto _ : state) thread.send([&ran] { ++ran; });
    if (ran != static_cast<int64_t>(state.iterations())) state.SkipWithError("calls were lost");
    state.SetItemsProcessed(state.iterations());
}

QV_ROW("queued call between threads", "qv", queuedAcrossThreads<QvThread>)->UseRealTime();
#if defined(QV_PEER_BOOST)
QV_ROW("queued call between threads", "asio", queuedAcrossThreads<Asio>)->UseRealTime();
#endif
QV_ROW("queued call between threads", "mutex queue", queuedAcrossThreads<Plain>)->UseRealTime();
QV_ROW("queued call between threads", "batch queue", queuedAcrossThreads<BatchQueue>)->UseRealTime();
QV_ROW("call another thread and wait", "qv", roundTrip<QvThread>)->UseRealTime();
#if defined(QV_PEER_BOOST)
QV_ROW("call another thread and wait", "asio", roundTrip<Asio>)->UseRealTime();
#endif
QV_ROW("call another thread and wait", "mutex queue", roundTrip<Plain>)->UseRealTime();

/// Queue and run on one thread: what a call costs without any waiting.
void queuedOnOneThread(benchmark::State& state) {
    qv::CMessageQueueInvoker invoker;
    for (auto _ : state) {
        int64_t ran = 0;
        for (int64_t i = 0; i < calls; ++i) invoker.Queue([&ran] { ++ran; });
        qv::CMessageLoop::PumpWaiting();
        if (ran != calls) state.SkipWithError("calls were lost");
    }
    state.SetItemsProcessed(state.iterations() * calls);
}
QV_ROW("queued call on one thread", "qv", queuedOnOneThread);

#if defined(QV_PEER_BOOST)
void asioOnOneThread(benchmark::State& state) {
    boost::asio::io_context context{1};
    for (auto _ : state) {
        int64_t ran = 0;
        for (int64_t i = 0; i < calls; ++i) boost::asio::post(context, [&ran] { ++ran; });
        context.restart();
        context.run();
        if (ran != calls) state.SkipWithError("calls were lost");
    }
    state.SetItemsProcessed(state.iterations() * calls);
}
QV_ROW("queued call on one thread", "asio", asioOnOneThread);
#endif

void fireDirectly(benchmark::State& state) {
    qv::event1<int> event;
    int64_t sum = 0;
    for (int64_t i = 0; i < state.range(0); ++i) event.AddHandler([&sum](void*, int value) { sum += value; });
    for (auto _ : state) event.Fire(nullptr, 1);
    benchmark::DoNotOptimize(sum);
    bench::setItems(state, 1);
}
QV_ROW("fire an event", "qv", fireDirectly)->ArgName("handlers")->Arg(0)->Arg(1)->Arg(4);

}  // namespace
BENCHMARK_MAIN();
