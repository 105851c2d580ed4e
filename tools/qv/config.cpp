// qv config: settings in a file or in the user's registry, looked at, changed and brought into another form.
#include <iostream>
#include <memory>

#include "command.h"
#include "json.h"
#include "qv/diagnostic.h"
#include "qv/values.h"
#include "settings.h"
#include "settings_contents.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

using Type = qv::CVariant::EType;
using SValue = qv::IConfigStore::SValue;

constexpr char schema[] = "qv.config.1";

struct Options {
    std::string store;
    std::string target;
    std::string section;
    std::vector<std::string> names;
    std::vector<std::string> removals;
    Form form = Form::unknown;
    Form targetForm = Form::unknown;
    Type type = qv::CVariant::typeUndefined;
    bool force = false;
    bool strict = false;
    bool dryRun = false;
    bool json = false;
    bool csv = false;
};

/// Text of the command line, of which every byte has to arrive.
qv::CString given(const std::string& text) {
    if (narrow(wide(text)) != text) throw Failure(Exit::usage, "config: \"" + text + "\" is not UTF-8");
    return wide(text);
}

/// A path as stores know it, without empty names.
qv::CString pathOf(const std::string& text) {
    std::string normal;
    for (const char c : text) {
        if (c != '/' || (!normal.empty() && normal.back() != '/')) normal += c;
    }
    if (normal.ends_with('/')) normal.pop_back();
    return given(normal);
}

qv::CString valuePathOf(const std::string& text, const std::string& where) {
    const qv::CString path = pathOf(text);
    if (path.IsEmpty()) throw Failure(Exit::usage, where + ": a path is missing");
    return path;
}

std::string typeName(Type type) { return narrow(qv::CVariant::TypeToString(type)); }

Json jsonOf(const SValue& value) {
    return Json::object().set("type", typeName(value.type)).set("value", narrow(value.text));
}

Json jsonOf(const Setting& setting) {
    return Json::object()
        .set("path", narrow(setting.path))
        .set("type", typeName(setting.value.type))
        .set("value", narrow(setting.value.text));
}

std::unique_ptr<Settings> loaded(const Options& options) {
    std::unique_ptr<Settings> settings = openSettings(options.store, options.form);
    if (!settings->exists()) throw Failure(Exit::io, options.store + ": there are no such settings");
    settings->load();
    return settings;
}

// list, get ----------------------------------------------------------------------------------------------------------

Exit list(const Options& options) {
    const std::unique_ptr<Settings> settings = loaded(options);
    const qv::CString section = pathOf(options.section);
    if (!settings->store().HasSection(section)) {
        throw Failure(Exit::negative, options.store + ": there is no section " + options.section);
    }
    const auto text = [&](const qv::CString& exact) { return options.csv ? narrow(exact) : visible(exact); };
    Table table({{"path", Table::Align::left}, {"type", Table::Align::left}, {"value", Table::Align::left}});
    Json values = Json::array();
    for (const Setting& setting : contentsOf(settings->store(), section).values) {
        if (options.json) values.push(jsonOf(setting));
        if (!options.json) table.add({text(setting.path), typeName(setting.value.type), text(setting.value.text)});
    }
    if (options.json) {
        Json::document(schema)
            .set("store", options.store)
            .set("form", settings->form())
            .set("values", values)
            .print(std::cout);
    } else {
        options.csv ? table.printCsv(std::cout) : table.print(std::cout);
    }
    return Exit::done;
}

Exit get(const Options& options) {
    const qv::CString path = valuePathOf(options.section, "config get");
    const std::unique_ptr<Settings> settings = loaded(options);
    SValue value;
    const bool found = settings->store().ReadValue(path, value);
    if (!found) remark("qv: " + options.store + ": there is no value " + options.section);
    if (options.json) {
        Json::document(schema)
            .set("store", options.store)
            .set("path", narrow(path))
            .set("type", found ? Json(typeName(value.type)) : Json())
            .set("value", found ? Json(narrow(value.text)) : Json())
            .print(std::cout);
    } else if (found) {
        std::cout << narrow(value.text) << '\n';
    }
    return found ? Exit::done : Exit::negative;
}

// set ----------------------------------------------------------------------------------------------------------------

Failure noValue(const qv::CString& path, const qv::CString& text, const std::string& what) {
    return Failure(Exit::usage, "config set: " + visible(path) + ": \"" + visible(text) + "\" " + what +
                                    " (--type gives it another type)");
}

template <class T>
qv::CString exactText(const qv::CString& path, const qv::CString& text, Type type) {
    T value{};
    switch (qv::TValueText<T>::Parse(text, value)) {
        case qv::EParse::ok: return qv::TValueText<T>::ToStringExact(value);
        case qv::EParse::range: throw noValue(path, text, "is outside the range of " + typeName(type));
        default: throw noValue(path, text, "is no " + typeName(type));
    }
}

qv::CString blobText(const qv::CString& path, const qv::CString& text) {
    qv::CMemStore scratch;
    qv::CMemFile bytes;
    (void)scratch.SetString(u"blob", text);
    if (!scratch.ReadBlob(u"blob", bytes))
        throw noValue(path, text, "is not pairs of hexadecimal digits, as of a Blob");
    (void)scratch.SetBlob(u"blob", bytes.GetData(), static_cast<uint32_t>(bytes.GetSize()));
    return scratch.GetString(u"blob");
}

/// The value as a store keeps it.
SValue valueOf(const qv::CString& path, const qv::CString& text, Type type) {
    switch (type) {
#define QV_CONFIG_EXACT(Name, T) \
    case qv::CVariant::type##Name: return {type, exactText<T>(path, text, type)};
        QV_CONFIG_SCALARS(QV_CONFIG_EXACT)
#undef QV_CONFIG_EXACT
        case qv::CVariant::typeBlob: return {type, blobText(path, text)};
        default: return {qv::CVariant::typeString, text};
    }
}

/// What becomes of each value that is named, for people and for programs.
class Changes {
public:
    void add(const qv::CString& path, const SValue* before, const SValue* after) {
        m_table.add({visible(path), typeName((after == nullptr ? before : after)->type), shown(before), shown(after)});
        m_json.push(Json::object()
                        .set("path", narrow(path))
                        .set("before", before == nullptr ? Json() : jsonOf(*before))
                        .set("after", after == nullptr ? Json() : jsonOf(*after)));
    }
    void print(const Options& options) const {
        if (!options.json) return m_table.print(std::cout);
        Json::document(schema)
            .set("store", options.store)
            .set("dryRun", options.dryRun)
            .set("changes", m_json)
            .print(std::cout);
    }

private:
    static std::string shown(const SValue* value) { return value == nullptr ? "(absent)" : visible(value->text); }

    Table m_table{{{"path", Table::Align::left},
                   {"type", Table::Align::left},
                   {"before", Table::Align::left},
                   {"after", Table::Align::left}}};
    Json m_json = Json::array();
};

void removeSetting(Settings& settings, const std::string& name, Changes& changes) {
    const qv::CString path = valuePathOf(name, "--remove");
    qv::IConfigStore& store = settings.store();
    SValue value;
    if (!store.Exists(path)) throw Failure(Exit::negative, settings.name() + ": there is nothing at " + name);
    if (store.ReadValue(path, value)) changes.add(path, &value, nullptr);
    for (const Setting& setting : contentsOf(store, path).values) changes.add(setting.path, &setting.value, nullptr);
    (void)store.Remove(path);
}

void setSetting(Settings& settings, const std::string& assignment, Type type, Changes& changes) {
    const auto [name, text] = splitTag(assignment, "config set");
    const qv::CString path = valuePathOf(name, "config set");
    SValue before;
    const bool found = settings.store().ReadValue(path, before);
    if (type == qv::CVariant::typeUndefined) type = found ? before.type : qv::CVariant::typeString;
    const SValue after = valueOf(path, given(text), type);
    qv::ClearDiagnostic();
    if (!settings.store().SetValue(path, after)) throw diagnosed(Exit::usage, name, "cannot be set");
    changes.add(path, found ? &before : nullptr, &after);
}

/// Types are not asked for: where a form keeps none, the text is the value.
void checkKept(Settings& settings) {
    qv::CMemStore kept;
    settings.readBack(kept);
    for (const Loss& loss : lossesOf(settings.store(), kept)) {
        if (loss.kind == Loss::Kind::type) continue;
        throw Failure(Exit::usage, settings.name() + ": the form " + sentenceOf(loss) + "; nothing was changed");
    }
}

/// Says that what is no settings does not come to `place`.
void remarkStrangers(const Settings& from, const std::string& place) {
    const uint32_t count = from.strangers();
    if (count == 0) return;
    remark("qv: " + place + ": comments and other things that are no settings (" + std::to_string(count) +
           ") do not stay");
}

Exit set(const Options& options) {
    if (options.names.empty() && options.removals.empty()) {
        throw Failure(Exit::usage, "config set: needs PATH=VALUE or --remove");
    }
    const std::unique_ptr<Settings> settings = openSettings(options.store, options.form);
    if (settings->exists()) settings->load();
    Changes changes;
    for (const std::string& path : options.removals) removeSetting(*settings, path, changes);
    for (const std::string& name : options.names) setSetting(*settings, name, options.type, changes);
    checkKept(*settings);
    if (!settings->keepsStrangers()) remarkStrangers(*settings, options.store);
    if (!options.dryRun) settings->flush();
    changes.print(options);
    return Exit::done;
}

// convert ------------------------------------------------------------------------------------------------------------

void printConversion(const Options& options, const Settings& target, size_t count, const std::vector<Loss>& losses,
                     bool written) {
    if (!options.json) {
        std::cout << options.target << ": " << (written ? "" : "would be: ") << target.title() << ", " << count
                  << " values";
        if (!losses.empty()) std::cout << ", " << losses.size() << " not kept as set";
        std::cout << '\n';
        return;
    }
    Json list = Json::array();
    for (const Loss& loss : losses) list.push(jsonOf(loss.setting).set("loss", wordOf(loss.kind)));
    Json::document(schema)
        .set("from", options.store)
        .set("to", options.target)
        .set("form", target.form())
        .set("written", written)
        .set("valueCount", count)
        .set("losses", list)
        .print(std::cout);
}

Exit convert(const Options& options) {
    const std::unique_ptr<Settings> source = loaded(options);
    const std::unique_ptr<Settings> target = openSettings(options.target, options.targetForm, true);
    if (target->exists() && !options.force) {
        throw Failure(Exit::negative, options.target + ": exists already (--force replaces it)");
    }
    qv::ClearDiagnostic();
    if (!target->store().RemoveSection(u"") || !target->store().CopyFrom(source->store())) {
        throw diagnosed(Exit::io, options.target, "cannot hold these settings");
    }
    qv::CMemStore kept;
    target->readBack(kept);
    const std::vector<Loss> losses = lossesOf(source->store(), kept);
    for (const Loss& loss : losses) remark("qv: " + options.target + ": " + sentenceOf(loss));
    remarkStrangers(*source, options.target);
    const bool refused = options.strict && !losses.empty();
    const bool written = !options.dryRun && !refused;
    if (refused) remark("qv: " + options.target + ": not written, as --strict demands");
    if (written) target->replace(options.force);
    printConversion(options, *target, contentsOf(source->store()).values.size(), losses, written);
    return refused ? Exit::negative : Exit::done;
}

// The command line ---------------------------------------------------------------------------------------------------

void addForm(CLI::App& verb, const std::string& name, Form& form, const std::string& help) {
    addChoice<Form>(verb, name, form,
                    {{"ini", Form::ini}, {"xml", Form::xml}, {"sqlite", Form::sqlite}, {"registry", Form::registry}},
                    help);
}

void addType(CLI::App& verb, Type& type) {
    std::vector<std::pair<std::string, Type>> words;
    for (uint32_t i = qv::CVariant::typeBool; i <= qv::CVariant::typeBlob; ++i) {
        words.emplace_back(typeName(static_cast<Type>(i)), static_cast<Type>(i));
    }
    addChoice<Type>(verb, "--type", type, words,
                    "Type of all values that are set (that of the value that is there, else String)");
}

/// A verb below "qv config". All share one set of options, of which each adds those that it has.
CLI::App* addVerb(CLI::App& parent, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(parent, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("store", options->store, "INI, XML or SQLite file, or reg:KEY for the user's registry")
        ->required();
    verb->add_flag("--json", options->json, "Facts as JSON");
    addForm(*verb, "--store-type", options->form, "What the store is (its contents tell, of a new one its name)");
    return verb;
}

}  // namespace

void addConfig(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* config = addCommand(root, "config", "Look at and change settings, and bring them into another form.",
                                  "  qv config list viewer.ini\n  qv config set reg:Maker/Viewer view/zoom=4", nullptr);
    config->require_subcommand(1);

    CLI::App* verb = addVerb(*config, options, "list", "List the values with their paths and types.",
                             "  qv config list viewer.ini\n  qv config list settings.db view/range --csv", list);
    verb->add_option("section", options->section, "Only what stands below this path");
    verb->add_flag("--csv", options->csv, "Comma-separated");
    verb = addVerb(*config, options, "get", "Print one value; exit code 1 when there is none.",
                   "  qv config get viewer.ini view/zoom\n  qv config get reg:Maker/Viewer view/zoom", get);
    verb->add_option("path", options->section, "Names between /, in any case")->required();
    verb = addVerb(*config, options, "set", "Set and remove values, all or none. A store that is not there is made.",
                   "  qv config set viewer.ini view/zoom=4 \"view/title=first light\"\n"
                   "  qv config set settings.db --type Flt64 scene/emissivity=0.95 --remove view/range --dry-run",
                   set);
    verb->add_option("values", options->names, "PATH=VALUE; the path ends at the first equals sign");
    addType(*verb, options->type);
    verb->add_option("--remove", options->removals,
                     "Remove the value at a path and all below, before values are set; may be repeated")
        ->allow_extra_args(false);
    verb->add_flag("--dry-run", options->dryRun, "Say what would change, and change nothing");
    verb = addVerb(*config, options, "convert", "Bring settings into another form, and say what it cannot keep.",
                   "  qv config convert viewer.ini settings.db\n"
                   "  qv config convert settings.db viewer.xml --strict --force",
                   convert);
    verb->add_option("target", options->target, "The store to make")->required();
    addForm(*verb, "--target-type", options->targetForm, "What the target is to be (its name tells)");
    verb->add_flag("--force", options->force, "Replace the target when it exists");
    verb->add_flag("--strict", options->strict, "Write nothing, with exit code 1, when something would not be kept");
    verb->add_flag("--dry-run", options->dryRun, "Say what would not be kept, and write nothing");
}

}  // namespace tool
