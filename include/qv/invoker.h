// Calls carried between threads: a call packaged as an object (IInvokable), and what runs it (IInvoker): at once, on a
// thread that pumps messages, or on a thread of its own. For calls that many may listen to see event.h.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/singleton.h"
#include "qv/string.h"

namespace qv {

namespace platform {
class MessageTarget;
struct Thread;
}  // namespace platform

/// A call with everything that it needs. The call must not throw: an exception that leaves it ends the process.
class QV_API IInvokable {
public:
    virtual ~IInvokable();
    virtual void Invoke() = 0;
    /// Whether both would call the same thing, whatever arguments they hold. Asked while the queue is locked: it does
    /// not use the invoker.
    virtual bool SameHandler(IInvokable* other) = 0;
};

// Delegates: what is called -------------------------------------------------------------------------------------------

/// A thing that can be called with `Args`. Lives on the heap and belongs to whoever it is given to. Functions, methods
/// and lambdas are wrapped by makeDelegate; a derived class may be anything else.
template <class... Args>
class QV_API TDelegate {
public:
    virtual ~TDelegate() = default;
    virtual void Invoke(Args... args) = 0;
    /// Whether both call the same thing.
    virtual bool Equals(const TDelegate* other) const = 0;
    /// Another delegate that calls the same thing; null without memory.
    virtual TDelegate* Clone() const = 0;
    /// Ends a delegate that nobody needs any more.
    virtual void Release() = 0;
};

using delegate0 = TDelegate<>;
template <class T>
using delegate1 = TDelegate<T>;

namespace Private {

template <class F>
concept Comparable = requires(const F& a) {
    { a == a } -> std::convertible_to<bool>;
};

/// Calls an F. Where F has an ==, that decides what is the same; otherwise a delegate is the same as its clones, which
/// share one F.
template <class F, class... Args>
class CallableDelegate final : public TDelegate<Args...> {
    using Base = TDelegate<Args...>;
    using Held = std::conditional_t<Comparable<F>, F, std::shared_ptr<F>>;

public:
    explicit CallableDelegate(Held held) : m_held(std::move(held)) {}

    template <class G>
    static Base* make(G&& callable) {
        if constexpr (Comparable<F>) {
            return new CallableDelegate(F(std::forward<G>(callable)));
        } else {
            return new CallableDelegate(std::make_shared<F>(std::forward<G>(callable)));
        }
    }
    void Invoke(Args... args) override {
        if constexpr (Comparable<F>) {
            (void)m_held(std::forward<Args>(args)...);
        } else {
            (void)(*m_held)(std::forward<Args>(args)...);
        }
    }
    bool Equals(const Base* other) const override {
        const auto* same = dynamic_cast<const CallableDelegate*>(other);
        return same != nullptr && same->m_held == m_held;
    }
    Base* Clone() const override { return new (std::nothrow) CallableDelegate(m_held); }
    void Release() override { delete this; }

private:
    Held m_held;
};

/// A method and the object to call it on.
template <class C, class R, class... Args>
struct BoundMethod {
    C* object;
    R (C::*method)(Args...);
    R operator()(Args... args) const { return (object->*method)(std::forward<Args>(args)...); }
    bool operator==(const BoundMethod&) const = default;
};

/// How an argument waits inside a call: as a copy. Text is copied too, so that the call never holds a pointer to
/// characters that are gone by the time it runs.
template <class T>
struct StoredArgument {
    using Type = std::decay_t<T>;
    static Type& use(Type& stored) { return stored; }
};
template <class Ch>
requires(std::is_same_v<Ch, char16_t> || std::is_same_v<Ch, char>) struct StoredArgument<const Ch*> {
    struct Type {
        Type(const Ch* source) : isNull(source == nullptr) {
            if (source != nullptr) text = source;
        }
        TString<Ch> text;
        bool isNull;
    };
    static const Ch* use(const Type& stored) { return stored.isNull ? nullptr : stored.text.c_str(); }
};

}  // namespace Private

/// A delegate for a plain function, or for a method of an object that is not owned. Two for the same function, or the
/// same object and method, are equal.
template <class R, class... Args>
TDelegate<Args...>* makeDelegate(R (*function)(Args...)) {
    return Private::CallableDelegate<R (*)(Args...), Args...>::make(function);
}
template <class C, class R, class... Args>
TDelegate<Args...>* makeDelegate(C* object, R (C::*method)(Args...)) {
    using Bound = Private::BoundMethod<C, R, Args...>;
    return Private::CallableDelegate<Bound, Args...>::make(Bound{object, method});
}
/// A delegate for any other callable, such as a lambda; name the arguments: makeDelegate<void*, int>(lambda). One whose
/// callable has no == equals its clones only.
template <class... Args, class F>
requires(!std::is_pointer_v<std::decay_t<F>> && std::is_invocable_v<std::decay_t<F>&, Args...>) TDelegate<Args...>
*makeDelegate(F&& callable) {
    return Private::CallableDelegate<std::decay_t<F>, Args...>::make(std::forward<F>(callable));
}

// Calls: a delegate with its arguments --------------------------------------------------------------------------------

/// A call of a delegate with stored arguments: copies, also of text.
template <class... Args>
class QV_API TInvokable : public IInvokable {
public:
    using Handler = TDelegate<Args...>;

    /// @param handler        Not null. Released by the destructor when `takeOwnership`; otherwise it has to outlive
    ///                       this object.
    explicit TInvokable(Handler* handler, Args... args) : TInvokable(handler, true, std::forward<Args>(args)...) {}
    TInvokable(const TInvokable&) = delete;
    TInvokable& operator=(const TInvokable&) = delete;
    ~TInvokable() override {
        if (m_owned) m_handler->Release();
    }
    /// A call that does not take the delegate over.
    static TInvokable borrowing(Handler* handler, Args... args) {
        return TInvokable(handler, false, std::forward<Args>(args)...);
    }

    void Invoke() override { call(std::index_sequence_for<Args...>()); }
    /// True for a call of the same argument types whose delegate is equal.
    bool SameHandler(IInvokable* other) override {
        const auto* same = dynamic_cast<const TInvokable*>(other);
        return same != nullptr && m_handler->Equals(same->m_handler);
    }

private:
    TInvokable(Handler* handler, bool own, Args... args)
        : m_handler(handler), m_owned(own), m_arguments(std::forward<Args>(args)...) {}

    template <size_t... I>
    void call(std::index_sequence<I...>) {
        m_handler->Invoke(Private::StoredArgument<Args>::use(std::get<I>(m_arguments))...);
    }

    Handler* m_handler;
    bool m_owned;
    std::tuple<typename Private::StoredArgument<Args>::Type...> m_arguments;
};

using invokable0 = TInvokable<>;
template <class T>
using invokable1 = TInvokable<T>;
template <class T1, class T2>
using invokable2 = TInvokable<T1, T2>;
template <class T1, class T2, class T3>
using invokable3 = TInvokable<T1, T2, T3>;

namespace Private {

/// Blocks of this size, aligned as the heap's, for calls that come in large numbers. newCallBlock throws
/// std::bad_alloc; any thread may delete.
inline constexpr size_t callBlockBytes = 32;
QV_API void* newCallBlock();
QV_API void deleteCallBlock(void* block) noexcept;

/// A callable as a call, held by value (F) or borrowed for the time of the call (F&). The same as itself only.
template <class F>
class CallableCall final : public IInvokable {
public:
    explicit CallableCall(F&& callable) : m_callable(std::forward<F>(callable)) {}
    void Invoke() override { (void)m_callable(); }
    bool SameHandler(IInvokable* other) override { return other == this; }

    static void* operator new(size_t size) {
        if constexpr (fitsBlock()) return newCallBlock();
        return ::operator new(size, std::align_val_t(alignof(CallableCall)));
    }
    static void operator delete(void* call) noexcept {
        if constexpr (fitsBlock()) return deleteCallBlock(call);
        ::operator delete(call, std::align_val_t(alignof(CallableCall)));
    }

private:
    static constexpr bool fitsBlock() {
        return sizeof(CallableCall) <= callBlockBytes && alignof(CallableCall) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__;
    }

    F m_callable;
};

}  // namespace Private

// Invokers: who runs a call -------------------------------------------------------------------------------------------

/// Runs calls on some thread. All operations may be called from any thread. A null call does nothing.
class QV_API IInvoker {
public:
    virtual ~IInvoker();
    /// Runs the call and returns when it is done. The call stays the caller's.
    virtual void Invoke(IInvokable* call) = 0;
    /// Has the call run later and returns at once. With `takeOwnership` the call is deleted once it has run (or when it
    /// cannot run any more); otherwise it has to live until then.
    virtual void Queue(IInvokable* call, bool takeOwnership) = 0;
    /// Takes the calls out of the queue whose SameHandler(call) holds; owned ones are deleted.
    virtual void DequeueDuplicates(IInvokable* call) = 0;
    /// The system's number of the thread on which calls run.
    virtual uint32_t GetThreadID() = 0;

    /// The same for a lambda or any other callable without arguments. Queue keeps a copy (or what is moved into it).
    template <class F>
    requires std::invocable<F&>
    void Invoke(F&& callable) {
        Private::CallableCall<F&> call(callable);
        Invoke(static_cast<IInvokable*>(&call));
    }
    template <class F>
    requires std::invocable < std::decay_t<F>
    & > void Queue(F&& callable) {
        using Held = std::decay_t<F>;
        Queue(static_cast<IInvokable*>(new Private::CallableCall<Held>(Held(std::forward<F>(callable)))), true);
    }
};

/// Runs every call at once on the calling thread.
class QV_API CDirectInvoker : public IInvoker {
public:
    void Invoke(IInvokable* call) override;
    /// Runs the call before it returns, and deletes an owned one then.
    void Queue(IInvokable* call, bool takeOwnership) override;
    /// Nothing is ever queued.
    void DequeueDuplicates(IInvokable* call) override;
    /// The calling thread.
    uint32_t GetThreadID() override;
    using IInvoker::Invoke;
    using IInvoker::Queue;

    /// The exit pass leaves the instance usable.
    void retire() {}
};

/// Runs calls on the thread that made it, whenever that thread pumps its messages (message_loop.h), and synchronous
/// ones also while it waits in SafeWait or for a synchronous call of its own.
///
/// Queued calls run in the order in which they were queued, one to a message, interleaved with the thread's other
/// messages. Invoke on the owning thread runs the call at once. On another thread it blocks until the owner has run it,
/// and returns without having run it when the owner has ended. Two threads that Invoke into each other do not lock up:
/// each serves the other's call while it waits.
/// Destroying one needs that no other thread is still using it, but one of its own calls may do it; calls that are
/// still queued do not run, and owned ones are deleted.
class QV_API CMessageQueueInvoker : public IInvoker {
public:
    /// Belongs to the thread that constructs it.
    CMessageQueueInvoker();
    ~CMessageQueueInvoker() override;
    CMessageQueueInvoker(const CMessageQueueInvoker&) = delete;
    CMessageQueueInvoker& operator=(const CMessageQueueInvoker&) = delete;

    /// Moves the invoker to the calling thread, with the calls that are queued. No other thread may use it meanwhile.
    void Init();

    void Invoke(IInvokable* call) override;
    void Queue(IInvokable* call, bool takeOwnership) override;
    void DequeueDuplicates(IInvokable* call) override;
    uint32_t GetThreadID() override;
    using IInvoker::Invoke;
    using IInvoker::Queue;

    /// Adds a call to the queue without a message that would run it. Without memory the call is lost (an owned one is
    /// deleted).
    void Push(IInvokable* call, bool takeOwnership);
    /// Takes the first call out of the queue; false when there is none.
    bool Pop(IInvokable*& call, bool& takeOwnership);

    /// Waits until `handle` (any descriptor) is readable, and runs the synchronous calls that other threads send to the
    /// calling thread meanwhile; queued calls wait. Nothing is taken from the handle.
    /// @param timeout  Milliseconds; 0xFFFFFFFF for no limit. It starts anew after each call that was served.
    /// @return  False when the time is over, the handle is no descriptor, or the thread was told to quit; the order to
    ///          quit is used up then.
    static bool SafeWait(intptr_t handle, uint32_t timeout);

    /// What the exit pass does in place of destroying it: drops what is queued. Nothing is queued any more; Invoke
    /// still runs a call on the owning thread.
    void retire();

private:
    struct QUEUE_ENTRY {
        IInvokable* call;
        bool takeOwnership;
    };

    /// Entries in their order, the first of them at `first`. Lists that two threads work on share no cache line.
    struct alignas(64) LIST {
        TQueue<QUEUE_ENTRY> entries;
        uint32_t first = 0;
        uint32_t size() const { return entries.size() - first; }
    };

    static void procedure(void* invoker, uint32_t message, uintptr_t first, void* second);
    void postQueued();
    bool add(IInvokable* call, bool takeOwnership);
    bool takeAdded();
    void runQueued();
    void dropQueued();

    // The queue is two lists. Calls are added to the one, together with their message and under the same mutex, that of
    // the window; they are taken from the other under m_mutex. When that has none left, the taker exchanges the two,
    // under both mutexes (m_mutex first). So the threads meet once for all the calls that wait. A call stays in its
    // list, where DequeueDuplicates finds it, until it is run, so a call that pumps goes on with the next one.
    uint32_t m_threadId = 0;
    bool m_retired = false;  // With the window's mutex, as m_added.
    platform::MessageTarget* m_window = nullptr;
    alignas(LIST) std::mutex m_mutex;
    bool m_busy = false;
    bool* m_gone = nullptr;  // Of the queued call that runs: the destructor sets it.
    LIST* m_taken = &m_queue[0];
    LIST m_queue[2];
    LIST* m_added = &m_queue[1];
};

/// Runs calls on a thread of its own, which lives as long as the object.
class QV_API CInvokerThread : public IInvoker {
public:
    /// Starts the thread.
    CInvokerThread();
    /// Lets the call that is running finish, drops the queued ones, and ends the thread. Calls that it sends to this
    /// thread meanwhile are served. On the object's own thread it does not wait.
    ~CInvokerThread() override;
    CInvokerThread(const CInvokerThread&) = delete;
    CInvokerThread& operator=(const CInvokerThread&) = delete;

    /// Starts the thread; the constructor calls it. False, with a diagnostic, when the system has none; nothing runs
    /// then. True at once when it runs.
    bool Init();

    void Invoke(IInvokable* call) override;
    void Queue(IInvokable* call, bool takeOwnership) override;
    void DequeueDuplicates(IInvokable* call) override;
    /// 0 when the thread could not be started.
    uint32_t GetThreadID() override;
    using IInvoker::Invoke;
    using IInvoker::Queue;

    /// What the exit pass does in place of destroying it: ends the thread, waiting two seconds at most. Later calls are
    /// dropped.
    void retire();

private:
    struct Shared;
    static void threadProcedure(void* shared);
    bool stop(uint32_t milliseconds);

    std::shared_ptr<Shared> m_shared;
    platform::Thread* m_thread = nullptr;
};

extern template class QV_API TSingletonPtr<CDirectInvoker, 1, 0>;
extern template class QV_API TSingletonPtr<CInvokerThread, 1, 0>;
extern template class QV_API TSingletonPtr<CMessageQueueInvoker, 1, 1>;

/// The shared invokers. directInvoker and threadInvoker are made on first use; messageQueueInvoker is made when the
/// library is loaded, and belongs to the thread that loads it: the main thread of the program.
extern QV_API TSingletonPtr<CDirectInvoker, 1, 0> directInvoker;
extern QV_API TSingletonPtr<CInvokerThread, 1, 0> threadInvoker;
extern QV_API TSingletonPtr<CMessageQueueInvoker, 1, 1> messageQueueInvoker;

}  // namespace qv
