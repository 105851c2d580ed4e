// The layout of BMP files. Numbers are little-endian.
//
//     byte  0  "BM"
//           2  32 bits: size of the file
//           6  32 bits: 0
//          10  32 bits: where the pixels begin
//          14  the picture's header, which begins with its own size (32 bits)
//
// A header of 12 bytes has width, height, planes and bits in 16 bits each, and a palette of 3 bytes an entry. A longer
// one has
//
//     byte  4  32 bits, signed: width
//           8  32 bits, signed: height; below 0 rows run from the top down
//          12  16 bits: planes, 1
//          14  16 bits: bits of a pixel
//          16  32 bits: compression
//          20  32 bits: bytes of the pixels
//          24  two times 32 bits: pixels per metre
//          32  32 bits: entries of the palette, 0 for all that the bits can name
//          36  32 bits: entries that matter
//          40  four masks of 32 bits: red, green, blue, alpha (with bit fields; a header of 40 bytes has them behind
//          it)
//
// and a palette of 4 bytes an entry: blue, green, red, 0. Rows are padded to four bytes.
#pragma once

#include <cstdint>

namespace qv::Private::bmp {

constexpr uint32_t fileHeaderBytes = 14, coreHeaderBytes = 12, infoHeaderBytes = 40, longestHeaderBytes = 124;

enum Compression : uint32_t { none = 0, rle8 = 1, rle4 = 2, bitFields = 3, bitFieldsWithAlpha = 6 };

// Second byte behind a 0 in run-length coded rows; above these a count of pixels that stand as they are.
constexpr uint8_t endOfLine = 0, endOfPicture = 1, move = 2;

constexpr uint64_t paddedRow(uint32_t width, uint32_t bits) { return (uint64_t{width} * bits + 31) / 32 * 4; }

inline uint32_t get16(const uint8_t* at) { return at[0] | uint32_t{at[1]} << 8; }
inline uint32_t get32(const uint8_t* at) { return get16(at) | get16(at + 2) << 16; }
inline void put16(uint8_t* at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}
inline void put32(uint8_t* at, uint32_t value) {
    put16(at, value);
    put16(at + 2, value >> 16);
}

}  // namespace qv::Private::bmp
