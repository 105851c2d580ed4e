// How good a calibration is: residuals in kelvin instead of R² alone, the shape of the polynomials, and what is wrong.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "json.h"
#include "qv/rcal_file.h"
#include "table.h"

namespace tool {

/// Root mean square, the largest magnitude with its sign, and where it is. Not a number where there was nothing.
struct Spread {
    double rms = std::numeric_limits<double>::quiet_NaN();
    double worst = std::numeric_limits<double>::quiet_NaN();
    double at = std::numeric_limits<double>::quiet_NaN();  ///< Degrees Celsius.

    bool known() const { return worst == worst; }
};

/// From where on `qv rcal check` calls something wrong, in kelvin.
struct Limits {
    double residual = 1.0;
    double leftOut = 2.0;
    double reverse = 0.5;
};

/// One measured point against the page's polynomial.
struct PointReport {
    qv::CAL_POINT point;
    double fitted;   ///< Radiance by the polynomial in use.
    double kelvin;   ///< fitted less the point's radiance, over dL/dT at the point.
    double leftOut;  ///< The same by a fit without this point; not a number where the rest is too few.
};

struct PageReport {
    int32_t page = 0;
    const qv::CAL_PAGE* record = nullptr;
    std::string instrument;  ///< Tag of the instrument temperature; empty where there is none.
    int32_t enabled = 0;
    int32_t order = 0;
    int32_t tempOrder = 0;
    bool overridden = false;
    bool tempOverridden = false;
    std::vector<PointReport> points;
    Spread residual;
    Spread leftOut;
    Spread reverse;                     ///< Radiance-to-temperature polynomial against the integral.
    int direction = 0;                  ///< 1: radiance rises with counts, -1: falls, 0: neither.
    std::vector<double> turningPoints;  ///< Counts within the range.
    double staleRadiance = 0.0;         ///< Largest relative difference of a stored radiance from today's.
    std::vector<std::string> findings;

    /// R² looks better than the kelvins behind it.
    bool r2Hides(double r2, const Spread& spread, double limit) const;
};

PageReport reportPage(const qv::CRCalFile& calibration, int32_t page, const Limits& limits);

/// For people; `limits` decides where R² is said to hide something.
void printPage(const PageReport& report, const Limits& limits, std::ostream& out);
Json jsonPage(const PageReport& report);

/// A table for the points of one page, or of all.
Table pointTable();
void addPoints(const PageReport& report, Table& table);

}  // namespace tool
