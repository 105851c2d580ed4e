// What every IFile has to do. A file takes part by a FileKind in an INSTANTIATE_TEST_SUITE_P (see file_kinds in
// file_conformance.cpp for those of the library's own files).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "qv/file.h"

namespace qv::test {

/// An open file and whatever has to live as long.
struct OpenFile {
    std::shared_ptr<void> keeper;
    TSharedPtr<IFile> file;
};

/// How to open a file with given contents, at position 0, and where its class is bound to differ.
struct FileKind {
    std::string name;
    std::function<OpenFile(const std::string& contents)> make;
    bool writes = true;       ///< The file may be written to.
    bool resizes = true;      ///< It grows by writing behind its end, and SetSize works.
    bool seeksBehind = true;  ///< The position may lie behind the end.
    bool gapsAreZero = true;  ///< What was never written reads as zeros, also where the file had been cut.

    friend void PrintTo(const FileKind& kind, std::ostream* out) { *out << kind.name; }
};

class FileConformance : public ::testing::TestWithParam<FileKind> {};

inline std::string nameOfFile(const ::testing::TestParamInfo<FileKind>& info) { return info.param.name; }

}  // namespace qv::test
