// Values in a format of their own: "%d(60):%f(1)" for minutes and seconds.
#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "core/text.h"
#include "qv/pod_file.h"

namespace qv {

namespace {

/// A character that stands for itself, or a number with its weight.
struct Part {
    char16_t literal = 0;  ///< 0 for a number.
    bool isInteger = false;
    double weight = 0.0;
};

/// Takes a part off the front of a format that is not empty. False for a percent sign without "f(k)" or "d(k)" behind.
bool takePart(std::u16string_view& format, Part& part) {
    if (format[0] != u'%') {
        part = {format[0]};
        format.remove_prefix(1);
        return true;
    }
    if (format.size() < 4 || (format[1] != u'f' && format[1] != u'd') || format[2] != u'(') return false;
    const bool isInteger = format[1] == u'd';
    format.remove_prefix(3);
    const auto weight = text::readNumber<double>(format);
    if (weight.used == 0 || weight.used >= format.size() || format[weight.used] != u')') return false;
    part = {0, isInteger, weight.value};
    format.remove_prefix(weight.used + 1);
    return true;
}

bool parseFormat(std::u16string_view format, std::vector<Part>& parts) {
    while (!format.empty()) {
        parts.emplace_back();
        if (!takePart(format, parts.back())) return false;
    }
    return true;
}

/// Takes a number off the front of `data`.
template <class Number>
bool takeNumber(std::u16string_view& data, double weight, double& sum) {
    const auto read = text::readNumber<Number>(data);
    if (read.used == 0 || (std::is_integral_v<Number> && !read.inRange)) return false;
    sum += static_cast<double>(read.value) * weight;
    data.remove_prefix(read.used);
    return true;
}

std::u16string_view viewOf(const char16_t* text) { return text == nullptr ? std::u16string_view() : text; }

/// What is nearest to a whole number counts as that: 0.3 holds 0.1 three times.
double wholeMultiples(double value) {
    const double nearest = std::round(value);
    return std::abs(value - nearest) <= 1e-9 * std::abs(nearest) ? nearest : std::trunc(value);
}

bool fitsInt64(double value) { return std::abs(value) < 9.2e18; }

/// The parts that are numbers, greatest weight first, and last the one that takes what is left: the "%f" of least
/// weight where there is one. False for a weight that cannot be divided by.
bool orderParts(const std::vector<Part>& parts, std::vector<size_t>& order) {
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].literal != 0) continue;
        if (parts[i].weight == 0.0 || !std::isfinite(parts[i].weight)) return false;
        order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return std::abs(parts[a].weight) > std::abs(parts[b].weight); });
    const auto least = std::find_if(order.rbegin(), order.rend(), [&](size_t i) { return !parts[i].isInteger; });
    if (least != order.rend()) std::rotate(least.base() - 1, least.base(), order.end());
    return true;
}

/// The number of each part.
bool distribute(double value, const std::vector<Part>& parts, std::vector<double>& numbers) {
    std::vector<size_t> order;
    if (!orderParts(parts, order)) return false;
    if (order.empty()) return value == 0.0;
    const Part& last = parts[order.back()];
    if (last.isInteger) value = std::round(value / last.weight) * last.weight;
    for (const size_t i : order) {
        const double quotient = value / parts[i].weight;
        numbers[i] = i != order.back() ? wholeMultiples(quotient) : last.isInteger ? std::round(quotient) : quotient;
        if (!std::isfinite(quotient) || (parts[i].isInteger && !fitsInt64(numbers[i]))) return false;
        value -= numbers[i] * parts[i].weight;
    }
    return true;
}

}  // namespace

bool IPODFile::GetValue(double& value, const char16_t* data, const char16_t* format) {
    std::u16string_view pattern = viewOf(format), left = viewOf(data);
    const bool isEmpty = pattern.empty();
    double sum = 0.0;
    for (Part part; !pattern.empty();) {
        if (!takePart(pattern, part)) return false;
        if (part.literal != 0) {
            if (left.empty() || left[0] != part.literal) return false;
            left.remove_prefix(1);
        } else if (!(part.isInteger ? takeNumber<int64_t>(left, part.weight, sum)
                                    : takeNumber<double>(left, part.weight, sum))) {
            return false;
        }
    }
    while (!left.empty() && text::isSpace(left[0])) left.remove_prefix(1);
    if (!isEmpty && !left.empty()) return false;
    value = sum;
    return true;
}

bool IPODFile::PutValue(double value, CString& buffer, const char16_t* format) {
    std::vector<Part> parts;
    if (!std::isfinite(value) || !parseFormat(viewOf(format), parts)) return false;
    std::vector<double> numbers(parts.size());
    if (!parts.empty() && !distribute(value, parts, numbers)) return false;
    std::u16string out;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].literal != 0) {
            out += parts[i].literal;
        } else {
            const CString text = parts[i].isInteger
                                     ? CString::FromFormat(u"%I64d", static_cast<int64_t>(numbers[i]))
                                     : CString::FromFormat(u"%0.10g", numbers[i] == 0.0 ? 0.0 : numbers[i]);
            out += text.c_str();
        }
    }
    buffer = CString(std::u16string_view(out));
    return true;
}

}  // namespace qv
