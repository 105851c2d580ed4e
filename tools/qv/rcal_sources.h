// What a source of some temperature looks like to a calibration, and back.
#pragma once

#include <optional>
#include <vector>

#include "qv/rcal_file.h"

namespace tool {

/// What is assumed of a source.
struct SourceAssumptions {
    double emissivity = 1.0;
    std::optional<double> reflectedCelsius;  ///< Of a black surrounding that the source reflects by 1 - emissivity.
};

/// In-band radiance of a source with what it reflects, through the calibration's responses. The path's own radiance
/// enters once.
double seenRadiance(const qv::CRCalFile& calibration, double celsius, const SourceAssumptions& source);

/// The temperature at which a source of these assumptions has that radiance, by bisection of the calibration's own
/// integral between -200 and 5000 degrees Celsius; not a number outside.
double temperatureOf(const qv::CRCalFile& calibration, double radiance, const SourceAssumptions& source);

/// The counts at which a page's polynomial gives a radiance, searched from `low` to `high` and half as far again at
/// both ends; not a number where there are none. Between turning points any may be found.
double countsOf(const std::vector<double>& coefficients, double radiance, double low, double high);

/// Value of a polynomial, lowest power first.
double polynomial(const std::vector<double>& coefficients, double x);

/// The coefficients in use from counts to radiance of a page.
std::vector<double> forwardCoefficients(const qv::CRCalFile& calibration, int32_t page);

}  // namespace tool
