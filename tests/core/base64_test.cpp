#include "qv/base64.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace qv {
namespace {

CString encode(const std::string& bytes) { return Base64Encode(bytes.data(), bytes.size()); }

std::string decode(const CString& text) {
    TSimpleArray<char> bytes;
    EXPECT_TRUE(Base64Decode(text, bytes));
    return {bytes.begin(), bytes.end()};
}

// Source of the vectors: RFC 4648, section 10.
TEST(Base64, PublishedVectorsWithTheClosingLineBreak) {
    const struct {
        const char* bytes;
        const char16_t* text;
    } rows[] = {{"", u""},
                {"f", u"Zg=="},
                {"fo", u"Zm8="},
                {"foo", u"Zm9v"},
                {"foob", u"Zm9vYg=="},
                {"fooba", u"Zm9vYmE="},
                {"foobar", u"Zm9vYmFy"}};
    for (const auto& row : rows) {
        EXPECT_EQ(encode(row.bytes), CString(row.text) + u"\r\n");
        EXPECT_EQ(decode(row.text), row.bytes);
    }
}

TEST(Base64, LinesBreakAfter76Characters) {
    const std::u16string full(76, u'A');
    const struct {
        size_t bytes;
        std::u16string text;
    } rows[] = {
        {54, std::u16string(72, u'A') + u"\r\n"},
        {56, std::u16string(75, u'A') + u"=\r\n\r\n"},
        {57, full + u"\r\n\r\n"},
        {58, full + u"\r\nAA==\r\n"},
        {114, full + u"\r\n" + full + u"\r\n\r\n"},
    };
    for (const auto& row : rows) {
        const CString text = encode(std::string(row.bytes, '\0'));
        EXPECT_EQ(text, row.text) << row.bytes;
        EXPECT_EQ(text.length(), Base64EncodedLength(row.bytes));
        EXPECT_EQ(decode(text), std::string(row.bytes, '\0'));
    }
}

TEST(Base64, DecodingSkipsForeignCharactersAndDropsAnIncompleteGroup) {
    EXPECT_EQ(decode(u" Z-m\r\n9€v\u0000Y"), "foo");
    EXPECT_EQ(decode(u"Zm9vZg=="), "foof");
    EXPECT_EQ(decode(u"Zg==Zg=="), "ff");
    EXPECT_EQ(decode(u"Zm9"), "");
    EXPECT_EQ(decode(u"Zm=v").size(), 2u);
}

TEST(Base64, TheBoundedFormNeverWritesPastItsLimit) {
    const CString text = encode("foobar");
    for (size_t capacity = 0; capacity <= 7; ++capacity) {
        std::string to(8, '#');
        size_t written = 99;
        EXPECT_EQ(Base64Decode(text, to.data(), capacity, written), capacity >= 6);
        EXPECT_EQ(written, std::min<size_t>(capacity, 6));
        EXPECT_EQ(to, std::string("foobar").substr(0, written) + std::string(8 - written, '#'));
    }
}

TEST(Base64, AnyBytesComeBack) {
    std::mt19937 random(4);
    for (size_t size = 0; size < 300; ++size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        const CString text = encode(bytes);
        EXPECT_EQ(Base64DecodedSize(text), size);
        ASSERT_EQ(decode(text), bytes);
    }
}

}  // namespace
}  // namespace qv
