// A dictionary is loaded in whichever form it has, searched, and written again in both.
#include <cstddef>
#include <cstdint>

#include "qv/file.h"
#include "qv/tag_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(data, static_cast<uint32_t>(size));
    file->SeekToBegin();
    qv::CTagFile tags;
    tags.Load(file);
    tags.CompareTags(u"Band12Center", u"Band9Center");
    tags.SaveBinary(qv::CMemFile::Create());
    tags.SaveXML(qv::CMemFile::Create());
    return 0;
}
