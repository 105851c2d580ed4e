// qv crc: checksums of files, told and checked.
#include "qv/crc.h"

#include <charconv>
#include <iostream>
#include <memory>
#include <sstream>

#include "command.h"
#include "json.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::vector<std::string> files;
    std::string list;
    bool crc16 = false;
    bool json = false;
};

struct Sum {
    uint32_t crc = 0;
    int64_t size = 0;
};

Sum sumOf(const std::string& path, bool crc16) {
    requireFile(path);
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), 0x212);
    if (!file) throw diagnosed(Exit::io, path, "cannot be opened");
    Sum sum;
    sum.size = file->GetSize();
    uint16_t narrowCrc = 0;
    const bool read = crc16 ? qv::CalcCRC16(narrowCrc, file) : qv::CalcCRC32(sum.crc, file);
    if (!read) throw diagnosed(Exit::io, path, "cannot be read to its end");
    if (crc16) sum.crc = narrowCrc;
    return sum;
}

std::string digits(uint32_t crc, bool crc16) { return qv::CStringMB::FromFormat(crc16 ? "%04x" : "%08x", crc).c_str(); }

Exit tell(const Options& options) {
    Json files = Json::array();
    for (const std::string& path : options.files) {
        const Sum sum = sumOf(path, options.crc16);
        if (!options.json) {
            std::cout << digits(sum.crc, options.crc16) << "  " << path << '\n';
            continue;
        }
        files.push(Json::object().set("file", path).set("crc", digits(sum.crc, options.crc16)).set("bytes", sum.size));
    }
    if (!options.json) return Exit::done;
    Json::document("qv.crc.1")
        .set("algorithm", options.crc16 ? "CRC-16" : "CRC-32")
        .set("files", files)
        .print(std::cout);
    return Exit::done;
}

/// One line of a list: the checksum's digits, blanks, the name. Four digits are a CRC-16, eight a CRC-32.
struct Entry {
    uint32_t crc = 0;
    bool crc16 = false;
    std::string path;
};
bool parse(const std::string& line, Entry& entry) {
    const size_t count = line.find_first_of(" \t"), name = line.find_first_not_of(" \t", count);
    if (name == std::string::npos || (count != 4 && count != 8)) return false;
    const auto result = std::from_chars(line.data(), line.data() + count, entry.crc, 16);
    entry.crc16 = count == 4;
    entry.path = line.substr(name);
    return result.ec == std::errc() && result.ptr == line.data() + count;
}

std::vector<Entry> readList(const std::string& path) {
    requireFile(path);
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), 0x212);
    if (!file) throw diagnosed(Exit::io, path, "cannot be opened");
    std::string text;
    for (char block[4096]; const uint32_t got = file->Read(block, sizeof block);) text.append(block, got);
    if (static_cast<int64_t>(text.size()) < file->GetSize())
        throw Failure(Exit::io, path + ": cannot be read to its end");
    std::istringstream list(text);
    std::vector<Entry> entries;
    std::string line;
    for (size_t number = 1; std::getline(list, line); ++number) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty()) continue;
        Entry entry;
        if (!parse(line, entry)) {
            throw Failure(Exit::wrongKind,
                          path + ": line " + std::to_string(number) + " is not a checksum of 4 or 8 digits and a name");
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

Exit check(const Options& options) {
    uint64_t wrong = 0;
    Json files = Json::array();
    const std::vector<Entry> entries = readList(options.list);
    for (const Entry& entry : entries) {
        std::string verdict = "ok";
        try {
            const uint32_t found = sumOf(entry.path, entry.crc16).crc;
            if (found != entry.crc) verdict = "DIFFERS (" + digits(found, entry.crc16) + ")";
        } catch (const Failure& failure) {
            verdict = "NOT READ";
            remark(std::string("qv: ") + failure.what());
        }
        if (verdict != "ok") ++wrong;
        if (options.json) {
            files.push(Json::object().set("file", entry.path).set("verdict", verdict));
        } else {
            std::cout << entry.path << ": " << verdict << '\n';
        }
    }
    if (options.json) Json::document("qv.crc.check.1").set("wrong", wrong).set("files", files).print(std::cout);
    if (wrong != 0)
        remark("qv: " + std::to_string(wrong) + " of " + std::to_string(entries.size()) + " files are not as listed");
    return wrong == 0 ? Exit::done : Exit::negative;
}

Exit run(const Options& options) {
    if (options.list.empty() == options.files.empty()) {
        throw Failure(Exit::usage, "either files or --check with a list of them");
    }
    return options.list.empty() ? tell(options) : check(options);
}

}  // namespace

void addCrc(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command = addCommand(root, "crc", "Checksums of files.",
                                   "  qv crc recordings/*.saf > sums.txt\n"
                                   "  qv crc --check sums.txt",
                                   [options] { return run(*options); });
    command->add_option("files", options->files, "Files to read");
    auto* crc16 =
        command->add_flag("--crc16", options->crc16, "CRC-16/XMODEM in place of the CRC-32 of zlib and Ethernet");
    command
        ->add_option("--check", options->list,
                     "A list of checksums and names, as this command prints it, to hold the files against")
        ->excludes(crc16);
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
