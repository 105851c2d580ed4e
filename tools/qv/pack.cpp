// qv pack: containers and what is in them.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>

#include "command.h"
#include "container.h"
#include "copy.h"
#include "json.h"
#include "pack_check.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

namespace fs = std::filesystem;
using Entry = Container::Entry;
using File = qv::TSharedPtr<qv::IFile>;

struct Options {
    std::string container;
    std::vector<std::string> names;
    std::string as;
    std::string output;
    std::string format;
    StreamKind kind;
    bool force = false;
    bool dryRun = false;
    bool json = false;
    bool csv = false;
};

std::string kindOf(const Entry& entry) {
    return std::to_string(entry.kind.type) + "/" + std::to_string(entry.kind.subtype);
}

Exit list(const Options& options) {
    const auto container = requireContainer(options.container, true);
    const std::vector<Entry> entries = container->entries();
    if (options.json) {
        Json all = Json::array();
        for (const Entry& entry : entries) {
            Json one = Json::object().set("name", entry.name).set("offset", entry.offset).set("bytes", entry.size);
            if (container->hasKinds()) {
                one.set("type", entry.kind.type).set("subtype", entry.kind.subtype);
                one.set("version", entry.kind.version).set("id", entry.kind.id);
            } else {
                one.set("room_bytes", entry.room);
            }
            all.push(one);
        }
        Json::document("qv.pack.1")
            .set("format", container->format())
            .set("base", container->base())
            .set("entries", all)
            .print(std::cout);
        return Exit::done;
    }
    std::vector<Table::Column> heads = {{"entry", Table::Align::left}, {"size [B]"}, {"offset [B]"}};
    if (container->hasKinds()) {
        heads.insert(heads.end(), {{"type/subtype"}, {"version"}});
    } else {
        heads.push_back({"room [B]"});
    }
    Table table(heads);
    for (const Entry& entry : entries) {
        std::vector<std::string> cells = {options.csv ? entry.name : visible(entry.name), std::to_string(entry.size),
                                          std::to_string(entry.offset)};
        if (container->hasKinds()) {
            cells.insert(cells.end(), {kindOf(entry), std::to_string(entry.kind.version)});
        } else {
            cells.push_back(std::to_string(entry.room));
        }
        table.add(cells);
    }
    options.csv ? table.printCsv(std::cout) : table.print(std::cout);
    return Exit::done;
}

/// An entry, or a file that others write to meanwhile.
constexpr Shortfall endsEarly = {Exit::damaged, "ends early"};

/// Where an entry goes below a folder. A name from a file does not lead out of it.
std::string placeFor(const std::string& folder, const std::string& name) {
    const fs::path relative = fs::path(name).lexically_normal();
    if (relative.empty() || relative.is_absolute() || *relative.begin() == ".." || !relative.has_filename()) {
        throw Failure(Exit::damaged, visible(name) + ": is no name that a file below a folder can have");
    }
    return (fs::path(folder.empty() ? "." : folder) / relative).string();
}

void getEntry(Container& container, const std::string& name, const std::string& place, const Options& options) {
    const File from = container.open(name);
    if (!from) throw Failure(Exit::negative, options.container + ": has no entry " + name);
    std::error_code error;
    const fs::path folder = fs::path(place).parent_path();
    if (!folder.empty()) fs::create_directories(folder, error);
    Target target(place, options.force);
    {
        const File to = target.open();
        copyContents(*from, *to, options.container + ":" + name, place, endsEarly);
    }
    target.commit();
    remark(options.container + ":" + name + " -> " + place);
}

/// All that can be had: an entry that is damaged does not keep back the others.
Exit getAll(Container& container, const Options& options) {
    std::set<std::string> taken;
    size_t failed = 0;
    Exit exit = Exit::done;
    for (const Entry& entry : container.entries()) {
        try {
            if (!taken.insert(entry.name).second)
                throw Failure(Exit::damaged, visible(entry.name) + ": the name of two entries, of which one was taken");
            getEntry(container, entry.name, placeFor(options.output, entry.name), options);
        } catch (const Failure& failure) {
            std::cerr << "qv: " << failure.what() << '\n';
            if (failed++ == 0) exit = failure.exitCode();
        }
    }
    if (failed != 0) {
        throw Failure(exit, options.container + ": " + std::to_string(failed) + " entries could not be taken out");
    }
    return Exit::done;
}

Exit get(const Options& options) {
    const auto container = requireContainer(options.container, true);
    if (options.names.empty()) return getAll(*container, options);
    std::error_code error;
    const bool toFolder = options.output.empty() || options.output.ends_with('/') || options.names.size() != 1 ||
                          fs::is_directory(options.output, error);
    for (const std::string& name : options.names) {
        getEntry(*container, name, toFolder ? placeFor(options.output, name) : options.output, options);
    }
    return Exit::done;
}

std::string formatOf(const Options& options) {
    if (!options.format.empty()) return options.format;
    const std::string ending = CLI::detail::to_lower(fs::path(options.container).extension().string());
    if (ending == ".cdfs" || ending == ".aff" || ending == ".kmr") return ending.substr(1);
    throw Failure(Exit::usage, options.container + ": does not exist, and its name tells no format; give --format");
}

/// "a/../b" and absolute names become plain ones below the root.
std::string entryNameOf(const std::string& path) {
    const fs::path normal = fs::path(path).lexically_normal();
    std::string name;
    for (const fs::path& piece : normal.relative_path()) {
        if (piece != "..") name += (name.empty() ? "" : "/") + piece.string();
    }
    return name;
}

std::string nameOfLast(Container& container) {
    const std::vector<Entry> entries = container.entries();
    return entries.empty() ? "" : entries.back().name;
}

/// The files that are to be added, which the container is none of.
void requireFiles(const Options& options) {
    std::error_code error;
    for (const std::string& name : options.names) {
        requireFile(name);
        const std::optional<Inside> inside = insideOf(name);
        if (fs::equivalent(inside ? inside->container : name, options.container, error)) {
            throw Failure(Exit::usage, name + ": a container takes neither itself nor its own entries");
        }
    }
}

void addFiles(Container& container, const Options& options) {
    if (!options.as.empty() && options.names.size() != 1) throw Failure(Exit::usage, "--as names one file only");
    if (!options.as.empty() && container.hasKinds()) {
        throw Failure(Exit::usage, "--as: the streams of " + container.format() + " have ids, no names");
    }
    std::vector<File> open;  // closing one writes the whole table
    for (const std::string& name : options.names) {
        requireFile(name);
        const File from = files().CreateFileW(wide(name).c_str(), 0x212);
        if (!from) throw diagnosed(Exit::io, name, "cannot be opened");
        const std::string entry = options.as.empty() ? entryNameOf(name) : options.as;
        const File to = container.create(entry, options.kind);
        if (!to) {
            throw Failure(Exit::negative,
                          options.container + ": has an entry " + entry + " already, or no room for one");
        }
        open.push_back(to);
        try {
            copyContents(*from, *to, name, options.container + ":" + entry, endsEarly);
        } catch (const Failure&) {
            container.remove({container.hasKinds() ? nameOfLast(container) : entry});  // the half of it
            open.clear();
            (void)container.save();
            throw;
        }
    }
    open.clear();
    qv::ClearDiagnostic();
    if (!container.save()) throw diagnosed(Exit::io, options.container, "cannot be written");
}

Exit add(const Options& options) {
    std::error_code error;
    const bool isNew = !fs::exists(options.container, error) && !files().FileExists(wide(options.container).c_str());
    requireFiles(options);
    if (options.dryRun) {
        if (isNew) {
            std::cout << options.container << ": would be made, " << formatOf(options) << '\n';
        } else {
            (void)requireContainer(options.container, true);
        }
        for (const std::string& name : options.names) {
            std::cout << options.container << ": would get " << (options.as.empty() ? entryNameOf(name) : options.as)
                      << ", " << files().GetFileInfo(wide(name).c_str()).size << " B\n";
        }
        return Exit::done;
    }
    const auto container =
        isNew ? createContainer(options.container, formatOf(options)) : requireContainer(options.container, false);
    addFiles(*container, options);
    return Exit::done;
}

Exit removeEntries(const Options& options) {
    const auto container = requireContainer(options.container, options.dryRun);
    for (const std::string& name : options.names) {
        if (!container->open(name)) throw Failure(Exit::negative, options.container + ": has no entry " + name);
        if (options.dryRun) std::cout << options.container << ": would lose " << name << '\n';
    }
    if (options.dryRun) return Exit::done;
    if (!container->remove(options.names))
        throw diagnosed(Exit::io, options.container, "does not let go of all entries");
    if (!container->save()) throw diagnosed(Exit::io, options.container, "cannot be written");
    return Exit::done;
}

Exit attach(const Options& options) {
    requireFile(options.container);
    requireFiles(options);
    if (openContainer(options.container, true) != nullptr) {
        throw Failure(Exit::negative, options.container + ": has a container already");
    }
    if (options.dryRun) {
        std::cout << options.container << ": would get a container behind its "
                  << files().GetFileInfo(wide(options.container).c_str()).size << " bytes\n";
        return Exit::done;
    }
    const auto container = attachContainer(options.container);
    addFiles(*container, options);
    std::cout << options.container << ": a container of " << options.names.size() << " entries from byte "
              << container->base() << " on\n";
    return Exit::done;
}

CLI::App* addVerb(CLI::App& pack, const std::string& name, const std::string& summary, const std::string& examples,
                  const std::shared_ptr<Options>& options, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(pack, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("container", options->container, "Container, or file with one at its end")->required();
    return verb;
}

void addKindOptions(CLI::App& verb, Options& options) {
    verb.add_option("--as", options.as, "Name of the entry, where one file is added");
    verb.add_option("--type", options.kind.type, "AFF and KMR: type of the stream, not 0")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    verb.add_option("--subtype", options.kind.subtype, "AFF and KMR: subtype")->capture_default_str();
    verb.add_option("--stream-version", options.kind.version, "AFF and KMR: version")->capture_default_str();
    verb.add_option("--id", options.kind.id, "AFF and KMR: id; without it the next free one");
    verb.add_flag("--dry-run", options.dryRun, "Only say what would be done");
}

}  // namespace

void addPack(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* pack = addCommand(root, "pack", "Containers (CDFS, AFF, KMR) and what is in them.",
                                "  qv pack add run7.cdfs frames/*.saf camera.rcal\n"
                                "  qv info run7.cdfs:frames/0001.saf",
                                nullptr);
    pack->require_subcommand(1);

    CLI::App* verb = addVerb(*pack, "ls", "List the entries.",
                             "  qv pack ls run7.cdfs\n"
                             "  qv pack ls run7.aff --json",
                             options, list);
    verb->add_flag("--json", options->json, "As JSON");
    verb->add_flag("--csv", options->csv, "As comma-separated values");

    verb = addVerb(*pack, "add", "Add files, to a new container where there is none of that name.",
                   "  qv pack add run7.cdfs frames/*.saf\n"
                   "  qv pack add run7.aff frame.saf --type 2 --subtype 1",
                   options, add);
    verb->add_option("files", options->names, "Files to add; the entry gets the name as it is given")->required();
    verb->add_option("--format", options->format, "Format of a new container; otherwise the ending of its name tells")
        ->check(CLI::IsMember({"cdfs", "aff", "kmr"}));
    addKindOptions(*verb, *options);

    verb = addVerb(*pack, "get", "Copy entries out of a container.",
                   "  qv pack get run7.cdfs frames/0001.saf -o first.saf\n"
                   "  qv pack get run7.cdfs -o unpacked/",
                   options, get);
    verb->add_option("entries", options->names, "Entries; without any, all of them");
    verb->add_option("-o,--output", options->output, "File, or folder that gets the entries under their names");
    verb->add_flag("--force", options->force, "Replace files that exist");

    verb = addVerb(*pack, "rm", "Remove entries.",
                   "  qv pack rm run7.cdfs frames/0001.saf\n"
                   "  qv pack rm run7.aff 3 --dry-run",
                   options, removeEntries);
    verb->add_option("entries", options->names, "Entries")->required();
    verb->add_flag("--dry-run", options->dryRun, "Only say what would be done");

    verb = addVerb(*pack, "attach", "Put a CDFS container behind the bytes of a file.",
                   "  qv pack attach run7.saf camera.rcal notes.txt\n"
                   "  qv pack attach run7.saf --dry-run",
                   options, attach);
    verb->add_option("files", options->names, "Files to add");
    addKindOptions(*verb, *options);

    addPackChecks(*pack);
}

}  // namespace tool
