// CTagEntry: one entry of the tag dictionary, its display texts and its binary and XML forms.
#include <array>
#include <memory>

#include "core/text.h"
#include "core/truncate.h"
#include "qv/diagnostic.h"
#include "qv/tag_file.h"
#include "qv/values.h"
#include "qv/xml_file.h"

namespace qv {

namespace {

template <size_t N>
using Texts = std::array<const char16_t*, N>;

constexpr Texts<5> dataTypeTexts = {u"Text", u"Int16", u"Int32", u"Flt32", u"Flt64"};
constexpr Texts<3> textValuesModeTexts = {u"Disabled", u"Use As Bounds", u"Use As Suggestions"};
constexpr Texts<4> writeModeTexts = {u"Prompt For Update", u"Change Current Only", u"Change All", u"Read Only"};
constexpr Texts<3> locationTexts = {u"Header", u"Include", u"Default"};
// Spelled as the files spell them.
constexpr Texts<20> unitsTexts = {
    u"None",          u"Years",      u"Days",          u"Hours",   u"Minutes",          u"Seconds",
    u"Degrees",       u"Meters",     u"Meters/Second", u"Microns", u"Microradians",     u"Klbf",
    u"Percent",       u"Milimeters", u"Hertz",         u"Kelvin",  u"Gram/Cubic Meter", u"Milibar",
    u"Parts/Million", u"Kilometers"};
constexpr Texts<CTagEntry::categoryCount> categoryTexts = {
    u"Misc Tags",          u"File Info",        u"Classification Info", u"Mission Info",    u"Time Info",
    u"EUD Info",           u"Sensor Info",      u"Target Info",         u"Instrument Info", u"Referenced Files",
    u"Impact/Launch Info", u"Uncertainty Info", u"Imager Tags",         u"Data Tags",       u"Active Source Tags",
    u"Atmospheric Tags",   u"QDX Tags",         u"Comment Tags"};

template <class E, size_t N>
const char16_t* toText(const Texts<N>& texts, E value, size_t fallback = 0) {
    const auto index = static_cast<uint32_t>(value);
    return texts[index < N ? index : fallback];
}

template <class E, size_t N>
bool fromText(const Texts<N>& texts, const char16_t* wanted, E& value) {
    for (size_t i = 0; wanted != nullptr && i < N; ++i) {
        if (text::compareNoCase(texts[i], wanted) == 0) {
            value = static_cast<E>(i);
            return true;
        }
    }
    value = E{};
    return false;
}

// The 16 flag bits of a stored entry. Bit 0x0001 means both "type Text" and "has text values".
constexpr uint16_t typeFlags[] = {0x0001, 0x0002, 0x0004, 0x0008, 0x0010};
constexpr uint16_t hasTextValuesFlag = 0x0001;
constexpr uint16_t numericBoundsFlag = 0x2000;
constexpr uint16_t suggestionsFlag = 0x4000;
constexpr uint16_t boundsFlag = 0x8000;
constexpr uint16_t modeFlags[] = {0, boundsFlag, suggestionsFlag};

CTagEntry::DATA_TYPE typeOf(uint16_t flags) {
    for (int32_t type = 4; type > 0; --type) {
        if ((flags & typeFlags[type]) != 0) return static_cast<CTagEntry::DATA_TYPE>(type);
    }
    return CTagEntry::DATA_TYPE::Text;
}

CTagEntry::TEXT_VALUES_MODE modeOf(uint16_t flags) {
    if ((flags & boundsFlag) != 0) return CTagEntry::TEXT_VALUES_MODE::UseAsBounds;
    if ((flags & suggestionsFlag) != 0) return CTagEntry::TEXT_VALUES_MODE::UseAsSuggestions;
    return CTagEntry::TEXT_VALUES_MODE::Disabled;
}

bool storesTextValues(uint16_t flags) {
    return (flags & hasTextValuesFlag) != 0 && (flags & (boundsFlag | suggestionsFlag)) != 0;
}

// How the bounds of an entry with these flags are stored. Flt32 bounds are not stored at all.
enum class BoundsForm { none, integers, floats };
BoundsForm boundsForm(uint16_t flags) {
    if ((flags & numericBoundsFlag) == 0) return BoundsForm::none;
    switch (typeOf(flags)) {
        case CTagEntry::DATA_TYPE::Int16:
        case CTagEntry::DATA_TYPE::Int32: return BoundsForm::integers;
        case CTagEntry::DATA_TYPE::Flt64: return BoundsForm::floats;
        default: return BoundsForm::none;
    }
}

constexpr uint32_t descriptionCodePage = 1252;

/// Reads one byte as an enumeration value when the entry's version has it.
template <class E>
bool loadByte(IFile& file, bool present, E& value, E absent = E{}) {
    uint8_t byte = 0;
    value = absent;
    if (!present) return true;
    if (!file.GetUInt8(byte)) return false;
    value = static_cast<E>(byte);
    return true;
}

template <class E>
bool saveByte(IFile& file, E value) {
    return file.PutUInt8(static_cast<uint8_t>(value));
}

}  // namespace

const char16_t* CTagEntry::DataTypeToStr(DATA_TYPE value) { return toText(dataTypeTexts, value); }
const char16_t* CTagEntry::TextValuesModeToStr(TEXT_VALUES_MODE value) { return toText(textValuesModeTexts, value); }
const char16_t* CTagEntry::CategoryToStr(CATEGORY value) { return toText(categoryTexts, value); }
const char16_t* CTagEntry::LocationToStr(LOCATION value) { return toText(locationTexts, value, 1); }
const char16_t* CTagEntry::UnitsToStr(UNITS value) { return toText(unitsTexts, value); }
const char16_t* CTagEntry::WriteModeToStr(WRITE_MODE value) { return toText(writeModeTexts, value); }

#define QV_DEFINE_STR_TO(X, Type, texts)                                                                 \
    bool CTagEntry::StrTo##X(const char16_t* text, Type& value) { return fromText(texts, text, value); } \
    CTagEntry::Type CTagEntry::StrTo##X(const char16_t* text) {                                          \
        Type value{};                                                                                    \
        fromText(texts, text, value);                                                                    \
        return value;                                                                                    \
    }
QV_DEFINE_STR_TO(DataType, DATA_TYPE, dataTypeTexts)
QV_DEFINE_STR_TO(TextValuesMode, TEXT_VALUES_MODE, textValuesModeTexts)
QV_DEFINE_STR_TO(Category, CATEGORY, categoryTexts)
QV_DEFINE_STR_TO(Location, LOCATION, locationTexts)
QV_DEFINE_STR_TO(Units, UNITS, unitsTexts)
QV_DEFINE_STR_TO(WriteMode, WRITE_MODE, writeModeTexts)
#undef QV_DEFINE_STR_TO

void CTagEntry::SetNumericBounds(bool use, double low, double high) {
    m_useNumericBounds = use;
    m_lowBound = low;
    m_highBound = high;
}

void CTagEntry::GetNumericBounds(bool& use, double& low, double& high) const {
    use = m_useNumericBounds;
    low = m_lowBound;
    high = m_highBound;
}

bool CTagEntry::AddTextValue(const char16_t* value) { return m_textValues.Add(CString(value)); }
bool CTagEntry::RemoveTextValue(uint32_t index) { return m_textValues.Remove(index); }
const char16_t* CTagEntry::GetTextValue(uint32_t index) const {
    return index < m_textValues.size() ? m_textValues.data()[index].c_str() : nullptr;
}

uint16_t CTagEntry::flags() const {
    const auto type = static_cast<uint32_t>(m_dataType);
    const auto mode = static_cast<uint32_t>(m_textValuesMode);
    uint32_t bits = typeFlags[type < std::size(typeFlags) ? type : 0];
    if (m_useNumericBounds) bits |= numericBoundsFlag;
    if (mode < std::size(modeFlags) && mode != 0) bits |= static_cast<uint32_t>(modeFlags[mode] | hasTextValuesFlag);
    return static_cast<uint16_t>(bits);
}

bool CTagEntry::Save(IFile& file) const {
    const uint16_t bits = flags();
    if (!file.PutString(m_name.c_str()) || !file.PutUInt16(bits) ||
        !file.PutString(descriptionCodePage, m_description.c_str()) || !saveByte(file, m_category) ||
        !saveByte(file, m_units) || !saveByte(file, m_writeMode) || !saveByte(file, m_location) ||
        !saveBounds(file, bits)) {
        return false;
    }
    if (!storesTextValues(bits)) return true;
    if (!file.PutUInt32(m_textValues.size())) return false;
    for (const CString& value : m_textValues) {
        if (!file.PutString(value.c_str())) return false;
    }
    return true;
}

bool CTagEntry::saveBounds(IFile& file, uint16_t flags) const {
    switch (boundsForm(flags)) {
        case BoundsForm::integers:
            return file.PutInt64(truncateToInt64(m_lowBound)) && file.PutInt64(truncateToInt64(m_highBound));
        case BoundsForm::floats: return file.PutFlt64(m_lowBound) && file.PutFlt64(m_highBound);
        default: return true;
    }
}

bool CTagEntry::Load(IFile& file, unsigned char version) {
    uint16_t bits = 0;
    if (!file.GetString(m_name) || !file.GetUInt16(bits) || !file.GetString(descriptionCodePage, m_description)) {
        return false;
    }
    m_dataType = typeOf(bits);
    m_textValuesMode = modeOf(bits);
    m_useNumericBounds = (bits & numericBoundsFlag) != 0;
    // Entries of version 0 belong to the include file, those of versions 1 and 2 to the header.
    const LOCATION unstored = version == 0 ? LOCATION::Include : LOCATION::Header;
    return loadByte(file, version >= 1, m_category) && loadByte(file, version >= 2, m_units) &&
           loadByte(file, version >= 1, m_writeMode) && loadByte(file, version >= 3, m_location, unstored) &&
           loadBounds(file, bits) && loadTextValues(file, bits);
}

bool CTagEntry::loadBounds(IFile& file, uint16_t flags) {
    int64_t low = 0;
    int64_t high = 0;
    switch (boundsForm(flags)) {
        case BoundsForm::integers:
            if (!file.GetInt64(low) || !file.GetInt64(high)) return false;
            m_lowBound = static_cast<double>(low);
            m_highBound = static_cast<double>(high);
            return true;
        case BoundsForm::floats: return file.GetFlt64(m_lowBound) && file.GetFlt64(m_highBound);
        default: return true;
    }
}

bool CTagEntry::loadTextValues(IFile& file, uint16_t flags) {
    m_textValues.Empty();
    if (!storesTextValues(flags)) return true;
    uint32_t count = 0;
    if (!file.GetUInt32(count)) return false;
    const uint16_t rate = m_textValues.SetGrowthRate(Private::doublingRate);
    CString value;
    bool loaded = true;
    for (uint32_t i = 0; loaded && i < count; ++i) {  // each takes at least its length field, so the data end the loop
        loaded = file.GetString(value) && m_textValues.Add(value);
    }
    m_textValues.SetGrowthRate(rate);
    return loaded;
}

bool CTagEntry::Save(CXMLFile& xml) const {
    auto entry = std::make_unique<CXMLFile::CNode>(CXMLFile::NODETYPE_ELEMENT, u"TagEntry");
    const auto add = [&](const char16_t* name, const CString& value) { entry->attributes.Add({CString(name), value}); };
    add(u"Name", m_name);
    add(u"Description", m_description);
    add(u"DataType", DataTypeToStr(m_dataType));
    add(u"UseNumericBounds", CBool::ToString(m_useNumericBounds));
    add(u"LowBound", CFlt64::ToStringExact(m_lowBound));
    add(u"HighBound", CFlt64::ToStringExact(m_highBound));
    add(u"TextValuesMode", TextValuesModeToStr(m_textValuesMode));
    add(u"Category", CategoryToStr(m_category));
    add(u"WriteMode", WriteModeToStr(m_writeMode));
    add(u"Units", UnitsToStr(m_units));
    add(u"Location", LocationToStr(m_location));
    for (const CString& value : m_textValues) {
        entry->InsertChild(new CXMLFile::CNode(CXMLFile::NODETYPE_ELEMENT, u"TextValue", value), true);
    }
    if (!xml.InsertChild(entry.get(), true)) return false;
    entry.release();  // the tree's now
    xml.Parent();
    return true;
}

bool CTagEntry::Load(CXMLFile& xml) {
    const CXMLFile::CNode* entry = xml.Curr();
    if (text::compareNoCase(entry->name.c_str(), u"TagEntry") != 0) {
        SetDiagnostic(CString(), u"a TagEntry element", entry->name);
        return false;
    }
    m_name = entry->GetAttribute(u"Name");
    m_description = entry->GetAttribute(u"Description");
    m_dataType = StrToDataType(entry->GetAttribute(u"DataType").c_str());
    m_useNumericBounds = CBool::Parse(entry->GetAttribute(u"UseNumericBounds"));
    m_lowBound = text::wtof(entry->GetAttribute(u"LowBound").c_str());
    m_highBound = text::wtof(entry->GetAttribute(u"HighBound").c_str());
    m_textValuesMode = StrToTextValuesMode(entry->GetAttribute(u"TextValuesMode").c_str());
    m_category = StrToCategory(entry->GetAttribute(u"Category").c_str());
    m_writeMode = StrToWriteMode(entry->GetAttribute(u"WriteMode").c_str());
    m_units = StrToUnits(entry->GetAttribute(u"Units").c_str());
    m_location = StrToLocation(entry->GetAttribute(u"Location").c_str());
    m_textValues.Empty();
    for (const CXMLFile::CNode* child = entry->FindChild(u"TextValue"); child != nullptr;
         child = child->FindNext(u"TextValue")) {
        if (!m_textValues.Add(child->GetValue())) return false;
    }
    return true;
}

template class TArray<CTagEntry>;

}  // namespace qv
