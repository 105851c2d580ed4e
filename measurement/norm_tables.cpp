// CNormFile: tables straight from and to the caller's buffers.
#include "measurement/norm_format.h"
#include "measurement/whole_file.h"

namespace qv {

namespace {

using Private::writeWhole;
using Private::norm::readFile;
using Private::norm::readTable;
using Private::norm::writeTable;
using FILE_TYPE = CNormFile::FILE_TYPE;
using SFileHeader = CNormFile::SFileHeader;

/// Reads the header and says whether a table of that type and size can be had from the file.
bool readFittingHeader(const TSharedPtr<IFile>& file, FILE_TYPE type, uint32_t width, uint32_t height,
                       SFileHeader& header) {
    if (!CNormFile::ReadHeader(file, header)) return false;
    if (header.type == type && header.xPixels == width && header.yPixels >= height) return true;
    SetDiagnostic(CString(),
                  CString::FromFormat(u"a table of type %d, %u pixels wide, %u or more high", type, width, height),
                  CString::FromFormat(u"type %d, %u by %u", header.type, header.xPixels, header.yPixels), 1);
    return false;
}

template <class T>
bool load(const TSharedPtr<IFile>& file, FILE_TYPE type, uint32_t width, uint32_t height, T* table) {
    SFileHeader header;
    return readFittingHeader(file, type, width, height, header) &&
           readTable(*file, table, uint64_t{width} * height * sizeof(T));
}

bool writeNewHeader(const TSharedPtr<IFile>& file, FILE_TYPE type, uint32_t width, uint32_t height, uint16_t subframe) {
    SFileHeader header;
    return width <= 0xFFFF && height <= 0xFFFF &&
           CNormFile::NewHeader(header, type, static_cast<uint16_t>(width), static_cast<uint16_t>(height), subframe) &&
           CNormFile::WriteHeader(file, header);
}

template <class T>
bool save(const TSharedPtr<IFile>& file, FILE_TYPE type, uint32_t width, uint32_t height, uint16_t subframe,
          const T* table) {
    return writeNewHeader(file, type, width, height, subframe) &&
           writeTable(*file, table, uint64_t{width} * height * sizeof(T));
}

}  // namespace

// Gain and offset tables differ in nothing but type and element.
#define QV_DEFINE_TABLE_FORMS(Name, type, Element)                                                                   \
    bool CNormFile::Load##Name(TSharedPtr<IFile> file, uint32_t width, uint32_t height, Element* table) {            \
        return load(file, type, width, height, table);                                                               \
    }                                                                                                                \
    bool CNormFile::Load##Name(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,       \
                               Element* table) {                                                                     \
        return readFile(fileSystem, path, [&](const auto& file) { return load(file, type, width, height, table); }); \
    }                                                                                                                \
    bool CNormFile::Save##Name(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint16_t subframe,           \
                               const Element* table) {                                                               \
        return save(file, type, width, height, subframe, table);                                                     \
    }                                                                                                                \
    bool CNormFile::Save##Name(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,       \
                               uint16_t subframe, const Element* table) {                                            \
        return writeWhole(fileSystem, path,                                                                          \
                          [&](const auto& file) { return save(file, type, width, height, subframe, table); });       \
    }
QV_DEFINE_TABLE_FORMS(GainTable, TYPE_GAIN, float)
QV_DEFINE_TABLE_FORMS(OffsetTable, TYPE_OFFSET, int16_t)
#undef QV_DEFINE_TABLE_FORMS

bool CNormFile::LoadBadPixelTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint8_t* flags,
                                  uint32_t* subs) {
    SFileHeader header;
    if (!readFittingHeader(file, TYPE_BAD_PIXEL, width, height, header)) return false;
    const uint32_t pixels = width * height;  // both fit the header's 16 bits
    if (!readTable(*file, flags, pixels)) return false;
    if (header.yPixels != height) file->Seek(header.yPixels - height, IFile::fromBegin);
    const bool stored = header.version > 1;
    if (stored && !readTable(*file, subs, uint64_t{pixels} * sizeof *subs)) return false;
    if (!stored || !Private::norm::areValid(subs, pixels)) SetupBPSubs(flags, subs, width, height);
    return true;
}

bool CNormFile::LoadBadPixelTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                                  uint8_t* flags, uint32_t* subs) {
    return readFile(fileSystem, path,
                    [&](const auto& file) { return LoadBadPixelTable(file, width, height, flags, subs); });
}

bool CNormFile::SaveBadPixelTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint16_t subframe,
                                  const uint8_t* flags, const uint32_t* subs) {
    const uint64_t subsBytes = uint64_t{width} * height * sizeof *subs;
    return save(file, TYPE_BAD_PIXEL, width, height, subframe, flags) && writeTable(*file, subs, subsBytes) &&
           writeTable(*file, subs, subsBytes);
}

bool CNormFile::SaveBadPixelTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                                  uint16_t subframe, const uint8_t* flags, const uint32_t* subs) {
    return writeWhole(fileSystem, path,
                      [&](const auto& file) { return SaveBadPixelTable(file, width, height, subframe, flags, subs); });
}

}  // namespace qv
