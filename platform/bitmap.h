// What the library needs of the system for bitmaps: blocks of pixels with a reference count.
#pragma once

#include <cstdint>

namespace qv::platform {

struct Bitmap;

/// Rows run from the top to the bottom, `bytesPerRow` apart, a multiple of four.
struct BitmapShape {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bits = 0;  ///< Of a pixel: 1, 4, 8 (greys), 16 (5-5-5), 24 or 32 (blue, green, red, unused).
    uint32_t bytesPerRow = 0;
    uint8_t* pixels = nullptr;
};

/// A black bitmap with one reference; null for sizes that do not fit 32 bits a row and without memory. Memory is used
/// as pixels are written.
Bitmap* createBitmap(uint32_t width, uint32_t height, uint32_t bits);
void retainBitmap(Bitmap& bitmap);
/// The last reference frees the bitmap.
void releaseBitmap(Bitmap& bitmap);

BitmapShape describeBitmap(const Bitmap& bitmap);

/// Converts row `y` to blue, green, red: width * 3 bytes to `out`.
void readBitmapRow(const Bitmap& bitmap, uint32_t y, uint8_t* out);

}  // namespace qv::platform
