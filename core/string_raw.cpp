// Trim, LTrim and the Str* functions on raw arrays.
#include <algorithm>

#include "core/text.h"
#include "qv/string.h"

namespace qv {

namespace {
template <class Ch>
std::basic_string_view<Ch> viewOf(const Ch* p, size_t n = ~size_t{0}) {
    return Private::TextArg<Ch>(p).firstToNul(n > PTRDIFF_MAX ? -1 : static_cast<ptrdiff_t>(n));
}
}  // namespace

template <class Ch>
requires Private::TextUnit<std::remove_const_t<Ch>> Ch* LTrim(Ch* p) {
    while (p != nullptr && text::isSpace(*p)) ++p;
    return p;
}

template <Private::TextUnit Ch>
Ch* Trim(Ch* p) {
    Ch* first = LTrim(p);
    if (first == nullptr) return nullptr;
    for (Ch* last = first + StrLen(first); last != first && text::isSpace(last[-1]); --last) last[-1] = Ch();
    return first;
}

template <Private::TextUnit Ch>
Ch* StrCpy(Ch* dst, const std::type_identity_t<Ch>* src, size_t size) {
    if (size == 0) return dst;
    const auto text = viewOf<Ch>(src, size - 1);
    std::char_traits<Ch>::move(dst, text.data(), text.size());
    dst[text.size()] = Ch();
    return dst;
}

template <Private::TextUnit Ch>
Ch* StrCat(Ch* dst, const std::type_identity_t<Ch>* src, size_t size) {
    const size_t used = viewOf<Ch>(dst, size).size();
    StrCpy(dst + used, src, size - used);
    return dst;
}

template <Private::TextUnit Ch>
int StrCmp(const Ch* a, const Ch* b) {
    return text::compareToNul(viewOf(a), viewOf(b));
}

template <Private::TextUnit Ch>
int StrICmp(const Ch* a, const Ch* b) {
    return text::compareNoCase(viewOf(a), viewOf(b));
}

template <Private::TextUnit Ch>
int StrNCmp(const Ch* a, const Ch* b, size_t n) {
    return text::compareToNul(viewOf(a, n), viewOf(b, n));
}

template <Private::TextUnit Ch>
int StrNICmp(const Ch* a, const Ch* b, size_t n) {
    return text::compareNoCase(viewOf(a, n), viewOf(b, n));
}

template <Private::TextUnit Ch>
size_t StrLen(const Ch* p) {
    return viewOf(p).size();
}

#define QV_INSTANTIATE(Ch)                               \
    template Ch* Trim(Ch*);                              \
    template Ch* LTrim(Ch*);                             \
    template const Ch* LTrim(const Ch*);                 \
    template Ch* StrCpy(Ch*, const Ch*, size_t);         \
    template Ch* StrCat(Ch*, const Ch*, size_t);         \
    template int StrCmp(const Ch*, const Ch*);           \
    template int StrICmp(const Ch*, const Ch*);          \
    template int StrNCmp(const Ch*, const Ch*, size_t);  \
    template int StrNICmp(const Ch*, const Ch*, size_t); \
    template size_t StrLen(const Ch*)

QV_INSTANTIATE(char);
QV_INSTANTIATE(char16_t);
#undef QV_INSTANTIATE

}  // namespace qv
