// The caches of a parameter table: rows come from the file, changes go to the diff cache and the diff file.
#include "measurement/pod_rows.h"

#include <algorithm>
#include <cstring>

#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/exception.h"

namespace qv::Private {

namespace {

constexpr uint32_t readAheadBytes = 0x80000;

[[noreturn]] void throwFileFailed(const char16_t* expected, int64_t byte) {
    SetDiagnostic(CString(), expected, u"a failing file", byte);
    throw CRuntimeErrorException(u"A file under a table could not be read or written.");
}

[[noreturn]] void throwFileChanged(int64_t byte) {
    SetDiagnostic(CString(), u"the line of a row", u"a file that was changed since it was loaded", byte);
    throw CRuntimeErrorException(u"The file of a table was changed by somebody else.");
}

}  // namespace

/// Where the value of a cell is when it is not in the row cache.
PodState PodRows::stored(const COL_ENTRY& cell, uint32_t column, bool hasLine) const {
    if (m_inUse[column] == 0) return PodState::removed;
    if (cell.diffSlot != COL_ENTRY::noSlot) return PodState::inDiffCache;
    if (cell.diffRecord != COL_ENTRY::noRecord) return PodState::inDiffFile;
    return column < m_fileColumns && hasLine ? PodState::inFile : PodState::empty;
}

const char16_t* PodRows::value(uint32_t column, uint32_t row) {
    return m_cache[moveRowToCache(row)].columns[column].value;
}

void PodRows::put(uint32_t column, uint32_t row, const char16_t* text) {
    // The text may stand in the slot that has to make room.
    char16_t copy[podCellChars];
    copyPodText(copy, podCellChars, text);
    const uint32_t slot = moveRowToCache(row);
    CACHE_COL_ENTRY& to = m_cache[slot].columns[column];
    std::memcpy(to.value, copy, sizeof copy);
    to.flags |= CACHE_COL_ENTRY::changed;
    m_cache[slot].changed = true;
}

// The row cache ------------------------------------------------------------------------------------------------------

/// What is known of a row: in its slot while it is cached, otherwise in the index.
const ROW_ENTRY& PodRows::entry(uint32_t row) {
    const uint32_t slot = slotOf(row);
    return slot < cacheSlots ? *reinterpret_cast<const ROW_ENTRY*>(m_cache[slot].entry.data()) : m_rows[row];
}

COL_ENTRY& PodRows::cellToChange(uint32_t row, uint32_t column) {
    const uint32_t slot = slotOf(row);
    if (slot == cacheSlots) return m_rows[row].columns()[column];
    m_cache[slot].changed = true;
    return reinterpret_cast<ROW_ENTRY*>(m_cache[slot].entry.data())->columns()[column];
}

/// The slot that holds a row; cacheSlots when none does.
uint32_t PodRows::slotOf(uint32_t row) const {
    uint32_t slot = 0;
    while (slot < cacheSlots && m_cache[slot].row != row) ++slot;
    return slot;
}

uint32_t PodRows::freeCacheSlot() {
    const uint32_t unused = slotOf(IPODFile::none);
    if (unused < cacheSlots) return unused;
    const uint32_t slot = m_cacheCursor;
    moveRowToDiffCache(slot);
    m_cacheCursor = (slot + 1) % cacheSlots;
    return slot;
}

uint32_t PodRows::moveRowToCache(uint32_t row) {
    if (m_cache[m_lastSlot].row == row) return m_lastSlot;  // the next cell of a row
    if (const uint32_t slot = slotOf(row); slot < cacheSlots) return m_lastSlot = slot;
    suitWindow(row);
    const uint32_t slot = freeCacheSlot();
    CACHE_ROW_ENTRY& cached = m_cache[slot];
    std::vector<CACHE_COL_ENTRY>& cells = cached.columns;
    const auto count = static_cast<uint32_t>(m_inUse.size());
    if (cells.size() < count) cells.resize(count);
    m_fields.resize(count);
    const unsigned char* const indexed = m_rows.GetBytes(row);
    cached.entry.assign(indexed, indexed + entryBytes());
    auto& entry = *reinterpret_cast<ROW_ENTRY*>(cached.entry.data());
    COL_ENTRY* const columns = entry.columns();
    const auto inFile = [](const COL_ENTRY& cell) { return cell.state == PodState::inFile; };
    if (std::any_of(columns, columns + count, inFile)) splitPodLine(readLine(entry), m_fields);
    for (uint32_t i = 0; i < count; ++i) {
        CACHE_COL_ENTRY& to = cells[i];
        to.flags = 0;
        to.value[0] = 0;
        if (m_inUse[i] == 0) continue;
        switch (columns[i].state) {
            case PodState::inFile:
                if (i < m_fileColumns) decodePodText(to.value, podCellChars, m_fields[i]);
                break;
            case PodState::inDiffCache:
                to.flags = CACHE_COL_ENTRY::changed;
                std::memcpy(to.value, m_diffs[columns[i].diffSlot].value, sizeof to.value);
                break;
            case PodState::inDiffFile: {
                DIFF_ENTRY item;
                readDiff(columns[i].diffRecord, item);
                std::memcpy(to.value, item.value, sizeof to.value);
                break;
            }
            default: break;
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        columns[i].state = PodState::inRowCache;
        columns[i].cacheSlot = static_cast<uint8_t>(slot);
    }
    cached.row = row;
    cached.changed = false;
    return m_lastSlot = slot;
}

/// First every change gets a place, which may fail half-way, then the index is told: the row stays in the cache until
/// all is done.
void PodRows::moveRowToDiffCache(uint32_t slot) {
    CACHE_ROW_ENTRY& cached = m_cache[slot];
    if (cached.changed) {
        const auto count = static_cast<uint32_t>(m_inUse.size());
        for (uint32_t i = 0; i < count; ++i) {
            const bool changed = (cached.columns[i].flags & CACHE_COL_ENTRY::changed) != 0;
            if (changed && m_inUse[i] != 0) storeDiff(cached.row, i, cached.columns[i].value);
        }
        unsigned char* const indexed = m_rows.GetBytes(cached.row);
        auto& entry = *reinterpret_cast<ROW_ENTRY*>(cached.entry.data());
        for (uint32_t i = 0; i < count; ++i) {
            COL_ENTRY& cell = entry.columns()[i];
            cell.state = stored(cell, i, entry.hasLine());
            cell.cacheSlot = COL_ENTRY::noSlot;
        }
        std::memcpy(indexed, cached.entry.data(), entryBytes());
    }
    cached.row = IPODFile::none;
}

void PodRows::emptyRowCache() {
    for (uint32_t slot = 0; slot < cacheSlots; ++slot) {
        if (m_cache[slot].row != IPODFile::none) moveRowToDiffCache(slot);
    }
}

/// A line that is one still, though another program may have written to the file.
std::string_view PodRows::readLine(const ROW_ENTRY& row) {
    const std::string_view line = readBytes(row);
    const size_t lineFeed = line.find('\n');
    const bool isLast = int64_t{row.offset} + row.length == m_linesEnd;
    if (lineFeed != line.size() - 1 && !(isLast && lineFeed == line.npos)) throwFileChanged(row.offset);
    return line;
}

/// A line that follows the last one comes out of a large block, another one is read alone.
std::string_view PodRows::readBytes(const ROW_ENTRY& row) {
    const int64_t begin = row.offset, end = begin + row.length;
    const bool inBlock = begin >= m_blockAt && end <= m_blockAt + static_cast<int64_t>(m_block.size());
    const bool follows = begin == m_nextLine;
    m_nextLine = end;
    if (inBlock) return std::string_view(m_block).substr(static_cast<size_t>(begin - m_blockAt), row.length);
    if (!m_file) throwFileFailed(u"the line of a row", begin);
    m_file->SetPosition(begin);
    if (!follows) {
        if (!m_file->ReadBytes(m_line, row.length)) throwFileFailed(u"the line of a row", begin);
        return {m_line, row.length};
    }
    m_block.resize(readAheadBytes);
    m_block.resize(m_file->Read(m_block.data(), readAheadBytes));
    m_blockAt = begin;
    if (m_block.size() < row.length) throwFileFailed(u"the line of a row", begin);
    return std::string_view(m_block).substr(0, row.length);
}

// Changes ------------------------------------------------------------------------------------------------------------

uint32_t PodRows::freeDiffSlot() {
    for (uint32_t slot = 0; slot < diffSlots; ++slot) {
        if (m_diffs[slot].row == IPODFile::none) return slot;
    }
    const uint32_t slot = m_diffCursor;
    moveItemToDiffFile(slot);
    m_diffCursor = (slot + 1) % diffSlots;
    return slot;
}

/// Puts the text of a changed cell into its diff slot, or a new one.
void PodRows::storeDiff(uint32_t row, uint32_t column, const char16_t* text) {
    uint32_t slot = cellToChange(row, column).diffSlot;
    if (slot == COL_ENTRY::noSlot) {
        slot = freeDiffSlot();
        cellToChange(row, column).diffSlot = static_cast<uint8_t>(slot);
        m_diffs[slot].row = row;
        m_diffs[slot].column = column;
    }
    std::memcpy(m_diffs[slot].value, text, sizeof m_diffs[slot].value);
}

/// A cell keeps its record: the file grows with the cells that were ever changed, not with their changes.
void PodRows::moveItemToDiffFile(uint32_t slot) {
    DIFF_ENTRY& item = m_diffs[slot];
    COL_ENTRY& owner = cellToChange(item.row, item.column);
    const bool isNew = owner.diffRecord == COL_ENTRY::noRecord;
    const uint32_t record = isNew ? m_diffRecords : owner.diffRecord;
    const int64_t at = int64_t{record} * int64_t{sizeof(DIFF_ENTRY)};
    m_diffFile->SetPosition(at);
    if (record == COL_ENTRY::noRecord || !m_diffFile->WriteBytes(&item, sizeof item)) {
        throwFileFailed(u"room for a changed cell", at);
    }
    if (isNew) ++m_diffRecords;
    owner.diffRecord = record;
    owner.diffSlot = COL_ENTRY::noSlot;
    if (owner.state == PodState::inDiffCache) owner.state = PodState::inDiffFile;
    item.row = IPODFile::none;
}

void PodRows::readDiff(uint32_t record, DIFF_ENTRY& item) {
    const int64_t at = int64_t{record} * int64_t{sizeof(DIFF_ENTRY)};
    m_diffFile->SetPosition(at);
    if (!m_diffFile->ReadBytes(&item, sizeof item)) throwFileFailed(u"a changed cell", at);
    item.value[podCellChars - 1] = 0;
}

// Rows and columns that come and go ----------------------------------------------------------------------------------

void PodRows::addRow() {
    const uint32_t row = m_rows.size();
    ROW_ENTRY& entry = m_rows[row];
    entry.offset = 0;
    entry.length = 0;
    for (uint32_t i = 0; i < m_inUse.size(); ++i) entry.columns()[i].Init();
}

void PodRows::removeRow(uint32_t row) {
    m_rows.Remove(row);
    const auto follow = [row](uint32_t& held) {
        if (held == IPODFile::none || held < row) return;
        held = held == row ? IPODFile::none : held - 1;
    };
    for (CACHE_ROW_ENTRY& cached : m_cache) follow(cached.row);
    for (DIFF_ENTRY& item : m_diffs) follow(item.row);
}

void PodRows::addColumn() {
    emptyRowCache();
    const auto column = static_cast<uint32_t>(m_inUse.size());
    expectOrder();
    m_rows.SetElementSize(entryBytes(column + 1));
    m_inUse.push_back(1);
    for (uint32_t row = 0; row < m_rows.size(); ++row) m_rows[row].columns()[column].Init();
    fitWindow();
}

void PodRows::removeColumn(uint32_t column) {
    for (DIFF_ENTRY& item : m_diffs) {
        if (item.row == IPODFile::none || item.column != column) continue;
        COL_ENTRY& owner = cellToChange(item.row, column);
        owner.diffSlot = COL_ENTRY::noSlot;
        if (owner.state == PodState::inDiffCache) owner.state = PodState::removed;
        item.row = IPODFile::none;
    }
    m_inUse[column] = 0;
}

// Saving -------------------------------------------------------------------------------------------------------------

void PodRows::appendLine(std::string& out, uint32_t row, uint32_t last) {
    const auto count = static_cast<uint32_t>(m_inUse.size());
    m_fields.resize(count);
    const ROW_ENTRY& entry = this->entry(row);
    const COL_ENTRY* const cells = entry.columns();
    if (entry.hasLine()) splitPodLine(readLine(entry), m_fields);
    for (uint32_t i = 0; i < count; ++i) {
        if (m_inUse[i] == 0) continue;
        appendCell(out, cells[i], i, entry.hasLine());
        if (i != last) out += '\t';
    }
    out += "\r\n";
}

void PodRows::appendCell(std::string& out, const COL_ENTRY& cell, uint32_t column, bool hasLine) {
    PodState state = cell.state;
    if (state == PodState::inRowCache) {
        const CACHE_COL_ENTRY& cached = m_cache[cell.cacheSlot].columns[column];
        if ((cached.flags & CACHE_COL_ENTRY::changed) != 0) {
            return appendPodField(out, text::toUtf8(cached.value));
        }
        state = stored(cell, column, hasLine);
    }
    DIFF_ENTRY item;
    switch (state) {
        case PodState::inFile:
            return appendPodField(out, column < m_fileColumns ? m_fields[column] : std::string_view());
        case PodState::inDiffCache: return appendPodField(out, text::toUtf8(m_diffs[cell.diffSlot].value));
        case PodState::inDiffFile:
            readDiff(cell.diffRecord, item);
            return appendPodField(out, text::toUtf8(item.value));
        default: return appendPodField(out, {});
    }
}

void PodRows::lineInfo(uint32_t row, CPODFile::LINE_INFO& info) {
    info = {};
    const ROW_ENTRY& entry = this->entry(row);
    if (!entry.hasLine()) return;
    info.offset = entry.offset;
    info.length = entry.length;
    // One field for each byte is more than there are.
    m_fields.resize(info.length);
    info.fields = splitPodLine(readLine(entry), m_fields);
    for (uint32_t i = 0; i < info.fields; ++i) {
        if (m_fields[i].size() >= podCellChars) info.cut += text::convertedLength(m_fields[i]) >= podCellChars ? 1 : 0;
    }
}

}  // namespace qv::Private
