// A parameter table of 100 MB and 10 columns beside SQLite: taking the file in, cells of random rows, and a hundredth
// of the cells changed and saved, with the memory that this takes at its peak. What bounds the indexing is writing the
// index into its temporary file: 106 bytes for each row of some 95.
#include "rows.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "qv/file_system.h"
#include "qv/pod_file.h"

namespace {

constexpr uint32_t columns = 10;
constexpr int64_t tableBytes = 100'000'000;

/// Numbers below `n`.
class Random {
public:
    explicit Random(uint32_t seed) : m_engine(seed) {}
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(m_engine() % n); }

private:
    std::mt19937 m_engine;
};

void fail(const char* what) {
    std::fprintf(stderr, "pod_bench: %s\n", what);
    std::exit(1);
}

/// The table, made once and deleted at the end.
class Table {
public:
    Table() : m_folder(qv::fileSystem().CreateTempDirectory()) {
        Random random(1);
        std::ofstream out(std::string(path().GetUTF8()), std::ios::binary);
        out << "HdSize auto\r\nKeyWrd POD\r\nNumDPs auto\r\nNParam 10\r\nPNSize 20\r\nDATA\r\n"
               "c0\tc1\tc2\tc3\tc4\tc5\tc6\tc7\tc8\tc9\r\n";
        std::string block;
        for (int64_t written = 0; written < tableBytes; written += static_cast<int64_t>(block.size())) {
            block.clear();
            for (int row = 0; row < 5000; ++row, ++m_rows) {
                for (uint32_t i = 0; i < columns; ++i) {
                    char text[32];
                    std::snprintf(text, sizeof text, "%.4f", random.below(20'000'000) / 1e4 - 500);
                    block.append(text).append(i + 1 == columns ? "\r\n" : "\t");
                }
            }
            out << block;
        }
        m_bytes = static_cast<int64_t>(std::filesystem::file_size(std::string(path().GetUTF8())));
    }
    ~Table() { qv::fileSystem().RemoveDirectoryW(m_folder.c_str(), true); }

    qv::CString path() const { return m_folder + u"/table.pod"; }
    std::string database() const { return std::string((m_folder + u"/table.db").GetUTF8()); }
    int64_t bytes() const { return m_bytes; }
    uint32_t rows() const { return m_rows; }

private:
    qv::CString m_folder;
    int64_t m_bytes = 0;
    uint32_t m_rows = 0;
};

const Table& table() {
    static const Table made;
    return made;
}

/// The bytes of the file through memory, which nothing can be faster than.
void readFile(benchmark::State& state) {
    (void)table();  // making it is nobody's time
    std::string block(0x80000, ' ');
    for (auto _ : state) {
        qv::TSharedPtr<qv::IFile> file = qv::fileSystem().CreateFileW(table().path().c_str(), 0x212);
        while (file->Read(block.data(), static_cast<uint32_t>(block.size())) != 0) benchmark::DoNotOptimize(block);
    }
    state.SetBytesProcessed(state.iterations() * table().bytes());
}
QV_ROW("index a table of 100 MB", "system call", readFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// Taking the file in -------------------------------------------------------------------------------------------------

void index(benchmark::State& state) {
    (void)table();  // making it is nobody's time
    for (auto _ : state) {
        qv::CPODFile file;
        if (!file.Load(&qv::fileSystem(), table().path().c_str(), true) || file.nDPs() != table().rows()) fail("load");
    }
    state.SetBytesProcessed(state.iterations() * table().bytes());
}
QV_ROW("index a table of 100 MB", "qv", index)->Unit(benchmark::kMillisecond)->UseRealTime();

void exec(sqlite3* db, const char* sql) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(sqlite3_errmsg(db));
}

/// One transaction without journal, one prepared statement, fields bound as they stand in the line: the fastest way.
void importIntoSqlite() {
    std::filesystem::remove(table().database());
    sqlite3* db = nullptr;
    sqlite3_stmt* insert = nullptr;
    if (sqlite3_open(table().database().c_str(), &db) != SQLITE_OK) fail("no database");
    exec(db, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; CREATE TABLE t(c0,c1,c2,c3,c4,c5,c6,c7,c8,c9); BEGIN");
    sqlite3_prepare_v2(db, "INSERT INTO t VALUES(?,?,?,?,?,?,?,?,?,?)", -1, &insert, nullptr);
    std::ifstream in(std::string(table().path().GetUTF8()), std::ios::binary);
    std::string line;
    for (int skipped = 0; skipped < 7; ++skipped) std::getline(in, line);
    while (std::getline(in, line)) {
        const char* at = line.c_str();
        for (uint32_t i = 0; i < columns; ++i) {
            const size_t length = std::strcspn(at, "\t\r");
            sqlite3_bind_text(insert, static_cast<int>(i) + 1, at, static_cast<int>(length), SQLITE_STATIC);
            at += length + 1;
        }
        if (sqlite3_step(insert) != SQLITE_DONE) fail(sqlite3_errmsg(db));
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    exec(db, "COMMIT");
    sqlite3_close(db);
}

void importSqlite(benchmark::State& state) {
    (void)table();
    for (auto _ : state) importIntoSqlite();
    state.SetBytesProcessed(state.iterations() * table().bytes());
}
QV_ROW("index a table of 100 MB", "sqlite", importSqlite)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(1);

// Cells of random rows -----------------------------------------------------------------------------------------------

void randomValue(benchmark::State& state) {
    qv::CPODFile file;
    if (!file.Load(&qv::fileSystem(), table().path().c_str(), true)) fail("load");
    Random random(2);
    for (auto _ : state) {
        const char16_t* text = file.GetValue(random.below(columns), random.below(file.nDPs()));
        if (text == nullptr) fail("no value");
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("value of a random row", "qv", randomValue)->Unit(benchmark::kMicrosecond)->UseRealTime();

void randomValueSqlite(benchmark::State& state) {
    static const bool imported = (importIntoSqlite(), true);
    benchmark::DoNotOptimize(imported);
    sqlite3* db = nullptr;
    sqlite3_stmt* select = nullptr;
    if (sqlite3_open(table().database().c_str(), &db) != SQLITE_OK) fail("no database");
    sqlite3_prepare_v2(db, "SELECT c5 FROM t WHERE rowid=?", -1, &select, nullptr);
    Random random(2);
    for (auto _ : state) {
        sqlite3_bind_int64(select, 1, int64_t{random.below(table().rows())} + 1);
        if (sqlite3_step(select) != SQLITE_ROW) fail("no row");
        benchmark::DoNotOptimize(sqlite3_column_text16(select, 0));
        sqlite3_reset(select);
    }
    state.SetItemsProcessed(state.iterations());
    sqlite3_finalize(select);
    sqlite3_close(db);
}
QV_ROW("value of a random row", "sqlite", randomValueSqlite)->Unit(benchmark::kMicrosecond)->UseRealTime();

// A hundredth of the cells changed -----------------------------------------------------------------------------------

/// Runs in a process of its own; prints the peak of its memory in MB.
int editAndSave(const char* path, bool inOrder) {
    qv::CPODFile file;
    const qv::CString name{std::string_view(path)};
    if (!file.Load(&qv::fileSystem(), name.c_str(), true)) fail("load");
    Random random(3);
    const uint32_t edits = file.nDPs() / 100 * columns;
    for (uint32_t i = 0; i < edits; ++i) {
        const uint32_t row =
            inOrder ? static_cast<uint32_t>(uint64_t{i} * file.nDPs() / edits) : random.below(file.nDPs());
        if (!file.PutValue(random.below(columns), row, u"12.3456")) fail("put");
    }
    if (!file.Save(&qv::fileSystem(), (name + u".new").c_str(), false, true)) fail("save");
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) std::printf("%g\n", std::strtod(line.c_str() + 6, nullptr) / 1000);
    }
    return 0;
}

void editHundredthAndSave(benchmark::State& state) {
    const std::string path(table().path().GetUTF8());
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string command = self + (state.range(0) != 0 ? " --edit-in-order " : " --edit ") + path;
    double peak = 0;
    for (auto _ : state) {
        FILE* child = popen(command.c_str(), "r");
        if (child == nullptr || std::fscanf(child, "%lf", &peak) != 1 || pclose(child) != 0) fail("the edit");
    }
    std::filesystem::remove(path + ".new");
    state.counters["peak_MB"] = peak;
    state.SetItemsProcessed(state.iterations() * (table().rows() / 100 * columns));
}
QV_ROW("edit 1 percent and save", "qv", editHundredthAndSave)
    ->ArgName("in_order")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(1);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strncmp(argv[1], "--edit", 6) == 0) return editAndSave(argv[2], argv[1][6] == '-');
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
