// Bytes into the reader of compressed files, in large and small calls and with seeks: the same bytes every way.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/gz_file.h"

namespace {

/// What a reader gives from its position on, at most 1 MiB, in calls of `block` bytes.
std::string readAll(qv::CGZFile& file, uint32_t block) {
    std::string all;
    for (uint32_t got = block; got == block && all.size() < 1 << 20;) {
        const size_t at = all.size();
        all.resize(at + block);
        got = file.Read(all.data() + at, block);
        all.resize(at + got);
    }
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const qv::TSharedPtr<qv::CMemFile> inner = qv::CMemFile::Create();
    inner->WriteBytes(data, static_cast<uint32_t>(size));
    qv::CGZFile file(inner, qv::CFile::accessRead);
    if (file.GetState() == qv::CGZFile::State::unset) return 0;
    const bool raw = file.GetState() == qv::CGZFile::State::raw;
    const std::string whole = readAll(file, 65536);
    if (!raw && file.GetPosition() > file.GetSize()) std::abort();
    file.Seek(0, qv::IFile::fromBegin);
    if (!raw && readAll(file, 777).substr(0, 100'000) != whole.substr(0, 100'000)) std::abort();
    if (raw || whole.empty()) return 0;
    for (const size_t at : {whole.size() / 2, whole.size() / 3, whole.size() - 1}) {
        file.Seek(static_cast<int64_t>(at), qv::IFile::fromBegin);
        if (file.GetBYTE() != static_cast<uint8_t>(whole[at])) std::abort();
    }
    return 0;
}
