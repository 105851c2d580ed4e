// qv export: frames of a recording for other programs.
#include <charconv>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>

#include "command.h"
#include "frame_values.h"
#include "json.h"
#include "picture.h"
#include "progress.h"
#include "qv/diagnostic.h"
#include "qv/image.h"
#include "qv/multi_page_tiff.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string recording;
    std::string frames;
    std::string range;
    std::string output;
    bool force = false;
    bool json = false;
};

/// Frames from `first` up to, not including, `end`.
struct Span {
    uint32_t first = 0;
    uint32_t end = 0;
};

Span spanOf(const Options& options, const Recording& recording) {
    Span span{0, recording.layout().frames};
    if (!options.frames.empty()) {
        const char* const end = options.frames.data() + options.frames.size();
        const auto first = std::from_chars(options.frames.data(), end, span.first);
        const bool several = first.ec == std::errc() && first.ptr != end && *first.ptr == ':';
        const auto last = several ? std::from_chars(first.ptr + 1, end, span.end) : first;
        if (!several) span.end = span.first;
        if (last.ec != std::errc() || last.ptr != end || span.end < span.first || span.end == UINT32_MAX) {
            throw Failure(Exit::usage, "--frames: \"" + options.frames + "\" is neither a frame nor FIRST:LAST");
        }
        ++span.end;
    }
    requireFrame(recording, span.end - 1);
    return span;
}

/// One file for one frame: the output's name, with the frame's number where there are several.
std::string nameOf(const Options& options, const Span& span, uint32_t frame) {
    if (span.end - span.first == 1) return options.output;
    const fs::path path(options.output);
    std::string digits = std::to_string(frame);
    const size_t width = std::max<size_t>(4, std::to_string(span.end - 1).size());
    digits.insert(0, width - digits.size(), '0');
    return (path.parent_path() / (path.stem().string() + "-" + digits + path.extension().string())).string();
}

void requireWritten(bool written, const std::string& place) {
    if (!written) throw diagnosed(Exit::io, place, "cannot be written (is the disk full?)");
}

// 32-bit floats: all frames in one stack ------------------------------------------------------------------------------

void exportStack(const Options& options, const Recording& recording, const Span& span, Progress& progress) {
    const Layout& layout = recording.layout();
    constexpr uint64_t mostSmall = 4'000'000'000;  // of the 2^32 bytes that a TIFF file of the common form can have
    constexpr uint64_t directoryBytes = 256;
    const uint64_t pageBytes = uint64_t{layout.pixels()} * sizeof(float) + directoryBytes;
    const bool big = (span.end - span.first) * pageBytes > mostSmall;
    if (big)
        remark("qv: " + options.output + ": more than 4 GB are written as BigTIFF, which some readers do not know");
    Target target(options.output, options.force);
    qv::CMultiPageTIFFFile stack;
    qv::ClearDiagnostic();
    requireWritten(stack.Create(target.open(), big), options.output);
    FrameReader reader(recording);
    for (uint32_t frame = span.first; frame < span.end; ++frame) {
        const std::vector<float> values = frameValues<float>(recording, reader, frame);
        requireWritten(stack.AppendPage(values.data(), layout.width, layout.height, qv::EDataType::flt32),
                       options.output);
        progress.advance();
    }
    requireWritten(stack.Close(), options.output);
    target.commit();
}

// 16-bit grey ---------------------------------------------------------------------------------------------------------

/// The values of a frame between the ends of a range as 0 to 65535.
struct Scale {
    double low = 0.0;
    double high = 65535.0;

    uint16_t operator()(double value) const {
        const double position = (value - low) / (high - low) * 65535.0;
        return position >= 65535.0 ? uint16_t{65535}
               : position > 0.0    ? static_cast<uint16_t>(std::lround(position))
                                   : 0;
    }
};

/// Counts of 16 bits go as they are; anything else needs a range.
Scale scaleOf(const Options& options, const Recording& recording) {
    Scale scale;
    if (!options.range.empty()) {
        char rest = 0;
        if (std::sscanf(options.range.c_str(), "%lf:%lf%c", &scale.low, &scale.high, &rest) == 2 &&
            scale.low < scale.high && std::isfinite(scale.high - scale.low)) {
            return scale;
        }
        throw Failure(Exit::usage, "--range: \"" + options.range + "\" is not of the form LOW:HIGH");
    }
    const qv::EDataType type = recording.layout().type;
    if (type == qv::EDataType::uint16 || type == qv::EDataType::uint8) return scale;
    throw Failure(Exit::usage, options.output + ": values of " + elementWord(type) +
                                   " need --range LOW:HIGH, which becomes 0 to 65535");
}

void exportPng(const Options& options, const Recording& recording, const Span& span, Progress& progress) {
    const Layout& layout = recording.layout();
    const Scale scale = scaleOf(options, recording);
    FrameReader reader(recording);
    std::vector<uint16_t> grey(layout.pixels());
    for (uint32_t frame = span.first; frame < span.end; ++frame) {
        const std::vector<double> values = frameValues<double>(recording, reader, frame);
        std::transform(values.begin(), values.end(), grey.begin(), scale);
        const std::string place = nameOf(options, span, frame);
        Target target(place, options.force);
        qv::ClearDiagnostic();
        requireWritten(qv::SavePNG16(target.open(), grey.data(), layout.width, layout.height), place);
        target.commit();
        progress.advance();
    }
}

// Text ----------------------------------------------------------------------------------------------------------------

/// A line for each row; each value as the shortest text that reads back to it.
template <class T>
std::string csvOf(const std::vector<T>& values, uint32_t width) {
    std::string text;
    char digits[64];
    for (size_t i = 0; i < values.size(); ++i) {
        const auto end = std::to_chars(digits, digits + sizeof digits, values[i]);
        text.append(digits, end.ptr);
        text += (i + 1) % width == 0 ? '\n' : ',';
    }
    return text;
}

void exportCsv(const Options& options, const Recording& recording, const Span& span, Progress& progress) {
    const Layout& layout = recording.layout();
    FrameReader reader(recording);
    for (uint32_t frame = span.first; frame < span.end; ++frame) {
        const std::string text = layout.type == qv::EDataType::flt32
                                     ? csvOf(frameValues<float>(recording, reader, frame), layout.width)
                                     : csvOf(frameValues<double>(recording, reader, frame), layout.width);
        const std::string place = nameOf(options, span, frame);
        Target target(place, options.force);
        if (text.size() > UINT32_MAX) throw Failure(Exit::io, place + ": a frame of more than 4 GB of text");
        requireWritten(target.open()->WriteBytes(text.data(), static_cast<uint32_t>(text.size())), place);
        target.commit();
        progress.advance();
    }
}

Exit exportFrames(const Options& options) {
    const std::string ending = endingOf(options.output);
    const bool stack = ending == ".tif" || ending == ".tiff";
    if (!stack && ending != ".png" && ending != ".csv") {
        throw Failure(Exit::usage, options.output + ": the output ends in .tif, .png or .csv");
    }
    if (!options.range.empty() && ending != ".png") throw Failure(Exit::usage, "--range is for .png alone");
    if (options.force) requireOther(options.output, {options.recording});
    const Recording recording(options.recording);
    const Span span = spanOf(options, recording);
    const uint32_t count = span.end - span.first;
    // All or none: a name that is taken is told before the first picture is written.
    for (uint32_t frame = span.first; !stack && frame < span.end; ++frame) {
        const Target isFree(nameOf(options, span, frame), options.force);
    }
    {
        Progress progress("export", count, recording.layout().frameBytes());
        if (stack) exportStack(options, recording, span, progress);
        if (ending == ".png") exportPng(options, recording, span, progress);
        if (ending == ".csv") exportCsv(options, recording, span, progress);
    }
    const std::string unit = recording.tag(u"DaUnit");
    const std::string first = stack ? options.output : nameOf(options, span, span.first);
    if (options.json) {
        Json::document("qv.export.1")
            .set("output", first)
            .set("firstFrame", span.first)
            .set("frames", count)
            .set("unit", unit)
            .print(std::cout);
        return Exit::done;
    }
    std::cout << first << (stack || count == 1 ? "" : " and on") << ": " << count << " frames of "
              << recording.layout().width << " x " << recording.layout().height << (unit.empty() ? "" : ", " + unit)
              << '\n';
    return Exit::done;
}

}  // namespace

void addExport(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command = addCommand(
        root, "export",
        "Write frames for other programs: a stack of 32-bit floats (.tif), 16-bit grey (.png) or text (.csv).",
        "  qv export run7-celsius.saf -o run7.tif\n"
        "  qv export run7-celsius.saf --frames 0:9 --range 0:100 -o run7.png",
        [options] { return exportFrames(*options); });
    command->add_option("recording", options->recording, "Recording")->required();
    command->add_option("--frames", options->frames,
                        "Frame, or FIRST:LAST, from 0 (all); several pictures are numbered");
    command->add_option("--range", options->range, "Values that become 0 and 65535 in a .png, as LOW:HIGH");
    command->add_option("-o,--output", options->output, "File to write; its ending tells the format")->required();
    command->add_flag("--force", options->force, "Replace the output when it exists");
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
