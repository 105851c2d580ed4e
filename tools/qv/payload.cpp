#include "payload.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>

#include "command.h"
#include "places.h"
#include "qv/cd_file_system.h"
#include "qv/diagnostic.h"
#include "qv/memory_file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

void copyContents(qv::IFile& in, qv::IFile& out, const std::string& from, const std::string& to) {
    std::vector<char> block(1 << 20);
    in.SeekToBegin();
    for (int64_t left = in.GetSize(); left > 0;) {
        const auto count = static_cast<uint32_t>(std::min<int64_t>(left, static_cast<int64_t>(block.size())));
        qv::ClearDiagnostic();
        if (!in.ReadBytes(block.data(), count)) throw diagnosed(Exit::io, from, "cannot be read");
        if (!out.WriteBytes(block.data(), count))
            throw diagnosed(Exit::io, to, "cannot be written (is the disk full?)");
        left -= count;
    }
}

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
