#include "calibration_file.h"

#include "command.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "target.h"
#include "text.h"

namespace tool {

void loadCalibration(qv::CRCalFile& calibration, const std::string& path) {
    qv::IFileSystem& disk = qv::fileSystem();
    qv::ClearDiagnostic();
    if (!disk.FileExists(wide(path).c_str())) throw Failure(Exit::io, path + ": no such file");
    if (calibration.Load(&disk, wide(path).c_str(), 0)) return;
    const bool known = qv::CRCalFile::IsRCalFile(&disk, wide(path));
    throw diagnosed(known ? Exit::damaged : Exit::wrongKind, path, "is no calibration");
}

void saveCalibration(qv::CRCalFile& calibration, const std::string& path, bool force) {
    Target target(path, force);
    {
        const qv::TSharedPtr<qv::IFile> file = target.open();
        qv::ClearDiagnostic();
        calibration.Save(file, qv::CRCalFile::saveXml);
    }
    // Writing tells of its failures by the diagnostic alone.
    if (qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, path, "cannot be written");
    target.commit();
}

std::string ResponseFile::statusText() const {
    switch (status) {
        case qv::EResponseStatus::loaded:
            return "loaded";
        case qv::EResponseStatus::fileMissing:
            return path.empty() ? "no file is named" : "does not exist";
        case qv::EResponseStatus::unreadable:
            return "cannot be read";
        case qv::EResponseStatus::tooFewPoints:
            return "has fewer than two points";
        default:
            return "not loaded";
    }
}

std::vector<ResponseFile> responseFiles(qv::CRCalFile& calibration) {
    std::vector<ResponseFile> files;
    const auto spectral = calibration.spectralResponse();
    if (!spectral.getFile().IsEmpty()) {
        // One that is switched off is never loaded, so its status stays "not set".
        const bool enabled = spectral.getStatus() != qv::EResponseStatus::notSet;
        files.push_back({"response", narrow(spectral.getFile()), enabled, spectral.getStatus()});
    }
    auto additional = calibration.additionalResponses();
    for (int32_t i = 0; i < additional.getCount(); ++i) {
        files.push_back({"additional response " + std::to_string(i), narrow(additional[i].getFile()),
                         additional[i].getEnabled(), additional[i].getStatus()});
    }
    const auto modtran = calibration.modtran();
    const bool enabled = modtran[0].getEnabled() || modtran[1].getEnabled();
    if (enabled || !modtran.getFile().IsEmpty()) {
        files.push_back({"atmosphere", narrow(modtran.getFile()), enabled, modtran.getStatus()});
    }
    return files;
}

void remarkMissing(qv::CRCalFile& calibration, const std::string& path) {
    for (const ResponseFile& file : responseFiles(calibration)) {
        if (!file.failed()) continue;
        remark("qv: WARNING: " + path + ": the " + file.role + " " + file.path + (file.path.empty() ? "" : " ") +
               file.statusText() + "; every radiance is calculated without it");
    }
}

}  // namespace tool
