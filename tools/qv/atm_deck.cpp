// qv atm show, new, set and lint: input decks of the atmosphere program, by the published names of their fields.
#include <algorithm>
#include <iostream>
#include <memory>

#include "atm_commands.h"
#include "atm_rewriting.h"
#include "command.h"
#include "json.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/tape5_cards.h"
#include "qv/tape5_file.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

using qv::CModtranTape5File;
using qv::TAPE5_FIELD;
using qv::TAPE5_WARNING;

constexpr char schema[] = "qv.atm.deck.1";
constexpr uint32_t openForReading = 0x212;

/// name=value pairs of the default run.
struct Preset {
    const char* name;
    const char* what;
    std::vector<std::string> values;
};
const std::vector<Preset>& presets() {
    static const std::vector<Preset> list{
        {"mwir", "thermal radiance, 3 to 5 microns", {}},
        {"lwir", "thermal radiance, 8 to 12 microns", {"V1=830", "V2=1250"}},
        {"transmittance",
         "1 km horizontal path, 3 to 5 microns",
         {"ITYPE=1", "IEMSCT=0", "H2=0", "ANGLE=0", "RANGE=1", "YFLAG=T"}},
        {"solar",
         "radiance with the sun at 45 degrees, 3 to 5 microns",
         {"IEMSCT=2", "IPARM=2", "IPH=2", "PARM2=45", "ALBEDO=0.2"}},
    };
    return list;
}

struct Options {
    std::string file;
    std::vector<std::string> values;
    const Preset* preset = &presets().front();
    int32_t run = -1;
    bool resaved = false;
    bool force = false;
    bool dryRun = false;
    bool json = false;
};

// Decks --------------------------------------------------------------------------------------------------------------

/// A deck is told by its first two cards.
Failure unreadable(const std::string& path) {
    const bool isDeck = qv::LastDiagnostic().line > 2;
    return diagnosed(isDeck ? Exit::damaged : Exit::wrongKind, path, "is no deck");
}

qv::TSharedPtr<qv::IFile> opened(const std::string& path) {
    requireFile(path);
    qv::ClearDiagnostic();
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), openForReading);
    if (!file) throw diagnosed(Exit::io, path, "cannot be opened");
    qv::ClearDiagnostic();
    return file;
}

void load(CModtranTape5File& deck, const std::string& path) {
    if (!deck.Load(opened(path))) throw unreadable(path);
}

/// The deck as it would be written.
qv::TSharedPtr<qv::IFile> written(const CModtranTape5File& deck, const std::string& path) {
    const qv::TSharedPtr<qv::IFile> file(new qv::CMemFile());
    if (!deck.Save(file)) throw Failure(Exit::usage, path + ": not written: " + visible(deck.LastError()));
    file->SeekToBegin();
    return file;
}

std::vector<std::string> textLines(qv::IFile& file) {
    std::string bytes(static_cast<size_t>(file.GetSize()), '\0');
    file.SeekToBegin();
    if (!file.ReadBytes(bytes.data(), static_cast<uint32_t>(bytes.size()))) bytes.clear();
    file.SeekToBegin();
    std::vector<std::string> lines(1);
    for (const char c : bytes) {
        if (c == '\n') {
            lines.emplace_back();
        } else if (c != '\r') {
            lines.back() += c;
        }
    }
    return lines;
}

bool matches(const Options& options, int32_t run) { return options.run < 0 || run == options.run; }

void requireRun(const Options& options, int32_t runs) {
    if (options.run < runs) return;
    throw Failure(Exit::negative, options.file + ": there is no run " + std::to_string(options.run) + " (there are " +
                                      std::to_string(runs) + ", from 0)");
}

std::string columnsOf(uint32_t first, uint32_t last) {
    if (first == 0) return "-";
    return first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
}

// show ---------------------------------------------------------------------------------------------------------------

Json jsonOf(const TAPE5_FIELD& field) {
    const std::string text = field.value.c_str();
    Json value(text);
    if (field.kind == TAPE5_FIELD::Integer) value = Json(int64_t{std::stoll(text)});
    if (field.kind == TAPE5_FIELD::Real) value = Json(std::strtod(text.c_str(), nullptr));
    return Json::object()
        .set("name", field.name.c_str())
        .set("firstColumn", field.first)
        .set("lastColumn", field.last)
        .set("text", field.text.c_str())
        .set("value", value)
        .set("meaning", field.meaning);
}

/// The fields of one card, from `at` on; `at` is moved behind them.
Json cardJson(const qv::TArray<TAPE5_FIELD>& fields, uint32_t& at) {
    const TAPE5_FIELD& first = fields[at];
    Json list = Json::array();
    for (; at < fields.size() && fields[at].line == first.line; ++at) list.push(jsonOf(fields[at]));
    return Json::object()
        .set("run", first.run)
        .set("card", first.card)
        .set("title", first.title)
        .set("line", first.line)
        .set("fields", list);
}

void printCard(const qv::TArray<TAPE5_FIELD>& fields, uint32_t& at) {
    const TAPE5_FIELD& first = fields[at];
    Table table({{"field", Table::Align::left},
                 {"columns", Table::Align::left},
                 {"value", Table::Align::left},
                 {"meaning", Table::Align::left}});
    for (; at < fields.size() && fields[at].line == first.line; ++at) {
        const TAPE5_FIELD& field = fields[at];
        const bool isBlank = field.value.view() == " " || field.value.IsEmpty();
        table.add({field.name.c_str(), columnsOf(field.first, field.last),
                   isBlank ? "(blank)" : visible(wide(field.value.c_str())), field.meaning});
    }
    std::cout << "Card " << first.card << ", " << first.title << " (run " << first.run << ", line " << first.line
              << ")\n";
    table.print(std::cout, "  ");
    std::cout << '\n';
}

Exit show(const Options& options) {
    qv::TArray<TAPE5_FIELD> fields;
    if (!qv::ListTape5Fields(opened(options.file), fields)) throw unreadable(options.file);
    requireRun(options, fields.back().run + 1);
    Json cards = Json::array();
    for (uint32_t at = 0; at < fields.size();) {
        if (!matches(options, fields[at].run)) {
            ++at;
        } else if (options.json) {
            cards.push(cardJson(fields, at));
        } else {
            printCard(fields, at);
        }
    }
    if (options.json) {
        Json::document(schema)
            .set("file", options.file)
            .set("runCount", fields.back().run + 1)
            .set("cards", cards)
            .print(std::cout);
    }
    return Exit::done;
}

// lint ---------------------------------------------------------------------------------------------------------------

std::string sentenceOf(const TAPE5_WARNING& warning) {
    std::string place = "line " + std::to_string(warning.line);
    if (warning.first != 0) place += ", columns " + columnsOf(warning.first, warning.last);
    place += ": card ";
    place += warning.card;
    if (!warning.name.IsEmpty()) place += std::string(" ") + warning.name.c_str();
    return place + ": " + visible(warning.text);
}

void remarkWarnings(const std::string& path, qv::TSharedPtr<qv::IFile> deck) {
    qv::TArray<TAPE5_WARNING> warnings;
    deck->SeekToBegin();
    if (!qv::LintTape5(deck, warnings)) return;
    for (const TAPE5_WARNING& warning : warnings) remark("qv: " + path + ": " + sentenceOf(warning));
}

Exit lint(const Options& options) {
    qv::TSharedPtr<qv::IFile> file = opened(options.file);
    if (options.resaved) {
        CModtranTape5File deck;
        load(deck, options.file);
        file = written(deck, options.file);
    }
    qv::TArray<TAPE5_WARNING> warnings;
    if (!qv::LintTape5(file, warnings)) throw unreadable(options.file);
    Json list = Json::array();
    for (const TAPE5_WARNING& warning : warnings) {
        if (!options.json) std::cout << options.file << ": " << sentenceOf(warning) << '\n';
        list.push(Json::object()
                      .set("run", warning.run)
                      .set("line", warning.line)
                      .set("firstColumn", warning.first)
                      .set("lastColumn", warning.last)
                      .set("card", warning.card)
                      .set("field", warning.name.c_str())
                      .set("text", narrow(warning.text)));
    }
    if (options.json) {
        Json::document(schema).set("file", options.file).set("warnings", list).print(std::cout);
    } else if (warnings.empty()) {
        std::cout << options.file << ": nothing doubtful\n";
    }
    return warnings.empty() ? Exit::done : Exit::negative;
}

// set, new -----------------------------------------------------------------------------------------------------------

/// What becomes of each value that is named.
class Changes {
public:
    void add(const std::string& name, const std::string& given, const std::string& before, const std::string& after) {
        m_rows.push_back({name, given, before, after, ""});
    }
    std::vector<std::string> names() const {
        std::vector<std::string> list;
        for (const Row& row : m_rows) list.push_back(row.name);
        return list;
    }
    bool has(const std::string& name) const {
        return std::any_of(m_rows.begin(), m_rows.end(), [&](const Row& row) { return isSameName(row.name, name); });
    }

    /// Takes from the deck as it is written what stands there: cards hold fewer decimals than a number may have.
    void readBack(const CModtranTape5File& deck, int32_t index, const std::string& path) {
        CModtranTape5File kept;
        CModtranTape5File::RUN run;
        if (!kept.Load(written(deck, path)) || !kept.GetRun(index, run)) throw unreadable(path);
        for (Row& row : m_rows) {
            qv::CStringMB value, card;
            const bool found = qv::GetTape5Field(run, row.name.c_str(), value, card);
            row.written = found && !card.IsEmpty() ? value.c_str() : "";
            if (!found || card.IsEmpty()) {
                remark("qv: " + row.name + ": is on no card of this run, and is not written");
            } else if (row.written != row.after || !saysTheSame(row.given, row.written)) {
                remark("qv: " + row.name + ": is written as " + row.written);
            }
        }
    }

    Json json() const {
        Json list = Json::array();
        for (const Row& row : m_rows) {
            list.push(Json::object()
                          .set("field", row.name)
                          .set("before", row.before)
                          .set("after", row.after)
                          .set("written", row.written));
        }
        return list;
    }
    void print() const {
        Table table({{"field", Table::Align::left},
                     {"before", Table::Align::left},
                     {"after", Table::Align::left},
                     {"written", Table::Align::left}});
        for (const Row& row : m_rows) {
            table.add({row.name, visible(wide(row.before)), visible(wide(row.after)), visible(wide(row.written))});
        }
        table.print(std::cout);
    }

private:
    struct Row {
        std::string name, given, before, after, written;
    };
    std::vector<Row> m_rows;
};

void apply(CModtranTape5File::RUN& run, const std::string& assignment, const std::string& command, Changes* changes) {
    const auto [name, text] = splitTag(assignment, command);
    qv::CStringMB before, after, card;
    qv::ClearDiagnostic();
    if (!qv::GetTape5Field(run, name.c_str(), before, card) || !qv::SetTape5Field(run, name.c_str(), text.c_str()) ||
        !qv::GetTape5Field(run, name.c_str(), after, card)) {
        throw diagnosed(Exit::usage, command, "cannot set " + name);
    }
    if (changes != nullptr && changes->has(name)) throw Failure(Exit::usage, command + ": " + name + " is given twice");
    if (changes != nullptr) changes->add(name, text, before.c_str(), after.c_str());
}

void store(const CModtranTape5File& deck, const Options& options, bool inPlace) {
    const qv::TSharedPtr<qv::IFile> bytes = written(deck, options.file);
    remarkWarnings(options.file, bytes);
    if (options.dryRun) return;
    Target target(options.file, inPlace || options.force);
    qv::ClearDiagnostic();
    if (!deck.Save(wide(target.temporary()).c_str())) throw diagnosed(Exit::io, options.file, "cannot be written");
    target.commit();
}

Exit makeNew(const Options& options) {
    CModtranTape5File deck;
    deck.New();
    CModtranTape5File::RUN run = CModtranTape5File::DefaultRun();
    for (const std::string& value : options.preset->values) apply(run, value, "atm new", nullptr);
    Changes changes;
    for (const std::string& value : options.values) apply(run, value, "atm new", &changes);
    deck.SetRun(0, run);
    changes.readBack(deck, 0, options.file);
    store(deck, options, false);
    if (options.json) {
        Json::document(schema)
            .set("file", options.file)
            .set("preset", options.preset->name)
            .set("changes", changes.json())
            .print(std::cout);
    } else {
        std::cout << options.file << ": " << options.preset->what << '\n';
    }
    return Exit::done;
}

Exit set(const Options& options) {
    CModtranTape5File deck;
    load(deck, options.file);
    requireRun(options, deck.nRuns());
    const int32_t index = options.run < 0 ? 0 : options.run;
    AtmRewriting rewriting(options.file, opened(options.file));
    const qv::TSharedPtr<qv::IFile> before(new qv::CMemFile());
    const bool wasCanonical = deck.Save(before) && textLines(*opened(options.file)) == textLines(*before);
    CModtranTape5File::RUN run;
    deck.GetRun(index, run);
    Changes changes;
    for (const std::string& value : options.values) apply(run, value, "atm set", &changes);
    deck.SetRun(index, run);
    changes.readBack(deck, index, options.file);
    if (!wasCanonical) {
        remark("qv: " + options.file + ": all cards are laid out anew; remarks behind their fields do not stay");
    }
    rewriting.compare(deck, written(deck, options.file), index, changes.names());
    rewriting.tell();
    store(deck, options, true);
    if (options.json) {
        Json::document(schema)
            .set("file", options.file)
            .set("run", index)
            .set("dryRun", options.dryRun)
            .set("changes", changes.json())
            .set("rewritten", rewriting.json())
            .print(std::cout);
    } else {
        changes.print();
    }
    return Exit::done;
}

CLI::App* addVerb(CLI::App& atm, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(atm, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("file", options->file, "Deck")->required();
    return verb;
}

}  // namespace

void addAtmDeck(CLI::App& atm) {
    auto options = std::make_shared<Options>();
    const auto addRun = [&options](CLI::App& verb, const std::string& help) {
        verb.add_option("--run", options->run, help)->check(CLI::Range(0, int{CModtranTape5File::listLimit} - 1));
    };
    CLI::App* verb = addVerb(atm, options, "show", "A deck card by card: fields, columns, values.",
                             "  qv atm show path.tape5\n  qv atm show path.tape5 --run 1 --json", show);
    addRun(*verb, "Only this run, from 0");
    verb->add_flag("--json", options->json, "Facts as JSON");

    verb = addVerb(atm, options, "new", "Make a deck of one run.",
                   "  qv atm new path.tape5 --preset lwir\n  qv atm new up.tape5 H1=0.1 H2=5 ANGLE=30 VIS=10", makeNew);
    verb->add_option("values", options->values, "NAME=VALUE for fields that differ from the preset");
    std::vector<std::pair<std::string, const Preset*>> words;
    std::string help = "What the run begins with:";
    for (const Preset& preset : presets()) {
        words.emplace_back(preset.name, &preset);
        help += std::string(words.size() == 1 ? " " : "; ") + preset.name + ", " + preset.what;
    }
    addChoice<const Preset*>(*verb, "--preset", options->preset, words, help);
    verb->add_flag("--force", options->force, "Replace the deck when it exists");
    verb->add_flag("--json", options->json, "Facts as JSON");

    verb = addVerb(atm, options, "set", "Set fields by their published names, all or none.",
                   "  qv atm set path.tape5 H1=1.5 ANGLE=120\n"
                   "  qv atm set profile.tape5 --run 1 ML=40 P.40=0.003 --dry-run",
                   set);
    verb->add_option("values", options->values, "NAME=VALUE; elements of lists have a number from 1, as ZM.3")
        ->required();
    addRun(*verb, "The run to change, from 0 (0)");
    verb->add_flag("--dry-run", options->dryRun, "Say what would change, and change nothing");
    verb->add_flag("--json", options->json, "Facts as JSON");

    verb = addVerb(atm, options, "lint",
                   "What the program would read otherwise, ignore or stop at; exit code 1 when there is any.",
                   "  qv atm lint path.tape5\n  qv atm lint path.tape5 --resaved", lint);
    verb->add_flag("--resaved", options->resaved, "Judge the deck as this program would write it");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
