#include "numerics/planck.h"

#include <algorithm>

#include "numerics/kernels/kernel_table.h"
#include "qv/spectral.h"

namespace qv {

namespace {

constexpr double zeroCelsius = 273.15;

}  // namespace

void Planck(TArray<double>& x, TArray<double>& y, double temperature, double emissivity) {
    y.Empty();
    const uint32_t count = x.size();
    if (!y.SetSize(count)) return;
    constexpr size_t blockLength = 512;  // stays in the first-level cache from one kernel to the other
    const kernels::KernelTable& table = kernels::kernels();
    for (size_t done = 0; done < count; done += blockLength) {
        const size_t n = std::min(blockLength, count - done);
        const double* axis = x.data() + done;
        double* values = y.data() + done;
        table.planckStrengths(axis, values, n);
        table.planckCurve(axis, values, values, n, temperature + zeroCelsius, emissivity);
    }
}

void PlanckAxis::assign(const TArray<double>& x) {
    if (std::equal(x.begin(), x.end(), m_x.begin(), m_x.end())) return;
    m_x.assign(x.begin(), x.end());
    m_strengths.resize(m_x.size());
    kernels::kernels().planckStrengths(m_x.data(), m_strengths.data(), m_x.size());
}

void PlanckAxis::curve(TArray<double>& y, double temperature, double emissivity) const {
    y.Empty();
    if (!y.SetSize(size())) return;
    kernels::kernels().planckCurve(m_x.data(), m_strengths.data(), y.data(), size(), temperature + zeroCelsius,
                                   emissivity);
}

double PlanckAxis::inBand(const TArray<double>& response, double temperature, double emissivity) const {
    const uint32_t count = std::min(size(), response.size());
    return kernels::kernels().planckBand(m_x.data(), m_strengths.data(), response.data(), count,
                                         temperature + zeroCelsius, emissivity);
}

}  // namespace qv
