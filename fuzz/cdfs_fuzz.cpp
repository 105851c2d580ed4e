// Bytes as the host of a CDFS container. What opens is listed and read, changed and opened again with what it held.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "qv/cd_file_system.h"

namespace {

/// A file system of one file in memory.
class OneFile : public qv::CFlatFileSystem {
public:
    explicit OneFile(const std::string& bytes) : m_file(qv::CMemFile::Create()) {
        m_file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
        CDirectoryEntry entry;
        qv::StrCpy(entry.name, u"host", pathChars);
        qv::StrCpy(entry.path, u"/host", pathChars);
        entry.type = typeFile;
        addEntry(entry);
    }
    qv::TSharedPtr<qv::IFile> CreateFileW(const char16_t*, uint32_t) override {
        m_file->SeekToBegin();
        return m_file;
    }
    bool DeleteFileW(const char16_t*) override { return false; }

private:
    qv::TSharedPtr<qv::CMemFile> m_file;
};

using Contents = std::map<std::string, std::string>;

/// The first bytes of the files that can be found by their own paths.
Contents contentsOf(qv::CCDFileSystem& container, const char16_t* directory, int depth) {
    Contents contents;
    if (depth > 8) return contents;
    for (const auto& entry : container.GetDirectoryListing(directory, nullptr).entries) {
        if (entry.type == qv::IFileSystem::typeDirectory) {
            contents.merge(contentsOf(container, entry.path, depth + 1));
            continue;
        }
        const auto file = container.CreateFileW(entry.path, qv::CFile::openExisting);
        if (!file) continue;
        std::string bytes(1000, '\0');
        bytes.resize(file->Read(bytes.data(), 1000));
        contents[qv::CStringMB(entry.path).c_str()] = bytes;
        if (contents.size() > 100) break;
    }
    return contents;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    OneFile host(std::string(reinterpret_cast<const char*>(data), size));
    qv::CCDFileSystem container;
    if (!container.Open(&host, u"host", true)) return 0;
    (void)contentsOf(container, u"/", 0);
    if (!container.Open(&host, u"host", false)) return 0;  // a table may tell of room that the host does not have
    {
        const auto file = container.CreateFileW(u"/new", qv::CFile::createTruncate);
        if (file) (void)file->WriteZeros(5000);
    }
    (void)container.DeleteFileW(u"/a.txt");
    container.Close();
    return 0;
}
