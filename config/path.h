// Texts and paths as stores keep them.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "core/text.h"
#include "qv/config_store.h"

namespace qv::Private {

/// The text up to its first NUL with lone surrogates replaced; what is clean already is not copied.
class CleanText {
public:
    explicit CleanText(std::u16string_view text) : m_view(text.substr(0, text.find(u'\0'))) {
        if (isWellFormed(m_view)) return;
        m_copy = text::toUtf16(text::toUtf8(m_view));
        m_view = m_copy;
    }
    CleanText(const CleanText&) = delete;
    CleanText& operator=(const CleanText&) = delete;
    std::u16string_view view() const { return m_view; }

private:
    static bool isHigh(char16_t ch) { return (ch & 0xFC00) == 0xD800; }
    static bool isLow(char16_t ch) { return (ch & 0xFC00) == 0xDC00; }
    static bool isWellFormed(std::u16string_view text) {
        for (size_t i = 0; i < text.size(); ++i) {
            if (isLow(text[i])) return false;
            if (isHigh(text[i]) && (++i == text.size() || !isLow(text[i]))) return false;
        }
        return true;
    }

    std::u16string m_copy;
    std::u16string_view m_view;
};

inline size_t namesIn(std::u16string_view normalPath) {
    return normalPath.empty() ? 0 : 1 + static_cast<size_t>(std::count(normalPath.begin(), normalPath.end(), u'/'));
}

/// A path without empty names; one that is normal already is not copied.
class NormalPath {
public:
    explicit NormalPath(std::u16string_view path) : m_clean(path), m_view(m_clean.view()) {
        if (isNormal(m_view)) return;
        char16_t before = u'/';
        for (const char16_t ch : m_view) {
            if (ch != u'/' || before != u'/') m_copy += ch;
            before = ch;
        }
        if (m_copy.ends_with(u'/')) m_copy.pop_back();
        m_view = m_copy;
    }
    NormalPath(const NormalPath&) = delete;
    NormalPath& operator=(const NormalPath&) = delete;
    std::u16string_view view() const { return m_view; }
    bool isRoot() const { return m_view.empty(); }

private:
    static bool isNormal(std::u16string_view path) {
        return !path.starts_with(u'/') && !path.ends_with(u'/') && path.find(u"//") == path.npos;
    }

    CleanText m_clean;
    std::u16string m_copy;
    std::u16string_view m_view;
};

/// Cuts the first name off a normal path.
inline std::u16string_view takeName(std::u16string_view& path) {
    const size_t slash = path.find(u'/');
    const std::u16string_view name = path.substr(0, slash);
    path = slash == path.npos ? std::u16string_view() : path.substr(slash + 1);
    return name;
}

}  // namespace qv::Private
