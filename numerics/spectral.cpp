// Axes, integrals, scaling, interpolation, units and reversed polynomials of qv/spectral.h.
#include "qv/spectral.h"

#include <algorithm>
#include <cmath>

#include "qv/curve_fit.h"

namespace qv {

namespace {

constexpr double sameValue = 1e-8;
constexpr double fewestPoints = 10.0;
constexpr double mostPoints = 16777216.0;
constexpr uint32_t sampledCounts = 16384;

/// Sums term(dx, dy, left height) over neighbours.
template <class Term>
double integrate(const TArray<double>& x, const TArray<double>& y, Term term) {
    const uint32_t count = std::min(x.size(), y.size());
    const double* at = x.data();
    const double* height = y.data();
    double sum = 0.0;
    for (uint32_t i = 1; i < count; ++i) sum += term(at[i] - at[i - 1], height[i] - height[i - 1], height[i - 1]);
    return sum;
}

bool hasZero(const TArray<double>& x) { return std::find(x.begin(), x.end(), 0.0) != x.end(); }

double otherUnit(double v) { return 10000.0 / v; }

bool convertAxis(TArray<double>& x) {
    if (hasZero(x)) return false;
    for (double& v : x) v = otherUnit(v);
    return true;
}

bool convertSpectrum(TArray<double>& x, TArray<double>& y) {
    if (hasZero(x)) return false;
    const uint32_t count = std::min(x.size(), y.size());
    for (uint32_t i = 0; i < count; ++i) y.data()[i] *= x.data()[i] * x.data()[i];
    convertAxis(x);
    if (!x.empty() && x.front() > x.back()) Reverse(x, y);
    return true;
}

/// Fits values over places by a polynomial of the order that `coefficients` has, and replaces it.
bool refit(TArray<double>& places, TArray<double>& values, TArray<double>& coefficients) {
    return LinearLeastSquareFit(places, values, static_cast<int>(coefficients.size()) - 1, coefficients);
}

TArray<double> countAxis() {
    TArray<double> counts(sampledCounts);
    for (uint32_t i = 0; i < counts.size(); ++i) counts.data()[i] = i;
    return counts;
}

}  // namespace

double IntegrateTrap(TArray<double>& x, TArray<double>& y) {
    return integrate(x, y, [](double dx, double dy, double left) { return dx * dy * 0.5 + dx * left; });
}
double IntegrateRectMid(TArray<double>& x, TArray<double>& y) { return IntegrateTrap(x, y); }
double IntegrateRectTR(TArray<double>& x, TArray<double>& y) {
    return integrate(x, y, [](double dx, double dy, double left) { return dx * dy + dx * left; });
}
double IntegrateRectTL(TArray<double>& x, TArray<double>& y) {
    return integrate(x, y, [](double dx, double, double left) { return dx * left; });
}

void XAxis(TArray<double>& x, double start, double end, uint32_t count) {
    x.Empty();
    if (count == 0 || !x.SetSize(count)) return;
    const double step = (end - start) / (count - 1);
    double* points = x.data();
    for (uint32_t i = 0; i < count; ++i) points[i] = i * step + start;
    points[count - 1] = end;
    points[0] = start;
}

void XAxis(TArray<double>& x, double start, double end, double delta) {
    if (start > end) std::swap(start, end);
    const double points = std::ceil((end - start) / delta);
    if (points <= mostPoints) {
        XAxis(x, start, end, static_cast<uint32_t>(std::max(points, fewestPoints)));
    } else {
        x.Empty();
    }
}

void Tophat(TArray<double>& x, TArray<double>& y) {
    if (y.SetSize(x.size())) std::fill(y.begin(), y.end(), 1.0);
}

void ScaleToOne(TArray<double>& y) {
    if (y.empty()) return;
    const double max = *std::max_element(y.begin(), y.end());
    if (!(std::fabs(max - 1.0) > sameValue)) return;
    for (double& v : y) v /= max;
}

void ScaleTo(TArray<double>& y, double value) {
    if (y.empty()) return;
    const double max = *std::max_element(y.begin(), y.end());
    if (!(std::fabs(max - value) > sameValue)) return;
    const double factor = value / max;
    for (double& v : y) v *= factor;
}

void Interpolate(TArray<double>& x, TArray<double>& y, TArray<double>& newX, TArray<double>& newY, double below,
                 double above) {
    newY.Empty();
    if (!newY.SetSize(newX.size())) return;
    const uint32_t count = std::min(x.size(), y.size());
    const double* at = x.data();
    const double* height = y.data();
    uint32_t right = 0;
    for (uint32_t i = 0; i < newX.size(); ++i) {
        const double t = newX.data()[i];
        double& value = newY.data()[i];
        while (right < count && at[right] < t) ++right;
        if (right == count) {
            value = above;
        } else if (std::fabs(at[right] - t) <= sameValue) {
            value = height[right];
        } else if (right == 0) {
            value = below;
        } else {
            const uint32_t left = right - 1;
            value = (t - at[left]) / (at[right] - at[left]) * (height[right] - height[left]) + height[left];
        }
    }
}

void Interpolate(TArray<double>& x, TArray<double>& y, TArray<double>& newX, TArray<double>& newY, double outside) {
    Interpolate(x, y, newX, newY, outside, outside);
}

void CopyAxis(TArray<double>& dst, TArray<double>& src) { dst.Copy(src); }

double ToMicrons(double wavenumber) { return otherUnit(wavenumber); }
bool ToMicrons(TArray<double>& x) { return convertAxis(x); }
bool ToMicrons(TArray<double>& x, TArray<double>& y) { return convertSpectrum(x, y); }
double ToWavenumbers(double microns) { return otherUnit(microns); }
bool ToWavenumbers(TArray<double>& x) { return convertAxis(x); }
bool ToWavenumbers(TArray<double>& x, TArray<double>& y) { return convertSpectrum(x, y); }

void Reverse(TArray<double>& x) { std::reverse(x.begin(), x.end()); }
void Reverse(TArray<double>& x, TArray<double>& y) {
    Reverse(x);
    Reverse(y);
}

bool CalcRadToCountsFromCountsToRad(TArray<double>& coefficients) {
    if (coefficients.size() < 2) return false;
    TArray<double> counts = countAxis();
    TArray<double> radiances;
    PolyCurve(counts, radiances, coefficients);
    return refit(radiances, counts, coefficients);
}

bool CalcTempToRadFromRadToTemp(TArray<double>& a, TArray<double>& b) {
    if (a.size() < 2 || b.size() < 2) return false;
    TArray<double> counts = countAxis();
    TArray<double> radiances;
    TArray<double> temperatures;
    PolyCurve(counts, radiances, a);
    PolyCurve(radiances, temperatures, b);
    return refit(temperatures, radiances, b);
}

}  // namespace qv
