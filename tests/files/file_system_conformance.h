// What every IFileSystem has to do. A file system takes part by a FileSystemKind in an INSTANTIATE_TEST_SUITE_P (see
// system_kinds in file_system_conformance.cpp for those of the library's own).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "qv/file.h"
#include "qv/file_system.h"

namespace qv::test {

/// Names, relative to the root, and contents.
using Contents = std::vector<std::pair<std::u16string, std::string>>;

/// A file system in use, and whatever has to live as long.
class SystemUnderTest {
public:
    virtual ~SystemUnderTest() = default;
    virtual IFileSystem& system() = 0;
    /// Under which all names of a test lie; without a separator at its end.
    virtual CString root() { return CString(); }
    CString path(std::u16string_view name) { return root() + u"/" + name; }
};

/// How to make a file system with given files (and the directories they lie in), and where its class is bound to
/// differ.
struct FileSystemKind {
    std::string name;
    std::function<std::unique_ptr<SystemUnderTest>(const Contents&)> make;
    bool writes = true;       ///< Files can be created, written and deleted.
    bool directories = true;  ///< Directories can be created; they are not only implied by the names of files.
    bool shares = true;       ///< Openers of one file are held to the share modes.
    bool truncates = true;    ///< SetSize works, and "create, truncating" empties what is there.
    bool setsTimes = true;
    bool readOnlyFiles = true;  ///< Files have an attribute read-only, which DeleteFileW gets over.
    bool likeDisk = true;  ///< Flag words, access, deletion and the working directory follow the rules of the disk.

    friend void PrintTo(const FileSystemKind& kind, std::ostream* out) { *out << kind.name; }
};

/// Writes the files through the file system itself, with the directories they need.
void populate(SystemUnderTest& under, const Contents& contents);

class FileSystemConformance : public ::testing::TestWithParam<FileSystemKind> {
protected:
    void make(const Contents& contents) { m_under = GetParam().make(contents); }
    IFileSystem& system() { return m_under->system(); }
    CString path(std::u16string_view name) { return m_under->path(name); }
    TSharedPtr<IFile> open(std::u16string_view name, uint32_t flags) {
        return system().CreateFileW(path(name).c_str(), flags);
    }
    /// "(none)" when there is no such file.
    std::string read(std::u16string_view name);
    void write(std::u16string_view name, const std::string& contents);
    uint32_t typeOf(std::u16string_view name) { return system().GetFileInfo(path(name).c_str()).type; }
    /// The names in a directory, sorted, each with a blank behind it and directories with a `/`.
    std::string list(std::u16string_view directory, const char16_t* pattern = nullptr);

private:
    std::unique_ptr<SystemUnderTest> m_under;
};

inline std::string nameOfSystem(const ::testing::TestParamInfo<FileSystemKind>& info) { return info.param.name; }

}  // namespace qv::test
