// The rows of a parameter table: the index of the file's lines, the cache of decoded rows, and the changes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "measurement/pod_line.h"
#include "qv/file.h"
#include "qv/persisted_array.h"
#include "qv/pod_file.h"

namespace qv::Private {

/// Where a cell's value is.
enum class PodState : uint32_t {
    empty = 0,
    inFile = 1,
    inRowCache = 2,
    inDiffCache = 3,
    inDiffFile = 4,
    removed = 5,  ///< With its column.
};

#pragma pack(push, 1)
/// What the index knows of a cell.
struct COL_ENTRY {
    static constexpr uint8_t noSlot = 0xFF;
    static constexpr uint32_t noRecord = 0xFFFFFFFFu;

    PodState state;
    uint8_t cacheSlot;    ///< Slot of the row cache.
    uint8_t diffSlot;     ///< Slot of the diff cache.
    uint32_t diffRecord;  ///< Record of the diff file.

    void Init() {
        state = PodState::empty;
        cacheSlot = diffSlot = noSlot;
        diffRecord = noRecord;
    }
};

/// What the index knows of a row. Behind it stands a COL_ENTRY for each column.
struct ROW_ENTRY {
    uint32_t offset;  ///< Of the line in the file; 0 and length 0 for a row that has none.
    uint16_t length;  ///< Of the line with its end.

    bool hasLine() const { return length != 0; }
    COL_ENTRY* columns() { return reinterpret_cast<COL_ENTRY*>(this + 1); }
    const COL_ENTRY* columns() const { return reinterpret_cast<const COL_ENTRY*>(this + 1); }
};
#pragma pack(pop)
static_assert(sizeof(COL_ENTRY) == 10 && sizeof(ROW_ENTRY) == 6);

/// A cell of the row cache.
struct CACHE_COL_ENTRY {
    static constexpr uint32_t changed = 1;
    uint32_t flags;
    char16_t value[podCellChars];
};

/// A row of the row cache.
struct CACHE_ROW_ENTRY {
    std::vector<CACHE_COL_ENTRY> columns;
    uint32_t row = IPODFile::none;  ///< `none`: free.
    /// The row's entry while it is here. The index keeps the one from before, which is right again when the row goes,
    /// unless something of it was changed.
    std::vector<uint8_t> entry;
    bool changed = false;
};

/// A changed cell: a slot of the diff cache and, byte for byte, a record of the diff file.
struct DIFF_ENTRY {
    uint32_t row;  ///< `none`: a free slot. In the file not kept up when rows move.
    uint32_t column;
    char16_t value[podCellChars];
};
static_assert(sizeof(DIFF_ENTRY) == 520);

/// All of it. What needs a temporary file throws CException where that cannot be written or read, with the diagnostic
/// set, and leaves the cells as they were; without memory it throws std::bad_alloc.
class PodRows {
public:
    static constexpr uint32_t maxColumns = 4096;

    /// No rows of `columns` columns. Makes the diff file.
    explicit PodRows(uint32_t columns);

    /// Indexes the lines of `file` from its position on, and keeps it for their contents. False for a file that is
    /// beyond the limits.
    bool index(TSharedPtr<IFile> file);
    /// Lets go of the file, or takes up the same one again.
    void setFile(TSharedPtr<IFile> file) { m_file = file; }

    uint32_t rows() const { return m_rows.size(); }
    uint32_t columns() const { return static_cast<uint32_t>(m_inUse.size()); }
    uint32_t entryBytes() const { return entryBytes(columns()); }
    static constexpr uint32_t entryBytes(uint32_t columns) {
        return static_cast<uint32_t>(sizeof(ROW_ENTRY) + sizeof(COL_ENTRY) * columns);
    }

    // REQUIRES: `row` and `column` are in range.
    const char16_t* value(uint32_t column, uint32_t row);
    void put(uint32_t column, uint32_t row, const char16_t* text);

    void addRow();
    void removeRow(uint32_t row);
    void addColumn();
    void removeColumn(uint32_t column);

    /// The next calls go through the rows in order, until fitWindow().
    void expectOrder();
    /// Suits the window of the index to rows that are reached in any order.
    void fitWindow();

    /// Appends the line of a row as it is written, columns in use alone. Values that were not changed go over as the
    /// bytes that they are in the file. `last` is the last column in use.
    void appendLine(std::string& out, uint32_t row, uint32_t last);
    void lineInfo(uint32_t row, CPODFile::LINE_INFO& info);

private:
    static constexpr uint32_t cacheSlots = 64;
    static constexpr uint32_t diffSlots = 32;

    const ROW_ENTRY& entry(uint32_t row);
    COL_ENTRY& cellToChange(uint32_t row, uint32_t column);
    PodState stored(const COL_ENTRY& cell, uint32_t column, bool hasLine) const;

    uint32_t slotOf(uint32_t row) const;
    uint32_t moveRowToCache(uint32_t row);
    void moveRowToDiffCache(uint32_t slot);
    void storeDiff(uint32_t row, uint32_t column, const char16_t* text);
    void moveItemToDiffFile(uint32_t slot);
    void readDiff(uint32_t record, DIFF_ENTRY& item);
    void suitWindow(uint32_t row);
    uint32_t freeCacheSlot();
    uint32_t freeDiffSlot();
    void emptyRowCache();
    std::string_view readLine(const ROW_ENTRY& row);
    std::string_view readBytes(const ROW_ENTRY& row);
    void appendCell(std::string& out, const COL_ENTRY& cell, uint32_t column, bool hasLine);

    TPersistedArray<ROW_ENTRY> m_rows;
    TSharedPtr<IFile> m_file;
    TSharedPtr<IFile> m_diffFile;
    std::vector<uint8_t> m_inUse;
    uint32_t m_fileColumns = 0;  ///< Columns that the lines of the file have.
    int64_t m_linesEnd = 0;      ///< Where the file ended when it was indexed.
    uint32_t m_diffRecords = 0;
    uint32_t m_cacheCursor = 0;  ///< Next slot to evict.
    uint32_t m_lastSlot = 0;     ///< That a cell was asked of.
    uint32_t m_runAt = 0;        ///< The row that came into the cache last,
    uint32_t m_run = 0;          ///< and how many before it came in order.
    uint32_t m_diffCursor = 0;
    CACHE_ROW_ENTRY m_cache[cacheSlots];
    std::vector<DIFF_ENTRY> m_diffs;
    std::vector<std::string_view> m_fields;
    char m_line[podLineBytes];
    std::string m_block;  ///< Lines read ahead.
    int64_t m_blockAt = 0;
    int64_t m_nextLine = -1;  ///< Where the line behind the last one begins.
};

}  // namespace qv::Private
