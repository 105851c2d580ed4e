// What the rows of the table share. A row is a benchmark named "job/contestant"; table.py sets the contestants of a job
// side by side. "qv" is ours, "memcpy" and "system call" are what bounds the job, every other name is a peer. What
// Google Benchmark appends to the name (arguments, threads) belongs to the job.
//
// A row says how many bytes or items one iteration handles, the same for all contestants of a job. It checks its result
// before it is timed and is skipped with an error where that is wrong; where contestants are programs of their own
// kind, each also reports a number that its result comes to, and the table compares these.
#pragma once

#include <benchmark/benchmark.h>

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
/// of them written.
inline void addMemcpy(const std::string& job, size_t bytesMoved) {
    add(job, "memcpy", [bytesMoved](benchmark::State& state) {
        const std::vector<char> from(bytesMoved / 2, 'x');
        std::vector<char> to(bytesMoved / 2);
        for (auto _ : state) {
            std::memcpy(to.data(), from.data(), from.size());
            benchmark::ClobberMemory();
        }
        setBytes(state, bytesMoved);
    });
}

}  // namespace bench

/// A row whose job and contestant are known when it is compiled.
#define QV_ROW(job, contestant, function) BENCHMARK(function)->Name(job "/" contestant)
