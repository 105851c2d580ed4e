#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "files/seek.h"
#include "qv/array.h"
#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/memory.h"

namespace qv {

namespace {
constexpr int64_t largestSettableSize = 0x40000000;
constexpr int64_t largestPosition = std::numeric_limits<uint32_t>::max();

/// The ranges may overlap. Typed values go without a call.
void copyBytes(void* to, const void* from, uint32_t count) {
    switch (count) {
        case 0: return;
        case 1: std::memmove(to, from, 1); return;
        case 2: std::memmove(to, from, 2); return;
        case 4: std::memmove(to, from, 4); return;
        case 8: std::memmove(to, from, 8); return;
        default: std::memmove(to, from, count);
    }
}
}  // namespace

TSharedPtr<CMemFile> CMemFile::Create() { return TSharedPtr<CMemFile>(new CMemFile); }

CMemFile::CMemFile() = default;

CMemFile::CMemFile(const CMemFile& other) : IFile(other) { *this = other; }

CMemFile& CMemFile::operator=(const CMemFile& other) {
    if (this == &other) return *this;
    IFile::operator=(other);
    if (m_owned) {
        Destroy();
    } else {
        (void)Detach();
        m_size = 0;
    }
    m_owned = true;
    m_position = other.m_position;
    m_growthRate = other.m_growthRate;
    const uint32_t bytes = other.m_data == nullptr ? 0 : other.m_size;
    if (bytes != 0 && ensureCapacity(bytes)) {
        std::memcpy(m_data, other.m_data, bytes);
        m_size = m_written = bytes;
    }
    m_grow = other.m_grow;
    return *this;
}

CMemFile::~CMemFile() {
    if (m_owned && m_data != nullptr) HeapFree(m_data);
}

void CMemFile::Attach(uint8_t* data, uint32_t size, bool own) {
    if (m_data != nullptr && m_data != data) HeapFree(m_data);
    m_data = data;
    m_capacity = m_size = m_written = size;
    m_owned = own;
}

uint8_t* CMemFile::Detach() {
    m_capacity = m_written = 0;
    return std::exchange(m_data, nullptr);
}

void CMemFile::Destroy() {
    if (m_data != nullptr) HeapFree(m_data);
    m_data = nullptr;
    m_capacity = m_size = m_written = 0;
}

void CMemFile::Empty() { m_size = 0; }

void CMemFile::Reset() {
    (void)SetSize(0);
    Seek(0, fromBegin);
}

void CMemFile::SetGrow(bool grow) { m_grow = grow; }

uint32_t CMemFile::SetGrowthRate(uint32_t rate) { return std::exchange(m_growthRate, std::max(rate, 1u)); }

/// False, with the block as it was, without memory.
bool CMemFile::ensureCapacity(uint64_t wanted) {
    if (wanted <= m_capacity) return true;
    const auto rate = static_cast<uint16_t>(std::min<uint32_t>(m_growthRate, Private::doublingRate));
    const uint64_t capacity = wanted > 0xFFFFFFFFu ? wanted : Private::grownCapacity(m_capacity, wanted, rate);
    void* grown = nullptr;
    if (Private::fitsHeapBlock(capacity, 1)) {
        const auto bytes = static_cast<size_t>(capacity);
        const bool inPlace = m_data != nullptr && m_owned;
        grown = inPlace ? HeapReAlloc(m_data, bytes) : HeapAlloc(bytes);
        // A block that belongs to somebody else stays as it is; the file goes on with one of its own.
        if (grown != nullptr && !inPlace && m_data != nullptr) std::memcpy(grown, m_data, m_capacity);
    }
    if (grown == nullptr) {
        SetDiagnostic(CString(), u"memory for a file in memory", CString::FromFormat(u"none for %I64u bytes", wanted));
        return false;
    }
    m_data = static_cast<uint8_t*>(grown);
    m_capacity = static_cast<uint32_t>(capacity);
    m_owned = true;
    return true;
}

/// Gives the raw memory below `end` a value, once.
void CMemFile::clearUpTo(uint64_t end) {
    if (end <= m_written) return;
    std::memset(m_data + m_written, 0, static_cast<size_t>(end) - m_written);
    m_written = static_cast<uint32_t>(end);
}

uint32_t CMemFile::Write(const void* data, uint32_t count) {
    const uint64_t end = uint64_t{m_position} + count;
    if (!m_grow && end > m_size) return 0;
    if (end > m_capacity) {
        const auto offset = reinterpret_cast<uintptr_t>(data) - reinterpret_cast<uintptr_t>(m_data);
        const bool isOwn = m_data != nullptr && offset < m_capacity;
        if (!m_grow || !ensureCapacity(end)) return 0;  // Fixed size with its block detached, or no memory.
        if (isOwn) data = m_data + offset;
    }
    clearUpTo(m_position);
    copyBytes(m_data + m_position, data, count);
    m_position = static_cast<uint32_t>(end);
    m_written = std::max(m_written, m_position);
    m_size = std::max(m_size, m_position);
    return count;
}

uint32_t CMemFile::Read(void* data, uint32_t count) {
    const uint32_t end = std::min(m_size, m_capacity);  // They differ only while the block is detached.
    if (m_position >= end) return 0;
    count = std::min(count, end - m_position);
    copyBytes(data, m_data + m_position, count);
    m_position += count;
    return count;
}

int64_t CMemFile::Seek(int64_t offset, uint32_t origin) {
    int64_t base = 0;
    if (!Private::seekBase(origin, m_position, m_size, base)) return m_position;
    const int64_t held = std::clamp(offset, -largestPosition, largestPosition);
    m_position = static_cast<uint32_t>(std::clamp<int64_t>(base + held, 0, largestPosition));
    return m_position;
}

bool CMemFile::SetSize(int64_t size) {
    if (size < 0 || size > largestSettableSize) return false;
    const auto wanted = static_cast<uint32_t>(size);
    if (!ensureCapacity(wanted)) return true;
    clearUpTo(wanted);
    m_size = wanted;
    return true;
}

int64_t CMemFile::GetSize() { return m_size; }
int64_t CMemFile::GetPosition() { return m_position; }
IFileSystem& CMemFile::GetFileSystem() { return fileSystem(); }
void CMemFile::Flush() {}
void CMemFile::Close() {}

char16_t* CMemFile::GetFilename(char16_t* buffer, int bufferChars) {
    if (bufferChars > 0) buffer[0] = 0;
    return buffer;
}

}  // namespace qv
