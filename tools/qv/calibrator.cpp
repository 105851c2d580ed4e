#include "calibrator.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "command.h"
#include "text.h"

namespace tool {

namespace {

constexpr double absoluteZeroCelsius = -273.15;
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
/// How far the inverse table reaches beyond the calibrated range: enough that pixels outside it still get a
/// temperature.
constexpr double marginKelvin = 150.0;
constexpr double lowestCelsius = -200.0;
constexpr double firstStepKelvin = 2.0;
constexpr double toleranceKelvin = 1e-4;
constexpr size_t mostEntries = 1 << 14;

double horner(const std::vector<double>& coefficients, double x) {
    double value = 0.0;
    for (size_t i = coefficients.size(); i-- > 0;) value = value * x + coefficients[i];
    return value;
}

std::vector<double> toVector(const qv::TArray<double>& values) { return {values.begin(), values.end()}; }

/// The polynomial of degree three through four points of ascending x, at `x`, with y = 0, 1, 2, 3 steps.
double throughFour(const double* xs, double x) {
    double value = 0.0;
    for (int i = 0; i < 4; ++i) {
        double weight = i;
        for (int j = 0; j < 4; ++j) {
            if (j != i) weight *= (x - xs[j]) / (xs[i] - xs[j]);
        }
        value += weight;
    }
    return value;
}

}  // namespace

double fromCelsius(double celsius, TemperatureUnit unit) {
    switch (unit) {
        case TemperatureUnit::fahrenheit: return celsius * 1.8 + 32.0;
        case TemperatureUnit::kelvin: return celsius - absoluteZeroCelsius;
        case TemperatureUnit::rankine: return (celsius - absoluteZeroCelsius) * 1.8;
        default: return celsius;
    }
}

InverseTable::InverseTable(const qv::CRCalFile& calibration, double emissivity, double lowCelsius, double highCelsius)
    : m_low(lowCelsius) {
    const double span = std::max(highCelsius - lowCelsius, 10.0);
    for (auto count = static_cast<size_t>(span / firstStepKelvin) + 4; count <= mostEntries; count *= 2) {
        m_step = span / static_cast<double>(count - 1);
        fill(calibration, emissivity, count);
        if (m_logRadiance.size() < 4) return;
        m_worst = check(calibration, emissivity);
        if (m_worst <= toleranceKelvin) return;
    }
}

/// Entries of no radiance, at the cold end, are left out, and so is what does not rise.
void InverseTable::fill(const qv::CRCalFile& calibration, double emissivity, size_t count) {
    std::vector<double> logs(count);
    const double low = m_low;
    for (size_t i = 0; i < count; ++i) {
        logs[i] = std::log(calibration.CalcRadiance(low + m_step * static_cast<double>(i), emissivity));
    }
    size_t first = count - 1;
    while (first > 0 && std::isfinite(logs[first - 1]) && logs[first - 1] < logs[first]) --first;
    m_low = low + m_step * static_cast<double>(first);
    m_logRadiance.assign(logs.begin() + static_cast<ptrdiff_t>(first), logs.end());
}

/// Compares with the integral in the middle between entries, at a few dozen places.
double InverseTable::check(const qv::CRCalFile& calibration, double emissivity) const {
    double worst = 0.0;
    const size_t intervals = m_logRadiance.size() - 1;
    const size_t stride = std::max<size_t>(intervals / 48, 1);
    for (size_t i = 0; i < intervals; i += stride) {
        const double truth = m_low + m_step * (static_cast<double>(i) + 0.5);
        worst = std::max(worst, std::fabs(temperature(calibration.CalcRadiance(truth, emissivity)) - truth));
    }
    return worst;
}

double InverseTable::temperature(double radiance) const {
    const double wanted = std::log(radiance);
    if (m_logRadiance.size() < 4 || !(wanted >= m_logRadiance.front() && wanted <= m_logRadiance.back())) {
        return notANumber;
    }
    const auto above = std::upper_bound(m_logRadiance.begin() + 1, m_logRadiance.end() - 1, wanted);
    const auto interval = static_cast<size_t>(above - m_logRadiance.begin()) - 1;
    const size_t first = std::min(interval == 0 ? 0 : interval - 1, m_logRadiance.size() - 4);
    return m_low + m_step * (static_cast<double>(first) + throughFour(m_logRadiance.data() + first, wanted));
}

Calibrator::Calibrator(qv::CRCalFile& calibration, const CalibratorOptions& options, const std::string& name)
    : m_options(options) {
    if (calibration.axis().getCount() == 0) {
        throw Failure(Exit::damaged, name + ": has no spectral response, so no radiance can be calculated");
    }
    if (!options.secondPage) {
        addPage(calibration, options.page, 1.0, name);
    } else {
        double at[2];
        const int32_t pages[2] = {options.page, *options.secondPage};
        for (int i = 0; i < 2; ++i) {
            const char16_t* tag = calibration.GetTag(instrumentTag, pages[i]);
            if (tag == nullptr && calibration.GetPage(pages[i]) != nullptr) {
                throw Failure(Exit::negative, name + ": page " + std::to_string(pages[i]) + " has no tag " +
                                                  narrow(instrumentTag) + ", which --between needs");
            }
            at[i] = tag == nullptr ? 0.0 : std::strtod(narrow(tag).c_str(), nullptr);
        }
        if (calibration.GetPage(pages[0]) != nullptr && calibration.GetPage(pages[1]) != nullptr && at[0] == at[1]) {
            throw Failure(Exit::negative, name + ": both pages were taken at the same instrument temperature");
        }
        const double weight = (options.instrument - at[0]) / (at[1] - at[0]);
        addPage(calibration, pages[0], 1.0 - weight, name);
        addPage(calibration, pages[1], weight, name);
    }
    prepareInverse(calibration, name);
}

void Calibrator::addPage(qv::CRCalFile& calibration, int32_t index, double weight, const std::string& name) {
    const qv::CAL_PAGE* record = calibration.GetPage(index);
    if (record == nullptr) {
        throw Failure(Exit::negative, name + ": there is no page " + std::to_string(index) + " (it has " +
                                          std::to_string(calibration.calPages().getCount()) + ")");
    }
    // Adding points does not move a page's automatic range; it is brought up to date here.
    if (record->autoRange) calibration.calPage(index).range().setAuto(true);
    qv::TArray<double> coefficients;
    calibration.GetCoefficients(index, coefficients);
    if (coefficients.size() < 2) {
        throw Failure(Exit::damaged, name + ": page " + std::to_string(index) + " has no fit from counts to radiance");
    }
    m_pages.push_back({toVector(coefficients), weight});
    m_minCounts += weight * std::min(record->minCounts, record->maxCounts);
    m_maxCounts += weight * std::max(record->minCounts, record->maxCounts);
    const bool first = m_pages.size() == 1;
    m_minCelsius = first ? record->minTemperature : std::max(m_minCelsius, record->minTemperature);
    m_maxCelsius = first ? record->maxTemperature : std::min(m_maxCelsius, record->maxTemperature);
}

void Calibrator::prepareInverse(qv::CRCalFile& calibration, const std::string& name) {
    m_path = calibration.CalcRadiance(0.0, 0.0);
    if (m_options.reflectedCelsius) {
        m_reflected = calibration.CalcRadiance(*m_options.reflectedCelsius, 1.0 - m_options.emissivity) - m_path;
    }
    const bool overridden = calibration.GetTempCoeffsOverridden(m_options.page) && !m_options.secondPage;
    m_inverse = m_options.inverse;
    if (m_inverse == Inverse::automatic) m_inverse = overridden ? Inverse::polynomial : Inverse::table;
    if (m_options.to == Quantity::radiance) return;
    if (m_inverse == Inverse::polynomial) {
        qv::TArray<double> coefficients;
        calibration.GetTempCoefficients(m_options.page, coefficients);
        if (coefficients.size() < 2) {
            throw Failure(Exit::damaged, name + ": page " + std::to_string(m_options.page) +
                                             " has no fit from radiance to temperature");
        }
        m_reverse = toVector(coefficients);
        m_lookupEmissivity = calibration.calPage(m_options.page).lookup().getEmissivity();
        return;
    }
    const double low = std::max(m_minCelsius - marginKelvin, lowestCelsius);
    m_table.emplace(calibration, m_options.emissivity, low, m_maxCelsius + marginKelvin);
    if (!(m_table->worstKelvin() <= 10 * toleranceKelvin)) {
        throw Failure(Exit::damaged, name + ": its radiance does not rise with temperature: no inverse table");
    }
}

double Calibrator::radianceOf(double counts) const {
    double radiance = 0.0;
    for (const Page& page : m_pages) radiance += page.weight * horner(page.coefficients, counts);
    return radiance;
}

double Calibrator::celsius(double radiance) const {
    const double own = radiance - m_reflected;
    if (m_inverse == Inverse::table) return m_table->temperature(own);
    return horner(m_reverse, (own - m_path) / m_options.emissivity * m_lookupEmissivity + m_path);
}

double Calibrator::convert(double counts) const {
    const double radiance = radianceOf(counts);
    if (m_options.to == Quantity::radiance) return (radiance - m_reflected - m_path) / m_options.emissivity + m_path;
    return fromCelsius(celsius(radiance), m_options.unit);
}

std::string Calibrator::unit() const {
    constexpr const char* letters[] = {"C", "F", "K", "R"};
    return m_options.to == Quantity::radiance ? "W/(sr-cm^2)" : letters[static_cast<int>(m_options.unit)];
}

std::string Calibrator::assumptions() const {
    std::string text = m_options.secondPage ? "pages " + std::to_string(m_options.page) + " and " +
                                                  std::to_string(*m_options.secondPage) +
                                                  " at instrument temperature " + number(m_options.instrument)
                                            : "page " + std::to_string(m_options.page);
    text += ", emissivity " + number(m_options.emissivity);
    text += m_options.reflectedCelsius ? ", reflected temperature " + number(*m_options.reflectedCelsius) + " C"
                                       : ", no reflected radiance";
    text += ", calibrated from " + number(m_minCelsius) + " to " + number(m_maxCelsius) + " C";
    return text;
}

}  // namespace tool
