#include "qv/ini_store.h"

#include <algorithm>
#include <deque>
#include <vector>

#include "config/ini_text.h"
#include "config/path.h"
#include "config/replace_file.h"
#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"

namespace qv {

namespace {

using Private::IniLine;
using Kind = IniLine::Kind;

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// The lines of a text with the sections in which they stand.
class Lines {
public:
    explicit Lines(std::string_view text) : m_rest(text) {
        if (m_rest.starts_with(byteOrderMark)) m_rest.remove_prefix(byteOrderMark.size());
    }

    bool next() {
        if (m_rest.empty()) return false;
        line.take(m_rest);
        if (line.kind == Kind::header) {
            section = line.path;
            m_depth = Private::namesIn(section);
        } else if (line.kind == Kind::value && m_depth + Private::namesIn(line.path) > IConfigStore::maxNames) {
            line.kind = Kind::other;
        }
        return true;
    }

    IniLine line;
    std::u16string section;

private:
    std::string_view m_rest;
    size_t m_depth = 0;
};

/// What stands between two headers, the first of them included.
struct Block {
    int32_t node = -1;        ///< Whose values stand here; -1 when there are none.
    std::string_view header;  ///< Empty for what comes before the first.
    std::vector<std::string_view> lines;
    std::vector<std::string_view> blanks;  ///< Behind the lines; new values go in front of them.
    bool isNew = false;
    bool lostValues = false;  ///< A value that stood here was removed.

    void addBlank(std::string_view line) { blanks.push_back(line); }
    /// Returns the index of the line.
    uint32_t add(std::string_view line) {
        lines.insert(lines.end(), blanks.begin(), blanks.end());
        blanks.clear();
        lines.push_back(line);
        return static_cast<uint32_t>(lines.size() - 1);
    }
    bool isSpent() const { return lostValues && lines.empty(); }
};

/// A whole line of a value.
std::string valueLine(std::u16string_view name, std::u16string_view text, std::string_view ending) {
    return Private::iniName(name).append(" = ").append(Private::iniValue(text, false)).append(ending);
}

/// The line with another text, in quotes where a comment stands behind it. A name that begins with a quote and does not
/// end with one may read otherwise then: such a line is written anew.
std::string withText(const IniLine& line, std::u16string_view text) {
    const std::string_view tail = line.body.substr(line.textEnd);
    const bool hasComment = !std::all_of(tail.begin(), tail.end(), text::isSpace<char>);
    std::string all(line.body.substr(0, line.textBegin));
    all += Private::iniValue(text, hasComment);
    all.append(tail).append(line.ending());
    std::string_view rest = all;
    IniLine back;
    back.take(rest);
    if (back.kind == Kind::value && back.path == line.path && back.text == text) return all;
    return valueLine(line.path, text, line.ending());
}

std::string joined(std::string_view mark, const std::vector<Block>& blocks, std::string_view ending) {
    std::string all(mark);
    const auto addLine = [&](std::string_view line) {
        if (all.size() > mark.size() && all.back() != '\n') all += ending;
        all += line;
    };
    for (const Block& block : blocks) {
        if (block.isSpent()) continue;
        if (block.isNew && all.size() > mark.size()) addLine(ending);
        addLine(block.header);
        for (const std::string_view line : block.lines) addLine(line);
        for (const std::string_view line : block.blanks) addLine(line);
    }
    return all;
}

bool refuse(const CString& file, const CString& expected, const CString& found) {
    SetDiagnostic(file, expected, found);
    return false;
}

CString nameOf(IFile& file) {
    char16_t name[IFileSystem::pathChars] = {};
    return CString(file.GetFilename(name, IFileSystem::pathChars));
}

}  // namespace

/// Puts the tree into the frame of the text: lines of values that did not change stay, others are changed or dropped,
/// and what is new goes behind the last line of its section.
class CINIStore::Renderer {
public:
    explicit Renderer(const CINIStore& store)
        : m_store(store), m_places(store.m_nodes.size()), m_blockOf(store.m_nodes.size(), -1) {}

    std::string render() {
        const std::string_view text = m_store.m_text;
        const size_t feed = text.find('\n');
        if (feed != text.npos && feed > 0 && text[feed - 1] == '\r') m_ending = "\r\n";
        m_blocks.emplace_back().node = 0;
        int32_t section = 0;
        for (Lines lines(text); lines.next();) {
            if (lines.line.kind == Kind::header) section = m_store.find(lines.section);
            keep(lines.line, section);
        }
        for (size_t i = 0; i < m_blocks.size(); ++i) {
            if (m_blocks[i].node != -1) m_blockOf[static_cast<size_t>(m_blocks[i].node)] = static_cast<int32_t>(i);
        }
        placeValues();
        return joined(text.substr(0, text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0), m_blocks, m_ending);
    }

private:
    /// Where the line that counts for a value stands.
    struct Place {
        int32_t block = -1;
        uint32_t line = 0;
        bool isCurrent = false;  ///< Its text is the value's.
    };

    void keep(const IniLine& line, int32_t section) {
        if (line.kind == Kind::header) {
            Block& block = m_blocks.emplace_back();
            block.node = section;
            block.header = line.whole;
            return;
        }
        Block& block = m_blocks.back();
        if (line.kind == Kind::blank) return block.addBlank(line.whole);
        const int32_t node = line.kind == Kind::value ? m_store.find(line.path, section) : -1;
        if (line.kind == Kind::value && (node == -1 || !m_store.node(node).hasValue())) {
            block.lostValues = true;
            return;
        }
        const uint32_t index = block.add(line.whole);
        if (node == -1) return;
        const auto blockIndex = static_cast<int32_t>(m_blocks.size() - 1);
        m_places[static_cast<size_t>(node)] = {blockIndex, index, m_store.node(node).value.text == line.text};
    }

    /// Changes the lines of changed values and adds those of new ones, in the order of the tree.
    void placeValues() {
        for (int32_t i = nextNode(0); i != 0; i = nextNode(i)) {
            const SNode& node = m_store.node(i);
            const Place& place = m_places[static_cast<size_t>(i)];
            if (!node.hasValue() || place.isCurrent) continue;
            if (place.block == -1) {
                blockOf(node.parent).lines.push_back(kept(valueLine(node.name, node.value.text, m_ending)));
            } else {
                std::string_view& line = m_blocks[static_cast<size_t>(place.block)].lines[place.line];
                std::string_view rest = line;
                m_line.take(rest);
                line = kept(withText(m_line, node.value.text));
            }
        }
    }

    std::string_view kept(std::string line) { return m_made.emplace_back(std::move(line)); }

    /// The next node in the order of the tree; 0 behind the last.
    int32_t nextNode(int32_t i) const {
        if (m_store.node(i).firstChild != -1) return m_store.node(i).firstChild;
        while (i != 0 && m_store.node(i).nextSibling == -1) i = m_store.node(i).parent;
        return i == 0 ? 0 : m_store.node(i).nextSibling;
    }

    Block& blockOf(int32_t section) {
        int32_t& index = m_blockOf[static_cast<size_t>(section)];
        if (index == -1) {
            index = static_cast<int32_t>(m_blocks.size());
            Block& block = m_blocks.emplace_back();
            block.isNew = true;
            block.header = kept(Private::iniHeader(pathOf(section)).append(m_ending));
        }
        return m_blocks[static_cast<size_t>(index)];
    }

    std::u16string pathOf(int32_t section) const {
        std::u16string path;
        for (int32_t i = section; i != 0; i = m_store.node(i).parent) {
            const std::u16string_view name = m_store.node(i).name;
            path = path.empty() ? std::u16string(name) : std::u16string(name).append(u"/").append(path);
        }
        return path;
    }

    const CINIStore& m_store;
    std::string m_ending = "\n";
    std::vector<Block> m_blocks;
    std::vector<Place> m_places;     ///< Of each node.
    std::vector<int32_t> m_blockOf;  ///< Of each node: the last block with its values, -1 for none.
    std::deque<std::string> m_made;  ///< Lines that stand in no file yet.
    IniLine m_line;
};

CINIStore::~CINIStore() = default;

// Loading -------------------------------------------------------------------------------------------------------------

bool CINIStore::Load(const char16_t* path) {
    const bool loaded = Load(&fileSystem(), path);
    if (loaded || (path != nullptr && fileSystem().GetFileInfo(path).type == IFileSystem::typeNothing)) m_path = path;
    return loaded;
}

bool CINIStore::Load(IFileSystem* system, const char16_t* path) {
    if (system == nullptr) system = &fileSystem();
    const TSharedPtr<IFile> file =
        system->CreateFileW(path, CFile::openExisting | CFile::accessRead | CFile::shareRead);
    const bool loaded = Load(file);
    if (file && !loaded) SetDiagnosticFile(path);
    return loaded;
}

bool CINIStore::Load(TSharedPtr<IFile> file) {
    Clear();
    m_text.clear();
    m_path = CString();
    m_changed = false;
    if (!file) return false;
    const int64_t size = std::max<int64_t>(file->GetRemaining(), 0);
    if (size > largestFile) return refuse(nameOf(*file), u"an INI file of at most 256 MiB", u"more");
    std::string text(static_cast<size_t>(size), '\0');
    if (!file->ReadBytes(text.data(), static_cast<uint32_t>(size))) {
        return refuse(nameOf(*file), u"an INI file", u"a file that cannot be read to its end");
    }
    if (text.find('\0') != text.npos) return refuse(nameOf(*file), u"an INI file", u"a NUL: no text in UTF-8");
    return parse(std::move(text));
}

bool CINIStore::parse(std::string text) {
    int32_t section = 0;
    for (Lines lines(text); lines.next();) {
        if (lines.line.kind == Kind::header) section = -1;  // Made with its first value.
        if (lines.line.kind != Kind::value) continue;
        if (section == -1) section = make(lines.section);
        const int32_t at = section == -1 ? -1 : make(lines.line.path, section);
        if (at == -1) {
            Clear();
            return refuse(u"", u"memory for an INI file", u"none");
        }
        node(at).value = {CVariant::typeString, CString(lines.line.text)};
    }
    m_text = std::move(text);
    return true;
}

// Saving --------------------------------------------------------------------------------------------------------------

bool CINIStore::Save(const char16_t* path) {
    std::string text = Renderer(*this).render();
    if (text.size() > largestFile) return refuse(path, u"an INI file of at most 256 MiB", u"more");
    if (!Private::replaceFile(path, text)) return false;
    m_text = std::move(text);
    m_path = path;
    m_changed = false;
    return true;
}

bool CINIStore::Save(IFileSystem* system, const char16_t* path) {
    if (system == nullptr) system = &fileSystem();
    std::string text = Renderer(*this).render();
    if (text.size() > largestFile) return refuse(path, u"an INI file of at most 256 MiB", u"more");
    return writeText(system->CreateFileW(path, CFile::createTruncate | CFile::accessWrite), std::move(text));
}

bool CINIStore::Save(TSharedPtr<IFile> file) {
    if (!file) return false;
    std::string text = Renderer(*this).render();
    if (text.size() > largestFile) return refuse(nameOf(*file), u"an INI file of at most 256 MiB", u"more");
    return writeText(file, std::move(text));
}

bool CINIStore::writeText(const TSharedPtr<IFile>& file, std::string text) {
    if (!file) return false;
    if (!file->WriteBytes(text.data(), static_cast<uint32_t>(text.size()))) {
        return refuse(nameOf(*file), u"room for an INI file", u"a short write");
    }
    m_text = std::move(text);
    if (m_path.IsEmpty()) m_changed = false;
    return file->GetRemaining() <= 0 || file->SetSize(file->GetPosition());
}

bool CINIStore::Flush() {
    if (!m_changed) return true;
    if (m_path.IsEmpty()) return refuse(u"", u"a disk file that was loaded or saved", u"none");
    return Save(CString(m_path).c_str());
}

CINIStore::SLineCounts CINIStore::CountLines() const {
    SLineCounts counts;
    for (Lines lines(m_text); lines.next();) {
        switch (lines.line.kind) {
            case Kind::blank: ++counts.blank; break;
            case Kind::comment: ++counts.comment; break;
            case Kind::header: ++counts.section; break;
            case Kind::value: ++counts.value; break;
            case Kind::other: ++counts.unknown; break;
        }
    }
    return counts;
}

bool CINIStore::write(View path, const SValue& value) {
    m_changed = true;
    return CMemStore::write(path, value);
}

bool CINIStore::remove(View path, uint32_t parts) {
    m_changed = true;
    return CMemStore::remove(path, parts);
}

}  // namespace qv
