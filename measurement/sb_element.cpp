// The attributes of CSBFile's elements.
#include <string_view>

#include "core/text.h"
#include "qv/sb_file.h"

namespace qv {

template class TArray<CSBFile::ATTRIB>;

namespace {

/// Case is mapped unit by unit, so that names of other lengths differ.
bool isNamed(const CSBFile::ATTRIB& attribute, std::u16string_view wanted) {
    const std::u16string_view name = attribute.name.view();
    return name.size() == wanted.size() && text::compareNoCase(name, wanted) == 0;
}

}  // namespace

const CSBFile::CValue* CSBFile::CAttribArray::Find(CString::Text name) const {
    const std::u16string_view wanted = name.all();
    for (const ATTRIB& attribute : *this) {
        if (isNamed(attribute, wanted)) return &attribute.value;
    }
    return nullptr;
}

bool CSBFile::CAttribArray::Remove(CString::Text name) {
    const std::u16string_view wanted = name.all();
    for (uint32_t i = 0; i < size(); ++i) {
        if (isNamed(data()[i], wanted)) return TArray<ATTRIB>::Remove(i);
    }
    return false;
}

CSBFile::CValue* CSBFile::CAttribArray::Ensure(const CString& name) {
    if (const CValue* found = Find(name)) return const_cast<CValue*>(found);
    return Add(ATTRIB{name, CValue()}) ? &back().value : nullptr;
}

CString CSBFile::CElement::GetString(CString::Text wanted, CString fallback) const {
    if (const CValue* found = attributes.Find(wanted)) found->GetString(fallback);
    return fallback;
}

bool CSBFile::CElement::SetString(const CString& wanted, CString::Text value) {
    CValue* const kept = attributes.Ensure(wanted);
    return kept != nullptr && kept->SetString(value);
}

const uint8_t* CSBFile::CElement::GetBlob(CString::Text wanted, uint32_t& size) const {
    size = 0;
    const CValue* const found = attributes.Find(wanted);
    return found != nullptr ? found->GetBlob(size) : nullptr;
}

bool CSBFile::CElement::SetBlob(const CString& wanted, const void* data, uint32_t size) {
    CValue* const kept = attributes.Ensure(wanted);
    return kept != nullptr && kept->SetBlob(data, size);
}

}  // namespace qv
