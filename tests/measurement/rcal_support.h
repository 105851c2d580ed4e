// What the tests of calibrations share.
#pragma once

#include <string>

#include "qv/file.h"
#include "qv/rcal_file.h"
#include "support/memory_file.h"

namespace qv::test {

inline bool load(CRCalFile& calibration, const std::string& bytes) { return calibration.Load(memoryFile(bytes), 0); }

inline std::string saved(CRCalFile& calibration) {
    TSharedPtr<IFile> file = CMemFile::Create();
    return calibration.Save(file, CRCalFile::saveXml) ? bytesOf(*file) : "";
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// Writes a text file and gives its path.
inline CString writeText(const CString& path, const std::string& text) {
    const TSharedPtr<IFile> file = fileSystem().CreateFileW(path.c_str(), 0x28);
    file->WriteBytes(text.data(), static_cast<uint32_t>(text.size()));
    return path;
}

}  // namespace qv::test
