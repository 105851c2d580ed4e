// TSingletonPtr: globals that are made on first use and destroyed in order at process exit.
#pragma once

#include <atomic>
#include <cstdint>

#include "qv/api.h"

namespace qv {

namespace Private {

/// Registers `function(object)` for process exit. Higher orders go first, and among equals the newest; a function that
/// runs then may register again. May be called from any thread.
QV_API void DeleteAtExit(void* object, int32_t order, void (*function)(void*));

/// Gives up this thread's time slice.
QV_API void switchToThread();

}  // namespace Private

/// The policy that adds nothing after an instance is made.
struct QV_API TSingletonPtrPostCreateDoNothing {
    template <class T>
    static void postCreate(T*) {}
};

/// One instance of T for the process, made when it is first reached. The object itself is empty: all state is static.
///
/// @tparam Order      Rank in the exit pass; higher ranks are destroyed first.
/// @tparam EagerInit  1: constructing a TSingletonPtr makes the instance at once.
/// Making it: the first thread in constructs; the others spin until it is done. A constructor may reach other
/// singletons, but not in a cycle. After the exit pass deleted an instance it is not made again.
/// Cost of reaching an instance that exists: one load and one test.
/// Exit: a T with a public member retire() is not destroyed: the exit pass calls that instead, and the instance stays
/// valid until the process is gone, for destructors and threads that run later still.
/// Exported as a template, so that a program and the library share one instance.
template <class T, int Order, int EagerInit, class PostCreate = TSingletonPtrPostCreateDoNothing>
class QV_API TSingletonPtr {
public:
    TSingletonPtr() {
        if constexpr (EagerInit != 0) GetInstance();
    }
    /// Nothing to copy: all of one type reach the same instance.
    TSingletonPtr(const TSingletonPtr&) {}
    TSingletonPtr& operator=(const TSingletonPtr&) { return *this; }

    /// The instance, made by the first caller. REQUIRES: the exit pass has not destroyed it.
    static T* GetInstance() {
        if (T* made = m_pInst.load(std::memory_order_acquire)) return made;
        return makeOrWait();
    }
    T* operator->() const { return GetInstance(); }
    T& operator*() const { return *GetInstance(); }

    /// Ends the instance's life: retires it where T can be retired, else runs the destructor and frees the memory.
    static void Delete(void* object) {
        auto* instance = static_cast<T*>(object);
        if constexpr (requires { instance->retire(); }) {
            instance->retire();
        } else {
            delete instance;
        }
    }

private:
    static T* makeOrWait() {
        if (m_InstFirst.exchange(1, std::memory_order_acq_rel) == 0) {
            T* made = new T();
            PostCreate::postCreate(made);
            m_pInst.store(made, std::memory_order_release);
            Private::DeleteAtExit(made, Order, &Delete);
            m_InstDone.store(1, std::memory_order_release);
            return made;
        }
        while (m_InstDone.load(std::memory_order_acquire) != 1) Private::switchToThread();
        return m_pInst.load(std::memory_order_acquire);
    }

    static inline std::atomic<T*> m_pInst{nullptr};
    static inline std::atomic<int32_t> m_InstFirst{0};
    static inline std::atomic<int32_t> m_InstDone{0};
};

}  // namespace qv
