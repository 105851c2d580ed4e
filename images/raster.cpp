// Rows and columns of typed images.
#include <algorithm>
#include <array>
#include <cstring>

#include "qv/pixel_type.h"

namespace qv {

namespace {

bool isImage(STypedData image) {
    return image.pointer != nullptr && image.type >= EDataType::int8 && image.type <= EDataType::rgb48;
}

template <size_t bytes>
void reverse(void* elements, size_t count) {
    auto* const first = static_cast<std::array<uint8_t, bytes>*>(elements);
    std::reverse(first, first + count);
}

void reverseRow(void* row, size_t count, uint32_t elementBytes) {
    switch (elementBytes) {
        case 1: return reverse<1>(row, count);
        case 2: return reverse<2>(row, count);
        case 3: return reverse<3>(row, count);
        case 4: return reverse<4>(row, count);
        case 6: return reverse<6>(row, count);
        default: return reverse<8>(row, count);
    }
}

/// Calls `move` with each row of the frame and its row among the fields.
template <class Move>
void forEachRow(uint32_t height, EFieldOrder order, Move move) {
    const uint32_t upperRows = height - height / 2;
    const uint32_t upperAt = order == EFieldOrder::lowerFirst ? height / 2 : 0;
    const uint32_t lowerAt = order == EFieldOrder::lowerFirst ? 0 : upperRows;
    for (uint32_t y = 0; y < height; ++y) move(y, (y % 2 == 0 ? upperAt : lowerAt) + y / 2);
}

/// Copies rows between a frame and its fields, in the direction that `row` tells: {of dst, of src}.
template <class Row>
void copyRows(STypedData dst, STypedData src, uint32_t width, uint32_t height, EFieldOrder order, Row row) {
    if (!isImage(dst) || !isImage(src) || dst.type != src.type || width == 0) return;
    const size_t bytes = size_t{width} * DataTypeSize(dst.type);
    forEachRow(height, order, [&](uint32_t frameRow, uint32_t fieldRow) {
        const auto [to, from] = row(frameRow, fieldRow);
        std::memcpy(static_cast<uint8_t*>(dst.pointer) + bytes * to,
                    static_cast<const uint8_t*>(src.pointer) + bytes * from, bytes);
    });
}

}  // namespace

void flip(STypedData image, uint32_t width, uint32_t height, EFlip what) {
    if (!isImage(image) || width == 0 || height == 0) return;
    auto* const bytes = static_cast<uint8_t*>(image.pointer);
    const uint32_t elementBytes = DataTypeSize(image.type);
    const size_t rowBytes = size_t{width} * elementBytes;
    switch (what) {
        case EFlip::rows:
            for (uint32_t top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
                std::swap_ranges(bytes + rowBytes * top, bytes + rowBytes * (top + 1), bytes + rowBytes * bottom);
            }
            break;
        case EFlip::columns:
            for (uint32_t y = 0; y < height; ++y) reverseRow(bytes + rowBytes * y, width, elementBytes);
            break;
        case EFlip::both: reverseRow(bytes, size_t{width} * height, elementBytes); break;
    }
}

void interlace(STypedData dst, STypedData src, uint32_t width, uint32_t height, EFieldOrder order) {
    copyRows(dst, src, width, height, order,
             [](uint32_t frame, uint32_t field) { return std::pair<size_t, size_t>(frame, field); });
}

void deinterlace(STypedData dst, STypedData src, uint32_t width, uint32_t height, EFieldOrder order) {
    copyRows(dst, src, width, height, order,
             [](uint32_t frame, uint32_t field) { return std::pair<size_t, size_t>(field, frame); });
}

}  // namespace qv
