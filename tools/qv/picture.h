// A frame as a picture: colours, a scale bar with labels, and the file of it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qv/file.h"
#include "qv/image.h"
#include "qv/property_array.h"

namespace tool {

struct Colour {
    uint8_t r = 0;
    uint8_t g = 0;
    uint8_t b = 0;
};

enum class Palette { iron, gray, rainbow };
/// The palette's colour at 0 (coldest) to 1; values outside are held to the ends.
Colour paletteColour(Palette palette, double position);

/// Pixels row by row from the top.
class Canvas {
public:
    Canvas(uint32_t width, uint32_t height, Colour fill);
    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }
    Colour at(uint32_t x, uint32_t y) const { return m_pixels[size_t{y} * m_width + x]; }
    void set(int64_t x, int64_t y, Colour colour);
    void fill(int64_t x, int64_t y, int64_t width, int64_t height, Colour colour);
    /// ASCII letters, digits, the signs of numbers and the degree sign, with the upper left corner at (x, y). What has
    /// no glyph is left blank.
    void text(int64_t x, int64_t y, const std::string& utf8, int64_t scale, Colour colour);
    static int64_t textWidth(const std::string& text, int64_t scale);
    static constexpr int64_t glyphHeight = 7;

private:
    uint32_t m_width;
    uint32_t m_height;
    std::vector<Colour> m_pixels;
};

/// Round values within [low, high], about `wanted` of them, and the decimals that tell them apart.
struct Ticks {
    std::vector<double> values;
    int decimals = 0;
};
Ticks roundTicks(double low, double high, int wanted);

/// The values that a palette spans: `range` as LOW:HIGH (an option's text; fails with a sentence about --range), or
/// when it is empty all but the outermost thousandth at each end.
std::pair<double, double> paletteSpan(const std::string& range, std::vector<float> values);

/// A bitmap as long as it is needed.
struct Bitmap {
    Bitmap() = default;
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;
    ~Bitmap() { qv::DestroyBitmap(pixels); }
    qv::SBitmap pixels;
};

/// The ending of a file's name in lower case, ".png".
std::string endingOf(const std::string& path);

/// Fails unless the name is a JPEG's, which alone can carry a measurement.
void requireJpegName(const std::string& path);

/// Writes a bitmap in the format that the name's ending tells (.png, .jpg, .tif, else BMP), whole or not at all; fails
/// with a sentence.
/// @param payload  What a JPEG is to carry, or null.
void writeBitmap(qv::HBITMAP bitmap, const std::string& output, bool force, const qv::TSharedPtr<qv::IFile>& payload,
                 const qv::CPropertyArray& properties);
/// The same for a canvas.
void writePicture(const Canvas& canvas, const std::string& output, bool force,
                  const qv::TSharedPtr<qv::IFile>& payload = nullptr, const qv::CPropertyArray& properties = {});

/// A frame of values drawn with a scale bar at its right.
struct FramePicture {
    const float* values = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
    double low = 0.0;   ///< Value of the palette's lower end.
    double high = 1.0;  ///< Value of its upper end, above `low`.
    Palette palette = Palette::iron;
    std::string unit;
    std::string title;    ///< Above the frame; may be empty.
    std::string caption;  ///< Below it; may be empty.

    /// Small frames are magnified by whole factors. Values that are none are drawn in plain blue-grey.
    Canvas draw() const;
};

}  // namespace tool
