// Counts to temperature in memory: 1000 frames of 640 x 512, each in memory of its own (2 GB in all), through a
// calibration, beside a plain loop with a table, and a copy that moves as many bytes.
#include "rows.h"

#include <cmath>

#include "peers/peers.h"
#include "qv/rcal_file.h"
#include "qv/rcal_frames.h"

namespace {

using namespace qv;

constexpr uint32_t width = 640, height = 512, framePixels = width * height, frames = 1000;
constexpr size_t pixels = size_t{framePixels} * frames;

/// A calibration of one page, its converter, and the frames.
struct Data {
    Data() : counts(pixels), celsius(pixels) {
        calibration.spectralResponse().setType(ESpectralResponseType::tophat);
        const int32_t page = calibration.calPages().Add();
        for (int t = 0; t <= 100; t += 10) {
            CAL_POINT point;
            point.temperature = t;
            point.measurement = 1000.0 + 6e6 * calibration.CalcRadiance(t, 1.0);
            calibration.calPage(page).points().Add(point);
        }
        calibration.calPage(page).range().setAuto(true);
        for (size_t i = 0; i < pixels; ++i) counts[i] = scene(i);
        table.resize(0x10000);
        CRCalFile::CCalPage proxy = calibration.calPage(page);
        for (uint32_t i = 0; i < table.size(); ++i) {
            table[i] = static_cast<float>(proxy.getTemperature(proxy.getRadiance(i)));
        }
    }
    /// A slope with noise, as a scene of a camera with 14 bits.
    static uint16_t scene(size_t i) {
        return static_cast<uint16_t>(2000 + 3000 * (i % width) / width +
                                     (static_cast<uint32_t>(i) * 2654435761u >> 26));
    }

    CRCalFile calibration;
    std::vector<uint16_t> counts;
    std::vector<float> celsius;
    std::vector<float> table;  ///< [count], by the page's own functions
};

Data& data() {
    static Data made;
    return made;
}

constexpr size_t bytesMoved = pixels * (sizeof(uint16_t) + sizeof(float));

/// run(celsius, counts) converts one frame.
template <class Run>
void convertFrames(benchmark::State& state, Run run) {
    Data& d = data();
    run(d.celsius.data(), d.counts.data());
    double sum = 0.0;
    for (uint32_t i = 0; i < framePixels; ++i) {
        const float expected = d.table[d.counts[i]];
        if (!(std::fabs(d.celsius[i] - expected) <= 1e-6f * std::fabs(expected))) {
            return state.SkipWithError("other temperatures");
        }
        sum += d.celsius[i];
    }
    for (auto _ : state) {
        for (size_t at = 0; at < pixels; at += framePixels) run(d.celsius.data() + at, d.counts.data() + at);
        benchmark::ClobberMemory();
    }
    bench::setBytes(state, bytesMoved);
    bench::setAnswer(state, sum);
}

void convertQv(benchmark::State& state) {
    const CCountsConverter converter(data().calibration, 0, EDataType::uint16);
    convertFrames(state, [&](float* celsius, uint16_t* counts) {
        const COUNTS_OUTSIDE outside =
            converter.Convert({celsius, EDataType::flt32}, {counts, EDataType::uint16}, framePixels);
        benchmark::DoNotOptimize(outside);
    });
    bench::setKernel(state);
}
void convertNative(benchmark::State& state) {
    convertFrames(state, [](float* celsius, uint16_t* counts) {
        peers::native::lookUp(celsius, counts, data().table.data(), framePixels);
    });
}
QV_ROW("counts to temperature, 1000 frames", "qv", convertQv);
QV_ROW("counts to temperature, 1000 frames", "native", convertNative);
const bool bounds = [] {
    bench::addMemcpy("counts to temperature, 1000 frames", bytesMoved);
    bench::addMemcpy("counts to temperature, 1000 frames", bytesMoved, bytesMoved / 2 / frames);
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
