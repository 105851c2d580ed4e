// qv watch: tells of new, changed, removed and renamed files as it happens, or runs a command for each.
#include <algorithm>
#include <deque>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>

#include "command.h"
#include "json.h"
#include "platform/interrupt.h"
#include "platform/process.h"
#include "platform/wait.h"
#include "qv/diagnostic.h"
#include "qv/directory_monitor.h"
#include "qv/file_system.h"
#include "settling.h"
#include "text.h"

namespace tool {

namespace {

using namespace qv::platform;

/// How often the folder is looked for.
constexpr uint32_t lookMilliseconds = 1000;

/// U+FFFD, which stands in a path for what is not UTF-8.
constexpr std::string_view replacement = "\xEF\xBF\xBD";

struct Options {
    std::string folder;
    std::vector<std::string> command;
    std::vector<std::string> on;
    std::string match;
    int64_t settle = 500;
    int64_t count = 0;
    bool json = false;
};

const std::map<std::string, Happening> words = {{"new", Happening::isNew},
                                                {"change", Happening::changed},
                                                {"remove", Happening::removed},
                                                {"rename", Happening::renamed}};

std::string wordOf(Happening what) {
    return std::ranges::find(words, what, [](const auto& entry) { return entry.second; })->first;
}

/// A path for one field of a line: what would end the field or the line is written as `\t` and `\n`, and so `\\`.
std::string field(const std::string& path) {
    std::string text;
    for (const char c : path) {
        if (c == '\t' || c == '\n' || c == '\\') text += '\\';
        text += c == '\t' ? 't' : c == '\n' ? 'n' : c;
    }
    return text;
}

int64_t milliseconds() { return monotonicNanoseconds() / 1'000'000; }

/// Carries events from the monitor's thread to the one that waits for `arrived`.
class Inbox {
public:
    explicit Inbox(std::string folder) : m_folder(std::move(folder)) {
        if (!m_folder.ends_with('/')) m_folder += '/';
    }
    ~Inbox() { closeHandle(m_arrived); }

    void listenTo(qv::IFileSystem::IDirectoryMonitor& monitor) {
        const auto add = [&](auto& event, Happening what) {
            event.AddHandler([this, what](void*, const char16_t* name) { put(what, name, nullptr); });
        };
        add(monitor.FileAdded, Happening::isNew);
        add(monitor.FileModified, Happening::changed);
        add(monitor.FileRemoved, Happening::removed);
        monitor.FileRenamed.AddHandler(
            [this](void*, const char16_t* from, const char16_t* to) { put(Happening::renamed, to, from); });
    }
    WaitHandle arrived() const { return m_arrived; }
    std::deque<FileEvent> takeAll() {
        (void)takeSignal(m_arrived);
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_events, {});
    }

private:
    void put(Happening what, const char16_t* name, const char16_t* from) {
        if (*name == 0 || (from != nullptr && *from == 0)) {
            remark("qv: " + m_folder + ": something happened to a file whose name is too long to tell");
            return;
        }
        const std::lock_guard lock(m_mutex);
        m_events.push_back({what, m_folder + narrow(name), from == nullptr ? std::string() : m_folder + narrow(from)});
        raiseSignal(m_arrived);
    }

    std::string m_folder;
    const WaitHandle m_arrived = createSignal(0, false);
    std::mutex m_mutex;
    std::deque<FileEvent> m_events;
};

/// Runs the command for one file after the other.
class Runner {
public:
    /// @param count  So many runs and no more; 0 for no limit.
    Runner(std::vector<std::string> command, int64_t count)
        : m_command(std::move(command)), m_left(count == 0 ? INT64_MAX : count) {}

    void add(const std::string& path) {
        if (std::ranges::find(m_waiting, path) == m_waiting.end()) m_waiting.push_back(path);
    }
    /// Starts the next one unless one runs. Returns how many have come to an end since the last call.
    int64_t goOn() {
        if (m_child.runs() && m_child.hasEnded()) finish();
        for (; !m_child.runs() && !m_waiting.empty() && m_left > 0; --m_left) {
            start(m_waiting.front());
            m_waiting.pop_front();
        }
        return std::exchange(m_ended, 0);
    }
    bool runs() const { return m_child.runs(); }
    WaitHandle ended() const { return m_child.ended(); }
    bool failed() const { return m_failed; }

    /// Lets the one that runs come to its end.
    void end(Interrupt why, WaitHandle interrupt) {
        if (!m_child.runs()) return;
        if (why == Interrupt::toTheEnd) m_child.stop(false);
        const WaitHandle handles[] = {m_child.ended(), interrupt};
        while (waitForAny(handles, 2, forever) == 1) {
            if (takeInterrupt() != Interrupt::none) m_child.stop(true);
        }
        (void)m_child.finish();
    }

private:
    void start(const std::string& path) {
        m_path = path;
        std::vector<std::string> arguments = m_command;
        bool placed = false;
        for (std::string& argument : arguments) {
            for (size_t at = 0; (at = argument.find("{}", at)) != std::string::npos; at += path.size()) {
                argument.replace(at, 2, path);
                placed = true;
            }
        }
        if (!placed) arguments.push_back(path);
        std::cout.flush();
        const int error = m_child.start(arguments);
        if (error == 0) return;
        ++m_ended;
        report("cannot be run: " + std::generic_category().message(error));
    }
    void finish() {
        const int code = m_child.finish().code;
        ++m_ended;
        if (code != 0) report("ended with " + std::to_string(code));
    }
    void report(const std::string& reason) {
        std::cerr << "qv: " << m_command.front() << " for " << m_path << " " << reason << '\n';
        m_failed = true;
    }

    const std::vector<std::string> m_command;
    int64_t m_left;
    std::deque<std::string> m_waiting;
    ChildProcess m_child;
    std::string m_path;
    int64_t m_ended = 0;
    bool m_failed = false;
};

class Watch {
public:
    explicit Watch(const Options& options)
        : m_options(options),
          m_settling(options.settle),
          m_runner(options.command, options.count),
          m_inbox(options.folder) {
        for (const auto& [word, what] : words) {
            const bool named = std::ranges::find(options.on, word) != options.on.end();
            const bool usual = options.command.empty() || what != Happening::removed;
            if (options.on.empty() ? usual : named) m_on.push_back(what);
        }
    }

    Exit run() {
        const WaitHandle interrupt = catchInterrupts();
        if (interrupt == noHandle || m_inbox.arrived() == noHandle) throw Failure(Exit::io, "no descriptor is left");
        start();
        while (m_options.count == 0 || m_told < m_options.count) {
            if (waitForAny(&interrupt, 1, 0) == 0) {
                m_monitor->Stop();
                m_runner.end(takeInterrupt(), interrupt);
                break;
            }
            waitForWork(interrupt);
            work();
        }
        return m_runner.failed() ? Exit::outside : Exit::done;
    }

private:
    void start() {
        m_monitor =
            qv::fileSystem().MonitorDirectory(wide(m_options.folder).c_str(), CWin32DirectoryMonitor::nameAndWrite);
        if (!m_monitor) throw Failure(Exit::io, m_options.folder + ": there is no such folder");
        m_inbox.listenTo(*m_monitor);
        qv::ClearDiagnostic();
        if (!m_monitor->Start()) throw diagnosed(Exit::io, m_options.folder, "cannot be watched");
        if (qv::LastDiagnostic().IsSet()) remark("qv: " + narrow(qv::LastDiagnostic().ToString()));
        remark("qv: watching " + m_options.folder);
    }

    void waitForWork(WaitHandle interrupt) {
        const int64_t next = m_settling.next();
        int64_t limit = lookMilliseconds;
        if (next != Settling::never) limit = std::clamp<int64_t>(next - milliseconds(), 0, limit);
        const WaitHandle handles[] = {interrupt, m_inbox.arrived(), m_runner.ended()};
        (void)waitForAny(handles, m_runner.runs() ? 3 : 2, static_cast<uint32_t>(limit));
    }

    void work() {
        std::vector<FileEvent> told;
        for (const FileEvent& event : m_inbox.takeAll()) m_settling.take(event, milliseconds(), told);
        m_settling.takeSettled(milliseconds(), told);
        for (const FileEvent& event : told) {
            if (isWanted(event)) tell(event);
        }
        std::cout.flush();
        if (!std::cout) throw Failure(Exit::io, "standard output cannot be written");
        m_told += m_runner.goOn();
        // Watching ends by itself when the folder goes, and begins again when there is another one.
        if (milliseconds() < m_nextLook) return;
        if (!m_monitor->Start()) throw diagnosed(Exit::io, m_options.folder, "cannot be watched any more");
        m_nextLook = milliseconds() + lookMilliseconds;
    }

    bool isWanted(const FileEvent& event) const {
        if (std::ranges::find(m_on, event.what) == m_on.end()) return false;
        const std::string name = event.path.substr(event.path.rfind('/') + 1);
        return m_options.match.empty() ||
               qv::IFileSystem::WildcardMatch(wide(m_options.match).c_str(), wide(name).c_str());
    }

    void tell(const FileEvent& event) {
        if (!m_options.command.empty()) {
            if (event.what == Happening::removed || qv::fileSystem().IsFile(wide(event.path).c_str())) {
                m_runner.add(event.path);
            } else if (event.path.find(replacement) != std::string::npos) {
                remark("qv: " + event.path + ": the command cannot be given a name that is not UTF-8");
            }
            return;
        }
        if (m_options.count != 0 && m_told == m_options.count) return;
        ++m_told;
        const std::string word = wordOf(event.what);
        const bool renamed = event.what == Happening::renamed;
        if (m_options.json) {
            Json line = Json::document("qv.watch.1");
            line.set("event", word).set("path", event.path);
            if (renamed) line.set("from", event.from);
            line.printLine(std::cout);
        } else {
            std::cout << word << '\t' << (renamed ? field(event.from) + '\t' : "") << field(event.path) << '\n';
        }
    }

    const Options& m_options;
    std::vector<Happening> m_on;
    Settling m_settling;
    Runner m_runner;
    Inbox m_inbox;
    qv::TSharedPtr<qv::IFileSystem::IDirectoryMonitor> m_monitor;  // Stops before what it fills goes.
    int64_t m_told = 0;
    int64_t m_nextLook = 0;
};

}  // namespace

void addWatch(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command = addCommand(
        root, "watch", "Tell of new, changed, removed and renamed files below a folder, or run a command for each.",
        "  qv watch recordings\n"
        "  qv watch recordings --on new --match '*.saf' -- qv calibrate --rcal camera.rcal {} -o {}.celsius.saf "
        "--force",
        [options] { return Watch(*options).run(); });
    command->add_option("folder", options->folder, "Folder to watch, with all folders below it")->required();
    command->add_option(
        "command", options->command,
        "Command to run for each file, one at a time; behind --. The file's path takes the place of {}, "
        "or stands at the end. Folders are left out");
    command
        ->add_option("--on", options->on,
                     "What is told, of new, change, remove and rename. Without it all, and a command runs for "
                     "all but remove")
        ->delimiter(',')
        ->check(CLI::IsMember({"new", "change", "remove", "rename"}));
    command->add_option("--match", options->match, "Only files whose name matches, such as '*.saf|*.rcal'");
    command
        ->add_option("--settle", options->settle,
                     "A new or changed file is told of when nothing has happened to it for so many milliseconds; 0 at "
                     "once and each time")
        ->capture_default_str()
        ->check(CLI::Range(int64_t{0}, int64_t{86'400'000}));
    command->add_option("--count", options->count, "End after so many lines or runs of the command")
        ->check(CLI::Range(int64_t{1}, INT64_MAX));
    command->add_flag("--json", options->json, "One JSON object to a line");
}

}  // namespace tool
