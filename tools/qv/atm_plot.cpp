#include "atm_plot.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

#include "svg.h"
#include "text.h"

namespace tool {

namespace {

using Column = qv::ETape7Column;

constexpr double pictureWidth = 800.0;
constexpr double plotLeft = 84.0;
constexpr double plotWidth = 690.0;
constexpr double plotTop = 84.0;
constexpr double plotHeight = 270.0;
constexpr double below = 74.0;       // a plot's labels and some air
constexpr double legendRoom = 40.0;  // of one line

/// Between a curve and the frame, so that one that runs along 0 or 1 is seen.
constexpr double airShare = 0.02;

struct Line {
    Column column;
    std::string name;
    std::string style;
};

constexpr char blue[] = "stroke=\"#1f6fb4\" stroke-width=\"1.6\"";
constexpr char red[] = "stroke=\"#c4262e\" stroke-width=\"1.6\"";
constexpr char orange[] = "stroke=\"#d9820f\" stroke-width=\"1.6\"";
constexpr char grey[] = "stroke=\"#8a8f98\" stroke-width=\"1.6\"";

/// What may stand in a panel. The last line lies under the others.
const std::vector<Line> transmittances = {{Column::transmittance, "whole path", "stroke=\"#222\" stroke-width=\"1.6\""},
                                          {Column::water, "water lines", blue},
                                          {Column::mixedGases, "mixed gases", orange},
                                          {Column::aerosolCloud, "aerosol and cloud", grey}};
const std::vector<Line> radiances = {{Column::pathThermal, "path, thermal", red},
                                     {Column::pathSolar, "path, scattered sunlight", orange},
                                     {Column::totalRadiance, "total at the sensor", grey}};
const std::vector<Line> irradiances = {{Column::transmittedSun, "behind the path", orange},
                                       {Column::sunAtTop, "at the top of the atmosphere", grey}};

class AtmospherePlot {
public:
    explicit AtmospherePlot(const AtmTable& atm) : m_atm(atm) {
        m_microns = overRows([&](const qv::TAPE7_DATA& row) { return atm.microns(row.freq); });
        m_across = scaleOver(m_microns, "wavelength", "µm", 0.0);
    }

    std::string draw() {
        const std::vector<Line> upper = present(transmittances);
        const std::vector<Line> lower = present(m_atm.has(Column::transmittedSun) ? irradiances : radiances);
        const double height = plotTop + (lower.empty() ? 1.0 : 2.0) * (plotHeight + below);
        Svg svg(pictureWidth, height);
        drawTitle(svg);
        Scale up;
        up.label = "transmittance [1]";
        up.low = -airShare;
        up.high = 1.0 + (upper.size() > 1 ? legendShare(upper) : airShare);
        drawPanel(svg, plotTop, up, upper, false);
        if (!lower.empty()) {
            const bool sun = quantityOf(lower.front().column) == AtmQuantity::irradiance;
            std::vector<double> all{0.0};
            for (const Line& line : lower) {
                const std::vector<double> values = valuesOf(line.column, true);
                all.insert(all.end(), values.begin(), values.end());
            }
            Scale radiance = scaleOver(all, sun ? "irradiance" : "radiance", sun ? "W/(cm²·µm)" : "W/(sr·cm²·µm)", 0.0);
            radiance.low = -airShare * radiance.high;
            radiance.high *= 1.0 + airShare + legendShare(lower);
            drawPanel(svg, plotTop + plotHeight + below, radiance, lower, true);
        }
        return svg.document();
    }

private:
    /// Those whose column has values, and others than the line before.
    std::vector<Line> present(const std::vector<Line>& lines) const {
        std::vector<Line> found;
        const qv::TArray<qv::TAPE7_DATA>& rows = m_atm.table().data;
        for (const Line& line : lines) {
            const auto has = [&](const qv::TAPE7_DATA& row) { return row.Has(line.column); };
            const auto repeats = [&](const qv::TAPE7_DATA& row) {
                return !found.empty() && (row[line.column] == row[found.back().column] || !has(row));
            };
            if (std::any_of(rows.begin(), rows.end(), has) && !std::all_of(rows.begin(), rows.end(), repeats)) {
                found.push_back(line);
            }
        }
        return found;
    }

    /// The part of a panel that its legend takes, as a part of what is left.
    static double legendShare(const std::vector<Line>& lines) {
        const double share = (legendRoom + 18.0 * static_cast<double>(lines.size() - 1)) / plotHeight;
        return share / (1.0 - share);
    }

    /// What `value` makes of each row. In a gap stands no number, so that no line leads over it.
    template <class Value>
    std::vector<double> overRows(Value value) const {
        const qv::TArray<qv::TAPE7_DATA>& rows = m_atm.table().data;
        std::vector<double> values;
        for (uint32_t i = 0; i < rows.size(); ++i) {
            if (rows.ConstGetItem(i).freq <= 0.0) continue;  // It has no wavelength.
            if (m_atm.isBehindGap(i)) values.push_back(qv::TAPE7_DATA::absent);
            values.push_back(value(rows.ConstGetItem(i)));
        }
        return values;
    }
    std::vector<double> valuesOf(Column column, bool perMicron) const {
        return overRows(
            [&](const qv::TAPE7_DATA& row) { return row[column] * (perMicron ? m_atm.perMicron(row.freq) : 1.0); });
    }

    void drawTitle(Svg& svg) const {
        const std::string name = std::filesystem::path(m_atm.path()).filename().string();
        svg.text(pictureWidth / 2, 30.0, name + ", run " + std::to_string(m_atm.run()), Svg::Anchor::middle, 19.0,
                 "font-weight=\"bold\"");
        std::string line = m_atm.modeName() + ", " + std::to_string(m_atm.table().data.size()) + " rows, " +
                           number(m_across.low, 5) + " to " + number(m_across.high, 5) + " µm";
        if (!m_atm.table().complete) line += ", cut off";
        svg.text(pictureWidth / 2, 54.0, line, Svg::Anchor::middle, 13.0, "fill=\"#333\"");
    }

    void drawPanel(Svg& svg, double top, const Scale& up, const std::vector<Line>& lines, bool perMicron) const {
        Plot plot(svg, plotLeft, top, plotWidth, plotHeight, m_across, up);
        plot.axes();
        std::vector<Plot::Entry> entries;
        for (const Line& line : lines) entries.push_back({line.style, line.name});
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            plot.curve(m_microns, valuesOf(line->column, perMicron), line->style);
        }
        if (entries.size() > 1 || perMicron) plot.legend(entries, false);
    }

    const AtmTable& m_atm;
    std::vector<double> m_microns;
    Scale m_across;
};

}  // namespace

std::string drawAtmosphere(const AtmTable& atm) { return AtmospherePlot(atm).draw(); }

}  // namespace tool
