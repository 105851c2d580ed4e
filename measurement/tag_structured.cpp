// The structured binary form of the tag dictionary.
#include <memory>
#include <string_view>

#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/sb_file.h"
#include "qv/tag_file.h"

namespace qv {

namespace {

using Element = CSBFile::CElement;

constexpr char identifier[] = "TAGF";
constexpr char16_t entryElement[] = u"TagEntry";
constexpr char16_t textElement[] = u"TextValue";
constexpr char16_t textAttribute[] = u"Value";

template <class E>
bool setEnum(Element& to, const char16_t* name, E value) {
    return to.SetInt32(name, static_cast<int32_t>(value));
}
template <class E>
void getEnum(const Element& from, const char16_t* name, E& value) {
    value = static_cast<E>(from.GetInt32(name));
}

}  // namespace

bool CTagEntry::Save(CSBFile& file) const {
    auto entry = std::make_unique<Element>(CString(entryElement));
    Element& to = *entry;
    bool whole = to.SetString(u"Name", m_name) && to.SetString(u"Description", m_description) &&
                 setEnum(to, u"DataType", m_dataType) && to.SetBool(u"UseNumericBounds", m_useNumericBounds) &&
                 to.SetFlt64(u"LowBound", m_lowBound) && to.SetFlt64(u"HighBound", m_highBound) &&
                 setEnum(to, u"TextValuesMode", m_textValuesMode) && setEnum(to, u"Category", m_category) &&
                 setEnum(to, u"WriteMode", m_writeMode) && setEnum(to, u"Units", m_units) &&
                 setEnum(to, u"Location", m_location);
    for (const CString& value : m_textValues) {
        auto* const text = new Element(CString(textElement));
        to.InsertChild(text, true);
        whole = whole && text->SetString(textAttribute, value);
    }
    return whole && file.Curr()->InsertChild(entry.release(), true);
}

bool CTagEntry::Load(CSBFile& file) {
    const Element& from = *file.Curr();
    if (text::compareNoCase(from.name.view(), entryElement) != 0) {
        SetDiagnostic(CString(), u"a TagEntry element", from.name);
        return false;
    }
    m_name = from.GetString(u"Name", CString(u""));
    m_description = from.GetString(u"Description", CString(u""));
    getEnum(from, u"DataType", m_dataType);
    m_useNumericBounds = from.GetBool(u"UseNumericBounds");
    m_lowBound = from.GetFlt64(u"LowBound");
    m_highBound = from.GetFlt64(u"HighBound");
    getEnum(from, u"TextValuesMode", m_textValuesMode);
    getEnum(from, u"Category", m_category);
    getEnum(from, u"WriteMode", m_writeMode);
    getEnum(from, u"Units", m_units);
    getEnum(from, u"Location", m_location);
    m_textValues.Empty();
    for (const Element* child = from.FindChild(textElement); child != nullptr; child = child->FindNext(textElement)) {
        if (!m_textValues.Add(child->GetString(textAttribute, CString(u"")))) return false;
    }
    return true;
}

bool CTagFile::LoadSBF(TSharedPtr<IFile> file) {
    Destroy();
    CSBFile tree;
    if (!file || !tree.Load(file)) return false;
    if (std::string_view(tree.GetIdentifier()) != identifier) {
        SetDiagnostic(CString(), u"a structured file of kind TAGF", CString(tree.GetIdentifier()), 4);
        return false;
    }
    // Elements of other names are passed over.
    const uint16_t rate = SetGrowthRate(Private::doublingRate);
    bool loaded = true;
    for (bool found = tree.FindFirstChild(entryElement); loaded && found; found = tree.FindNext(entryElement)) {
        CTagEntry entry;
        loaded = entry.Load(tree) && Add(entry);
    }
    SetGrowthRate(rate);
    if (loaded) Sort();
    return loaded;
}

bool CTagFile::SaveSBF(TSharedPtr<IFile> file) {
    if (!file) return false;
    Sort();
    CSBFile tree(identifier);
    for (const CTagEntry& entry : *this) {
        if (!entry.Save(tree)) return false;
    }
    return tree.Save(file);
}

}  // namespace qv
