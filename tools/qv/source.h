// Input files that are there and are files.
#pragma once

#include <cstddef>
#include <string>

#include "qv/file.h"

namespace tool {

/// Whether the library can name `path`: its names are UTF-8, and a backslash separates folders in them.
bool isNameable(const std::string& path);

/// Fails with one sentence unless `path` is a file on disk that can be read, or a symbolic link that leads to one. A
/// folder, a device and a pipe fail: readers go back and forth in their file, and a pipe would be waited on for ever.
void requireFile(const std::string& path);

/// Such a file, opened for reading and shared with everybody.
qv::TSharedPtr<qv::IFile> openInput(const std::string& path);

/// The first bytes of such a file, by which its kind is told: at most `headBytes`.
inline constexpr size_t headBytes = 4096;
std::string headOf(const std::string& path);

}  // namespace tool
