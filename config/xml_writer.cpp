#include "config/xml_writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/text.h"
#include "qv/diagnostic.h"

namespace qv::Private {

namespace {

constexpr size_t bufferBytes = 0x40000;
/// Units of text that are converted at a time; each gives at most three bytes.
constexpr size_t chunkUnits = 0x4000;

/// What an ASCII character becomes; empty when it stays as it is. Line ends are written as references in attribute
/// values alone.
constexpr std::array<std::string_view, 128> escapes = [] {
    std::array<std::string_view, 128> table{};
    table['"'] = "&quot;";
    table['&'] = "&amp;";
    table['\''] = "&apos;";
    table['<'] = "&lt;";
    table['>'] = "&gt;";
    table['\n'] = "&#10;";
    table['\r'] = "&#13;";
    return table;
}();

bool isEscaped(char16_t ch, bool attribute) {
    return ch < 128 && !escapes[ch].empty() && (attribute || (ch != u'\n' && ch != u'\r'));
}

bool isHighSurrogate(char16_t ch) { return (ch & 0xFC00) == 0xD800; }
bool isLowSurrogate(char16_t ch) { return (ch & 0xFC00) == 0xDC00; }

}  // namespace

XmlWriter::XmlWriter(IFile& file) : m_file(file), m_buffer(new char[bufferBytes]) {}

void XmlWriter::flush() {
    const auto size = static_cast<uint32_t>(m_used);
    m_used = 0;
    if (m_failed || size == 0 || m_file.Write(m_buffer.get(), size) == size) return;
    m_failed = true;
    char16_t name[512];
    SetDiagnostic(CString(m_file.GetFilename(name, 512)), CString(u"room for an XML document"),
                  CString(u"a write that failed"), m_file.GetPosition());
}

void XmlWriter::writeTree(const CNode& top, size_t depth) {
    const CNode* node = &top;
    while (true) {
        if (open(*node, depth)) {
            node = node->m_firstChild;
            ++depth;
            continue;
        }
        while (node != &top && node->m_next == nullptr) {
            node = node->m_parent;
            close(*node, --depth);
        }
        if (node == &top) return;
        node = node->m_next;
    }
}

/// Writes a node up to its children, or the whole of one that has none. True when its children come next.
bool XmlWriter::open(const CNode& node, size_t depth) {
    // Text stands in the parent's value.
    if (node.type == CXMLFile::NODETYPE_TEXT || m_failed) return false;
    const bool instruction = node.type == CXMLFile::NODETYPE_PI;
    const bool comment = node.type == CXMLFile::NODETYPE_COMMENT;
    putTabs(depth);
    put(instruction ? "<?" : comment ? "<!--" : "<");
    if (!comment) putEncoded(node.name);
    writeAttributes(node);
    const bool empty = node.value.IsEmpty() && !node.HasChildren();
    if (instruction || (empty && !comment)) {
        put(instruction ? "?>\r\n" : "/>\r\n");
        return false;
    }
    if (comment) {
        putRaw(node.value);
    } else {
        put(">");
        if (!node.value.IsEmpty() && node.HasChildren()) {
            put("\r\n");
            putTabs(depth);
        }
        putEncoded(node.value);
    }
    if (node.HasChildren()) {
        put("\r\n");
        return true;
    }
    close(node, 0);
    return false;
}

void XmlWriter::close(const CNode& node, size_t depth) {
    putTabs(depth);
    if (node.type == CXMLFile::NODETYPE_COMMENT) {
        put("-->\r\n");
        return;
    }
    put("</");
    putEncoded(node.name);
    put(">\r\n");
}

void XmlWriter::writeAttributes(const CNode& node) {
    for (const CXMLFile::ATTRIB& attribute : node.attributes) {
        put(" ");
        putEncoded(attribute.name);
        put("=\"");
        putEncoded(attribute.value, true);
        put("\"");
    }
}

/// The place for `size` more bytes, of which at most a buffer is asked for.
char* XmlWriter::room(size_t size) {
    if (size > bufferBytes - m_used) flush();
    return m_buffer.get() + m_used;
}

void XmlWriter::put(std::string_view text) {
    std::memcpy(room(text.size()), text.data(), text.size());
    m_used += text.size();
}

void XmlWriter::putTabs(size_t count) {
    while (count != 0) {
        const size_t n = std::min(count, bufferBytes);
        std::memset(room(n), '\t', n);
        m_used += n;
        count -= n;
    }
}

void XmlWriter::putRaw(const CString& text) {
    std::u16string_view left = text;
    while (!left.empty()) {
        size_t n = std::min(left.size(), chunkUnits);
        if (n < left.size() && isHighSurrogate(left[n - 1])) --n;  // Its other half opens the next chunk.
        m_used += text::convert(left.substr(0, n), room(n * 3), n * 3);
        left.remove_prefix(n);
    }
}

void XmlWriter::putEncoded(const CString& text, bool attribute) {
    const std::u16string_view whole = text;
    for (size_t at = 0; at < whole.size();) {
        // A run of plain ASCII goes straight to the buffer.
        char* to = room(6);
        char* const end = m_buffer.get() + bufferBytes;
        while (at < whole.size() && to != end && whole[at] < 128 && !isEscaped(whole[at], attribute)) {
            *to++ = static_cast<char>(whole[at++]);
        }
        m_used = static_cast<size_t>(to - m_buffer.get());
        if (at == whole.size()) return;
        if (whole[at] < 128) {
            if (isEscaped(whole[at], attribute)) put(escapes[whole[at++]]);
            continue;
        }
        const bool pair = at + 1 < whole.size() && isHighSurrogate(whole[at]) && isLowSurrogate(whole[at + 1]);
        const size_t n = pair ? 2 : 1;
        m_used += text::convert(whole.substr(at, n), room(6), 6);
        at += n;
    }
}

}  // namespace qv::Private

namespace qv {

bool CXMLFile::CNode::Save(IFile& file, uint32_t indent) const {
    Private::XmlWriter writer(file);
    writer.writeTree(*this, indent);
    writer.flush();
    return true;
}

}  // namespace qv
