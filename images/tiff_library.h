// libtiff over IFile: a file handle that keeps the library's texts, what a page is, and the chain of pages.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "images/picture_file.h"
#include "qv/image.h"

namespace qv::Private {

/// No strip or table of a file is larger than this, unless the file is or can hold what its page says.
constexpr uint64_t believedBytes = uint64_t{1} << 28;

/// An open TIFF file. The IFile has to outlive it. Does not move.
class TiffFile {
public:
    TiffFile() = default;
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;
    ~TiffFile() { close(); }

    /// @param mode     As TIFFOpen takes it; "w" empties the file first.
    /// @param largest  Bytes that the library may hold at once, where that is more than it may for any file.
    bool open(IFile& file, const char* mode, uint64_t largest = 0);
    /// False when the last bytes could not be written.
    bool close();
    /// Closes without writing another byte.
    void abandon();
    bool isOpen() const { return m_tiff != nullptr; }

    TIFF* get() const { return m_tiff; }
    IFile& file() const { return *m_file; }
    uint64_t size() const;
    /// Sets the diagnostic to what the library said last; always false.
    bool fail(const char16_t* expected) const;
    /// Sets the diagnostic to the first warning, if there was one.
    void tellWarning() const;

    /// For the library's callbacks.
    bool mayWrite() const { return !m_abandoned; }
    /// A read got less than it wanted. The library takes a file to be appended to for a new one then, and would write a
    /// header over it.
    void cameShort() { m_abandoned = m_abandoned || m_appends; }
    /// A seek failed. The library would write where the file stands.
    void lostPlace() { m_abandoned = m_abandoned || m_writes; }
    void keepError(const char* format, va_list arguments);
    void keepWarning(const char* format, va_list arguments);

private:
    IFile* m_file = nullptr;
    TIFF* m_tiff = nullptr;
    bool m_abandoned = false;
    bool m_writes = false;
    bool m_appends = false;
    char m_error[256] = {};
    char m_warning[256] = {};
};

/// A page as its tags describe it.
struct TiffPage {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t bits = 1;
    uint16_t samples = 1;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    uint16_t format = SAMPLEFORMAT_UINT;
    uint16_t compression = COMPRESSION_NONE;
    bool separate = false;             ///< Each sample in a plane of its own.
    EDataType type = EDataType::none;  ///< `none`: not one of the raw kinds.

    uint64_t rawBytes() const { return uint64_t{width} * height * DataTypeSize(type); }
    /// Of the samples, whatever they are; all that 64 bits can say where that is not enough.
    uint64_t storedBytes() const {
        const uint64_t pixels = uint64_t{width} * height, pixelBits = uint64_t{samples} * bits;
        return pixels < UINT64_MAX / (pixelBits + 1) ? pixels * pixelBits / 8 : UINT64_MAX;
    }
};

/// Reads the tags of the present page. False without a size.
bool readPage(const TiffFile& tiff, TiffPage& page);
/// Whether the file can hold as many pixels as the page says; a diagnostic where not.
bool isPlausible(const TiffFile& tiff, const TiffPage& page);
/// Reads the values of the present page, row by row; refuses pages that are not raw, and small buffers.
bool readRaw(const TiffFile& tiff, void* buffer, uint64_t size);
/// Whether pages of this type can be written.
bool isRawType(EDataType type);
/// Writes a page's tags and values; its directory is left to the caller.
bool writeRaw(const TiffFile& tiff, const void* data, uint32_t width, uint32_t height, EDataType type);
/// The tags of a page of a raw type.
void writeTags(TIFF* tiff, uint32_t width, uint32_t height, EDataType type);

/// The chain of directories of a TIFF file, one for each page.
class TiffChain {
public:
    /// Follows the chain from the file's header. A diagnostic where it leads nowhere or runs in a circle.
    bool follow(IFile& file);
    /// Follows what was appended since; where that fails, nothing has changed.
    bool followOn(IFile& file);
    /// Cuts off what stands behind the last directory that was followed.
    bool endHere(IFile& file) const;

    const std::vector<uint64_t>& directories() const { return m_directories; }
    /// How many there were when it was last followed, those in front of a break included.
    uint32_t reached() const { return m_reached; }

private:
    bool readNumber(IFile& file, uint64_t at, uint32_t bytes, uint64_t& value) const;
    bool fail(IFile& file, uint64_t at) const;

    bool m_bigEndian = false;
    bool m_big = false;
    uint32_t m_reached = 0;
    uint64_t m_link = 0;  ///< Where the place of the next directory stands.
    std::vector<uint64_t> m_directories;
    std::unordered_set<uint64_t> m_seen;  ///< The same, to know a circle by.
};

}  // namespace qv::Private
