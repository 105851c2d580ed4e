// IFile::Insert and Remove: opening and closing gaps in place.
#include "files/file_editing.h"

#include <algorithm>
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

/// Moves stretches of a file through one buffer.
class Mover {
public:
    /// The buffer holds one step of a file of that size, and no more than `bytesToMove`.
    Mover(IFile& file, int64_t fileSize, int64_t bytesToMove)
        : m_file(file), m_chunk(static_cast<uint32_t>(std::clamp<int64_t>(bytesToMove, 1, chunkFor(fileSize)))) {
        m_buffer.reset(static_cast<uint8_t*>(HeapAlloc(m_chunk)));
    }
    bool hasBuffer() const { return m_buffer != nullptr; }

    /// From the end backward, so that nothing is overwritten before it was read. False when a step came short; `end` is
    /// then where what still stands in its old place ends.
    bool up(int64_t begin, int64_t& end, int64_t by) {
        while (end > begin) {
            const auto step = static_cast<uint32_t>(std::min<int64_t>(end - begin, m_chunk));
            if (!moveStep(end - step, by, step)) return false;
            end -= step;
        }
        return true;
    }

    /// From the beginning forward. False when a step came short; `begin` is then where what still stands in its old
    /// place begins.
    bool down(int64_t& begin, int64_t end, int64_t by) {
        while (begin < end) {
            const auto step = static_cast<uint32_t>(std::min<int64_t>(end - begin, m_chunk));
            if (!moveStep(begin, -by, step)) return false;
            begin += step;
        }
        return true;
    }

private:
    bool readAt(int64_t at, uint32_t count) {
        return m_file.Seek(at, IFile::fromBegin) >= 0 && m_file.Read(m_buffer.get(), count) == count;
    }
    bool writeAt(int64_t at, uint32_t count) {
        return m_file.Seek(at, IFile::fromBegin) >= 0 && m_file.Write(m_buffer.get(), count) == count;
    }

    /// A step that cannot be written whole is put back where it came from, over which part of it may have gone.
    bool moveStep(int64_t from, int64_t by, uint32_t count) {
        if (!readAt(from, count)) {
            setDiagnostic(u"bytes to move", u"a short read", from);
            return false;
        }
        if (writeAt(from + by, count)) return true;
        setDiagnostic(u"room to move the file's contents", u"a short write", from + by);
        (void)writeAt(from, count);
        return false;
    }

    void setDiagnostic(const char16_t* expected, const char16_t* found, int64_t at) {
        char16_t name[IFileSystem::pathChars] = {};
        m_file.GetFilename(name, IFileSystem::pathChars);
        SetDiagnostic(name, expected, found, at);
    }

    IFile& m_file;
    uint32_t m_chunk;
    HeapBlock m_buffer;
};

}  // namespace

Private::EditOutcome Private::openGap(IFile& file, int64_t position, int64_t count) {
    const int64_t size = file.GetSize();
    if (!isGap(position, count) || !isGap(size, count) || count == 0 || position >= size) return EditOutcome::done;
    Mover mover(file, size, size - position);
    if (!mover.hasBuffer()) return EditOutcome::noMemory;
    int64_t end = size;
    if (mover.up(position, end, count)) return EditOutcome::done;
    int64_t moved = end + count;
    if (mover.down(moved, size + count, count)) (void)file.SetSize(size);
    return EditOutcome::refused;
}

Private::EditOutcome Private::closeGap(IFile& file, int64_t position, int64_t count) {
    if (!isGap(position, count)) return EditOutcome::done;
    const int64_t size = file.GetSize();
    Mover mover(file, size, size - position - count);
    if (!mover.hasBuffer()) return EditOutcome::noMemory;
    int64_t begin = position + count;
    const int64_t cut = std::max(size, begin) - count;
    if (mover.down(begin, size, count)) {
        (void)file.SetSize(cut);
        return EditOutcome::done;
    }
    int64_t end = begin - count;
    (void)mover.up(position, end, count);
    return EditOutcome::refused;
}

bool IFile::Remove(int64_t position, int64_t count) {
    return Private::closeGap(*this, position, count) != Private::EditOutcome::noMemory;
}

bool IFile::Insert(int64_t position, int64_t count) {
    return Private::openGap(*this, position, count) != Private::EditOutcome::noMemory;
}

}  // namespace qv
