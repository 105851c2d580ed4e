#include "qv/guid.h"

#include <string_view>

#include "platform/random.h"

namespace qv {

namespace {

/// The order in which the text shows the bytes of a GUID in memory order of a little-endian machine, dashes as -1.
constexpr int textOrder[] = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};

int hexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

GUID fromBytes(const uint8_t (&bytes)[16]) {
    GUID value;
    value.Data1 = bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
    value.Data2 = static_cast<uint16_t>(bytes[4] | bytes[5] << 8);
    value.Data3 = static_cast<uint16_t>(bytes[6] | bytes[7] << 8);
    for (int i = 0; i < 8; ++i) value.Data4[i] = bytes[8 + i];
    return value;
}

}  // namespace

CGUID CGUID::Create() {
    uint8_t bytes[16];
    if (!platform::randomBytes(bytes, sizeof bytes)) return CGUID();
    GUID value = fromBytes(bytes);
    value.Data3 = static_cast<uint16_t>((value.Data3 & 0x0FFF) | 0x4000);
    value.Data4[0] = static_cast<uint8_t>((value.Data4[0] & 0x3F) | 0x80);
    return value;
}

bool CGUID::FromString(const CString& text) {
    std::u16string_view at = text.view();
    if (at.size() == 38 && at.front() == u'{' && at.back() == u'}') at = at.substr(1, 36);
    if (at.size() != 36) return false;
    uint8_t bytes[16] = {};
    for (const int position : textOrder) {
        if (position < 0) {
            if (at[0] != u'-') return false;
            at.remove_prefix(1);
            continue;
        }
        const int high = hexValue(at[0]), low = hexValue(at[1]);
        if (high < 0 || low < 0) return false;
        bytes[position] = static_cast<uint8_t>(high << 4 | low);
        at.remove_prefix(2);
    }
    static_cast<GUID&>(*this) = fromBytes(bytes);
    return true;
}

CString CGUID::ToString(bool braces) const {
    return CString::FromFormat(u"%s%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X%s", braces ? u"{" : u"", Data1,
                               uint32_t{Data2}, uint32_t{Data3}, uint32_t{Data4[0]}, uint32_t{Data4[1]},
                               uint32_t{Data4[2]}, uint32_t{Data4[3]}, uint32_t{Data4[4]}, uint32_t{Data4[5]},
                               uint32_t{Data4[6]}, uint32_t{Data4[7]}, braces ? u"}" : u"");
}

}  // namespace qv
