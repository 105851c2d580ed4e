// The Planck loops of peers.h, for a source that says QV_PLACE, the namespace, and has flags of its own.
#include <cmath>

#include "peers/peers.h"
#include "qv/spectral.h"

namespace peers::QV_PLACE {

namespace {

inline double planckAt(double x, double kelvin, double emissivity) {
    return emissivity * (qv::firstRadiationConstant / std::pow(x, 5.0)) *
           (1.0 / (std::exp(qv::secondRadiationConstant / (kelvin * x)) - 1.0));
}

}  // namespace

void planck(double* y, const double* x, size_t count, double celsius, double emissivity) {
    for (size_t i = 0; i < count; ++i) y[i] = planckAt(x[i], celsius + 273.15, emissivity);
}

double inBand(const double* x, const double* response, size_t count, double celsius, double emissivity) {
    double sum = 0.0;
    for (size_t i = 1; i < count; ++i) {
        sum += (x[i] - x[i - 1]) * (planckAt(x[i], celsius + 273.15, emissivity) * response[i]);
    }
    return sum;
}

}  // namespace peers::QV_PLACE
