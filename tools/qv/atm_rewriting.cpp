#include "atm_rewriting.h"

#include <algorithm>
#include <map>
#include <utility>

#include "command.h"
#include "text.h"

namespace tool {

namespace {

using qv::TAPE5_FIELD;

/// A number behind letters, "g 2.5".
struct Number {
    std::string letters;
    double value = 0.0;
    bool isNumber = false;

    explicit Number(std::string text) {
        std::erase(text, ' ');
        text = CLI::detail::to_lower(text);
        std::replace(text.begin(), text.end(), 'd', 'e');
        const size_t begin = std::min(text.find_first_of("0123456789.-"), text.size());
        letters = text.substr(0, begin);
        std::erase(letters, '+');
        char* end = nullptr;
        value = std::strtod(text.c_str() + begin, &end);
        isNumber = begin < text.size() && *end == '\0';
    }
};

bool isBlank(const TAPE5_FIELD& field) {
    const std::string value = field.value.c_str();
    return field.text.IsEmpty() || value.empty() || value == " " || value == "0" || value == "F";
}

bool isChanged(const TAPE5_FIELD& before, const TAPE5_FIELD& after) {
    const std::string was = before.value.c_str(), is = after.value.c_str();
    switch (before.kind) {
        case TAPE5_FIELD::Character: return was != is && !(isBlank(before) && isBlank(after));  // F is blank
        case TAPE5_FIELD::Real: return was != is;
        case TAPE5_FIELD::Text: return was != is || !saysTheSame(before.text.c_str(), after.text.c_str());
        default: return was != is || (!before.text.IsEmpty() && !saysTheSame(before.text.c_str(), is));
    }
}

/// The runs of a deck, of which one at a time is looked at.
class Kept {
public:
    explicit Kept(const qv::CModtranTape5File& deck) : m_deck(deck) {}

    /// Whether the deck still has the value that was found.
    bool has(const TAPE5_FIELD& found) {
        qv::CStringMB value, card;
        if (m_index != found.run && !m_deck.GetRun(found.run, m_run)) return false;
        m_index = found.run;
        return qv::GetTape5Field(m_run, found.name, value, card) && value.view() == found.value.view();
    }

private:
    const qv::CModtranTape5File& m_deck;
    qv::CModtranTape5File::RUN m_run;
    int32_t m_index = -1;
};

std::string shown(const std::string& text) { return text.empty() ? "(blank)" : visible(wide(text)); }

}  // namespace

bool isSameName(const std::string& left, const std::string& right) {
    return CLI::detail::to_lower(left) == CLI::detail::to_lower(right);
}

bool saysTheSame(const std::string& left, const std::string& right) {
    const Number a(left), b(right);
    return !a.isNumber || !b.isNumber || (a.letters == b.letters && a.value == b.value);
}

AtmRewriting::AtmRewriting(const std::string& path, const qv::TSharedPtr<qv::IFile>& found) : m_path(path) {
    list(found, m_found);
}

bool AtmRewriting::list(const qv::TSharedPtr<qv::IFile>& deck, qv::TArray<TAPE5_FIELD>& fields) {
    if (qv::ListTape5Fields(deck, fields)) return true;
    m_found.Empty();
    remark("qv: " + m_path + ": has too many fields to say which of them the new layout changes");
    return false;
}

void AtmRewriting::compare(const Deck& deck, const qv::TSharedPtr<qv::IFile>& written, int32_t index,
                           const std::vector<std::string>& set) {
    qv::TArray<TAPE5_FIELD> now;
    written->SeekToBegin();
    if (m_found.empty() || !list(written, now)) return;
    std::map<std::pair<int32_t, std::string>, const TAPE5_FIELD*> places;
    for (const TAPE5_FIELD& field : now) places[{field.run, field.name.c_str()}] = &field;
    const auto isSet = [&](const TAPE5_FIELD& field) {
        return field.run == index && std::any_of(set.begin(), set.end(), [&](const std::string& name) {
                   return isSameName(name, field.name.c_str());
               });
    };
    Kept kept(deck);
    for (const TAPE5_FIELD& field : m_found) {
        const auto place = places.find({field.run, field.name.c_str()});
        const bool isGone = place == places.end();
        if (isGone ? isBlank(field) : !isChanged(field, *place->second)) continue;
        if (isSet(field) || (!isGone && !kept.has(field))) continue;
        m_changes.push_back({field.run, field.card, field.name.c_str(), field.text.c_str(),
                             isGone ? "" : place->second->text.c_str(), isGone});
    }
}

void AtmRewriting::tell() const {
    std::vector<std::string> gone;
    for (const Change& change : m_changes) {
        const std::string place =
            "qv: " + m_path + ": run " + std::to_string(change.run) + ", card " + change.card + ": ";
        if (!change.isGone) {
            remark(place + change.field + " is rewritten: " + shown(change.before) + " -> " + shown(change.after));
        } else if (std::find(gone.begin(), gone.end(), place) == gone.end()) {
            remark(place + "is not part of the run any more, and its values are lost");
            gone.push_back(place);
        }
    }
}

Json AtmRewriting::json() const {
    Json list = Json::array();
    for (const Change& change : m_changes) {
        list.push(Json::object()
                      .set("run", change.run)
                      .set("card", change.card)
                      .set("field", change.field)
                      .set("before", change.before)
                      .set("after", change.isGone ? Json() : Json(change.after)));
    }
    return list;
}

}  // namespace tool
