// Memory files from text and back.
#pragma once

#include <string>

#include "qv/file.h"

namespace qv::test {

inline TSharedPtr<IFile> memoryFile(const std::string& bytes) {
    TSharedPtr<CMemFile> file = CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return file;
}

inline std::string bytesOf(IFile& file) {
    std::string bytes(static_cast<size_t>(file.GetSize()), '\0');
    file.SeekToBegin();
    file.ReadBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    return bytes;
}

}  // namespace qv::test
