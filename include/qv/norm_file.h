// CNormFile: one pixel-correction table of a sensor (a gain or an offset per pixel, or a bad-pixel map with the
// substitute of each pixel) and its file. Start with New or Load; the static functions move tables between files and
// the caller's buffers.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"

namespace qv {

class IFileSystem;

/// A correction table and its header.
///
/// Tables are row by row: pixel (x, y) stands at y * width + x. A corrected pixel is counts * gain + offset; a bad
/// pixel shows the value of its substitute.
/// Failure: false with a diagnostic, nothing logged. A failed Load leaves the header and the whole tables read so far;
/// Destroy clears them.
/// Hostile files: no table is allocated before the file is known to hold its bytes.
/// Sizes: a table has to stay below 4 GiB to be held; the static functions take any.
/// Threads: none of it is thread-safe.
///
/// The file. Integers and the float are little-endian, or big-endian when the IFile swaps; texts and tables never swap.
///
///     byte   0   version, 2 in every new file; what stands from byte 26 on is there only when it is above 1
///            1   FILE_TYPE
///            2   16 bits: xPixels
///            4   16 bits: yPixels
///            6   16 bits: subframe
///            8   time stamp: the first nine UTF-16 characters of "DDD:HH:MM:SS.ffff", so "DDD:HH:MM"
///           26   calType
///           27   second flag, 1
///           28   third flag, 1
///           29   16 bits: numAvg
///           31   32-bit float: bpTol
///           35   three text fields of 64 UTF-16 characters
///          419   the table (at byte 26 in version 1)
///
///     gain       x * y 32-bit floats
///     offset     x * y signed 16-bit integers
///     bad pixel  x * y flag bytes, then, when the version is above 1, x * y unsigned 32-bit substitute indexes
///
/// A flag is 0 for a good pixel and 1 for a bad one that wants a substitute; any other value is left alone: such a
/// pixel gets no substitute and is none. A substitute is the index of the pixel to use in place of this one, which is
/// the pixel's own index where there is nothing to replace.
class QV_API CNormFile {
public:
    enum FILE_TYPE : uint8_t { TYPE_GAIN = 0, TYPE_OFFSET = 1, TYPE_BAD_PIXEL = 2, TYPE_NONE = 3 };

    /// The header. Of the time stamp and of each text the file keeps the first half; the rest reads as zeros.
    struct SFileHeader {
        uint8_t version = 2;
        FILE_TYPE type = TYPE_NONE;
        uint16_t xPixels = 0;  ///< Width.
        uint16_t yPixels = 0;  ///< Height.
        uint16_t subframe = 0;
        char16_t timeStamp[18] = {};  ///< "DDD:HH:MM:SS.ffff" in local time; the day of the year counts from 1.
        uint8_t calType = 0;          ///< From here on 0 when the file's version has no such field.
        uint8_t flag2 = 0;            ///< 1 in new files; without meaning here.
        uint8_t flag3 = 0;            ///< Likewise.
        uint16_t numAvg = 0;          ///< Frames averaged.
        float bpTol = 0.0F;           ///< Tolerance of the bad-pixel search.
        char16_t text1[128] = {};     ///< Carried without meaning; empty in new files.
        char16_t text2[128] = {};
        char16_t text3[128] = {};
    };

    /// A bad-pixel table: x * y flags and substitutes, owned by the CNormFile, and the tolerance.
    struct BPINFO {
        uint8_t* flags = nullptr;
        uint32_t* subs = nullptr;
        double tolerance = 0.0;
    };
    static const BPINFO NULL_BPINFO;  ///< No table.

    /// Makes a fresh table in place of the present one: gains of 1, offsets of 0, or a map without bad pixels. Version
    /// 2, stamped with the present time, both flags 1, texts empty.
    /// @return  False, with the object destroyed, for any other type and without memory.
    bool New(FILE_TYPE type, uint16_t xPixels, uint16_t yPixels, uint16_t subframe, uint8_t calType, uint16_t numAvg,
             float bpTol);

    /// Replaces the object by what the file holds from its position on. Where the version has no substitutes, or one
    /// of them is no pixel of the frame, they are made anew (SetupBPSubs).
    /// @return  False for a type above 2 and for a file that ends early.
    bool Load(TSharedPtr<IFile> file);
    bool Load(IFileSystem* fileSystem, const char16_t* path);

    /// Writes header and table at the file's position, in the version that was loaded; version 1 has no room for
    /// substitutes. False, with nothing written and no file made, when there is no whole table.
    bool Save(TSharedPtr<IFile> file) const;
    bool Save(IFileSystem* fileSystem, const char16_t* path) const;

    /// Frees the tables; the type is TYPE_NONE then, and the rest of the header stays.
    void Destroy();

    FILE_TYPE GetType() const { return m_header.type; }
    uint16_t xPixels() const { return m_header.xPixels; }
    uint16_t yPixels() const { return m_header.yPixels; }
    uint16_t subframe() const { return m_header.subframe; }
    uint8_t calType() const { return m_header.calType; }
    uint16_t numAvg() const { return m_header.numAvg; }
    double bpTol() const { return m_bpTol; }
    const SFileHeader& GetHeader() const { return m_header; }

    /// The table, xPixels() * yPixels() elements, valid until New, Load or Destroy; null when the type is another.
    float* GetGains() { return GetType() == TYPE_GAIN ? m_gains.data() : nullptr; }
    int16_t* GetOffsets() { return GetType() == TYPE_OFFSET ? m_offsets.data() : nullptr; }
    /// NULL_BPINFO, with a tolerance of 0, when the type is another.
    BPINFO GetBadPixels() {
        return GetType() == TYPE_BAD_PIXEL ? BPINFO{m_flags.data(), m_subs.data(), m_bpTol} : NULL_BPINFO;
    }

    /// Makes the substitutes anew from the flags. False unless the object holds a bad-pixel table.
    bool SetupBPSubs();

    /// Gives each pixel of flag 1 the first good pixel among: above, left, below, right; above-left, above-right,
    /// below-left, below-right; then rings of growing size. All other pixels get their own index.
    ///
    /// Ring k = 0, 1, ... 18 has the side s = 5 + 2k (the last is 41) and begins at (x - 2 - k, y - 2 - k). The search
    /// goes s steps right, s steps down, s - 1 steps left, and up until 16 + 8k steps are made, and looks after each
    /// step. It is not centred: it reaches one column and one row further to the right and below. Of a ring only pixels
    /// count that lie at least one pixel inside every edge of the frame.
    /// @param flags, subs  width * height elements each, fewer than 2^32.
    static void SetupBPSubs(const uint8_t* flags, uint32_t* subs, uint32_t width, uint32_t height);

    /// A header for a new file, stamped with the present time: calType 3, both flags 1, numAvg 10, bpTol 0.5.
    /// @return  False, with an empty header, for a type above TYPE_BAD_PIXEL.
    static bool NewHeader(SFileHeader& header, FILE_TYPE type, uint16_t xPixels, uint16_t yPixels, uint16_t subframe);
    /// Reads or writes the header at the file's position. False when it comes short.
    static bool ReadHeader(TSharedPtr<IFile> file, SFileHeader& header);
    static bool WriteHeader(TSharedPtr<IFile> file, const SFileHeader& header);

    // Tables straight from and to the caller's buffers of width * height elements ---------------------------------
    // Loading: the file has to be of the right type and of that width, and at least as high; the first `height` rows
    // are read. Substitutes that the file does not have, or of which one is no pixel of those rows, are made anew.
    // When the file is higher than what is asked for, its substitutes are read from the byte (its height - height) of
    // the file, not from where they stand.
    // Saving: the header of NewHeader, then the table; the substitutes are written twice, and readers take the first.
    // All are false when anything comes short or a size is above 65535.

    static bool LoadGainTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, float* gains);
    static bool LoadGainTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                              float* gains);
    static bool LoadOffsetTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, int16_t* offsets);
    static bool LoadOffsetTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                                int16_t* offsets);
    static bool LoadBadPixelTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint8_t* flags,
                                  uint32_t* subs);
    static bool LoadBadPixelTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                                  uint8_t* flags, uint32_t* subs);

    static bool SaveGainTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint16_t subframe,
                              const float* gains);
    static bool SaveGainTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                              uint16_t subframe, const float* gains);
    static bool SaveOffsetTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint16_t subframe,
                                const int16_t* offsets);
    static bool SaveOffsetTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                                uint16_t subframe, const int16_t* offsets);
    static bool SaveBadPixelTable(TSharedPtr<IFile> file, uint32_t width, uint32_t height, uint16_t subframe,
                                  const uint8_t* flags, const uint32_t* subs);
    static bool SaveBadPixelTable(IFileSystem* fileSystem, const char16_t* path, uint32_t width, uint32_t height,
                                  uint16_t subframe, const uint8_t* flags, const uint32_t* subs);

private:
    uint32_t pixelCount() const { return uint32_t{m_header.xPixels} * m_header.yPixels; }
    bool loadTables(IFile& file);
    /// The table of the type is there with all its pixels.
    bool isWhole() const;

    SFileHeader m_header;
    double m_bpTol = 0.0;
    // The table of the type is there, the others are empty.
    TSimpleArray<float> m_gains;
    TSimpleArray<int16_t> m_offsets;
    TSimpleArray<uint8_t> m_flags;
    TSimpleArray<uint32_t> m_subs;
};

}  // namespace qv
