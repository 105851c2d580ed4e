// The message queue of a thread: messages posted and sent to targets that belong to it, timers, an order to quit. A
// thread has one from the first time it needs one until it ends.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/wait.h"

namespace qv::platform {

class MessageQueue;

/// Where messages go: a procedure that runs on the thread which made the target. Destroyed by that thread, or while no
/// other uses it; messages that are still on their way are dropped then.
class MessageTarget {
public:
    using Procedure = void (*)(void* object, uint32_t code, uintptr_t first, void* second);

    MessageTarget(Procedure procedure, void* object);
    ~MessageTarget();
    MessageTarget(const MessageTarget&) = delete;
    MessageTarget& operator=(const MessageTarget&) = delete;

    /// Runs the procedure on the target's thread and waits for it, serving what is sent to this thread meanwhile. On
    /// the target's own thread it runs at once. False when it did not run because that thread has ended.
    bool send(uint32_t code, uintptr_t first, void* second);
    /// Has the procedure run when the target's thread comes to it. False without memory, or when that thread has ended.
    /// @param lock  Holds mutex(). It is let go of; what is posted may destroy this target then.
    bool post(std::unique_lock<std::mutex> lock, uint32_t code, uintptr_t first, void* second);
    /// The mutex of the thread's queue, for what changes in one step with what is posted. Held for moments only, and
    /// while it is, nothing else here is called.
    std::mutex& mutex();

    /// The procedure is not run any more.
    void close();

    uint32_t threadId() const;

    struct State;

private:
    std::shared_ptr<State> m_state;
};

/// What a wait is for, beside sent messages, which are served in every wait.
enum class WaitFor { sent, anyMessage };
enum class WaitResult { handle, message, timedOut, failed, quit };

/// All of this works on the calling thread's own queue.
namespace messages {

enum class Outcome { dispatched, empty, quit };

/// Serves everything that was sent, then runs one posted message or one timer that is due, in turn. An order to quit
/// comes when nothing is posted any more, and is used up.
Outcome dispatchOne(int32_t& exitCode);
/// Posted messages and due timers that wait now.
size_t waiting();

/// Waits for a descriptor or a message. WaitResult::message says that there is something to dispatch; with
/// WaitFor::sent it is never the outcome. WaitResult::quit, with the order used up, only for WaitFor::sent.
WaitResult wait(WaitHandle handle, WaitFor what, uint32_t milliseconds);
/// The same without a descriptor. False when the time is over.
bool waitForMessage(uint32_t milliseconds = forever);
/// Waits for a descriptor and serves what is sent meanwhile, nothing else. False when the time is over.
bool waitServing(WaitHandle handle, uint32_t milliseconds);
/// Whether this thread runs something that the other sent, to this thread or to one that sent it on: the other waits
/// until it is done.
bool servesCallOf(uint32_t threadId);

void postQuit(int32_t exitCode);
/// This thread's queue, for postQuitTo; null when the thread is about to end.
std::shared_ptr<MessageQueue> thisQueue();
/// As postQuit, to another thread.
void postQuitTo(MessageQueue& queue, int32_t exitCode);

/// A descriptor that is readable while there is something to dispatch, for a loop that is not ours. It belongs to the
/// queue. noHandle when there is none.
WaitHandle descriptor();

/// Calls `tick(id)` on this thread every `milliseconds` (at least 1), when it dispatches. A tick that is late is not
/// made up for. 0 when there is no memory.
uintptr_t setTimer(uint32_t milliseconds, void (*tick)(uintptr_t id));
/// From any thread; a tick that is running goes on. False for an unknown timer.
bool killTimer(uintptr_t id);

}  // namespace messages
}  // namespace qv::platform
