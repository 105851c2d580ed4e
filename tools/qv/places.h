// Where a path leads: to a file on disk, or as "container:entry" to one inside a container.
#pragma once

#include <optional>
#include <string>

#include "qv/file_system.h"

namespace tool {

/// The two parts of a path that leads into a container.
struct Inside {
    std::string container;
    std::string entry;
};
/// Nothing for a path that is a name on disk, or of which no part in front of a colon is a file.
std::optional<Inside> insideOf(const std::string& path);

/// The disk, with the entries of containers as further files, which are opened, looked at and changed in place; they
/// are made and deleted by `qv pack` alone. Containers stay open until saveContainers().
qv::IFileSystem& files();

/// Writes what was changed in containers, and closes them. Fails where that is not possible.
void saveContainers();

}  // namespace tool
