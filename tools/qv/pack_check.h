// qv pack verify and qv pack recover.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void addPackChecks(CLI::App& pack);

}  // namespace tool
