// qv image: what a picture is, and pictures in another format.
#include <iostream>
#include <memory>
#include <optional>

#include "command.h"
#include "json.h"
#include "picture.h"
#include "qv/diagnostic.h"
#include "qv/image.h"
#include "qv/pixel_type.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

struct Options {
    std::string input;
    std::string output;
    std::string background;
    std::string compression;
    std::optional<int> quality;
    std::optional<int> bits;
    bool force = false;
    bool json = false;
};

qv::SImageInfo infoOf(const qv::TSharedPtr<qv::IFile>& file, const std::string& path) {
    qv::SImageInfo info;
    qv::ClearDiagnostic();
    if (qv::GetImageInfo(file, info)) return info;
    throw diagnosed(qv::IsImageFile(file) ? Exit::damaged : Exit::wrongKind, path, "is no BMP, PNG, JPEG or TIFF");
}

std::string formatName(qv::EImageFormat format) {
    constexpr const char* names[] = {"none", "BMP", "PNG", "JPEG", "TIFF"};
    return names[static_cast<size_t>(format)];
}

Exit info(const Options& options) {
    const qv::TSharedPtr<qv::IFile> file = openInput(options.input);
    const qv::SImageInfo found = infoOf(file, options.input);
    qv::SRadiometricInfo carried;
    if (found.format == qv::EImageFormat::jpeg) (void)qv::GetRadiometricInfo(file, carried);
    const std::string values =
        found.dataType == qv::EDataType::none ? "" : narrow(qv::DataTypeToPixelType(found.dataType));
    if (options.json) {
        Json::document("qv.image.1")
            .set("file", options.input)
            .set("format", formatName(found.format))
            .set("width", found.width)
            .set("height", found.height)
            .set("bitsPerSample", found.bitsPerSample)
            .set("samples", found.samples)
            .set("palette", found.palette)
            .set("pages", found.pages)
            .set("values", values.empty() ? Json() : Json(values))
            .set("measurementBytes", carried.payloadSize)
            .print(std::cout);
        return Exit::done;
    }
    std::cout << options.input << ": " << formatName(found.format) << ", " << found.width << " x " << found.height
              << " pixels, " << found.samples << " x " << found.bitsPerSample << " bits"
              << (found.palette ? " with a palette" : "");
    if (found.pages > 1) std::cout << ", " << found.pages << " pages";
    if (!values.empty()) std::cout << ", values as " << values;
    if (carried.IsMeasurement()) std::cout << ", with a measurement of " << carried.payloadSize << " B";
    std::cout << '\n';
    return Exit::done;
}

Exit convert(const Options& options) {
    const qv::TSharedPtr<qv::IFile> file = openInput(options.input);
    const qv::SImageInfo found = infoOf(file, options.input);
    qv::CPropertyArray properties;
    if (!options.background.empty()) properties.SetValue(u"BackgroundColor", wide(options.background));
    if (!options.compression.empty()) properties.SetValue(u"compression", wide(options.compression));
    if (options.quality) properties.SetValue(u"quality", wide(std::to_string(*options.quality)));
    if (options.bits) properties.SetValue(u"bits", wide(std::to_string(*options.bits)));
    Bitmap picture;
    qv::ClearDiagnostic();
    if (!qv::LoadBitmapW(file, properties, picture.pixels)) {
        throw diagnosed(Exit::damaged, options.input, "cannot be decoded");
    }
    if (found.bitsPerSample > 8) remark("qv: " + options.input + ": its values become colours of 8 bits");
    if (found.pages > 1) remark("qv: " + options.input + ": of several pages the first is taken");
    qv::SRadiometricInfo carried;
    if (found.format == qv::EImageFormat::jpeg && qv::GetRadiometricInfo(file, carried) && carried.payloadSize > 0) {
        remark("qv: " + options.input + ": its " + std::to_string(carried.payloadSize) +
               " B of measurement do not go along");
    }
    writeBitmap(picture.pixels.handle, options.output, options.force, nullptr, properties);
    std::cout << options.output << ": " << found.width << " x " << found.height << " pixels\n";
    return Exit::done;
}

}  // namespace

void addImage(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* image = addCommand(root, "image", "Look at pictures and bring them into another format.",
                                 "  qv image info photo.jpg\n"
                                 "  qv image convert scan.tif scan.png",
                                 nullptr);
    image->require_subcommand(1);
    CLI::App* verb = addCommand(*image, "info", "Say what a picture is.",
                                "  qv image info photo.jpg\n"
                                "  qv image info stack.tif --json",
                                [options] { return info(*options); });
    verb->add_option("picture", options->input, "BMP, PNG, JPEG or TIFF")->required();
    verb->add_flag("--json", options->json, "As JSON");
    verb = addCommand(*image, "convert", "Write a picture in the format that the output's ending names.",
                      "  qv image convert scan.tif scan.png\n"
                      "  qv image convert icon.png icon.bmp --background \"#204060\" --bits 8",
                      [options] { return convert(*options); });
    verb->add_option("picture", options->input, "BMP, PNG, JPEG or TIFF")->required();
    verb->add_option("output", options->output, "Ending in .png, .jpg, .tif; anything else is a BMP")->required();
    verb->add_option("--quality", options->quality, "Of a JPEG, 0 to 100")->check(CLI::Range(0, 100));
    verb->add_option("--background", options->background, "Colour behind what is transparent, as #RRGGBB (white)");
    verb->add_option("--bits", options->bits, "Bits of a BMP's pixel")->check(CLI::IsMember({1, 4, 8, 16, 24, 32}));
    verb->add_option("--compression", options->compression, "zlib's level of a PNG, 0 to 9; \"rle\" for a BMP");
    verb->add_flag("--force", options->force, "Replace the output when it exists");
}

}  // namespace tool
