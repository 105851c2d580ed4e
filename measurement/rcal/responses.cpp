// The spectral side of a calibration: response files, the top-hat, and every curve on the working axis.
#include <algorithm>
#include <cmath>

#include "measurement/rcal/document.h"
#include "qv/spectral.h"

namespace qv {

namespace {

/// Widest step of the working axis of a response file, in microns.
constexpr double widestStepMicrons = 0.01;
/// What a curve counts as outside its own axis.
constexpr double outside = 0.0;
/// The level, of a response scaled to one, whose first and last crossing bound the band.
constexpr double bandLevel = 0.5;

EResponseStatus statusOf(bool found, bool readable, uint32_t points) {
    if (!found) return EResponseStatus::fileMissing;
    if (!readable) return EResponseStatus::unreadable;
    return points < 2 ? EResponseStatus::tooFewPoints : EResponseStatus::loaded;
}

/// Reads an X,Y file; the curve changes only when the status is `loaded`.
EResponseStatus readResponse(const CString& path, TArray<double>& rawX, TArray<double>& rawY) {
    TArray<double> x;
    TArray<double> y;
    const bool found = fileSystem().FileExists(path.c_str());
    const bool readable = found && ReadXYFile(x, y, &fileSystem(), path.c_str());
    const EResponseStatus status = statusOf(found, readable, x.size());
    if (status != EResponseStatus::loaded) return status;
    rawX = x;
    rawY = y;
    return status;
}

/// Moves a raw curve onto the axis. The curve is empty when there is nothing to move.
void moveToAxis(RCAL_CURVE& curve, TArray<double>& axis) {
    curve.x.Empty();
    curve.y.Empty();
    if (curve.rawX.empty() || curve.rawX.size() != curve.rawY.size()) return;
    CopyAxis(curve.x, axis);
    Interpolate(curve.rawX, curve.rawY, axis, curve.y, outside);
}

}  // namespace

void CRCalFile::SetupTophat(bool update) {
    Document& d = *m_document;
    if (d.fileInForce()) return;
    XAxis(d.response.rawX, d.tophatStart, d.tophatEnd, d.tophatDelta);
    Tophat(d.response.rawX, d.response.rawY);
    d.bandpassLow = std::min(d.tophatStart, d.tophatEnd);
    d.bandpassHigh = std::max(d.tophatStart, d.tophatEnd);
    if (update) AdjustAllResponses(true);
}

void CRCalFile::LoadSpectralResponse(bool update) {
    Document& d = *m_document;
    if (!d.spectralEnabled) return;
    d.spectralStatus = readResponse(d.spectralFile, d.response.rawX, d.response.rawY);
    if (d.spectralStatus != EResponseStatus::loaded) return;
    ScaleToOne(d.response.rawY);
    const TArray<double>& y = d.response.rawY;
    const auto inBand = [](double value) { return value > bandLevel; };
    const double* first = std::find_if(y.begin(), y.end(), inBand);
    const double* behindLast = std::find_if(y.rbegin(), y.rend(), inBand).base();
    if (first == y.end()) {
        first = y.begin();
        behindLast = y.end();
    }
    d.bandpassLow = d.response.rawX[static_cast<uint32_t>(first - y.begin())];
    d.bandpassHigh = d.response.rawX[static_cast<uint32_t>(behindLast - 1 - y.begin())];
    if (update) AdjustAllResponses(true);
}

/// A failed load takes the atmosphere out of the calculations, so the pages follow in that case too.
void CRCalFile::LoadModtran(bool update) {
    Document& d = *m_document;
    if (!d.totTransEnabled && !d.pathThrmlEnabled) return;
    TArray<double> x;
    TArray<double> transmission;
    TArray<double> thermal;
    const bool found = fileSystem().FileExists(d.modtranFile.c_str());
    const bool readable = found && ReadModtranFile(x, transmission, thermal, &fileSystem(), d.modtranFile.c_str());
    d.modtranStatus = statusOf(found, readable, x.size());
    if (d.modtranStatus == EResponseStatus::loaded) {
        d.totalTransmission.rawX = x;
        d.totalTransmission.rawY = transmission;
        d.pathThermal.rawX = x;
        d.pathThermal.rawY = thermal;
    }
    AdjustModtran(update);
}

/// The pages follow whether or not the file could be read: a response that is switched off or gone counts no more.
void CRCalFile::LoadAdditionalSpectralResponse(int32_t index, bool update) {
    RESPONCE* added = response(index);
    if (added == nullptr) return;
    added->status = readResponse(added->file, added->curve.rawX, added->curve.rawY);
    AdjustAdditionalSpectralResponse(index, update);
}

void CRCalFile::AdjustSpectralResponse(bool update) {
    Document& d = *m_document;
    RCAL_CURVE& curve = d.response;
    curve.x.Empty();
    curve.y.Empty();
    const uint32_t points = std::min(curve.rawX.size(), curve.rawY.size());
    if (points >= 2 && !d.fileInForce()) {
        curve.x = curve.rawX;
        curve.y = curve.rawY;
    } else if (points >= 2) {
        const double span = curve.rawX.back() - curve.rawX.front();
        XAxis(curve.x, curve.rawX.front(), curve.rawX.back(), std::min(widestStepMicrons, span / points));
        Interpolate(curve.rawX, curve.rawY, curve.x, curve.y, outside);
    }
    d.planck.assign(curve.x);
    if (update) UpdateCalPage(-1);
}

void CRCalFile::AdjustModtran(bool update) {
    Document& d = *m_document;
    moveToAxis(d.totalTransmission, d.response.x);
    moveToAxis(d.pathThermal, d.response.x);
    if (update) UpdateCalPage(-1);
}

void CRCalFile::AdjustAdditionalSpectralResponse(int32_t index, bool update) {
    RESPONCE* added = response(index);
    if (added == nullptr) return;
    if (added->status == EResponseStatus::loaded) {
        moveToAxis(added->curve, m_document->response.x);
    } else {  // counts no more, whatever curve is stored with it
        added->curve.x.Empty();
        added->curve.y.Empty();
    }
    if (update) UpdateCalPage(-1);
}

void CRCalFile::AdjustAllResponses(bool update) {
    AdjustSpectralResponse(false);
    AdjustModtran(false);
    for (uint32_t i = 0; i < m_document->additionalResponses.size(); ++i) {
        AdjustAdditionalSpectralResponse(static_cast<int32_t>(i), false);
    }
    if (update) UpdateCalPage(-1);
}

}  // namespace qv
