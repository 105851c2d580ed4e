// CFlatFileSystem: the part of a file system that holds one flat set of names.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "qv/api.h"
#include "qv/file_system.h"

namespace qv {

/// Keeps a CDirectoryEntry for each file and answers listings, information and paths from them. A derived class opens,
/// creates and deletes.
///
/// Paths: a name may hold separators ("frames/0001.saf"), which mean nothing but this: a listing shows what stands in
/// front of them as directories, and they exist for IsDirectory as long as a file is below them. The full path of a
/// name begins with `/`, and has no doubled separators, `.` and `..`. Names compare without regard to case. The root is
/// the only working directory. Directories are neither created nor removed: that is false. Threads: one lock covers the
/// entries; all operations take it.
class QV_API CFlatFileSystem : public IFileSystem {
public:
    CFlatFileSystem(const CFlatFileSystem&) = delete;
    CFlatFileSystem& operator=(const CFlatFileSystem&) = delete;
    ~CFlatFileSystem() override;

    /// Files of the directory in the order in which they were added, each directory where its first file stands. A null
    /// or empty directory is the root. The path of an entry is its full path; entries of a damaged file system that
    /// have another, by which nobody could open them, are left out.
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override;
    CDirectoryEntry GetFileInfo(const char16_t* path) override;
    bool SetFileModifiedTime(const char16_t* path, CDateTime time) override;
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override;
    bool CreateDirectoryW(const char16_t* path, bool recursive) override;
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override;
    bool SetCurrentWorkingDirectory(const char16_t* path) override;
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override;
    using IFileSystem::GetCurrentWorkingDirectory;
    using IFileSystem::GetFullPath;

    /// Takes over what `entry` says of the file of that path and what may be set from outside: here the time of the
    /// last write. False when there is no such file.
    virtual bool UpdateDirectoryEntry(const char16_t* path, const CDirectoryEntry& entry);

protected:
    CFlatFileSystem();

    static constexpr uint32_t nowhere = 0xFFFFFFFF;

    /// "" for a null path.
    static std::u16string fullPath(const char16_t* path);
    uint32_t fileCount() const { return static_cast<uint32_t>(m_entries.size()); }
    /// The index of a file by its full path; nowhere when there is none. Of two of one path it is the first.
    uint32_t find(const std::u16string& path);
    CDirectoryEntry& entryAt(uint32_t index) { return *m_entries[index].what; }
    /// False without memory.
    bool addEntry(const CDirectoryEntry& entry);
    void removeEntry(uint32_t index);
    void removeAllEntries();

    /// Recursive, and shared with files that may outlive the file system.
    const std::shared_ptr<std::recursive_mutex> m_lock;

private:
    struct ENTRY {
        std::unique_ptr<CDirectoryEntry> what;
        uint64_t serial;  ///< Rising from entry to entry, and never changed: an index that removals do not move.
    };
    void learnPaths();

    std::deque<ENTRY> m_entries;                            ///< Cheap to remove from at both ends.
    std::unordered_map<std::u16string, uint64_t> m_byPath;  ///< Serials by path in lower case.
    uint32_t m_indexed = 0;                                 ///< Entries that m_byPath knows.
    uint64_t m_lastSerial = 0;
    bool m_repeats = false;  ///< Of several entries of one path m_byPath knows the first.
};

}  // namespace qv
