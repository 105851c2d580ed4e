// The formatter behind CString::Format and everything that prints by a printf pattern.
#pragma once

#include <string>
#include <string_view>

#include "qv/string.h"

namespace qv::text {

/// Appends `pattern`, filled in with `args` by the rules of CString::Format, to `out`. Here a NUL ends nothing.
void format(std::string& out, std::string_view pattern, Private::FormatArgs args);
void format(std::u16string& out, std::u16string_view pattern, Private::FormatArgs args);

/// UTF-8 text from a pattern and plain arguments: formatted("%d of %s", 3, name).
template <class... Args>
std::string formatted(std::string_view pattern, const Args&... args) {
    std::string out;
    format(out, pattern, Private::packArgs(args...));
    return out;
}

}  // namespace qv::text
