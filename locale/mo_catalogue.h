// The content of an MO file, in memory for look-up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "locale/plural_expression.h"

namespace qv {

/// Messages by context and text. All texts stand in one block, each with a NUL behind it.
///
/// The file, in either byte order, begins with seven words of 32 bits: the magic number 0x950412DE; the revision, its
/// upper half 0 or 1; the number of messages; the offsets of two tables of (length, offset) pairs, one of the texts and
/// one of the translations; and a hash table that is not used here. A text may hold a context in front (up to a byte
/// 4), and the plural behind a NUL; its translation holds one form behind the other, with NULs between.
class MoCatalogue {
public:
    /// Why a file was refused, and where.
    struct Refusal {
        const char16_t* expected;
        const char16_t* found;
        int64_t byteOffset;
    };
    /// False when the bytes are no whole catalogue; the object is unusable then.
    bool load(std::string_view file, Refusal& refusal);

    /// The form `number` of the translation; null for an unknown text or an empty translation.
    const char16_t* find(const char16_t* context, const char16_t* text, uint64_t number) const;
    uint64_t formOf(uint64_t n) const { return m_plural.formOf(n); }

    uint32_t messages() const { return static_cast<uint32_t>(m_messages.size()); }
    const std::u16string& header() const { return m_header; }

private:
    struct Message {
        uint64_t hash;
        uint32_t key;    // Position of the text, context in front, in m_texts.
        uint32_t value;  // Position of the first form.
        uint32_t end;    // Behind the last form.
    };
    struct Piece {
        uint32_t offset, length;
    };

    bool readTables(std::string_view file, Refusal& refusal);
    void readHeader(std::string_view file);
    bool decode(std::string_view file, Refusal& refusal);
    bool decodeBlock(const std::string& block, size_t nuls);
    void index();
    std::string headerField(std::string_view name) const;

    std::vector<Piece> m_keys, m_values;  // Empty after loading.
    std::string m_rawHeader, m_charset;
    std::u16string m_header, m_texts;
    std::vector<Message> m_messages;
    std::vector<uint32_t> m_slots;  // Numbers of messages, from 1, by hash; a power of two.
    PluralExpression m_plural;
};

}  // namespace qv
