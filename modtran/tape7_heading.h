// The headings of output tables: which columns a table has, and where they stand.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "qv/tape7_file.h"

namespace qv::Private {

/// A field of a row: bytes [begin, end).
struct Tape7Field {
    size_t begin = 0;
    size_t end = 0;
    ETape7Column column = ETape7Column::count;

    /// Empty where the row is shorter; blanks at both ends are gone.
    std::string_view in(std::string_view row) const;
};

/// Where the columns of a table stand.
struct Tape7Layout {
    ETape7Axis axis = ETape7Axis::wavenumbers;
    Tape7Field freq;
    std::vector<Tape7Field> columns;  ///< Known ones only, the transmittance first.
    size_t width = 0;                 ///< Of a row with all its fields.
};

/// The first line of a heading.
bool isTape7Heading(std::string_view line);

/// Headings of mode 0 have two lines.
inline bool hasSecondHeading(int mode) { return mode == 0; }

/// The layout of a table of the mode (0 to 3), `second` empty but for mode 0. Nothing when the heading is of no such
/// table.
std::optional<Tape7Layout> tape7Layout(int mode, std::string_view first, std::string_view second);

}  // namespace qv::Private
