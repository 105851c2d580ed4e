#include "platform/directory_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

#include "platform/posix/retry.h"

namespace qv::platform {

namespace {

constexpr uint32_t wanted = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF |
                            IN_ONLYDIR | IN_EXCL_UNLINK;

constexpr struct {
    uint32_t native, neutral;
} meanings[] = {
    {IN_CREATE, WatchRecord::created},       {IN_DELETE, WatchRecord::removed},
    {IN_MOVED_FROM, WatchRecord::movedFrom}, {IN_MOVED_TO, WatchRecord::movedTo},
    {IN_MODIFY, WatchRecord::written},       {IN_ATTRIB, WatchRecord::attributes},
    {IN_MOVE_SELF, WatchRecord::selfMoved},  {IN_IGNORED, WatchRecord::watchGone},
    {IN_Q_OVERFLOW, WatchRecord::overflow},
};

WatchRecord decoded(const inotify_event& event, const char* name, int64_t now) {
    WatchRecord record;
    record.watch = event.wd;
    for (const auto& meaning : meanings) record.what |= (event.mask & meaning.native) != 0 ? meaning.neutral : 0;
    record.cookie = event.cookie;
    record.directory = (event.mask & IN_ISDIR) != 0;
    if (event.len > 0) record.name.assign(name, strnlen(name, event.len));
    record.readAt = now;
    return record;
}

}  // namespace

DirectoryWatch::~DirectoryWatch() { closeHandle(m_handle); }

int DirectoryWatch::open() {
    if (m_handle != noHandle) return 0;
    m_handle = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    return errorOf(m_handle);
}

int DirectoryWatch::add(const std::string& path, bool followLink, int& watch) {
    const uint32_t mask = wanted | (followLink ? 0 : IN_DONT_FOLLOW);
    const int added = inotify_add_watch(static_cast<int>(m_handle), path.c_str(), mask);
    if (added == -1) return errno;
    watch = added;
    return 0;
}

void DirectoryWatch::remove(int watch) { (void)inotify_rm_watch(static_cast<int>(m_handle), watch); }

bool DirectoryWatch::read(std::deque<WatchRecord>& records) {
    constexpr size_t blockBytes = 16384;
    alignas(inotify_event) char block[blockBytes];
    const ssize_t bytes = retried([&] { return ::read(static_cast<int>(m_handle), block, blockBytes); });
    if (bytes <= 0) return false;
    const int64_t now = monotonicNanoseconds();
    for (const char* at = block; at < block + bytes;) {
        inotify_event event;
        std::memcpy(&event, at, sizeof event);
        records.push_back(decoded(event, at + sizeof event, now));
        at += sizeof event + event.len;
    }
    return true;
}

}  // namespace qv::platform
