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
    double* values = y.data();
    const double kelvin = temperature + zeroCelsius;
    for (const Point& point : m_points) *values++ = planck(point.x, point.strength, kelvin, emissivity);
}

double PlanckAxis::inBand(const TArray<double>& response, double temperature, double emissivity) const {
    const uint32_t count = std::min(size(), response.size());
    if (count < 2) return 0.0;
    const Point* points = m_points.data();
    const double* factors = response.data();
    const double kelvin = temperature + zeroCelsius;
    double sum = 0.0;
    double left = planck(points[0].x, points[0].strength, kelvin, emissivity) * factors[0];
    for (uint32_t i = 1; i < count; ++i) {
        const double right = planck(points[i].x, points[i].strength, kelvin, emissivity) * factors[i];
        const double dx = points[i].x - points[i - 1].x;
        const double dy = right - left;
        sum += dx * dy + dx * left;
        left = right;
    }
    return sum;
}

}  // namespace qv
