// Names of locales, taken apart.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// language[_TERRITORY][.codeset][@modifier]; all parts may be empty but the language.
struct LocaleName {
    std::u16string language, territory, codeset, modifier;

    /// Nothing for text that is no such name: parts are letters, digits and `-`, the codeset also `_`, `:`.
    static std::optional<LocaleName> parse(std::u16string_view text);
    /// The program's own texts: "C" and "POSIX", with any codeset.
    bool isC() const;
    std::u16string text() const;
    /// The folders in which catalogues may be, the most specific first.
    std::vector<std::u16string> folders() const;
};

/// The selected name and the names to try, by the environment.
struct LocaleChoice {
    std::u16string selected;
    std::vector<LocaleName> tried;
};
LocaleChoice localeOfEnvironment();

}  // namespace qv
