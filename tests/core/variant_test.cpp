#include "qv/variant.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "qv/config_store.h"
#include "support/memory_file.h"

namespace qv {
namespace {

using V = CVariant;

V colours(int64_t value) {
    return V(value, TArray<V::SEnumValue>{{u"red", 1}, {u"green", -2}, {u"", 7}, {u"also red", 1}});
}

/// All numeric conversions of a variant, in the order of the types.
std::string conversions(const V& v) {
    std::string all = v.ToBool() ? "true" : "false";
    for (const int64_t value : {int64_t{v.ToInt8()}, int64_t{v.ToUInt8()}, int64_t{v.ToInt16()}, int64_t{v.ToUInt16()},
                                int64_t{v.ToInt32()}, int64_t{v.ToUInt32()}, v.ToInt64()}) {
        all += ' ' + std::to_string(value);
    }
    return all + ' ' + std::to_string(v.ToUInt64()) + CStringMB::FromFormat(" %g %g", v.ToFlt32(), v.ToFlt64()).c_str();
}

TEST(Variant, ConvertsEveryTypeToEveryOther) {
    const double lowest = std::numeric_limits<double>::lowest();
    const struct {
        V value;
        const char16_t* text;
        const char* numbers;
    } cases[] = {
        {V(), u"", "false 0 0 0 0 0 0 0 0 0 0"},
        {V(true), u"true", "true 1 1 1 1 1 1 1 1 1 1"},
        {V('\xFE'), u"-2", "true -2 254 -2 65534 -2 4294967294 -2 18446744073709551614 -2 -2"},
        {V(uint8_t{254}), u"254", "true -2 254 254 254 254 254 254 254 254 254"},
        {V(int16_t{-300}), u"-300", "true -44 212 -300 65236 -300 4294966996 -300 18446744073709551316 -300 -300"},
        {V(uint16_t{65535}), u"65535", "true -1 255 -1 65535 65535 65535 65535 65535 65535 65535"},
        {V(-1), u"-1", "true -1 255 -1 65535 -1 4294967295 -1 18446744073709551615 -1 -1"},
        {V(4000000000u), u"4000000000", "true 0 0 10240 10240 -294967296 4000000000 4000000000 4000000000 4e+09 4e+09"},
        {V(int64_t{1} << 40), u"1099511627776", "true 0 0 0 0 0 0 1099511627776 1099511627776 1.09951e+12 1.09951e+12"},
        {V(~0ull), u"18446744073709551615",
         "true -1 255 -1 65535 -1 4294967295 -1 18446744073709551615 1.84467e+19 1.84467e+19"},
        {V(-300.75f), u"-300.75", "true -44 212 -300 65236 -300 4294966996 -300 18446744073709551316 -300.75 -300.75"},
        {V(1e10), u"1e+10", "true 0 0 0 0 -2147483648 1410065408 10000000000 10000000000 1e+10 1e+10"},
        {V(1e19), u"1e+19", "true 0 0 0 0 -2147483648 0 -9223372036854775808 10000000000000000000 1e+19 1e+19"},
        {V(lowest), u"-1.79769e+308",
         "true 0 0 0 0 -2147483648 0 -9223372036854775808 9223372036854775808 -inf -1.79769e+308"},
        {V(u" -300.5x"), u" -300.5x",
         "false -44 212 -300 65236 -300 4294966996 -300 18446744073709551316 -300.5 -300.5"},
        {V(u"18446744073709551615"), u"18446744073709551615",
         "false -1 255 -1 65535 2147483647 4294967295 9223372036854775807 18446744073709551615 1.84467e+19 "
         "1.84467e+19"},
        {V(u"YES"), u"YES", "true 0 0 0 0 0 0 0 0 0 0"},
        {V(u"1"), u"1", "false 1 1 1 1 1 1 1 1 1 1"},
        {V("\x0A\xFF", 2), u"0AFF", "false 0 0 0 0 0 0 0 0 0 0"},
        {colours(-2), u"green", "true -2 254 -2 65534 -2 4294967294 -2 18446744073709551614 -2 -2"},
        {colours(3), u"", "true 3 3 3 3 3 3 3 3 3 3"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.value.ToString(), c.text) << c.value.getType();
        EXPECT_EQ(conversions(c.value), c.numbers) << c.value.getType();
    }
}

TEST(Variant, TheTypeFollowsAnAssignmentButNotASetValue) {
    V v = colours(1);
    v.setValue(u"green");
    EXPECT_EQ(v.getEnumValue(), -2);
    v.setValue(V(1.9));
    EXPECT_EQ(v.ToString(), u"red");
    v = 2.5f;
    EXPECT_EQ(v.getType(), V::typeFlt32);
    EXPECT_EQ(v.GetEnumCount(), 0u);
    v.setValue(u"1e3");
    EXPECT_EQ(static_cast<float>(v), 1000.0f);
    v.setType(V::typeFlt32);
    EXPECT_EQ(v.ToFlt32(), 0.0f);
    v = u"text";
    v.setValue(V("\x01", 1));
    EXPECT_EQ(static_cast<CString>(v), u"01");
    V blob(V::typeBlob);
    blob.setValue(v);
    EXPECT_EQ(blob.getBlob().size(), 1u);
    v.setEnumValue(7);
    EXPECT_EQ(v.getType(), V::typeEnum);
    v.Destroy();
    EXPECT_EQ(v.getType(), V::typeUndefined);
    v.setValue(5);
    EXPECT_EQ(v.ToInt32(), 0);
}

TEST(Variant, ReadsTextByItsType) {
    const struct {
        V::EType type;
        const char16_t *text, *result;
    } cases[] = {
        {V::typeBool, u"On", u"true"},
        {V::typeInt8, u"200", u"-56"},
        {V::typeUInt8, u"300", u"44"},
        {V::typeInt16, u"300", u"44"},
        {V::typeInt16, u"200", u"-56"},
        {V::typeUInt16, u"-1", u"65535"},
        {V::typeInt32, u"99999999999", u"2147483647"},
        {V::typeUInt32, u"4000000000", u"4000000000"},
        {V::typeUInt32, u"-1", u"4294967295"},
        {V::typeInt64, u"\t-9223372036854775808 ", u"-9223372036854775808"},
        {V::typeUInt64, u"18446744073709551615", u"18446744073709551615"},
        {V::typeFlt32, u"0.5e1 m", u"5"},
        {V::typeFlt64, u"", u"0"},
        {V::typeString, u" as it is ", u" as it is "},
        {V::typeBlob, u"0aff7", u"0AFF"},
        {V::typeBlob, u"zF", u"0F"},
    };
    for (const auto& c : cases) {
        V v(c.type);
        v.FromString(c.text);
        EXPECT_EQ(v.ToString(), c.result) << CStringMB(c.text).c_str();
        EXPECT_EQ(v.getType(), c.type);
        v.FromString(nullptr);
    }
    V undefined;
    undefined.FromString(u"0aff");
    EXPECT_EQ(undefined.getBlob().size(), 2u);
    EXPECT_EQ(undefined.ToString(), u"");
}

TEST(Variant, FormatsNumbersByAPattern) {
    EXPECT_EQ(V(255).ToString(u"06X"), u"0000FF");
    EXPECT_EQ(V(int8_t{-1}).ToString(u"3d"), u" -1");
    EXPECT_EQ(V(1.5f).ToString(u".2f"), u"1.50");
    EXPECT_EQ(V(int64_t{-5000000000}).ToString(u"I64d"), u"-5000000000");
    EXPECT_EQ(V(true).ToString(u"d"), u"true");
    EXPECT_EQ(colours(1).ToString(u"d"), u"red");
    EXPECT_EQ(V(u"text").ToString(u"d"), u"text");
    EXPECT_EQ(V(3).ToString(u"d %s%n"), u"3 ");
}

TEST(Variant, NamesOfTypesAndOfEnumerations) {
    for (uint32_t t = 0; t <= 14; ++t) {
        EXPECT_EQ(V::ParseType(V::TypeToString(static_cast<V::EType>(t)).c_str()), t);
    }
    EXPECT_EQ(V::TypeToString(V::typeFlt64), u"Flt64");
    EXPECT_EQ(V::ParseType(u"uINT16"), V::typeUInt16);
    EXPECT_EQ(V::ParseType(u"Float"), V::typeUndefined);
    EXPECT_EQ(V::ParseType(nullptr), V::typeUndefined);

    V v = colours(0);
    EXPECT_EQ(v.GetEnumNameFromValue(1), u"red");
    EXPECT_EQ(v.GetEnumValueFromName(u"also red"), 1);
    EXPECT_EQ(v.GetEnumValueFromName(u""), 7);
    EXPECT_EQ(v.GetEnumValueFromName(u"Red"), 0);
    EXPECT_EQ(v.GetEnumValueFromName(u"-7"), -7);
    EXPECT_EQ(v.GetEnumName(9), u"");
    TArray<CString> names;
    v.GetEnumNames(names);
    EXPECT_EQ(names.size(), 4u);
    v.ClearEnum();
    EXPECT_EQ(v.GetEnumCount(), 0u);
}

V loaded(const std::string& bytes, bool swap = false) {
    const TSharedPtr<IFile> file = test::memoryFile(bytes);
    swapFlag(*file) = swap;
    V v = u"old";
    EXPECT_TRUE(v.Load(file));
    return v;
}

TEST(Variant, TheBinaryFormInBothByteOrders) {
    using namespace std::string_literals;
    V longNames = colours(-2);
    longNames.ClearEnum();
    longNames.AddEnum(u"h\u00F6", 258);
    const struct {
        V value;
        std::string little, big;
    } cases[] = {
        {V(), "\0\0\0\0"s, "\0\0\0\0"s},
        {V(true), "\1\0\0\0\1"s, "\0\0\0\1\1"s},
        {V(int8_t{-2}), "\2\0\0\0\xFE"s, "\0\0\0\2\xFE"s},
        {V(uint16_t{0x1234}), "\5\0\0\0\x34\x12"s, "\0\0\0\5\x12\x34"s},
        {V(-2), "\6\0\0\0\xFE\xFF\xFF\xFF"s, "\0\0\0\6\xFF\xFF\xFF\xFE"s},
        {V(uint64_t{258}), "\x9\0\0\0\2\1\0\0\0\0\0\0"s, "\0\0\0\x9\0\0\0\0\0\0\1\2"s},
        {V(1.0f), "\xA\0\0\0\0\0\x80\x3F"s, "\0\0\0\xA\x3F\x80\0\0"s},
        {V(-2.0), "\xB\0\0\0\0\0\0\0\0\0\0\xC0"s, "\0\0\0\xB\xC0\0\0\0\0\0\0\0"s},
        {V(u"\u00B0C"), "\xC\0\0\0\3\0\0\0\xC2\xB0\x43"s, "\0\0\0\xC\0\0\0\3\xC2\xB0\x43"s},
        {V("\1\2\3", 3), "\xD\0\0\0\3\0\0\0\1\2\3"s, "\0\0\0\xD\0\0\0\3\1\2\3"s},
        {longNames, "\xE\0\0\0\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF\1\0\0\0\3\0\0\0h\xC3\xB6\2\1\0\0\0\0\0\0"s,
         "\0\0\0\xE\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE\0\0\0\1\0\0\0\3h\xC3\xB6\0\0\0\0\0\0\1\2"s},
    };
    for (const auto& c : cases) {
        for (const bool swap : {false, true}) {
            const TSharedPtr<IFile> file = test::memoryFile("");
            swapFlag(*file) = swap;
            EXPECT_TRUE(c.value.Save(file));
            EXPECT_EQ(test::bytesOf(*file), swap ? c.big : c.little) << c.value.getType();
            const V back = loaded(swap ? c.big : c.little, swap);
            EXPECT_EQ(back.getType(), c.value.getType());
            EXPECT_EQ(back.ToString(), c.value.ToString());
            EXPECT_EQ(conversions(back), conversions(c.value));
        }
    }
}

TEST(Variant, ALoadTakesNoMoreThanTheFileHolds) {
    using namespace std::string_literals;
    EXPECT_EQ(loaded("\x0F\0\0\0\5"s).getType(), 15u);
    EXPECT_EQ(loaded("\x0F\0\0\0\5"s).ToString(), u"");
    EXPECT_EQ(loaded("\6\0\0\0\1\2"s).ToInt32(), 0);
    EXPECT_EQ(loaded("\xC\0\0\0\xFF\xFF\xFF\xFFtext"s).ToString(), u"");
    EXPECT_EQ(loaded("\xD\0\0\0\xFF\xFF\xFF\xFF\1\2"s).ToString(), u"0102");
    EXPECT_EQ(loaded("\xD\0\0"s).getType(), V::typeUndefined);
    const V cut = loaded("\xE\0\0\0\1\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\1\0\0\0a\1\0\0\0\0\0\0\0\1\0\0\0b\1"s);
    EXPECT_EQ(cut.GetEnumCount(), 1u);
    EXPECT_EQ(cut.ToString(), u"a");

    V enumeration = colours(1);
    EXPECT_TRUE(enumeration.Load(test::memoryFile("\xE\0\0\0\x9\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0n\x9\0\0\0\0\0\0\0"s)));
    EXPECT_EQ(enumeration.GetEnumCount(), 5u);
    EXPECT_EQ(enumeration.ToString(), u"n");
}

TEST(Variant, TheKeyedForm) {
    CMemStore store;
    EXPECT_TRUE(colours(-2).Save(store));
    EXPECT_EQ(store.GetString(u"Type"), u"Enum");
    EXPECT_EQ(store.GetString(u"Value"), u"green");
    EXPECT_EQ(store.GetInt32(u"EnumValues/Count"), 4);
    EXPECT_EQ(store.GetString(u"EnumValues/[003]/Name"), u"also red");
    EXPECT_EQ(store.GetInt64(u"EnumValues/[001]/Value"), -2);
    store.SetUInt32(u"EnumValues/Count", 4000000000u);
    V back(5.0);
    EXPECT_TRUE(back.Load(store));
    EXPECT_EQ(back.getType(), V::typeEnum);
    EXPECT_EQ(back.GetEnumCount(), 4u);
    EXPECT_EQ(back.getEnumValue(), -2);

    for (const V& v : {V(), V(true), V(-7), V(2.5), V(u"text"), V("\1\xFF", 2)}) {
        CConfigSection section = store.Section(u"a/b");
        EXPECT_TRUE(v.Save(section));
        EXPECT_TRUE(back.Load(section));
        EXPECT_EQ(back.getType(), v.getType());
        EXPECT_EQ(back.ToString(), v.ToString());
    }
    EXPECT_EQ(store.GetString(u"A/B/type"), u"Blob");
}

}  // namespace
}  // namespace qv
