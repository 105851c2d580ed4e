#include "points_csv.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

#include "command.h"
#include "qv/diagnostic.h"
#include "source.h"

namespace tool {

namespace {

constexpr double absoluteZeroCelsius = -273.15;
constexpr int64_t mostBytes = 64 << 20;
constexpr size_t mostPoints = 10000;  // each point that is added makes the page's fits anew

struct Known {
    PointColumn column;
    std::vector<std::string> names;  ///< Normalised; the unit is taken off before.
};
const Known knownColumns[] = {
    {PointColumn::temperature,
     {"temperature", "source_temperature", "blackbody_temperature", "bb_temperature", "temp", "t", "source",
      "blackbody"}},
    {PointColumn::counts, {"counts", "count", "measurement", "dn", "signal", "adc", "digital_level"}},
    {PointColumn::emissivity, {"emissivity", "source_emissivity", "emis", "e"}},
    {PointColumn::reflected,
     {"reflected_temperature", "reflected", "background_temperature", "ambient_temperature", "ambient"}},
    {PointColumn::instrument,
     {"instrument_temperature", "instrument", "housing_temperature", "housing", "camera_temperature"}},
};

/// "Source temperature [°C]" as "source_temperature_c".
std::string normalised(const std::string& name) {
    std::string out;
    for (const char c : name) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        const bool capital = c >= 'A' && c <= 'Z';
        if (letter || capital) {
            out += capital ? static_cast<char>(c - 'A' + 'a') : c;
        } else if (!out.empty() && out.back() != '_') {
            out += '_';
        }
    }
    while (!out.empty() && out.back() == '_') out.pop_back();
    return out;
}

/// Takes a unit off the end of a normalised name: 'c' (also where there is none), 'k' or 'f'.
char takeUnit(std::string& name) {
    const struct {
        const char* suffix;
        char unit;
    } units[] = {{"_degc", 'c'}, {"_celsius", 'c'},    {"_c", 'c'}, {"_kelvin", 'k'},
                 {"_k", 'k'},    {"_fahrenheit", 'f'}, {"_f", 'f'}};
    for (const auto& known : units) {
        if (!name.ends_with(known.suffix)) continue;
        name.resize(name.size() - std::string(known.suffix).size());
        return known.unit;
    }
    return 'c';
}

double toCelsius(double value, char unit) {
    return unit == 'k' ? value + absoluteZeroCelsius : unit == 'f' ? (value - 32.0) / 1.8 : value;
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\"");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\"") - first + 1);
}

std::vector<std::string> cellsOf(const std::string& line, char separator) {
    std::vector<std::string> cells;
    for (size_t at = 0; at <= line.size();) {
        const size_t end = std::min(line.find(separator, at), line.size());
        cells.push_back(trimmed(line.substr(at, end - at)));
        at = end + 1;
    }
    return cells;
}

/// The lines of one file and what its head line says.
class Reader {
public:
    Reader(const std::string& path, const std::map<PointColumn, std::string>& names) : m_path(path), m_names(names) {}

    PointTable read() {
        std::istringstream in(contents());
        PointTable table;
        for (std::string line; std::getline(in, line);) {
            if (++m_line == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
            const std::string text = trimmed(line);
            if (text.empty() || text.front() == '#') continue;
            if (m_separator == 0) {
                head(line, table);
            } else {
                if (table.rows.size() == mostPoints)
                    fail(Exit::damaged, "more than " + std::to_string(mostPoints) + " points");
                table.rows.push_back(row(cellsOf(line, m_separator)));
            }
        }
        if (m_separator == 0) throw Failure(Exit::wrongKind, m_path + ": is empty, a head line was expected");
        if (table.rows.empty()) throw Failure(Exit::damaged, m_path + ": holds no points below its head line");
        return table;
    }

private:
    struct Place {
        size_t index;
        char unit;
        std::string name;
    };

    std::string contents() const {
        const qv::TSharedPtr<qv::IFile> file = openInput(m_path);
        if (file->GetSize() > mostBytes) throw Failure(Exit::wrongKind, m_path + ": is too large for a list of points");
        std::string text(static_cast<size_t>(file->GetSize()), '\0');
        if (!file->ReadBytes(text.data(), static_cast<uint32_t>(text.size())))
            throw diagnosed(Exit::io, m_path, "cannot be read");
        return text;
    }

    [[noreturn]] void fail(Exit exitCode, const std::string& what) const {
        throw Failure(exitCode, m_path + ": line " + std::to_string(m_line) + ": " + what);
    }

    void head(const std::string& line, PointTable& table) {
        m_separator = line.find(';') != std::string::npos ? ';' : line.find('\t') != std::string::npos ? '\t' : ',';
        const std::vector<std::string> cells = cellsOf(line, m_separator);
        m_columns = cells.size();
        for (size_t i = 0; i < cells.size(); ++i) {
            if (!place(cells[i], i)) table.ignored.push_back(cells[i]);
        }
        for (const auto& [column, name] : m_names) {
            if (!m_places.contains(column)) fail(Exit::wrongKind, "there is no column \"" + name + "\"");
        }
        for (const auto& [column, what] :
             {std::pair(PointColumn::temperature, "temperatures"), std::pair(PointColumn::counts, "counts")}) {
            if (!m_places.contains(column))
                fail(Exit::wrongKind, "no column holds " + std::string(what) +
                                          " (head line expected, such as \"temperature_C,counts\")");
        }
    }

    /// False when the column means nothing to us.
    bool place(const std::string& name, size_t index) {
        std::string plain = normalised(name);
        const char unit = takeUnit(plain);
        for (const Known& known : knownColumns) {
            const auto given = m_names.find(known.column);
            const bool matches = given != m_names.end() ? given->second == name
                                                        : std::ranges::find(known.names, plain) != known.names.end();
            if (!matches) continue;
            if (m_places.contains(known.column))
                fail(Exit::wrongKind, "\"" + m_places.at(known.column).name + "\" and \"" + name + "\" mean the same");
            m_places.emplace(known.column, Place{index, unit, name});
            return true;
        }
        return false;
    }

    std::optional<double> value(const std::vector<std::string>& cells, PointColumn column) const {
        const auto found = m_places.find(column);
        if (found == m_places.end()) return {};
        const Place& at = found->second;
        if (at.index >= cells.size() || cells[at.index].empty())
            fail(Exit::damaged, "no value for \"" + at.name + "\"");
        const std::string& cell = cells[at.index];
        double number = 0.0;
        const char* const end = cell.data() + cell.size();
        const auto result = std::from_chars(cell.data() + (cell.front() == '+' ? 1 : 0), end, number);
        if (result.ec != std::errc() || result.ptr != end || !std::isfinite(number)) {
            fail(Exit::damaged, "\"" + cell + "\" is no number (" + at.name + ")");
        }
        if (column == PointColumn::counts || column == PointColumn::emissivity) return number;
        number = toCelsius(number, at.unit);
        if (number <= absoluteZeroCelsius) fail(Exit::damaged, cell + " is below absolute zero (" + at.name + ")");
        return number;
    }

    PointRow row(const std::vector<std::string>& cells) const {
        // A decimal comma among commas would shift what stands behind it.
        for (size_t i = m_columns; i < cells.size(); ++i) {
            if (!cells[i].empty()) fail(Exit::damaged, "more cells than the head line has (a decimal comma?)");
        }
        PointRow out;
        out.point.temperature = *value(cells, PointColumn::temperature);
        out.point.measurement = *value(cells, PointColumn::counts);
        out.point.emissivity = value(cells, PointColumn::emissivity).value_or(1.0);
        if (!(out.point.emissivity > 0.0 && out.point.emissivity <= 1.0)) {
            fail(Exit::damaged, "an emissivity lies above 0 and at most at 1");
        }
        if (const auto reflected = value(cells, PointColumn::reflected)) {
            out.point.reflectedRadianceType = qv::EReflectedRadianceType::calculate;
            out.point.reflectedTemperature = *reflected;
        }
        out.instrument = value(cells, PointColumn::instrument);
        return out;
    }

    const std::string& m_path;
    const std::map<PointColumn, std::string>& m_names;
    std::map<PointColumn, Place> m_places;
    char m_separator = 0;
    size_t m_columns = 0;
    size_t m_line = 0;
};

}  // namespace

PointTable readPoints(const std::string& path, const std::map<PointColumn, std::string>& names) {
    return Reader(path, names).read();
}

}  // namespace tool
