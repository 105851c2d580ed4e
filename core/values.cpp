#include "qv/values.h"

#include <charconv>
#include <string_view>

#include "core/text.h"

namespace qv {

CString CBool::ToString(bool value) { return CString(value ? u"true" : u"false"); }

bool CBool::Parse(const CString& text) {
    std::u16string_view word = text;
    while (!word.empty() && text::isSpace(word.front())) word.remove_prefix(1);
    while (!word.empty() && text::isSpace(word.back())) word.remove_suffix(1);
    for (const std::u16string_view yes : {u"true", u"yes", u"on"}) {
        if (text::compareNoCase(word, yes) == 0) return true;
    }
    return text::wtof(word) != 0;
}

CString CInt32::ToString(int32_t value) { return CString::FromInt(value); }
int32_t CInt32::Parse(const CString& text) { return text::wtol(text.c_str()); }

CString CFlt64::ToString(double value) { return CString::FromDouble(value); }

CString CFlt64::ToStringExact(double value) {
    char digits[32];
    const auto result = std::to_chars(digits, digits + sizeof(digits), value);
    return CString(std::string_view(digits, static_cast<size_t>(result.ptr - digits)));
}

double CFlt64::Parse(const CString& text) { return text::wtof(text.c_str()); }

}  // namespace qv
