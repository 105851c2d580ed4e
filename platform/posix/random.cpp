#include "platform/random.h"

#include <sys/random.h>

#include <cerrno>

namespace qv::platform {

bool randomBytes(void* bytes, size_t count) {
    auto* at = static_cast<unsigned char*>(bytes);
    while (count != 0) {
        const ssize_t got = getrandom(at, count, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        at += got;
        count -= static_cast<size_t>(got);
    }
    return true;
}

}  // namespace qv::platform
