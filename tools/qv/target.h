// Output files that are whole or not there at all.
#pragma once

#include <string>
#include <vector>

#include "qv/file.h"

namespace tool {

/// Fails when the output is one of the inputs, which it would replace.
void requireOther(const std::string& output, const std::vector<std::string>& inputs);

/// A file that is written under a temporary name beside its place and takes the place when it is committed. Without a
/// commit nothing is left behind, also when the program is interrupted. One at a time.
class Target {
public:
    /// Fails when the place is taken, unless `force`, which replaces a file (the one a symbolic link leads to) and
    /// keeps its permissions. A folder, a device or a pipe in the place, or a folder that cannot be written, fails
    /// always.
    Target(const std::string& path, bool force);
    ~Target();
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    /// The temporary file's name.
    const std::string& temporary() const { return m_temporary; }
    /// The temporary file, opened for reading and writing and shared with everybody. Each call opens it anew.
    qv::TSharedPtr<qv::IFile> open() const;
    /// Puts the file into its place, where an existing one is replaced only when forced. Files that open() gave must be
    /// closed before.
    void commit();

private:
    std::string m_path;
    std::string m_temporary;
    bool m_force;
    bool m_committed = false;
};

}  // namespace tool
