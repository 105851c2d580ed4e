// IFileSystem: named files, wherever they live, and path helpers that work on text alone. CFileSystem, reached through
// fileSystem(), is the disk. Start with CreateFileW, GetDirectoryListing and GetFileInfo.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/datetime.h"
#include "qv/event.h"
#include "qv/property_array.h"
#include "qv/shared_ptr.h"
#include "qv/singleton.h"
#include "qv/string.h"

namespace qv {

class IFile;

/// A place that holds files by name: the disk, a container, memory.
///
/// Paths:    `\` and `/` both separate; the library writes `/` when it joins paths itself.
/// Failure:  false, a null pointer, an empty listing or a default entry; the reason is in LastDiagnostic().
/// Threads:  as the implementation says; the path helpers only touch their arguments.
/// Overriding one CopyFileW in a derived class hides the others: add `using IFileSystem::CopyFileW;`.
class QV_API IFileSystem {
public:
    /// Progress of a copy: bytes in all, bytes done. Called once with done 0 first, then after every chunk.
    using CopyCallback = void (*)(int64_t total, int64_t done, void* context);

    /// Characters in the fixed buffers of entries and listings, terminator included.
    static constexpr int pathChars = 512;

    /// Types of a directory entry.
    enum : uint32_t { typeDirectory = 1, typeFile = 2, typeNothing = 0x80000000u };

    /// Bits of GetCapabilities: copies within itself; has copy paths of its own to and from other file systems.
    enum : uint32_t { copiesWithin = 2, copiesAcross = 4 };

    /// What is known of one name. Texts that are too long are cut at 511 characters.
    struct QV_API CDirectoryEntry {
        char16_t name[pathChars];     ///< The entry's name alone; "" at first, and nothing set behind the NUL.
        char16_t path[pathChars];     ///< Full path, likewise.
        uint32_t type = typeNothing;  ///< typeDirectory, typeFile, or typeNothing when nothing is there.
        int64_t size = 0;             ///< Bytes.
        CDateTime modified;           ///< Last write time, read in UTC.
        CPropertyArray properties;    ///< What else a file system has to say of the name; none on the disk.

        CDirectoryEntry();
        CDirectoryEntry(const CDirectoryEntry& other);
        CDirectoryEntry& operator=(const CDirectoryEntry& other);
    };

    /// The entries of one directory, in the order in which the system gave them until Sort is called.
    struct QV_API CDirectoryListing {
        IFileSystem* fileSystem = nullptr;   ///< Whose listing it is; not owned.
        char16_t directory[pathChars] = {};  ///< Cut at 511 characters; the entries are those of the whole path.
        TArray<CDirectoryEntry> entries;

        CDirectoryListing();
        /// An empty listing, to be filled by the file system.
        CDirectoryListing(IFileSystem* owner, const char16_t* listedDirectory);

        /// Sorts in place.
        /// @param flags  Bits 0xF choose the keys: 1 name, size, time; 2 size, name, time; 3 time, name, size (any
        ///               other value sorts as 1). Names compare without regard to case. Bits 0xF0: 0x10 directories
        ///               first, 0x20 files first, above everything else. Bits 0xF00: 0x200 descending keys; it does
        ///               not turn the decision of 0x10 and 0x20.
        void Sort(uint32_t flags);
    };

    /// Watches a directory; made idle by MonitorDirectory. The events have the monitor as sender, and run on a thread
    /// of its own unless a handler was added with an invoker. Which changes are reported, and how, says the
    /// implementation; CWin32DirectoryMonitor (directory_monitor.h) is that of the disk.
    class QV_API IDirectoryMonitor {
    public:
        IDirectoryMonitor();
        virtual ~IDirectoryMonitor();
        virtual bool Start() = 0;
        virtual void Stop() = 0;

        event1<const char16_t*> FileAdded;                     ///< Name.
        event1<const char16_t*> FileRemoved;                   ///< Name.
        event1<const char16_t*> FileModified;                  ///< Name.
        event2<const char16_t*, const char16_t*> FileRenamed;  ///< Old name, new name.
    };

    virtual ~IFileSystem();

    // Virtual operations; their order is part of the interface ----------------------------------------------------

    /// An idle monitor, or null (the default) where the file system has none.
    virtual TSharedPtr<IDirectoryMonitor> MonitorDirectory(const char16_t* directory, uint32_t flags);
    /// Bits copiesWithin and copiesAcross, read by the static copies only. 0 by default.
    virtual uint32_t GetCapabilities();
    /// Opens a file by the flag word of CFile::Open; null when that fails.
    virtual TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) = 0;
    virtual bool Defragment();

    /// A file system's own copy paths, used by the static copies when GetCapabilities offers them; false by default.
    virtual bool CopyFileW(IFileSystem* source, const char16_t* sourcePath, const char16_t* path, bool overwrite,
                           CopyCallback callback, void* context);
    virtual bool CopyFileW(const char16_t* path, IFileSystem* target, const char16_t* targetPath, bool overwrite,
                           CopyCallback callback, void* context);
    virtual bool CopyFileW(TSharedPtr<IFile> source, const char16_t* path, int64_t size, bool overwrite,
                           CopyCallback callback, void* context);
    virtual bool CopyFileW(TSharedPtr<IFile> source, const char16_t* path, bool overwrite, CopyCallback callback,
                           void* context);
    virtual bool CopyFileW(const char16_t* path, TSharedPtr<IFile> target, CopyCallback callback, void* context);
    virtual bool CopyFileW(const char16_t* from, const char16_t* to, bool overwrite, CopyCallback callback,
                           void* context);

    /// The entries of a directory whose names pass WildcardMatch(pattern); all of them when `pattern` is null. One
    /// whose path does not fit its entry is left out, with a diagnostic.
    virtual CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) = 0;
    /// What is at `path`; an entry of type typeNothing when there is nothing. Its own path is empty, with a diagnostic,
    /// where it does not fit.
    virtual CDirectoryEntry GetFileInfo(const char16_t* path) = 0;
    /// @param attributes  Bit 4 read-only, bit 8 hidden; neither is a normal file.
    virtual bool SetFileAttributesW(const char16_t* path, uint32_t attributes);
    virtual bool SetFileModifiedTime(const char16_t* path, CDateTime time);
    /// The absolute form of `path`. `buffer` and `path` may be the same. False when it does not fit.
    virtual bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) = 0;
    virtual bool DeleteFileW(const char16_t* path) = 0;
    /// @param recursive  Creates the missing parents as well; what exists already is no failure then.
    virtual bool CreateDirectoryW(const char16_t* path, bool recursive) = 0;
    /// @param recursive  Removes the contents first; true then, when the directory does not exist.
    virtual bool RemoveDirectoryW(const char16_t* path, bool recursive) = 0;
    virtual bool SetCurrentWorkingDirectory(const char16_t* path) = 0;
    virtual bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) = 0;
    /// Calls IsFile: a directory does not exist in this sense.
    virtual bool FileExists(const char16_t* path);
    virtual bool IsFile(const char16_t* path);
    virtual bool IsDirectory(const char16_t* path);

    // Shared conveniences ----------------------------------------------------------------------------------------

    /// Empty on failure, or when the path has 2048 characters or more.
    CString GetCurrentWorkingDirectory();
    /// Empty on failure, or when the result has 2048 characters or more.
    CString GetFullPath(CString path);

    // Copies between any two places ------------------------------------------------------------------------------
    // A null callback is allowed. Null files, paths or file systems are false. A copy whose transfer fails deletes the
    // target it opened; a target that could not be opened is left alone. No copy looks at GetFileInfo first.

    /// Moves `size` bytes from and to the present positions; true when all came across.
    static bool CopyFileW(TSharedPtr<IFile> source, TSharedPtr<IFile> target, int64_t size,
                          CopyCallback callback = nullptr, void* context = nullptr);
    /// The same with the source's whole size.
    static bool CopyFileW(TSharedPtr<IFile> source, TSharedPtr<IFile> target, CopyCallback callback = nullptr,
                          void* context = nullptr);
    /// Takes the file systems' own copy paths where they have them.
    static bool CopyFileW(IFileSystem* source, const char16_t* sourcePath, IFileSystem* target,
                          const char16_t* targetPath, bool overwrite, CopyCallback callback = nullptr,
                          void* context = nullptr);
    /// The source is opened with flag "open or create": an absent source is created empty and copied.
    static bool CopyFileW(IFileSystem* source, const char16_t* path, TSharedPtr<IFile> target,
                          CopyCallback callback = nullptr, void* context = nullptr);
    static bool CopyFileW(TSharedPtr<IFile> source, IFileSystem* target, const char16_t* path, bool overwrite,
                          CopyCallback callback = nullptr, void* context = nullptr);
    static bool CopyFileW(TSharedPtr<IFile> source, IFileSystem* target, const char16_t* path, int64_t size,
                          bool overwrite, CopyCallback callback = nullptr, void* context = nullptr);

    // Path helpers -----------------------------------------------------------------------------------------------
    // Text operations; no file is looked at. A form with `dst` copies first and works on the copy; `dst` may be the
    // same buffer as the first of its sources. Buffers are not measured: `dst` (and a path that is appended to) needs
    // room for the whole result and its terminator, which is the caller's duty; 512 characters is what this library's
    // own paths have. Results of type char16_t* are the changed buffer.

    /// Replaces every separator by `slash`. The first form copies at most `size - 1` characters.
    static char16_t* ConvertSlashes(char16_t* dst, const char16_t* src, int size, char16_t slash);
    static char16_t* ConvertSlashes(char16_t* path, char16_t slash);

    /// What follows the last separator, or all of `path`; the first form points into `path`.
    static const char16_t* GetFilename(const char16_t* path);
    static char16_t* GetFilename(char16_t* dst, const char16_t* path);

    /// Points to the last dot behind the last separator, otherwise to the terminator.
    static const char16_t* GetExtension(const char16_t* path);

    /// Removes the last component with its separator. Doubled separators become one, except at the start, where they
    /// begin a UNC path. "/a" gives "/", "a" gives "".
    static char16_t* GetDirectory(char16_t* path);
    static char16_t* GetDirectory(char16_t* dst, const char16_t* path);

    /// `dir`, then `slash` unless `dir` ends in a separator, then `name`: an empty `dir` gives "/name".
    static char16_t* MakePath(char16_t* dst, const char16_t* dir, const char16_t* name, char16_t slash = u'/');
    static CString MakePath(CString dir, CString name, char16_t slash = u'/');

    /// Cuts at GetExtension.
    static char16_t* RemoveExtension(char16_t* path);
    static char16_t* RemoveExtension(char16_t* dst, const char16_t* path);

    /// `name` and `extension` together; the dot is the caller's.
    static char16_t* MakeFilename(char16_t* dst, const char16_t* name, const char16_t* extension);

    /// Removes one separator at most.
    static char16_t* RemoveTrailingSlash(char16_t* path);
    static char16_t* RemoveTrailingSlash(char16_t* dst, const char16_t* path);
    /// Adds `slash` when no separator stands there; an empty path becomes `slash` alone.
    static char16_t* AppendTrailingSlash(char16_t* path, char16_t slash);
    static char16_t* AppendTrailingSlash(char16_t* dst, const char16_t* path, char16_t slash);
    /// Removes all leading separators.
    static char16_t* RemoveLeadingSlash(char16_t* path);
    static char16_t* RemoveLeadingSlash(char16_t* dst, const char16_t* path);
    static char16_t* AppendLeadingSlash(char16_t* path, char16_t slash);
    static char16_t* AppendLeadingSlash(char16_t* dst, const char16_t* path, char16_t slash);

    /// The pieces between separators; empty pieces are dropped. Empties `parts` first.
    static void SplitPath(TArray<CString>& parts, const char16_t* path);
    /// The first piece of SplitPath, or "".
    static char16_t* GetFirstPathItem(char16_t* dst, const char16_t* path);

    /// Comparisons by pieces, without regard to case: the same pieces; exactly one piece below `directory`; any number
    /// of pieces below it.
    static bool IsSamePath(const char16_t* a, const char16_t* b);
    static bool InDirectory(const char16_t* directory, const char16_t* path);
    static bool IsChildOfDirectory(const char16_t* directory, const char16_t* path);

    /// A letter and a colon.
    static bool IsWindowsPath(const char16_t* path);
    /// Two separators.
    static bool IsUNCPath(const char16_t* path);
    /// One separator and no second.
    static bool IsUnixPath(const char16_t* path);
    /// Letters (one is enough), a colon, a separator.
    static bool IsURL(const char16_t* path);

    /// The way from directory `from` to `to`, joined with `/`: from "a/b/c" to "a/d" it is "../../d". The result is
    /// `to` as it stands when either has no pieces, or when nothing is common and either is a Windows, UNC or URL path.
    static char16_t* RelativePath(char16_t* dst, const char16_t* from, const char16_t* to);

    /// Follows `relative` from directory `base`. A piece `..` goes up one piece, also beyond the root; a piece `.` goes
    /// back to `base`, also in the middle of a path; empty pieces are dropped.
    /// @throws CRuntimeErrorException  for a piece of 512 characters or more; `dst` is left as it was.
    static char16_t* ExpandRelativePath(char16_t* dst, const char16_t* base, const char16_t* relative,
                                        char16_t slash = u'/');

    /// Replaces `: / \ * ? " < > |` and also `.` by `_`, so an extension does not survive.
    static CString MakeSafeFilename(CString name);

    /// True when one of the alternatives in `patterns`, separated by `|`, matches the whole of `name`, without regard
    /// to case. `*` stands for any text, `?` for exactly one UTF-16 unit. Empty alternatives match nothing; a pattern
    /// text of 512 characters or more is false. Cost: length of the pattern times length of the name.
    static bool WildcardMatch(const char16_t* patterns, const char16_t* name);
};

/// The file system of the disk.
///
/// Names are UTF-8 on disk. A backslash in a path separates, so a file whose name holds one cannot be reached, and a
/// name that is not valid UTF-8 is listed with U+FFFD in it and cannot be reached by that name either.
/// Symbolic links are followed where a file is opened or looked at; a link that leads nowhere shows as a file. What
/// deletes, moves or sets attributes acts on the link itself.
/// Of the attributes only read-only exists here: it is the absence of write permission.
/// Threads: no state but the process's current directory.
class QV_API CFileSystem : public IFileSystem {
public:
    CFileSystem();
    ~CFileSystem() override;

    /// A CWin32DirectoryMonitor for the directory and everything below it, not yet started; null when `directory` is
    /// none.
    /// @param flags  1 names and last write, 2 sizes, 4 attributes, or a sum of these.
    TSharedPtr<IDirectoryMonitor> MonitorDirectory(const char16_t* directory, uint32_t flags) override;
    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override;
    /// A null directory is the current one, an empty one the root. Entries `.` and `..` are left out. The listing of a
    /// directory that cannot be read is empty; one that memory does not suffice for is cut, with a diagnostic (at the
    /// latest behind 2^20 entries).
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override;
    CDirectoryEntry GetFileInfo(const char16_t* path) override;
    /// Read-only takes all write permissions away; normal gives the owner's back. Hidden has no meaning here. A
    /// symbolic link has no attributes of its own: nothing happens, with true.
    bool SetFileAttributesW(const char16_t* path, uint32_t attributes) override;
    bool SetFileModifiedTime(const char16_t* path, CDateTime time) override;
    /// Works on the text: `.`, `..` and doubled separators are resolved without looking at links. A trailing separator
    /// stays. An empty path is false.
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override;
    /// Clears read-only through SetFileAttributesW first.
    bool DeleteFileW(const char16_t* path) override;
    /// A recursive path of 512 characters or more is false, with nothing created.
    bool CreateDirectoryW(const char16_t* path, bool recursive) override;
    /// A symbolic link inside the tree is removed, never followed; so is one that `path` itself names when `recursive`.
    /// Trees deeper than 512 directories are not removed whole.
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override;
    bool SetCurrentWorkingDirectory(const char16_t* path) override;
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override;
    using IFileSystem::GetCurrentWorkingDirectory;
    using IFileSystem::GetFullPath;

    /// The entries that a path with `*` and `?` in its last component matches, without regard to case ("*.*" matches
    /// every name). The milliseconds of their modified time are its ticks divided by 10, modulo 1000.
    CDirectoryListing Find(const char16_t* pattern);

    /// Creates an empty file of a new name ("tim….tmp", mode 0600) in TMPDIR, or /tmp when that is not set.
    bool GetTempFilename(char16_t* buffer, int size);
    /// Empty on failure.
    CString GetTempFilename();
    /// A temporary file for reading and writing that is deleted when it is closed. Null on failure.
    TSharedPtr<IFile> CreateTempFile();
    /// A new directory of mode 0700 beside the temporary files. Empty on failure.
    CString CreateTempDirectory();

    /// Renames; an existing target is not replaced. A file that goes to another volume is copied, with its time and
    /// permissions, and deleted.
    bool MoveFileW(const char16_t* from, const char16_t* to);

    /// Called in place of the destructor when the process ends: files may be used until it is gone.
    void retire() {}
};

extern template class QV_API TSingletonPtr<CFileSystem, 1, 0>;

/// The instance behind fileSystem(), made on first use.
extern QV_API TSingletonPtr<CFileSystem, 1, 0> FileSystem;
QV_API CFileSystem& fileSystem();

}  // namespace qv

// TSharedPtr<IFile> needs the whole class where it is destroyed, which is wherever a file is obtained.
#include "qv/file.h"
