#include "norm_kind.h"

#include <algorithm>
#include <iterator>

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

bool isPlausible(const CNormFile::SFileHeader& header) {
    return (header.version == 1 || header.version == 2) && header.type <= CNormFile::TYPE_BAD_PIXEL &&
           header.xPixels != 0 && header.yPixels != 0 && isText(header.timeStamp) && isText(header.text1) &&
           isText(header.text2) && isText(header.text3);
}

/// Whether a table of `bytes` bytes belongs to the header.
bool fits(const CNormFile::SFileHeader& header, int64_t bytes) {
    const int64_t pixels = int64_t{header.xPixels} * header.yPixels;
    switch (header.type) {
        case CNormFile::TYPE_GAIN: return bytes == pixels * 4;
        case CNormFile::TYPE_OFFSET: return bytes == pixels * 2;
        default: return header.version == 1 ? bytes == pixels : bytes == pixels * 5 || bytes == pixels * 9;
    }
}

}  // namespace

bool isNorm(const std::string& path, NormKind& kind) {
    constexpr uint32_t toRead = 0x2 | 0x10 | 0x300;  // existing, read, share everything
    requireFile(path);
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), toRead);
    if (!file) return false;
    for (const bool bigEndian : {false, true}) {
        file->SeekToBegin();
        swapFlag(*file) = kind.bigEndian = bigEndian;
        if (!CNormFile::ReadHeader(file, kind.header)) return false;
        if (isPlausible(kind.header) && fits(kind.header, file->GetSize() - file->GetPosition())) return true;
    }
    return false;
}

}  // namespace tool
