// Counts to radiance to temperature, for one calibration, one page (or two to interpolate between) and one set of
// assumptions about the source.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qv/rcal_file.h"

namespace tool {

enum class Quantity { radiance, temperature };
enum class TemperatureUnit { celsius, fahrenheit, kelvin, rankine };
enum class Inverse { automatic, polynomial, table };

/// What the user asks for.
struct CalibratorOptions {
    int32_t page = 0;
    std::optional<int32_t> secondPage;  ///< With it, interpolate between two pages at `instrument`.
    double instrument = 0.0;            ///< Instrument temperature, in the unit of the pages' tags.
    Quantity to = Quantity::temperature;
    TemperatureUnit unit = TemperatureUnit::celsius;
    double emissivity = 1.0;
    std::optional<double> reflectedCelsius;  ///< Temperature of a surrounding that the source reflects by 1 - e.
    Inverse inverse = Inverse::automatic;
};

/// The page tag that says at which instrument temperature a page was taken.
inline constexpr char16_t instrumentTag[] = u"InstrumentTemperature";

/// The inverse of a calibration's radiance integral at one emissivity: a table of temperatures over the logarithm of
/// the radiance, read by cubic interpolation. While it is built its steps are halved until the temperature that it
/// gives between two entries is within 0.1 mK of the integral's.
class InverseTable {
public:
    InverseTable(const qv::CRCalFile& calibration, double emissivity, double lowCelsius, double highCelsius);

    /// Degrees Celsius; not a number outside the table.
    double temperature(double radiance) const;
    double lowCelsius() const { return m_low; }
    double highCelsius() const { return m_low + m_step * static_cast<double>(m_logRadiance.size() - 1); }
    /// Largest difference found between the table and the integral, in kelvin.
    double worstKelvin() const { return m_worst; }

private:
    void fill(const qv::CRCalFile& calibration, double emissivity, size_t count);
    double check(const qv::CRCalFile& calibration, double emissivity) const;

    double m_low;
    double m_step = 0.0;
    double m_worst = 0.0;
    std::vector<double> m_logRadiance;
};

/// Converts counts. Building one evaluates the radiance integral some thousand times; converting is arithmetic alone,
/// and may go on in several threads.
class Calibrator {
public:
    /// Fails when a page is missing or has no coefficients, or when two pages do not say their instrument temperature.
    Calibrator(qv::CRCalFile& calibration, const CalibratorOptions& options, const std::string& name);

    /// In the unit asked for; not a number where there is no temperature for the counts.
    double convert(double counts) const;
    double radianceOf(double counts) const;

    /// The calibrated range.
    double minCounts() const { return m_minCounts; }
    double maxCounts() const { return m_maxCounts; }
    double minCelsius() const { return m_minCelsius; }
    double maxCelsius() const { return m_maxCelsius; }
    bool usesPolynomial() const { return m_inverse == Inverse::polynomial; }
    /// "C", "F", "K", "R" or "W/(sr-cm^2)".
    std::string unit() const;
    /// What was assumed, in words.
    std::string assumptions() const;

private:
    struct Page {
        std::vector<double> coefficients;
        double weight = 1.0;
    };

    void addPage(qv::CRCalFile& calibration, int32_t index, double weight, const std::string& name);
    void prepareInverse(qv::CRCalFile& calibration, const std::string& name);
    double celsius(double radiance) const;

    CalibratorOptions m_options;
    std::vector<Page> m_pages;
    double m_minCounts = 0.0;
    double m_maxCounts = 0.0;
    double m_minCelsius = 0.0;
    double m_maxCelsius = 0.0;
    double m_reflected = 0.0;         ///< Radiance that the source reflects.
    double m_path = 0.0;              ///< Radiance of the path alone.
    double m_lookupEmissivity = 1.0;  ///< That the page's reverse polynomial was made for.
    Inverse m_inverse = Inverse::table;
    std::vector<double> m_reverse;
    std::optional<InverseTable> m_table;
};

/// Degrees Celsius in another unit.
double fromCelsius(double celsius, TemperatureUnit unit);

}  // namespace tool
