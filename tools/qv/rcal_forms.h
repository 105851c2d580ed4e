// The verbs of "qv rcal" that move calibrations between forms and files: convert, import, export, extract, merge.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void addRcalForms(CLI::App& rcal);

}  // namespace tool
