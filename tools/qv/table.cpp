#include "table.h"

#include <algorithm>

namespace tool {

namespace {

void printLine(std::ostream& out, const std::string& indent, const std::vector<Table::Column>& columns,
               const std::vector<size_t>& widths, const std::vector<std::string>& cells) {
    std::string line = indent;
    for (size_t i = 0; i < columns.size(); ++i) {
        const std::string& cell = cells[i];
        const std::string blanks(widths[i] - displayWidth(cell), ' ');
        line += i == 0 ? "" : "  ";
        line += columns[i].align == Table::Align::right ? blanks + cell : cell + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

}  // namespace

std::string csvCell(const std::string& cell) {
    if (cell.find_first_of(",\"\r\n") == std::string::npos) return cell;
    std::string quoted = "\"";
    for (const char c : cell) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

size_t displayWidth(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void Table::add(std::vector<std::string> cells) {
    cells.resize(m_columns.size());
    m_rows.push_back(std::move(cells));
}

void Table::print(std::ostream& out, const std::string& indent) const {
    std::vector<size_t> widths;
    std::vector<std::string> heads;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        size_t width = displayWidth(m_columns[i].head);
        for (const auto& row : m_rows) width = std::max(width, displayWidth(row[i]));
        widths.push_back(width);
        heads.push_back(m_columns[i].head);
    }
    printLine(out, indent, m_columns, widths, heads);
    for (const auto& row : m_rows) printLine(out, indent, m_columns, widths, row);
}

void Table::printCsv(std::ostream& out) const {
    const auto line = [&](auto cellOf) {
        for (size_t i = 0; i < m_columns.size(); ++i) out << (i == 0 ? "" : ",") << csvCell(cellOf(i));
        out << '\n';
    };
    line([&](size_t i) { return m_columns[i].head; });
    for (const auto& row : m_rows) line([&](size_t i) { return row[i]; });
}

}  // namespace tool
