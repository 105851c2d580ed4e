#include <cstring>
#include <memory>

#include "images/jpeg_library.h"
#include "images/kvor.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

/// An encoder that is destroyed with its owner.
class JpegWriter {
public:
    JpegWriter() {
        std::memset(&m_encoder, 0, sizeof m_encoder);
        m_errors.install();
        m_encoder.err = &m_errors.base;
    }
    JpegWriter(const JpegWriter&) = delete;
    JpegWriter& operator=(const JpegWriter&) = delete;
    ~JpegWriter() { jpeg_destroy_compress(&m_encoder); }

    bool write(PixelRows& rows, IFile& file, IFile* payload, int quality) {
        const auto cutter = std::make_unique<kvor::Cutter>();
        if (payload != nullptr) cutter->begin(*payload);
        bool short_ = false;
        const bool done = guarded(m_errors.place, [&] {
            begin(rows, file, quality);
            while (const uint32_t size = cutter->next(short_)) {
                jpeg_write_marker(&m_encoder, kvor::marker, cutter->contents, size);
            }
            if (short_) return;
            for (uint32_t y = 0; y < rows.height(); ++y) {
                JSAMPROW row[1] = {const_cast<JSAMPROW>(rows.row(y))};  // the library only reads it
                jpeg_write_scanlines(&m_encoder, row, 1);
            }
            jpeg_finish_compress(&m_encoder);
        });
        if (short_) return refuse(*payload, u"the payload of a JPEG picture", u"the end of the file");
        return done || refuse(file, u"a JPEG picture to be written", CString(m_errors.error));
    }

private:
    void begin(const PixelRows& rows, IFile& file, int quality) {
        // The version is that of the library that is linked: it refuses any other.
        jpeg_create_compress(&m_encoder);
        m_destination.install(&m_encoder, file);
        m_encoder.image_width = rows.width();
        m_encoder.image_height = rows.height();
        m_encoder.input_components = 3;
        m_encoder.in_color_space = JCS_EXT_BGR;  // RGB, from pixels that have blue first
        jpeg_set_defaults(&m_encoder);
        if (quality < 101) jpeg_set_quality(&m_encoder, quality, TRUE);
        jpeg_start_compress(&m_encoder, TRUE);
    }

    JpegErrors m_errors;
    JpegDestination m_destination;
    jpeg_compress_struct m_encoder;
};

}  // namespace

bool SaveJPEG(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties) {
    return SaveJPEG(bitmap, file, TSharedPtr<IFile>(), properties);
}

bool SaveJPEG(HBITMAP bitmap, const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload,
              const CPropertyArray& properties) {
    if (bitmap == nullptr || !file || file == payload) return false;
    PixelRows rows(bitmap);
    file->SeekToBegin();
    return JpegWriter().write(rows, *file, payload.get(), numberOf(properties, u"quality", 101)) &&
           endPictureHere(*file);
}

}  // namespace qv
