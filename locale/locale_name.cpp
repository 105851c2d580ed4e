#include "locale/locale_name.h"

#include <algorithm>
#include <utility>

#include "core/text.h"
#include "platform/environment.h"

namespace qv {

namespace {

bool consistsOf(std::u16string_view text, std::u16string_view beside) {
    return std::all_of(text.begin(), text.end(), [beside](char16_t ch) {
        return text::isLetter(ch) || text::isDigit(ch) || beside.find(ch) != beside.npos;
    });
}

/// Cuts `text` at the last `mark`; gives what stood behind it.
std::u16string cutAt(std::u16string_view& text, char16_t mark) {
    const size_t at = text.find(mark);
    if (at == text.npos) return {};
    std::u16string behind(text.substr(at + 1));
    text = text.substr(0, at);
    return behind;
}

}  // namespace

std::optional<LocaleName> LocaleName::parse(std::u16string_view text) {
    LocaleName name;
    name.modifier = cutAt(text, u'@');
    name.codeset = cutAt(text, u'.');
    name.territory = cutAt(text, u'_');
    name.language = text;
    const bool valid = !name.language.empty() && consistsOf(name.language, u"-") && consistsOf(name.territory, u"-") &&
                       consistsOf(name.codeset, u"-_:") && consistsOf(name.modifier, u"-");
    return valid ? std::optional(std::move(name)) : std::nullopt;
}

bool LocaleName::isC() const { return language == u"C" || language == u"POSIX"; }

std::u16string LocaleName::text() const {
    std::u16string text = language;
    if (!territory.empty()) text += u'_' + territory;
    if (!codeset.empty()) text += u'.' + codeset;
    if (!modifier.empty()) text += u'@' + modifier;
    return text;
}

std::vector<std::u16string> LocaleName::folders() const {
    std::vector<std::u16string> found;
    if (isC()) return found;
    for (const bool withTerritory : {true, false}) {
        for (const bool withModifier : {true, false}) {
            for (const bool withCodeset : {true, false}) {
                LocaleName form = *this;
                if (!withTerritory) form.territory.clear();
                if (!withModifier) form.modifier.clear();
                if (!withCodeset) form.codeset.clear();
                const std::u16string folder = form.text();
                if (std::find(found.begin(), found.end(), folder) == found.end()) found.push_back(folder);
            }
        }
    }
    return found;
}

LocaleChoice localeOfEnvironment() {
    LocaleChoice choice{u"C", {}};
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const std::u16string value = text::toUtf16(platform::environmentVariable(variable));
        if (value.empty()) continue;
        const std::optional<LocaleName> name = LocaleName::parse(value);
        if (!name) break;  // What nobody understands is as good as C.
        choice.selected = value;
        if (!name->isC()) choice.tried.push_back(*name);
        break;
    }
    if (choice.tried.empty()) return choice;
    const std::u16string list = text::toUtf16(platform::environmentVariable("LANGUAGE"));
    std::vector<LocaleName> preferred;
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(u':', at), list.size());
        if (auto name = LocaleName::parse(std::u16string_view(list).substr(at, end - at))) {
            preferred.push_back(*std::move(name));
        }
        at = end + 1;
    }
    if (!preferred.empty()) choice.tried = std::move(preferred);
    return choice;
}

}  // namespace qv
