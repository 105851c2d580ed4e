// A frame as a picture: colours, a scale bar with labels, and the PNG file.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

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
    void set(int64_t x, int64_t y, Colour colour);
    void fill(int64_t x, int64_t y, int64_t width, int64_t height, Colour colour);
    /// ASCII letters, digits, the signs of numbers and the degree sign, with the upper left corner at (x, y). What has
    /// no glyph is left blank.
    void text(int64_t x, int64_t y, const std::string& utf8, int64_t scale, Colour colour);
    static int64_t textWidth(const std::string& text, int64_t scale);
    static constexpr int64_t glyphHeight = 7;

    /// An 8-bit RGB PNG file; fails with a sentence.
    std::vector<uint8_t> png() const;

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
