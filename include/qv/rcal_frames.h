// CCountsConverter: whole frames of camera counts to temperature, or to whatever else is a function of the counts.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/typed_data.h"

namespace qv {

class CRCalFile;

/// How many of a frame's counts lay outside the calibrated range. They are converted all the same.
struct COUNTS_OUTSIDE {
    uint32_t below = 0;
    uint32_t above = 0;
};

/// Converts frames of counts. Building one costs up to 65,536 conversions; build it once for a recording.
///
/// Counts of 8 and 16 bits go through a table of every result there is; others through the polynomials, several at a
/// time, or through the function. Both ways give the same values.
/// Threads: Convert may run in several at the same time. The calibration is not needed any more once this is built.
class QV_API CCountsConverter {
public:
    /// Degrees Celsius by the page's polynomials in use, counts to radiance to temperature, each by Horner's rule: the
    /// page's getTemperature(getRadiance(counts)) but for the last digits. See IsValid for a page that lacks them.
    /// @param countsType  Of the frames to come: whether the table is worth it. Frames of another type convert as well.
    CCountsConverter(const CRCalFile& calibration, int32_t page, EDataType countsType);

    /// Any function of the counts, with its calibrated range. The function must bear calls from several threads, and,
    /// for counts of 8 and 16 bits, one here for every number of 16 bits. What it throws passes through: here, and in
    /// Convert, which then has written some of dst.
    CCountsConverter(std::function<double(double)> ofCounts, double minCounts, double maxCounts, EDataType countsType);

    /// False when the page does not exist or has no polynomials: Convert then does nothing.
    bool IsValid() const { return m_ofCounts != nullptr || !m_toRadiance.empty(); }

    /// dst[i] = the value of counts[i], computed in double and stored by the element rule of qv/typed_data.h. flt32 is
    /// the fast destination. Types that are not handled leave dst as it is. The arrays must not overlap; they need not
    /// be aligned.
    COUNTS_OUTSIDE Convert(STypedData dst, STypedData counts, uint32_t count) const;

private:
    void makeTable(EDataType countsType);
    void evaluate(double* values, uint32_t count) const;
    COUNTS_OUTSIDE convertByTable(STypedData dst, STypedData counts, uint32_t count) const;
    COUNTS_OUTSIDE convertDirectly(STypedData dst, STypedData counts, uint32_t count) const;

    std::function<double(double)> m_ofCounts;
    std::vector<double> m_toRadiance;
    std::vector<double> m_toTemperature;
    double m_minCounts = 0.0;
    double m_maxCounts = 0.0;
    EDataType m_tableType = EDataType::none;
    std::vector<float> m_table;  ///< [the 16 bits of a count]
};

}  // namespace qv
