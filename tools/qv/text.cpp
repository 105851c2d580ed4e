#include "text.h"

#include <array>

#include "qv/values.h"

namespace tool {

std::string number(double value, int digits) { return narrow(qv::CString::FromFormat(u"%.*g", digits, value)); }
std::string fixed(double value, int decimals) {
    std::string text = narrow(qv::CString::FromFormat(u"%.*f", decimals, value));
    // What rounds to nothing has no sign.
    if (text.starts_with('-') && text.find_first_not_of("-0.") == std::string::npos) text.erase(0, 1);
    return text;
}
std::string exact(double value) { return narrow(qv::CFlt64::ToStringExact(value)); }

std::string visible(const qv::CString& text) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const char c : narrow(text)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            out += c;
        } else if (c == '\n' || c == '\r' || c == '\t') {
            out += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        } else {
            out.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
        }
    }
    return out;
}

std::string bytes(double count) {
    constexpr std::array units = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    for (; count >= 1024.0 && unit + 1 < units.size(); ++unit) count /= 1024.0;
    return (unit == 0 ? fixed(count, 0) : number(count, 4)) + " " + units[unit];
}

}  // namespace tool
