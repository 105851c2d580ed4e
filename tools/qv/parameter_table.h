// Parameter tables as the tool opens and describes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json.h"
#include "qv/pod_file.h"
#include "table.h"

namespace tool {

/// A column in the tool's own text.
struct ParameterColumn {
    uint32_t index;
    std::string name, units, classification, type;

    /// The name with its unit: "range [meters]".
    std::string head() const;
    /// Name and units.
    Json json() const;
};

/// Loads a table. Fails with a sentence.
void loadParameterTable(qv::CPODFile& table, const std::string& path, bool headerless);

ParameterColumn parameterColumn(const qv::CPODFile& table, uint32_t index);
/// All of them.
std::vector<ParameterColumn> parameterColumns(const qv::CPODFile& table);

/// A line for each column, and the same as JSON. `raw` leaves texts as they are, for programs.
Table listColumns(const std::vector<ParameterColumn>& columns, bool raw);
Json jsonOf(const std::vector<ParameterColumn>& columns);

}  // namespace tool
