// Bytes into both readers of containers: every stream is read, then streams are written, grown, cut, added and removed.
// The container never grows by more than what was written, what was saved opens again, and saving that changes nothing.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/aff_file.h"
#include "qv/kmr_file.h"

namespace {

constexpr int64_t mostGrowth = 16384;

/// Hands out one file whatever the path.
class OneFile : public qv::CFileSystem {
public:
    OneFile(const uint8_t* data, size_t size) { m_file.WriteBytes(data, static_cast<uint32_t>(size)); }
    qv::TSharedPtr<qv::IFile> CreateFileW(const char16_t*, uint32_t) override {
        return qv::TSharedPtr<qv::IFile>(&m_file, qv::TSharedPtr<qv::IFile>::notOwned());
    }
    int64_t size() const { return m_file.size(); }
    std::string bytes() const { return {reinterpret_cast<const char*>(m_file.data()), m_file.size()}; }

private:
    qv::CMemFile m_file;
};

void require(bool holds) {
    if (!holds) std::abort();
}

bool open(qv::CAFFFile& file, OneFile& disk) { return file.Open(&disk, u"c", false); }
bool open(qv::CKMRFile& file, OneFile& disk) { return file.Open(&disk, u"c", true) && file.ReOpenForWrite(); }

template <class File>
void readAll(File& file, int64_t containerSize) {
    for (uint32_t i = 0; i < file.nIndices(); ++i) {
        qv::IFile& stream = file.GetIndex(i)->file;
        int64_t sum = 0;
        uint8_t block[4096];
        while (const uint32_t got = stream.Read(block, sizeof block)) sum += got;
        require(sum == stream.GetSize() && sum <= containerSize);
    }
}

template <class File>
void change(File& file) {
    const uint32_t count = file.nIndices();
    for (uint32_t i = 0; i < count && i < 8; ++i) {
        auto& index = *file.GetIndex(i);
        const int64_t size = index.size;
        index.file.Seek(size / 2, qv::IFile::fromBegin);
        index.file.Write("12345678", 8);
        index.file.Seek(-1, qv::IFile::fromEnd);
        index.file.Write("12345678", 8);
        (void)index.file.SetSize(i % 2 == 0 ? size + 100 : size / 2);
    }
    for (uint32_t i = 0; i < 5; ++i) {
        const uint32_t position = file.CreateIndex(1, 1, 1, File::automaticId);
        if (position != File::notFound) file.GetIndex(position)->file.Write("new", 3);
    }
    (void)file.RemoveIndex(0);
}

template <class File>
void check(const uint8_t* data, size_t size) {
    OneFile disk(data, size);
    File file;
    if (!open(file, disk)) {
        require(disk.size() == static_cast<int64_t>(size));
        return;
    }
    readAll(file, disk.size());
    change(file);
    require(disk.size() <= static_cast<int64_t>(size) + mostGrowth);
    const bool saved = file.Close();
    const std::string first = disk.bytes();
    if (!saved || !open(file, disk)) return;  // a 101st slot
    readAll(file, disk.size());
    require(file.Close() && disk.bytes() == first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    check<qv::CAFFFile>(data, size);
    check<qv::CKMRFile>(data, size);
    return 0;
}
