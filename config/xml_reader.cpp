#include "config/xml_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/text.h"
#include "qv/diagnostic.h"

namespace qv::Private {

namespace {

constexpr size_t blockBytes = 0x40000;

/// A reference is looked for in this many bytes, its & and ; included.
constexpr size_t longestReference = 16;

struct Reference {
    std::string_view text;
    char stands;
};
constexpr Reference references[] = {{"&quot;", '"'}, {"&apos;", '\''}, {"&lt;", '<'},  {"&gt;", '>'},
                                    {"&amp;", '&'},  {"&#13;", '\r'},  {"&#10;", '\n'}};

const Reference* findReference(std::string_view reference) {
    for (const Reference& known : references) {
        if (text::compareNoCase(known.text, reference) == 0) return &known;
    }
    return nullptr;
}

std::string_view trimEnd(std::string_view text) {
    while (!text.empty() && text::isSpace(text.back())) text.remove_suffix(1);
    return text;
}

/// Counts a few at a time, which the compiler makes vectors of.
int64_t countLines(const char* at, const char* end) {
    int64_t lines = 0;
    while (at != end) {
        const char* const stop = at + std::min<ptrdiff_t>(end - at, 255);
        uint8_t some = 0;
        for (; at != stop; ++at) some = static_cast<uint8_t>(some + (*at == '\n' ? 1 : 0));
        lines += some;
    }
    return lines;
}

/// True when `raw` is plain ASCII without references and equals `name` without regard to case.
bool equalsPlainName(std::string_view raw, std::u16string_view name) {
    return raw.size() == name.size() && std::equal(raw.begin(), raw.end(), name.begin(), [](char a, char16_t b) {
               return a != '&' && a != 0 && static_cast<unsigned char>(a) < 0x80 &&
                      (static_cast<char16_t>(a) == b || text::toLower(static_cast<char16_t>(a)) == text::toLower(b));
           });
}

CString describe(int byte) {
    if (byte < 0) return CString(u"the end of the file");
    if (byte > 0x20 && byte < 0x7F) return CString::FromFormat(u"'%c'", static_cast<char>(byte));
    return CString::FromFormat(u"the byte %d", byte);
}

}  // namespace

void deleteSiblings(CXMLFile::CNode* first) {
    while (first != nullptr) delete std::exchange(first, first->Next());
}

// XmlInput ------------------------------------------------------------------------------------------------------------

XmlInput::XmlInput(IFile& file) : m_file(file), m_blockAt(file.GetPosition()), m_left(file.GetSize() - m_blockAt) {
    m_left = std::max<int64_t>(m_left, 0);
    m_capacity = static_cast<size_t>(std::min<int64_t>(m_left, blockBytes));
    m_block.reset(new char[m_capacity + behindEnd]);
    m_at = m_block.get();
    endAt(m_block.get());
}

void XmlInput::endAt(char* end) {
    m_end = end;
    std::memset(end, 0, behindEnd);
}

/// Makes room behind what is still needed and reads the next block. False at the end of the file.
bool XmlInput::more() {
    if (m_left == 0) return false;
    const char* const kept = m_held != nullptr ? m_held : m_at;
    const auto keptSize = static_cast<size_t>(m_end - kept);
    m_line += countLines(m_block.get(), kept);
    m_blockAt += kept - m_block.get();
    const ptrdiff_t readAhead = m_at - kept;
    if (keptSize > m_capacity / 2) {
        m_capacity = keptSize + std::max(keptSize, blockBytes);
        std::unique_ptr<char[]> larger(new char[m_capacity + behindEnd]);
        std::memcpy(larger.get(), kept, keptSize);
        m_block = std::move(larger);
    } else {
        std::memmove(m_block.get(), kept, keptSize);
    }
    const auto wanted = std::min<uint64_t>({m_capacity - keptSize, static_cast<uint64_t>(m_left), 0x40000000});
    const uint32_t got = m_file.Read(m_block.get() + keptSize, static_cast<uint32_t>(wanted));
    m_left = got < wanted ? 0 : m_left - got;
    if (m_held != nullptr) m_held = m_block.get();
    m_at = m_block.get() + readAhead;
    endAt(m_block.get() + keptSize + got);
    return got != 0;
}

int64_t XmlInput::line() const { return m_line + countLines(m_block.get(), m_at); }

bool XmlInput::startsWith(std::string_view text) {
    while (static_cast<size_t>(m_end - m_at) < text.size()) {
        if (!more()) return false;
    }
    return std::string_view(m_at, text.size()) == text;
}

// XmlReader -----------------------------------------------------------------------------------------------------------

XmlReader::XmlReader(IFile& file, bool keepText) : m_file(file), m_input(file), m_keepText(keepText) {}
XmlReader::~XmlReader() { deleteSiblings(m_first); }

CXMLFile::CNode* XmlReader::release() {
    m_last = nullptr;
    return std::exchange(m_first, nullptr);
}

bool XmlReader::readDocument() {
    skipByteOrderMark();
    bool read = true;
    while (read) {
        m_input.skipSpace();
        if (m_input.peek() < 0) break;
        read = readTree();
    }
    return finish(read);
}

bool XmlReader::readOne() { return finish(readTree()); }

/// The blocks may have gone past what was used.
bool XmlReader::finish(bool read) {
    m_file.Seek(m_input.position(), IFile::fromBegin);
    return read;
}

void XmlReader::skipByteOrderMark() {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (!m_input.startsWith(mark)) return;
    for (size_t i = 0; i < mark.size(); ++i) m_input.step();
}

/// A node of the top level with everything under it. `open` is the innermost element whose content is being read: the
/// links of the tree are the stack.
bool XmlReader::readTree() {
    CNode* open = nullptr;
    do {
        if (open != nullptr) {
            if (!readText(*open)) return false;
            if (readsCloseTag(*open)) {
                open = open->m_parent;
                continue;
            }
        }
        bool hasContent = false;
        CNode* const node = readTag(open, hasContent);
        if (node == nullptr) return false;
        if (hasContent) open = node;
    } while (open != nullptr);
    return true;
}

/// Text up to the next tag, without the white space at its ends.
bool XmlReader::readText(CNode& element) {
    m_input.skipSpace();
    m_input.hold();
    const bool ampersands = m_input.readUntil(endsText);
    const std::string_view raw = trimEnd(m_input.held());
    m_input.release();
    if (raw.empty()) return true;
    if (!m_keepText && element.value.IsEmpty()) return decode(raw, ampersands, element.value);
    CString text = sharedEmptyText();
    if (!decode(raw, ampersands, text)) return false;
    if (m_keepText) addNode(&element, CXMLFile::NODETYPE_TEXT)->value = text;
    if (element.value.IsEmpty()) {
        element.value = std::move(text);
        return true;
    }
    // A document may cut a text into very many runs.
    const size_t length = element.value.length() + text.length();
    if (length > element.value.capacity()) element.value.reserve(length * 2);
    element.value += text;
    return true;
}

/// Steps over "</name>" where that is what comes and the name is the element's; otherwise over nothing.
bool XmlReader::readsCloseTag(const CNode& element) {
    if (!m_input.startsWith("</")) return false;
    m_input.hold();
    m_input.step();
    m_input.step();
    m_input.skipSpace();
    const auto nameAt = m_input.held().size();
    m_input.readUntil(endsName);
    const auto nameEnd = m_input.held().size();
    m_input.skipSpace();
    bool closes = m_input.take('>');
    if (closes) {
        const std::string_view raw = m_input.held().substr(nameAt, nameEnd - nameAt);
        closes = equalsPlainName(raw, element.name) || equalsName(raw, element.name);
    }
    if (!closes) m_input.rewind();
    m_input.release();
    return closes;
}

bool XmlReader::equalsName(std::string_view raw, std::u16string_view name) {
    CString decoded = sharedEmptyText();
    return decodeName(raw, decoded) && text::compareNoCase(decoded.view(), name) == 0;
}

/// The tag of a node, up to its '>'. Null sets the diagnostic; the node belongs to the tree already.
CXMLFile::CNode* XmlReader::readTag(CNode* parent, bool& hasContent) {
    m_input.skipSpace();
    if (!m_input.take('<')) {
        fail(parent != nullptr ? u"the close tag of an element" : u"'<'");
        return nullptr;
    }
    if (m_input.take('!')) {
        CNode* const comment = addNode(parent, CXMLFile::NODETYPE_COMMENT);
        return readComment(*comment) ? comment : nullptr;
    }
    const bool instruction = m_input.take('?');
    CNode* const node = addNode(parent, instruction ? CXMLFile::NODETYPE_PI : CXMLFile::NODETYPE_ELEMENT);
    return readName(*node) && readAttributes(*node, hasContent) ? node : nullptr;
}

bool XmlReader::readComment(CNode& node) {
    if (!m_input.startsWith("--")) return fail(u"a comment");
    m_input.step();
    m_input.step();
    m_input.hold();
    while (true) {
        m_input.readUntil([](Lanes bytes) { return bytes.is('>'); });
        const std::string_view body = m_input.held();
        if (m_input.peek() < 0) {
            m_input.release();
            return fail(u"the end of a comment");
        }
        // peek() moves no bytes here: the '>' is in the block.
        if (body.ends_with("--")) {
            if (body.size() > 2) node.value = CString(body.substr(0, body.size() - 2));
            m_input.release();
            m_input.step();
            return true;
        }
        m_input.step();
    }
}

bool XmlReader::readName(CNode& node) {
    m_input.skipSpace();
    m_input.hold();
    if (node.type == CXMLFile::NODETYPE_PI) {
        // The name also ends at "?>".
        while (m_input.readUntil(endsNameOfInstruction), m_input.peek() == '?' && !m_input.startsWith("?>"))
            m_input.step();
    } else {
        m_input.readUntil(endsName);
    }
    const bool decoded = decodeName(m_input.held(), node.name);
    m_input.release();
    return decoded || failReference();
}

/// Up to the end of the tag. `hasContent` tells whether content follows.
bool XmlReader::readAttributes(CNode& node, bool& hasContent) {
    m_attributeCount = 0;
    while (true) {
        m_input.skipSpace();
        const int next = m_input.peek();
        if (next < 0) return fail(u"the end of a tag");
        if (next == '>') break;
        if (next == '/' ? m_input.startsWith("/>")
                        : next == '?' && node.type == CXMLFile::NODETYPE_PI && m_input.startsWith("?>")) {
            m_input.step();
            m_input.step();
            takeAttributes(node);
            return true;
        }
        if (!readAttribute()) return false;
    }
    m_input.step();
    takeAttributes(node);
    hasContent = true;
    return true;
}

bool XmlReader::readAttribute() {
    if (m_attributeCount == m_attributes.size()) m_attributes.emplace_back();
    CXMLFile::ATTRIB& attribute = m_attributes[m_attributeCount];
    m_input.hold();
    m_input.readUntil(endsNameOfAttribute);
    const bool decoded = decodeName(m_input.held(), attribute.name);
    m_input.release();
    if (!decoded) return failReference();
    m_input.skipSpace();
    if (!m_input.take('=')) return fail(u"'=' behind the name of an attribute");
    m_input.skipSpace();
    if (!readAttributeValue(attribute.value)) return false;
    ++m_attributeCount;
    return true;
}

/// In double or single quotes, or a bare word.
bool XmlReader::readAttributeValue(CString& value) {
    const int quote = m_input.peek();
    const bool quoted = quote == '"' || quote == '\'';
    if (quoted) m_input.step();
    m_input.hold();
    const auto isQuote = [quote](Lanes bytes) { return bytes.is(static_cast<char>(quote)); };
    const bool ampersands = quoted ? m_input.readUntil(isQuote) : m_input.readUntil(endsName);
    const std::string_view raw = m_input.held();
    m_input.release();
    if (raw.empty()) {
        value = sharedEmptyText();
    } else if (!decode(raw, ampersands, value)) {
        return false;
    }
    return !quoted || m_input.take(static_cast<char>(quote)) || fail(u"the closing quote of an attribute");
}

void XmlReader::takeAttributes(CNode& node) {
    if (m_attributeCount == 0) return;
    if (!fitsHeapBlock(m_attributeCount, sizeof(CXMLFile::ATTRIB))) throw std::bad_alloc();
    auto* const list = static_cast<CXMLFile::ATTRIB*>(HeapAlloc(m_attributeCount * sizeof(CXMLFile::ATTRIB)));
    if (list == nullptr) throw std::bad_alloc();
    std::uninitialized_move_n(m_attributes.begin(), m_attributeCount, list);
    node.attributes.Attach(list, static_cast<uint32_t>(m_attributeCount));
}

CXMLFile::CNode* XmlReader::addNode(CNode* parent, CXMLFile::NODETYPE type) {
    auto* const node = new (*this) CNode(type);
    if (parent != nullptr) {
        parent->append(node);
    } else if (m_last != nullptr) {
        m_last->insertBeside(node, true);
        m_last = node;
    } else {
        m_first = m_last = node;
    }
    return node;
}

/// Bytes of the file as text. False sets the diagnostic.
bool XmlReader::decode(std::string_view raw, bool ampersands, CString& text) {
    if (!ampersands) {
        text = CString(raw);
        return true;
    }
    if (!replaceReferences(raw)) return failReference();
    text = CString(std::string_view(m_decoded));
    return true;
}

bool XmlReader::decodeName(std::string_view raw, CString& name) {
    return m_names.get(raw, name, [this](std::string_view bytes, CString& made) {
        const bool plain = bytes.find('&') == std::string_view::npos;
        if (!plain && !replaceReferences(bytes)) return false;
        made = CString(plain ? bytes : std::string_view(m_decoded));
        return true;
    });
}

/// Puts `raw` into m_decoded with the known references replaced. False when one does not end within its sixteen bytes;
/// one that the end of `raw` cuts off before that stays as it stands.
bool XmlReader::replaceReferences(std::string_view raw) {
    m_decoded.clear();
    while (true) {
        const size_t at = raw.find('&');
        m_decoded += raw.substr(0, at);
        if (at == std::string_view::npos) return true;
        raw.remove_prefix(at);
        const size_t semicolon = raw.substr(0, longestReference).find(';');
        if (semicolon == std::string_view::npos) {
            m_decoded += raw;
            return raw.size() < longestReference;
        }
        const std::string_view reference = raw.substr(0, semicolon + 1);
        if (const Reference* known = findReference(reference)) {
            m_decoded += known->stands;
        } else {
            m_decoded += reference;
        }
        raw.remove_prefix(reference.size());
    }
}

bool XmlReader::failReference() { return fail(u"a ';' within sixteen bytes of an '&'"); }

bool XmlReader::fail(const char16_t* expected) {
    char16_t name[512];
    const CString found = describe(m_input.peek());
    SetDiagnostic(CString(m_file.GetFilename(name, 512)), CString(expected), found, m_input.position(), m_input.line());
    return false;
}

}  // namespace qv::Private

namespace qv {

bool CXMLFile::CNode::Load(IFile& file, bool keepText) {
    deleteChildren();
    type = NODETYPE_ELEMENT;
    name = value = Private::sharedEmptyText();
    attributes.Destroy();
    Private::XmlReader reader(file, keepText);
    if (!reader.readOne()) return false;
    const std::unique_ptr<CNode> read(reader.release());
    type = read->type;
    name.swap(read->name);
    value.swap(read->value);
    attributes = read->attributes;
    adoptChildren(*read);
    return true;
}

}  // namespace qv
