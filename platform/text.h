// Code pages other than UTF-8, as the system's converter knows them.
#pragma once

#include <string>
#include <string_view>

namespace qv::platform {

/// Appends the text of `bytes` to `utf16`; bytes that the page does not define become U+FFFD. False when the code page,
/// named by its Windows number, is unknown.
bool decodeCodePage(unsigned codePage, std::string_view bytes, std::u16string& utf16);

/// The same for a character set by its name in the internet's register, such as "ISO-8859-2".
bool decodeCharset(std::string_view name, std::string_view bytes, std::u16string& utf16);

/// Appends `utf16` in the code page to `bytes`; what the page cannot express becomes '?'. False when it is unknown.
bool encodeCodePage(unsigned codePage, std::u16string_view utf16, std::string& bytes);

}  // namespace qv::platform
