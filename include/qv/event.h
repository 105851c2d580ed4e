// Events: lists of handlers, each with the invoker on which it is to run. Also TCallback, one plain function.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/invoker.h"

namespace qv {

/// Something that happens, and who wants to hear of it. A handler receives the sender and the event's arguments.
///
/// Each handler runs directly (no invoker), synchronously on its invoker, or queued there; a queued one gets copies of
/// the arguments, also of text. Handlers run in the order in which they were added.
/// Threads: all operations may be called from any thread, also from a handler of the same event. A handler that is
/// removed while the event is fired is not called any more, but one that is running on another thread just then may
/// still run when RemoveHandler returns. One that is added meanwhile is first called by the next Fire.
/// The event has to outlive its Fire; an invoker has to outlive the event or its handlers there.
template <class... Args>
class QV_API TEvent {
public:
    using Handler = TDelegate<void*, Args...>;

    TEvent() = default;
    TEvent(const TEvent&) = delete;
    TEvent& operator=(const TEvent&) = delete;
    ~TEvent() {
        for (const HANDLER& entry : m_handlers) {
            if (entry.handler != nullptr) entry.handler->Release();
        }
    }

    /// Adds a function that runs directly. The result stands for the handler in RemoveHandler and belongs to the event.
    Handler* AddHandler(void (*function)(void* sender, Args... args)) {
        return add(makeDelegate(function), nullptr, false);
    }
    /// Adds a lambda or other callable, which takes the sender and the arguments.
    template <class F>
    requires(!std::is_pointer_v<std::decay_t<F>> &&
             std::is_invocable_v<std::decay_t<F>&, void*, Args...>) Handler* AddHandler(F&& callable,
                                                                                        IInvoker* invoker = nullptr,
                                                                                        bool queued = false) {
        return add(makeDelegate<void*, Args...>(std::forward<F>(callable)), invoker, queued);
    }
    /// Adds a method of an object that is not owned.
    template <class C>
    Handler* AddHandler(C* object, void (C::*method)(void* sender, Args... args), IInvoker* invoker = nullptr,
                        bool queued = false) {
        return add(makeDelegate(object, method), invoker, queued);
    }

    /// Adds a handler and takes it over; a null one is nothing.
    /// @param invoker  Where it runs; null for a direct call. Not owned.
    /// @param queued   Through the invoker's Queue and not its Invoke.
    void AddHandlerEx(Handler* handler, IInvoker* invoker, bool queued) { (void)add(handler, invoker, queued); }

    /// Removes and releases the first handler that `handler` compares equal to, and releases `handler`.
    /// @return  False when there is none; `handler` still belongs to the caller then.
    bool RemoveHandlerEx(Handler* handler) {
        if (handler == nullptr) return false;
        return remove([handler](const Handler* entry) { return entry == handler || handler->Equals(entry); }, handler);
    }
    /// Removes the handler that AddHandler returned.
    bool RemoveHandler(const Handler* added) {
        return remove([added](const Handler* entry) { return entry == added; }, nullptr);
    }

    /// Calls the handlers.
    void Fire(void* sender, Args... args) {
        if (m_live.load(std::memory_order_acquire) == 0) return;
        const Firing firing(*this);
        for (uint32_t i = 0; i < firing.count; ++i) {
            const HANDLER entry = at(i);
            if (entry.handler != nullptr) run(entry, sender, args...);
        }
    }
    bool HasHandlers() const { return m_live.load(std::memory_order_acquire) != 0; }

private:
    struct HANDLER {
        Handler* handler;  // Null when it was removed during a Fire.
        IInvoker* invoker;
        bool queued;
    };

    /// While one lives, entries keep their places and removed handlers stay whole.
    struct Firing {
        explicit Firing(TEvent& fired) : event(fired) {
            const std::lock_guard lock(event.m_mutex);
            ++event.m_firing;
            count = event.m_handlers.size();
        }
        ~Firing() { event.endFiring(); }
        TEvent& event;
        uint32_t count;
    };

    Handler* add(Handler* handler, IInvoker* invoker, bool queued) {
        if (handler == nullptr) return nullptr;
        const std::lock_guard lock(m_mutex);
        if (m_handlers.Add({handler, invoker, queued})) {
            m_live.fetch_add(1, std::memory_order_release);
            return handler;
        }
        handler->Release();
        return nullptr;
    }

    template <class Match>
    bool remove(Match matches, Handler* given) {
        Handler* found = nullptr;
        bool later = false;
        {
            const std::lock_guard lock(m_mutex);
            uint32_t i = 0;
            while (i < m_handlers.size() && !(m_handlers[i].handler != nullptr && matches(m_handlers[i].handler))) ++i;
            if (i == m_handlers.size()) return false;
            found = m_handlers[i].handler;
            m_live.fetch_sub(1, std::memory_order_release);
            later = m_firing != 0 && m_removed.Add(found);
            if (m_firing != 0) {
                m_handlers[i].handler = nullptr;
            } else {
                m_handlers.Remove(i);
            }
            if (m_firing != 0 && !later) found = nullptr;  // No memory to remember it: it is never released.
        }
        if (given != nullptr && given != found) given->Release();
        if (found != nullptr && !later) found->Release();
        return true;
    }

    HANDLER at(uint32_t index) {
        const std::lock_guard lock(m_mutex);
        return m_handlers[index];
    }

    void endFiring() {
        TArray<Handler*> removed;
        {
            const std::lock_guard lock(m_mutex);
            if (--m_firing != 0 || m_removed.empty()) return;
            for (uint32_t i = m_handlers.size(); i-- > 0;) {
                if (m_handlers[i].handler == nullptr) m_handlers.Remove(i);
            }
            const uint32_t count = m_removed.size();
            removed.Attach(m_removed.Detach(), count);
        }
        for (Handler* handler : removed) handler->Release();
    }

    static void run(const HANDLER& entry, void* sender, Args... args) {
        if (entry.invoker == nullptr) {
            entry.handler->Invoke(sender, args...);
        } else if (!entry.queued) {
            auto call = TInvokable<void*, Args...>::borrowing(entry.handler, sender, args...);
            entry.invoker->Invoke(&call);
        } else if (Handler* clone = entry.handler->Clone()) {
            if (auto* call = new (std::nothrow) TInvokable<void*, Args...>(clone, sender, args...)) {
                entry.invoker->Queue(call, true);
            } else {
                clone->Release();
            }
        }
    }

    mutable std::mutex m_mutex;  // Guards the rest; never held while a handler runs.
    TArray<HANDLER> m_handlers;
    TArray<Handler*> m_removed;  // To be released when the last Fire has ended.
    uint32_t m_firing = 0;
    std::atomic<uint32_t> m_live{0};
};

using event0 = TEvent<>;
template <class T>
using event1 = TEvent<T>;
template <class T1, class T2>
using event2 = TEvent<T1, T2>;

namespace Private {

/// The function type of a result and those arguments that are not void.
template <class R, class Kept, class... Rest>
struct SignatureOf;
template <class R, class... Kept>
struct SignatureOf<R, std::tuple<Kept...>> {
    using Type = R(Kept...);
};
template <class R, class... Kept, class First, class... Rest>
struct SignatureOf<R, std::tuple<Kept...>, First, Rest...>
    : SignatureOf<R, std::conditional_t<std::is_void_v<First>, std::tuple<Kept...>, std::tuple<Kept..., First>>,
                  Rest...> {};

template <class Signature>
class CallbackOf;
template <class R, class... Args>
class CallbackOf<R(Args...)> {
public:
    using Function = R (*)(Args...);

    void set(Function function) { m_function = function; }
    void unset() { m_function = nullptr; }
    bool isset() const { return m_function != nullptr; }
    /// Calls the function. Without one nothing happens, and the result is that of `R()`.
    R operator()(Args... args) const {
        if (m_function == nullptr) return R();
        return m_function(std::forward<Args>(args)...);
    }

private:
    Function m_function = nullptr;
};

}  // namespace Private

/// One plain function with result R and up to four arguments; void stands for an argument that it does not have.
template <class R = void, class A1 = void, class A2 = void, class A3 = void, class A4 = void>
class TCallback : public Private::CallbackOf<typename Private::SignatureOf<R, std::tuple<>, A1, A2, A3, A4>::Type> {};

}  // namespace qv
