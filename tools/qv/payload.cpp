#include "payload.h"

#include <filesystem>
#include <optional>
#include <set>

#include "command.h"
#include "copy.h"
#include "places.h"
#include "qv/cd_file_system.h"
#include "qv/memory_file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

qv::TSharedPtr<qv::IFile> payloadOf(const std::vector<PayloadPart>& parts) {
    if (parts.empty()) return nullptr;
    if (parts.size() == 1) return parts.front().file;
    constexpr char16_t place[] = u"/payload";
    qv::CMemoryFileSystem memory;
    qv::CCDFileSystem container;
    if (!container.Create(&memory, place, false)) throw diagnosed(Exit::io, "payload", "cannot be put together");
    for (const PayloadPart& part : parts) {
        const auto entry = container.CreateFileW(wide(part.name).c_str(), qv::CFile::createNew);
        if (!entry) throw Failure(Exit::usage, part.name + ": is the name of two files of the payload");
        copyContents(*part.file, *entry, part.name, "payload");
    }
    container.Close();
    const qv::TSharedPtr<qv::CMemFile> payload = qv::CMemFile::Create();
    copyContents(*memory.CreateFileW(place, 0x12), *payload, "payload", "payload");
    return payload;
}

std::vector<PayloadPart> payloadFiles(const std::vector<std::string>& paths) {
    std::vector<PayloadPart> parts;
    for (const std::string& path : paths) {
        const std::optional<Inside> inside = insideOf(path);
        const std::filesystem::path name(inside ? inside->entry : path);
        parts.push_back({name.filename().string(), openInput(path)});
    }
    return parts;
}

}  // namespace tool
