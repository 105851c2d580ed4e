// TSharedPtr: how files and other shared objects are held.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

#include "qv/api.h"
#include "qv/memory.h"

namespace qv {

/// Shared ownership of an object: its address, a count in a block of its own, and how to destroy it.
///
/// Destroying: a null destroy function deletes the object through its virtual destructor; notOwned() leaves it alone;
/// any other function is called with the object's address. An exception that escapes from it ends the process.
/// Threads: the count is atomic, so copies of one pointer may live on different threads; one TSharedPtr object is no
/// safer than any other variable.
/// Bitwise relocatable.
template <class T>
class TSharedPtr {
public:
    /// Called with the object in place of `delete`.
    using Destroyer = void (*)(T*);

    TSharedPtr() noexcept = default;
    TSharedPtr(std::nullptr_t) noexcept {}

    /// Takes over `object`. With a null object the pointer is empty and has no count. When the count cannot be
    /// allocated the object is destroyed and std::bad_alloc thrown.
    explicit TSharedPtr(T* object, Destroyer destroy = nullptr) : m_object(object), m_destroy(destroy) {
        if (object == nullptr) return;
        m_count = static_cast<Count*>(Alloc(sizeof(Count)));
        if (m_count == nullptr) {
            destroyObject(object, destroy);
            throw std::bad_alloc();
        }
        ::new (static_cast<void*>(m_count)) Count(1);
    }

    TSharedPtr(const TSharedPtr& other) noexcept
        : m_object(other.m_object), m_count(other.m_count), m_destroy(other.m_destroy) {
        if (m_count != nullptr) m_count->fetch_add(1, std::memory_order_relaxed);
    }
    TSharedPtr(TSharedPtr&& other) noexcept { swap(other); }

    /// Shares what a pointer to a derived class holds. A custom destroy function takes the derived type and cannot go
    /// along: such a pointer converts to an empty one.
    template <class U>
    requires(std::is_convertible_v<U*, T*> && !std::is_same_v<U, T>) TSharedPtr(const TSharedPtr<U>& other)
    noexcept {
        if (other.m_destroy != nullptr && other.m_destroy != TSharedPtr<U>::notOwned()) return;
        m_object = other.m_object;
        m_count = other.m_count;
        m_destroy = other.m_destroy == nullptr ? nullptr : notOwned();
        if (m_count != nullptr) m_count->fetch_add(1, std::memory_order_relaxed);
    }

    TSharedPtr& operator=(const TSharedPtr& other) noexcept {
        TSharedPtr(other).swap(*this);
        return *this;
    }
    TSharedPtr& operator=(TSharedPtr&& other) noexcept {
        TSharedPtr(std::move(other)).swap(*this);
        return *this;
    }
    ~TSharedPtr() { Release(); }

    /// The destroy function of an object that belongs to somebody else: all bits set.
    static Destroyer notOwned() { return reinterpret_cast<Destroyer>(~uintptr_t{0}); }

    /// Gives up this share; the last one frees the count and destroys the object.
    void Release() noexcept {
        // Empty before the object goes: its destructor may reach this pointer again.
        T* const object = std::exchange(m_object, nullptr);
        Count* const count = std::exchange(m_count, nullptr);
        const Destroyer destroy = std::exchange(m_destroy, nullptr);
        if (count == nullptr || count->fetch_sub(1, std::memory_order_acq_rel) > 1) return;
        qv::Free(count);
        destroyObject(object, destroy);
    }
    void reset() noexcept { Release(); }

    void swap(TSharedPtr& other) noexcept {
        std::swap(m_object, other.m_object);
        std::swap(m_count, other.m_count);
        std::swap(m_destroy, other.m_destroy);
    }

    /// The object; null when the pointer is empty.
    T* get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }
    /// The number of pointers that share the object; 0 for an empty one.
    int32_t useCount() const noexcept { return m_count == nullptr ? 0 : m_count->load(std::memory_order_relaxed); }

    template <class U>
    friend bool operator==(const TSharedPtr& a, const TSharedPtr<U>& b) noexcept {
        return a.get() == b.get();
    }
    friend bool operator==(const TSharedPtr& a, std::nullptr_t) noexcept { return a.m_object == nullptr; }

private:
    template <class U>
    friend class TSharedPtr;
    using Count = std::atomic<int32_t>;
    static_assert(sizeof(Count) == 4);

    static void destroyObject(T* object, Destroyer destroy) noexcept {
        if (destroy == notOwned()) return;
        if (destroy != nullptr) {
            destroy(object);
        } else {
            delete object;
        }
    }

    T* m_object = nullptr;
    Count* m_count = nullptr;
    Destroyer m_destroy = nullptr;
};

}  // namespace qv
