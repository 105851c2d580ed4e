#include "picture.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "command.h"
#include "text.h"

namespace tool {

namespace {

constexpr Colour background = {24, 24, 28};
constexpr Colour ink = {235, 235, 235};
constexpr Colour noValue = {70, 90, 120};

struct Stop {
    double at;
    Colour colour;
};
constexpr std::array ironStops = {Stop{0.00, {0, 0, 0}},      Stop{0.12, {32, 0, 96}},    Stop{0.30, {128, 0, 150}},
                                  Stop{0.50, {214, 44, 84}},  Stop{0.68, {244, 118, 20}}, Stop{0.86, {254, 204, 40}},
                                  Stop{1.00, {255, 255, 246}}};
constexpr std::array grayStops = {Stop{0.0, {0, 0, 0}}, Stop{1.0, {255, 255, 255}}};
constexpr std::array rainbowStops = {Stop{0.00, {20, 0, 110}},  Stop{0.20, {0, 70, 230}},   Stop{0.40, {0, 190, 210}},
                                     Stop{0.58, {40, 200, 60}}, Stop{0.75, {240, 225, 30}}, Stop{0.90, {240, 80, 10}},
                                     Stop{1.00, {170, 0, 20}}};

template <size_t N>
Colour between(const std::array<Stop, N>& stops, double position) {
    size_t i = 1;
    while (i + 1 < N && position > stops[i].at) ++i;
    const Stop& a = stops[i - 1];
    const Stop& b = stops[i];
    const double part = std::clamp((position - a.at) / (b.at - a.at), 0.0, 1.0);
    const auto mix = [part](uint8_t from, uint8_t to) {
        return static_cast<uint8_t>(std::lround(from + part * (static_cast<double>(to) - from)));
    };
    return {mix(a.colour.r, b.colour.r), mix(a.colour.g, b.colour.g), mix(a.colour.b, b.colour.b)};
}

/// Five columns by seven rows, a bit for a pixel, the leftmost highest.
struct Glyph {
    char character;
    std::array<uint8_t, 7> rows;
};
constexpr Glyph glyphs[] = {
    {'0', {14, 17, 19, 21, 25, 17, 14}}, {'1', {4, 12, 4, 4, 4, 4, 14}},      {'2', {14, 17, 1, 2, 4, 8, 31}},
    {'3', {31, 2, 4, 2, 1, 17, 14}},     {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},   {'7', {31, 1, 2, 4, 8, 8, 8}},       {'8', {14, 17, 17, 14, 17, 17, 14}},
    {'9', {14, 17, 17, 15, 1, 2, 12}},   {'.', {0, 0, 0, 0, 0, 12, 12}},      {'-', {0, 0, 0, 31, 0, 0, 0}},
    {'+', {0, 4, 4, 31, 4, 4, 0}},       {'/', {1, 1, 2, 4, 8, 16, 16}},      {'(', {2, 4, 8, 8, 8, 4, 2}},
    {')', {8, 4, 2, 2, 2, 4, 8}},        {'^', {4, 10, 17, 0, 0, 0, 0}},      {':', {0, 12, 12, 0, 12, 12, 0}},
    {'%', {24, 25, 2, 4, 8, 19, 3}},     {'_', {0, 0, 0, 0, 0, 0, 31}},       {',', {0, 0, 0, 0, 12, 4, 8}},
    {'A', {14, 17, 17, 31, 17, 17, 17}}, {'B', {30, 17, 17, 30, 17, 17, 30}}, {'C', {14, 17, 16, 16, 16, 17, 14}},
    {'D', {28, 18, 17, 17, 17, 18, 28}}, {'E', {31, 16, 16, 30, 16, 16, 31}}, {'F', {31, 16, 16, 30, 16, 16, 16}},
    {'G', {14, 17, 16, 23, 17, 17, 15}}, {'H', {17, 17, 17, 31, 17, 17, 17}}, {'I', {14, 4, 4, 4, 4, 4, 14}},
    {'J', {7, 2, 2, 2, 2, 18, 12}},      {'K', {17, 18, 20, 24, 20, 18, 17}}, {'L', {16, 16, 16, 16, 16, 16, 31}},
    {'M', {17, 27, 21, 21, 17, 17, 17}}, {'N', {17, 17, 25, 21, 19, 17, 17}}, {'O', {14, 17, 17, 17, 17, 17, 14}},
    {'P', {30, 17, 17, 30, 16, 16, 16}}, {'Q', {14, 17, 17, 17, 21, 18, 13}}, {'R', {30, 17, 17, 30, 20, 18, 17}},
    {'S', {15, 16, 16, 14, 1, 1, 30}},   {'T', {31, 4, 4, 4, 4, 4, 4}},       {'U', {17, 17, 17, 17, 17, 17, 14}},
    {'V', {17, 17, 17, 17, 17, 10, 4}},  {'W', {17, 17, 17, 21, 21, 21, 10}}, {'X', {17, 17, 10, 4, 10, 17, 17}},
    {'Y', {17, 17, 17, 10, 4, 4, 4}},    {'Z', {31, 1, 2, 4, 8, 16, 31}},
};
constexpr int64_t glyphAdvance = 6;

const Glyph* glyphOf(char c) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    const auto* found = std::find_if(std::begin(glyphs), std::end(glyphs), [c](const Glyph& g) { return g.character == c; });
    return found == std::end(glyphs) ? nullptr : found;
}

void appendBytes(png_structp png, png_bytep data, size_t size) {
    auto& out = *static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out.insert(out.end(), data, data + size);
}

/// What libpng calls on an error: leaves through the jump that png() prepared.
[[noreturn]] void failed(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void ignored(png_structp, png_const_charp) {}

/// The part of writing that libpng may leave by a jump: nothing in it has a destructor.
bool writeRows(png_structp png, png_infop info, uint32_t width, uint32_t height, const uint8_t* pixels) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (uint32_t y = 0; y < height; ++y) png_write_row(png, pixels + size_t{y} * width * 3);
    png_write_end(png, info);
    return true;
}

}  // namespace

Colour paletteColour(Palette palette, double position) {
    switch (palette) {
        case Palette::gray: return between(grayStops, position);
        case Palette::rainbow: return between(rainbowStops, position);
        default: return between(ironStops, position);
    }
}

Canvas::Canvas(uint32_t width, uint32_t height, Colour fill)
    : m_width(width), m_height(height), m_pixels(size_t{width} * height, fill) {}

void Canvas::set(int64_t x, int64_t y, Colour colour) {
    if (x >= 0 && y >= 0 && x < m_width && y < m_height) m_pixels[static_cast<size_t>(y * m_width + x)] = colour;
}

void Canvas::fill(int64_t x, int64_t y, int64_t width, int64_t height, Colour colour) {
    for (int64_t j = y; j < y + height; ++j) {
        for (int64_t i = x; i < x + width; ++i) set(i, j, colour);
    }
}

int64_t Canvas::textWidth(const std::string& text, int64_t scale) {
    return (static_cast<int64_t>(text.size()) * glyphAdvance - 1) * scale;
}

int64_t Canvas::text(int64_t x, int64_t y, const std::string& text, int64_t scale, Colour colour) {
    for (size_t i = 0; i < text.size(); ++i) {
        const Glyph* glyph = glyphOf(text[i]);
        for (int64_t row = 0; glyph != nullptr && row < glyphHeight; ++row) {
            for (int64_t column = 0; column < 5; ++column) {
                if ((glyph->rows[static_cast<size_t>(row)] >> (4 - column) & 1) == 0) continue;
                fill(x + (static_cast<int64_t>(i) * glyphAdvance + column) * scale, y + row * scale, scale, scale, colour);
            }
        }
    }
    return textWidth(text, scale);
}

std::vector<uint8_t> Canvas::png() const {
    static_assert(sizeof(Colour) == 3);
    std::vector<uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, failed, ignored);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    bool written = false;
    if (info != nullptr) {
        png_set_write_fn(png, &out, appendBytes, nullptr);
        written = writeRows(png, info, m_width, m_height, reinterpret_cast<const uint8_t*>(m_pixels.data()));
    }
    png_destroy_write_struct(&png, &info);
    if (!written) throw Failure(Exit::io, "the picture cannot be encoded");
    return out;
}

Ticks roundTicks(double low, double high, int wanted) {
    Ticks ticks;
    const double raw = (high - low) / std::max(wanted, 1);
    if (!(raw > 0.0) || !std::isfinite(raw)) return ticks;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    double step = 10.0 * power;
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= raw) {
            step = factor * power;
            break;
        }
    }
    ticks.decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 12);
    for (double k = std::ceil(low / step - 1e-9); k * step <= high + step * 1e-9 && ticks.values.size() < 64; ++k) {
        ticks.values.push_back(k == 0.0 ? 0.0 : k * step);
    }
    return ticks;
}

Canvas FramePicture::draw() const {
    const auto magnify = std::max<int64_t>(1, 480 / std::max<int64_t>(height, 1));
    const int64_t pictureWidth = int64_t{width} * magnify;
    const int64_t pictureHeight = int64_t{height} * magnify;
    const int64_t scale = pictureHeight >= 400 ? 2 : 1;
    const int64_t margin = 8 * scale;
    const int64_t titleHeight = title.empty() ? 0 : Canvas::glyphHeight * scale + margin;
    const int64_t headHeight = Canvas::glyphHeight * scale + margin;  // the unit above the bar
    const int64_t barWidth = 12 * scale;

    const Ticks ticks = roundTicks(low, high, static_cast<int>(std::clamp<int64_t>(pictureHeight / 60, 2, 10)));
    int64_t labelWidth = Canvas::textWidth(unit, scale) - barWidth;
    std::vector<std::string> labels;
    for (const double value : ticks.values) {
        labels.push_back(std::fabs(value) >= 1e-3 || value == 0.0 ? fixed(value, ticks.decimals) : number(value, 3));
        labelWidth = std::max(labelWidth, Canvas::textWidth(labels.back(), scale) + 3 * scale);
    }
    const int64_t right = margin + barWidth + 4 * scale + labelWidth + margin;
    const int64_t total = std::max(margin + pictureWidth + right, 2 * margin + Canvas::textWidth(title, scale));
    Canvas canvas(static_cast<uint32_t>(total), static_cast<uint32_t>(titleHeight + pictureHeight + 2 * margin), background);
    if (!title.empty()) canvas.text(margin, margin, title, scale, ink);

    const double span = high > low ? high - low : 1.0;
    const int64_t top = margin + titleHeight;
    for (int64_t y = 0; y < int64_t{height}; ++y) {
        for (int64_t x = 0; x < int64_t{width}; ++x) {
            const double value = values[y * width + x];
            const Colour colour = value == value ? paletteColour(palette, (value - low) / span) : noValue;
            canvas.fill(margin + x * magnify, top + y * magnify, magnify, magnify, colour);
        }
    }
    const int64_t barLeft = margin + pictureWidth + margin;
    const int64_t barTop = top + headHeight;
    const int64_t barHeight = std::max<int64_t>(pictureHeight - headHeight, 8);
    canvas.text(barLeft, top, unit, scale, ink);
    for (int64_t y = 0; y < barHeight; ++y) {
        const double position = 1.0 - static_cast<double>(y) / static_cast<double>(std::max<int64_t>(barHeight - 1, 1));
        canvas.fill(barLeft, barTop + y, barWidth, 1, paletteColour(palette, position));
    }
    for (size_t i = 0; i < labels.size(); ++i) {
        const double position = (ticks.values[i] - low) / span;
        const int64_t y = barTop + std::llround((1.0 - position) * static_cast<double>(barHeight - 1));
        canvas.fill(barLeft + barWidth, y, 3 * scale, scale, ink);
        const int64_t textY = std::clamp(y - Canvas::glyphHeight * scale / 2, barTop, barTop + barHeight - Canvas::glyphHeight * scale);
        canvas.text(barLeft + barWidth + 5 * scale, textY, labels[i], scale, ink);
    }
    return canvas;
}

}  // namespace tool
