#include "platform/bitmap.h"

#include <sys/mman.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace qv::platform {

struct Bitmap {
    std::atomic<uint32_t> references{1};
    BitmapShape shape;
    size_t mappedBytes = 0;  ///< 0: the pixels are on the heap.
};

namespace {

/// From here on pixels are mapped, so that memory is used row by row and none for rows that stay black.
constexpr size_t mapFromBytes = 1 << 20;

bool allocatePixels(Bitmap& bitmap, size_t bytes) {
    if (bytes < mapFromBytes) {
        bitmap.shape.pixels = static_cast<uint8_t*>(std::calloc(bytes, 1));
        return bitmap.shape.pixels != nullptr;
    }
    void* const mapped =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) return false;
    bitmap.shape.pixels = static_cast<uint8_t*>(mapped);
    bitmap.mappedBytes = bytes;
    return true;
}

/// Level `index` of `levels` greys, from black to white.
uint8_t grey(uint32_t index, uint32_t levels) { return static_cast<uint8_t>(index * 255 / (levels - 1)); }

void convertGreys(const uint8_t* row, uint32_t width, uint32_t bits, uint8_t* out) {
    const uint32_t levels = 1u << bits, perByte = 8 / bits;
    for (uint32_t x = 0; x < width; ++x, out += 3) {
        const uint32_t shift = (perByte - 1 - x % perByte) * bits;
        std::memset(out, grey((row[x / perByte] >> shift) & (levels - 1), levels), 3);
    }
}

void convert555(const uint8_t* row, uint32_t width, uint8_t* out) {
    for (uint32_t x = 0; x < width; ++x, out += 3) {
        const uint32_t pixel = row[2 * x] | uint32_t{row[2 * x + 1]} << 8;
        for (uint32_t channel = 0; channel < 3; ++channel) {
            out[channel] = static_cast<uint8_t>((((pixel >> 5 * channel) & 31) * 255 + 15) / 31);
        }
    }
}

}  // namespace

Bitmap* createBitmap(uint32_t width, uint32_t height, uint32_t bits) {
    constexpr uint32_t largest = std::numeric_limits<int32_t>::max();
    const bool known = bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
    if (!known || width == 0 || height == 0 || width > largest || height > largest) return nullptr;
    const uint64_t row = (uint64_t{width} * bits + 31) / 32 * 4;
    if (row > std::numeric_limits<uint32_t>::max()) return nullptr;
    if (row * height > std::numeric_limits<size_t>::max() / 2) return nullptr;
    auto* const bitmap = new (std::nothrow) Bitmap;
    if (bitmap == nullptr) return nullptr;
    bitmap->shape = {width, height, bits, static_cast<uint32_t>(row), nullptr};
    if (allocatePixels(*bitmap, static_cast<size_t>(row * height))) return bitmap;
    delete bitmap;
    return nullptr;
}

void retainBitmap(Bitmap& bitmap) { bitmap.references.fetch_add(1, std::memory_order_relaxed); }

void releaseBitmap(Bitmap& bitmap) {
    if (bitmap.references.fetch_sub(1, std::memory_order_acq_rel) > 1) return;
    if (bitmap.mappedBytes != 0) {
        munmap(bitmap.shape.pixels, bitmap.mappedBytes);
    } else {
        std::free(bitmap.shape.pixels);
    }
    delete &bitmap;
}

BitmapShape describeBitmap(const Bitmap& bitmap) { return bitmap.shape; }

void readBitmapRow(const Bitmap& bitmap, uint32_t y, uint8_t* out) {
    const BitmapShape& shape = bitmap.shape;
    const uint8_t* const row = shape.pixels + size_t{y} * shape.bytesPerRow;
    switch (shape.bits) {
        case 24: std::memcpy(out, row, size_t{shape.width} * 3); break;
        case 32:
            for (uint32_t x = 0; x < shape.width; ++x) std::memcpy(out + size_t{x} * 3, row + size_t{x} * 4, 3);
            break;
        case 16: convert555(row, shape.width, out); break;
        default: convertGreys(row, shape.width, shape.bits, out); break;
    }
}

}  // namespace qv::platform
