// The fields of a calibration's parts, described once: XML reader and writer, binary reader and writer run over them.
//
// A description calls its visitor with each field's name and the member itself, in the order in which both forms write
// them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "measurement/rcal/document.h"
#include "qv/rcal_file.h"

namespace qv::rcalFields {

using Document = CRCalFile::Document;

/// A number of an enumeration with a word for each value from 0 on.
template <class E>
struct Worded {
    E& value;
    const char16_t* const* words;
    size_t count;
};
template <class E, size_t N>
Worded<E> worded(E& value, const char16_t* const (&words)[N]) {
    return {value, words, N};
}

inline constexpr const char16_t* areaUnitWords[] = {u"cm(squared)", u"cm(diameter)", u"cm(side)",
                                                    u"in(squared)", u"in(diameter)", u"in(side)"};
inline constexpr const char16_t* distanceUnitWords[] = {u"cm", u"in", u"ft"};
inline constexpr const char16_t* backgroundWords[] = {u"notSet", u"none", u"value", u"file"};
inline constexpr const char16_t* reflectedWords[] = {u"none", u"constant", u"calculate"};

template <class Fields>
void bandpass(Fields&& f, Document& d) {
    f(u"low", d.bandpassLow)(u"high", d.bandpassHigh);
}
template <class Fields>
void bandpassOverride(Fields&& f, Document& d) {
    f(u"low", d.bandpassOverrideLow)(u"high", d.bandpassOverrideHigh)(u"valid", d.bandpassOverrideValid);
}
template <class Fields>
void range(Fields&& f, Document& d) {
    f(u"value", d.range)(u"valid", d.rangeValid);
}
template <class Fields>
void fov(Fields&& f, Document& d) {
    f(u"horz", d.fovHorz)(u"vert", d.fovVert)(u"valid", d.fovValid);
}
template <class Fields>
void tophat(Fields&& f, Document& d) {
    f(u"start", d.tophatStart)(u"end", d.tophatEnd)(u"delta", d.tophatDelta);
}
template <class Fields>
void modtranEnabled(Fields&& f, Document& d) {
    f(u"totTransEnabled", d.totTransEnabled)(u"pathThrmlEnabled", d.pathThrmlEnabled);
}
template <class Fields>
void responseEnabled(Fields&& f, RESPONCE& r) {
    f(u"enabled", r.enabled);
}
template <class Fields>
void pageAttributes(Fields&& f, CAL_PAGE& p) {
    f(u"radiance", p.radiance)(u"areaUnits", worded(p.areaUnits, areaUnitWords))(
        u"distanceUnits", worded(p.distanceUnits, distanceUnitWords));
}
template <class Fields>
void pageRange(Fields&& f, CAL_PAGE& p) {
    f(u"auto", p.autoRange)(u"minCounts", p.minCounts)(u"maxCounts", p.maxCounts)(u"minRadiance", p.minRadiance)(
        u"maxRadiance", p.maxRadiance)(u"minTemperature", p.minTemperature)(u"maxTemperature", p.maxTemperature);
}
template <class Fields>
void calculatedFit(Fields&& f, int32_t& order, double& r2) {
    f(u"order", order)(u"r2", r2);
}
template <class Fields>
void overriddenFit(Fields&& f, POLY_OVERRIDE& o) {
    f(u"order", o.order)(u"valid", o.valid);
}
template <class Fields>
void tpfact(Fields&& f, CAL_PAGE& p) {
    f(u"value", p.tpfact)(u"valid", p.tpfactValid);
}
template <class Fields>
void background(Fields&& f, CAL_PAGE& p) {
    f(u"type", worded(p.backgroundType, backgroundWords))(u"value", p.backgroundValue);
}
template <class Fields>
void backgroundPlace(Fields&& f, BACKGROUND_FILE& b) {
    f(u"xOffset", b.xOffset)(u"yOffset", b.yOffset)(u"width", b.width)(u"height", b.height);
}
template <class Fields>
void check(Fields&& f, CAL_PAGE& p) {
    f(u"counts", p.checkCounts)(u"radiance", p.checkRadiance)(u"temperature", p.checkTemperature)(u"lookup",
                                                                                                  p.checkLookup);
}
template <class Fields>
void calPoint(Fields&& f, CAL_POINT& p) {
    f(u"enabled", p.enabled)(u"temperature", p.temperature)(u"emissivity", p.emissivity)(u"area", p.area)(
        u"distance", p.distance)(u"radiance", p.radiance)(u"measurement", p.measurement)(
        u"reflectedRadianceType", worded(p.reflectedRadianceType, reflectedWords))(
        u"reflectedEmissivity", p.reflectedEmissivity)(u"reflectedTemperature", p.reflectedTemperature)(
        u"reflectedRadiance", p.reflectedRadiance);
}
template <class Fields>
void lookup(Fields&& f, CAL_PAGE& p) {
    f(u"start", p.lookupStart)(u"end", p.lookupEnd)(u"delta", p.lookupDelta)(u"emissivity", p.lookupEmissivity);
}
template <class Fields>
void tag(Fields&& f, CString& name, CString& value) {
    f(u"name", name)(u"value", value);
}

}  // namespace qv::rcalFields
