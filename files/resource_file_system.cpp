#include "qv/resource_file_system.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/text.h"
#include "files/open_flags.h"
#include "files/seek.h"
#include "files/virtual_path.h"
#include "qv/diagnostic.h"

namespace qv {

template class TSingletonPtr<CRFSFileSystem, 1, 0>;

CRFSFileSystem& resourceFileSystem() { return *TSingletonPtr<CRFSFileSystem, 1, 0>::GetInstance(); }

namespace {

using Guard = std::lock_guard<std::mutex>;

bool refuse(std::u16string_view path, const char16_t* expected, const char16_t* found) {
    SetDiagnostic(CString(path), expected, found);
    return false;
}

/// A changing call.
bool refuseChange(const char16_t* path) {
    return refuse(path == nullptr ? u"" : path, u"a file system that can be changed", u"resources of the program");
}

struct Resource {
    std::u16string path;  // Absolute, as the table spells it.
    const SResource* what;
};

}  // namespace

struct CRFSFileSystem::State {
    using Resources = std::map<std::u16string, std::vector<Resource>>;

    std::mutex lock;
    CRFSFileSystem* owner;  // Null once the file system is gone.
    /// By folded path; of several resources with one path the last counts.
    Resources resources;
    std::map<const SResource*, size_t> tables;
    Private::WorkingDirectory current;

    const Resource* find(const std::u16string& path) const {
        const auto found = resources.find(Private::folded(path));
        return found == resources.end() ? nullptr : &found->second.back();
    }
    /// The first resource below a directory, given by its folded path with a `/` at the end.
    Resources::const_iterator firstBelow(const std::u16string& prefix) const {
        const auto found = resources.lower_bound(prefix);
        return found != resources.end() && found->first.starts_with(prefix) ? found : resources.end();
    }
};

namespace {

/// The folded path of a directory with a `/` at the end.
std::u16string prefixOf(const std::u16string& directory) {
    return Private::joinedPath(Private::folded(directory), u"");
}

void fillEntry(IFileSystem::CDirectoryEntry& entry, const std::u16string& path, const SResource* file) {
    StrCpy(entry.name, IFileSystem::GetFilename(path.c_str()), IFileSystem::pathChars);
    StrCpy(entry.path, path.c_str(), IFileSystem::pathChars);
    entry.type = file != nullptr ? IFileSystem::typeFile : IFileSystem::typeDirectory;
    entry.size = file != nullptr ? static_cast<int64_t>(file->size) : 0;
    entry.modified = file != nullptr ? CDateTime::FromUnixTime(file->modified) : CDateTime();
}

class ResourceFile : public IFile {
public:
    using State = std::shared_ptr<CRFSFileSystem::State>;

    ResourceFile(State state, const Resource& resource, bool reads)
        : m_state(std::move(state)),
          m_path(resource.path),
          m_data(static_cast<const uint8_t*>(resource.what->data)),
          m_size(static_cast<int64_t>(resource.what->size)),
          m_reads(reads) {}

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override {
        if (bufferChars > 0) StrCpy(buffer, m_path.c_str(), static_cast<size_t>(bufferChars));
        return buffer;
    }
    IFileSystem& GetFileSystem() override {
        const Guard guard(m_state->lock);
        return m_state->owner != nullptr ? *m_state->owner : resourceFileSystem();
    }
    uint32_t Write(const void*, uint32_t) override { return refuseChange(m_path.c_str()) ? 1 : 0; }
    uint32_t Read(void* data, uint32_t count) override {
        if (!m_reads) return refuse(m_path, u"a file to read from", u"one not open for reading") ? 1 : 0;
        count = static_cast<uint32_t>(std::clamp<int64_t>(m_size - m_position, 0, count));
        if (count != 0) std::memcpy(data, m_data + m_position, count);
        m_position += count;
        return count;
    }
    int64_t GetSize() override { return m_size; }
    int64_t GetPosition() override { return m_position; }
    int64_t Seek(int64_t offset, uint32_t origin) override {
        int64_t base = 0, target = 0;
        if (!Private::seekBase(origin, m_position, m_size, base)) return m_position;
        if (__builtin_add_overflow(base, offset, &target) || target < 0) return -1;
        return m_position = target;
    }
    bool SetSize(int64_t) override { return refuseChange(m_path.c_str()); }
    void Flush() override {}
    void Close() override { m_size = 0; }

private:
    State m_state;
    std::u16string m_path;
    const uint8_t* m_data;
    int64_t m_size, m_position = 0;
    bool m_reads;
};

/// Null, with a diagnostic, for flags that ask for more than reading what is there.
bool onlyReads(const std::u16string& path, uint32_t flags) {
    using platform::Disposition;
    const Disposition disposition = Private::dispositionOf(flags);
    const bool opens = disposition == Disposition::openExisting || disposition == Disposition::openOrCreate;
    return (opens && (flags & (CFile::accessWrite | CFile::deleteOnClose)) == 0) || refuseChange(path.c_str());
}

}  // namespace

CRFSFileSystem::CRFSFileSystem() : m_state(std::make_shared<State>()) { m_state->owner = this; }

CRFSFileSystem::~CRFSFileSystem() {
    const Guard guard(m_state->lock);
    m_state->owner = nullptr;
}

bool CRFSFileSystem::Register(const SResource* table, size_t count) {
    std::vector<std::u16string> paths;
    for (size_t i = 0; i < count; ++i) {
        const char* const path = table[i].path;
        paths.push_back(Private::absolutePath(text::toUtf16(path == nullptr ? "" : path), u"/"));
        if (paths.back().empty() || paths.back().back() == u'/' || paths.back().size() >= size_t{pathChars}) {
            return refuse(paths.back(), u"a resource with a path of less than 512 characters", u"another path");
        }
    }
    const Guard guard(m_state->lock);
    if (!m_state->tables.try_emplace(table, count).second) return refuse(u"", u"a new table of resources", u"a known");
    for (size_t i = 0; i < count; ++i) {
        m_state->resources[Private::folded(paths[i])].push_back({std::move(paths[i]), &table[i]});
    }
    return true;
}

bool CRFSFileSystem::Unregister(const SResource* table) {
    const Guard guard(m_state->lock);
    const auto found = m_state->tables.find(table);
    if (found == m_state->tables.end()) return refuse(u"", u"a registered table of resources", u"an unknown one");
    const SResource* const end = table + found->second;
    m_state->tables.erase(found);
    for (auto at = m_state->resources.begin(); at != m_state->resources.end();) {
        const auto isOfTable = [&](const Resource& one) {
            return !std::less<>()(one.what, table) && std::less<>()(one.what, end);
        };
        std::erase_if(at->second, isOfTable);
        at = at->second.empty() ? m_state->resources.erase(at) : std::next(at);
    }
    return true;
}

const SResource* CRFSFileSystem::Find(const char16_t* path) {
    const std::u16string full = m_state->current.absolute(path);
    const Guard guard(m_state->lock);
    const Resource* const found = m_state->find(full);
    return found == nullptr ? nullptr : found->what;
}

TSharedPtr<IFile> CRFSFileSystem::CreateFileW(const char16_t* path, uint32_t flags) {
    const std::u16string full = m_state->current.absolute(path);
    if (full.empty() || !onlyReads(full, flags)) return nullptr;
    const Guard guard(m_state->lock);
    const Resource* const found = m_state->find(full);
    if (found == nullptr) {
        refuse(full, u"a file to open", u"no resource of that name");
        return nullptr;
    }
    TSharedPtr<IFile> file(new ResourceFile(m_state, *found, (flags & CFile::accessRead) != 0));
    if (flags & CFile::append) file->SeekToEnd();
    return file;
}

IFileSystem::CDirectoryListing CRFSFileSystem::GetDirectoryListing(const char16_t* directory, const char16_t* pattern) {
    const std::u16string current = m_state->current.get();
    CDirectoryListing listing(this, directory == nullptr ? current.c_str() : directory);
    const std::u16string path = m_state->current.listed(directory);
    const std::u16string prefix = prefixOf(path);
    const Guard guard(m_state->lock);
    CDirectoryEntry entry;
    for (auto at = m_state->firstBelow(prefix); at != m_state->resources.end() && at->first.starts_with(prefix);) {
        const Resource& resource = at->second.back();
        const size_t end = at->first.find(u'/', prefix.size());
        const bool isFile = end == std::u16string::npos;
        fillEntry(entry, resource.path.substr(0, end), isFile ? resource.what : nullptr);
        const std::u16string key = at->first.substr(0, end);
        // A directory is listed once, and not at all beside a file of its name.
        at = isFile ? std::next(at) : m_state->resources.lower_bound(key + char16_t(u'/' + 1));
        if (!isFile && m_state->resources.contains(key)) continue;
        if (pattern != nullptr && !WildcardMatch(pattern, entry.name)) continue;
        if (listing.entries.Add(entry)) continue;
        refuse(path, u"memory for all entries of a directory", u"too little");
        break;
    }
    return listing;
}

IFileSystem::CDirectoryEntry CRFSFileSystem::GetFileInfo(const char16_t* path) {
    CDirectoryEntry entry;
    const std::u16string full = m_state->current.key(path);
    if (full.empty()) return entry;
    const Guard guard(m_state->lock);
    if (const Resource* const file = m_state->find(full)) {
        fillEntry(entry, file->path, file->what);
    } else if (full == u"/") {
        fillEntry(entry, full, nullptr);
    } else if (const auto below = m_state->firstBelow(prefixOf(full)); below != m_state->resources.end()) {
        fillEntry(entry, below->second.back().path.substr(0, full.size()), nullptr);
    }
    return entry;
}

bool CRFSFileSystem::GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) {
    return Private::fitBuffer(m_state->current.absolute(path), buffer, bufferChars);
}

bool CRFSFileSystem::DeleteFileW(const char16_t* path) { return refuseChange(path); }
bool CRFSFileSystem::CreateDirectoryW(const char16_t* path, bool) { return refuseChange(path); }
bool CRFSFileSystem::RemoveDirectoryW(const char16_t* path, bool) { return refuseChange(path); }

bool CRFSFileSystem::SetCurrentWorkingDirectory(const char16_t* path) {
    const CDirectoryEntry entry = GetFileInfo(path);
    if (entry.type != typeDirectory) return refuse(path == nullptr ? u"" : path, u"a directory to change to", u"none");
    m_state->current.set(entry.path);
    return true;
}

bool CRFSFileSystem::GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) {
    return Private::fitBuffer(m_state->current.get(), buffer, bufferChars);
}

CResourceTable::CResourceTable(const SResource* table, size_t count) : m_table(table) {
    (void)resourceFileSystem().Register(table, count);
}

CResourceTable::~CResourceTable() { (void)resourceFileSystem().Unregister(m_table); }

}  // namespace qv
