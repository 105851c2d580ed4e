// What the tests of files share: a folder that goes away, and shorthands for bytes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qv/file.h"

namespace qv::test {

using Bytes = std::vector<uint8_t>;

/// A folder of its own for one test, removed with all that is in it.
class TempFolder {
public:
    TempFolder() : m_path(fileSystem().CreateTempDirectory()) { EXPECT_FALSE(m_path.IsEmpty()); }
    ~TempFolder() { EXPECT_TRUE(fileSystem().RemoveDirectoryW(m_path.c_str(), true)); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    CString path(std::u16string_view name) const { return m_path + u"/" + name; }
    const CString& path() const { return m_path; }
    std::string native(std::u16string_view name) const { return path(name).GetUTF8(); }

private:
    CString m_path;
};

inline Bytes bytesOf(CMemFile& file) { return Bytes(file.data(), file.data() + file.size()); }

inline std::string textOf(CMemFile& file) {
    return std::string(reinterpret_cast<const char*>(file.data()), file.size());
}

/// Replaces the contents and goes to the start.
inline void fill(IFile& file, std::string_view text) {
    file.SetSize(0);
    file.SeekToBegin();
    EXPECT_TRUE(file.WriteBytes(text.data(), static_cast<uint32_t>(text.size())));
    file.SeekToBegin();
}

inline void writeFile(const CString& path, std::string_view text) {
    const TSharedPtr<IFile> file = CFile::Create(path.c_str(), CFile::createTruncate | CFile::accessWrite);
    ASSERT_TRUE(file);
    fill(*file, text);
}

/// Also while somebody writes to it.
inline std::string readFile(const CString& path) {
    constexpr uint32_t shared = CFile::openExisting | CFile::accessRead | CFile::shareRead | CFile::shareWrite;
    const TSharedPtr<IFile> file = CFile::Create(path.c_str(), shared);
    if (!file) return "(cannot be opened)";
    std::string text(static_cast<size_t>(file->GetSize()), 0);
    text.resize(file->Read(text.data(), static_cast<uint32_t>(text.size())));
    return text;
}

}  // namespace qv::test
