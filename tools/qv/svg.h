// Line drawings: an SVG document, and plots of curves and points with axes.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

/// An SVG document; lengths are in pixels from the upper left. Text is set in a sans-serif font.
class Svg {
public:
    Svg(double width, double height);

    enum class Anchor { start, middle, end };
    void line(double x1, double y1, double x2, double y2, const std::string& style);
    void rectangle(double x, double y, double width, double height, const std::string& style);
    void circle(double x, double y, double radius, const std::string& style);
    void path(const std::vector<std::pair<double, double>>& points, const std::string& style);
    /// `turned`: reads upwards.
    void text(double x, double y, const std::string& utf8, Anchor anchor, double size, const std::string& style = "",
              bool turned = false);
    /// What is drawn until endClip is shown only within the rectangle.
    void beginClip(double x, double y, double width, double height);
    void endClip();

    /// The whole document.
    std::string document() const { return m_text + "</svg>\n"; }

private:
    void add(std::initializer_list<std::string_view> parts);

    std::string m_text;
    int m_clips = 0;
};

/// A number's text with a true minus sign.
std::string withMinus(const std::string& number);

/// One direction of a plot.
struct Scale {
    double low = 0.0;
    double high = 1.0;
    bool logarithmic = false;
    std::string label;  ///< What and in which unit.
    /// Values are divided by ten to this power for their tick labels; the label says so.
    int exponent = 0;

    /// 0 at `low`, 1 at `high`.
    double position(double value) const;
};

/// A scale that holds all the values with some room at both ends. `exponent` becomes a multiple of 3 that keeps the
/// tick labels short; the label is `what` with the unit in brackets.
Scale scaleOver(const std::vector<double>& values, const std::string& what, const std::string& unit,
                double room = 0.06);

/// A rectangle with a scale below and one at its left (and perhaps one at its right), into which curves are drawn in
/// the units of the scales. Values that are not finite interrupt a curve.
class Plot {
public:
    Plot(Svg& svg, double x, double y, double width, double height, Scale across, Scale up);

    /// A band from `low` to `high` across, drawn over the whole height. Draw it first.
    void shade(double low, double high, const std::string& style);
    /// Grid, frame, ticks and labels. `withLabels` false leaves out what stands below.
    void axes(bool withLabels = true);
    /// A second scale at the right side, which curveRight draws by.
    void rightAxis(const Scale& scale);
    /// Ticks above the plot: positions across, and what stands there.
    void topAxis(const std::vector<std::pair<double, std::string>>& ticks, const std::string& label);
    void curve(const std::vector<double>& x, const std::vector<double>& y, const std::string& style);
    void curveRight(const std::vector<double>& x, const std::vector<double>& y, const std::string& style);
    void point(double x, double y, const std::string& style);
    /// A line from the value 0 to `y`, as residuals have.
    void stem(double x, double y, const std::string& style);
    /// Entries of the legend, in the upper left or right corner: a sample of the line's or the point's style, and a
    /// text.
    struct Entry {
        std::string style;
        std::string text;
        bool isPoint = false;
    };
    void legend(const std::vector<Entry>& entries, bool atRight);

private:
    double pixelX(double value) const { return m_x + m_width * m_across.position(value); }
    double pixelY(double value, const Scale& scale) const { return m_y + m_height * (1.0 - scale.position(value)); }
    void labelLeft();
    void drawCurve(const std::vector<double>& x, const std::vector<double>& y, const Scale& up,
                   const std::string& style);

    Svg& m_svg;
    double m_x, m_y, m_width, m_height;
    Scale m_across, m_up, m_right;
};

}  // namespace tool
