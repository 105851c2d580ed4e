#include "rcal_report.h"

#include <algorithm>
#include <cmath>

#include "calibrator.h"
#include "qv/curve_fit.h"
#include "text.h"

namespace tool {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr int reverseSamples = 1000;
constexpr int slopeSamples = 4096;
/// Half the width of the difference that gives dL/dT, in kelvin.
constexpr double halfStep = 0.05;
/// A stored radiance may differ by what 14 digits and another machine's exponential function make.
constexpr double sameRadiance = 1e-9;
constexpr double goodR2 = 0.999;

/// Collects the differences at places.
class Collector {
public:
    void add(double place, double difference) {
        if (!(std::fabs(difference) < std::numeric_limits<double>::infinity())) return;
        m_sum += difference * difference;
        ++m_count;
        if (m_spread.known() && std::fabs(difference) <= std::fabs(m_spread.worst)) return;
        m_spread.worst = difference;
        m_spread.at = place;
    }
    Spread spread() const {
        Spread result = m_spread;
        if (m_count != 0) result.rms = std::sqrt(m_sum / m_count);
        return result;
    }

private:
    Spread m_spread;
    double m_sum = 0.0;
    int m_count = 0;
};

double todaysRadiance(const qv::CRCalFile& calibration, const qv::CAL_POINT& p, double shift) {
    return calibration.CalcRadianceEx(p.temperature + shift, p.emissivity, p.reflectedRadianceType, p.reflectedRadiance,
                                      p.reflectedTemperature, p.reflectedEmissivity);
}

/// The point's radiance by a fit through the other enabled points.
double withoutPoint(const qv::CAL_PAGE& page, uint32_t left) {
    qv::TArray<double> x;
    qv::TArray<double> y;
    for (uint32_t i = 0; i < page.points.size(); ++i) {
        const qv::CAL_POINT& p = page.points[i];
        if (i == left || !p.enabled) continue;
        x.Add(p.measurement);
        y.Add(p.radiance);
    }
    qv::TArray<double> coefficients;
    if (!qv::LinearLeastSquareFit(x, y, page.polyOrder, coefficients)) return notANumber;
    return qv::PolyValue(page.points[left].measurement, coefficients);
}

void addResiduals(const qv::CRCalFile& calibration, qv::TArray<double>& coefficients, PageReport& report) {
    Collector residual;
    Collector leftOut;
    for (uint32_t i = 0; i < report.record->points.size(); ++i) {
        const qv::CAL_POINT& p = report.record->points[i];
        const double slope =
            (todaysRadiance(calibration, p, halfStep) - todaysRadiance(calibration, p, -halfStep)) / (2 * halfStep);
        const double today = todaysRadiance(calibration, p, 0.0);
        report.staleRadiance = std::max(report.staleRadiance, std::fabs(p.radiance - today) / std::fabs(today));
        PointReport point{p, qv::PolyValue(p.measurement, coefficients), notANumber, notANumber};
        if (coefficients.size() >= 2) point.kelvin = (point.fitted - p.radiance) / slope;
        if (p.enabled) {
            ++report.enabled;
            residual.add(p.temperature, point.kelvin);
            if (!report.overridden) point.leftOut = (withoutPoint(*report.record, i) - p.radiance) / slope;
            leftOut.add(p.temperature, point.leftOut);
        }
        report.points.push_back(point);
    }
    report.residual = residual.spread();
    report.leftOut = leftOut.spread();
}

/// The reverse polynomial over the temperatures of its table, between the entries too.
void addReverse(const qv::CRCalFile& calibration, PageReport& report) {
    qv::TArray<double> coefficients;
    calibration.GetTempCoefficients(report.page, coefficients);
    if (coefficients.size() < 2) return;
    const qv::CAL_PAGE& page = *report.record;
    Collector error;
    for (int i = 0; i <= reverseSamples; ++i) {
        const double celsius = page.lookupStart + (page.lookupEnd - page.lookupStart) * i / reverseSamples;
        const double radiance = calibration.CalcRadiance(celsius, page.lookupEmissivity);
        error.add(celsius, qv::PolyValue(radiance, coefficients) - celsius);
    }
    report.reverse = error.spread();
}

/// Where the slope of the forward polynomial changes its sign within the range of counts.
void addShape(const qv::TArray<double>& coefficients, PageReport& report) {
    const double low = std::min(report.record->minCounts, report.record->maxCounts);
    const double high = std::max(report.record->minCounts, report.record->maxCounts);
    if (coefficients.size() < 2 || !(low < high)) return;
    const auto slope = [&](double x) {
        double value = 0.0;
        for (uint32_t i = coefficients.size(); i-- > 1;) value = value * x + i * coefficients.data()[i];
        return value;
    };
    double left = low;
    for (int i = 1; i <= slopeSamples; ++i) {
        const double right = low + (high - low) * i / slopeSamples;
        if ((slope(left) < 0.0) != (slope(right) < 0.0)) {
            double a = left;
            double b = right;
            for (int step = 0; step < 60; ++step) {
                const double middle = 0.5 * (a + b);
                ((slope(a) < 0.0) == (slope(middle) < 0.0) ? a : b) = middle;
            }
            report.turningPoints.push_back(0.5 * (a + b));
        }
        left = right;
    }
    if (report.turningPoints.empty()) report.direction = slope(0.5 * (low + high)) < 0.0 ? -1 : 1;
}

std::string kelvin(double value) {
    return fixed(value, std::fabs(value) < 0.0995 ? 4 : std::fabs(value) < 9.95 ? 3 : 2);
}
std::string celsius(double value) { return number(value, 6) + " C"; }

std::string worstOf(const Spread& spread) { return kelvin(spread.worst) + " K at " + celsius(spread.at); }

void find(PageReport& report, const Limits& limits) {
    const qv::CAL_PAGE& page = *report.record;
    const auto say = [&](const std::string& what) {
        report.findings.push_back("page " + std::to_string(report.page) + ": " + what);
    };
    const auto over = [](const Spread& spread, double limit) {
        return spread.known() && std::fabs(spread.worst) > limit;
    };
    if (page.points.empty()) {
        say("has no points");
    } else if (!report.residual.known()) {
        say("has no fit from counts to radiance");
    }
    if (!(report.staleRadiance <= sameRadiance)) {
        say("its stored radiances are not those that the responses give today (they differ by up to " +
            number(100 * report.staleRadiance, 3) + " %); qv rcal fit calculates them anew");
    }
    if (over(report.residual, limits.residual)) say("the fit misses a point by " + worstOf(report.residual));
    if (over(report.leftOut, limits.leftOut)) {
        say("a fit without the point is wrong there by " + worstOf(report.leftOut));
    }
    if (!report.reverse.known()) say("has no fit from radiance to temperature");
    if (over(report.reverse, limits.reverse)) say("the reverse polynomial is wrong by " + worstOf(report.reverse));
    if (!report.turningPoints.empty()) {
        say("the radiance turns at " + number(report.turningPoints[0], 7) + " counts, inside its range");
    }
    if (!(page.minTemperature < page.maxTemperature)) {
        say("has no calibrated range");
    } else if (std::min(page.lookupStart, page.lookupEnd) > page.minTemperature ||
               std::max(page.lookupStart, page.lookupEnd) < page.maxTemperature) {
        say("the calibrated range, " + number(page.minTemperature) + " to " + celsius(page.maxTemperature) +
            ", reaches beyond that of the reverse polynomial, " + number(page.lookupStart) + " to " +
            celsius(page.lookupEnd) + "; qv rcal fit --lookup moves it");
    }
}

}  // namespace

bool PageReport::r2Hides(double r2, const Spread& spread, double limit) const {
    return r2 > goodR2 && spread.known() && std::fabs(spread.worst) > limit;
}

PageReport reportPage(const qv::CRCalFile& calibration, int32_t page, const Limits& limits) {
    PageReport report;
    report.page = page;
    report.record = calibration.GetPage(page);
    report.instrument = narrow(calibration.GetTag(instrumentTag, page));
    calibration.GetPolyOrder(page, report.order);
    calibration.GetTempPolyOrder(page, report.tempOrder);
    report.overridden = calibration.GetCoeffsOverridden(page);
    report.tempOverridden = calibration.GetTempCoeffsOverridden(page);
    qv::TArray<double> coefficients;
    calibration.GetCoefficients(page, coefficients);
    addResiduals(calibration, coefficients, report);
    addReverse(calibration, report);
    addShape(coefficients, report);
    find(report, limits);
    return report;
}

namespace {

void printSpread(const char* label, const Spread& spread, const std::string& otherwise, std::ostream& out) {
    out << "    " << label;
    if (spread.known()) {
        out << "rms " << kelvin(spread.rms) << " K, worst " << worstOf(spread) << '\n';
    } else {
        out << otherwise << '\n';
    }
}

void printHidden(double r2, const Spread& spread, std::ostream& out) {
    out << "    note      an R² of " << fixed(r2, 5) << " hides an error of " << worstOf(spread) << '\n';
}

void printRange(const PageReport& report, std::ostream& out) {
    const qv::CAL_PAGE& page = *report.record;
    out << "  valid range: ";
    if (!(page.minTemperature < page.maxTemperature)) {
        out << "none\n";
        return;
    }
    out << number(page.minTemperature) << " to " << celsius(page.maxTemperature) << ", " << number(page.minCounts, 7)
        << " to " << number(page.maxCounts, 7) << " counts, " << number(page.minRadiance, 4) << " to "
        << number(page.maxRadiance, 4) << " W/(sr-cm^2)\n    shape     ";
    if (report.direction != 0) {
        out << "radiance " << (report.direction > 0 ? "rises" : "falls") << " with counts throughout\n";
    } else if (report.turningPoints.empty()) {
        out << "unknown\n";
    } else {
        out << "turns at";
        for (const double counts : report.turningPoints) out << ' ' << number(counts, 7);
        out << " counts\n";
    }
}

}  // namespace

void printPage(const PageReport& report, const Limits& limits, std::ostream& out) {
    const qv::CAL_PAGE& page = *report.record;
    out << "page " << report.page;
    if (!report.instrument.empty()) out << ", instrument at " << report.instrument << " C";
    out << "\n  counts to radiance: order " << report.order;
    if (report.overridden) {
        out << ", overridden by the user\n";
    } else {
        out << " through " << report.enabled << (report.enabled == 1 ? " point" : " points") << ", R² "
            << fixed(page.r2, 6) << '\n';
    }
    printSpread("residual  ", report.residual, "none: there is no fit", out);
    if (!report.overridden) printSpread("left out  ", report.leftOut, "unknown: too few points", out);
    if (!report.overridden && report.r2Hides(page.r2, report.residual, limits.residual))
        printHidden(page.r2, report.residual, out);
    out << "  radiance to temperature: order " << report.tempOrder;
    if (report.tempOverridden) {
        out << ", overridden by the user";
    } else {
        out << ", R² " << fixed(page.tempR2, 6);
    }
    out << ", table from " << number(page.lookupStart) << " to " << celsius(page.lookupEnd) << '\n';
    printSpread("error     ", report.reverse, "none: there is no fit", out);
    if (!report.tempOverridden && report.r2Hides(page.tempR2, report.reverse, limits.reverse))
        printHidden(page.tempR2, report.reverse, out);
    printRange(report, out);
}

namespace {

Json jsonSpread(const Spread& spread) {
    return Json::object()
        .set("rmsKelvin", spread.rms)
        .set("worstKelvin", spread.worst)
        .set("worstAtCelsius", spread.at);
}
template <class Values>
Json jsonArray(const Values& values) {
    Json array = Json::array();
    for (const auto& value : values) array.push(Json(value));
    return array;
}

Json jsonPoints(const PageReport& report) {
    Json points = Json::array();
    for (const PointReport& p : report.points) {
        points.push(Json::object()
                        .set("enabled", p.point.enabled)
                        .set("celsius", p.point.temperature)
                        .set("counts", p.point.measurement)
                        .set("emissivity", p.point.emissivity)
                        .set("radiance", p.point.radiance)
                        .set("fitted", p.fitted)
                        .set("residualKelvin", p.kelvin)
                        .set("leftOutKelvin", p.leftOut));
    }
    return points;
}

}  // namespace

Json jsonPage(const PageReport& report) {
    const qv::CAL_PAGE& page = *report.record;
    qv::TArray<double> coefficients = report.overridden ? page.coeffsOverride.values : page.coeffs;
    qv::TArray<double> reverse = report.tempOverridden ? page.tempCoeffsOverride.values : page.tempCoeffs;
    Json forward = Json::object();
    forward.set("order", report.order)
        .set("overridden", report.overridden)
        .set("coefficients", jsonArray(coefficients))
        .set("r2", page.r2)
        .set("residual", jsonSpread(report.residual))
        .set("leftOut", jsonSpread(report.leftOut))
        .set("turningPointCounts", jsonArray(report.turningPoints))
        .set("direction", report.direction);
    Json back = Json::object();
    back.set("order", report.tempOrder)
        .set("overridden", report.tempOverridden)
        .set("coefficients", jsonArray(reverse))
        .set("r2", page.tempR2)
        .set("startCelsius", page.lookupStart)
        .set("endCelsius", page.lookupEnd)
        .set("emissivity", page.lookupEmissivity)
        .set("error", jsonSpread(report.reverse));
    Json range = Json::object();
    range.set("minCelsius", page.minTemperature)
        .set("maxCelsius", page.maxTemperature)
        .set("minCounts", page.minCounts)
        .set("maxCounts", page.maxCounts)
        .set("minRadiance", page.minRadiance)
        .set("maxRadiance", page.maxRadiance);
    Json json = Json::object().set("page", report.page);
    json.set("instrument", report.instrument.empty() ? Json() : Json(report.instrument));
    return json.set("countsToRadiance", forward)
        .set("radianceToTemperature", back)
        .set("range", range)
        .set("points", jsonPoints(report));
}

Table pointTable() {
    return Table({{"page"},
                  {"temperature [C]"},
                  {"counts"},
                  {"emissivity"},
                  {"radiance [W/(sr-cm^2)]"},
                  {"residual [K]"},
                  {"left out [K]"},
                  {"used", Table::Align::left}});
}

void addPoints(const PageReport& report, Table& table) {
    const auto orDash = [](double value) { return value == value ? fixed(value, 4) : std::string("-"); };
    for (const PointReport& p : report.points) {
        table.add({std::to_string(report.page), number(p.point.temperature, 7), number(p.point.measurement, 9),
                   number(p.point.emissivity), number(p.point.radiance, 7), orDash(p.kelvin), orDash(p.leftOut),
                   p.point.enabled ? "yes" : "no"});
    }
}

}  // namespace tool
