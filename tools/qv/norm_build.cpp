// qv norm build: correction tables from recordings of uniform sources.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>

#include "command.h"
#include "json.h"
#include "norm_commands.h"
#include "norm_correction.h"
#include "norm_table.h"
#include "progress.h"
#include "recording.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

using qv::CNormFile;

constexpr uint32_t leastFramesForNoise = 8;

struct Options {
    std::vector<std::string> recordings;
    std::string gain;
    std::string offset;
    std::string bad;
    float tolerance = 0.5F;
    double noise = 5.0;
    uint16_t subframe = 0;
    bool force = false;
    bool json = false;
};

double medianOf(std::vector<double> values) {
    values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return !std::isfinite(v); }),
                 values.end());
    if (values.empty()) return std::nan("");
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 != 0) return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2.0;
}

/// What each pixel made of one uniform source.
struct Source {
    std::string path;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frames = 0;
    std::vector<double> mean;   ///< Over the frames, in counts.
    std::vector<double> noise;  ///< Standard deviation over the frames; empty with fewer than leastFramesForNoise.
    double level = 0.0;         ///< Median of the means.
    double usualNoise = 0.0;    ///< Median of the noise.
};

/// One pass over the frames. Deviations are taken from the first frame, so that squares keep their digits.
Source measure(const std::string& path) {
    const Recording recording(path);
    const Layout& layout = recording.layout();
    if (layout.type == qv::EDataType::uint64 || layout.type == qv::EDataType::rgb24) {
        throw Failure(Exit::damaged, path + ": tables cannot be built from frames of " + elementWord(layout.type));
    }
    Source source{path, layout.width, layout.height, layout.frames, {}, {}, 0.0, 0.0};
    const size_t pixels = layout.pixels();
    std::vector<std::byte> bytes(layout.frameBytes());
    std::vector<double> first(pixels), values(pixels), sum(pixels), squares(pixels);
    FrameReader reader(recording);
    Progress progress("measure", layout.frames, layout.frameBytes());
    for (uint32_t frame = 0; frame < layout.frames; ++frame) {
        reader.read(frame, bytes.data());
        qv::ConvertArray({values.data(), qv::EDataType::flt64}, {bytes.data(), layout.type}, layout.pixels());
        if (frame == 0) first = values;
        for (size_t i = 0; i < pixels; ++i) {
            const double deviation = values[i] - first[i];
            sum[i] += deviation;
            squares[i] += deviation * deviation;
        }
        progress.advance();
    }
    const double n = layout.frames;
    source.mean = first;
    for (size_t i = 0; i < pixels; ++i) source.mean[i] += sum[i] / n;
    source.level = medianOf(source.mean);
    if (layout.frames < leastFramesForNoise) return source;
    for (size_t i = 0; i < pixels; ++i) {
        source.noise.push_back(std::sqrt(std::max(0.0, (squares[i] - sum[i] * sum[i] / n) / (n - 1.0))));
    }
    source.usualNoise = medianOf(source.noise);
    return source;
}

std::vector<Source> measureAll(const Options& options) {
    std::vector<Source> sources;
    for (const std::string& path : options.recordings) sources.push_back(measure(path));
    const Source& first = sources.front();
    for (const Source& source : sources) {
        if (source.width != first.width || source.height != first.height) {
            throw Failure(Exit::negative, source.path + ": is " + std::to_string(source.width) + " x " +
                                              std::to_string(source.height) + ", and " + first.path + " " +
                                              std::to_string(first.width) + " x " + std::to_string(first.height));
        }
        if (source.width > 0xFFFF || source.height > 0xFFFF) {
            throw Failure(Exit::negative, source.path + ": a table holds at most 65535 pixels a side");
        }
        if (!std::isfinite(source.level)) throw Failure(Exit::damaged, source.path + ": its frames hold no numbers");
    }
    if (sources.size() == 1 && !(first.level > 0.0)) {
        throw Failure(Exit::negative, first.path + ": its level is " + number(first.level) +
                                          " counts, and no pixel can be judged by a part of that");
    }
    if (sources.size() == 2 && sources[1].level < sources[0].level) std::swap(sources[0], sources[1]);
    if (sources.size() == 2 && !(sources[1].level - sources[0].level > 0.0)) {
        throw Failure(Exit::negative, sources[1].path + ": lies at the same level as " + sources[0].path +
                                          ", so that no gain can be told");
    }
    return sources;
}

/// Why a pixel is bad; the first that holds counts.
enum class Reason { none, responsivity, stuck, noise, offset };

/// The tables of a sensor.
struct Tables {
    std::vector<float> gains;
    std::vector<int16_t> offsets;
    std::vector<Reason> reasons;

    uint64_t count(Reason reason) const {
        return static_cast<uint64_t>(std::count(reasons.begin(), reasons.end(), reason));
    }
};

Reason judge(const std::vector<Source>& sources, size_t pixel, const Options& options) {
    // Of two sources the step between them is looked at, of one its level.
    const Source& last = sources.back();
    const bool two = sources.size() == 2;
    const double own = two ? last.mean[pixel] - sources[0].mean[pixel] : last.mean[pixel];
    const double usual = two ? last.level - sources[0].level : last.level;
    if (!(std::fabs(own / usual - 1.0) <= double{options.tolerance})) return Reason::responsivity;
    bool measured = false;
    bool stuck = true;
    bool noisy = false;
    for (const Source& source : sources) {
        if (source.noise.empty() || !(source.usualNoise > 0.0)) continue;
        measured = true;
        stuck = stuck && source.noise[pixel] == 0.0;
        noisy = noisy || !(source.noise[pixel] <= options.noise * source.usualNoise);
    }
    if (measured && stuck) return Reason::stuck;
    return noisy ? Reason::noise : Reason::none;
}

/// Bad pixels get gain 1 and offset 0.
Tables derive(const std::vector<Source>& sources, const Options& options) {
    const Source& cold = sources.front();
    const Source& hot = sources.back();
    const size_t pixels = cold.mean.size();
    Tables tables{std::vector<float>(pixels, 1.0F), std::vector<int16_t>(pixels), std::vector<Reason>(pixels)};
    for (size_t i = 0; i < pixels; ++i) {
        Reason reason = judge(sources, i, options);
        const bool two = sources.size() == 2;
        const auto gain = two ? static_cast<float>((hot.level - cold.level) / (hot.mean[i] - cold.mean[i])) : 1.0F;
        Rounded rounded;
        // The offset serves the gain as it is stored, and both sources alike.
        const double wanted = (cold.level - double{gain} * cold.mean[i] + hot.level - double{gain} * hot.mean[i]) / 2.0;
        const auto offset = asElement<int16_t>(wanted, rounded);
        const bool fits = rounded.below + rounded.above + rounded.undefined == 0;
        if (reason == Reason::none && !fits) reason = Reason::offset;
        tables.reasons[i] = reason;
        if (reason != Reason::none) continue;
        tables.gains[i] = gain;
        tables.offsets[i] = offset;
    }
    return tables;
}

/// Standard deviation of the good pixels' means over the frame, without and with the tables.
struct Uniformity {
    double before = 0.0;
    double after = 0.0;
};
Uniformity uniformity(const Source& source, const Tables& tables) {
    double sums[2] = {}, squares[2] = {}, n = 0.0;
    for (size_t i = 0; i < source.mean.size(); ++i) {
        if (tables.reasons[i] != Reason::none) continue;
        const double corrected = source.mean[i] * double{tables.gains[i]} + static_cast<double>(tables.offsets[i]);
        const double deviations[2] = {source.mean[i] - source.level, corrected - source.level};
        for (int k = 0; k < 2; ++k) {
            sums[k] += deviations[k];
            squares[k] += deviations[k] * deviations[k];
        }
        ++n;
    }
    const auto deviation = [&](int k) { return std::sqrt(std::max(0.0, squares[k] / n - sums[k] / n * sums[k] / n)); };
    return n == 0.0 ? Uniformity{} : Uniformity{deviation(0), deviation(1)};
}

std::string percentText(double part) { return number(100.0 * part, 4) + " %"; }

/// The rules, as they are printed.
std::vector<std::pair<Reason, std::string>> rules(const Options& options, const std::vector<Source>& sources) {
    const std::string tolerance = percentText(double{options.tolerance});
    const bool two = sources.size() == 2;
    const bool noise = std::any_of(sources.begin(), sources.end(), [](const Source& s) { return s.usualNoise > 0.0; });
    std::vector<std::pair<Reason, std::string>> list;
    list.emplace_back(Reason::responsivity, two ? "step between the sources more than " + tolerance + " off the median"
                                                : "level more than " + tolerance + " off the median");
    if (noise) {
        list.emplace_back(Reason::stuck, "never changes");
        list.emplace_back(Reason::noise, "noise above " + number(options.noise) + " times the median");
    }
    list.emplace_back(Reason::offset, "offset that does not fit 16 bits");
    return list;
}

/// Writes the tables that are asked for, and gives the finished bad-pixel map.
CNormFile write(const Options& options, const std::vector<Source>& sources, const Tables& tables) {
    uint64_t frames = 0;
    for (const Source& source : sources) frames += source.frames;
    const auto averaged = static_cast<uint16_t>(std::min<uint64_t>(frames, 0xFFFF));
    const auto make = [&](CNormFile& norm, CNormFile::FILE_TYPE type) {
        constexpr uint8_t usualCalType = 3;
        if (!norm.New(type, static_cast<uint16_t>(sources[0].width), static_cast<uint16_t>(sources[0].height),
                      options.subframe, usualCalType, averaged, options.tolerance)) {
            throw Failure(Exit::io, "there is no memory for the tables");
        }
    };
    CNormFile gain, offset, bad;
    make(gain, CNormFile::TYPE_GAIN);
    make(offset, CNormFile::TYPE_OFFSET);
    make(bad, CNormFile::TYPE_BAD_PIXEL);
    std::copy(tables.gains.begin(), tables.gains.end(), gain.GetGains());
    std::copy(tables.offsets.begin(), tables.offsets.end(), offset.GetOffsets());
    std::transform(tables.reasons.begin(), tables.reasons.end(), bad.GetBadPixels().flags,
                   [](Reason reason) { return reason == Reason::none ? uint8_t{0} : uint8_t{1}; });
    bad.SetupBPSubs();
    if (!options.gain.empty()) saveNorm(gain, options.gain, options.force);
    if (!options.offset.empty()) saveNorm(offset, options.offset, options.force);
    if (!options.bad.empty()) saveNorm(bad, options.bad, options.force);
    return bad;
}

void print(const Options& options, const std::vector<Source>& sources, const Tables& tables, CNormFile& map) {
    const uint64_t pixels = tables.reasons.size();
    Table levels({{"source", Table::Align::left},
                  {"frames"},
                  {"level [counts]"},
                  {"noise [counts]"},
                  {"unevenness before [counts]"},
                  {"after [counts]"}});
    for (const Source& source : sources) {
        const Uniformity even = uniformity(source, tables);
        levels.add({source.path, std::to_string(source.frames), fixed(source.level, 2),
                    source.noise.empty() ? "-" : fixed(source.usualNoise, 3), fixed(even.before, 3),
                    fixed(even.after, 3)});
    }
    levels.print(std::cout);
    std::cout << "  level and noise are medians over the frame, unevenness the standard deviation of the good pixels\n";
    Table reasons({{"bad by (the first that holds)", Table::Align::left}, {"pixels"}});
    for (const auto& [reason, text] : rules(options, sources))
        reasons.add({text, std::to_string(tables.count(reason))});
    reasons.print(std::cout);
    const MapCounts counts = countFlags(map.GetBadPixels(), static_cast<uint32_t>(pixels));
    std::cout << "  bad in all: " << share(counts.bad, pixels) << ", " << counts.withoutSubstitute
              << " without a substitute\n";
    if (sources.size() == 2) std::cout << "  gain = (step of the level) / (step of the pixel)\n";
    std::cout << "  offset = level - gain * mean, rounded to whole counts; bad pixels have gain 1 and offset 0\n";
    for (const std::string& path : {options.gain, options.offset, options.bad}) {
        if (!path.empty()) std::cout << "wrote " << path << '\n';
    }
    for (const Source& source : sources) {
        if (source.noise.empty()) {
            remark("qv: " + source.path + ": fewer than " + std::to_string(leastFramesForNoise) +
                   " frames, noise is not judged");
        }
    }
}

void printJson(const Options& options, const std::vector<Source>& sources, const Tables& tables, CNormFile& map) {
    Json facts = Json::document("qv.norm.build.1");
    Json list = Json::array();
    for (const Source& source : sources) {
        const Uniformity even = uniformity(source, tables);
        list.push(Json::object()
                      .set("recording", source.path)
                      .set("frames", source.frames)
                      .set("levelCounts", source.level)
                      .set("noiseCounts", source.noise.empty() ? Json() : Json(source.usualNoise))
                      .set("unevennessBeforeCounts", even.before)
                      .set("unevennessAfterCounts", even.after));
    }
    Json bad = Json::array();
    for (const auto& [reason, text] : rules(options, sources)) {
        bad.push(Json::object().set("rule", text).set("pixels", tables.count(reason)));
    }
    const MapCounts counts = countFlags(map.GetBadPixels(), static_cast<uint32_t>(tables.reasons.size()));
    facts.set("sources", list).set("tolerance", double{options.tolerance}).set("noiseFactor", options.noise);
    facts.set("rules", bad).set("bad", counts.bad).set("withoutSubstitute", counts.withoutSubstitute).print(std::cout);
}

void check(const Options& options) {
    if (options.gain.empty() && options.offset.empty() && options.bad.empty()) {
        throw Failure(Exit::usage, "build: at least one of --gain, --offset and --bad says what to write");
    }
    if (options.recordings.size() == 1 && !options.gain.empty()) {
        throw Failure(Exit::usage, "--gain: a gain needs recordings of two sources");
    }
    if (!(options.tolerance > 0.0F && options.tolerance < 1.0F)) {
        throw Failure(Exit::usage, "--tolerance must lie above 0 and below 1");
    }
    if (!(options.noise > 1.0)) throw Failure(Exit::usage, "--noise must be above 1");
    std::vector<std::string> outputs;
    for (const std::string& path : {options.gain, options.offset, options.bad}) {
        if (path.empty()) continue;
        if (std::find(outputs.begin(), outputs.end(), path) != outputs.end()) {
            throw Failure(Exit::usage, path + ": is to hold two tables");
        }
        outputs.push_back(path);
    }
    // Before the work, so that no table is written without the others.
    for (const std::string& path : {options.gain, options.offset, options.bad}) {
        std::error_code none;
        if (!path.empty() && !options.force && std::filesystem::exists(path, none)) {
            throw Failure(Exit::negative, path + ": exists already (--force replaces it)");
        }
    }
}

Exit build(const Options& options) {
    check(options);
    const std::vector<Source> sources = measureAll(options);
    const Tables tables = derive(sources, options);
    CNormFile map = write(options, sources, tables);
    options.json ? printJson(options, sources, tables, map) : print(options, sources, tables, map);
    return Exit::done;
}

}  // namespace

void addNormBuild(CLI::App& norm) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addCommand(
        norm, "build",
        "Derive tables from recordings of one or two uniform sources. With two (in any order): gain = step of the "
        "median "
        "level / step of the pixel's mean, offset = level - gain * mean. With one: offset alone. The offset is rounded "
        "to "
        "whole counts. A pixel is bad when its step (with one source: its level) is further than --tolerance off the "
        "median, when it never changes, when its noise over the frames is above --noise times the median (from 8 "
        "frames "
        "on), or when its offset does not fit 16 bits.",
        "  qv norm build cold.saf hot.saf --gain mw1.gain --offset mw1.offset --bad mw1.bad\n"
        "  qv norm build shutter.saf --offset mw1.offset --bad mw1.bad --tolerance 0.25",
        [options] { return build(*options); });
    verb->add_option("recordings", options->recordings, "Recordings of uniform sources, one or two")
        ->required()
        ->expected(1, 2);
    verb->add_option("--gain", options->gain, "Gain table to write");
    verb->add_option("--offset", options->offset, "Offset table to write");
    verb->add_option("--bad", options->bad, "Bad-pixel table to write");
    verb->add_option("--tolerance", options->tolerance, "How far off the median a pixel may be, as a fraction (0.5)");
    verb->add_option("--noise", options->noise, "How many times the median noise a pixel may have (5)");
    verb->add_option("--subframe", options->subframe, "Number of the subframe (0)");
    verb->add_flag("--force", options->force, "Replace tables that exist");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
