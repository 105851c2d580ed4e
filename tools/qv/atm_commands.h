// The verbs of qv atm that have sources of their own.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void addAtmDeck(CLI::App& atm);  ///< show, new, set and lint

}  // namespace tool
