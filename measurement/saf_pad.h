// The padding lines that reserve room between a header and its data.
#pragma once

#include <cstdint>
#include <string>

namespace qv::safPad {

/// A pad that is made anew, the most that is left standing, and the least; all in bytes.
inline constexpr uint32_t fresh = 2048;
inline constexpr uint32_t most = 4096;
inline constexpr uint32_t least = 16;

/// Appends a pad of exactly `bytes` bytes; fewer than 15 give none, since no line is that short.
void append(std::string& out, uint32_t bytes);

}  // namespace qv::safPad
