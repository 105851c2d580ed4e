// Indexing the lines of a parameter table.
#include <algorithm>
#include <cstring>

#include "measurement/pod_rows.h"
#include "qv/diagnostic.h"
#include "qv/exception.h"
#include "qv/file_system.h"

namespace qv::Private {

namespace {

constexpr uint32_t blockBytes = 0x80000;
/// What the index keeps in memory. Going through the rows in order is fastest with a large window; a row that is
/// reached out of order costs a write and a read of the whole window, and wants a small one.
constexpr uint32_t largeWindow = 0x80000;
constexpr uint32_t smallWindow = 0x1000;
/// So many rows in order pay for a change of the window.
constexpr uint32_t longRun = 4096;
/// An index may take this much, or so many times what the file has: lines are short of fields at times, but a file of
/// empty lines and thousands of columns is not a table that somebody wants to fill the disk with.
constexpr uint64_t indexBytes = uint64_t{1} << 30;
constexpr uint64_t indexRatio = 64;

/// Finds the lines of a file and makes a row of each.
class Indexer {
public:
    Indexer(IFile& file, TPersistedArray<ROW_ENTRY>& rows, uint32_t columns, uint32_t entryBytes)
        : m_file(file), m_rows(rows), m_entry(entryBytes), m_start(file.GetPosition()) {
        COL_ENTRY cell;
        cell.Init();
        cell.state = PodState::inFile;
        auto* const row = reinterpret_cast<ROW_ENTRY*>(m_entry.data());
        std::fill_n(row->columns(), columns, cell);
        const uint64_t limit = std::max(indexBytes, indexRatio * static_cast<uint64_t>(file.GetSize()));
        m_rowLimit = std::min<uint64_t>(limit / entryBytes, IPODFile::none - 1);
    }

    bool run() {
        std::vector<char> block(blockBytes);
        int64_t blockAt = m_start;
        for (;;) {
            const uint32_t got = m_file.Read(block.data(), blockBytes);
            if (got == 0) break;
            if (!addLines(block.data(), block.data() + got, blockAt)) return false;
            blockAt += got;
            // A line that will be too long is not read to its end.
            if (blockAt - m_start > int64_t{podLineBytes}) return refuseLength();
        }
        // An empty last line is no row.
        return blockAt == m_start || addLine(blockAt);
    }

    /// Behind the last line.
    int64_t end() const { return m_start; }

private:
    bool addLines(const char* at, const char* end, int64_t blockAt) {
        const char* const begin = at;
        while (at != end) {
            const auto* lineFeed = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
            if (lineFeed == nullptr) return true;
            at = lineFeed + 1;
            if (!addLine(blockAt + (at - begin))) return false;
        }
        return true;
    }

    /// Adds the line from m_start up to `end`.
    bool addLine(int64_t end) {
        const int64_t length = end - m_start;
        if (length > int64_t{podLineBytes}) return refuseLength();
        if (m_start > int64_t{0xFFFFFFFF}) return refuse(u"rows within the first 4 GiB", u"a row behind them");
        const uint32_t row = m_rows.size();
        if (row >= m_rowLimit) return refuse(u"fewer rows for so many columns", u"one more");
        auto* const entry = reinterpret_cast<ROW_ENTRY*>(m_entry.data());
        entry->offset = static_cast<uint32_t>(m_start);
        entry->length = static_cast<uint16_t>(length);
        std::memcpy(m_rows.GetBytes(row), m_entry.data(), m_entry.size());
        m_start = end;
        return true;
    }

    bool refuseLength() { return refuse(u"a line of at most 8192 bytes", u"a longer one"); }
    bool refuse(const char16_t* expected, const char16_t* found) {
        SetDiagnostic(CString(), expected, CString::FromFormat(u"%s (row %u)", found, m_rows.size()), m_start);
        return false;
    }

    IFile& m_file;
    TPersistedArray<ROW_ENTRY>& m_rows;
    std::vector<uint8_t> m_entry;  ///< What is stored; only offset and length differ from row to row.
    int64_t m_start;               ///< Where the present line begins.
    uint64_t m_rowLimit;
};

}  // namespace

PodRows::PodRows(uint32_t columns)
    : m_rows(nullptr, largeWindow), m_diffFile(fileSystem().CreateTempFile()), m_inUse(columns, 1), m_diffs(diffSlots) {
    if (!m_diffFile) throw CRuntimeErrorException(u"There is no temporary file to be had.");
    for (DIFF_ENTRY& item : m_diffs) item.row = IPODFile::none;
    m_rows.SetElementSize(entryBytes());
}

bool PodRows::index(TSharedPtr<IFile> file) {
    m_file = file;
    m_fileColumns = static_cast<uint32_t>(m_inUse.size());
    Indexer indexer(*file, m_rows, m_fileColumns, entryBytes());
    if (!indexer.run()) return false;
    m_linesEnd = indexer.end();
    fitWindow();
    return true;
}

void PodRows::fitWindow() {
    m_run = 0;
    const uint64_t bytes = uint64_t{rows()} * entryBytes();
    if (m_rows.GetCacheCapacity() > 1 && bytes > largeWindow) m_rows.SetCacheBytes(smallWindow);
}

/// A change goes back to the rows that leave the caches: in order, that is a little behind, where a small window would
/// have to move there and back for each row.
void PodRows::suitWindow(uint32_t row) {
    const bool follows = row == m_runAt + 1;
    m_runAt = row;
    if (follows && ++m_run == longRun) expectOrder();
    if (!follows && m_run >= longRun) fitWindow();
    if (!follows) m_run = 0;
}

void PodRows::expectOrder() { m_rows.SetCacheBytes(largeWindow); }

}  // namespace qv::Private
