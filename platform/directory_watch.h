// What the library needs of the system to be told of changes in directories.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "platform/wait.h"

namespace qv::platform {

/// One thing that happened in a watched directory.
struct WatchRecord {
    /// What happened. To the entry `name`; where that is empty, to the watched directory itself.
    enum : uint32_t {
        created = 1,
        removed = 2,
        movedFrom = 4,  ///< The old name of a rename, or an entry that left; its partner has the same cookie.
        movedTo = 8,    ///< The new name, or an entry that came.
        written = 16,   ///< Contents or size.
        attributes = 32,
        selfMoved = 64,
        watchGone = 128,  ///< The directory is gone or was let go of; its watch is no more.
        overflow = 256,   ///< Records were lost, of any directory; `watch` is -1.
    };

    int watch = -1;  ///< As DirectoryWatch::add gave it.
    uint32_t what = 0;
    uint32_t cookie = 0;
    bool directory = false;  ///< The entry is a directory.
    std::string name;
    int64_t readAt = 0;  ///< monotonicNanoseconds() when it was read.
};

/// A queue of what happens in a set of directories. Directories are told apart by what they are, not by their paths:
/// one that is moved keeps its watch.
class DirectoryWatch {
public:
    DirectoryWatch() = default;
    ~DirectoryWatch();
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    /// 0, or why there is no queue to be had.
    int open();
    /// Readable while records wait.
    WaitHandle handle() const { return m_handle; }

    /// Watches a directory, not what is below it; nothing else than a directory. A directory that is watched already
    /// gives its watch again. `followLink`: `path` may be a symbolic link to one.
    int add(const std::string& path, bool followLink, int& watch);
    /// Lets go of a watch; none that there is not does harm.
    void remove(int watch);
    /// Appends a block of the records that wait, never blocks. False when none waited.
    bool read(std::deque<WatchRecord>& records);

private:
    WaitHandle m_handle = noHandle;
};

}  // namespace qv::platform
