// qv tags: the header of a measurement file, looked at and changed in place.
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>

#include "command.h"
#include "dictionary.h"
#include "json.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/saf_file.h"
#include "qv/tag_file.h"
#include "recording.h"
#include "source.h"
#include "table.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::string file;
    std::string other;
    std::vector<std::string> names;
    std::string dictionary;
    bool createGroups = false;
    bool dryRun = false;
    bool json = false;
    bool csv = false;
};

void load(qv::CSAFFile& header, const std::string& path) {
    qv::IFileSystem& disk = files();
    qv::ClearDiagnostic();
    requireFile(path);
    if (header.Load(&files(), wide(path).c_str())) return;
    const bool known = qv::CSAFFile::IsSAFFile(&disk, wide(path).c_str());
    throw diagnosed(known ? Exit::damaged : Exit::wrongKind, path, "has no measurement header");
}

Exit list(const Options& options) {
    qv::CSAFFile header;
    load(header, options.file);
    Json tags = Json::array();
    Table table({{"tag", Table::Align::left}, {"value", Table::Align::left}});
    for (uint32_t i = 0; i + 1 < header.nTags(); ++i) {
        const std::string name = narrow(header[i].name);
        const std::string value = narrow(header[i].value);
        table.add({name, value});
        tags.push(Json::object().set("name", name).set("value", value));
    }
    if (options.json) {
        Json::document("qv.tags.1")
            .set("file", options.file)
            .set("dataPosition", header.GetDataPosition())
            .set("tags", tags)
            .print(std::cout);
    } else if (options.csv) {
        table.printCsv(std::cout);
    } else {
        table.print(std::cout);
    }
    return Exit::done;
}

Exit get(const Options& options) {
    qv::CSAFFile header;
    load(header, options.file);
    Exit result = Exit::done;
    Json tags = Json::object();
    for (const std::string& name : options.names) {
        const char16_t* value = header.GetTagValue(wide(name).c_str());
        if (value == nullptr) {
            remark("qv: " + options.file + ": there is no tag " + name);
            result = Exit::negative;
        } else if (!options.json) {
            std::cout << narrow(value) << '\n';
        }
        tags.set(name, value == nullptr ? Json() : Json(narrow(value)));
    }
    if (options.json) Json::document("qv.tags.1").set("file", options.file).set("tags", tags).print(std::cout);
    return result;
}

/// A splice needs room behind the data; without it the file would be torn.
void checkSpace(const std::string& path, int64_t needed) {
    std::error_code error;
    const auto space = std::filesystem::space(std::filesystem::absolute(path).parent_path(), error);
    if (needed > 0 && !error && space.available < static_cast<uint64_t>(needed)) {
        throw Failure(Exit::io, path + ": the header needs " + std::to_string(needed) + " bytes more, and only " +
                                    std::to_string(space.available) + " are free; the file is untouched");
    }
}

/// Saves in place and says what moved.
void save(qv::CSAFFile& header, const Options& options) {
    const int64_t length = files().GetFileInfo(wide(options.file).c_str()).size;
    const int64_t dataBytes = length - header.GetDataPosition();
    const qv::SAF_SAVE_PLAN plan = header.PlanSave();
    std::string what;
    if (dataBytes == 0) {
        what = "no data, the file becomes its header of " + std::to_string(header.HeaderSize()) + " bytes";
        checkSpace(options.file, header.HeaderSize() - length);
    } else if (!plan.movesData()) {
        what = "pad absorbed, 0 data bytes moved, " + std::to_string(plan.pad) + " bytes of pad left";
    } else {
        what = std::to_string(dataBytes) + " data bytes moved by " + std::to_string(plan.insert + plan.remove) +
               ", pad renewed to " + std::to_string(plan.pad) + " bytes";
        checkSpace(options.file, plan.insert);
    }
    qv::ClearDiagnostic();
    if (!options.dryRun && (!header.Save() || qv::LastDiagnostic().IsSet())) {  // a failed write is told by that alone
        throw diagnosed(Exit::io, options.file, "cannot be written");
    }
    if (options.json) {
        Json::document("qv.tags.1")
            .set("file", options.file)
            .set("dryRun", options.dryRun)
            .set("dataBytesMoved", dataBytes != 0 && plan.movesData() ? dataBytes : int64_t{0})
            .set("pad", plan.pad)
            .print(std::cout);
    } else {
        std::cout << options.file << ": " << (options.dryRun ? "would be: " : "") << what << '\n';
    }
}

Exit set(const Options& options) {
    qv::CSAFFile header;
    load(header, options.file);
    for (const std::string& tag : options.names) {
        const auto [name, value] = splitTag(tag, "tags set");
        checkTagLine(name, value);
        header.SetTagValue(wide(name).c_str(), wide(value).c_str());
    }
    save(header, options);
    return Exit::done;
}

Exit removeTags(const Options& options) {
    qv::CSAFFile header;
    load(header, options.file);
    for (const std::string& name : options.names) {
        checkTagLine(name, "");
        if (!header.RemoveTag(wide(name).c_str())) {
            throw Failure(Exit::negative, options.file + ": there is no tag " + name);
        }
    }
    save(header, options);
    return Exit::done;
}

Exit sortTags(const Options& options) {
    if (!options.dictionary.empty()) {
        loadDictionary(qv::GetTagFile(), options.dictionary);
    }
    qv::CSAFFile header;
    load(header, options.file);
    header.SortByGroups(options.createGroups);
    save(header, options);
    return Exit::done;
}

/// The values of each name, in the order of the file: a name may occur more than once.
std::map<std::string, std::vector<std::string>> byName(const qv::CSAFFile& header) {
    std::map<std::string, std::vector<std::string>> tags;
    for (uint32_t i = 0; i + 1 < header.nTags(); ++i) tags[narrow(header[i].name)].push_back(narrow(header[i].value));
    return tags;
}

Exit diff(const Options& options) {
    qv::CSAFFile a;
    qv::CSAFFile b;
    load(a, options.file);
    load(b, options.other);
    const auto left = byName(a);
    const auto right = byName(b);
    Table table({{"tag", Table::Align::left}, {options.file, Table::Align::left}, {options.other, Table::Align::left}});
    Json differences = Json::array();
    const auto differ = [&](const std::string& name, const std::string* inA, const std::string* inB) {
        table.add({name, inA == nullptr ? "(absent)" : *inA, inB == nullptr ? "(absent)" : *inB});
        differences.push(Json::object()
                             .set("name", name)
                             .set("a", inA == nullptr ? Json() : Json(*inA))
                             .set("b", inB == nullptr ? Json() : Json(*inB)));
    };
    const auto compare = [&](const std::string& name, const std::vector<std::string>& x,
                             const std::vector<std::string>& y) {
        for (size_t i = 0; i < std::max(x.size(), y.size()); ++i) {
            const std::string* inA = i < x.size() ? &x[i] : nullptr;
            const std::string* inB = i < y.size() ? &y[i] : nullptr;
            if (inA == nullptr || inB == nullptr || *inA != *inB) differ(name, inA, inB);
        }
    };
    for (const auto& [name, values] : left)
        compare(name, values, right.contains(name) ? right.at(name) : std::vector<std::string>());
    for (const auto& [name, values] : right) {
        if (!left.contains(name)) compare(name, {}, values);
    }
    if (options.json) {
        Json::document("qv.tags.diff.1")
            .set("a", options.file)
            .set("b", options.other)
            .set("differences", differences)
            .print(std::cout);
    } else if (table.rows() != 0) {
        options.csv ? table.printCsv(std::cout) : table.print(std::cout);
    }
    return table.rows() == 0 ? Exit::done : Exit::negative;
}

/// A verb below "qv tags". All share one set of options, of which each adds those that it has.
CLI::App* addVerb(CLI::App& parent, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(parent, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("file", options->file, "Measurement file")->required();
    verb->add_flag("--json", options->json, "Facts as JSON");
    return verb;
}

}  // namespace

void addTags(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* tags =
        addCommand(root, "tags", "Look at and change the header of a measurement file, in place.",
                   "  qv tags ls run7.saf\n  qv tags set run7.saf Camera=MW1 \"Note=first light\"", nullptr);
    tags->require_subcommand(1);

    CLI::App* verb =
        addVerb(*tags, options, "ls", "List the tags.", "  qv tags ls run7.saf\n  qv tags ls run7.saf --json", list);
    verb->add_flag("--csv", options->csv, "Comma-separated");
    verb = addVerb(*tags, options, "get", "Print the values of tags, a line each.",
                   "  qv tags get run7.saf xPixls\n  qv tags get run7.saf xPixls yPixls", get);
    verb->add_option("names", options->names, "Names")->required();
    verb = addVerb(*tags, options, "set", "Set tags, adding those that are not there.",
                   "  qv tags set run7.saf Camera=MW1\n  qv tags set run7.saf \"Note=first light\" --dry-run", set);
    verb->add_option("tags", options->names, "NAME=VALUE")->required();
    verb->add_flag("--dry-run", options->dryRun, "Say what would move, and change nothing");
    verb = addVerb(*tags, options, "rm", "Remove tags, the first of each name.",
                   "  qv tags rm run7.saf Note\n  qv tags rm run7.saf Note Camera --dry-run", removeTags);
    verb->add_option("names", options->names, "Names")->required();
    verb->add_flag("--dry-run", options->dryRun, "Say what would move, and change nothing");
    verb = addVerb(*tags, options, "sort", "Sort the tags into their groups, by a tag dictionary.",
                   "  qv tags sort run7.saf --dictionary tags.xml\n"
                   "  qv tags sort run7.saf --dictionary tags.xml --create-groups --dry-run",
                   sortTags);
    verb->add_option("--dictionary", options->dictionary, "Tag dictionary, in any form");
    verb->add_flag("--create-groups", options->createGroups, "Add a heading for each group that has none");
    verb->add_flag("--dry-run", options->dryRun, "Say what would move, and change nothing");
    verb = addVerb(*tags, options, "diff", "Compare the tags of two files; exit code 1 when they differ.",
                   "  qv tags diff run7.saf run8.saf\n  qv tags diff run7.saf run8.saf --json", diff);
    verb->add_option("other", options->other, "The other file")->required();
    verb->add_flag("--csv", options->csv, "Comma-separated");
}

}  // namespace tool
