// qv import: plain raw frames or pictures become a recording.
#include <charconv>
#include <iostream>
#include <memory>

#include "command.h"
#include "import_pictures.h"
#include "json.h"
#include "places.h"
#include "progress.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "recording.h"
#include "source.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::string raw;
    std::string type;  ///< "" for uint16.
    bool bigEndian = false;
    std::vector<std::string> inputs;
    std::string output;
    std::vector<std::string> tags;
    bool force = false;
    bool json = false;
};

Layout layoutOf(const Options& options) {
    uint32_t width = 0;
    uint32_t height = 0;
    const char* const end = options.raw.data() + options.raw.size();
    const auto first = std::from_chars(options.raw.data(), end, width);
    const bool cross = first.ec == std::errc() && first.ptr != end && *first.ptr == 'x';
    const auto second = cross ? std::from_chars(first.ptr + 1, end, height) : first;
    if (!cross || second.ec != std::errc() || second.ptr != end || width == 0 || height == 0 ||
        uint64_t{width} * height > 0x8000000) {
        throw Failure(Exit::usage, "--raw: \"" + options.raw + "\" is not a frame size such as 640x512");
    }
    Layout layout;
    layout.width = width;
    layout.height = height;
    layout.type = elementType(options.type.empty() ? "uint16" : options.type == "int8" ? "SInt8" : options.type);
    layout.bigEndian = options.bigEndian;
    if (layout.type == qv::EDataType::none || layout.type == qv::EDataType::rgb24) {
        throw Failure(Exit::usage, "--type: \"" + options.type + "\" is no element type");
    }
    return layout;
}

struct Source {
    std::string path;
    uint32_t frames;
};

/// The inputs with their frame counts; each must hold whole frames.
std::vector<Source> checkInputs(const Options& options, Layout& layout) {
    std::vector<Source> sources;
    uint64_t frames = 0;
    for (const std::string& path : options.inputs) {
        requireFile(path);
        const auto info = files().GetFileInfo(wide(path).c_str());
        const int64_t count = info.size / layout.frameBytes();
        if (count == 0 || info.size % layout.frameBytes() != 0) {
            throw Failure(Exit::damaged, path + ": " + std::to_string(info.size) + " bytes are not whole frames of " +
                                             std::to_string(layout.frameBytes()) + " bytes");
        }
        frames += static_cast<uint64_t>(count);
        if (frames > 0x7FFFFFFF) throw Failure(Exit::damaged, path + ": too many frames");
        sources.push_back({path, static_cast<uint32_t>(count)});
    }
    layout.frames = static_cast<uint32_t>(frames);
    return sources;
}

void addUserTags(const Options& options, qv::CSAFFile& header) {
    for (const std::string& tag : options.tags) {
        const auto [name, value] = splitTag(tag, "--tag");
        checkTagLine(name, value);
        for (const char16_t* layout : {u"KeyWrd", u"xPixls", u"yPixls", u"NumDPs", u"DaType", u"BytOrd"}) {
            if (wide(name).CompareNoCase(layout) == 0) {
                throw Failure(Exit::usage,
                              "--tag: " + name + " says what the frames are and follows from them or from --raw");
            }
        }
        header[wide(name).c_str()] = wide(value).c_str();
    }
}

void writeFrame(const void* frame, const Layout& layout, qv::IFile& out, const std::string& output) {
    if (!out.WriteBytes(frame, layout.frameBytes())) {
        throw Failure(Exit::io, output + ": cannot be written (is the disk full?)");
    }
}

void copyFrames(const Source& source, const Layout& layout, qv::IFile& out, const std::string& output,
                Progress& progress) {
    const qv::TSharedPtr<qv::IFile> in = files().CreateFileW(wide(source.path).c_str(), 0x212);
    if (!in) throw diagnosed(Exit::io, source.path, "cannot be opened");
    std::vector<std::byte> frame(layout.frameBytes());
    for (uint32_t i = 0; i < source.frames; ++i) {
        if (!in->ReadBytes(frame.data(), layout.frameBytes())) {
            throw Failure(Exit::io, source.path + ": frame " + std::to_string(i) + " cannot be read");
        }
        if (layout.bigEndian) reverseElements(frame.data(), layout.pixels(), qv::DataTypeSize(layout.type));
        writeFrame(frame.data(), layout, out, output);
        progress.advance();
    }
}

Exit import(const Options& options) {
    const bool pictures = options.raw.empty();
    if (pictures && (options.bigEndian || !options.type.empty())) {
        throw Failure(Exit::usage, "--type and --big-endian belong to plain frames (--raw); a picture says what it is");
    }
    if (options.force) requireOther(options.output, options.inputs);
    Layout layout = pictures ? layoutOfPictures(options.inputs) : layoutOf(options);
    const std::vector<Source> sources = pictures ? std::vector<Source>() : checkInputs(options, layout);
    const bool areCounts = !pictures || layout.type == qv::EDataType::uint16;
    qv::CSAFFile header;
    header.New(false);
    setLayoutTags(header, layout);
    if (areCounts) header[u"DaUnit"] = u"counts";
    addUserTags(options, header);
    Target target(options.output, options.force);
    {
        const qv::TSharedPtr<qv::IFile> out = target.open();
        uint32_t position = 0;
        qv::ClearDiagnostic();
        header.SaveTo(out, position, true);
        if (qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, options.output, "cannot be written");
        out->SetPosition(position);
        Progress progress("import", layout.frames, layout.frameBytes());
        if (pictures) {
            readPictures(options.inputs, layout, [&](const void* frame) {
                writeFrame(frame, layout, *out, options.output);
                progress.advance();
            });
        }
        for (const Source& source : sources) copyFrames(source, layout, *out, options.output, progress);
    }
    target.commit();
    if (options.json) {
        Json facts = Json::document("qv.import.1");
        facts.set("output", options.output).set("frames", layout.frames).set("width", layout.width);
        facts.set("height", layout.height).set("type", elementWord(layout.type));
        facts.print(std::cout);
    } else {
        std::cout << options.output << ": " << layout.frames << " frames of " << layout.width << " x " << layout.height
                  << ", " << elementWord(layout.type) << '\n';
    }
    return Exit::done;
}

}  // namespace

void addImport(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        addCommand(root, "import", "Turn plain raw frames, 16-bit PNG files or TIFF stacks into a recording.",
                   "  qv import --raw 640x512 --type uint16 frames.raw -o run7.saf\n"
                   "  qv import stack.tif --tag Camera=MW1 -o run8.saf",
                   [options] { return import(*options); });
    command
        ->add_option("frames", options->inputs, "Pictures (PNG, TIFF), or files of plain frames, one behind the other")
        ->required();
    command->add_option("--raw", options->raw, "The files are plain frames, of width and height as WxH");
    command->add_option(
        "--type", options->type,
        "Element type: int8, uint8, int16, uint16 (default), int32, uint32, int64, uint64, flt32, flt64");
    command->add_flag("--big-endian", options->bigEndian, "The most significant byte comes first in the input");
    command->add_option("--tag", options->tags, "A further tag of the header, as NAME=VALUE; may be repeated")
        ->allow_extra_args(false);
    command->add_option("-o,--output", options->output, "Recording to write")->required();
    command->add_flag("--force", options->force, "Replace the output when it exists");
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
