// The verbs of qv norm that have sources of their own.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void addNormBuild(CLI::App& norm);
void addNormApply(CLI::App& norm);
void addNormView(CLI::App& norm);

}  // namespace tool
