// qv calibrate: a recording of counts and a calibration become a recording of temperatures.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>

#include "calibration.h"
#include "calibrator.h"
#include "command.h"
#include "frame_pool.h"
#include "json.h"
#include "qv/diagnostic.h"
#include "qv/rcal_frames.h"
#include "recording.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::string recording;
    std::string calibration;
    std::string output;
    std::string between;
    std::optional<double> at;
    CalibratorOptions calibrator;
    std::optional<double> reflected;
    bool force = false;
    bool json = false;
};

/// What became of the pixels.
struct Tally {
    uint64_t pixels = 0;
    uint64_t below = 0;
    uint64_t above = 0;
    uint64_t undefined = 0;  ///< Without a temperature.
    double sum = 0.0;
    float low = std::numeric_limits<float>::infinity();
    float high = -std::numeric_limits<float>::infinity();

    void add(const Tally& other) {
        pixels += other.pixels;
        below += other.below;
        above += other.above;
        undefined += other.undefined;
        sum += other.sum;
        low = std::min(low, other.low);
        high = std::max(high, other.high);
    }
    uint64_t defined() const { return pixels - undefined; }
};

/// Converts the frames of one recording. One for each thread; the library's converter is shared.
class FrameConverter {
public:
    FrameConverter(const qv::CCountsConverter& converter, const Layout& layout)
        : m_converter(converter), m_layout(layout) {}

    void convert(void* counts, float* out, Tally& tally) const {
        const qv::COUNTS_OUTSIDE outside =
            m_converter.Convert({out, qv::EDataType::flt32}, {counts, m_layout.type}, m_layout.pixels());
        tally.below += outside.below;
        tally.above += outside.above;
        summarise(out, tally);
    }

private:
    /// Eight running sums, minima and maxima, so that the loop is as wide as the machine.
    void summarise(const float* values, Tally& tally) const {
        constexpr uint32_t lanes = 8;
        const uint32_t n = m_layout.pixels();
        double sums[lanes] = {};
        float lows[lanes];
        float highs[lanes];
        uint32_t undefined[lanes] = {};
        std::fill_n(lows, lanes, tally.low);
        std::fill_n(highs, lanes, tally.high);
        const auto take = [&](uint32_t lane, float value) {
            const bool known = value == value;
            undefined[lane] += known ? 0u : 1u;
            sums[lane] += known ? static_cast<double>(value) : 0.0;
            lows[lane] = value < lows[lane] ? value : lows[lane];
            highs[lane] = value > highs[lane] ? value : highs[lane];
        };
        uint32_t i = 0;
        for (; i + lanes <= n; i += lanes) {
            for (uint32_t lane = 0; lane < lanes; ++lane) take(lane, values[i + lane]);
        }
        for (; i < n; ++i) take(0, values[i]);
        for (uint32_t lane = 0; lane < lanes; ++lane) {
            tally.sum += sums[lane];
            tally.undefined += undefined[lane];
            tally.low = std::min(tally.low, lows[lane]);
            tally.high = std::max(tally.high, highs[lane]);
        }
        tally.pixels += n;
    }

    const qv::CCountsConverter& m_converter;
    const Layout m_layout;
};

/// What one thread does with the frames that fall to it.
class ConvertingWorker {
public:
    ConvertingWorker(const Recording& source, const qv::CCountsConverter& converter, const Target& target,
                     int64_t position)
        : m_reader(source),
          m_converter(converter, source.layout()),
          m_target(target),
          m_out(target.open()),
          m_position(position),
          m_counts(source.layout().frameBytes()),
          m_values(source.layout().pixels()) {}

    void operator()(uint32_t frame) {
        const auto outBytes = static_cast<uint32_t>(m_values.size() * sizeof(float));
        m_reader.read(frame, m_counts.data());
        m_converter.convert(m_counts.data(), m_values.data(), m_tally);
        m_out->SetPosition(m_position + int64_t{frame} * outBytes);
        if (!m_out->WriteBytes(m_values.data(), outBytes)) {
            throw Failure(Exit::io, m_target.temporary() + ": cannot be written (is the disk full?)");
        }
    }
    const Tally& tally() const { return m_tally; }

private:
    FrameReader m_reader;
    FrameConverter m_converter;
    const Target& m_target;
    qv::TSharedPtr<qv::IFile> m_out;
    int64_t m_position;
    std::vector<std::byte> m_counts;
    std::vector<float> m_values;
    Tally m_tally;
};

/// Runs the frames of `source` through a pool of threads into `target`, whose frames begin at `position`.
Tally convertFrames(const Recording& source, const Calibrator& calibrator, const Target& target, int64_t position) {
    const qv::CCountsConverter converter([&](double counts) { return calibrator.convert(counts); },
                                         calibrator.minCounts(), calibrator.maxCounts(), source.layout().type);
    Tally total;
    overFrames(
        source, "calibrate", [&] { return ConvertingWorker(source, converter, target, position); },
        [&total](const ConvertingWorker& worker) { total.add(worker.tally()); });
    return total;
}

/// The source's header with the result's description.
void writeHeader(const Recording& source, const Calibrator& calibrator, const Options& options, qv::CSAFFile& header) {
    source.header().MakeDuplicate(header);
    Layout layout = source.layout();
    layout.type = qv::EDataType::flt32;
    const std::string keyword = source.tag(u"KeyWrd");
    setLayoutTags(header, layout);
    if (!keyword.empty()) header[u"KeyWrd"] = wide(keyword).c_str();
    header[u"DaUnit"] = wide(calibrator.unit()).c_str();
    header[u"CAFile"] = wide(nameForTag(options.calibration)).c_str();
    header[u"CaPage"] =
        wide(options.calibrator.secondPage ? options.between : std::to_string(options.calibrator.page)).c_str();
    if (options.calibrator.secondPage) header[u"CaInst"] = wide(exact(options.calibrator.instrument)).c_str();
    header[u"CaEmis"] = wide(exact(options.calibrator.emissivity)).c_str();
    header[u"CaRefl"] = wide(options.reflected ? exact(*options.reflected) + " C" : "none").c_str();
    header[u"CaRnge"] = wide(exact(calibrator.minCelsius()) + ":" + exact(calibrator.maxCelsius()) + " C").c_str();
    if (options.calibrator.to == Quantity::temperature) {
        header[u"CaInvr"] = calibrator.usesPolynomial() ? u"polynomial" : u"table";
    }
}

void readBetween(Options& options) {
    if (options.between.empty()) return;
    int first = 0;
    int second = 0;
    char rest = 0;
    if (std::sscanf(options.between.c_str(), "%d:%d%c", &first, &second, &rest) != 2) {
        throw Failure(Exit::usage, "--between: \"" + options.between + "\" is not of the form N:M");
    }
    if (!options.at) throw Failure(Exit::usage, "--between needs --at, the instrument temperature");
    if (!std::isfinite(*options.at)) throw Failure(Exit::usage, "--at must be a temperature in degrees Celsius");
    options.between = std::to_string(first) + ":" + std::to_string(second);
    options.calibrator.page = first;
    options.calibrator.secondPage = second;
    options.calibrator.instrument = *options.at;
}

std::string percent(uint64_t part, uint64_t whole) {
    return fixed(whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole), 2) + " %";
}

void report(const Options& options, const Recording& source, const Calibrator& calibrator, const Tally& tally) {
    const double mean = tally.defined() == 0 ? std::nan("") : tally.sum / static_cast<double>(tally.defined());
    const bool any = tally.defined() != 0;
    if (options.json) {
        Json facts = Json::document("qv.calibrate.1");
        facts.set("recording", source.path()).set("calibration", options.calibration).set("output", options.output);
        facts.set("frames", source.layout().frames).set("unit", calibrator.unit());
        facts.set("emissivity", options.calibrator.emissivity);
        facts.set("reflectedCelsius", options.reflected ? Json(*options.reflected) : Json());
        facts.set("calibratedLowCelsius", calibrator.minCelsius())
            .set("calibratedHighCelsius", calibrator.maxCelsius());
        facts.set("inverse", calibrator.usesPolynomial() ? "polynomial" : "table");
        facts.set("pixels", tally.pixels).set("belowRange", tally.below).set("aboveRange", tally.above);
        facts.set("withoutValue", tally.undefined);
        facts.set("min", any ? Json(double{tally.low}) : Json()).set("max", any ? Json(double{tally.high}) : Json());
        facts.set("mean", any ? Json(mean) : Json());
        facts.print(std::cout);
        return;
    }
    std::cout << options.output << ": " << source.layout().frames << " frames of " << source.layout().width << " x "
              << source.layout().height << " in " << calibrator.unit() << '\n'
              << "  assumed:  " << calibrator.assumptions() << '\n';
    if (any) {
        std::cout << "  values:   " << fixed(tally.low, 2) << " to " << fixed(tally.high, 2) << ", mean "
                  << fixed(mean, 2) << ' ' << calibrator.unit() << '\n';
    }
    std::cout << "  outside the calibrated range: " << tally.below << " pixels below ("
              << percent(tally.below, tally.pixels) << "), " << tally.above << " above ("
              << percent(tally.above, tally.pixels) << ")\n";
    if (tally.undefined != 0) {
        std::cout << "  without a value: " << tally.undefined << " pixels (" << percent(tally.undefined, tally.pixels)
                  << ")\n";
    }
}

Exit calibrate(Options& options) {
    readBetween(options);
    options.calibrator.reflectedCelsius = options.reflected;
    if (!(options.calibrator.emissivity > 0.0 && options.calibrator.emissivity <= 1.0)) {
        throw Failure(Exit::usage, "--emissivity must be above 0 and at most 1");
    }
    constexpr double absoluteZeroCelsius = -273.15;
    if (options.reflected && !(*options.reflected >= absoluteZeroCelsius && std::isfinite(*options.reflected))) {
        throw Failure(Exit::usage, "--reflected must be a temperature in degrees Celsius, not below absolute zero");
    }
    const Recording source(options.recording);
    if (source.layout().type == qv::EDataType::rgb24) {
        throw Failure(Exit::damaged, options.recording + ": its frames are pictures in colour, not counts");
    }
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.calibration);
    warnOfMissingResponses(calibration, options.calibration);
    const Calibrator calibrator(calibration, options.calibrator, options.calibration);
    Target target(options.output, options.force);
    qv::CSAFFile header;
    writeHeader(source, calibrator, options, header);
    uint32_t position = 0;
    qv::ClearDiagnostic();
    header.SaveTo(target.open(), position, true);
    if (qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, options.output, "cannot be written");
    const Tally tally = convertFrames(source, calibrator, target, position);
    target.commit();
    report(options, source, calibrator, tally);
    return Exit::done;
}

}  // namespace

void addCalibrate(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command = addCommand(root, "calibrate", "Turn the counts of a recording into temperatures or radiance.",
                                   "  qv calibrate run7.saf --rcal camera.rcal -o run7-celsius.saf\n"
                                   "  qv calibrate run7.saf --rcal camera.rcal --between 0:1 --at 31.2 --emissivity "
                                   "0.95 --reflected 22 -o hot.saf",
                                   [options] { return calibrate(*options); });
    command->add_option("recording", options->recording, "Recording of counts")->required();
    command->add_option("--rcal", options->calibration, "Calibration")->required();
    command->add_option("-o,--output", options->output, "Recording to write (Flt32)")->required();
    auto* page = command->add_option("--page", options->calibrator.page, "Page of the calibration, from 0");
    command->add_option("--between", options->between, "Interpolate between two pages, as N:M")->excludes(page);
    command->add_option("--at", options->at, "Instrument temperature to interpolate at");
    addChoice<Quantity>(*command, "--to", options->calibrator.to,
                        {{"temperature", Quantity::temperature}, {"radiance", Quantity::radiance}},
                        "What the result holds (temperature)");
    addChoice<TemperatureUnit>(*command, "--unit", options->calibrator.unit,
                               {{"C", TemperatureUnit::celsius},
                                {"F", TemperatureUnit::fahrenheit},
                                {"K", TemperatureUnit::kelvin},
                                {"R", TemperatureUnit::rankine}},
                               "Unit of temperatures (C)");
    command->add_option("--emissivity", options->calibrator.emissivity, "Emissivity of the source (1)");
    command->add_option("--reflected", options->reflected, "Temperature [C] of what the source reflects (nothing)");
    addChoice<Inverse>(
        *command, "--inverse", options->calibrator.inverse,
        {{"auto", Inverse::automatic}, {"polynomial", Inverse::polynomial}, {"table", Inverse::table}},
        "table: the calibration's own integral; polynomial: the page's fit; auto (default): the polynomial when the "
        "user has overridden it, else the table");
    command->add_flag("--force", options->force, "Replace the output when it exists");
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
