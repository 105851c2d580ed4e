#include "qv/gz_file.h"

#define ZLIB_CONST
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "files/seek.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

constexpr uint32_t bufferBytes = 16384;
constexpr char wrapperMagic[4] = {'T', 'G', 'Z', 'F'};
constexpr unsigned char gzipMagic[4] = {31, 139, 8, 0};
constexpr int64_t sizeAt = 6, headerBytes = 14;
constexpr int zlibWindow = 15, gzipWindow = 15 + 16, memoryLevel = 8;

}  // namespace

/// zlib's state, the compressed bytes that wait on one side of it, and room for bytes that nobody wants.
struct CGZFile::Stream {
    z_stream z = {};
    bool deflates = false;
    unsigned char buffer[bufferBytes];
    std::unique_ptr<unsigned char[]> scratch;

    ~Stream() { deflates ? deflateEnd(&z) : inflateEnd(&z); }
};

CGZFile::CGZFile(TSharedPtr<IFile> file, uint32_t flags) {
    const bool reads = (flags & CFile::accessRead) != 0, writes = (flags & CFile::accessWrite) != 0;
    if (!file || reads == writes || writes != (file->GetSize() == 0)) return;
    m_file = file;
    m_file->SeekToBegin();
    reads ? openForReading() : openForWriting();
    if (m_state == State::unset) release();
}

CGZFile::~CGZFile() { Close(); }

TSharedPtr<IFile> CGZFile::Create(TSharedPtr<IFile> file, uint32_t flags) {
    return TSharedPtr<IFile>(new CGZFile(std::move(file), flags));
}

void CGZFile::openForWriting() {
    if (!m_file->WriteBytes(wrapperMagic, sizeof wrapperMagic) || !m_file->PutBYTE(0) || !m_file->PutBYTE(0) ||
        !m_file->PutInt64(0)) {
        SetDiagnostic(CString(), u"room for the header of a compressed file", u"a short write", 0);
        return;
    }
    (void)start(State::writing, zlibWindow);
}

void CGZFile::openForReading() {
    char magic[4] = {};
    const bool read = m_file->ReadBytes(magic, sizeof magic);
    if (read && std::memcmp(magic, wrapperMagic, sizeof magic) == 0) {
        (void)m_file->GetBYTE();
        (void)m_file->GetBYTE();
        if (!m_file->GetInt64(m_size)) m_size = 0;
        m_size = std::max<int64_t>(m_size, 0);
        m_dataOffset = headerBytes;
        (void)start(State::reading, zlibWindow);
    } else if (read && std::memcmp(magic, gzipMagic, sizeof magic) == 0) {
        m_file->Seek(-4, fromEnd);
        int32_t size = 0;
        m_file->GetBOOL(size);
        m_size = static_cast<uint32_t>(size);
        m_file->SeekToBegin();
        (void)start(State::reading, gzipWindow);
    } else {
        m_size = m_file->GetSize();
        m_file->SeekToBegin();
        m_state = State::raw;
    }
}

bool CGZFile::start(State state, int windowBits) {
    auto stream = std::unique_ptr<Stream>(new (std::nothrow) Stream);
    if (stream == nullptr) return false;
    z_stream& z = stream->z;
    stream->deflates = state == State::writing;
    const int result = stream->deflates ? deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, memoryLevel,
                                                       Z_DEFAULT_STRATEGY)
                                        : inflateInit2(&z, windowBits);
    if (result != Z_OK) {
        SetDiagnostic(CString(), u"memory for a compressed file", u"none");
        return false;
    }
    if (stream->deflates) {
        z.next_out = stream->buffer;
        z.avail_out = bufferBytes;
    }
    m_stream = stream.release();
    m_state = state;
    return true;
}

uint32_t CGZFile::Read(void* data, uint32_t count) {
    if (m_state == State::raw) return m_file->Read(data, count);
    if (m_state != State::reading) return 0;
    count = static_cast<uint32_t>(std::clamp<int64_t>(m_size - m_position, 0, count));
    if (count == 0) return 0;
    z_stream& z = m_stream->z;
    z.next_out = static_cast<unsigned char*>(data);
    z.avail_out = count;
    for (int result = Z_OK; result == Z_OK && z.avail_out != 0;) {
        if (z.avail_in == 0) {
            z.next_in = m_stream->buffer;
            z.avail_in = m_file->Read(m_stream->buffer, bufferBytes);
        }
        result = inflate(&z, Z_NO_FLUSH);
    }
    const uint32_t produced = count - z.avail_out;
    m_position += produced;
    if (produced != count) {
        SetDiagnostic(CString(), u"a whole compressed stream",
                      z.msg != nullptr ? CString(CStringMB(z.msg)) : CString(u"its early end"), m_file->GetPosition());
    }
    return produced;
}

/// Hands the compressed bytes to the inner file.
bool CGZFile::drain() {
    z_stream& z = m_stream->z;
    m_failed = m_failed || !m_file->WriteBytes(m_stream->buffer, bufferBytes - z.avail_out);
    z.next_out = m_stream->buffer;
    z.avail_out = bufferBytes;
    if (m_failed) SetDiagnostic(CString(), u"room for compressed data", u"a short write", m_file->GetPosition());
    return !m_failed;
}

uint32_t CGZFile::Write(const void* data, uint32_t count) {
    if (m_state == State::raw) return m_file->Write(data, count);
    if (m_state != State::writing || m_failed) return 0;
    z_stream& z = m_stream->z;
    z.next_in = static_cast<const unsigned char*>(data);
    z.avail_in = count;
    for (int result = Z_OK; result == Z_OK && z.avail_in != 0;) {
        if (z.avail_out == 0 && !drain()) break;
        result = deflate(&z, Z_NO_FLUSH);
    }
    const uint32_t taken = count - z.avail_in;
    m_position += taken;
    m_size += taken;
    return taken;
}

int64_t CGZFile::Seek(int64_t offset, uint32_t origin) {
    if (m_state == State::raw) m_file->Seek(offset, origin);
    int64_t target = 0;
    if (m_state != State::reading || !Private::seekBase(origin, m_position, m_size, target)) return m_position;
    if (__builtin_add_overflow(target, offset, &target)) target = offset < 0 ? 0 : m_size;
    target = std::clamp<int64_t>(target, 0, m_size);
    if (target < m_position) rewind();
    skip(target - m_position);
    return m_position;
}

void CGZFile::rewind() {
    inflateReset(&m_stream->z);
    m_stream->z.avail_in = 0;
    m_file->SetPosition(m_dataOffset);
    m_position = 0;
}

void CGZFile::skip(int64_t count) {
    if (count > 0 && m_stream->scratch == nullptr) {
        m_stream->scratch.reset(new (std::nothrow) unsigned char[bufferBytes]);
        if (m_stream->scratch == nullptr) return;
    }
    while (count > 0) {
        const uint32_t got =
            Read(m_stream->scratch.get(), static_cast<uint32_t>(std::min<int64_t>(count, bufferBytes)));
        if (got == 0) return;
        count -= got;
    }
}

bool CGZFile::SetSize(int64_t) { return false; }

void CGZFile::Flush() {
    if (m_file) m_file->Flush();
}

void CGZFile::finish() {
    z_stream& z = m_stream->z;
    z.avail_in = 0;
    int result = Z_OK;
    while (result == Z_OK && !m_failed) {
        if (z.avail_out == 0 && !drain()) return;
        result = deflate(&z, Z_FINISH);
    }
    if (result != Z_STREAM_END || !drain()) return;
    const int64_t end = m_file->GetPosition();
    if (m_file->SetPosition(sizeAt) != sizeAt || !m_file->PutInt64(m_size)) {
        SetDiagnostic(CString(), u"room for the size of a compressed file", u"a short write", sizeAt);
    }
    m_file->SetPosition(end);
}

void CGZFile::Close() {
    if (!m_file) return;
    if (m_state == State::writing && !m_failed) finish();
    m_file->Close();
    release();
}

/// Back to the unset state.
void CGZFile::release() {
    delete m_stream;
    m_stream = nullptr;
    m_file = TSharedPtr<IFile>();
    m_state = State::unset;
}

char16_t* CGZFile::GetFilename(char16_t* buffer, int bufferChars) {
    if (m_file) return m_file->GetFilename(buffer, bufferChars);
    if (bufferChars > 0) buffer[0] = 0;
    return buffer;
}

IFileSystem& CGZFile::GetFileSystem() {
    if (m_file) return m_file->GetFileSystem();
    return fileSystem();
}

}  // namespace qv
