// Bytes into the reader of structured binary files, once as they are and once with a header and checksum that fit; what
// loads is saved, and what was saved loads again and saves to the same bytes.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/sb_file.h"

namespace {

qv::TSharedPtr<qv::IFile> fileOf(const std::string& bytes) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return file;
}

std::string savedBytes(const qv::CSBFile& tree) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    if (!tree.Save(qv::TSharedPtr<qv::IFile>(file))) std::abort();
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

void check(const std::string& bytes) {
    qv::CSBFile tree;
    if (!tree.Load(fileOf(bytes))) return;
    const std::string first = savedBytes(tree);
    qv::CSBFile again;
    if (!again.Load(fileOf(first)) || savedBytes(again) != first) std::abort();
}

void putNumber(std::string& to, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) to += static_cast<char>(value >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string given(reinterpret_cast<const char*>(data), size);
    check(given);
    std::string whole = "SBF\x10TEST";
    putNumber(whole, size, 8);
    whole += given;
    putNumber(whole, crc32_z(0, reinterpret_cast<const Bytef*>(whole.data()), whole.size()), 4);
    check(whole);
    return 0;
}
