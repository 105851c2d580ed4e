// Absolute paths by their text alone, and a working directory for file systems that the process's own is not for.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "qv/file_system.h"

namespace qv::Private {

/// `path`, taken from `current` unless it begins with a separator, with `/` between its pieces and without `.`, `..`
/// and doubled separators. A trailing separator stays. Empty for an empty path.
std::u16string absolutePath(std::u16string_view path, std::u16string_view current);

/// Without one trailing separator; the root stays as it is. Empty for a null pointer.
std::u16string withoutTrailingSlash(const char16_t* path);

/// Everything in front of the last separator of an absolute path; "/" for what lies in the root.
std::u16string parentPath(std::u16string_view path);

/// An absolute directory and a name in it.
std::u16string joinedPath(std::u16string_view directory, std::u16string_view name);

/// False, with the buffer untouched, when the text is empty or does not fit with its terminator.
bool fitBuffer(std::u16string_view text, char16_t* buffer, int bufferChars);

/// Gives an entry its path. One that does not fit whole would name another file: false with a diagnostic, and the
/// entry's path is as it was.
bool setPath(IFileSystem::CDirectoryEntry& entry, std::u16string_view path);

/// Lower-case units, for comparisons without regard to case.
std::u16string folded(std::u16string_view text);

/// A working directory; "/" at first. May be used from any thread.
class WorkingDirectory {
public:
    /// absolutePath from here; empty for an empty or null path.
    std::u16string absolute(const char16_t* path) const;
    /// The same without a trailing separator, as file systems look for it.
    std::u16string key(const char16_t* path) const;
    /// The directory to list: this one for a null pointer, the root for an empty path.
    std::u16string listed(const char16_t* directory) const;
    void set(std::u16string path);
    std::u16string get() const;

private:
    mutable std::mutex m_lock;
    std::u16string m_path = u"/";
};

}  // namespace qv::Private
