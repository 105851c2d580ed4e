#include "norm_kind.h"

#include <algorithm>
#include <iterator>

#include "norm_table.h"
#include "places.h"
#include "qv/file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

using qv::CNormFile;

/// Printable characters up to the end or a zero; what is behind that may be anything.
template <size_t n>
bool isText(const char16_t (&field)[n]) {
    const auto* const end = std::find(field, field + n, u'\0');
    return std::all_of(field, end, [](char16_t c) { return c >= u' ' && c < 0x7F; });
}

bool hasText(const CNormFile::SFileHeader& header) {
    return isText(header.timeStamp) && isText(header.text1) && isText(header.text2) && isText(header.text3);
}

}  // namespace

bool isNorm(const std::string& path, NormKind& kind) {
    constexpr uint32_t toRead = 0x2 | 0x10 | 0x300;  // existing, read, share everything
    requireFile(path);
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), toRead);
    if (!file) return false;
    for (const bool bigEndian : {false, true}) {
        const NormFit fit = fitOf(file, bigEndian);
        kind = {fit.header, bigEndian};
        if (fit.exact && hasText(fit.header)) return true;
    }
    return false;
}

}  // namespace tool
