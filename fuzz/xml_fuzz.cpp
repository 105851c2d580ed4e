// Bytes into the XML reader; what loads is saved, and what was saved loads again and saves to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/xml_file.h"

namespace {

qv::TSharedPtr<qv::IFile> fileOf(const void* data, size_t size) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(data, static_cast<uint32_t>(size));
    file->SeekToBegin();
    return file;
}

std::string savedBytes(const qv::CXMLFile& xml) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    xml.Save(qv::TSharedPtr<qv::IFile>(file));
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

/// A saved document that loads is held to come out the same again. Elements without a name are left aside: where they
/// nest, the close tag of one is the whole of another.
void reload(const std::string& first) {
    qv::CXMLFile xml;
    if (!xml.Load(fileOf(first.data(), first.size()))) return;
    const std::string second = savedBytes(xml);
    if (second.find("</>") != std::string::npos) return;
    if (!xml.Load(fileOf(second.data(), second.size()))) return;
    if (savedBytes(xml) != second) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    for (const bool keepText : {false, true}) {
        qv::CXMLFile xml;
        xml.SetKeepText(keepText);
        if (!xml.Load(fileOf(data, size))) continue;
        delete xml.Curr()->Duplicate();
        if (size < 4096) reload(savedBytes(xml));  // The tabs of a deep document grow with the square of its depth.
    }
    return 0;
}
