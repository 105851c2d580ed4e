// Pictures: BMP, JPEG, PNG and TIFF files loaded and saved through IFile, and the radiometric JPEG, a picture that
// carries its measurement. Start with LoadBitmapW and SaveHBITMAP; pictures of several pages are in multi_page_tiff.h.
//
// What holds for all of them:
//   Files       A picture is a whole file: it is read and written from the file's beginning, and a save cuts off what
//               the file had behind it. Windows onto other files (CBoundedFile) are files, too. Forms with a path open
//               it in the given file system; a save that fails leaves no file there.
//   Failure     false or null. The reason, a decoder's own words among it, is in LastDiagnostic(); a warning of a
//               decoder that went on goes there as well, and nothing is printed. After a failed load the SBitmap is
//               zeroed and its bitmap released. A save to an IFile that fails leaves its contents undefined.
//   Cut files   A picture that lacks pixels is a failed load, not a picture in part.
//   Pixels      Every load gives 24 bits for a pixel: blue, green, red. Colour profiles, gamma and EXIF orientation
//               are not applied.
//   Hostile     No memory is taken for pixels that the file cannot hold: a header's size is weighed against what the
//               file's compression could at best put into its bytes, and memory is used as rows arrive. A JPEG of more
//               than 2^24 pixels has to have a byte for every 512 of them.
//   Threads     The functions keep no state; calls on different files may run at the same time. A bitmap's reference
//               count is atomic, its pixels are not guarded.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/property_array.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"
#include "qv/typed_data.h"

namespace qv {

class IFileSystem;

namespace platform {
struct Bitmap;
}

// Bitmaps --------------------------------------------------------------------------------------------------------

/// A bitmap of the system: a block of pixels with a reference count. Null is none.
///
/// Ownership: a function that returns an HBITMAP gives its caller one reference, to be given back by ReleaseBitmap; one
/// that takes an HBITMAP only looks at it.
using HBITMAP = platform::Bitmap*;

/// A bitmap's pixels and the reference that keeps them.
///
/// Rows run from the top of the picture to the bottom, `bytesPerRow` apart, each padded to four bytes. 24 bits: blue,
/// green, red. 32 bits: blue, green, red and a byte without meaning. 16 bits: five bits each, blue in the lowest. 1, 4
/// and 8 bits: levels of grey from black to white, the leftmost pixel in the highest bits.
/// Ownership: holds one reference on `handle`. A copy of the structure has no reference of its own, so only one of the
/// two is destroyed. Functions that fill an SBitmap release what it held before.
struct SBitmap {
    uint32_t width = 0;   ///< Pixels.
    uint32_t height = 0;  ///< Rows.
    uint32_t bytesPerRow = 0;
    uint8_t* pixels = nullptr;  ///< The top left pixel; valid as long as the bitmap lives.
    HBITMAP handle = nullptr;
};

/// Zeroes the structure without releasing anything.
QV_API void InitBitmap(SBitmap& bitmap);
/// Makes a black bitmap.
/// @param width, height  At least 1 and at most 2^31 - 1; a row has to stay below 4 GiB.
/// @param bits           1, 4, 8, 16, 24 or 32 for a pixel.
/// @return  False, with `bitmap` zeroed, for other sizes and without memory.
QV_API bool CreateBitmap(uint32_t width, uint32_t height, uint32_t bits, SBitmap& bitmap);
/// Gives back the reference and zeroes the structure.
QV_API void DestroyBitmap(SBitmap& bitmap);

/// One more reference; returns the bitmap. Null is allowed.
QV_API HBITMAP RetainBitmap(HBITMAP bitmap);
/// One reference less; the last one frees the pixels. Null is allowed.
QV_API void ReleaseBitmap(HBITMAP bitmap);
/// Fills `out` with the bitmap's pixels and a further reference, which DestroyBitmap gives back. False for null.
QV_API bool GetBitmap(HBITMAP bitmap, SBitmap& out);
/// Bits of a pixel; 0 for null.
QV_API uint32_t GetBitmapBits(HBITMAP bitmap);

// Recognising ----------------------------------------------------------------------------------------------------
// By the file's contents; the position afterwards is the file's beginning. None of them leaves a diagnostic.

/// "BM" and a picture header of one of the known sizes.
QV_API bool IsBMP(const TSharedPtr<IFile>& file);
/// Whether the JPEG header reads up to the picture.
QV_API bool IsJPEG(const TSharedPtr<IFile>& file);
/// The eight bytes of the signature.
QV_API bool IsPNG(const TSharedPtr<IFile>& file);
/// A byte-order mark ("MM", "II", "EP" or "PE"), the version 42 (or 43, of files beyond 4 GiB) in that order, and a
/// header that libtiff takes.
QV_API bool IsTIFF(const TSharedPtr<IFile>& file);

/// Tries BMP, PNG, JPEG and TIFF in this order.
QV_API bool IsImageFile(const TSharedPtr<IFile>& file);
QV_API bool IsImageFile(IFileSystem* fs, const char16_t* path);

enum class EImageFormat : int32_t { none = 0, bmp = 1, png = 2, jpeg = 3, tiff = 4 };

/// What a picture's header says.
struct SImageInfo {
    EImageFormat format = EImageFormat::none;
    uint32_t width = 0;   ///< Pixels.
    uint32_t height = 0;  ///< Rows.
    /// In the file: 8 in a JPEG, 1 to 16 in a PNG, any number in a TIFF; in a BMP 8 with 24 and 32 bits, 5 with 16.
    uint32_t bitsPerSample = 0;
    uint32_t samples = 0;  ///< Channels of a pixel, alpha included; 1 with a palette.
    bool palette = false;  ///< The sample is the index of a colour.
    uint32_t pages = 0;    ///< 1 but for TIFF.
    EDataType dataType =
        EDataType::none;  ///< What LoadTIFFRaw or LoadPNG16 gives of it; `none` where they take it not.
    /// False, with a diagnostic, when the file is too short for the pixels of its (first) page however well they are
    /// compressed, or when the chain of a TIFF's pages is broken: `pages` are those in front of the break then.
    bool whole = false;
};

/// Reads the header of a picture, without its pixels.
/// @return  False, with `info` as it was after construction, for what is no picture.
QV_API bool GetImageInfo(const TSharedPtr<IFile>& file, SImageInfo& info);

// Loading --------------------------------------------------------------------------------------------------------

/// Loads a picture of whatever format; recognised in the order of IsImageFile.
/// @param properties  Handed to LoadPNG.
QV_API bool LoadBitmapW(const TSharedPtr<IFile>& file, SBitmap& bitmap);
QV_API bool LoadBitmapW(const TSharedPtr<IFile>& file, const CPropertyArray& properties, SBitmap& bitmap);
QV_API bool LoadBitmapW(IFileSystem* fs, const char16_t* path, SBitmap& bitmap);
QV_API bool LoadBitmapW(IFileSystem* fs, const char16_t* path, const CPropertyArray& properties, SBitmap& bitmap);

/// The same with the bitmap alone; null on failure.
QV_API HBITMAP LoadHBITMAP(const TSharedPtr<IFile>& file);
QV_API HBITMAP LoadHBITMAP(const TSharedPtr<IFile>& file, const CPropertyArray& properties);
QV_API HBITMAP LoadHBITMAP(IFileSystem* fs, const char16_t* path);
QV_API HBITMAP LoadHBITMAP(IFileSystem* fs, const char16_t* path, const CPropertyArray& properties);

/// 1, 2, 4, 8, 16, 24 and 32 bits, bottom-up and top-down, with core headers and those of 40 to 124 bytes, RLE4 and
/// RLE8, and bit fields. Alpha is ignored. Pixels that a run-length coded picture skips are black; indexes behind the
/// palette's end, too.
QV_API bool LoadBMP(const TSharedPtr<IFile>& file, SBitmap& bitmap);

/// @param payload  Receives, when it is given, the data of all KVOR segments in the order in which they stand in the
///                 file, written from its present position. A CMemFile is set to their size first, which may be 0;
///                 another file keeps what it holds behind them. The index bytes are not looked at.
QV_API bool LoadJPEG(const TSharedPtr<IFile>& file, SBitmap& bitmap, const TSharedPtr<IFile>& payload = nullptr);

/// Any PNG; samples of 16 bits are scaled to 8. What is transparent is composed over a background: the property
/// "BackgroundColor", "#RRGGBB" or a number (red + 256 * green + 65536 * blue), else white. The file's own
/// background and gamma are not used.
QV_API bool LoadPNG(const TSharedPtr<IFile>& file, const CPropertyArray& properties, SBitmap& bitmap);

/// Loads a picture of 16-bit grey values, interlaced or not, without a change.
/// @param buffer  Receives width * height values, row by row from the top.
/// @param size    Bytes of the buffer.
/// @return  False with the word "Not a 16-bit file", "Not what you're expecting" (colours, or an alpha channel),
///          "Buffer too small" or "Read Error" in the diagnostic; the buffer may be filled in part after the last.
QV_API bool LoadPNG16(const TSharedPtr<IFile>& file, uint16_t* buffer, uint32_t size);

/// The first page of whatever libtiff can show as colours, alpha composed over white. The orientation tag is applied,
/// but for the quarter turns of its values 5 to 8, which count as 1 to 4.
QV_API bool LoadTIFF(const TSharedPtr<IFile>& file, SBitmap& bitmap);

/// Loads the values of the first page without a change; the machine's byte order. Strips or tiles, planes together or
/// apart, any compression that libtiff has. Rows stand as in the file: the orientation tag is not applied.
/// @param buffer  Receives width * height elements of the type that GetTIFFInfo gives, row by row.
/// @param size    Bytes of the buffer; false when they do not suffice.
QV_API bool LoadTIFFRaw(const TSharedPtr<IFile>& file, void* buffer, uint32_t size);

/// Size and element type of the first page.
/// @param type   uint16, flt32, flt64 or rgb24; `none` for pixels of another kind, which LoadTIFFRaw does not take.
/// @param pages  Number of pages.
QV_API bool GetTIFFInfo(const TSharedPtr<IFile>& file, uint32_t& width, uint32_t& height, EDataType& type);
QV_API bool GetTIFFInfo(const TSharedPtr<IFile>& file, uint32_t& width, uint32_t& height, EDataType& type,
                        uint32_t& pages);

// Saving ---------------------------------------------------------------------------------------------------------

/// Saves in the format that the extension of the path names, whatever its case: ".png"; ".jpeg" and ".jpg"; ".tiff"
/// and ".tif"; anything else is a BMP. The forms without a path go by the file's own name; one without a name is a BMP.
/// @param properties  Handed to the format's function.
QV_API bool SaveHBITMAP(HBITMAP bitmap, const TSharedPtr<IFile>& file);
QV_API bool SaveHBITMAP(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties);
QV_API bool SaveHBITMAP(HBITMAP bitmap, IFileSystem* fs, const char16_t* path);
QV_API bool SaveHBITMAP(HBITMAP bitmap, IFileSystem* fs, const char16_t* path, const CPropertyArray& properties);

/// A header of 40 bytes, rows from the bottom up. Properties:
///     "bits"         1, 4, 8, 16, 24 or 32; else the bitmap's own. With 8 and fewer the picture's colours go into a
///                    palette; false when it has more of them than fit.
///     "compression"  "rle": run-length coded, with 4 or 8 bits; else none
///     "topDown"      1: rows from the top down, where they are not run-length coded
QV_API bool SaveBMP(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties = {});
/// 8 bits of red, green and blue. Property "compression": zlib's level, 0 to 9; else zlib's default.
QV_API bool SavePNG(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties = {});
/// 8 bits of red, green and blue, uncompressed, little-endian, with the Software tag "Tesnorik".
QV_API bool SaveTIFF(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties = {});
/// Property "quality": 0 to 100; else, or when it is above 100, libjpeg's default.
/// @param payload  Its whole contents go, from its beginning, into KVOR segments; a null or empty one writes none.
QV_API bool SaveJPEG(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties = {});
QV_API bool SaveJPEG(HBITMAP bitmap, const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload,
                     const CPropertyArray& properties = {});

/// Grey values of 16 bits, the counterpart of LoadPNG16.
/// @param data        width * height values, row by row from the top.
/// @param properties  As for SavePNG.
QV_API bool SavePNG16(const TSharedPtr<IFile>& file, const uint16_t* data, uint32_t width, uint32_t height,
                      const CPropertyArray& properties = {});
QV_API bool SavePNG16(IFileSystem* fs, const char16_t* path, const uint16_t* data, uint32_t width, uint32_t height,
                      const CPropertyArray& properties = {});

/// The counterpart of LoadTIFFRaw: uncompressed, little-endian, with the tags of SaveTIFF.
/// @param data  width * height elements, row by row from the top.
/// @param type  uint16, flt32, flt64 or rgb24; false for any other.
QV_API bool SaveTIFFRaw(const TSharedPtr<IFile>& file, const void* data, uint32_t width, uint32_t height,
                        EDataType type);
QV_API bool SaveTIFFRaw(IFileSystem* fs, const char16_t* path, const void* data, uint32_t width, uint32_t height,
                        EDataType type);
/// On the disk.
QV_API bool SaveTIFFRaw(const char16_t* path, const void* data, uint32_t width, uint32_t height, EDataType type);

// The radiometric JPEG -------------------------------------------------------------------------------------------
// The measurement file that a picture was made from travels in the picture's APP1 segments of the name KVOR, as
// docs/formats/radiometric_jpeg.md lays out.

/// A payload of this many bytes or fewer is metadata, not a measurement.
constexpr uint32_t largestMetadata = 3864;

/// Takes the measurement out of a picture. The file has to decode as a whole, as with LoadJPEG.
/// @param payload  Written from its beginning; a CMemFile is set to the measurement's size, another file keeps what it
///                 holds behind it.
/// @return  Whether the file is a JPEG and the payload then holds more than `largestMetadata` bytes. Otherwise the
///          diagnostic names the sizes found and needed.
QV_API bool RadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload);
QV_API bool RadiometricJPEG(IFileSystem* fs, const char16_t* path, const TSharedPtr<IFile>& payload);

/// The KVOR segments of a JPEG file.
struct SRadiometricInfo {
    uint32_t segments = 0;
    int64_t payloadSize = 0;  ///< Bytes, of all segments together.
    /// The index bytes count the segments in the order of the file and agree on the last one, both modulo 256; true
    /// without segments.
    bool inOrder = true;

    bool IsMeasurement() const { return payloadSize > int64_t{largestMetadata}; }
};

// These four walk the file's segments up to the end of the picture and decode nothing: of a picture whose pixels are
// damaged the measurement comes out all the same. False with a diagnostic where the segments cannot be followed.

QV_API bool GetRadiometricInfo(const TSharedPtr<IFile>& file, SRadiometricInfo& info);

/// Writes the data of all KVOR segments, in file order, to `payload` from its beginning and sets its size. True also
/// when there are none.
QV_API bool UnwrapRadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload);

/// Copies a JPEG file without touching its picture and puts the payload's whole contents into it. The new segments
/// stand behind the last application segment (JFIF, EXIF, colour profile) in front of the picture; KVOR segments that
/// the file had are left out, everything else is copied byte for byte.
/// @param out  Another file than the two; written from its beginning and cut behind.
QV_API bool WrapRadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload,
                                const TSharedPtr<IFile>& out);

/// Copies a JPEG file byte for byte without its KVOR segments.
QV_API bool StripRadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& out);

}  // namespace qv
