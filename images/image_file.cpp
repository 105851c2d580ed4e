// Pictures of any format.
#include <array>

#include "images/formats.h"
#include "images/picture_file.h"
#include "measurement/whole_file.h"
#include "qv/file_system.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

constexpr uint32_t readExisting = CFile::openExisting | CFile::accessRead;

/// A format: how it is known, read and loaded. In the order in which they are tried.
struct Format {
    bool (*is)(const TSharedPtr<IFile>&);
    bool (*readInfo)(IFile&, SImageInfo&);
    bool (*load)(const TSharedPtr<IFile>&, const CPropertyArray&, SBitmap&);
};

constexpr std::array<Format, 4> formats{{
    {IsBMP, readBMPInfo,
     [](const TSharedPtr<IFile>& file, const CPropertyArray&, SBitmap& bitmap) { return LoadBMP(file, bitmap); }},
    {IsPNG, readPNGInfo, LoadPNG},
    {IsJPEG, readJPEGInfo,
     [](const TSharedPtr<IFile>& file, const CPropertyArray&, SBitmap& bitmap) { return LoadJPEG(file, bitmap); }},
    {IsTIFF, readTIFFInfo,
     [](const TSharedPtr<IFile>& file, const CPropertyArray&, SBitmap& bitmap) { return LoadTIFF(file, bitmap); }},
}};

/// Null when the file is no picture.
const Format* formatOf(const TSharedPtr<IFile>& file) {
    for (const Format& format : formats) {
        if (format.is(file)) return &format;
    }
    return nullptr;
}

bool refuseOther(IFile& file) { return refuse(file, u"a BMP, PNG, JPEG or TIFF picture", u"something else", 0); }

TSharedPtr<IFile> open(IFileSystem* fs, const char16_t* path) {
    return fs == nullptr || path == nullptr ? TSharedPtr<IFile>() : fs->CreateFileW(path, readExisting);
}

/// Runs `call` on the file at a path, whose name goes into the diagnostic of a failure.
template <class Call>
bool withFile(IFileSystem* fs, const char16_t* path, Call call) {
    const TSharedPtr<IFile> file = open(fs, path);
    if (!file) return false;
    if (call(file)) return true;
    SetDiagnosticFile(path);
    return false;
}

HBITMAP handleOf(bool loaded, const SBitmap& bitmap) { return loaded ? bitmap.handle : nullptr; }

using Save = bool (*)(HBITMAP, const TSharedPtr<IFile>&, const CPropertyArray&);

Save saverOf(const char16_t* path) {
    constexpr struct {
        const char16_t* extension;
        Save save;
    } savers[] = {
        {u".png", SavePNG}, {u".jpeg", SaveJPEG}, {u".jpg", SaveJPEG}, {u".tiff", SaveTIFF}, {u".tif", SaveTIFF}};
    const CString extension(IFileSystem::GetExtension(path));
    for (const auto& known : savers) {
        if (extension.CompareNoCase(known.extension) == 0) return known.save;
    }
    return SaveBMP;
}

}  // namespace

bool IsImageFile(const TSharedPtr<IFile>& file) { return formatOf(file) != nullptr; }

bool IsImageFile(IFileSystem* fs, const char16_t* path) {
    const TSharedPtr<IFile> file = open(fs, path);
    return file && IsImageFile(file);
}

bool GetImageInfo(const TSharedPtr<IFile>& file, SImageInfo& info) {
    info = SImageInfo();
    if (!file) return false;
    const Format* const format = formatOf(file);
    if (format == nullptr) return refuseOther(*file);
    if (format->readInfo(*file, info)) return true;
    info = SImageInfo();
    return refuse(*file, u"the whole header of a picture", u"a damaged one");
}

bool LoadBitmapW(const TSharedPtr<IFile>& file, SBitmap& bitmap) { return LoadBitmapW(file, CPropertyArray(), bitmap); }

bool LoadBitmapW(const TSharedPtr<IFile>& file, const CPropertyArray& properties, SBitmap& bitmap) {
    DestroyBitmap(bitmap);
    if (!file) return false;
    const Format* const format = formatOf(file);
    return format == nullptr ? refuseOther(*file) : format->load(file, properties, bitmap);
}

bool LoadBitmapW(IFileSystem* fs, const char16_t* path, SBitmap& bitmap) {
    return LoadBitmapW(fs, path, CPropertyArray(), bitmap);
}

bool LoadBitmapW(IFileSystem* fs, const char16_t* path, const CPropertyArray& properties, SBitmap& bitmap) {
    DestroyBitmap(bitmap);
    return withFile(fs, path, [&](const TSharedPtr<IFile>& file) { return LoadBitmapW(file, properties, bitmap); });
}

HBITMAP LoadHBITMAP(const TSharedPtr<IFile>& file) { return LoadHBITMAP(file, CPropertyArray()); }

HBITMAP LoadHBITMAP(const TSharedPtr<IFile>& file, const CPropertyArray& properties) {
    SBitmap bitmap;
    return handleOf(LoadBitmapW(file, properties, bitmap), bitmap);
}

HBITMAP LoadHBITMAP(IFileSystem* fs, const char16_t* path) { return LoadHBITMAP(fs, path, CPropertyArray()); }

HBITMAP LoadHBITMAP(IFileSystem* fs, const char16_t* path, const CPropertyArray& properties) {
    SBitmap bitmap;
    return handleOf(LoadBitmapW(fs, path, properties, bitmap), bitmap);
}

bool SaveHBITMAP(HBITMAP bitmap, const TSharedPtr<IFile>& file) { return SaveHBITMAP(bitmap, file, CPropertyArray()); }

bool SaveHBITMAP(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties) {
    return file && saverOf(nameOf(*file).c_str())(bitmap, file, properties);
}

bool SaveHBITMAP(HBITMAP bitmap, IFileSystem* fs, const char16_t* path) {
    return SaveHBITMAP(bitmap, fs, path, CPropertyArray());
}

bool SaveHBITMAP(HBITMAP bitmap, IFileSystem* fs, const char16_t* path, const CPropertyArray& properties) {
    if (bitmap == nullptr || path == nullptr) return false;
    const Save save = saverOf(path);
    return writeWhole(fs, path, [&](const TSharedPtr<IFile>& file) { return save(bitmap, file, properties); });
}

bool RadiometricJPEG(IFileSystem* fs, const char16_t* path, const TSharedPtr<IFile>& payload) {
    return withFile(fs, path, [&](const TSharedPtr<IFile>& file) { return RadiometricJPEG(file, payload); });
}

}  // namespace qv
