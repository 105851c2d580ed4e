// The representation of TString: sharing, private copies, capacity, and the splice that every change goes through.
#pragma once

#include <algorithm>
#include <memory>
#include <new>

#include "core/text.h"
#include "qv/string.h"

namespace qv {

namespace {
/// The greatest length: capacity + 1 still fits the 32-bit field.
constexpr size_t maxTextLength = 0x7FFFFFFE;
}  // namespace

template <class Ch>
void TString<Ch>::destroy(Rep* rep) noexcept {
    Ch* buffer = rep->buffer;
    Other* conversion = rep->conversion;
    rep->buffer = nullptr;
    rep->conversion = nullptr;
    rep->length = rep->capacity = rep->conversionSize = 0;
    delete[] buffer;
    delete[] conversion;
    delete rep;
}

template <class Ch>
typename TString<Ch>::Rep* TString<Ch>::clone(const Rep& source) {
    auto rep = std::make_unique<Rep>();
    std::unique_ptr<Ch[]> buffer;
    if (source.buffer != nullptr) {
        const size_t units = static_cast<size_t>(source.capacity) + 1;
        buffer.reset(new Ch[units]);
        std::copy_n(source.buffer, units, buffer.get());
    }
    if (source.conversion != nullptr) {
        rep->conversion = new Other[static_cast<size_t>(source.conversionSize)];
        std::copy_n(source.conversion, source.conversionSize, rep->conversion);
    }
    rep->buffer = buffer.release();
    rep->length = source.length;
    rep->capacity = source.capacity;
    rep->conversionSize = source.conversionSize;
    return rep.release();
}

template <class Ch>
void TString<Ch>::makePrivate() {
    if (m_rep == nullptr) {
        m_rep = new Rep;
        return;
    }
    int32_t one = 1;
    if (m_rep->references.compare_exchange_strong(one, 1, std::memory_order_acq_rel)) return;
    Rep* copy = clone(*m_rep);
    release(m_rep);
    m_rep = copy;
}

/// The representation must be private already.
template <class Ch>
void TString<Ch>::ensureCapacity(size_t n, bool keepText) {
    if (m_rep->buffer != nullptr && n <= static_cast<size_t>(m_rep->capacity)) return;
    if (n > maxTextLength) throw std::bad_alloc();
    Ch* grown = new Ch[n + 1];
    if (m_rep->buffer != nullptr && keepText) {
        std::copy_n(m_rep->buffer, static_cast<size_t>(m_rep->capacity) + 1, grown);
    } else {
        grown[0] = Ch();
        m_rep->length = 0;
    }
    delete[] m_rep->buffer;
    m_rep->buffer = grown;
    m_rep->capacity = static_cast<int32_t>(n);
}

template <class Ch>
void TString<Ch>::setLength(size_t n) noexcept {
    m_rep->length = static_cast<int32_t>(n);
    m_rep->buffer[n] = Ch();
}

template <class Ch>
Ch* TString<Ch>::writable() {
    makePrivate();
    ensureCapacity(0);
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
    makePrivate();
    ensureCapacity(newLength);
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
    makePrivate();
    ensureCapacity(text.size(), false);
    std::copy_n(text.data(), text.size(), m_rep->buffer);
    setLength(text.size());
}

template <class Ch>
void TString<Ch>::assignConverted(OtherView text) {
    TString keep{NullHandle{}};
    if (holds(text.data())) keep = *this;
    const size_t units = text::convertedLength(text);
    makePrivate();
    ensureCapacity(units, false);
    setLength(text::convert(text, m_rep->buffer, units));
}

template <class Ch>
void TString<Ch>::Alloc(int n) {
    reserve(n < 0 ? 0 : static_cast<size_t>(n));
}

template <class Ch>
void TString<Ch>::reserve(size_t n) {
    makePrivate();
    ensureCapacity(n);
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
