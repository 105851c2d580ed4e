#include "qv/multi_page_tiff.h"

#include <new>

#include "images/tiff_library.h"
#include "qv/file_system.h"

namespace qv {

using namespace Private;

struct CMultiPageTIFFFile::State {
    TSharedPtr<IFile> file;
    CString path;  ///< Of a new file that this object made: it goes again when no page comes.
    IFileSystem* fs = nullptr;
    const char* appendMode = nullptr;  ///< How the writer opens the file next; null for reading alone.
    TiffChain chain;
    TiffFile reader;  ///< Stands on `current`; closed by each new page.
    TiffFile writer;
    uint32_t current = 0;

    uint32_t pages() const { return static_cast<uint32_t>(chain.directories().size()); }

    bool select(uint32_t page) {
        if (page >= pages()) {
            return refuse(*file, CString::FromFormat(u"page %u", page), CString::FromFormat(u"%u pages", pages()));
        }
        if (!reader.isOpen()) {
            if (!reader.open(*file, "r")) return reader.fail(u"a TIFF picture");
            current = 0;
        }
        if (current == page) return true;
        current = ~0u;  // nowhere, should the page be damaged
        if (TIFFSetSubDirectory(reader.get(), chain.directories()[page]) == 0) {
            return reader.fail(u"the directory of a page");
        }
        current = page;
        return true;
    }

    bool append(const void* data, uint32_t width, uint32_t height, EDataType type) {
        reader.close();
        const int64_t before = file->GetSize();
        const bool written = (writer.isOpen() || writer.open(*file, appendMode)) &&
                             writeRaw(writer, data, width, height, type) && TIFFWriteDirectory(writer.get()) != 0;
        const uint32_t pagesBefore = pages();
        if (written && (pagesBefore == 0 ? chain.follow(*file) : chain.followOn(*file)) && pages() == pagesBefore + 1) {
            return true;
        }
        return takeBack(before);
    }

    /// Removes what a page that failed has written.
    bool takeBack(int64_t size) {
        writer.abandon();
        writer.fail(u"room for a page");
        const CDiagnostic reason = LastDiagnostic();
        if (pages() == 0) {
            file->SetSize(0);
        } else {
            appendMode = "a";
            chain.endHere(*file);
            file->SetSize(size);
        }
        SetDiagnostic(reason.file, reason.expected, reason.found, reason.byteOffset, reason.line);
        return false;
    }
};

CMultiPageTIFFFile::CMultiPageTIFFFile() = default;
CMultiPageTIFFFile::~CMultiPageTIFFFile() { Close(); }

namespace {

constexpr uint32_t readExisting = CFile::openExisting | CFile::accessRead;
constexpr uint32_t readAndWrite = CFile::accessRead | CFile::accessWrite;

TSharedPtr<IFile> openPath(IFileSystem* fs, const char16_t* path, uint32_t flags) {
    return fs == nullptr || path == nullptr ? TSharedPtr<IFile>() : fs->CreateFileW(path, flags);
}

}  // namespace

bool CMultiPageTIFFFile::Open(const TSharedPtr<IFile>& file) {
    Close();
    if (!file) return false;
    m_state = new (std::nothrow) State;
    if (m_state == nullptr) return false;
    m_state->file = file;
    const bool opened = m_state->reader.open(*file, "r");
    if (!opened) m_state->reader.fail(u"a TIFF picture");
    if (opened && m_state->chain.follow(*file)) return true;
    Close();
    return false;
}

bool CMultiPageTIFFFile::Open(IFileSystem* fs, const char16_t* path) {
    Close();
    const TSharedPtr<IFile> file = openPath(fs, path, readExisting);
    return file && Open(file);
}

bool CMultiPageTIFFFile::Create(const TSharedPtr<IFile>& file, bool big) {
    Close();
    if (!file) return false;
    m_state = new (std::nothrow) State;
    if (m_state == nullptr) return false;
    m_state->file = file;
    m_state->appendMode = big ? "wl8" : "wl";
    if (file->GetSize() <= 0 || file->SetSize(0)) return true;
    refuse(*file, u"a file that can be emptied", u"one that cannot");
    Close();
    return false;
}

bool CMultiPageTIFFFile::Create(IFileSystem* fs, const char16_t* path, bool big) {
    Close();
    const TSharedPtr<IFile> file = openPath(fs, path, CFile::createTruncate | readAndWrite);
    if (!file || !Create(file, big)) return false;
    m_state->fs = fs;
    m_state->path = path;
    return true;
}

bool CMultiPageTIFFFile::OpenToAppend(const TSharedPtr<IFile>& file) {
    if (!Open(file)) return false;
    m_state->appendMode = "a";
    return true;
}

bool CMultiPageTIFFFile::OpenToAppend(IFileSystem* fs, const char16_t* path) {
    Close();
    const TSharedPtr<IFile> file = openPath(fs, path, CFile::openExisting | readAndWrite);
    return file && OpenToAppend(file);
}

bool CMultiPageTIFFFile::Close() {
    if (m_state == nullptr) return true;
    State* const state = m_state;
    m_state = nullptr;
    state->reader.close();
    const bool written = state->writer.close();
    if (state->fs != nullptr && state->pages() == 0) {
        state->file.Release();
        state->fs->DeleteFileW(state->path.c_str());
    }
    delete state;
    return written;
}

uint32_t CMultiPageTIFFFile::GetPageCount() const { return m_state == nullptr ? 0 : m_state->pages(); }

bool CMultiPageTIFFFile::GetPageInfo(uint32_t page, uint32_t& width, uint32_t& height, EDataType& type) {
    TiffPage found;
    if (m_state == nullptr || !m_state->select(page)) return false;
    if (!readPage(m_state->reader, found)) return m_state->reader.fail(u"a page with a size");
    width = found.width;
    height = found.height;
    type = found.type;
    return true;
}

bool CMultiPageTIFFFile::ReadPage(uint32_t page, void* buffer, uint64_t size) {
    return m_state != nullptr && buffer != nullptr && m_state->select(page) && readRaw(m_state->reader, buffer, size);
}

bool CMultiPageTIFFFile::AppendPage(const void* data, uint32_t width, uint32_t height, EDataType type) {
    if (m_state == nullptr || data == nullptr) return false;
    if (m_state->appendMode == nullptr)
        return refuse(*m_state->file, u"a stack that is open for writing", u"one for reading");
    if (!isRawType(type) || width == 0 || height == 0) {
        return refuse(*m_state->file, u"pixels of uint16, flt32, flt64 or rgb24", u"others, or none");
    }
    return m_state->append(data, width, height, type);
}

}  // namespace qv
