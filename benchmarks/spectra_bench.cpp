// The Planck curve and the radiance in a camera's band, beside the same expressions in plain loops with the C library's
// exp and pow, with its vector forms (libmvec), and in NumPy (numpy_rows.py). Items are points of the axis.
#include "rows.h"

#include <cmath>

#include "peers/peers.h"
#include "qv/rcal_file.h"
#include "qv/spectral.h"

namespace {

using namespace qv;

constexpr double celsius = 25.0, emissivity = 0.95;

// A curve
// ---------------------------------------------------------------------------------------------------------------

constexpr uint32_t curvePoints = 200000;

/// run(x, y) makes the curve; its values must be those of the plain loop but for the last digits of exp and pow.
template <class Run>
void curve(benchmark::State& state, double tolerance, Run run) {
    TArray<double> x, y;
    XAxis(x, 3.0, 5.0, curvePoints);
    y.SetSize(curvePoints);
    std::vector<double> plain(curvePoints);
    peers::native::planck(plain.data(), x.data(), curvePoints, celsius, emissivity);
    run(x, y);
    double sum = 0.0;
    for (uint32_t i = 0; i < curvePoints; ++i) {
        const double value = y.data()[i];
        if (!(std::fabs(value - plain[i]) <= tolerance * plain[i])) return state.SkipWithError("other values");
        sum += value;
    }
    for (auto _ : state) {
        run(x, y);
        benchmark::ClobberMemory();
    }
    bench::setItems(state, curvePoints);
    bench::setAnswer(state, sum);
}

void curveQv(benchmark::State& state) {
    curve(state, 4e-15, [](TArray<double>& x, TArray<double>& y) { Planck(x, y, celsius, emissivity); });
    bench::setKernel(state);
}
void curveNative(benchmark::State& state) {
    curve(state, 0.0, [](TArray<double>& x, TArray<double>& y) {
        peers::native::planck(y.data(), x.data(), curvePoints, celsius, emissivity);
    });
}
void curveLibmvec(benchmark::State& state) {
    curve(state, 1e-13, [](TArray<double>& x, TArray<double>& y) {
        peers::libmvec::planck(y.data(), x.data(), curvePoints, celsius, emissivity);
    });
}
QV_ROW("Planck curve of 200000 points", "qv", curveQv);
QV_ROW("Planck curve of 200000 points", "native", curveNative);
QV_ROW("Planck curve of 200000 points", "libmvec", curveLibmvec);

// A band
// ----------------------------------------------------------------------------------------------------------------

/// A camera from 3 to 5 microns with 2,001 points on its axis.
CRCalFile& camera() {
    static CRCalFile made;
    static const bool set = [] {
        made.spectralResponse().setType(ESpectralResponseType::tophat);
        made.tophat().setStart(3.0);
        made.tophat().setEnd(5.0);
        made.tophat().setDelta(0.001);
        return true;
    }();
    benchmark::DoNotOptimize(set);
    return made;
}

/// run(x, response, t) gives the radiance. The temperature differs each time, as it does when a camera is calibrated.
template <class Run>
void band(benchmark::State& state, Run run) {
    const CRCalFile::CAxis axis = camera().axis();
    std::vector<double> x(axis.getCount());
    for (uint32_t i = 0; i < x.size(); ++i) x[i] = axis[i];
    const std::vector<double> response(x.size(), 1.0);
    const double answer = run(x, response, celsius);
    const double plain = peers::native::inBand(x.data(), response.data(), x.size(), celsius, emissivity);
    if (!(std::fabs(answer - plain) <= 1e-13 * plain)) return state.SkipWithError("other radiance");
    double t = celsius;
    for (auto _ : state) benchmark::DoNotOptimize(run(x, response, t += 1e-3));
    bench::setItems(state, x.size());
    bench::setAnswer(state, answer);
}
using Values = std::vector<double>;

void bandQv(benchmark::State& state) {
    band(state, [](const Values&, const Values&, double t) { return camera().CalcRadiance(t, emissivity); });
    bench::setKernel(state);
}
void bandNative(benchmark::State& state) {
    band(state, [](const Values& x, const Values& response, double t) {
        return peers::native::inBand(x.data(), response.data(), x.size(), t, emissivity);
    });
}
void bandLibmvec(benchmark::State& state) {
    band(state, [](const Values& x, const Values& response, double t) {
        return peers::libmvec::inBand(x.data(), response.data(), x.size(), t, emissivity);
    });
}
QV_ROW("band radiance of 2000 points", "qv", bandQv);
QV_ROW("band radiance of 2000 points", "native", bandNative);
QV_ROW("band radiance of 2000 points", "libmvec", bandLibmvec);

}  // namespace

BENCHMARK_MAIN();
