// qv rcal plot: a page of a calibration as a drawing.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>

#include "calibration.h"
#include "command.h"
#include "json.h"
#include "picture.h"
#include "qv/spectral.h"
#include "rcal_commands.h"
#include "rcal_report.h"
#include "rcal_sources.h"
#include "svg.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::string file;
    int32_t page = 0;
    std::string output;
    bool force = false;
    bool json = false;
};

constexpr double pictureWidth = 800.0;
constexpr double pictureHeight = 1180.0;
constexpr double plotLeft = 84.0;
constexpr double plotWidth = 630.0;
constexpr int curveSamples = 400;
/// The part of the spectrum's height that its legend leaves to the curves.
constexpr double roomBelowLegend = 0.72;

constexpr char fitStyle[] = "stroke=\"#1f6fb4\" stroke-width=\"2\"";
constexpr char usedPoint[] = "fill=\"#c4262e\" stroke=\"#ffffff\" stroke-width=\"1\"";
constexpr char unusedPoint[] = "fill=\"#ffffff\" stroke=\"#c4262e\" stroke-width=\"1.5\"";
constexpr char stemStyle[] = "stroke=\"#c4262e\" stroke-width=\"1.5\" stroke-opacity=\"0.55\"";
constexpr char zeroStyle[] = "stroke=\"#444\" stroke-width=\"1\"";
constexpr char rangeFill[] = "fill=\"#e6f0e2\"";
constexpr char rangeSample[] = "stroke=\"#cfe3c6\" stroke-width=\"10\"";
constexpr char responseStyle[] = "stroke=\"#222\" stroke-width=\"2\"";
constexpr char coldStyle[] = "stroke=\"#1f6fb4\" stroke-width=\"2\" stroke-dasharray=\"7 4\"";
constexpr char hotStyle[] = "stroke=\"#c4262e\" stroke-width=\"2\" stroke-dasharray=\"7 4\"";

std::vector<double> toVector(const qv::TArray<double>& values) { return {values.begin(), values.end()}; }

/// A page, ready to be drawn.
class PagePlot {
public:
    PagePlot(qv::CRCalFile& calibration, const Options& options)
        : m_calibration(calibration),
          m_report(reportPage(calibration, options.page, Limits())),
          m_forward(forwardCoefficients(calibration, options.page)),
          m_title(std::filesystem::path(options.file).filename().string() + ", page " + std::to_string(options.page)),
          m_svg(pictureWidth, pictureHeight) {
        m_lowCounts = std::min(m_report.record->minCounts, m_report.record->maxCounts);
        m_highCounts = std::max(m_report.record->minCounts, m_report.record->maxCounts);
        std::vector<double> counts;
        for (const PointReport& p : m_report.points) counts.push_back(p.point.measurement);
        if (hasRange()) counts.insert(counts.end(), {m_lowCounts, m_highCounts});
        m_across = scaleOver(counts, "measurement", "counts", 0.04);
        m_across.exponent = 0;
        m_across.label = "measurement [counts]";
    }

    std::string draw() {
        drawTitle();
        drawFit(112.0, 330.0);
        drawResiduals(468.0, 130.0, false);
        drawResiduals(624.0, 130.0, true);
        drawSpectrum(848.0, 270.0);
        return m_svg.document();
    }
    const PageReport& report() const { return m_report; }

private:
    bool hasRange() const { return m_report.record->minTemperature < m_report.record->maxTemperature; }
    bool hasFit() const { return m_forward.size() >= 2; }
    void shadeRange(Plot& plot) const {
        if (hasRange()) plot.shade(m_lowCounts, m_highCounts, rangeFill);
    }

    void drawTitle() {
        const qv::CAL_PAGE& page = *m_report.record;
        m_svg.text(pictureWidth / 2, 28.0, m_title, Svg::Anchor::middle, 19.0, "font-weight=\"bold\"");
        std::string line = !hasFit() ? "no fit from counts to radiance"
                           : m_report.overridden
                               ? "polynomial of order " + std::to_string(m_report.order) + ", given by the user"
                               : "polynomial of order " + std::to_string(m_report.order) + " through " +
                                     std::to_string(m_report.enabled) + " points, R² " + fixed(page.r2, 6);
        if (m_report.residual.known()) {
            line += ", residual rms " + number(m_report.residual.rms, 3) + " K, worst " +
                    withMinus(number(m_report.residual.worst, 3)) + " K at " + withMinus(number(m_report.residual.at)) +
                    " °C";
        }
        m_svg.text(pictureWidth / 2, 50.0, line, Svg::Anchor::middle, 13.0, "fill=\"#333\"");
    }

    /// Round temperatures of black sources, at the counts that they give.
    std::vector<std::pair<double, std::string>> temperatureTicks() const {
        std::vector<std::pair<double, std::string>> ticks;
        if (!hasRange() || !hasFit()) return ticks;
        const qv::CAL_PAGE& page = *m_report.record;
        const Ticks rounded = roundTicks(page.minTemperature, page.maxTemperature, 12);
        for (const double celsius : rounded.values) {
            const double counts =
                countsOf(m_forward, seenRadiance(m_calibration, celsius, {}), m_lowCounts, m_highCounts);
            if (counts >= m_across.low && counts <= m_across.high) {
                ticks.emplace_back(counts, withMinus(fixed(celsius, rounded.decimals)));
            }
        }
        std::sort(ticks.begin(), ticks.end());
        return ticks;
    }

    void drawFit(double top, double height) {
        std::vector<double> counts, fitted, all;
        for (int i = 0; hasFit() && i <= curveSamples; ++i) {
            counts.push_back(m_across.low + (m_across.high - m_across.low) * i / curveSamples);
            fitted.push_back(polynomial(m_forward, counts.back()));
        }
        for (const PointReport& p : m_report.points) all.push_back(p.point.radiance);
        if (hasRange()) all.insert(all.end(), {m_report.record->minRadiance, m_report.record->maxRadiance});
        Plot plot(m_svg, plotLeft, top, plotWidth, height, m_across, scaleOver(all, "radiance", "W/(sr·cm²)", 0.1));
        shadeRange(plot);
        plot.axes(false);
        if (const auto ticks = temperatureTicks(); !ticks.empty())
            plot.topAxis(ticks, "temperature of a blackbody [°C]");
        plot.curve(counts, fitted, fitStyle);
        bool unused = false;
        for (const PointReport& p : m_report.points) {
            unused = unused || !p.point.enabled;
            plot.point(p.point.measurement, p.point.radiance, p.point.enabled ? usedPoint : unusedPoint);
        }
        std::vector<Plot::Entry> entries{{usedPoint, "points", true}};
        if (unused) entries.push_back({unusedPoint, "points left out", true});
        if (hasFit()) entries.push_back({fitStyle, m_report.overridden ? "polynomial of the user" : "fit"});
        if (hasRange()) {
            entries.push_back({rangeSample, "valid range, " + withMinus(number(m_report.record->minTemperature)) +
                                                " to " + withMinus(number(m_report.record->maxTemperature)) + " °C"});
        }
        plot.legend(entries, m_report.direction < 0);
    }

    /// Fit less point, in radiance or in kelvin.
    void drawResiduals(double top, double height, bool inKelvin) {
        // What lies below that is rounding, and not worth a scale of its own.
        const double floor = inKelvin ? 1e-3 : 1e-6 * std::fabs(m_report.record->maxRadiance);
        std::vector<double> residuals{-floor, floor};
        const auto residual = [&](const PointReport& p) { return inKelvin ? p.kelvin : p.fitted - p.point.radiance; };
        for (const PointReport& p : m_report.points) residuals.push_back(hasFit() ? residual(p) : 0.0);
        Scale up = scaleOver(residuals, "fit − point", inKelvin ? "K" : "W/(sr·cm²)", 0.15);
        if (inKelvin && up.exponent == -3) {  // a thousandth of a kelvin is read as it is
            up.exponent = 0;
            up.label = "fit − point [K]";
        }
        Plot plot(m_svg, plotLeft, top, plotWidth, height, m_across, up);
        shadeRange(plot);
        plot.axes(inKelvin);
        plot.curve({m_across.low, m_across.high}, {0.0, 0.0}, zeroStyle);
        for (const PointReport& p : m_report.points) {
            if (!hasFit()) continue;
            plot.stem(p.point.measurement, residual(p), stemStyle);
            plot.point(p.point.measurement, residual(p), p.point.enabled ? usedPoint : unusedPoint);
        }
    }

    /// The coldest and the hottest temperature of the points in use, else of the page's range.
    std::pair<double, double> extremes() const {
        std::vector<double> celsius;
        for (const PointReport& p : m_report.points) {
            if (p.point.enabled) celsius.push_back(p.point.temperature);
        }
        if (celsius.empty()) return {m_report.record->minTemperature, m_report.record->maxTemperature};
        const auto [low, high] = std::minmax_element(celsius.begin(), celsius.end());
        return {*low, *high};
    }

    void drawSpectrum(double top, double height) {
        qv::TArray<double> x, y, planck;
        m_calibration.GetFinalSpectralResponse(x, y);
        const std::vector<double> microns = toVector(x);
        const auto [cold, hot] = extremes();
        std::vector<double> spectra[2];
        for (const auto& [celsius, at] : {std::pair{cold, 0}, {hot, 1}}) {
            qv::Planck(x, planck, celsius, 1.0);
            spectra[at] = toVector(planck);
        }
        std::vector<double> response = toVector(y);
        Scale across = scaleOver(microns, "wavelength", "µm", 0.05);
        Scale up = scaleOver(response, "spectral response", "1", 0.0);
        up.low = 0.0;
        up.high /= roomBelowLegend;
        // A top-hat falls to 0 at its ends.
        if (!microns.empty()) {
            std::vector<double> closedX = microns;
            closedX.insert(closedX.begin(), {across.low, microns.front()});
            closedX.insert(closedX.end(), {microns.back(), across.high});
            response.insert(response.begin(), 2, 0.0);
            response.insert(response.end(), 2, 0.0);
            drawCurves(Plot(m_svg, plotLeft, top, plotWidth, height, across, up), closedX, response, microns, spectra);
        }
    }
    void drawCurves(Plot plot, const std::vector<double>& closedX, const std::vector<double>& response,
                    const std::vector<double>& microns, const std::vector<double> (&spectra)[2]) {
        const auto [cold, hot] = extremes();
        Scale right;
        right.logarithmic = true;
        right.low = std::numeric_limits<double>::infinity();
        right.high = 0.0;
        for (const auto& spectrum : spectra) {
            for (const double value : spectrum) {
                if (value > 0.0) right.low = std::min(right.low, value);
                right.high = std::max(right.high, value);
            }
        }
        right.label = "blackbody [W/(sr·cm²·µm)]";
        right.low = std::pow(10.0, std::floor(std::log10(std::max(right.low, right.high * 1e-9))));
        right.high = right.low * std::pow(right.high / right.low, 1.0 / roomBelowLegend);
        plot.axes();
        const bool drawable = right.low < right.high && std::isfinite(right.high);
        if (drawable) plot.rightAxis(right);
        plot.curve(closedX, response, responseStyle);
        std::vector<Plot::Entry> entries{{responseStyle, "response, with all that is in force"}};
        if (drawable) {
            plot.curveRight(microns, spectra[0], coldStyle);
            plot.curveRight(microns, spectra[1], hotStyle);
            entries.push_back({coldStyle, "blackbody at the coldest point, " + withMinus(number(cold)) + " °C"});
            entries.push_back({hotStyle, "blackbody at the hottest point, " + withMinus(number(hot)) + " °C"});
        }
        plot.legend(entries, false);
    }

    qv::CRCalFile& m_calibration;
    const PageReport m_report;
    const std::vector<double> m_forward;
    const std::string m_title;
    Svg m_svg;
    Scale m_across;
    double m_lowCounts = 0.0;
    double m_highCounts = 0.0;
};

Exit plot(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.file);
    warnOfMissingResponses(calibration, options.file);
    if (calibration.GetPage(options.page) == nullptr) {
        throw Failure(Exit::negative, options.file + ": there is no page " + std::to_string(options.page) +
                                          " (it has " + std::to_string(calibration.calPages().getCount()) + ")");
    }
    PagePlot drawing(calibration, options);
    if (drawing.report().points.empty()) {
        throw Failure(Exit::negative,
                      options.file + ": page " + std::to_string(options.page) + " has no points to draw");
    }
    const std::string svg = drawing.draw();
    Target target(options.output, options.force);
    if (!target.open()->WriteBytes(svg.data(), static_cast<uint32_t>(svg.size()))) {
        throw Failure(Exit::io, options.output + ": cannot be written (is the disk full?)");
    }
    target.commit();
    const auto points = static_cast<uint64_t>(drawing.report().points.size());
    if (options.json) {
        Json::document("qv.rcal.plot.1")
            .set("output", options.output)
            .set("page", options.page)
            .set("points", points)
            .print(std::cout);
    } else {
        std::cout << options.output << ": page " << options.page << ", " << points << " points\n";
    }
    return Exit::done;
}

}  // namespace

void addRcalPlot(CLI::App& rcal) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addCommand(rcal, "plot",
                                "Draw a page as an SVG: points and fit, residuals in radiance and in kelvin, the valid "
                                "range, and the spectral response with the blackbody at the coldest and hottest point.",
                                "  qv rcal plot camera.rcal -o camera.svg\n"
                                "  qv rcal plot camera.rcal --page 1 -o warm.svg --force",
                                [options] { return plot(*options); });
    verb->add_option("file", options->file, "Calibration")->required();
    verb->add_option("--page", options->page, "Page, from 0");
    verb->add_option("-o,--output", options->output, "Drawing to write")->required();
    verb->add_flag("--force", options->force, "Replace the output when it exists");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
