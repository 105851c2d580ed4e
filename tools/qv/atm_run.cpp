// qv atm run: decks through the atmosphere program, each in a folder of its own.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

#include "atm_commands.h"
#include "command.h"
#include "json.h"
#include "places.h"
#include "platform/interrupt.h"
#include "platform/process.h"
#include "progress.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/tape7_file.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

namespace fs = std::filesystem;
using namespace qv::platform;

struct Options {
    std::vector<std::string> decks;
    std::string exe;
    std::string output;
    double timeout = 0.0;  ///< Seconds; 0 for none.
    uint32_t jobs = 1;
    bool force = false;
    bool json = false;
};

constexpr char failureMarker[] = "*ERR*";
constexpr size_t chunkBytes = 1023;

/// A folder that goes with what is in it.
class PrivateFolder {
public:
    PrivateFolder() : m_path(narrow(qv::fileSystem().CreateTempDirectory())) {
        if (m_path.empty()) throw diagnosed(Exit::io, "a folder for the run", "cannot be made");
    }
    ~PrivateFolder() {
        if (!m_path.empty()) (void)qv::fileSystem().RemoveDirectoryW(wide(m_path).c_str(), true);
    }
    PrivateFolder(PrivateFolder&& other) noexcept : m_path(std::exchange(other.m_path, {})) {}
    PrivateFolder& operator=(PrivateFolder&&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

/// One deck, and what became of it.
struct Job {
    std::string deck;
    std::string output;  ///< Path without extension.
    PrivateFolder folder;
    std::string failure;  ///< Why there is no output; empty when there is one.
    uint32_t runs = 0;
    uint64_t rows = 0;
    bool isFinished = false;  ///< The program came to its end, and its output was read.
    Exit result = Exit::done;

    void fail(const std::string& reason, Exit code = Exit::outside) {
        if (!failure.empty()) return;
        failure = reason;
        result = code;
    }
};

/// @param blamed  The file that a failure names: of the two the user's.
void copy(qv::IFileSystem& from, const std::string& source, const std::string& to, const std::string& blamed) {
    qv::ClearDiagnostic();
    if (!qv::IFileSystem::CopyFileW(&from, wide(source).c_str(), &qv::fileSystem(), wide(to).c_str(), true)) {
        throw diagnosed(Exit::io, blamed, "cannot be copied");
    }
}

class AtmRun {
public:
    explicit AtmRun(const Options& options) : m_options(options), m_exe(fs::absolute(options.exe)) {
        std::error_code error;
        if (!fs::is_regular_file(m_exe, error)) {
            throw Failure(Exit::outside, m_exe.string() + ": there is no such program");
        }
        std::set<std::string> outputs;
        for (const std::string& deck : options.decks) {
            requireFile(deck);
            const std::string output = outputOf(deck);
            if (!outputs.insert(fs::weakly_canonical(fs::absolute(output), error).string()).second) {
                throw Failure(Exit::usage, deck + ": another deck has the same output, " + output + ".tape7");
            }
            for (const char* extension : {".tape7", ".tape7scn"}) checkOutput(output + extension);
        }
    }

    Exit run() {
        for (const std::string& deck : m_options.decks) prepare(deck);
        m_interrupt = catchInterrupts();
        {
            Progress progress("atm run", m_jobs.size(), 0.0);
            std::vector<std::thread> pool;
            const size_t threads = std::min<size_t>(m_options.jobs, m_jobs.size());
            for (size_t i = 1; i < threads; ++i) pool.emplace_back([&] { work(progress); });
            work(progress);
            for (std::thread& thread : pool) thread.join();
        }
        for (Job& job : m_jobs) keep(job);
        if (m_interrupted) throw Failure(Exit::outside, "interrupted; the outputs of finished runs are kept");
        print();
        Exit worst = Exit::done;
        for (const Job& job : m_jobs) worst = std::max(worst, job.result);
        return worst;
    }

private:
    /// In the folder of --output, or beside the deck. A deck in a container gives the entry's name.
    std::string outputOf(const std::string& deck) const {
        const std::optional<Inside> inside = insideOf(deck);
        const fs::path stem = fs::path(inside && !m_options.output.empty() ? inside->entry : deck).stem();
        const fs::path folder = m_options.output.empty() ? fs::path(deck).parent_path() : fs::path(m_options.output);
        return (folder / stem).string();
    }

    /// The place is free, or may be replaced, and is none of the decks.
    void checkOutput(const std::string& output) const {
        std::error_code error;
        for (const std::string& deck : m_options.decks) {
            if (fs::equivalent(deck, output, error)) {
                throw Failure(Exit::usage, deck + ": is the place of an output as well");
            }
        }
        const Target isFree(output, m_options.force);
    }

    void prepare(const std::string& deck) {
        m_jobs.push_back({deck, outputOf(deck), PrivateFolder(), {}, 0, 0, false});
        const PrivateFolder& folder = m_jobs.back().folder;
        copy(files(), deck, folder.file("tape5"), deck);
        // The program looks for its data in the folder in which it works.
        const fs::path data = m_exe.parent_path() / "DATA";
        std::error_code error;
        if (fs::is_directory(data, error)) fs::create_directory_symlink(data, folder.file("DATA"));
    }

    void work(Progress& progress) {
        for (size_t i = m_next++; i < m_jobs.size() && !m_interrupted; i = m_next++) {
            try {
                if (start(m_jobs[i])) read(m_jobs[i]);
            } catch (const std::exception& error) {
                m_jobs[i].fail(error.what());
            }
            progress.advance();
        }
    }

    /// True when the program came to its end by itself.
    bool start(Job& job) {
        ChildProcess child;
        const ChildProcess::Options how{job.folder.path(), true, true};
        if (const int error = child.start({m_exe.string()}, how); error != 0) {
            job.fail(m_exe.string() + " cannot be run: " + std::generic_category().message(error));
            return false;
        }
        const auto milliseconds = static_cast<uint32_t>(m_options.timeout * 1000.0);
        const Followed followed = follow(
            child, chunkBytes, [&](std::string_view chunk) { look(job, chunk); },
            deadlineAfter(m_options.timeout > 0.0 ? milliseconds : forever), m_interrupt);
        child.stop(true);  // also what it has left behind: its folder goes
        const ChildEnd end = child.finish();
        if (followed == Followed::interrupted) m_interrupted = true;
        if (followed == Followed::timedOut) {
            job.fail("the program ran for more than " + number(m_options.timeout) + " s and was stopped");
        } else if (end.bySignal) {
            job.fail("the program was ended by signal " + std::to_string(end.code - 128));
        }
        return job.failure.empty() && !m_interrupted;
    }

    /// Looks for the marker, and keeps the line in which it stands.
    static void look(Job& job, std::string_view chunk) {
        const size_t at = chunk.find(failureMarker);
        if (at == std::string_view::npos) return;
        const std::string_view line = chunk.substr(at, chunk.find_first_of("\r\n", at) - at);
        job.fail("the program failed: " + visible(wide(line)));
    }

    void read(Job& job) {
        const std::string path = job.folder.file("tape7");
        if (!fs::exists(path)) return job.fail("the program wrote no output (tape7)");
        qv::CModtranTape7File tape7;
        qv::ClearDiagnostic();
        const bool loaded = tape7.Load(wide(path).c_str());
        if (!loaded || qv::LastDiagnostic().IsSet()) {
            return job.fail(std::string("the program's output is ") + (loaded ? "cut off: " : "no table: ") +
                            diagnosed(Exit::outside, "tape7", "").what());
        }
        job.isFinished = true;
        job.runs = tape7.nRuns();
        for (uint32_t run = 0; run < tape7.nRuns(); ++run) {
            job.rows += tape7.nPoints(run);
            if (tape7.GetRun(run).mode < 0) job.fail("the program gave run " + std::to_string(run) + " up");
        }
    }

    /// The table, and beside it the convolved one where the deck asked for it.
    void keep(Job& job) const {
        try {
            const std::string convolved = job.folder.file("tape7.scn");
            if (job.isFinished && job.failure.empty()) {
                put(job.folder.file("tape7"), job.output + ".tape7");
                if (fs::exists(convolved) && fs::file_size(convolved) > 0) put(convolved, job.output + ".tape7scn");
            }
        } catch (const Failure& error) {
            job.fail(error.what(), error.exitCode());  // what the other decks gave is kept all the same
        } catch (const std::exception& error) {
            job.fail(error.what(), Exit::io);
        }
        if (!job.failure.empty()) std::cerr << "qv: " << job.deck << ": " << job.failure << '\n';
    }
    void put(const std::string& from, const std::string& to) const {
        Target target(to, m_options.force);
        copy(qv::fileSystem(), from, target.temporary(), to);
        target.commit();
    }

    void print() const {
        Table table({{"deck", Table::Align::left}, {"output", Table::Align::left}, {"runs"}, {"rows"}});
        Json jobs = Json::array();
        for (const Job& job : m_jobs) {
            const bool failed = !job.failure.empty();
            const std::string output = job.output + ".tape7";
            Json facts = Json::object().set("deck", job.deck);
            if (failed) {
                table.add({job.deck, "failed", "", ""});
                facts.set("failure", job.failure);
            } else {
                table.add({job.deck, output, std::to_string(job.runs), std::to_string(job.rows)});
                facts.set("output", output).set("runs", job.runs).set("rows", job.rows);
            }
            jobs.push(facts);
        }
        if (m_options.json) {
            Json::document("qv.atm.run.1").set("program", m_exe.string()).set("decks", jobs).print(std::cout);
        } else {
            table.print(std::cout);
        }
    }

    const Options& m_options;
    const fs::path m_exe;
    std::vector<Job> m_jobs;
    std::atomic<size_t> m_next{0};
    std::atomic<bool> m_interrupted{false};
    WaitHandle m_interrupt = noHandle;
};

}  // namespace

void addAtmRun(CLI::App& atm) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addCommand(
        atm, "run",
        "Run the atmosphere program on decks, each in a private folder with the deck as \"tape5\" and the DATA folder "
        "beside the program. The output becomes DECK.tape7, the convolved one DECK.tape7scn; nothing is kept of a run "
        "that failed. Exit code 6 when one did.",
        "  qv atm run path.tape5 --exe /opt/modtran/mod4v3r1\n"
        "  qv atm run decks/*.tape5 --exe /opt/modtran/mod4v3r1 --jobs 4 --timeout 600 -o tables",
        [options] { return AtmRun(*options).run(); });
    verb->add_option("decks", options->decks, "Decks to run")->required();
    verb->add_option("--exe", options->exe, "The program")->required();
    verb->add_option("-o,--output", options->output, "Folder for the outputs (that of each deck)");
    verb->add_option("--timeout", options->timeout, "Seconds after which a run is stopped (none)")
        ->check(CLI::Range(0.001, 4e6));
    verb->add_option("--jobs", options->jobs, "Runs at the same time (1)")->check(CLI::Range(1u, 256u));
    verb->add_flag("--force", options->force, "Replace outputs that exist");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
