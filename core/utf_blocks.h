// Long texts between UTF-8 and UTF-16, many characters at a time, where the processor can.
#pragma once

#include <cstddef>
#include <string_view>

namespace qv::text {

/// How far a conversion came, in the units of either text.
struct Stretch {
    size_t read = 0;
    size_t written = 0;
};

/// How it is done; all ways give the same.
enum class BlockWay { none, shuffles, compression };
/// The fastest that the processor has. Texts that are converted while the program is being loaded may find `none`.
extern const BlockWay bestBlockWay;

/// Converts from the front of a text until something malformed or the last few characters come, which are left. The
/// result is that of the conversion one character at a time.
/// @param dst   Room for `room` units, or null: the units are counted only. What lies behind the written ones is
///              overwritten.
/// @param room  The conversion ends early when less than a block of it is left.
Stretch convertBlocks(std::string_view utf8, char16_t* dst, size_t room, BlockWay way = bestBlockWay);
Stretch convertBlocks(std::u16string_view utf16, char* dst, size_t room, BlockWay way = bestBlockWay);

}  // namespace qv::text
