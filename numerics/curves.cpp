// The derived fits, R², and the values and curves of the fitted forms.
#include <cmath>
#include <limits>

#include "numerics/double_double.h"
#include "qv/curve_fit.h"

namespace qv {

namespace {

constexpr double smallestSum = 1e-8;

/// The sums behind R² of two sequences.
struct Correlation {
    Double2 p, y, pp, yy, py;
    uint32_t count = 0;
    double firstP = 0.0;
    double firstY = 0.0;
    bool pVaries = false;
    bool yVaries = false;

    void add(double pValue, double yValue) {
        if (count == 0) {
            firstP = pValue;
            firstY = yValue;
        }
        pVaries |= pValue != firstP;
        yVaries |= yValue != firstY;
        accumulate(p, Double2{pValue, 0.0});
        accumulate(y, Double2{yValue, 0.0});
        accumulate(pp, twoProduct(pValue, pValue));
        accumulate(yy, twoProduct(yValue, yValue));
        accumulate(py, twoProduct(pValue, yValue));
        ++count;
    }

    double r2() const {
        const Double2 sumP = twoSum(p.hi, p.lo);
        const Double2 sumY = twoSum(y.hi, y.lo);
        if (std::fabs(sumY.hi) < smallestSum || std::fabs(sumP.hi) < smallestSum) return 0.0;
        // 0 / 0, of which rounding would make anything from 0 to 1.
        if (!pVaries || !yVaries) return std::numeric_limits<double>::quiet_NaN();
        const double covariance = spread(py, sumP, sumY);
        return covariance * covariance / (spread(pp, sumP, sumP) * spread(yy, sumY, sumY));
    }

private:
    /// n * S(ab) - S(a) * S(b), the difference in which the digits would go.
    double spread(Double2 sumAB, Double2 sumA, Double2 sumB) const {
        return (twoSum(sumAB.hi, sumAB.lo) * static_cast<double>(count) - sumA * sumB).hi;
    }
};

double horner(double x, const TArray<double>& coefficients) {
    double value = 0.0;
    for (uint32_t i = coefficients.size(); i-- > 0;) value = value * x + coefficients.data()[i];
    return value;
}

TArray<double> logOf(const TArray<double>& values) {
    TArray<double> logs(values.size());
    for (uint32_t i = 0; i < logs.size(); ++i) logs.data()[i] = std::log(values.data()[i]);
    return logs;
}

/// A straight line through the points. Without one, because a logarithm was taken of zero or less, both terms are NaN.
bool fitLine(TArray<double>& x, TArray<double>& y, double& constant, double& slope) {
    TArray<double> line;
    if (LinearLeastSquareFit(x, y, 1, line)) {
        constant = line.data()[0];
        slope = line.data()[1];
        return true;
    }
    bool finite = true;
    for (const double v : x) finite &= std::isfinite(v);
    for (const double v : y) finite &= std::isfinite(v);
    if (!finite) constant = slope = std::numeric_limits<double>::quiet_NaN();
    return false;
}

/// exp of the constant term, when the fit gave one or a NaN.
bool fitPower(TArray<double>& x, TArray<double>& y, double& a, double& b) {
    double logA = 0.0;
    double slope = b;
    const bool fitted = fitLine(x, y, logA, slope);
    if (fitted || std::isnan(logA)) {
        a = std::exp(logA);
        b = slope;
    }
    return fitted;
}

template <class Value>
void curve(const TArray<double>& x, TArray<double>& y, Value value) {
    const uint32_t count = x.size();
    if (!y.SetSize(count)) return;
    for (uint32_t i = 0; i < count; ++i) y.data()[i] = value(x.data()[i]);
}

}  // namespace

bool ExpLeastSquareFit(TArray<double>& x, TArray<double>& y, double& a, double& b) {
    if (x.size() != y.size()) return false;
    TArray<double> logY = logOf(y);
    return fitPower(x, logY, a, b);
}

bool LogLeastSquareFit(TArray<double>& x, TArray<double>& y, double& a, double& b) {
    if (x.size() != y.size()) return false;
    TArray<double> logX = logOf(x);
    return fitLine(logX, y, b, a);
}

bool PowLeastSquareFit(TArray<double>& x, TArray<double>& y, double& a, double& b) {
    if (x.size() != y.size()) return false;
    TArray<double> logX = logOf(x);
    TArray<double> logY = logOf(y);
    return fitPower(logX, logY, a, b);
}

double CalcR2(TArray<double>& x, TArray<double>& y, TArray<double>& coefficients) {
    if (coefficients.size() < 2) return 0.0;
    const uint32_t count = x.size() < y.size() ? x.size() : y.size();
    Correlation sums;
    for (uint32_t i = 0; i < count; ++i) sums.add(horner(x.data()[i], coefficients), y.data()[i]);
    return sums.r2();
}

double CalcR2(TArray<double>& a, TArray<double>& b) {
    const uint32_t count = a.size() < b.size() ? a.size() : b.size();
    Correlation sums;
    for (uint32_t i = 0; i < count; ++i) sums.add(a.data()[i], b.data()[i]);
    return sums.r2();
}

double PolyValue(double x, TArray<double>& coefficients) {
    const uint32_t count = coefficients.size();
    if (count < 2) return 0.0;
    double value = 0.0;
    for (uint32_t i = 0; i < count; ++i) value += std::pow(x, static_cast<double>(i)) * coefficients.data()[i];
    return value;
}

double ExpValue(double x, double a, double b) { return std::exp(x * b) * a; }
double LogValue(double x, double a, double b) { return std::log(x) * a + b; }
double PowValue(double x, double a, double b) { return std::pow(x, b) * a; }

void PolyCurve(TArray<double>& x, TArray<double>& y, TArray<double>& coefficients) {
    curve(x, y, [&](double v) { return PolyValue(v, coefficients); });
}
void ExpCurve(TArray<double>& x, TArray<double>& y, double a, double b) {
    curve(x, y, [=](double v) { return ExpValue(v, a, b); });
}
void LogCurve(TArray<double>& x, TArray<double>& y, double a, double b) {
    curve(x, y, [=](double v) { return LogValue(v, a, b); });
}
void PowCurve(TArray<double>& x, TArray<double>& y, double a, double b) {
    curve(x, y, [=](double v) { return PowValue(v, a, b); });
}

}  // namespace qv
