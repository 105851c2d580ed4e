#include "target.h"

#include <filesystem>

#include "command.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "text.h"

namespace tool {

namespace {
constexpr uint32_t createNew = 0x4 | 0x10 | 0x20 | 0x300;  // create new, read, write, share everything
constexpr uint32_t openAgain = 0x2 | 0x10 | 0x20 | 0x300;
}  // namespace

Target::Target(const std::string& path, bool force) : m_path(path), m_force(force) {
    qv::IFileSystem& disk = qv::fileSystem();
    const auto existing = disk.GetFileInfo(wide(path).c_str()).type;
    if (existing == qv::IFileSystem::typeDirectory) throw Failure(Exit::io, path + ": is a folder");
    if (existing == qv::IFileSystem::typeFile && !force) {
        throw Failure(Exit::negative, path + ": exists already (--force replaces it)");
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
        m_temporary = path + ".part" + (attempt == 0 ? "" : std::to_string(attempt));
        qv::ClearDiagnostic();
        if (disk.CreateFileW(wide(m_temporary).c_str(), createNew)) return;
        if (disk.GetFileInfo(wide(m_temporary).c_str()).type == qv::IFileSystem::typeNothing) break;
    }
    throw diagnosed(Exit::io, path, "cannot be created");
}

Target::~Target() {
    if (!m_committed) qv::fileSystem().DeleteFileW(wide(m_temporary).c_str());
}

qv::TSharedPtr<qv::IFile> Target::open() const {
    qv::TSharedPtr<qv::IFile> file = qv::fileSystem().CreateFileW(wide(m_temporary).c_str(), openAgain);
    if (!file) throw diagnosed(Exit::io, m_temporary, "cannot be opened");
    return file;
}

void Target::commit() {
    // The library's move refuses a place that has been taken meanwhile; with force, what is there is replaced in one step.
    if (m_force) {
        std::error_code error;
        std::filesystem::rename(m_temporary, m_path, error);
        if (error) throw Failure(Exit::io, m_path + ": cannot be replaced: " + error.message());
    } else if (!qv::fileSystem().MoveFileW(wide(m_temporary).c_str(), wide(m_path).c_str())) {
        throw diagnosed(Exit::io, m_path, "cannot be put into its place");
    }
    m_committed = true;
}

}  // namespace tool
