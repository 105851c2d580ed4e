// A header is loaded, its tags ordered, and written again.
#include <cstddef>
#include <cstdint>

#include "qv/file.h"
#include "qv/saf_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(data, static_cast<uint32_t>(size));
    file->SeekToBegin();
    qv::CSAFFile header;
    if (!header.Load(file)) return 0;
    uint32_t position = header.GetDataPosition();
    header.SortByGroups(true);
    header.Update(file, position, true);
    return 0;
}
