#include "qv/crc.h"

#include <gtest/gtest.h>

#include <string>

namespace qv {
namespace {

const unsigned char* bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

/// One bit at a time.
uint32_t slowCrc(const std::string& text, uint32_t reversedPolynomial) {
    uint32_t crc = 0xFFFFFFFF;
    for (const char c : text) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? reversedPolynomial : 0);
    }
    return ~crc;
}

TEST(Crc32, GivesThePublishedValuesForEveryLengthAndStart) {
    const struct {
        uint32_t polynomial, reversed, check;  // the check is of "123456789"
    } rows[] = {{0x1EDC6F41, 0x82F63B78, 0xE3069283}, {crc32Polynomial, 0xEDB88320, 0xCBF43926}};
    for (const auto& row : rows) {
        InitCRC32Table(row.polynomial);
        EXPECT_EQ(CalcBlockCRC32(bytes("123456789"), 9), row.check);
        std::string text;
        for (int i = 0; i < 70; ++i) {
            EXPECT_EQ(CalcBlockCRC32(bytes(text), static_cast<uint32_t>(text.size())), slowCrc(text, row.reversed))
                << i;
            uint32_t parts = InitCRC32();
            parts = CalcMultBlockCRC32(bytes(text), static_cast<uint32_t>(text.size() / 3), parts);
            parts = CalcMultBlockCRC32(bytes(text) + text.size() / 3,
                                       static_cast<uint32_t>(text.size() - text.size() / 3), parts);
            EXPECT_EQ(FiniCRC32(parts), slowCrc(text, row.reversed)) << i;
            text += static_cast<char>(i * 37 + 11);
        }
    }
    EXPECT_EQ(CalcBlockCRC32(nullptr, 5), 0u);
    EXPECT_EQ(CalcMultBlockCRC32(nullptr, 5, 7), 7u);
}

}  // namespace
}  // namespace qv
