// Calibration points as tables of text: a head line that names the columns, then a line for each point.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qv/rcal_file.h"

namespace tool {

/// What a column may hold.
enum class PointColumn { temperature, counts, emissivity, reflected, instrument };

struct PointRow {
    qv::CAL_POINT point;
    std::optional<double> instrument;  ///< Instrument temperature, degrees Celsius.
};

struct PointTable {
    std::vector<PointRow> rows;
    std::vector<std::string> ignored;  ///< Names of columns that were not understood.
};

/// Reads a table of points. Cells are separated by commas, semicolons or tabs; empty lines and lines that begin with #
/// do not count. A column is known by its name ("source_temperature_C", "blackbody [K]", "DN", ...), or by `names`.
/// Temperatures are degrees Celsius unless the column's name ends in K or F.
/// Fails with the line's number and what is wrong there.
PointTable readPoints(const std::string& path, const std::map<PointColumn, std::string>& names);

}  // namespace tool
