// Shared memory in /dev/shm.
//
// Two open-file-description locks on the segment's own file keep its life in order. The gate, an exclusive lock on byte
// 0, is held while somebody opens or closes. The claim, a shared lock on byte 1, is held by every user for as long as
// it has the segment open. Both vanish with the process. So behind the gate a file that nobody claims is new or a dead
// process's leftover and starts afresh, and a closer that finds no other claim is the last and removes the name. An
// opener that waited at the gate of a file whose name is gone by then begins again.
#include "platform/shared_memory.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <string>

#include "platform/posix/retry.h"

#if defined(__SANITIZE_THREAD__)
#define QV_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QV_THREAD_SANITIZER
#endif
#endif

namespace qv::platform {

namespace {

/// The beginning of the file.
struct Header {
    char magic[8];
    uint32_t version;
    uint32_t mutexBytes;  ///< Differs between 32-bit and 64-bit processes.
    uint64_t bytes;       ///< Behind the header.
    alignas(64) pthread_mutex_t mutex;
};

constexpr char magic[8] = {'Q', 'V', 'S', 'H', 'M', 'E', 'M', '\0'};
constexpr uint32_t version = 1;
/// Where the bytes begin.
constexpr size_t headerBytes = 4096;
static_assert(sizeof(Header) <= headerBytes);

constexpr off_t gateByte = 0, claimByte = 1;

/// Text to file name, each text to another one. What gets too long keeps its beginning and two sums of the whole.
std::string pathOf(std::u16string_view name) {
    constexpr char digits[] = "0123456789abcdef";
    constexpr size_t longest = 200, kept = 150;
    std::string path = "/qv." + std::to_string(geteuid()) + ".";
    const size_t start = path.size();
    uint64_t sums[] = {0xCBF29CE484222325, 0x9E3779B97F4A7C15};
    for (const char16_t unit : name) {
        for (uint64_t& sum : sums) sum = (sum ^ unit) * 0x100000001B3;
        sums[1] ^= sums[1] >> 29;
        if (path.size() - start > longest) continue;
        const bool plain = (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') ||
                           (unit >= u'0' && unit <= u'9') || unit == u'-' || unit == u'_' || unit == u'.';
        if (plain) {
            path += static_cast<char>(unit);
            continue;
        }
        path += '%';
        for (int shift = 12; shift >= 0; shift -= 4) path += digits[(unit >> shift) & 15];
    }
    if (path.size() - start <= longest) return path;
    path.resize(start + kept);
    path += "%%";
    for (const uint64_t sum : sums) {
        for (int shift = 60; shift >= 0; shift -= 4) path += digits[(sum >> shift) & 15];
    }
    return path;
}

struct flock lockOn(short type, off_t at, off_t length = 1) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = at;
    lock.l_len = length;
    return lock;
}

/// Waits for it.
bool lockByte(int fd, short type, off_t at) {
    struct flock lock = lockOn(type, at);
    return retried([&] { return fcntl(fd, F_OFD_SETLKW, &lock); }) == 0;
}

bool isClaimedByOther(int fd) {
    struct flock lock = lockOn(F_WRLCK, claimByte);
    return fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

}  // namespace

struct SharedSegment {
    std::string path;
    int fd = -1;
    void* base = MAP_FAILED;
    size_t bytes = 0;
    pid_t process = getpid();

    SharedSegment() = default;
    SharedSegment(const SharedSegment&) = delete;
    SharedSegment& operator=(const SharedSegment&) = delete;
    ~SharedSegment() {
        if (base != MAP_FAILED) (void)munmap(base, headerBytes + bytes);
        closeFd();
    }
    /// Drops the locks, too: a child that shares the descriptor does not keep them. In such a child they stay the
    /// parent's.
    void closeFd() {
        struct flock all = lockOn(F_UNLCK, gateByte, 2);
        if (fd >= 0 && process == getpid()) (void)fcntl(fd, F_OFD_SETLK, &all);
        if (fd >= 0) (void)close(fd);
        fd = -1;
    }
    Header* header() const { return static_cast<Header*>(base); }
    bool map() {
        base = mmap(nullptr, headerBytes + bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        return base != MAP_FAILED;
    }
};

namespace {

enum class Gate { passed, nameGone, notOurs, failed };

/// Opens the file and waits at its gate, unless that would be a stranger's to open.
Gate passGate(SharedSegment& segment, bool create) {
    segment.closeFd();
    segment.fd = shm_open(segment.path.c_str(), O_RDWR | O_NONBLOCK | (create ? O_CREAT : 0), S_IRUSR | S_IWUSR);
    struct stat info {};
    if (segment.fd < 0 || fstat(segment.fd, &info) != 0) return Gate::failed;
    if (!S_ISREG(info.st_mode) || info.st_uid != geteuid()) return Gate::notOurs;
    if (!lockByte(segment.fd, F_WRLCK, gateByte) || fstat(segment.fd, &info) != 0) return Gate::failed;
    return info.st_nlink == 0 ? Gate::nameGone : Gate::passed;
}

bool initMutex(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) return false;
    const bool done = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) == 0 &&
                      pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                      pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                      pthread_mutex_init(&mutex, &attributes) == 0;
    (void)pthread_mutexattr_destroy(&attributes);
    return done;
}

/// 0 or why the system refuses so many bytes.
int makeFresh(SharedSegment& segment, size_t bytes) {
    constexpr auto most = static_cast<uint64_t>(std::numeric_limits<ptrdiff_t>::max());
    if (bytes > most - headerBytes) return EFBIG;
    // The magic first: who finds a file that a killed process has not finished knows that it may be cleared.
    if (ftruncate(segment.fd, 0) != 0 || pwrite(segment.fd, magic, sizeof magic, 0) != sizeof magic) return errno;
    segment.bytes = bytes;
    int error = EINTR;
    while (error == EINTR) error = posix_fallocate(segment.fd, 0, static_cast<off_t>(headerBytes + bytes));
    if (error != 0) return error;
    if (!segment.map()) return errno;
    segment.header()->version = version;
    segment.header()->mutexBytes = sizeof(pthread_mutex_t);
    segment.header()->bytes = bytes;
    return initMutex(segment.header()->mutex) ? 0 : ENOTSUP;
}

/// Looks at a file that others have open without trusting it.
SegmentResult mapExisting(SharedSegment& segment, const Header& header, const struct stat& info, size_t bytes) {
    if (header.version != version || header.mutexBytes != sizeof(pthread_mutex_t)) return SegmentResult::otherVersion;
    const auto size = static_cast<uint64_t>(info.st_size);
    // A page that is not reserved could not be had any more when it is touched.
    if (size <= headerBytes || header.bytes != size - headerBytes ||
        static_cast<uint64_t>(info.st_blocks) * 512 < size) {
        return SegmentResult::damaged;
    }
    if (header.bytes < bytes) return SegmentResult::tooSmall;
    segment.bytes = static_cast<size_t>(header.bytes);
    return segment.map() ? SegmentResult::opened : SegmentResult::refused;
}

/// Behind the gate.
SegmentResult enter(SharedSegment& segment, size_t bytes, int& error) {
    struct stat info {};
    if (fstat(segment.fd, &info) != 0) return SegmentResult::refused;
    Header header{};
    const ssize_t got = pread(segment.fd, &header, sizeof header, 0);
    const bool marked =
        got >= static_cast<ssize_t>(sizeof magic) && std::memcmp(header.magic, magic, sizeof magic) == 0;
    const bool alive = isClaimedByOther(segment.fd);
    if (!marked && (info.st_size > 0 || alive)) return SegmentResult::notOurs;
    if (alive) return mapExisting(segment, header, info, bytes);
    if (bytes > 0) {
        error = makeFresh(segment, bytes);
        if (error == 0) return SegmentResult::created;
    }
    (void)shm_unlink(segment.path.c_str());
    return bytes > 0 ? SegmentResult::refused : SegmentResult::absent;
}

}  // namespace

SegmentResult openSegment(std::u16string_view name, size_t bytes, SharedSegment*& segment, int& error) {
    auto opening = std::make_unique<SharedSegment>();
    opening->path = pathOf(name);
    Gate gate = Gate::nameGone;
    while (gate == Gate::nameGone) gate = passGate(*opening, bytes > 0);
    error = errno;
    if (gate == Gate::notOurs) return SegmentResult::notOurs;
    if (gate == Gate::failed) return error == ENOENT && bytes == 0 ? SegmentResult::absent : SegmentResult::refused;
    errno = error = 0;
    const SegmentResult result = enter(*opening, bytes, error);
    if (error == 0) error = errno;
    if (result != SegmentResult::opened && result != SegmentResult::created) return result;
    if (!lockByte(opening->fd, F_RDLCK, claimByte) || !lockByte(opening->fd, F_UNLCK, gateByte)) {
        error = errno;
        return SegmentResult::refused;
    }
    segment = opening.release();
    return result;
}

void closeSegment(SharedSegment* segment) {
    const std::unique_ptr<SharedSegment> closing(segment);
    // A child made by fork() shares its parent's locks, and the segment is the parent's.
    if (closing == nullptr || closing->process != getpid() || !lockByte(closing->fd, F_WRLCK, gateByte)) return;
    struct stat info {};
    if (isClaimedByOther(closing->fd) || fstat(closing->fd, &info) != 0 || info.st_nlink == 0) return;
    (void)shm_unlink(closing->path.c_str());
}

void* segmentData(const SharedSegment* segment) { return static_cast<char*>(segment->base) + headerBytes; }
size_t segmentBytes(const SharedSegment* segment) { return segment->bytes; }

namespace {

int lockInTime(pthread_mutex_t* mutex, uint32_t milliseconds) {
    if (milliseconds == forever) return pthread_mutex_lock(mutex);
    int error = pthread_mutex_trylock(mutex);
    if (error != EBUSY || milliseconds == 0) return error;
    const int64_t deadline = deadlineAfter(milliseconds);
#ifdef QV_THREAD_SANITIZER
    // It does not see what pthread_mutex_clocklock takes.
    while (error == EBUSY && monotonicNanoseconds() < deadline) {
        const timespec pause{0, 1'000'000};
        (void)nanosleep(&pause, nullptr);
        error = pthread_mutex_trylock(mutex);
    }
    return error;
#else
    const timespec end{static_cast<time_t>(deadline / 1'000'000'000), static_cast<long>(deadline % 1'000'000'000)};
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &end);
#endif
}

}  // namespace

SegmentLock lockSegment(SharedSegment* segment, uint32_t milliseconds) {
    pthread_mutex_t* const mutex = &segment->header()->mutex;
    switch (lockInTime(mutex, milliseconds)) {
        case 0: return SegmentLock::taken;
        case EOWNERDEAD: (void)pthread_mutex_consistent(mutex); return SegmentLock::abandoned;
        case EBUSY:
        case ETIMEDOUT: return SegmentLock::timedOut;
        case EDEADLK: return SegmentLock::ownAlready;
        default: return SegmentLock::broken;
    }
}

bool unlockSegment(SharedSegment* segment) { return pthread_mutex_unlock(&segment->header()->mutex) == 0; }

}  // namespace qv::platform
