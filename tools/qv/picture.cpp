#include "picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>

#include "command.h"
#include "qv/diagnostic.h"
#include "qv/image.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

constexpr Colour background = {24, 24, 28};
constexpr Colour ink = {235, 235, 235};
constexpr Colour outline = {110, 110, 118};
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

/// What stands for the degree sign once a text is one byte for each character.
constexpr char degreeSign = '\x01';

/// Five columns by seven rows, a bit for a pixel, the leftmost highest.
struct Glyph {
    char character;
    std::array<uint8_t, 7> rows;
};
constexpr Glyph glyphs[] = {
    {'0', {14, 17, 19, 21, 25, 17, 14}},
    {'1', {4, 12, 4, 4, 4, 4, 14}},
    {'2', {14, 17, 1, 2, 4, 8, 31}},
    {'3', {31, 2, 4, 2, 1, 17, 14}},
    {'4', {2, 6, 10, 18, 31, 2, 2}},
    {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},
    {'7', {31, 1, 2, 4, 8, 8, 8}},
    {'8', {14, 17, 17, 14, 17, 17, 14}},
    {'9', {14, 17, 17, 15, 1, 2, 12}},
    {'.', {0, 0, 0, 0, 0, 12, 12}},
    {'-', {0, 0, 0, 31, 0, 0, 0}},
    {'+', {0, 4, 4, 31, 4, 4, 0}},
    {'/', {1, 1, 2, 4, 8, 16, 16}},
    {'(', {2, 4, 8, 8, 8, 4, 2}},
    {')', {8, 4, 2, 2, 2, 4, 8}},
    {'^', {4, 10, 17, 0, 0, 0, 0}},
    {':', {0, 12, 12, 0, 12, 12, 0}},
    {'%', {24, 25, 2, 4, 8, 19, 3}},
    {'_', {0, 0, 0, 0, 0, 0, 31}},
    {',', {0, 0, 0, 0, 12, 4, 8}},
    {'A', {14, 17, 17, 31, 17, 17, 17}},
    {'B', {30, 17, 17, 30, 17, 17, 30}},
    {'C', {14, 17, 16, 16, 16, 17, 14}},
    {'D', {28, 18, 17, 17, 17, 18, 28}},
    {'E', {31, 16, 16, 30, 16, 16, 31}},
    {'F', {31, 16, 16, 30, 16, 16, 16}},
    {'G', {14, 17, 16, 23, 17, 17, 15}},
    {'H', {17, 17, 17, 31, 17, 17, 17}},
    {'I', {14, 4, 4, 4, 4, 4, 14}},
    {'J', {7, 2, 2, 2, 2, 18, 12}},
    {'K', {17, 18, 20, 24, 20, 18, 17}},
    {'L', {16, 16, 16, 16, 16, 16, 31}},
    {'M', {17, 27, 21, 21, 17, 17, 17}},
    {'N', {17, 17, 25, 21, 19, 17, 17}},
    {'O', {14, 17, 17, 17, 17, 17, 14}},
    {'P', {30, 17, 17, 30, 16, 16, 16}},
    {'Q', {14, 17, 17, 17, 21, 18, 13}},
    {'R', {30, 17, 17, 30, 20, 18, 17}},
    {'S', {15, 16, 16, 14, 1, 1, 30}},
    {'T', {31, 4, 4, 4, 4, 4, 4}},
    {'U', {17, 17, 17, 17, 17, 17, 14}},
    {'V', {17, 17, 17, 17, 17, 10, 4}},
    {'W', {17, 17, 17, 21, 21, 21, 10}},
    {'X', {17, 17, 10, 4, 10, 17, 17}},
    {'Y', {17, 17, 17, 10, 4, 4, 4}},
    {'Z', {31, 1, 2, 4, 8, 16, 31}},
    {'=', {0, 0, 31, 0, 31, 0, 0}},
    {degreeSign, {12, 18, 18, 12, 0, 0, 0}},
    {'a', {0, 0, 14, 1, 15, 17, 15}},
    {'b', {16, 16, 22, 25, 17, 17, 30}},
    {'c', {0, 0, 14, 16, 16, 17, 14}},
    {'d', {1, 1, 13, 19, 17, 17, 15}},
    {'e', {0, 0, 14, 17, 31, 16, 14}},
    {'f', {6, 9, 8, 28, 8, 8, 8}},
    {'g', {0, 15, 17, 17, 15, 1, 14}},
    {'h', {16, 16, 22, 25, 17, 17, 17}},
    {'i', {4, 0, 12, 4, 4, 4, 14}},
    {'j', {2, 0, 6, 2, 2, 18, 12}},
    {'k', {16, 16, 18, 20, 24, 20, 18}},
    {'l', {12, 4, 4, 4, 4, 4, 14}},
    {'m', {0, 0, 26, 21, 21, 17, 17}},
    {'n', {0, 0, 22, 25, 17, 17, 17}},
    {'o', {0, 0, 14, 17, 17, 17, 14}},
    {'p', {0, 0, 30, 17, 30, 16, 16}},
    {'q', {0, 0, 13, 19, 15, 1, 1}},
    {'r', {0, 0, 22, 25, 16, 16, 16}},
    {'s', {0, 0, 14, 16, 14, 1, 30}},
    {'t', {8, 8, 28, 8, 8, 9, 6}},
    {'u', {0, 0, 17, 17, 17, 19, 13}},
    {'v', {0, 0, 17, 17, 17, 10, 4}},
    {'w', {0, 0, 17, 17, 21, 21, 10}},
    {'x', {0, 0, 17, 10, 4, 10, 17}},
    {'y', {0, 0, 17, 17, 15, 1, 14}},
    {'z', {0, 0, 31, 2, 4, 8, 31}},
};
constexpr int64_t glyphAdvance = 6;

const Glyph* glyphOf(char c) {
    const auto* found =
        std::find_if(std::begin(glyphs), std::end(glyphs), [c](const Glyph& g) { return g.character == c; });
    return found == std::end(glyphs) ? nullptr : found;
}

/// One byte for each character; those that have no glyph become blanks when they are drawn.
std::string oneByteEach(const std::string& utf8) {
    std::string text;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const bool degree = utf8.compare(i, 2, "\u00B0") == 0;
        if ((utf8[i] & 0xC0) != 0x80) text += degree ? degreeSign : utf8[i];
    }
    return text;
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
    const auto characters = static_cast<int64_t>(oneByteEach(text).size());
    return characters == 0 ? 0 : (characters * glyphAdvance - 1) * scale;
}

void Canvas::text(int64_t x, int64_t y, const std::string& utf8, int64_t scale, Colour colour) {
    for (const char character : oneByteEach(utf8)) {
        const Glyph* glyph = glyphOf(character);
        for (int64_t row = 0; glyph != nullptr && row < glyphHeight; ++row) {
            for (int64_t column = 0; column < 5; ++column) {
                if ((glyph->rows[static_cast<size_t>(row)] >> (4 - column) & 1) == 0) continue;
                fill(x + column * scale, y + row * scale, scale, scale, colour);
            }
        }
        x += glyphAdvance * scale;
    }
}

std::string endingOf(const std::string& path) {
    return CLI::detail::to_lower(std::filesystem::path(path).extension().string());
}

namespace {

bool isJpeg(const std::string& path) {
    const std::string ending = endingOf(path);
    return ending == ".jpg" || ending == ".jpeg";
}

bool savePicture(qv::HBITMAP bitmap, const std::string& output, const Target& target,
                 const qv::TSharedPtr<qv::IFile>& payload, const qv::CPropertyArray& properties) {
    const qv::TSharedPtr<qv::IFile> file = target.open();
    const std::string ending = endingOf(output);
    if (isJpeg(output)) return qv::SaveJPEG(bitmap, file, payload, properties);
    if (ending == ".png") return qv::SavePNG(bitmap, file, properties);
    if (ending == ".tif" || ending == ".tiff") return qv::SaveTIFF(bitmap, file, properties);
    return qv::SaveBMP(bitmap, file, properties);
}

}  // namespace

void requireJpegName(const std::string& path) {
    if (!isJpeg(path)) throw Failure(Exit::usage, path + ": only a JPEG (.jpg, .jpeg) carries a measurement");
}

void writeBitmap(qv::HBITMAP bitmap, const std::string& output, bool force, const qv::TSharedPtr<qv::IFile>& payload,
                 const qv::CPropertyArray& properties) {
    if (payload) requireJpegName(output);
    Target target(output, force);
    qv::ClearDiagnostic();
    if (!savePicture(bitmap, output, target, payload, properties)) {
        throw diagnosed(Exit::io, output, "cannot be written (is the disk full?)");
    }
    target.commit();
}

void writePicture(const Canvas& canvas, const std::string& output, bool force, const qv::TSharedPtr<qv::IFile>& payload,
                  const qv::CPropertyArray& properties) {
    Bitmap bitmap;
    if (!qv::CreateBitmap(canvas.width(), canvas.height(), 24, bitmap.pixels)) {
        throw Failure(Exit::io, output + ": there is no memory for the picture");
    }
    for (uint32_t y = 0; y < canvas.height(); ++y) {
        uint8_t* to = bitmap.pixels.pixels + size_t{y} * bitmap.pixels.bytesPerRow;
        for (uint32_t x = 0; x < canvas.width(); ++x) {
            const Colour colour = canvas.at(x, y);
            *to++ = colour.b, *to++ = colour.g, *to++ = colour.r;
        }
    }
    writeBitmap(bitmap.pixels.handle, output, force, payload, properties);
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

std::pair<double, double> paletteSpan(const std::string& range, std::vector<float> values) {
    if (!range.empty()) {
        double low = 0.0;
        double high = 0.0;
        char rest = 0;
        if (std::sscanf(range.c_str(), "%lf:%lf%c", &low, &high, &rest) != 2 || !(low < high) ||
            !std::isfinite(high - low)) {
            throw Failure(Exit::usage, "--range: \"" + range + "\" is not of the form LOW:HIGH");
        }
        return {low, high};
    }
    values.erase(std::remove_if(values.begin(), values.end(), [](float v) { return !std::isfinite(v); }), values.end());
    if (values.empty()) return {0.0, 1.0};
    const size_t cut = values.size() / 1000;
    const auto lowAt = values.begin() + static_cast<ptrdiff_t>(cut);
    const auto highAt = values.end() - 1 - static_cast<ptrdiff_t>(cut);
    std::nth_element(values.begin(), lowAt, values.end());
    const double low = *lowAt;
    std::nth_element(values.begin(), highAt, values.end());
    const double high = *highAt;
    return high > low ? std::pair{low, high} : std::pair{low - 0.5, low + 0.5};
}

namespace {

/// Where the parts of a picture stand, in pixels.
struct Arrangement {
    int64_t magnify;
    int64_t scale;  ///< Of the text.
    int64_t margin;
    int64_t left;
    int64_t top;
    int64_t width;  ///< Of the frame, magnified.
    int64_t height;
    int64_t barLeft;
    int64_t barTop;
    int64_t barWidth;
    int64_t barHeight;

    int64_t lineHeight() const { return Canvas::glyphHeight * scale; }
};

Arrangement arrange(const FramePicture& picture) {
    Arrangement a{};
    a.magnify = std::max<int64_t>(
        1, std::min(640 / std::max<int64_t>(picture.height, 1), 1280 / std::max<int64_t>(picture.width, 1)));
    a.width = int64_t{picture.width} * a.magnify;
    a.height = int64_t{picture.height} * a.magnify;
    a.scale = a.height >= 360 ? 2 : 1;
    a.margin = 8 * a.scale;
    a.left = a.margin;
    a.top = a.margin + (picture.title.empty() ? 0 : a.lineHeight() + a.margin);
    a.barLeft = a.left + a.width + a.margin;
    a.barTop = a.top + a.lineHeight() + a.margin;  // the unit stands above the bar
    a.barWidth = 12 * a.scale;
    a.barHeight = std::max<int64_t>(a.top + a.height - a.barTop, 8);
    return a;
}

void drawOutline(Canvas& canvas, int64_t x, int64_t y, int64_t width, int64_t height) {
    canvas.fill(x - 1, y - 1, width + 2, 1, outline);
    canvas.fill(x - 1, y + height, width + 2, 1, outline);
    canvas.fill(x - 1, y, 1, height, outline);
    canvas.fill(x + width, y, 1, height, outline);
}

void drawPixels(const FramePicture& picture, const Arrangement& a, Canvas& canvas) {
    const double span = picture.high - picture.low;
    for (int64_t y = 0; y < int64_t{picture.height}; ++y) {
        for (int64_t x = 0; x < int64_t{picture.width}; ++x) {
            const double value = picture.values[y * picture.width + x];
            const Colour colour =
                value == value ? paletteColour(picture.palette, (value - picture.low) / span) : noValue;
            canvas.fill(a.left + x * a.magnify, a.top + y * a.magnify, a.magnify, a.magnify, colour);
        }
    }
    drawOutline(canvas, a.left, a.top, a.width, a.height);
}

struct Label {
    double position;  ///< 0 at the bar's lower end, 1 at its upper one.
    std::string text;
};

std::vector<Label> labelsOf(const FramePicture& picture, const Arrangement& a) {
    const auto wanted = static_cast<int>(std::clamp<int64_t>(a.barHeight / (3 * a.lineHeight()), 2, 10));
    const Ticks ticks = roundTicks(picture.low, picture.high, wanted);
    std::vector<Label> labels;
    for (const double value : ticks.values) {
        const bool plain = value == 0.0 || (std::fabs(value) >= 1e-3 && std::fabs(value) < 1e7);
        labels.push_back({(value - picture.low) / (picture.high - picture.low),
                          plain ? fixed(value, ticks.decimals) : number(value, 3)});
    }
    return labels;
}

void drawBar(const FramePicture& picture, const Arrangement& a, const std::vector<Label>& labels, Canvas& canvas) {
    canvas.text(a.barLeft, a.top, picture.unit, a.scale, ink);
    const auto last = static_cast<double>(a.barHeight - 1);
    for (int64_t y = 0; y < a.barHeight; ++y) {
        const Colour colour = paletteColour(picture.palette, 1.0 - static_cast<double>(y) / last);
        canvas.fill(a.barLeft, a.barTop + y, a.barWidth, 1, colour);
    }
    drawOutline(canvas, a.barLeft, a.barTop, a.barWidth, a.barHeight);
    for (const Label& label : labels) {
        const int64_t y = a.barTop + std::llround((1.0 - label.position) * last);
        canvas.fill(a.barLeft + a.barWidth, y - a.scale / 2, 3 * a.scale, a.scale, ink);
        canvas.text(a.barLeft + a.barWidth + 5 * a.scale, y - a.lineHeight() / 2, label.text, a.scale, ink);
    }
}

}  // namespace

Canvas FramePicture::draw() const {
    const Arrangement a = arrange(*this);
    const std::vector<Label> labels = labelsOf(*this, a);
    int64_t barAndLabels = std::max(Canvas::textWidth(unit, a.scale), a.barWidth);
    for (const Label& label : labels) {
        barAndLabels = std::max(barAndLabels, a.barWidth + 5 * a.scale + Canvas::textWidth(label.text, a.scale));
    }
    int64_t right = a.barLeft + barAndLabels;
    // A narrow frame takes a smaller line before the picture grows for it.
    const auto scaleOf = [&](const std::string& line) {
        return Canvas::textWidth(line, a.scale) <= right - a.left ? a.scale : int64_t{1};
    };
    for (const std::string& line : {title, caption}) {
        right = std::max(right, a.left + Canvas::textWidth(line, scaleOf(line)));
    }
    constexpr int64_t mostPixels = int64_t{1} << 28;
    if ((right + a.margin) * (a.top + a.height) > mostPixels) {
        throw Failure(Exit::usage, "a frame of " + std::to_string(width) + " x " + std::to_string(height) +
                                       " pixels is too large to be drawn");
    }
    const int64_t bottom = a.top + a.height + (caption.empty() ? 0 : a.margin + a.lineHeight());
    Canvas canvas(static_cast<uint32_t>(right + a.margin), static_cast<uint32_t>(bottom + a.margin), background);
    canvas.text(a.left, a.margin, title, scaleOf(title), ink);
    canvas.text(a.left, a.top + a.height + a.margin, caption, scaleOf(caption), ink);
    drawPixels(*this, a, canvas);
    drawBar(*this, a, labels, canvas);
    return canvas;
}

}  // namespace tool
