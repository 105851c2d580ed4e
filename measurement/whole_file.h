// Files that are written whole or are not there.
#pragma once

#include <cstdint>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/string.h"

namespace qv::Private {

/// Removes what a failed write left, and keeps the diagnostic of that failure. What cannot be cut is a device, and
/// stays.
inline void discard(IFileSystem& fs, const CString& path, TSharedPtr<IFile>& file) {
    SetDiagnosticFile(path);
    const CDiagnostic reason = LastDiagnostic();
    ClearDiagnostic();  // the disk's files tell of a failed cut by nothing else
    const bool cut = file->SetSize(0) && !LastDiagnostic().IsSet();
    file.Release();
    if (cut) fs.DeleteFileW(path.c_str());
    SetDiagnostic(reason.file, reason.expected, reason.found, reason.byteOffset, reason.line);
}

/// Creates the file, or empties it, and has `body` (bool(const TSharedPtr<IFile>&)) write it. Where that fails no file
/// is left, and a diagnostic with its name.
template <class Body>
bool writeWhole(IFileSystem* fs, const char16_t* path, Body body) {
    constexpr uint32_t createTruncatingToWrite = 40;
    if (fs == nullptr || path == nullptr) return false;
    const CString kept(path);
    TSharedPtr<IFile> file = fs->CreateFileW(kept.c_str(), createTruncatingToWrite);
    if (!file) return false;
    if (body(file)) return true;
    discard(*fs, kept, file);
    return false;
}

}  // namespace qv::Private
