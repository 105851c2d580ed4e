#include "measurement/tag_name.h"

#include <algorithm>
#include <string_view>

#include "core/text.h"

namespace qv {

namespace {

constexpr char16_t mark = u'%';
/// Digits of a variable that count towards its value.
constexpr size_t variableDigits = 31;

bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

size_t digitRun(std::u16string_view text) {
    return static_cast<size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
}

/// Cuts a pattern into literal text and the variable behind it, one after the other.
struct PatternCursor {
    std::u16string_view rest;
    std::u16string_view literal;
    std::u16string_view variable;  ///< What stands between the percent signs.
    bool hasVariable = false;
    bool broken = false;  ///< A percent sign without a partner.

    bool next() {
        const size_t open = rest.find(mark);
        literal = rest.substr(0, open);
        hasVariable = open != rest.npos;
        if (!hasVariable) return true;
        const size_t close = rest.find(mark, open + 1);
        broken = close == rest.npos;
        if (broken) return false;
        variable = rest.substr(open + 1, close - open - 1);
        rest = rest.substr(close + 1);
        return true;
    }
    bool fixedWidth() const { return !variable.empty() && isDigit(variable.front()); }
    /// The stated digit count, saturated: no name is that long.
    size_t width() const {
        size_t n = 0;
        for (size_t i = 0, digits = digitRun(variable); i < digits; ++i) {
            n = std::min<size_t>(n * 10 + static_cast<size_t>(variable[i] - u'0'), 1u << 30);
        }
        return n;
    }
};

/// The digits of the variable at the front of `name`: all of them, or at most the stated count.
std::u16string_view takeDigits(const PatternCursor& pattern, std::u16string_view name) {
    const size_t run = digitRun(name);
    return name.substr(0, pattern.fixedWidth() ? std::min(run, pattern.width()) : run);
}

}  // namespace

bool matchesTagPattern(const char16_t* pattern, const char16_t* tagName) {
    PatternCursor cursor{pattern, {}, {}};
    std::u16string_view name(tagName);
    while (cursor.next()) {
        if (!cursor.hasVariable) return text::compareNoCase(cursor.literal, name) == 0;
        if (name.size() < cursor.literal.size()) return false;
        if (text::compareNoCase(cursor.literal, name.substr(0, cursor.literal.size())) != 0) return false;
        name.remove_prefix(cursor.literal.size());
        const size_t run = digitRun(name);
        if (run == 0 || (cursor.fixedWidth() && run != cursor.width())) return false;
        name.remove_prefix(run);
    }
    return false;
}

bool tagVariables(const char16_t* pattern, const char16_t* tagName, TArray<int32_t>& values) {
    PatternCursor cursor{pattern, {}, {}};
    std::u16string_view name(tagName);
    while (cursor.next()) {
        if (!cursor.hasVariable) return true;
        name.remove_prefix(std::min(name.size(), cursor.literal.size()));
        const std::u16string_view digits = takeDigits(cursor, name);
        char16_t buffer[variableDigits + 1] = {};
        digits.copy(buffer, variableDigits);
        values.Add(text::wtol(buffer));
        name.remove_prefix(digits.size());
    }
    return false;
}

}  // namespace qv
