// Conversions of TString between UTF-8, UTF-16 and code pages.
#pragma once

#include <algorithm>
#include <new>

#include "core/text.h"
#include "qv/string.h"

namespace qv {

namespace {

/// The source of a static conversion: `length` units, or all up to and with the terminator for -1.
template <class Ch>
std::basic_string_view<Ch> conversionSource(const Ch* src, int length) {
    if (src == nullptr || length < -1) return {};
    if (length != -1) return {src, static_cast<size_t>(length)};
    return {src, std::char_traits<Ch>::length(src) + 1};
}

/// The result of a static conversion of `units` > 0, or of noRoom: 0 when it does not fit an int or `dst`. Terminates
/// `dst` where there is room.
template <class Ch>
int conversionResult(size_t units, Ch* dst, int dstLen) {
    if (units > 0x7FFFFFFF) return 0;
    const auto result = static_cast<int>(units);
    if (dst == nullptr || dstLen == 0) return result;
    if (dstLen < result) return 0;
    if (dstLen > result) dst[units] = Ch();
    return result;
}

template <class From, class To>
int convertArray(const From* src, int srcLen, To* dst, int dstLen) {
    const auto source = conversionSource(src, srcLen);
    if (source.empty() || dstLen < 0) return 0;
    const bool measures = dst == nullptr || dstLen == 0;
    const size_t units =
        measures ? text::convertedLength(source) : text::convert(source, dst, static_cast<size_t>(dstLen));
    return conversionResult(units, dst, dstLen);
}

/// Hands out a text that is converted already.
template <class Ch>
int deliver(const std::basic_string<Ch>& text, Ch* dst, int dstLen) {
    if (text.empty() || dstLen < 0) return 0;
    if (dst != nullptr) text.copy(dst, text.size() <= static_cast<size_t>(dstLen) ? text.size() : 0);
    return conversionResult(text.size(), dst, dstLen);
}

}  // namespace

/// Room for `units` in the conversion buffer, which never gets smaller.
template <class Ch>
typename TString<Ch>::Other* TString<Ch>::conversionBuffer(size_t units) const {
    if (m_rep->conversion == nullptr || units > static_cast<size_t>(m_rep->conversionSize)) {
        if (units > 0x7FFFFFFF) throw std::bad_alloc();
        Other* larger = new Other[units];
        delete[] m_rep->conversion;
        m_rep->conversion = larger;
        m_rep->conversionSize = static_cast<int32_t>(units);
    }
    return m_rep->conversion;
}

template <class Ch>
const typename TString<Ch>::Other* TString<Ch>::converted() const {
    static constexpr Other none[1] = {};
    if (IsEmpty()) return none;  // Nothing is stored, since all threads may share one empty text.
    const size_t units = text::convertedLength(view());
    Other* buffer = conversionBuffer(units + 1);
    buffer[text::convert(view(), buffer, units)] = Other();
    return buffer;
}

template <class Ch>
const char* TString<Ch>::ConvertToUTF8() const {
    if constexpr (std::is_same_v<Ch, char>) {
        return c_str();
    } else {
        return converted();
    }
}

template <class Ch>
const char16_t* TString<Ch>::ConvertToUTF16() const {
    if constexpr (std::is_same_v<Ch, char>) {
        return converted();
    } else {
        return c_str();
    }
}

template <class Ch>
const char* TString<Ch>::ConvertToCodePage(unsigned codePage) const {
    if (IsEmpty()) return "";
    std::string bytes;
    if constexpr (std::is_same_v<Ch, char>) {
        text::encode(codePage, text::toUtf16(view()), bytes);
    } else {
        text::encode(codePage, view(), bytes);
    }
    const size_t units = bytes.size() / sizeof(Other) + 1;
    auto* buffer = reinterpret_cast<char*>(conversionBuffer(units));
    std::copy_n(bytes.c_str(), bytes.size() + 1, buffer);
    return buffer;
}

template <class Ch>
void TString<Ch>::FromCodePage(unsigned codePage, const char* text) {
    std::u16string utf16;
    text::decode(codePage, Private::TextArg<char>(text).all(), utf16);
    if constexpr (std::is_same_v<Ch, char>) {
        assignConverted(utf16);
    } else {
        assignView(utf16);
    }
}

template <class Ch>
int TString<Ch>::ConvertToUTF8(const char16_t* src, int srcLen, char* dst, int dstLen) {
    return convertArray(src, srcLen, dst, dstLen);
}

template <class Ch>
int TString<Ch>::ConvertToUTF16(const char* src, int srcLen, char16_t* dst, int dstLen) {
    return convertArray(src, srcLen, dst, dstLen);
}

template <class Ch>
int TString<Ch>::ConvertToTCHAR(const char* src, int srcLen, char16_t* dst, int dstLen) {
    return convertArray(src, srcLen, dst, dstLen);
}

template <class Ch>
int TString<Ch>::ConvertToCodePage(unsigned codePage, const char16_t* src, int srcLen, char* dst, int dstLen) {
    std::string bytes;
    if (!text::encode(codePage, conversionSource(src, srcLen), bytes)) return 0;
    return deliver(bytes, dst, dstLen);
}

template <class Ch>
int TString<Ch>::ConvertFromCodePage(unsigned codePage, const char* src, int srcLen, char16_t* dst, int dstLen) {
    std::u16string utf16;
    if (!text::decode(codePage, conversionSource(src, srcLen), utf16)) return 0;
    return deliver(utf16, dst, dstLen);
}

template <class Ch>
int TString<Ch>::ConvertToTCHAR(const char16_t* src, int srcLen, char16_t* dst, int dstLen) {
    const std::u16string_view source = Private::TextArg<char16_t>(src).first(srcLen);
    if (source.size() > 0x7FFFFFFF) return -1;
    const auto length = static_cast<int>(source.size());
    if (dstLen == 0) return length;
    if (dst == nullptr || dstLen < length) return -1;
    std::copy_n(source.data(), source.size(), dst);
    if (dstLen > length) dst[length] = u'\0';
    return length;
}

}  // namespace qv
