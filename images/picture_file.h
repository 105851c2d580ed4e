// What the picture formats share: files under decoders that are written in C, the measure of a header's promises, and
// the rows of a bitmap.
#pragma once

#include <csetjmp>
#include <cstdint>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/image.h"

namespace qv::Private {

/// The file's own name; empty when it has none.
CString nameOf(IFile& file);

/// Sets the diagnostic; always false.
bool refuse(IFile& file, const CString& expected, const CString& found, int64_t byteOffset = -1);

/// IFile for callers that no exception may pass: one that is thrown counts as a failure.
uint32_t readQuietly(IFile& file, void* data, uint32_t count) noexcept;
uint32_t writeQuietly(IFile& file, const void* data, uint32_t count) noexcept;
bool seekQuietly(IFile& file, int64_t offset, uint32_t origin) noexcept;
int64_t sizeQuietly(IFile& file) noexcept;
int64_t positionQuietly(IFile& file) noexcept;

/// Runs `body`, which calls a library that reports failure by a longjmp to `place`. The jump leaves `body` without
/// running destructors: nothing in it, nor in the library's callbacks at the moment of the jump, may have one.
/// @return  False when it jumped.
template <class Body>
[[gnu::noinline]] bool guarded(std::jmp_buf& place, Body&& body) {
    if (setjmp(place) != 0) return false;
    body();
    return true;
}

/// Pictures of up to this many pixels are believed without a look at the file's size.
constexpr uint64_t believedPixels = uint64_t{1} << 24;

/// Whether `stored` bytes of a file can be compressed from `wanted` by a method that makes at most `ratio` of one.
constexpr bool canHold(uint64_t stored, uint64_t ratio, uint64_t wanted) { return wanted / ratio <= stored; }

/// A load that has not succeeded yet: unless it is kept, the bitmap goes again.
class PendingBitmap {
public:
    explicit PendingBitmap(SBitmap& bitmap) : m_bitmap(bitmap) { DestroyBitmap(bitmap); }
    PendingBitmap(const PendingBitmap&) = delete;
    PendingBitmap& operator=(const PendingBitmap&) = delete;
    ~PendingBitmap() {
        if (!m_kept) DestroyBitmap(m_bitmap);
    }
    bool keep() { return m_kept = true; }

private:
    SBitmap& m_bitmap;
    bool m_kept = false;
};

inline uint8_t* rowOf(const SBitmap& bitmap, uint32_t y) { return bitmap.pixels + size_t{y} * bitmap.bytesPerRow; }

/// The rows of a bitmap of any depth as blue, green, red.
class PixelRows {
public:
    explicit PixelRows(HBITMAP bitmap);
    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }
    /// width() * 3 bytes; good until the next call.
    const uint8_t* row(uint32_t y);

private:
    HBITMAP m_bitmap;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_bytesPerRow = 0;
    const uint8_t* m_pixels = nullptr;  ///< Of a bitmap that has these rows already.
    std::vector<uint8_t> m_converted;
};

/// Reads ahead in a file, so that a decoder's small reads cost no call of their own. Has no destructor.
struct ReadAhead {
    IFile* file = nullptr;
    uint32_t at = 0;
    uint32_t end = 0;
    uint8_t bytes[16384];

    /// The count of bytes read; short at the file's end.
    uint32_t read(uint8_t* out, uint32_t count) noexcept;
};

/// Gathers small writes. Has no destructor: flush() at the end.
struct WriteBehind {
    IFile* file = nullptr;
    uint32_t used = 0;
    uint8_t bytes[16384];

    bool write(const uint8_t* data, uint32_t count) noexcept;
    bool flush() noexcept;
};

/// Cuts the file at its position: what an older content had behind a picture goes. False with a diagnostic.
bool endPictureHere(IFile& file);

/// The value of a property as a number, `missing` when it is not there.
int numberOf(const CPropertyArray& properties, const char16_t* name, int missing);

}  // namespace qv::Private
