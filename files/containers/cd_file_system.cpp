#include "qv/cd_file_system.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/text.h"
#include "files/containers/cd_session.h"
#include "files/file_editing.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

constexpr char containerMagic[4] = {'C', 'D', 'F', 'S'};
constexpr char footerMagic[8] = {'C', 'D', 'F', 'S', 'F', 'O', 'O', 'T'};
constexpr int64_t footerBytes = 16, footerSearchBytes = 8192;
constexpr int64_t step = 4096;
constexpr int cdfsPathChars = 260;  // of which an entry could hold more

constexpr uint32_t openForReading = CFile::openExisting | CFile::accessRead;
constexpr uint32_t openForWriting = openForReading | CFile::accessWrite;
constexpr uint32_t openNew = CFile::createNew | CFile::accessRead | CFile::accessWrite;

constexpr char16_t offsetName[] = u"Offset", capacityName[] = u"Capacity";

using Entry = IFileSystem::CDirectoryEntry;

int64_t numberOf(const Entry& entry, const char16_t* name) {
    const char16_t* text = entry.properties.GetValue(name);
    return text == nullptr ? 0 : text::wtoll(text);
}
void setNumber(Entry& entry, const char16_t* name, int64_t value) {
    entry.properties.SetValue(name, CString::FromFormat(u"%I64d", value));
}

bool refuse(const char16_t* path, const char16_t* expected, const char16_t* found) {
    SetDiagnostic(path == nullptr ? u"" : path, expected, found);
    return false;
}

/// Whether the bytes of a magic stand at that place. The position is behind them then.
template <size_t n>
bool standsAt(IFile& file, int64_t position, const char (&magic)[n]) {
    char found[n];
    if (position < 0 || position > file.GetSize() - static_cast<int64_t>(n)) return false;
    return file.SetPosition(position) == position && file.ReadBytes(found, n) && std::memcmp(found, magic, n) == 0;
}

/// The base that a footer at that place tells.
bool baseOfFooter(IFile& file, int64_t footer, int64_t& base) {
    if (!standsAt(file, footer + 8, footerMagic)) return false;
    file.SetPosition(footer);
    return file.GetInt64(base);
}

}  // namespace

CCDFileSystem::CCDFileSystem() { resetRoot(); }

CCDFileSystem::~CCDFileSystem() { Close(); }

void CCDFileSystem::resetRoot() {
    m_root = CDirectoryEntry();
    m_places.clear();
    StrCpy(m_root.name, u"/", IFileSystem::pathChars);
    StrCpy(m_root.path, u"/", IFileSystem::pathChars);
    m_root.type = typeDirectory;
    m_root.modified = CDateTime::UtcNow();
    setNumber(m_root, offsetName, 0);
}

bool CCDFileSystem::IsCDFile(const char16_t* path) { return IsCDFile(&fileSystem(), path); }

bool CCDFileSystem::IsCDFile(IFileSystem* system, const char16_t* path) {
    if (system == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file = system->CreateFileW(path, openForReading);
    if (!file) return false;
    int64_t base = 0;
    return standsAt(*file, 0, containerMagic) ||
           (baseOfFooter(*file, file->GetSize() - footerBytes, base) && standsAt(*file, base, containerMagic));
}

bool CCDFileSystem::Open(const char16_t* path, bool readOnly) { return Open(&fileSystem(), path, readOnly); }

bool CCDFileSystem::Open(IFileSystem* system, const char16_t* path, bool readOnly) {
    const std::lock_guard lock(*m_lock);
    Close();
    if (system == nullptr || path == nullptr) return false;
    if (!system->FileExists(path)) {
        return readOnly ? refuse(path, u"a CDFS container", u"no file") : Create(system, path, false);
    }
    m_container = system->CreateFileW(path, readOnly ? openForReading : openForWriting);
    if (!m_container) return false;
    m_readOnly = readOnly;
    m_changed = !readOnly;  // the footer may be missing
    if (standsAt(*m_container, 0, containerMagic) ? openContainer(0) : openByFooter()) return true;
    drop();
    SetDiagnosticFile(path);
    return false;
}

bool CCDFileSystem::openContainer(int64_t base) {
    m_base = base;
    m_session = std::make_shared<Session>(this, m_lock);
    if (!LoadFileTable()) return false;
    if (m_readOnly) return true;
    if (!canBeWritten()) return refuse(nullptr, u"the properties Offset and Capacity", u"others");
    return NextFileOffset() <= m_container->GetSize() - m_base ||
           refuse(nullptr, u"a container to be changed, with all its entries", u"one that ends early");
}

/// A table of other properties could not be read once it was written with as many as the root has.
bool CCDFileSystem::canBeWritten() {
    constexpr uint32_t known = 2;
    bool all = m_root.properties.nValues() == known;
    for (uint32_t i = 0; i < fileCount(); ++i) all = all && entryAt(i).properties.nValues() == known;
    return all;
}

/// By the footer at the end, or by the last one in front of it.
bool CCDFileSystem::openByFooter() {
    const int64_t size = m_container->GetSize(), first = std::max<int64_t>(size - footerSearchBytes, 0);
    int64_t base = 0;
    bool found = baseOfFooter(*m_container, size - footerBytes, base);
    if (!found) {
        std::string tail(static_cast<size_t>(size - first), '\0');
        m_container->SetPosition(first);
        if (!m_container->ReadBytes(tail.data(), static_cast<uint32_t>(tail.size()))) return false;
        const size_t magic = tail.rfind(std::string_view(footerMagic, sizeof footerMagic));
        found = magic != tail.npos && magic >= 8 &&
                baseOfFooter(*m_container, first + static_cast<int64_t>(magic) - 8, base);
    }
    if (found && standsAt(*m_container, base, containerMagic)) return openContainer(base);
    return refuse(nullptr, u"a CDFS container", found ? u"a footer that leads nowhere" : u"another kind of file");
}

bool CCDFileSystem::Create(const char16_t* path, bool append) { return Create(&fileSystem(), path, append); }

bool CCDFileSystem::Create(IFileSystem* system, const char16_t* path, bool append) {
    const std::lock_guard lock(*m_lock);
    Close();
    if (system == nullptr || path == nullptr) return false;
    if (createContainer(system, path, append)) return true;
    drop();
    SetDiagnosticFile(path);
    return false;
}

/// A host that has a container already, which a file takes only one of.
bool CCDFileSystem::isHostTaken() {
    return standsAt(*m_container, 0, containerMagic) ||
           standsAt(*m_container, m_container->GetSize() - static_cast<int64_t>(sizeof footerMagic), footerMagic);
}

bool CCDFileSystem::createContainer(IFileSystem* system, const char16_t* path, bool append) {
    const bool exists = system->IsFile(path);
    if (exists && !append) return refuse(path, u"a name for a new file", u"a file");
    m_container = system->CreateFileW(path, exists ? openForWriting : openNew);
    if (!m_container) return false;
    if (exists && isHostTaken()) return refuse(path, u"a file without a container", u"one with a container");
    m_base = m_container->GetSize();
    m_readOnly = false;
    m_changed = true;
    m_session = std::make_shared<Session>(this, m_lock);
    m_root.size = 0;
    setNumber(m_root, offsetName, 0);
    setNumber(m_root, capacityName, step);
    m_places.clear();
    char start[6] = {};
    std::memcpy(start, containerMagic, sizeof containerMagic);
    if (m_container->SetPosition(m_base) == m_base && m_container->WriteZeros(step) &&
        writeEntry(table, 0, start, sizeof start) == sizeof start && SaveFileTable()) {
        return true;
    }
    m_changed = false;
    (void)m_container->SetSize(m_base);  // as it was
    if (!exists) {
        m_container->Close();
        system->DeleteFileW(path);
    }
    return refuse(path, u"room for a container", u"a short write");
}

/// Lets go of the container without a look at it.
void CCDFileSystem::drop() {
    if (m_session) m_session->owner = nullptr;
    m_session.reset();
    m_openFiles.clear();
    m_container = TSharedPtr<IFile>();
    removeAllEntries();
    resetRoot();
    m_base = 0;
    m_changed = false;
    m_readOnly = false;
}

void CCDFileSystem::Close() {
    const std::lock_guard lock(*m_lock);
    if (!m_container) return;
    // A table that has outgrown its room is written again, with offsets of which one more digit may do so once more.
    constexpr int mostPasses = 20;
    for (int pass = 0; pass < mostPasses && Flush() && m_changed; ++pass) {
    }
    drop();
}

bool CCDFileSystem::Flush() {
    const std::lock_guard lock(*m_lock);
    if (!m_container) return false;
    if (!m_changed || m_readOnly) {
        if (std::exchange(m_written, false)) m_container->Flush();
        return true;
    }
    m_changed = m_written = false;
    const bool saved = SaveFileTable();
    const int64_t footer = NextFileOffset() + m_base;
    if (!saved || m_container->SetPosition(footer) != footer || !m_container->PutInt64(m_base) ||
        !m_container->WriteBytes(footerMagic, sizeof footerMagic)) {
        m_changed = true;
        return refuse(nullptr, u"room for the table of a container", u"a short write");
    }
    m_container->Flush();
    return true;
}

int64_t CCDFileSystem::GetTableEnd() const { return m_base + numberOf(m_root, capacityName); }

int64_t CCDFileSystem::NextFileOffset() {
    const std::lock_guard lock(*m_lock);
    learnPlaces();
    int64_t end = 0;
    for (const Place& place : m_places) end = std::max(end, place.offset + place.capacity);
    return end;
}

// Places --------------------------------------------------------------------------------------------------------------

void CCDFileSystem::learnPlaces() {
    if (!m_places.empty()) return;
    const auto learn = [this](const CDirectoryEntry& entry) {
        m_places.push_back({numberOf(entry, offsetName), numberOf(entry, capacityName)});
    };
    learn(m_root);
    for (uint32_t i = 0; i < fileCount(); ++i) learn(entryAt(i));
}

const CCDFileSystem::Place& CCDFileSystem::placeOf(int index) {
    learnPlaces();
    return m_places[static_cast<size_t>(index - table)];
}

void CCDFileSystem::setPlace(int index, int64_t offset, int64_t capacity) {
    learnPlaces();
    m_places[static_cast<size_t>(index - table)] = {offset, capacity, false};
    if (!m_saving) tellPlace(index);
}

void CCDFileSystem::tellPlace(int index) {
    Place& place = m_places[static_cast<size_t>(index - table)];
    if (std::exchange(place.isTold, true)) return;
    CDirectoryEntry& entry = *entryOf(index);
    setNumber(entry, offsetName, place.offset);
    setNumber(entry, capacityName, place.capacity);
}

// Streams -------------------------------------------------------------------------------------------------------------

IFileSystem::CDirectoryEntry* CCDFileSystem::entryOf(int index) {
    if (!m_container) return nullptr;
    if (index == table) return &m_root;
    return index >= 0 && static_cast<uint32_t>(index) < fileCount() ? &entryAt(static_cast<uint32_t>(index)) : nullptr;
}

int64_t CCDFileSystem::setEntrySize(int index, int64_t size) {
    const std::lock_guard lock(*m_lock);
    CDirectoryEntry* const entry = entryOf(index);
    if (entry == nullptr) return 0;
    const bool hasRoom = size <= placeOf(index).capacity;
    if (m_readOnly || size < 0 || (size == entry->size && hasRoom)) return entry->size;
    // One that was read with a size beyond its room has got none there.
    const int64_t refused = size == entry->size ? -1 : entry->size;
    if (!hasRoom && !growEntry(index, size)) return refused;
    m_changed = true;
    return entry->size = size;
}

/// Makes room for that size. False, with all as it was, where what stands behind cannot be moved.
bool CCDFileSystem::growEntry(int index, int64_t size) {
    const int64_t offset = placeOf(index).offset, capacity = placeOf(index).capacity;
    const int64_t grown = (size / step + 1) * step, place = m_base + offset + capacity;
    const int64_t before = std::max(m_container->GetSize(), m_base + NextFileOffset());
    if (size > INT64_MAX - step - before) return refuse(nullptr, u"a size that a container can have", u"a larger one");
    if (Private::openGap(*m_container, place, grown - capacity) != Private::EditOutcome::done) return false;
    adjustOffsets(offset + capacity, grown - capacity);
    setPlace(index, offset, grown);  // A file of no capacity begins where it grows, and stays.
    return true;
}

void CCDFileSystem::adjustOffsets(int64_t position, int64_t delta) {
    for (int i = 0; i < static_cast<int>(fileCount()); ++i) {
        const Place& place = placeOf(i);
        if (place.offset >= position) setPlace(i, place.offset + delta, place.capacity);
    }
}

uint32_t CCDFileSystem::readEntry(int index, int64_t position, void* data, uint32_t count) {
    const std::lock_guard lock(*m_lock);
    const CDirectoryEntry* const entry = entryOf(index);
    if (entry == nullptr || position < 0 || position >= entry->size) return 0;
    const int64_t place = m_base + placeOf(index).offset + position;
    if (m_container->SetPosition(place) != place) return 0;
    return m_container->Read(data, static_cast<uint32_t>(std::min<int64_t>(count, entry->size - position)));
}

uint32_t CCDFileSystem::writeEntry(int index, int64_t position, const void* data, uint32_t count) {
    const std::lock_guard lock(*m_lock);
    const CDirectoryEntry* const entry = entryOf(index);
    if (entry == nullptr || m_readOnly || position < 0 || position > INT64_MAX - count) return 0;
    const int64_t end = position + count;
    const int64_t size = std::max(end, entry->size);
    if ((end > entry->size || end > placeOf(index).capacity) && setEntrySize(index, size) != size) return 0;
    const int64_t place = m_base + placeOf(index).offset + position;
    if (m_container->SetPosition(place) != place) return 0;
    m_written = true;
    return m_container->Write(data, count);
}

// Files ---------------------------------------------------------------------------------------------------------------

TSharedPtr<IFile> CCDFileSystem::CreateFileW(const char16_t* path, uint32_t flags) {
    const std::lock_guard lock(*m_lock);
    CDirectoryEntry entry;
    if (!m_container || !GetFullPath(entry.path, path, cdfsPathChars) || entry.path[1] == 0) {
        refuse(path, u"the name of a file in an open container", m_container ? u"another" : u"a closed one");
        return nullptr;
    }
    const uint32_t index = find(entry.path);
    if (index != nowhere) {
        if ((flags & CFile::createNew) != 0) {
            refuse(path, u"a new name", u"a file");
            return nullptr;
        }
        auto* const file = new CCDFile(m_session, static_cast<int>(index));
        m_openFiles.push_back(file);
        if ((flags & CFile::createTruncate) != 0) (void)file->SetSize(0);
        if ((flags & CFile::append) != 0) (void)file->Seek(0, IFile::fromEnd);
        return TSharedPtr<IFile>(file);
    }
    if ((flags & CFile::openExisting) != 0 || m_readOnly) {
        refuse(path, u"a file", u"nothing");
        return nullptr;
    }
    GetFilename(entry.name, entry.path);
    entry.type = typeFile;
    constexpr uint64_t ticksPerSecond = CTimeSpan::ticksPerSecond;
    entry.modified = CDateTime::FromFileTime(CDateTime::UtcNow().ToFileTime() / ticksPerSecond * ticksPerSecond);
    const Place place = {NextFileOffset(), 0};
    setNumber(entry, offsetName, place.offset);
    setNumber(entry, capacityName, place.capacity);
    if (fileCount() >= cdfsMostFiles || !addEntry(entry)) {
        refuse(path, u"room for one more file", u"none");
        return nullptr;
    }
    m_places.push_back(place);
    m_changed = true;
    return TSharedPtr<IFile>(new CCDFile(m_session, static_cast<int>(fileCount() - 1)));
}

bool CCDFileSystem::DeleteFileW(const char16_t* path) {
    const std::lock_guard lock(*m_lock);
    char16_t full[cdfsPathChars];
    if (!m_container || !GetFullPath(full, path, cdfsPathChars)) return false;
    const uint32_t index = find(full);
    if (index == nowhere) return true;
    if (m_readOnly) return refuse(path, u"a container that may be changed", u"one that is read only");
    (void)setEntrySize(static_cast<int>(index), 0);
    removeEntry(index);
    m_places.erase(m_places.begin() + (static_cast<int>(index) - table));
    m_changed = true;
    for (CCDFile* const file : m_openFiles) {
        if (file->m_index == static_cast<int>(index)) {
            file->m_index = deleted;
        } else if (file->m_index > static_cast<int>(index)) {
            --file->m_index;
        }
    }
    return true;
}

bool CCDFileSystem::UpdateDirectoryEntry(const char16_t* path, const CDirectoryEntry& entry) {
    const std::lock_guard lock(*m_lock);
    if (!m_container || m_readOnly) return refuse(path, u"a container that may be changed", u"another");
    if (!CFlatFileSystem::UpdateDirectoryEntry(path, entry)) return false;
    m_places.clear();
    m_changed = true;
    return true;
}

// The table -----------------------------------------------------------------------------------------------------------

/// The table behind its first six bytes, as it is written: every write makes sure of its room in the container, which
/// may move the files that are still to be written of.
class CCDFileSystem::TableImage : public CMemFile {
public:
    explicit TableImage(CCDFileSystem& owner) : m_owner(owner) {}
    uint32_t Write(const void* data, uint32_t count) override {
        const int64_t end = cdfsTableStart + GetPosition() + count;
        if (end > m_owner.m_root.size && m_owner.setEntrySize(table, end) != end) return 0;
        return CMemFile::Write(data, count);
    }

private:
    CCDFileSystem& m_owner;
};

bool CCDFileSystem::SaveFileTable() {
    const std::lock_guard lock(*m_lock);
    if (!m_container || m_readOnly) return false;
    const int64_t capacity = placeOf(table).capacity;
    const bool changed = m_changed;
    TableImage image(*this);
    m_saving = true;
    bool whole = PutDirectoryEntry(&image, &m_root) && image.PutDWORD(fileCount());
    const int64_t countAt = image.GetPosition() - 4;
    uint32_t bytes = image.size(), written = 0;
    for (; whole && written < fileCount(); bytes = image.size(), ++written) {
        tellPlace(static_cast<int>(written));
        if (!PutDirectoryEntry(&image, &entryAt(written))) break;
    }
    m_saving = false;
    for (int i = table; i < static_cast<int>(fileCount()); ++i) tellPlace(i);
    if (whole && written < fileCount()) {
        // Without room for the newest, the others are told where they are now: they may have moved.
        image.SetPosition(countAt);
        whole = image.SetSize(bytes) && image.PutDWORD(written);
    }
    whole = whole && writeEntry(table, cdfsTableStart, image.data(), bytes) == bytes && written == fileCount();
    m_changed = changed || placeOf(table).capacity != capacity;
    return whole;
}

bool CCDFileSystem::PutDirectoryEntry(IFile* file, CDirectoryEntry* entry) {
    if (file == nullptr || entry == nullptr) return false;
    bool whole = file->PutString(entry->name) && file->PutString(entry->path) && file->PutDWORD(entry->type) &&
                 file->PutInt64(entry->size) && file->PutUInt64(entry->modified.ToFileTime()) &&
                 file->PutDWORD(entry->properties.nValues());
    for (uint32_t i = 0; whole && i < m_root.properties.nValues(); ++i) {
        whole = file->PutString(entry->properties.GetNameAt(i).c_str()) &&
                file->PutString(entry->properties.GetValueAt(i).c_str());
    }
    return whole;
}

bool CCDFileSystem::GetDirectoryEntry(IFile* file, CDirectoryEntry* entry) {
    if (file == nullptr || entry == nullptr) return false;
    uint64_t modified = 0;
    uint32_t count = 0;
    *entry = CDirectoryEntry();
    if (!file->GetString(entry->name, cdfsPathChars) || !file->GetString(entry->path, cdfsPathChars) ||
        !file->GetDWORD(entry->type) || !file->GetInt64(entry->size) || !file->GetUInt64(modified) ||
        !file->GetDWORD(count)) {
        return false;
    }
    entry->modified = CDateTime::FromFileTime(modified);
    constexpr int64_t leastPair = 8;
    constexpr uint32_t mostPairs = 1024;  // looking one up costs their number
    if (count > mostPairs || count * leastPair > file->GetRemaining()) return false;
    for (; count > 0; --count) {
        char16_t name[256], value[256];
        if (!file->GetString(name, 256) || !file->GetString(value, 256)) return false;
        entry->properties.SetValue(name, value);
    }
    if (entry->properties.FindValue(capacityName) == -1) setNumber(*entry, capacityName, entry->size);
    return true;
}

/// The bytes of the table's room, as far as the container has them.
bool CCDFileSystem::readTable(CMemFile& image) {
    const int64_t left = m_container->GetSize() - m_base;
    int64_t wanted = step;
    for (int pass = 0; pass < 2; ++pass) {
        const auto bytes =
            static_cast<uint32_t>(std::clamp<int64_t>(wanted, 0, std::min<int64_t>(left, cdfsMostTable)));
        if (!image.SetSize(bytes) || m_container->SetPosition(m_base) != m_base) return false;
        if (!m_container->ReadBytes(image.data(), bytes)) return false;
        image.SetPosition(cdfsTableStart);
        CDirectoryEntry root;
        if (!GetDirectoryEntry(&image, &root)) return false;
        wanted = numberOf(root, capacityName);
        if (wanted <= step) break;
    }
    image.SetPosition(cdfsTableStart);
    return true;
}

/// An entry whose bytes can be addressed.
static bool isSound(const Entry& entry) {
    const int64_t offset = numberOf(entry, offsetName), capacity = numberOf(entry, capacityName);
    constexpr int64_t most = INT64_MAX / 4;
    return entry.size >= 0 && entry.size <= most && offset >= 0 && offset <= most && capacity >= 0 && capacity <= most;
}

bool CCDFileSystem::parseTable(CMemFile& image) {
    uint32_t count = 0;
    if (!GetDirectoryEntry(&image, &m_root) || !isSound(m_root) || numberOf(m_root, offsetName) != 0 ||
        !image.GetDWORD(count) || count > cdfsMostFiles || count > image.GetRemaining()) {
        return false;
    }
    // More than its room would be written over the files.
    m_root.size = std::min(m_root.size, numberOf(m_root, capacityName));
    if (m_root.properties.FindValue(offsetName) == -1) setNumber(m_root, offsetName, 0);
    CDirectoryEntry entry;
    for (; count > 0; --count) {
        if (!GetDirectoryEntry(&image, &entry) || !isSound(entry)) return false;
        if (entry.properties.FindValue(offsetName) == -1) setNumber(entry, offsetName, 0);
        if (!addEntry(entry)) return false;
    }
    return true;
}

bool CCDFileSystem::LoadFileTable() {
    const std::lock_guard lock(*m_lock);
    if (!m_container) return false;
    removeAllEntries();
    m_places.clear();
    CMemFile image;
    if (readTable(image) && parseTable(image)) return true;
    SetDiagnostic(CString(), u"a table of files", u"damage", m_base + image.GetPosition());
    removeAllEntries();
    return false;
}

}  // namespace qv
