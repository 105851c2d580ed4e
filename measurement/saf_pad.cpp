#include "measurement/saf_pad.h"

#include <string_view>

namespace qv::safPad {

namespace {

constexpr std::string_view name = "saf_padding ";
constexpr std::string_view lineEnd = "\r\n";
/// The text of the lines, in rotation.
constexpr std::string_view texts[] = {
    "The pad tag is used to    ", "reserve space for newly   ", "added tags which limits   ",
    "the need for file rewrites", "and improves performance  ",
};
constexpr uint32_t textBytes = 26;
constexpr uint32_t frameBytes = static_cast<uint32_t>(name.size() + lineEnd.size());
constexpr uint32_t lineBytes = frameBytes + textBytes;
static_assert(frameBytes == 14 && lineBytes == 40);

}  // namespace

void append(std::string& out, uint32_t bytes) {
    const uint32_t full = bytes / lineBytes;
    const uint32_t rest = bytes % lineBytes;
    // What is left over becomes a short line when it can hold more than a line's frame, else blanks on the last full
    // one.
    const bool shortLine = rest > frameBytes;
    const uint32_t lines = full + (shortLine ? 1 : 0);
    for (uint32_t i = 0; i < lines; ++i) {
        const bool last = i + 1 == lines;
        out += name;
        out += texts[i % std::size(texts)].substr(0, last && shortLine ? rest - frameBytes : textBytes);
        if (last && !shortLine) out.append(rest, ' ');
        out += lineEnd;
    }
}

}  // namespace qv::safPad
