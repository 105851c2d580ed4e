#include "text.h"

#include <array>

#include "qv/values.h"

namespace tool {

std::string number(double value, int digits) { return narrow(qv::CString::FromFormat(u"%.*g", digits, value)); }
std::string fixed(double value, int decimals) { return narrow(qv::CString::FromFormat(u"%.*f", decimals, value)); }
std::string exact(double value) { return narrow(qv::CFlt64::ToStringExact(value)); }

std::string bytes(double count) {
    constexpr std::array units = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    for (; count >= 1024.0 && unit + 1 < units.size(); ++unit) count /= 1024.0;
    return (unit == 0 ? fixed(count, 0) : number(count, 4)) + " " + units[unit];
}

}  // namespace tool
