#include "svg.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "picture.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

constexpr double tickLength = 5.0;
constexpr double tickSize = 12.0;   // of the text
constexpr double labelSize = 13.0;  // likewise
constexpr char gridStyle[] = "stroke=\"#d9dce1\" stroke-width=\"1\"";
constexpr char frameStyle[] = "stroke=\"#444\" stroke-width=\"1\" fill=\"none\"";
constexpr char mutedText[] = "fill=\"#333\"";

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            default: out += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    }
    return out;
}

/// Hundredths of a pixel are finer than anybody sees.
std::string at(double pixels) { return number(std::round(pixels * 100.0) / 100.0, 8); }

std::string superscript(int exponent) {
    static const char* const digits[] = {"⁰", "¹", "²", "³", "⁴", "⁵", "⁶", "⁷", "⁸", "⁹"};
    std::string text = exponent < 0 ? "⁻" : "";
    for (const char digit : std::to_string(std::abs(exponent))) text += digits[digit - '0'];
    return text;
}

struct Tick {
    double value;
    std::string text;
};

std::vector<Tick> ticksOf(const Scale& scale, double pixels, double spacing) {
    std::vector<Tick> ticks;
    if (scale.logarithmic) {
        const double first = std::floor(std::log10(scale.low) + 1e-9);
        const double last = std::floor(std::log10(scale.high) + 1e-9);
        const double stride = std::max(1.0, std::ceil((last - first + 1.0) * spacing / pixels));
        const bool few = std::log10(scale.high / scale.low) < 2.0;
        for (double decade = first; decade <= last; decade += stride) {
            for (const int digit : {1, 2, 5}) {
                const double value = digit * std::pow(10.0, decade);
                if (value < scale.low * 0.999999 || value > scale.high || (digit != 1 && !few)) continue;
                const std::string power = "10" + superscript(static_cast<int>(decade));
                ticks.push_back({value, digit == 1 ? power : std::to_string(digit) + "·" + power});
            }
        }
        return ticks;
    }
    const double unit = std::pow(10.0, scale.exponent);
    const int wanted = std::max(2, static_cast<int>(pixels / spacing));
    const Ticks rounded = roundTicks(scale.low / unit, scale.high / unit, wanted);
    for (const double value : rounded.values)
        ticks.push_back({value * unit, withMinus(fixed(value, rounded.decimals))});
    return ticks;
}

}  // namespace

std::string withMinus(const std::string& number) {
    return number.starts_with('-') ? "\u2212" + number.substr(1) : number;
}

void Svg::add(std::initializer_list<std::string_view> parts) {
    for (const std::string_view part : parts) m_text += part;
}

Svg::Svg(double width, double height) {
    add({"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"", at(width),
         "\" height=\"", at(height), "\" viewBox=\"0 0 ", at(width), " ", at(height),
         "\" font-family=\"DejaVu Sans, Helvetica, Arial, sans-serif\">\n"});
    rectangle(0, 0, width, height, "fill=\"#ffffff\"");
}

void Svg::line(double x1, double y1, double x2, double y2, const std::string& style) {
    add({"<line x1=\"", at(x1), "\" y1=\"", at(y1), "\" x2=\"", at(x2), "\" y2=\"", at(y2), "\" ", style, "/>\n"});
}

void Svg::rectangle(double x, double y, double width, double height, const std::string& style) {
    add({"<rect x=\"", at(x), "\" y=\"", at(y), "\" width=\"", at(width), "\" height=\"", at(height), "\" ", style,
         "/>\n"});
}

void Svg::circle(double x, double y, double radius, const std::string& style) {
    add({"<circle cx=\"", at(x), "\" cy=\"", at(y), "\" r=\"", at(radius), "\" ", style, "/>\n"});
}

void Svg::path(const std::vector<std::pair<double, double>>& points, const std::string& style) {
    if (points.size() < 2) return;
    add({"<polyline fill=\"none\" ", style, " points=\""});
    for (const auto& [x, y] : points) add({at(x), ",", at(y), " "});
    m_text.back() = '"';
    m_text += "/>\n";
}

void Svg::text(double x, double y, const std::string& utf8, Anchor anchor, double size, const std::string& style,
               bool turned) {
    static const char* const anchors[] = {"start", "middle", "end"};
    add({"<text x=\"", at(x), "\" y=\"", at(y), "\" font-size=\"", at(size), "\" text-anchor=\"",
         anchors[static_cast<int>(anchor)], "\" ", style});
    if (turned) add({" transform=\"rotate(-90 ", at(x), " ", at(y), ")\""});
    add({">", escaped(utf8), "</text>\n"});
}

void Svg::beginClip(double x, double y, double width, double height) {
    const std::string name = std::to_string(++m_clips);
    add({"<clipPath id=\"c", name, "\">"});
    rectangle(x, y, width, height, "");
    add({"</clipPath>\n<g clip-path=\"url(#c", name, ")\">\n"});
}

void Svg::endClip() { m_text += "</g>\n"; }

double Scale::position(double value) const {
    return logarithmic ? std::log(value / low) / std::log(high / low) : (value - low) / (high - low);
}

Scale scaleOver(const std::vector<double>& values, const std::string& what, const std::string& unit, double room) {
    Scale scale;
    scale.low = std::numeric_limits<double>::infinity();
    scale.high = -scale.low;
    for (const double value : values) {
        if (!std::isfinite(value)) continue;
        scale.low = std::min(scale.low, value);
        scale.high = std::max(scale.high, value);
    }
    if (!(scale.low <= scale.high)) scale.low = scale.high = 0.0;
    double span = scale.high - scale.low;
    if (!(span > 0.0)) span = scale.high == 0.0 ? 1.0 : std::fabs(scale.high);
    scale.low -= room * span;
    scale.high += room * span;
    const double largest = std::max(std::fabs(scale.low), std::fabs(scale.high));
    const auto power = static_cast<int>(std::floor(std::log10(largest)));
    if (power < -2 || power > 5) scale.exponent = 3 * static_cast<int>(std::floor(power / 3.0));
    scale.label = what + " [" + (scale.exponent == 0 ? "" : "10" + superscript(scale.exponent) + " ") + unit + "]";
    return scale;
}

Plot::Plot(Svg& svg, double x, double y, double width, double height, Scale across, Scale up)
    : m_svg(svg), m_x(x), m_y(y), m_width(width), m_height(height), m_across(std::move(across)), m_up(std::move(up)) {}

void Plot::shade(double low, double high, const std::string& style) {
    const double left = std::clamp(pixelX(low), m_x, m_x + m_width);
    const double right = std::clamp(pixelX(high), m_x, m_x + m_width);
    if (right > left) m_svg.rectangle(left, m_y, right - left, m_height, style);
}

void Plot::axes(bool withLabels) {
    for (const Tick& tick : ticksOf(m_across, m_width, 90.0)) {
        const double x = pixelX(tick.value);
        m_svg.line(x, m_y, x, m_y + m_height, gridStyle);
        m_svg.line(x, m_y + m_height, x, m_y + m_height + tickLength, frameStyle);
        if (withLabels) {
            m_svg.text(x, m_y + m_height + tickLength + tickSize, tick.text, Svg::Anchor::middle, tickSize, mutedText);
        }
    }
    for (const Tick& tick : ticksOf(m_up, m_height, m_height < 200.0 ? 26.0 : 38.0)) {
        const double y = pixelY(tick.value, m_up);
        m_svg.line(m_x, y, m_x + m_width, y, gridStyle);
        m_svg.line(m_x - tickLength, y, m_x, y, frameStyle);
        m_svg.text(m_x - tickLength - 3.0, y + 0.35 * tickSize, tick.text, Svg::Anchor::end, tickSize, mutedText);
    }
    m_svg.rectangle(m_x, m_y, m_width, m_height, frameStyle);
    if (withLabels) {
        m_svg.text(m_x + m_width / 2, m_y + m_height + 38.0, m_across.label, Svg::Anchor::middle, labelSize);
    }
    labelLeft();
}

/// The scale's label, its unit on a line of its own where the plot is too low for both.
void Plot::labelLeft() {
    const std::string& label = m_up.label;
    const double middle = m_y + m_height / 2;
    const size_t unit = label.find(" [");
    if (0.55 * labelSize * static_cast<double>(displayWidth(label)) <= m_height || unit == std::string::npos) {
        m_svg.text(m_x - 58.0, middle, label, Svg::Anchor::middle, labelSize, "", true);
        return;
    }
    m_svg.text(m_x - 68.0, middle, label.substr(0, unit), Svg::Anchor::middle, labelSize, "", true);
    m_svg.text(m_x - 51.0, middle, label.substr(unit + 1), Svg::Anchor::middle, labelSize, "", true);
}

void Plot::rightAxis(const Scale& scale) {
    m_right = scale;
    const double x = m_x + m_width;
    for (const Tick& tick : ticksOf(scale, m_height, 38.0)) {
        const double y = pixelY(tick.value, scale);
        m_svg.line(x, y, x + tickLength, y, frameStyle);
        m_svg.text(x + tickLength + 3.0, y + 0.35 * tickSize, tick.text, Svg::Anchor::start, tickSize, mutedText);
    }
    m_svg.text(x + 72.0, m_y + m_height / 2, scale.label, Svg::Anchor::middle, labelSize, "", true);
}

void Plot::topAxis(const std::vector<std::pair<double, std::string>>& ticks, const std::string& label) {
    double free = m_x;  // a label is left out where it would run into the one before
    for (const auto& [value, text] : ticks) {
        const double x = pixelX(value);
        m_svg.line(x, m_y - tickLength, x, m_y, frameStyle);
        const double half = 0.33 * tickSize * static_cast<double>(displayWidth(text));
        if (x - half < free || x + half > m_x + m_width + 12.0) continue;
        m_svg.text(x, m_y - tickLength - 3.0, text, Svg::Anchor::middle, tickSize, mutedText);
        free = x + half + 6.0;
    }
    m_svg.text(m_x + m_width / 2, m_y - tickLength - 20.0, label, Svg::Anchor::middle, labelSize);
}

void Plot::drawCurve(const std::vector<double>& x, const std::vector<double>& y, const Scale& up,
                     const std::string& style) {
    m_svg.beginClip(m_x, m_y, m_width, m_height);
    std::vector<std::pair<double, double>> run;
    const size_t count = std::min(x.size(), y.size());
    for (size_t i = 0; i < count; ++i) {
        const double across = pixelX(x[i]);
        const double high = pixelY(y[i], up);
        if (std::isfinite(across) && std::isfinite(high)) {
            // Far outside, the place does not matter, and renderers lose themselves in large numbers.
            const std::pair next(across, std::clamp(high, m_y - 10.0 * m_height, m_y + 11.0 * m_height));
            // Steps that nobody sees are left out, but not the last.
            const bool seen = run.empty() || i + 1 == count || std::fabs(next.first - run.back().first) > 0.25 ||
                              std::fabs(next.second - run.back().second) > 0.25;
            if (seen) run.push_back(next);
            continue;
        }
        m_svg.path(run, style);
        run.clear();
    }
    m_svg.path(run, style);
    m_svg.endClip();
}

void Plot::curve(const std::vector<double>& x, const std::vector<double>& y, const std::string& style) {
    drawCurve(x, y, m_up, style);
}

void Plot::curveRight(const std::vector<double>& x, const std::vector<double>& y, const std::string& style) {
    drawCurve(x, y, m_right, style);
}

void Plot::point(double x, double y, const std::string& style) {
    if (std::isfinite(x) && std::isfinite(y)) m_svg.circle(pixelX(x), pixelY(y, m_up), 4.0, style);
}

void Plot::stem(double x, double y, const std::string& style) {
    if (std::isfinite(x) && std::isfinite(y))
        m_svg.line(pixelX(x), pixelY(0.0, m_up), pixelX(x), pixelY(y, m_up), style);
}

void Plot::legend(const std::vector<Entry>& entries, bool atRight) {
    constexpr double lineHeight = 18.0;
    constexpr double sample = 24.0;
    size_t longest = 0;
    for (const Entry& entry : entries) longest = std::max(longest, displayWidth(entry.text));
    const double width = sample + 22.0 + 0.6 * tickSize * static_cast<double>(longest);
    const double height = lineHeight * static_cast<double>(entries.size()) + 8.0;
    const double left = atRight ? m_x + m_width - width - 8.0 : m_x + 8.0;
    double y = m_y + 8.0;
    m_svg.rectangle(left, y, width, height, "fill=\"#ffffff\" fill-opacity=\"0.88\" stroke=\"#bbb\"");
    y += 4.0;
    for (const Entry& entry : entries) {
        const double middle = y + lineHeight / 2;
        if (entry.isPoint) {
            m_svg.circle(left + 8.0 + sample / 2, middle, 4.0, entry.style);
        } else {
            m_svg.line(left + 8.0, middle, left + 8.0 + sample, middle, entry.style);
        }
        m_svg.text(left + 14.0 + sample, middle + 0.35 * tickSize, entry.text, Svg::Anchor::start, tickSize);
        y += lineHeight;
    }
}

}  // namespace tool
