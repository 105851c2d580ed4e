// The verbs of qv rcal that have sources of their own.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void addRcalCompare(CLI::App& rcal);  ///< diff, eval and whatif
void addRcalPlot(CLI::App& rcal);

}  // namespace tool
