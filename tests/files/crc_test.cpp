#include "qv/crc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/memory_file.h"

namespace qv {
namespace {

const unsigned char* bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }
uint32_t sizeOf(const std::string& text) { return static_cast<uint32_t>(text.size()); }

/// One bit at a time.
uint32_t slowCrc32(const std::string& text, uint32_t reversedPolynomial) {
    uint32_t crc = 0xFFFFFFFF;
    for (const char c : text) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? reversedPolynomial : 0);
    }
    return ~crc;
}
uint16_t slowCrc16(const std::string& text) {
    uint32_t crc = 0;
    for (const char c : text) {
        crc ^= static_cast<uint32_t>(static_cast<uint8_t>(c)) << 8;
        for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ ((crc & 0x8000) != 0 ? 0x11021 : 0);
    }
    return static_cast<uint16_t>(crc);
}

/// Lengths around every change of method, and two long ones.
std::string textOf(size_t length) {
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>(i * 37 + i / 251 + 11);
    return text;
}
std::vector<size_t> lengths() {
    std::vector<size_t> result = {1023, 4099};
    for (size_t i = 0; i < 600; i += i < 300 ? 1 : 7) result.push_back(i);
    return result;
}

TEST(Crc, GivesThePublishedValuesForEveryLengthAndStart) {
    const struct {
        uint32_t polynomial, reversed, check;  // the check is of "123456789"
    } rows[] = {{0x1EDC6F41, 0x82F63B78, 0xE3069283}, {crc32Polynomial, 0xEDB88320, 0xCBF43926}};
    for (const auto& row : rows) {
        InitCRC32Table(row.polynomial);
        EXPECT_EQ(CalcBlockCRC32(bytes("123456789"), 9), row.check);
        for (const size_t length : lengths()) {
            const std::string text = textOf(length), first = text.substr(0, length / 3),
                              second = text.substr(length / 3);
            ASSERT_EQ(CalcBlockCRC32(bytes(text), sizeOf(text)), slowCrc32(text, row.reversed)) << length;
            const uint32_t part = CalcMultBlockCRC32(bytes(first), sizeOf(first), InitCRC32());
            ASSERT_EQ(FiniCRC32(CalcMultBlockCRC32(bytes(second), sizeOf(second), part)),
                      slowCrc32(text, row.reversed));
        }
    }
    EXPECT_EQ(CalcBlockCRC16(bytes("123456789"), 9), 0x31C3);
    for (const size_t length : lengths()) {
        const std::string text = textOf(length), first = text.substr(0, length / 3), second = text.substr(length / 3);
        ASSERT_EQ(CalcBlockCRC16(bytes(text), sizeOf(text)), slowCrc16(text)) << length;
        const uint16_t part = CalcMultBlockCRC16(bytes(first), sizeOf(first), 0);
        ASSERT_EQ(FiniCRC16(CalcMultBlockCRC16(bytes(second), sizeOf(second), part)), slowCrc16(text)) << length;
    }
    EXPECT_EQ(CalcBlockCRC32(nullptr, 5), 0u);
    EXPECT_EQ(CalcMultBlockCRC32(nullptr, 5, 7), 7u);
    EXPECT_EQ(CalcMultBlockCRC16(nullptr, 5, 7), 7u);
}

TEST(Crc, TakesAFileFromItsPositionOn) {
    const std::string text = textOf(0x80000 + 123);
    const TSharedPtr<IFile> file = test::memoryFile(text);
    uint16_t crc16 = 1;
    uint32_t crc32 = 1;
    EXPECT_TRUE(CalcCRC16(crc16, file));
    EXPECT_EQ(crc16, CalcBlockCRC16(bytes(text), sizeOf(text)));
    file->SetPosition(100);
    EXPECT_TRUE(CalcCRC32(crc32, file));
    EXPECT_EQ(crc32, CalcBlockCRC32(bytes(text) + 100, sizeOf(text) - 100));
    EXPECT_TRUE(CalcCRC32(crc32, file));  // at the end
    EXPECT_EQ(crc32, 0u);
    const TSharedPtr<IFile> shorter = CBoundedFile::Create(test::memoryFile("abc"), 0, 5);
    EXPECT_FALSE(CalcCRC16(crc16, shorter));
    EXPECT_EQ(crc16, CalcBlockCRC16(bytes("abc"), 3));
    EXPECT_FALSE(CalcCRC16(crc16, TSharedPtr<IFile>()));
    EXPECT_FALSE(CalcCRC16(crc16, &fileSystem(), u"/there/is/none"));
    EXPECT_FALSE(CalcCRC32(crc32, nullptr, u"x"));
}

template <class Sink>
void checkSink(uint32_t whole) {
    Sink sink;
    EXPECT_EQ(sink.GetCRC(), 0u);
    EXPECT_TRUE(sink.PutUTF8Character('1') && sink.WriteBytes("23456789", 8));
    EXPECT_EQ(sink.GetCRC(), whole);
    EXPECT_EQ(sink.GetSize(), 9);
    EXPECT_EQ(sink.Seek(2, IFile::fromBegin), 9);
    char byte = 0;
    EXPECT_EQ(sink.Read(&byte, 1), 0u);
    EXPECT_FALSE(sink.SetSize(0));
    char16_t name[8];
    EXPECT_EQ(CString(sink.GetFilename(name, 8)), u"none");
    sink.Reset();
    EXPECT_EQ(sink.GetCRC(), 0u);
    EXPECT_EQ(sink.GetPosition(), 0);
}

TEST(Crc, SinksMeasureWhatIsWritten) {
    checkSink<CCalcCRC16File>(0x31C3);
    checkSink<CCalcCRC32File>(0xCBF43926);
}

}  // namespace
}  // namespace qv
