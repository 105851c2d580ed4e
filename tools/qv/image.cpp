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

/// What is missing of a picture, as a sentence; empty for nothing. Behind infoOf() at once.
std::string problemOf(const qv::SImageInfo& found, const std::string& path) {
    return found.whole ? "" : diagnosed(Exit::damaged, path, "is not whole").what();
}

std::string formatName(qv::EImageFormat format) {
    constexpr const char* names[] = {"none", "BMP", "PNG", "JPEG", "TIFF"};
    return names[static_cast<size_t>(format)];
}

Exit info(const Options& options) {
    const qv::TSharedPtr<qv::IFile> file = openInput(options.input);
    const qv::SImageInfo found = infoOf(file, options.input);
    const std::string problem = problemOf(found, options.input);
    const Exit result = problem.empty() ? Exit::done : Exit::damaged;
    if (!problem.empty()) std::cerr << "qv: " << problem << '\n';
    qv::SRadiometricInfo carried;
    if (found.format == qv::EImageFormat::jpeg) (void)qv::GetRadiometricInfo(file, carried);
    const std::string values =
        found.dataType == qv::EDataType::none ? "" : narrow(qv::DataTypeToPixelType(found.dataType));
    if (options.json) {
        Json facts = Json::document("qv.image.1");
        facts.set("file", options.input)
            .set("format", formatName(found.format))
            .set("width", found.width)
            .set("height", found.height)
            .set("bitsPerSample", found.bitsPerSample)
            .set("samples", found.samples)
            .set("palette", found.palette)
            .set("pages", found.pages)
            .set("values", values.empty() ? Json() : Json(values))
            .set("measurementBytes", carried.payloadSize);
        if (!problem.empty()) facts.set("problem", problem);
        facts.print(std::cout);
        return result;
    }
    std::cout << options.input << ": " << formatName(found.format) << ", " << found.width << " x " << found.height
              << " pixels, " << found.samples << " x " << found.bitsPerSample << " bits"
              << (found.palette ? " with a palette" : "");
    if (found.pages > 1) std::cout << ", " << found.pages << " pages";
    if (!values.empty()) std::cout << ", values as " << values;
    if (carried.IsMeasurement()) std::cout << ", with a measurement of " << carried.payloadSize << " B";
    std::cout << '\n';
    return result;
}

[[noreturn]] void refuse(const std::string& sentence) { throw Failure(Exit::usage, sentence); }

/// Options of formats that the output is not of, and values that would be passed over.
void checkOptions(const Options& options) {
    const std::string ending = endingOf(options.output), to = ": " + options.output + " becomes ";
    const bool jpeg = ending == ".jpg" || ending == ".jpeg", png = ending == ".png";
    const bool bmp = !jpeg && !png && ending != ".tif" && ending != ".tiff";
    const std::string format = jpeg ? "a JPEG" : png ? "a PNG" : bmp ? "a BMP" : "a TIFF";
    if (options.quality && !jpeg) refuse("--quality" + to + format + ", and only a JPEG has one");
    if (options.bits && !bmp) refuse("--bits" + to + format + ", and only a BMP takes another depth");
    const std::string& way = options.compression;
    if (!way.empty() && !png && !bmp) refuse("--compression" + to + format + ", and only a PNG or a BMP takes one");
    if (!way.empty() && png && (way.size() != 1 || way < "0" || way > "9")) {
        refuse("--compression: \"" + way + "\" is none of a PNG's levels, 0 to 9");
    }
    if (!way.empty() && bmp && way != "rle") refuse("--compression: \"" + way + "\" is not a BMP's, which is rle");
    if (!way.empty() && bmp && options.bits != 4 && options.bits != 8) {
        refuse("--compression rle: goes with --bits 4 or 8");
    }
    const std::string& colour = options.background;
    const bool isColour = colour.size() == 7 && colour[0] == '#' &&
                          colour.find_first_not_of("0123456789abcdefABCDEF", 1) == std::string::npos;
    if (!colour.empty() && !isColour) refuse("--background: \"" + colour + "\" is not of the form #RRGGBB");
}

Exit convert(const Options& options) {
    checkOptions(options);
    const qv::TSharedPtr<qv::IFile> file = openInput(options.input);
    const qv::SImageInfo found = infoOf(file, options.input);
    const std::string problem = problemOf(found, options.input);
    if (found.dataType == qv::EDataType::flt32 || found.dataType == qv::EDataType::flt64) {
        throw Failure(Exit::wrongKind, options.input +
                                           ": its values are floats and no colours (qv import makes a "
                                           "recording of them, and qv render draws that)");
    }
    qv::CPropertyArray properties;
    if (!options.background.empty()) properties.SetValue(u"BackgroundColor", wide(options.background));
    if (!options.compression.empty()) properties.SetValue(u"compression", wide(options.compression));
    if (options.quality) properties.SetValue(u"quality", wide(std::to_string(*options.quality)));
    if (options.bits) properties.SetValue(u"bits", wide(std::to_string(*options.bits)));
    Bitmap picture;
    qv::ClearDiagnostic();
    if (!qv::LoadBitmapW(file, properties, picture.pixels)) {
        if (!problem.empty() && found.format != qv::EImageFormat::tiff) throw Failure(Exit::damaged, problem);
        throw diagnosed(Exit::damaged, options.input, "cannot be decoded");
    }
    // A fault that cost no pixel.
    if (qv::LastDiagnostic().IsSet()) remark(std::string("qv: ") + diagnosed(Exit::done, options.input, "").what());
    if (!problem.empty()) std::cerr << "qv: warning: " << problem << '\n';
    if (!options.background.empty() && found.format != qv::EImageFormat::png) {
        remark("qv: " + options.input + ": --background is for what is transparent in a PNG");
    }
    if (found.bitsPerSample > 8) remark("qv: " + options.input + ": its values become colours of 8 bits");
    if (found.pages > 1) remark("qv: " + options.input + ": of several pages the first is taken");
    qv::SRadiometricInfo carried;
    if (found.format == qv::EImageFormat::jpeg && qv::GetRadiometricInfo(file, carried) && carried.payloadSize > 0) {
        remark("qv: " + options.input + ": its " + std::to_string(carried.payloadSize) +
               " B of measurement do not go along");
    }
    qv::ClearDiagnostic();
    if (options.bits && *options.bits <= 8 &&
        !qv::SaveBMP(picture.pixels.handle, qv::TSharedPtr<qv::IFile>(qv::CMemFile::Create()), properties)) {
        throw diagnosed(Exit::usage, "--bits", "has more colours");
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
