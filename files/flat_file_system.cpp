#include "qv/flat_file_system.h"

#include <algorithm>
#include <new>
#include <unordered_set>

#include "core/text.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

std::u16string folded(std::u16string path) {
    for (char16_t& c : path) c = text::toLower(c);
    return path;
}

/// Whether it is what fullPath makes of it. An entry of another path cannot be asked for.
bool isFullPath(std::u16string_view path) {
    if (!path.starts_with(u'/') || path.find(u'\\') != path.npos) return false;
    for (size_t end = 0; end != path.npos;) {
        const size_t begin = end + 1;
        end = path.find(u'/', begin);
        const std::u16string_view piece = path.substr(begin, end == path.npos ? end : end - begin);
        if (piece.empty() || piece == u"." || piece == u"..") return false;
    }
    return true;
}

/// Fails where it does not fit with its terminator.
bool copyWhole(const std::u16string& from, char16_t* buffer, int bufferChars) {
    if (buffer == nullptr || bufferChars <= 0 || from.size() >= static_cast<size_t>(bufferChars)) return false;
    StrCpy(buffer, from.c_str(), static_cast<size_t>(bufferChars));
    return true;
}

IFileSystem::CDirectoryEntry directoryEntry(const std::u16string& path) {
    IFileSystem::CDirectoryEntry entry;
    StrCpy(entry.path, path.c_str(), IFileSystem::pathChars);
    IFileSystem::GetFilename(entry.name, path == u"/" ? u"/" : path.c_str());
    if (path == u"/") StrCpy(entry.name, u"/", IFileSystem::pathChars);
    entry.type = IFileSystem::typeDirectory;
    return entry;
}

bool refuse(const char16_t* path, const char16_t* expected) {
    SetDiagnostic(path == nullptr ? u"" : path, expected, u"a flat set of files");
    return false;
}

}  // namespace

CFlatFileSystem::CFlatFileSystem() : m_lock(std::make_shared<std::recursive_mutex>()) {}

CFlatFileSystem::~CFlatFileSystem() = default;

std::u16string CFlatFileSystem::fullPath(const char16_t* path) {
    if (path == nullptr) return {};
    TArray<CString> pieces;
    SplitPath(pieces, path);
    std::u16string full;
    for (const CString& piece : pieces) {
        if (piece == u".") continue;
        if (piece == u"..") {
            full.resize(full.empty() ? 0 : full.rfind(u'/'));
        } else {
            full.append(u"/").append(piece.view());
        }
    }
    return full.empty() ? u"/" : full;
}

void CFlatFileSystem::learnPaths() {
    for (; m_indexed < fileCount(); ++m_indexed) {
        const ENTRY& entry = m_entries[m_indexed];
        if (!m_byPath.try_emplace(folded(entry.what->path), entry.serial).second) m_repeats = true;
    }
}

uint32_t CFlatFileSystem::find(const std::u16string& path) {
    learnPaths();
    const auto found = m_byPath.find(folded(path));
    if (found == m_byPath.end()) return nowhere;
    const auto isBefore = [](const ENTRY& entry, uint64_t serial) { return entry.serial < serial; };
    const auto at = std::lower_bound(m_entries.begin(), m_entries.end(), found->second, isBefore);
    return static_cast<uint32_t>(at - m_entries.begin());
}

bool CFlatFileSystem::addEntry(const CDirectoryEntry& entry) {
    try {
        m_entries.push_back({std::make_unique<CDirectoryEntry>(entry), m_lastSerial + 1});
    } catch (const std::bad_alloc&) {
        return false;
    }
    ++m_lastSerial;
    return true;
}

void CFlatFileSystem::removeEntry(uint32_t index) {
    learnPaths();
    if (m_repeats) {  // One behind it may be the first of its path now.
        m_byPath.clear();
        m_indexed = 0;
        m_repeats = false;
    } else {
        m_byPath.erase(folded(entryAt(index).path));
        --m_indexed;
    }
    m_entries.erase(m_entries.begin() + index);
}

void CFlatFileSystem::removeAllEntries() {
    m_entries.clear();
    m_byPath.clear();
    m_indexed = 0;
    m_repeats = false;
}

IFileSystem::CDirectoryListing CFlatFileSystem::GetDirectoryListing(const char16_t* directory,
                                                                    const char16_t* pattern) {
    const std::lock_guard lock(*m_lock);
    const std::u16string top = fullPath(directory == nullptr ? u"/" : directory);
    CDirectoryListing listing(this, top.c_str());
    const std::u16string start = folded(top == u"/" ? top : top + u'/');
    const auto add = [&](const CDirectoryEntry& entry) {
        return (pattern != nullptr && !WildcardMatch(pattern, entry.name)) || listing.entries.Add(entry);
    };
    std::unordered_set<std::u16string> directories;
    for (const ENTRY& each : m_entries) {
        const CDirectoryEntry& entry = *each.what;
        const std::u16string path(entry.path), lower = folded(path);
        if (!lower.starts_with(start) || !isFullPath(path)) continue;
        const size_t end = path.find(u'/', start.size());
        const bool isNew = end == path.npos || directories.insert(lower.substr(0, end)).second;
        if (isNew && !add(end == path.npos ? entry : directoryEntry(path.substr(0, end)))) break;
    }
    return listing;
}

IFileSystem::CDirectoryEntry CFlatFileSystem::GetFileInfo(const char16_t* path) {
    const std::lock_guard lock(*m_lock);
    if (path == nullptr || *path == 0) return {};
    const std::u16string full = fullPath(path);
    if (full == u"/") return directoryEntry(full);
    if (const uint32_t index = find(full); index != nowhere) return entryAt(index);
    const std::u16string start = folded(full) + u'/';
    for (const ENTRY& each : m_entries) {
        const CDirectoryEntry& entry = *each.what;
        if (folded(entry.path).starts_with(start) && isFullPath(entry.path)) return directoryEntry(full);
    }
    return {};
}

bool CFlatFileSystem::UpdateDirectoryEntry(const char16_t* path, const CDirectoryEntry& entry) {
    const std::lock_guard lock(*m_lock);
    const uint32_t index = find(fullPath(path));
    if (index == nowhere) return refuse(path, u"a file");
    entryAt(index).modified = entry.modified;
    return true;
}

bool CFlatFileSystem::SetFileModifiedTime(const char16_t* path, CDateTime time) {
    CDirectoryEntry entry;
    entry.modified = time;
    return UpdateDirectoryEntry(path, entry);
}

bool CFlatFileSystem::GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) {
    return path != nullptr && *path != 0 && copyWhole(fullPath(path), buffer, bufferChars);
}

bool CFlatFileSystem::CreateDirectoryW(const char16_t* path, bool) { return refuse(path, u"room for directories"); }
bool CFlatFileSystem::RemoveDirectoryW(const char16_t* path, bool) { return refuse(path, u"directories"); }

bool CFlatFileSystem::SetCurrentWorkingDirectory(const char16_t* path) {
    return (path != nullptr && *path != 0 && fullPath(path) == u"/") || refuse(path, u"directories");
}
bool CFlatFileSystem::GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) {
    return copyWhole(u"/", buffer, bufferChars);
}

}  // namespace qv
