// Helpers for tests that need the disk.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "qv/file_system.h"
#include "qv/string.h"

namespace qv::test {

/// A fresh folder that is removed, with what is in it, when the test ends.
class TempFolder {
public:
    TempFolder() : m_path(fileSystem().CreateTempDirectory()) {}
    ~TempFolder() { fileSystem().RemoveDirectoryW(m_path.c_str(), true); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    CString path(const char16_t* name) const { return IFileSystem::MakePath(m_path, name, u'/'); }
    const CString& path() const { return m_path; }

private:
    CString m_path;
};

/// Blocks of 512 bytes that the file takes on the disk; holes take none.
inline int64_t blocksOnDisk(const CString& path) {
    struct stat info {};
    return stat(CStringMB(path.c_str()).c_str(), &info) == 0 ? static_cast<int64_t>(info.st_blocks) : -1;
}

}  // namespace qv::test
