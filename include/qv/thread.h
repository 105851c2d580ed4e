// CThread: a thread of the program's own. Also CCOMScope, and the question for the main thread.
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "qv/api.h"
#include "qv/invoker.h"

namespace qv {

/// A thread: started by one of the four forms of Create, or with a lambda. What runs there must not throw.
///
/// The object only stands for the thread: destroying it lets a running thread go on. A class that overrides Run joins
/// before it is destroyed. One thread at a time uses the object; Join may wait on several.
class QV_API CThread {
public:
    CThread();
    virtual ~CThread();
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    /// What a thread of the first form runs; nothing here.
    virtual void Run();

    /// Starts the thread at Run, at a call, or at a function, whose result is dropped. What is left of an earlier run
    /// is let go of first.
    /// @param takeOwnership  The call is deleted once it has run, or when the thread cannot be started.
    /// @return  False, with a diagnostic, when the system has no thread for it.
    bool Create();
    bool Create(IInvokable* call, bool takeOwnership);
    bool Create(int (*function)(void*), void* argument);
    bool Create(uint32_t (*function)(void*), void* argument);
    /// Starts the thread at a copy of a lambda.
    template <class F>
    requires std::invocable < std::decay_t<F>
    & > bool Create(F&& callable) {
        using Held = std::decay_t<F>;
        return Create(new Private::CallableCall<Held>(Held(std::forward<F>(callable))), true);
    }

    /// Waits for the end of the thread; nothing when none was started.
    /// @param pumpMessages  Runs the calling thread's messages meanwhile; an order to quit ends the wait, and is used
    /// up.
    void Join(bool pumpMessages = false);
    /// @return  True when the thread ended within the time, or none was started.
    bool JoinWithTimeout(uint32_t milliseconds);

    /// The thread was started and has not ended.
    bool getRunning() const;
    /// The system's number of the thread started last; 0 before.
    uint32_t getID() const { return m_id; }
    /// A descriptor that is readable once the thread has ended, for as long as this object does not start another; all
    /// bits set before the first start.
    intptr_t getHandle() const;

    /// The system's number of the calling thread, never 0.
    static uint32_t GetCurrentThreadId();
    static void Sleep(uint32_t milliseconds);
    /// Gives up the rest of the time slice.
    static void Yield();

private:
    bool start(void (*run)(void*), void* argument);
    template <class Result>
    bool startFunction(Result (*function)(void*), void* argument);

    uint32_t m_id = 0;
    platform::Thread* m_thread = nullptr;
};

/// Opens a component apartment for the calling thread and closes it at the end of the scope. There are no components
/// on this system; what remains is the count of scopes of each thread and the rule that a thread keeps its first kind.
class QV_API CCOMScope {
public:
    /// Kinds of apartment.
    enum : uint32_t { multiThreaded = 0, apartmentThreaded = 2 };

    explicit CCOMScope(uint32_t flags = apartmentThreaded);
    ~CCOMScope();
    CCOMScope(const CCOMScope&) = delete;
    CCOMScope& operator=(const CCOMScope&) = delete;

    /// 0 for the first scope of the thread, 1 for one inside it, 0x80010106 (negative) when the thread has the other
    /// kind; such a scope closes nothing.
    int32_t result() const { return m_result; }

private:
    int32_t m_result;
};

/// Whether the calling thread is the main one of the user interface. The first call from any thread makes that thread
/// the main one, so make it early there.
QV_API bool qvInMainUIThread();

}  // namespace qv
