// A directory tree under watch: what is known of it, and what the system's records mean for it.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/directory.h"
#include "platform/directory_watch.h"

namespace qv::Private {

/// What a change of an entry touched.
struct TreeChange {
    bool written = false;
    bool attributes = false;
    bool size = false;
};

/// Is told of every change once, in order. Paths are UTF-8, relative to the top, joined with `/`.
class TreeListener {
public:
    virtual void added(const std::string& path) = 0;
    virtual void removed(const std::string& path) = 0;
    virtual void changed(const std::string& path, TreeChange change) = 0;
    virtual void renamed(const std::string& from, const std::string& to) = 0;

protected:
    ~TreeListener() = default;
};

/// Keeps names, sizes and times of a tree, and tells a listener what becomes of them.
///
/// Records of the system come late: by the time one is read, its path may lead to something else, and after an
/// overflow some are missing. So one operation stands behind all that looks at the disk: reconcile compares a folder
/// with what is known of it, reports the differences and makes sure that the right directory is watched. It runs for
/// new folders, for folders whose watch came into doubt, and for the whole tree after an overflow. What it found ahead
/// of a record makes that record say nothing new.
/// A folder that cannot be watched (no watch is left, no permission) is compared about once a second instead.
/// Whatever it calls may throw std::bad_alloc, after which it can only be destroyed.
class WatchedTree {
public:
    /// `stopping` ends a long walk early once it is true.
    WatchedTree(std::string top, TreeListener& listener, const std::atomic<bool>& stopping);

    /// Takes stock of the tree without a report, and watches it. 0, or why the top cannot be watched.
    int open();
    /// Why a folder below the top is compared instead of watched; 0 when all are watched.
    int gapError() const { return m_unwatched.empty() ? 0 : m_gapError; }

    /// Readable when there is something to follow.
    platform::WaitHandle handle() const { return m_watch.handle(); }
    /// Milliseconds until follow has work without a record.
    uint32_t patience() const;
    /// Takes the records that wait. False when the top is gone or is not where it was.
    bool follow();

private:
    struct Info {
        int64_t size = 0;
        uint64_t modifiedTicks = 0;
        bool readOnly = false;
    };
    struct Folder {
        Folder* parent = nullptr;
        std::string name;
        int watch = -1;
        bool readOnly = false;
        std::map<std::string, Info> files;
        std::map<std::string, std::unique_ptr<Folder>> folders;
    };
    using Record = platform::WatchRecord;
    using Status = platform::FileStatus;

    static bool isInside(const Folder* inner, const Folder* outer);
    std::string relativePath(const Folder& folder, const std::string& name = {}) const;
    std::string diskPath(const Folder& folder, const std::string& name = {}) const;
    Folder* folderIn(Folder& folder, const std::string& name) const;

    int reconcile(Folder& folder, bool deep);
    void compare(Folder& folder, const std::map<std::string, Status>& found, bool deep);
    void claim(Folder& folder, int watch);
    void verify(Folder& folder);
    void settle();
    void reconcileUnwatched(const std::vector<Folder*>& folders);

    void addEntry(Folder& folder, const std::string& name, const Status& status);
    void removeEntry(Folder& folder, const std::string& name);
    void forget(Folder& folder);
    void drop(Folder& folder);
    void note(const Folder& folder, const std::string& name, Info& known, const Status& now, TreeChange change);

    void apply(size_t at);
    void applyToFolder(Folder& folder, const Record& record);
    void appear(Folder& folder, const std::string& name, bool directory, bool arrived);
    void change(Folder& folder, const Record& record);
    void move(Folder& from, const std::string& oldName, Folder& to, const std::string& newName, bool directory);
    void moveFile(Folder& from, const std::string& oldName, Folder& to, const std::string& newName);
    void moveFolder(Folder& from, const std::string& oldName, Folder& to, const std::string& newName);
    void doubtName(Folder& folder, const std::string& name);
    Record* partnerOf(size_t at);

    const std::string m_topPath;
    TreeListener& m_listener;
    const std::atomic<bool>& m_stopping;
    platform::DirectoryWatch m_watch;
    Folder m_top;
    std::unordered_map<int, Folder*> m_byWatch;
    std::set<Folder*> m_doubtful;   ///< To be reconciled as soon as the records at hand are applied.
    std::set<Folder*> m_unwatched;  ///< To be reconciled now and then.
    int m_gapError = 0;
    int64_t m_nextLook = 0;
    std::deque<Record> m_records;
    bool m_reporting = false;
    bool m_gone = false;
};

}  // namespace qv::Private
