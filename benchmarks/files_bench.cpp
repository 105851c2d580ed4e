// Files: the memory file against std::vector, the disk copy against std::filesystem, name matching against fnmatch.
#include <benchmark/benchmark.h>
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
BENCHMARK(memoryFileTypedWrites);

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
BENCHMARK(vectorAppends);

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
BENCHMARK(swappedArray);

void plainCopyOfArray(benchmark::State& state) {
    const std::vector<uint32_t> from(values);
    std::vector<uint32_t> to(values);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), values * 4);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * values * 4);
}
BENCHMARK(plainCopyOfArray);

/// Two paths in a folder that goes away; the first is a file of 64 MiB.
struct CopyFolder {
    static constexpr int64_t size = 64 << 20;
    CopyFolder() : folder(qv::fileSystem().CreateTempDirectory()) {
        from = folder + u"/from";
        to = folder + u"/to";
        const std::vector<char> block(1 << 20, 'x');
        std::ofstream out(from.GetUTF8());
        for (int i = 0; i < 64; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    ~CopyFolder() { qv::fileSystem().RemoveDirectoryW(folder.c_str(), true); }
    qv::CString folder, from, to;
};

void copyOnDisk(benchmark::State& state) {
    CopyFolder paths;
    qv::CFileSystem& disk = qv::fileSystem();
    for (auto _ : state) {
        if (!qv::IFileSystem::CopyFileW(&disk, paths.from.c_str(), &disk, paths.to.c_str(), true)) {
            state.SkipWithError("copy failed");
        }
    }
    state.SetBytesProcessed(state.iterations() * CopyFolder::size);
}
BENCHMARK(copyOnDisk)->Unit(benchmark::kMillisecond);

void copyByStreams(benchmark::State& state) {
    CopyFolder paths;
    for (auto _ : state) {
        std::ifstream in(paths.from.GetUTF8(), std::ios::binary);
        std::ofstream out(paths.to.GetUTF8(), std::ios::binary);
        out << in.rdbuf();
    }
    state.SetBytesProcessed(state.iterations() * CopyFolder::size);
}
BENCHMARK(copyByStreams)->Unit(benchmark::kMillisecond);

void listing(benchmark::State& state) {
    CopyFolder paths;
    for (int i = 0; i < 10'000; ++i) std::ofstream(std::string(paths.folder.GetUTF8()) + "/f" + std::to_string(i));
    for (auto _ : state) {
        const auto found = qv::fileSystem().GetDirectoryListing(paths.folder.c_str(), u"f*");
        if (found.entries.size() != 10'000 + 1) state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * 10'000);
}
BENCHMARK(listing)->Unit(benchmark::kMillisecond);

void listingByStandardLibrary(benchmark::State& state) {
    CopyFolder paths;
    const std::string folder = paths.folder.GetUTF8();
    for (int i = 0; i < 10'000; ++i) std::ofstream(folder + "/f" + std::to_string(i));
    for (auto _ : state) {
        int64_t bytes = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().filename().string()[0] == 'f') bytes += static_cast<int64_t>(entry.file_size());
        }
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * 10'000);
}
BENCHMARK(listingByStandardLibrary)->Unit(benchmark::kMillisecond);

void wildcards(benchmark::State& state) {
    for (auto _ : state) {
        if (!qv::IFileSystem::WildcardMatch(u"*frame*.saf", u"recording_frame_000123.SAF")) state.SkipWithError("no");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(wildcards);

void wildcardsByFnmatch(benchmark::State& state) {
    for (auto _ : state) {
        if (fnmatch("*frame*.saf", "recording_frame_000123.SAF", FNM_CASEFOLD) != 0) state.SkipWithError("no");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(wildcardsByFnmatch);

}  // namespace

BENCHMARK_MAIN();
