// The representation of TString: sharing, private copies, capacity, and the splice that every change goes through.
#pragma once

#include <algorithm>
#include <new>
#include <utility>

#include "core/text.h"
#include "qv/string.h"

namespace qv {

namespace {
/// The greatest length: capacity + 1 still fits the 32-bit field.
constexpr size_t maxTextLength = 0x7FFFFFFE;
}  // namespace

/// A representation that holds "", with its buffer behind it in the same block.
template <class Ch>
typename TString<Ch>::Rep* TString<Ch>::create(size_t capacity) {
    if (capacity > maxTextLength) throw std::bad_alloc();
    Rep* const rep = ::new (::operator new(sizeof(Rep) + (capacity + 1) * sizeof(Ch))) Rep;
    rep->buffer = reinterpret_cast<Ch*>(rep + 1);
    rep->buffer[0] = Ch();
    rep->capacity = static_cast<int32_t>(capacity);
    return rep;
}

template <class Ch>
void TString<Ch>::destroy(Rep* rep) noexcept {
    delete[] rep->conversion;
    rep->~Rep();
    ::operator delete(rep);
}

/// Makes the representation private, with room for `n` units. Of a text that need not be kept, the length and what
/// stands in the buffer are undefined.
template <class Ch>
void TString<Ch>::makeRoom(size_t n, bool keepText) {
    const bool isPrivate = m_rep != nullptr && m_rep->references.load(std::memory_order_acquire) == 1;
    if (isPrivate && n <= capacity()) return;
    TString made{NullHandle{}};
    made.m_rep = create(std::max(n, capacity()));
    if (m_rep != nullptr) {
        if (keepText) {
            std::copy_n(m_rep->buffer, capacity() + 1, made.m_rep->buffer);
            made.m_rep->length = m_rep->length;
        }
        if (isPrivate) {
            std::swap(made.m_rep->conversion, m_rep->conversion);
            std::swap(made.m_rep->conversionSize, m_rep->conversionSize);
        } else if (m_rep->conversion != nullptr) {
            const auto units = static_cast<size_t>(m_rep->conversionSize);
            std::copy_n(m_rep->conversion, units, made.conversionBuffer(units));
        }
    }
    swap(made);
}

template <class Ch>
void TString<Ch>::setLength(size_t n) noexcept {
    m_rep->length = static_cast<int32_t>(n);
    m_rep->buffer[n] = Ch();
}

template <class Ch>
Ch* TString<Ch>::writable() {
    makeRoom(0);
    return m_rep->buffer;
}

template <class Ch>
Ch& TString<Ch>::sharedCharacter() {
    static Ch character = Ch();
    return character;
}

template <class Ch>
Ch& TString<Ch>::characterAt(size_t i) {
    if (m_rep == nullptr || i > length()) return sharedCharacter();
    if (i == length()) append(size_t{1}, Ch());
    return writable()[i];
}

/// True for an address in one of this string's buffers.
template <class Ch>
bool TString<Ch>::holds(const void* address) const noexcept {
    if (m_rep == nullptr) return false;
    const auto inside = [address](const auto* buffer, size_t units) {
        const auto at = reinterpret_cast<uintptr_t>(address);
        const auto first = reinterpret_cast<uintptr_t>(buffer);
        return buffer != nullptr && at >= first && at - first < units * sizeof(*buffer);
    };
    return inside(m_rep->buffer, static_cast<size_t>(m_rep->capacity) + 1) ||
           inside(m_rep->conversion, static_cast<size_t>(m_rep->conversionSize));
}

template <class Ch>
Ch* TString<Ch>::openGap(size_t pos, size_t n, size_t count) {
    const size_t tail = length() - pos - n;
    if (count > maxTextLength - pos - tail) throw std::bad_alloc();
    const size_t newLength = pos + count + tail;
    makeRoom(newLength);
    Ch* gap = m_rep->buffer + pos;
    std::char_traits<Ch>::move(gap + count, gap + n, tail);
    setLength(newLength);
    return gap;
}

/// Puts `text` in place of `n` units at `pos`. A text that lies in this string's own buffers is kept alive by a second
/// handle, which also makes the change happen in a copy.
template <class Ch>
void TString<Ch>::splice(size_t pos, size_t n, View text) {
    TString keep{NullHandle{}};
    if (holds(text.data())) keep = *this;
    std::copy_n(text.data(), text.size(), openGap(pos, n, text.size()));
}

template <class Ch>
void TString<Ch>::assignView(View text) {
    TString keep{NullHandle{}};
    if (holds(text.data())) keep = *this;
    makeRoom(text.size(), false);
    std::copy_n(text.data(), text.size(), m_rep->buffer);
    setLength(text.size());
}

template <class Ch>
void TString<Ch>::assignConverted(OtherView text) {
    TString keep{NullHandle{}};
    if (holds(text.data())) keep = *this;
    const size_t units = text::convertedLength(text);
    makeRoom(units, false);
    setLength(text::convert(text, m_rep->buffer, units));
}

template <class Ch>
void TString<Ch>::Alloc(int n) {
    reserve(n < 0 ? 0 : static_cast<size_t>(n));
}

template <class Ch>
void TString<Ch>::reserve(size_t n) {
    makeRoom(n);
}

template <class Ch>
Ch* TString<Ch>::GetBuffer(int n) {
    reserve(n < 0 ? length() : static_cast<size_t>(n));
    return m_rep->buffer;
}

template <class Ch>
void TString<Ch>::ReleaseBuffer() {
    if (m_rep == nullptr) return;
    const Ch* buffer = writable();
    setLength(static_cast<size_t>(std::find(buffer, buffer + m_rep->capacity, Ch()) - buffer));
}

template <class Ch>
void TString<Ch>::Copy(const Ch* text, ptrdiff_t n) {
    assignView(Text(text).firstToNul(n));
}

template <class Ch>
void TString<Ch>::Copy(const Other* text, ptrdiff_t n) {
    assignConverted(Private::TextArg<Other>(text).firstToNul(n));
}

}  // namespace qv
