// Radiance through the responses, and the steps that keep points, fits, ranges and lookup tables up to date.
#include <algorithm>

#include "measurement/rcal/document.h"
#include "qv/curve_fit.h"
#include "qv/spectral.h"

namespace qv {

namespace {

void multiply(TArray<double>& product, const TArray<double>& factor) {
    const uint32_t count = std::min(product.size(), factor.size());
    double* values = product.data();
    const double* factors = factor.data();
    for (uint32_t i = 0; i < count; ++i) values[i] *= factors[i];
}

/// The enabled points' values of two members.
void gather(const CAL_PAGE& page, double CAL_POINT::*xMember, double CAL_POINT::*yMember, TArray<double>& x,
            TArray<double>& y) {
    x.reserve(page.points.size());
    y.reserve(page.points.size());
    for (const CAL_POINT& point : page.points) {
        if (!point.enabled) continue;
        x.Add(point.*xMember);
        y.Add(point.*yMember);
    }
}

/// On failure the coefficients stay; the result is the fit's R², 0 then.
double fit(TArray<double>& x, TArray<double>& y, int32_t order, TArray<double>& coefficients) {
    return LinearLeastSquareFit(x, y, order, coefficients) ? CalcR2(x, y, coefficients) : 0.0;
}

struct TemperatureIndex {
    double temperature;
    uint32_t index;
};

int sortByTemp(const void* a, const void* b) {
    const double left = static_cast<const TemperatureIndex*>(a)->temperature;
    const double right = static_cast<const TemperatureIndex*>(b)->temperature;
    if (left < right) return -1;
    return left > right ? 1 : 0;
}

}  // namespace

// Radiance -----------------------------------------------------------------------------------------------------------

/// Planck's law times every response of the camera, on the working axis.
void CRCalFile::Document::sourceCurve(TArray<double>& curve, double temperature, double emissivity) const {
    planck.curve(curve, temperature, emissivity);
    multiply(curve, response.y);
    for (const RESPONCE& added : additionalResponses) {
        if (added.enabled) multiply(curve, added.curve.y);
    }
}

/// Adds the camera's response to the path's own radiance.
void CRCalFile::Document::addPathThermal(TArray<double>& curve) const {
    const uint32_t count = std::min(curve.size(), pathThermal.y.size());
    for (uint32_t i = 0; i < count; ++i) curve.data()[i] += response.y.data()[i] * pathThermal.y.data()[i];
}

/// Nothing but the response shapes the source's curve: the integral then needs no curve in memory, and has the same
/// bits.
bool CRCalFile::Document::responseAlone() const {
    return response.y.size() == planck.size() &&
           std::none_of(additionalResponses.begin(), additionalResponses.end(),
                        [](const RESPONCE& added) { return added.enabled && !added.curve.y.empty(); });
}

double CRCalFile::CalcRadianceNoModtran(double temperature, double emissivity) const {
    const Document& d = *m_document;
    if (d.responseAlone()) return d.planck.inBand(d.response.y, temperature, emissivity);
    TArray<double> curve;
    d.sourceCurve(curve, temperature, emissivity);
    return IntegrateRectTR(m_document->response.x, curve);
}

double CRCalFile::CalcSourceRadiance(double temperature, double emissivity) const {
    return CalcRadianceNoModtran(temperature, emissivity);
}

double CRCalFile::CalcRadiance(double temperature, double emissivity) const {
    Document& d = *m_document;
    if (!d.modtranInForce()) return CalcRadianceNoModtran(temperature, emissivity);
    TArray<double> curve;
    d.sourceCurve(curve, temperature, emissivity);
    if (d.totTransEnabled) multiply(curve, d.totalTransmission.y);
    if (d.pathThrmlEnabled) d.addPathThermal(curve);
    return IntegrateRectTR(d.response.x, curve);
}

double CRCalFile::CalcRadianceEx(double t, double e, double reflectedRadiance) const {
    return CalcRadiance(t, e) + reflectedRadiance;
}

double CRCalFile::CalcRadianceEx(double t, double e, double reflectedTemperature, double reflectedEmissivity) const {
    return CalcRadiance(t, e) + CalcRadiance(reflectedTemperature, (1.0 - e) * reflectedEmissivity);
}

double CRCalFile::CalcRadianceEx(double t, double e, EReflectedRadianceType type, double reflectedRadiance,
                                 double reflectedTemperature, double reflectedEmissivity) const {
    switch (type) {
        case EReflectedRadianceType::constant: return CalcRadianceEx(t, e, reflectedRadiance);
        case EReflectedRadianceType::calculate: return CalcRadianceEx(t, e, reflectedTemperature, reflectedEmissivity);
        default: return CalcRadiance(t, e);
    }
}

void CRCalFile::GetFinalSpectralResponse(TArray<double>& x, TArray<double>& y) const {
    const Document& d = *m_document;
    x = d.response.x;
    y = d.response.y;
    for (const RESPONCE& added : d.additionalResponses) {
        if (added.enabled) multiply(y, added.curve.y);
    }
    if (!d.modtranInForce()) return;
    if (d.totTransEnabled) multiply(y, d.totalTransmission.y);
    if (d.pathThrmlEnabled) d.addPathThermal(y);
}

void CRCalFile::GetFinalPlanck(TArray<double>& x, TArray<double>& y, double t, double e) const {
    const Document& d = *m_document;
    GetFinalSpectralResponse(x, y);
    TArray<double> curve;
    d.planck.curve(curve, t, e);
    multiply(y, curve);
    if (d.pathThrmlEnabled && d.modtranInForce()) d.addPathThermal(y);
}

// Steps --------------------------------------------------------------------------------------------------------------

/// Runs `step` on one page, or on all of them for -1.
template <class Step>
void CRCalFile::onPages(int32_t pageIndex, Step step) {
    if (pageIndex != -1) {
        if (CAL_PAGE* one = page(pageIndex)) step(pageIndex, *one);
        return;
    }
    const auto count = static_cast<int32_t>(m_document->pages.size());
    for (int32_t i = 0; i < count; ++i) step(i, *page(i));
}

void CRCalFile::UpdateCalPoint(int32_t pageIndex, int32_t pointIndex, bool refit) {
    onPages(pageIndex, [&](int32_t index, CAL_PAGE& changed) {
        for (uint32_t i = 0; i < changed.points.size(); ++i) {
            if (pointIndex != -1 && static_cast<uint32_t>(pointIndex) != i) continue;
            CAL_POINT& p = changed.points[i];
            p.radiance = CalcRadianceEx(p.temperature, p.emissivity, p.reflectedRadianceType, p.reflectedRadiance,
                                        p.reflectedTemperature, p.reflectedEmissivity);
        }
        if (!refit) return;
        UpdateCalPageCoeffs(index);
        UpdateCalPageRange(index);
    });
}

int32_t CRCalFile::SortCalPoints(int32_t pageIndex, int32_t pointIndex) {
    if (pageIndex == -1 && pointIndex == -1) {
        onPages(-1, [&](int32_t index, CAL_PAGE&) { SortCalPoints(index, -1); });
        return 0;
    }
    CAL_PAGE* sorted = page(pageIndex);
    if (sorted == nullptr) return -1;
    const TArray<CAL_POINT> points(sorted->points);
    TArray<TemperatureIndex> order;
    order.reserve(points.size());
    for (uint32_t i = 0; i < points.size(); ++i) order.Add({points[i].temperature, i});
    order.Sort(&sortByTemp);
    int32_t newIndex = 0;
    for (uint32_t i = 0; i < order.size(); ++i) {
        sorted->points[i] = points[order[i].index];
        if (pointIndex != -1 && order[i].index == static_cast<uint32_t>(pointIndex)) newIndex = static_cast<int32_t>(i);
    }
    return newIndex;
}

void CRCalFile::UpdateCalPage(int32_t pageIndex) {
    onPages(pageIndex, [&](int32_t index, CAL_PAGE&) {
        UpdateCalPoint(index, -1, false);
        UpdateCalPageCoeffs(index);
        UpdateCalPageRange(index);
        if (m_document->autoLookupUpdate) UpdateCalPageLookup(index);
    });
}

void CRCalFile::UpdateCalPageCoeffs(int32_t pageIndex) {
    onPages(pageIndex, [](int32_t, CAL_PAGE& fitted) {
        TArray<double> x;
        TArray<double> y;
        gather(fitted, &CAL_POINT::measurement, &CAL_POINT::radiance, x, y);
        fitted.r2 = fit(x, y, fitted.polyOrder, fitted.coeffs);
    });
}

void CRCalFile::UpdateCalPageTempCoeffs(int32_t pageIndex) {
    onPages(pageIndex, [](int32_t, CAL_PAGE& fitted) {
        fitted.tempR2 = fit(fitted.lookupRadiance, fitted.lookupTemperature, fitted.tempPolyOrder, fitted.tempCoeffs);
    });
}

void CRCalFile::UpdateCalPageLookup(int32_t pageIndex) {
    onPages(pageIndex, [&](int32_t index, CAL_PAGE& changed) {
        XAxis(changed.lookupTemperature, changed.lookupStart, changed.lookupEnd, changed.lookupDelta);
        changed.lookupRadiance.SetSize(changed.lookupTemperature.size());
        for (uint32_t i = 0; i < changed.lookupRadiance.size(); ++i) {
            changed.lookupRadiance[i] = CalcRadiance(changed.lookupTemperature[i], changed.lookupEmissivity);
        }
        UpdateCalPageTempCoeffs(index);
    });
}

void CRCalFile::UpdateCalPageRange(int32_t pageIndex) {
    onPages(pageIndex, [](int32_t, CAL_PAGE& ranged) {
        if (!ranged.autoRange) return;
        const CAL_POINT* lowest = nullptr;
        const CAL_POINT* highest = nullptr;
        for (const CAL_POINT& candidate : ranged.points) {
            if (!candidate.enabled) continue;
            if (lowest == nullptr || candidate.temperature < lowest->temperature) lowest = &candidate;
            if (highest == nullptr || candidate.temperature > highest->temperature) highest = &candidate;
        }
        if (lowest == highest) return;  // none, or one alone
        ranged.minTemperature = lowest->temperature;
        ranged.minRadiance = lowest->radiance;
        ranged.minCounts = lowest->measurement;
        ranged.maxTemperature = highest->temperature;
        ranged.maxRadiance = highest->radiance;
        ranged.maxCounts = highest->measurement;
    });
}

bool CRCalFile::GetReverseCoefficients(int32_t pageIndex, TArray<double>& out) const {
    const CAL_PAGE* fitted = page(pageIndex);
    return fitted != nullptr && GetReverseCoefficients(pageIndex, fitted->polyOrder, out);
}

bool CRCalFile::GetReverseCoefficients(int32_t pageIndex, int32_t order, TArray<double>& out) const {
    const CAL_PAGE* fitted = page(pageIndex);
    if (fitted == nullptr) return false;
    TArray<double> x;
    TArray<double> y;
    gather(*fitted, &CAL_POINT::radiance, &CAL_POINT::measurement, x, y);
    return LinearLeastSquareFit(x, y, order, out);
}

}  // namespace qv
