#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "platform/posix/retry.h"

namespace qv::platform {

namespace {

int descriptor(FileHandle file) { return static_cast<int>(file); }

/// The name under which a descriptor can be opened or changed once more.
std::string procName(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

class Descriptor {
public:
    Descriptor() = default;
    ~Descriptor() { reset(-1); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_fd; }
    void reset(int fd) {
        if (m_fd >= 0) (void)close(m_fd);
        m_fd = fd;
    }
    int release() { return std::exchange(m_fd, -1); }

private:
    int m_fd = -1;
};

int openFlags(const OpenRequest& request) {
    const int access = request.write ? (request.read ? O_RDWR : O_WRONLY) : O_RDONLY;
    return access | O_CLOEXEC | O_NOCTTY | (request.writeThrough ? O_DSYNC : 0) | (request.append ? O_APPEND : 0);
}

/// Opening does not wait for the other end of a pipe: a name that comes out of a file may lead to one that has none.
/// Such a pipe is empty to a reader and an error to a writer.
int openAtOnce(const OpenRequest& request, int more, mode_t mode) {
    const int flags = openFlags(request) | more;
    const int fd = retried([&] { return open(request.path, flags | O_NONBLOCK, mode); });
    // Somebody holds a lease on the file and has to be waited for.
    return fd < 0 && errno == EWOULDBLOCK ? retried([&] { return open(request.path, flags, mode); }) : fd;
}

/// Reading and writing wait as ever.
void waitFromNowOn(int fd) { (void)fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK); }

/// Opens by the disposition, truncating nothing yet. `created` tells whether this call made the file.
int openByDisposition(const OpenRequest& request, Descriptor& file, bool& created) {
    const mode_t mode = request.readOnly ? 0444 : 0666;
    const auto tryOpen = [&](int more) {
        file.reset(openAtOnce(request, more, mode));
        return file.get() >= 0 ? 0 : errno;
    };
    created = false;
    if (request.disposition != Disposition::createNew) {
        const int error = tryOpen(0);
        if (error != ENOENT || request.disposition == Disposition::openExisting) return error;
    }
    int error = tryOpen(O_CREAT | O_EXCL);
    created = error == 0;
    // Somebody was faster, or the name is a link that leads to nothing yet.
    if (error == EEXIST && request.disposition != Disposition::createNew) error = tryOpen(O_CREAT);
    return error;
}

/// Also for a file that is not open for writing, but writes for this moment.
int truncateToEmpty(int fd, bool writable) {
    if (writable) return errorOf(retried([&] { return ftruncate(fd, 0); }));
    if (const int error = claimWritingFromReader(fd)) return error;
    const int error = errorOf(retried([&] { return truncate(procName(fd).c_str(), 0); }));
    endWritingFromReader(fd);
    return error;
}

void applyMode(int fd, const OpenRequest& request, bool created, mode_t present) {
    if (created && request.everyone) {
        (void)fchmod(fd, request.readOnly ? 0444 : 0666);
    } else if (!created && request.readOnly && request.disposition == Disposition::createTruncate) {
        (void)fchmod(fd, present & 0777 & ~mode_t{0222});
    }
}

/// A descriptor of the same file that neither reads nor writes.
int withoutAccess(Descriptor& file) {
    const int bare = retried([&] { return open(procName(file.get()).c_str(), O_PATH | O_CLOEXEC); });
    if (bare < 0) return errno;
    file.reset(bare);
    return 0;
}

template <class Transfer>
uint32_t transferAll(uint32_t count, int& error, Transfer transfer) {
    // The kernel moves at most this much at once; only then is there a second call.
    constexpr uint32_t kernelLimit = 0x7FFFF000;
    uint32_t done = 0;
    error = 0;
    for (;;) {
        const uint32_t wanted = std::min(count - done, kernelLimit);
        const ssize_t moved = retried([&] { return transfer(done, wanted); });
        if (moved < 0) error = errno;
        if (moved > 0) done += static_cast<uint32_t>(moved);
        if (moved != static_cast<ssize_t>(kernelLimit) || done == count) return done;
    }
}

}  // namespace

const char* errorText(int error) {
    if (error == sharingViolation) return "a sharing conflict with another opener of the file";
    const char* text = strerrordesc_np(error);
    return text != nullptr ? text : "an unknown error";
}

int openFile(const OpenRequest& request, FileHandle& handle) {
    Descriptor file;
    bool created = false;
    if (const int error = openByDisposition(request, file, created)) return error;
    struct stat status {};
    if (fstat(file.get(), &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    if (!S_ISREG(status.st_mode)) {
        waitFromNowOn(file.get());
    } else {
        if (const int error =
                claimShares(file.get(), request.read, request.write, request.shareRead, request.shareWrite)) {
            return error;
        }
        if (!created && request.disposition == Disposition::createTruncate) {
            if (const int error = truncateToEmpty(file.get(), request.write)) return error;
        }
        applyMode(file.get(), request, created, status.st_mode);
    }
    if (!request.read && !request.write) {
        if (const int error = withoutAccess(file)) return error;
    }
    handle = file.release();
    return 0;
}

// After an interrupted close the descriptor is gone on Linux: it is not repeated.
void closeFile(FileHandle file) { (void)close(descriptor(file)); }

uint32_t readFile(FileHandle file, void* data, uint32_t count, int& error) {
    return transferAll(count, error, [&](uint32_t done, uint32_t wanted) {
        return read(descriptor(file), static_cast<char*>(data) + done, wanted);
    });
}

uint32_t writeFile(FileHandle file, const void* data, uint32_t count, int& error) {
    return transferAll(count, error, [&](uint32_t done, uint32_t wanted) {
        return write(descriptor(file), static_cast<const char*>(data) + done, wanted);
    });
}

int endAppending(FileHandle file) {
    const int flags = fcntl(descriptor(file), F_GETFL);
    return flags < 0 ? errno : errorOf(fcntl(descriptor(file), F_SETFL, flags & ~O_APPEND));
}

int64_t seekFile(FileHandle file, int64_t offset, Origin origin) {
    constexpr int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    return lseek(descriptor(file), offset, whence[static_cast<int>(origin)]);
}

int64_t fileSize(FileHandle file) {
    struct stat status {};
    return fstat(descriptor(file), &status) == 0 ? status.st_size : 0;
}

int resizeFile(FileHandle file, int64_t size) {
    return errorOf(retried([&] { return ftruncate(descriptor(file), size); }));
}

int flushFile(FileHandle file) {
    return errorOf(retried([&] { return fsync(descriptor(file)); }));
}

int deleteOpenFile(FileHandle file) {
    char name[PATH_MAX + 1];
    const ssize_t length = readlink(procName(descriptor(file)).c_str(), name, PATH_MAX);
    if (length < 0) return errno;
    name[length] = 0;
    struct stat open {
    }, named{};
    if (fstat(descriptor(file), &open) != 0 || lstat(name, &named) != 0) return errno;
    if (open.st_dev != named.st_dev || open.st_ino != named.st_ino) return ENOENT;
    return errorOf(unlink(name));
}

}  // namespace qv::platform
