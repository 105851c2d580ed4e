// Background pictures of pages: their list, their checksums, and files of their own.
#include "measurement/rcal/backgrounds.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "core/text.h"
#include "measurement/rcal/document.h"
#include "measurement/rcal/files.h"
#include "measurement/whole_file.h"
#include "qv/diagnostic.h"
#include "qv/saf_file.h"

namespace qv {

namespace {

struct TypeWord {
    EDataType type;
    const char16_t* word;
};
/// "Int8" is the unsigned byte, and the word that is written for it.
constexpr TypeWord typeWords[] = {
    {EDataType::int8, u"SInt8"},    {EDataType::uint8, u"Int8"},    {EDataType::uint8, u"UInt8"},
    {EDataType::int16, u"Int16"},   {EDataType::uint16, u"UInt16"}, {EDataType::int32, u"Int32"},
    {EDataType::uint32, u"UInt32"}, {EDataType::int64, u"Int64"},   {EDataType::uint64, u"UInt64"},
    {EDataType::flt32, u"Flt32"},   {EDataType::flt64, u"Flt64"},   {EDataType::rgb24, u"RGB24"},
    {EDataType::rgb48, u"RGB48"},
};

constexpr char16_t byteOrderTag[] = u"BytOrd";
constexpr char16_t lowFirst[] = u"LSBFirst";
constexpr char16_t highFirst[] = u"MSBFirst";

bool refuse(const char16_t* expected, const CString& found) {
    SetDiagnostic(CString(), expected, found);
    return false;
}

/// A tag's number, which may take all of 32 bits; an absent tag leaves it.
bool unsignedTag(const CSAFFile& header, const char16_t* name, uint32_t& value) {
    const char16_t* text = header.GetTagValue(name);
    if (text == nullptr) return true;
    const int64_t number = text::wtoll(text);
    if (number < 0 || number > 0xFFFFFFFF) return refuse(name, text);
    value = static_cast<uint32_t>(number);
    return true;
}

bool describePicture(CSAFFile& header, BACKGROUND_FILE& picture) {
    if (!unsignedTag(header, u"xOffst", picture.xOffset) || !unsignedTag(header, u"yOffst", picture.yOffset) ||
        !unsignedTag(header, u"xPixls", picture.width) || !unsignedTag(header, u"yPixls", picture.height)) {
        return false;
    }
    const char16_t* word = header.GetTagValue(u"DaType");
    picture.type = EDataType::none;
    for (const TypeWord& known : typeWords) {
        if (word != nullptr && CString(word).CompareNoCase(known.word) == 0) picture.type = known.type;
    }
    if (picture.type == EDataType::none) return refuse(u"DaType with an element type", word);
    if (picture.width == 0 || picture.height == 0) return refuse(u"xPixls and yPixls above 0", u"0");
    return true;
}

void reverseElements(ITypedBuffer& pixels) {
    const uint32_t size = DataTypeSize(pixels.type());
    if (pixels.type() == EDataType::rgb24) return;
    uint8_t* const bytes = pixels.uint8();
    for (uint32_t i = 0; size > 1 && i < pixels.size(); ++i) std::reverse(bytes + i * size, bytes + (i + 1) * size);
}

bool samePlace(const BACKGROUND_FILE& a, const BACKGROUND_FILE& b) {
    return a.xOffset == b.xOffset && a.yOffset == b.yOffset && a.width == b.width && a.height == b.height;
}

/// The first picture of the page that fits; null where there is none.
template <class Fits>
const BACKGROUND_FILE* findPicture(const CAL_PAGE* page, Fits fits) {
    if (page == nullptr) return nullptr;
    const auto* found = std::find_if(page->backgroundFiles.begin(), page->backgroundFiles.end(), fits);
    return found == page->backgroundFiles.end() ? nullptr : found;
}
const BACKGROUND_FILE* findAt(const CAL_PAGE* page, uint32_t x, uint32_t y) {
    return findPicture(page, [&](const BACKGROUND_FILE& each) { return each.xOffset == x && each.yOffset == y; });
}
const BACKGROUND_FILE* findAt(const CAL_PAGE* page, uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    BACKGROUND_FILE place;
    place.xOffset = x;
    place.yOffset = y;
    place.width = width;
    place.height = height;
    return findPicture(page, [&](const BACKGROUND_FILE& each) { return samePlace(each, place); });
}

TSharedPtr<ITypedBuffer> pixelsOf(const BACKGROUND_FILE* picture) {
    return picture == nullptr ? TSharedPtr<ITypedBuffer>() : picture->pixels;
}

bool removePicture(CAL_PAGE* page, const BACKGROUND_FILE* picture) {
    return picture != nullptr &&
           page->backgroundFiles.Remove(static_cast<uint32_t>(picture - page->backgroundFiles.begin()));
}

}  // namespace

namespace rcalBackground {

bool hasItsPixels(const BACKGROUND_FILE& picture) {
    return picture.pixels && picture.type < EDataType::rgb48 && picture.pixels->type() == picture.type &&
           picture.pixels->size() == uint64_t{picture.width} * picture.height && picture.pixels->data() != nullptr &&
           uint64_t{picture.pixels->size()} * DataTypeSize(picture.type) <= 0xFFFFFFFF;
}

bool save(const BACKGROUND_FILE& picture, IFile& file) {
    if (!hasItsPixels(picture)) return refuse(u"a background picture with pixels", u"one without");
    CSAFFile header;
    header.New(false);
    header[u"KeyWrd"] = u"IMG";
    header[u"xPixls"] = CString::FromFormat(u"%u", picture.width).c_str();
    header[u"yPixls"] = CString::FromFormat(u"%u", picture.height).c_str();
    header[u"NumDPs"] = 1;
    for (const TypeWord& known : typeWords) {
        if (known.type == picture.type && !header[u"DaType"].Exists()) header[u"DaType"] = known.word;
    }
    header[byteOrderTag] = lowFirst;
    header[u"xOffst"] = CString::FromFormat(u"%u", picture.xOffset).c_str();
    header[u"yOffst"] = CString::FromFormat(u"%u", picture.yOffset).c_str();
    const TSharedPtr<CMemFile> text = CMemFile::Create();
    uint32_t position = 0;
    header.SaveTo(text, position, false);
    if (file.WriteBytes(text->GetData(), text->size()) &&
        file.WriteBytes(picture.pixels->data(), picture.pixels->sizeInBytes())) {
        return true;
    }
    return refuse(u"room for a background picture", u"a short write");
}

bool load(BACKGROUND_FILE& picture, const TSharedPtr<IFile>& file) {
    const int64_t start = file->GetPosition();
    const int64_t size = file->GetRemaining();
    CSAFFile header;
    if (!header.Load(CBoundedFile::Create(file, start, size)) || !describePicture(header, picture)) return false;
    const uint64_t left = static_cast<uint64_t>(size - header.GetDataPosition());
    const uint64_t count = uint64_t{picture.width} * picture.height;
    if (count > left || count * DataTypeSize(picture.type) > left) {
        return refuse(u"the picture's pixels", u"the end of the file");
    }
    if (count <= 0xFFFFFFFF) picture.pixels = AllocTypedBuffer(picture.type, static_cast<uint32_t>(count));
    if (!picture.pixels) return refuse(u"a picture that memory can hold", u"another");
    file->SetPosition(start + header.GetDataPosition());
    if (!file->ReadBytes(picture.pixels->data(), picture.pixels->sizeInBytes())) {
        return refuse(u"the picture's pixels", u"a short read");
    }
    const char16_t* order = header.GetTagValue(byteOrderTag);
    if (order != nullptr && CString(order).CompareNoCase(highFirst) == 0) reverseElements(*picture.pixels);
    return true;
}

}  // namespace rcalBackground

bool CRCalFile::AddBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, const TSharedPtr<ITypedBuffer>& pixels) {
    return AddBackgroundFile(pageIndex, x, y, pixels ? pixels->size() : 0, 1, pixels);
}

bool CRCalFile::AddBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, uint32_t width, uint32_t height,
                                  const TSharedPtr<ITypedBuffer>& pixels) {
    CAL_PAGE* owner = page(pageIndex);
    BACKGROUND_FILE added;
    added.xOffset = x;
    added.yOffset = y;
    added.width = width;
    added.height = height;
    added.type = pixels ? pixels->type() : EDataType::none;
    added.pixels = pixels;
    if (owner == nullptr || !rcalBackground::hasItsPixels(added)) return false;
    const BACKGROUND_FILE* known = findAt(owner, x, y, width, height);
    if (known == nullptr) return owner->backgroundFiles.Add(added);
    owner->backgroundFiles[static_cast<uint32_t>(known - owner->backgroundFiles.begin())] = added;
    return true;
}

bool CRCalFile::RemoveBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y) {
    return removePicture(page(pageIndex), findAt(page(pageIndex), x, y));
}
bool CRCalFile::RemoveBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    return removePicture(page(pageIndex), findAt(page(pageIndex), x, y, width, height));
}

bool CRCalFile::ClearBackgroundFiles(int32_t pageIndex) {
    CAL_PAGE* owner = page(pageIndex);
    if (owner != nullptr) owner->backgroundFiles.Empty();
    return owner != nullptr;
}

bool CRCalFile::HasBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y) const {
    return findAt(page(pageIndex), x, y) != nullptr;
}
bool CRCalFile::HasBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, uint32_t width, uint32_t height) const {
    return findAt(page(pageIndex), x, y, width, height) != nullptr;
}

bool CRCalFile::GetBackgroundFile(int32_t pageIndex, uint32_t index, BACKGROUND_FILE& picture) const {
    const CAL_PAGE* owner = page(pageIndex);
    if (owner == nullptr || index >= owner->backgroundFiles.size()) return false;
    picture = owner->backgroundFiles.data()[index];
    return true;
}
TSharedPtr<ITypedBuffer> CRCalFile::GetBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y) const {
    return pixelsOf(findAt(page(pageIndex), x, y));
}
TSharedPtr<ITypedBuffer> CRCalFile::GetBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, uint32_t width,
                                                      uint32_t height) const {
    return pixelsOf(findAt(page(pageIndex), x, y, width, height));
}

bool CRCalFile::GetBackgroundFileCRC(int32_t pageIndex, uint32_t x, uint32_t y, uint32_t& crc) const {
    const BACKGROUND_FILE* found = findAt(page(pageIndex), x, y);
    if (found == nullptr || !found->pixels) return false;
    // zlib's, since CalcBlockCRC32 follows whatever polynomial the process has set.
    crc = static_cast<uint32_t>(crc32_z(0, found->pixels->uint8(), found->pixels->sizeInBytes()));
    return true;
}

bool CRCalFile::ExportBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, const TSharedPtr<IFile>& file) const {
    const BACKGROUND_FILE* found = findAt(page(pageIndex), x, y);
    return found != nullptr && file && rcalBackground::save(*found, *file);
}
bool CRCalFile::ExportBackgroundFile(int32_t pageIndex, uint32_t x, uint32_t y, IFileSystem* fs,
                                     const char16_t* path) const {
    const BACKGROUND_FILE* found = findAt(page(pageIndex), x, y);
    return found != nullptr &&
           Private::writeWhole(fs, path, [&](const auto& file) { return rcalBackground::save(*found, *file); });
}

bool CRCalFile::ImportBackgroundFile(int32_t pageIndex, const TSharedPtr<IFile>& file) {
    if (page(pageIndex) == nullptr || !file) return false;
    TArray<BACKGROUND_FILE> pictures;
    constexpr char beginning[] = {'H', 'd', 'S', 'i', 'z', 'e'};
    char next[sizeof beginning];
    bool more = true;
    while (more) {
        if (pictures.size() == rcalLimits::mostPicturesOfAFile) {
            return rcalLimits::refuse(u"background pictures", pictures.size(), pictures.size() + 1.0);
        }
        BACKGROUND_FILE picture;
        if (!rcalBackground::load(picture, file) || !pictures.Add(picture)) return false;
        const int64_t end = file->GetPosition();
        more = file->ReadBytes(next, sizeof next) && std::memcmp(next, beginning, sizeof next) == 0;
        file->SetPosition(end);
    }
    for (const BACKGROUND_FILE& each : pictures) {
        if (!AddBackgroundFile(pageIndex, each.xOffset, each.yOffset, each.width, each.height, each.pixels))
            return false;
    }
    return true;
}
bool CRCalFile::ImportBackgroundFile(int32_t pageIndex, IFileSystem* fs, const char16_t* path) {
    if (fs == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file = fs->CreateFileW(path, rcalFiles::openForReading);
    if (!file) return false;
    if (ImportBackgroundFile(pageIndex, file)) return true;
    SetDiagnosticFile(path);
    return false;
}

}  // namespace qv
