#include "numerics/planck.h"

#include <algorithm>
#include <cmath>

#include "numerics/fifth_power.h"
#include "qv/spectral.h"

namespace qv {

namespace {

/// The order of operations decides about the last bit.
double planck(double x, double strength, double kelvin, double emissivity) {
    return emissivity * strength * (1.0 / (std::exp(secondRadiationConstant / (kelvin * x)) - 1.0));
}

constexpr double zeroCelsius = 273.15;

}  // namespace

void Planck(TArray<double>& x, TArray<double>& y, double temperature, double emissivity) {
    y.Empty();
    const uint32_t count = x.size();
    if (!y.SetSize(count)) return;
    const double* axis = x.data();
    double* values = y.data();
    const double kelvin = temperature + zeroCelsius;
    fifthPowers(axis, values, count);
    for (uint32_t i = 0; i < count; ++i) {
        values[i] = planck(axis[i], firstRadiationConstant / values[i], kelvin, emissivity);
    }
}

void PlanckAxis::assign(const TArray<double>& x) {
    const bool same = x.size() == size() && std::equal(x.begin(), x.end(), m_points.begin(),
                                                       [](double a, const Point& point) { return a == point.x; });
    if (same) return;
    std::vector<double> powers(x.size());
    fifthPowers(x.data(), powers.data(), powers.size());
    m_points.resize(x.size());
    for (uint32_t i = 0; i < x.size(); ++i) m_points[i] = {x.data()[i], firstRadiationConstant / powers[i]};
}

double PlanckAxis::value(uint32_t i, double temperature, double emissivity) const {
    return planck(m_points[i].x, m_points[i].strength, temperature + zeroCelsius, emissivity);
}

void PlanckAxis::curve(TArray<double>& y, double temperature, double emissivity) const {
    y.Empty();
    if (!y.SetSize(size())) return;
    for (uint32_t i = 0; i < size(); ++i) y.data()[i] = value(i, temperature, emissivity);
}

double PlanckAxis::inBand(const TArray<double>& response, double temperature, double emissivity) const {
    const uint32_t count = std::min(size(), response.size());
    if (count < 2) return 0.0;
    double sum = 0.0;
    double left = value(0, temperature, emissivity) * response.data()[0];
    for (uint32_t i = 1; i < count; ++i) {
        const double right = value(i, temperature, emissivity) * response.data()[i];
        const double dx = m_points[i].x - m_points[i - 1].x;
        const double dy = right - left;
        sum += dx * dy + dx * left;
        left = right;
    }
    return sum;
}

}  // namespace qv
