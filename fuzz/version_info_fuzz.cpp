// Bytes into the reader of version records; what loads is asked for its texts.
#include <cstdint>

#include "qv/file.h"
#include "qv/version_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qv::CMemFile file;
    file.WriteBytes(data, static_cast<uint32_t>(size));
    file.SeekToBegin();
    qv::CVersionInfo info;
    if (!info.Load(&file)) return 0;
    (void)info.GetString(u"CompanyName");
    for (const auto& table : info.GetStringTables()) (void)info.GetString(u"FileVersion", table.translation);
    (void)info.GetProductVersion().ToString();
    return 0;
}
