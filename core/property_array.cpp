#include "qv/property_array.h"

#include "core/text.h"
#include "qv/values.h"

namespace qv {

namespace {

/// A null handle equals nothing, not even "".
bool hasNullHandle(const CString& text) { return text.IsEmpty() && !text.Equals(u""); }

}  // namespace

int CPropertyArray::FindValue(const char16_t* name) const {
    const std::u16string_view wanted = name == nullptr ? u"" : name;
    for (uint32_t i = 0; i < m_entries.size(); ++i) {
        if (text::compareNoCase(m_entries.ConstGetItem(i).name.view(), wanted) == 0) return static_cast<int>(i);
    }
    return -1;
}

const char16_t* CPropertyArray::GetValue(const char16_t* name) const {
    const int i = FindValue(name);
    if (i == -1) return u"";
    const CString& value = m_entries.ConstGetItem(static_cast<uint32_t>(i)).value;
    return hasNullHandle(value) ? nullptr : value.c_str();
}

const CString& CPropertyArray::GetNameAt(uint32_t i) const {
    return i < m_entries.size() ? m_entries.data()[i].name : Private::sharedEmptyText();
}

const CString& CPropertyArray::GetValueAt(uint32_t i) const {
    return i < m_entries.size() ? m_entries.data()[i].value : Private::sharedEmptyText();
}

void CPropertyArray::SetValue(const char16_t* name, const char16_t* value) { SetValue(name, CString(value)); }

void CPropertyArray::SetValue(const char16_t* name, const CString& value) {
    const int i = FindValue(name);
    if (i == -1) {
        m_entries.Add({CString(name), value});
    } else {
        m_entries[static_cast<uint32_t>(i)].value = value;
    }
}

CPropertyArray::CEntry CPropertyArray::operator[](int i) {
    const bool inside = i >= 0 && static_cast<uint32_t>(i) < m_entries.size();
    return CEntry(this, inside ? m_entries.ConstGetItem(static_cast<uint32_t>(i)).name : CString());
}

CPropertyArray::CEntry& CPropertyArray::CEntry::operator=(const char16_t* value) {
    m_array->SetValue(m_name.c_str(), value);
    return *this;
}

CPropertyArray::CEntry& CPropertyArray::CEntry::operator=(const CString& value) {
    m_array->SetValue(m_name.c_str(), value);
    return *this;
}

CPropertyArray::CEntry& CPropertyArray::CEntry::operator=(int value) {
    return *this = CString::FromFormat(u"%d", value);
}

CPropertyArray::CEntry& CPropertyArray::CEntry::operator=(int64_t value) {
    return *this = CString::FromFormat(u"%I64d", value);
}

CPropertyArray::CEntry& CPropertyArray::CEntry::operator=(double value) {
    return *this = CString::FromFormat(u"%f", value);
}

CPropertyArray::CEntry& CPropertyArray::CEntry::operator=(void* value) {
    return *this = CUIntPtr::ToStringHex(reinterpret_cast<uintptr_t>(value));
}

CPropertyArray::CEntry::operator int() const { return CInt32::Parse(m_array->GetValue(m_name.c_str())); }
CPropertyArray::CEntry::operator double() const { return CFlt64::Parse(m_array->GetValue(m_name.c_str())); }
CPropertyArray::CEntry::operator int64_t() const { return CInt64::Parse(m_array->GetValue(m_name.c_str())); }

}  // namespace qv
