// Bytes as Base64 text and back (RFC 4648 alphabet with padding, lines of 76 characters).
#pragma once

#include <cstddef>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/string.h"

namespace qv {

/// The text of `size` bytes: a line break (CR LF) after each full line of 76 characters and one at the end of the
/// whole, so that a text whose last line is full ends in two. No bytes give one line break. Throws std::bad_alloc when
/// the text would be longer than a CString can hold.
QV_API CString Base64Encode(const void* data, size_t size);
inline CString Base64Encode(const TSimpleArray<char>& bytes) { return Base64Encode(bytes.data(), bytes.size()); }

/// The number of characters that Base64Encode gives for `size` bytes.
constexpr size_t Base64EncodedLength(size_t size) {
    const size_t characters = (size / 3 + (size % 3 != 0 ? 1 : 0)) * 4;
    return characters + characters / 76 * 2 + 2;
}

/// The number of bytes that decoding `text` gives.
QV_API size_t Base64DecodedSize(const CString& text);

/// Decodes into `destination` and returns the number of bytes written. Characters outside the alphabet and `=` are
/// skipped. A group of four gives three bytes, less one for each `=` in its third and fourth places; an incomplete last
/// group is dropped.
/// REQUIRES: room for Base64DecodedSize(text) bytes; the size of the destination is not checked.
QV_API size_t Base64Decode(const CString& text, void* destination);

/// The same with a limit: at most `capacity` bytes are written. False when the text holds more; the first `capacity`
/// bytes of it are in the destination then. `written` is what was written.
QV_API bool Base64Decode(const CString& text, void* destination, size_t capacity, size_t& written);

/// The same into an array, which is made as large as the text asks for. False, and the array empty, without memory.
QV_API bool Base64Decode(const CString& text, TSimpleArray<char>& bytes);

}  // namespace qv
