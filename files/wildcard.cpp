// IFileSystem::WildcardMatch: all ways through a pattern are followed at once, so no text makes it go back.
#include <bitset>
#include <cstddef>
#include <string_view>

#include "core/text.h"
#include "qv/file_system.h"

namespace qv {

namespace {

constexpr size_t patternChars = IFileSystem::pathChars;

/// One alternative. State i waits for character i; the state behind the last character is final.
class WildcardStates {
public:
    explicit WildcardStates(std::u16string_view pattern) {
        for (const char16_t c : pattern) {
            if (c == u'*') {
                m_repeats.set(m_final);
                continue;
            }
            m_anyCharacter[m_final] = c == u'?';
            m_characters[m_final++] = text::toLower(c);
        }
    }

    bool matches(std::u16string_view name) const {
        std::bitset<patternChars + 1> live;
        live.set(0);
        for (const char16_t raw : name) {
            const char16_t c = text::toLower(raw);
            auto next = live & m_repeats;
            for (size_t i = 0; i < m_final; ++i) {
                if (live[i] && (m_anyCharacter[i] || m_characters[i] == c)) next.set(i + 1);
            }
            if (next.none()) return false;
            live = next;
        }
        return live[m_final];
    }

private:
    char16_t m_characters[patternChars];
    std::bitset<patternChars> m_anyCharacter;
    std::bitset<patternChars + 1> m_repeats;
    size_t m_final = 0;
};

}  // namespace

bool IFileSystem::WildcardMatch(const char16_t* patterns, const char16_t* name) {
    if (patterns == nullptr || name == nullptr) return false;
    std::u16string_view rest(patterns);
    if (rest.size() >= patternChars) return false;
    while (!rest.empty()) {
        const size_t bar = rest.find(u'|');
        const std::u16string_view alternative = rest.substr(0, bar);
        if (!alternative.empty() && WildcardStates(alternative).matches(name)) return true;
        if (bar == std::u16string_view::npos) break;
        rest.remove_prefix(bar + 1);
    }
    return false;
}

}  // namespace qv
