// Bytes into the reader of structured binary files, once as they are and twice with a header and checksum that fit, for
// a tree and for a tag dictionary; what loads is saved, and what was saved loads again and saves to the same bytes.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/sb_file.h"
#include "qv/tag_file.h"

namespace {

qv::TSharedPtr<qv::IFile> fileOf(const std::string& bytes) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return file;
}

bool save(qv::CSBFile& tree, const qv::TSharedPtr<qv::IFile>& file) { return tree.Save(file); }
bool save(qv::CTagFile& dictionary, const qv::TSharedPtr<qv::IFile>& file) { return dictionary.SaveSBF(file); }

template <class Loaded>
std::string savedBytes(Loaded& loaded) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    if (!save(loaded, qv::TSharedPtr<qv::IFile>(file))) std::abort();
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

template <class Loaded>
void check(const std::string& bytes) {
    Loaded loaded;
    if (!loaded.Load(fileOf(bytes))) return;
    const std::string first = savedBytes(loaded);
    Loaded again;
    if (!again.Load(fileOf(first)) || savedBytes(again) != first) std::abort();
}

void putNumber(std::string& to, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) to += static_cast<char>(value >> (8 * i));
}

/// The file around a content.
std::string wrapped(const std::string& content, const char* identifier) {
    std::string whole = std::string("SBF\x10") + identifier;
    putNumber(whole, content.size(), 8);
    whole += content;
    putNumber(whole, crc32_z(0, reinterpret_cast<const Bytef*>(whole.data()), whole.size()), 4);
    return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string given(reinterpret_cast<const char*>(data), size);
    check<qv::CSBFile>(given);
    check<qv::CSBFile>(wrapped(given, "TEST"));
    check<qv::CTagFile>(wrapped(given, "TAGF"));
    return 0;
}
