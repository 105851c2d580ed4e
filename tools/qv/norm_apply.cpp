// qv norm apply: a recording corrected pixel by pixel.
#include <iostream>
#include <memory>
#include <optional>

#include "command.h"
#include "frame_pool.h"
#include "json.h"
#include "norm_commands.h"
#include "norm_correction.h"
#include "norm_table.h"
#include "qv/diagnostic.h"
#include "recording.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

using qv::CNormFile;
using qv::EDataType;

struct Options {
    std::string recording;
    std::string gain;
    std::string offset;
    std::string bad;
    std::string output;
    bool asFloats = false;
    bool force = false;
    bool json = false;
};

/// What a frame is corrected by. Absent tables correct nothing.
struct Tables {
    std::optional<NormTable> gain;
    std::optional<NormTable> offset;
    std::optional<NormTable> bad;
    Substitution substitution;
    MapCounts counts;

    const float* gains() { return gain ? gain->norm.GetGains() : nullptr; }
    const int16_t* offsets() { return offset ? offset->norm.GetOffsets() : nullptr; }
};

NormTable loadFitting(const std::string& path, CNormFile::FILE_TYPE type, const Recording& recording) {
    NormTable table = loadNorm(path, type);
    if (table.norm.xPixels() == recording.layout().width && table.norm.yPixels() == recording.layout().height) {
        return table;
    }
    throw Failure(Exit::negative, path + ": is a table of " + std::to_string(table.norm.xPixels()) + " x " +
                                      std::to_string(table.norm.yPixels()) + " pixels, and the frames of " +
                                      recording.path() + " have " + std::to_string(recording.layout().width) + " x " +
                                      std::to_string(recording.layout().height));
}

Tables loadTables(const Options& options, const Recording& recording) {
    Tables tables;
    if (!options.gain.empty()) tables.gain = loadFitting(options.gain, CNormFile::TYPE_GAIN, recording);
    if (!options.offset.empty()) tables.offset = loadFitting(options.offset, CNormFile::TYPE_OFFSET, recording);
    if (!options.bad.empty()) {
        tables.bad = loadFitting(options.bad, CNormFile::TYPE_BAD_PIXEL, recording);
        const CNormFile::BPINFO map = tables.bad->norm.GetBadPixels();
        tables.substitution = Substitution(map.subs, tables.bad->pixels());
        tables.counts = countFlags(map, tables.bad->pixels());
    }
    return tables;
}

/// The element that an output is written in.
using Convert = void (*)(const void* counts, void* out, size_t count, Tables& tables, Substitution& substitution,
                         Rounded& rounded);
template <class From, class To>
void correctFrame(const void* counts, void* out, size_t count, Tables& tables, Substitution& substitution,
                  Rounded& rounded) {
    auto* const to = static_cast<To*>(out);
    correct(static_cast<const From*>(counts), to, count, tables.gains(), tables.offsets(), rounded);
    substitution.apply(to);
}
template <class From>
Convert conversion(bool asFloats) {
    return asFloats ? &correctFrame<From, float> : &correctFrame<From, From>;
}
Convert conversionOf(EDataType type, bool asFloats, const std::string& path) {
    switch (type) {
        case EDataType::int8: return conversion<int8_t>(asFloats);
        case EDataType::uint8: return conversion<uint8_t>(asFloats);
        case EDataType::int16: return conversion<int16_t>(asFloats);
        case EDataType::uint16: return conversion<uint16_t>(asFloats);
        case EDataType::int32: return conversion<int32_t>(asFloats);
        case EDataType::uint32: return conversion<uint32_t>(asFloats);
        case EDataType::flt32: return conversion<float>(asFloats);
        case EDataType::flt64: return conversion<double>(asFloats);
        default: throw Failure(Exit::wrongKind, path + ": frames of " + elementWord(type) + " cannot be corrected");
    }
}

/// What one thread does with the frames that fall to it.
class Worker {
public:
    Worker(const Recording& source, Convert convert, Tables& tables, const Layout& result, const Target& target,
           int64_t position)
        : m_reader(source),
          m_convert(convert),
          m_tables(tables),
          m_substitution(tables.substitution),
          m_result(result),
          m_target(target),
          m_out(target.open()),
          m_position(position),
          m_counts(source.layout().frameBytes()),
          m_values(result.frameBytes()) {}

    void operator()(uint32_t frame) {
        m_reader.read(frame, m_counts.data());
        m_convert(m_counts.data(), m_values.data(), m_result.pixels(), m_tables, m_substitution, m_rounded);
        m_out->SetPosition(m_position + int64_t{frame} * m_result.frameBytes());
        if (!m_out->WriteBytes(m_values.data(), m_result.frameBytes())) {
            throw Failure(Exit::io, m_target.temporary() + ": cannot be written (is the disk full?)");
        }
    }
    const Rounded& rounded() const { return m_rounded; }

private:
    FrameReader m_reader;
    Convert m_convert;
    Tables& m_tables;
    Substitution m_substitution;
    const Layout& m_result;
    const Target& m_target;
    qv::TSharedPtr<qv::IFile> m_out;
    int64_t m_position;
    std::vector<std::byte> m_counts;
    std::vector<std::byte> m_values;
    Rounded m_rounded;
};

/// The source's header with the result's layout and the tables' names.
void writeHeader(const Recording& source, const Layout& result, const Options& options, qv::CSAFFile& header) {
    source.header().MakeDuplicate(header);
    const std::string keyword = source.tag(u"KeyWrd");
    setLayoutTags(header, result);
    if (!keyword.empty()) header[u"KeyWrd"] = wide(keyword).c_str();
    for (const auto& [name, path] :
         {std::pair{u"CGFile", &options.gain}, {u"COFile", &options.offset}, {u"BPFile", &options.bad}}) {
        if (!path->empty()) header[name] = wide(nameForTag(*path)).c_str();
    }
}

void report(const Options& options, const Recording& source, const Layout& result, const Tables& tables,
            const Rounded& rounded) {
    const uint64_t pixels = uint64_t{result.frames} * result.pixels();
    const uint64_t clipped = rounded.below + rounded.above;
    const bool floats = result.type == EDataType::flt32 || result.type == EDataType::flt64;
    if (options.json) {
        Json facts = Json::document("qv.norm.apply.1");
        facts.set("recording", source.path()).set("output", options.output).set("frames", result.frames);
        facts.set("type", elementWord(result.type)).set("pixels", pixels).set("rounded", !floats);
        facts.set("clippedBelow", rounded.below)
            .set("clippedAbove", rounded.above)
            .set("withoutValue", rounded.undefined);
        facts.set("substitutedPerFrame", static_cast<uint64_t>(tables.substitution.size()));
        facts.set("badWithoutSubstitute", tables.counts.withoutSubstitute).print(std::cout);
        return;
    }
    std::cout << options.output << ": " << result.frames << " frames of " << result.width << " x " << result.height
              << ", counts" << (tables.gain ? " * gain" : "") << (tables.offset ? " + offset" : "") << " as "
              << elementWord(result.type) << '\n';
    if (floats) {
        std::cout << "  neither rounded nor clipped\n";
    } else {
        std::cout << "  rounded to the nearest whole count, halves to even; clipped to the type's range: "
                  << share(clipped, pixels) << ", " << rounded.below << " below and " << rounded.above << " above\n";
        if (rounded.undefined != 0)
            std::cout << "  no numbers, written as 0: " << share(rounded.undefined, pixels) << '\n';
    }
    if (!tables.bad) return;
    std::cout << "  substituted: " << share(tables.substitution.size(), result.pixels()) << " pixels a frame";
    if (tables.counts.withoutSubstitute != 0) {
        std::cout << "; " << tables.counts.withoutSubstitute << " bad ones have no substitute and stay";
    }
    std::cout << '\n';
}

Exit apply(const Options& options) {
    if (options.gain.empty() && options.offset.empty() && options.bad.empty()) {
        throw Failure(Exit::usage, "apply: at least one of --gain, --offset and --bad says what to correct");
    }
    const Recording source(options.recording);
    Layout result = source.layout();
    const bool asFloats = options.asFloats && result.type != EDataType::flt64;
    const Convert convert = conversionOf(result.type, asFloats, options.recording);
    if (asFloats) result.type = EDataType::flt32;
    Tables tables = loadTables(options, source);
    Target target(options.output, options.force);
    qv::CSAFFile header;
    writeHeader(source, result, options, header);
    uint32_t position = 0;
    qv::ClearDiagnostic();
    header.SaveTo(target.open(), position, true);
    if (qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, options.output, "cannot be written");
    Rounded total;
    overFrames(
        source, "apply", [&] { return Worker(source, convert, tables, result, target, position); },
        [&total](const Worker& worker) {
            total.below += worker.rounded().below;
            total.above += worker.rounded().above;
            total.undefined += worker.rounded().undefined;
        });
    target.commit();
    report(options, source, result, tables, total);
    return Exit::done;
}

}  // namespace

void addNormApply(CLI::App& norm) {
    auto options = std::make_shared<Options>();
    CLI::App* verb =
        addCommand(norm, "apply",
                   "Correct a recording: counts * gain + offset, then each bad pixel takes the value of its "
                   "substitute. The result "
                   "has the elements of the recording; whole ones are rounded to the nearest (halves to even) and "
                   "clipped to their "
                   "range, and what was clipped is counted.",
                   "  qv norm apply run7.saf --gain mw1.gain --offset mw1.offset --bad mw1.bad -o even.saf\n"
                   "  qv norm apply run7.saf --bad mw1.bad --float -o even.saf",
                   [options] { return apply(*options); });
    verb->add_option("recording", options->recording, "Recording of counts")->required();
    verb->add_option("--gain", options->gain, "Gain table");
    verb->add_option("--offset", options->offset, "Offset table");
    verb->add_option("--bad", options->bad, "Bad-pixel table");
    verb->add_option("-o,--output", options->output, "Recording to write")->required();
    verb->add_flag("--float", options->asFloats, "Write 32-bit floats, neither rounded nor clipped");
    verb->add_flag("--force", options->force, "Replace the output when it exists");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
