#include "qv/guid.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <unordered_set>

#include "qv/diagnostic.h"

namespace qv::test {
namespace {

// The name space of DNS in RFC 9562.
constexpr GUID dns{0x6BA7B810, 0x9DAD, 0x11D1, {0x80, 0xB4, 0, 0xC0, 0x4F, 0xD4, 0x30, 0xC8}};

TEST(Guid, EveryFormIsWrittenAndReadInEitherCase) {
    struct Row {
        CGUID::Form form;
        const char* text;
    };
    using Form = CGUID::Form;
    const Row rows[] = {
        {Form::plain, "6BA7B810-9DAD-11D1-80B4-00C04FD430C8"},
        {Form::braces, "{6BA7B810-9DAD-11D1-80B4-00C04FD430C8}"},
        {Form::parentheses, "(6BA7B810-9DAD-11D1-80B4-00C04FD430C8)"},
        {Form::digits, "6BA7B8109DAD11D180B400C04FD430C8"},
        {Form::urn, "urn:uuid:6ba7b810-9dad-11d1-80b4-00c04fd430c8"},
        {Form::initializer, "{0x6BA7B810,0x9DAD,0x11D1,{0x80,0xB4,0x00,0xC0,0x4F,0xD4,0x30,0xC8}}"},
    };
    for (const Row& row : rows) {
        EXPECT_STREQ(CGUID(dns).ToString(row.form).GetUTF8(), row.text);
        for (int (*change)(int) : {+[](int c) { return c; }, std::toupper, std::tolower}) {
            std::string changed(row.text);
            for (char& c : changed) c = static_cast<char>(change(c));
            CGUID read;
            EXPECT_TRUE(read.FromString(changed)) << changed;
            EXPECT_EQ(read, dns);
        }
    }
    EXPECT_EQ(CGUID(dns).ToString(), CGUID(dns).ToString(Form::braces));
    EXPECT_STREQ(CGUID(dns).ToString(Form::digits, true).GetUTF8(), "6ba7b8109dad11d180b400c04fd430c8");
    CGUID loose;
    EXPECT_TRUE(loose.FromString(u"{ 0x1, 0xab ,0x0,\n{0x1,0x2,0x3,0x4,0x5,0x6,0x7,0x8} }"));
    EXPECT_EQ(loose, (GUID{1, 0xAB, 0, {1, 2, 3, 4, 5, 6, 7, 8}}));
}

TEST(Guid, OtherTextsLeaveTheValue) {
    CGUID guid(dns);
    for (const char16_t* bad :
         {u"", u"{6ba7b810-9dad-11d1-80b4-00c04fd430c8", u"6ba7b810-9dad-11d1-80b4-00c04fd430cg",
          u"6ba7b8109-dad-11d1-80b4-00c04fd430c8", u"6ba7b810-9dad-11d1-80b4-00c04fd430c8 ",
          u"{6ba7b810-9dad-11d1-80b4-00c04fd430c8)", u"{6ba7b8109dad11d180b400c04fd430c8}",
          u"urn:uuid:{6ba7b810-9dad-11d1-80b4-00c04fd430c8}", u"urn-uuid:6ba7b810-9dad-11d1-80b4-00c04fd430c8",
          u"{0x6BA7B8100,0x9DAD,0x11D1,{0x80,0xB4,0x00,0xC0,0x4F,0xD4,0x30,0xC8}}",
          u"{0x6BA7B810,0x9DAD,0x11D1,{0x80,0xB4,0x00,0xC0,0x4F,0xD4,0x30}}         ",
          u"{0x6BA7B810,0x9DAD,0x11D1,{0x80,0xB4,0x00,0xC0,0x4F,0xD4,0x30,0xC8}} ",
          u"{0x6BA7B810,0x9DAD,0x11D1,{0x80,0xB4,0x00,0xC0,0x4F,0xD4,0x30,0xC8}",
          u"{0x6BA7B810,0x9DAD,0x,{0x80,0xB4,"}) {
        ClearDiagnostic();
        EXPECT_FALSE(guid.FromString(bad)) << CString(bad).GetUTF8();
        EXPECT_TRUE(LastDiagnostic().IsSet());
    }
    EXPECT_EQ(guid, dns);
}

TEST(Guid, BytesInBothOrders) {
    const CGUID::Bytes memory{0x10, 0xB8, 0xA7, 0x6B, 0xAD, 0x9D, 0xD1, 0x11,
                              0x80, 0xB4, 0x00, 0xC0, 0x4F, 0xD4, 0x30, 0xC8};
    const CGUID::Bytes network{0x6B, 0xA7, 0xB8, 0x10, 0x9D, 0xAD, 0x11, 0xD1,
                               0x80, 0xB4, 0x00, 0xC0, 0x4F, 0xD4, 0x30, 0xC8};
    EXPECT_EQ(CGUID(dns).ToLittleEndian(), memory);
    EXPECT_EQ(CGUID(dns).ToBigEndian(), network);
    EXPECT_EQ(CGUID::FromLittleEndian(memory), dns);
    EXPECT_EQ(CGUID::FromBigEndian(network), dns);
}

TEST(Guid, FreshOnesDifferAndOrderAsTheirTexts) {
    std::unordered_set<CGUID> seen;
    CGUID last;
    EXPECT_TRUE(last.IsNull());
    for (int i = 0; i < 200; ++i) {
        const CGUID guid = CGUID::Create();
        EXPECT_EQ(guid.Data3 >> 12, 4);
        EXPECT_EQ(guid.Data4[0] >> 6, 2);
        EXPECT_TRUE(seen.insert(guid).second);
        EXPECT_EQ(guid < last, std::string(guid.ToString().GetUTF8()) < last.ToString().GetUTF8());
        last = guid;
    }
}

}  // namespace
}  // namespace qv::test
