#include "qv/guid.h"

#include <string_view>

#include "core/text.h"
#include "platform/random.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

int hexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

/// Dashes stand in front of these bytes of the network order.
constexpr bool dashBefore(size_t index) { return index == 4 || index == 6 || index == 8 || index == 10; }

/// Two digits for each byte, with the dashes between the groups or without any.
bool scanDigits(std::u16string_view text, bool dashes, CGUID::Bytes& bytes) {
    if (text.size() != (dashes ? 36u : 32u)) return false;
    const char16_t* at = text.data();
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (dashes && dashBefore(i) && *at++ != u'-') return false;
        const int high = hexValue(at[0]), low = hexValue(at[1]);
        if (high < 0 || low < 0) return false;
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
        at += 2;
    }
    return true;
}

/// Reads the form of a C initializer.
class InitializerScanner {
public:
    explicit InitializerScanner(std::u16string_view text) : m_rest(text) {}

    bool scan(GUID& value) {
        uint32_t fields[11] = {};
        for (size_t i = 0; i < 11; ++i) {
            const bool opens = i == 0 || i == 3;
            if ((i > 0 && !take(u',')) || (opens && !take(u'{')) || !number(widths[i < 3 ? i : 3], fields[i])) {
                return false;
            }
        }
        if (!take(u'}') || !take(u'}') || !m_rest.empty()) return false;
        value.Data1 = fields[0];
        value.Data2 = static_cast<uint16_t>(fields[1]);
        value.Data3 = static_cast<uint16_t>(fields[2]);
        for (int i = 0; i < 8; ++i) value.Data4[i] = static_cast<uint8_t>(fields[3 + i]);
        return true;
    }

private:
    static constexpr int widths[] = {8, 4, 4, 2};

    bool take(char16_t c) {
        while (!m_rest.empty() && text::isSpace(m_rest.front()) && m_depth > 0) m_rest.remove_prefix(1);
        if (m_rest.empty() || m_rest.front() != c) return false;
        m_rest.remove_prefix(1);
        m_depth += c == u'{' ? 1 : c == u'}' ? -1 : 0;
        return true;
    }

    /// 0x and one to `width` digits.
    bool number(int width, uint32_t& value) {
        if (!take(u'0') || m_rest.empty() || text::toLower(m_rest.front()) != u'x') return false;
        m_rest.remove_prefix(1);
        int digits = 0;
        for (; !m_rest.empty() && hexValue(m_rest.front()) >= 0; ++digits, m_rest.remove_prefix(1)) {
            value = value << 4 | static_cast<uint32_t>(hexValue(m_rest.front()));
        }
        return digits > 0 && digits <= width;
    }

    std::u16string_view m_rest;
    int m_depth = 0;
};

bool scanAnyForm(std::u16string_view text, CGUID& value) {
    if (text.size() > 38 && text.front() == u'{') return InitializerScanner(text).scan(value);
    constexpr std::u16string_view urn = u"urn:uuid:";
    const bool braces = text.size() == 38 && text.front() == u'{' && text.back() == u'}';
    const bool parentheses = text.size() == 38 && text.front() == u'(' && text.back() == u')';
    if (braces || parentheses) {
        text = text.substr(1, 36);
    } else if (text.size() == 36 + urn.size() && text::compareNoCase(text.substr(0, urn.size()), urn) == 0) {
        text.remove_prefix(urn.size());
    }
    CGUID::Bytes bytes{};
    if (!scanDigits(text, text.size() != 32, bytes)) return false;
    value = CGUID::FromBigEndian(bytes);
    return true;
}

/// Writes texts of known length.
class Writer {
public:
    explicit Writer(bool lowerCase) : m_digits(lowerCase ? u"0123456789abcdef" : u"0123456789ABCDEF") {}

    void text(std::u16string_view part) { m_size += part.copy(m_text + m_size, part.size()); }
    void byte(uint8_t value) {
        m_text[m_size++] = m_digits[value >> 4];
        m_text[m_size++] = m_digits[value & 15];
    }
    void bytes(const CGUID::Bytes& values, bool dashes) {
        for (size_t i = 0; i < values.size(); ++i) {
            if (dashes && dashBefore(i)) text(u"-");
            byte(values[i]);
        }
    }
    void initializer(const CGUID::Bytes& values) {
        text(u"{0x");
        for (size_t i = 0; i < values.size(); ++i) {
            if (i == 4 || i == 6 || i > 8) text(u",0x");
            if (i == 8) text(u",{0x");
            byte(values[i]);
        }
        text(u"}}");
    }
    CString result() const { return CString(std::u16string_view(m_text, m_size)); }

private:
    const char16_t* m_digits;
    char16_t m_text[72];  // The initializer is the longest, with 68.
    size_t m_size = 0;
};

}  // namespace

CGUID CGUID::Create() {
    Bytes bytes;
    if (!platform::randomBytes(bytes.data(), bytes.size())) return CGUID();
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
    return FromBigEndian(bytes);
}

bool CGUID::FromString(const CString& text) {
    if (scanAnyForm(text.view(), *this)) return true;
    SetDiagnostic(CString(), u"a GUID as {01234567-89AB-CDEF-0123-456789ABCDEF}", text);
    return false;
}

CString CGUID::ToString(Form form, bool lowerCase) const {
    Writer out(lowerCase || form == Form::urn);
    const Bytes bytes = ToBigEndian();
    if (form == Form::initializer) {
        out.initializer(bytes);
        return out.result();
    }
    constexpr std::u16string_view before[] = {u"", u"{", u"(", u"", u"urn:uuid:"},
                                  after[] = {u"", u"}", u")", u"", u""};
    const auto index = static_cast<size_t>(form);
    out.text(before[index]);
    out.bytes(bytes, form != Form::digits);
    out.text(after[index]);
    return out.result();
}

CGUID::Bytes CGUID::ToBigEndian() const {
    Bytes bytes;
    for (size_t i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(Data1 >> (24 - 8 * i));
    for (size_t i = 0; i < 2; ++i) bytes[4 + i] = static_cast<uint8_t>(Data2 >> (8 - 8 * i));
    for (size_t i = 0; i < 2; ++i) bytes[6 + i] = static_cast<uint8_t>(Data3 >> (8 - 8 * i));
    for (size_t i = 0; i < 8; ++i) bytes[8 + i] = Data4[i];
    return bytes;
}

CGUID CGUID::FromBigEndian(const Bytes& bytes) {
    CGUID value;
    for (size_t i = 0; i < 4; ++i) value.Data1 = value.Data1 << 8 | bytes[i];
    value.Data2 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
    value.Data3 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
    for (size_t i = 0; i < 8; ++i) value.Data4[i] = bytes[8 + i];
    return value;
}

namespace {

/// Between the two byte orders, either way.
CGUID::Bytes reverseFields(const CGUID::Bytes& b) {
    return {b[3], b[2], b[1], b[0], b[5], b[4], b[7], b[6], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]};
}

}  // namespace

CGUID::Bytes CGUID::ToLittleEndian() const { return reverseFields(ToBigEndian()); }
CGUID CGUID::FromLittleEndian(const Bytes& bytes) { return FromBigEndian(reverseFields(bytes)); }

}  // namespace qv
