#include "platform/text.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace qv::platform {

namespace {

/// Windows numbers whose iconv name is not "CP" and the number, or where that name means another page.
struct NamedPage {
    unsigned number;
    const char* name;
};
constexpr NamedPage namedPages[] = {
    {10000, "MACINTOSH"},   {20127, "US-ASCII"},   {20866, "KOI8-R"},      {20932, "EUC-JP"},
    {21866, "KOI8-U"},      {28591, "ISO-8859-1"}, {28592, "ISO-8859-2"},  {28593, "ISO-8859-3"},
    {28594, "ISO-8859-4"},  {28595, "ISO-8859-5"}, {28596, "ISO-8859-6"},  {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},  {28599, "ISO-8859-9"}, {28603, "ISO-8859-13"}, {28605, "ISO-8859-15"},
    {50220, "ISO-2022-JP"}, {51932, "EUC-JP"},     {51949, "EUC-KR"},      {54936, "GB18030"},
    {65000, "UTF-7"},
};

std::string iconvName(unsigned codePage) {
    for (const NamedPage& page : namedPages) {
        if (page.number == codePage) return page.name;
    }
    return "CP" + std::to_string(codePage);
}

/// One conversion by iconv. What cannot be converted goes through `skip`, which moves past the offending input and
/// appends a substitute.
class Converter {
public:
    Converter(const std::string& to, const std::string& from) : m_handle(iconv_open(to.c_str(), from.c_str())) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() {
        if (isOpen()) iconv_close(m_handle);
    }
    bool isOpen() const { return m_handle != reinterpret_cast<iconv_t>(-1); }

    /// Appends the conversion of `bytes` to `out`, in bytes.
    template <class Skip>
    void run(std::string_view bytes, std::string& out, Skip skip) {
        char* at = const_cast<char*>(bytes.data());
        size_t left = bytes.size();
        while (left != 0) {
            if (step(&at, &left, out)) continue;
            const size_t skipped = std::min(left, skip(at, left, out));
            at += skipped, left -= skipped;
        }
        step(nullptr, nullptr, out);  // Back to the initial shift state.
    }

private:
    /// False when the input at `at` cannot be converted.
    bool step(char** at, size_t* left, std::string& out) {
        char buffer[4096];
        char* end = buffer;
        size_t room = sizeof(buffer);
        const size_t result = iconv(m_handle, at, left, &end, &room);
        const bool stuck = result == static_cast<size_t>(-1) && errno != E2BIG;
        out.append(buffer, end);
        return !stuck;
    }

    iconv_t m_handle;
};

bool decodeFrom(const std::string& charset, std::string_view bytes, std::u16string& utf16) {
    Converter converter("UTF-16LE", charset);
    if (!converter.isOpen()) return false;
    std::string units;
    converter.run(bytes, units, [](const char*, size_t, std::string& out) {
        out += "\xFD\xFF";
        return size_t{1};
    });
    utf16.reserve(utf16.size() + units.size() / 2);
    for (size_t i = 0; i + 1 < units.size(); i += 2) {
        utf16 +=
            static_cast<char16_t>(static_cast<unsigned char>(units[i]) | static_cast<unsigned char>(units[i + 1]) << 8);
    }
    return true;
}

}  // namespace

bool decodeCodePage(unsigned codePage, std::string_view bytes, std::u16string& utf16) {
    return decodeFrom(iconvName(codePage), bytes, utf16);
}

bool decodeCharset(std::string_view name, std::string_view bytes, std::u16string& utf16) {
    // A slash would begin options of the converter.
    return !name.empty() && name.find('/') == std::string_view::npos && decodeFrom(std::string(name), bytes, utf16);
}

bool encodeCodePage(unsigned codePage, std::u16string_view utf16, std::string& bytes) {
    Converter converter(iconvName(codePage), "UTF-16LE");
    if (!converter.isOpen()) return false;
    std::string units;
    units.reserve(utf16.size() * 2);
    for (const char16_t unit : utf16) {
        units += static_cast<char>(unit & 0xFF);
        units += static_cast<char>(unit >> 8);
    }
    converter.run(units, bytes, [](const char* at, size_t left, std::string& out) {
        out += '?';
        const bool isPair = left >= 4 && (at[1] & 0xFC) == 0xD8 && (at[3] & 0xFC) == 0xDC;
        return size_t{isPair ? 4u : 2u};
    });
    return true;
}

}  // namespace qv::platform
