// The log: lines that each reach the system before the call returns, beside spdlog with the same promise (and, to know
// the scale, without it) and beside the bare system call.
#include "rows.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "qv/file_system.h"
#include "qv/log.h"

#ifdef QV_PEER_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr char plainLine[] = "[05-06-2024 07:08:09]: frame 123456 of run7.saf at 36.6 degrees\r\n";

/// A file in a folder that goes away, named by a variable of its own for the threads of one run.
class LogFile {
public:
    LogFile() : m_folder(qv::fileSystem().CreateTempDirectory()), m_path(m_folder + u"/a.log") {}
    ~LogFile() { qv::fileSystem().RemoveDirectoryW(m_folder.c_str(), true); }
    const qv::CString& path() const { return m_path; }
    std::string native() const { return m_path.GetUTF8(); }
    /// Whether the file holds at least `lines` lines of the usual length.
    bool holds(int64_t lines) const {
        return static_cast<int64_t>(std::filesystem::file_size(native())) >= lines * int64_t{sizeof plainLine - 8};
    }

private:
    qv::CString m_folder, m_path;
};

/// Runs `line(i)` in all threads; the file is looked at when the last is through.
template <class Line>
void writeLines(benchmark::State& state, Line line) {
    int number = 100'000;
    for (auto _ : state) line(number++ % 900'000 + 100'000);
    state.SetItemsProcessed(state.iterations());
}

struct QvLog {
    LogFile file;
    qv::CLog log;
};

void Log(benchmark::State& state) {
    static QvLog* shared;
    if (state.thread_index() == 0) {
        shared = new QvLog;
        if (!shared->log.SetFile(shared->file.path())) state.SkipWithError("no file");
    }
    writeLines(state, [&](int i) { shared->log.WriteLine(u"frame %d of %s at %.1f degrees", i, u"run7.saf", 36.6); });
    if (state.thread_index() == 0) {
        if (!shared->file.holds(state.iterations())) state.SkipWithError("lines are missing");
        delete shared;
    }
}
QV_ROW("log lines", "qv", Log)->UseRealTime()->Threads(1)->Threads(4);

#ifdef QV_PEER_SPDLOG
void spdlogLines(benchmark::State& state, bool flushed) {
    static LogFile* file;
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0) {
        file = new LogFile;
        logger = spdlog::basic_logger_mt("bench", file->native());
        logger->set_pattern("[%m-%d-%Y %H:%M:%S]: %v", spdlog::pattern_time_type::local);
        if (flushed) logger->flush_on(spdlog::level::info);
    }
    writeLines(state, [&](int i) { logger->info("frame {} of {} at {:.1f} degrees", i, "run7.saf", 36.6); });
    if (state.thread_index() == 0) {
        logger->flush();
        if (!file->holds(state.iterations())) state.SkipWithError("lines are missing");
        spdlog::drop("bench");
        logger.reset();
        delete file;
    }
}
void SpdlogFlushed(benchmark::State& state) { spdlogLines(state, true); }
QV_ROW("log lines", "spdlog", SpdlogFlushed)->UseRealTime()->Threads(1)->Threads(4);
void SpdlogUnflushed(benchmark::State& state) { spdlogLines(state, false); }
QV_ROW("log lines", "spdlog unflushed", SpdlogUnflushed)->UseRealTime()->Threads(1)->Threads(4);
#endif

void BareWrite(benchmark::State& state) {
    static LogFile* file;
    static int descriptor;
    if (state.thread_index() == 0) {
        file = new LogFile;
        descriptor = open(file->native().c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0666);
    }
    writeLines(state, [&](int) {
        if (write(descriptor, plainLine, sizeof plainLine - 1) < 0) state.SkipWithError("not written");
    });
    if (state.thread_index() == 0) {
        if (!file->holds(state.iterations())) state.SkipWithError("lines are missing");
        close(descriptor);
        delete file;
    }
}
QV_ROW("log lines", "system call", BareWrite)->UseRealTime()->Threads(1)->Threads(4);

}  // namespace

BENCHMARK_MAIN();
