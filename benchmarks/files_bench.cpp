// Files: the memory file against std::vector, the disk copy against std::filesystem, name matching against fnmatch.
#include "rows.h"

#include <fnmatch.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qv/file.h"

namespace {

constexpr int64_t values = 1'000'000;

void memoryFileTypedWrites(benchmark::State& state) {
    for (auto _ : state) {
        qv::CMemFile file;
        for (int64_t i = 0; i < values; ++i) file.PutDWORD(static_cast<uint32_t>(i));
        if (file.GetSize() != values * 4) state.SkipWithError("wrong size");
    }
    state.SetBytesProcessed(state.iterations() * values * 4);
}
QV_ROW("memory file, 1 M values", "qv", memoryFileTypedWrites);

void vectorAppends(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<uint8_t> bytes;
        for (int64_t i = 0; i < values; ++i) {
            const auto value = static_cast<uint32_t>(i);
            const auto* at = reinterpret_cast<const uint8_t*>(&value);
            bytes.insert(bytes.end(), at, at + 4);
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(state.iterations() * values * 4);
}
QV_ROW("memory file, 1 M values", "vector", vectorAppends);

void swappedArray(benchmark::State& state) {
    qv::CMemFile file;
    file.SetSize(values * 4);
    qv::swapFlag(file) = true;
    std::vector<uint32_t> read(values);
    for (auto _ : state) {
        file.SeekToBegin();
        if (!file.ReadArray(read.data(), static_cast<uint32_t>(values), 4)) state.SkipWithError("short read");
    }
    state.SetBytesProcessed(state.iterations() * values * 4);
}
QV_ROW("array of swapped bytes", "qv", swappedArray);

void plainCopyOfArray(benchmark::State& state) {
    const std::vector<uint32_t> from(values);
    std::vector<uint32_t> to(values);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), values * 4);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * values * 4);
}
QV_ROW("array of swapped bytes", "memcpy", plainCopyOfArray);

/// A folder that goes away at the end of the program.
struct Folder {
    Folder() : path(qv::fileSystem().CreateTempDirectory()) {}
    ~Folder() { qv::fileSystem().RemoveDirectoryW(path.c_str(), true); }
    qv::CString path;
};

/// Two paths of one folder; the first is a file of 64 MiB.
struct CopyPaths {
    static constexpr int64_t size = 64 << 20;
    CopyPaths() : from(folder.path + u"/from"), to(folder.path + u"/to") {
        const std::vector<char> block(1 << 20, 'x');
        std::ofstream out(from.GetUTF8());
        for (int i = 0; i < 64; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    Folder folder;
    qv::CString from, to;
};
const CopyPaths& copyPaths() {
    static const CopyPaths made;
    return made;
}

/// A folder of 10,000 empty files.
const Folder& manyFiles() {
    static const Folder made;
    static const bool filled = [] {
        for (int i = 0; i < 10'000; ++i) std::ofstream(std::string(made.path.GetUTF8()) + "/f" + std::to_string(i));
        return true;
    }();
    benchmark::DoNotOptimize(filled);
    return made;
}

void copyOnDisk(benchmark::State& state) {
    const CopyPaths& paths = copyPaths();
    qv::CFileSystem& disk = qv::fileSystem();
    for (auto _ : state) {
        if (!qv::IFileSystem::CopyFileW(&disk, paths.from.c_str(), &disk, paths.to.c_str(), true)) {
            state.SkipWithError("copy failed");
        }
    }
    state.SetBytesProcessed(state.iterations() * CopyPaths::size);
}
QV_ROW("copy a file of 64 MB", "qv", copyOnDisk)->Unit(benchmark::kMillisecond);

void copyByStreams(benchmark::State& state) {
    const CopyPaths& paths = copyPaths();
    for (auto _ : state) {
        std::ifstream in(paths.from.GetUTF8(), std::ios::binary);
        std::ofstream out(paths.to.GetUTF8(), std::ios::binary);
        out << in.rdbuf();
    }
    state.SetBytesProcessed(state.iterations() * CopyPaths::size);
}
QV_ROW("copy a file of 64 MB", "streams", copyByStreams)->Unit(benchmark::kMillisecond);

void listing(benchmark::State& state) {
    const Folder& folder = manyFiles();
    for (auto _ : state) {
        const auto found = qv::fileSystem().GetDirectoryListing(folder.path.c_str(), u"f*");
        if (found.entries.size() != 10'000) state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * 10'000);
}
QV_ROW("list 10000 files", "qv", listing)->Unit(benchmark::kMillisecond);

void listingByStandardLibrary(benchmark::State& state) {
    const std::string folder(manyFiles().path.GetUTF8());
    for (auto _ : state) {
        int64_t bytes = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().filename().string()[0] == 'f') bytes += static_cast<int64_t>(entry.file_size());
        }
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * 10'000);
}
QV_ROW("list 10000 files", "std", listingByStandardLibrary)->Unit(benchmark::kMillisecond);

void wildcards(benchmark::State& state) {
    for (auto _ : state) {
        if (!qv::IFileSystem::WildcardMatch(u"*frame*.saf", u"recording_frame_000123.SAF")) state.SkipWithError("no");
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("match a wildcard", "qv", wildcards);

void wildcardsByFnmatch(benchmark::State& state) {
    for (auto _ : state) {
        if (fnmatch("*frame*.saf", "recording_frame_000123.SAF", FNM_CASEFOLD) != 0) state.SkipWithError("no");
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("match a wildcard", "fnmatch", wildcardsByFnmatch);

}  // namespace

BENCHMARK_MAIN();
