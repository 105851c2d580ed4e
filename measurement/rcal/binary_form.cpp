// Layout. Numbers are little-endian, or big-endian when the file swaps; pixels are never swapped.
//
//   path   = the UTF-8 length as 1 byte, or FF and 2 bytes, or FF FFFF and 4 bytes; then the bytes
//   text   = the UTF-8 length as 4 bytes; then the bytes
//   number = int32, f64 = 64-bit float, bool = one byte (1 is true)
//   list   = count as 4 bytes, then as many f64
//   n x    = count as 4 bytes, then as many x
//
//   | group           | content                                                                                    |
//   |-----------------|--------------------------------------------------------------------------------------------|
//   | header          | "____RCAL", int16 version 0                                                                |
//   | files           | path of the spectral response, path of the atmosphere's file, n paths of additional        |
//   |                 | responses                                                                                  |
//   | pages           | n of the following                                                                         |
//   |  flags, counts  | bool radiance; number areaUnits, distanceUnits; f64 check counts, radiance, temperature,   |
//   |                 | lookup; uint32 count of the points                                                         |
//   |  points         | each: f64 temperature, emissivity, area, distance, measurement; number type of the         |
//   |                 | reflected radiance; f64 reflected emissivity, temperature, radiance; bool enabled;         |
//   |                 | f64 radiance                                                                               |
//   |  range          | bool auto; f64 min counts, max counts, min radiance, max radiance, min temperature,        |
//   |                 | max temperature                                                                            |
//   |  polynomials    | of coeffs, then of tempCoeffs: number order, f64 r2, list of values                        |
//   |  lookup         | f64 start, end, delta, emissivity; list of radiances; list of temperatures                 |
//   |  overrides      | of coeffs, then of tempCoeffs: number order, bool valid, list of values                    |
//   |  tpfact         | f64 value, bool valid                                                                      |
//   |  background     | number type, f64 value                                                                     |
//   |  pictures       | n of: uint32 xOffset, yOffset, width, height; byte element type; bool there are pixels;    |
//   |                 | the pixels, width * height * size of the type                                              |
//   | calibration     | f64 top-hat start, end, delta; f64 bandpass low, high; override f64 low, high, bool valid; |
//   |                 | range f64 value, bool valid; field of view f64 horz, vert, bool valid                      |
//   | responses       | number type (0 file, 1 top-hat), bool spectral response enabled; bool transmission, path   |
//   |                 | radiance enabled; lists X and Y of the transmission, of the path radiance; for each        |
//   |                 | additional response bool enabled, lists X and Y; bool automatic update of the lookup       |
//   | tags            | n of text name, text value: the calibration's, then each page's                            |
//
// Not stored, since loading makes them anew: the spectral response's curve, curves on the working axis, states of the
// response files. The revision of a file of version 0 is the newest, so that radiances, fits and ranges stay as stored.
#include "measurement/rcal/binary_form.h"

#include <cstring>

#include "measurement/rcal/binary_stream.h"
#include "qv/diagnostic.h"

namespace qv::rcalBinary {

namespace {

using namespace rcalFields;

constexpr char beginning[8] = {'_', '_', '_', '_', 'R', 'C', 'A', 'L'};
constexpr size_t markAt = 4;
constexpr int16_t newestVersion = 0;

// Least bytes of a list's elements, by the table above.
constexpr uint32_t pathBytes = 1;
constexpr uint32_t pageBytes = 213;
constexpr uint32_t pointBytes = 77;
constexpr uint32_t pictureBytes = 18;

/// In the order of the record's members.
template <class Archive>
void point(Archive& a, CAL_POINT& p) {
    a(u"temperature", p.temperature)(u"emissivity", p.emissivity)(u"area", p.area)(u"distance", p.distance)(
        u"measurement", p.measurement)(u"reflectedRadianceType", worded(p.reflectedRadianceType, reflectedWords))(
        u"reflectedEmissivity", p.reflectedEmissivity)(u"reflectedTemperature", p.reflectedTemperature)(
        u"reflectedRadiance", p.reflectedRadiance)(u"enabled", p.enabled)(u"radiance", p.radiance);
}

template <class Archive>
void picture(Archive& a, BACKGROUND_FILE& b) {
    backgroundPlace(a, b);
    a.byte(u"type", b.type);
    a.pixels(b);
}

template <class Archive>
void page(Archive& a, CAL_PAGE& p) {
    pageAttributes(a, p);
    check(a, p);
    a.each(u"points", p.points, pointBytes, anyNumber, [&](CAL_POINT& each) { point(a, each); });
    pageRange(a, p);
    calculatedFit(a, p.polyOrder, p.r2);
    a.list(u"coeffs", p.coeffs);
    calculatedFit(a, p.tempPolyOrder, p.tempR2);
    a.list(u"tempCoeffs", p.tempCoeffs);
    lookup(a, p);
    a.list(u"lookup radiances", p.lookupRadiance);
    a.list(u"lookup temperatures", p.lookupTemperature);
    for (POLY_OVERRIDE* polynomial : {&p.coeffsOverride, &p.tempCoeffsOverride}) {
        overriddenFit(a, *polynomial);
        a.list(u"override", polynomial->values);
    }
    tpfact(a, p);
    background(a, p);
    a.each(u"background pictures", p.backgroundFiles, pictureBytes, anyNumber,
           [&](BACKGROUND_FILE& each) { picture(a, each); });
}

template <class Archive>
void curve(Archive& a, RCAL_CURVE& c) {
    a.list(u"curve X", c.rawX);
    a.list(u"curve Y", c.rawY);
}

template <class Archive>
void contents(Archive& a, Document& d) {
    a.path(u"spectral response file", d.spectralFile);
    a.path(u"atmosphere file", d.modtranFile);
    a.each(u"additional responses", d.additionalResponses, pathBytes, rcalLimits::mostAdditionalResponses,
           [&](RESPONCE& each) { a.path(u"additional response file", each.file); });

    uint32_t index = 0;
    a.each(u"pages", d.pages, pageBytes, rcalLimits::mostPages, [&](CAL_PAGE& each) {
        a.place(u"page", index++);
        page(a, each);
    });
    a.place(nullptr, 0);

    tophat(a, d);
    bandpass(a, d);
    bandpassOverride(a, d);
    range(a, d);
    fov(a, d);
    auto type = static_cast<int32_t>(d.spectralType);
    a(u"type", type)(u"enabled", d.spectralEnabled);
    d.spectralType = static_cast<StoredResponseType>(type);
    modtranEnabled(a, d);
    curve(a, d.totalTransmission);
    curve(a, d.pathThermal);
    a.again(d.additionalResponses, [&](RESPONCE& each) {
        responseEnabled(a, each);
        curve(a, each.curve);
    });
    a(u"automatic update of the lookup", d.autoLookupUpdate);

    a.tags(d.tags);
    a.again(d.pages, [&](CAL_PAGE& each) { a.tags(each.tags); });
}

}  // namespace

bool isBinary(const char* first) { return std::memcmp(first + markAt, beginning + markAt, 4) == 0; }

bool readVersion(IFile& file) {
    int16_t version = 0;
    const bool read = file.GetInt16(version);
    if (read && version <= newestVersion) return true;
    SetDiagnostic(CString(), u"version 0 of the binary form",
                  read ? CString::FromFormat(u"version %d", version) : CString(u"the end of the file"),
                  sizeof beginning);
    return false;
}

bool load(Document& document, IFile& file) {
    if (!readVersion(file)) return false;
    document.revision = rcalLimits::writtenRevision;
    Reader reader(file);
    contents(reader, document);
    return reader.finish();
}

bool save(Document& document, IFile& file) {
    Writer writer(swapFlag(file), beginning, newestVersion);
    contents(writer, document);
    return writer.finish(file);
}

}  // namespace qv::rcalBinary
