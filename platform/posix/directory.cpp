#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/posix/file_time.h"
#include "platform/posix/retry.h"
#include "platform/random.h"

namespace qv::platform {

namespace {

constexpr mode_t anyWrite = 0222;

FileStatus statusOf(const struct stat& from) {
    FileStatus status;
    status.directory = S_ISDIR(from.st_mode);
    status.readOnly = !S_ISLNK(from.st_mode) && (from.st_mode & anyWrite) == 0;
    status.size = status.directory ? 0 : from.st_size;
    status.modifiedTicks = ticksOf(from.st_mtim);
    return status;
}

int statusAt(int directory, const char* path, bool followLinks, FileStatus& status) {
    struct stat found {};
    const bool followed = followLinks && fstatat(directory, path, &found, 0) == 0;
    if (!followed && fstatat(directory, path, &found, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    status = statusOf(found);
    return 0;
}

bool isDots(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

/// Removes names from an open directory, directories with all that is in them. Nothing here follows a link.
class TreeRemover {
public:
    /// Takes over the descriptor.
    static void empty(int fd, int depth) {
        struct stat status {};
        if (fstat(fd, &status) == 0 && (status.st_mode & 0700) != 0700) (void)fchmod(fd, status.st_mode | 0700);
        DIR* stream = fdopendir(fd);
        if (stream == nullptr) {
            (void)close(fd);
            return;
        }
        // A file system may lose its place when names vanish, so passes are made until one removes nothing.
        while (removeEntries(stream, depth)) rewinddir(stream);
        (void)closedir(stream);
    }

    static int openChild(int directory, const char* name) {
        return retried([&] { return openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); });
    }

private:
    /// Each level holds a descriptor.
    static constexpr int depthLimit = 512;

    static bool removeEntries(DIR* stream, int depth) {
        bool removed = false;
        while (const dirent* entry = readdir(stream)) {
            if (!isDots(entry->d_name) && removeEntry(dirfd(stream), entry->d_name, depth)) removed = true;
        }
        return removed;
    }

    static bool removeEntry(int directory, const char* name, int depth) {
        if (unlinkat(directory, name, 0) == 0) return true;
        if (errno != EISDIR || depth >= depthLimit) return false;
        const int child = openChild(directory, name);
        if (child >= 0) empty(child, depth + 1);
        return unlinkat(directory, name, AT_REMOVEDIR) == 0;
    }
};

/// Calls `create(path)` with new names until one is not taken.
template <class Create>
int createTemp(std::string& path, Create create) {
    const char* folder = std::getenv("TMPDIR");
    if (folder == nullptr || *folder == 0) folder = "/tmp";
    for (int tries = 0; tries < 100; ++tries) {
        uint32_t number = 0;
        if (!randomBytes(&number, sizeof number)) return ENOSYS;
        char name[32];
        (void)std::snprintf(name, sizeof name, "/tim%08X.tmp", number);
        path = std::string(folder) + name;
        const int error = create(path.c_str());
        if (error != EEXIST) return error;
    }
    return EEXIST;
}

}  // namespace

int fileStatus(const char* path, FileStatus& status) { return statusAt(AT_FDCWD, path, true, status); }

int linkStatus(const char* path, FileStatus& status) { return statusAt(AT_FDCWD, path, false, status); }

DirectoryReader::DirectoryReader(const char* path, bool followLinks)
    : m_stream(opendir(path)), m_followLinks(followLinks) {
    if (m_stream == nullptr) m_error = errno;
}

DirectoryReader::~DirectoryReader() {
    if (m_stream != nullptr) (void)closedir(static_cast<DIR*>(m_stream));
}

bool DirectoryReader::next(const char*& name, FileStatus& status) {
    if (m_stream == nullptr) return false;
    auto* stream = static_cast<DIR*>(m_stream);
    while (const dirent* entry = readdir(stream)) {
        if (isDots(entry->d_name)) continue;
        if (statusAt(dirfd(stream), entry->d_name, m_followLinks, status) != 0) continue;
        name = entry->d_name;
        return true;
    }
    return false;
}

int setReadOnly(const char* path, bool readOnly) {
    // Looked at and changed through one descriptor, so that a link put there meanwhile is not followed.
    const int fd = retried([&] { return open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC); });
    if (fd < 0) return errno;
    struct stat status {};
    int error = errorOf(fstat(fd, &status));
    if (error == 0 && !S_ISLNK(status.st_mode)) {
        mode_t mode = status.st_mode & 07777;
        if (readOnly) {
            mode &= ~anyWrite;
        } else if ((mode & anyWrite) == 0) {
            mode |= S_IWUSR;
        }
        const std::string name = "/proc/self/fd/" + std::to_string(fd);
        if (mode != (status.st_mode & 07777)) error = errorOf(chmod(name.c_str(), mode));
    }
    (void)close(fd);
    return error;
}

int setModifiedTime(const char* path, uint64_t ticks) {
    timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1] = timeOf(ticks);
    return errorOf(utimensat(AT_FDCWD, path, times, 0));
}

int copyPermissions(const char* from, const char* to) {
    struct stat status {};
    if (stat(from, &status) != 0) return errno;
    return errorOf(chmod(to, status.st_mode & 0777));
}

int removeFile(const char* path) { return errorOf(unlink(path)); }
int createDirectory(const char* path) { return errorOf(mkdir(path, 0777)); }
int removeDirectory(const char* path) { return errorOf(rmdir(path)); }

int removeTree(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0) return errno == ENOENT ? 0 : errno;
    if (S_ISLNK(status.st_mode)) {
        struct stat target {};
        if (stat(path, &target) == 0 && !S_ISDIR(target.st_mode)) return ENOTDIR;
        return removeFile(path);
    }
    const int fd = TreeRemover::openChild(AT_FDCWD, path);
    if (fd >= 0) TreeRemover::empty(fd, 0);
    return removeDirectory(path);
}

int moveFile(const char* from, const char* to) {
    const int error = errorOf(renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE));
    if (error != EINVAL && error != ENOSYS) return error;
    // A file system without that promise: look first.
    struct stat status {};
    if (lstat(to, &status) == 0) return EEXIST;
    return errorOf(rename(from, to));
}

bool isOtherVolume(int error) { return error == EXDEV; }

int currentDirectory(std::string& path) {
    char* found = getcwd(nullptr, 0);
    if (found == nullptr) return errno;
    path = found;
    std::free(found);
    return 0;
}

int setCurrentDirectory(const char* path) { return errorOf(chdir(path)); }

int createTempFile(std::string& path) {
    return createTemp(path, [](const char* name) {
        const int fd = retried([&] { return open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600); });
        if (fd < 0) return errno;
        (void)close(fd);
        return 0;
    });
}

int createTempDirectory(std::string& path) {
    return createTemp(path, [](const char* name) { return errorOf(mkdir(name, 0700)); });
}

}  // namespace qv::platform
