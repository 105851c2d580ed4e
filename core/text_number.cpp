// Reading numbers in the C locale, from text of either width and of any length, without allocation.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "core/text.h"

namespace qv::text {

namespace {

/// A text that is read unit by unit from its beginning; behind its end stand NULs.
template <class Ch>
class Reader {
public:
    explicit Reader(std::basic_string_view<Ch> text) : m_text(text) {
        while (m_at < m_text.size() && isSpace(m_text[m_at])) ++m_at;
    }

    /// The unit `ahead` of the present place when it is ASCII, in lower case.
    char peek(size_t ahead = 0) const {
        if (m_at + ahead >= m_text.size()) return '\0';
        const Ch unit = m_text[m_at + ahead];
        return unit > 0 && unit < 0x80 ? toLower(static_cast<char>(unit)) : '\0';
    }
    void advance(size_t n = 1) { m_at += n; }
    bool skip(std::string_view word) {
        for (size_t i = 0; i < word.size(); ++i) {
            if (peek(i) != word[i]) return false;
        }
        advance(word.size());
        return true;
    }
    bool skipSign() {
        const bool negative = peek() == '-';
        if (negative || peek() == '+') advance();
        return negative;
    }
    size_t position() const { return m_at; }

private:
    std::basic_string_view<Ch> m_text;
    size_t m_at = 0;
};

template <class Int, class Ch>
Int readInteger(std::basic_string_view<Ch> text) {
    Reader<Ch> in(text);
    const bool negative = in.skipSign();
    constexpr Int least = std::numeric_limits<Int>::min(), most = std::numeric_limits<Int>::max();
    Int value = 0;  // Kept negative, where there is one value more.
    for (; isDigit(in.peek()); in.advance()) {
        const Int digit = static_cast<Int>(in.peek() - '0');
        if (value < (least + digit) / 10) return negative ? least : most;
        value = static_cast<Int>(value * 10 - digit);
    }
    if (negative) return value;
    return value == least ? most : static_cast<Int>(-value);
}

/// The significant digits of a number in base 10 or 16 and the power of the base by which they are to be multiplied.
/// More than 768 decimal digits never decide a rounding, except by being nonzero: then one last nonzero digit stands
/// for all that were dropped.
class Digits {
public:
    static constexpr size_t limit = 800;

    explicit Digits(bool hexadecimal) : m_isHex(hexadecimal) {}

    bool accepts(char ch) const { return isDigit(ch) || (m_isHex && ch >= 'a' && ch <= 'f'); }

    template <class Ch>
    bool read(Reader<Ch>& in) {
        const size_t start = in.position();
        for (; accepts(in.peek()); in.advance()) add(in.peek(), false);
        const size_t whole = in.position() - start;
        if (in.peek() != '.' || (whole == 0 && !accepts(in.peek(1)))) return whole != 0;
        in.advance();
        for (; accepts(in.peek()); in.advance()) add(in.peek(), true);
        return true;
    }

    /// The number with a further `exponent`, which counts in powers of 10 or 2.
    double value(int64_t exponent) {
        if (m_count == 0) return 0;
        if (m_dropped) m_text[m_count++] = '1', --m_power;
        const int64_t unitsPerDigit = m_isHex ? 4 : 1;
        exponent += m_power * unitsPerDigit;
        // Where the first digit stands says what lies far outside; the rest is left to the conversion.
        const int64_t magnitude = exponent + static_cast<int64_t>(m_count) * unitsPerDigit;
        if (magnitude > outside) return HUGE_VAL;
        if (magnitude < -outside) return 0;
        char* end = m_text + m_count;
        *end++ = m_isHex ? 'p' : 'e';
        end = std::to_chars(end, m_text + sizeof(m_text), exponent).ptr;
        double result = 0;
        const auto style = m_isHex ? std::chars_format::hex : std::chars_format::general;
        const auto outcome = std::from_chars(m_text, end, result, style);
        if (outcome.ec == std::errc::result_out_of_range) return magnitude > 0 ? HUGE_VAL : 0;
        return result;
    }

private:
    static constexpr int64_t outside = 1200;

    void add(char digit, bool behindPoint) {
        if (m_count == 0 && digit == '0') {
            m_power -= behindPoint ? 1 : 0;
        } else if (m_count < limit) {
            m_text[m_count++] = digit;
            m_power -= behindPoint ? 1 : 0;
        } else {
            m_dropped = m_dropped || digit != '0';
            m_power += behindPoint ? 0 : 1;
        }
    }

    char m_text[limit + 32];
    size_t m_count = 0;
    int64_t m_power = 0;
    bool m_dropped = false;
    bool m_isHex;
};

/// The exponent behind `mark`, or 0, and nothing read, when no digit follows.
template <class Ch>
int64_t readExponent(Reader<Ch>& in, char mark) {
    constexpr int64_t enough = int64_t{1} << 40;  // Far more than a text can have digits to make up for.
    if (in.peek() != mark) return 0;
    const bool isSigned = in.peek(1) == '-' || in.peek(1) == '+';
    if (!isDigit(in.peek(isSigned ? 2 : 1))) return 0;
    in.advance();
    const bool negative = in.skipSign();
    int64_t exponent = 0;
    for (; isDigit(in.peek()); in.advance()) exponent = std::min(exponent * 10 + (in.peek() - '0'), enough);
    return negative ? -exponent : exponent;
}

/// Behind "nan": a parenthesis of letters, digits and underscores, where there is one.
template <class Ch>
void skipNanText(Reader<Ch>& in) {
    if (in.peek() != '(') return;
    size_t n = 1;
    while (isLetter(in.peek(n)) || isDigit(in.peek(n)) || in.peek(n) == '_') ++n;
    if (in.peek(n) == ')') in.advance(n + 1);
}

template <class Ch>
double readReal(std::basic_string_view<Ch> text, size_t* used) {
    Reader<Ch> in(text);
    const bool negative = in.skipSign();
    double value = 0;
    bool found = true;
    if (in.skip("inf")) {
        in.skip("inity");
        value = HUGE_VAL;
    } else if (in.skip("nan")) {
        skipNanText(in);
        value = std::numeric_limits<double>::quiet_NaN();
    } else {
        Reader<Ch> behindPrefix = in;
        Digits hex(true), decimal(false);
        if (behindPrefix.skip("0x") && hex.read(behindPrefix)) {
            in = behindPrefix;
            value = hex.value(readExponent(in, 'p'));
        } else if ((found = decimal.read(in))) {
            value = decimal.value(readExponent(in, 'e'));
        }
    }
    if (used != nullptr) *used = found ? in.position() : 0;
    return negative && found ? -value : value;
}

}  // namespace

int32_t atol(std::string_view text) { return readInteger<int32_t>(text); }
int32_t wtol(std::u16string_view text) { return readInteger<int32_t>(text); }
int64_t atoll(std::string_view text) { return readInteger<int64_t>(text); }
int64_t wtoll(std::u16string_view text) { return readInteger<int64_t>(text); }
double atof(std::string_view text, size_t* used) { return readReal(text, used); }
double wtof(std::u16string_view text, size_t* used) { return readReal(text, used); }

}  // namespace qv::text
