#include "pack_check.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <set>

#include "command.h"
#include "container.h"
#include "json.h"
#include "places.h"
#include "progress.h"
#include "qv/cd_file_system.h"
#include "qv/crc.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/flat_file_system.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

using Entry = Container::Entry;
using File = qv::TSharedPtr<qv::IFile>;

struct Options {
    std::string container;
    std::string output;
    bool force = false;
    bool json = false;
};

int64_t sizeOnDisk(const std::string& path) { return files().GetFileInfo(wide(path).c_str()).size; }

/// The entries that share bytes with the next one by offset.
std::vector<std::string> overlapping(std::vector<Entry> entries) {
    std::ranges::sort(entries, {}, &Entry::offset);
    std::vector<std::string> names;
    int64_t end = 0;
    std::string owner;
    for (const Entry& entry : entries) {
        if (entry.size > 0 && entry.offset < end) names.insert(names.end(), {owner, entry.name});
        if (entry.size > 0 && entry.offset + entry.size > end) end = entry.offset + entry.size, owner = entry.name;
    }
    return names;
}

/// What is wrong with an entry; "" for nothing. `crc` is that of what could be read.
std::string damageOf(Container& container, const Entry& entry, int64_t hostSize, uint32_t& crc) {
    if (entry.offset + entry.size > hostSize) return "lies beyond the end of the file";
    if (entry.size > 0 && entry.offset < container.tableEnd()) return "lies over the table";
    if (entry.room != 0 && entry.size > entry.room) return "is larger than its room";
    const File file = container.open(entry.name);
    if (!file) return "cannot be opened";
    return qv::CalcCRC32(crc, file) ? "" : "cannot be read to its end";
}

Exit verify(const Options& options) {
    const auto container = requireContainer(options.container, true);
    const int64_t hostSize = sizeOnDisk(options.container);
    const std::vector<Entry> entries = container->entries();
    const std::vector<std::string> shared = overlapping(entries);
    Json all = Json::array();
    Table table({{"entry", Table::Align::left}, {"size [B]"}, {"CRC-32"}, {"verdict", Table::Align::left}});
    size_t damaged = 0;
    Progress progress("verify", entries.size(), 0);
    std::set<std::string> names;
    for (const Entry& entry : entries) {
        uint32_t crc = 0;
        std::string damage = damageOf(*container, entry, hostSize, crc);
        if (damage.empty() && std::ranges::find(shared, entry.name) != shared.end())
            damage = "shares bytes with another";
        if (damage.empty() && !names.insert(entry.name).second) damage = "has the name of another, and cannot be read";
        if (!damage.empty()) ++damaged;
        const std::string digits = qv::CStringMB::FromFormat("%08x", crc).c_str();
        table.add({visible(entry.name), std::to_string(entry.size), digits, damage.empty() ? "ok" : damage});
        all.push(Json::object()
                     .set("name", entry.name)
                     .set("bytes", entry.size)
                     .set("crc32", digits)
                     .set("ok", damage.empty())
                     .set("damage", damage));
        progress.advance();
    }
    if (options.json) {
        Json::document("qv.pack.verify.1")
            .set("format", container->format())
            .set("damaged", uint64_t{damaged})
            .set("entries", all)
            .print(std::cout);
    } else {
        table.print(std::cout);
        std::cout << entries.size() << " entries, " << damaged << " damaged\n";
    }
    return damaged == 0 ? Exit::done : Exit::negative;
}

/// A file system of one file: a part of a host.
class Part : public qv::CFlatFileSystem {
public:
    explicit Part(File file) : m_file(std::move(file)) {
        CDirectoryEntry entry;
        qv::StrCpy(entry.path, u"/part", pathChars);
        entry.type = typeFile;
        addEntry(entry);
    }
    File CreateFileW(const char16_t*, uint32_t) override { return m_file; }
    bool DeleteFileW(const char16_t*) override { return false; }

private:
    File m_file;
};

/// What a scan of the whole file finds.
struct Find {
    int64_t at = 0;
    bool isTable = false;  ///< "CDFS", two bytes 0 and a table that can be read; otherwise a footer.
    int64_t base = 0;      ///< Of a footer.
    uint32_t files = 0;
};

/// The container whose table begins at a place of the host; null where none can be read.
std::unique_ptr<qv::CCDFileSystem> containerAt(const File& host, int64_t at, std::unique_ptr<Part>& part) {
    part = std::make_unique<Part>(qv::CBoundedFile::Create(host, at, host->GetSize() - at));
    auto container = std::make_unique<qv::CCDFileSystem>();
    if (!container->Open(&*part, u"/part", true)) return nullptr;
    return container;
}

std::vector<Find> scan(const File& host) {
    constexpr std::string_view table("CDFS\0\0", 6), footer("CDFSFOOT");
    constexpr size_t overlap = 7, blockBytes = 1 << 20;
    std::vector<Find> finds;
    std::string block;
    Progress progress("scan", static_cast<uint64_t>(host->GetSize()), 1);
    for (int64_t at = 0; at < host->GetSize(); at += blockBytes) {
        block.resize(static_cast<size_t>(std::min<int64_t>(host->GetSize() - at, blockBytes + overlap)));
        host->SetPosition(at);
        if (!host->ReadBytes(block.data(), static_cast<uint32_t>(block.size()))) break;
        for (size_t found = block.find("CDFS"); found < blockBytes; found = block.find("CDFS", found + 1)) {
            Find find;
            find.at = at + static_cast<int64_t>(found);
            const std::string_view here = std::string_view(block).substr(found);
            if (here.starts_with(footer) && find.at >= 8) {
                host->SetPosition(find.at - 8);
                find.base = host->GetInt64();
                finds.push_back(find);
            } else if (here.starts_with(table)) {
                std::unique_ptr<Part> part;
                const auto container = containerAt(host, find.at, part);
                if (!container) continue;
                find.isTable = true;
                std::vector<qv::CString> folders = {u"/"};
                for (size_t i = 0; i < folders.size(); ++i) {
                    for (const auto& each : container->GetDirectoryListing(folders[i].c_str(), nullptr).entries) {
                        if (each.type == qv::IFileSystem::typeDirectory)
                            folders.emplace_back(each.path);
                        else
                            ++find.files;
                    }
                }
                finds.push_back(find);
            }
        }
        progress.advance(block.size());
    }
    return finds;
}

Json described(const Find& find) {
    Json one = Json::object().set("at", find.at).set("kind", find.isTable ? "table" : "footer");
    return find.isTable ? one.set("files", find.files) : one.set("base", find.base);
}

/// The part of the host from the last readable table on, which opens as a container of its own.
void copyFrom(const File& host, int64_t at, const Options& options) {
    Target target(options.output, options.force);
    {
        const File to = target.open();
        std::vector<char> block(1 << 20);
        host->SetPosition(at);
        for (int64_t left = host->GetSize() - at; left > 0;) {
            const auto count = static_cast<uint32_t>(std::min<int64_t>(left, static_cast<int64_t>(block.size())));
            if (!host->ReadBytes(block.data(), count)) throw diagnosed(Exit::io, options.container, "cannot be read");
            if (!to->WriteBytes(block.data(), count)) throw diagnosed(Exit::io, options.output, "cannot be written");
            left -= count;
        }
    }
    target.commit();
}

Exit recover(const Options& options) {
    requireFile(options.container);
    const File host = files().CreateFileW(wide(options.container).c_str(), 0x212);
    if (!host) throw diagnosed(Exit::io, options.container, "cannot be opened");
    const std::vector<Find> finds = scan(host);
    const auto last = std::ranges::find_if(finds.rbegin(), finds.rend(), &Find::isTable);
    if (options.json) {
        Json all = Json::array();
        for (const Find& find : finds) all.push(described(find));
        Json::document("qv.pack.recover.1").set("file", options.container).set("finds", all).print(std::cout);
    } else {
        for (const Find& find : finds) {
            std::cout << "byte " << find.at << ": "
                      << (find.isTable ? "a table of " + std::to_string(find.files) + " files"
                                       : "a footer of a container from byte " + std::to_string(find.base) + " on")
                      << '\n';
        }
        if (finds.empty()) std::cout << options.container << ": neither table nor footer of a container\n";
    }
    if (last == finds.rend()) return Exit::negative;
    if (!options.output.empty()) {
        copyFrom(host, last->at, options);
        remark(options.output + ": the container from byte " + std::to_string(last->at) + " on");
    }
    return Exit::done;
}

}  // namespace

void addPackChecks(CLI::App& pack) {
    auto options = std::make_shared<Options>();
    CLI::App* verb =
        addCommand(pack, "verify", "Read every entry and say what is damaged; exit code 1 when something is.",
                   "  qv pack verify run7.cdfs\n"
                   "  qv pack verify run7.aff --json",
                   [options] { return verify(*options); });
    verb->add_option("container", options->container, "Container, or file with one at its end")->required();
    verb->add_flag("--json", options->json, "As JSON");
    verb = addCommand(pack, "recover",
                      "Search a whole file for CDFS tables that can be read, and for footers, wherever they are.",
                      "  qv pack recover broken.cdfs\n"
                      "  qv pack recover broken.cdfs -o mended.cdfs",
                      [options] { return recover(*options); });
    verb->add_option("file", options->container, "File to search")->required();
    verb->add_option("-o,--output", options->output,
                     "Write what begins with the last readable table: it opens as a container");
    verb->add_flag("--force", options->force, "Replace the output when it exists");
    verb->add_flag("--json", options->json, "As JSON");
}

}  // namespace tool
