// ReadXYFile and ReadModtranFile.
#include <array>
#include <optional>
#include <string_view>

#include "core/text.h"
#include "files/line_reader.h"
#include "numerics/fortran_number.h"
#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/spectral.h"

namespace qv {

namespace {

constexpr std::string_view separators = ", \t";
constexpr uint16_t doublingRate = 0xFFFF;

/// One array that a file's column is read into: emptied, and growing by doubling until the reading is over.
class Column {
public:
    explicit Column(TArray<double>& values) : m_values(values), m_growthRate(values.SetGrowthRate(doublingRate)) {
        m_values.Empty();
    }
    Column(const Column&) = delete;
    Column& operator=(const Column&) = delete;
    ~Column() { m_values.SetGrowthRate(m_growthRate); }

    bool add(double value) { return m_values.Add(value); }
    void reverse() { Reverse(m_values); }

private:
    TArray<double>& m_values;
    uint16_t m_growthRate;
};

std::string_view stripped(std::string_view line) {
    while (!line.empty() && text::isSpace(line.front())) line.remove_prefix(1);
    while (!line.empty() && text::isSpace(line.back())) line.remove_suffix(1);
    return line;
}

bool beginsWith(std::string_view line, std::string_view word) {
    return line.size() >= word.size() && text::compareNoCase(line, word, word.size()) == 0;
}

/// The first non-empty tokens of a line; false when there are fewer.
template <size_t count>
bool split(std::string_view line, std::array<std::string_view, count>& tokens) {
    for (std::string_view& token : tokens) {
        const size_t begin = line.find_first_not_of(separators);
        if (begin == std::string_view::npos) return false;
        line.remove_prefix(begin);
        token = line.substr(0, line.find_first_of(separators));
        line.remove_prefix(token.size());
    }
    return true;
}

double fortranNumber(std::string_view token) {
    size_t used = 0;
    return Private::fortranNumber(token, used);
}

/// An open curve file: its lines, stripped and without the blank ones, and the diagnostics that name it.
class CurveFile {
public:
    CurveFile(IFileSystem* fs, const char16_t* path) : m_path(path) {
        if (fs == nullptr || path == nullptr) {
            SetDiagnostic(m_path, u"a file system and a path", u"none");
            return;
        }
        m_file = fs->CreateFileW(path, CFile::openExisting | CFile::accessRead);
        if (m_file.get() == nullptr) {
            SetDiagnosticFile(m_path);
        } else {
            m_lines.emplace(*m_file);
        }
    }

    bool isOpen() const { return m_lines.has_value(); }

    /// False at the end of the file and at a line that is too long, of which isWhole tells.
    bool nextLine(std::string_view& line) {
        while (m_lines->next(line)) {
            line = stripped(line);
            if (!line.empty()) return true;
        }
        return false;
    }

    /// False, with a diagnostic, when it was not the end of the file that ended the lines.
    bool isWhole() const {
        return !m_lines->isLineTooLong() || refuse(u"a line of at most 65536 bytes", u"a longer one");
    }

    bool refuse(const char16_t* expected, const CString& found) const {
        SetDiagnostic(m_path, expected, found, -1, m_lines->lineNumber());
        return false;
    }
    bool refuseLine(const char16_t* expected, std::string_view line) const {
        constexpr size_t quoted = 60;
        return refuse(expected, CString(line.substr(0, quoted)));
    }
    bool outOfMemory() const { return refuse(u"memory for the curve", u"none left"); }

private:
    CString m_path;
    TSharedPtr<IFile> m_file;
    std::optional<LineReader> m_lines;
};

bool readXYRows(CurveFile& file, Column& x, Column& y) {
    std::string_view line;
    std::array<std::string_view, 2> tokens;
    while (file.nextLine(line)) {
        if (!split(line, tokens)) return file.refuseLine(u"two numbers", line);
        if (!x.add(text::atof(tokens[0])) || !y.add(text::atof(tokens[1]))) return file.outOfMemory();
    }
    return file.isWhole();
}

bool skipModtranHeader(CurveFile& file) {
    std::string_view line;
    while (file.nextLine(line)) {
        if (beginsWith(line, "FREQ")) return true;
    }
    return file.isWhole() && file.refuse(u"a heading line that begins with FREQ", u"the end of the file");
}

/// Adds the rows in the order of the file.
bool readModtranRows(CurveFile& file, Column& x, Column& transmission, Column& pathThermal) {
    std::string_view line;
    std::array<std::string_view, 3> tokens;
    for (bool first = true; file.nextLine(line); first = false) {
        // Transmittance runs have a second heading line.
        if (first && beginsWith(line, "CM-1")) continue;
        if (beginsWith(line, "-9999.")) return true;
        if (!split(line, tokens)) return file.refuseLine(u"wavenumber, total transmission and path thermal", line);
        if (!x.add(ToMicrons(fortranNumber(tokens[0]))) || !transmission.add(fortranNumber(tokens[1])) ||
            !pathThermal.add(fortranNumber(tokens[2]))) {
            return file.outOfMemory();
        }
    }
    return file.isWhole();
}

}  // namespace

bool ReadXYFile(TArray<double>& x, TArray<double>& y, IFileSystem* fs, const char16_t* path) {
    Column xColumn(x);
    Column yColumn(y);
    CurveFile file(fs, path);
    return file.isOpen() && readXYRows(file, xColumn, yColumn);
}

bool ReadModtranFile(TArray<double>& x, TArray<double>& transmission, TArray<double>& pathThermal, IFileSystem* fs,
                     const char16_t* path) {
    Column columns[] = {Column(x), Column(transmission), Column(pathThermal)};
    CurveFile file(fs, path);
    if (!file.isOpen() || !skipModtranHeader(file)) return false;
    const bool whole = readModtranRows(file, columns[0], columns[1], columns[2]);
    // Each row belongs in front of those before it.
    for (Column& column : columns) column.reverse();
    return whole;
}

}  // namespace qv
