#include "qv/directory_monitor.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "qv/diagnostic.h"
#include "qv/invoker.h"
#include "support.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;
using Monitor = TSharedPtr<IFileSystem::IDirectoryMonitor>;

/// Collects events as text, and the names that follow from the events alone.
class Journal {
public:
    explicit Journal(IFileSystem::IDirectoryMonitor& monitor) : m_monitor(monitor) {
        monitor.FileAdded.AddHandler([this](void*, const char16_t* name) { add('+', name, u""); });
        monitor.FileRemoved.AddHandler([this](void*, const char16_t* name) { add('-', name, u""); });
        monitor.FileModified.AddHandler([this](void*, const char16_t* name) { add('*', name, u""); });
        monitor.FileRenamed.AddHandler([this](void*, const char16_t* from, const char16_t* to) { add('>', from, to); });
    }

    ~Journal() { m_monitor.Stop(); }

    /// False when that does not come true in a minute.
    bool until(const std::function<bool()>& condition) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::minutes(1), condition);
    }
    bool untilNames(const Names& names) {
        return until([&] { return m_names == names; });
    }
    bool untilEvent(const std::string& event) {
        return until([&] { return (m_events + " ").find(" " + event + " ") != std::string::npos; });
    }
    /// The events in front of `last`, which is waited for. Takes all of them.
    std::string upTo(const std::string& last) {
        EXPECT_TRUE(untilEvent(last)) << last << " is missing behind" << m_events;
        const std::lock_guard lock(m_mutex);
        const std::string events = std::exchange(m_events, {});
        return events.substr(0, (events + " ").find(" " + last + " "));
    }
    bool hasEvents() const { return !m_events.empty(); }
    void start(const Names& names) { m_names = names; }
    /// Names that were added twice, or removed or renamed without being there.
    std::string mistakes() {
        const std::lock_guard lock(m_mutex);
        return m_mistakes;
    }

private:
    void add(char kind, const char16_t* name, const char16_t* second) {
        const std::lock_guard lock(m_mutex);
        const std::string a = CStringMB(name).c_str(), b = CStringMB(second).c_str();
        std::string event(1, kind);
        event += a;
        if (kind == '>') event.append(">").append(b);
        const bool mistaken = kind == '+'   ? !m_names.insert(a).second
                              : kind == '-' ? m_names.erase(a) != 1
                                            : m_names.contains(a) == false;
        if (mistaken) m_mistakes += " " + event;
        if (kind == '>') rename(a, b);
        if (event != m_last) m_events += " " + event;  // How many writes become one event is the system's affair.
        m_last = event;
        m_changed.notify_all();
    }
    void rename(const std::string& from, const std::string& to) {
        Names renamed;
        for (const std::string& name : m_names) {
            const bool moves = name == from || name.starts_with(from + "/");
            renamed.insert(moves ? to + name.substr(from.size()) : name);
        }
        m_names = renamed;
    }

    IFileSystem::IDirectoryMonitor& m_monitor;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_events, m_last, m_mistakes;
    Names m_names;
};

Names onDisk(const fs::path& top) {
    Names names;
    for (const auto& entry : fs::recursive_directory_iterator(top)) names.insert(entry.path().lexically_relative(top));
    return names;
}

void write(const fs::path& path, const std::string& text, std::ios::openmode mode = std::ios::out) {
    std::ofstream(path, mode) << text;
}

class DirectoryMonitor : public testing::Test {
protected:
    DirectoryMonitor() { fs::create_directories(top), fs::create_directories(outside); }
    Monitor monitorOf(uint32_t flags) const {
        return fileSystem().MonitorDirectory(folder.path(u"top").c_str(), flags);
    }

    const TempFolder folder;
    const fs::path top = folder.native(u"top"), outside = folder.native(u"outside");
};

TEST_F(DirectoryMonitor, TellsWhatBecomesOfNames) {
    fs::create_directories(top / "old/deep");
    write(top / "old/deep/f", "1");
    const Monitor monitor = monitorOf(1);
    Journal journal(*monitor);
    journal.start(onDisk(top));
    ASSERT_TRUE(monitor->Start());
    EXPECT_TRUE(monitor->Start());
    struct Row {
        std::function<void()> act;
        const char* events;
    };
    const Row rows[] = {
        {[&] { write(top / "a", "x"); }, " +a *a"},
        {[&] { fs::rename(top / "a", top / "old/b"); }, " >a>old/b"},
        {[&] { fs::rename(top / "old", top / "new"); }, " >old>new"},
        {[&] { write(top / "new/deep/f", "22"); }, " *new/deep/f"},
        {[&] { fs::rename(top / "new", outside / "n"); }, " -new/b -new/deep/f -new/deep -new"},
        {[&] { write(outside / "n/unseen", ""), fs::remove(outside / "n/unseen"); }, ""},
        {[&] { fs::rename(outside / "n", top / "n"); }, " +n +n/b +n/deep +n/deep/f"},
        {[&] { write(top / "b.tmp", "3"), fs::rename(top / "b.tmp", top / "n/b"); }, " +b.tmp *b.tmp >b.tmp>n/b"},
        {[&] { write(outside / "b", "4"), fs::rename(outside / "b", top / "n/b"); }, " *n/b"},
        {[&] { fs::create_directory_symlink(outside, top / "link"); }, " +link"},
        {[&] { write(top / "link/unseen", "5"); }, ""},
        {[&] { fs::remove(top / "link"), fs::remove(top / "n/deep/f"); }, " -link -n/deep/f"},
        {[&] { fs::create_directory(top / "e"), fs::rename(top / "n/deep", top / "e"); }, " +e -e >n/deep>e"},
    };
    for (const Row& row : rows) {
        row.act();
        fs::create_directory(top / "mark");
        fs::remove(top / "mark");
        EXPECT_EQ(journal.upTo("-mark"), row.events + std::string(" +mark"));
        EXPECT_TRUE(journal.untilNames(onDisk(top)));
    }
    EXPECT_EQ(journal.mistakes(), "");
}

TEST_F(DirectoryMonitor, FlagsDecideWhatIsReported) {
    struct Row {
        std::function<void()> act;
        Names flags;  ///< Those under which the act is seen.
    };
    const fs::path f = top / "f";
    const Row rows[] = {
        {[&] { write(f, "ab", std::ios::in | std::ios::out); }, {"1"}},
        {[&] { write(f, "cd", std::ios::app); }, {"1", "2"}},
        {[&] { fs::permissions(f, fs::perms::owner_read); }, {"4"}},
        {[&] { fs::last_write_time(f, {}); }, {"1"}},
        {[&] { write(top / "g", ""); }, {"1"}},
        {[&] { fs::rename(top / "g", top / "h"); }, {"1"}},
        {[&] { fs::remove(top / "h"); }, {"1"}},
    };
    write(f, "..");
    for (char i = '0'; i < '7'; ++i) write(top / (std::string("mark") + i), "");
    const Monitor nothing = monitorOf(0);
    Journal empty(*nothing);
    ASSERT_TRUE(nothing->Start());
    for (const uint32_t flags : {1u, 2u, 4u, 7u}) {
        const Monitor monitor = monitorOf(flags);
        Journal journal(*monitor);
        ASSERT_TRUE(monitor->Start());
        for (const Row& row : rows) {
            row.act();
            const fs::path mark = "mark" + std::to_string(&row - rows);
            write(top / mark, ".", std::ios::app);
            fs::permissions(top / mark, fs::perms::owner_all);
            std::string change("*");
            change += mark.string();
            const std::string events = journal.upTo(change);
            const bool seen = events.find_first_of("fgh") != std::string::npos;
            EXPECT_EQ(seen, flags == 7 || row.flags.contains(std::to_string(flags))) << mark << ", flags " << flags;
        }
        fs::permissions(f, fs::perms::owner_all);
    }
    nothing->Stop();
    EXPECT_FALSE(empty.hasEvents());
}

/// Changes a tree at random, also by moves to another one and back.
void disturb(const fs::path& top, const fs::path& outside, unsigned seed, int operations) {
    std::mt19937 random(seed);
    const auto pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const auto name = [&](char kind) { return std::string{kind, static_cast<char>('0' + pick(3))}; };
    const auto somewhere = [&] {
        fs::path path = pick(8) == 0 ? outside : top;
        for (unsigned depth = pick(4); depth > 0; --depth) path /= name('d');
        return path / name(pick(2) == 0 ? 'd' : 'f');
    };
    std::error_code error;
    for (int i = 0; i < operations; ++i) {
        const fs::path a = somewhere(), b = somewhere();
        switch (pick(8)) {
            case 0: fs::remove_all(a, error); break;
            case 1:
            case 2: fs::create_directories(a, error); break;
            case 3:
            case 4: write(a, std::string(pick(50), 'x')); break;
            case 5: (void)renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE); break;
            default: fs::rename(a, b, error);
        }
    }
}

TEST_F(DirectoryMonitor, TheEventsOfAnyChangesGiveTheTree) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        disturb(top, outside, seed, 50);
        const Monitor monitor = monitorOf(1);
        Journal journal(*monitor);
        journal.start(onDisk(top));
        ASSERT_TRUE(monitor->Start());
        for (unsigned round = 0; round < 3; ++round) {
            std::thread other([&] { disturb(top, outside, seed + 1000 + round, 200); });
            disturb(top, outside, seed + 2000 + round, 200);
            other.join();
            ASSERT_TRUE(journal.untilNames(onDisk(top))) << "seed " << seed;
        }
        EXPECT_EQ(journal.mistakes(), "") << "seed " << seed;
    }
}

TEST_F(DirectoryMonitor, AnOverflowOfTheQueueLosesNothing) {
    size_t queued = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queued;
    if (queued > 100'000) GTEST_SKIP() << "a queue of " << queued << " events";
    fs::create_directories(top / "before/below");
    write(top / "before/below/f", "1");
    write(top / "kept", "1");
    const Monitor monitor = monitorOf(1);
    std::mutex held;
    monitor->FileAdded.AddHandler([&](void*, const char16_t*) { const std::lock_guard lock(held); });
    Journal journal(*monitor);
    journal.start(onDisk(top));
    ASSERT_TRUE(monitor->Start());
    {
        const std::lock_guard lock(held);
        fs::create_directory(top / "many");
        for (size_t i = 0; i < queued + 3000; ++i) fs::create_symlink("x", top / "many" / std::to_string(i));
        fs::rename(top / "before", top / "after");
        fs::create_directory(top / "before");
        write(top / "kept", "22");
        fs::remove(top / "many/7");
    }
    EXPECT_TRUE(journal.untilNames(onDisk(top)));
    EXPECT_TRUE(journal.untilEvent("*kept"));
    write(top / "after/below/f", "2");
    EXPECT_TRUE(journal.untilEvent("*after/below/f"));
    write(top / "before/g", "3");
    EXPECT_TRUE(journal.untilEvent("*before/g"));
    EXPECT_EQ(journal.mistakes(), "");
}

TEST_F(DirectoryMonitor, LooksAtAFolderThatCannotBeWatched) {
    fs::create_directory(top / "locked");
    for (const char16_t* path : {u"", u"/top"}) fs::permissions((folder.path() + path).GetUTF8(), fs::perms(0755));
    fs::permissions(top / "locked", fs::perms::none);
    const Monitor monitor = monitorOf(1);
    Journal journal(*monitor);
    const bool root = geteuid() == 0;
    constexpr int nobody = 65534;
    // The bare system call is about the calling thread, and those that it starts.
    if (root) {
        ASSERT_EQ(syscall(SYS_setresuid, -1, nobody, -1), 0);
    }
    ClearDiagnostic();
    const bool started = monitor->Start();
    if (root) {
        ASSERT_EQ(syscall(SYS_setresuid, -1, 0, -1), 0);
    }
    EXPECT_TRUE(started);
    EXPECT_EQ(LastDiagnostic().found, u"Permission denied");
    fs::permissions(top / "locked", fs::perms(0755));
    write(top / "locked/f", "1");
    EXPECT_TRUE(journal.untilEvent("+locked/f"));
    write(top / "locked/f", "22");
    EXPECT_TRUE(journal.untilEvent("*locked/f"));
}

size_t entriesIn(const char* path) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(path), fs::directory_iterator()));
}

TEST_F(DirectoryMonitor, StartsAndStopsLeaveNothingBehind) {
    fs::create_directories(top / "a/b");
    const Monitor monitor = monitorOf(7);
    Journal journal(*monitor);
    size_t handles = 0, threads = 0;
    for (int i = 0; i <= 1000; ++i) {
        ASSERT_TRUE(monitor->Start());
        if (i % 2 == 0) write(top / "a/b/f", "x");
        ASSERT_TRUE(i % 100 != 0 || journal.untilEvent(i == 0 ? "+a/b/f" : "*a/b/f"));
        monitor->Stop();
        if (i == 0) handles = entriesIn("/proc/self/fd"), threads = entriesIn("/proc/self/task");
    }
    EXPECT_EQ(entriesIn("/proc/self/fd"), handles);
    EXPECT_EQ(entriesIn("/proc/self/task"), threads);
    monitor->Stop();
}

TEST_F(DirectoryMonitor, StopWaitsForTheHandlerThatRuns) {
    const Monitor monitor = monitorOf(1);
    std::atomic<bool> entered{false}, released{false}, left{false};
    monitor->FileAdded.AddHandler([&](void*, const char16_t*) {
        entered = true;
        entered.notify_all();
        released.wait(false);
        left = true;
    });
    ASSERT_TRUE(monitor->Start());
    write(top / "a", "");
    write(top / "b", "");
    entered.wait(false);
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // Gives a Stop that does not wait its chance.
        released = true;
        released.notify_all();
    });
    monitor->Stop();
    EXPECT_TRUE(left.exchange(false));
    releaser.join();
    EXPECT_FALSE(left);  // Nothing is fired for b.
}

TEST_F(DirectoryMonitor, AHandlerMayStopIt) {
    for (const bool elsewhere : {false, true}) {
        CMessageQueueInvoker invoker;
        const Monitor monitor = monitorOf(1);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        Journal journal(*monitor);
        const auto stop = [&](void* sender, const char16_t*) {
            EXPECT_EQ(sender, monitor.get());
            monitor->Stop();
            monitor->Stop();
            EXPECT_FALSE(monitor->Start());
            EXPECT_EQ(::write(ends[1], "x", 1), 1);
        };
        auto* const handler = monitor->FileAdded.AddHandler(stop, elsewhere ? &invoker : nullptr);
        ASSERT_TRUE(monitor->Start());
        const std::string name = elsewhere ? "x" : "y";
        write(top / (name + "1"), "1");
        EXPECT_TRUE(CMessageQueueInvoker::SafeWait(ends[0], 60'000));
        monitor->FileAdded.RemoveHandler(handler);
        monitor->Stop();
        write(top / (name + "2"), "2");
        ASSERT_TRUE(monitor->Start());
        write(top / (name + "3"), "3");
        EXPECT_EQ(journal.upTo("+" + name + "3"), " +" + name + "1");
        close(ends[0]), close(ends[1]);
    }
}

TEST_F(DirectoryMonitor, StopServesTheCallsOfItsHandlers) {
    CMessageQueueInvoker invoker;
    const Monitor monitor = monitorOf(1);
    std::atomic<bool> entered{false};
    bool ran = false;
    monitor->FileAdded.AddHandler([&](void*, const char16_t*) { entered = true, entered.notify_all(); });
    const auto stop = [&](void*, const char16_t*) { ran = true, monitor->Stop(); };
    monitor->FileAdded.AddHandler(stop, &invoker);
    ASSERT_TRUE(monitor->Start());
    write(top / "a", "");
    entered.wait(false);
    monitor->Stop();
    EXPECT_TRUE(ran);
}

TEST_F(DirectoryMonitor, EndsWithItsDirectoryAndBeginsAnew) {
    write(top / "file", "");
    EXPECT_FALSE(fileSystem().MonitorDirectory(folder.path(u"top/file").c_str(), 1));
    const Monitor monitor = monitorOf(1);
    Journal journal(*monitor);
    std::thread([] {}).join();  // A sanitizer starts a thread of its own with the first one.
    const size_t threads = entriesIn("/proc/self/task");
    const auto gone = [&](const std::function<void()>& act) {
        ASSERT_TRUE(monitor->Start());
        act();
        while (entriesIn("/proc/self/task") != threads) std::this_thread::yield();
        EXPECT_FALSE(monitor->Start());
        EXPECT_TRUE(LastDiagnostic().IsSet());
    };
    gone([&] { fs::remove_all(top); });
    EXPECT_EQ(journal.upTo("-file"), "");
    fs::create_directory(top);
    gone([&] { fs::rename(top, outside / "top"); });
    fs::create_directory(top);
    ASSERT_TRUE(monitor->Start());
    const std::string longName(250, 'n');
    fs::create_directory(top / longName);
    write(top / longName / "nine.here", "");  // 260 characters, and one more.
    write(top / longName / "nine.here2", "");
    EXPECT_EQ(journal.upTo("+"), " +" + longName + " +" + longName + "/nine.here");
}

}  // namespace
}  // namespace qv::test
