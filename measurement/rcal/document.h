// The contents of a calibration, in the order in which its members are declared and saved.
#pragma once

#include "numerics/planck.h"
#include "qv/rcal_file.h"

namespace qv {

namespace rcalLimits {

/// Whatever revision was read, this one is written.
inline constexpr int32_t writtenRevision = 8;

/// Bounds on what a file may ask for, far above what cameras need, so that a small file cannot ask for hours or
/// gigabytes.
inline constexpr double mostTophatPoints = 262144;
inline constexpr uint32_t mostPages = 65536;
inline constexpr uint32_t mostAdditionalResponses = 64;
/// Background pictures of one file of theirs: each is looked for among the others.
inline constexpr uint32_t mostPicturesOfAFile = 4096;
/// Points of pages times points of the axis, where every radiance is calculated anew.
inline constexpr double mostPlanckValues = 536870912;

/// False, with the diagnostic that says so.
bool refuse(const char16_t* what, double most, double found);

}  // namespace rcalLimits

/// The spectral response type as it is stored: other numbers than callers see.
enum class StoredResponseType : int32_t { file = 0, tophat = 1 };

struct CRCalFile::Document {
    CString spectralFile;
    bool spectralEnabled = false;
    RCAL_CURVE response;  ///< Raw: as loaded, or the top-hat. x, y: on the working axis.
    EResponseStatus spectralStatus = EResponseStatus::notSet;
    CString modtranFile;
    bool totTransEnabled = false;
    bool pathThrmlEnabled = false;
    RCAL_CURVE totalTransmission;
    RCAL_CURVE pathThermal;
    EResponseStatus modtranStatus = EResponseStatus::notSet;
    StoredResponseType spectralType = StoredResponseType::file;
    double tophatStart = 3.0;
    double tophatEnd = 5.0;
    double tophatDelta = 0.001;
    double bandpassLow = 3.0;
    double bandpassHigh = 5.0;
    bool bandpassOverrideValid = false;
    double bandpassOverrideLow = 3.0;
    double bandpassOverrideHigh = 5.0;
    double range = 1.0;
    bool rangeValid = false;
    double fovVert = 0.0;
    double fovHorz = 0.0;
    bool fovValid = false;
    TArray<RESPONCE> additionalResponses;
    TArray<CAL_PAGE> pages;
    CTagArray tags;
    bool autoLookupUpdate = true;
    int32_t revision = 7;

    /// What of Planck's law depends on response.x alone. Kept in step with it by whoever changes that axis.
    PlanckAxis planck;

    void sourceCurve(TArray<double>& curve, double temperature, double emissivity) const;
    void addPathThermal(TArray<double>& curve) const;
    bool responseAlone() const;

    /// The file's response is the one in force; otherwise the top-hat is.
    bool fileInForce() const { return spectralEnabled && spectralStatus == EResponseStatus::loaded; }
    /// The atmosphere takes part in the calculations.
    bool modtranInForce() const {
        return (totTransEnabled || pathThrmlEnabled) && modtranStatus == EResponseStatus::loaded;
    }
};

}  // namespace qv
