#include "modtran/tape5_number.h"

#include <charconv>
#include <cmath>

#include "core/format.h"
#include "core/text.h"

namespace qv::tape5 {

namespace {

std::string withoutBlanks(std::string_view field) {
    std::string packed;
    for (const char c : field) {
        if (c != ' ') packed += c;
    }
    return packed;
}

bool isSign(char c) { return c == '+' || c == '-'; }

/// Digits from `at` on, which is moved behind them.
std::string_view takeDigits(std::string_view text, size_t& at) {
    const size_t begin = at;
    while (at < text.size() && text::isDigit(text[at])) ++at;
    return text.substr(begin, at - begin);
}

/// The exponent that ends `text` at `at`: none, "E5", "D-05", "-100".
bool takeExponent(std::string_view text, size_t at, int32_t& exponent) {
    exponent = 0;
    if (at == text.size()) return true;
    const char letter = text::toUpper(text[at]);
    if (letter == 'E' || letter == 'D') ++at;
    if (at == text.size()) return true;  // "1.E" reads as "1.E0"
    const bool negative = text[at] == '-';
    if (isSign(text[at])) ++at;
    const size_t begin = at;
    const std::string_view digits = takeDigits(text, at);
    if (at != text.size() || at == begin || digits.size() > 6) return false;
    std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
    if (negative) exponent = -exponent;
    return true;
}

/// Sign, first digit, point, further digits, exponent.
std::string scientific(double value, size_t width) {
    const bool negative = std::signbit(value);
    size_t digits = width - 6 - (negative ? 1 : 0);
    for (;; --digits) {
        const std::string plain = text::formatted("%.*e", static_cast<int>(digits), std::fabs(value));
        const size_t at = plain.find('e');
        int exponent = 0;
        std::from_chars(plain.data() + at + 2, plain.data() + plain.size(), exponent);
        std::string made = text::formatted("%s%c.%sE%c%02d", negative ? "-" : "", plain[0], plain.substr(2, at - 2),
                                           plain[at + 1], exponent);
        if (made.size() <= width || digits == 1) return made;
    }
}

}  // namespace

bool readInteger(std::string_view field, int32_t& value) {
    const std::string packed = withoutBlanks(field);
    value = 0;
    if (packed.empty()) return true;
    const char* begin = packed.data() + (packed[0] == '+' ? 1 : 0);
    const char* end = packed.data() + packed.size();
    if (begin == end || (packed[0] == '+' && *begin == '-')) return false;
    const auto [stop, error] = std::from_chars(begin, end, value);
    return error == std::errc() && stop == end;
}

bool readReal(std::string_view field, uint32_t decimals, double& value) {
    const std::string packed = withoutBlanks(field);
    value = 0.0;
    if (packed.empty()) return true;
    size_t at = isSign(packed[0]) ? 1 : 0;
    const std::string_view whole = takeDigits(packed, at);
    const bool hasPoint = at < packed.size() && packed[at] == '.';
    if (hasPoint) ++at;
    const std::string_view fraction = hasPoint ? takeDigits(packed, at) : std::string_view();
    int32_t exponent = 0;
    if (whole.size() + fraction.size() == 0 || !takeExponent(packed, at, exponent)) return false;
    if (!hasPoint) exponent -= static_cast<int32_t>(decimals);
    value = text::atof(text::formatted("%s%s.%se%d", packed[0] == '-' ? "-" : "", whole, fraction, exponent));
    return std::isfinite(value);
}

std::string preparedNumber(double value, size_t width) {
    const std::string exponential = scientific(value, width);
    if (width != 10) return exponential;
    const std::string plain = text::formatted("%10.5f", value);
    const auto loss = [value](const std::string& printed) { return std::fabs(text::atof(printed) - value); };
    return plain.size() == width && loss(plain) <= loss(exponential) ? plain : exponential;
}

}  // namespace qv::tape5
