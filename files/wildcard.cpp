// IFileSystem::WildcardMatch: all ways through a pattern are followed at once, so no text makes it go back.
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
    /// Takes the pattern up to a `|` or its end, and moves `pattern` there.
    explicit WildcardStates(const char16_t*& pattern) {
        m_repeats[0] = false;
        for (; *pattern != 0 && *pattern != u'|'; ++pattern) {
            if (*pattern == u'*') {
                m_repeats[m_final] = true;
                continue;
            }
            m_awaited[m_final++] = *pattern == u'?' ? anyCharacter : text::toLower(*pattern);
            m_repeats[m_final] = false;
        }
        m_awaited[m_final] = noCharacter;
    }

    bool matches(const char16_t* name) const {
        LiveStates live;
        enter(live, 0);
        for (;; ++name) {
            if (live.count == 0) {
                if (live.repeating == m_final) return true;
                if (live.repeating == none) return false;
                name = skipRefused(live.repeating, name);
            }
            if (*name == 0) break;
            step(live, text::toLower(*name));
        }
        return live.repeating == m_final || (live.count != 0 && live.passing[0] == m_final);
    }

private:
    static constexpr uint32_t anyCharacter = 0x10000, noCharacter = 0x10001;
    static constexpr size_t none = ~size_t{0};

    /// A repeatable state stays live for good, and every way that is still in front of it would have to come through
    /// it: so of those only the furthest counts, and of the others only those behind it. They stand furthest first.
    struct LiveStates {
        size_t repeating = none;
        size_t count = 0;
        uint16_t passing[patternChars];
    };

    /// Behind the characters that the state does not wait for.
    const char16_t* skipRefused(size_t state, const char16_t* name) const {
        const uint32_t awaited = m_awaited[state];
        if (awaited == anyCharacter) return name;
        while (*name != 0 && text::toLower(*name) != awaited) ++name;
        return name;
    }

    bool accepts(size_t state, char16_t c) const { return m_awaited[state] == c || m_awaited[state] == anyCharacter; }

    /// Adds the next state, further ones first; false when no other one is needed any more.
    bool enter(LiveStates& live, size_t state) const {
        if (m_repeats[state]) {
            live.repeating = state;
            return false;
        }
        live.passing[live.count++] = static_cast<uint16_t>(state);
        return true;
    }

    /// Moves every live state on by one character.
    void step(LiveStates& live, char16_t c) const {
        const size_t count = live.count;
        live.count = 0;
        for (size_t i = 0; i < count; ++i) {
            const size_t state = live.passing[i];
            if (accepts(state, c) && !enter(live, state + 1)) return;
        }
        if (live.repeating != none && accepts(live.repeating, c)) (void)enter(live, live.repeating + 1);
    }

    uint32_t m_awaited[patternChars];
    bool m_repeats[patternChars];
    size_t m_final = 0;
};

}  // namespace

bool IFileSystem::WildcardMatch(const char16_t* patterns, const char16_t* name) {
    if (patterns == nullptr || name == nullptr) return false;
    if (std::u16string_view(patterns).size() >= patternChars) return false;
    for (; *patterns != 0; ++patterns) {
        if (*patterns == u'|') continue;
        if (WildcardStates(patterns).matches(name)) return true;
        if (*patterns == 0) break;
    }
    return false;
}

}  // namespace qv
