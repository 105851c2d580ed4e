// The standard library's interface of TString.
#pragma once

#include <algorithm>

#include "core/string_lifetime.h"
#include "core/text.h"
#include "qv/exception.h"
#include "qv/string.h"

namespace qv {

namespace {

template <class Ch>
[[noreturn]] void throwOutOfRange(const char* situation) {
    CString message(std::is_same_v<Ch, char> ? "CStringMB::" : "CString::");
    message += CString(situation);
    throw COutOfRangeException(std::move(message));
}

/// `n` clamped to what `length` leaves behind `pos`; throws with `situation` when `pos` is past `length`.
template <class Ch>
size_t clampedCount(size_t length, size_t pos, size_t n, const char* situation) {
    if (pos > length) throwOutOfRange<Ch>(situation);
    return std::min(n, length - pos);
}

}  // namespace

// assign, append ------------------------------------------------------------------------------------------------------

template <class Ch>
TString<Ch>& TString<Ch>::assign(const TString& other, size_t pos, size_t n) {
    n = clampedCount<Ch>(other.length(), pos, n, "append: start pos exceeds string length.");
    return assign(other.data() + pos, n);
}

template <class Ch>
TString<Ch>& TString<Ch>::assign(const Ch* s, size_t n) {
    assignView(View(s, n));
    return *this;
}

template <class Ch>
TString<Ch>& TString<Ch>::assign(Text s) {
    assignView(s.all());
    return *this;
}

template <class Ch>
TString<Ch>& TString<Ch>::assign(size_t count, Ch ch) {
    return replace(0, length(), count, ch);
}

template <class Ch>
TString<Ch>& TString<Ch>::append(const TString& other, size_t pos, size_t n) {
    n = clampedCount<Ch>(other.length(), pos, n, "append: start pos exceeds string length.");
    return append(other.data() + pos, n);
}

template <class Ch>
TString<Ch>& TString<Ch>::append(const Ch* s, size_t n) {
    splice(length(), 0, View(s, n));
    return *this;
}

template <class Ch>
TString<Ch>& TString<Ch>::append(Text s) {
    splice(length(), 0, s.all());
    return *this;
}

template <class Ch>
TString<Ch>& TString<Ch>::append(size_t count, Ch ch) {
    return replace(length(), 0, count, ch);
}

template <class Ch>
void TString<Ch>::pop_back() {
    if (!IsEmpty()) erase(length() - 1);
}

// erase, replace, resize ----------------------------------------------------------------------------------------------

template <class Ch>
TString<Ch>& TString<Ch>::erase(size_t pos, size_t n) {
    n = clampedCount<Ch>(length(), pos, n, "erase: invalid index");
    if (n != 0) openGap(pos, n, 0);
    return *this;
}

template <class Ch>
TString<Ch>& TString<Ch>::replace(size_t pos, size_t n, const TString& other, size_t pos2, size_t n2) {
    n2 = clampedCount<Ch>(other.length(), pos2, n2, "replace: pos2 is past str.length().");
    return replace(pos, n, other.data() + pos2, n2);
}

template <class Ch>
TString<Ch>& TString<Ch>::replace(size_t pos, size_t n, const Ch* s, size_t n2) {
    n = clampedCount<Ch>(length(), pos, n, "replace: pos is past length().");
    splice(pos, n, View(s, n2));
    return *this;
}

template <class Ch>
TString<Ch>& TString<Ch>::replace(size_t pos, size_t n, Text s) {
    const View text = s.all();
    return replace(pos, n, text.data(), text.size());
}

template <class Ch>
TString<Ch>& TString<Ch>::replace(size_t pos, size_t n, size_t count, Ch ch) {
    n = clampedCount<Ch>(length(), pos, n, "replace: pos is past length().");
    std::fill_n(openGap(pos, n, count), count, ch);
    return *this;
}

template <class Ch>
void TString<Ch>::resize(size_t n, Ch ch) {
    if (n > length()) {
        append(n - length(), ch);
    } else {
        erase(n);
    }
}

// Access and parts ----------------------------------------------------------------------------------------------------

template <class Ch>
const Ch& TString<Ch>::at(size_t pos) const {
    if (pos >= length()) throwOutOfRange<Ch>("at: pos is invalid");
    return data()[pos];
}

template <class Ch>
Ch& TString<Ch>::at(size_t pos) {
    if (pos >= length()) throwOutOfRange<Ch>("at: pos is invalid");
    return writable()[pos];
}

template <class Ch>
TString<Ch> TString<Ch>::substr(size_t pos, size_t n) const {
    return TString(*this, pos, n);
}

template <class Ch>
size_t TString<Ch>::copy(Ch* dst, size_t n, size_t pos) const {
    n = clampedCount<Ch>(length(), pos, n, "copy: pos is past length().");
    std::copy_n(data() + pos, n, dst);
    return n;
}

// compare and what is built on it -------------------------------------------------------------------------------------

template <class Ch>
int TString<Ch>::compare(size_t pos, size_t n, const Ch* s, size_t m) const {
    n = clampedCount<Ch>(length(), pos, n, "compare: pos is past length.");
    const size_t lesser = std::min(n, m);
    const int order = text::compareToNul(View(data(), lesser), View(s, lesser));
    if (order != 0) return order;
    return n < m ? -1 : n > m ? 1 : 0;
}

template <class Ch>
int TString<Ch>::compare(size_t pos, size_t n, const TString& other, size_t pos2, size_t n2) const {
    n2 = clampedCount<Ch>(other.length(), pos2, n2, "compare: pos2 is past str.length().");
    return compare(pos, n, other.data() + pos2, n2);
}

template <class Ch>
int TString<Ch>::compare(size_t pos, size_t n, Text s) const {
    const View text = s.all();
    return compare(pos, n, text.data(), text.size());
}

/// The terminated length of `s` as far as it matters beside `n`: n + 1 stands for anything longer.
template <class Ch>
size_t TString<Ch>::lengthToNul(const Ch* s, size_t n) {
    return Text(s).firstToNul(static_cast<ptrdiff_t>(std::min<size_t>(n, maxTextLength) + 1)).size();
}

/// `textLength` is what strlen says of `s`. The comparison never looks at the position, so the first one decides.
template <class Ch>
size_t TString<Ch>::find(const Ch* s, size_t pos, size_t n, size_t textLength) const {
    if (n == 0) return pos;
    if (n > length() || pos > length() - n) return npos;
    return compare(pos, n, s, textLength) == 0 ? pos : npos;
}

template <class Ch>
size_t TString<Ch>::rfind(const Ch* s, size_t pos, size_t n, size_t textLength) const {
    const size_t start = std::min(pos, length() < n ? 0 : length() - n);
    if (n == 0) return start;
    if (length() < n) return npos;
    return compare(start, n, s, textLength) == 0 ? start : npos;
}

template <class Ch>
size_t TString<Ch>::find(const Ch* s, size_t pos, size_t n) const {
    return find(s, pos, n, lengthToNul(s, n));
}

template <class Ch>
size_t TString<Ch>::find(Text s, size_t pos) const {
    const View text = s.all();
    return find(text.data(), pos, text.size(), std::min(text.find(Ch()), text.size()));
}

template <class Ch>
size_t TString<Ch>::rfind(const Ch* s, size_t pos, size_t n) const {
    return rfind(s, pos, n, lengthToNul(s, n));
}

template <class Ch>
size_t TString<Ch>::rfind(Text s, size_t pos) const {
    const View text = s.all();
    return rfind(text.data(), pos, text.size(), std::min(text.find(Ch()), text.size()));
}

template <class Ch>
size_t TString<Ch>::findFirst(View set, size_t pos, bool inSet) const {
    return inSet ? view().find_first_of(set, pos) : view().find_first_not_of(set, pos);
}

template <class Ch>
size_t TString<Ch>::findLast(View set, size_t pos, bool inSet) const {
    return inSet ? view().find_last_of(set, pos) : view().find_last_not_of(set, pos);
}

}  // namespace qv
