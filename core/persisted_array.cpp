#include "qv/persisted_array.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "qv/array.h"
#include "qv/diagnostic.h"
#include "qv/exception.h"
#include "qv/file_system.h"

namespace qv::Private {

namespace {

constexpr uint32_t fromBeginning = 1;

struct FreeMemory {
    void operator()(unsigned char* p) const { std::free(p); }
};
using Bytes = std::unique_ptr<unsigned char, FreeMemory>;

/// Zeroed memory for `count` records of `size` bytes.
Bytes allocRecords(size_t count, size_t size) {
    Bytes bytes(static_cast<unsigned char*>(std::calloc(count, size)));
    if (bytes == nullptr) throw std::bad_alloc();
    return bytes;
}

bool failedFile(const char16_t* expected, uint64_t offset) {
    SetDiagnostic(CString(), CString(expected), CString(u"a failing file under an array"),
                  static_cast<int64_t>(offset));
    return false;
}

[[noreturn]] void throwFileFailed() {
    throw CRuntimeErrorException(CString(u"The file under an array could not be read or written."));
}

}  // namespace

PersistedWindow::PersistedWindow(TSharedPtr<IFile> file, uint32_t budgetBytes, uint32_t recordBytes)
    : m_elementSize(std::max(recordBytes, 16u)), m_file(file), m_budgetBytes(budgetBytes) {
    takeCapacity(std::max(m_budgetBytes / m_elementSize, 1u));
    m_cache = allocRecords(m_capacity, m_elementSize).release();
}
PersistedWindow::~PersistedWindow() { std::free(m_cache); }

unsigned char* PersistedWindow::element(uint32_t index) {
    if (index == 0xFFFFFFFFu) throwIndexOutOfBounds();
    if (!holds(index)) bringIn(index);
    if (index >= m_count) extendTo(index + 1);
    return slot(index);
}

/// Where the live elements of the window end.
uint64_t PersistedWindow::endOfWindow() const {
    return m_loaded ? std::max(m_first, std::min<uint64_t>(m_last + 1, m_count)) : m_first;
}

unsigned char* PersistedWindow::slot(uint64_t index) const {
    const uint64_t at = (m_start + (index - m_first)) % m_capacity;
    return m_cache + static_cast<size_t>(at) * m_elementSize;
}

/// Calls `transfer(bytes, first element, byte count)` for the at most two stretches of memory that hold the elements
/// from `first` up to `end`.
template <class Transfer>
bool PersistedWindow::forEachPiece(uint64_t first, uint64_t end, Transfer transfer) const {
    while (first < end) {
        const uint64_t at = (m_start + (first - m_first)) % m_capacity;
        const uint64_t n = std::min(end - first, m_capacity - at);
        if (!transfer(slot(first), first, static_cast<uint32_t>(n * m_elementSize))) return false;
        first += n;
    }
    return true;
}

bool PersistedWindow::writeElements(uint64_t first, uint64_t end) {
    if (first >= end) return true;
    if (!openFile()) return false;
    return forEachPiece(first, end, [this](const unsigned char* bytes, uint64_t index, uint32_t size) {
        const uint64_t offset = index * m_elementSize;
        m_file->Seek(static_cast<int64_t>(offset), fromBeginning);
        return m_file->Write(bytes, size) == size || failedFile(u"room for the window", offset);
    });
}

/// Elements at or behind the count are left alone; those that the file does not reach are zero.
bool PersistedWindow::readElements(uint64_t first, uint64_t end) {
    end = std::min<uint64_t>(end, m_count);
    return forEachPiece(first, end, [this](unsigned char* bytes, uint64_t index, uint32_t size) {
        uint32_t got = 0;
        const auto offset = static_cast<int64_t>(index * m_elementSize);
        if (m_file != nullptr) {
            m_file->Seek(offset, fromBeginning);
            got = m_file->Read(bytes, size);
            if (got < size && offset + got < m_file->GetSize()) return failedFile(u"the window", index * m_elementSize);
        }
        std::memset(bytes + got, 0, size - got);
        return true;
    });
}

/// Moves the window so that it holds `index`: forward, the index comes to stand half a window before the end; backward,
/// half a window behind the beginning.
void PersistedWindow::bringIn(uint32_t index) {
    const uint32_t half = m_capacity / 2;
    if (!m_loaded || index < m_first) {
        slideTo(index < half ? 0 : index - half);
    } else {
        slideTo(index <= half ? 0 : uint64_t{index} + half + 1 - m_capacity);
    }
}

/// Moves the window to `first`. What both windows hold stays in memory; what leaves is written before what enters is
/// read into its place.
void PersistedWindow::slideTo(uint64_t first) {
    const uint64_t oldFirst = m_first;
    const uint64_t oldEnd = endOfWindow();
    const uint64_t end = first + m_capacity;
    const bool overlap = m_loaded && first <= m_last && end > oldFirst;
    if (!overlap) {
        if (!writeElements(oldFirst, oldEnd)) throwFileFailed();
        loadAt(first);
        return;
    }
    const bool forward = first > oldFirst;
    const bool written = forward ? writeElements(oldFirst, std::min(first, oldEnd)) : writeElements(end, oldEnd);
    if (!written) throwFileFailed();
    m_start = static_cast<uint32_t>((m_start + first + m_capacity - oldFirst) % m_capacity);
    const uint64_t enteringFrom = forward ? m_last + 1 : first;
    const uint64_t enteringTo = forward ? end : oldFirst;
    m_first = first;
    m_last = end - 1;
    if (readElements(enteringFrom, enteringTo)) return;
    // The slots that should have been filled hold other elements: save what stayed and drop the window.
    (void)writeElements(std::max(first, oldFirst), std::min(end, oldEnd));
    m_loaded = false;
    throwFileFailed();
}

/// Reads a whole new window; nothing of the old one is kept.
void PersistedWindow::loadAt(uint64_t first) {
    m_start = 0;
    m_first = first;
    m_last = first + m_capacity - 1;
    m_loaded = readElements(m_first, m_last + 1);
    if (!m_loaded) throwFileFailed();
}

void PersistedWindow::extendTo(uint32_t count) {
    if (m_first > m_count) cutFile(m_count);  // What an earlier, longer array left there must not come back.
    const uint64_t from = std::max<uint64_t>(m_count, m_first);
    (void)forEachPiece(from, std::min<uint64_t>(count, m_last + 1), [](unsigned char* bytes, uint64_t, uint32_t size) {
        std::memset(bytes, 0, size);
        return true;
    });
    m_count = count;
}

bool PersistedWindow::openFile() {
    if (m_file == nullptr) m_file = fileSystem().CreateTempFile();
    if (m_file == nullptr) return failedFile(u"a temporary file", 0);
    return true;
}

/// Cuts the file behind `count` elements.
void PersistedWindow::cutFile(uint64_t count) {
    if (m_file == nullptr) return;
    const auto size = static_cast<int64_t>(count * m_elementSize);
    if (m_file->GetSize() > size) m_file->SetSize(size);
}

bool PersistedWindow::flush() {
    if (!writeElements(m_first, endOfWindow())) return false;
    if (m_truncate) cutFile(m_count);
    return true;
}

void PersistedWindow::remove(uint32_t index) {
    if (index >= m_count) return;
    if (isWholeInMemory()) {
        // A window that never moved lies in order from the buffer's beginning.
        unsigned char* const at = slot(index);
        std::memmove(at, at + m_elementSize, size_t{m_count - index - 1} * m_elementSize);
        --m_count;
        return;
    }
    const bool inWindow = holds(index);
    // Also in front of the window: its elements are about to move down by one place in the file.
    const bool shifts = inWindow || index < m_first;
    if (shifts && !flush()) throwFileFailed();
    const uint64_t offset = uint64_t{index} * m_elementSize;
    if (!openFile() || !m_file->Remove(static_cast<int64_t>(offset), m_elementSize)) throwFileFailed();
    --m_count;
    const uint32_t half = m_capacity / 2;
    if (inWindow) {
        loadAt(index < half ? 0 : index - half);
    } else if (shifts) {
        loadAt(m_first);
    }
}

void PersistedWindow::empty() {
    m_count = 0;
    m_start = 0;
    m_first = 0;
    m_last = m_capacity - 1;
    m_loaded = true;
    cutFile(0);
}

uint32_t PersistedWindow::setElementSize(uint32_t size) {
    const uint32_t old = m_elementSize;
    if (size != 0) reloadAs(size, m_budgetBytes);
    return old;
}

uint32_t PersistedWindow::setBudget(uint32_t bytes) {
    const uint32_t old = m_budgetBytes;
    if (bytes != old) reloadAs(m_elementSize, bytes);
    return old;
}

/// Writes the window out, brings the elements to a new size and reads a window of `budgetBytes`.
void PersistedWindow::reloadAs(uint32_t elementSize, uint32_t budgetBytes) {
    const uint32_t capacity = std::max(budgetBytes / elementSize, 1u);
    Bytes cache = allocRecords(capacity, elementSize);
    if (!flush()) throwFileFailed();
    if (m_count != 0 && elementSize != m_elementSize && !resizeElements(elementSize)) {
        empty();
        throwFileFailed();
    }
    m_elementSize = elementSize;
    m_budgetBytes = budgetBytes;
    takeCapacity(capacity);
    std::free(std::exchange(m_cache, cache.release()));
    loadAt(m_first);
}

void PersistedWindow::takeCapacity(uint32_t capacity) {
    m_capacity = capacity;
    m_blockSize = capacity > 7 ? capacity / 8 : 1;
    m_last = m_first + capacity - 1;
}

/// Rewrites every element of the file in place. Growing ones go from the last to the first, shrinking ones from the
/// first to the last, so that nothing is overwritten before it is read.
bool PersistedWindow::resizeElements(uint32_t size) {
    const uint32_t perBlock = std::max(m_budgetBytes / std::max(size, m_elementSize), 1u);
    const Bytes from = allocRecords(perBlock, m_elementSize);
    const Bytes to = allocRecords(perBlock, size);
    const uint64_t blocks = (uint64_t{m_count} + perBlock - 1) / perBlock;
    for (uint64_t i = 0; i < blocks; ++i) {
        const uint64_t first = (size > m_elementSize ? blocks - 1 - i : i) * perBlock;
        const auto count = static_cast<uint32_t>(std::min<uint64_t>(perBlock, m_count - first));
        if (!resizeBlock(first, count, size, from.get(), to.get())) return false;
    }
    const auto end = static_cast<int64_t>(uint64_t{m_count} * size);
    if (m_file->GetSize() > end) m_file->SetSize(end);
    return true;
}

bool PersistedWindow::resizeBlock(uint64_t first, uint32_t count, uint32_t size, unsigned char* from,
                                  unsigned char* to) {
    const uint32_t oldBytes = count * m_elementSize;
    const uint32_t newBytes = count * size;
    m_file->Seek(static_cast<int64_t>(first * m_elementSize), fromBeginning);
    if (m_file->Read(from, oldBytes) != oldBytes) return failedFile(u"the elements", first * m_elementSize);
    const uint32_t kept = std::min(size, m_elementSize);
    for (uint32_t i = 0; i < count; ++i) {
        // The tail of a record in `to` was zero from the beginning and is never written.
        std::memcpy(to + size_t{i} * size, from + size_t{i} * m_elementSize, kept);
    }
    m_file->Seek(static_cast<int64_t>(first * size), fromBeginning);
    return m_file->Write(to, newBytes) == newBytes || failedFile(u"room for the elements", first * size);
}

}  // namespace qv::Private
