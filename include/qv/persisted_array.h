// TPersistedArray: an array in a temporary file, with a window of it in memory.
#pragma once

#include <cstdint>
#include <type_traits>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"

namespace qv {

namespace Private {

/// The window over the file, for elements of any size. TPersistedArray puts the type on it.
///
/// The window is a circular buffer: element `m_first` sits in slot `m_start`, the next ones behind it, wrapping at
/// `m_capacity`. Slots past the element count hold nothing of meaning.
class QV_API PersistedWindow {
public:
    /// Elements are 16 bytes to begin with, or `recordBytes` where that is more.
    PersistedWindow(TSharedPtr<IFile> file, uint32_t budgetBytes, uint32_t recordBytes);
    PersistedWindow(const PersistedWindow&) = delete;
    PersistedWindow& operator=(const PersistedWindow&) = delete;
    ~PersistedWindow();

    /// The bytes of element `index`, moved into the window; the array is extended to hold it.
    unsigned char* element(uint32_t index);
    bool flush();
    void remove(uint32_t index);
    uint32_t setElementSize(uint32_t size);
    uint32_t setBudget(uint32_t bytes);
    void empty();

    uint32_t count() const { return m_count; }
    uint32_t elementSize() const { return m_elementSize; }
    uint32_t capacity() const { return m_capacity; }
    uint32_t blockSize() const { return m_blockSize; }
    void setTruncate(bool truncate) { m_truncate = truncate; }

private:
    bool holds(uint64_t index) const { return m_loaded && index >= m_first && index <= m_last; }
    bool isWholeInMemory() const { return m_file == nullptr && m_first == 0 && m_count <= m_capacity; }
    uint64_t endOfWindow() const;
    unsigned char* slot(uint64_t index) const;
    template <class Transfer>
    bool forEachPiece(uint64_t first, uint64_t end, Transfer transfer) const;
    bool writeElements(uint64_t first, uint64_t end);
    bool readElements(uint64_t first, uint64_t end);
    void bringIn(uint32_t index);
    void slideTo(uint64_t first);
    void loadAt(uint64_t first);
    void extendTo(uint32_t count);
    bool openFile();
    void cutFile(uint64_t count);
    void takeCapacity(uint32_t capacity);
    void reloadAs(uint32_t elementSize, uint32_t budgetBytes);
    bool resizeElements(uint32_t size);
    bool resizeBlock(uint64_t first, uint32_t count, uint32_t size, unsigned char* from, unsigned char* to);

    uint32_t m_count = 0;
    uint32_t m_elementSize;
    TSharedPtr<IFile> m_file;
    uint32_t m_budgetBytes;
    uint32_t m_capacity = 0;
    uint32_t m_blockSize = 0;
    uint64_t m_first = 0;
    uint64_t m_last = 0;
    uint32_t m_start = 0;
    unsigned char* m_cache = nullptr;
    bool m_truncate = false;
    bool m_loaded = true;  ///< False after a failed read: the window holds nothing until the next access.
};

}  // namespace Private

/// Array of plain records in a temporary file, of which 512 KiB are kept in memory.
///
/// A record may be longer than T: the element size is set at run time, 16 bytes to begin with, or sizeof(T) where that
/// is more. It is the caller's duty to keep it at sizeof(T) or above where an element is read or written as a T, and at
/// a multiple of T's alignment, since records stand behind each other at multiples of it. A record that is larger than
/// the 512 KiB is held alone.
/// References: one that an access returned is good until the next access to another element, or change.
/// New elements read as zero bytes.
/// Failure:   the temporary file is made when the window first moves. When it cannot be made, written or read, the call
///            throws CRuntimeErrorException and sets the diagnostic; the elements stay as they were, unless the element
///            size was being changed (the array is empty then). std::bad_alloc without memory.
/// Threads:   none of it is thread-safe.
template <class T>
class TPersistedArray {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    TPersistedArray() : TPersistedArray(nullptr) {}
    /// Keeps the elements in `file`, from its beginning, instead of a temporary file. What the file holds is no
    /// element; it is overwritten as the array grows. Bytes between the file's end and a write behind it must read as
    /// zero, as on a disk. The window takes `cacheBytes`.
    explicit TPersistedArray(TSharedPtr<IFile> file, uint32_t cacheBytes = 0x80000)
        : m_window(file, cacheBytes, sizeof(T)) {}

    /// The element at `index`; past the end the array is extended to hold it. The highest index is 0xFFFFFFFE; above it
    /// CException, "Index out of bounds.", is thrown.
    T& GetItem(uint32_t index) { return *reinterpret_cast<T*>(m_window.element(index)); }
    T& operator[](uint32_t index) { return GetItem(index); }
    /// The whole record at `index`, GetElementSize() bytes.
    unsigned char* GetBytes(uint32_t index) { return m_window.element(index); }
    void Add(const T& x) {
        const T copy(x);
        GetItem(size()) = copy;
    }

    /// Closes the gap in the file; past the end nothing happens.
    void Remove(uint32_t index) { m_window.remove(index); }
    void Empty() { m_window.empty(); }

    /// Writes the window to the file and, with the truncate flag set, cuts the file behind the last element. False when
    /// the file did not take it.
    bool Flush() { return m_window.flush(); }
    void SetTruncate(bool truncate) { m_window.setTruncate(truncate); }

    /// Rewrites every record to `size` bytes: a longer one gets zeros at its end, a shorter one loses bytes there.
    /// Returns the old size. A size of 0 changes nothing.
    uint32_t SetElementSize(uint32_t size) { return m_window.setElementSize(size); }
    uint32_t GetElementSize() const { return m_window.elementSize(); }

    /// Keeps `bytes` of the elements in memory from now on, at least one element. A large window walks the array in
    /// order at the least cost, a small one makes an element that is reached out of order cheap. Returns the old size.
    uint32_t SetCacheBytes(uint32_t bytes) { return m_window.setBudget(bytes); }

    /// The number of elements, in memory and in the file together.
    uint32_t size() const { return m_window.count(); }
    uint32_t GetSize() const { return m_window.count(); }
    uint32_t nItems() const { return m_window.count(); }
    bool empty() const { return m_window.count() == 0; }
    /// The number of elements that the window holds, and an eighth of it: a step that walks the array in good blocks.
    uint32_t GetCacheCapacity() const { return m_window.capacity(); }
    uint32_t GetBlockSize() const { return m_window.blockSize(); }

private:
    Private::PersistedWindow m_window;
};

}  // namespace qv
