// Fits, Planck curves and typed arrays beside their peers. Each row checks its answer before it is timed; a kernel row
// carries the name of the kernel table.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "../tests/numerics/nist_models.h"
#include "qv/curve_fit.h"
#include "qv/spectral.h"
#include "qv/typed_data.h"

#ifdef QV_PEER_GSL
#include <gsl/gsl_multifit.h>
#endif
#ifdef QV_PEER_CMINPACK
#include <cminpack.h>
#endif

namespace {

using namespace qv;

// Polynomial of degree 6 through 16384 points
// ---------------------------------------------------------------------------

constexpr int fitOrder = 6;
constexpr uint32_t fitPoints = 16384;

double fitTruth(double x) { return 3.0 + x * (2.0 - 1e-4 * x); }

void fitData(TArray<double>& x, TArray<double>& y) {
    for (uint32_t i = 0; i < fitPoints; ++i) {
        x.Add(i);
        y.Add(fitTruth(i));
    }
}

void polynomialFit(benchmark::State& state) {
    TArray<double> x, y, c;
    fitData(x, y);
    if (!LinearLeastSquareFit(x, y, fitOrder, c) || std::fabs(c.data()[2] + 1e-4) > 1e-16) {
        return state.SkipWithError("wrong coefficients");
    }
    for (auto _ : state) benchmark::DoNotOptimize(LinearLeastSquareFit(x, y, fitOrder, c));
    state.SetItemsProcessed(state.iterations() * fitPoints);
}
BENCHMARK(polynomialFit)->Unit(benchmark::kMicrosecond);

#ifdef QV_PEER_GSL
void polynomialFitGsl(benchmark::State& state) {
    TArray<double> x, y;
    fitData(x, y);
    constexpr size_t columns = fitOrder + 1;
    gsl_matrix* design = gsl_matrix_alloc(fitPoints, columns);
    gsl_matrix* covariance = gsl_matrix_alloc(columns, columns);
    gsl_vector* solution = gsl_vector_alloc(columns);
    gsl_multifit_linear_workspace* work = gsl_multifit_linear_alloc(fitPoints, columns);
    const gsl_vector_const_view values = gsl_vector_const_view_array(y.data(), fitPoints);
    for (auto _ : state) {
        for (uint32_t i = 0; i < fitPoints; ++i) {
            double power = 1.0;
            for (size_t k = 0; k < columns; ++k, power *= x.data()[i]) gsl_matrix_set(design, i, k, power);
        }
        double chiSquared = 0.0;
        gsl_multifit_linear(design, &values.vector, solution, covariance, &chiSquared, work);
        benchmark::DoNotOptimize(solution);
    }
    state.SetItemsProcessed(state.iterations() * fitPoints);
    gsl_multifit_linear_free(work);
    gsl_vector_free(solution);
    gsl_matrix_free(covariance);
    gsl_matrix_free(design);
}
BENCHMARK(polynomialFitGsl)->Unit(benchmark::kMicrosecond);
#endif

// Levenberg-Marquardt: Gauss1 of the Statistical Reference Datasets made anew (8 parameters, 250 points)
// -----------------

const std::vector<double> gaussTruth = {98.8, 0.0105, 100.5, 67.5, 23.1, 72.0, 179.0, 18.4};
const std::vector<double> gaussStart = {97.0, 0.009, 100.0, 65.0, 20.0, 70.0, 178.0, 16.5};
constexpr int maxCalls = 10000;

const nist::Model gauss = std::find_if(std::begin(nist::models), std::end(nist::models), [](const nist::Named& named) {
                              return std::string(named.name) == "Gauss1";
                          })->model;

void gaussData(TArray<double>& x, TArray<double>& y) {
    std::vector<double> truth = gaussTruth;
    for (int i = 1; i <= 250; ++i) {
        x.Add(i);
        y.Add(gauss(i, truth.data(), 8) + std::sin(i * 12.9898));
    }
}

void levenbergMarquardt(benchmark::State& state) {
    TArray<double> x, y, b;
    TArray<bool> fit;
    gaussData(x, y);
    for (size_t i = 0; i < gaussStart.size(); ++i) fit.Add(true);
    for (auto _ : state) {
        b.Empty();
        for (const double v : gaussStart) b.Add(v);
        if (!lmfit(x, y, b, fit, gauss, maxCalls)) return state.SkipWithError("did not converge");
    }
    if (std::fabs(b.data()[6] - 179.0) > 0.5) state.SkipWithError("wrong parameters");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(levenbergMarquardt)->Unit(benchmark::kMicrosecond);

#ifdef QV_PEER_CMINPACK
struct GaussData {
    TArray<double> x, y;
};

int gaussResiduals(void* data, int m, int n, const double* b, double* residuals, int) {
    const auto& d = *static_cast<const GaussData*>(data);
    double copy[8];
    std::copy(b, b + n, copy);
    for (int i = 0; i < m; ++i) residuals[i] = d.y.data()[i] - gauss(d.x.data()[i], copy, n);
    return 0;
}

void levenbergMarquardtCminpack(benchmark::State& state) {
    GaussData data;
    gaussData(data.x, data.y);
    constexpr int m = 250;
    constexpr int n = 8;
    constexpr double tolerance = 6.661338147750939e-15;
    double residuals[m], scale[n], jacobian[m * n], qtf[n], work1[n], work2[n], work3[n], work4[m];
    int order[n];
    int calls = 0;
    std::vector<double> b;
    for (auto _ : state) {
        b = gaussStart;
        benchmark::DoNotOptimize(lmdif(gaussResiduals, &data, m, n, b.data(), residuals, tolerance, tolerance,
                                       tolerance, maxCalls, tolerance, scale, 1, 100.0, 0, &calls, jacobian, m, order,
                                       qtf, work1, work2, work3, work4));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(levenbergMarquardtCminpack)->Unit(benchmark::kMicrosecond);

/// The folder of real measurement files: QV_DATA_DIR in the environment.
std::string dataFolder() {
    const char* folder = std::getenv("QV_DATA_DIR");
    return folder != nullptr ? folder : "../shared/data";
}

/// Digits from both starting points of every published problem, ours and the peer's: counters, not a time.
void certifiedDigits(benchmark::State& state) {
    struct Context {
        const nist::Problem* problem;
        nist::Model model;
    };
    const auto residualsOf = [](void* data, int m, int n, const double* b, double* residuals, int) {
        const auto& context = *static_cast<const Context*>(data);
        std::vector<double> copy(b, b + n);
        for (size_t i = 0; i < static_cast<size_t>(m); ++i) {
            residuals[i] = context.problem->y[i] - context.model(context.problem->x1[i], copy.data(), n);
        }
        return 0;
    };
    const nist::Named& named = nist::models[state.range(0)];
    nist::Problem problem;
    if (!nist::load(dataFolder() + "/nist/" + named.name + ".dat", problem)) {
        return state.SkipWithError("file not there");
    }
    Context context{&problem, named.model};
    const auto m = static_cast<int>(problem.y.size());
    const auto n = static_cast<int>(problem.certified.size());
    constexpr double tolerance = 6.661338147750939e-15;
    for (auto _ : state) {
        for (int start = 0; start < 2; ++start) {
            TArray<double> x, y, b;
            TArray<bool> fit;
            for (const double v : problem.x1) x.Add(v);
            for (const double v : problem.y) y.Add(v);
            for (const double v : problem.start[start]) {
                b.Add(v);
                fit.Add(true);
            }
            lmfit(x, y, b, fit, named.model, maxCalls);
            std::vector<double> peer = problem.start[start];
            std::vector<double> work(static_cast<size_t>(m * (n + 2) + 5 * n));
            std::vector<int> order(static_cast<size_t>(n));
            double* residuals = work.data();
            double* last = residuals + m;
            double* jacobian = last + m;
            double* rows = jacobian + m * n;
            int calls = 0;
            lmdif(residualsOf, &context, m, n, peer.data(), residuals, tolerance, tolerance, tolerance, maxCalls,
                  tolerance, rows, 1, 100.0, 0, &calls, jacobian, m, order.data(), rows + n, rows + 2 * n, rows + 3 * n,
                  rows + 4 * n, last);
            const std::string number = std::to_string(start + 1);
            state.counters["qv" + number] = nist::digits(b.data(), problem.certified);
            state.counters["minpack" + number] = nist::digits(peer.data(), problem.certified);
        }
    }
    state.SetLabel(named.name);
}
BENCHMARK(certifiedDigits)->DenseRange(0, std::size(nist::models) - 1)->Iterations(1);
#endif

// Planck curve of 200,000 points
// ----------------------------------------------------------------------------------------

constexpr uint32_t planckPoints = 200000;

__attribute__((noinline)) void plainPlanck(const double* x, double* y, size_t count, double t, double e) {
    for (size_t i = 0; i < count; ++i) {
        y[i] = e * (11910.06 / std::pow(x[i], 5.0)) * (1.0 / (std::exp(14388.3 / ((t + 273.15) * x[i])) - 1.0));
    }
}

void planckCurve(benchmark::State& state) {
    TArray<double> x, y;
    XAxis(x, 3.0, 5.0, planckPoints);
    std::vector<double> plain(planckPoints);
    plainPlanck(x.data(), plain.data(), planckPoints, 25.0, 0.95);
    Planck(x, y, 25.0, 0.95);
    const auto differs = [](double a, double b) {
        return !(std::abs(a - b) <= 4e-15 * b);
    };  // exp and pow of two kinds
    if (std::inner_product(y.begin(), y.end(), plain.begin(), false, std::logical_or<>(), differs)) {
        return state.SkipWithError("not the plain loop's values");
    }
    for (auto _ : state) Planck(x, y, 25.0, 0.95);
    state.SetItemsProcessed(state.iterations() * planckPoints);
}
BENCHMARK(planckCurve)->Unit(benchmark::kMicrosecond);

void planckCurvePlainLoop(benchmark::State& state) {
    TArray<double> x;
    XAxis(x, 3.0, 5.0, planckPoints);
    std::vector<double> y(planckPoints);
    for (auto _ : state) plainPlanck(x.data(), y.data(), planckPoints, 25.0, 0.95);
    state.SetItemsProcessed(state.iterations() * planckPoints);
}
BENCHMARK(planckCurvePlainLoop)->Unit(benchmark::kMicrosecond);

/// The same expression in NumPy, timed by the interpreter itself: its best of 50 runs. Skipped where there is no NumPy.
void planckCurveNumPy(benchmark::State& state) {
    constexpr char script[] =
        "/usr/bin/python3 -c \"import numpy as n, time\n"
        "x = n.linspace(3.0, 5.0, 200000)\n"
        "def run():\n"
        " t = time.perf_counter()\n"
        " y = 0.95 * (11910.06 / n.power(x, 5.0)) * (1.0 / (n.exp(14388.3 / ((25.0 + 273.15) * x)) - 1.0))\n"
        " return time.perf_counter() - t\n"
        "print(min(run() for i in range(50)))\" 2>/dev/null";
    double seconds = 0.0;
    if (FILE* pipe = popen(script, "r")) {
        if (std::fscanf(pipe, "%lf", &seconds) != 1) seconds = 0.0;
        pclose(pipe);
    }
    if (seconds <= 0.0) return state.SkipWithError("NumPy is not installed");
    for (auto _ : state) state.SetIterationTime(seconds);
    state.SetItemsProcessed(state.iterations() * planckPoints);
}
BENCHMARK(planckCurveNumPy)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);

// Typed arrays, one 640 x 512 frame
// -------------------------------------------------------------------------------------

constexpr uint32_t framePixels = 640 * 512;

struct Frame {
    TSharedPtr<ITypedBuffer> buffer;
    explicit Frame(EDataType type) : buffer(AllocTypedBuffer(type, framePixels)) {
        for (uint32_t i = 0; i < framePixels; ++i) buffer->setAt(i, (i * 2654435761u) >> 20);
    }
    STypedData data() const { return buffer->typedData(); }
    int64_t bytes() const { return buffer->sizeInBytes(); }
};

void convertFrame(benchmark::State& state, EDataType to, EDataType from) {
    const Frame source(from), target(to);
    ConvertArray(target.data(), source.data(), framePixels);
    if (target.buffer->getAt(77) != source.buffer->getAt(77)) return state.SkipWithError("wrong element");
    for (auto _ : state) ConvertArray(target.data(), source.data(), framePixels);
    state.SetBytesProcessed(state.iterations() * (source.bytes() + target.bytes()));
    state.SetLabel(Private::kernelName());
}
BENCHMARK_CAPTURE(convertFrame, uint16_to_flt32, EDataType::flt32, EDataType::uint16);
BENCHMARK_CAPTURE(convertFrame, flt32_to_uint16, EDataType::uint16, EDataType::flt32);
BENCHMARK_CAPTURE(convertFrame, flt64_to_uint32, EDataType::uint32, EDataType::flt64);
BENCHMARK_CAPTURE(convertFrame, uint16_to_int16, EDataType::int16, EDataType::uint16);

void spanFrame(benchmark::State& state, EDataType to, EDataType a, EDataType b) {
    const Frame first(a), second(b), target(to);
    second.buffer->setAt(77, 5.0);
    TypedSpan(target.data(), first.data(), second.data(), framePixels);
    if (target.buffer->getAt(77) != std::fabs(first.buffer->getAt(77) - 5.0)) {
        return state.SkipWithError("wrong element");
    }
    for (auto _ : state) TypedSpan(target.data(), first.data(), second.data(), framePixels);
    state.SetBytesProcessed(state.iterations() * (first.bytes() + second.bytes() + target.bytes()));
    state.SetLabel(Private::kernelName());
}
BENCHMARK_CAPTURE(spanFrame, uint16, EDataType::uint16, EDataType::uint16, EDataType::uint16);
BENCHMARK_CAPTURE(spanFrame, flt32, EDataType::flt32, EDataType::flt32, EDataType::flt32);

/// The loop that TypedSpan replaces, for three types known when it is compiled.
void spanFramePlainLoop(benchmark::State& state) {
    const Frame first(EDataType::uint16), second(EDataType::uint16), target(EDataType::uint16);
    const uint16_t* a = first.buffer->uint16();
    const uint16_t* b = second.buffer->uint16();
    uint16_t* out = target.buffer->uint16();
    for (auto _ : state) {
        for (uint32_t i = 0; i < framePixels; ++i) {
            out[i] = static_cast<uint16_t>(static_cast<int32_t>(std::fabs(static_cast<double>(b[i] - a[i]))));
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (first.bytes() + second.bytes() + target.bytes()));
}
BENCHMARK(spanFramePlainLoop);

void minMaxFrame(benchmark::State& state, EDataType type) {
    const Frame frame(type);
    double min = 0;
    double max = 0;
    for (auto _ : state) {
        MinMax(frame.data(), framePixels, min, max);
        benchmark::DoNotOptimize(max);
    }
    if (min != 0.0 || max != 4095.0) state.SkipWithError("wrong range");
    state.SetBytesProcessed(state.iterations() * frame.bytes());
    state.SetLabel(Private::kernelName());
}
BENCHMARK_CAPTURE(minMaxFrame, uint16, EDataType::uint16);
BENCHMARK_CAPTURE(minMaxFrame, flt32, EDataType::flt32);

}  // namespace

BENCHMARK_MAIN();
