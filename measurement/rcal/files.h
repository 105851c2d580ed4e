// How a calibration's files are opened, written whole, and found beside one another.
#pragma once

#include <cstdint>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/string.h"

namespace qv::rcalFiles {

inline constexpr uint32_t openForReading = 0x212;  // existing, read, share reading
inline constexpr uint32_t openForWriting = 0x28;   // create truncating, write

/// Creates the file, or empties it, and has `body` (bool(IFile&)) write it. Where that fails no file is left, and a
/// diagnostic with its name.
template <class Body>
bool write(IFileSystem* fs, const char16_t* path, Body body) {
    if (fs == nullptr || path == nullptr) return false;
    const CString kept(path);
    TSharedPtr<IFile> file = fs->CreateFileW(kept.c_str(), openForWriting);
    if (!file) return false;
    if (body(*file)) return true;
    file.Release();
    SetDiagnosticFile(kept);
    const CDiagnostic reason = LastDiagnostic();
    fs->DeleteFileW(kept.c_str());
    SetDiagnostic(reason.file, reason.expected, reason.found, reason.byteOffset, reason.line);
    return false;
}

/// The folder of a path; empty where it names none.
CString folderOf(const CString& path);
/// The path without its extension.
CString withoutExtension(const CString& path);
/// `name` as it stands when it is absolute, otherwise seen from the folder of `header`.
CString beside(const CString& header, const CString& name);

}  // namespace qv::rcalFiles
