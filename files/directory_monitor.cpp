#include "qv/directory_monitor.h"

#include <atomic>
#include <string>

#include "core/text.h"
#include "files/native_path.h"
#include "files/watched_tree.h"
#include "platform/directory.h"
#include "platform/file.h"
#include "platform/message_queue.h"
#include "platform/thread.h"
#include "platform/wait.h"
#include "qv/diagnostic.h"

using namespace qv;

namespace {

/// What the events are filtered by.
enum : uint32_t { filterNames = 0x3, filterAttributes = 0x4, filterSize = 0x8, filterLastWrite = 0x10 };

uint32_t filterOf(uint32_t flags) {
    uint32_t filter = 0;
    if ((flags & CWin32DirectoryMonitor::nameAndWrite) != 0) filter |= filterNames | filterLastWrite;
    if ((flags & CWin32DirectoryMonitor::attributes) != 0) filter |= filterAttributes;
    if ((flags & CWin32DirectoryMonitor::size) != 0) filter |= filterSize;
    return filter;
}

/// A path that stays right when the process changes its directory.
std::string fixedPath(const CString& directory) {
    std::string path = Private::nativePath(directory.c_str());
    std::string current;
    if (path.starts_with('/') || platform::currentDirectory(current) != 0) return path;
    return current + '/' + path;
}

std::u16string reportedName(const std::string& path) {
    constexpr size_t longestName = 260;
    std::u16string name = text::toUtf16(path);
    if (name.size() > longestName) name.clear();
    return name;
}

}  // namespace

/// One run from Start to its end.
struct CWin32DirectoryMonitor::Watching final : Private::TreeListener {
    Watching(CWin32DirectoryMonitor& owner, const std::string& path)
        : monitor(owner), filter(filterOf(owner.m_flags)), tree(path, *this, stopping) {}
    ~Watching() {
        platform::releaseThread(thread);
        platform::closeHandle(stopSignal);
    }

    /// On the thread of its own.
    static void run(void* watching) noexcept {
        auto* const self = static_cast<Watching*>(watching);
        try {
            self->follow();
        } catch (...) {
            SetDiagnostic(self->monitor.m_directory, u"handlers that do not throw, and memory", u"an exception");
        }
    }
    void follow() {
        const platform::WaitHandle handles[] = {stopSignal, tree.handle()};
        while (!stopping) {
            const int ready = platform::waitForAny(handles, 2, tree.patience());
            if (ready == platform::waitFailed || (!stopping && !tree.follow())) return;
        }
    }
    void requestStop() {
        stopping = true;
        platform::raiseSignal(stopSignal);
    }
    bool hasEnded() const { return platform::waitForThread(thread, 0); }
    /// The thread goes on only when the caller returns.
    bool waitsForCaller() const {
        const uint32_t id = platform::threadId(thread);
        return id == platform::currentThreadId() || platform::messages::servesCallOf(id);
    }

    void* sender() const { return static_cast<IDirectoryMonitor*>(&monitor); }
    bool wants(uint32_t bits) const { return (filter & bits) != 0 && !stopping; }

    void added(const std::string& path) override {
        if (wants(filterNames)) monitor.FileAdded.Fire(sender(), reportedName(path).c_str());
    }
    void removed(const std::string& path) override {
        if (wants(filterNames)) monitor.FileRemoved.Fire(sender(), reportedName(path).c_str());
    }
    void changed(const std::string& path, Private::TreeChange change) override {
        const uint32_t bits = (change.written ? filterLastWrite : 0u) | (change.attributes ? filterAttributes : 0u) |
                              (change.size ? filterSize : 0u);
        if (wants(bits)) monitor.FileModified.Fire(sender(), reportedName(path).c_str());
    }
    void renamed(const std::string& from, const std::string& to) override {
        if (!wants(filterNames)) return;
        monitor.FileRenamed.Fire(sender(), reportedName(from).c_str(), reportedName(to).c_str());
    }

    CWin32DirectoryMonitor& monitor;
    const uint32_t filter;
    std::atomic<bool> stopping{false};
    platform::WaitHandle stopSignal = platform::noHandle;
    platform::Thread* thread = nullptr;
    Private::WatchedTree tree;
};

CWin32DirectoryMonitor::CWin32DirectoryMonitor(const char16_t* directory, uint32_t flags)
    : m_directory(directory), m_flags(flags) {}

CWin32DirectoryMonitor::~CWin32DirectoryMonitor() { Stop(); }

bool CWin32DirectoryMonitor::Start() try {
    {
        const std::lock_guard lock(m_mutex);
        const bool running = m_watching && !m_watching->hasEnded();
        if (running && !m_watching->stopping) return true;
        if (running && m_watching->waitsForCaller()) {
            SetDiagnostic(m_directory, u"a monitor that has stopped", u"one that waits for its handler to return");
            return false;
        }
    }
    Stop();
    const auto watching = std::make_shared<Watching>(*this, fixedPath(m_directory));
    if (!Private::succeeded(watching->tree.open(), m_directory.c_str(), u"a directory that can be watched"))
        return false;
    (void)Private::succeeded(watching->tree.gapError(), m_directory.c_str(), u"a watch on every folder below");

    const std::lock_guard lock(m_mutex);
    if (m_watching) return true;  // Another thread was faster.
    watching->stopSignal = platform::createSignal(0, false);
    if (watching->stopSignal != platform::noHandle) {
        watching->thread = platform::startThread(&Watching::run, watching.get());
    }
    if (watching->thread == nullptr) {
        SetDiagnostic(m_directory, u"a thread to watch it", u"none that the system would start");
        return true;  // The interface looks no further than the directory.
    }
    m_watching = watching;
    return true;
} catch (const std::bad_alloc&) {
    SetDiagnostic(m_directory, u"memory for the names of a directory tree", u"too little");
    return false;
}

void CWin32DirectoryMonitor::Stop() {
    std::shared_ptr<Watching> watching;
    {
        const std::lock_guard lock(m_mutex);
        watching = m_watching;
    }
    if (!watching) return;
    watching->requestStop();
    if (watching->waitsForCaller()) return;
    (void)platform::messages::waitServing(platform::threadEnded(watching->thread), platform::forever);
    const std::lock_guard lock(m_mutex);
    if (m_watching == watching) m_watching = nullptr;
}
