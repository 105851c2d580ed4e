// A header of the older form is imported; its include file and background picture are the same bytes. What comes of it
// is exported, and imported again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/rcal_file.h"
#include "qv/saf_file.h"

namespace {

/// A folder with files that the headers of the corpus name.
struct Folder {
    qv::CString path = qv::fileSystem().CreateTempDirectory();
    ~Folder() { qv::fileSystem().RemoveDirectoryW(path.c_str(), true); }
    qv::CString file(const char16_t* name) const { return qv::IFileSystem::MakePath(path, name); }
    void write(const char16_t* name, const uint8_t* data, size_t size) const {
        const qv::TSharedPtr<qv::IFile> file = qv::fileSystem().CreateFileW(this->file(name).c_str(), 0x28);
        if (file) file->WriteBytes(data, static_cast<uint32_t>(size));
    }
};

/// The header asks for a band whose top-hat has tens of thousands of points: it takes a second and shows nothing that a
/// narrow one does not.
bool isSlow(const qv::TSharedPtr<qv::IFile>& file) {
    constexpr double widestMicrons = 16.0;
    qv::CSAFFile header;
    const char16_t* high = header.Load(file) ? header.GetTagValue(u"SBPUp") : nullptr;
    return high != nullptr && std::atof(qv::CStringMB(high).c_str()) > widestMicrons;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const qv::TSharedPtr<qv::CMemFile> header = qv::CMemFile::Create();
    header->WriteBytes(data, static_cast<uint32_t>(size));
    header->SeekToBegin();
    if (isSlow(header)) return 0;
    static const Folder folder;
    for (const char16_t* name : {u"a.cal", u"a.inc", u"a.bgimg"}) folder.write(name, data, size);
    qv::CRCalFile calibration;
    calibration.calPages().Add();
    const qv::TSharedPtr<qv::CMemFile> picture = qv::CMemFile::Create();
    picture->WriteBytes(data, static_cast<uint32_t>(size));
    picture->SeekToBegin();
    calibration.ImportBackgroundFile(0, picture);
    if (!calibration.Import(&qv::fileSystem(), folder.file(u"a.cal").c_str())) return 0;
    const qv::CString exported = folder.file(u"b.cal");
    if (!calibration.Export(&qv::fileSystem(), exported.c_str())) std::abort();
    qv::CRCalFile again;
    if (!again.Import(&qv::fileSystem(), exported.c_str())) std::abort();
    if (again.calPages().getCount() != calibration.calPages().getCount()) std::abort();
    return 0;
}
