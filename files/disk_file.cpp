#include <utility>

#include "files/native_path.h"
#include "files/open_flags.h"
#include "platform/file.h"
#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/log.h"

namespace qv {

namespace {

using platform::FileHandle;

FileHandle native(void* handle) { return static_cast<FileHandle>(reinterpret_cast<intptr_t>(handle)); }
void* carried(FileHandle file) { return reinterpret_cast<void*>(static_cast<intptr_t>(file)); }

/// Hidden, system and temporary say nothing to this platform, so only read-only is left of the attributes.
platform::OpenRequest requestOf(const char* path, uint32_t flags) {
    const Private::Shares shares = Private::sharesOf(flags);
    platform::OpenRequest request{};
    request.path = path;
    request.disposition = Private::dispositionOf(flags);
    request.read = (flags & CFile::accessRead) != 0;
    request.write = (flags & CFile::accessWrite) != 0;
    request.shareRead = shares.read;
    request.shareWrite = shares.write;
    request.readOnly = Private::createsReadOnly(flags);
    request.everyone = (flags & CFile::everyoneMayAccess) != 0;
    request.writeThrough = (flags & CFile::writeThrough) != 0;
    request.append = Private::appendsOnly(flags);
    return request;
}

}  // namespace

TSharedPtr<IFile> CFile::Create(const char16_t* filename, uint32_t flags) {
    TSharedPtr<CFile> file(new CFile);
    if (!file->Open(filename, flags)) return nullptr;
    return file;
}

TSharedPtr<IFile> CFile::Create(void* handle) { return TSharedPtr<IFile>(new CFile(handle)); }

CFile::CFile() = default;
CFile::CFile(void* handle) : m_handle(handle) {}
CFile::CFile(const CFile& other)
    : IFile(other), m_handle(other.m_handle), m_path(other.m_path), m_appends(other.m_appends) {}
CFile::~CFile() { CFile::Close(); }

CFile& CFile::operator=(const CFile& other) {
    if (this == &other) return *this;
    IFile::operator=(other);
    m_handle = other.m_handle;
    m_path = other.m_path;
    m_deleteOnClose = false;
    m_appends = other.m_appends;
    return *this;
}

void CFile::Attach(void* handle) {
    m_handle = handle;
    m_deleteOnClose = m_appends = false;
}

void* CFile::Detach() {
    endAppending();
    m_deleteOnClose = false;
    return std::exchange(m_handle, InvalidHandle());
}

bool CFile::Open(const char16_t* filename, uint32_t flags) {
    if (filename == nullptr) return false;
    Close();
    char16_t full[IFileSystem::pathChars];
    m_path = fileSystem().GetFullPath(full, filename, IFileSystem::pathChars) ? full : filename;
    const std::string path = Private::nativePath(filename);
    const platform::OpenRequest request = requestOf(path.c_str(), flags);
    FileHandle file = platform::invalidFile;
    const int error = platform::openFile(request, file);
    if (error != 0) {
        logOpenFailure(error);
        return false;
    }
    m_handle = carried(file);
    m_deleteOnClose = (flags & deleteOnClose) != 0;
    m_appends = request.append;
    if (flags & append) Seek(0, fromEnd);
    return true;
}

/// The diagnostic comes last: a log whose own file takes nothing leaves another.
void CFile::logOpenFailure(int error) {
    gLog->WriteLine(u"CFile::Open(%s) FAILED.", m_path);
    (void)Private::succeeded(error, m_path.c_str(), u"a file to open");
}

/// For a file whose position is about to leave the end.
void CFile::endAppending() {
    if (std::exchange(m_appends, false)) (void)platform::endAppending(native(m_handle));
}

bool CFile::Remove(const char16_t* filename) { return filename != nullptr && fileSystem().DeleteFileW(filename); }

bool CFile::SetEOF() {
    const int64_t position = GetPosition();
    if (position < 0) return false;
    return Private::succeeded(platform::resizeFile(native(m_handle), position), m_path.c_str(), u"a file to cut here");
}

uint32_t CFile::Write(const void* data, uint32_t count) {
    int error = 0;
    const uint32_t done = platform::writeFile(native(m_handle), data, count, error);
    (void)Private::succeeded(error, m_path.c_str(), u"a file to write to");
    return done;
}

uint32_t CFile::Read(void* data, uint32_t count) {
    int error = 0;
    const uint32_t done = platform::readFile(native(m_handle), data, count, error);
    (void)Private::succeeded(error, m_path.c_str(), u"a file to read from");
    return done;
}

int64_t CFile::GetSize() { return platform::fileSize(native(m_handle)); }
int64_t CFile::GetPosition() { return Seek(0, fromCurrent); }

int64_t CFile::Seek(int64_t offset, uint32_t origin) {
    if (offset != 0 || origin == fromBegin) endAppending();
    switch (origin) {
        case fromBegin: return platform::seekFile(native(m_handle), offset, platform::Origin::begin);
        case fromCurrent: return platform::seekFile(native(m_handle), offset, platform::Origin::current);
        case fromEnd: return platform::seekFile(native(m_handle), offset, platform::Origin::end);
        default: return 0;
    }
}

bool CFile::SetSize(int64_t size) {
    endAppending();
    (void)Private::succeeded(platform::resizeFile(native(m_handle), size), m_path.c_str(), u"a file to resize");
    return true;
}

void CFile::Flush() {
    (void)Private::succeeded(platform::flushFile(native(m_handle)), m_path.c_str(), u"a file to flush");
}

void CFile::Close() {
    if (m_handle == InvalidHandle()) return;
    const FileHandle file = native(std::exchange(m_handle, InvalidHandle()));
    if (std::exchange(m_deleteOnClose, false)) (void)platform::deleteOpenFile(file);
    platform::closeFile(file);
}

char16_t* CFile::GetFilename(char16_t* buffer, int bufferChars) {
    if (bufferChars > 0) StrCpy(buffer, m_path.c_str(), static_cast<size_t>(bufferChars));
    return buffer;
}

IFileSystem& CFile::GetFileSystem() { return fileSystem(); }

}  // namespace qv
