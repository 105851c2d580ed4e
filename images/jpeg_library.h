// libjpeg over IFile, with its errors as a longjmp to a guarded() call and its texts kept.
#pragma once

#include <csetjmp>
#include <cstdio>  // jpeglib.h needs its types

extern "C" {
#include <jpeglib.h>

#include <jerror.h>
}

#include <vector>

#include "images/picture_file.h"

namespace qv::Private {

/// What libjpeg said. `base` stands first, so that the library's pointer to it leads here.
struct JpegErrors {
    jpeg_error_mgr base;
    std::jmp_buf place;
    char error[JMSG_LENGTH_MAX];
    char warning[JMSG_LENGTH_MAX];

    void install();
};

/// A source manager with a buffer of 4096 bytes.
struct JpegSource {
    jpeg_source_mgr base;
    IFile* file;
    bool ended;  ///< The file is over; an end-of-image marker was put in its place.
    JOCTET buffer[4096];

    void install(j_decompress_ptr decoder, IFile& from);
};

/// A destination manager with a buffer of 4096 bytes.
struct JpegDestination {
    jpeg_destination_mgr base;
    IFile* file;
    JOCTET buffer[4096];

    void install(j_compress_ptr encoder, IFile& to);
};

/// A decoder that is destroyed with its owner. The header is read from the file's beginning.
class JpegReader {
public:
    JpegReader();
    JpegReader(const JpegReader&) = delete;
    JpegReader& operator=(const JpegReader&) = delete;
    ~JpegReader();

    /// Reads up to the first scan. @param keepPayload  Keeps the data of KVOR segments, those behind the header as
    /// well.
    bool readHeader(IFile& file, bool keepPayload);

    /// Whether the file can hold as many pixels as its header says.
    bool isPlausible();
    bool startDecoding();
    /// Decodes all rows into a bitmap of 24 bits.
    bool readRows(const SBitmap& bitmap);
    /// Reads up to the end of the picture.
    bool finish();

    const jpeg_decompress_struct& decoder() const { return m_decoder; }
    /// What all KVOR segments so far carry, in file order.
    const std::vector<uint8_t>& payload() const { return m_payload; }
    const JpegErrors& errors() const { return m_errors; }
    /// Sets the diagnostic to what the library said last; always false.
    bool fail();

private:
    template <class Body>
    bool run(Body&& body) {
        return guarded(m_errors.place, body);
    }

    static boolean onSegment(j_decompress_ptr decoder);
    bool take(size_t size) noexcept;

    JpegErrors m_errors;
    JpegSource m_source;
    std::vector<uint8_t> m_segment;  ///< Room for one; the library may leave the reading of it by a jump.
    std::vector<uint8_t> m_payload;
    jpeg_progress_mgr m_progress;
    jpeg_decompress_struct m_decoder;
};

}  // namespace qv::Private
