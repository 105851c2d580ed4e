#include "images/kvor.h"

#include <algorithm>

#include "images/picture_file.h"

namespace qv::Private::kvor {

void Cutter::begin(IFile& file) {
    payload = &file;
    left = static_cast<uint64_t>(std::max<int64_t>(file.GetSize(), 0));
    index = 0;
    count = segmentsFor(left);
    file.SeekToBegin();
}

uint32_t Cutter::next(bool& failed) noexcept {
    if (left == 0) return 0;
    const auto stretch = static_cast<uint32_t>(std::min<uint64_t>(left, dataBytes));
    // The two index bytes of a long payload run over.
    const uint8_t header[headerBytes] = {
        'K', 'V', 'O', 'R', 0, 1, static_cast<uint8_t>(index), static_cast<uint8_t>(count - 1)};
    std::memcpy(contents, header, headerBytes);
    failed = readQuietly(*payload, contents + headerBytes, stretch) != stretch;
    if (failed) return 0;
    left -= stretch;
    ++index;
    return headerBytes + stretch;
}

}  // namespace qv::Private::kvor
