#include "qv/pixel_type.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace qv {
namespace {

TEST(PixelType, NamesBothWays) {
    EXPECT_EQ(PixelTypeToDataType(u"grayscale (uint16)"), EDataType::uint16);
    EXPECT_EQ(DataTypeToPixelType(EDataType::rgb24), CString(u"RGB (24-Bit)"));
    EXPECT_EQ(DataTypeToPixelType(EDataType::none), CString(u""));
    EXPECT_EQ(PixelTypeToDataType(u"Mono16"), EDataType::none);
    EXPECT_TRUE(RegisterPixelType(u"Mono16", EDataType::uint16));
    EXPECT_TRUE(RegisterPixelType(u"MONO16", EDataType::uint16)) << "the same again";
    EXPECT_FALSE(RegisterPixelType(u"mono16", EDataType::int16));
    EXPECT_FALSE(RegisterPixelType(u"", EDataType::int16));
    EXPECT_FALSE(RegisterPixelType(u"Nothing", EDataType::none));
    EXPECT_EQ(PixelTypeToDataType(u"mono16"), EDataType::uint16);
    EXPECT_EQ(DataTypeToPixelType(EDataType::uint16), CString(u"Grayscale (UInt16)")) << "the first name";
    const TArray<SPixelType> all = GetPixelTypes();
    ASSERT_EQ(all.size(), 13u);
    EXPECT_EQ(all.ConstGetItem(12).name, CString(u"Mono16"));
    EXPECT_TRUE(UnregisterPixelType(u"Mono16"));
    EXPECT_FALSE(UnregisterPixelType(u"Mono16"));
    EXPECT_FALSE(UnregisterPixelType(u"Int8"));
}

TEST(PixelType, ThreadsRegisterAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const CString name = CString::FromFormat(u"type %d", i);
            for (int round = 0; round < 200; ++round) {
                EXPECT_TRUE(RegisterPixelType(name.c_str(), EDataType::flt32));
                EXPECT_EQ(PixelTypeToDataType(name.c_str()), EDataType::flt32);
                EXPECT_GE(GetPixelTypes().size(), 13u);
                EXPECT_TRUE(UnregisterPixelType(name.c_str()));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(GetPixelTypes().size(), 12u);
}

std::vector<uint8_t> count(size_t n) {
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i);
    return bytes;
}

TEST(Raster, FlipOfEveryElementSize) {
    for (int value = 0; value < 13; ++value) {
        const auto type = static_cast<EDataType>(value);
        const uint32_t width = 3, height = 3, size = DataTypeSize(type);
        for (const EFlip what : {EFlip::rows, EFlip::columns, EFlip::both}) {
            std::vector<uint8_t> bytes = count(size_t{9} * size), expected = bytes;
            flip(STypedData(bytes.data(), type), width, height, what);
            for (uint32_t i = 0; i < 9 * size && type != EDataType::none; ++i) {
                const uint32_t x = i / size % 3, y = i / size / 3;
                const uint32_t fromX = what == EFlip::rows ? x : 2 - x, fromY = what == EFlip::columns ? y : 2 - y;
                expected[i] = static_cast<uint8_t>((fromY * 3 + fromX) * size + i % size);
            }
            EXPECT_EQ(bytes, expected) << value << ' ' << static_cast<int>(what);
        }
    }
}

TEST(Raster, FieldsAndFrames) {
    const struct {
        uint32_t height;
        EFieldOrder order;
        std::vector<uint8_t> fields;  ///< The frame's row numbers, field by field.
    } cases[] = {{4, EFieldOrder::upperFirst, {0, 2, 1, 3}},
                 {5, EFieldOrder::upperFirst, {0, 2, 4, 1, 3}},
                 {5, EFieldOrder::lowerFirst, {1, 3, 0, 2, 4}},
                 {1, EFieldOrder::lowerFirst, {0}}};
    for (const auto& c : cases) {
        std::vector<uint8_t> frame = count(c.height), fields(c.height), back(c.height);
        deinterlace(STypedData(fields.data(), EDataType::uint8), STypedData(frame.data(), EDataType::uint8), 1,
                    c.height, c.order);
        EXPECT_EQ(fields, c.fields);
        interlace(STypedData(back.data(), EDataType::uint8), STypedData(fields.data(), EDataType::uint8), 1, c.height,
                  c.order);
        EXPECT_EQ(back, frame);
        interlace(STypedData(back.data(), EDataType::int8), STypedData(fields.data(), EDataType::uint8), 1, c.height,
                  c.order);
        EXPECT_EQ(back, frame) << "types differ";
    }
}

}  // namespace
}  // namespace qv
