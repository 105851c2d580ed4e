// A calibration in binary form is loaded and saved. What was saved loads, and saves to the same bytes. The first byte
// of the input says the byte order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "qv/file.h"
#include "qv/rcal_file.h"

namespace {

/// Saved once, and saved again after a load.
void compare(qv::CRCalFile& calibration, bool bigEndian) {
    const qv::TSharedPtr<qv::CMemFile> once = qv::CMemFile::Create();
    const qv::TSharedPtr<qv::CMemFile> twice = qv::CMemFile::Create();
    for (const auto& file : {once, twice}) qv::swapFlag(*file) = bigEndian;
    if (!calibration.Save(once, 0)) std::abort();
    once->SeekToBegin();
    qv::CRCalFile second;
    if (!second.Load(once, 0) || !second.Save(twice, 0)) std::abort();
    if (!std::equal(once->data(), once->data() + once->size(), twice->data(), twice->data() + twice->size()))
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    constexpr uint8_t beginning[] = {'_', '_', '_', '_', 'R', 'C', 'A', 'L', 0, 0};
    file->WriteBytes(beginning, sizeof beginning);
    file->WriteBytes(data + 1, static_cast<uint32_t>(size - 1));
    file->SeekToBegin();
    qv::swapFlag(*file) = (data[0] & 1) != 0;
    qv::CRCalFile calibration;
    if (calibration.Load(file, 0)) compare(calibration, (data[0] & 1) != 0);
    return 0;
}
