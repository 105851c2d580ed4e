// libpng over IFile, with its errors as a longjmp to a guarded() call and its texts kept.
#pragma once

#include <png.h>

#include "images/picture_file.h"

namespace qv::Private {

/// The words of a failed load, which libpng passes on.
constexpr char pngReadError[] = "Read Error", pngNoBitmap[] = "Can't create bitmap",
               pngSmallBuffer[] = "Buffer too small", pngNot16Bit[] = "Not a 16-bit file",
               pngUnexpected[] = "Not what you're expecting";

/// The version that the library is asked for; any 1.6 will do.
constexpr char pngVersion[] = "1.6.26";

struct PngTexts {
    std::jmp_buf place;
    char error[128] = {};
    char warning[128] = {};

    [[noreturn]] static void onError(png_structp png, png_const_charp text);
    static void onWarning(png_structp png, png_const_charp text);
};

/// A decoder that is destroyed with its owner.
class PngReader {
public:
    /// Begins at the file's beginning.
    explicit PngReader(IFile& file);
    PngReader(const PngReader&) = delete;
    PngReader& operator=(const PngReader&) = delete;
    ~PngReader();

    /// Runs `body` with the library's errors caught: false after one.
    template <class Body>
    bool run(Body&& body) {
        return m_info != nullptr && guarded(m_texts.place, body);
    }
    bool readHeader() {
        return run([&] { png_read_info(m_png, m_info); });
    }
    /// Reads to the file's end. A fault there costs no pixel and is only told of.
    void finish();

    /// Whether the file can hold the bytes that the header promises.
    bool isPlausible();

    png_structp png() { return m_png; }
    png_infop info() { return m_info; }
    uint32_t width() { return png_get_image_width(m_png, m_info); }
    uint32_t height() { return png_get_image_height(m_png, m_info); }
    /// Sets the diagnostic to what the library said last; always false.
    bool fail();

private:
    ReadAhead m_in;
    PngTexts m_texts;
    png_structp m_png = nullptr;
    png_infop m_info = nullptr;
};

}  // namespace qv::Private
