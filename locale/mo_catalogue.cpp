#include "locale/mo_catalogue.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "core/text.h"
#include "platform/text.h"

namespace qv {

namespace {

constexpr uint32_t magic = 0x950412DE;
constexpr size_t headSize = 28;
constexpr char16_t contextEnd = 4;

uint32_t wordAt(std::string_view file, size_t offset, bool swapped) {
    uint32_t word = 0;
    std::memcpy(&word, file.data() + offset, sizeof word);
    return swapped ? __builtin_bswap32(word) : word;
}

/// FNV-1a over UTF-16 units.
constexpr uint64_t hashStart = 0xCBF29CE484222325;
constexpr uint64_t hashed(uint64_t hash, char16_t unit) { return (hash ^ unit) * 0x100000001B3; }
uint64_t hashText(uint64_t hash, const char16_t* text) {
    for (; *text != 0; ++text) hash = hashed(hash, *text);
    return hash;
}

/// Whether `key` is `context`, the mark and `text`, or the text alone without a context.
bool isKey(const char16_t* key, const char16_t* context, const char16_t* text) {
    if (context != nullptr) {
        for (; *context != 0; ++context, ++key) {
            if (*key != *context) return false;
        }
        if (*key++ != contextEnd) return false;
    }
    while (*key == *text && *key != 0) ++key, ++text;
    return *key == *text;
}

}  // namespace

bool MoCatalogue::load(std::string_view file, Refusal& refusal) {
    if (!readTables(file, refusal)) return false;
    readHeader(file);
    if (!decode(file, refusal)) return false;
    index();
    const std::string plural = headerField("Plural-Forms:");
    (void)m_plural.parse(plural);
    m_keys = {}, m_values = {};
    return true;
}

bool MoCatalogue::readTables(std::string_view file, Refusal& refusal) {
    refusal = {u"a message catalogue in the MO format", u"other data", 0};
    if (file.size() < headSize) return false;
    const bool swapped = wordAt(file, 0, false) == __builtin_bswap32(magic);
    if (!swapped && wordAt(file, 0, false) != magic) return false;
    if (wordAt(file, 4, swapped) >> 16 > 1) {
        refusal = {u"revision 0 or 1 of the MO format", u"a later one", 4};
        return false;
    }
    const uint64_t count = wordAt(file, 8, swapped);
    uint64_t total = 0;  // Texts do not overlap, so together they fit into the file.
    for (const size_t field : {size_t{12}, size_t{16}}) {
        const uint64_t table = wordAt(file, field, swapped);
        refusal = {u"a table inside the file", u"one that reaches beyond its end", static_cast<int64_t>(field)};
        if (table > file.size() || count * 8 > file.size() - table) return false;
        std::vector<Piece>& pieces = field == 12 ? m_keys : m_values;
        pieces.reserve(count);
        for (uint64_t i = 0; i < count; ++i) {
            const size_t at = table + i * 8;
            const Piece piece{wordAt(file, at + 4, swapped), wordAt(file, at, swapped)};
            total += uint64_t{piece.length} + 1;
            refusal = {u"texts inside the file that do not overlap", u"one that reaches beyond its end or overlaps",
                       static_cast<int64_t>(at)};
            if (piece.offset > file.size() || piece.length > file.size() - piece.offset) return false;
            if (total > uint64_t{file.size()} + 1) return false;
            pieces.push_back(piece);
        }
    }
    return true;
}

void MoCatalogue::readHeader(std::string_view file) {
    for (size_t i = 0; i < m_keys.size(); ++i) {
        if (m_keys[i].length != 0) continue;
        m_rawHeader = file.substr(m_values[i].offset, m_values[i].length);
        break;
    }
    const std::string type = headerField("Content-Type:");
    const size_t at = type.find("charset=");
    if (at != std::string::npos) m_charset = type.substr(at + 8, type.find_first_of(" \t;", at) - at - 8);
    // What the template of a catalogue has, where nobody filled it in.
    if (m_charset == "CHARSET") m_charset.clear();
}

std::string MoCatalogue::headerField(std::string_view name) const {
    for (size_t at = 0; at < m_rawHeader.size();) {
        const size_t end = std::min(m_rawHeader.find('\n', at), m_rawHeader.size());
        const std::string_view line = std::string_view(m_rawHeader).substr(at, end - at);
        if (line.size() >= name.size() && text::compareNoCase(line.substr(0, name.size()), name) == 0) {
            return std::string(line.substr(name.size()));
        }
        at = end + 1;
    }
    return {};
}

/// All texts as one block, each with a NUL behind it, so that one conversion does them all.
bool MoCatalogue::decode(std::string_view file, Refusal& refusal) {
    std::string block;
    std::vector<size_t> nuls;  // Inside each text, which no charset changes.
    size_t allNuls = 0;
    for (const std::vector<Piece>* pieces : {&m_keys, &m_values}) {
        for (const Piece& piece : *pieces) {
            const std::string_view text = file.substr(piece.offset, piece.length);
            nuls.push_back(static_cast<size_t>(std::count(text.begin(), text.end(), '\0')));
            allNuls += nuls.back() + 1;
            block += text;
            block += '\0';
        }
    }
    refusal = {u"texts in a known character set", u"others", -1};
    if (!decodeBlock(block, allNuls)) return false;
    std::vector<uint32_t> starts;
    size_t at = 0;
    for (const size_t inside : nuls) {
        starts.push_back(static_cast<uint32_t>(at));
        for (size_t left = inside + 1; left > 0; --left) at = m_texts.find(u'\0', at) + 1;
    }
    starts.push_back(static_cast<uint32_t>(at));
    const size_t count = m_keys.size();
    for (size_t i = 0; i < count; ++i) {
        const uint32_t value = starts[count + i];
        if (m_keys[i].length == 0) {
            if (m_header.empty()) m_header = m_texts.c_str() + value;
        } else {
            m_messages.push_back({0, starts[i], value, starts[count + i + 1]});
        }
    }
    return true;
}

bool MoCatalogue::decodeBlock(const std::string& block, size_t nuls) {
    const bool utf8 = m_charset.empty() || text::compareNoCase(m_charset, "UTF-8") == 0 ||
                      text::compareNoCase(m_charset, "UTF8") == 0;
    if (utf8) {
        m_texts = text::toUtf16(block);
    } else if (!platform::decodeCharset(m_charset, block, m_texts)) {
        return false;
    }
    // Charsets of more than a byte to a unit of ASCII have no place in a catalogue.
    return static_cast<size_t>(std::count(m_texts.begin(), m_texts.end(), u'\0')) == nuls &&
           (m_texts.empty() || m_texts.back() == 0) && m_texts.size() < 0xFFFFFFFF;
}

/// Of messages with one key only the first is found, so the others have no slot: many of them cost no search.
void MoCatalogue::index() {
    m_slots.assign(std::bit_ceil(m_messages.size() * 2 + 1), 0);
    const size_t mask = m_slots.size() - 1;
    for (uint32_t i = 0; i < m_messages.size(); ++i) {
        Message& message = m_messages[i];
        message.hash = hashText(hashStart, m_texts.c_str() + message.key);
        size_t slot = message.hash & mask;
        const auto isOther = [&](const Message& known) {
            return known.hash != message.hash ||
                   !isKey(m_texts.c_str() + known.key, nullptr, m_texts.c_str() + message.key);
        };
        while (m_slots[slot] != 0 && isOther(m_messages[m_slots[slot] - 1])) slot = (slot + 1) & mask;
        if (m_slots[slot] == 0) m_slots[slot] = i + 1;
    }
}

const char16_t* MoCatalogue::find(const char16_t* context, const char16_t* text, uint64_t number) const {
    uint64_t hash = hashStart;
    if (context != nullptr) hash = hashed(hashText(hash, context), contextEnd);
    hash = hashText(hash, text);
    const size_t mask = m_slots.size() - 1;
    for (size_t slot = hash & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        const Message& message = m_messages[m_slots[slot] - 1];
        if (message.hash != hash || !isKey(m_texts.c_str() + message.key, context, text)) continue;
        uint32_t at = message.value;
        for (; number > 0; --number) {
            at += static_cast<uint32_t>(std::char_traits<char16_t>::length(m_texts.c_str() + at)) + 1;
            if (at >= message.end) at = message.value, number = 1;  // Fewer forms than the header says: the first.
        }
        return m_texts[at] == 0 ? nullptr : m_texts.c_str() + at;
    }
    return nullptr;
}

}  // namespace qv
