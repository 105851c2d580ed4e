#include <algorithm>
#include <limits>
#include <utility>

#include "files/seek.h"
#include "qv/file.h"

namespace qv {

namespace {
/// The sum, held to the range of the type.
int64_t addHeld(int64_t a, int64_t b) {
    int64_t sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return b < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}
}  // namespace

CBoundedFile::CBoundedFile() = default;
CBoundedFile::CBoundedFile(TSharedPtr<IFile> file, int64_t start, int64_t size)
    : m_file(std::move(file)), m_start(start), m_size(size) {}
CBoundedFile::CBoundedFile(const CBoundedFile&) = default;
CBoundedFile& CBoundedFile::operator=(const CBoundedFile&) = default;
CBoundedFile::~CBoundedFile() = default;

TSharedPtr<IFile> CBoundedFile::Create(TSharedPtr<IFile> file, int64_t start, int64_t size) {
    return TSharedPtr<IFile>(new CBoundedFile(std::move(file), start, size));
}

/// What of `count` bytes from the position lies in the window.
uint32_t CBoundedFile::clip(uint32_t count) const {
    return static_cast<uint32_t>(std::clamp<int64_t>(m_size - m_position, 0, count));
}

/// False where there is nothing to read or write: no file, or a place in front of its beginning.
bool CBoundedFile::seekUnderlying() {
    const int64_t at = addHeld(m_start, m_position);
    if (!m_file || at < 0) return false;
    m_file->Seek(at, fromBegin);
    return true;
}

uint32_t CBoundedFile::Read(void* data, uint32_t count) {
    if (!seekUnderlying()) return 0;
    const uint32_t done = m_file->Read(data, clip(count));
    m_position += done;
    return done;
}

uint32_t CBoundedFile::Write(const void* data, uint32_t count) {
    if (!seekUnderlying()) return 0;
    const uint32_t done = m_file->Write(data, clip(count));
    m_position += done;
    return done;
}

int64_t CBoundedFile::Seek(int64_t offset, uint32_t origin) {
    int64_t base = 0;
    if (!Private::seekBase(origin, m_position, m_size, base)) return m_position;
    m_position = std::clamp<int64_t>(addHeld(base, offset), 0, std::max<int64_t>(m_size, 0));
    return m_position;
}

int64_t CBoundedFile::GetSize() { return m_size; }
int64_t CBoundedFile::GetPosition() { return m_position; }
bool CBoundedFile::SetSize(int64_t) { return false; }
IFileSystem& CBoundedFile::GetFileSystem() { return fileSystem(); }
void CBoundedFile::Close() {}

void CBoundedFile::Flush() {
    if (m_file) m_file->Flush();
}

char16_t* CBoundedFile::GetFilename(char16_t* buffer, int bufferChars) {
    if (bufferChars > 0) buffer[0] = 0;
    return buffer;
}

}  // namespace qv
