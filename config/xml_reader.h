// The XML reader: bytes of an IFile into nodes. It takes the file in large blocks, keeps at most the block and the
// longest single item in memory, and does not recurse.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qv/xml_file.h"

namespace qv::Private {

/// Deletes a node and all that follow it in its list.
void deleteSiblings(CXMLFile::CNode* first);

/// The bytes of a file from its position to its end, in blocks. An item that is being read is held together across
/// blocks from hold() on.
class XmlInput {
public:
    explicit XmlInput(IFile& file);

    /// The next byte, or -1 at the end.
    int peek() { return m_at != m_end || more() ? static_cast<unsigned char>(*m_at) : -1; }
    /// Steps over the byte that peek() saw.
    void step() { ++m_at; }
    /// Steps over `ch` when it is the next byte.
    bool take(char ch) {
        if (peek() != static_cast<unsigned char>(ch)) return false;
        step();
        return true;
    }
    /// True when the next bytes are `text`; steps over nothing.
    bool startsWith(std::string_view text);
    void skipSpace();

    /// Bytes from here on stay in memory, until release().
    void hold() { m_held = m_at; }
    /// What has been read since hold().
    std::string_view held() const { return {m_held, static_cast<size_t>(m_at - m_held)}; }
    void release() { m_held = nullptr; }
    /// Goes back to where hold() was called.
    void rewind() { m_at = m_held; }

    /// Reads up to a byte of one of the classes in `stops`, or the end.
    void readUntil(uint8_t stops);
    /// The same up to one byte value.
    void readUntilByte(char stop);

    int64_t position() const { return m_blockAt + (m_at - m_block.get()); }
    int64_t line() const;

private:
    bool more();

    IFile& m_file;
    std::unique_ptr<char[]> m_block;  ///< A NUL stands behind the last byte, so that scans need no test for the end.
    size_t m_capacity;
    char* m_at;
    char* m_end;
    char* m_held = nullptr;
    int64_t m_blockAt;   ///< The file position of the block's first byte.
    int64_t m_left;      ///< Bytes of the file behind the block.
    int64_t m_line = 1;  ///< The line of the block's first byte.
};

/// Makes strings of names. Documents repeat a few names over and over, so the last ones are kept and shared.
class XmlNames {
public:
    /// The string for `raw`, made by `make()` unless it is known.
    template <class Make>
    bool get(std::string_view raw, CString& name, Make make) {
        if (raw.size() > longestKept) return make(raw, name);
        Entry& entry = m_entries[hash(raw)];
        if (std::string_view(entry.raw, entry.length) != raw || !entry.used) {
            CString made = sharedEmptyText();
            if (!make(raw, made)) return false;
            entry.length = static_cast<uint8_t>(raw.copy(entry.raw, longestKept));
            entry.used = true;
            entry.name = made;
        }
        name = entry.name;
        return true;
    }

private:
    static constexpr size_t longestKept = 30;
    struct Entry {
        char raw[longestKept];
        uint8_t length = 0;
        bool used = false;
        CString name = sharedEmptyText();
    };
    static size_t hash(std::string_view raw) {
        size_t sum = raw.size();
        for (const char ch : raw) sum = sum * 31 + static_cast<unsigned char>(ch);
        return (sum ^ sum >> 8) % 256;
    }
    std::array<Entry, 256> m_entries;
};

class XmlReader {
public:
    XmlReader(IFile& file, bool keepText);
    ~XmlReader();

    /// Nodes up to the end of the file. False sets the diagnostic. The file's position is left where reading ended.
    bool readDocument();
    /// One node with everything under it.
    bool readOne();
    /// Hands over the first of the nodes that were read; null for none.
    CXMLFile::CNode* release();

private:
    using CNode = CXMLFile::CNode;

    void skipByteOrderMark();
    bool readTree();
    bool readText(CNode& element);
    bool readsCloseTag(const CNode& element);
    CNode* readTag(CNode* parent, bool& hasContent);
    bool readComment(CNode& node);
    bool readName(CNode& node);
    bool readAttributes(CNode& node, bool& hasContent);
    bool readAttribute();
    bool readAttributeValue(CString& value);
    void takeAttributes(CNode& node);
    CNode* addNode(CNode* parent, CXMLFile::NODETYPE type);
    bool finish(bool read);

    bool decode(std::string_view raw, CString& text);
    bool decodeName(std::string_view raw, CString& name);
    bool replaceReferences(std::string_view raw);
    bool fail(const char16_t* expected);
    bool failReference();

    IFile& m_file;
    XmlInput m_input;
    XmlNames m_names;
    bool m_keepText;
    CNode* m_first = nullptr;
    CNode* m_last = nullptr;
    std::vector<CXMLFile::ATTRIB> m_attributes;  ///< Those of the tag that is being read.
    size_t m_attributeCount = 0;
    std::string m_decoded;
};

}  // namespace qv::Private
