// Calibrations on the disk, with an error in one sentence where something is wrong.
#pragma once

#include <string>
#include <vector>

#include "qv/rcal_file.h"

namespace tool {

/// Fails when the file is not there, is no calibration, or is damaged.
void loadCalibration(qv::CRCalFile& calibration, const std::string& path);

/// Writes the XML form under a temporary name and puts it in its place.
void saveCalibration(qv::CRCalFile& calibration, const std::string& path, bool force);

/// A response or curve file that a calibration names.
struct ResponseFile {
    std::string role;  ///< "response", "additional response 0", "atmosphere"
    std::string path;
    bool enabled;
    qv::EResponseStatus status;

    /// It should take part in the radiances and does not.
    bool failed() const { return enabled && status != qv::EResponseStatus::loaded; }
    /// "loaded", "does not exist", ...
    std::string statusText() const;
};

/// Every file that the calibration names.
std::vector<ResponseFile> responseFiles(qv::CRCalFile& calibration);

/// Says on standard error which of them should take part and cannot.
void remarkMissing(qv::CRCalFile& calibration, const std::string& path);

}  // namespace tool
