// qv info: what each file is, and its facts.
#include <algorithm>
#include <iostream>
#include <memory>
#include <string_view>

#include "calibration.h"
#include "command.h"
#include "container.h"
#include "dictionary.h"
#include "json.h"
#include "norm_kind.h"
#include "parameter_table.h"
#include "places.h"
#include "qv/cd_file_system.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/saf_file.h"
#include "qv/tag_file.h"
#include "qv/version_info.h"
#include "recording.h"
#include "settings.h"
#include "settings_contents.h"
#include "source.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::vector<std::string> files;
    bool json = false;
};

/// Facts of one file, for people and for programs at once.
class Sheet {
public:
    explicit Sheet(const std::string& path) { m_json.set("file", path); }

    /// Once, and before any fact.
    void kind(const std::string& name, const std::string& title) {
        m_json.set("kind", name);
        m_title = title;
    }
    void add(const std::string& name, const std::string& label, Json value, const std::string& text) {
        m_json.set(name, std::move(value));
        m_lines.emplace_back(label, text);
    }
    void add(const std::string& name, const std::string& label, const std::string& text) {
        add(name, label, text, text);
    }
    Json& json() { return m_json; }
    /// Nothing is known of the file.
    bool empty() const { return m_title.empty(); }
    /// Printed below the facts, under a line of its own.
    void addTable(const std::string& title, Table table) { m_tables.emplace_back(title, std::move(table)); }

    void print(std::ostream& out, const std::string& path) const {
        out << path << ": " << m_title << '\n';
        size_t width = 0;
        for (const auto& line : m_lines) width = std::max(width, displayWidth(line.first));
        for (const auto& [label, text] : m_lines) {
            out << "  " << label << std::string(width - displayWidth(label), ' ') << "  " << text << '\n';
        }
        for (const auto& [title, table] : m_tables) {
            out << "\n  " << title << '\n';
            table.print(out, "    ");
        }
    }

private:
    std::string m_title;
    Json m_json = Json::object();
    std::vector<std::pair<std::string, std::string>> m_lines;
    std::vector<std::pair<std::string, Table>> m_tables;
};

// Measurement files --------------------------------------------------------------------------------------------------

struct NamedTag {
    const char16_t* tag;
    const char* name;
    const char* label;
};
/// What a calibrated recording says about how it was made.
constexpr NamedTag assumptions[] = {
    {u"CAFile", "calibration", "calibration"}, {u"CaPage", "page", "page"},
    {u"CaInst", "instrument", "instrument"},   {u"CaEmis", "emissivity", "emissivity"},
    {u"CaRefl", "reflected", "reflected"},     {u"CaRnge", "calibratedRange", "calibrated range"},
    {u"CaInvr", "inverse", "inverse"},
};

void addTags(const qv::CSAFFile& header, Sheet& sheet) {
    Table table({{"tag", Table::Align::left}, {"value", Table::Align::left}});
    Json tags = Json::array();
    for (uint32_t i = 0; i + 1 < header.nTags(); ++i) {
        const std::string name = narrow(header[i].name);
        const std::string value = narrow(header[i].value);
        table.add({name, value});
        tags.push(Json::object().set("name", name).set("value", value));
    }
    sheet.json().set("tags", tags);
    sheet.addTable("tags", std::move(table));
}

void addLayout(const Recording& recording, Sheet& sheet) {
    const Layout& layout = recording.layout();
    sheet.add("width", "width", layout.width, std::to_string(layout.width) + " pixels");
    sheet.add("height", "height", layout.height, std::to_string(layout.height) + " pixels");
    sheet.add("frames", "frames", layout.frames, std::to_string(layout.frames));
    sheet.add("type", "element type", elementWord(layout.type));
    sheet.add("byteOrder", "byte order", layout.bigEndian ? "MSBFirst" : "LSBFirst");
    sheet.add("unit", "unit", recording.tag(u"DaUnit").empty() ? "not stated" : recording.tag(u"DaUnit"));
    Json assumed = Json::object();
    for (const NamedTag& known : assumptions) {
        const std::string value = recording.tag(known.tag);
        if (value.empty()) continue;
        assumed.set(known.name, value);
        sheet.add(known.name, known.label, value);
    }
}

void addLayout(const std::string& path, Sheet& sheet) { addLayout(Recording(path), sheet); }

void addColumns(const std::string& path, Sheet& sheet) {
    qv::CPODFile table;
    loadParameterTable(table, path, false);
    const std::vector<ParameterColumn> columns = parameterColumns(table);
    sheet.add("rowCount", "rows", table.nDPs(), std::to_string(table.nDPs()));
    sheet.add("columnCount", "columns", table.nParams(), std::to_string(table.nParams()));
    sheet.json().set("columns", jsonOf(columns));
    if (!columns.empty()) sheet.addTable("columns", listColumns(columns, false));
}

/// A kind of measurement file, and what describes its data.
struct MeasurementKind {
    const char* name;
    const char* title;
    void (*addData)(const std::string& path, Sheet& sheet);
};

/// A header without the tags of any kind is a measurement file all the same.
constexpr MeasurementKind plainMeasurement = {"measurement", "measurement file", nullptr};

MeasurementKind kindOf(const qv::CSAFFile& header) {
    const char16_t* keyWord = header.GetTagValue(u"KeyWrd");
    if (keyWord != nullptr && qv::CString(keyWord).CompareNoCase(u"POD") == 0) {
        return {"table", "parameter table", addColumns};
    }
    const bool promisesFrames = header.GetTagValue(u"xPixls") != nullptr || header.GetTagValue(u"yPixls") != nullptr;
    if (promisesFrames) return {"recording", "recording", addLayout};
    return plainMeasurement;
}

Exit describeMeasurement(const std::string& path, Sheet& sheet, std::string& problem) {
    qv::CSAFFile header;
    qv::ClearDiagnostic();
    const bool loaded = header.Load(&files(), wide(path).c_str());
    const MeasurementKind kind = loaded ? kindOf(header) : plainMeasurement;
    sheet.kind(kind.name, kind.title);
    if (!loaded) throw diagnosed(Exit::damaged, path, "has a damaged header");
    Exit result = Exit::done;
    if (kind.addData != nullptr) {
        try {
            kind.addData(path, sheet);
        } catch (const Failure& failure) {
            problem = failure.what();
            result = failure.exitCode();
        }
    }
    const int64_t size = files().GetFileInfo(wide(path).c_str()).size;
    const int64_t dataPosition = header.GetDataPosition();
    const int64_t pad = std::max<int64_t>(dataPosition - header.HeaderSize(), 0);
    sheet.add("bytes", "file", size, bytes(static_cast<double>(size)));
    sheet.add("dataPosition", "data begin at", dataPosition, "byte " + std::to_string(dataPosition));
    sheet.add("pad", "pad", pad, std::to_string(pad) + " bytes");
    sheet.add("dataBytes", "data", size - dataPosition, std::to_string(size - dataPosition) + " bytes");
    addTags(header, sheet);
    return result;
}

// Calibrations -------------------------------------------------------------------------------------------------------

Json numbers(const qv::TArray<double>& values) {
    Json list = Json::array();
    for (const double value : values) list.push(value);
    return list;
}

std::string words(const qv::TArray<double>& values) {
    std::string text;
    for (const double value : values) text += (text.empty() ? "" : ", ") + number(value, 8);
    return text.empty() ? "none" : text;
}

Json tagsOf(const qv::CTagArray& list) {
    Json tags = Json::array();
    for (const auto& tag : list)
        tags.push(Json::object().set("name", narrow(tag.name)).set("value", narrow(tag.value)));
    return tags;
}

void addTagTable(const qv::CTagArray& list, const std::string& title, Sheet& sheet) {
    Table table({{"tag", Table::Align::left}, {"value", Table::Align::left}});
    for (const auto& tag : list) table.add({narrow(tag.name), narrow(tag.value)});
    if (table.rows() != 0) sheet.addTable(title, std::move(table));
}

const char* reflectedWord(qv::EReflectedRadianceType type) {
    constexpr const char* table[] = {"none", "constant", "calculate"};
    const auto index = static_cast<size_t>(type);
    return index < std::size(table) ? table[index] : "error";
}

/// What a point's source reflects, in words.
std::string reflectedText(const qv::CAL_POINT& point) {
    switch (point.reflectedRadianceType) {
        case qv::EReflectedRadianceType::constant: return number(point.reflectedRadiance) + " W/(sr-cm^2)";
        case qv::EReflectedRadianceType::calculate:
            return number(point.reflectedTemperature) + " C, emissivity " + number(point.reflectedEmissivity);
        default: return "none";
    }
}

Json addPoints(const qv::CAL_PAGE& page, const std::string& title, Sheet& sheet) {
    Table table({{"point"},
                 {"temperature [C]"},
                 {"emissivity"},
                 {"counts"},
                 {"radiance [W/(sr-cm^2)]"},
                 {"reflected", Table::Align::left},
                 {"enabled", Table::Align::left}});
    Json points = Json::array();
    uint32_t index = 0;
    for (const qv::CAL_POINT& point : page.points) {
        table.add({std::to_string(index++), number(point.temperature, 8), number(point.emissivity),
                   number(point.measurement, 8), number(point.radiance, 8), reflectedText(point),
                   point.enabled ? "yes" : "no"});
        points.push(Json::object()
                        .set("temperatureCelsius", point.temperature)
                        .set("emissivity", point.emissivity)
                        .set("counts", point.measurement)
                        .set("radiance", point.radiance)
                        .set("enabled", point.enabled)
                        .set("reflected", reflectedWord(point.reflectedRadianceType))
                        .set("reflectedRadiance", point.reflectedRadiance)
                        .set("reflectedCelsius", point.reflectedTemperature)
                        .set("reflectedEmissivity", point.reflectedEmissivity));
    }
    sheet.addTable(title, std::move(table));
    return points;
}

/// One of a page's two polynomials: as calculated, and the user's in its place.
Json addPolynomial(const std::string& label, int32_t order, double r2, const qv::TArray<double>& coefficients,
                   const qv::POLY_OVERRIDE& override, Table& table) {
    Json json = Json::object().set("order", order).set("r2", r2).set("coefficients", numbers(coefficients));
    json.set("overridden", override.valid);
    table.add({label, std::to_string(order), number(r2, 10), override.valid ? "no" : "yes", words(coefficients)});
    if (override.valid) {
        json.set("overrideOrder", override.order).set("overrideCoefficients", numbers(override.values));
        table.add({label + ", override", std::to_string(override.order), "", "yes", words(override.values)});
    }
    return json;
}

Json addPage(const qv::CAL_PAGE& page, int32_t index, Sheet& sheet) {
    const std::string title = "page " + std::to_string(index);
    Json json = Json::object().set("index", index).set("tags", tagsOf(page.tags));
    addTagTable(page.tags, title + ": tags", sheet);
    json.set("points", addPoints(page, title + ": points", sheet));

    Table fits({{"fit", Table::Align::left},
                {"order"},
                {"R2"},
                {"in use", Table::Align::left},
                {"coefficients, lowest power first", Table::Align::left}});
    json.set("radianceFit",
             addPolynomial("counts to radiance", page.polyOrder, page.r2, page.coeffs, page.coeffsOverride, fits));
    json.set("temperatureFit", addPolynomial("radiance to temperature", page.tempPolyOrder, page.tempR2,
                                             page.tempCoeffs, page.tempCoeffsOverride, fits));
    sheet.addTable(title + ": fits", std::move(fits));

    Table range({{"range", Table::Align::left}, {"low"}, {"high"}});
    range.add({"temperature [C]", number(page.minTemperature, 8), number(page.maxTemperature, 8)});
    range.add({"radiance [W/(sr-cm^2)]", number(page.minRadiance, 8), number(page.maxRadiance, 8)});
    range.add({"counts", number(page.minCounts, 8), number(page.maxCounts, 8)});
    sheet.addTable(title + (page.autoRange ? ": range, of the enabled points" : ": range, as set by hand"),
                   std::move(range));
    json.set("range", Json::object()
                          .set("auto", page.autoRange)
                          .set("lowCelsius", page.minTemperature)
                          .set("highCelsius", page.maxTemperature)
                          .set("lowRadiance", page.minRadiance)
                          .set("highRadiance", page.maxRadiance)
                          .set("lowCounts", page.minCounts)
                          .set("highCounts", page.maxCounts));
    json.set("lookup", Json::object()
                           .set("startCelsius", page.lookupStart)
                           .set("endCelsius", page.lookupEnd)
                           .set("deltaKelvin", page.lookupDelta)
                           .set("emissivity", page.lookupEmissivity));
    return json;
}

void addBand(qv::CRCalFile& calibration, Sheet& sheet) {
    double low = 0.0;
    double high = 0.0;
    calibration.GetCalcBandpass(low, high);
    sheet.add("bandMicrons", "band", Json::array().push(low).push(high), number(low) + " to " + number(high) + " um");
    if (!calibration.GetBandpassOverridden()) return;
    calibration.GetUsedBandpass(low, high);
    sheet.add("bandOverrideMicrons", "band, override", Json::array().push(low).push(high),
              number(low) + " to " + number(high) + " um");
}

Exit describeCalibration(const std::string& path, Sheet& sheet, std::string& problem) {
    sheet.kind("calibration", "calibration");
    qv::CRCalFile calibration;
    loadCalibration(calibration, path);
    sheet.add("revision", "revision", calibration.getRevision(), std::to_string(calibration.getRevision()));
    addBand(calibration, sheet);
    const int32_t pages = calibration.calPages().getCount();
    Table table({{"response", Table::Align::left}, {"state", Table::Align::left}, {"file", Table::Align::left}});
    Json responseFacts = Json::array();
    for (const ResponseState& state : responses(calibration)) {
        table.add({state.name, state.what, state.file});
        responseFacts.push(jsonOf(state));
        if (state.missing) problem = path + ": " + state.name + " " + state.file + ": " + state.what;
    }
    sheet.add("pageCount", "pages", pages, std::to_string(pages));
    sheet.json().set("responses", responseFacts).set("tags", tagsOf(calibration.GetTags()));
    sheet.addTable("responses", std::move(table));
    addTagTable(calibration.GetTags(), "tags", sheet);
    Json pageFacts = Json::array();
    for (int32_t i = 0; i < pages; ++i) pageFacts.push(addPage(*calibration.GetPage(i), i, sheet));
    sheet.json().set("pages", pageFacts);
    return problem.empty() ? Exit::done : Exit::negative;
}

// Tag dictionaries ---------------------------------------------------------------------------------------------------

/// Bounds or permitted texts, in words.
std::string permitted(const qv::CTagEntry& entry) {
    bool bounded = false;
    double low = 0.0;
    double high = 0.0;
    entry.GetNumericBounds(bounded, low, high);
    if (bounded) return number(low) + " to " + number(high);
    std::string text;
    for (uint32_t i = 0; i < entry.nTextValues(); ++i) text += (i == 0 ? "" : ", ") + narrow(entry.GetTextValue(i));
    return text;
}

Exit describeDictionary(const std::string& path, Sheet& sheet, std::string&) {
    sheet.kind("dictionary", "tag dictionary");
    qv::CTagFile dictionary;
    loadDictionary(dictionary, path);
    sheet.add("entryCount", "entries", dictionary.size(), std::to_string(dictionary.size()));
    Json entries = Json::array();
    for (uint32_t c = 0; c < qv::CTagEntry::categoryCount; ++c) {
        const auto category = static_cast<qv::CTagEntry::CATEGORY>(c);
        const std::string categoryName = narrow(qv::CTagEntry::CategoryToStr(category));
        Table table({{"tag", Table::Align::left},
                     {"type", Table::Align::left},
                     {"unit", Table::Align::left},
                     {"permitted", Table::Align::left},
                     {"description", Table::Align::left}});
        for (uint32_t i = 0; i < dictionary.size(); ++i) {
            const qv::CTagEntry& entry = dictionary.GetTagEntry(i);
            if (entry.GetCategory() != category) continue;
            const std::string name = narrow(entry.GetName());
            const std::string type = narrow(qv::CTagEntry::DataTypeToStr(entry.GetDataType()));
            const std::string unit = narrow(qv::CTagEntry::UnitsToStr(entry.GetUnits()));
            const std::string description = narrow(entry.GetDescription());
            table.add({name, type, unit, permitted(entry), description});
            entries.push(Json::object()
                             .set("name", name)
                             .set("category", categoryName)
                             .set("type", type)
                             .set("unit", unit)
                             .set("permitted", permitted(entry))
                             .set("description", description));
        }
        if (table.rows() != 0) sheet.addTable(categoryName, std::move(table));
    }
    sheet.json().set("entries", entries);
    return Exit::done;
}

// Norm tables ---------------------------------------------------------------------------------------------------------

Exit describeNorm(const std::string& path, Sheet& sheet, std::string&) {
    NormKind norm;
    if (!isNorm(path, norm)) throw Failure(Exit::io, path + ": changed while it was read");
    constexpr const char* words[] = {"gain", "offset", "bad-pixel"};
    const char* const word = words[norm.header.type];
    sheet.kind("norm", std::string("Norm table of a sensor (") + word + ")");
    sheet.add("table", "table", word);
    sheet.add("width", "width", norm.header.xPixels, std::to_string(norm.header.xPixels) + " pixels");
    sheet.add("height", "height", norm.header.yPixels, std::to_string(norm.header.yPixels) + " pixels");
    sheet.add("version", "version", norm.header.version, std::to_string(norm.header.version));
    sheet.add("byteOrder", "byte order", norm.bigEndian ? "MSBFirst" : "LSBFirst");
    sheet.add("timeStamp", "day and time", narrow(norm.header.timeStamp));
    if (norm.header.version == 1) return Exit::done;  // which has no more fields
    sheet.add("framesAveraged", "frames averaged", norm.header.numAvg, std::to_string(norm.header.numAvg));
    sheet.add("tolerance", "tolerance", norm.header.bpTol, number(norm.header.bpTol));
    return Exit::done;
}

// Programs ------------------------------------------------------------------------------------------------------------

Exit describeProgram(const std::string& path, Sheet& sheet, std::string&) {
    sheet.kind("program", "Windows program or library");
    qv::CVersionInfo version;
    qv::ClearDiagnostic();
    if (!version.Load(&files(), wide(path).c_str())) {
        throw diagnosed(Exit::damaged, path, "has no version record that can be read");
    }
    if (version.HasFixedInfo()) {
        sheet.add("fileVersion", "file version", narrow(version.GetFileVersion().ToString()));
        sheet.add("productVersion", "product version", narrow(version.GetProductVersion().ToString()));
    }
    Json tables = Json::array();
    for (const qv::CVersionInfo::StringTable& strings : version.GetStringTables()) {
        const std::string language = narrow(qv::CString::FromFormat(u"%04X", uint32_t{strings.translation.language}));
        Table table({{"name", Table::Align::left}, {"value", Table::Align::left}});
        Json texts = Json::array();
        for (const qv::CVersionInfo::StringEntry& entry : strings.strings) {
            table.add({narrow(entry.name), narrow(entry.value)});
            texts.push(Json::object().set("name", narrow(entry.name)).set("value", narrow(entry.value)));
        }
        tables.push(Json::object().set("language", language).set("strings", texts));
        sheet.addTable("language " + language, std::move(table));
    }
    sheet.json().set("versionStrings", tables);
    return Exit::done;
}

// Settings -----------------------------------------------------------------------------------------------------------

template <Form form>
Exit describeSettings(const std::string& path, Sheet& sheet, std::string&) {
    const std::unique_ptr<Settings> settings = openSettings(path, form);
    sheet.kind("settings", settings->title());
    settings->load();
    const Contents contents = contentsOf(settings->store());
    sheet.add("form", "form", settings->form());
    sheet.add("valueCount", "values", contents.values.size(), std::to_string(contents.values.size()));
    sheet.add("sectionCount", "sections", contents.sections, std::to_string(contents.sections));
    return Exit::done;
}

// Containers
// -----------------------------------------------------------------------------------------------------------

Exit describeContainer(const std::string& path, Sheet& sheet, std::string&) {
    sheet.kind("container", "container");
    const auto container = requireContainer(path, true);
    int64_t bytesInside = 0;
    const std::vector<Container::Entry> entries = container->entries();
    for (const Container::Entry& entry : entries) bytesInside += entry.size;
    sheet.add("format", "format", container->format(), container->format());
    sheet.add("entries", "entries", uint64_t{entries.size()}, std::to_string(entries.size()));
    sheet.add("bytes", "in them", bytesInside, bytes(static_cast<double>(bytesInside)));
    return Exit::done;
}

bool isContainer(const std::string& path, const std::string& head) {
    if (insideOf(path)) return false;
    const std::string magic = head.substr(0, 4);
    return magic == std::string("AFF\0", 4) || magic == std::string("KMR\0", 4) ||
           qv::CCDFileSystem::IsCDFile(wide(path).c_str());
}

// Any file -----------------------------------------------------------------------------------------------------------

using Describe = Exit (*)(const std::string& path, Sheet& sheet, std::string& problem);

/// What describes a file, by how the file begins; null when nothing does.
Describe describerOf(const std::string& path) {
    qv::IFileSystem& disk = files();
    const std::string head = headOf(path);
    if (qv::CSAFFile::IsSAFFile(&disk, wide(path).c_str())) return describeMeasurement;
    if (qv::CRCalFile::IsRCalFile(&disk, wide(path)) || head.find("<rcal") != head.npos) return describeCalibration;
    if (dictionaryForm(head) != DictionaryForm::unknown) return describeDictionary;
    if (head.starts_with("MZ")) return describeProgram;
    if (isContainer(path, head)) return describeContainer;
    if (NormKind norm; isNorm(path, norm)) return describeNorm;
    switch (recognisedForm(path, head)) {
        case Form::ini: return describeSettings<Form::ini>;
        case Form::xml: return describeSettings<Form::xml>;
        case Form::sqlite: return describeSettings<Form::sqlite>;
        default: return nullptr;
    }
}

Exit describe(const std::string& path, Sheet& sheet) {
    std::string problem;
    Exit result = Exit::done;
    try {
        if (const Describe describer = describerOf(path)) {
            result = describer(path, sheet, problem);
        } else {
            sheet.kind("unknown", "unknown kind");
            problem = path +
                      ": unknown kind of file (no recording, parameter or Norm table, calibration, tag "
                      "dictionary, program, settings or container)";
            result = Exit::wrongKind;
        }
    } catch (const Failure& failure) {
        problem = failure.what();
        result = failure.exitCode();
    }
    if (!problem.empty()) {
        std::cerr << "qv: " << problem << '\n';
        sheet.json().set("problem", problem);
    }
    return result;
}

Exit info(const Options& options) {
    Exit worst = Exit::done;
    Json files = Json::array();
    for (size_t i = 0; i < options.files.size(); ++i) {
        Sheet sheet(options.files[i]);
        const Exit result = describe(options.files[i], sheet);
        worst = std::max(worst, result);
        files.push(sheet.json());
        if (options.json || sheet.empty()) continue;
        if (i != 0) std::cout << '\n';
        sheet.print(std::cout, options.files[i]);
    }
    if (options.json) Json::document("qv.info.1").set("files", files).print(std::cout);
    return worst;
}

}  // namespace

void addInfo(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        addCommand(root, "info", "Say what each file is, and print its facts. The exit code is that of the worst.",
                   "  qv info run7.saf\n  qv info camera.rcal tags.xml --json", [options] { return info(*options); });
    command
        ->add_option("files", options->files,
                     "Recordings, parameter tables, calibrations, Norm tables, tag dictionaries, Windows programs and "
                     "libraries, settings")
        ->required();
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
