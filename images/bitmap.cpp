#include "platform/bitmap.h"
#include "images/picture_file.h"
#include "qv/image.h"

namespace qv {

namespace {

void show(HBITMAP bitmap, SBitmap& out) {
    const platform::BitmapShape shape = platform::describeBitmap(*bitmap);
    out = {shape.width, shape.height, shape.bytesPerRow, shape.pixels, bitmap};
}

}  // namespace

void InitBitmap(SBitmap& bitmap) { bitmap = SBitmap(); }

bool CreateBitmap(uint32_t width, uint32_t height, uint32_t bits, SBitmap& bitmap) {
    DestroyBitmap(bitmap);
    const HBITMAP made = platform::createBitmap(width, height, bits);
    if (made == nullptr) return false;
    show(made, bitmap);
    return true;
}

void DestroyBitmap(SBitmap& bitmap) {
    ReleaseBitmap(bitmap.handle);
    InitBitmap(bitmap);
}

HBITMAP RetainBitmap(HBITMAP bitmap) {
    if (bitmap != nullptr) platform::retainBitmap(*bitmap);
    return bitmap;
}

void ReleaseBitmap(HBITMAP bitmap) {
    if (bitmap != nullptr) platform::releaseBitmap(*bitmap);
}

bool GetBitmap(HBITMAP bitmap, SBitmap& out) {
    RetainBitmap(bitmap);  // first: it may be the one that `out` holds
    DestroyBitmap(out);
    if (bitmap == nullptr) return false;
    show(bitmap, out);
    return true;
}

uint32_t GetBitmapBits(HBITMAP bitmap) { return bitmap == nullptr ? 0 : platform::describeBitmap(*bitmap).bits; }

namespace Private {

PixelRows::PixelRows(HBITMAP bitmap) : m_bitmap(bitmap) {
    if (bitmap == nullptr) return;
    const platform::BitmapShape shape = platform::describeBitmap(*bitmap);
    m_width = shape.width;
    m_height = shape.height;
    m_bytesPerRow = shape.bytesPerRow;
    if (shape.bits == 24) {
        m_pixels = shape.pixels;
    } else {
        m_converted.resize(size_t{m_width} * 3);
    }
}

const uint8_t* PixelRows::row(uint32_t y) {
    if (m_pixels != nullptr) return m_pixels + size_t{y} * m_bytesPerRow;
    platform::readBitmapRow(*m_bitmap, y, m_converted.data());
    return m_converted.data();
}

}  // namespace Private

}  // namespace qv
