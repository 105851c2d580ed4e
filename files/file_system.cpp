// IFileSystem's defaults, its entries and listings.
#include "qv/file_system.h"

#include <algorithm>
#include <string_view>

#include "core/text.h"
#include "qv/file.h"

namespace qv {

namespace {

constexpr int longPathChars = 2048;

template <class T>
int order(const T& a, const T& b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

using Entry = IFileSystem::CDirectoryEntry;

int orderByName(const Entry& a, const Entry& b) {
    return text::compareNoCase(std::u16string_view(a.name), std::u16string_view(b.name));
}
int orderBySize(const Entry& a, const Entry& b) { return order(a.size, b.size); }
int orderByTime(const Entry& a, const Entry& b) { return order(a.modified, b.modified); }

using OrderBy = int (*)(const Entry&, const Entry&);
constexpr OrderBy keyOrders[][3] = {
    {orderByName, orderBySize, orderByTime},
    {orderBySize, orderByName, orderByTime},
    {orderByTime, orderByName, orderBySize},
};

struct SortRule {
    const OrderBy* keys;
    uint32_t directories;
    bool descending;
};

int compareEntries(void* context, const void* left, const void* right) {
    const auto& rule = *static_cast<const SortRule*>(context);
    const auto& a = *static_cast<const Entry*>(left);
    const auto& b = *static_cast<const Entry*>(right);
    const bool mixed = (a.type | b.type) == (IFileSystem::typeDirectory | IFileSystem::typeFile) && a.type != b.type;
    if (mixed && rule.directories == 0x10) return a.type == IFileSystem::typeDirectory ? -1 : 1;
    if (mixed && rule.directories == 0x20) return a.type == IFileSystem::typeFile ? -1 : 1;
    int result = 0;
    for (int key = 0; key < 3 && result == 0; ++key) result = rule.keys[key](a, b);
    return rule.descending ? -result : result;
}

}  // namespace

// The texts are copied up to their ends alone: most of an entry's 2 KiB is never used.
IFileSystem::CDirectoryEntry::CDirectoryEntry() { name[0] = path[0] = 0; }

IFileSystem::CDirectoryEntry::CDirectoryEntry(const CDirectoryEntry& other) : CDirectoryEntry() { *this = other; }

IFileSystem::CDirectoryEntry& IFileSystem::CDirectoryEntry::operator=(const CDirectoryEntry& other) {
    if (this == &other) return *this;
    StrCpy(name, other.name, pathChars);
    StrCpy(path, other.path, pathChars);
    type = other.type;
    size = other.size;
    modified = other.modified;
    properties = other.properties;
    return *this;
}

IFileSystem::CDirectoryListing::CDirectoryListing() { entries.SetGrowthRate(Private::doublingRate); }

IFileSystem::CDirectoryListing::CDirectoryListing(IFileSystem* owner, const char16_t* listedDirectory)
    : CDirectoryListing() {
    fileSystem = owner;
    StrCpy(directory, listedDirectory, pathChars);
}

void IFileSystem::CDirectoryListing::Sort(uint32_t flags) {
    const uint32_t keys = flags & 0xF;
    SortRule rule{keyOrders[keys == 2 || keys == 3 ? keys - 1 : 0], flags & 0xF0, (flags & 0xF00) == 0x200};
    entries.Sort(compareEntries, &rule);
}

IFileSystem::IDirectoryMonitor::IDirectoryMonitor() = default;
IFileSystem::IDirectoryMonitor::~IDirectoryMonitor() = default;
IFileSystem::~IFileSystem() = default;

TSharedPtr<IFileSystem::IDirectoryMonitor> IFileSystem::MonitorDirectory(const char16_t*, uint32_t) { return nullptr; }
uint32_t IFileSystem::GetCapabilities() { return 0; }
bool IFileSystem::Defragment() { return false; }

bool IFileSystem::CopyFileW(IFileSystem*, const char16_t*, const char16_t*, bool, CopyCallback, void*) { return false; }
bool IFileSystem::CopyFileW(const char16_t*, IFileSystem*, const char16_t*, bool, CopyCallback, void*) { return false; }
bool IFileSystem::CopyFileW(TSharedPtr<IFile>, const char16_t*, int64_t, bool, CopyCallback, void*) { return false; }
bool IFileSystem::CopyFileW(TSharedPtr<IFile>, const char16_t*, bool, CopyCallback, void*) { return false; }
bool IFileSystem::CopyFileW(const char16_t*, TSharedPtr<IFile>, CopyCallback, void*) { return false; }
bool IFileSystem::CopyFileW(const char16_t*, const char16_t*, bool, CopyCallback, void*) { return false; }

bool IFileSystem::SetFileAttributesW(const char16_t*, uint32_t) { return false; }
bool IFileSystem::SetFileModifiedTime(const char16_t*, CDateTime) { return false; }

bool IFileSystem::FileExists(const char16_t* path) { return IsFile(path); }
bool IFileSystem::IsFile(const char16_t* path) { return (GetFileInfo(path).type & typeFile) != 0; }
bool IFileSystem::IsDirectory(const char16_t* path) { return (GetFileInfo(path).type & typeDirectory) != 0; }

CString IFileSystem::GetCurrentWorkingDirectory() {
    char16_t buffer[longPathChars];
    return GetCurrentWorkingDirectory(buffer, longPathChars) ? CString(buffer) : CString();
}

CString IFileSystem::GetFullPath(CString path) {
    char16_t buffer[longPathChars];
    return GetFullPath(buffer, path.c_str(), longPathChars) ? CString(buffer) : CString();
}

}  // namespace qv
