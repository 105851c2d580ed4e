// qv rcal: calibrations from nothing, their points and fits, and how good they are.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>

#include "calibration.h"
#include "calibrator.h"
#include "command.h"
#include "json.h"
#include "places.h"
#include "points_csv.h"
#include "qv/diagnostic.h"
#include "rcal_commands.h"
#include "rcal_forms.h"
#include "rcal_report.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

constexpr double mostTophatPoints = 262144;
constexpr int32_t mostPages = 1000;

struct Options {
    std::string file;
    std::string band;
    double delta = 0.001;
    std::string response;
    std::vector<std::string> added;
    std::string modtran;
    bool transmission = false;
    bool path = false;
    std::vector<std::string> tags;
    int32_t pages = 1;
    bool force = false;
    std::string points;
    std::optional<int32_t> page;
    std::optional<double> instrument;
    std::map<PointColumn, std::string> columns;
    bool replace = false;
    std::optional<int32_t> order;
    std::optional<int32_t> tempOrder;
    std::string lookup;
    Limits limits;
    bool dryRun = false;
    bool json = false;
    bool csv = false;
};

/// "3:5" or "0:100:1" as numbers.
std::vector<double> numbers(const std::string& text, size_t count, const std::string& option, const std::string& form) {
    std::vector<double> values;
    size_t at = 0;
    while (at <= text.size()) {
        const size_t end = std::min(text.find(':', at), text.size());
        char* rest = nullptr;
        const std::string part = text.substr(at, end - at);
        values.push_back(std::strtod(part.c_str(), &rest));
        if (part.empty() || *rest != 0 || !std::isfinite(values.back())) break;
        at = end + 1;
    }
    if (values.size() != count || at <= text.size()) {
        throw Failure(Exit::usage, option + ": \"" + text + "\" is not of the form " + form);
    }
    return values;
}

// new ----------------------------------------------------------------------------------------------------------------

/// A calibration is used from other folders than it was made in.
qv::CString absolutePath(const std::string& path) {
    requireFile(path);
    if (insideOf(path)) {
        throw Failure(
            Exit::usage,
            path + ": a calibration names a file on disk, as every program reads it (qv pack get takes it out)");
    }
    return wide(std::filesystem::absolute(path).lexically_normal().string());
}

/// Refuses responses that are missing: `why` says what would come of it.
void requireResponses(qv::CRCalFile& calibration, const std::string& why) {
    for (const ResponseState& state : responses(calibration)) {
        if (state.missing)
            throw Failure(Exit::io,
                          state.file + ": " + state.name + ": " + state.what.substr(0, state.what.find(',')) + why);
    }
}

void setBand(qv::CRCalFile& calibration, const Options& options) {
    const std::vector<double> band = numbers(options.band.empty() ? "3:5" : options.band, 2, "--band", "LOW:HIGH");
    if (!(band[0] > 0.0 && band[0] < band[1])) throw Failure(Exit::usage, "--band: LOW must be above 0 and below HIGH");
    if (!(options.delta > 0.0 && (band[1] - band[0]) / options.delta <= mostTophatPoints)) {
        throw Failure(Exit::usage,
                      "--delta: the step must be above 0 and give at most " + number(mostTophatPoints) + " points");
    }
    auto tophat = calibration.tophat();
    calibration.spectralResponse().setType(qv::ESpectralResponseType::tophat);
    tophat.setStart(band[0]);
    tophat.setEnd(band[1]);
    tophat.setDelta(options.delta);
}

void setResponses(qv::CRCalFile& calibration, const Options& options) {
    qv::ClearDiagnostic();
    if (options.response.empty()) {
        setBand(calibration, options);
    } else {
        calibration.spectralResponse().setFile(absolutePath(options.response));
    }
    for (const std::string& path : options.added) calibration.additionalResponses().Add(absolutePath(path));
    if (!options.modtran.empty()) {
        if (!options.transmission && !options.path) {
            throw Failure(Exit::usage, "--modtran needs --transmission, --path or both");
        }
        calibration.modtran()[0].setEnabled(options.transmission);
        calibration.modtran()[1].setEnabled(options.path);
        calibration.modtran().setFile(absolutePath(options.modtran));
    } else if (options.transmission || options.path) {
        throw Failure(Exit::usage, "--transmission and --path need --modtran");
    }
    requireResponses(calibration, "");
    if (!(calibration.CalcRadiance(1000.0, 1.0) > 0.0)) {
        throw Failure(Exit::negative,
                      options.file + ": the responses have no wavelength in common, every radiance would be 0");
    }
}

void setTags(qv::CRCalFile& calibration, const Options& options) {
    for (const std::string& tag : options.tags) {
        const auto [name, value] = splitTag(tag, "--tag");
        calibration.SetTag(wide(name).c_str(), wide(value).c_str());
    }
}

std::string describeBand(qv::CRCalFile& calibration) {
    const auto response = calibration.spectralResponse();
    return number(response.getBandpassLow()) + " to " + number(response.getBandpassHigh()) + " um";
}

Exit makeNew(const Options& options) {
    if (options.pages < 0 || options.pages > mostPages) {
        throw Failure(Exit::usage, "--pages must lie between 0 and " + std::to_string(mostPages));
    }
    qv::CRCalFile calibration;
    setResponses(calibration, options);
    setTags(calibration, options);
    for (int32_t i = 0; i < options.pages; ++i) calibration.calPages().Add();
    saveCalibration(calibration, options.file, options.force);
    if (options.json) {
        Json::document("qv.rcal.new.1")
            .set("file", options.file)
            .set("bandLowMicrons", calibration.spectralResponse().getBandpassLow())
            .set("bandHighMicrons", calibration.spectralResponse().getBandpassHigh())
            .set("pages", options.pages)
            .print(std::cout);
    } else {
        std::cout << options.file << ": band " << describeBand(calibration) << ", " << calibration.axis().getCount()
                  << " points on the axis, " << options.pages << (options.pages == 1 ? " page\n" : " pages\n");
    }
    return Exit::done;
}

// Reports ------------------------------------------------------------------------------------------------------------

void requirePage(qv::CRCalFile& calibration, const Options& options) {
    if (!options.page || calibration.calPage(*options.page).getExists()) return;
    throw Failure(Exit::negative, options.file + ": there is no page " + std::to_string(*options.page) + " (it has " +
                                      std::to_string(calibration.calPages().getCount()) + ")");
}

/// The page that was asked for, or all.
std::vector<PageReport> reportPages(qv::CRCalFile& calibration, const Options& options) {
    std::vector<PageReport> reports;
    for (int32_t i = 0; i < calibration.calPages().getCount(); ++i) {
        if (!options.page || *options.page == i) reports.push_back(reportPage(calibration, i, options.limits));
    }
    return reports;
}

void printResponses(qv::CRCalFile& calibration, const Options& options) {
    const bool fromFile = calibration.spectralResponse().getType() == qv::ESpectralResponseType::file;
    std::cout << options.file << ": revision " << calibration.getRevision() << ", band " << describeBand(calibration)
              << " (" << (fromFile ? "response file" : "top-hat")
              << (calibration.GetBandpassOverridden() ? ", overridden" : "") << "), " << calibration.axis().getCount()
              << " points on the axis\n";
    for (const ResponseState& state : responses(calibration)) {
        std::cout << "  " << state.name << ": " << (state.missing ? "MISSING: " : "") << state.file
                  << (state.file.empty() ? "" : ", ") << state.what << '\n';
    }
    for (const auto& tag : calibration.GetTags())
        std::cout << "  tag " << narrow(tag.name) << ": " << narrow(tag.value) << '\n';
}

Json jsonResponses(qv::CRCalFile& calibration, const Options& options, const std::string& schema) {
    Json files = Json::array();
    for (const ResponseState& state : responses(calibration)) files.push(jsonOf(state));
    Json tags = Json::object();
    for (const auto& tag : calibration.GetTags()) tags.set(narrow(tag.name), narrow(tag.value));
    return Json::document(schema)
        .set("file", options.file)
        .set("revision", calibration.getRevision())
        .set("bandLowMicrons", calibration.spectralResponse().getBandpassLow())
        .set("bandHighMicrons", calibration.spectralResponse().getBandpassHigh())
        .set("axisPoints", calibration.axis().getCount())
        .set("responses", files)
        .set("tags", tags);
}

std::vector<std::string> findingsOf(qv::CRCalFile& calibration, const std::vector<PageReport>& reports) {
    std::vector<std::string> findings;
    for (const ResponseState& state : responses(calibration)) {
        if (state.missing) findings.push_back("the " + state.name + " " + state.file + ": " + state.what);
    }
    if (calibration.calPages().getCount() == 0) findings.push_back("there are no pages");
    for (const PageReport& report : reports)
        findings.insert(findings.end(), report.findings.begin(), report.findings.end());
    return findings;
}

/// Everything about the pages; `check` adds what is wrong, and the result says whether anything is.
bool printReport(qv::CRCalFile& calibration, const Options& options, const std::string& schema, bool check) {
    const std::vector<PageReport> reports = reportPages(calibration, options);
    const std::vector<std::string> findings = findingsOf(calibration, reports);
    Table table = pointTable();
    for (const PageReport& report : reports) addPoints(report, table);
    if (options.json) {
        Json pages = Json::array();
        for (const PageReport& report : reports) pages.push(jsonPage(report));
        Json wrong = Json::array();
        for (const std::string& finding : findings) wrong.push(Json(finding));
        jsonResponses(calibration, options, schema).set("pages", pages).set("findings", wrong).print(std::cout);
    } else if (options.csv) {
        table.printCsv(std::cout);
    } else {
        printResponses(calibration, options);
        for (const PageReport& report : reports) {
            printPage(report, options.limits, std::cout);
            Table points = pointTable();
            addPoints(report, points);
            if (points.rows() != 0) points.print(std::cout, "  ");
        }
        if (check) std::cout << (findings.empty() ? "nothing wrong\n" : "wrong:\n");
        for (const std::string& finding : findings) {
            if (check) std::cout << "  " << finding << '\n';
        }
    }
    return findings.empty();
}

Exit show(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.file);
    requirePage(calibration, options);
    warnOfMissingResponses(calibration, options.file);
    printReport(calibration, options, "qv.rcal.show.1", false);
    return Exit::done;
}

Exit check(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.file);
    requirePage(calibration, options);
    warnOfMissingResponses(calibration, options.file);
    return printReport(calibration, options, "qv.rcal.check.1", true) ? Exit::done : Exit::negative;
}

/// Replaces the calibration's file, or says that it does not.
void saveInPlace(qv::CRCalFile& calibration, const Options& options) {
    if (options.dryRun) {
        remark("qv: " + options.file + ": is left as it is (--dry-run)");
    } else {
        saveCalibration(calibration, options.file, true, formOf(options.file));
    }
}

// points -------------------------------------------------------------------------------------------------------------

/// The page of that instrument temperature: the one that has the tag, else one without points and tag, else a new one.
int32_t pageFor(qv::CRCalFile& calibration, double instrument) {
    const int32_t count = calibration.calPages().getCount();
    for (int32_t i = 0; i < count; ++i) {
        const char16_t* tag = calibration.GetTag(instrumentTag, i);
        if (tag != nullptr && std::strtod(narrow(tag).c_str(), nullptr) == instrument) return i;
    }
    for (int32_t i = 0; i < count; ++i) {
        if (calibration.GetTag(instrumentTag, i) == nullptr && calibration.calPage(i).points().getCount() == 0)
            return i;
    }
    return calibration.calPages().Add();
}

struct Placed {
    int32_t page;
    std::vector<qv::CAL_POINT> points;
};

/// The points of the table by page; pages that are needed are made and tagged.
std::vector<Placed> placePoints(qv::CRCalFile& calibration, const PointTable& table, const Options& options) {
    std::vector<double> instruments;
    std::vector<Placed> placed;
    for (const PointRow& row : table.rows) {
        const std::optional<double> instrument = row.instrument ? row.instrument : options.instrument;
        const double key = instrument.value_or(std::numeric_limits<double>::infinity());
        size_t at = static_cast<size_t>(std::ranges::find(instruments, key) - instruments.begin());
        if (at == instruments.size()) {
            if (options.page && !instruments.empty()) {
                throw Failure(Exit::usage,
                              options.points +
                                  ": holds several instrument temperatures, which need a page each (leave --page out)");
            }
            int32_t page = options.page.value_or(0);
            if (!options.page && instrument) page = pageFor(calibration, *instrument);
            if (page == 0 && calibration.calPages().getCount() == 0) calibration.calPages().Add();
            if (instrument) calibration.SetTag(instrumentTag, wide(exact(*instrument)).c_str(), page);
            instruments.push_back(key);
            placed.push_back({page, {}});
        }
        placed[at].points.push_back(row.point);
    }
    return placed;
}

Exit addPointsTo(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.file);
    requirePage(calibration, options);
    warnOfMissingResponses(calibration, options.file);
    const PointTable table = readPoints(options.points, options.columns);
    for (const std::string& name : table.ignored)
        remark("qv: " + options.points + ": the column \"" + name + "\" is not used");
    Json pages = Json::array();
    Table text({{"page"}, {"instrument [C]"}, {"points added"}, {"points"}});
    for (const Placed& placed : placePoints(calibration, table, options)) {
        auto points = calibration.calPage(placed.page).points();
        while (options.replace && points.getCount() != 0) points.Remove(points.getCount() - 1);
        for (const qv::CAL_POINT& point : placed.points) points.Add(point);
        auto range = calibration.calPage(placed.page).range();
        if (range.getAuto()) range.setAuto(true);  // adding points leaves the range as it was
        const std::string instrument = narrow(calibration.GetTag(instrumentTag, placed.page));
        text.add({std::to_string(placed.page), instrument, std::to_string(placed.points.size()),
                  std::to_string(points.getCount())});
        pages.push(Json::object()
                       .set("page", placed.page)
                       .set("instrument", instrument)
                       .set("added", static_cast<uint64_t>(placed.points.size()))
                       .set("points", points.getCount()));
    }
    saveInPlace(calibration, options);
    if (options.json) {
        Json::document("qv.rcal.points.1")
            .set("file", options.file)
            .set("dryRun", options.dryRun)
            .set("pages", pages)
            .print(std::cout);
    } else {
        options.csv ? text.printCsv(std::cout) : text.print(std::cout);
    }
    return Exit::done;
}

// fit ----------------------------------------------------------------------------------------------------------------

/// Calculates radiances, fits, ranges and tables of all pages anew: what a change of the response in force does.
void calculateAnew(qv::CRCalFile& calibration) {
    requireResponses(calibration, ", and a fit without it would be wrong");
    calibration.spectralResponse().setType(calibration.spectralResponse().getType());
}

void setLookup(qv::CRCalFile::CCalPage page, const std::string& text) {
    const std::vector<double> v = numbers(text, 3, "--lookup", "START:END:DELTA");
    if (!(v[0] < v[1] && v[0] > -273.15 && v[2] > 0.0 && (v[1] - v[0]) / v[2] <= 1e5)) {
        throw Failure(Exit::usage, "--lookup: START must be below END, and DELTA give at most 100000 entries");
    }
    page.lookup().setDelta(v[1] - v[0]);  // few entries, until all three stand
    page.lookup().setStart(v[0]);
    page.lookup().setEnd(v[1]);
    page.lookup().setDelta(v[2]);
}

Exit fit(const Options& options) {
    if ((options.order && *options.order < 1) || (options.tempOrder && *options.tempOrder < 1)) {
        throw Failure(Exit::usage, "an order is at least 1");
    }
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.file);
    requirePage(calibration, options);
    calculateAnew(calibration);
    for (int32_t i = 0; i < calibration.calPages().getCount(); ++i) {
        if (options.page && *options.page != i) continue;
        auto page = calibration.calPage(i);
        if (options.order) {
            page.setPolyOrder(*options.order);
            int32_t kept = 0;
            calibration.GetCalcPolyOrder(i, kept);
            if (kept != *options.order) {
                remark("qv: " + options.file + ": page " + std::to_string(i) + " has " +
                       std::to_string(page.points().getCount()) + " points, enough for order " + std::to_string(kept));
            }
        }
        if (!options.lookup.empty()) setLookup(page, options.lookup);
        if (options.tempOrder) page.setTempPolyOrder(*options.tempOrder);
    }
    saveInPlace(calibration, options);
    printReport(calibration, options, "qv.rcal.fit.1", false);
    return Exit::done;
}

// Commands -----------------------------------------------------------------------------------------------------------

/// A verb below "qv rcal". All share one set of options, of which each adds those that it has.
CLI::App* addVerb(CLI::App& parent, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(parent, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("file", options->file, "Calibration")->required();
    verb->add_flag("--json", options->json, "Facts as JSON");
    return verb;
}

void addDryRun(CLI::App* verb, const std::shared_ptr<Options>& options) {
    verb->add_flag("--dry-run", options->dryRun, "Show the outcome, and leave the file as it is");
}

void addNew(CLI::App& parent, const std::shared_ptr<Options>& options) {
    CLI::App* verb =
        addVerb(parent, options, "new", "Make a calibration. Paths of response files are stored as absolute paths.",
                "  qv rcal new camera.rcal --band 3:5 --tag Camera=MW1\n"
                "  qv rcal new camera.rcal --response sensor.txt --add-response lens.txt --add-response filter.txt",
                makeNew);
    auto* band = verb->add_option("--band", options->band, "A response of 1 from LOW to HIGH microns (3:5)");
    auto* delta = verb->add_option("--delta", options->delta, "Step of that response in microns (0.001)");
    verb->add_option("--response", options->response, "Response file: lines of wavelength in microns and value")
        ->excludes(band)
        ->excludes(delta);
    verb->add_option("--add-response", options->added, "Response file of a lens or a filter; may be repeated");
    verb->add_option("--modtran", options->modtran, "Curves of the atmosphere, as qv atm curve writes them");
    verb->add_flag("--transmission", options->transmission, "The atmosphere attenuates");
    verb->add_flag("--path", options->path, "The atmosphere radiates");
    verb->add_option("--tag", options->tags, "NAME=VALUE; may be repeated");
    verb->add_option("--pages", options->pages, "Number of pages (1)");
    verb->add_flag("--force", options->force, "Replace the file when it exists");
}

void addPointsVerb(CLI::App& parent, const std::shared_ptr<Options>& options) {
    CLI::App* verb = addVerb(parent, options, "points",
                             "Add measured points from a table with a head line: temperature, counts, and optionally "
                             "emissivity, reflected temperature, instrument temperature (one page for each).",
                             "  qv rcal points camera.rcal blackbody.csv\n"
                             "  qv rcal points camera.rcal bench.csv --page 1 --instrument 34.4 --column-counts mean",
                             addPointsTo);
    verb->add_option("points", options->points, "Table: cells separated by comma, semicolon or tab")->required();
    verb->add_option("--page", options->page, "Page, from 0");
    verb->add_option("--instrument", options->instrument, "Instrument temperature [C] of points that do not say it");
    verb->add_flag("--replace", options->replace, "Remove the points that the pages have");
    const std::pair<PointColumn, const char*> columns[] = {{PointColumn::temperature, "temperature"},
                                                           {PointColumn::counts, "counts"},
                                                           {PointColumn::emissivity, "emissivity"},
                                                           {PointColumn::reflected, "reflected"},
                                                           {PointColumn::instrument, "instrument"}};
    for (const auto& [column, name] : columns) {
        verb->add_option_function<std::string>(
            "--column-" + std::string(name),
            [options, column = column](const std::string& value) { options->columns[column] = value; },
            "Name of the column that holds it");
    }
    addDryRun(verb, options);
    verb->add_flag("--csv", options->csv, "Comma-separated");
}

void addReportOptions(CLI::App* verb, const std::shared_ptr<Options>& options) {
    verb->add_option("--page", options->page, "Page, from 0 (all)");
    verb->add_flag("--csv", options->csv, "The points as comma-separated values");
}

}  // namespace

void addRcal(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* rcal =
        addCommand(root, "rcal", "Make and judge calibrations.",
                   "  qv rcal new camera.rcal --band 3:5\n  qv rcal points camera.rcal blackbody.csv", nullptr);
    rcal->require_subcommand(1);
    addNew(*rcal, options);
    addPointsVerb(*rcal, options);
    CLI::App* verb = addVerb(*rcal, options, "fit", "Calculate radiances and fits anew, and say how good they are.",
                             "  qv rcal fit camera.rcal --order 2\n"
                             "  qv rcal fit camera.rcal --page 0 --order 3 --temp-order 8 --lookup -20:150:1",
                             fit);
    addReportOptions(verb, options);
    addDryRun(verb, options);
    verb->add_option("--order", options->order, "Order of the polynomial from counts to radiance");
    verb->add_option("--temp-order", options->tempOrder, "Order of the polynomial from radiance to temperature");
    verb->add_option("--lookup", options->lookup,
                     "Temperatures [C] of the table for that polynomial, as START:END:DELTA");
    verb = addVerb(*rcal, options, "show", "Show responses, fits, ranges and points.",
                   "  qv rcal show camera.rcal\n  qv rcal show camera.rcal --page 0 --json", show);
    addReportOptions(verb, options);
    verb =
        addVerb(*rcal, options, "check",
                "Judge a calibration; exit code 1 when something is wrong: a response file that is missing, a page "
                "without points, fit or range, stored radiances that the responses do not give any more, an error "
                "above the limits below, a polynomial that turns within its range, a range beyond the reverse "
                "polynomial's.",
                "  qv rcal check camera.rcal\n  qv rcal check camera.rcal --max-residual 0.2 --max-reverse 0.1", check);
    addReportOptions(verb, options);
    verb->add_option("--max-residual", options->limits.residual, "Largest residual of a point [K] (1)");
    verb->add_option("--max-left-out", options->limits.leftOut, "Largest error at a point that was left out [K] (2)");
    verb->add_option("--max-reverse", options->limits.reverse, "Largest error of the reverse polynomial [K] (0.5)");
    addRcalForms(*rcal);
    addRcalCompare(*rcal);
    addRcalPlot(*rcal);
}

}  // namespace tool
