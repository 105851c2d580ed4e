// What re-runs after which change of a calibration.
#pragma once

#include <cstdint>

namespace qv {

enum class RCalChange : int32_t {
    pointTemperature,
    pointValue,  ///< emissivity, measurement, or anything of the reflected radiance
    pointEnabled,
    pointAdded,
    pointRemoved,
    pageAdded,
    polyOrder,  ///< that really changed, after clamping
    tempPolyOrder,
    lookup,
    autoRangeOn,
    spectralFile,
    tophat,
    modtranFile,
    modtranEnabled,
    additionalResponse,
    typeToFile,
    typeToTophat,
};

}  // namespace qv
