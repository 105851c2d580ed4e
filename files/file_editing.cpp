// IFile::Insert and Remove: opening and closing gaps in place.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/memory.h"

namespace qv {

namespace {

struct HeapBlockDeleter {
    void operator()(uint8_t* block) const { HeapFree(block); }
};
using HeapBlock = std::unique_ptr<uint8_t, HeapBlockDeleter>;

/// Large files take large steps, so that they need few.
constexpr uint32_t chunkFor(int64_t fileSize) {
    if (fileSize <= 0xA00000) return 0x80000;
    if (fileSize <= 0x1900000) return 0x100000;
    if (fileSize <= 0x3200000) return 0x200000;
    return 0x500000;
}

/// Bytes that a file can have. Beyond them, positions overflow; a gap of negative size would be filled for ever.
constexpr bool isGap(int64_t position, int64_t count) {
    return position >= 0 && count >= 0 && count <= std::numeric_limits<int64_t>::max() - position;
}

void setMoveDiagnostic(IFile& file, int64_t at) {
    char16_t name[IFileSystem::pathChars] = {};
    file.GetFilename(name, IFileSystem::pathChars);
    SetDiagnostic(name, u"room to move the file's contents", u"a short write", at);
}

enum class Moved { chunk, nothing, refused };

/// Copies up to `count` bytes from `from` to `to`; `count` becomes the bytes that were read.
Moved moveChunk(IFile& file, uint8_t* buffer, int64_t from, int64_t to, uint32_t& count) {
    file.Seek(from, IFile::fromBegin);
    count = file.Read(buffer, count);
    if (count == 0) return Moved::nothing;
    file.Seek(to, IFile::fromBegin);
    if (file.Write(buffer, count) == count) return Moved::chunk;
    setMoveDiagnostic(file, to);
    return Moved::refused;
}

}  // namespace

bool IFile::Remove(int64_t position, int64_t count) {
    if (!isGap(position, count)) return true;
    const uint32_t chunk = chunkFor(GetSize());
    const HeapBlock buffer(static_cast<uint8_t*>(HeapAlloc(chunk)));
    if (buffer == nullptr) return false;
    int64_t from = position + count;
    int64_t to = position;
    for (;;) {
        uint32_t step = chunk;
        const Moved moved = moveChunk(*this, buffer.get(), from, to, step);
        if (moved == Moved::refused) return true;
        if (moved == Moved::nothing) break;
        from += step;
        to += step;
    }
    (void)SetSize(to);
    return true;
}

bool IFile::Insert(int64_t position, int64_t count) {
    const int64_t size = GetSize();
    if (!isGap(position, count) || !isGap(size, count)) return true;
    const uint32_t chunk = chunkFor(size);
    const HeapBlock buffer(static_cast<uint8_t*>(HeapAlloc(chunk)));
    if (buffer == nullptr) return false;
    // From the end backward, so that nothing is overwritten before it was read.
    for (int64_t end = size; end > position;) {
        auto step = static_cast<uint32_t>(std::min<int64_t>(end - position, chunk));
        end -= step;
        if (moveChunk(*this, buffer.get(), end, end + count, step) == Moved::refused) break;
    }
    return true;
}

}  // namespace qv
