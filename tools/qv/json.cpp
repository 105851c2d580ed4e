#include "json.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "text.h"

namespace tool {

Json::Json(double value) : m_text(std::isfinite(value) ? exact(value) : "null") {}

std::string Json::quoted(const std::string& text) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (!std::all_of(text.begin(), text.end(), isAscii)) {
        // There and back, what is no UTF-8 becomes U+FFFD.
        const std::string valid(qv::CStringMB(wide(text).view()).view());
        if (valid != text) return quoted(valid);
    }
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

void Json::print(std::ostream& out, int indent) const {
    if (m_kind == Kind::scalar) {
        out << m_text;
    } else if (m_members.empty()) {
        out << (m_kind == Kind::object ? "{}" : "[]");
    } else {
        const std::string pad(static_cast<size_t>(indent) + 2, ' ');
        out << (m_kind == Kind::object ? "{" : "[");
        for (size_t i = 0; i < m_members.size(); ++i) {
            out << (i == 0 ? "\n" : ",\n") << pad;
            if (m_kind == Kind::object) out << quoted(m_members[i].first) << ": ";
            m_members[i].second.print(out, indent + 2);
        }
        out << '\n' << std::string(static_cast<size_t>(indent), ' ') << (m_kind == Kind::object ? '}' : ']');
    }
    if (indent == 0) out << '\n';
}

void Json::printLine(std::ostream& out) const {
    printCompact(out);
    out << '\n';
}

void Json::printCompact(std::ostream& out) const {
    if (m_kind == Kind::scalar) {
        out << m_text;
        return;
    }
    out << (m_kind == Kind::object ? '{' : '[');
    for (size_t i = 0; i < m_members.size(); ++i) {
        if (i != 0) out << ", ";
        if (m_kind == Kind::object) out << quoted(m_members[i].first) << ": ";
        m_members[i].second.printCompact(out);
    }
    out << (m_kind == Kind::object ? '}' : ']');
}

}  // namespace tool
