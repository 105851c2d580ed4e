// Calibrations as the subcommands open them.
#pragma once

#include <string>
#include <vector>

#include "json.h"
#include "qv/rcal_file.h"

namespace tool {

/// Loads a calibration; fails with a sentence.
void loadCalibration(qv::CRCalFile& calibration, const std::string& path);

/// The two forms of a calibration's file.
enum class CalibrationForm { xml, binary };
/// That of an existing file.
CalibrationForm formOf(const std::string& path);

/// Writes a calibration, whole or not at all; fails with a sentence, also when the place is taken and not `force`.
void saveCalibration(qv::CRCalFile& calibration, const std::string& path, bool force,
                     CalibrationForm form = CalibrationForm::xml);

/// A response of a calibration and what became of it.
struct ResponseState {
    std::string name;  ///< "spectral response", "additional response 0", "atmosphere"
    std::string file;  ///< Empty for the top-hat.
    std::string what;  ///< "loaded", "file does not exist", ...
    bool inForce = false;
    bool missing = false;  ///< It should be in force and is not.
};
std::vector<ResponseState> responses(qv::CRCalFile& calibration);
Json jsonOf(const ResponseState& state);

/// Warns of responses that could not be loaded: without them the temperatures are others. --quiet does not silence it.
void warnOfMissingResponses(qv::CRCalFile& calibration, const std::string& path);

}  // namespace tool
