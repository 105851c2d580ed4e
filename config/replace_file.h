// Replacing a disk file as a whole.
#pragma once

#include <string_view>

namespace qv::Private {

/// Writes `bytes` to a new file beside `path`, brings them to the device and renames that file over `path`, with the
/// permissions of the one that was there. A failure leaves the old file as it was, and a diagnostic. A symbolic link
/// keeps its place: the file that it leads to is replaced. What is there and is no file is left alone.
bool replaceFile(const char16_t* path, std::string_view bytes);

}  // namespace qv::Private
