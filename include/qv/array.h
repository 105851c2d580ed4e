// Growable arrays. TArray<T> holds objects that may be moved bitwise, TSimpleArray<T> plain bytes, TStack<T> and
// TQueue<T> add a discipline of use. Elements live on the process heap (qv/memory.h). No array locks: its owner does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

#include "qv/api.h"
#include "qv/memory.h"

namespace qv {

namespace Private {

/// Throws CException("Index out of bounds.").
[[noreturn]] QV_API void throwIndexOutOfBounds();

/// Sorts `count` records of `size` bytes; stable unless the records exceed a quarter of the machine's memory.
/// The second form hands `context` to the comparator as its first argument.
QV_API void sortRecords(void* base, size_t count, size_t size, int (*compare)(const void*, const void*));
QV_API void sortRecords(void* base, size_t count, size_t size, int (*compare)(void*, const void*, const void*),
                        void* context);

/// Writes to the system's debug output (standard error on Linux).
QV_API void debugOutput(const char* text);

/// The growth rate that makes an array double instead of growing by a fixed step.
inline constexpr uint16_t doublingRate = 0xFFFF;

/// The capacity that an array of `capacity` elements takes on when `wanted` > `capacity` are asked for:
/// doubling for rate 0xFFFF, else the next multiple of `rate` strictly above `wanted`.
/// REQUIRES: rate != 0. The result is computed in 64 bits; the caller checks that it fits.
constexpr uint64_t grownCapacity(uint64_t capacity, uint64_t wanted, uint16_t rate) {
    if (rate != doublingRate) return (wanted / rate + 1) * rate;
    uint64_t grown = capacity == 0 ? 1 : capacity;
    while (grown < wanted) grown *= 2;
    return grown;
}

/// True when `capacity` elements of `elementSize` bytes can be asked of the heap: both numbers fit 32 bits.
constexpr bool fitsHeapBlock(uint64_t capacity, uint64_t elementSize) {
    return capacity <= 0xFFFFFFFFu && capacity <= 0xFFFFFFFFu / elementSize;
}

}  // namespace Private

/// Growable array whose elements are relocated bitwise: growth is a reallocation, Insert and Remove are a memmove.
///
/// Growth is additive: a request above the capacity gives the next multiple of the growth rate (5 unless set
/// otherwise) strictly above it, so asking for 5 gives 10 and asking for 4 gives 5. Rate 0xFFFF doubles instead.
/// A rate of 0 is the caller's error (a division by zero).
/// Elements: T is default-constructible, assignable, and stays valid after a bitwise move.
/// Failure:  a call that runs out of memory, or whose buffer would not fit 32 bits, returns false and leaves the array
///           as it was. The const accessors throw; the non-const ones extend the array instead.
/// Threads:  none of it is thread-safe.
template <class T>
class QV_API TArray {
public:
    using value_type = T;
    using size_type = uint32_t;
    using difference_type = ptrdiff_t;
    using reference = T&;
    using const_reference = const T&;
    using pointer = T*;
    using const_pointer = const T*;
    using iterator = T*;
    using const_iterator = const T*;
    using reverse_iterator = std::reverse_iterator<T*>;
    using const_reverse_iterator = std::reverse_iterator<const T*>;

    TArray() = default;
    /// `n` default-constructed elements; empty without memory.
    explicit TArray(uint32_t n) { SetSize(n); }
    TArray(std::initializer_list<T> items) {
        for (const T& item : items) Add(item);
    }
    TArray(const TArray& other) { addAll(other); }
    /// Takes the other array's buffer and leaves it empty.
    TArray(TArray&& other) noexcept
        : m_data(std::exchange(other.m_data, nullptr)),
          m_capacity(std::exchange(other.m_capacity, 0u)),
          m_size(std::exchange(other.m_size, 0u)),
          m_growthRate(other.m_growthRate) {}
    virtual ~TArray() { Destroy(); }

    /// Empties this array, then adds the elements of `other`. An array assigned to itself is left empty.
    TArray& operator=(const TArray& other) {
        Copy(other);
        return *this;
    }

    /// An array of the first `n` of the arguments behind `n`.
    template <class... Items>
    static TArray MakeArray(uint32_t n, const Items&... items) {
        TArray made;
        uint32_t taken = 0;
        (void)taken;
        ((taken++ < n ? (void)made.Add(static_cast<T>(items)) : (void)0), ...);
        return made;
    }

    // Capacity and size ------------------------------------------------------------------------------------------

    /// Ensures a capacity of at least `n`; never shrinks.
    bool Dimension(uint32_t n) {
        if (n <= m_capacity) return true;
        return setCapacityTo(Private::grownCapacity(m_capacity, n, m_growthRate));
    }
    bool SetCapacity(uint32_t n) { return Dimension(n); }
    bool reserve(uint32_t n) { return Dimension(n); }

    /// Constructs new elements or destroys surplus ones; the capacity stays when the array gets smaller.
    bool SetSize(uint32_t n) {
        if (!Dimension(n)) return false;
        constructUpTo(n);
        destructRange(n, m_size);
        m_size = n;
        return true;
    }
    bool resize(uint32_t n) { return SetSize(n); }

    /// Grows the size to `n` when it is below; never shrinks it.
    bool ImplicitAddition(uint32_t n) {
        if (n <= m_size) return Dimension(n);
        return SetSize(n);
    }

    /// Stores the growth rate and returns the old one.
    uint16_t SetGrowthRate(uint16_t rate) { return std::exchange(m_growthRate, rate); }

    /// Elements in the array, and those that fit before it has to grow.
    uint32_t size() const { return m_size; }
    uint32_t GetSize() const { return m_size; }
    uint32_t nItems() const { return m_size; }
    uint32_t capacity() const { return m_capacity; }
    uint32_t GetCapacity() const { return m_capacity; }
    bool empty() const { return m_size == 0; }
    static constexpr uint32_t max_size() { return static_cast<uint32_t>(0xFFFFFFFFu / sizeof(T)); }

    // Adding -----------------------------------------------------------------------------------------------------

    /// Appends a copy; `x` may be an element of this array.
    bool Add(const T& x) {
        const Argument item(*this, x);
        if (m_size == 0xFFFFFFFFu || !Dimension(m_size + 1)) return false;
        Construct(m_data + m_size);
        m_data[m_size] = item.in(*this);
        ++m_size;
        return true;
    }
    bool push_back(const T& x) { return Add(x); }
    TArray& operator<<(const T& x) {
        Add(x);
        return *this;
    }

    /// Opens one default-constructed element at `index`; past the end the array grows to hold that index.
    bool Insert(uint32_t index) { return openGap(index, 1, index + uint64_t{1}); }

    bool Insert(const T& x, uint32_t index) { return Insert(x, index, 1); }

    /// Inserts `count` copies of `x`. At or past the end the array grows to `index + count` elements (also when
    /// `count` is 0) and `x` is assigned over those from `index` on.
    bool Insert(const T& x, uint32_t index, uint32_t count) {
        const Argument item(*this, x, index, count);
        if (!openGap(index, count, uint64_t{index} + count)) return false;
        for (uint32_t i = 0; i < count; ++i) m_data[index + i] = item.in(*this);
        return true;
    }

    /// Puts a fresh copy of `x` at `index`, growing the array to hold it.
    bool Replace(const T& x, uint32_t index) {
        if (index == 0xFFFFFFFFu) return false;
        const T copy(x);
        if (!ImplicitAddition(index + 1)) return false;
        Destruct(m_data + index);
        Construct(m_data + index);
        m_data[index] = copy;
        return true;
    }

    // Removing ---------------------------------------------------------------------------------------------------

    /// Past the end does nothing and is true.
    bool Remove(uint32_t index) { return Remove(index, 1); }

    /// `count` is clamped to the elements that exist.
    bool Remove(uint32_t index, uint32_t count) {
        if (index >= m_size) return true;
        count = std::min(count, m_size - index);
        destructRange(index, index + count);
        moveBytes(m_data + index, m_data + index + count, m_size - index - count);
        m_size -= count;
        return true;
    }

    /// Removes `first` to `last`, `last` included.
    iterator erase(const_iterator first, const_iterator last) {
        const auto index = static_cast<uint32_t>(first - m_data);
        Remove(index, static_cast<uint32_t>(last - first) + 1);
        return m_data + index;
    }
    /// Removes the element at `pos`; the result is the position of the next one.
    iterator erase(const_iterator pos) { return erase(pos, pos); }

    /// Removes the last element; nothing on an empty array.
    void pop_back() {
        if (m_size != 0) Remove(m_size - 1);
    }

    /// Destroys all elements in index order and keeps the buffer.
    void Empty() {
        destructRange(0, m_size);
        m_size = 0;
    }
    void clear() { Empty(); }

    /// Destroys all elements and frees the buffer.
    void Destroy() {
        Empty();
        Free(m_data);
        m_data = nullptr;
        m_capacity = 0;
    }

    // Whole arrays -----------------------------------------------------------------------------------------------

    /// Empties this array, then adds each element of `other`; `Copy` of the array itself therefore leaves it empty.
    bool Copy(const TArray& other) {
        Empty();
        return addAll(other);
    }

    /// Empties this array and frees its buffer first, and only then fills `dest` from it: both arrays end up empty, and
    /// `dest` gets this array's growth rate. What `dest` held before is forgotten, not freed: call it on an empty one.
    bool MakeDuplicate(TArray& dest) {
        Destroy();
        dest.m_data = dest.Alloc(0);
        dest.m_capacity = 0;
        dest.m_size = m_size;
        dest.m_growthRate = m_growthRate;
        return true;
    }

    /// Frees the contents and takes over `buffer`, `n` live elements on the process heap.
    void Attach(T* buffer, uint32_t n) {
        Destroy();
        m_data = buffer;
        m_size = m_capacity = n;
    }

    /// Hands the buffer to the caller, who destroys its elements and frees it with HeapFree.
    T* Detach() {
        m_size = m_capacity = 0;
        return std::exchange(m_data, nullptr);
    }

    // Rearranging ------------------------------------------------------------------------------------------------

    /// Moves the element at `from` to `to`, shifting those between. Grows the array to hold both indices.
    bool Move(uint32_t from, uint32_t to) {
        if (!growToHold(std::max(from, to))) return false;
        if (from == to) return true;
        alignas(T) unsigned char held[sizeof(T)];
        std::memcpy(held, bytesAt(from), sizeof(T));
        if (from < to) {
            moveBytes(m_data + from, m_data + from + 1, to - from);
        } else {
            moveBytes(m_data + to + 1, m_data + to, from - to);
        }
        std::memcpy(bytesAt(to), held, sizeof(T));
        return true;
    }

    /// Exchanges the bytes of two elements. Grows the array to hold both indices.
    bool Swap(uint32_t a, uint32_t b) {
        if (!growToHold(std::max(a, b))) return false;
        if (a == b) return true;
        alignas(T) unsigned char held[sizeof(T)];
        std::memcpy(held, bytesAt(a), sizeof(T));
        std::memcpy(bytesAt(a), bytesAt(b), sizeof(T));
        std::memcpy(bytesAt(b), held, sizeof(T));
        return true;
    }

    /// Sorts by a comparator of two element addresses.
    void Sort(int (*compare)(const void*, const void*)) { Private::sortRecords(m_data, m_size, sizeof(T), compare); }
    /// The same with `context` handed to the comparator as its first argument.
    void Sort(int (*compare)(void*, const void*, const void*), void* context) {
        Private::sortRecords(m_data, m_size, sizeof(T), compare, context);
    }

    // Access -----------------------------------------------------------------------------------------------------

    /// Extends the array when `i` is past its end. If that fails the reference is invalid.
    T& GetItem(uint32_t i) {
        if (i >= m_size) growToHold(i);
        return m_data[i];
    }
    T& operator[](uint32_t i) { return GetItem(i); }

    /// Throws CException, "Index out of bounds.", when `i` is not below the size.
    const T& ConstGetItem(uint32_t i) const {
        if (i >= m_size) Private::throwIndexOutOfBounds();
        return m_data[i];
    }
    const T& GetAt(uint32_t i) const { return ConstGetItem(i); }
    const T& operator[](uint32_t i) const { return ConstGetItem(i); }

    /// Raw positions, unchecked: front and back of an empty array are the caller's error.
    T& front() { return m_data[0]; }
    const T& front() const { return m_data[0]; }
    T& back() { return m_data[m_size - 1]; }
    const T& back() const { return m_data[m_size - 1]; }
    T* data() { return m_data; }
    const T* data() const { return m_data; }
    T* GetData() { return m_data; }
    const T* GetData() const { return m_data; }

    /// Valid until the array grows or an element is inserted or removed.
    iterator begin() { return m_data; }
    iterator end() { return m_data + m_size; }
    const_iterator begin() const { return m_data; }
    const_iterator end() const { return m_data + m_size; }
    const_iterator cbegin() const { return m_data; }
    const_iterator cend() const { return m_data + m_size; }
    reverse_iterator rbegin() { return reverse_iterator(end()); }
    reverse_iterator rend() { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }
    const_reverse_iterator crbegin() const { return rbegin(); }
    const_reverse_iterator crend() const { return rend(); }

    // Element and buffer primitives ------------------------------------------------------------------------------

    /// Constructs or destroys one element in place.
    void Construct(T* p) { ::new (static_cast<void*>(p)) T(); }
    void Destruct(T* p) { p->~T(); }
    /// Room for `n` elements on the process heap; null when there is none.
    T* Alloc(uint32_t n) { return static_cast<T*>(HeapAlloc(size_t{n} * sizeof(T))); }
    T* ReAlloc(T* p, uint32_t n) { return static_cast<T*>(HeapReAlloc(static_cast<void*>(p), size_t{n} * sizeof(T))); }
    void Free(T* p) {
        if (p != nullptr) HeapFree(static_cast<void*>(p));
    }

private:
    /// A const T& argument that may name an element of the array that is about to grow or shift.
    class Argument {
    public:
        Argument(const TArray& array, const T& x) : m_address(&x), m_index(none) {
            const std::less<const T*> before;
            if (array.m_data == nullptr || before(&x, array.m_data) || !before(&x, array.m_data + array.m_size)) return;
            m_index = static_cast<size_t>(&x - array.m_data);
        }
        Argument(const TArray& array, const T& x, uint32_t gapAt, uint32_t gapCount) : Argument(array, x) {
            if (m_index != none && m_index >= gapAt) m_index += gapCount;
        }
        const T& in(const TArray& array) const { return m_index == none ? *m_address : array.m_data[m_index]; }

    private:
        static constexpr size_t none = ~size_t{0};
        const T* m_address;
        size_t m_index;
    };

    bool setCapacityTo(uint64_t capacity) {
        if (!Private::fitsHeapBlock(capacity, sizeof(T))) return false;
        const auto n = static_cast<uint32_t>(capacity);
        T* grown = m_data == nullptr ? Alloc(n) : ReAlloc(m_data, n);
        if (grown == nullptr) return false;
        m_data = grown;
        m_capacity = n;
        return true;
    }

    /// The elements of `other` behind this array's own. The buffer is sized once, to the capacity that adding them one
    /// at a time would have led to.
    bool addAll(const TArray& other) {
        const uint32_t count = other.m_size;
        const uint64_t wanted = uint64_t{m_size} + count;
        uint64_t capacity = m_capacity;
        while (capacity < wanted) capacity = Private::grownCapacity(capacity, capacity + 1, m_growthRate);
        if (capacity > m_capacity && !setCapacityTo(capacity)) return false;
        for (uint32_t i = 0; i < count; ++i) {
            Construct(m_data + m_size);
            m_data[m_size] = other.m_data[i];
            ++m_size;
        }
        return true;
    }

    bool growToHold(uint32_t index) { return index != 0xFFFFFFFFu && ImplicitAddition(index + 1); }

    /// Below the size: shifts the tail up and constructs `count` elements in the gap. At or past it: grows to `needed`.
    bool openGap(uint32_t index, uint32_t count, uint64_t needed) {
        if (index >= m_size) return needed <= 0xFFFFFFFFu && ImplicitAddition(static_cast<uint32_t>(needed));
        const uint64_t newSize = uint64_t{m_size} + count;
        if (newSize > 0xFFFFFFFFu || !Dimension(static_cast<uint32_t>(newSize))) return false;
        moveBytes(m_data + index + count, m_data + index, m_size - index);
        uint32_t made = 0;
        try {
            for (; made < count; ++made) Construct(m_data + index + made);
        } catch (...) {
            destructRange(index, index + made);
            moveBytes(m_data + index, m_data + index + count, m_size - index);
            throw;
        }
        m_size = static_cast<uint32_t>(newSize);
        return true;
    }

    /// The size follows each element, so that a constructor that throws leaves whole elements behind.
    void constructUpTo(uint32_t n) {
        for (; m_size < n; ++m_size) Construct(m_data + m_size);
    }
    void destructRange(uint32_t first, uint32_t last) {
        if constexpr (!std::is_trivially_destructible_v<T>) {
            for (uint32_t i = first; i < last; ++i) Destruct(m_data + i);
        } else {
            (void)first, (void)last;
        }
    }
    void* bytesAt(uint32_t i) { return static_cast<void*>(m_data + i); }
    static void moveBytes(T* to, const T* from, size_t count) {
        if (count != 0) {
            std::memmove(static_cast<void*>(to), static_cast<const void*>(from), count * sizeof(T));
        }
    }

    T* m_data = nullptr;
    uint32_t m_capacity = 0;
    uint32_t m_size = 0;
    uint16_t m_growthRate = 5;
};

/// Growable array of plain bytes: nothing is constructed or destroyed and a copy is one memcpy. Grown elements are not
/// cleared. Growth, failure and threads as TArray; a failed growth also says so on the debug output.
template <class T>
class QV_API TSimpleArray {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    TSimpleArray() = default;
    /// `n` elements, not cleared; empty without memory.
    explicit TSimpleArray(uint32_t n) { SetSize(n); }
    TSimpleArray(const TSimpleArray& other) { Copy(other); }
    virtual ~TSimpleArray() { Destroy(); }
    TSimpleArray& operator=(const TSimpleArray& other) {
        Copy(other);
        return *this;
    }

    /// Ensures a capacity of at least `n`; never shrinks.
    bool Dimension(uint32_t n) {
        if (n <= m_capacity) return true;
        const uint64_t capacity = Private::grownCapacity(m_capacity, n, m_growthRate);
        const bool fits = Private::fitsHeapBlock(capacity, sizeof(T));
        void* grown = nullptr;
        if (fits) {
            const size_t bytes = static_cast<size_t>(capacity) * sizeof(T);
            grown = m_data == nullptr ? HeapAlloc(bytes) : HeapReAlloc(m_data, bytes);
        }
        if (grown == nullptr) {
            Private::debugOutput(m_data == nullptr ? "TSimpleArray::Alloc failed\n" : "TSimpleArray::ReAlloc failed\n");
            return false;
        }
        m_data = static_cast<T*>(grown);
        m_capacity = static_cast<uint32_t>(capacity);
        return true;
    }
    bool reserve(uint32_t n) { return Dimension(n); }
    /// Sets the size; the capacity stays when the array gets smaller.
    bool SetSize(uint32_t n) {
        if (!Dimension(n)) return false;
        m_size = n;
        return true;
    }
    bool resize(uint32_t n) { return SetSize(n); }
    /// Appends `x`.
    bool Add(T x) {
        if (m_size == 0xFFFFFFFFu || !Dimension(m_size + 1)) return false;
        m_data[m_size++] = x;
        return true;
    }
    bool push_back(T x) { return Add(x); }

    /// Replaces the contents by the other array's. The old buffer goes before a larger one is asked for: on a failed
    /// growth the message is written and the array is empty.
    bool Copy(const TSimpleArray& other) {
        if (this == &other) return true;
        bool whole = true;
        if (other.m_size > m_capacity) {
            Destroy();
            whole = Dimension(other.m_size);
        }
        m_size = std::min(other.m_size, m_capacity);
        if (m_size != 0) std::memcpy(m_data, other.m_data, size_t{m_size} * sizeof(T));
        return whole;
    }

    /// Size 0; Empty keeps the buffer, Destroy frees it.
    void Empty() { m_size = 0; }
    void clear() { m_size = 0; }
    void Destroy() {
        if (m_data != nullptr) HeapFree(m_data);
        m_data = nullptr;
        m_size = m_capacity = 0;
    }
    /// Takes over a buffer of `n` elements on the process heap.
    void Attach(T* buffer, uint32_t n) {
        Destroy();
        m_data = buffer;
        m_size = m_capacity = n;
    }
    /// Gives the buffer to the caller (HeapFree) and leaves the array empty.
    T* Detach() {
        m_size = m_capacity = 0;
        return std::exchange(m_data, nullptr);
    }
    /// Stores the growth rate and returns the old one.
    uint16_t SetGrowthRate(uint16_t rate) { return std::exchange(m_growthRate, rate); }

    /// Unchecked; neither form extends the array.
    T& operator[](uint32_t i) { return m_data[i]; }
    const T& operator[](uint32_t i) const { return m_data[i]; }
    T* data() { return m_data; }
    const T* data() const { return m_data; }
    T* GetData() { return m_data; }
    const T* GetData() const { return m_data; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_size; }
    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_size; }
    uint32_t size() const { return m_size; }
    uint32_t GetSize() const { return m_size; }
    uint32_t nItems() const { return m_size; }
    uint32_t capacity() const { return m_capacity; }
    bool empty() const { return m_size == 0; }

private:
    T* m_data = nullptr;
    uint32_t m_capacity = 0;
    uint32_t m_size = 0;
    uint16_t m_growthRate = 5;
};

/// TArray with push and pop at its end.
template <class T>
class QV_API TStack : public TArray<T> {
public:
    using TArray<T>::TArray;
    /// Appends a copy; false without memory.
    bool Push(const T& x) { return this->Add(x); }
    /// Moves the last element to `out` and removes it; false on an empty stack.
    bool Pop(T& out) {
        if (this->empty()) return false;
        out = this->back();
        this->pop_back();
        return true;
    }
    /// The last element. REQUIRES: not empty.
    T& Top() { return this->back(); }
    const T& Top() const { return this->back(); }
};

/// TArray with entry at its end and removal at its front.
template <class T>
class QV_API TQueue : public TArray<T> {
public:
    using TArray<T>::TArray;
    /// Appends a copy; false without memory.
    bool Enqueue(const T& x) { return this->Add(x); }
    /// Moves the first element to `out` and removes it; false on an empty queue.
    bool Dequeue(T& out) {
        if (this->empty()) return false;
        out = this->front();
        this->Remove(0);
        return true;
    }
};

}  // namespace qv
