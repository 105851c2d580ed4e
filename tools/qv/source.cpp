#include "source.h"

#include <algorithm>
#include <filesystem>

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "text.h"

namespace tool {

bool isNameable(const std::string& path) { return path.find('\\') == std::string::npos && narrow(wide(path)) == path; }

void requireFile(const std::string& path) {
    if (!isNameable(path)) {
        throw Failure(Exit::io, path + ": is not a name in UTF-8 without backslashes, and cannot be opened");
    }
    if (const std::optional<Inside> inside = insideOf(path)) {
        if (files().FileExists(wide(path).c_str())) return;
        throw Failure(Exit::negative, inside->container + ": has no entry " + inside->entry);
    }
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    if (type == std::filesystem::file_type::regular) {
        constexpr uint32_t toRead = 0x2 | 0x10 | 0x300;  // existing, read, share everything
        qv::ClearDiagnostic();
        if (!files().CreateFileW(wide(path).c_str(), toRead)) throw diagnosed(Exit::io, path, "cannot be opened");
        return;
    }
    if (type == std::filesystem::file_type::directory) throw Failure(Exit::io, path + ": is a folder");
    if (type == std::filesystem::file_type::not_found) throw Failure(Exit::io, path + ": no such file");
    if (type == std::filesystem::file_type::none) throw Failure(Exit::io, path + ": " + error.message());
    throw Failure(Exit::io, path + ": is a device or a pipe, not a file");
}

qv::TSharedPtr<qv::IFile> openInput(const std::string& path) {
    requireFile(path);
    constexpr uint32_t toRead = 0x2 | 0x10 | 0x300;  // existing, read, share everything
    qv::ClearDiagnostic();
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), toRead);
    if (!file) throw diagnosed(Exit::io, path, "cannot be opened");
    return file;
}

std::string headOf(const std::string& path) {
    const qv::TSharedPtr<qv::IFile> file = openInput(path);
    std::string head(static_cast<size_t>(std::min<int64_t>(file->GetSize(), headBytes)), '\0');
    if (!file->ReadBytes(head.data(), static_cast<uint32_t>(head.size())))
        throw diagnosed(Exit::io, path, "cannot be read");
    return head;
}

}  // namespace tool
