// qv dict: tag dictionaries, brought from one form into another.
#include <iostream>
#include <map>
#include <memory>

#include "command.h"
#include "dictionary.h"
#include "json.h"
#include "qv/diagnostic.h"
#include "target.h"

namespace tool {

namespace {

struct Options {
    std::string source;
    std::string target;
    DictionaryForm form = DictionaryForm::unknown;
    bool force = false;
    bool strict = false;
    bool dryRun = false;
    bool json = false;
};

const char* wordOf(DictionaryForm form) {
    constexpr const char* words[] = {"unknown", "binary", "xml", "structured"};
    return words[static_cast<size_t>(form)];
}

DictionaryForm formOfName(const std::string& path) {
    const std::string name = CLI::detail::to_lower(path);
    if (name.ends_with(".xml")) return DictionaryForm::xml;
    if (name.ends_with(".sbf")) return DictionaryForm::structured;
    if (name.ends_with(".bin")) return DictionaryForm::binary;
    throw Failure(Exit::usage, path + ": a dictionary needs a name in .bin, .xml or .sbf, or --form");
}

void write(const Options& options, const std::string& bytes) {
    Target target(options.target, options.force);
    qv::ClearDiagnostic();
    if (!target.open()->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()))) {
        throw diagnosed(Exit::io, options.target, "cannot be written");
    }
    target.commit();
}

/// One sentence for each field.
void remarkLosses(const std::string& target, const std::vector<DictionaryLoss>& losses) {
    std::map<std::string, std::vector<std::string>> names;
    for (const DictionaryLoss& loss : losses) names[loss.field].push_back(loss.name);
    for (const auto& [field, of] : names) {
        const std::string others = of.size() == 1 ? "" : " and " + std::to_string(of.size() - 1) + " more";
        remark("qv: " + target + ": does not keep the " + field + " of " + of.front() + others);
    }
}

void print(const Options& options, DictionaryForm form, size_t count, const std::vector<DictionaryLoss>& losses,
           bool written) {
    if (!options.json) {
        std::cout << options.target << ": " << (written ? "" : "would be: ") << "tag dictionary in " << wordOf(form)
                  << " form, entries: " << count;
        if (!losses.empty()) std::cout << ", fields not kept: " << losses.size();
        std::cout << '\n';
        return;
    }
    Json list = Json::array();
    for (const DictionaryLoss& loss : losses) {
        list.push(Json::object().set("name", loss.name).set("field", loss.field));
    }
    Json::document("qv.dict.1")
        .set("from", options.source)
        .set("to", options.target)
        .set("form", wordOf(form))
        .set("written", written)
        .set("entryCount", count)
        .set("losses", list)
        .print(std::cout);
}

Exit convert(const Options& options) {
    const DictionaryForm form = options.form == DictionaryForm::unknown ? formOfName(options.target) : options.form;
    qv::CTagFile dictionary;
    loadDictionary(dictionary, options.source);
    const std::string bytes = dictionaryBytes(dictionary, form, options.target);
    const std::vector<DictionaryLoss> losses = dictionaryLosses(dictionary, bytes, options.target);
    remarkLosses(options.target, losses);
    const bool refused = options.strict && !losses.empty();
    if (refused) remark("qv: " + options.target + ": not written, as --strict demands");
    const bool written = !options.dryRun && !refused;
    if (written) write(options, bytes);
    print(options, form, dictionary.size(), losses, written);
    return refused ? Exit::negative : Exit::done;
}

}  // namespace

void addDict(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* dict =
        addCommand(root, "dict", "Bring tag dictionaries into another form.",
                   "  qv dict convert tags.bin tags.xml\n  qv dict convert tags.xml tags.sbf --strict", nullptr);
    dict->require_subcommand(1);
    CLI::App* verb = addCommand(*dict, "convert", "Write a dictionary in another form, and say what that cannot keep.",
                                "  qv dict convert tags.bin tags.xml\n"
                                "  qv dict convert tags.xml tags.dat --form binary --strict",
                                [options] { return convert(*options); });
    verb->add_option("source", options->source, "Tag dictionary: binary (versions 0 to 3), XML or structured")
        ->required();
    verb->add_option("target", options->target, "The file to make")->required();
    addChoice<DictionaryForm>(
        *verb, "--form", options->form,
        {{"binary", DictionaryForm::binary}, {"xml", DictionaryForm::xml}, {"structured", DictionaryForm::structured}},
        "What the target is to be (its name in .bin, .xml or .sbf tells)");
    verb->add_flag("--force", options->force, "Replace the target when it exists");
    verb->add_flag("--strict", options->strict, "Write nothing, with exit code 1, when something would not be kept");
    verb->add_flag("--dry-run", options->dryRun, "Say what would not be kept, and write nothing");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
