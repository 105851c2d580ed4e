#include "rcal_sources.h"

#include <cmath>
#include <limits>

namespace tool {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// The place between two where a function passes 0; not a number when both ends have one sign.
template <class Function>
double bisect(Function function, double low, double high) {
    const double first = function(low);
    const double last = function(high);
    if (!((first <= 0.0 && last >= 0.0) || (first >= 0.0 && last <= 0.0))) return notANumber;
    const bool rising = first < last;
    for (int step = 0; step < 64; ++step) {
        const double middle = 0.5 * (low + high);
        ((function(middle) < 0.0) == rising ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

/// Radiance of what the source reflects alone.
double reflectedRadiance(const qv::CRCalFile& calibration, const SourceAssumptions& source) {
    if (!source.reflectedCelsius) return 0.0;
    const double path = calibration.CalcRadiance(0.0, 0.0);
    return calibration.CalcRadiance(*source.reflectedCelsius, 1.0 - source.emissivity) - path;
}

}  // namespace

double seenRadiance(const qv::CRCalFile& calibration, double celsius, const SourceAssumptions& source) {
    return calibration.CalcRadiance(celsius, source.emissivity) + reflectedRadiance(calibration, source);
}

double temperatureOf(const qv::CRCalFile& calibration, double radiance, const SourceAssumptions& source) {
    const double own = radiance - reflectedRadiance(calibration, source);
    return bisect([&](double celsius) { return calibration.CalcRadiance(celsius, source.emissivity) - own; }, -200.0,
                  5000.0);
}

double polynomial(const std::vector<double>& coefficients, double x) {
    double value = 0.0;
    for (size_t i = coefficients.size(); i-- > 0;) value = value * x + coefficients[i];
    return value;
}

double countsOf(const std::vector<double>& coefficients, double radiance, double low, double high) {
    const auto miss = [&](double counts) { return polynomial(coefficients, counts) - radiance; };
    // The range itself first: outside it a polynomial may turn.
    const double within = bisect(miss, low, high);
    if (within == within) return within;
    const double room = 0.5 * (high - low);
    const double above = bisect(miss, high, high + room);
    return above == above ? above : bisect(miss, low - room, low);
}

std::vector<double> forwardCoefficients(const qv::CRCalFile& calibration, int32_t page) {
    qv::TArray<double> coefficients;
    calibration.GetCoefficients(page, coefficients);
    return {coefficients.begin(), coefficients.end()};
}

}  // namespace tool
