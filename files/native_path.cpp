#include "files/native_path.h"

#include <algorithm>

#include "core/text.h"
#include "platform/file.h"
#include "qv/diagnostic.h"
#include "qv/string.h"

namespace qv::Private {

std::string nativePath(const char16_t* path) {
    std::string native = text::toUtf8(path == nullptr ? std::u16string_view() : std::u16string_view(path));
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

void copyNativeName(std::string_view name, char16_t* dst, size_t chars) {
    if (chars == 0) return;
    if (name.size() < chars) {  // A unit of UTF-8 gives at most one of UTF-16.
        dst[text::convert(name, dst, chars)] = 0;
        return;
    }
    const std::u16string text = text::toUtf16(name);
    const size_t length = std::min(text.size(), chars - 1);
    std::copy_n(text.data(), length, dst);
    dst[length] = 0;
}

bool succeeded(int error, const char16_t* path, const char16_t* expected) {
    if (error == 0) return true;
    SetDiagnostic(path, expected, platform::errorText(error));
    return false;
}

}  // namespace qv::Private
