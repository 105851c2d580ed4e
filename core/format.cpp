#include "core/format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "core/text.h"

namespace qv::text {

namespace {

using Private::FormatArg;
using Private::FormatArgs;
using Kind = FormatArg::Kind;

/// Widths, and the precision of numbers, are held to this.
constexpr size_t padLimit = size_t{1} << 20;
/// No double has more decimal digits than this behind its point or in its mantissa; what is asked for beyond is zeros.
constexpr size_t realDigits = 1100;

/// One conversion as the pattern asks for it.
struct Conversion {
    bool left = false, plus = false, blank = false, alternate = false, zeroPad = false, hasPrecision = false;
    size_t width = 0;
    size_t precision = 0;
    unsigned bits = 32;  ///< The part of an integer that counts.
    char type = 0;

    bool isUpper() const { return type >= 'A' && type <= 'Z'; }
};

/// A number cut into what padding goes between: sign and base, zeros, digits, zeros, exponent.
struct NumberText {
    char prefix[4] = {};
    size_t prefixSize = 0;
    std::string_view head, tail;
    size_t leadingZeros = 0, innerZeros = 0;

    void addPrefix(std::string_view more) { prefixSize += more.copy(prefix + prefixSize, sizeof(prefix) - prefixSize); }
    std::string_view prefixText() const { return {prefix, prefixSize}; }
    size_t size() const { return prefixSize + leadingZeros + head.size() + innerZeros + tail.size(); }
};

bool isInteger(const FormatArg& arg) {
    return arg.kind() == Kind::Signed || arg.kind() == Kind::Unsigned || arg.kind() == Kind::NarrowUnit;
}

/// Sign character of a number, as the flags ask for it.
std::string_view signText(bool negative, const Conversion& conversion) {
    return negative ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
}

void makeUpper(char* first, const char* last) {
    for (; first != last; ++first) *first = toUpper(*first);
}

// Integers ------------------------------------------------------------------------------------------------------------

/// The digits are left in `buffer`, which has room for 64 bits in octal.
NumberText integerText(int64_t value, const Conversion& conversion, char (&buffer)[32]) {
    NumberText number;
    const unsigned unused = 64 - conversion.bits;
    auto magnitude = static_cast<uint64_t>(value) << unused >> unused;
    if (conversion.type == 'd' || conversion.type == 'i') {
        const auto cut = static_cast<int64_t>(static_cast<uint64_t>(value) << unused) >> unused;
        magnitude = cut < 0 ? 0 - static_cast<uint64_t>(cut) : static_cast<uint64_t>(cut);
        number.addPrefix(signText(cut < 0, conversion));
    }
    const bool isHex = conversion.type == 'x' || conversion.type == 'X';
    char* end = std::to_chars(buffer, buffer + sizeof(buffer), magnitude,
                              isHex                    ? 16
                              : conversion.type == 'o' ? 8
                                                       : 10)
                    .ptr;
    if (conversion.isUpper()) makeUpper(buffer, end);
    if (conversion.hasPrecision && conversion.precision == 0 && magnitude == 0) end = buffer;
    number.head = std::string_view(buffer, static_cast<size_t>(end - buffer));
    const size_t digits = conversion.hasPrecision ? std::min(conversion.precision, padLimit) : 1;
    if (digits > number.head.size()) number.leadingZeros = digits - number.head.size();
    if (conversion.alternate && isHex && magnitude != 0) number.addPrefix(conversion.isUpper() ? "0X" : "0x");
    if (conversion.alternate && conversion.type == 'o' && number.leadingZeros == 0 && !number.head.starts_with('0')) {
        number.leadingZeros = 1;
    }
    return number;
}

// Reals ---------------------------------------------------------------------------------------------------------------

/// Digits of a positive number in one of the four styles, with a point where `alternate` asks for one.
class RealText {
public:
    void set(double magnitude, const Conversion& conversion) {
        const size_t asked = conversion.hasPrecision ? std::min(conversion.precision, padLimit) : 6;
        switch (toLower(conversion.type)) {
            case 'f': write(magnitude, std::chars_format::fixed, asked); break;
            case 'e': write(magnitude, std::chars_format::scientific, asked); break;
            case 'g': setGeneral(magnitude, std::max<size_t>(asked, 1), conversion.alternate); break;
            default: setHex(magnitude, asked, conversion.hasPrecision);
        }
        if (conversion.alternate) forcePoint();
        if (conversion.isUpper()) makeUpper(m_text, m_end);
    }
    /// Cuts the digits in front of the exponent, where the missing zeros belong.
    void store(NumberText& number) const {
        const std::string_view all(m_text, static_cast<size_t>(m_end - m_text));
        number.head = all.substr(0, exponentAt(all));
        number.tail = all.substr(number.head.size());
        number.innerZeros = m_zeros;
    }

private:
    size_t exponentAt(std::string_view all) const {
        return std::min(all.find_first_of(m_isHex ? "pP" : "eE"), all.size());
    }

    void write(double magnitude, std::chars_format style, size_t precision) {
        const size_t written = std::min(precision, realDigits);
        m_zeros = precision - written;
        m_end = std::to_chars(m_text, m_text + sizeof(m_text), magnitude, style, static_cast<int>(written)).ptr;
    }

    /// The shorter of the two styles by the rule of %g. The exponent that decides is that of the rounded number.
    void setGeneral(double magnitude, size_t digits, bool keepZeros) {
        if (!keepZeros) {
            write(magnitude, std::chars_format::general, std::min(digits, realDigits));
            return;
        }
        write(magnitude, std::chars_format::scientific, digits - 1);
        const std::string_view all(m_text, static_cast<size_t>(m_end - m_text));
        const std::string_view exponentText = all.substr(exponentAt(all) + 1);
        int exponent = 0;
        std::from_chars(exponentText.data() + (exponentText.front() == '+' ? 1 : 0), m_end, exponent);
        if (exponent < -4 || exponent >= static_cast<int>(digits)) return;
        write(magnitude, std::chars_format::fixed, static_cast<size_t>(static_cast<int>(digits) - 1 - exponent));
    }

    /// Hexadecimal digits behind "0x1.", or "0x0." below the smallest normal number.
    void setHex(double magnitude, size_t asked, bool hasPrecision);

    void forcePoint() {
        const size_t at = exponentAt({m_text, static_cast<size_t>(m_end - m_text)});
        if (std::find(m_text, m_text + at, '.') != m_text + at) return;
        std::copy_backward(m_text + at, m_end, m_end + 1);
        m_text[at] = '.';
        ++m_end;
    }

    char m_text[realDigits + 400];
    char* m_end = m_text;
    size_t m_zeros = 0;
    bool m_isHex = false;
};

void RealText::setHex(double magnitude, size_t asked, bool hasPrecision) {
    m_isHex = true;
    constexpr size_t mantissaDigits = 13;
    int exponent = 0;
    uint64_t mantissa = 0;  // 52 bits behind the point, the bit in front above them.
    if (magnitude != 0) {
        exponent = std::max(std::ilogb(magnitude), -1022);
        mantissa = static_cast<uint64_t>(std::ldexp(magnitude, 52 - exponent));
    }
    size_t digits = mantissaDigits;
    if (hasPrecision && asked < mantissaDigits) {
        digits = asked;
        const unsigned dropped = static_cast<unsigned>(mantissaDigits - digits) * 4;
        const uint64_t half = uint64_t{1} << (dropped - 1), rest = mantissa & (half * 2 - 1);
        mantissa >>= dropped;
        if (rest > half || (rest == half && (mantissa & 1) != 0)) ++mantissa;
        mantissa <<= dropped;
    }
    *m_end++ = static_cast<char>('0' + (mantissa >> 52));
    *m_end++ = '.';
    for (size_t i = 0; i < digits; ++i) *m_end++ = "0123456789abcdef"[mantissa >> (48 - 4 * i) & 15];
    m_zeros = hasPrecision ? asked - digits : 0;
    while (!hasPrecision && m_end[-1] == '0') --m_end;
    if (m_end[-1] == '.') --m_end;
    *m_end++ = 'p';
    *m_end++ = exponent < 0 ? '-' : '+';
    m_end = std::to_chars(m_end, m_text + sizeof(m_text), std::abs(exponent)).ptr;
}

// The pattern ---------------------------------------------------------------------------------------------------------

template <class Ch>
class Formatter {
public:
    using View = std::basic_string_view<Ch>;

    Formatter(std::basic_string<Ch>& out, View pattern, FormatArgs args)
        : m_out(out), m_at(pattern.data()), m_end(pattern.data() + pattern.size()), m_args(args) {}

    void run() {
        while (m_at != m_end) {
            const Ch* percent = std::find(m_at, m_end, Ch('%'));
            m_out.append(m_at, percent);
            m_at = percent;
            if (m_at != m_end) convertOne();
        }
    }

private:
    // Reading -----------------------------------------------------------------------------------------------------

    /// The unit at hand when it is ASCII, else NUL.
    char peek() const { return m_at != m_end && *m_at > 0 && *m_at < 0x80 ? static_cast<char>(*m_at) : '\0'; }
    bool skip(char ch) {
        if (peek() != ch) return false;
        ++m_at;
        return true;
    }
    const FormatArg* nextArg() { return m_next < m_args.count ? &m_args.items[m_next++] : nullptr; }

    void readFlags(Conversion& conversion) {
        for (;; ++m_at) {
            switch (peek()) {
                case '-': conversion.left = true; break;
                case '+': conversion.plus = true; break;
                case ' ': conversion.blank = true; break;
                case '#': conversion.alternate = true; break;
                case '0': conversion.zeroPad = true; break;
                default: return;
            }
        }
    }

    /// Digits or a star; `negative` tells of a negative argument. A star without an integer counts as 0.
    size_t readNumber(bool& negative) {
        negative = false;
        if (skip('*')) {
            const FormatArg* arg = nextArg();
            if (arg == nullptr || !isInteger(*arg)) return 0;
            const int64_t value = arg->integer();
            negative = value < 0 && arg->kind() != Kind::Unsigned;
            return negative ? 0 - static_cast<size_t>(value) : static_cast<size_t>(value);
        }
        size_t number = 0;
        for (; isDigit(peek()); ++m_at) {
            if (number <= 0xFFFFFFFF) number = number * 10 + static_cast<size_t>(peek() - '0');
        }
        return number;
    }

    unsigned readLength() {
        if (skip('h')) return skip('h') ? 8 : 16;
        if (skip('l')) return skip('l') ? 64 : 32;
        if (skip('w')) return 32;
        if (skip('I')) {
            if (m_end - m_at < 2) return 64;
            if (m_at[0] == Ch('3') && m_at[1] == Ch('2')) return m_at += 2, 32;
            if (m_at[0] == Ch('6') && m_at[1] == Ch('4')) m_at += 2;
            return 64;
        }
        return skip('j') || skip('z') || skip('t') || skip('L') || skip('q') ? 64 : 32;
    }

    void convertOne() {
        const Ch* start = m_at++;
        Conversion conversion;
        bool negative = false;
        readFlags(conversion);
        conversion.width = std::min(readNumber(negative), padLimit);
        conversion.left = conversion.left || negative;
        if (skip('.')) {
            conversion.precision = readNumber(negative);
            conversion.hasPrecision = !negative;
        }
        conversion.bits = readLength();
        conversion.type = peek();
        if (m_at != m_end) ++m_at;
        if (!print(conversion)) m_out.append(start, m_at);
    }

    // Printing ----------------------------------------------------------------------------------------------------

    /// False for a conversion that does not exist.
    bool print(const Conversion& conversion) {
        switch (conversion.type) {
            case 'd':
            case 'i':
            case 'u':
            case 'o':
            case 'x':
            case 'X': printInteger(conversion); return true;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A': printReal(conversion); return true;
            case 'c':
            case 'C': printCharacter(conversion); return true;
            case 's':
            case 'S': printText(conversion); return true;
            case 'p': printPointer(conversion); return true;
            case 'n': nextArg(); return true;
            case '%': m_out += Ch('%'); return true;
            default: return false;
        }
    }

    void printInteger(const Conversion& conversion) {
        const FormatArg* arg = nextArg();
        if (arg == nullptr || !isInteger(*arg)) return;
        char buffer[32];
        put(integerText(arg->integer(), conversion, buffer), conversion,
            conversion.zeroPad && !conversion.hasPrecision);
    }

    void printReal(const Conversion& conversion) {
        const FormatArg* arg = nextArg();
        if (arg == nullptr || (arg->kind() != Kind::Real && !isInteger(*arg))) return;
        const double value = arg->kind() == Kind::Real ? arg->real()
                             : arg->kind() == Kind::Unsigned
                                 ? static_cast<double>(static_cast<uint64_t>(arg->integer()))
                                 : static_cast<double>(arg->integer());
        NumberText number;
        number.addPrefix(signText(std::signbit(value), conversion));
        if (!std::isfinite(value)) {
            const bool upper = conversion.isUpper();
            number.head = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
            put(number, conversion, false);
            return;
        }
        RealText digits;
        digits.set(std::fabs(value), conversion);
        digits.store(number);
        if (toLower(conversion.type) == 'a') number.addPrefix(conversion.isUpper() ? "0X" : "0x");
        put(number, conversion, conversion.zeroPad);
    }

    void printPointer(const Conversion& conversion) {
        const FormatArg* arg = nextArg();
        if (arg == nullptr || isInteger(*arg) || arg->kind() == Kind::Real) return;
        Conversion asHex;
        asHex.left = conversion.left, asHex.width = conversion.width;
        asHex.bits = 64, asHex.type = 'x';
        char buffer[32];
        NumberText number =
            integerText(static_cast<int64_t>(reinterpret_cast<uintptr_t>(arg->pointer())), asHex, buffer);
        number.addPrefix("0x");
        put(number, asHex, false);
    }

    /// A `char` is one unit of UTF-8 and stands alone only in UTF-8; any other integer is the code of a character.
    void printCharacter(const Conversion& conversion) {
        const FormatArg* arg = nextArg();
        if (arg == nullptr || !isInteger(*arg)) return;
        const auto code = static_cast<char32_t>(arg->integer());
        Ch units[4];
        size_t count = 1;
        if (arg->kind() == Kind::NarrowUnit && (sizeof(Ch) == 1 || code < 0x80)) {
            units[0] = static_cast<Ch>(code);
        } else if (sizeof(Ch) == 2 && code < 0x10000) {
            units[0] = static_cast<Ch>(code);
        } else {
            count = encode(code, units);
        }
        putText(View(units, count), conversion);
    }

    void printText(const Conversion& conversion) {
        const FormatArg* arg = nextArg();
        if (arg == nullptr || isInteger(*arg) || arg->kind() == Kind::Real) return;
        if (arg->pointer() == nullptr && arg->textSize() != 0) {
            constexpr Ch null[] = {'(', 'n', 'u', 'l', 'l', ')'};
            putText(View(null, 6).substr(0, conversion.hasPrecision ? conversion.precision : 6), conversion);
        } else if (arg->kind() == Kind::NarrowText) {
            putAnyText<char>(*arg, conversion);
        } else if (arg->kind() == Kind::WideText) {
            putAnyText<char16_t>(*arg, conversion);
        }
    }

    template <class From>
    void putAnyText(const FormatArg& arg, const Conversion& conversion) {
        const auto* units = static_cast<const From*>(arg.pointer());
        const size_t limit = conversion.hasPrecision ? conversion.precision : ~size_t{0};
        size_t size = std::min(arg.textSize(), limit);
        if (arg.textSize() == ~size_t{0}) {
            size = 0;
            while (size < limit && units[size] != From()) ++size;
        }
        const std::basic_string_view<From> text(units, size);
        if constexpr (std::is_same_v<From, Ch>) {
            putText(text, conversion);
        } else {
            const auto whole = size == limit ? withoutCutCharacter(text) : text;
            std::basic_string<Ch> converted(convertedLength(whole), Ch());
            convert(whole, converted.data(), converted.size());
            putText(converted, conversion);
        }
    }

    /// Without the beginning of a character whose rest the precision cut off.
    static std::string_view withoutCutCharacter(std::string_view text) {
        for (size_t back = 1; back <= 3 && back <= text.size(); ++back) {
            const unsigned byte = static_cast<unsigned char>(text[text.size() - back]);
            if ((byte & 0xC0) == 0x80) continue;
            const size_t needed = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
            return needed > back ? text.substr(0, text.size() - back) : text;
        }
        return text;
    }
    static std::u16string_view withoutCutCharacter(std::u16string_view text) {
        const bool isCut = !text.empty() && text.back() >= 0xD800 && text.back() <= 0xDBFF;
        return text.substr(0, text.size() - (isCut ? 1 : 0));
    }

    void putText(View text, const Conversion& conversion) {
        const size_t room = conversion.width > text.size() ? conversion.width - text.size() : 0;
        if (!conversion.left) pad(room, ' ');
        m_out.append(text);
        if (conversion.left) pad(room, ' ');
    }

    void pad(size_t count, char with) {
        if (count != 0) m_out.append(count, Ch(with));
    }
    void putAscii(std::string_view text) {
        for (const char ch : text) m_out += Ch(ch);
    }

    void put(const NumberText& number, const Conversion& conversion, bool zeroPad) {
        const size_t room = conversion.width > number.size() ? conversion.width - number.size() : 0;
        zeroPad = zeroPad && !conversion.left;
        if (!conversion.left && !zeroPad) pad(room, ' ');
        putAscii(number.prefixText());
        pad(number.leadingZeros + (zeroPad ? room : 0), '0');
        putAscii(number.head);
        pad(number.innerZeros, '0');
        putAscii(number.tail);
        if (conversion.left) pad(room, ' ');
    }

    std::basic_string<Ch>& m_out;
    const Ch* m_at;
    const Ch* m_end;
    FormatArgs m_args;
    size_t m_next = 0;
};

}  // namespace

void format(std::string& out, std::string_view pattern, FormatArgs args) { Formatter<char>(out, pattern, args).run(); }
void format(std::u16string& out, std::u16string_view pattern, FormatArgs args) {
    Formatter<char16_t>(out, pattern, args).run();
}

}  // namespace qv::text
