// qv table: parameter tables, looked at, changed, merged and written as comma-separated text. Rows go through one at a
// time: a table may be far larger than memory.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <set>

#include "command.h"
#include "json.h"
#include "parameter_table.h"
#include "places.h"
#include "progress.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/pod_file.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

constexpr char schema[] = "qv.table.1";

struct Options {
    std::string file;
    std::string other;
    std::string output;
    std::string row;
    std::string key;
    std::vector<std::string> names;
    std::string keyFormat, otherKeyFormat, valueFormat;
    uint32_t from = 0;
    uint32_t count = 10;
    bool headerless = false;
    bool nearest = false;
    bool rollOver = false;
    bool force = false;
    bool dryRun = false;
    bool json = false;
    bool csv = false;
};

// Tables and their columns -------------------------------------------------------------------------------------------

using Column = ParameterColumn;

void load(qv::CPODFile& table, const std::string& path, const Options& options) {
    loadParameterTable(table, path, options.headerless);
}

/// A column by its name, or by its number after a "#".
Column findColumn(const qv::CPODFile& table, const std::string& path, const std::string& name) {
    uint32_t index = table.GetColumnID(wide(name).c_str());
    if (index == qv::IPODFile::none && name.size() > 1 && name[0] == '#' &&
        name.find_first_not_of("0123456789", 1) == name.npos && name.size() < 10) {
        index = static_cast<uint32_t>(std::stoul(name.substr(1)));
    }
    if (index >= table.nParams()) throw Failure(Exit::negative, path + ": there is no column " + name);
    return parameterColumn(table, index);
}

/// The columns that are asked for; all when none is.
std::vector<Column> chosenColumns(const qv::CPODFile& table, const Options& options) {
    if (options.names.empty()) return parameterColumns(table);
    std::vector<Column> columns;
    for (const std::string& name : options.names) columns.push_back(findColumn(table, options.file, name));
    return columns;
}

Failure unreadable(const std::string& path, uint32_t row) {
    return diagnosed(Exit::io, path, "row " + std::to_string(row) + " cannot be read");
}

const char16_t* cell(qv::CPODFile& table, const Options& options, uint32_t column, uint32_t row) {
    const char16_t* text = table.GetValue(column, row);
    if (text == nullptr) throw unreadable(options.file, row);
    return text;
}

/// The row of the command line; with `mayBeNew` also the one that "new" will append.
uint32_t rowNumber(const qv::CPODFile& table, const Options& options, bool mayBeNew) {
    if (mayBeNew && options.row == "new") return table.nDPs();
    const bool isNumber = options.row.find_first_not_of("0123456789") == options.row.npos && options.row.size() < 11;
    if (!isNumber || options.row.empty()) throw Failure(Exit::usage, "\"" + options.row + "\" is no row (0 is first)");
    const uint64_t row = std::stoull(options.row);
    if (row >= table.nDPs()) {
        throw Failure(Exit::negative, options.file + ": there is no row " + options.row + " (there are " +
                                          std::to_string(table.nDPs()) + ", from 0)");
    }
    return static_cast<uint32_t>(row);
}

/// Progress over the rows of a table, by the bytes of its file.
Progress overRows(const qv::CPODFile& table, const Options& options) {
    const double bytes = static_cast<double>(files().GetFileInfo(wide(options.file).c_str()).size);
    return {options.file, table.nDPs(), bytes / std::max(table.nDPs(), 1u)};
}

Exit print(const Table& table, const Options& options) {
    options.csv ? table.printCsv(std::cout) : table.print(std::cout);
    return Exit::done;
}

// head, cols, get ----------------------------------------------------------------------------------------------------

Exit head(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    const std::vector<Column> columns = chosenColumns(table, options);
    std::vector<Table::Column> heads{{"row"}};
    for (const Column& column : columns) heads.push_back({visible(wide(column.head()))});
    Table out(heads);
    Json rows = Json::array();
    const uint64_t end = std::min<uint64_t>(uint64_t{options.from} + options.count, table.nDPs());
    for (uint32_t row = options.from; row < end; ++row) {
        std::vector<std::string> cells{std::to_string(row)};
        Json values = Json::array();
        for (const Column& column : columns) {
            const qv::CString text(cell(table, options, column.index, row));
            cells.push_back(options.csv ? narrow(text) : visible(text));
            values.push(narrow(text));
        }
        if (options.json) rows.push(values);
        if (!options.json) out.add(cells);
    }
    if (!options.json) return print(out, options);
    Json list = Json::array();
    for (const Column& column : columns) list.push(column.json());
    Json::document(schema)
        .set("file", options.file)
        .set("rowCount", table.nDPs())
        .set("from", options.from)
        .set("columns", list)
        .set("rows", rows)
        .print(std::cout);
    return Exit::done;
}

Exit cols(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    const std::vector<Column> columns = chosenColumns(table, options);
    if (!options.json) return print(listColumns(columns, options.csv), options);
    Json::document(schema)
        .set("file", options.file)
        .set("rowCount", table.nDPs())
        .set("columns", jsonOf(columns))
        .print(std::cout);
    return Exit::done;
}

Exit get(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    const uint32_t row = rowNumber(table, options, false);
    Json values = Json::object();
    for (const Column& column : chosenColumns(table, options)) {
        const std::string text = narrow(cell(table, options, column.index, row));
        if (!options.json) std::cout << text << '\n';
        values.set(column.name, Json::object().set("value", text).set("units", column.units));
    }
    if (options.json) {
        Json::document(schema).set("file", options.file).set("row", row).set("values", values).print(std::cout);
    }
    return Exit::done;
}

// stats --------------------------------------------------------------------------------------------------------------

/// What the numbers of a column are like.
struct Stats {
    uint64_t numbers = 0, empty = 0, texts = 0;
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    double mean = 0.0;
    double squares = 0.0;  ///< Sum of squared distances from the mean.

    void add(const char16_t* text) {
        double value = 0.0;
        if (*text == 0) {
            ++empty;
        } else if (!qv::IPODFile::GetValue(value, text, u"%f(1)") || !std::isfinite(value)) {
            ++texts;
        } else {
            ++numbers;
            low = std::min(low, value);
            high = std::max(high, value);
            const double distance = value - mean;
            mean += distance / static_cast<double>(numbers);
            squares += distance * (value - mean);
        }
    }
    double deviation() const { return numbers < 2 ? 0.0 : std::sqrt(squares / static_cast<double>(numbers - 1)); }
};

Exit stats(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    const std::vector<Column> columns = chosenColumns(table, options);
    std::vector<Stats> all(columns.size());
    {
        Progress progress = overRows(table, options);
        for (uint32_t row = 0; row < table.nDPs(); ++row, progress.advance()) {
            for (size_t i = 0; i < columns.size(); ++i) all[i].add(cell(table, options, columns[i].index, row));
        }
    }
    Table out({{"column [unit]", Table::Align::left},
               {"numbers"},
               {"empty"},
               {"texts"},
               {"lowest"},
               {"mean"},
               {"highest"},
               {"standard deviation"}});
    Json list = Json::array();
    for (size_t i = 0; i < columns.size(); ++i) {
        const Stats& s = all[i];
        const auto shown = [&](double value) { return s.numbers == 0 ? std::string() : number(value, 8); };
        const auto fact = [&](double value) { return s.numbers == 0 ? Json() : Json(value); };
        out.add({visible(wide(columns[i].head())), std::to_string(s.numbers), std::to_string(s.empty),
                 std::to_string(s.texts), shown(s.low), shown(s.mean), shown(s.high), shown(s.deviation())});
        list.push(columns[i]
                      .json()
                      .set("numbers", s.numbers)
                      .set("empty", s.empty)
                      .set("texts", s.texts)
                      .set("lowest", fact(s.low))
                      .set("mean", fact(s.mean))
                      .set("highest", fact(s.high))
                      .set("standardDeviation", fact(s.deviation())));
    }
    if (!options.json) return print(out, options);
    Json::document(schema)
        .set("file", options.file)
        .set("rowCount", table.nDPs())
        .set("columns", list)
        .print(std::cout);
    return Exit::done;
}

// csv ----------------------------------------------------------------------------------------------------------------

Exit writeCsv(qv::CPODFile& table, const Options& options, std::ostream& out) {
    const std::vector<Column> columns = chosenColumns(table, options);
    for (size_t i = 0; i < columns.size(); ++i) out << (i == 0 ? "" : ",") << csvCell(columns[i].head());
    out << '\n';
    Progress progress = overRows(table, options);
    for (uint32_t row = 0; row < table.nDPs() && out; ++row, progress.advance()) {
        for (size_t i = 0; i < columns.size(); ++i) {
            out << (i == 0 ? "" : ",") << csvCell(narrow(cell(table, options, columns[i].index, row)));
        }
        out << '\n';
    }
    return Exit::done;
}

Exit csv(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    if (options.output.empty()) return writeCsv(table, options, std::cout);
    Target target(options.output, options.force);
    std::ofstream out(target.temporary(), std::ios::binary);
    (void)writeCsv(table, options, out);
    out.close();
    if (!out) throw Failure(Exit::io, options.output + ": cannot be written");
    target.commit();
    return Exit::done;
}

// set, merge ---------------------------------------------------------------------------------------------------------

/// Writes the table to the output, or over its own file, under a temporary name first. The header keeps its padding.
void save(qv::CPODFile& table, const Options& options) {
    if (options.dryRun) return;
    const qv::CSAFFile& header = table.GetHeader();
    const bool padded = header.GetDataPosition() > header.HeaderSize();
    const bool inPlace = options.output.empty();
    Target target(inPlace ? options.file : options.output, inPlace || options.force);
    qv::ClearDiagnostic();
    if (!table.Save(&qv::fileSystem(), wide(target.temporary()).c_str(), false, padded)) {
        throw diagnosed(Exit::io, inPlace ? options.file : options.output, "cannot be written");
    }
    table.Destroy();
    target.commit();
}

Exit set(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    const uint32_t row = rowNumber(table, options, true);
    if (row == table.nDPs() && !table.AddRow()) throw diagnosed(Exit::io, options.file, "takes no further row");
    Table out({{"column [unit]", Table::Align::left}, {"before", Table::Align::left}, {"after", Table::Align::left}});
    Json changes = Json::array();
    for (const std::string& assignment : options.names) {
        const auto [name, text] = splitTag(assignment, "table set");
        const Column column = findColumn(table, options.file, name);
        const std::string before = narrow(cell(table, options, column.index, row));
        qv::ClearDiagnostic();
        if (!table.PutValue(column.index, row, wide(text).c_str())) {
            throw diagnosed(Exit::usage, options.file, "does not take the value of " + name);
        }
        const std::string after = narrow(cell(table, options, column.index, row));
        if (after != text) {
            throw Failure(Exit::usage,
                          "table set: the value of " + name + " is longer than 255 characters or not UTF-8");
        }
        out.add({visible(wide(column.head())), visible(wide(before)), visible(wide(after))});
        changes.push(column.json().set("before", before).set("after", after));
    }
    save(table, options);
    if (!options.json) return print(out, options);
    Json::document(schema)
        .set("file", options.file)
        .set("row", row)
        .set("dryRun", options.dryRun)
        .set("changes", changes)
        .print(std::cout);
    return Exit::done;
}

/// What kept a column from being merged: a column that is not there, a file under a table, or what was asked for.
Exit mergeFailure(const qv::CPODFile& table, const qv::CPODFile& other, const Options& options,
                  const std::string& name) {
    const auto lacks = [](const qv::CPODFile& in, const std::string& column) {
        return in.GetColumnID(wide(column).c_str()) == qv::IPODFile::none;
    };
    if (qv::LastDiagnostic().IsSet()) return Exit::io;
    const bool isAbsent = lacks(table, options.key) || lacks(other, options.key) || lacks(other, name);
    return isAbsent ? Exit::negative : Exit::usage;
}

Exit merge(const Options& options) {
    qv::CPODFile table, other;
    load(table, options.file, options);
    load(other, options.other, options);
    std::vector<std::string> lines;
    Json merged = Json::array();
    uint32_t best = 0;
    for (const std::string& name : options.names) {
        const bool isNew = table.GetColumnID(wide(name).c_str()) == qv::IPODFile::none;
        uint32_t matched = 0;
        qv::ClearDiagnostic();
        if (!table.MergeWith(other, wide(options.key).c_str(), wide(name).c_str(), wide(options.keyFormat).c_str(),
                             wide(options.otherKeyFormat).c_str(), wide(options.valueFormat).c_str(), !options.nearest,
                             options.rollOver, &matched)) {
            throw Failure(
                mergeFailure(table, other, options, name),
                options.file + " with " + options.other + ", column " + name + ": " + narrow(table.GetError()));
        }
        best = std::max(best, matched);
        const Column column = findColumn(table, options.file, name);
        lines.push_back(visible(wide(column.head())) + ": " + std::to_string(matched) + " of " +
                        std::to_string(table.nDPs()) + " keys matched, " + (isNew ? "column added" : "column updated"));
        merged.push(column.json().set("matched", matched).set("added", isNew));
    }
    const uint32_t rows = table.nDPs();
    const bool isNegative = best == 0 && rows != 0;
    if (isNegative) remark("qv: " + options.file + ": no key matched, and nothing was written");
    if (!isNegative) save(table, options);
    if (options.json) {
        Json::document(schema)
            .set("file", options.file)
            .set("other", options.other)
            .set("written", !isNegative && !options.dryRun)
            .set("rowCount", rows)
            .set("columns", merged)
            .print(std::cout);
    } else {
        const bool isDone = !isNegative && !options.dryRun;
        for (const std::string& line : lines) std::cout << (isDone ? "" : "would be: ") << line << '\n';
    }
    return isNegative ? Exit::negative : Exit::done;
}

// check --------------------------------------------------------------------------------------------------------------

/// Something that a table should not have: how often, and where first.
struct Finding {
    std::string what;
    uint64_t count = 0;
    uint32_t firstRow = qv::IPODFile::none;

    void at(uint32_t row) {
        if (count++ == 0) firstRow = row;
    }
};

std::vector<Finding> findings(qv::CPODFile& table, const Options& options) {
    Finding few{"rows with fewer fields than columns"}, many{"rows with more fields than columns, which are not read"};
    Finding cut{"values of more than 255 characters, which are read cut"};
    Finding unnamed{"columns without a name"}, twice{"columns with the name of another"};
    Finding points{"number of rows in NumDPs is another"};
    const qv::CString promised(table.GetHeader()[u"NumDPs"].ToString());
    if (promised.CompareNoCase(u"auto") != 0 && promised != qv::CString::FromFormat(u"%u", table.nDPs())) {
        ++points.count;
    }
    std::set<std::string> names;
    for (const Column& column : chosenColumns(table, options)) {
        unnamed.count += column.name.empty() ? 1 : 0;
        const std::string folded = CLI::detail::to_lower(column.name);
        twice.count += !column.name.empty() && !names.insert(folded).second ? 1 : 0;
    }
    Progress progress = overRows(table, options);
    for (uint32_t row = 0; row < table.nDPs(); ++row, progress.advance()) {
        qv::CPODFile::LINE_INFO line;
        if (!table.GetLineInfo(row, line)) throw unreadable(options.file, row);
        if (line.fields < table.nParams()) few.at(row);
        if (line.fields > table.nParams()) many.at(row);
        if (line.cut != 0) cut.at(row);
    }
    std::vector<Finding> all;
    for (const Finding& finding : {points, unnamed, twice, few, many, cut}) {
        if (finding.count != 0) all.push_back(finding);
    }
    return all;
}

Exit check(const Options& options) {
    qv::CPODFile table;
    load(table, options.file, options);
    const std::vector<Finding> all = findings(table, options);
    Table out({{"finding", Table::Align::left}, {"count"}, {"first row"}});
    Json list = Json::array();
    for (const Finding& finding : all) {
        const bool hasRow = finding.firstRow != qv::IPODFile::none;
        out.add({finding.what, std::to_string(finding.count), hasRow ? std::to_string(finding.firstRow) : ""});
        list.push(Json::object()
                      .set("finding", finding.what)
                      .set("count", finding.count)
                      .set("firstRow", hasRow ? Json(finding.firstRow) : Json()));
    }
    if (options.json) {
        Json::document(schema)
            .set("file", options.file)
            .set("rowCount", table.nDPs())
            .set("columnCount", table.nParams())
            .set("findings", list)
            .print(std::cout);
    } else if (all.empty()) {
        std::cout << options.file << ": " << table.nDPs() << " rows, " << table.nParams() << " columns, in order\n";
    } else {
        (void)print(out, options);
    }
    return all.empty() ? Exit::done : Exit::negative;
}

// The command line ---------------------------------------------------------------------------------------------------

/// A verb below "qv table". All share one set of options, of which each adds those that it has.
CLI::App* addVerb(CLI::App& parent, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(parent, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("file", options->file, "Parameter table")->required();
    verb->add_flag("--headerless", options->headerless,
                   "Take a file without a header: its first three lines are names, units and classifications");
    if (name != "csv") verb->add_flag("--json", options->json, "Facts as JSON");
    return verb;
}

void addLooks(CLI::App& table, const std::shared_ptr<Options>& options) {
    CLI::App* verb =
        addVerb(table, options, "head", "Print the first rows.",
                "  qv table head track.pod\n  qv table head track.pod time range --from 1000 --rows 20", head);
    verb->add_option("columns", options->names, "Columns, by name or #NUMBER (all)");
    verb->add_option("--rows", options->count, "How many rows")->capture_default_str();
    verb->add_option("--from", options->from, "First row")->capture_default_str();
    verb->add_flag("--csv", options->csv, "Comma-separated");
    verb = addVerb(table, options, "cols", "List the columns.",
                   "  qv table cols track.pod\n  qv table cols track.pod --json", cols);
    verb->add_flag("--csv", options->csv, "Comma-separated");
    verb = addVerb(table, options, "stats", "Lowest, mean and highest number of each column, and their spread.",
                   "  qv table stats track.pod\n  qv table stats track.pod range --json", stats);
    verb->add_option("columns", options->names, "Columns, by name or #NUMBER (all)");
    verb->add_flag("--csv", options->csv, "Comma-separated");
    verb = addVerb(table, options, "get", "Print values of one row, a line each.",
                   "  qv table get track.pod 0 range\n  qv table get track.pod 17 time range", get);
    verb->add_option("row", options->row, "Row, from 0")->required();
    verb->add_option("columns", options->names, "Columns, by name or #NUMBER (all)");
    verb = addVerb(table, options, "csv", "Write the table as comma-separated text.",
                   "  qv table csv track.pod -o track.csv\n  qv table csv track.pod time range | head", csv);
    verb->add_option("columns", options->names, "Columns, by name or #NUMBER (all)");
    verb->add_option("-o,--output", options->output, "File to write (standard output)");
    verb->add_flag("--force", options->force, "Replace an existing file");
    verb = addVerb(table, options, "check", "Read every line and tell what is not in order; exit code 1 then.",
                   "  qv table check track.pod\n  qv table check track.pod --json", check);
    verb->add_flag("--csv", options->csv, "Comma-separated");
}

void addChanges(CLI::App& table, const std::shared_ptr<Options>& options) {
    const auto addOutput = [&](CLI::App& verb) {
        verb.add_option("-o,--output", options->output, "File to write (the table itself)");
        verb.add_flag("--force", options->force, "Replace an existing output");
        verb.add_flag("--dry-run", options->dryRun, "Say what would change, and change nothing");
    };
    CLI::App* verb = addVerb(table, options, "set", "Set values of one row.",
                             "  qv table set track.pod 0 range=1250.5\n"
                             "  qv table set track.pod new time=17.5 \"note=lost lock\" -o longer.pod",
                             set);
    verb->add_option("row", options->row, "Row, from 0; \"new\" appends one")->required();
    verb->add_option("values", options->names, "COLUMN=VALUE")->required();
    addOutput(*verb);
    verb = addVerb(table, options, "merge", "Merge columns of another table by a key that both have.",
                   "  qv table merge track.pod radar.pod --key time --column range\n"
                   "  qv table merge track.pod log.pod --key time --column note --nearest -o noted.pod",
                   merge);
    verb->add_option("other", options->other, "The table to take from")->required();
    verb->add_option("--key", options->key, "Column of the keys in both tables")->required();
    verb->add_option("--column", options->names, "Columns to take")->required();
    verb->add_flag("--nearest", options->nearest, "Take the value of the nearest key (interpolate between two)");
    verb->add_flag("--roll-over", options->rollOver, "Keys are seconds of the day and go on behind midnight");
    verb->add_option("--key-format", options->keyFormat, "How keys read, as \"%d(60):%f(1)\" (\"%f(1)\")");
    verb->add_option("--other-key-format", options->otherKeyFormat, "The same for the other table");
    verb->add_option("--value-format", options->valueFormat, "How values read and are written");
    addOutput(*verb);
}

}  // namespace

void addTable(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* table = addCommand(root, "table", "Look at, change and merge parameter tables.",
                                 "  qv table head track.pod\n"
                                 "  qv table merge track.pod radar.pod --key time --column range",
                                 nullptr);
    table->require_subcommand(1);
    addLooks(*table, options);
    addChanges(*table, options);
}

}  // namespace tool
