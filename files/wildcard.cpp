// IFileSystem::WildcardMatch: all ways through a pattern are followed at once, so no text makes it go back.
#include <bit>
#include <cstddef>
#include <cstdint>
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
            if (c == u'?') m_anyCharacter.set(m_final);
            m_characters[m_final++] = text::toLower(c);
        }
    }

    bool matches(std::u16string_view name) const {
        StateSet live;
        live.set(0);
        for (const char16_t c : name) {
            if (!step(live, text::toLower(c))) return false;
        }
        return live.has(m_final);
    }

private:
    static constexpr size_t wordBits = 64;

    struct StateSet {
        uint64_t words[patternChars / wordBits + 1] = {};
        void set(size_t i) { words[i / wordBits] |= uint64_t{1} << (i % wordBits); }
        bool has(size_t i) const { return (words[i / wordBits] >> (i % wordBits) & 1) != 0; }
    };

    /// Moves every live state on by one character; false when none is left.
    bool step(StateSet& live, char16_t c) const {
        uint64_t carry = 0, any = 0;
        for (size_t w = 0; w <= m_final / wordBits; ++w) {
            uint64_t advancing = 0;
            for (uint64_t left = live.words[w]; left != 0; left &= left - 1) {
                const size_t i = w * wordBits + static_cast<size_t>(std::countr_zero(left));
                const bool passes = i < m_final && (m_characters[i] == c || m_anyCharacter.has(i));
                if (passes) advancing |= left & (0 - left);
            }
            live.words[w] = (live.words[w] & m_repeats.words[w]) | (advancing << 1) | carry;
            carry = advancing >> (wordBits - 1);
            any |= live.words[w];
        }
        return any != 0;
    }

    char16_t m_characters[patternChars];
    StateSet m_anyCharacter, m_repeats;
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
