// Share modes by open-file-description locks.
//
// Far behind any data lie four ranges of bytes, one for each thing that an opener may do or deny. Who does or denies it
// holds a lock on some byte of its range; who wants the opposite looks whether the range is free. Each opener locks
// first and looks afterwards, so of two at the same moment at least one sees the other.
//
// A descriptor that can read takes a shared lock, which all readers of the range hold on its first byte together. One
// that can only write may only take exclusive locks, and takes a byte of its own. To look needs no particular access.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "platform/file.h"

namespace qv::platform {

namespace {

enum Claim { reads, writes, deniesReading, deniesWriting };

constexpr off_t rangeBytes = off_t{1} << 32;
constexpr off_t firstRange = off_t{1} << 62;
constexpr off_t rangeStart(Claim claim) { return firstRange + claim * rangeBytes; }

constexpr Claim opposite(Claim claim) {
    switch (claim) {
        case reads: return deniesReading;
        case writes: return deniesWriting;
        case deniesReading: return reads;
        case deniesWriting: return writes;
    }
    return claim;
}

struct flock lockOn(short type, off_t start, off_t length) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

/// 0, EAGAIN when another holds the byte, or why the file has no locks.
int lockByte(int fd, short type, off_t at) {
    struct flock lock = lockOn(type, at, 1);
    if (fcntl(fd, F_OFD_SETLK, &lock) == 0) return 0;
    return errno == EACCES ? EAGAIN : errno;
}

int holdClaim(int fd, Claim claim, bool readable) {
    if (readable) return lockByte(fd, F_RDLCK, rangeStart(claim));
    // Neighbouring numbers within a process, scattered ones between processes: the first try nearly always holds.
    static std::atomic<uint32_t> serial{0};
    const uint32_t first = static_cast<uint32_t>(getpid()) * 2654435761u + serial.fetch_add(1);
    constexpr uint32_t tries = 1000;
    int error = EAGAIN;
    for (uint32_t i = 0; i < tries && error == EAGAIN; ++i) {
        error = lockByte(fd, F_WRLCK, rangeStart(claim) + 1 + (first + i) % (rangeBytes - 1));
    }
    return error;
}

/// Whether another open file holds the claim.
bool isHeldByOther(int fd, Claim claim) {
    struct flock lock = lockOn(F_WRLCK, rangeStart(claim), rangeBytes);
    return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace

int claimShares(FileHandle file, bool read, bool write, bool shareRead, bool shareWrite) {
    if (!read && !write) return 0;
    const int fd = static_cast<int>(file);
    const bool wanted[] = {read, write, !shareRead, !shareWrite};
    for (const Claim claim : {reads, writes, deniesReading, deniesWriting}) {
        if (!wanted[claim]) continue;
        const int error = holdClaim(fd, claim, read);
        if (error == EAGAIN) return sharingViolation;
        if (error != 0) return 0;  // No locks here.
    }
    for (const Claim claim : {reads, writes, deniesReading, deniesWriting}) {
        if (wanted[claim] && isHeldByOther(fd, opposite(claim))) return sharingViolation;
    }
    return 0;
}

int claimWritingFromReader(FileHandle file) {
    const int fd = static_cast<int>(file);
    const int error = holdClaim(fd, writes, true);
    if (error == EAGAIN) return sharingViolation;
    return error == 0 && isHeldByOther(fd, opposite(writes)) ? sharingViolation : 0;
}

void endWritingFromReader(FileHandle file) { (void)lockByte(static_cast<int>(file), F_UNLCK, rangeStart(writes)); }

}  // namespace qv::platform
