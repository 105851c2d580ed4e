#include "rcal_forms.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "calibration.h"
#include "command.h"
#include "json.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/rcal_file.h"
#include "qv/saf_file.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::vector<std::string> inputs;
    std::string input;
    std::string output;
    std::optional<CalibrationForm> form;
    std::string calibration;
    int32_t page = 0;
    int32_t base = 0;
    bool force = false;
    bool json = false;
};

const char* wordOf(CalibrationForm form) { return form == CalibrationForm::xml ? "xml" : "binary"; }

std::string pagesText(int32_t count) { return std::to_string(count) + (count == 1 ? " page" : " pages"); }

/// A calibration in memory, every bit of it.
std::string imageOf(qv::CRCalFile& calibration) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    calibration.Save(file, 0);
    return {reinterpret_cast<const char*>(file->data()), file->size()};
}

// convert ------------------------------------------------------------------------------------------------------------

Exit convert(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.input);
    warnOfMissingResponses(calibration, options.input);
    const CalibrationForm from = formOf(options.input);
    const CalibrationForm other = from == CalibrationForm::xml ? CalibrationForm::binary : CalibrationForm::xml;
    const CalibrationForm form = options.form.value_or(other);
    const std::string before = imageOf(calibration);
    saveCalibration(calibration, options.output, options.force, form);
    qv::CRCalFile written;
    loadCalibration(written, options.output);
    const bool exactly = imageOf(written) == before;
    const auto size = fs::file_size(options.output);
    if (options.json) {
        Json::document("qv.rcal.convert.1")
            .set("file", options.input)
            .set("output", options.output)
            .set("from", wordOf(from))
            .set("to", wordOf(form))
            .set("bytes", uint64_t{size})
            .set("pages", written.calPages().getCount())
            .set("exact", exactly)
            .print(std::cout);
    } else {
        std::cout << options.output << ": " << wordOf(form) << ", " << bytes(static_cast<double>(size)) << ", "
                  << pagesText(written.calPages().getCount())
                  << (exactly ? ", every bit as before\n" : ", numbers to 14 digits\n");
    }
    return Exit::done;
}

// import -------------------------------------------------------------------------------------------------------------

struct Companion {
    std::string key;
    std::string file;
};

/// Companions of a header that are not there.
std::vector<Companion> missingCompanions(const std::string& path) {
    std::vector<Companion> missing;
    qv::CSAFFile header;
    header.Load(&files(), wide(path).c_str());
    for (uint32_t i = 0; i < header.nTags(); ++i) {
        const std::string name = narrow(header[i].name);
        std::string file = narrow(header[i].value);
        std::ranges::replace(file, '\\', '/');
        const qv::CString stem = wide(name.substr(0, 6));
        bool companion = stem.CompareNoCase(u"BgFile") == 0;
        for (const char16_t* key : {u"Include", u"CAFile", u"CGFile", u"COFile", u"BPFile"}) {
            if (wide(name).CompareNoCase(key) == 0) companion = true;
        }
        if (!companion || file.empty()) continue;
        const fs::path place = fs::path(path).parent_path() / file;
        std::error_code none;
        if (!fs::exists(place, none)) missing.push_back({name, file});
    }
    return missing;
}

Exit importHeader(const Options& options) {
    requireFile(options.input);
    qv::CRCalFile calibration;
    qv::ClearDiagnostic();
    if (!calibration.Import(&files(), wide(options.input).c_str())) {
        const bool known = qv::CSAFFile::IsSAFFile(&files(), wide(options.input).c_str());
        throw diagnosed(known ? Exit::damaged : Exit::wrongKind, options.input, "is no calibration header");
    }
    const qv::CDiagnostic reason = qv::LastDiagnostic();
    Json missing = Json::array();
    const std::vector<Companion> absent = missingCompanions(options.input);
    for (const auto& [key, file] : absent) {
        std::cerr << "qv: warning: " << options.input << ": " << key << " " << file
                  << ": file does not exist; what it holds is left at the default\n";
        missing.push(Json::object().set("key", key).set("file", file));
    }
    if (absent.empty() && reason.IsSet()) remark("qv: " + options.input + ": " + narrow(reason.ToString()));
    warnOfMissingResponses(calibration, options.input);
    const CalibrationForm form = options.form.value_or(CalibrationForm::xml);
    saveCalibration(calibration, options.output, options.force, form);
    double low = 0.0;
    double high = 0.0;
    calibration.GetBandpass(low, high);
    const int32_t pages = calibration.calPages().getCount();
    if (options.json) {
        Json::document("qv.rcal.import.1")
            .set("file", options.input)
            .set("output", options.output)
            .set("form", wordOf(form))
            .set("pages", pages)
            .set("bandLowMicrons", low)
            .set("bandHighMicrons", high)
            .set("missing", missing)
            .print(std::cout);
    } else {
        std::cout << options.output << ": " << pagesText(pages) << ", band " << number(low) << " to " << number(high)
                  << " um\n";
        for (int32_t i = 0; i < pages; ++i) {
            const auto page = calibration.calPage(i);
            std::cout << "  page " << i << ": order " << page.getPolyOrder()
                      << (calibration.GetCoeffsOverridden(i) ? " as the header says" : "") << ", reverse order "
                      << page.getTempPolyOrder()
                      << (calibration.GetTempCoeffsOverridden(i) ? " as the header says" : "") << ", "
                      << page.points().getCount() << " points\n";
        }
    }
    return Exit::done;
}

// export -------------------------------------------------------------------------------------------------------------

/// A folder of our own that goes with the object.
class Scratch {
public:
    Scratch() : m_path(qv::fileSystem().CreateTempDirectory()) {
        if (m_path.IsEmpty()) throw diagnosed(Exit::io, "the temporary folder", "cannot be made");
    }
    ~Scratch() { qv::fileSystem().RemoveDirectoryW(m_path.c_str(), true); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    fs::path path() const { return narrow(m_path); }

private:
    qv::CString m_path;
};

void copyInto(const fs::path& from, const std::string& to, bool force) {
    Target target(to, force);
    {
        qv::ClearDiagnostic();
        const qv::TSharedPtr<qv::IFile> source = qv::fileSystem().CreateFileW(wide(from.string()).c_str(), 0x212);
        const qv::TSharedPtr<qv::IFile> out = target.open();
        if (!source || !out || !qv::IFileSystem::CopyFileW(source, out))
            throw diagnosed(Exit::io, to, "cannot be written");
    }
    target.commit();
}

/// The name that the header gives the calibration's own file, and whether that has to be written.
std::string companionOf(const Options& options, const fs::path& folder, const std::string& base) {
    const auto seenFrom = [&](const std::string& path) {
        std::error_code none;
        const fs::path absolute = fs::absolute(path, none).lexically_normal();
        return absolute.parent_path() == folder ? absolute.filename().string() : absolute.string();
    };
    if (!options.calibration.empty()) {
        qv::CRCalFile named;
        loadCalibration(named, options.calibration);
        return seenFrom(options.calibration);
    }
    // Never over the calibration that is exported.
    return seenFrom(options.input) == base + ".rcal" ? base + ".rcal" : "";
}

Exit exportHeader(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.input);
    warnOfMissingResponses(calibration, options.input);
    std::error_code none;
    const fs::path output = fs::absolute(options.output, none).lexically_normal();
    const std::string base = output.stem().string();
    if (base.empty()) throw Failure(Exit::usage, "the output needs a name");
    const std::string companion = companionOf(options, output.parent_path(), base);
    const Scratch scratch;
    qv::ClearDiagnostic();
    if (!calibration.Export(&qv::fileSystem(), wide((scratch.path() / (base + ".cal")).string()).c_str(),
                            companion.empty() ? nullptr : wide(companion).c_str())) {
        throw diagnosed(Exit::io, options.output, "cannot be written");
    }
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(scratch.path())) names.push_back(entry.path().filename().string());
    // The header comes last: what it names is there.
    std::ranges::sort(names, {}, [](const std::string& name) { return std::pair(name.ends_with(".cal"), name); });
    const fs::path shown = fs::path(options.output).parent_path();
    for (const std::string& name : names) {
        const std::string place = (shown / name).string();
        if (!options.force && fs::exists(place)) {
            throw Failure(Exit::negative, place + ": exists already (--force replaces it)");
        }
    }
    Json files = Json::array();
    for (const std::string& name : names) {
        const std::string place = (shown / name).string();
        copyInto(scratch.path() / name, place, options.force);
        files.push(place);
        if (!options.json) std::cout << place << ", " << bytes(static_cast<double>(fs::file_size(place))) << '\n';
    }
    const int32_t pages = calibration.calPages().getCount();
    if (pages > qv::CRCalFile::presetPages) {
        remark("qv: " + options.input + ": has " + pagesText(pages) + "; the header has keys for the first " +
               std::to_string(qv::CRCalFile::presetPages) + ", the others are in " +
               (companion.empty() ? base + ".rcal" : companion));
    }
    if (options.json) {
        Json::document("qv.rcal.export.1")
            .set("file", options.input)
            .set("files", files)
            .set("calibration", companion.empty() ? base + ".rcal" : companion)
            .set("pages", pages)
            .print(std::cout);
    }
    return Exit::done;
}

// extract, merge -----------------------------------------------------------------------------------------------------

Exit extract(const Options& options) {
    qv::CRCalFile calibration;
    loadCalibration(calibration, options.input);
    warnOfMissingResponses(calibration, options.input);
    const int32_t count = calibration.calPages().getCount();
    if (!calibration.RemoveAllExcept(options.page)) {
        throw Failure(Exit::negative, options.input + ": there is no page " + std::to_string(options.page) +
                                          " (it has " + std::to_string(count) + ")");
    }
    saveCalibration(calibration, options.output, options.force, options.form.value_or(formOf(options.input)));
    if (options.json) {
        Json::document("qv.rcal.extract.1")
            .set("file", options.input)
            .set("output", options.output)
            .set("page", options.page)
            .set("pagesBefore", count)
            .print(std::cout);
    } else {
        std::cout << options.output << ": page " << options.page << " of " << count << ", "
                  << calibration.calPage(0).points().getCount() << " points\n";
    }
    return Exit::done;
}

Exit merge(const Options& options) {
    const auto count = static_cast<int32_t>(options.inputs.size());
    if (options.base < 0 || options.base >= count) {
        throw Failure(Exit::usage, "--base must lie between 0 and " + std::to_string(count - 1));
    }
    std::vector<std::unique_ptr<qv::CRCalFile>> calibrations;
    qv::TArray<qv::CRCalFile*> list;
    for (const std::string& path : options.inputs) {
        calibrations.push_back(std::make_unique<qv::CRCalFile>());
        loadCalibration(*calibrations.back(), path);
        warnOfMissingResponses(*calibrations.back(), path);
        if (calibrations.back()->calPages().getCount() == 0) throw Failure(Exit::negative, path + ": has no page");
        list.Add(calibrations.back().get());
    }
    const std::string& base = options.inputs[static_cast<size_t>(options.base)];
    qv::CRCalFile merged;
    if (!merged.Merge(list, options.base)) throw Failure(Exit::usage, "too many calibrations");
    saveCalibration(merged, options.output, options.force, options.form.value_or(formOf(base)));
    Json pages = Json::array();
    Table table({{"page"}, {"from", Table::Align::left}, {"points"}, {"from [C]"}, {"to [C]"}});
    for (int32_t i = 0; i < count; ++i) {
        const std::string& from = options.inputs[static_cast<size_t>(i)];
        const qv::CAL_PAGE& page = *merged.GetPage(i);
        pages.push(Json::object()
                       .set("page", i)
                       .set("from", from)
                       .set("points", page.points.size())
                       .set("minCelsius", page.minTemperature)
                       .set("maxCelsius", page.maxTemperature));
        table.add({std::to_string(i), from, std::to_string(page.points.size()), number(page.minTemperature),
                   number(page.maxTemperature)});
    }
    if (options.json) {
        Json::document("qv.rcal.merge.1")
            .set("output", options.output)
            .set("base", base)
            .set("pages", pages)
            .print(std::cout);
    } else {
        std::cout << options.output << ": responses and tags of " << base << ", " << pagesText(count) << '\n';
        table.print(std::cout, "  ");
    }
    return Exit::done;
}

// Commands -----------------------------------------------------------------------------------------------------------

/// A verb that writes to --output.
CLI::App* addVerb(CLI::App& parent, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(parent, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("-o,--output", options->output, "File to write")->required();
    verb->add_flag("--force", options->force, "Replace the output when it exists");
    verb->add_flag("--json", options->json, "Facts as JSON");
    return verb;
}

void addForm(CLI::App* verb, const std::shared_ptr<Options>& options, const std::string& absent) {
    addChoice<std::optional<CalibrationForm>>(
        *verb, "--form", options->form, {{"xml", CalibrationForm::xml}, {"binary", CalibrationForm::binary}},
        "Form to write: the binary one keeps every bit, the XML one 14 digits (" + absent + ")");
}

}  // namespace

void addRcalForms(CLI::App& rcal) {
    auto options = std::make_shared<Options>();
    CLI::App* verb =
        addVerb(rcal, options, "convert", "Write a calibration in the other form, or in the one asked for.",
                "  qv rcal convert camera.rcal -o camera.bin\n"
                "  qv rcal convert camera.bin -o camera.rcal --form xml",
                convert);
    verb->add_option("file", options->input, "Calibration")->required();
    addForm(verb, options, "the other one");

    verb = addVerb(rcal, options, "import",
                   "Make a calibration of a text header with its include file, calibration and background pictures.",
                   "  qv rcal import old.cal -o camera.rcal\n  qv rcal import old.cal -o camera.rcal --form binary",
                   importHeader);
    verb->add_option("header", options->input, "Header of the older form")->required();
    addForm(verb, options, "xml");

    verb = addVerb(
        rcal, options, "export",
        "Write the older form: a text header (.cal), an include file (.inc), the calibration (.rcal, binary) and "
        "background pictures (.bgimg). Nothing is written when one of them exists.",
        "  qv rcal export camera.rcal -o old/camera.cal\n"
        "  qv rcal export camera.rcal -o camera.cal --calibration camera.rcal",
        exportHeader);
    verb->add_option("file", options->input, "Calibration")->required();
    verb->add_option("--calibration", options->calibration,
                     "The calibration's file that the header names, in place of a copy beside it");

    verb = addVerb(rcal, options, "extract", "Write a calibration with one page of another.",
                   "  qv rcal extract camera.rcal --page 1 -o page1.rcal\n"
                   "  qv rcal extract camera.rcal --page 0 -o cold.rcal --json",
                   extract);
    verb->add_option("file", options->input, "Calibration")->required();
    verb->add_option("--page", options->page, "Page, from 0")->required();
    addForm(verb, options, "that of the calibration");

    verb = addVerb(rcal, options, "merge",
                   "Write a calibration with page 0 of each of several; responses and tags are those of one of them. "
                   "Pages keep their fits: qv rcal fit makes them anew.",
                   "  qv rcal merge cold.rcal warm.rcal -o both.rcal\n"
                   "  qv rcal merge a.rcal b.rcal c.rcal d.rcal --base 2 -o all.rcal",
                   merge);
    verb->add_option("files", options->inputs, "Calibrations")->required();
    verb->add_option("--base", options->base, "The one whose responses and tags count, from 0 (0)");
    addForm(verb, options, "that of the base");
}

}  // namespace tool
