#include "calibration.h"

#include <iostream>
#include <string_view>

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

const char* statusText(qv::EResponseStatus status) {
    switch (status) {
        case qv::EResponseStatus::loaded: return "loaded";
        case qv::EResponseStatus::notSet: return "not set";
        case qv::EResponseStatus::fileMissing: return "file does not exist";
        case qv::EResponseStatus::unreadable: return "file cannot be read as a curve";
        case qv::EResponseStatus::tooFewPoints: return "fewer than two points";
    }
    return "unknown";
}

ResponseState spectralState(qv::CRCalFile& calibration) {
    qv::CRCalFile::CSpectralResponse spectral = calibration.spectralResponse();
    ResponseState state;
    state.name = "spectral response";
    state.inForce = true;
    if (spectral.getType() == qv::ESpectralResponseType::file) {
        state.file = narrow(spectral.getFile());
        state.what = "loaded";
        return state;
    }
    const qv::EResponseStatus status = spectral.getStatus();
    qv::CRCalFile::CTophat tophat = calibration.tophat();
    state.what = "top-hat from " + number(tophat.getStart()) + " to " + number(tophat.getEnd()) + " um";
    state.missing = status != qv::EResponseStatus::loaded && status != qv::EResponseStatus::notSet;
    if (state.missing) {
        state.file = narrow(spectral.getFile());
        state.what = std::string(statusText(status)) + ", " + state.what + " instead";
    }
    return state;
}

}  // namespace

void loadCalibration(qv::CRCalFile& calibration, const std::string& path) {
    qv::IFileSystem& disk = files();
    qv::ClearDiagnostic();
    requireFile(path);
    if (calibration.Load(&disk, wide(path).c_str(), 0)) return;
    const bool known = qv::CRCalFile::IsRCalFile(&disk, wide(path));
    throw diagnosed(known ? Exit::damaged : Exit::wrongKind, path, "is no calibration");
}

CalibrationForm formOf(const std::string& path) {
    char first[8] = {};
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), 0x212);
    const bool binary = file && file->ReadBytes(first, sizeof first) && std::string_view(first + 4, 4) == "RCAL";
    return binary ? CalibrationForm::binary : CalibrationForm::xml;
}

void saveCalibration(qv::CRCalFile& calibration, const std::string& path, bool force, CalibrationForm form) {
    Target target(path, force);
    bool saved = false;
    {
        const qv::TSharedPtr<qv::IFile> file = target.open();
        qv::ClearDiagnostic();
        saved = calibration.Save(file, form == CalibrationForm::xml ? qv::CRCalFile::saveXml : 0);
    }
    // The XML form tells of a failed write by the diagnostic alone.
    if (!saved || qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, path, "cannot be written");
    target.commit();
}

std::vector<ResponseState> responses(qv::CRCalFile& calibration) {
    std::vector<ResponseState> states{spectralState(calibration)};
    for (int32_t i = 0; i < calibration.additionalResponses().getCount(); ++i) {
        const qv::CRCalFile::CAdditionalResponse response = calibration.additionalResponses()[i];
        const bool loaded = response.getStatus() == qv::EResponseStatus::loaded;
        states.push_back({"additional response " + std::to_string(i), narrow(response.getFile()),
                          std::string(statusText(response.getStatus())) + (response.getEnabled() ? "" : ", disabled"),
                          loaded && response.getEnabled(), !loaded && response.getEnabled()});
    }
    const bool transmission = calibration.modtran()[0].getEnabled();
    const bool path = calibration.modtran()[1].getEnabled();
    if (transmission || path) {
        const qv::EResponseStatus status = calibration.modtran().getStatus();
        const bool loaded = status == qv::EResponseStatus::loaded;
        states.push_back({"atmosphere", narrow(calibration.modtran().getFile()),
                          std::string(statusText(status)) + (transmission ? ", total transmission" : "") +
                              (path ? ", path radiance" : ""),
                          loaded, !loaded});
    }
    return states;
}

Json jsonOf(const ResponseState& state) {
    return Json::object()
        .set("name", state.name)
        .set("state", state.what)
        .set("file", state.file)
        .set("inForce", state.inForce)
        .set("missing", state.missing);
}

void warnOfMissingResponses(qv::CRCalFile& calibration, const std::string& path) {
    for (const ResponseState& state : responses(calibration)) {
        if (!state.missing) continue;
        std::cerr << "qv: warning: " << path << ": " << state.name << " " << state.file << ": " << state.what
                  << "; temperatures are made without it\n";
    }
}

}  // namespace tool
