// CMemoryFileSystem: folders and files in memory, behind the interface of the disk.
#pragma once

#include <cstdint>
#include <memory>

#include "qv/api.h"
#include "qv/file_system.h"

namespace qv {

namespace Private {
struct MemoryTree;
}

/// A file system of its own in the memory of the process. It begins with an empty root, "/", which is also its working
/// directory at first, and ends with the object.
///
/// Names:   compare without regard to case and keep the spelling of their creation, or compare exactly, as the
///          constructor is told. A path has less than 512 characters.
/// Opening: as CFile::Open; hidden, system, temporary, write through and everyone-may-access mean nothing. A new file's
///          folder has to be there. A read-only file cannot be opened for writing.
/// Sharing: the rule of CFile::Open, between the open files of this object.
/// Files:   sizes and positions of 64 bits. What was never written reads as zeros and takes no memory, so a file may be
///          as sparse as one on disk; one that grows is not copied. A write beyond the end fills the gap with zeros.
///          Without memory a write comes short, with a diagnostic. A seek before the beginning is -1 and moves nothing.
///          SetSize is false for a file that may not be written and for a size below 0.
/// Removal: an open file that is deleted loses its name and lives on until it is closed. Open files may outlive the
///          file system; their GetFileSystem is an empty one then.
/// Times:   a file's is that of its last write, a folder's that of the last name that came or went.
/// Threads: all calls on the file system and its files may come from any thread, and take one lock; a single file
///          belongs to one thread at a time.
class QV_API CMemoryFileSystem : public IFileSystem {
public:
    enum class Names { anyCase, exactCase };

    explicit CMemoryFileSystem(Names names = Names::anyCase);
    ~CMemoryFileSystem() override;
    CMemoryFileSystem(const CMemoryFileSystem&) = delete;
    CMemoryFileSystem& operator=(const CMemoryFileSystem&) = delete;

    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override;
    /// The copy within the file system. Like every copy it opens the target for itself alone, and deletes it when the
    /// transfer fails.
    bool CopyFileW(const char16_t* from, const char16_t* to, bool overwrite, CopyCallback callback,
                   void* context) override;
    using IFileSystem::CopyFileW;
    /// Sorted by name. A null directory is the current one.
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override;
    CDirectoryEntry GetFileInfo(const char16_t* path) override;
    /// Read-only is the one attribute there is, and only files have it.
    bool SetFileAttributesW(const char16_t* path, uint32_t attributes) override;
    bool SetFileModifiedTime(const char16_t* path, CDateTime time) override;
    /// `.`, `..` and doubled separators are resolved; a trailing separator stays. An empty path is false.
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override;
    /// Also a read-only file.
    bool DeleteFileW(const char16_t* path) override;
    bool CreateDirectoryW(const char16_t* path, bool recursive) override;
    /// The root stays: false, with nothing removed.
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override;
    /// The file system's own; the process's is left alone.
    bool SetCurrentWorkingDirectory(const char16_t* path) override;
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override;
    using IFileSystem::GetCurrentWorkingDirectory;
    using IFileSystem::GetFullPath;

private:
    std::shared_ptr<Private::MemoryTree> m_tree;
};

}  // namespace qv
