// Any bytes as UTF-8 and as UTF-16: what one conversion made, the next keeps.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "qv/string.h"

namespace {
void require(bool holds) {
    if (!holds) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const qv::CString wide(bytes);
    require(wide.length() <= size);
    const qv::CStringMB narrow(wide);
    require(qv::CString(narrow) == wide && qv::CStringMB(narrow.GetUTF16()).length() <= narrow.length());

    std::u16string units(size / 2, u'\0');
    if (!units.empty()) std::memcpy(units.data(), data, units.size() * 2);
    const qv::CStringMB encoded(units);
    require(qv::CStringMB(qv::CString(encoded)) == encoded && qv::CString(encoded).length() == units.size());

    qv::CString decoded;
    decoded.FromCodePage(932, std::string(bytes).c_str());
    decoded.ConvertToCodePage(932);
    return 0;
}
