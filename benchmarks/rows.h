// What the rows of the table share. A row is a benchmark named "job/contestant"; table.py sets the contestants of a job
// side by side. "qv" is ours, "memcpy" and "system call" are what bounds the job, every other name is a peer. What
// Google Benchmark appends to the name (arguments, threads) belongs to the job.
//
// A row says how many bytes or items one iteration handles, the same for all contestants of a job. It checks its result
// and is skipped with an error where that is wrong. Contestants that share no memory to compare also report a number
// that their result comes to, and the table compares these.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "qv/typed_data.h"

namespace bench {

inline void setBytes(benchmark::State& state, size_t each) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(each));
}

inline void setItems(benchmark::State& state, size_t each) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(each));
}

/// Of a row whose work the library's vector kernels do.
inline void setKernel(benchmark::State& state) { state.SetLabel(qv::Private::kernelName()); }

/// What the result comes to: a sum, a parameter. The contestants of a job must agree on it to 6 digits.
inline void setAnswer(benchmark::State& state, double answer) { state.counters["answer"] = answer; }

/// A row that is made when the program starts; run(state) does it.
template <class Run>
benchmark::internal::Benchmark* add(const std::string& job, const std::string& contestant, Run run) {
    return benchmark::RegisterBenchmark((job + '/' + contestant).c_str(), std::move(run));
}

/// The bound of a job that streams through memory: a copy that moves as many bytes in all, half of them read and half
/// of them written, in one call or in calls of so many bytes. (The C library copies very large blocks past the caches.)
inline void addMemcpy(const std::string& job, size_t bytesMoved, size_t piece = 0) {
    add(job, piece == 0 ? "memcpy" : "memcpy in pieces",
        [bytesMoved, piece, from = std::vector<char>(), to = std::vector<char>()](auto& state) mutable {
            from.resize(bytesMoved / 2, 'x');
            to.resize(from.size());
            const size_t step = piece == 0 ? from.size() : piece;
            for (auto _ : state) {
                for (size_t at = 0; at < from.size(); at += step) {
                    std::memcpy(to.data() + at, from.data() + at, std::min(step, from.size() - at));
                }
                benchmark::ClobberMemory();
            }
            setBytes(state, bytesMoved);
        });
}

}  // namespace bench

/// A row whose job and contestant are known when it is compiled.
#define QV_ROW(job, contestant, function) BENCHMARK(function)->Name(job "/" contestant)
