#include "numerics/levenberg_marquardt.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "numerics/qr_factor.h"

namespace qv {

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();

class Minimiser {
public:
    Minimiser(IResiduals& residuals, size_t residualCount, std::vector<double>& parameters,
              const LevenbergMarquardtSettings& settings)
        : m_function(residuals),
          m_settings(settings),
          m_m(residualCount),
          m_n(parameters.size()),
          m_x(parameters),
          m_trial(m_n),
          m_scale(m_n),
          m_product(m_n),
          m_residuals(m_m),
          m_trialResiduals(m_m),
          m_rhs(m_m),
          m_qr(m_m, m_n),
          m_step(m_n) {}

    LevenbergMarquardtResult run() {
        evaluate(m_x, m_residuals);
        m_sumNorm = norm(m_residuals.data(), m_m);
        for (;;) {
            differentiate();
            m_rhs = m_residuals;
            m_qr.factor(m_rhs);
            if (!isFinite()) return LevenbergMarquardtResult::notFinite;
            if (m_firstIteration) startRegion();
            m_gradient = largestCosine();
            if (m_gradient <= m_settings.orthogonalTolerance) return LevenbergMarquardtResult::converged;
            for (size_t j = 0; j < m_n; ++j) m_scale[j] = std::max(m_scale[j], m_qr.columnNorms[j]);
            do {
                tryStep();
                if (const auto result = test(); result != running) return result;
            } while (m_ratio < 0.0001);
        }
    }

private:
    static constexpr auto running = LevenbergMarquardtResult::badInput;

    void evaluate(const std::vector<double>& parameters, std::vector<double>& residuals) {
        m_function.evaluate(parameters.data(), residuals.data());
        ++m_calls;
    }

    /// Forward differences, each by a step relative to its parameter.
    void differentiate() {
        const double relative = std::sqrt(std::max(m_settings.differenceError, epsilon));
        for (size_t j = 0; j < m_n; ++j) {
            const double kept = m_x[j];
            double step = relative * std::fabs(kept);
            if (step == 0.0) step = relative;
            m_x[j] = kept + step;
            evaluate(m_x, m_trialResiduals);
            m_x[j] = kept;
            double* column = m_qr.matrix.column(j);
            for (size_t i = 0; i < m_m; ++i) column[i] = (m_trialResiduals[i] - m_residuals[i]) / step;
        }
    }

    /// A NaN would pass every test below as if the fit had converged.
    bool isFinite() const {
        return std::isfinite(m_sumNorm) && std::all_of(m_qr.columnNorms.begin(), m_qr.columnNorms.end(),
                                                       [](double columnNorm) { return std::isfinite(columnNorm); });
    }

    void startRegion() {
        for (size_t j = 0; j < m_n; ++j) m_scale[j] = m_qr.columnNorms[j] == 0.0 ? 1.0 : m_qr.columnNorms[j];
        m_length = scaledNorm(m_x);
        m_radius = m_settings.stepBound * m_length;
        if (m_radius == 0.0) m_radius = m_settings.stepBound;
    }

    double scaledNorm(const std::vector<double>& vector) {
        for (size_t j = 0; j < m_n; ++j) m_product[j] = m_scale[j] * vector[j];
        return norm(m_product.data(), m_n);
    }

    /// The largest cosine of the angle between the residuals and a column of the Jacobian.
    double largestCosine() const {
        double largest = 0.0;
        if (m_sumNorm == 0.0) return largest;
        for (size_t j = 0; j < m_n; ++j) {
            const double columnNorm = m_qr.columnNorms[m_qr.order[j]];
            if (columnNorm == 0.0) continue;
            double sum = 0.0;
            for (size_t i = 0; i <= j; ++i) sum += m_qr.matrix.at(i, j) * (m_rhs[i] / m_sumNorm);
            largest = std::max(largest, std::fabs(sum / columnNorm));
        }
        return largest;
    }

    void tryStep() {
        const std::vector<double>& step = m_step.solve(m_qr, m_scale, m_rhs, m_radius, m_par);
        for (size_t j = 0; j < m_n; ++j) m_trial[j] = m_x[j] - step[j];
        const double stepLength = scaledNorm(step);
        if (m_firstIteration) m_radius = std::min(m_radius, stepLength);

        evaluate(m_trial, m_trialResiduals);
        const double trialNorm = norm(m_trialResiduals.data(), m_m);
        m_actual = -1.0;
        if (0.1 * trialNorm < m_sumNorm) {
            const double quotient = trialNorm / m_sumNorm;
            m_actual = 1.0 - quotient * quotient;
        }
        const double linear = linearNorm(step) / m_sumNorm;
        const double damping = std::sqrt(m_par) * stepLength / m_sumNorm;
        m_predicted = linear * linear + damping * damping / 0.5;
        const double slope = -(linear * linear + damping * damping);
        m_ratio = m_predicted != 0.0 ? m_actual / m_predicted : 0.0;

        resizeRegion(trialNorm, stepLength, slope);
        if (m_ratio >= 0.0001) accept(trialNorm);
    }

    /// |J * step|
    double linearNorm(const std::vector<double>& step) {
        std::fill(m_product.begin(), m_product.end(), 0.0);
        for (size_t j = 0; j < m_n; ++j) {
            const double factor = step[m_qr.order[j]];
            for (size_t i = 0; i <= j; ++i) m_product[i] += m_qr.matrix.at(i, j) * factor;
        }
        return norm(m_product.data(), m_n);
    }

    void resizeRegion(double trialNorm, double stepLength, double slope) {
        if (m_ratio <= 0.25) {
            double factor = m_actual >= 0.0 ? 0.5 : 0.5 * slope / (slope + 0.5 * m_actual);
            if (0.1 * trialNorm >= m_sumNorm || factor < 0.1) factor = 0.1;
            m_radius = factor * std::min(m_radius, stepLength / 0.1);
            m_par /= factor;
        } else if (m_par == 0.0 || m_ratio >= 0.75) {
            m_radius = stepLength / 0.5;
            m_par *= 0.5;
        }
    }

    void accept(double trialNorm) {
        m_x = m_trial;
        std::swap(m_residuals, m_trialResiduals);
        m_length = scaledNorm(m_x);
        m_sumNorm = trialNorm;
        m_firstIteration = false;
    }

    LevenbergMarquardtResult test() const {
        const auto sumSettled = [&](double tolerance) {
            return std::fabs(m_actual) <= tolerance && m_predicted <= tolerance && 0.5 * m_ratio <= 1.0;
        };
        if (sumSettled(m_settings.sumTolerance) || m_radius <= m_settings.parameterTolerance * m_length) {
            return LevenbergMarquardtResult::converged;
        }
        // Numbers near the end of the range have made a NaN of the step: the next one would be the same.
        if (std::isnan(m_ratio)) return LevenbergMarquardtResult::notFinite;
        if (m_calls >= m_settings.maxCalls) return LevenbergMarquardtResult::tooManyCalls;
        if (sumSettled(epsilon) || m_radius <= epsilon * m_length || m_gradient <= epsilon) {
            return LevenbergMarquardtResult::exhausted;
        }
        return running;
    }

    IResiduals& m_function;
    const LevenbergMarquardtSettings& m_settings;
    const size_t m_m;
    const size_t m_n;
    std::vector<double>& m_x;
    std::vector<double> m_trial;
    std::vector<double> m_scale;
    std::vector<double> m_product;
    std::vector<double> m_residuals;
    std::vector<double> m_trialResiduals;
    std::vector<double> m_rhs;
    PivotedQR m_qr;
    TrustRegionStep m_step;
    bool m_firstIteration = true;
    int m_calls = 0;
    double m_sumNorm = 0.0;    // |residuals|
    double m_length = 0.0;     // |scale * x|
    double m_radius = 0.0;     // of the trust region
    double m_par = 0.0;        // Levenberg-Marquardt parameter
    double m_gradient = 0.0;   // largest cosine
    double m_actual = 0.0;     // relative reduction of the sum of squares: achieved,
    double m_predicted = 0.0;  // predicted by the linear model,
    double m_ratio = 0.0;      // and the quotient of the two
};

}  // namespace

LevenbergMarquardtResult minimise(IResiduals& residuals, size_t residualCount, std::vector<double>& parameters,
                                  const LevenbergMarquardtSettings& settings) {
    if (parameters.empty() || residualCount < parameters.size() || settings.maxCalls < 1) {
        return LevenbergMarquardtResult::badInput;
    }
    return Minimiser(residuals, residualCount, parameters, settings).run();
}

}  // namespace qv
