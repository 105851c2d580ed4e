// Bytes into every loader of pictures: BMP, PNG, 16-bit PNG, JPEG with its measurement, TIFF as a picture, as values
// and page by page. What the loaders take is held to what they promise.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qv/file.h"
#include "qv/image.h"
#include "qv/multi_page_tiff.h"

namespace {

using namespace qv;

constexpr uint64_t mostPixels = 1 << 22;  ///< Larger pictures are right, and slow.

TSharedPtr<IFile> fileOf(const std::string& bytes) {
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    return TSharedPtr<IFile>(file);
}

void require(bool holds) {
    if (!holds) std::abort();
}

void load(const TSharedPtr<IFile>& file, bool known, const SImageInfo& info) {
    SBitmap bitmap;
    const TSharedPtr<IFile> payload = fileOf("");
    if (known && uint64_t{info.width} * info.height > mostPixels) return;
    if (LoadBitmapW(file, bitmap)) {
        require(bitmap.width == info.width && bitmap.height == info.height);
        require(info.whole || info.format == EImageFormat::tiff);  // whose further pages may be lost
    } else {
        require(bitmap.handle == nullptr && bitmap.pixels == nullptr && bitmap.width == 0);
    }
    DestroyBitmap(bitmap);
    if (info.format == EImageFormat::jpeg) RadiometricJPEG(file, payload);
}

void loadValues(const TSharedPtr<IFile>& file) {
    std::vector<uint16_t> buffer(4096);
    const auto size = static_cast<uint32_t>(buffer.size() * sizeof buffer[0]);
    LoadPNG16(file, buffer.data(), size);
    LoadTIFFRaw(file, buffer.data(), size);
    CMultiPageTIFFFile stack;
    if (!stack.Open(file)) return;
    const uint32_t pages = stack.GetPageCount() < 50 ? stack.GetPageCount() : 50;
    for (uint32_t i = 0; i < pages; ++i) stack.ReadPage(i, buffer.data(), size);
}

void moveSegments(const TSharedPtr<IFile>& file) {
    SRadiometricInfo info;
    if (!GetRadiometricInfo(file, info)) return;
    const TSharedPtr<IFile> stripped = fileOf(""), wrapped = fileOf(""), payload = fileOf("some payload"),
                            back = fileOf("");
    require(StripRadiometricJPEG(file, stripped) && GetRadiometricInfo(stripped, info) && info.segments == 0);
    require(WrapRadiometricJPEG(file, payload, wrapped) && UnwrapRadiometricJPEG(wrapped, back));
    require(back->GetSize() == 12);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const TSharedPtr<IFile> file = fileOf({reinterpret_cast<const char*>(data), size});
    SImageInfo info;
    load(file, GetImageInfo(file, info), info);
    loadValues(file);
    moveSegments(file);
    return 0;
}
