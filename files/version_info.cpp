#include "qv/version_info.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/file.h"

namespace qv {

namespace {

uint16_t word(const uint8_t* at) { return static_cast<uint16_t>(at[0] | at[1] << 8); }
uint32_t dword(const uint8_t* at) { return word(at) | uint32_t{word(at + 2)} << 16; }

/// The most bytes that a record can have: its length is a 16-bit number.
constexpr uint32_t maxRecordBytes = 0xFFFF;

// The executable ------------------------------------------------------------------------------------------------------

/// Finds the version record in an executable file.
class Executable {
public:
    explicit Executable(IFile& file) : m_file(file), m_size(file.GetSize()) {}

    /// False with a diagnostic.
    bool readRecord(std::vector<uint8_t>& record) {
        uint32_t entry = 0;
        return readHeaders() && findEntry(entry) && readEntry(entry, record);
    }

private:
    struct Section {
        uint32_t address, size;  // In memory; the size of what the file holds.
        uint32_t position;
    };

    bool fail(const char16_t* expected, const char16_t* found, int64_t position) {
        SetDiagnostic(CString(), expected, found, position);
        return false;
    }

    bool readAt(int64_t position, void* data, uint32_t count) {
        return position >= 0 && position <= m_size - count && m_file.SetPosition(position) == position &&
               m_file.ReadBytes(data, count);
    }

    bool readHeaders() {
        uint8_t dos[64], pe[24], optional[256];
        if (!readAt(0, dos, sizeof dos) || dos[0] != 'M' || dos[1] != 'Z') {
            return fail(u"a Windows executable, which begins with MZ", u"something else", 0);
        }
        const int64_t start = dword(dos + 60);
        if (!readAt(start, pe, sizeof pe) || std::memcmp(pe, "PE\0\0", 4) != 0) {
            return fail(u"the signature PE of a Windows executable", u"something else", start);
        }
        const uint32_t count = word(pe + 6), optionalSize = word(pe + 20);
        const uint32_t taken = std::min<uint32_t>(optionalSize, sizeof optional);
        const int64_t optionalStart = start + 24;
        if (taken < 2 || !readAt(optionalStart, optional, taken)) {
            return fail(u"the optional header of an executable", u"too few bytes", optionalStart);
        }
        const uint16_t magic = word(optional);
        if (magic != 0x10B && magic != 0x20B) return fail(u"a PE32 or PE32+ header", u"another kind", optionalStart);
        // Behind the fixed fields: how many directories there are, then a position and a size for each; resources are
        // the third.
        const uint32_t directories = magic == 0x10B ? 92 : 108, resources = directories + 4 + 2 * 8;
        const bool present = resources + 8 <= taken && dword(optional + directories) > 2;
        m_root = present ? dword(optional + resources) : 0;
        if (m_root == 0) return fail(u"resources in the executable", u"none", optionalStart);
        return readSections(optionalStart + optionalSize, count);
    }

    bool readSections(int64_t position, uint32_t count) {
        if (position + int64_t{count} * 40 > m_size)
            return fail(u"the table of sections", u"the end of the file", position);
        std::vector<uint8_t> table(size_t{count} * 40);
        if (!readAt(position, table.data(), static_cast<uint32_t>(table.size()))) {
            return fail(u"the table of sections", u"too few bytes", position);
        }
        for (const uint8_t* at = table.data(); count-- > 0; at += 40) {
            // What lies behind the size in memory is padding; a size of 0 there means the size in the file.
            const uint32_t inMemory = dword(at + 8), inFile = dword(at + 16);
            m_sections.push_back({dword(at + 12), inMemory == 0 ? inFile : std::min(inMemory, inFile), dword(at + 20)});
        }
        return true;
    }

    /// Reads bytes of one section by their address in memory.
    bool readAddress(uint64_t address, void* data, uint32_t count) {
        for (const Section& section : m_sections) {
            if (address < section.address || address - section.address >= section.size) continue;
            const uint64_t offset = address - section.address;
            return count <= section.size - offset &&
                   readAt(static_cast<int64_t>(section.position + offset), data, count);
        }
        return false;
    }

    /// An entry of a directory: its number (or the offset of its name, with the highest bit) and the offset of what it
    /// leads to, with the highest bit for another directory.
    struct Entry {
        uint32_t id, target;
    };

    /// The entry with the given number, else the first where that does; an id of 0 is none.
    bool chooseEntry(uint32_t directory, uint32_t id, bool orFirst, Entry& chosen) {
        uint8_t header[16];
        const uint64_t address = uint64_t{m_root} + directory;
        if (!readAddress(address, header, sizeof header)) return false;
        const uint32_t count = uint32_t{word(header + 12)} + word(header + 14);
        std::vector<uint8_t> entries(std::min<size_t>(count, entriesAtOnce) * 8);
        bool found = false;
        for (uint32_t done = 0; done < count; done += entriesAtOnce) {
            const uint32_t taken = std::min(count - done, entriesAtOnce);
            if (!readAddress(address + 16 + uint64_t{done} * 8, entries.data(), taken * 8)) return found;
            for (const uint8_t* at = entries.data(); at != entries.data() + taken * 8; at += 8) {
                const bool same = dword(at) == id;
                if (!same && (found || !orFirst)) continue;
                chosen = {dword(at), dword(at + 4)};
                found = true;
                if (same) return true;
            }
        }
        return found;
    }

    /// The entry of the record's data: the directories of kinds, of names and of languages lead there.
    bool findEntry(uint32_t& offset) {
        constexpr uint32_t versionKind = 16, usualName = 1;
        struct Level {
            uint32_t id;
            bool orFirst, leadsToDirectory;
        };
        constexpr Level levels[] = {{versionKind, false, true}, {usualName, true, true}, {0, true, false}};
        offset = 0;
        for (const Level& level : levels) {
            Entry entry{};
            if (!chooseEntry(offset, level.id, level.orFirst, entry)) {
                return fail(u"a version record in the resources", u"none", -1);
            }
            if ((entry.target >> 31 != 0) != level.leadsToDirectory) {
                return fail(u"resources by kind, name and language", u"other levels", -1);
            }
            offset = entry.target & 0x7FFFFFFF;
        }
        return true;
    }

    bool readEntry(uint32_t offset, std::vector<uint8_t>& record) {
        uint8_t entry[16];
        if (!readAddress(uint64_t{m_root} + offset, entry, sizeof entry)) {
            return fail(u"the place of the version record", u"an address outside the file", -1);
        }
        record.resize(std::min(dword(entry + 4), maxRecordBytes));
        if (readAddress(dword(entry), record.data(), static_cast<uint32_t>(record.size()))) return true;
        return fail(u"the version record", u"an address outside the file", -1);
    }

    static constexpr uint32_t entriesAtOnce = 512;

    IFile& m_file;
    const int64_t m_size;
    uint32_t m_root = 0;
    std::vector<Section> m_sections;
};

constexpr uint32_t aligned(uint32_t offset) { return (offset + 3) & ~3u; }

}  // namespace

// The record ----------------------------------------------------------------------------------------------------------

/// Reads a record. It is made of blocks: three 16-bit numbers (bytes of the whole block, size of its value, 1 when that
/// is text), a name in UTF-16 with its terminator, the value, and blocks inside; value and blocks begin at multiples of
/// four bytes from the record's start.
class CVersionInfo::RecordReader {
public:
    RecordReader(const std::vector<uint8_t>& record, CVersionInfo& info) : m_record(record), m_info(info) {}

    bool read() {
        Block root;
        if (!readBlock(0, static_cast<uint32_t>(m_record.size()), root) || root.name.view() != u"VS_VERSION_INFO") {
            return fail(u"a version record", 0);
        }
        if (root.valueSize != 0 && !readFixedInfo(root)) return fail(u"the fixed part of a version record", root.value);
        // The fixed part may be absent or longer than what is known of it: the blocks follow its stated size.
        return eachBlock(aligned(root.value + root.valueSize), root.end, [this](const Block& block) {
            if (block.name.view() == u"StringFileInfo") return readTables(block);
            return block.name.view() != u"VarFileInfo" || readTranslations(block);
        });
    }

private:
    struct Block {
        CString name;
        uint32_t value = 0, end = 0;  // Offsets of the value, which may be the end, and of the end.
        uint32_t valueSize = 0;       // As stated: units of text, or bytes.
    };

    bool fail(const char16_t* expected, uint32_t offset) {
        SetDiagnostic(CString(), expected, CString::FromFormat(u"damage at byte %u of the version record", offset));
        return false;
    }

    bool readBlock(uint32_t start, uint32_t limit, Block& block) {
        if (limit - start < 6) return false;
        const uint8_t* head = &m_record[start];
        const uint32_t size = word(head);
        if (size < 6 || size > limit - start) return false;
        block.end = start + size;
        block.valueSize = word(head + 2);
        uint32_t at = start + 6;
        block.name = readText(at, block.end);
        block.value = std::min(aligned(at), block.end);
        return true;
    }

    /// Text up to its terminator, which is passed, or to the limit.
    CString readText(uint32_t& at, uint32_t limit) {
        std::u16string text;
        while (limit - at >= 2) {
            const char16_t c = word(&m_record[at]);
            at += 2;
            if (c == 0) break;
            text += c;
        }
        return CString(text);
    }

    /// Blocks one behind the other, until the end or a block of no bytes, which some compilers leave as padding.
    template <class Visit>
    bool eachBlock(uint32_t start, uint32_t limit, Visit visit) {
        for (uint32_t at = start; at < limit && limit - at >= 2 && word(&m_record[at]) != 0;) {
            Block block;
            if (!readBlock(at, limit, block)) return fail(u"a block inside its block", at);
            if (!visit(block)) return false;
            at = aligned(block.end);
        }
        return true;
    }

    bool readFixedInfo(const Block& root) {
        constexpr uint32_t fixedBytes = 52, signature = 0xFEEF04BD;
        if (root.valueSize < fixedBytes || root.end - root.value < root.valueSize) return false;
        const uint8_t* at = &m_record[root.value];
        if (dword(at) != signature) return false;
        const auto number = [at](int high) { return uint64_t{dword(at + high)} << 32 | dword(at + high + 4); };
        m_info.m_fixed = {{number(8)},    {number(16)},   dword(at + 24), dword(at + 28),
                          dword(at + 32), dword(at + 36), dword(at + 40), number(44)};
        m_info.m_hasFixedInfo = true;
        return true;
    }

    bool readTables(const Block& info) {
        return eachBlock(info.value, info.end, [this](const Block& block) {
            StringTable table;
            if (!readTranslation(block.name.view(), table.translation)) {
                return fail(u"a language and a code page in eight digits", block.value);
            }
            const bool read = eachBlock(block.value, block.end, [this, &table](const Block& entry) {
                // The size is in units, or in bytes by some compilers: the text ends at its terminator all the same.
                const uint32_t room = entry.end - entry.value;
                uint32_t at = entry.value;
                const uint32_t units = std::min(entry.valueSize, room / 2);
                table.strings.Add({entry.name, readText(at, at + units * 2)});
                return true;
            });
            m_info.m_tables.Add(table);
            return read;
        });
    }

    static bool readTranslation(std::u16string_view name, Translation& translation) {
        if (name.size() != 8) return false;
        uint32_t value = 0;
        for (const char16_t c : name) {
            const size_t digit = std::u16string_view(u"0123456789abcdef").find(text::toLower(c));
            if (digit == std::u16string_view::npos) return false;
            value = value << 4 | static_cast<uint32_t>(digit);
        }
        translation = {static_cast<uint16_t>(value >> 16), static_cast<uint16_t>(value)};
        return true;
    }

    bool readTranslations(const Block& info) {
        return eachBlock(info.value, info.end, [this](const Block& block) {
            if (block.name.view() != u"Translation") return true;
            const uint32_t size = std::min(block.valueSize, block.end - block.value);
            for (uint32_t done = 0; done + 4 <= size; done += 4) {
                const uint8_t* at = &m_record[block.value + done];
                m_info.m_translations.Add({word(at), word(at + 2)});
            }
            return true;
        });
    }

    const std::vector<uint8_t>& m_record;
    CVersionInfo& m_info;
};

bool CVersionInfo::Load(IFile* file) {
    Empty();
    if (file == nullptr) return false;
    std::vector<uint8_t> record;
    if (!Executable(*file).readRecord(record)) return false;
    CVersionInfo loaded;
    if (!RecordReader(record, loaded).read()) return false;
    *this = loaded;
    return true;
}

bool CVersionInfo::Load(IFileSystem* fileSystem, const char16_t* path) {
    Empty();
    if (fileSystem == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file =
        fileSystem->CreateFileW(path, CFile::openExisting | CFile::accessRead | CFile::shareRead);
    if (file && Load(&*file)) return true;
    SetDiagnosticFile(path);
    return false;
}

void CVersionInfo::Empty() { *this = CVersionInfo(); }

const CVersionInfo::StringTable* CVersionInfo::find(Translation translation) const {
    for (const StringTable& table : m_tables) {
        if (table.translation == translation) return &table;
    }
    return nullptr;
}

namespace {

CString stringOf(const CVersionInfo::StringTable* table, const CString& name) {
    if (table == nullptr) return CString();
    for (const CVersionInfo::StringEntry& entry : table->strings) {
        if (text::compareNoCase(entry.name.view(), name.view()) == 0) return entry.value;
    }
    return CString();
}

}  // namespace

CString CVersionInfo::GetString(const CString& name, Translation translation) const {
    return stringOf(find(translation), name);
}

CString CVersionInfo::GetString(const CString& name) const {
    for (const Translation& translation : m_translations) {
        if (const StringTable* table = find(translation)) return stringOf(table, name);
    }
    return m_tables.size() == 0 ? CString() : stringOf(&m_tables.ConstGetItem(0), name);
}

CString CVersionInfo::Number::ToString() const {
    return CString::FromFormat(u"%u.%u.%u.%u", uint32_t{Part(0)}, uint32_t{Part(1)}, uint32_t{Part(2)},
                               uint32_t{Part(3)});
}

CVersionInfo::Number CVersionInfo::LibraryVersion() {
    return {uint64_t{QV_VERSION_MAJOR} << 48 | uint64_t{QV_VERSION_MINOR} << 32 | uint64_t{QV_VERSION_PATCH} << 16};
}

CString CVersionInfo::LibraryVersionText() { return QV_VERSION_STRING; }

}  // namespace qv
