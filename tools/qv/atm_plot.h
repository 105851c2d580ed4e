// An output table of the atmosphere program as a drawing.
#pragma once

#include <string>

#include "atm_table.h"

namespace tool {

/// An SVG document of 800 pixels width: the transmittance over wavelength, and below it what the run's mode has of
/// radiances or irradiances, per micron.
std::string drawAtmosphere(const AtmTable& atm);

}  // namespace tool
