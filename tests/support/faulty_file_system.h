// A file system whose operations fail when they are told to.
#pragma once

#include <cstdint>
#include <limits>

#include "qv/file.h"
#include "qv/file_system.h"

namespace qv::test {

/// Passes everything on to another file system; the n-th operation does nothing and says so. Paths, which are text
/// alone, do not count.
class FaultyFileSystem : public IFileSystem {
public:
    explicit FaultyFileSystem(IFileSystem& inner) : m_inner(inner) {}

    /// Counted from 1.
    void failAt(uint64_t n) { m_fails = m_operations + n; }
    bool hasFailed() const { return m_operations >= m_fails; }

    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override {
        return strikes() ? nullptr : m_inner.CreateFileW(path, flags);
    }
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override {
        return strikes() ? CDirectoryListing(this, directory) : m_inner.GetDirectoryListing(directory, pattern);
    }
    CDirectoryEntry GetFileInfo(const char16_t* path) override {
        return strikes() ? CDirectoryEntry() : m_inner.GetFileInfo(path);
    }
    bool SetFileAttributesW(const char16_t* path, uint32_t attributes) override {
        return !strikes() && m_inner.SetFileAttributesW(path, attributes);
    }
    bool SetFileModifiedTime(const char16_t* path, CDateTime time) override {
        return !strikes() && m_inner.SetFileModifiedTime(path, time);
    }
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override {
        return m_inner.GetFullPath(buffer, path, bufferChars);
    }
    bool DeleteFileW(const char16_t* path) override { return !strikes() && m_inner.DeleteFileW(path); }
    bool CreateDirectoryW(const char16_t* path, bool recursive) override {
        return !strikes() && m_inner.CreateDirectoryW(path, recursive);
    }
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override {
        return !strikes() && m_inner.RemoveDirectoryW(path, recursive);
    }
    bool SetCurrentWorkingDirectory(const char16_t* path) override {
        return !strikes() && m_inner.SetCurrentWorkingDirectory(path);
    }
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override {
        return m_inner.GetCurrentWorkingDirectory(buffer, bufferChars);
    }

private:
    bool strikes() { return ++m_operations == m_fails; }

    IFileSystem& m_inner;
    uint64_t m_operations = 0;
    uint64_t m_fails = std::numeric_limits<uint64_t>::max();
};

}  // namespace qv::test
