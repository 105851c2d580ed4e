// Bytes into the reader of Norm tables, in both byte orders; what loads has substitutes inside its frame and is saved
// to bytes that load to the same. Then into the static readers, with a size taken from the bytes.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qv/file.h"
#include "qv/norm_file.h"

namespace {

using qv::CNormFile;

qv::TSharedPtr<qv::IFile> fileOf(const std::string& bytes, bool swapped) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    swapFlag(*file) = swapped;
    return qv::TSharedPtr<qv::IFile>(file);
}

std::string savedBytes(const CNormFile& norm, bool swapped) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    swapFlag(*file) = swapped;
    if (!norm.Save(qv::TSharedPtr<qv::IFile>(file))) std::abort();
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

void requireInside(const uint32_t* subs, uint32_t pixels) {
    for (uint32_t i = 0; i < pixels; ++i) {
        if (subs[i] >= pixels) std::abort();
    }
}

void loadAndSave(const std::string& bytes, bool swapped) {
    CNormFile norm;
    if (!norm.Load(fileOf(bytes, swapped))) {
        norm.SetupBPSubs();
        return;
    }
    if (const CNormFile::BPINFO map = norm.GetBadPixels(); map.subs != nullptr) {
        requireInside(map.subs, uint32_t{norm.xPixels()} * norm.yPixels());
    }
    const std::string first = savedBytes(norm, swapped);
    CNormFile again;
    if (!again.Load(fileOf(first, swapped)) || savedBytes(again, swapped) != first) std::abort();
}

void loadStatically(const std::string& bytes) {
    const uint32_t width = bytes.size() > 2 ? static_cast<uint8_t>(bytes[2]) : 0;
    const uint32_t height = bytes.size() > 4 ? static_cast<uint8_t>(bytes[4]) / 2u : 0;
    std::vector<float> gains(size_t{width} * height);
    std::vector<int16_t> offsets(gains.size());
    std::vector<uint8_t> flags(gains.size());
    std::vector<uint32_t> subs(gains.size());
    CNormFile::LoadGainTable(fileOf(bytes, false), width, height, gains.data());
    CNormFile::LoadOffsetTable(fileOf(bytes, false), width, height, offsets.data());
    if (CNormFile::LoadBadPixelTable(fileOf(bytes, false), width, height, flags.data(), subs.data())) {
        requireInside(subs.data(), width * height);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    loadAndSave(bytes, false);
    loadAndSave(bytes, true);
    loadStatically(bytes);
    return 0;
}
