// CIndexedFile: opening, saving, closing, and its table in memory.
#include "qv/indexed_file.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "files/containers/record_bytes.h"
#include "qv/diagnostic.h"

namespace qv::Private {

using namespace indexed;

namespace {
constexpr uint32_t createForWriting = 0x38;  // create truncating, read, write
}  // namespace

CIndexedFile::CIndexedFile(const CIndexedFile& other) : m_traits(other.m_traits) { copyFrom(other); }

CIndexedFile& CIndexedFile::operator=(const CIndexedFile& other) {
    if (this == &other) return *this;
    (void)Close();
    copyFrom(other);
    return *this;
}

CIndexedFile::~CIndexedFile() { deleteIndices(); }

void CIndexedFile::copyFrom(const CIndexedFile& other) {
    std::memcpy(m_headerTag, other.m_headerTag, sizeof m_headerTag);
    m_version = other.m_version;
    m_indexOffset = other.m_indexOffset;
    m_indexCapacity = other.m_indexCapacity;
    m_nextId = other.m_nextId;
    m_container = other.m_container;
    m_open = other.m_open;
    m_readOnly = true;
    m_owner = false;
    m_fileSystem = other.m_fileSystem;
    m_path = other.m_path;
    for (uint32_t i = 0; i < other.m_indices.size(); ++i) {
        const CIndex& from = *other.m_indices.GetAt(i);
        auto* const index = new CIndex(*this);
        index->type = from.type;
        index->subtype = from.subtype;
        index->version = from.version;
        index->id = from.id;
        index->opaque = from.opaque;
        index->count = from.count;
        index->sizeWord = from.sizeWord;
        index->size = from.size;
        index->mark = from.mark;
        index->m_offset = from.m_offset;
        index->file.m_position = from.file.m_position;
        swapFlag(index->file) = from.file.m_swap;
        m_indices.Add(index);
    }
}

void CIndexedFile::deleteIndices() {
    for (CIndex* index : m_indices) delete index;
    m_indices.Destroy();
}

/// Leaves the reason; always false.
bool CIndexedFile::refuse(const char16_t* expected, const char16_t* found, int64_t at) const {
    char16_t name[IFileSystem::pathChars] = {};
    if (m_container) m_container->GetFilename(name, IFileSystem::pathChars);
    SetDiagnostic(name, expected, found, at);
    return false;
}

void CIndexedFile::SetHeaderTag(const void* bytes) { std::memcpy(m_headerTag, bytes, sizeof m_headerTag); }

int64_t CIndexedFile::GetTableEnd() const { return int64_t{m_indexOffset} + int64_t{m_indexCapacity} * recordBytes; }

// Reading -------------------------------------------------------------------------------------------------------------

bool CIndexedFile::load(const TSharedPtr<IFile>& file) {
    if (!file) return false;
    m_container = file;
    const bool loaded = readAll();
    swapFlag(*file) = false;
    m_open = loaded;
    if (!loaded) (void)Close();
    return loaded;
}

/// What the file holds of `count` bytes at `at`, and zeros for what lies behind its end. False when bytes that are
/// there did not come: a table that is only in part known must never be written back.
bool CIndexedFile::readBlock(int64_t at, uint8_t* to, uint32_t count) {
    std::memset(to, 0, count);
    const auto there = static_cast<uint32_t>(std::clamp<int64_t>(m_container->GetSize() - at, 0, count));
    if (there == 0) return true;
    if (m_container->Seek(at, IFile::fromBegin) >= 0 && m_container->Read(to, there) == there) return true;
    return refuse(u"the table of streams", u"a short read", at);
}

bool CIndexedFile::readAll() {
    uint8_t header[headerBytes];
    if (!readBlock(0, header, headerBytes)) return false;
    if (std::memcmp(header, m_traits.magic, magicBytes) != 0) {
        return refuse(CString::FromFormat(u"a file of format %S", m_traits.magic).c_str(), u"another beginning", 0);
    }
    const bool bigEndian = isBigEndian(header);
    FieldReader fields(header + magicBytes, bigEndian);
    std::memcpy(m_headerTag, fields.skip(headerTagBytes), headerTagBytes);
    m_version = fields.word();
    m_indexOffset = fields.word();
    m_indexCapacity = fields.word();
    m_nextId = fields.word();
    fields.skip(16);
    const uint32_t word = fields.word();
    if (m_indexCapacity > maxSlots) return refuse(u"a table of at most 100 slots", u"a larger one", 28);
    uint8_t table[maxSlots * recordBytes];
    if (!readBlock(m_indexOffset, table, m_indexCapacity * recordBytes)) return false;
    if (!readRecords(table, bigEndian)) return false;
    setHeaderWord(word);
    return true;
}

bool CIndexedFile::readRecords(const uint8_t* table, bool bigEndian) {
    for (uint32_t slot = 0; slot < m_indexCapacity; ++slot) {
        FieldReader fields(table + slot * recordBytes, bigEndian);
        const uint16_t type = fields.half();
        if (type == 0) continue;
        auto* const index = new (std::nothrow) CIndex(*this);
        if (index == nullptr || !m_indices.Add(index)) {
            delete index;
            return refuse(u"memory for the table of streams", u"none", m_indexOffset);
        }
        index->type = type;
        index->subtype = fields.half();
        index->version = fields.word();
        index->id = fields.word();
        index->m_offset = fields.word();
        index->sizeWord = fields.word();
        index->opaque = fields.word();
        index->count = fields.word();
        index->size = storedSize(*index);
    }
    return true;
}

// Writing -------------------------------------------------------------------------------------------------------------

bool CIndexedFile::create(const TSharedPtr<IFile>& file) {
    if (!file) return false;
    m_container = file;
    std::memset(m_headerTag, 0, sizeof m_headerTag);
    m_version = 100;
    m_indexOffset = headerBytes;
    m_indexCapacity = slotsPerStep;
    m_nextId = 1;
    m_open = true;
    m_readOnly = false;
    setHeaderWord(0);
    if (Save()) return true;
    m_open = false;
    (void)Close();
    return false;
}

bool CIndexedFile::createByPath(IFileSystem* fileSystem, const char16_t* path) {
    const CString kept(path);  // `path` may be this object's own
    (void)Close();
    if (fileSystem == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file = fileSystem->CreateFileW(kept.c_str(), createForWriting);
    if (!file) return false;
    m_fileSystem = fileSystem;
    m_path = kept;
    return create(file);
}

bool CIndexedFile::Save() {
    if (!m_open || m_readOnly) return true;
    if (!m_container || !mayChangeTable(m_container->GetSize())) return false;
    const bool saved = writeAll() || writeAll();
    swapFlag(*m_container) = false;
    return saved;
}

bool CIndexedFile::writeBlock(int64_t at, const uint8_t* from, uint32_t count) {
    if (m_container->Seek(at, IFile::fromBegin) >= 0 && m_container->WriteBytes(from, count)) return true;
    return refuse(u"room for the table of streams", u"a short write", at);
}

bool CIndexedFile::writeAll() {
    uint8_t header[headerBytes] = {};
    FieldWriter fields(header);
    fields.bytes(m_traits.magic, magicBytes);
    fields.bytes(m_headerTag, headerTagBytes);
    fields.word(m_version);
    fields.word(m_indexOffset);
    fields.word(m_indexCapacity);
    fields.word(m_nextId);
    fields.skip(16);
    fields.word(headerWord());

    TSimpleArray<uint8_t> table;
    const uint32_t bytes = std::max(m_indexCapacity, m_indices.size()) * recordBytes;
    if (!table.SetSize(bytes)) return refuse(u"memory for the table of streams", u"none", m_indexOffset);
    if (bytes != 0) std::memset(table.data(), 0, bytes);
    for (uint32_t i = 0; i < m_indices.size(); ++i) {
        CIndex& index = *m_indices[i];
        storeSize(index);
        FieldWriter record(table.data() + i * recordBytes);
        record.half(index.type);
        record.half(index.subtype);
        record.word(index.version);
        record.word(index.id);
        record.word(index.m_offset);
        record.word(index.sizeWord);
        record.word(index.opaque);
        record.word(index.count);
    }
    return writeBlock(0, header, headerBytes) && writeBlock(m_indexOffset, table.data(), bytes);
}

// States --------------------------------------------------------------------------------------------------------------

bool CIndexedFile::Close() {
    bool saved = true;
    if (m_container) {
        saved = Save();
        if (m_owner) m_container->Close();
        m_container.Release();
    }
    deleteIndices();
    m_open = false;
    m_readOnly = true;
    if (m_traits.forgetsPathOnClose) {
        m_fileSystem = nullptr;
        m_path = CString();
    }
    return saved;
}

bool CIndexedFile::mayReopen() const {
    if (!m_container) return false;
    return m_owner ? m_fileSystem != nullptr : m_traits.switchesBorrowed;
}

bool CIndexedFile::reopen(uint32_t flags) {
    m_container->Close();
    m_container = m_fileSystem->CreateFileW(m_path.c_str(), flags);
    return static_cast<bool>(m_container);
}

bool CIndexedFile::ReOpenForRead() {
    if (m_readOnly) return true;
    if (!mayReopen()) return false;
    if (m_owner && !reopen(flagsFor(true))) return false;
    m_readOnly = true;
    return true;
}

bool CIndexedFile::ReOpenForWrite() {
    if (!m_readOnly) return true;
    if (!mayReopen()) return false;
    if (m_owner && !reopen(flagsFor(false))) {
        m_container = m_fileSystem->CreateFileW(m_path.c_str(), flagsFor(true));
        return false;
    }
    m_readOnly = false;
    return true;
}

}  // namespace qv::Private
