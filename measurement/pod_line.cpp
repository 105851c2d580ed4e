#include "measurement/pod_line.h"

#include <algorithm>
#include <array>

#include "core/text.h"

namespace qv::Private {

namespace {

constexpr std::string_view separators = "\t,; |\r";

constexpr std::array<bool, 256> separatorTable = [] {
    std::array<bool, 256> table{};
    for (const char c : separators) table[static_cast<unsigned char>(c)] = true;
    return table;
}();

bool isSeparator(char c) { return separatorTable[static_cast<unsigned char>(c)]; }
bool isSeparator(char16_t c) { return c < 0x80 && isSeparator(static_cast<char>(c)); }

}  // namespace

uint32_t splitPodLine(std::string_view line, std::vector<std::string_view>& fields) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    uint32_t count = 0;
    const char* at = line.data();
    const char* const end = at + line.size();
    for (;;) {
        while (at != end && isSeparator(*at)) ++at;
        if (at == end) break;
        const bool quoted = *at == '"';
        if (quoted) ++at;
        const char* const begin = at;
        at = quoted ? std::find(at, end, '"') : std::find_if(at, end, [](char c) { return isSeparator(c); });
        if (count < fields.size()) fields[count] = {begin, static_cast<size_t>(at - begin)};
        ++count;
        if (quoted && at != end) ++at;
    }
    for (size_t i = count; i < fields.size(); ++i) fields[i] = {};
    return count;
}

void appendPodField(std::string& out, std::string_view field) {
    const bool quoted = field.empty() || std::any_of(field.begin(), field.end(), [](char c) { return isSeparator(c); });
    if (quoted) out += '"';
    out += field;
    if (quoted) out += '"';
}

bool isPodText(std::u16string_view text) {
    if (text.find(u'\n') != text.npos || text.starts_with(u'"')) return false;
    if (text.find(u'"') == text.npos) return true;
    return std::none_of(text.begin(), text.end(), [](char16_t c) { return isSeparator(c); });
}

void copyPodText(char16_t* to, size_t room, std::u16string_view text) {
    text = text.substr(0, text.find(u'\0'));
    size_t count = std::min(text.size(), room - 1);
    const bool isHigh = count != 0 && (text[count - 1] & 0xFC00) == 0xD800;
    if (count < text.size() && isHigh) --count;
    std::copy_n(text.data(), count, to);
    to[count] = 0;
}

void decodePodText(char16_t* to, size_t room, std::string_view utf8) {
    if (utf8.size() >= room) return copyPodText(to, room, text::toUtf16(utf8));
    to[text::convert(utf8, to, room - 1)] = 0;
}

}  // namespace qv::Private
