// The lines of an INI file.
#pragma once

#include <string>
#include <string_view>

namespace qv::Private {

/// One line, read. Views are into its text. To be used for one line after the other, since it keeps its buffers.
struct IniLine {
    enum class Kind { blank, comment, header, value, other };
    Kind kind = Kind::other;
    std::string_view whole;  ///< With its ending.
    std::string_view body;   ///< Without it.
    std::u16string path;     ///< Of a header or value: the normal path. That of a value is never empty.
    std::u16string text;     ///< Of a value: the text.
    size_t textBegin = 0;    ///< Of a value: where its text stands in the body, quotes included.
    size_t textEnd = 0;

    std::string_view ending() const { return whole.substr(body.size()); }
    /// Cuts the first line off `text`, which is not empty, and reads it.
    void take(std::string_view& text);

private:
    size_t skipSpace(size_t at) const;
    bool takeQuoted(size_t& at);
    bool setPath(std::string_view utf8);
    void readHeader(size_t at);
    void readValue(size_t at);

    std::string m_unquoted;
    std::u16string m_wide;
};

/// A name, a value and a section's path as they are written: in quotes where they need them, a value also on demand.
std::string iniName(std::u16string_view name);
std::string iniValue(std::u16string_view value, bool quote);
std::string iniHeader(std::u16string_view path);

}  // namespace qv::Private
