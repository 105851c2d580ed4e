// CIndexedFile: finding, creating and resizing streams, and the file that a stream is.
#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "files/containers/record_bytes.h"
#include "files/file_editing.h"
#include "files/seek.h"
#include "qv/indexed_file.h"

namespace qv::Private {

using namespace indexed;

namespace {
constexpr int64_t bytesPerStep = slotsPerStep * recordBytes;
constexpr int64_t largestOffset = 0xFFFFFFFF;
constexpr int64_t largestPosition = std::numeric_limits<int64_t>::max();

constexpr int64_t addHeld(int64_t a, int64_t b) {
    int64_t sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return b < 0 ? std::numeric_limits<int64_t>::min() : largestPosition;
}
}  // namespace

int64_t CIndexedFile::endOf(const CIndex& index) { return index.m_offset + index.size; }

// Finding -------------------------------------------------------------------------------------------------------------

uint32_t CIndexedFile::FindIndex(uint16_t type, uint16_t subtype, uint32_t minVersion, uint32_t maxVersion,
                                 uint32_t start) const {
    for (uint32_t i = start; i < m_indices.size(); ++i) {
        const CIndex& index = *m_indices.GetAt(i);
        if (index.type != type || index.subtype != subtype) continue;
        if (index.version >= minVersion && index.version <= maxVersion) return i;
    }
    return notFound;
}

CIndexedFile::CIndex* CIndexedFile::GetIndex(uint16_t type, uint16_t subtype, uint32_t minVersion, uint32_t maxVersion,
                                             uint32_t start) const {
    return GetIndex(FindIndex(type, subtype, minVersion, maxVersion, start));
}

CIndexedFile::CIndex* CIndexedFile::GetIndex(uint32_t position) const {
    return position < m_indices.size() ? m_indices.GetAt(position) : nullptr;
}

// Changing the table --------------------------------------------------------------------------------------------------

/// What is moved now has to find its way into a table later: no change unless the table can be saved.
bool CIndexedFile::mayChangeTable(int64_t size) const {
    if (!m_open || m_readOnly || !m_container) return refuse(u"a container open for writing", u"none", 0);
    if (m_indexOffset < headerBytes) return refuse(u"a table behind the header", u"one inside it", m_indexOffset);
    if (m_indexOffset > std::max<int64_t>(size, headerBytes)) {
        return refuse(u"a table inside the file", u"one behind its end", m_indexOffset);
    }
    return true;
}

/// Where something goes that stands at or behind a place at which bytes are inserted or removed: not in front of the
/// place, though what begins among removed bytes (a stream that is empty) moves by fewer of them.
static int64_t movedOffset(int64_t offset, int64_t position, int64_t delta) {
    return std::max(offset + delta, std::min(offset, position));
}

/// Whether everything that AdjustOffsets would move keeps an offset that a record can hold.
bool CIndexedFile::offsetsFit(int64_t position, int64_t delta, const CIndex* except) const {
    const auto fits = [&](int64_t offset) { return movedOffset(offset, position, delta) <= largestOffset; };
    if (m_indexOffset > position && !fits(m_indexOffset)) return refuse(u"offsets below 4 GiB", u"more", position);
    for (uint32_t i = 0; i < m_indices.size(); ++i) {
        const CIndex* const index = m_indices.GetAt(i);
        if (index == except || index->m_offset < position || fits(index->m_offset)) continue;
        return refuse(u"offsets below 4 GiB", u"more", index->m_offset);
    }
    return true;
}

/// The table moves when it stands behind `position`, a stream also when it begins there.
void CIndexedFile::AdjustOffsets(int64_t position, int64_t delta) {
    const auto moved = [&](uint32_t offset) { return static_cast<uint32_t>(movedOffset(offset, position, delta)); };
    if (m_indexOffset > position) m_indexOffset = moved(m_indexOffset);
    for (CIndex* index : m_indices) {
        if (index->m_offset >= position) index->m_offset = moved(index->m_offset);
    }
    dataMoved(delta);
}

/// Inserts bytes of any value into the file of `size` bytes; at its end it becomes longer by them.
bool CIndexedFile::makeRoom(int64_t position, int64_t count, int64_t size) {
    if (position < size) return openGap(*m_container, position, count) == EditOutcome::done;
    (void)m_container->SetSize(size + count);
    if (m_container->GetSize() == size + count) return true;
    (void)m_container->SetSize(size);
    return refuse(u"room for a stream", u"none", position);
}

bool CIndexedFile::growTable(int64_t size) {
    const int64_t position = GetTableEnd();
    if (!offsetsFit(position, bytesPerStep, nullptr) || !makeRoom(position, bytesPerStep, size)) return false;
    AdjustOffsets(position, bytesPerStep);
    m_indexCapacity += slotsPerStep;
    return true;
}

uint32_t CIndexedFile::CreateIndex(uint16_t type, uint16_t subtype, uint32_t version, uint32_t id) {
    if (!m_container || !mayChangeTable(m_container->GetSize())) return notFound;
    // A file that ends inside its table: completed, so that nothing is placed there.
    if (m_container->GetSize() < GetTableEnd() && !Save()) return notFound;
    const uint32_t position = m_indices.size();
    const bool grows = position + 1 > m_indexCapacity;
    if (nextOffset() > largestOffset - (grows ? bytesPerStep : 0)) {
        (void)refuse(u"a place below 4 GiB", u"none", nextOffset());
        return notFound;
    }
    std::unique_ptr<CIndex> index(new (std::nothrow) CIndex(*this));
    if (index == nullptr || !m_indices.Dimension(position + 1) || (grows && !growTable(m_container->GetSize())))
        return notFound;
    const uint32_t nextId = m_nextId;
    index->type = type;
    index->subtype = subtype;
    index->version = version;
    index->id = id == automaticId ? m_nextId : id;
    index->m_offset = static_cast<uint32_t>(nextOffset());
    m_nextId = id == automaticId ? m_nextId + 1 : std::max(id + 1, m_nextId);
    m_indices.Add(index.get());
    if (grows && m_traits.savesGrownTable && !Save()) {
        m_indices.Remove(position);
        m_nextId = nextId;
        return notFound;
    }
    (void)index.release();
    return position;
}

bool CIndexedFile::RemoveIndex(uint32_t position) {
    CIndex* const index = GetIndex(position);
    if (index == nullptr || !m_container || !mayChangeTable(m_container->GetSize())) return false;
    if (SetIndexSize(*index, 0) != 0) return false;
    m_indices.Remove(position);
    delete index;
    return true;
}

/// Whether bytes may be inserted or removed at `position`, which is inside the stream or at its end, in a file of
/// `size` bytes: not where that would tear the header or the table, or move something beyond what a record can hold.
bool CIndexedFile::mayResize(const CIndex& index, int64_t position, int64_t delta, int64_t size) const {
    if (!mayChangeTable(size) || !offsetsFit(position, delta, &index)) return false;
    if (position > size) return delta < 0 || refuse(u"a stream inside the file", u"one behind its end", position);
    const int64_t touchedEnd = delta < 0 ? std::min(endOf(index), size) : position + 1;
    const bool tearsTable = m_indexCapacity != 0 && position < GetTableEnd() && touchedEnd > m_indexOffset;
    if (position >= headerBytes && !tearsTable) return true;
    return refuse(u"a stream clear of the table", u"another", position);
}

/// Returns the size in force afterwards.
int64_t CIndexedFile::SetIndexSize(CIndex& index, int64_t newSize) {
    if (newSize < 0) return index.size;
    const int64_t difference = newSize - index.size;
    if (difference == 0 || difference > largestOffset) return index.size;
    const int64_t position = index.m_offset + std::min(newSize, index.size);
    const int64_t size = m_container ? m_container->GetSize() : 0;
    if (!mayResize(index, position, difference, size)) return index.size;
    if (difference > 0 && !makeRoom(position, difference, size)) return index.size;
    const int64_t removed = difference < 0 ? std::min(endOf(index), size) - position : 0;
    if (removed > 0 && closeGap(*m_container, position, removed) != EditOutcome::done) return index.size;
    takeSize(index, newSize);
    return newSize;
}

/// The stream has another size, and what stands behind it has moved.
void CIndexedFile::takeSize(CIndex& index, int64_t newSize) {
    const int64_t position = index.m_offset + std::min(newSize, index.size);
    const int64_t difference = newSize - index.size;
    const uint32_t offset = index.m_offset;
    index.size = newSize;
    AdjustOffsets(position, difference);
    index.m_offset = offset;  // an empty stream stands at its own insertion point
}

// Bytes ---------------------------------------------------------------------------------------------------------------

uint32_t CIndexedFile::ReadIndex(const CIndex& index, int64_t position, void* data, uint32_t count) {
    if (!m_container || position >= index.size) return 0;
    if (m_container->Seek(index.m_offset + position, IFile::fromBegin) < 0) return 0;
    return m_container->Read(data, static_cast<uint32_t>(std::min<int64_t>(count, index.size - position)));
}

uint32_t CIndexedFile::WriteIndex(CIndex& index, int64_t position, const void* data, uint32_t count) {
    if (!m_container || position > largestPosition - count) return 0;
    const int64_t end = position + count;
    const int64_t size = m_container->GetSize();
    const bool grows = end > index.size;
    // Behind the last stream the bytes themselves make the room.
    const bool appends = grows && position <= index.size && endOf(index) == size;
    if (appends ? !mayResize(index, size, end - index.size, size) : grows && SetIndexSize(index, end) != end) return 0;
    const int64_t at = index.m_offset + position;
    if (!grows && at > size) {
        (void)refuse(u"a place inside the file", u"one behind its end", at);
        return 0;
    }
    const uint32_t done = m_container->Seek(at, IFile::fromBegin) < 0 ? 0 : m_container->Write(data, count);
    if (appends && position + done > index.size) takeSize(index, position + done);
    return done;
}

CIndexedFile::CIndexDataFile::~CIndexDataFile() = default;

char16_t* CIndexedFile::CIndexDataFile::GetFilename(char16_t* buffer, int bufferChars) {
    const TSharedPtr<IFile>& container = m_index.m_owner.m_container;
    if (container) return container->GetFilename(buffer, bufferChars);
    if (bufferChars > 0) buffer[0] = 0;
    return buffer;
}

IFileSystem& CIndexedFile::CIndexDataFile::GetFileSystem() { return fileSystem(); }

uint32_t CIndexedFile::CIndexDataFile::Write(const void* data, uint32_t count) {
    const uint32_t done = m_index.m_owner.WriteIndex(m_index, m_position, data, count);
    m_position += done;
    return done;
}

uint32_t CIndexedFile::CIndexDataFile::Read(void* data, uint32_t count) {
    const uint32_t done = m_index.m_owner.ReadIndex(m_index, m_position, data, count);
    m_position += done;
    return done;
}

int64_t CIndexedFile::CIndexDataFile::GetSize() {
    const TSharedPtr<IFile>& container = m_index.m_owner.m_container;
    const int64_t there = container ? std::max<int64_t>(container->GetSize() - m_index.m_offset, 0) : 0;
    return std::min(m_index.size, there);
}

int64_t CIndexedFile::CIndexDataFile::GetPosition() { return m_position; }

int64_t CIndexedFile::CIndexDataFile::Seek(int64_t offset, uint32_t origin) {
    int64_t base = 0;
    if (!seekBase(origin, m_position, origin == fromEnd ? GetSize() : 0, base)) return m_position;
    m_position = std::max<int64_t>(addHeld(base, offset), 0);
    return m_position;
}

bool CIndexedFile::CIndexDataFile::SetSize(int64_t size) { return m_index.m_owner.SetIndexSize(m_index, size) == size; }

void CIndexedFile::CIndexDataFile::Flush() {}
void CIndexedFile::CIndexDataFile::Close() {}

}  // namespace qv::Private
