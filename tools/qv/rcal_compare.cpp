// qv rcal diff, eval and whatif: what a calibration makes of counts and of temperatures, and how much hangs on what is
// assumed.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <memory>

#include "calibration.h"
#include "calibrator.h"
#include "command.h"
#include "json.h"
#include "rcal_commands.h"
#include "rcal_sources.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

constexpr double absoluteZeroCelsius = -273.15;

struct Options {
    std::string file;
    std::string other;
    std::vector<double> counts;
    std::vector<double> celsius;
    int32_t page = 0;
    std::optional<int32_t> otherPage;
    std::optional<double> emissivity;
    std::optional<double> reflected;
    Inverse inverse = Inverse::automatic;
    double limit = 0.001;
    bool transmission = false;
    bool path = false;
    bool json = false;
    bool csv = false;
};

/// Where a verb prints, by the options.
void print(const Options& options, Json& document, const Table& table, const std::string& before,
           const std::string& after) {
    if (options.json) {
        document.print(std::cout);
    } else if (options.csv) {
        table.printCsv(std::cout);
    } else {
        std::cout << before;
        table.print(std::cout);
        std::cout << after;
    }
}

SourceAssumptions assumptionsOf(const Options& options, double usualEmissivity) {
    const SourceAssumptions source{options.emissivity.value_or(usualEmissivity), options.reflected};
    if (!(source.emissivity > 0.0 && source.emissivity <= 1.0)) {
        throw Failure(Exit::usage, "--emissivity must be above 0 and at most 1");
    }
    if (options.reflected && !(*options.reflected >= absoluteZeroCelsius && std::isfinite(*options.reflected))) {
        throw Failure(Exit::usage, "--reflected must be a temperature in degrees Celsius, not below absolute zero");
    }
    for (const double celsius : options.celsius) {
        if (!(celsius > absoluteZeroCelsius && std::isfinite(celsius))) {
            throw Failure(Exit::usage, "--celsius: " + number(celsius) + " is no temperature above absolute zero");
        }
    }
    return source;
}

CalibratorOptions calibratorOptions(const Options& options, int32_t page, const SourceAssumptions& source) {
    CalibratorOptions result;
    result.page = page;
    result.emissivity = source.emissivity;
    result.reflectedCelsius = source.reflectedCelsius;
    result.inverse = options.inverse;
    return result;
}

void load(qv::CRCalFile& calibration, const std::string& path) {
    loadCalibration(calibration, path);
    warnOfMissingResponses(calibration, path);
}

std::string kelvin(double value) { return value == value ? fixed(value, 4) : "-"; }
std::string celsiusText(double value) { return value == value ? fixed(value, 3) : "-"; }
/// A JSON number, or null for no number.
Json known(double value) { return value == value ? Json(value) : Json(); }

// diff ---------------------------------------------------------------------------------------------------------------

/// Two calibrations at one measurement.
struct Difference {
    double counts = 0.0;
    double a = 0.0;  ///< Degrees Celsius.
    double b = 0.0;
    double kelvin() const { return b - a; }
};

constexpr int diffSamples = 1000;
constexpr int diffRows = 10;

Exit diff(const Options& options) {
    const SourceAssumptions source = assumptionsOf(options, 1.0);
    qv::CRCalFile files[2];
    load(files[0], options.file);
    load(files[1], options.other);
    const Calibrator a(files[0], calibratorOptions(options, options.page, source), options.file);
    const Calibrator b(files[1], calibratorOptions(options, options.otherPage.value_or(options.page), source),
                       options.other);
    const double low = std::max(a.minCounts(), b.minCounts());
    const double high = std::min(a.maxCounts(), b.maxCounts());
    if (!(low < high)) {
        throw Failure(Exit::negative, options.other + ": its range of " + number(b.minCounts(), 7) + " to " +
                                          number(b.maxCounts(), 7) + " counts has nothing in common with " +
                                          number(a.minCounts(), 7) + " to " + number(a.maxCounts(), 7) + " of " +
                                          options.file);
    }
    Table table({{"counts"}, {"first [C]"}, {"second [C]"}, {"second - first [K]"}});
    Json rows = Json::array();
    Difference worst;
    double sum = 0.0, squares = 0.0;
    int compared = 0;
    for (int i = 0; i <= diffSamples; ++i) {
        const double counts = low + (high - low) * i / diffSamples;
        const Difference here{counts, a.convert(counts), b.convert(counts)};
        if (i % (diffSamples / diffRows) == 0) {
            table.add({number(counts, 7), celsiusText(here.a), celsiusText(here.b), kelvin(here.kelvin())});
            rows.push(Json::object()
                          .set("counts", counts)
                          .set("firstCelsius", known(here.a))
                          .set("secondCelsius", known(here.b)));
        }
        if (!std::isfinite(here.kelvin())) continue;
        if (compared++ == 0 || std::fabs(here.kelvin()) > std::fabs(worst.kelvin())) worst = here;
        sum += here.kelvin();
        squares += here.kelvin() * here.kelvin();
    }
    if (compared == 0) throw Failure(Exit::negative, options.other + ": gives no temperature that could be compared");
    const double mean = sum / compared;
    const double rms = std::sqrt(squares / compared);
    Json document = Json::document("qv.rcal.diff.1");
    document.set("first", options.file).set("second", options.other).set("emissivity", source.emissivity);
    document.set("lowCounts", low).set("highCounts", high).set("samples", compared);
    document.set("largestKelvin", worst.kelvin()).set("atCounts", worst.counts).set("atCelsius", worst.a);
    document.set("meanKelvin", mean).set("rmsKelvin", rms).set("limitKelvin", options.limit).set("rows", rows);
    const std::string before = "first:   " + options.file + ", " + a.assumptions() + "\nsecond:  " + options.other +
                               ", " + b.assumptions() + "\ncommon:  " + number(low, 7) + " to " + number(high, 7) +
                               " counts, compared at " + std::to_string(compared) + " of " +
                               std::to_string(diffSamples + 1) + " places\n";
    const std::string after = "largest difference " + kelvin(worst.kelvin()) + " K at " + number(worst.counts, 7) +
                              " counts (" + celsiusText(worst.a) + " C); mean " + kelvin(mean) + " K, rms " +
                              kelvin(rms) + " K\n";
    print(options, document, table, before, after);
    return std::fabs(worst.kelvin()) > options.limit ? Exit::negative : Exit::done;
}

// eval ---------------------------------------------------------------------------------------------------------------

/// One line of eval, from counts or from a temperature.
struct Evaluated {
    double counts;
    double seen;  ///< Radiance at the camera, with what the source reflects and the path radiates.
    double celsius;
};

Exit eval(const Options& options) {
    if (options.counts.empty() && options.celsius.empty()) {
        throw Failure(Exit::usage, "eval: --counts or --celsius says what to evaluate");
    }
    const SourceAssumptions source = assumptionsOf(options, 1.0);
    qv::CRCalFile file;
    load(file, options.file);
    const Calibrator calibrator(file, calibratorOptions(options, options.page, source), options.file);
    const std::vector<double> forward = forwardCoefficients(file, options.page);
    std::vector<Evaluated> values;
    for (const double counts : options.counts) {
        values.push_back({counts, calibrator.radianceOf(counts), calibrator.convert(counts)});
    }
    for (const double celsius : options.celsius) {
        const double seen = seenRadiance(file, celsius, source);
        values.push_back({countsOf(forward, seen, calibrator.minCounts(), calibrator.maxCounts()), seen, celsius});
    }
    Table table({{"counts"}, {"radiance [W/(sr-cm^2)]"}, {"temperature [C]"}, {"range", Table::Align::left}});
    Json rows = Json::array();
    for (const Evaluated& value : values) {
        const char* const range = value.counts != value.counts            ? "unknown"
                                  : value.counts < calibrator.minCounts() ? "below"
                                  : value.counts > calibrator.maxCounts() ? "above"
                                                                          : "inside";
        table.add({value.counts == value.counts ? number(value.counts, 7) : "-", number(value.seen, 7),
                   celsiusText(value.celsius), range});
        rows.push(Json::object()
                      .set("counts", known(value.counts))
                      .set("radiance", value.seen)
                      .set("celsius", known(value.celsius))
                      .set("range", range));
    }
    const std::string inverse = calibrator.usesPolynomial() ? "polynomial" : "table";
    Json document = Json::document("qv.rcal.eval.1");
    document.set("file", options.file).set("page", options.page).set("emissivity", source.emissivity);
    document.set("reflectedCelsius", source.reflectedCelsius ? Json(*source.reflectedCelsius) : Json());
    document.set("inverse", inverse).set("minCounts", calibrator.minCounts()).set("maxCounts", calibrator.maxCounts());
    document.set("values", rows);
    print(options, document, table,
          options.file + "\n  assumed: " + calibrator.assumptions() +
              "\n  radiance is that at the camera; counts to it by " +
              "the page's polynomial, and it to temperature by the " +
              (calibrator.usesPolynomial() ? "page's polynomial" : "calibration's own integral") + "\n",
          "");
    return Exit::done;
}

// whatif -------------------------------------------------------------------------------------------------------------

constexpr double usualEmissivity = 0.95;
constexpr double usualReflectedCelsius = 22.0;
constexpr double emissivityStep = 0.01;

/// How far a reading moves when one assumption does, in kelvin; not a number where that cannot be told.
struct Sensitivity {
    double celsius;
    double emissivity;  ///< Assumed higher by 0.01 (at 1, lower, with the sign turned).
    double reflected;   ///< Assumed higher by 1 K.
    double atmosphere;  ///< Left out of account.
};

/// The calibration with an atmosphere and without. One that has none, or whose file is missing, has no pair.
struct Atmosphere {
    std::optional<qv::CRCalFile> on;
    std::optional<qv::CRCalFile> off;
    std::string note;
};

/// The curves of --transmission and --path, else those that the calibration has in force, else the transmission.
Atmosphere atmosphereOf(const qv::CRCalFile& file, const Options& options) {
    Atmosphere result;
    qv::CRCalFile on = file;
    if (on.modtran().getFile().size() == 0) {
        result.note = "the calibration has no atmosphere";
        return result;
    }
    const bool inForce[] = {on.modtran()[0].getEnabled(), on.modtran()[1].getEnabled()};
    bool wanted[] = {options.transmission, options.path};
    if (!wanted[0] && !wanted[1]) std::copy_n(inForce, 2, wanted);
    if (!wanted[0] && !wanted[1]) wanted[0] = true;
    for (const int32_t curve : {0, 1}) on.modtran()[curve].setEnabled(wanted[curve]);
    if (on.modtran().getStatus() != qv::EResponseStatus::loaded) {
        result.note = "the atmosphere's file is not loaded";
        return result;
    }
    result.note = "the atmosphere is its";
    const char* const names[] = {"transmission", "path radiance"};
    for (const int32_t curve : {0, 1}) {
        if (!wanted[curve]) continue;
        result.note += curve == 1 && wanted[0] ? " and " : " ";
        result.note += names[curve];
        if (!inForce[curve]) result.note += " (which the calibration has switched off)";
    }
    result.off = file;
    for (const int32_t curve : {0, 1}) result.off->modtran()[curve].setEnabled(false);
    result.on = std::move(on);
    return result;
}

Sensitivity sensitivityAt(const qv::CRCalFile& file, const Atmosphere& atmosphere, double celsius,
                          const SourceAssumptions& source) {
    const double seen = seenRadiance(file, celsius, source);
    const auto reading = [&](double emissivity, double reflectedShift) {
        return temperatureOf(file, seen, {emissivity, *source.reflectedCelsius + reflectedShift});
    };
    Sensitivity result{celsius, 0.0, 0.0, std::numeric_limits<double>::quiet_NaN()};
    const double sign = source.emissivity + emissivityStep <= 1.0 ? 1.0 : -1.0;
    result.emissivity = sign * (reading(source.emissivity + sign * emissivityStep, 0.0) - celsius);
    result.reflected = reading(source.emissivity, 1.0) - celsius;
    if (atmosphere.on) {
        result.atmosphere =
            temperatureOf(*atmosphere.off, seenRadiance(*atmosphere.on, celsius, source), source) - celsius;
    }
    return result;
}

/// What was asked for, or the coldest, the middle and the hottest temperature of the page's range.
std::vector<double> temperaturesOf(qv::CRCalFile& file, const Options& options) {
    if (!options.celsius.empty()) return options.celsius;
    double low = 0.0, high = 0.0;
    if (!file.calPage(options.page).GetTemperatureRange(low, high)) {
        throw Failure(Exit::negative, options.file + ": there is no page " + std::to_string(options.page) +
                                          " (it has " + std::to_string(file.calPages().getCount()) + ")");
    }
    if (!(low < high)) {
        throw Failure(Exit::negative, options.file + ": page " + std::to_string(options.page) +
                                          " has no range of temperatures (--celsius gives some)");
    }
    return {low, 0.5 * (low + high), high};
}

Exit whatIf(const Options& options) {
    SourceAssumptions source = assumptionsOf(options, usualEmissivity);
    if (!source.reflectedCelsius) source.reflectedCelsius = usualReflectedCelsius;
    qv::CRCalFile file;
    load(file, options.file);
    if (file.axis().getCount() == 0) {
        throw Failure(Exit::damaged, options.file + ": has no spectral response, so no radiance can be calculated");
    }
    const Atmosphere atmosphere = atmosphereOf(file, options);
    Table table(
        {{"temperature [C]"}, {"per 0.01 emissivity [K]"}, {"per kelvin reflected [K]"}, {"atmosphere ignored [K]"}});
    Json rows = Json::array();
    for (const double celsius : temperaturesOf(file, options)) {
        const Sensitivity found = sensitivityAt(file, atmosphere, celsius, source);
        table.add({number(celsius, 7), kelvin(found.emissivity), kelvin(found.reflected), kelvin(found.atmosphere)});
        rows.push(Json::object()
                      .set("celsius", celsius)
                      .set("kelvinPerHundredthEmissivity", known(found.emissivity))
                      .set("kelvinPerKelvinReflected", known(found.reflected))
                      .set("kelvinAtmosphereIgnored", known(found.atmosphere)));
    }
    Json document = Json::document("qv.rcal.whatif.1");
    document.set("file", options.file).set("emissivity", source.emissivity);
    document.set("reflectedCelsius", *source.reflectedCelsius).set("atmosphere", atmosphere.note).set("values", rows);
    print(options, document, table,
          options.file + "\n  assumed: emissivity " + number(source.emissivity) +
              (options.emissivity ? "" : " (default)") + ", reflected temperature " + number(*source.reflectedCelsius) +
              " C" + (options.reflected ? "" : " (default)") + "; " + atmosphere.note +
              "\n  how far the reading of such a source moves when\n" +
              "    the assumed emissivity is raised by 0.01, the assumed reflected temperature by 1 K,\n" +
              "    and when the atmosphere before it is not taken into account\n",
          "");
    return Exit::done;
}

// Commands -----------------------------------------------------------------------------------------------------------

CLI::App* addVerb(CLI::App& rcal, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(rcal, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("file", options->file, "Calibration")->required();
    verb->add_flag("--json", options->json, "Facts as JSON");
    verb->add_flag("--csv", options->csv, "Comma-separated");
    verb->add_option("--page", options->page, "Page, from 0");
    return verb;
}

void addInverse(CLI::App* verb, const std::shared_ptr<Options>& options) {
    addChoice<Inverse>(*verb, "--inverse", options->inverse,
                       {{"auto", Inverse::automatic}, {"polynomial", Inverse::polynomial}, {"table", Inverse::table}},
                       "From radiance to temperature by the calibration's integral (table) or the page's fit (auto)");
}

}  // namespace

void addRcalCompare(CLI::App& rcal) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(rcal, options, "diff",
                             "The largest difference of two calibrations in kelvin over the counts that both cover. "
                             "Exit code 1 when it is above --limit.",
                             "  qv rcal diff june.rcal july.rcal\n"
                             "  qv rcal diff camera.rcal camera.rcal --page 0 --page-b 1 --limit 0.2",
                             diff);
    verb->add_option("other", options->other, "The second calibration")->required();
    verb->add_option("--page-b", options->otherPage, "Page of the second calibration (that of --page)");
    verb->add_option("--limit", options->limit, "Kelvins from which on the two differ (0.001)");
    verb->add_option("--emissivity", options->emissivity, "Emissivity of the source (1)");
    addInverse(verb, options);

    verb = addVerb(rcal, options, "eval",
                   "What the calibration makes of counts, and what a source of a temperature gives.",
                   "  qv rcal eval camera.rcal --counts 3000 5000\n"
                   "  qv rcal eval camera.rcal --celsius 36.6 --emissivity 0.98 --reflected 22",
                   eval);
    verb->add_option("--counts", options->counts, "Measurements to turn into radiance and temperature");
    verb->add_option("--celsius", options->celsius, "Temperatures to turn into radiance and counts");
    verb->add_option("--emissivity", options->emissivity, "Emissivity of the source (1)");
    verb->add_option("--reflected", options->reflected, "Temperature [C] of what the source reflects (nothing)");
    addInverse(verb, options);

    verb = addVerb(rcal, options, "whatif",
                   "How much a temperature hangs on what is assumed: kelvin per 0.01 of emissivity, per kelvin of "
                   "reflected temperature, and with the atmosphere left out of account.",
                   "  qv rcal whatif camera.rcal\n"
                   "  qv rcal whatif camera.rcal --celsius 20 40 --emissivity 0.9 --reflected 5",
                   whatIf);
    verb->add_option("--celsius", options->celsius, "Temperatures (ends and middle of the page's range)");
    verb->add_option("--emissivity", options->emissivity, "Emissivity of the source (0.95)");
    verb->add_option("--reflected", options->reflected, "Temperature [C] of what the source reflects (22)");
    verb->add_flag("--transmission", options->transmission, "The atmosphere attenuates (as the calibration has it)");
    verb->add_flag("--path", options->path, "The atmosphere radiates (as the calibration has it)");
}

}  // namespace tool
