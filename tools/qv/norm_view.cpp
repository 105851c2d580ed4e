// qv norm view: a table as a picture.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>

#include "command.h"
#include "json.h"
#include "norm_commands.h"
#include "norm_table.h"
#include "picture.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

using qv::CNormFile;

struct Options {
    std::string file;
    std::string range;
    Palette palette = Palette::gray;
    std::string output;
    bool force = false;
    bool json = false;
};

constexpr Colour paper = {250, 250, 248};
constexpr Colour ink = {30, 30, 34};
constexpr Colour frameLine = {150, 150, 156};
constexpr Colour goodColour = {228, 230, 234};
constexpr Colour otherColour = {150, 160, 176};
constexpr Colour unsubstituted = {0, 0, 0};
// In the order of clusterSizes.
constexpr Colour clusterColours[] = {{0, 110, 190}, {0, 150, 90}, {225, 130, 0}, {205, 20, 40}};

size_t sizeClass(const Cluster& cluster) {
    const auto found = std::find_if(std::begin(clusterSizes), std::end(clusterSizes),
                                    [&](const ClusterSize& size) { return cluster.pixels <= size.most; });
    return static_cast<size_t>(found - std::begin(clusterSizes));
}

/// A line of the legend, and of the table that is printed.
struct Kind {
    std::string name;
    Colour colour;
    uint64_t clusters = 0;
    uint64_t pixels = 0;
};
std::vector<Kind> countKinds(const Clusters& clusters) {
    std::vector<Kind> kinds;
    for (size_t i = 0; i < std::size(clusterSizes); ++i) kinds.push_back({clusterSizes[i].name, clusterColours[i]});
    for (const Cluster& cluster : clusters.list) {
        ++kinds[sizeClass(cluster)].clusters;
        kinds[sizeClass(cluster)].pixels += cluster.pixels;
    }
    return kinds;
}

/// A bad-pixel map: the sensor with a mark for each bad pixel, coloured by the size of its cluster, above a legend.
class MapPicture {
public:
    MapPicture(NormTable& table, const Clusters& clusters, const std::string& title)
        : m_map(table.norm.GetBadPixels()),
          m_width(table.norm.xPixels()),
          m_height(table.norm.yPixels()),
          m_clusters(clusters),
          m_counts(countFlags(m_map, table.pixels())),
          m_title(title),
          m_magnify(std::max<int64_t>(1, 768 / std::max(m_width, m_height))),
          m_mark(std::max<int64_t>(m_magnify, 3)),
          m_left(margin + Canvas::textWidth(std::to_string(m_height), scale) + tick) {}

    Canvas draw() const {
        const std::vector<Line> legend = legendLines();
        int64_t right = m_left + m_width * m_magnify;
        for (const Line& line : legend)
            right = std::max(right, 2 * margin + swatch + Canvas::textWidth(line.text, scale));
        for (const std::string& line : head()) right = std::max(right, margin + Canvas::textWidth(line, scale));
        const int64_t top = margin + static_cast<int64_t>(head().size()) * lineStep + margin / 2;
        const int64_t bottom = top + m_height * m_magnify + lineStep + margin;
        Canvas canvas(static_cast<uint32_t>(right + margin),
                      static_cast<uint32_t>(bottom + static_cast<int64_t>(legend.size()) * lineStep + margin / 2),
                      paper);
        int64_t y = margin;
        for (const std::string& line : head()) {
            canvas.text(margin, y, line, scale, ink);
            y += lineStep;
        }
        drawSensor(canvas, top);
        y = bottom;
        for (const Line& line : legend) {
            canvas.fill(margin, y, swatch, swatch, frameLine);
            canvas.fill(margin + 1, y + 1, swatch - 2, swatch - 2, line.colour);
            canvas.text(margin + swatch + margin / 2, y, line.text, scale, ink);
            y += lineStep;
        }
        return canvas;
    }

private:
    static constexpr int64_t scale = 2;
    static constexpr int64_t margin = 16;
    static constexpr int64_t swatch = Canvas::glyphHeight * scale;
    static constexpr int64_t lineStep = swatch + 8;
    static constexpr int64_t tick = 6;

    struct Line {
        Colour colour;
        std::string text;
    };

    std::vector<std::string> head() const {
        const auto pixels = static_cast<uint64_t>(m_width * m_height);
        std::string size =
            std::to_string(m_width) + " x " + std::to_string(m_height) + " pixels, bad: " + share(m_counts.bad, pixels);
        return {m_title, size};
    }

    std::vector<Line> legendLines() const {
        std::vector<Line> lines;
        for (const Kind& kind : countKinds(m_clusters)) {
            const bool single = kind.name == clusterSizes[0].name;
            lines.push_back({kind.colour, (single ? "single: " : "cluster of " + kind.name + ": ") +
                                              std::to_string(kind.clusters) +
                                              (single ? "" : " (" + std::to_string(kind.pixels) + " pixels)")});
        }
        lines.push_back({unsubstituted, "without a substitute: " + std::to_string(m_counts.withoutSubstitute)});
        if (m_counts.other != 0) {
            lines.push_back({otherColour, "other flags, left alone: " + std::to_string(m_counts.other)});
        }
        return lines;
    }

    void drawSensor(Canvas& canvas, int64_t top) const {
        const int64_t width = m_width * m_magnify;
        const int64_t height = m_height * m_magnify;
        canvas.fill(m_left - 1, top - 1, width + 2, height + 2, frameLine);
        canvas.fill(m_left, top, width, height, goodColour);
        drawTicks(canvas, top);
        // Marks may overlap their neighbours' pixels: the larger clusters are drawn last, and stay whole.
        for (size_t kind = 0; kind <= std::size(clusterSizes); ++kind) {
            for (int64_t i = 0; i < m_width * m_height; ++i) drawPixel(canvas, top, i, kind);
        }
    }
    /// Column numbers below the sensor, row numbers at its left, both from 0.
    void drawTicks(Canvas& canvas, int64_t top) const {
        const auto half = m_magnify / 2;
        const int64_t below = top + m_height * m_magnify;
        for (const double column : roundTicks(0, static_cast<double>(m_width - 1), 8).values) {
            const std::string text = fixed(column, 0);
            const int64_t x = m_left + static_cast<int64_t>(column) * m_magnify + half;
            canvas.fill(x, below, scale, tick, ink);
            canvas.text(x - Canvas::textWidth(text, scale) / 2, below + tick + 4, text, scale, ink);
        }
        for (const double row : roundTicks(0, static_cast<double>(m_height - 1), 8).values) {
            const std::string text = fixed(row, 0);
            const int64_t y = top + static_cast<int64_t>(row) * m_magnify + half;
            canvas.fill(m_left - tick, y, tick, scale, ink);
            canvas.text(m_left - tick - 4 - Canvas::textWidth(text, scale), y - swatch / 2, text, scale, ink);
        }
    }
    void drawPixel(Canvas& canvas, int64_t top, int64_t i, size_t kind) const {
        const auto at = static_cast<size_t>(i);
        if (m_map.flags[at] == 0) return;
        const bool bad = m_map.flags[at] == 1;
        if (kind != (bad ? 1 + sizeClass(m_clusters.list[m_clusters.of[at] - 1]) : 0)) return;
        const Colour colour = !bad ? otherColour : m_map.subs[at] == i ? unsubstituted : clusterColours[kind - 1];
        const int64_t inset = (m_mark - m_magnify) / 2;
        const int64_t left = std::max<int64_t>(0, i % m_width * m_magnify - inset);
        const int64_t upper = std::max<int64_t>(0, i / m_width * m_magnify - inset);
        canvas.fill(m_left + left, top + upper, std::min(m_mark, m_width * m_magnify - left),
                    std::min(m_mark, m_height * m_magnify - upper), colour);
    }

    const CNormFile::BPINFO m_map;
    const int64_t m_width;
    const int64_t m_height;
    const Clusters& m_clusters;
    const MapCounts m_counts;
    const std::string m_title;
    const int64_t m_magnify;
    const int64_t m_mark;  ///< Side of a pixel's mark, at least 3 so that a single one is seen.
    const int64_t m_left;  ///< Of the sensor, in the picture.
};

/// The picture of a gain or offset table.
Canvas drawValues(NormTable& table, const Options& options, const std::string& title, std::pair<double, double>& span) {
    std::vector<float> values(table.pixels());
    if (const float* gains = table.norm.GetGains(); gains != nullptr) {
        std::copy_n(gains, values.size(), values.begin());
    } else {
        std::copy_n(table.norm.GetOffsets(), values.size(), values.begin());
    }
    span = paletteSpan(options.range, values);
    FramePicture picture;
    picture.values = values.data();
    picture.width = table.norm.xPixels();
    picture.height = table.norm.yPixels();
    picture.low = span.first;
    picture.high = span.second;
    picture.palette = options.palette;
    picture.unit = table.norm.GetType() == CNormFile::TYPE_GAIN ? "gain" : "counts";
    picture.title = title;
    return picture.draw();
}

void printMap(const Options& options, const NormTable& table, const Clusters& clusters) {
    Json sizes = Json::array();
    Table counts({{"cluster size [pixels]", Table::Align::left}, {"clusters"}, {"pixels"}});
    for (const Kind& kind : countKinds(clusters)) {
        counts.add({kind.name, std::to_string(kind.clusters), std::to_string(kind.pixels)});
        sizes.push(Json::object().set("size", kind.name).set("clusters", kind.clusters).set("pixels", kind.pixels));
    }
    if (options.json) {
        Json::document("qv.norm.view.1").set("output", options.output).set("clusterSizes", sizes).print(std::cout);
        return;
    }
    std::cout << options.output << ": bad-pixel table of " << table.norm.xPixels() << " x " << table.norm.yPixels()
              << " pixels\n";
    counts.print(std::cout, "  ");
    if (const Cluster* largest = clusters.largest(); largest != nullptr) {
        std::cout << "  largest: " << largest->pixels << " pixels between (" << largest->left << ", " << largest->top
                  << ") and (" << largest->right << ", " << largest->bottom << ")\n";
    }
}

Exit view(const Options& options) {
    NormTable table = loadNorm(options.file);
    const CNormFile::FILE_TYPE type = table.norm.GetType();
    const std::string title =
        std::filesystem::path(options.file).filename().string() + ", " + normWord(type) + " table";
    if (type == CNormFile::TYPE_BAD_PIXEL) {
        const Clusters clusters =
            findClusters(table.norm.GetBadPixels().flags, table.norm.xPixels(), table.norm.yPixels());
        writePicture(MapPicture(table, clusters, title).draw(), options.output, options.force);
        printMap(options, table, clusters);
        return Exit::done;
    }
    std::pair<double, double> span;
    writePicture(drawValues(table, options, title, span), options.output, options.force);
    if (options.json) {
        Json::document("qv.norm.view.1")
            .set("output", options.output)
            .set("low", span.first)
            .set("high", span.second)
            .print(std::cout);
    } else {
        std::cout << options.output << ": " << normWord(type) << " table, " << number(span.first) << " to "
                  << number(span.second) << (type == CNormFile::TYPE_OFFSET ? " counts" : "") << '\n';
    }
    return Exit::done;
}

}  // namespace

void addNormView(CLI::App& norm) {
    auto options = std::make_shared<Options>();
    CLI::App* verb =
        addCommand(norm, "view",
                   "Draw a table as a PNG picture: gains and offsets with a scale bar, bad pixels coloured "
                   "by the size of their cluster. Pixels that touch, also at corners, are one cluster.",
                   "  qv norm view mw1.bad -o bad.png\n  qv norm view mw1.gain --range 0.8:1.2 -o gain.png",
                   [options] { return view(*options); });
    verb->add_option("file", options->file, "Table")->required();
    verb->add_option("--range", options->range, "Gains or offsets at the ends of the palette, as LOW:HIGH");
    addChoice<Palette>(*verb, "--palette", options->palette,
                       {{"iron", Palette::iron}, {"gray", Palette::gray}, {"rainbow", Palette::rainbow}},
                       "Colours from low to high (gray)");
    verb->add_option("-o,--output", options->output, "Picture to write")->required();
    verb->add_flag("--force", options->force, "Replace the output when it exists");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
