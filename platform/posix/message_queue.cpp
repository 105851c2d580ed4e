#include "platform/message_queue.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <limits>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/thread.h"
#include "platform/thread_number.h"

namespace qv::platform {

struct MessageTarget::State {
    Procedure procedure;
    void* object;
    uint32_t threadId;
    uint64_t thread;                      // Its number, which no later thread has.
    std::shared_ptr<MessageQueue> queue;  // A closed one on a thread that had none any more.
    std::atomic<bool> alive{true};
};

namespace {

using TargetState = std::shared_ptr<MessageTarget::State>;

constexpr size_t cacheLine = 64;
constexpr int64_t never = std::numeric_limits<int64_t>::max();

/// A wait for which no descriptor is left to wake it looks around after so many milliseconds.
constexpr uint32_t blindMilliseconds = 10;

struct Message {
    TargetState target;
    uint32_t code;
    uintptr_t first;
    void* second;

    void run() const noexcept {
        if (target->alive.load(std::memory_order_acquire)) target->procedure(target->object, code, first, second);
    }
};

/// Messages in their order. Equal ones that follow each other, as the queued calls of one invoker make them, take the
/// room of one.
class MessageList {
public:
    /// Throws std::bad_alloc.
    void append(const TargetState& target, uint32_t code, uintptr_t first, void* second) {
        if (!m_runs.empty()) {
            Run& last = m_runs.back();
            const Message& message = last.message;
            if (message.target == target && message.code == code && message.first == first &&
                message.second == second) {
                ++last.count;
                ++m_size;
                return;
            }
        }
        m_runs.push_back({{target, code, first, second}, 1});
        ++m_size;
    }
    /// Removes the first message, which there is, and runs it.
    void runFirst() {
        Run& first = m_runs.front();
        --m_size;
        if (--first.count == 0) {
            const Message message = std::move(first.message);
            m_runs.pop_front();
            message.run();
        } else {
            // The list may change before this returns, but nothing is read from it any more.
            first.message.run();
        }
    }
    bool empty() const { return m_size == 0; }
    size_t size() const { return m_size; }
    void swap(MessageList& other) {
        m_runs.swap(other.m_runs);
        std::swap(m_size, other.m_size);
    }

private:
    struct Run {
        Message message;
        size_t count;
    };
    std::deque<Run> m_runs;
    size_t m_size = 0;
};

/// A message whose sender waits; lives on the sender's stack.
struct SentMessage {
    Message message;
    std::shared_ptr<MessageQueue> sender;
    uint32_t senderId;
    const SentMessage* cause;  // What the sender was serving when it sent this; it waits in there.
    bool done = false;         // Guarded by the sender's queue.
    bool ran = false;
};

/// The sent message that this thread runs.
thread_local const SentMessage* serving = nullptr;

struct Timer {
    uintptr_t id;
    int64_t interval;  // Nanoseconds.
    int64_t deadline;
    void (*tick)(uintptr_t);
};

}  // namespace

/// Posted messages wait in two queues: others add to m_posted under the mutex, the owner takes all of them at once to
/// m_taken, which is its own; so it meets the mutex once for all that came while it was busy. The owner sleeps on the
/// condition variable, or, when it waits for a descriptor as well, in poll with m_wakeSignal; whoever adds something
/// wakes it in the way in which it sleeps, and not at all when it is awake. No wake is lost: the owner looks for news
/// and notes in m_waits how it will sleep under one hold of the mutex, so who adds something comes before the look or
/// finds the note. The first to find it takes it down: one wake for each sleep. m_external exists when an outside loop
/// asked for it.
class MessageQueue : public std::enable_shared_from_this<MessageQueue> {
public:
    ~MessageQueue() {
        closeHandle(m_wakeSignal);
        closeHandle(m_external);
    }

    std::mutex& mutex() { return m_mutex; }

    bool post(std::unique_lock<std::mutex> lock, const TargetState& target, uint32_t code, uintptr_t first,
              void* second) {
        if (m_closed) return false;
        try {
            m_posted.append(target, code, first, second);
        } catch (const std::bad_alloc&) {
            return false;
        }
        wake(std::move(lock), WaitFor::anyMessage);
        return true;
    }

    /// Adds a sent message; false when this queue's thread has ended.
    bool addSent(SentMessage& sent) {
        std::unique_lock lock(m_mutex);
        if (m_closed) return false;
        try {
            m_sent.push_back(&sent);
        } catch (const std::bad_alloc&) {
            return false;
        }
        m_urgent.store(true, std::memory_order_release);
        wake(std::move(lock), WaitFor::sent);
        return true;
    }

    /// Owner: waits until `sent`, which it sent elsewhere, is done.
    void awaitDone(const SentMessage& sent) {
        std::unique_lock lock(m_mutex);
        while (!sent.done) {
            if (m_sent.empty()) {
                sleep(lock, WaitFor::sent, never);
            } else {
                serveSent(lock);
            }
        }
    }

    messages::Outcome dispatchOne(int32_t& exitCode) {
        if (m_urgent.load(std::memory_order_acquire)) serveUrgent();
        if (timerDue() && timersTurn()) {
            m_timerTurn = false;
            fireDueTimer();
            return messages::Outcome::dispatched;
        }
        m_timerTurn = true;
        if (takePosted()) {
            m_taken.runFirst();
            return messages::Outcome::dispatched;
        }
        return useQuit(exitCode) ? messages::Outcome::quit : messages::Outcome::empty;
    }

    size_t waiting() {
        const std::lock_guard lock(m_mutex);
        const int64_t now = monotonicNanoseconds();
        const auto due = std::count_if(m_timers.begin(), m_timers.end(), [now](auto& t) { return t.deadline <= now; });
        return m_taken.size() + m_posted.size() + static_cast<size_t>(due);
    }

    bool waitForMessage(uint32_t milliseconds) {
        const int64_t deadline = deadlineAfter(milliseconds);
        std::unique_lock lock(m_mutex);
        while (!pending(WaitFor::anyMessage)) {
            if (!sleep(lock, WaitFor::anyMessage, std::min(deadline, m_nextTimer)) &&
                monotonicNanoseconds() >= deadline) {
                return false;
            }
        }
        return true;
    }

    WaitResult wait(WaitHandle handle, WaitFor what, uint32_t milliseconds) {
        int64_t deadline = deadlineAfter(milliseconds);
        for (;;) {
            if (serveUrgent()) deadline = deadlineAfter(milliseconds);
            int32_t exitCode = 0;
            if (what == WaitFor::sent && takeQuit(exitCode)) return WaitResult::quit;
            const int ready = pollWith(handle, what, deadline);
            if (ready == 0) return WaitResult::handle;
            if (ready == waitFailed) return WaitResult::failed;
            if (what == WaitFor::anyMessage && hasPending(what)) return WaitResult::message;
            if (ready == waitTimedOut && monotonicNanoseconds() >= deadline) return WaitResult::timedOut;
        }
    }

    bool waitServing(WaitHandle handle, uint32_t milliseconds) {
        const int64_t deadline = deadlineAfter(milliseconds);
        for (;;) {
            serveUrgent();
            const int ready = pollWith(handle, WaitFor::sent, deadline, false);
            if (ready == 0) return true;
            if (ready == waitFailed || (ready == waitTimedOut && monotonicNanoseconds() >= deadline)) return false;
        }
    }

    void postQuit(int32_t exitCode) {
        std::unique_lock lock(m_mutex);
        m_quit = true;
        m_exitCode = exitCode;
        wake(std::move(lock), WaitFor::sent);
    }

    WaitHandle descriptor() {
        const std::lock_guard lock(m_mutex);
        if (m_external == noHandle) m_external = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        setExternal(pending(WaitFor::anyMessage) ? 0 : m_nextTimer);
        return m_external;
    }

    void addTimer(const Timer& timer) {
        const std::lock_guard lock(m_mutex);
        m_timers.push_back(timer);
        timersChanged();
    }
    bool removeTimer(uintptr_t id) {
        const std::lock_guard lock(m_mutex);
        if (std::erase_if(m_timers, [id](const Timer& timer) { return timer.id == id; }) == 0) return false;
        timersChanged();
        return true;
    }

    /// The thread ends: what waits is dropped, and who waits goes on.
    void close() {
        MessageList dropped, taken;
        std::deque<SentMessage*> refused;
        {
            const std::lock_guard lock(m_mutex);
            m_closed = true;
            m_posted.swap(dropped);
            m_sent.swap(refused);
        }
        m_taken.swap(taken);
        for (SentMessage* sent : refused) complete(*sent, false);
    }

private:
    /// Wakes the owner for something new, unless it waits for sent messages and this is none. Lets go of the mutex
    /// first: who is woken needs it.
    void wake(std::unique_lock<std::mutex> lock, WaitFor what) {
        if (m_external != noHandle && m_externalAt != 0) setExternal(0);
        if (m_waits == Waits::awake || (what == WaitFor::anyMessage && m_waitsFor == WaitFor::sent)) return;
        const Waits waited = std::exchange(m_waits, Waits::awake);
        if (waited == Waits::sleeping) {
            // Who sees the news at once may end its thread, and the queue with it.
            const std::shared_ptr<MessageQueue> kept = shared_from_this();
            lock.unlock();
            m_condition.notify_one();
        } else {
            raiseSignal(m_wakeSignal);
        }
    }

    /// Mutex held, owner. False when the deadline has come.
    bool sleep(std::unique_lock<std::mutex>& lock, WaitFor what, int64_t deadline) {
        m_waits = Waits::sleeping;
        m_waitsFor = what;
        const auto woken = [this] { return m_waits == Waits::awake; };
        if (deadline == never) {
            m_condition.wait(lock, woken);
            return true;
        }
        const auto point = std::chrono::steady_clock::time_point(std::chrono::nanoseconds(deadline));
        if (m_condition.wait_until(lock, point, woken)) return true;
        m_waits = Waits::awake;
        return false;
    }

    /// Owner. 0 when the handle is readable, 1 when something came to this queue, otherwise as waitForAny.
    int pollWith(WaitHandle handle, WaitFor what, int64_t deadline, bool quitCounts = true) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_wakeSignal == noHandle) m_wakeSignal = createSignal(0, false);
            if (!m_sent.empty() || (quitCounts && m_quit) || (what == WaitFor::anyMessage && pending(what))) return 1;
            if (what == WaitFor::anyMessage) deadline = std::min(deadline, m_nextTimer);
            if (m_wakeSignal != noHandle) {
                m_waits = Waits::polling;
                m_waitsFor = what;
            }
        }
        if (m_wakeSignal == noHandle) {
            return waitForAny(&handle, 1, std::min(millisecondsUntil(deadline), blindMilliseconds));
        }
        const WaitHandle both[] = {handle, m_wakeSignal};
        const int ready = waitForAny(both, 2, millisecondsUntil(deadline));
        const std::lock_guard lock(m_mutex);
        // A wake that came in the last moment is for this wait too.
        if (std::exchange(m_waits, Waits::awake) == Waits::awake) takeSignal(m_wakeSignal);
        return ready;
    }

    /// Mutex held.
    bool pending(WaitFor what) const {
        if (!m_sent.empty() || m_quit) return true;
        if (what == WaitFor::sent) return false;
        return !m_taken.empty() || !m_posted.empty() || (m_nextTimer != never && m_nextTimer <= monotonicNanoseconds());
    }
    bool hasPending(WaitFor what) {
        const std::lock_guard lock(m_mutex);
        return pending(what);
    }

    /// Owner. True when something was served.
    bool serveUrgent() {
        std::unique_lock lock(m_mutex);
        const bool any = !m_sent.empty();
        while (!m_sent.empty()) serveSent(lock);
        m_urgent.store(false, std::memory_order_relaxed);
        return any;
    }

    /// Mutex held, owner: runs the first sent message without the mutex.
    void serveSent(std::unique_lock<std::mutex>& lock) {
        SentMessage* const sent = m_sent.front();
        m_sent.pop_front();
        lock.unlock();
        const bool alive = sent->message.target->alive.load(std::memory_order_acquire);
        const SentMessage* const outer = std::exchange(serving, sent);
        sent->message.run();
        serving = outer;
        complete(*sent, alive);
        lock.lock();
    }

    static void complete(SentMessage& sent, bool ran) {
        // The sender may be gone as soon as it sees `done`; its queue has to stay until the mutex is let go.
        const std::shared_ptr<MessageQueue> sender = sent.sender;
        std::unique_lock lock(sender->m_mutex);
        sent.ran = ran;
        sent.done = true;
        sender->wake(std::move(lock), WaitFor::sent);
    }

    /// Owner. Timers take turns with what is posted, and come behind an order to quit: timers that are due all the time
    /// would hold it up for ever.
    bool timersTurn() {
        if (!m_taken.empty()) return m_timerTurn;
        const std::lock_guard lock(m_mutex);
        return m_posted.empty() ? !m_quit : m_timerTurn;
    }

    /// Owner. True when m_taken has a message.
    bool takePosted() {
        if (!m_taken.empty()) return true;
        const std::lock_guard lock(m_mutex);
        m_taken.swap(m_posted);
        return !m_taken.empty();
    }

    bool takeQuit(int32_t& exitCode) {
        const std::lock_guard lock(m_mutex);
        if (!std::exchange(m_quit, false)) return false;
        exitCode = m_exitCode;
        return true;
    }

    /// Owner, with nothing posted when it looked last.
    bool useQuit(int32_t& exitCode) {
        const std::lock_guard lock(m_mutex);
        if (m_posted.empty() && std::exchange(m_quit, false)) {
            exitCode = m_exitCode;
            return true;
        }
        if (m_external != noHandle && !pending(WaitFor::anyMessage)) setExternal(m_nextTimer);
        return false;
    }

    /// Mutex held. `when` 0: readable now; never: not readable.
    void setExternal(int64_t when) {
        if (m_external == noHandle) return;
        m_externalAt = when;
        itimerspec spec{};
        if (when != never) {
            const int64_t at = std::max<int64_t>(when, 1);
            spec.it_value = {at / 1'000'000'000, at % 1'000'000'000};
        }
        (void)timerfd_settime(static_cast<int>(m_external), TFD_TIMER_ABSTIME, &spec, nullptr);
    }

    /// Mutex held.
    void timersChanged() {
        int64_t next = never;
        for (const Timer& timer : m_timers) next = std::min(next, timer.deadline);
        m_nextTimer = next;
        m_nextTimerSeen.store(next, std::memory_order_relaxed);
        if (m_external != noHandle && m_externalAt != 0) setExternal(next);
    }

    bool timerDue() const {
        const int64_t next = m_nextTimerSeen.load(std::memory_order_relaxed);
        return next != never && next <= monotonicNanoseconds();
    }

    void fireDueTimer() {
        Timer due{};
        {
            const std::lock_guard lock(m_mutex);
            const auto first = std::min_element(m_timers.begin(), m_timers.end(),
                                                [](auto& a, auto& b) { return a.deadline < b.deadline; });
            const int64_t now = monotonicNanoseconds();
            if (first == m_timers.end() || first->deadline > now) return;
            due = *first;
            skipToNextBeat(*first, now);
        }
        due.tick(due.id);
        // What a slow tick missed is gone too: its own timer does not keep the queue from coming to rest.
        const std::lock_guard lock(m_mutex);
        const auto ticked = std::find_if(m_timers.begin(), m_timers.end(), [&](auto& t) { return t.id == due.id; });
        const int64_t now = monotonicNanoseconds();
        if (ticked != m_timers.end() && ticked->deadline <= now) skipToNextBeat(*ticked, now);
    }
    /// Mutex held. The beat stays; `now` is not before the deadline.
    void skipToNextBeat(Timer& timer, int64_t now) {
        timer.deadline += (now - timer.deadline) / timer.interval * timer.interval + timer.interval;
        timersChanged();
    }

    enum class Waits : uint8_t { awake, sleeping, polling };

    // What posting touches, and what the owner looks at for each message, lie apart: neither slows the other down.
    alignas(cacheLine) std::mutex m_mutex;
    MessageList m_posted;
    bool m_closed = false;
    Waits m_waits = Waits::awake;
    WaitFor m_waitsFor = WaitFor::sent;
    bool m_quit = false;
    int32_t m_exitCode = 0;
    WaitHandle m_wakeSignal = noHandle;
    WaitHandle m_external = noHandle;  // A timer: set to the past while something waits, else to the next deadline.
    int64_t m_externalAt = never;
    std::deque<SentMessage*> m_sent;
    std::vector<Timer> m_timers;
    int64_t m_nextTimer = never;
    std::condition_variable m_condition;

    alignas(cacheLine) MessageList m_taken;  // The owner's alone.
    bool m_timerTurn = true;                 // The owner's alone.
    std::atomic<bool> m_urgent{false};       // Something was sent.
    std::atomic<int64_t> m_nextTimerSeen{never};
};

namespace {

enum class Stage : uint8_t { none, open, ended };

/// Plain words, so that they can be read while the thread's other objects are being destroyed.
thread_local Stage stage = Stage::none;
thread_local MessageQueue* queueOfThread = nullptr;

struct QueueHolder {
    std::shared_ptr<MessageQueue> queue = std::make_shared<MessageQueue>();
    QueueHolder() {
        queueOfThread = queue.get();
        stage = Stage::open;
    }
    ~QueueHolder() {
        stage = Stage::ended;
        queueOfThread = nullptr;
        queue->close();
    }
};

/// Null only when the thread is about to end.
MessageQueue* current() {
    if (stage == Stage::none) {
        thread_local const QueueHolder holder;
        return holder.queue.get();
    }
    return queueOfThread;
}

/// Which queue a timer belongs to, for a thread that stops another's.
struct TimerRegister {
    std::mutex mutex;
    std::unordered_map<uintptr_t, std::weak_ptr<MessageQueue>> queues;
    uintptr_t last = 0;
};
TimerRegister& timerRegister() {
    static auto* made = new TimerRegister;  // Never destroyed: timers are stopped by late destructors too.
    return *made;
}

/// This thread's queue; on a thread that is about to end a closed one.
std::shared_ptr<MessageQueue> openOrClosedQueue() {
    std::shared_ptr<MessageQueue> queue = messages::thisQueue();
    if (queue == nullptr) {
        queue = std::make_shared<MessageQueue>();
        queue->close();
    }
    return queue;
}

}  // namespace

MessageTarget::MessageTarget(Procedure procedure, void* object)
    : m_state(new State{procedure, object, currentThreadId(), threadNumber(), openOrClosedQueue()}) {}

MessageTarget::~MessageTarget() { close(); }

void MessageTarget::close() { m_state->alive.store(false, std::memory_order_release); }

uint32_t MessageTarget::threadId() const { return m_state->threadId; }

bool MessageTarget::send(uint32_t code, uintptr_t first, void* second) {
    const Message message{m_state, code, first, second};
    if (m_state->thread == threadNumber()) {
        message.run();
        return true;
    }
    const std::shared_ptr<MessageQueue> own = messages::thisQueue();
    if (own == nullptr) return false;
    SentMessage sent{message, own, currentThreadId(), serving};
    if (!m_state->queue->addSent(sent)) return false;
    own->awaitDone(sent);
    return sent.ran;
}

std::mutex& MessageTarget::mutex() { return m_state->queue->mutex(); }

bool MessageTarget::post(std::unique_lock<std::mutex> lock, uint32_t code, uintptr_t first, void* second) {
    return m_state->queue->post(std::move(lock), m_state, code, first, second);
}

namespace messages {

std::shared_ptr<MessageQueue> thisQueue() {
    MessageQueue* queue = current();
    return queue == nullptr ? nullptr : queue->shared_from_this();
}

Outcome dispatchOne(int32_t& exitCode) {
    MessageQueue* queue = current();
    return queue == nullptr ? Outcome::empty : queue->dispatchOne(exitCode);
}

size_t waiting() {
    MessageQueue* queue = current();
    return queue == nullptr ? 0 : queue->waiting();
}

bool waitForMessage(uint32_t milliseconds) {
    MessageQueue* queue = current();
    return queue != nullptr && queue->waitForMessage(milliseconds);
}

WaitResult wait(WaitHandle handle, WaitFor what, uint32_t milliseconds) {
    if (MessageQueue* queue = current()) return queue->wait(handle, what, milliseconds);
    const int ready = waitForAny(&handle, 1, milliseconds);
    if (ready == 0) return WaitResult::handle;
    return ready == waitTimedOut ? WaitResult::timedOut : WaitResult::failed;
}

bool waitServing(WaitHandle handle, uint32_t milliseconds) {
    if (MessageQueue* queue = current()) return queue->waitServing(handle, milliseconds);
    return waitForAny(&handle, 1, milliseconds) == 0;
}

bool servesCallOf(uint32_t threadId) {
    const SentMessage* at = serving;
    while (at != nullptr && at->senderId != threadId) at = at->cause;
    return at != nullptr;
}

void postQuit(int32_t exitCode) {
    if (MessageQueue* queue = current()) queue->postQuit(exitCode);
}
void postQuitTo(MessageQueue& queue, int32_t exitCode) { queue.postQuit(exitCode); }

WaitHandle descriptor() {
    MessageQueue* queue = current();
    return queue == nullptr ? noHandle : queue->descriptor();
}

uintptr_t setTimer(uint32_t milliseconds, void (*tick)(uintptr_t)) {
    const std::shared_ptr<MessageQueue> queue = thisQueue();
    if (queue == nullptr) return 0;
    const int64_t interval = std::max<int64_t>(milliseconds, 1) * 1'000'000;
    TimerRegister& all = timerRegister();
    uintptr_t id = 0;
    try {
        {
            const std::lock_guard lock(all.mutex);
            id = ++all.last;
            all.queues.emplace(id, queue);
        }
        queue->addTimer({id, interval, monotonicNanoseconds() + interval, tick});
    } catch (const std::bad_alloc&) {
        (void)killTimer(id);
        return 0;
    }
    return id;
}

bool killTimer(uintptr_t id) {
    TimerRegister& all = timerRegister();
    std::shared_ptr<MessageQueue> queue;
    {
        const std::lock_guard lock(all.mutex);
        const auto found = all.queues.find(id);
        if (found == all.queues.end()) return false;
        queue = found->second.lock();
        all.queues.erase(found);
    }
    return queue != nullptr && queue->removeTimer(id);
}

}  // namespace messages
}  // namespace qv::platform
