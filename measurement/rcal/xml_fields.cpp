#include "measurement/rcal/xml_fields.h"

#include <algorithm>
#include <string_view>

namespace qv::rcalXml {

namespace {

constexpr std::u16string_view pairSeparator = u"|\r\n";

/// Takes a number and the separator behind it; white space may stand around both. False when there is no number, or
/// when something else than the separator or the end of the text follows.
bool takeNumber(std::u16string_view& text, char16_t separator, double& value) {
    size_t used = 0;
    value = text::wtof(text.substr(0, text.find(separator)), &used);
    if (used == 0) return false;
    text.remove_prefix(used);
    while (!text.empty() && text::isSpace(text.front())) text.remove_prefix(1);
    if (text.empty()) return true;
    if (text.front() != separator) return false;
    text.remove_prefix(1);
    return true;
}

/// Room for as many values as there can be: the array grows by small steps.
void reserveFor(std::u16string_view text, char16_t separator, TArray<double>& values) {
    values.reserve(static_cast<uint32_t>(std::count(text.begin(), text.end(), separator) + 1));
}

}  // namespace

CString formatReal(double value) { return CString::FromFormat(u"%0.14g", value); }

CString formatList(const TArray<double>& values) {
    CString text(u"");
    text.reserve(values.size() * size_t{22});
    for (uint32_t i = 0; i < values.size(); ++i) {
        if (i != 0) text += u',';
        text += formatReal(values.data()[i]);
    }
    return text;
}

void parseList(const CString& text, TArray<double>& values) {
    values.Empty();
    std::u16string_view rest = text;
    if (rest.empty()) return;
    reserveFor(rest, u',', values);
    double value = 0.0;
    while (takeNumber(rest, u',', value) && values.Add(value)) {
    }
}

std::u16string formatPairs(const TArray<double>& x, const TArray<double>& y) {
    std::u16string text;
    const uint32_t count = std::min(x.size(), y.size());
    text.reserve(count * size_t{40});
    CString pair;
    for (uint32_t i = 0; i < count; ++i) {
        if (i != 0) text += pairSeparator;
        pair.Format(u"%0.14g,%0.14g", x.data()[i], y.data()[i]);
        text += std::u16string_view(pair);
    }
    return text;
}

void parsePairs(const CString& text, TArray<double>& x, TArray<double>& y) {
    x.Empty();
    y.Empty();
    std::u16string_view rest = text;
    if (rest.empty()) return;
    reserveFor(rest, u'|', x);
    reserveFor(rest, u'|', y);
    double first = 0.0;
    double second = 0.0;
    while (takeNumber(rest, u',', first) && takeNumber(rest, u'|', second)) {
        if (!x.Add(first) || !y.Add(second)) return;
    }
}

}  // namespace qv::rcalXml
