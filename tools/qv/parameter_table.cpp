#include "parameter_table.h"

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

/// Not a table at all, a broken one, or a failure outside of it: in temporary files.
Exit failureOf(const std::string& path, const qv::CDiagnostic& why) {
    if (why.file != wide(path)) return Exit::io;
    qv::CSAFFile header;
    const bool isTable = header.Load(&files(), wide(path).c_str()) && header[u"KeyWrd"].Exists() &&
                         qv::CString(header[u"KeyWrd"].ToString()).CompareNoCase(u"POD") == 0;
    return isTable ? Exit::damaged : Exit::wrongKind;
}

}  // namespace

std::string ParameterColumn::head() const {
    const bool hasUnit = !units.empty() && units != "None" && units != "none";
    return hasUnit ? name + " [" + units + "]" : name;
}

Json ParameterColumn::json() const { return Json::object().set("name", name).set("units", units); }

void loadParameterTable(qv::CPODFile& table, const std::string& path, bool headerless) {
    requireFile(path);
    qv::IFileSystem& disk = files();
    if (!headerless && !qv::CSAFFile::IsSAFFile(&disk, wide(path).c_str())) {
        throw Failure(Exit::wrongKind, path +
                                           ": has no measurement header (--headerless takes its first three lines "
                                           "as names, units and classifications)");
    }
    qv::ClearDiagnostic();
    if (table.Load(&disk, wide(path).c_str(), !headerless)) return;
    const qv::CDiagnostic why = qv::LastDiagnostic();
    const Exit code = failureOf(path, why);
    qv::SetDiagnostic(why.file, why.expected, why.found, why.byteOffset, why.line);
    throw diagnosed(code, path, "is no parameter table");
}

ParameterColumn parameterColumn(const qv::CPODFile& table, uint32_t index) {
    qv::CString name, classification, units, type;
    (void)table.GetColumnInfo(index, &name, &classification, &units, &type);
    return {index, narrow(name), narrow(units), narrow(classification), narrow(type)};
}

std::vector<ParameterColumn> parameterColumns(const qv::CPODFile& table) {
    std::vector<ParameterColumn> columns;
    for (uint32_t i = 0; i < table.nParams(); ++i) columns.push_back(parameterColumn(table, i));
    return columns;
}

Table listColumns(const std::vector<ParameterColumn>& columns, bool raw) {
    constexpr Table::Align left = Table::Align::left;
    Table out({{"#"}, {"name", left}, {"unit", left}, {"classification", left}, {"type", left}});
    const auto shown = [raw](const std::string& text) { return raw ? text : visible(wide(text)); };
    for (const ParameterColumn& column : columns) {
        out.add({std::to_string(column.index), shown(column.name), shown(column.units), shown(column.classification),
                 shown(column.type)});
    }
    return out;
}

Json jsonOf(const std::vector<ParameterColumn>& columns) {
    Json list = Json::array();
    for (const ParameterColumn& column : columns) {
        list.push(column.json().set("classification", column.classification).set("type", column.type));
    }
    return list;
}

}  // namespace tool
