// qv norm: pixel-correction tables, looked at and made from nothing; the verbs with a source of their own are added
// here.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>
#include <limits>
#include <memory>

#include "command.h"
#include "json.h"
#include "norm_commands.h"
#include "norm_table.h"
#include "text.h"

namespace tool {

namespace {

using qv::CNormFile;

struct Options {
    std::vector<std::string> files;
    CNormFile::FILE_TYPE type = CNormFile::TYPE_BAD_PIXEL;
    std::string size;
    uint16_t subframe = 0;
    uint8_t calType = 3;
    uint16_t averages = 10;
    float tolerance = 0.5F;
    std::vector<std::string> bad;
    bool force = false;
    bool json = false;
};

// info ---------------------------------------------------------------------------------------------------------------

/// Extremes and mean of a gain or offset table.
struct Values {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    double sum = 0.0;
    uint64_t finite = 0;
    uint64_t other = 0;

    void add(double value) {
        if (!std::isfinite(value)) {
            ++other;
            return;
        }
        low = std::min(low, value);
        high = std::max(high, value);
        sum += value;
        ++finite;
    }
    double mean() const { return sum / static_cast<double>(finite); }
};

Values valuesOf(NormTable& table) {
    Values values;
    const float* gains = table.norm.GetGains();
    const int16_t* offsets = table.norm.GetOffsets();
    for (uint32_t i = 0; i < table.pixels(); ++i)
        values.add(gains != nullptr ? double{gains[i]} : static_cast<double>(offsets[i]));
    return values;
}

struct MapFacts {
    explicit MapFacts(NormTable& table)
        : counts(countFlags(table.norm.GetBadPixels(), table.pixels())),
          clusters(findClusters(table.norm.GetBadPixels().flags, table.norm.xPixels(), table.norm.yPixels())) {}
    MapCounts counts;
    Clusters clusters;
};

Json describeMap(NormTable& table) {
    const MapFacts map(table);
    const Cluster* largest = map.clusters.largest();
    Json facts = Json::object();
    facts.set("good", map.counts.good).set("bad", map.counts.bad).set("otherFlags", map.counts.other);
    facts.set("withoutSubstitute", map.counts.withoutSubstitute);
    facts.set("clusters", static_cast<uint64_t>(map.clusters.list.size()));
    return facts.set("largestCluster", largest == nullptr ? uint32_t{0} : largest->pixels);
}

void printMap(NormTable& table) {
    const MapFacts map(table);
    std::cout << "  bad pixels:  " << share(map.counts.bad, table.pixels()) << ", " << map.counts.withoutSubstitute
              << " without a substitute\n";
    if (map.counts.other != 0) std::cout << "  other flags: " << map.counts.other << " pixels, left alone\n";
    const Cluster* largest = map.clusters.largest();
    if (largest == nullptr) return;
    std::cout << "  clusters:    " << map.clusters.list.size() << ", the largest of " << largest->pixels
              << " pixels between (" << largest->left << ", " << largest->top << ") and (" << largest->right << ", "
              << largest->bottom << ")\n";
}

void printInfo(NormTable& table, const std::string& path) {
    const CNormFile& norm = table.norm;
    const CNormFile::SFileHeader& header = norm.GetHeader();
    std::cout << path << ": " << normWord(norm.GetType()) << " table of " << norm.xPixels() << " x " << norm.yPixels()
              << " pixels, version " << int{header.version} << (table.bigEndian ? ", big-endian" : "") << '\n';
    std::cout << "  made:        " << narrow(header.timeStamp) << " (day of the year, hour, minute; local time)\n";
    std::cout << "  header:      subframe " << norm.subframe();
    if (header.version > 1) {
        std::cout << ", calibration type " << int{norm.calType()} << ", " << norm.numAvg()
                  << " frames averaged, tolerance " << number(norm.bpTol());
    }
    std::cout << '\n';
    int field = 0;
    for (const char16_t* text : {header.text1, header.text2, header.text3}) {
        ++field;
        if (*text != 0) std::cout << "  text " << field << ":      " << narrow(text) << '\n';
    }
    if (norm.GetType() == CNormFile::TYPE_BAD_PIXEL) {
        printMap(table);
    } else {
        const Values values = valuesOf(table);
        const std::string unit = norm.GetType() == CNormFile::TYPE_OFFSET ? " counts" : "";
        if (values.finite != 0) {
            std::cout << "  values:      " << number(values.low) << " to " << number(values.high) << ", mean "
                      << number(values.mean()) << unit << '\n';
        }
        if (values.other != 0) std::cout << "  no numbers:  " << share(values.other, table.pixels()) << '\n';
    }
    if (table.trailing != 0) std::cout << "  behind the table: " << table.trailing << " bytes that readers pass over\n";
}

Json infoJson(NormTable& table, const std::string& path) {
    const CNormFile& norm = table.norm;
    const CNormFile::SFileHeader& header = norm.GetHeader();
    Json facts = Json::object();
    facts.set("file", path).set("type", normWord(norm.GetType())).set("version", int{header.version});
    facts.set("bigEndian", table.bigEndian).set("width", int{norm.xPixels()}).set("height", int{norm.yPixels()});
    facts.set("subframe", int{norm.subframe()}).set("timeStamp", narrow(header.timeStamp));
    facts.set("calType", int{norm.calType()}).set("framesAveraged", int{norm.numAvg()}).set("tolerance", norm.bpTol());
    Json texts = Json::array();
    for (const char16_t* text : {header.text1, header.text2, header.text3}) texts.push(narrow(text));
    facts.set("texts", texts).set("trailingBytes", table.trailing);
    if (norm.GetType() == CNormFile::TYPE_BAD_PIXEL) return facts.set("map", describeMap(table));
    const Values values = valuesOf(table);
    const auto orNull = [&](double value) { return values.finite == 0 ? Json() : Json(value); };
    return facts.set("min", orNull(values.low))
        .set("max", orNull(values.high))
        .set("mean", orNull(values.mean()))
        .set("notFinite", values.other);
}

Exit info(const Options& options) {
    Json files = Json::array();
    for (const std::string& path : options.files) {
        NormTable table = loadNorm(path);
        options.json ? void(files.push(infoJson(table, path))) : printInfo(table, path);
    }
    if (options.json) Json::document("qv.norm.info.1").set("files", files).print(std::cout);
    return Exit::done;
}

// new ----------------------------------------------------------------------------------------------------------------

/// Two whole numbers with a sign between them; fails with a sentence about `option`.
std::pair<uint32_t, uint32_t> twoNumbers(const std::string& text, char between, const std::string& option,
                                         const std::string& form) {
    std::pair<uint32_t, uint32_t> numbers;
    const char* const end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, numbers.first);
    const bool cut = first.ec == std::errc() && first.ptr != end && *first.ptr == between;
    const auto second = cut ? std::from_chars(first.ptr + 1, end, numbers.second) : first;
    if (cut && second.ec == std::errc() && second.ptr == end) return numbers;
    throw Failure(Exit::usage, option + ": \"" + text + "\" is not of the form " + form);
}

void markBad(CNormFile& norm, const std::vector<std::string>& pixels) {
    if (pixels.empty()) return;
    if (norm.GetType() != CNormFile::TYPE_BAD_PIXEL) throw Failure(Exit::usage, "--bad needs --type bad-pixel");
    for (const std::string& text : pixels) {
        const auto [x, y] = twoNumbers(text, ',', "--bad", "X,Y");
        if (x >= norm.xPixels() || y >= norm.yPixels()) throw Failure(Exit::usage, "--bad: " + text + " is no pixel");
        norm.GetBadPixels().flags[y * norm.xPixels() + x] = 1;
    }
    norm.SetupBPSubs();
}

Exit makeNew(const Options& options) {
    const auto [width, height] = twoNumbers(options.size, 'x', "--size", "WIDTHxHEIGHT");
    if (width == 0 || height == 0 || width > 0xFFFF || height > 0xFFFF || uint64_t{width} * height > 0x8000000) {
        throw Failure(Exit::usage, "--size: " + options.size + " is no size of a sensor");
    }
    CNormFile norm;
    if (!norm.New(options.type, static_cast<uint16_t>(width), static_cast<uint16_t>(height), options.subframe,
                  options.calType, options.averages, options.tolerance)) {
        throw Failure(Exit::io, options.files.front() + ": there is no memory for the table");
    }
    markBad(norm, options.bad);
    saveNorm(norm, options.files.front(), options.force);
    std::cout << options.files.front() << ": " << normWord(options.type) << " table of " << width << " x " << height
              << " pixels, "
              << (options.type == CNormFile::TYPE_GAIN     ? "every gain 1"
                  : options.type == CNormFile::TYPE_OFFSET ? "every offset 0"
                                                           : std::to_string(options.bad.size()) + " bad")
              << '\n';
    return Exit::done;
}

}  // namespace

void addNorm(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* norm =
        addCommand(root, "norm", "Pixel-correction tables: gain, offset and bad pixels.",
                   "  qv norm build cold.saf hot.saf --gain mw1.gain --offset mw1.offset --bad mw1.bad\n"
                   "  qv norm apply run7.saf --gain mw1.gain --offset mw1.offset --bad mw1.bad -o even.saf",
                   nullptr);
    norm->require_subcommand(1);

    CLI::App* verb = addCommand(*norm, "info", "What tables hold.",
                                "  qv norm info mw1.bad\n  qv norm info mw1.gain mw1.offset --json",
                                [options] { return info(*options); });
    verb->add_option("files", options->files, "Tables")->required();
    verb->add_flag("--json", options->json, "Facts as JSON");

    verb = addCommand(*norm, "new", "Make a neutral table: gains of 1, offsets of 0, or a map of known bad pixels.",
                      "  qv norm new mw1.gain --type gain --size 640x512\n"
                      "  qv norm new mw1.bad --type bad-pixel --size 640x512 --bad 17,4 --bad 18,4",
                      [options] { return makeNew(*options); });
    verb->add_option("file", options->files, "Table to write")->required()->expected(1);
    addChoice<CNormFile::FILE_TYPE>(
        *verb, "--type", options->type,
        {{"gain", CNormFile::TYPE_GAIN}, {"offset", CNormFile::TYPE_OFFSET}, {"bad-pixel", CNormFile::TYPE_BAD_PIXEL}},
        "What the table holds")
        ->required();
    verb->add_option("--size", options->size, "Pixels of the sensor, as WIDTHxHEIGHT")->required();
    verb->add_option("--bad", options->bad, "A bad pixel, as X,Y from 0 at the upper left; may be repeated");
    verb->add_option("--subframe", options->subframe, "Number of the subframe (0)");
    verb->add_option("--cal-type", options->calType, "Calibration type (3)");
    verb->add_option("--averages", options->averages, "Frames averaged (10)");
    verb->add_option("--tolerance", options->tolerance, "Tolerance of the bad-pixel search (0.5)");
    verb->add_flag("--force", options->force, "Replace the table when it exists");

    addNormBuild(*norm);
    addNormApply(*norm);
    addNormView(*norm);
}

}  // namespace tool
