// How a calibration's files are opened, and found beside one another.
#pragma once

#include <cstdint>

#include "qv/file_system.h"
#include "qv/string.h"

namespace qv::rcalFiles {

inline constexpr uint32_t openForReading = 0x212;  // existing, read, share reading

/// The folder of a path; empty where it names none.
CString folderOf(const CString& path);
/// The path without its extension.
CString withoutExtension(const CString& path);
/// `name` as it stands when it is absolute, otherwise seen from the folder of `header`.
CString beside(const CString& header, const CString& name);

}  // namespace qv::rcalFiles
