// CRFSFileSystem: data that is compiled into a program, as files. qv_add_resources of the CMake package compiles them
// in and registers them; resourceFileSystem() has them then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "qv/api.h"
#include "qv/file_system.h"
#include "qv/singleton.h"

namespace qv {

/// One file in the memory of the program.
struct QV_API SResource {
    const char* path;  ///< UTF-8, absolute, with `/` between its pieces.
    const void* data;  ///< `size` bytes that stay as they are while the table is registered and files are open.
    uint64_t size;     ///< Bytes, below 2^63.
    int64_t modified;  ///< Seconds since 1970-01-01 00:00 UTC.
};

/// A read-only file system over tables of resources. Opening copies nothing, and a read copies from where the data are.
///
/// Names:   compare without regard to case. Directories are there because files lie in them, and have no time. Of a
/// path
///          that several tables hold, that of the table registered last counts.
/// Opening: "open existing" and "open or create" for reading alone; anything that would create, change or delete a file
///          is null, as every changing call is false. Nobody writes, so share modes are not looked at.
/// Files:   may outlive the file system. A seek before the beginning is -1 and moves nothing; Write is 0 and SetSize
///          false.
/// Threads: calls on the file system may come from any thread, and take one lock; open files take none.
class QV_API CRFSFileSystem : public IFileSystem {
public:
    CRFSFileSystem();
    ~CRFSFileSystem() override;
    CRFSFileSystem(const CRFSFileSystem&) = delete;
    CRFSFileSystem& operator=(const CRFSFileSystem&) = delete;

    /// Adds `count` resources. The table and what it points to stay the caller's, and valid until Unregister.
    /// @return  False, with a diagnostic and nothing added, when a path is null, empty or of 512 characters or more, or
    ///          the table is registered already.
    bool Register(const SResource* table, size_t count);
    /// Takes a table out again; what it hid comes back. Files that are open on its data are the caller's concern.
    bool Unregister(const SResource* table);
    /// The resource at `path`, for use without a file; null when there is none.
    const SResource* Find(const char16_t* path);

    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override;
    /// A null directory is the current one.
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override;
    CDirectoryEntry GetFileInfo(const char16_t* path) override;
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override;
    bool DeleteFileW(const char16_t* path) override;                       ///< False.
    bool CreateDirectoryW(const char16_t* path, bool recursive) override;  ///< False.
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override;  ///< False.
    /// The file system's own; the process's is left alone. "/" at first.
    bool SetCurrentWorkingDirectory(const char16_t* path) override;
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override;
    using IFileSystem::GetCurrentWorkingDirectory;
    using IFileSystem::GetFullPath;

    /// Called in place of the destructor when the process ends: tables may be unregistered until it is gone.
    void retire() {}

    struct State;  ///< What open files share with the file system; nothing for callers.

private:
    std::shared_ptr<State> m_state;
};

extern template class QV_API TSingletonPtr<CRFSFileSystem, 1, 0>;

/// The resources of the program and its libraries; made on first use.
QV_API CRFSFileSystem& resourceFileSystem();

/// Keeps a table registered with resourceFileSystem() as long as it lives. A static one in the program or library that
/// holds the data.
class QV_API CResourceTable {
public:
    CResourceTable(const SResource* table, size_t count);
    ~CResourceTable();
    CResourceTable(const CResourceTable&) = delete;
    CResourceTable& operator=(const CResourceTable&) = delete;

private:
    const SResource* m_table;
};

}  // namespace qv
