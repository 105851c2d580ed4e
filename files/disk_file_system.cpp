// CFileSystem: the disk.
#include <string>
#include <string_view>

#include "core/text.h"
#include "files/native_path.h"
#include "files/virtual_path.h"
#include "platform/directory.h"
#include "qv/diagnostic.h"
#include "qv/directory_monitor.h"
#include "qv/file.h"
#include "qv/file_system.h"

namespace qv {

template class TSingletonPtr<CFileSystem, 1, 0>;
TSingletonPtr<CFileSystem, 1, 0> FileSystem;

CFileSystem& fileSystem() { return *TSingletonPtr<CFileSystem, 1, 0>::GetInstance(); }

namespace {

using Private::fitBuffer;
using Private::isSeparator;
using Private::nativePath;
using Private::succeeded;
using Private::withoutTrailingSlash;

/// Native attribute words, and the library's own bits for the same.
constexpr uint32_t nativeReadOnly = 1, nativeDirectory = 0x10, nativeNormal = 0x80;
constexpr uint32_t attributeReadOnly = 4;

uint32_t nativeAttributes(const platform::FileStatus& status) {
    const uint32_t bits = (status.readOnly ? nativeReadOnly : 0) | (status.directory ? nativeDirectory : 0);
    return bits != 0 ? bits : nativeNormal;
}

void fillEntry(IFileSystem::CDirectoryEntry& entry, const platform::FileStatus& status) {
    entry.type = status.directory ? IFileSystem::typeDirectory : IFileSystem::typeFile;
    entry.size = status.size;
    entry.modified = CDateTime::FromFileTime(status.modifiedTicks);
}

/// Adds the entries of a directory whose names pass the pattern; all of them when it is null.
void addEntries(IFileSystem::CDirectoryListing& listing, std::u16string path, const char16_t* openAs,
                const char16_t* pattern) {
    platform::DirectoryReader reader(nativePath(openAs).c_str());
    if (!succeeded(reader.error(), openAs, u"a directory to list")) return;
    if (!path.empty() && !isSeparator(path.back())) path += u'/';
    const size_t prefix = path.size();
    const char* name = nullptr;
    platform::FileStatus status;
    IFileSystem::CDirectoryEntry entry;
    while (reader.next(name, status)) {
        Private::copyNativeName(name, entry.name, IFileSystem::pathChars);
        if (pattern != nullptr && !IFileSystem::WildcardMatch(pattern, entry.name)) continue;
        path.resize(prefix);
        path += entry.name;
        if (!Private::setPath(entry, path)) continue;
        fillEntry(entry, status);
        if (!listing.entries.Add(entry)) {
            SetDiagnostic(openAs, u"memory for all entries of a directory", u"too little");
            return;
        }
    }
}

/// Empty when there is none.
std::u16string absolutePath(const char16_t* path) {
    if (path == nullptr || *path == 0) return {};
    if (isSeparator(*path)) return Private::absolutePath(path, u"");
    std::string current;
    if (platform::currentDirectory(current) != 0) return {};
    return Private::absolutePath(path, text::toUtf16(current));
}

bool createOne(const char16_t* path) {
    const std::string native = nativePath(path);
    const int error = platform::createDirectory(native.c_str());
    return succeeded(error, path, u"a directory to create");
}

bool isThere(const char16_t* path) {
    platform::FileStatus status;
    return platform::fileStatus(nativePath(path).c_str(), status) == 0;
}

bool createWithParents(const char16_t* path) {
    std::u16string prefix(path);
    if (prefix.size() >= static_cast<size_t>(IFileSystem::pathChars)) {
        SetDiagnostic(path, u"a path of less than 512 characters", u"a longer one");
        return false;
    }
    for (char16_t& c : prefix) c = isSeparator(c) ? u'/' : c;
    const std::u16string whole = prefix;
    bool created = true;
    CDiagnostic first;  // What failed behind it failed because of it.
    for (size_t end = whole.find(u'/', 1);; end = whole.find(u'/', end + 1)) {
        prefix = whole.substr(0, end);
        // Whoever creates the same folder at the same moment has done this call's work.
        if (!prefix.empty() && !isThere(prefix.c_str()) && !createOne(prefix.c_str()) && !isThere(prefix.c_str())) {
            if (created) first = LastDiagnostic();
            created = false;
        }
        if (end == std::u16string::npos) break;
    }
    if (!created) SetDiagnostic(first.file, first.expected, first.found);
    return created;
}

}  // namespace

CFileSystem::CFileSystem() = default;
CFileSystem::~CFileSystem() = default;

TSharedPtr<IFileSystem::IDirectoryMonitor> CFileSystem::MonitorDirectory(const char16_t* directory, uint32_t flags) {
    if (!IsDirectory(directory)) return nullptr;
    return TSharedPtr<IDirectoryMonitor>(new CWin32DirectoryMonitor(directory, flags));
}

TSharedPtr<IFile> CFileSystem::CreateFileW(const char16_t* path, uint32_t flags) { return CFile::Create(path, flags); }

IFileSystem::CDirectoryListing CFileSystem::GetDirectoryListing(const char16_t* directory, const char16_t* pattern) {
    char16_t current[pathChars] = u".";
    if (directory == nullptr) {
        (void)GetCurrentWorkingDirectory(current, pathChars);
        directory = current;
    }
    CDirectoryListing listing(this, directory);
    addEntries(listing, directory, *directory == 0 ? u"/" : directory, pattern);
    return listing;
}

IFileSystem::CDirectoryListing CFileSystem::Find(const char16_t* pattern) {
    if (pattern == nullptr) return CDirectoryListing(this, u"");
    std::u16string directory(pattern);
    GetDirectory(directory.data());
    CDirectoryListing listing(this, directory.c_str());
    const char16_t* names = GetFilename(pattern);
    if (std::u16string_view(names) == u"*.*") names = u"*";
    addEntries(listing, directory.c_str(), directory[0] == 0 ? u"." : directory.c_str(), names);
    for (CDirectoryEntry& entry : listing.entries) {
        const uint64_t ticks = entry.modified.ToFileTime();
        const uint64_t milliseconds = ticks / 10 % 1000;
        entry.modified = CDateTime::FromFileTime(ticks - ticks % 10'000'000 + milliseconds * 10'000);
    }
    return listing;
}

IFileSystem::CDirectoryEntry CFileSystem::GetFileInfo(const char16_t* path) {
    CDirectoryEntry entry;
    const std::u16string wanted = withoutTrailingSlash(path);
    platform::FileStatus status;
    if (wanted.empty() || platform::fileStatus(nativePath(wanted.c_str()).c_str(), status) != 0) return entry;
    fillEntry(entry, status);
    const std::u16string full = absolutePath(wanted.c_str());
    (void)Private::setPath(entry, full);
    StrCpy(entry.name, GetFilename(full.c_str()), pathChars);
    return entry;
}

bool CFileSystem::SetFileAttributesW(const char16_t* path, uint32_t attributes) {
    const bool readOnly = (attributes & attributeReadOnly) != 0;
    return succeeded(platform::setReadOnly(nativePath(path).c_str(), readOnly), path, u"a file to set attributes of");
}

bool CFileSystem::SetFileModifiedTime(const char16_t* path, CDateTime time) {
    const int error = platform::setModifiedTime(nativePath(path).c_str(), time.ToFileTime());
    return succeeded(error, path, u"a file to set the time of");
}

bool CFileSystem::GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) {
    return fitBuffer(absolutePath(path), buffer, bufferChars);
}

bool CFileSystem::DeleteFileW(const char16_t* path) {
    const std::string native = nativePath(path);
    platform::FileStatus status;
    if (!succeeded(platform::linkStatus(native.c_str(), status), path, u"a file to delete")) return false;
    // The native word read by the rule for the library's own bits: what is left of it means a normal file.
    if (!status.directory) (void)SetFileAttributesW(path, nativeAttributes(status) & ~nativeReadOnly);
    return succeeded(platform::removeFile(native.c_str()), path, u"a file to delete");
}

bool CFileSystem::CreateDirectoryW(const char16_t* path, bool recursive) {
    if (path == nullptr || *path == 0) return false;
    return recursive ? createWithParents(path) : createOne(path);
}

bool CFileSystem::RemoveDirectoryW(const char16_t* path, bool recursive) {
    const std::u16string wanted = withoutTrailingSlash(path);
    if (wanted.empty()) return false;
    const std::string native = nativePath(wanted.c_str());
    const int error = recursive ? platform::removeTree(native.c_str()) : platform::removeDirectory(native.c_str());
    return succeeded(error, path, u"a directory to remove");
}

bool CFileSystem::SetCurrentWorkingDirectory(const char16_t* path) {
    return succeeded(platform::setCurrentDirectory(nativePath(path).c_str()), path, u"a directory to change to");
}

bool CFileSystem::GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) {
    std::string current;
    if (!succeeded(platform::currentDirectory(current), u"", u"a current directory")) return false;
    return fitBuffer(text::toUtf16(current), buffer, bufferChars);
}

bool CFileSystem::GetTempFilename(char16_t* buffer, int size) {
    std::string path;
    if (!succeeded(platform::createTempFile(path), u"", u"a place for temporary files")) return false;
    if (fitBuffer(text::toUtf16(path), buffer, size)) return true;
    (void)platform::removeFile(path.c_str());
    return false;
}

CString CFileSystem::GetTempFilename() {
    constexpr int longPathChars = 2048;
    char16_t buffer[longPathChars];
    return GetTempFilename(buffer, longPathChars) ? CString(buffer) : CString();
}

TSharedPtr<IFile> CFileSystem::CreateTempFile() {
    const CString name = GetTempFilename();
    if (name.IsEmpty()) return nullptr;
    constexpr uint32_t flags = CFile::accessRead | CFile::accessWrite | CFile::createTruncate | CFile::deleteOnClose;
    TSharedPtr<IFile> file = CreateFileW(name.c_str(), flags);
    if (!file) (void)platform::removeFile(nativePath(name.c_str()).c_str());
    return file;
}

CString CFileSystem::CreateTempDirectory() {
    std::string path;
    if (!succeeded(platform::createTempDirectory(path), u"", u"a place for temporary directories")) return CString();
    return CString(std::string_view(path));
}

bool CFileSystem::MoveFileW(const char16_t* from, const char16_t* to) {
    if (from == nullptr || to == nullptr) return false;
    const std::string native = nativePath(from);
    const std::string target = nativePath(to);
    const int error = platform::moveFile(native.c_str(), target.c_str());
    if (!platform::isOtherVolume(error)) return succeeded(error, from, u"a file to move");
    const CDirectoryEntry entry = GetFileInfo(from);
    if (entry.type != typeFile) return succeeded(error, from, u"a file to move");
    if (!CopyFileW(this, from, this, to, false)) return false;
    (void)platform::copyPermissions(native.c_str(), target.c_str());
    (void)SetFileModifiedTime(to, entry.modified);
    return DeleteFileW(from);
}

}  // namespace qv
