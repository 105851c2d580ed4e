// Repeating a system call that a signal interrupted.
#pragma once

#include <cerrno>

namespace qv::platform {

template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

/// 0 for a call that worked, otherwise its error.
template <class Result>
int errorOf(Result result) {
    return result == -1 ? errno : 0;
}

}  // namespace qv::platform
