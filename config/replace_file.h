// Replacing a disk file as a whole.
#pragma once

#include <span>
#include <string_view>

namespace qv::Private {

/// Writes `parts`, one behind the other, to a new file beside `path`, brings them to the device and renames that file
/// over `path`, with the permissions of the one that was there. A failure leaves the old file as it was, and a
/// diagnostic. A symbolic link keeps its place: the file that it leads to is replaced. What is there and is no file is
/// left alone.
bool replaceFile(const char16_t* path, std::span<const std::string_view> parts);
inline bool replaceFile(const char16_t* path, std::string_view bytes) { return replaceFile(path, {&bytes, 1}); }

/// Removes the new files that a replaceFile() of this path left beside it when its process was killed, those that have
/// not been written to for an hour.
void removeLeftovers(const char16_t* path);

}  // namespace qv::Private
