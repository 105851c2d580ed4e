// Bad pixels of a frame of 1024 x 1024: finding their substitutes, beside a plain copy of the table that is written;
// and putting the substitutes into a frame of 16-bit counts, beside a copy of the frame and a loop over its pixels.
#include "rows.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "../tools/qv/norm_correction.h"
#include "qv/norm_file.h"

namespace {

constexpr uint32_t side = 1024;
constexpr size_t pixels = size_t{side} * side;

/// A map with one bad pixel in a hundred, scattered, or in one square block.
std::vector<uint8_t> scattered() {
    std::vector<uint8_t> flags(pixels);
    std::mt19937 random(1);
    for (size_t i = 0; i < pixels / 100; ++i) flags[random() % pixels] = 1;
    return flags;
}
std::vector<uint8_t> block(uint32_t width) {
    std::vector<uint8_t> flags(pixels);
    for (uint32_t y = 100; y < 100 + width; ++y) std::fill_n(flags.begin() + y * side + 100, width, uint8_t{1});
    return flags;
}

void setup(benchmark::State& state, const std::vector<uint8_t>& flags) {
    std::vector<uint32_t> subs(pixels);
    for (auto _ : state) {
        qv::CNormFile::SetupBPSubs(flags.data(), subs.data(), side, side);
        benchmark::DoNotOptimize(subs.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{pixels});
}
BENCHMARK_CAPTURE(setup, scattered1Percent, scattered())->Name("find substitutes, 1 percent scattered/qv");
BENCHMARK_CAPTURE(setup, block1Percent, block(102))->Name("find substitutes, a block of 1 percent/qv");
BENCHMARK_CAPTURE(setup, block75Percent, block(886))->Name("find substitutes, a block of 75 percent/qv");

void copyOfTheTable(benchmark::State& state) {
    const std::vector<uint32_t> from(pixels, 7);
    std::vector<uint32_t> to(pixels);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), pixels * sizeof(uint32_t));
        benchmark::DoNotOptimize(to.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{pixels});
}
QV_ROW("find substitutes, 1 percent scattered", "memcpy", copyOfTheTable);
QV_ROW("find substitutes, a block of 1 percent", "memcpy", copyOfTheTable);
QV_ROW("find substitutes, a block of 75 percent", "memcpy", copyOfTheTable);

std::vector<uint32_t> substitutes() {
    const std::vector<uint8_t> flags = scattered();
    std::vector<uint32_t> subs(pixels);
    qv::CNormFile::SetupBPSubs(flags.data(), subs.data(), side, side);
    return subs;
}

void substituteInPlace(benchmark::State& state) {
    std::vector<uint16_t> frame(pixels, 1000);
    tool::Substitution substitution(substitutes().data(), pixels);
    for (auto _ : state) {
        substitution.apply(frame.data());
        benchmark::DoNotOptimize(frame.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{pixels});
}
QV_ROW("substitute bad pixels", "qv", substituteInPlace)->Unit(benchmark::kMicrosecond);

void substituteByLoop(benchmark::State& state) {
    const std::vector<uint32_t> subs = substitutes();
    const std::vector<uint16_t> frame(pixels, 1000);
    std::vector<uint16_t> out(pixels);
    for (auto _ : state) {
        for (size_t i = 0; i < pixels; ++i) out[i] = frame[subs[i]];
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{pixels});
}
QV_ROW("substitute bad pixels", "plain loop", substituteByLoop)->Unit(benchmark::kMicrosecond);

void copyOfTheFrame(benchmark::State& state) {
    const std::vector<uint16_t> frame(pixels, 1000);
    std::vector<uint16_t> out(pixels);
    for (auto _ : state) {
        std::memcpy(out.data(), frame.data(), pixels * sizeof(uint16_t));
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t{pixels});
}
QV_ROW("substitute bad pixels", "memcpy", copyOfTheFrame)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
