#include "platform/environment.h"

#include <cstdlib>

namespace qv::platform {

std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

}  // namespace qv::platform
