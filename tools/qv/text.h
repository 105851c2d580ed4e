// UTF-8 at the terminal, UTF-16 in the library.
#pragma once

#include <string>
#include <string_view>

#include "qv/string.h"

namespace tool {

inline qv::CString wide(std::string_view text) { return qv::CString(text); }
inline std::string narrow(const qv::CString& text) { return std::string(qv::CStringMB(text.c_str()).c_str()); }
inline std::string narrow(const char16_t* text) { return text == nullptr ? std::string() : narrow(qv::CString(text)); }

/// A text on one line, for people: what would steer a terminal is escaped.
std::string visible(const qv::CString& text);

/// A number with `digits` significant digits, as "%.*g".
std::string number(double value, int digits = 6);
/// A number with `decimals` digits behind the point.
std::string fixed(double value, int decimals);
/// The shortest text that reads back to the same number.
std::string exact(double value);
/// 1536 as "1.5 KiB".
std::string bytes(double count);

}  // namespace tool
