// CWin32DirectoryMonitor: tells of changes below a directory of the disk. Made by CFileSystem::MonitorDirectory.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "qv/api.h"
#include "qv/file_system.h"
#include "qv/string.h"

/// Watches a directory with everything below it, from Start until Stop, and fires the events of IDirectoryMonitor.
///
/// Names:     relative to the directory, joined with `/`; one of 261 characters or more is left empty. Names that are
///            not valid UTF-8 have U+FFFD in them.
/// Events:    folders are reported like files. Whoever starts with the names that are there, and applies all events in
///            order, has the names that are there:
///            - A rename within the tree, also from one folder to another, is one FileRenamed; that of a folder takes
///              along what is in it. A rename onto a file replaces it without a word of its own; a folder in that place
///              is reported removed first.
///            - What comes from outside, or is found in a new folder, is added entry by entry, a folder in front of its
///              contents; what leaves is removed entry by entry, a folder behind them. A file that comes from outside
///              in place of another one is modified.
///            - A folder is modified by a change of its attributes alone.
///            - Symbolic links are entries like files and are not followed; the directory itself may be one.
/// Nothing is lost when the system's queue of changes overflows: the tree is then compared with what was known of it,
/// and the differences are reported, though not in the order in which they came about; a rename is a removal and an
/// addition then. For that the names, sizes and times of the tree are kept in memory.
/// A folder below that cannot be watched (the system's limit on watches, no permission to read it) is compared about
/// once a second instead, and Start leaves a diagnostic.
/// Watching ends by itself when the directory is deleted or moved away, or without memory; Start begins anew.
/// Threads: events are fired on the monitor's own thread, one at a time; an exception that leaves a handler ends the
/// watching. Start and Stop may be called from any thread, also from handlers. A handler must not destroy the monitor.
class QV_API CWin32DirectoryMonitor : public qv::IFileSystem::IDirectoryMonitor {
public:
    /// Bits of the monitor flags; they add up. Without nameAndWrite no name is reported added, removed or renamed.
    enum : uint32_t {
        nameAndWrite = 1,  ///< Added, removed and renamed; modified when contents are written or the time is set.
        size = 2,          ///< Modified when the size becomes another.
        attributes = 4,    ///< Modified when attributes (permissions, owner, times) are set.
    };

    /// @param directory  A relative path is looked up at Start.
    CWin32DirectoryMonitor(const char16_t* directory, uint32_t flags);
    /// Stops.
    ~CWin32DirectoryMonitor() override;
    CWin32DirectoryMonitor(const CWin32DirectoryMonitor&) = delete;
    CWin32DirectoryMonitor& operator=(const CWin32DirectoryMonitor&) = delete;

    /// Takes stock of the tree, which needs time in proportion to it, and begins to watch: every change after the
    /// return is reported. True at once when it runs. False, with a diagnostic, when the directory cannot be watched,
    /// or when a handler calls this behind its own Stop. A thread that the system would not start leaves the monitor
    /// idle, with a diagnostic, and is true all the same.
    bool Start() override;
    /// Ends the watching. A handler that is running is waited for, and the synchronous calls that are sent to this
    /// thread meanwhile are served. Called by a handler, also by one that runs synchronously on another thread, it
    /// returns at once: the watching ends when the handler returns. No event is fired afterwards. Nothing when idle.
    void Stop() override;

private:
    struct Watching;

    qv::CString m_directory;
    const uint32_t m_flags;
    std::mutex m_mutex;  // Guards m_watching; not held while anything is waited for.
    std::shared_ptr<Watching> m_watching;
};
