// Polynomial fits beside GSL and numpy.polyfit (numpy_rows.py), and fits of other models beside lmdif of cminpack with
// the same tolerances. Items are fits.
#include "rows.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include "../tests/numerics/nist_models.h"
#include "qv/curve_fit.h"

#ifdef QV_PEER_GSL
#include <gsl/gsl_multifit.h>
#endif
#ifdef QV_PEER_CMINPACK
#include <cminpack.h>
#endif

namespace {

using namespace qv;

TArray<double> arrayOf(const std::vector<double>& values) {
    TArray<double> made;
    for (const double value : values) made.Add(value);
    return made;
}

// Polynomials
// -----------------------------------------------------------------------------------------------------------

struct Points {
    explicit Points(uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            x.push_back(i * (16384.0 / count));
            y.push_back(3.0 + x.back() * (2.0 - 1e-4 * x.back()));
        }
    }
    std::vector<double> x, y;
};

/// What a fit comes to: the polynomial in the middle of the points, which all contestants get right.
void setPolynomialAnswer(benchmark::State& state, const double* coefficients, int order) {
    double value = 0.0;
    for (int i = order; i >= 0; --i) value = value * 8192.0 + coefficients[i];
    bench::setAnswer(state, value);
}

void polynomialQv(benchmark::State& state, uint32_t count, int order) {
    const Points points(count);
    TArray<double> x = arrayOf(points.x), y = arrayOf(points.y), c;
    if (!LinearLeastSquareFit(x, y, order, c) || !(std::fabs(c.data()[0] - 3.0) <= 1e-11) ||
        !(std::fabs(c.data()[1] - 2.0) <= 1e-14) || !(std::fabs(c.data()[2] + 1e-4) <= 1e-16)) {
        return state.SkipWithError("other coefficients");
    }
    for (auto _ : state) benchmark::DoNotOptimize(LinearLeastSquareFit(x, y, order, c));
    bench::setItems(state, 1);
    setPolynomialAnswer(state, c.data(), order);
}

#ifdef QV_PEER_GSL
void polynomialGsl(benchmark::State& state, uint32_t count, int order) {
    const Points points(count);
    const size_t columns = static_cast<size_t>(order) + 1;
    gsl_matrix* design = gsl_matrix_alloc(count, columns);
    gsl_matrix* covariance = gsl_matrix_alloc(columns, columns);
    gsl_vector* solution = gsl_vector_alloc(columns);
    gsl_multifit_linear_workspace* work = gsl_multifit_linear_alloc(count, columns);
    const gsl_vector_const_view values = gsl_vector_const_view_array(points.y.data(), count);
    for (auto _ : state) {
        for (uint32_t i = 0; i < count; ++i) {
            double power = 1.0;
            for (size_t k = 0; k < columns; ++k, power *= points.x[i]) gsl_matrix_set(design, i, k, power);
        }
        double chiSquared = 0.0;
        gsl_multifit_linear(design, &values.vector, solution, covariance, &chiSquared, work);
        benchmark::DoNotOptimize(solution);
    }
    bench::setItems(state, 1);
    setPolynomialAnswer(state, solution->data, order);
    gsl_multifit_linear_free(work);
    gsl_vector_free(solution);
    gsl_matrix_free(covariance);
    gsl_matrix_free(design);
}
#endif

const bool polynomials = [] {
    for (const auto& [count, order] : {std::pair(1000u, 3), std::pair(1000u, 6), std::pair(16384u, 6)}) {
        const std::string job =
            "polynomial of order " + std::to_string(order) + " through " + std::to_string(count) + " points";
        bench::add(job, "qv", [=](benchmark::State& state) { polynomialQv(state, count, order); });
#ifdef QV_PEER_GSL
        bench::add(job, "gsl", [=](benchmark::State& state) { polynomialGsl(state, count, order); });
#endif
    }
    return true;
}();

// Levenberg-Marquardt
// ---------------------------------------------------------------------------------------------------

constexpr int maxCalls = 10000;

struct Fit {
    nist::Model model;
    std::vector<double> x, y, start;
    std::vector<double> certified;  ///< empty where nobody certifies
};
using FitPtr = std::shared_ptr<const Fit>;

void report(benchmark::State& state, const Fit& fit, const double* b) {
    bench::setItems(state, 1);
    bench::setAnswer(state, b[0]);
    if (!fit.certified.empty()) state.counters["digits"] = nist::digits(b, fit.certified);
}

void fitQv(benchmark::State& state, const Fit& fit) {
    TArray<double> x = arrayOf(fit.x), y = arrayOf(fit.y), b;
    TArray<bool> free;
    for (size_t i = 0; i < fit.start.size(); ++i) free.Add(true);
    for (auto _ : state) {
        b.Empty();
        for (const double value : fit.start) b.Add(value);
        if (!lmfit(x, y, b, free, fit.model, maxCalls)) return state.SkipWithError("did not converge");
    }
    report(state, fit, b.data());
}

#ifdef QV_PEER_CMINPACK
int residuals(void* data, int m, int n, const double* b, double* out, int) {
    const Fit& fit = *static_cast<const Fit*>(data);
    double copy[16];
    std::copy(b, b + n, copy);
    for (int i = 0; i < m; ++i)
        out[i] = fit.y[static_cast<size_t>(i)] - fit.model(fit.x[static_cast<size_t>(i)], copy, n);
    return 0;
}

void fitCminpack(benchmark::State& state, const Fit& fit) {
    constexpr double tolerance = 6.661338147750939e-15;  // as lmfit has
    const size_t m = fit.y.size(), n = fit.start.size();
    std::vector<double> b, values(m), scale(n), jacobian(m * n), qtf(n), work1(n), work2(n), work3(n), work4(m);
    std::vector<int> order(n);
    int calls = 0;
    for (auto _ : state) {
        b = fit.start;
        lmdif(residuals, const_cast<Fit*>(&fit), static_cast<int>(m), static_cast<int>(n), b.data(), values.data(),
              tolerance, tolerance, tolerance, maxCalls, tolerance, scale.data(), 1, 100.0, 0, &calls, jacobian.data(),
              static_cast<int>(m), order.data(), qtf.data(), work1.data(), work2.data(), work3.data(), work4.data());
    }
    report(state, fit, b.data());
}
#endif

void addFit(const std::string& job, const FitPtr& fit) {
    bench::add(job, "qv", [=](benchmark::State& state) { fitQv(state, *fit); });
#ifdef QV_PEER_CMINPACK
    bench::add(job, "cminpack", [=](benchmark::State& state) { fitCminpack(state, *fit); });
#endif
}

/// The published problems, from their first starting points, where their files are: in QV_DATA_DIR.
const bool published = [] {
    const char* folder = std::getenv("QV_DATA_DIR");
    for (const nist::Named& named : nist::models) {
        nist::Problem problem;
        const std::string path = folder != nullptr ? folder : "../shared/data";
        if (!nist::load(path + "/nist/" + named.name + ".dat", problem)) continue;
        addFit(
            std::string("lmfit of ") + named.name,
            std::make_shared<const Fit>(Fit{named.model, problem.x1, problem.y, problem.start[0], problem.certified}));
    }
    return true;
}();

/// Two peaks on a decay (the model of Gauss1, 8 parameters), with noise.
const bool peaks = [] {
    const auto gauss = std::find_if(std::begin(nist::models), std::end(nist::models),
                                    [](const nist::Named& named) { return std::string(named.name) == "Gauss1"; });
    std::vector<double> truth = {98.8, 0.0105, 100.5, 67.5, 23.1, 72.0, 179.0, 18.4};
    for (const int count : {250, 10000}) {
        Fit fit{gauss->model, {}, {}, {97.0, 0.009, 100.0, 65.0, 20.0, 70.0, 178.0, 16.5}, {}};
        for (int i = 1; i <= count; ++i) {
            fit.x.push_back(i * 250.0 / count);
            fit.y.push_back(fit.model(fit.x.back(), truth.data(), 8) + std::sin(i * 12.9898));
        }
        addFit("lmfit of two peaks, " + std::to_string(count) + " points", std::make_shared<const Fit>(fit));
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
