#include "qv/config_store.h"

#include <algorithm>
#include <vector>

#include "config/path.h"
#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/memory.h"
#include "qv/values.h"

namespace qv {

using Private::CleanText;
using Private::NormalPath;

namespace {

bool refuse(std::u16string_view path, const CString& expected, const CString& found) {
    SetDiagnostic(CString(path), expected, found);
    return false;
}

bool isShallow(std::u16string_view path) {
    return Private::namesIn(path) <= IConfigStore::maxNames ||
           refuse(path.substr(0, 80), u"a path of at most 128 names", u"more");
}

CString joined(std::u16string_view directory, std::u16string_view name) {
    if (directory.empty()) return CString(name);
    if (name.empty()) return CString(directory);
    CString path;
    path.reserve(directory.size() + 1 + name.size());
    path.append(directory).append(size_t{1}, u'/').append(name);
    return path;
}

}  // namespace

IConfigStore::~IConfigStore() = default;

bool IConfigStore::Flush() { return true; }

bool IConfigStore::hasChildren(View path) const {
    TArray<SChild> children;
    list(path, children);
    return !children.empty();
}

// Values --------------------------------------------------------------------------------------------------------------

bool IConfigStore::SetValue(Path path, const SValue& value) {
    const NormalPath normal(path.all());
    if (normal.isRoot()) return refuse(u"", u"the path of a value", u"an empty path");
    if (value.type < CVariant::typeBool || value.type > CVariant::typeBlob) {
        return refuse(normal.view(), u"a type that a store keeps", CVariant::TypeToString(value.type));
    }
    if (!isShallow(normal.view())) return false;
    const CleanText text(value.text.view());
    if (text.view().size() == value.text.length()) return write(normal.view(), value);
    return write(normal.view(), {value.type, CString(text.view())});
}

bool IConfigStore::ReadValue(Path path, SValue& value) const {
    const NormalPath normal(path.all());
    return !normal.isRoot() && read(normal.view(), value);
}

CVariant::EType IConfigStore::GetType(Path path) const {
    SValue value;
    return ReadValue(path, value) ? value.type : CVariant::typeUndefined;
}

template <class T>
bool IConfigStore::setScalar(Path path, CVariant::EType type, T value) {
    return SetValue(path, {type, TValueText<T>::ToStringExact(value)});
}

template <class T>
bool IConfigStore::readScalar(Path path, CVariant::EType type, T& value) const {
    SValue stored;
    if (!ReadValue(path, stored)) return false;
    T parsed{};
    if (TValueText<T>::Parse(stored.text, parsed) != EParse::ok) {
        return refuse(path.all(), u"a value of type " + CVariant::TypeToString(type), stored.text);
    }
    value = parsed;
    return true;
}

#define QV_CONFIG_SCALAR_BODIES(Name, Type)                                                                      \
    bool IConfigStore::Set##Name(Path path, Type value) { return setScalar(path, CVariant::type##Name, value); } \
    bool IConfigStore::Read##Name(Path path, Type& value) const {                                                \
        return readScalar(path, CVariant::type##Name, value);                                                    \
    }
QV_CONFIG_SCALARS(QV_CONFIG_SCALAR_BODIES)
#undef QV_CONFIG_SCALAR_BODIES

bool IConfigStore::SetString(Path path, CString::Text value) {
    return SetValue(path, {CVariant::typeString, CString(value.all())});
}

bool IConfigStore::ReadString(Path path, CString& value) const {
    SValue stored;
    if (!ReadValue(path, stored)) return false;
    value = stored.text;
    return true;
}

CString IConfigStore::GetString(Path path, const CString& fallback) const {
    CString value;
    return ReadString(path, value) ? value : fallback;
}

bool IConfigStore::SetBlob(Path path, const void* data, uint32_t size) {
    return SetValue(path, {CVariant::typeBlob, CVariant(data, size).ToString()});
}

bool IConfigStore::ReadBlob(Path path, CMemFile& data) const {
    SValue stored;
    if (!ReadValue(path, stored)) return false;
    const std::u16string_view digits = stored.text;
    const auto isDigit = [](char16_t ch) { return text::hexDigit(ch) < 16; };
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), isDigit)) {
        return refuse(path.all(), u"pairs of hexadecimal digits", stored.text.Left(40));
    }
    CVariant blob(CVariant::typeBlob);
    blob.FromString(stored.text);
    data = blob.getBlob();
    data.SeekToBegin();
    return true;
}

// The tree ------------------------------------------------------------------------------------------------------------

bool IConfigStore::HasSection(Path path) const {
    const NormalPath normal(path.all());
    return normal.isRoot() || hasChildren(normal.view());
}

bool IConfigStore::removeNormal(Path path, uint32_t parts) {
    const NormalPath normal(path.all());
    return remove(normal.view(), parts);
}

TArray<IConfigStore::SChild> IConfigStore::GetChildren(Path path) const {
    TArray<SChild> children;
    children.SetGrowthRate(Private::doublingRate);
    list(NormalPath(path.all()).view(), children);
    return children;
}

CConfigSection IConfigStore::Section(Path path) { return CConfigSection(*this, path); }

bool IConfigStore::CopyFrom(const IConfigStore& other) {
    std::vector<CString> pending{CString()};
    while (!pending.empty()) {
        const CString path = pending.back();
        pending.pop_back();
        SValue value;
        if (!path.IsEmpty() && other.read(path, value) && !write(path, value)) return false;
        TArray<SChild> children;
        other.list(path, children);
        for (uint32_t i = children.size(); i-- > 0;) pending.push_back(joined(path, children[i].name));
    }
    return true;
}

// Sections ------------------------------------------------------------------------------------------------------------

CConfigSection::CConfigSection(IConfigStore& store, Path path)
    : m_store(&store), m_path(NormalPath(path.all()).view()) {
    if (const auto* section = dynamic_cast<const CConfigSection*>(&store)) {
        m_path = section->inStore(m_path);
        m_store = section->m_store;
    }
}

CString CConfigSection::inStore(View path) const { return joined(m_path, path); }

bool CConfigSection::Flush() { return m_store->Flush(); }
bool CConfigSection::read(View path, SValue& value) const { return m_store->read(inStore(path), value); }
bool CConfigSection::write(View path, const SValue& value) {
    const CString whole = inStore(path);
    return isShallow(whole) && m_store->write(whole, value);
}
bool CConfigSection::remove(View path, uint32_t parts) {
    // A section has no value of its own: that at its path is its parent's.
    return m_store->remove(inStore(path), path.empty() ? parts & ~uint32_t{partValue} : parts);
}
void CConfigSection::list(View path, TArray<SChild>& children) const { m_store->list(inStore(path), children); }
bool CConfigSection::hasChildren(View path) const { return m_store->hasChildren(inStore(path)); }

}  // namespace qv
