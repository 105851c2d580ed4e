// What the library needs of the system for names: listings, attributes, creation, removal, temporary names. Paths and
// results as in platform/file.h.
#pragma once

#include <cstdint>
#include <string>

#include "platform/file.h"

namespace qv::platform {

struct FileStatus {
    bool directory = false;
    bool readOnly = false;  ///< Nobody may write; never so for a link.
    int64_t size = 0;
    uint64_t modifiedTicks = 0;  ///< 100 ns since 1601-01-01 UTC.
};

/// Follows symbolic links; a link that leads nowhere is described itself.
int fileStatus(const char* path, FileStatus& status);
/// Describes a symbolic link itself.
int linkStatus(const char* path, FileStatus& status);

/// The entries of one directory but `.` and `..`, in the system's order.
class DirectoryReader {
public:
    /// `followLinks`: entries are described as by fileStatus, otherwise as by linkStatus.
    explicit DirectoryReader(const char* path, bool followLinks = true);
    ~DirectoryReader();
    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    /// 0 when the directory could be opened.
    int error() const { return m_error; }
    /// The next entry; `name` is valid until the next call. False at the end. An entry that vanishes is left out.
    bool next(const char*& name, FileStatus& status);

private:
    void* m_stream = nullptr;
    int m_error = 0;
    bool m_followLinks = true;
};

/// Takes all write permission away, or gives the owner's back where nobody has any. Nothing for a link.
int setReadOnly(const char* path, bool readOnly);
int setModifiedTime(const char* path, uint64_t ticks);
/// Gives one file the permissions of another.
int copyPermissions(const char* from, const char* to);

/// Removes a file or link.
int removeFile(const char* path);
int createDirectory(const char* path);
/// Removes an empty directory.
int removeDirectory(const char* path);
/// Removes a directory with all that is in it, as far as it can; a link to one goes alone. 0 also when there was none.
int removeTree(const char* path);

/// Renames; an existing target is an error.
int moveFile(const char* from, const char* to);
/// Whether moveFile failed because source and target lie on different volumes.
bool isOtherVolume(int error);

int currentDirectory(std::string& path);
int setCurrentDirectory(const char* path);

/// Creates a file of mode 0600, or a directory of mode 0700, under a new name in the place for temporary files.
int createTempFile(std::string& path);
int createTempDirectory(std::string& path);

}  // namespace qv::platform
