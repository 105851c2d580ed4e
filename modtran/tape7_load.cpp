// CModtranTape7File::Load.
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "core/text.h"
#include "files/line_reader.h"
#include "modtran/tape7_heading.h"
#include "numerics/fortran_number.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/tape7_file.h"

namespace qv {

namespace {

using Private::Tape7Field;
using Private::Tape7Layout;

constexpr uint16_t doublingRate = 0xFFFF;
constexpr double endMarker = -9999.0;
/// The program writes ten.
constexpr uint32_t mostHeaderLines = 64;

std::string_view stripped(std::string_view text) { return Tape7Field{0, text.size()}.in(text); }

/// A field of a row. Blanks, asterisks of an overflow, and what is no finite number are absent. Nothing for a text that
/// is none of these.
std::optional<double> valueOf(std::string_view field) {
    if (field.empty() || field.find_first_not_of('*') == std::string_view::npos) return TAPE7_DATA::absent;
    size_t used = 0;
    const double value = Private::fortranNumber(field, used);
    if (used != field.size() || field.find_first_of("xX") != std::string_view::npos) return std::nullopt;
    return std::isfinite(value) ? value : TAPE7_DATA::absent;
}

bool isEndMarker(std::string_view line) {
    line = stripped(line);
    return line.starts_with('-') && valueOf(line.substr(0, line.find(' '))) == endMarker;
}

/// An integer of a card's five columns from `begin` on, blank for 0; nothing for another text.
std::optional<int> cardNumber(std::string_view line, size_t begin) {
    const std::string_view field = Tape7Field{begin, begin + 5}.in(line);
    if (field.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
    return field.empty() ? 0 : text::atol(field);
}

/// The execution mode that the echo of the deck's first card gives; nothing for a line that is none.
std::optional<int> modeOf(std::string_view line) {
    const std::optional<int> path = cardNumber(line, 5);
    const std::optional<int> mode = cardNumber(line, 10);
    if (!path || *path < 1 || *path > 4 || !mode || *mode > 3) return std::nullopt;
    return mode;
}

/// One pass over the file.
class Parser {
public:
    Parser(IFile& file, CString path, TArray<TAPE7_RUN>& runs) : m_lines(file), m_path(std::move(path)), m_runs(runs) {}

    bool parse() {
        while (next()) {
            if (stripped(m_line).empty()) continue;
            if (!(isEndMarker(m_line) ? takeFailedRun() : takeRun())) return false;
        }
        if (m_lines.isLineTooLong()) return refuse(u"a line of at most 65536 bytes", u"a longer one");
        return !m_runs.empty() || refuse(u"the output of the atmosphere program", u"no line of it");
    }

private:
    bool next() {
        if (std::exchange(m_again, false)) return true;
        return m_lines.next(m_line);
    }

    bool refuse(const char16_t* expected, const CString& found) {
        SetDiagnostic(m_path, expected, found, -1, m_lines.lineNumber());
        return false;
    }
    bool refuseLine(const char16_t* expected, std::string_view line) {
        constexpr size_t quoted = 60;
        return refuse(expected, line.empty() ? CString(u"an empty line") : CString(line.substr(0, quoted)));
    }
    bool refuseLine(const char16_t* expected) { return refuseLine(expected, m_line); }
    bool outOfMemory() { return refuse(u"memory for the table", u"too little"); }

    TAPE7_RUN& run() { return m_runs.back(); }
    bool addRun() { return m_runs.SetSize(m_runs.size() + 1) || outOfMemory(); }

    /// The program gives a run up with an end marker and one line behind it.
    bool takeFailedRun() {
        if (!addRun()) return false;
        run().complete = true;
        if (next() && modeOf(m_line)) m_again = true;
        return true;
    }

    bool takeRun() {
        const std::optional<int> mode = modeOf(m_line);
        if (!mode) return refuseLine(u"the echo of a deck's first card");
        if (!addRun()) return false;
        run().mode = *mode;
        bool ended = false;
        if (!takeHeader(ended)) return false;
        if (ended)
            return m_runs.size() > 1 ? cutOff() : refuse(u"a heading that begins with FREQ", u"the end of the file");
        return takeHeading(ended) && (ended ? cutOff() : takeRows());
    }

    /// Up to the heading, or until the file has `ended`.
    bool takeHeader(bool& ended) {
        do {
            if (run().header.size() == mostHeaderLines) return refuseLine(u"a heading that begins with FREQ");
            if (!run().header.Add(CString(m_line))) return outOfMemory();
            ended = !next();
        } while (!ended && !Private::isTape7Heading(m_line));
        return true;
    }

    bool takeHeading(bool& ended) {
        const std::string first(m_line);
        std::string second;
        if (Private::hasSecondHeading(run().mode)) {
            ended = !next();
            if (ended) return true;
            second = m_line;
        }
        std::optional<Tape7Layout> layout = Private::tape7Layout(run().mode, first, second);
        if (!layout) {
            const CString expected = CString::FromFormat(u"the heading of a table of execution mode %d", run().mode);
            return refuseLine(expected.c_str(), first);
        }
        m_layout = std::move(*layout);
        run().axis = m_layout.axis;
        for (const Tape7Field& field : m_layout.columns) {
            if (!run().columns.Add(field.column)) return outOfMemory();
        }
        return true;
    }

    /// Rows up to the end marker. A cut file ends within its last row, which is left out then.
    bool takeRows() {
        run().data.SetGrowthRate(doublingRate);
        size_t lastLength = m_layout.width, length = m_layout.width;
        while (next()) {
            if (isEndMarker(m_line)) {
                run().complete = true;
                return true;
            }
            if (stripped(m_line).empty()) continue;
            TAPE7_DATA row;
            const char16_t* const expected = readRow(row);
            if (expected != nullptr) {
                refuseLine(expected);
                return !next() && !m_lines.isLineTooLong() && cutOff();
            }
            if (!run().data.Add(row)) return outOfMemory();
            lastLength = std::exchange(length, m_line.size());
        }
        if (m_lines.isLineTooLong()) return true;  // parse() says so
        if (length < lastLength) run().data.pop_back();
        return cutOff();
    }

    /// Null, or what should have stood in the line.
    const char16_t* readRow(TAPE7_DATA& row) {
        const std::optional<double> freq = valueOf(m_layout.freq.in(m_line));
        if (!freq || std::isnan(*freq) || *freq < 0.0) return u"a row that begins with a frequency";
        row.freq = *freq;
        const TArray<TAPE7_DATA>& rows = run().data;
        if (!rows.empty() && row.freq < rows.back().freq) return u"a frequency that is not below the last one";
        if (m_layout.columns.front().in(m_line).empty()) return u"a row with a transmittance";
        for (const Tape7Field& field : m_layout.columns) {
            const std::optional<double> value = valueOf(field.in(m_line));
            if (!value) return u"a row of numbers";
            row[field.column] = *value;
        }
        return nullptr;
    }

    bool cutOff() {
        refuse(u"an end marker, -9999.", u"the end of the file");
        return true;
    }

    LineReader m_lines;
    const CString m_path;
    TArray<TAPE7_RUN>& m_runs;
    Tape7Layout m_layout;
    std::string_view m_line;
    bool m_again = false;
};

bool parse(IFile& file, const CString& path, TArray<TAPE7_RUN>& runs) {
    runs.Destroy();
    if (Parser(file, path, runs).parse()) return true;
    runs.Destroy();
    return false;
}

}  // namespace

bool CModtranTape7File::Load(TSharedPtr<IFile> file, uint64_t) {
    if (file) return parse(*file, CString(), m_runs);
    m_runs.Destroy();
    SetDiagnostic(CString(), u"an open file", u"none");
    return false;
}

bool CModtranTape7File::Load(IFileSystem* fs, const char16_t* path, uint64_t) {
    m_runs.Destroy();
    if (fs == nullptr || path == nullptr) {
        SetDiagnostic(CString(path), u"a file system and a path", u"none");
        return false;
    }
    const TSharedPtr<IFile> file = fs->CreateFileW(path, CFile::openExisting | CFile::accessRead);
    if (file) return parse(*file, path, m_runs);
    SetDiagnosticFile(path);
    return false;
}

bool CModtranTape7File::Load(const char16_t* path, uint64_t flags) { return Load(&fileSystem(), path, flags); }

}  // namespace qv
