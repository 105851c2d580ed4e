// lmfit and lmfit2: the caller's model and data as residuals for the minimiser.
#include <algorithm>
#include <vector>

#include "numerics/levenberg_marquardt.h"
#include "qv/curve_fit.h"

namespace qv {

namespace {

constexpr double tolerance = 6.661338147750939e-15;  // 30 machine epsilons
constexpr double firstStepBound = 100.0;

/// Residuals y[i] - valueAt(i, all parameters), as a function of the free ones.
template <class ValueAt>
class ModelResiduals : public IResiduals {
public:
    ModelResiduals(const TArray<double>& y, const TArray<double>& params, const TArray<bool>& fit, ValueAt valueAt)
        : m_y(y.data()), m_count(y.size()), m_all(params.begin(), params.end()), m_valueAt(valueAt) {
        const uint32_t entries = std::min(fit.size(), params.size());
        for (uint32_t i = 0; i < entries; ++i) {
            if (fit.data()[i]) m_free.push_back(i);
        }
    }

    const std::vector<uint32_t>& freeIndices() const { return m_free; }

    void evaluate(const double* parameters, double* residuals) override {
        for (size_t j = 0; j < m_free.size(); ++j) m_all[m_free[j]] = parameters[j];
        const int total = static_cast<int>(m_all.size());
        for (uint32_t i = 0; i < m_count; ++i) residuals[i] = m_y[i] - m_valueAt(i, m_all.data(), total);
    }

private:
    const double* m_y;
    uint32_t m_count;
    std::vector<double> m_all;
    std::vector<uint32_t> m_free;
    ValueAt m_valueAt;
};

template <class ValueAt>
bool fitModel(const TArray<double>& y, TArray<double>& params, const TArray<bool>& fit, int maxCalls, ValueAt valueAt) {
    ModelResiduals<ValueAt> residuals(y, params, fit, valueAt);
    std::vector<double> solution;
    for (const uint32_t i : residuals.freeIndices()) solution.push_back(params.data()[i]);

    const LevenbergMarquardtSettings settings{tolerance, tolerance, tolerance, tolerance, firstStepBound, maxCalls};
    const LevenbergMarquardtResult result = minimise(residuals, y.size(), solution, settings);
    if (result == LevenbergMarquardtResult::badInput) return false;
    for (size_t j = 0; j < solution.size(); ++j) params.data()[residuals.freeIndices()[j]] = solution[j];
    return result == LevenbergMarquardtResult::converged || result == LevenbergMarquardtResult::exhausted;
}

}  // namespace

bool lmfit(TArray<double>& x, TArray<double>& y, TArray<double>& params, TArray<bool> fit,
           double (*model)(double x, double* params, int count), int maxCalls) {
    if (x.size() != y.size()) return false;
    const double* at = x.data();
    return fitModel(y, params, fit, maxCalls,
                    [=](uint32_t i, double* all, int count) { return model(at[i], all, count); });
}

bool lmfit2(TArray<double>& x1, TArray<double>& x2, TArray<double>& y, TArray<double>& params, TArray<bool> fit,
            double (*model)(double x1, double x2, double* params, int count), int maxCalls) {
    if (x1.size() != y.size() || x2.size() != y.size()) return false;
    const double* at1 = x1.data();
    const double* at2 = x2.data();
    return fitModel(y, params, fit, maxCalls,
                    [=](uint32_t i, double* all, int count) { return model(at1[i], at2[i], all, count); });
}

}  // namespace qv
