// The structured binary form of the tag dictionary.
#include <memory>
#include <string_view>
#include <type_traits>

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

/// The names of a tree's elements and attributes, which all entries share.
struct Names {
    const CString entry{entryElement}, text{textElement}, value{textAttribute};
    /// The attributes of an entry, in their order.
    const CString attributes[11] = {u"Name",      u"Description", u"DataType",       u"UseNumericBounds",
                                    u"LowBound",  u"HighBound",   u"TextValuesMode", u"Category",
                                    u"WriteMode", u"Units",       u"Location"};
};
const Names& names() {
    static const Names kept;
    return kept;
}

/// The attributes of an element that has none, made in one piece and set one after another.
class Attributes {
public:
    template <size_t count>
    Attributes(Element& element, const CString (&list)[count]) : Attributes(element, list, count) {}
    Attributes(Element& element, const CString& name) : Attributes(element, &name, 1) {}

    void set(const CString& value) { m_whole = m_whole && m_next++->value.SetString(value); }
    void set(bool value) { m_whole = m_whole && m_next++->value.SetBool(value); }
    void set(double value) { m_whole = m_whole && m_next++->value.SetFlt64(value); }
    template <class E>
    requires std::is_enum_v<E>
    void set(E value) { m_whole = m_whole && m_next++->value.SetInt32(static_cast<int32_t>(value)); }
    /// There was memory for all of it.
    bool isWhole() const { return m_whole; }

private:
    Attributes(Element& element, const CString* list, uint32_t count) {
        const uint16_t rate = element.attributes.SetGrowthRate(1);
        m_whole = element.attributes.SetSize(count);
        element.attributes.SetGrowthRate(rate);
        m_next = element.attributes.data();
        for (uint32_t i = 0; m_whole && i < count; ++i) m_next[i].name = list[i];
    }

    CSBFile::ATTRIB* m_next;
    bool m_whole;
};

template <class E>
void getEnum(const Element& from, const char16_t* name, E& value) {
    value = static_cast<E>(from.GetInt32(name));
}

}  // namespace

bool CTagEntry::Save(CSBFile& file) const {
    auto entry = std::make_unique<Element>(names().entry);
    Attributes to(*entry, names().attributes);
    to.set(m_name);
    to.set(m_description);
    to.set(m_dataType);
    to.set(m_useNumericBounds);
    to.set(m_lowBound);
    to.set(m_highBound);
    to.set(m_textValuesMode);
    to.set(m_category);
    to.set(m_writeMode);
    to.set(m_units);
    to.set(m_location);
    bool whole = to.isWhole();
    for (const CString& value : m_textValues) {
        auto* const text = new Element(names().text);
        entry->InsertChild(text, true);
        Attributes of(*text, names().value);
        of.set(value);
        whole = whole && of.isWhole();
    }
    return whole && file.Curr()->InsertChild(entry.release(), true);
}

bool CTagEntry::Load(CSBFile& file) {
    const Element& from = *file.Curr();
    if (text::compareNoCase(from.name.view(), entryElement) != 0) {
        SetDiagnostic(CString(), u"a TagEntry element", from.name);
        return false;
    }
    const CString& none = Private::sharedEmptyText();
    m_name = from.GetString(u"Name", none);
    m_description = from.GetString(u"Description", none);
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
        if (!m_textValues.Add(child->GetString(textAttribute, none))) return false;
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
        loaded = SetSize(size() + 1);
        if (!loaded) break;
        loaded = back().Load(tree);
        if (!loaded) pop_back();
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
