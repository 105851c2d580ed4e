// qv render: one frame of a recording as a picture with a scale bar.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "command.h"
#include "frame_values.h"
#include "json.h"
#include "payload.h"
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
    std::vector<std::string> attached;
    std::optional<int> quality;
    bool radiometric = false;
    bool force = false;
    bool json = false;
};

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

/// The frame with its header, and what goes with it; null without --radiometric.
qv::TSharedPtr<qv::IFile> measurementOf(const Options& options, const Recording& recording) {
    if (!options.radiometric && options.attached.empty()) return nullptr;
    std::vector<PayloadPart> parts = payloadFiles(options.attached);
    const std::string name = std::filesystem::path(options.recording).filename().string();
    parts.insert(parts.begin(), {name.substr(name.rfind(':') + 1), recordingOfFrame(recording, options.frame)});
    return payloadOf(parts);
}

Exit render(const Options& options) {
    if (options.force) requireOther(options.output, {options.recording});
    if (options.force) requireOther(options.output, options.attached);
    const Recording recording(options.recording);
    requireFrame(recording, options.frame);
    FrameReader reader(recording);
    const std::vector<float> values = frameValues<float>(recording, reader, options.frame);
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
    qv::CPropertyArray properties;
    if (options.quality) properties.SetValue(u"quality", wide(std::to_string(*options.quality)));
    writePicture(picture.draw(), options.output, options.force, measurementOf(options, recording), properties);
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
    CLI::App* command = addCommand(
        root, "render", "Draw one frame of a recording as a picture with a scale bar.",
        "  qv render run7-celsius.saf -o frame0.png\n"
        "  qv render run7-celsius.saf --frame 12 --range 20:60 --radiometric --with camera.rcal -o frame12.jpg",
        [options] { return render(*options); });
    command->add_option("recording", options->recording, "Recording")->required();
    command->add_option("--frame", options->frame, "Frame, from 0");
    addChoice<Palette>(*command, "--palette", options->palette,
                       {{"iron", Palette::iron}, {"gray", Palette::gray}, {"rainbow", Palette::rainbow}},
                       "Colours from low to high (iron)");
    command->add_option("--range", options->range, "Values at the ends of the palette, as LOW:HIGH");
    command->add_option("-o,--output", options->output, "Picture to write: .png, .jpg, .tif, else a BMP")->required();
    command->add_option("--quality", options->quality, "Of a JPEG, 0 to 100")->check(CLI::Range(0, 100));
    command->add_flag("--radiometric", options->radiometric, "The JPEG carries the frame with its header");
    command->add_option("--with", options->attached, "A further file for it to carry; may be repeated")
        ->allow_extra_args(false);
    command->add_flag("--force", options->force, "Replace the output when it exists");
    command->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
