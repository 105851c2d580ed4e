// Random bytes that nobody can predict.
#pragma once

#include <cstddef>

namespace qv::platform {

/// False when the system has no random source; `bytes` is undefined then.
bool randomBytes(void* bytes, size_t count);

}  // namespace qv::platform
