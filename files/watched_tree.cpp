#include "files/watched_tree.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace qv::Private {

namespace {

/// The system writes both halves of a rename one after the other, so a half without its partner waits no longer than
/// this for it, and looks no further than so many records.
constexpr int64_t partnerNanoseconds = 10'000'000;
constexpr size_t partnerDistance = 512;

/// Pause between two looks at folders that are not watched, and how many times as long as the look it is at least.
constexpr int64_t lookPauseNanoseconds = 1'000'000'000;
constexpr int64_t lookPauseFactor = 20;

constexpr int settlePasses = 8;

bool any(TreeChange change) { return change.written || change.attributes || change.size; }

}  // namespace

WatchedTree::WatchedTree(std::string top, TreeListener& listener, const std::atomic<bool>& stopping)
    : m_topPath(std::move(top)), m_listener(listener), m_stopping(stopping) {}

// The known tree ------------------------------------------------------------------------------------------------------

bool WatchedTree::isInside(const Folder* inner, const Folder* outer) {
    while (inner != nullptr && inner != outer) inner = inner->parent;
    return inner != nullptr;
}

std::string WatchedTree::relativePath(const Folder& folder, const std::string& name) const {
    std::string path = name;
    for (const Folder* at = &folder; at->parent != nullptr; at = at->parent) {
        path = path.empty() ? at->name : at->name + '/' + path;
    }
    return path;
}

std::string WatchedTree::diskPath(const Folder& folder, const std::string& name) const {
    const std::string below = relativePath(folder, name);
    if (below.empty()) return m_topPath;
    return m_topPath.ends_with('/') ? m_topPath + below : m_topPath + '/' + below;
}

WatchedTree::Folder* WatchedTree::folderIn(Folder& folder, const std::string& name) const {
    const auto found = folder.folders.find(name);
    return found == folder.folders.end() ? nullptr : found->second.get();
}

void WatchedTree::addEntry(Folder& folder, const std::string& name, const Status& status) {
    if (!status.directory) {
        folder.files[name] = Info{status.size, status.modifiedTicks, status.readOnly};
        if (m_reporting) m_listener.added(relativePath(folder, name));
        return;
    }
    auto child = std::make_unique<Folder>();
    child->parent = &folder;
    child->name = name;
    child->readOnly = status.readOnly;
    Folder& added = *child;
    folder.folders[name] = std::move(child);
    if (m_reporting) m_listener.added(relativePath(added));
    (void)reconcile(added, false);
}

void WatchedTree::removeEntry(Folder& folder, const std::string& name) {
    if (Folder* child = folderIn(folder, name)) {
        forget(*child);
    } else if (folder.files.erase(name) != 0 && m_reporting) {
        m_listener.removed(relativePath(folder, name));
    }
}

/// Reports a folder with all that is in it as removed, innermost first, and lets go of it.
void WatchedTree::forget(Folder& folder) {
    drop(folder);
    folder.parent->folders.erase(std::string(folder.name));
}

void WatchedTree::drop(Folder& folder) {
    for (const auto& [name, info] : folder.files) {
        if (m_reporting) m_listener.removed(relativePath(folder, name));
    }
    for (const auto& [name, child] : folder.folders) drop(*child);
    m_doubtful.erase(&folder);
    m_unwatched.erase(&folder);
    if (folder.watch != -1) {
        m_byWatch.erase(folder.watch);
        m_watch.remove(folder.watch);
    }
    if (m_reporting) m_listener.removed(relativePath(folder));
}

/// Takes over what is found of a file now, and reports what differs on top of what `change` says already.
void WatchedTree::note(const Folder& folder, const std::string& name, Info& known, const Status& now,
                       TreeChange change) {
    change.size = change.size || now.size != known.size;
    change.written = change.written || change.size || now.modifiedTicks != known.modifiedTicks;
    change.attributes = change.attributes || now.readOnly != known.readOnly;
    known = Info{now.size, now.modifiedTicks, now.readOnly};
    if (any(change) && m_reporting) m_listener.changed(relativePath(folder, name), change);
}

// Disk and known tree -------------------------------------------------------------------------------------------------

/// Compares a folder with the disk. Below it only what is new is looked at, unless `deep`, or unless another directory
/// turns out to stand there than was watched. 0, or why it cannot be watched or read.
int WatchedTree::reconcile(Folder& folder, bool deep) {
    if (m_stopping) return 0;
    const bool top = &folder == &m_top;
    const std::string path = diskPath(folder);
    int watch = -1;
    const int watchError = m_watch.add(path, top, watch);
    if (watchError == 0) {
        deep = deep || folder.watch != watch;
        claim(folder, watch);
    }
    std::map<std::string, Status> found;
    platform::DirectoryReader reader(path.c_str(), false);
    const char* name = nullptr;
    for (Status status; reader.next(name, status);) found.emplace(name, status);
    const int error = watchError != 0 ? watchError : reader.error();
    if (error == 0) {
        m_unwatched.erase(&folder);
    } else {
        m_unwatched.insert(&folder);
        m_gapError = error;
    }
    if (reader.error() != 0) return error;
    int again = -1;
    if (watchError == 0 && (m_watch.add(path, top, again) != 0 || again != watch)) {
        m_doubtful.insert(&folder);  // The path changed its meaning between watch and look.
    } else {
        compare(folder, found, deep);
    }
    return error;
}

void WatchedTree::compare(Folder& folder, const std::map<std::string, Status>& found, bool deep) {
    const auto isThere = [&](const std::string& name, bool directory) {
        const auto at = found.find(name);
        return at != found.end() && at->second.directory == directory;
    };
    std::vector<std::string> vanished;
    for (const auto& [name, info] : folder.files) {
        if (!isThere(name, false)) vanished.push_back(name);
    }
    for (const auto& [name, child] : folder.folders) {
        if (!isThere(name, true)) vanished.push_back(name);
    }
    for (const std::string& name : vanished) removeEntry(folder, name);
    for (const auto& [name, status] : found) {
        if (m_stopping) return;
        const auto file = folder.files.find(name);
        Folder* const child = folderIn(folder, name);
        if (file != folder.files.end()) {
            note(folder, name, file->second, status, {});
            continue;
        }
        if (child == nullptr) {
            addEntry(folder, name, status);
            continue;
        }
        const bool attributes = std::exchange(child->readOnly, status.readOnly) != status.readOnly;
        if (attributes && m_reporting) m_listener.changed(relativePath(*child), {.attributes = true});
        if (deep) (void)reconcile(*child, true);
    }
}

/// The watch is this folder's from now on. Who had it before knows a directory by a path that leads elsewhere.
void WatchedTree::claim(Folder& folder, int watch) {
    if (folder.watch == watch) return;
    if (folder.watch != -1) {
        m_byWatch.erase(folder.watch);
        m_watch.remove(folder.watch);
    }
    Folder*& owner = m_byWatch[watch];
    if (owner != nullptr) {
        owner->watch = -1;
        m_doubtful.insert(owner);
    }
    owner = &folder;
    folder.watch = watch;
}

/// Doubts a folder unless its path leads to the directory that is watched for it.
void WatchedTree::verify(Folder& folder) {
    int watch = -1;
    const int error = m_watch.add(diskPath(folder), &folder == &m_top, watch);
    if (error != 0 || watch != folder.watch) m_doubtful.insert(&folder);
    if (error == 0 && watch != folder.watch && !m_byWatch.contains(watch)) m_watch.remove(watch);
}

/// Reconciles the folders in doubt, and from time to time those without a watch.
void WatchedTree::settle() {
    // One folder may bring doubt on another. Two that cannot both be right (one directory mounted in two places) are
    // left for later.
    for (int pass = 0; pass < settlePasses && !m_doubtful.empty(); ++pass) {
        const std::vector<Folder*> doubtful(m_doubtful.begin(), m_doubtful.end());
        m_unwatched.insert(doubtful.begin(), doubtful.end());
        m_doubtful.clear();
        reconcileUnwatched(doubtful);
    }
    m_unwatched.insert(m_doubtful.begin(), m_doubtful.end());
    m_doubtful.clear();

    const int64_t now = platform::monotonicNanoseconds();
    if (m_unwatched.empty() || now < m_nextLook) return;
    int watch = -1;
    if (m_watch.add(m_topPath, true, watch) != 0 || watch != m_top.watch) {
        m_gone = true;
        return;
    }
    reconcileUnwatched(std::vector<Folder*>(m_unwatched.begin(), m_unwatched.end()));
    const int64_t end = platform::monotonicNanoseconds();
    m_nextLook = end + std::max(lookPauseNanoseconds, lookPauseFactor * (end - now));
}

/// Reconciles those of the folders that still exist when their turn comes, and still need it.
void WatchedTree::reconcileUnwatched(const std::vector<Folder*>& folders) {
    for (Folder* const folder : folders) {
        if (!m_stopping && m_unwatched.contains(folder)) (void)reconcile(*folder, false);
    }
}

int WatchedTree::open() {
    if (const int error = m_watch.open(); error != 0) return error;
    if (const int error = reconcile(m_top, false); error != 0) return error;
    m_nextLook = platform::monotonicNanoseconds() + lookPauseNanoseconds;
    m_reporting = true;
    return 0;
}

uint32_t WatchedTree::patience() const {
    return m_unwatched.empty() ? platform::forever : platform::millisecondsUntil(m_nextLook);
}

// Records -------------------------------------------------------------------------------------------------------------

bool WatchedTree::follow() {
    m_records.clear();
    (void)m_watch.read(m_records);
    for (size_t at = 0; at < m_records.size() && !m_gone && !m_stopping; ++at) apply(at);
    if (!m_gone && !m_stopping) settle();
    return !m_gone;
}

void WatchedTree::apply(size_t at) {
    const Record& record = m_records[at];
    if ((record.what & Record::overflow) != 0) (void)reconcile(m_top, true);
    const auto found = m_byWatch.find(record.watch);
    if (record.what == 0 || found == m_byWatch.end()) return;
    Folder& folder = *found->second;
    if (record.name.empty()) {
        applyToFolder(folder, record);
    } else if ((record.what & Record::created) != 0) {
        appear(folder, record.name, record.directory, false);
    } else if ((record.what & Record::removed) != 0) {
        removeEntry(folder, record.name);
    } else if ((record.what & Record::movedTo) != 0) {
        appear(folder, record.name, record.directory, true);
    } else if ((record.what & Record::movedFrom) == 0) {
        change(folder, record);
    } else {
        Record* const partner = partnerOf(at);
        if (partner != nullptr) partner->what = 0;
        const auto target = partner == nullptr ? m_byWatch.end() : m_byWatch.find(partner->watch);
        if (target != m_byWatch.end()) {
            move(folder, record.name, *target->second, partner->name, record.directory);
        } else {
            removeEntry(folder, record.name);
            doubtName(folder, record.name);
        }
    }
}

void WatchedTree::applyToFolder(Folder& folder, const Record& record) {
    const bool moved = (record.what & Record::selfMoved) != 0, gone = (record.what & Record::watchGone) != 0;
    if (&folder == &m_top) {
        m_gone = m_gone || moved || gone;
    } else if (gone) {
        m_byWatch.erase(folder.watch);
        folder.watch = -1;
        m_doubtful.insert(&folder);
    } else if (moved) {
        verify(folder);
    }
}

/// An entry was created, or came from outside the tree.
void WatchedTree::appear(Folder& folder, const std::string& name, bool directory, bool arrived) {
    Status status;
    if (platform::linkStatus(diskPath(folder, name).c_str(), status) != 0 || status.directory != directory) {
        status = Status{};  // Gone again, or the path is out of date: later records tell.
        status.directory = directory;
    }
    if (directory ? folder.files.contains(name) : folder.folders.contains(name)) removeEntry(folder, name);
    Folder* const child = folderIn(folder, name);
    const auto file = folder.files.find(name);
    if (child == nullptr && file == folder.files.end()) {
        addEntry(folder, name, status);
    } else if (child != nullptr && arrived) {
        (void)reconcile(*child, false);
    } else if (arrived) {
        note(folder, name, file->second, status, {.written = true});
    }
}

void WatchedTree::change(Folder& folder, const Record& record) {
    const TreeChange change{.written = (record.what & Record::written) != 0,
                            .attributes = (record.what & Record::attributes) != 0};
    Status status;
    const bool found = platform::linkStatus(diskPath(folder, record.name).c_str(), status) == 0;
    if (Folder* const child = folderIn(folder, record.name); child != nullptr && record.directory) {
        if (found) child->readOnly = status.readOnly;
        if (any(change)) m_listener.changed(relativePath(*child), change);
        return;
    }
    const auto file = folder.files.find(record.name);
    if (file == folder.files.end() || record.directory) return;
    if (found && !status.directory) {
        note(folder, record.name, file->second, status, change);
    } else if (any(change)) {
        m_listener.changed(relativePath(folder, record.name), change);
    }
}

/// The other half of the rename whose old name stands at `at`; null when it does not come.
WatchedTree::Record* WatchedTree::partnerOf(size_t at) {
    const uint32_t cookie = m_records[at].cookie;
    const int64_t deadline = m_records[at].readAt + partnerNanoseconds;
    for (size_t next = at + 1; next <= at + partnerDistance;) {
        if (next < m_records.size()) {
            Record& record = m_records[next++];
            if ((record.what & Record::movedTo) != 0 && record.cookie == cookie) return &record;
        } else if (!m_watch.read(m_records)) {
            const platform::WaitHandle handle = m_watch.handle();
            const uint32_t left = platform::millisecondsUntil(deadline);
            if (left == 0 || platform::waitForAny(&handle, 1, left) != 0) return nullptr;
        }
    }
    return nullptr;
}

void WatchedTree::move(Folder& from, const std::string& oldName, Folder& to, const std::string& newName,
                       bool directory) {
    if (&from == &to && oldName == newName) return;
    const Folder* const moved = folderIn(from, oldName);
    const Folder* const target = folderIn(to, newName);
    if ((moved != nullptr && isInside(&to, moved)) || (target != nullptr && isInside(&from, target))) {
        (void)reconcile(m_top, true);  // No tree allows that: what is known of this one is out of date.
        return;
    }
    const bool known = directory ? moved != nullptr : from.files.contains(oldName);
    if (!known) {
        removeEntry(from, oldName);
        appear(to, newName, directory, true);
    } else if (directory) {
        moveFolder(from, oldName, to, newName);
    } else {
        moveFile(from, oldName, to, newName);
    }
    // Two names that were exchanged are two renames, of which the second undoes the first by what is known here. Others
    // may come between them, or a half without its partner: so every name that moved away is looked at.
    doubtName(from, oldName);
}

/// After a name has moved away: when two names are exchanged, something else stands under it, and no record of its own
/// comes behind to tell.
void WatchedTree::doubtName(Folder& folder, const std::string& name) {
    Status status;
    if (platform::linkStatus(diskPath(folder, name).c_str(), status) == 0) {
        m_doubtful.insert(&folder);
    } else {
        verify(folder);
    }
}

void WatchedTree::moveFile(Folder& from, const std::string& oldName, Folder& to, const std::string& newName) {
    if (Folder* const target = folderIn(to, newName)) forget(*target);
    const Info info = from.files[oldName];
    from.files.erase(oldName);
    to.files[newName] = info;
    m_listener.renamed(relativePath(from, oldName), relativePath(to, newName));
}

void WatchedTree::moveFolder(Folder& from, const std::string& oldName, Folder& to, const std::string& newName) {
    removeEntry(to, newName);
    const std::string oldPath = relativePath(from, oldName);
    auto node = from.folders.extract(oldName);
    Folder& moved = *node.mapped();
    node.key() = newName;
    moved.name = newName;
    moved.parent = &to;
    to.folders.insert(std::move(node));
    for (Folder* const folder : m_unwatched) {
        if (isInside(folder, &moved)) m_doubtful.insert(folder);
    }
    m_listener.renamed(oldPath, relativePath(to, newName));
}

}  // namespace qv::Private
