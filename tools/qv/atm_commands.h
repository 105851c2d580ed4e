// The verbs of qv atm that have sources of their own.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void addAtmDeck(CLI::App& atm);  ///< show, new, set and lint
void addAtmRun(CLI::App& atm);
void addAtmOutput(CLI::App& atm);  ///< csv, plot, band and curve

}  // namespace tool
