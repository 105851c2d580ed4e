// Pictures for tests: small ones with known pixels, and files from hexadecimal text.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/image.h"
#include "support/memory_file.h"

namespace qv::test {

/// A bitmap that is destroyed with the test.
class Picture {
public:
    Picture() = default;
    /// A pattern in which no row, column or channel is like another.
    Picture(uint32_t width, uint32_t height) {
        EXPECT_TRUE(CreateBitmap(width, height, 24, m_bitmap));
        for (uint32_t y = 0; y < height; ++y) {
            for (uint32_t x = 0; x < width; ++x) {
                uint8_t* const pixel = at(x, y);
                pixel[0] = static_cast<uint8_t>(x * 5);
                pixel[1] = static_cast<uint8_t>(y * 7);
                pixel[2] = static_cast<uint8_t>(x + y * 3 + 100);
            }
        }
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() { DestroyBitmap(m_bitmap); }

    SBitmap& bitmap() { return m_bitmap; }
    HBITMAP handle() const { return m_bitmap.handle; }
    uint8_t* at(uint32_t x, uint32_t y) { return m_bitmap.pixels + size_t{y} * m_bitmap.bytesPerRow + size_t{x} * 3; }

    /// "BBGGRR BBGGRR / BBGGRR ...": the rows from the top.
    std::string text() {
        std::string out;
        for (uint32_t y = 0; y < m_bitmap.height; ++y) {
            if (y != 0) out += " /";
            for (uint32_t x = 0; x < m_bitmap.width; ++x) {
                char pixel[8];
                std::snprintf(pixel, sizeof pixel, " %02X%02X%02X", at(x, y)[0], at(x, y)[1], at(x, y)[2]);
                out += pixel;
            }
        }
        return out.empty() ? out : out.substr(1);
    }

private:
    SBitmap m_bitmap;
};

inline bool isZeroed(const SBitmap& b) {
    return b.width == 0 && b.height == 0 && b.bytesPerRow == 0 && b.pixels == nullptr && b.handle == nullptr;
}

/// The bytes of pairs of digits; blanks count for nothing.
inline std::string fromHex(std::string_view text) {
    std::string digits, bytes;
    for (const char c : text) {
        if (c != ' ' && c != '\n') digits += c;
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

inline std::string toHex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

inline std::string someBytes(size_t count) {
    std::string bytes(count, '\0');
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

inline std::string diagnostic() { return CStringMB(LastDiagnostic().ToString().c_str()).c_str(); }

}  // namespace qv::test
