// Between the library's texts and the system's: paths, names and reasons of failure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qv::Private {

/// UTF-8 with `/` for every separator; "" for a null pointer.
std::string nativePath(const char16_t* path);

/// The text of a system name, cut to `chars - 1` characters and terminated.
void copyNativeName(std::string_view name, char16_t* dst, size_t chars);

/// Leaves a diagnostic for a platform error; returns whether there was none.
bool succeeded(int error, const char16_t* path, const char16_t* expected);

constexpr bool isSeparator(char16_t c) { return c == u'/' || c == u'\\'; }

}  // namespace qv::Private
