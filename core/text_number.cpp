// Reading numbers in the C locale, from text of either width and of any length, without allocation.
#include <algorithm>
#include <bit>
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
NumberRead<Int> readInteger(std::basic_string_view<Ch> text) {
    using Magnitude = std::make_unsigned_t<Int>;
    Reader<Ch> in(text);
    const bool negative = in.skipSign();
    constexpr Int least = std::numeric_limits<Int>::min(), most = std::numeric_limits<Int>::max();
    const uint64_t limit =
        negative ? static_cast<Magnitude>(Magnitude{0} - static_cast<Magnitude>(least)) : static_cast<Magnitude>(most);
    const size_t start = in.position();
    uint64_t magnitude = 0;
    bool inRange = true;
    for (; isDigit(in.peek()); in.advance()) {
        const auto digit = static_cast<uint64_t>(in.peek() - '0');
        inRange = inRange && digit <= limit && magnitude <= (limit - digit) / 10;
        if (inRange) magnitude = magnitude * 10 + digit;
    }
    if (in.position() == start) return {};
    if (!inRange) return {negative ? least : most, in.position(), false};
    return {static_cast<Int>(negative ? 0 - magnitude : magnitude), in.position(), true};
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

    /// The number with a further `exponent`, which counts in powers of 10 or 2. `inRange` becomes false where only zero
    /// or infinity is near it.
    template <class Real>
    Real value(int64_t exponent, bool& inRange) {
        if (m_count == 0) return 0;
        if (m_dropped) m_text[m_count++] = '1', --m_power;
        const int64_t unitsPerDigit = m_isHex ? 4 : 1;
        exponent += m_power * unitsPerDigit;
        // Where the first digit stands says what lies far outside; the rest is left to the conversion.
        const int64_t magnitude = exponent + static_cast<int64_t>(m_count) * unitsPerDigit;
        inRange = false;
        constexpr Real infinity = std::numeric_limits<Real>::infinity();
        if (magnitude > outside) return infinity;
        if (magnitude < -outside) return 0;
        char* end = m_text + m_count;
        *end++ = m_isHex ? 'p' : 'e';
        end = std::to_chars(end, m_text + sizeof(m_text), exponent).ptr;
        Real result = 0;
        const auto style = m_isHex ? std::chars_format::hex : std::chars_format::general;
        const auto outcome = std::from_chars(m_text, end, result, style);
        if (outcome.ec == std::errc::result_out_of_range) return magnitude > 0 ? infinity : 0;
        inRange = result != 0 && result != infinity;
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
template <class Real, class Ch>
Real readNan(Reader<Ch>& in) {
    using Bits = std::conditional_t<sizeof(Real) == 4, uint32_t, uint64_t>;
    constexpr Bits mantissa = (Bits{1} << (std::numeric_limits<Real>::digits - 1)) - 1;
    const Real plain = std::numeric_limits<Real>::quiet_NaN();
    if (in.peek() != '(') return plain;
    size_t n = 1;
    while (isLetter(in.peek(n)) || isDigit(in.peek(n)) || in.peek(n) == '_') ++n;
    if (in.peek(n) != ')') return plain;
    Bits bits = 0;
    bool isNumber = in.peek(1) == '0' && in.peek(2) == 'x';
    for (size_t i = 3; i < n && isNumber; ++i) {
        const unsigned digit = hexDigit(in.peek(i));
        isNumber = digit < 16 && bits <= mantissa >> 4;
        bits = bits << 4 | digit;
    }
    in.advance(n + 1);
    if (!isNumber || bits == 0) return plain;
    return std::bit_cast<Real>((std::bit_cast<Bits>(plain) & ~mantissa) | bits);
}

template <class Real, class Ch>
NumberRead<Real> readReal(std::basic_string_view<Ch> text) {
    Reader<Ch> in(text);
    const bool negative = in.skipSign();
    Real value = 0;
    bool inRange = true;
    if (in.skip("inf")) {
        in.skip("inity");
        value = std::numeric_limits<Real>::infinity();
    } else if (in.skip("nan")) {
        value = readNan<Real>(in);
    } else {
        Reader<Ch> behindPrefix = in;
        Digits hex(true), decimal(false);
        if (behindPrefix.skip("0x") && hex.read(behindPrefix)) {
            in = behindPrefix;
            value = hex.value<Real>(readExponent(in, 'p'), inRange);
        } else if (decimal.read(in)) {
            value = decimal.value<Real>(readExponent(in, 'e'), inRange);
        } else {
            return {};
        }
    }
    return {negative ? -value : value, in.position(), inRange};
}

template <class Number, class Ch>
NumberRead<Number> readAny(std::basic_string_view<Ch> text) {
    if constexpr (std::is_integral_v<Number>)
        return readInteger<Number>(text);
    else
        return readReal<Number>(text);
}

}  // namespace

template <class Number>
NumberRead<Number> readNumber(std::string_view text) {
    return readAny<Number>(text);
}
template <class Number>
NumberRead<Number> readNumber(std::u16string_view text) {
    return readAny<Number>(text);
}

#define QV_READ_NUMBER(Number)                                        \
    template NumberRead<Number> readNumber<Number>(std::string_view); \
    template NumberRead<Number> readNumber<Number>(std::u16string_view);
QV_READ_NUMBER(int8_t)
QV_READ_NUMBER(uint8_t)
QV_READ_NUMBER(int16_t)
QV_READ_NUMBER(uint16_t)
QV_READ_NUMBER(int32_t)
QV_READ_NUMBER(uint32_t)
QV_READ_NUMBER(int64_t)
QV_READ_NUMBER(uint64_t)
QV_READ_NUMBER(float)
QV_READ_NUMBER(double)
#undef QV_READ_NUMBER

double atof(std::string_view text, size_t* used) {
    const NumberRead<double> read = readNumber<double>(text);
    if (used != nullptr) *used = read.used;
    return read.value;
}
double wtof(std::u16string_view text, size_t* used) {
    const NumberRead<double> read = readNumber<double>(text);
    if (used != nullptr) *used = read.used;
    return read.value;
}

}  // namespace qv::text
