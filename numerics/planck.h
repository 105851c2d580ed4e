// The Planck curve on an axis that many temperatures share.
#pragma once

#include <cstdint>
#include <vector>

#include "qv/array.h"

namespace qv {

/// An axis in microns with what the Planck curve needs of it alone: 11910.06 / x^5. Every result has the bits that the
/// functions of qv/spectral.h give for the same axis.
class PlanckAxis {
public:
    PlanckAxis() = default;
    explicit PlanckAxis(const TArray<double>& x) { assign(x); }

    /// Takes over an axis. One that is the same already costs a comparison.
    void assign(const TArray<double>& x);
    uint32_t size() const { return static_cast<uint32_t>(m_x.size()); }

    /// Planck(x, y, temperature, emissivity).
    void curve(TArray<double>& y, double temperature, double emissivity) const;

    /// IntegrateRectTR of the Planck curve times `response`, the two multiplied point by point. The response may be
    /// shorter than the axis: the integral then ends with it.
    double inBand(const TArray<double>& response, double temperature, double emissivity) const;

private:
    std::vector<double> m_x;
    std::vector<double> m_strengths;
};

}  // namespace qv
