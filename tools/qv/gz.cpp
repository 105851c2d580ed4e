// qv gz: compressed files, made and undone.
#include <iostream>
#include <memory>

#include "command.h"
#include "json.h"
#include "places.h"
#include "progress.h"
#include "qv/crc.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/gz_file.h"
#include "source.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

constexpr char ending[] = ".tgzf";
constexpr uint32_t blockBytes = 1 << 20;

struct Options {
    std::string input;
    std::string output;
    bool decompress = false;
    bool list = false;
    bool force = false;
    bool json = false;
};

qv::TSharedPtr<qv::IFile> openInput(const std::string& path) {
    requireFile(path);
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), 0x212);
    if (!file) throw diagnosed(Exit::io, path, "cannot be opened");
    return file;
}

/// Fails for a file that is not compressed, or not in a form that can be read.
void requireCompressed(const qv::CGZFile& file, const std::string& path) {
    if (file.GetState() == qv::CGZFile::State::reading) return;
    throw Failure(Exit::wrongKind, path +
                                       ": is neither a TGZF file nor a gzip file without a name or comment in its "
                                       "header (gzip -n makes those)");
}

/// Moves everything from one to the other, and adds it to the checksum. False when the source ends early.
bool moveAll(qv::IFile& from, qv::IFile& to, int64_t size, const Options& options, uint32_t& crc) {
    std::vector<char> block(blockBytes);
    Progress progress(options.decompress ? "decompress" : "compress", static_cast<uint64_t>(size), 1);
    for (int64_t left = size; left > 0;) {
        const auto wanted = static_cast<uint32_t>(std::min<int64_t>(left, blockBytes));
        const uint32_t got = from.Read(block.data(), wanted);
        if (!to.WriteBytes(block.data(), got)) {
            throw Failure(Exit::io, options.output + ": cannot be written (is the disk full?)");
        }
        crc = qv::CalcMultBlockCRC32(reinterpret_cast<const unsigned char*>(block.data()), got, crc);
        if (got != wanted) return false;
        progress.advance(got);
        left -= got;
    }
    return true;
}

std::string outputOf(const Options& options) {
    if (!options.output.empty()) return options.output;
    if (!options.decompress) return options.input + ending;
    for (const std::string& known : {std::string(ending), std::string(".gz")}) {
        const size_t stem = options.input.size() - std::min(known.size(), options.input.size());
        if (stem != 0 && options.input[stem - 1] != '/' && options.input.substr(stem) == known) {
            return options.input.substr(0, stem);
        }
    }
    throw Failure(Exit::usage, options.input + ": ends in neither .tgzf nor .gz, so -o has to name the output");
}

void report(const Options& options, int64_t plain, int64_t compressed) {
    const double percent = plain == 0 ? 0 : 100.0 * static_cast<double>(compressed) / static_cast<double>(plain);
    if (options.json) {
        Json facts = Json::document("qv.gz.1");
        facts.set("input", options.input);
        if (!options.list) facts.set("output", options.output);
        facts.set("bytes", plain).set("compressed_bytes", compressed);
        facts.print(std::cout);
        return;
    }
    Table table({{"file", Table::Align::left}, {"plain [B]"}, {"compressed [B]"}, {"compressed/plain [%]"}});
    table.add({options.list ? options.input : options.output, std::to_string(plain), std::to_string(compressed),
               plain == 0 ? "-" : fixed(percent, 1)});
    table.print(std::cout);
}

Exit compress(const Options& options) {
    const qv::TSharedPtr<qv::IFile> in = openInput(options.input);
    const int64_t size = in->GetSize();
    Target target(options.output, options.force);
    qv::CGZFile out(target.open(), qv::CFile::accessWrite);
    if (out.GetState() != qv::CGZFile::State::writing) throw diagnosed(Exit::io, options.output, "cannot be written");
    uint32_t crc = qv::InitCRC32();
    const bool whole = moveAll(*in, out, size, options, crc);
    if (!whole) throw Failure(Exit::io, options.input + ": cannot be read to its end");
    qv::ClearDiagnostic();
    out.Close();
    if (qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, options.output, "cannot be written");
    const int64_t compressed = qv::fileSystem().GetFileInfo(wide(target.temporary()).c_str()).size;
    target.commit();
    report(options, size, compressed);
    return Exit::done;
}

/// gzip ends with the checksum of its last member. The library reads the first, as far as the last states its size.
void checkTrailer(const Options& options, uint32_t crc) {
    const qv::TSharedPtr<qv::IFile> file = openInput(options.input);
    constexpr int64_t trailerBytes = 8;
    unsigned char magic = 0, sum[4] = {};
    if (!file->GetBYTE(magic) || magic != 31) return;
    file->Seek(-trailerBytes, qv::IFile::fromEnd);
    const bool read = file->ReadBytes(sum, sizeof sum);
    const uint32_t expected = sum[0] | uint32_t{sum[1]} << 8 | uint32_t{sum[2]} << 16 | uint32_t{sum[3]} << 24;
    if (read && expected == crc) return;
    throw Failure(Exit::damaged, options.input +
                                     ": what it holds does not fit the checksum at its end; it is damaged, or has "
                                     "several members or more than 4 GiB, which gzip -d can undo");
}

Exit decompress(const Options& options) {
    const qv::TSharedPtr<qv::IFile> inner = openInput(options.input);
    const int64_t compressed = inner->GetSize();
    qv::CGZFile in(inner, qv::CFile::accessRead);
    requireCompressed(in, options.input);
    Target target(options.output, options.force);
    {
        const qv::TSharedPtr<qv::IFile> out = target.open();
        qv::ClearDiagnostic();
        uint32_t crc = qv::InitCRC32();
        if (!moveAll(in, *out, in.GetSize(), options, crc)) throw diagnosed(Exit::damaged, options.input, "ends early");
        checkTrailer(options, qv::FiniCRC32(crc));
    }
    target.commit();
    report(options, in.GetSize(), compressed);
    return Exit::done;
}

Exit list(const Options& options) {
    const qv::TSharedPtr<qv::IFile> inner = openInput(options.input);
    const int64_t compressed = inner->GetSize();
    const qv::CGZFile in(inner, qv::CFile::accessRead);
    requireCompressed(in, options.input);
    report(options, const_cast<qv::CGZFile&>(in).GetSize(), compressed);
    return Exit::done;
}

Exit run(Options options) {
    if (options.list) return list(options);
    options.output = outputOf(options);
    return options.decompress ? decompress(options) : compress(options);
}

}  // namespace

void addGz(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command = addCommand(root, "gz", "Compress a file, or undo that.",
                                   "  qv gz run7.saf\n"
                                   "  qv gz -d run7.saf.tgzf -o run7.saf",
                                   [options] { return run(*options); });
    command->add_option("file", options->input, "File to read")->required();
    auto* decompress =
        command->add_flag("-d,--decompress", options->decompress, "Undo: the file is a TGZF or a gzip file");
    command->add_flag("-l,--list", options->list, "Only tell the sizes of a compressed file, as it states them")
        ->excludes(decompress);
    command->add_option("-o,--output", options->output,
                        "File to write; without it the name gets .tgzf, or loses it or .gz");
    command->add_flag("--force", options->force, "Replace the output when it exists");
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
