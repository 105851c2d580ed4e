// Decks field by field.
#include "qv/tape5_cards.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string>

#include "core/text.h"
#include "modtran/tape5_number.h"
#include "modtran/tape5_reader.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

using namespace tape5;

TAPE5_FIELD::KIND kindOf(const Access& access) {
    if (access.isText()) return TAPE5_FIELD::Text;
    if (access.isInteger()) return TAPE5_FIELD::Integer;
    return access.storage == Storage::real ? TAPE5_FIELD::Real : TAPE5_FIELD::Character;
}

class Lister : public Visitor {
public:
    explicit Lister(TArray<TAPE5_FIELD>& fields) : m_fields(fields) {}

    bool isFull() const { return m_isFull; }

    void field(const Seen& seen, const RUN& run) override {
        m_isFull = m_fields.size() >= mostTape5Fields;
        if (m_isFull) return;
        TAPE5_FIELD made;
        made.run = m_run;
        made.line = seen.lineNumber;
        made.card = seen.card.name;
        made.title = seen.card.title;
        made.name = CStringMB(fullName(seen.block, seen.card, seen.field, seen.index));
        made.meaning = seen.field.meaning;
        made.first = seen.columns.first;
        made.last = seen.columns.last;
        made.kind = kindOf(seen.field.access);
        made.text = CStringMB(trimmed(seen.text));
        made.value = CStringMB(valueOf(run, seen.field, seen.index));
        m_fields.Add(made);
        if (std::string_view(seen.card.name) == "5") ++m_run;
    }

private:
    TArray<TAPE5_FIELD>& m_fields;
    int32_t m_run = 0;
    bool m_isFull = false;
};

/// A name with up to two indexes, from 0.
struct Name {
    std::string_view base;
    uint32_t count = 0;
    uint32_t indexes[2] = {};
};

std::optional<Name> parsed(std::string_view text) {
    Name name;
    size_t dot = text.find('.');
    name.base = text.substr(0, dot);
    while (dot != text.npos) {
        text.remove_prefix(dot + 1);
        dot = text.find('.');
        const std::string_view number = text.substr(0, dot);
        uint32_t index = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), index);
        if (name.count == 2 || error != std::errc() || end != number.data() + number.size() || index == 0) return {};
        name.indexes[name.count++] = index - 1;
    }
    return name;
}

struct Place {
    const Card* card = nullptr;
    const Field* field = nullptr;
    Index index;
};

/// The field of a name; of several cards that have it the one that is part of the run, if any. Null fields for none.
Place placeOf(const RUN& run, std::string_view text) {
    Place found;
    const std::optional<Name> name = parsed(text);
    if (!name) return found;
    for (const Block& block : deckOrder()) {
        for (const Card& card : block.cards) {
            const bool hasI = block.count != nullptr, hasJ = card.elements != nullptr;
            if (name->count != (hasI ? 1u : 0u) + (hasJ ? 1u : 0u)) continue;
            const Index x{hasI ? name->indexes[0] : 0, hasJ ? name->indexes[name->count - 1] : 0};
            if (x.i >= block.countOf(run) || (hasJ && x.j >= card.elements(run, x.i))) continue;
            for (const Field& field : card.fields) {
                if (text::compareNoCase(field.name, name->base) != 0) continue;
                if (card.applies(run, x.i)) return {&card, &field, x};
                if (found.field == nullptr) found = {nullptr, &field, x};
            }
        }
    }
    return found;
}

bool refuse(const CStringMB& name, const char16_t* expected, const CStringMB& found) {
    SetDiagnostic(CString(), CString::FromFormat(u"%s for %s", expected, name),
                  CString::FromFormat(u"\"%s\"", found.view().substr(0, 80)));
    return false;
}

/// Numbers as people write them: all of the text, no blanks inside.
bool setNumber(RUN& run, const Field& field, Index x, std::string_view text) {
    int32_t whole = 0;
    double number = 0.0;
    if (text.empty() || text.find(' ') != text.npos) return false;
    if (field.access.isInteger()) return readInteger(text, whole) && field.access.setInteger(run, x, whole);
    if (!readReal(text, 0, number)) return false;
    *field.access.real(run, x) = number;
    return true;
}

}  // namespace

bool ListTape5Fields(TSharedPtr<IFile> file, TArray<TAPE5_FIELD>& fields) {
    fields.Empty();
    (void)fields.SetGrowthRate(0xFFFF);
    std::string bytes;
    if (!file || !readBytes(*file, bytes)) return false;
    Lister lister(fields);
    Reader reader(bytes, 1, &lister);
    TArray<RUN> runs;
    if (!readDeck(reader, runs)) return false;
    if (!lister.isFull()) return true;
    SetDiagnostic(CString(), u"a deck of at most 200,000 fields", u"more");
    return false;
}

bool SetTape5Field(CModtranTape5File::RUN& run, const CStringMB& name, const CStringMB& value) {
    const Place place = placeOf(run, name.view());
    if (place.field == nullptr) return refuse(name, u"the name of a field of this run", name);
    const Access& access = place.field->access;
    if (access.isText()) {
        return access.setText(run, place.index, value.view()) || refuse(name, u"a text that is known", value);
    }
    if (access.storage == Storage::character) {
        if (value.length() > 1) return refuse(name, u"one character", value);
        *access.character(run, place.index) = value.IsEmpty() ? ' ' : value.view()[0];
        return true;
    }
    return setNumber(run, *place.field, place.index, value.view()) ||
           refuse(name, access.isInteger() ? u"a whole number (a list has at most 4096 elements)" : u"a number", value);
}

bool GetTape5Field(const CModtranTape5File::RUN& run, const CStringMB& name, CStringMB& value, CStringMB& card) {
    const Place place = placeOf(run, name.view());
    if (place.field == nullptr) return refuse(name, u"the name of a field of this run", name);
    value = CStringMB(valueOf(run, *place.field, place.index));
    card = place.card == nullptr ? "" : place.card->name;
    return true;
}

}  // namespace qv
