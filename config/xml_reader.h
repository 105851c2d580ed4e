// The XML reader: bytes of an IFile into nodes. It takes the file in large blocks, keeps at most the block and the
// longest single item in memory, and does not recurse.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "config/xml_node_blocks.h"
#include "config/xml_scan.h"
#include "qv/xml_file.h"

namespace qv::Private {

/// Deletes a node and all that follow it in its list.
void deleteSiblings(CXMLFile::CNode* first);

/// The bytes of a file from its position to its end, in blocks. An item that is being read is held together across
/// blocks from hold() on.
class XmlInput {
public:
    /// From any byte on, memory can be read for so many more.
    static constexpr size_t behindEnd = 32;

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
    void skipSpace() {
        do m_at = behindSpace(m_at);
        while (m_at == m_end && more());
    }

    /// Bytes from here on stay in memory, until release().
    void hold() { m_held = m_at; }
    /// What has been read since hold().
    std::string_view held() const { return {m_held, static_cast<size_t>(m_at - m_held)}; }
    void release() { m_held = nullptr; }
    /// Goes back to where hold() was called.
    void rewind() { m_at = m_held; }

    /// Reads up to a byte of a class, or the end. True when an '&' was read.
    template <class Class>
    bool readUntil(Class isStop) {
        bool ampersands = false;
        for (;; ++m_at) {  // behind a NUL of the file's own
            do m_at = findStop(m_at, isStop, ampersands);
            while (m_at == m_end && more());
            if (m_at == m_end || *m_at != '\0') return ampersands;
        }
    }

    int64_t position() const { return m_blockAt + (m_at - m_block.get()); }
    int64_t line() const;

private:
    bool more();
    void endAt(char* end);

    IFile& m_file;
    std::unique_ptr<char[]> m_block;
    size_t m_capacity;
    const char* m_at;
    char* m_end;  ///< NULs stand here, so that scans need no test for the end and may read beyond it.
    const char* m_held = nullptr;
    int64_t m_blockAt;   ///< The file position of the block's first byte.
    int64_t m_left;      ///< Bytes of the file behind the block.
    int64_t m_line = 1;  ///< The line of the block's first byte.
};

/// Makes strings of names. Documents repeat a few names over and over, so the last ones are kept and shared.
class XmlNames {
public:
    /// The string for `raw`, made by `make()` unless it is known. Memory can be read for behindEnd bytes from the
    /// front of `raw`.
    template <class Make>
    bool get(std::string_view raw, CString& name, Make make) {
        if (raw.size() > longestKept) return make(raw, name);
        const Key key(raw);
        Entry& entry = m_entries[key.hash()];
        if (!entry.used || entry.key != key) {
            CString made = sharedEmptyText();
            if (!make(raw, made)) return false;
            entry.key = key;
            entry.used = true;
            entry.name = made;
        }
        name = entry.name;
        return true;
    }

private:
    static constexpr size_t longestKept = 32;
    static_assert(longestKept <= XmlInput::behindEnd);

    /// The bytes of a name as numbers, filled up with zeros, and their count.
    struct Key {
        Key() = default;
        explicit Key(std::string_view raw) : length(raw.size()) {
            std::memcpy(words.data(), raw.data(), longestKept);
            for (size_t i = 0; i < words.size(); ++i) {
                const size_t bytes = std::clamp<size_t>(length, 8 * i, 8 * i + 8) - 8 * i;
                words[i] &= masks[bytes];
            }
        }
        bool operator==(const Key&) const = default;
        size_t hash() const {
            const uint64_t sum = (words[0] ^ words[1] * 3 ^ words[2] * 5 ^ words[3] * 7 ^ length) * 0x9E3779B97F4A7C15;
            return sum >> 56;
        }

        std::array<uint64_t, longestKept / 8> words{};
        size_t length = 0;
    };
    /// Those that keep so many bytes of a word in memory.
    static constexpr std::array<uint64_t, 9> masks = [] {
        std::array<uint64_t, 9> made{};
        for (size_t bytes = 1; bytes <= 8; ++bytes) {
            std::array<uint8_t, 8> kept{};
            for (size_t i = 0; i < bytes; ++i) kept[i] = 0xFF;
            made[bytes] = std::bit_cast<uint64_t>(kept);
        }
        return made;
    }();

    struct Entry {
        Key key;
        bool used = false;
        CString name = sharedEmptyText();
    };
    std::array<Entry, 256> m_entries;
};

using XmlNodeMemory = XmlNodeBlocks<sizeof(CXMLFile::CNode)>;

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
    friend CXMLFile::CNode;
    using CNode = CXMLFile::CNode;

    void skipByteOrderMark();
    bool readTree();
    bool readText(CNode& element);
    bool readsCloseTag(const CNode& element);
    bool equalsName(std::string_view raw, std::u16string_view name);
    CNode* readTag(CNode* parent, bool& hasContent);
    bool readComment(CNode& node);
    bool readName(CNode& node);
    bool readAttributes(CNode& node, bool& hasContent);
    bool readAttribute();
    bool readAttributeValue(CString& value);
    void takeAttributes(CNode& node);
    CNode* addNode(CNode* parent, CXMLFile::NODETYPE type);
    bool finish(bool read);

    bool decode(std::string_view raw, bool ampersands, CString& text);
    bool decodeName(std::string_view raw, CString& name);
    bool replaceReferences(std::string_view raw);
    bool fail(const char16_t* expected);
    bool failReference();

    IFile& m_file;
    XmlInput m_input;
    XmlNames m_names;
    XmlNodeMemory m_nodes;
    bool m_keepText;
    CNode* m_first = nullptr;
    CNode* m_last = nullptr;
    std::vector<CXMLFile::ATTRIB> m_attributes;  ///< Those of the tag that is being read, and used ones.
    size_t m_attributeCount = 0;
    std::string m_decoded;
};

}  // namespace qv::Private
