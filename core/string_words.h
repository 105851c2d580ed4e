// The capitalised interface of TString.
#pragma once

#include <algorithm>

#include "core/format.h"
#include "core/text.h"
#include "qv/array.h"
#include "qv/string.h"

namespace qv {

namespace {

/// Unit by unit by `map`; texts of different length are never equal.
template <class Ch>
bool equalMapped(std::basic_string_view<Ch> a, std::basic_string_view<Ch> b, Ch (*map)(Ch)) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [map](Ch x, Ch y) { return x == y || map(x) == map(y); });
}

/// The first place of `s` in `where` from `start` on, or npos.
template <class Ch>
size_t search(std::basic_string_view<Ch> where, size_t start, std::basic_string_view<Ch> s, bool caseSensitive) {
    if (caseSensitive) return where.find(s, start);
    for (size_t i = start; i + s.size() <= where.size(); ++i) {
        if (equalMapped<Ch>(where.substr(i, s.size()), s, &text::toUpper)) return i;
    }
    return where.npos;
}

/// A position of the standard library as one of the capitalised interface.
inline int toPosition(size_t pos) { return pos == std::string_view::npos ? -1 : static_cast<int>(pos); }

constexpr int sign(int difference) { return difference < 0 ? -1 : difference > 0 ? 1 : 0; }

}  // namespace

// Comparison ----------------------------------------------------------------------------------------------------------

template <class Ch>
int TString<Ch>::Compare(Text s, int n) const {
    if (m_rep == nullptr) return -1;
    if (n < 0) return sign(view().compare(s.all()));
    return text::compareToNul(view().substr(0, static_cast<size_t>(n)), s.firstToNul(n));
}

template <class Ch>
int TString<Ch>::CompareNoCase(Text s, int n) const {
    if (m_rep == nullptr) return -1;
    if (n < 0) return text::compareNoCase(view(), s.all());
    return text::compareNoCase(view().substr(0, static_cast<size_t>(n)), s.firstToNul(n));
}

template <class Ch>
bool TString<Ch>::Equals(Text s) const {
    return m_rep != nullptr && view() == s.all();
}

template <class Ch>
bool TString<Ch>::EqualsNoCase(Text s) const {
    return m_rep != nullptr && equalMapped<Ch>(view(), s.all(), &text::toLower);
}

template <class Ch>
bool TString<Ch>::StartsWith(Text s) const {
    return m_rep != nullptr && view().starts_with(s.all());
}

template <class Ch>
bool TString<Ch>::StartsWithNoCase(Text s) const {
    const View beginning = s.all();
    return m_rep != nullptr && equalMapped<Ch>(view().substr(0, beginning.size()), beginning, &text::toLower);
}

template <class Ch>
bool TString<Ch>::EndsWith(Text s) const {
    return m_rep != nullptr && view().ends_with(s.all());
}

template <class Ch>
bool TString<Ch>::EndsWithNoCase(Text s) const {
    const View ending = s.all();
    return m_rep != nullptr && ending.size() <= length() &&
           equalMapped<Ch>(view().substr(length() - ending.size()), ending, &text::toLower);
}

template <class Ch>
int TString<Ch>::Compare(Text a, Text b) {
    return text::compareToNul(a.all(), b.all());
}

template <class Ch>
int TString<Ch>::CompareNoCase(Text a, Text b) {
    return text::compareNoCase(a.all(), b.all());
}

// Changing ------------------------------------------------------------------------------------------------------------

template <class Ch>
void TString<Ch>::Concatenate(Text s, ptrdiff_t n) {
    splice(length(), 0, s.first(n));
}

template <class Ch>
int TString<Ch>::Delete(int pos, int n) {
    if (pos >= 0 && pos < GetLength() && n >= 1)
        openGap(static_cast<size_t>(pos), static_cast<size_t>(std::min(n, GetLength() - pos)), 0);
    return GetLength();
}

template <class Ch>
int TString<Ch>::Insert(int pos, Text s, int n) {
    if (pos >= 0 && pos <= GetLength()) splice(static_cast<size_t>(pos), 0, s.first(n));
    return GetLength();
}

template <class Ch>
int TString<Ch>::Insert(int pos, Ch ch) {
    return Insert(pos, View(&ch, 1));
}

template <class Ch>
int TString<Ch>::Replace(int pos, int count, Text s, int n) {
    if (pos >= 0 && pos < GetLength() && count >= 1) {
        splice(static_cast<size_t>(pos), static_cast<size_t>(std::min(count, GetLength() - pos)), s.first(n));
    }
    return GetLength();
}

template <class Ch>
int TString<Ch>::Replace(Text from, Text to, bool caseSensitive) {
    const View old = from.all(), replacement = to.all(), whole = view();
    if (old.empty()) return 0;
    std::basic_string<Ch> result;
    int replacements = 0;
    size_t done = 0;
    for (size_t at; (at = search(whole, done, old, caseSensitive)) != npos; done = at + old.size()) {
        result.append(whole, done, at - done).append(replacement);
        ++replacements;
    }
    if (replacements != 0) assignView(result.append(whole, done));
    return replacements;
}

template <class Ch>
bool TString<Ch>::Truncate(int n) {
    if (n < 0 || n >= GetLength()) return false;
    erase(static_cast<size_t>(n));
    return true;
}

// Searching -----------------------------------------------------------------------------------------------------------

template <class Ch>
int TString<Ch>::FindChar(int start, Ch ch) const {
    return start < 0 ? -1 : toPosition(view().find(ch, static_cast<size_t>(start)));
}

template <class Ch>
int TString<Ch>::FindChar(int start, Text set) const {
    return start < 0 ? -1 : toPosition(view().find_first_of(set.all(), static_cast<size_t>(start)));
}

template <class Ch>
int TString<Ch>::ReverseFindChar(int start, Ch ch) const {
    return start < 0 ? -1 : toPosition(view().rfind(ch, static_cast<size_t>(start)));
}

template <class Ch>
int TString<Ch>::ReverseFindChar(int start, Text set) const {
    return start < 0 ? -1 : toPosition(view().find_last_of(set.all(), static_cast<size_t>(start)));
}

template <class Ch>
int TString<Ch>::FindString(int start, Text s, bool caseSensitive) const {
    return start < 0 ? -1 : toPosition(search(view(), static_cast<size_t>(start), s.all(), caseSensitive));
}

// Parts ---------------------------------------------------------------------------------------------------------------

template <class Ch>
TString<Ch> TString<Ch>::SubString(int pos, int n) const {
    if (pos < 0 || pos >= GetLength()) return TString();
    if (pos == 0 && (n < 0 || n >= GetLength())) return *this;
    return TString(view().substr(static_cast<size_t>(pos), n < 0 ? npos : static_cast<size_t>(n)));
}

template <class Ch>
TString<Ch> TString<Ch>::Right(int n) const {
    if (n <= 0) return TString();
    return SubString(std::max(GetLength() - n, 0));
}

template <class Ch>
TString<Ch> TString<Ch>::TrimLeft(int n) const {
    return SubString(std::max(n, 0));
}

template <class Ch>
TString<Ch> TString<Ch>::TrimRight(int n) const {
    if (n >= GetLength()) return TString();
    return SubString(0, GetLength() - std::max(n, 0));
}

template <class Ch>
TString<Ch> TString<Ch>::LTrim() const {
    const View text = view();
    const auto first = std::find_if_not(text.begin(), text.end(), &text::isSpace<Ch>);
    return TrimLeft(static_cast<int>(first - text.begin()));
}

template <class Ch>
TString<Ch> TString<Ch>::RTrim() const {
    return TrimRight(!IsEmpty() && text::isSpace(view().back()) ? 1 : 0);
}

template <class Ch>
TString<Ch> TString<Ch>::Trim() const {
    return LTrim().RTrim();
}

template <class Ch>
int TString<Ch>::Split(Text text, TArray<TString>& array, Text delimiters) {
    const TString whole(text.all());  // The arguments may lie in the array that is emptied.
    const std::basic_string<Ch> set(delimiters.all());
    array.Empty();
    size_t start = 0;
    for (size_t at; (at = whole.view().find_first_of(set, start)) != npos; start = at + 1) {
        array.Add(TString(whole.view().substr(start, at - start)));
    }
    array.Add(TString(whole.view().substr(start)));
    return static_cast<int>(array.GetSize());
}

template <class Ch>
TString<Ch> TString<Ch>::Join(const TArray<TString>& array, Text separator) {
    const View between = separator.all();
    TString joined;
    size_t units = 0;
    for (const TString& item : array) units += item.length() + between.size();
    joined.reserve(units);
    for (uint32_t i = 0; i < array.GetSize(); ++i) {
        if (i != 0) joined.append(between);
        joined.append(array.ConstGetItem(i).view());
    }
    return joined;
}

template <class Ch>
TString<Ch> TString<Ch>::ToPigLatin(Text text) {
    const View source = text.all();
    const auto isVowel = [](Ch ch) {
        const Ch letter = text::toLower(ch);
        return letter == 'a' || letter == 'e' || letter == 'i' || letter == 'o' || letter == 'u';
    };
    std::basic_string<Ch> out;
    for (auto at = source.begin(); at != source.end();) {
        const auto end = std::find_if_not(at, source.end(), &text::isLetter<Ch>);
        if (end == at) {
            out += *at++;
            continue;
        }
        auto vowel = std::find_if(at, end, isVowel);
        if (vowel == end) vowel = at;
        out.append(vowel, end).append(at, vowel) += {Ch('a'), Ch('y')};
        at = end;
    }
    return TString(out);
}

// Formatting ----------------------------------------------------------------------------------------------------------

template <class Ch>
TString<Ch>& TString<Ch>::FormatV(Text fmt, Private::FormatArgs args) {
    std::basic_string<Ch> out;  // Arguments may lie in this string.
    text::format(out, fmt.all(), args);
    makeRoom(out.size() + 3, false);
    const size_t units = std::min(out.find(Ch()), out.size());
    std::copy_n(out.data(), units, m_rep->buffer);
    setLength(units);
    return *this;
}

template <class Ch>
TString<Ch> TString<Ch>::FromInt(int n) {
    constexpr Ch fmt[] = {'%', 'd', 0};
    return FromFormat(fmt, n);
}

template <class Ch>
TString<Ch> TString<Ch>::FromDouble(double x) {
    constexpr Ch fmt[] = {'%', 'g', 0};
    return FromFormat(fmt, x);
}

}  // namespace qv
