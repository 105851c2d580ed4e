#include "numerics/fortran_number.h"

#include <string>

#include "core/text.h"

namespace qv::Private {

namespace {

size_t digitsAt(std::string_view text, size_t at) {
    size_t end = at;
    while (end < text.size() && text::isDigit(text[end])) ++end;
    return end - at;
}

}  // namespace

double fortranNumber(std::string_view text, size_t& used) {
    const double value = text::atof(text, &used);
    const std::string_view mantissa = text.substr(0, used);
    if (used == text.size() || mantissa.find_last_not_of(" \t+-.0123456789") != std::string_view::npos) return value;
    size_t at = used;
    const bool letter = used > 0 && (text[at] == 'd' || text[at] == 'D');
    if (letter) ++at;
    const bool sign = at < text.size() && (text[at] == '+' || text[at] == '-');
    if (sign) ++at;
    const size_t digits = digitsAt(text, at);
    // Without a letter it takes a sign and all three digits to be an exponent.
    if (used == 0 || (letter ? digits == 0 : !sign || digits != 3)) return value;
    const std::string_view exponent = text.substr(used + (letter ? 1 : 0), digits + (sign ? 1 : 0));
    used = at + digits;
    return text::atof(std::string(mantissa).append("E").append(exponent));
}

}  // namespace qv::Private
