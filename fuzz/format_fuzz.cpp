// A hostile printf pattern with arguments of every kind.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qv/string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t patternLimit = 64;  // A width may ask for 1 MiB, so the pattern bounds what one input can cost.
    const std::string_view pattern(reinterpret_cast<const char*>(data), size < patternLimit ? size : patternLimit);
    const char unterminated[] = {'a', '\xC3'};
    const auto narrow = qv::CStringMB::FromFormat(pattern, 42, "text", u"wide", 0.1, int64_t{-1}, 'c', nullptr, 1e300,
                                                  std::string_view(unterminated, 2), u'\xD800');
    const auto wide = qv::CString::FromFormat(qv::CString(pattern), -7, u"wide", "\xFFtext", -1e-300, uint64_t{1} << 63,
                                              U'\x10FFFF', static_cast<void*>(nullptr), 3, "end");
    const auto bare = qv::CStringMB::FromFormat(pattern);
    return narrow.length() + wide.length() + bare.length() > size_t{64} << 20 ? 1 : 0;
}
