// Columns, cells and column texts of any parameter table, looked up at each use.
#include <string_view>

#include "core/text.h"
#include "qv/pod_file.h"

namespace qv {

IPODFile::~IPODFile() = default;

CString IPODFile::CProperty::ToString() const {
    CString texts[4];
    (void)m_file->GetColumnInfo(m_column, &texts[0], &texts[1], &texts[2], &texts[3]);
    return texts[m_which];
}

IPODFile::CProperty& IPODFile::CProperty::operator=(const char16_t* text) {
    const char16_t* texts[4] = {};
    texts[m_which] = text;
    (void)m_file->UpdateColumn(m_column, texts[0], texts[1], texts[2], texts[3]);
    return *this;
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): a text may be set to itself.
IPODFile::CProperty& IPODFile::CProperty::operator=(const CProperty& other) { return *this = other.ToString().c_str(); }

double IPODFile::CValue::ToDouble(double absent) const {
    const char16_t* text = ToString();
    const auto read = text::readNumber<double>(text == nullptr ? std::u16string_view() : text);
    return read.used == 0 ? absent : read.value;
}
int32_t IPODFile::CValue::ToLong(int32_t absent) const {
    const char16_t* text = ToString();
    const auto read = text::readNumber<int32_t>(text == nullptr ? std::u16string_view() : text);
    return read.used == 0 ? absent : read.value;
}
IPODFile::CValue& IPODFile::CValue::operator=(const char16_t* text) {
    (void)m_file->PutValue(m_column, m_row, text);
    return *this;
}
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): a cell may take its own text.
IPODFile::CValue& IPODFile::CValue::operator=(const CValue& other) { return *this = CString(other.ToString()).c_str(); }
IPODFile::CValue& IPODFile::CValue::operator=(double number) {
    return *this = CString::FromFormat(u"%0.10g", number).c_str();
}
IPODFile::CValue& IPODFile::CValue::operator=(int32_t number) {
    return *this = CString::FromFormat(u"%d", number).c_str();
}

IPODFile::CColumn::CColumn(IPODFile* file, uint32_t column)
    : m_file(file),
      m_column(column),
      name(file, column, CProperty::textName),
      classification(file, column, CProperty::textClassification),
      units(file, column, CProperty::textUnits),
      type(file, column, CProperty::textType) {}

IPODFile::CColumn IPODFile::operator[](const char16_t* name) {
    uint32_t column = none;
    if (!FindColumn(name, column)) column = AddColumn(name, u"Unclassified", u"None", u"") ? nParams() - 1 : none;
    return CColumn(this, column);
}

}  // namespace qv
