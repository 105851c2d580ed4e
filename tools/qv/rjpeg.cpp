// qv rjpeg: pictures that carry the measurement they were made from.
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "command.h"
#include "copy.h"
#include "json.h"
#include "payload.h"
#include "picture.h"
#include "qv/cd_file_system.h"
#include "qv/diagnostic.h"
#include "qv/image.h"
#include "qv/memory_file_system.h"
#include "source.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

namespace fs = std::filesystem;
using File = qv::TSharedPtr<qv::IFile>;

struct Options {
    std::string picture;
    std::vector<std::string> measurement;
    std::string output;
    std::optional<int> quality;
    bool force = false;
    bool json = false;
};

/// A JPEG; fails with a sentence for anything else.
File openedJpeg(const std::string& path) {
    const File file = openInput(path);
    if (!qv::IsJPEG(file)) throw Failure(Exit::wrongKind, path + ": is no JPEG");
    return file;
}

qv::SRadiometricInfo infoOf(const File& file, const std::string& path) {
    qv::SRadiometricInfo found;
    qv::ClearDiagnostic();
    if (!qv::GetRadiometricInfo(file, found)) throw diagnosed(Exit::damaged, path, "is damaged");
    return found;
}

std::string sizesOf(const qv::SRadiometricInfo& found) {
    return "carries " + std::to_string(found.payloadSize) + " B in " + std::to_string(found.segments) + " segments";
}

std::string lacking(const qv::SRadiometricInfo& found) {
    return sizesOf(found) + ", a measurement has more than " + std::to_string(qv::largestMetadata) + " B";
}

Exit info(const Options& options) {
    const qv::SRadiometricInfo found = infoOf(openedJpeg(options.picture), options.picture);
    if (options.json) {
        Json::document("qv.rjpeg.1")
            .set("file", options.picture)
            .set("measurement", found.IsMeasurement())
            .set("bytes", found.payloadSize)
            .set("neededBytes", int64_t{qv::largestMetadata} + 1)
            .set("segments", found.segments)
            .set("inOrder", found.inOrder)
            .print(std::cout);
    } else {
        std::cout << options.picture << ": " << (found.IsMeasurement() ? sizesOf(found) : lacking(found))
                  << (found.inOrder ? "" : ", whose index bytes are not in order") << '\n';
    }
    return found.IsMeasurement() ? Exit::done : Exit::negative;
}

/// Whether it was the output or the picture that made an end of a copy.
Failure failedCopy(const Options& options, const File& out, const Target& target) {
    const qv::CString name = qv::LastDiagnostic().file;
    const bool isOutput = out && narrow(name).ends_with(fs::path(target.temporary()).filename().string());
    return isOutput ? diagnosed(Exit::io, options.output, "cannot be written (is the disk full?)")
                    : diagnosed(Exit::damaged, options.picture, "is damaged");
}

Exit wrap(const Options& options) {
    if (options.force) requireOther(options.output, options.measurement);
    requireJpegName(options.output);
    const File picture = openInput(options.picture);
    const File payload = payloadOf(payloadFiles(options.measurement));
    if (payload->GetSize() <= int64_t{qv::largestMetadata}) {
        remark("qv: " + options.output + ": " + std::to_string(payload->GetSize()) +
               " B are too few for a measurement, readers take them for metadata");
    }
    if (qv::IsJPEG(picture)) {
        if (options.quality) throw Failure(Exit::usage, "--quality: a JPEG is kept as it is");
        Target target(options.output, options.force);
        qv::ClearDiagnostic();
        const File out = target.open();
        if (!qv::WrapRadiometricJPEG(picture, payload, out)) throw failedCopy(options, out, target);
        target.commit();
    } else {
        Bitmap bitmap;
        qv::CPropertyArray properties;
        if (options.quality) properties.SetValue(u"quality", wide(std::to_string(*options.quality)));
        if (!qv::IsImageFile(picture))
            throw Failure(Exit::wrongKind, options.picture + ": is no BMP, PNG, JPEG or TIFF");
        qv::ClearDiagnostic();
        if (!qv::LoadBitmapW(picture, bitmap.pixels))
            throw diagnosed(Exit::damaged, options.picture, "cannot be decoded");
        writeBitmap(bitmap.pixels.handle, options.output, options.force, payload, properties);
    }
    std::cout << options.output << ": " << sizesOf(infoOf(openInput(options.output), options.output)) << '\n';
    return Exit::done;
}

void writeWhole(qv::IFile& from, const Options& options, const std::string& place) {
    requireOther(place, {options.picture});
    Target target(place, options.force);
    copyContents(from, *target.open(), options.picture, place);
    target.commit();
    std::cout << visible(wide(place)) << ": " << from.GetSize() << " B\n";
}

/// The files of a payload that is a container, each below the folder.
void unpack(const File& payload, const Options& options) {
    constexpr char16_t inMemory[] = u"/payload";
    qv::CMemoryFileSystem memory;
    copyContents(*payload, *memory.CreateFileW(inMemory, 0x34), options.picture, "memory");
    qv::CCDFileSystem container;
    qv::ClearDiagnostic();
    if (!container.Open(&memory, inMemory, true))
        throw diagnosed(Exit::damaged, options.picture, "has a damaged payload");
    std::error_code error;
    fs::create_directories(options.output, error);
    std::vector<std::pair<File, std::string>> files;
    for (const auto& entry : container.GetDirectoryListing(u"/", nullptr).entries) {
        const std::string name = narrow(entry.name);
        // A name from a file does not lead out of the folder.
        if (entry.type != qv::IFileSystem::typeFile || fs::path(name) != fs::path(name).filename() || name == ".." ||
            name == ".") {
            throw Failure(Exit::damaged, options.picture + ": " + visible(entry.name) + " is no name of a file");
        }
        const File file = container.CreateFileW(entry.path, qv::CFile::openExisting);
        if (!file) throw diagnosed(Exit::damaged, options.picture, "has a damaged payload");
        files.emplace_back(file, (fs::path(options.output) / name).string());
        const Target isFree(files.back().second, options.force);  // before the first is written
    }
    for (const auto& [file, place] : files) writeWhole(*file, options, place);
}

Exit unwrap(const Options& options) {
    const File picture = openedJpeg(options.picture);
    const qv::SRadiometricInfo found = infoOf(picture, options.picture);
    if (!found.IsMeasurement()) throw Failure(Exit::negative, options.picture + ": " + lacking(found));
    const qv::TSharedPtr<qv::CMemFile> payload = qv::CMemFile::Create();
    qv::ClearDiagnostic();
    if (!qv::UnwrapRadiometricJPEG(picture, payload)) throw diagnosed(Exit::damaged, options.picture, "is damaged");
    std::error_code error;
    const bool toFolder = options.output.ends_with('/') || fs::is_directory(options.output, error);
    const bool several =
        payload->size() > 4 && std::string_view(reinterpret_cast<const char*>(payload->data()), 4) == "CDFS";
    if (toFolder && several) {
        unpack(payload, options);
    } else if (toFolder) {
        throw Failure(Exit::usage, options.output + ": the picture carries one file, which needs a name");
    } else {
        writeWhole(*payload, options, options.output);
    }
    return Exit::done;
}

Exit strip(const Options& options) {
    const File picture = openedJpeg(options.picture);
    const qv::SRadiometricInfo found = infoOf(picture, options.picture);
    Target target(options.output, options.force);
    qv::ClearDiagnostic();
    const File out = target.open();
    if (!qv::StripRadiometricJPEG(picture, out)) throw failedCopy(options, out, target);
    target.commit();
    std::cout << options.output << ": without " << found.payloadSize << " B in " << found.segments << " segments\n";
    return Exit::done;
}

CLI::App* addVerb(CLI::App& rjpeg, const std::string& name, const std::string& summary, const std::string& examples,
                  const std::shared_ptr<Options>& options, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(rjpeg, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("picture", options->picture, name == "wrap" ? "Picture; a JPEG is not encoded anew" : "JPEG")
        ->required();
    return verb;
}

void addOutput(CLI::App& verb, Options& options, const std::string& help) {
    verb.add_option("-o,--output", options.output, help)->required();
    verb.add_flag("--force", options.force, "Replace the output when it exists");
}

}  // namespace

void addRjpeg(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* rjpeg = addCommand(root, "rjpeg", "Radiometric JPEGs: pictures that carry their measurement.",
                                 "  qv rjpeg wrap photo.jpg run7.saf camera.rcal -o run7.jpg\n"
                                 "  qv rjpeg unwrap run7.jpg -o data/",
                                 nullptr);
    rjpeg->require_subcommand(1);
    CLI::App* verb = addVerb(*rjpeg, "info", "Say what a JPEG carries; exit code 1 when that is no measurement.",
                             "  qv rjpeg info run7.jpg\n"
                             "  qv rjpeg info run7.jpg --json",
                             options, info);
    verb->add_flag("--json", options->json, "As JSON");
    verb = addVerb(*rjpeg, "wrap",
                   "Put measurement files into a picture: one as it is, several in a container under their names.",
                   "  qv rjpeg wrap photo.jpg run7.saf camera.rcal -o run7.jpg\n"
                   "  qv rjpeg wrap frame.png run7.saf --quality 90 -o run7.jpg",
                   options, wrap);
    verb->add_option("measurement", options->measurement, "Recording, calibration, any file")->required();
    verb->add_option("--quality", options->quality, "Of a JPEG that is made, 0 to 100")->check(CLI::Range(0, 100));
    addOutput(*verb, *options, "JPEG to write");
    verb = addVerb(*rjpeg, "unwrap", "Give the measurement back, bit for bit.",
                   "  qv rjpeg unwrap run7.jpg -o run7.saf\n"
                   "  qv rjpeg unwrap run7.jpg -o data/",
                   options, unwrap);
    addOutput(*verb, *options, "File; or folder, which gets the files where there are several");
    verb = addVerb(*rjpeg, "strip", "Copy a JPEG without its measurement; all else stays byte for byte.",
                   "  qv rjpeg strip run7.jpg -o photo.jpg\n"
                   "  qv rjpeg strip run7.jpg -o photo.jpg --force",
                   options, strip);
    addOutput(*verb, *options, "JPEG to write");
}

}  // namespace tool
