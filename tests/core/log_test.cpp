#include "qv/log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "files/support.h"
#include "qv/datetime.h"
#include "qv/diagnostic.h"
#include "qv/stopwatch.h"

namespace qv {
namespace {

using test::readFile;
using test::TempFolder;

/// Opens one file in memory, for shared appending.
class OneFile : public CFileSystem {
public:
    TSharedPtr<IFile> CreateFileW(const char16_t*, uint32_t flags) override {
        EXPECT_EQ(flags, 0x361u);
        return file;
    }
    std::string text() const { return test::textOf(*file); }

    TSharedPtr<CMemFile> file = CMemFile::Create();
};

/// A log whose file lies in memory.
struct MemoryLog : CLog {
    MemoryLog() { EXPECT_TRUE(SetFile(&disk, u"a")); }
    std::string text() const { return disk.text(); }
    OneFile disk;
};

constexpr char maskedStamp[] = "[##-##-#### ##:##:##]: ";

/// With `#` for the digits of each time-stamp.
std::string masked(std::string text) {
    for (size_t at = text.find('['); at != text.npos; at = text.find('[', at + 1)) {
        std::string stamp = text.substr(at, sizeof maskedStamp - 1);
        for (char& c : stamp) c = std::isdigit(static_cast<unsigned char>(c)) ? '#' : c;
        if (stamp == maskedStamp) text.replace(at, stamp.size(), stamp);
    }
    return text;
}

std::string repeated(std::string_view text, int times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

TEST(Log, EveryLineEndIsStoredAsCrLf) {
    const std::string run(700, 'x');
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"a\nb\r\nc\rd", "a\r\nb\r\nc\r\nd"},
        {"\r", "\r\n"},
        {"\n\r", "\r\n\r\n"},
        {"\r\r\n\n", "\r\n\r\n\r\n"},
        {"50 \u00B0C \U0001F600\n", "50 \u00B0C \U0001F600\r\n"},
        {repeated("\n", 3000), repeated("\r\n", 3000)},  // More than the fifth that is reserved.
        {run + "\r" + run + "\r\n" + run, run + "\r\n" + run + "\r\n" + run},
    };
    for (const auto& [text, stored] : rows) {
        MemoryLog log;
        EXPECT_TRUE(log.Write(u"%S", text));
        EXPECT_EQ(log.text(), stored);
    }
}

TEST(Log, FormatsAndStampsWithTheLocalTime) {
    MemoryLog log;
    const auto now = [] { return CDateTime::Now().Format(u"[%m-%D-%Y %H:%M:%S]: "); };
    const CString before = now();
    EXPECT_TRUE(log.WriteLine(u"%d of %s at %.1f%%", 3, u"frames", 99.5));
    const CString after = now();
    const std::string stamp = log.text().substr(0, sizeof maskedStamp - 1);
    EXPECT_TRUE(before == CString(stamp) || after == CString(stamp));
    EXPECT_EQ(masked(log.text()), maskedStamp + std::string("3 of frames at 99.5%\r\n"));
    log.Write(u"cut%chere, %s%d", 0, u"not seen");
    log.WriteLine(u"cut%chere%s", 0, std::u16string(2000, u'x'));
    log.WriteLine(u"one end\r");
    EXPECT_EQ(masked(log.text().substr(log.text().find("cut"))),
              std::string("cut") + maskedStamp + "cut\r\n" + maskedStamp + "one end\r\n");
}

TEST(Log, WhatWasWrittenBeforeTheFileStandsFirst) {
    const TempFolder folder;
    const CString path = folder.path(u"a.log"), missing = folder.path(u"none/a.log");
    *gLog = CLog();
    gLog->Write(u"first\n");
    EXPECT_FALSE(gLog->SetFile(nullptr, path));
    EXPECT_FALSE(gLog->SetFile(missing));  // The disk writes its line while the log is held.
    EXPECT_TRUE(LastDiagnostic().file == missing);
    gLog->Write(u"third\n");
    EXPECT_TRUE(gLog->SetFile(path));
    EXPECT_FALSE(gLog->SetFile(path));
    EXPECT_FALSE(gLog->SetFile(folder.path(u"b.log")));
    gLog->Write(u"fourth\n");
    const std::string all = std::string("first\r\n") + maskedStamp + "CFile::Open(" + missing.GetUTF8() +
                            ") FAILED.\r\nthird\r\nfourth\r\n";
    EXPECT_EQ(masked(readFile(path)), all);
    EXPECT_FALSE(fileSystem().FileExists(folder.path(u"b.log").c_str()));
    *gLog = CLog();
    EXPECT_TRUE(gLog->SetFile(path));  // Another run: behind what is there, with nothing kept from the first.
    gLog->Write(u"fifth");
    EXPECT_EQ(masked(readFile(path)), all + "fifth");
    *gLog = CLog();
}

TEST(Log, ACopySharesTheFileAndHasItsOwnBuffer) {
    CLog source;
    source.Write(u"start ");
    source.setVerbose(true);
    CLog copy(source);
    EXPECT_TRUE(copy.getVerbose());
    OneFile disk, other;
    EXPECT_TRUE(source.SetFile(&disk, u"a"));
    EXPECT_TRUE(copy.SetFile(&other, u"b"));
    EXPECT_EQ(disk.text() + other.text(), "start start ");
    copy = source;
    copy.Write(u"copy");
    EXPECT_EQ(disk.text(), "start copy");
}

TEST(Log, EntriesReachTheLogWhenTheyAreFinished) {
    MemoryLog log;
    log.setVerbose(true);
    {
        CLogEntry entry = log.StartEntry();
        log.setVerbose(false);
        EXPECT_TRUE(entry.getVerbose());
        EXPECT_TRUE(entry.Write(u"%d", 1));
        EXPECT_TRUE(entry.WriteLine(u" two"));
        CLogEntry copy = entry;
        EXPECT_EQ(log.text(), "");
        EXPECT_TRUE(entry.Finish());
        EXPECT_FALSE(entry.Finish());
        copy.Write(u"copy");
        EXPECT_TRUE(copy.Finish());
        log.StartEntry().Write(u"dropped");
    }
    const std::string twice = std::string(maskedStamp) + "1 two\r\n" + maskedStamp + "1 two\r\ncopy";
    EXPECT_EQ(masked(log.text()), twice);

    MemoryLog second;
    CLogEntry a = second.StartEntry(), b = second.StartEntry();
    a.Write(u"a");
    b.Write(u"b");
    a = b;  // Delivers a; b is disarmed.
    EXPECT_FALSE(b.Finish());
    EXPECT_TRUE(a.Finish());
    EXPECT_EQ(masked(second.text()), std::string(maskedStamp) + "a" + maskedStamp + "b");
}

TEST(Log, AFinishedEntryIsReadAsAFormat) {
    MemoryLog log;
    CLogEntry entry = log.StartEntry();
    entry.Write(u"%s", u"a%db %s%s%n 100%% 5%");
    EXPECT_TRUE(entry.Finish());
    EXPECT_EQ(masked(log.text()), std::string(maskedStamp) + "ab  100% 5%");
}

TEST(Log, CFunctionsWriteTextAsItIs) {
    *gLog = CLog();
    OneFile disk;
    EXPECT_TRUE(gLog->SetFile(&disk, u"a"));
    EXPECT_TRUE(qvLogWriteA("100%s \u00B0\n"));
    EXPECT_TRUE(qvLogWriteW(u"50%d \u00B0\n"));
    EXPECT_TRUE(qvLogWriteLineA("%n"));
    EXPECT_TRUE(qvLogWriteLineW(nullptr));
    EXPECT_EQ(masked(disk.text()),
              std::string("100%s \u00B0\r\n50%d \u00B0\r\n") + maskedStamp + "%n\r\n" + maskedStamp + "(null)\r\n");
    EXPECT_FALSE(qvLogIsVerbose());
    EXPECT_TRUE(gLog->setVerbose(true));
    EXPECT_TRUE(qvLogIsVerbose());
    *gLog = CLog();
}

TEST(Log, PrintsOnTheConsoleOnRequest) {
    MemoryLog log;
    log.Write(u"silent\n");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(log.setPrintConsole(true));
    log.Write(u"50%% \u00B0C\n");
    EXPECT_FALSE(log.setPrintConsole(false));
    EXPECT_FALSE(log.getPrintConsole());
    log.Write(u"silent");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "50% \u00B0C\r\n");
    EXPECT_EQ(log.text(), "silent\r\n50% \u00B0C\r\nsilent");
}

TEST(Stopwatch, AddsUpWhatRuns) {
    CStopwatch watch, outer;
    const auto runOn = [&watch] {
        for (const double from = watch.elapsed(); watch.elapsed() < from + 1e-4;) {
        }
    };
    watch.Stop();
    EXPECT_EQ(watch.Lap(), 0.0);
    outer.Start();
    watch.Start();
    runOn();
    watch.Start();  // Nothing: it goes on.
    watch.Stop();
    const double once = watch.elapsed();
    EXPECT_GE(once, 1e-4);
    EXPECT_EQ(watch.Lap(), once);  // Stopped: nothing changes.
    watch.Start();
    runOn();
    const double lap = watch.Lap();
    EXPECT_GE(lap, once + 1e-4);
    runOn();
    watch.Stop();
    EXPECT_LE(lap + watch.elapsed(), outer.elapsed());
    watch.Restart();
    EXPECT_TRUE(watch.isRunning());
    watch.Reset();
    EXPECT_FALSE(watch.isRunning());
    EXPECT_EQ(watch.elapsed(), 0.0);
}

// Threads and processes -----------------------------------------------------------------------------------------------

/// Starts `count` threads that each write `lines` lines "thread number text" and waits for them.
void writeFromThreads(const std::vector<CLog*>& logs, int count, int lines) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) {
        threads.emplace_back([&logs, t, lines] {
            CLog& log = *logs[static_cast<size_t>(t) % logs.size()];
            for (int i = 0; i < lines; ++i) log.WriteLine(u"%d %d %s", t, i, u"a text of some length");
        });
    }
    for (std::thread& thread : threads) thread.join();
}

/// Checks that each line of a text is whole and that the lines of each thread are in order; their count by thread.
std::map<int, int> linesByThread(const std::string& text) {
    std::map<int, int> next;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        int thread = -1, number = -1;
        const std::string plain = masked(line);
        const bool read = plain.starts_with(maskedStamp) &&
                          std::sscanf(plain.c_str() + sizeof maskedStamp - 1, "%d %d", &thread, &number) == 2;
        const std::string whole =
            maskedStamp + std::to_string(thread) + " " + std::to_string(number) + " a text of some length\r";
        if (!read || plain != whole || number != next[thread]++) {
            ADD_FAILURE() << "torn or out of order: " << line;
            break;
        }
    }
    return next;
}

TEST(LogThreads, SixteenWriteWholeLinesWhileTheFileIsSet) {
    const TempFolder folder;
    CLog log;
    std::thread setter([&] { EXPECT_TRUE(log.SetFile(folder.path(u"a.log"))); });
    writeFromThreads({&log}, 16, 10'000);
    setter.join();
    const std::map<int, int> lines = linesByThread(readFile(folder.path(u"a.log")));
    EXPECT_EQ(lines.size(), 16u);
    for (const auto& [thread, count] : lines) EXPECT_EQ(count, 10'000) << thread;
}

TEST(LogThreads, LogsOnOneFileOverwriteNothing) {
    const TempFolder folder;
    CLog first, second;  // As of two processes.
    EXPECT_TRUE(first.SetFile(folder.path(u"a.log")));
    EXPECT_TRUE(second.SetFile(folder.path(u"a.log")));
    writeFromThreads({&first, &second}, 2, 2'000);
    EXPECT_EQ(linesByThread(readFile(folder.path(u"a.log"))), (std::map<int, int>{{0, 2'000}, {1, 2'000}}));
}

// A destructor that runs after the exit pass, in a process whose other thread goes on.
std::atomic<int> linesDuringExit{0};

struct LateUser {
    bool armed = false;
    ~LateUser() {
        if (!armed) return;
        // The log's life as a singleton is over; the thread still writes.
        for (const int from = linesDuringExit; linesDuringExit < from + 200;) std::this_thread::yield();
        gLog->Write(u"%d ", fileSystem().FileExists(u"/none/late"));
        EXPECT_FALSE(CFile::Create(u"/none/late", 0x12));
        gLog->WriteLine(u"late");
        if (testing::Test::HasFailure()) std::_Exit(1);
    }
} lateUser;

TEST(LogThreadsDeathTest, LinesOfLateDestructorsAndThreadsReachTheFile) {
    const TempFolder folder;
    const CString path = folder.path(u"a.log");
    const auto run = [&] {
        *gLog = CLog();
        EXPECT_TRUE(gLog->SetFile(path));
        EXPECT_FALSE(CFile::Create(u"/none/early", 0x12));  // The main thread has a diagnostic.
        std::thread([] {
            for (;;) gLog->WriteLine(u"thread"), ++linesDuringExit;
        }).detach();
        while (linesDuringExit < 200) std::this_thread::yield();
        lateUser.armed = true;
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
    const std::string text = masked(readFile(path)), stamp = maskedStamp;
    std::string late;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line == stamp + "thread\r") continue;
        // "0 " has no line end of its own: a line of the thread may follow it.
        if (line == "0 " + stamp + "thread\r") line = "0 " + stamp;
        late += line + "|";
    }
    EXPECT_NE(late.find("CFile::Open(/none/early) FAILED.\r|"), late.npos) << late;
    EXPECT_NE(late.find("0 " + stamp), late.npos) << late;
    EXPECT_NE(late.find("CFile::Open(/none/late) FAILED.\r|" + stamp + "late\r|"), late.npos) << late;
}

}  // namespace
}  // namespace qv
