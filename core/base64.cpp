#include "qv/base64.h"

#include <array>
#include <cstdint>
#include <limits>
#include <new>

namespace qv {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int charactersPerLine = 76;
constexpr uint8_t skipped = 0xFF;
constexpr uint8_t padding = 0x40;

/// What each ASCII character stands for: its six bits, `padding` for '=', `skipped` for the rest.
constexpr std::array<uint8_t, 128> meanings = [] {
    std::array<uint8_t, 128> table{};
    table.fill(skipped);
    for (uint8_t i = 0; i < 64; ++i) table[static_cast<uint8_t>(alphabet[i])] = i;
    table['='] = padding;
    return table;
}();

constexpr uint8_t meaningOf(char16_t ch) { return ch < 128 ? meanings[ch] : skipped; }

/// Calls `group(bytes, count)` for each complete group of four characters, until it returns false.
template <class Group>
void forEachGroup(const CString& text, Group group) {
    uint8_t quad[4];
    int filled = 0;
    const char16_t* at = text.c_str();
    for (const char16_t* const end = at + text.GetLength(); at != end; ++at) {
        const uint8_t meaning = meaningOf(*at);
        if (meaning == skipped) continue;
        quad[filled++] = meaning;
        if (filled < 4) continue;
        filled = 0;
        const size_t count = size_t{3} - (quad[2] == padding ? 1 : 0) - (quad[3] == padding ? 1 : 0);
        const auto bits =
            static_cast<uint32_t>((quad[0] & 63) << 18 | (quad[1] & 63) << 12 | (quad[2] & 63) << 6 | (quad[3] & 63));
        const uint8_t bytes[3] = {static_cast<uint8_t>(bits >> 16), static_cast<uint8_t>(bits >> 8),
                                  static_cast<uint8_t>(bits)};
        if (!group(bytes, count)) return;
    }
}

char16_t* putGroup(char16_t* to, const uint8_t* from, size_t count) {
    const uint32_t bits = static_cast<uint32_t>(from[0]) << 16 | (count > 1 ? static_cast<uint32_t>(from[1]) << 8 : 0) |
                          (count > 2 ? from[2] : 0u);
    *to++ = static_cast<char16_t>(alphabet[bits >> 18]);
    *to++ = static_cast<char16_t>(alphabet[bits >> 12 & 63]);
    *to++ = count > 1 ? static_cast<char16_t>(alphabet[bits >> 6 & 63]) : u'=';
    *to++ = count > 2 ? static_cast<char16_t>(alphabet[bits & 63]) : u'=';
    return to;
}

char16_t* putLineBreak(char16_t* to) {
    *to++ = u'\r';
    *to++ = u'\n';
    return to;
}

}  // namespace

CString Base64Encode(const void* data, size_t size) {
    constexpr size_t longestText = std::numeric_limits<int32_t>::max() - 1;
    if (size > longestText || Base64EncodedLength(size) > longestText) throw std::bad_alloc();
    const auto length = static_cast<int>(Base64EncodedLength(size));
    CString text;
    char16_t* to = text.GetBuffer(length);
    const auto* from = static_cast<const uint8_t*>(data);
    int inLine = 0;
    for (size_t left = size; left != 0;) {
        const size_t count = left < 3 ? left : 3;
        to = putGroup(to, from, count);
        from += count;
        left -= count;
        inLine += 4;
        if (inLine == charactersPerLine) {
            to = putLineBreak(to);
            inLine = 0;
        }
    }
    *putLineBreak(to) = u'\0';
    text.ReleaseBuffer();
    return text;
}

size_t Base64DecodedSize(const CString& text) {
    size_t size = 0;
    forEachGroup(text, [&](const uint8_t*, size_t count) {
        size += count;
        return true;
    });
    return size;
}

size_t Base64Decode(const CString& text, void* destination) {
    size_t written = 0;
    (void)Base64Decode(text, destination, std::numeric_limits<size_t>::max(), written);
    return written;
}

bool Base64Decode(const CString& text, void* destination, size_t capacity, size_t& written) {
    auto* const to = static_cast<uint8_t*>(destination);
    written = 0;
    bool fits = true;
    forEachGroup(text, [&](const uint8_t* bytes, size_t count) {
        for (size_t i = 0; i < count && fits; ++i) {
            fits = written < capacity;
            if (fits) to[written++] = bytes[i];
        }
        return fits;
    });
    return fits;
}

bool Base64Decode(const CString& text, TSimpleArray<char>& bytes) {
    bytes.Empty();
    const size_t size = Base64DecodedSize(text);
    if (size > std::numeric_limits<uint32_t>::max() || !bytes.SetSize(static_cast<uint32_t>(size))) return false;
    if (size != 0) (void)Base64Decode(text, bytes.data());
    return true;
}

}  // namespace qv
