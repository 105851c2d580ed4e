// The process's environment.
#pragma once

#include <string>

namespace qv::platform {

/// The value of a variable; empty when it is not set.
std::string environmentVariable(const char* name);

}  // namespace qv::platform
