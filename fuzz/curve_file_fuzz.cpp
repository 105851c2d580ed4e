// Curve files: any bytes read as both formats.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/spectral.h"

namespace {

/// A file system with one file in it, whatever its name.
class OneFile : public qv::IFileSystem {
public:
    OneFile(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    qv::TSharedPtr<qv::IFile> CreateFileW(const char16_t*, uint32_t) override {
        auto file = qv::TSharedPtr<qv::IFile>(new qv::CMemFile());
        file->Write(m_data, static_cast<uint32_t>(m_size));
        file->SeekToBegin();
        return file;
    }
    CDirectoryListing GetDirectoryListing(const char16_t*, const char16_t*) override { return {}; }
    CDirectoryEntry GetFileInfo(const char16_t*) override { return {}; }
    bool GetFullPath(char16_t*, const char16_t*, int) override { return false; }
    bool DeleteFileW(const char16_t*) override { return false; }
    bool CreateDirectoryW(const char16_t*, bool) override { return false; }
    bool RemoveDirectoryW(const char16_t*, bool) override { return false; }
    bool SetCurrentWorkingDirectory(const char16_t*) override { return false; }
    bool GetCurrentWorkingDirectory(char16_t*, int) override { return false; }

private:
    const uint8_t* m_data;
    size_t m_size;
};

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    OneFile files(data, size);
    qv::TArray<double> x, y, z;
    qv::ReadXYFile(x, y, &files, u"curve");
    require(x.size() == y.size() && x.size() <= size);
    qv::ReadModtranFile(x, y, z, &files, u"curve");
    require(x.size() == y.size() && y.size() == z.size() && x.size() <= size);
    return 0;
}
