// Aligned tables for people, comma-separated ones for programs.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace tool {

/// Rows of text under heads. Heads carry the unit: "temperature [C]".
class Table {
public:
    enum class Align { left, right };
    struct Column {
        std::string head;
        Align align = Align::right;
    };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// Missing cells are empty.
    void add(std::vector<std::string> cells);
    size_t rows() const { return m_rows.size(); }

    /// Columns two blanks apart, each line indented by `indent`.
    void print(std::ostream& out, const std::string& indent = "") const;
    /// With a head line; cells with a comma, a quote or a line break are quoted.
    void printCsv(std::ostream& out) const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

/// A cell of a comma-separated line, quoted where it has to be.
std::string csvCell(const std::string& cell);

/// Columns that a UTF-8 text takes on a terminal, as far as one character takes one.
size_t displayWidth(const std::string& text);

}  // namespace tool
