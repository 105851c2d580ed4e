#include "qv/shared_memory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/string.h"
#include "support.h"

namespace {

using namespace qv::test;
using qv::CSharedMemory, qv::CString;

constexpr size_t megabyte = 1 << 20;

/// A name that no other run uses.
CString uniqueName(const char16_t* what) {
    return CString::FromFormat(u"test %d ", static_cast<int>(getpid())) + CString(what);
}

/// The file behind uniqueName().
std::string fileOf(const std::string& what) {
    return "/dev/shm/qv." + std::to_string(geteuid()) + ".test%0020" + std::to_string(getpid()) + "%0020" + what;
}

bool exists(const std::string& what) { return access(fileOf(what).c_str(), F_OK) == 0; }

/// A child process that runs `run` up to its end, or up to its killing. Its 0 says that all was well.
class Child {
public:
    template <class Run>
    explicit Child(Run run) : m_id(fork()) {
        if (m_id == 0) _exit(run() ? 0 : 1);
    }
    ~Child() {
        if (m_id > 0) kill();
    }
    bool succeeded() { return end() == 0; }
    void kill() {
        ::kill(m_id, SIGKILL);
        end();
    }

private:
    int end() {
        int status = -1;
        waitpid(m_id, &status, 0);
        m_id = -1;
        return status;
    }
    pid_t m_id;
};

/// Lets one process wait for another.
class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe(m_ends), 0); }
    ~Pipe() { close(m_ends[0]), close(m_ends[1]); }
    bool tell() const { return write(m_ends[1], "x", 1) == 1; }
    bool hear() const {
        char byte = 0;
        return read(m_ends[0], &byte, 1) == 1;
    }

private:
    int m_ends[2];
};

unsigned char* bytesOf(const CSharedMemory& memory) { return static_cast<unsigned char*>(memory.data()); }
bool isZero(const CSharedMemory& memory) {
    return std::all_of(bytesOf(memory), bytesOf(memory) + memory.GetSize(), [](unsigned char b) { return b == 0; });
}

TEST(SharedMemory, TwoProcessesCountUnderItsLock) {
    const CString name = uniqueName(u"count");
    const auto count = [&name] {
        CSharedMemory memory;
        if (!memory.Create(name.c_str(), megabyte)) return false;
        auto* const counter = static_cast<volatile int*>(memory.data());
        for (int i = 0; i < 20000; ++i) {
            const std::lock_guard hold(memory);
            *counter = *counter + 1;
        }
        return true;
    };
    CSharedMemory memory;
    ASSERT_TRUE(memory.Create(name.c_str(), megabyte));
    EXPECT_TRUE(memory.WasCreated());
    EXPECT_EQ(memory.GetSize(), megabyte);
    EXPECT_TRUE(isZero(memory));
    Child one(count), two(count);
    EXPECT_TRUE(one.succeeded() && two.succeeded());
    EXPECT_EQ(*static_cast<int*>(memory.data()), 40000);
}

TEST(SharedMemory, LastsUntilTheLastObjectIsClosed) {
    const ptrdiff_t before = openDescriptors();
    const CString name = uniqueName(u"life");
    CSharedMemory first, second, third;
    EXPECT_FALSE(first.Open(name.c_str()));
    ASSERT_TRUE(first.Create(name.c_str(), 100));
    ASSERT_TRUE(second.Create(name.c_str(), 7));
    EXPECT_FALSE(second.WasCreated());
    EXPECT_EQ(second.GetSize(), 100u);
    EXPECT_FALSE(third.Create(name.c_str(), 101));
    bytesOf(first)[99] = 5;
    first.Close();
    ASSERT_TRUE(third.Open(name.c_str()));
    EXPECT_EQ(bytesOf(third)[99], 5);
    second.Close();
    EXPECT_TRUE(Child([&] {
                    second.Close();
                    third.Close();  // a child's copies are not users of the name
                    return true;
                }).succeeded());
    EXPECT_TRUE(exists("life"));
    third.Close();
    EXPECT_FALSE(exists("life"));
    ASSERT_TRUE(second.Create(name.c_str(), 100));
    EXPECT_TRUE(second.WasCreated() && isZero(second));
    second.Close();
    EXPECT_EQ(openDescriptors(), before);
}

TEST(SharedMemory, AKilledHolderLeavesALockThatSaysSo) {
    const CString name = uniqueName(u"kill");
    for (const uint32_t limit : {0u, generous, qv::waitForever}) {
        const Pipe locked;
        CSharedMemory memory;
        ASSERT_TRUE(memory.Create(name.c_str(), 8));
        EXPECT_TRUE(memory.WasCreated());
        Child holder([&] {
            CSharedMemory mine;
            return mine.Open(name.c_str()) && mine.Lock() && locked.tell() && pause() == 0;
        });
        ASSERT_TRUE(locked.hear());
        EXPECT_FALSE(memory.TryLock() || memory.Lock(2));
        std::thread killer([&] { holder.kill(); });
        if (limit == 0) killer.join();
        ASSERT_TRUE(memory.Lock(limit));
        EXPECT_TRUE(memory.WasAbandoned());
        EXPECT_TRUE(memory.Unlock() && memory.Lock());
        EXPECT_FALSE(memory.WasAbandoned());
        if (limit != 0) killer.join();
    }
}

// Killed at any point of opening, filling and closing.
TEST(SharedMemory, WhatAKilledProcessLeftIsNotInTheWay) {
    const CString name = uniqueName(u"left");
    for (int i = 0; i < 60; ++i) {
        const Pipe running;
        Child owner([&] {
            for (bool told = false;; told = told || running.tell()) {
                CSharedMemory mine;
                if (!mine.Create(name.c_str(), 50000)) return false;
                std::memset(mine.data(), 0xEE, 50000);
            }
        });
        ASSERT_TRUE(running.hear());
        std::this_thread::sleep_for(std::chrono::microseconds(i * 7));
        owner.kill();
        CSharedMemory memory;
        EXPECT_FALSE(i % 2 == 0 && memory.Open(name.c_str()));
        EXPECT_TRUE(i % 2 != 0 || !exists("left"));
        ASSERT_TRUE(memory.Create(name.c_str(), 60000));
        EXPECT_TRUE(memory.WasCreated() && isZero(memory) && memory.TryLock());
        EXPECT_TRUE(memory.GetSize() == 60000 && !memory.WasAbandoned());
    }
}

// Processes that open and close the same name all the time: whoever has it open sees what the others see, and whoever
// makes it finds zeros.
TEST(SharedMemory, OpeningAndClosingRace) {
    const CString name = uniqueName(u"race");
    const auto work = [&name] {
        for (int i = 0; i < 1000; ++i) {
            CSharedMemory memory;
            if (!memory.Create(name.c_str(), 8)) return false;
            memory.Close();
            if (!memory.Create(name.c_str(), 8)) return false;
            const std::lock_guard hold(memory);
            auto* const users = static_cast<int*>(memory.data());
            if (memory.WasAbandoned() || users[0] != users[1]) return false;
            ++users[0];
            ++users[1];
            CSharedMemory again;
            if (!again.Open(name.c_str()) || static_cast<int*>(again.data())[0] != users[0]) return false;
        }
        return true;
    };
    Child a(work), b(work), c(work);
    EXPECT_TRUE(a.succeeded());
    EXPECT_TRUE(b.succeeded());
    EXPECT_TRUE(c.succeeded());
    EXPECT_FALSE(exists("race"));
}

TEST(SharedMemory, LockIsOneThreadsAndOneObjects) {
    const CString name = uniqueName(u"lock");
    CSharedMemory memory, other;
    EXPECT_FALSE(memory.Lock() || memory.Unlock());
    ASSERT_TRUE(memory.Create(name.c_str(), 8) && other.Open(name.c_str()));
    EXPECT_TRUE(memory.Lock() && memory.TryLock() && memory.Unlock());
    for (const uint32_t limit : {0u, 5u, qv::waitForever}) EXPECT_FALSE(other.Lock(limit));
    EXPECT_FALSE(elsewhere([&] { return memory.Lock(2) || memory.Unlock(); }));
    memory.Close();  // gives the lock back
    EXPECT_TRUE(elsewhere([&] { return other.Lock(generous) && !other.WasAbandoned() && other.Unlock(); }));
    elsewhere([&] { return other.Lock(); });  // a thread that ends with it
    EXPECT_TRUE(other.Lock(generous) && other.WasAbandoned() && other.Unlock());
}

TEST(SharedMemory, AnyNameIsItsOwn) {
    const std::u16string longOne = std::u16string(5000, u'x') + u'1', otherLongOne = std::u16string(5000, u'x') + u'2';
    const std::vector<std::u16string> names = {u"a/b",
                                               u"a%002fb",
                                               u"a\\b",
                                               u"A/B",
                                               u"..",
                                               u".",
                                               u"/",
                                               u"\xE4",
                                               u"a b\n",
                                               u"\xD800",
                                               longOne,
                                               otherLongOne,
                                               std::u16string(200, u'/')};
    std::vector<CSharedMemory> memories(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        const CString name = uniqueName(names[i].c_str());
        ASSERT_TRUE(memories[i].Create(name.c_str(), i + 1)) << i;
        EXPECT_TRUE(memories[i].WasCreated()) << i;
    }
    for (size_t i = 0; i < names.size(); ++i) {
        CSharedMemory again;
        ASSERT_TRUE(again.Open(uniqueName(names[i].c_str()).c_str())) << i;
        EXPECT_EQ(again.GetSize(), i + 1);
    }
}

TEST(SharedMemory, RefusesWhatCannotBe) {
    const CString name = uniqueName(u"refused");
    CSharedMemory memory;
    const struct {
        const char16_t* name;
        size_t bytes;
    } cases[] = {
        {nullptr, 8}, {u"", 8}, {name.c_str(), 0}, {name.c_str(), ~size_t{0}}, {name.c_str(), size_t{1} << 60}};
    for (const auto& each : cases) {
        qv::ClearDiagnostic();
        EXPECT_FALSE(memory.Create(each.name, each.bytes));
        EXPECT_TRUE(qv::LastDiagnostic().IsSet() && !memory.IsOpen() && memory.data() == nullptr);
    }
    EXPECT_FALSE(exists("refused"));
}

// Files at the place of a name that no CSharedMemory made, with and without a process that claims them.
TEST(SharedMemory, RefusesForeignContent) {
    const CString name = uniqueName(u"foreign");
    const std::string path = fileOf("foreign"), magic("QVSHMEM\0", 8);
    const auto header = [&](uint32_t version, uint64_t bytes, size_t written = 4196) {
        const uint32_t numbers[] = {version, sizeof(pthread_mutex_t), static_cast<uint32_t>(bytes),
                                    static_cast<uint32_t>(bytes >> 32)};
        std::string text = magic + std::string(reinterpret_cast<const char*>(numbers), sizeof numbers);
        text.resize(written, '\0');
        return text;
    };
    const struct {
        std::string content;
        off_t size;  ///< Behind the content is a hole.
        bool claimed;
    } cases[] = {{"not shared memory", 17, false},
                 {"not shared memory", 17, true},
                 {"", 0, true},
                 {magic, 8, true},
                 {header(1, 100, 24), 24, true},
                 {header(1, 0, 24), 4096, true},
                 {header(2, 100), 4196, true},
                 {header(1, 101), 4196, true},
                 {header(1, ~uint64_t{0}), 4196, true},
                 {header(1, megabyte, 24), 4096 + megabyte, true}};
    for (size_t i = 0; i < std::size(cases); ++i) {
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const std::string& content = cases[i].content;
        ASSERT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        ASSERT_EQ(ftruncate(fd, cases[i].size), 0);
        struct flock claim {};
        claim.l_type = F_RDLCK;
        claim.l_start = 1;
        claim.l_len = 1;
        ASSERT_TRUE(!cases[i].claimed || fcntl(fd, F_OFD_SETLK, &claim) == 0);
        for (const bool create : {false, true}) {
            CSharedMemory memory;
            qv::ClearDiagnostic();
            EXPECT_FALSE(create ? memory.Create(name.c_str(), 8) : memory.Open(name.c_str())) << i;
            EXPECT_TRUE(qv::LastDiagnostic().IsSet()) << i;
        }
        struct stat info {};
        EXPECT_TRUE(fstat(fd, &info) == 0 && info.st_nlink == 1 && info.st_size == cases[i].size) << i;  // as it was
        close(fd);
        unlink(path.c_str());
    }
}

}  // namespace
