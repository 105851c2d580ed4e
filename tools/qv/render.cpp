// qv render: one frame of a recording as a picture with a scale bar.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "command.h"
#include "json.h"
#include "picture.h"
#include "recording.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::string recording;
    uint32_t frame = 0;
    Palette palette = Palette::iron;
    std::string range;
    std::string output;
    bool force = false;
    bool json = false;
};

/// The frame's values as floats, whatever they are stored as.
std::vector<float> readFrame(const Recording& recording, uint32_t frame) {
    const Layout& layout = recording.layout();
    if (frame >= layout.frames) {
        throw Failure(Exit::negative, recording.path() + ": there is no frame " + std::to_string(frame) + " (it has " +
                                          std::to_string(layout.frames) + ", counted from 0)");
    }
    std::vector<std::byte> bytes(layout.frameBytes());
    FrameReader(recording).read(frame, bytes.data());
    std::vector<float> values(layout.pixels());
    if (layout.type == qv::EDataType::uint64 || layout.type == qv::EDataType::rgb24) {
        throw Failure(Exit::damaged,
                      recording.path() + ": frames of " + elementWord(layout.type) + " cannot be rendered");
    }
    qv::ConvertArray({values.data(), qv::EDataType::flt32}, {bytes.data(), layout.type}, layout.pixels());
    return values;
}

/// The unit as it is read: a temperature's with its degree sign.
std::string displayUnit(const std::string& unit) {
    return unit == "C" || unit == "F" || unit == "R" ? "\u00B0" + unit : unit;
}

/// What a calibrated recording assumed of its sources.
std::string assumptions(const Recording& recording) {
    const std::string emissivity = recording.tag(u"CaEmis");
    if (emissivity.empty()) return "";
    const std::string instrument = recording.tag(u"CaInst");
    return (instrument.empty() ? "page " + recording.tag(u"CaPage")
                               : "pages " + recording.tag(u"CaPage") + " at " + instrument) +
           ", emissivity " + emissivity + ", reflected " + recording.tag(u"CaRefl");
}

Exit render(const Options& options) {
    const Recording recording(options.recording);
    const std::vector<float> values = readFrame(recording, options.frame);
    const auto [low, high] = paletteSpan(options.range, values);
    FramePicture picture;
    picture.values = values.data();
    picture.width = recording.layout().width;
    picture.height = recording.layout().height;
    picture.low = low;
    picture.high = high;
    picture.palette = options.palette;
    const std::string unit = recording.tag(u"DaUnit").empty() ? "counts" : recording.tag(u"DaUnit");
    picture.unit = displayUnit(unit);
    picture.title =
        std::filesystem::path(options.recording).filename().string() + ", frame " + std::to_string(options.frame);
    picture.caption = assumptions(recording);
    const std::vector<uint8_t> png = picture.draw().png();
    Target target(options.output, options.force);
    if (!target.open()->WriteBytes(png.data(), static_cast<uint32_t>(png.size()))) {
        throw Failure(Exit::io, options.output + ": cannot be written (is the disk full?)");
    }
    target.commit();
    if (options.json) {
        Json facts = Json::document("qv.render.1");
        facts.set("output", options.output).set("frame", options.frame).set("low", low).set("high", high);
        facts.set("unit", unit);
        facts.print(std::cout);
    } else {
        std::cout << options.output << ": frame " << options.frame << ", " << number(low) << " to " << number(high)
                  << ' ' << unit << '\n';
    }
    return Exit::done;
}

}  // namespace

void addRender(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        addCommand(root, "render", "Draw one frame of a recording as a PNG picture with a scale bar.",
                   "  qv render run7-celsius.saf -o frame0.png\n"
                   "  qv render run7-celsius.saf --frame 12 --palette gray --range 20:60 -o frame12.png",
                   [options] { return render(*options); });
    command->add_option("recording", options->recording, "Recording")->required();
    command->add_option("--frame", options->frame, "Frame, from 0");
    addChoice<Palette>(*command, "--palette", options->palette,
                       {{"iron", Palette::iron}, {"gray", Palette::gray}, {"rainbow", Palette::rainbow}},
                       "Colours from low to high (iron)");
    command->add_option("--range", options->range, "Values at the ends of the palette, as LOW:HIGH");
    command->add_option("-o,--output", options->output, "Picture to write")->required();
    command->add_flag("--force", options->force, "Replace the output when it exists");
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
