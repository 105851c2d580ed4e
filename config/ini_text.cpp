#include "config/ini_text.h"

#include "config/path.h"
#include "core/text.h"

namespace qv::Private {

namespace {

std::string_view trimmed(std::string_view part) {
    while (!part.empty() && text::isSpace(part.front())) part.remove_prefix(1);
    while (!part.empty() && text::isSpace(part.back())) part.remove_suffix(1);
    return part;
}

bool beginsComment(char ch) { return ch == ';' || ch == '#'; }

/// No character takes more units in UTF-16 than in UTF-8.
void convertTo(std::u16string& wide, std::string_view utf8) {
    wide.resize(utf8.size());
    wide.resize(text::convert(utf8, wide.data(), wide.size()));
}

std::string quoted(std::string_view utf8) {
    std::string all = "\"";
    for (const char ch : utf8) {
        switch (ch) {
            case '\n': all += "\\n"; break;
            case '\r': all += "\\r"; break;
            case '"':
            case '\\': all += '\\'; [[fallthrough]];
            default: all += ch;
        }
    }
    return all += '"';
}

/// In quotes where the text would not read back as it stands, or has one of `special`.
std::string quotedIf(std::u16string_view wide, std::string_view special) {
    std::string utf8 = text::toUtf8(wide);
    // U+FEFF at the front of a file would be its byte-order mark.
    const bool plain = trimmed(utf8).size() == utf8.size() && !utf8.starts_with('"') &&
                       !utf8.starts_with("\xEF\xBB\xBF") && utf8.find_first_of("\r\n") == utf8.npos &&
                       utf8.find_first_of(special) == utf8.npos;
    return plain ? utf8 : quoted(utf8);
}

}  // namespace

size_t IniLine::skipSpace(size_t at) const {
    while (at < body.size() && text::isSpace(body[at])) ++at;
    return at;
}

/// Reads the text in quotes that begins at `at`, which is moved behind it; false when there is none.
bool IniLine::takeQuoted(size_t& at) {
    if (at >= body.size() || body[at] != '"') return false;
    m_unquoted.clear();
    for (size_t i = at + 1; i < body.size(); ++i) {
        if (body[i] == '"') {
            at = i + 1;
            return true;
        }
        const char escape = body[i] == '\\' && i + 1 < body.size() ? body[i + 1] : '\0';
        switch (escape) {
            case 'n': m_unquoted += '\n'; break;
            case 'r': m_unquoted += '\r'; break;
            case 't': m_unquoted += '\t'; break;
            case '"':
            case '\\': m_unquoted += escape; break;
            default: m_unquoted += body[i]; continue;
        }
        ++i;
    }
    return false;
}

/// False for a path that no store can have.
bool IniLine::setPath(std::string_view utf8) {
    convertTo(m_wide, utf8);
    const NormalPath normal(m_wide);
    if (namesIn(normal.view()) > IConfigStore::maxNames) return false;
    path = normal.view();
    return true;
}

/// A header; `at` is behind its bracket.
void IniLine::readHeader(size_t at) {
    at = skipSpace(at);
    size_t close = at;
    const bool isQuoted = takeQuoted(close);
    close = skipSpace(close);
    std::string_view name = m_unquoted;
    if (!isQuoted || close == body.size() || body[close] != ']') {
        close = body.find(']', at);
        if (close == body.npos) return;
        name = trimmed(body.substr(at, close - at));
    }
    if (setPath(name)) kind = Kind::header;
}

/// A line with a name, which begins at `at`.
void IniLine::readValue(size_t at) {
    size_t equals = at;
    const bool isQuotedName = takeQuoted(equals);
    equals = skipSpace(equals);
    std::string_view name = m_unquoted;
    if (!isQuotedName || equals == body.size() || body[equals] != '=') {
        equals = body.find('=', at);
        if (equals == body.npos) return;
        name = trimmed(body.substr(at, equals - at));
    }
    if (!setPath(name) || path.empty()) return;
    kind = Kind::value;
    textBegin = textEnd = skipSpace(equals + 1);
    const bool isQuoted = takeQuoted(textEnd);
    const size_t behind = skipSpace(textEnd);
    std::string_view value = m_unquoted;
    if (!isQuoted || (behind != body.size() && !beginsComment(body[behind]))) {
        value = trimmed(body.substr(textBegin));
        textEnd = textBegin + value.size();
    }
    convertTo(text, value);
}

void IniLine::take(std::string_view& rest) {
    const size_t feed = rest.find('\n');
    whole = rest.substr(0, feed == rest.npos ? feed : feed + 1);
    body = rest.substr(0, feed);
    if (feed != rest.npos && body.ends_with('\r')) body.remove_suffix(1);
    rest.remove_prefix(whole.size());
    kind = Kind::other;
    const size_t at = skipSpace(0);
    if (at == body.size()) {
        kind = Kind::blank;
    } else if (body[at] == '[') {
        readHeader(at + 1);
    } else if (beginsComment(body[at])) {
        kind = Kind::comment;
    } else {
        readValue(at);
    }
}

std::string iniName(std::u16string_view name) { return quotedIf(name, "=[;#"); }
std::string iniValue(std::u16string_view value, bool quote) {
    return quote ? quoted(text::toUtf8(value)) : quotedIf(value, ";#");
}
std::string iniHeader(std::u16string_view path) {
    std::string header(1, '[');
    return header.append(quotedIf(path, "]")).append(1, ']');
}

}  // namespace qv::Private
