#include <string>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "support.h"

namespace qv::test {
namespace {

using namespace std::string_literals;

CMemFile& rewound(CMemFile& file, std::string_view bytes) {
    fill(file, bytes);
    return file;
}

TEST(PrefixedStrings, StoredForms) {
    struct Row {
        const char* name;
        bool swaps;
        bool (*put)(IFile&);
        std::string bytes;
    };
    const Row rows[] = {
        {"narrow", false, [](IFile& f) { return f.PutString("ab"); }, "\2\0\0\0ab"s},
        {"narrow, big-endian", true, [](IFile& f) { return f.PutString("ab"); }, "\0\0\0\2ab"s},
        {"narrow null", false, [](IFile& f) { return f.PutString(static_cast<const char*>(nullptr)); }, "\0\0\0\0"s},
        {"wide as UTF-8", false, [](IFile& f) { return f.PutString(u"\u00E9\u20AC"); },
         "\5\0\0\0\xC3\xA9\xE2\x82\xAC"s},
        {"wide null", false, [](IFile& f) { return f.PutString(static_cast<const char16_t*>(nullptr)); }, "\0\0\0\0"s},
        {"code page 1252", false, [](IFile& f) { return f.PutString(1252, u"\u00E9\u20AC"); }, "\2\0\0\0\xE9\x80"s},
        {"unicode", false, [](IFile& f) { return f.PutUnicodeString(u"A\u20AC"); }, "\2\0\0\0A\0\xAC\x20"s},
        {"unicode, big-endian count alone", true, [](IFile& f) { return f.PutUnicodeString(u"A\u20AC"); },
         "\0\0\0\2A\0\xAC\x20"s},
        {"unicode null", false, [](IFile& f) { return f.PutUnicodeString(nullptr); }, "\0\0\0\0"s},
        {"text", false, [](IFile& f) { return f.WriteString("x\n"); }, "x\n"},
        {"formatted", false, [](IFile& f) { return f.WriteFormattedString("%d:%s%5.2f", 7, "ab", 1.5); }, "7:ab 1.50"},
        {"fixed, padded", false, [](IFile& f) { return f.PutFixedLengthString("ab", 4); }, "ab\0\0"s},
        {"fixed, cut", false, [](IFile& f) { return f.PutFixedLengthString("abcdef", 4); }, "abcd"},
    };
    for (const Row& row : rows) {
        CMemFile file;
        swapFlag(file) = row.swaps;
        EXPECT_TRUE(row.put(file)) << row.name;
        EXPECT_EQ(textOf(file), row.bytes) << row.name;
    }
}

TEST(PrefixedStrings, LongFormattedTextIsWrittenWhole) {
    for (const size_t length : {2046u, 2047u, 2048u, 5000u}) {
        CMemFile file;
        const std::string text(length, 'x');
        EXPECT_TRUE(file.WriteFormattedString("%s|", text));
        EXPECT_EQ(textOf(file), text + "|");
    }
}

TEST(PrefixedStrings, EveryReaderGivesTheTextBack) {
    CMemFile file;
    const std::string utf8 = "\5\0\0\0\xC3\xA9\xE2\x82\xAC"s, page1252 = "\2\0\0\0\xE9\x80"s;
    const std::string unicode = "\2\0\0\0A\0\xAC\x20"s;
    CString wide;
    EXPECT_TRUE(rewound(file, utf8).GetString(wide));
    EXPECT_EQ(wide.view(), u"\u00E9\u20AC");
    EXPECT_EQ(rewound(file, utf8).GetString().view(), u"\u00E9\u20AC");
    CStringMB narrow;
    EXPECT_TRUE(rewound(file, "\5\0\0\0ab\0cd"s).GetString(narrow));
    EXPECT_EQ(narrow.view(), "ab");  // Up to the first NUL.
    EXPECT_TRUE(rewound(file, page1252).GetString(1252, wide));
    EXPECT_EQ(wide.view(), u"\u00E9\u20AC");
    EXPECT_EQ(rewound(file, page1252).GetString(1252).view(), u"\u00E9\u20AC");
    EXPECT_TRUE(rewound(file, unicode).GetUnicodeString(wide));
    EXPECT_EQ(wide.view(), u"A\u20AC");
    EXPECT_EQ(rewound(file, unicode).GetUnicodeString().view(), u"A\u20AC");
}

TEST(PrefixedStrings, BuffersTakeWhatFitsWithItsTerminator) {
    struct Row {
        const char* name;
        std::string bytes;
        bool (*get)(IFile&, int size);
        int units;  // Without the terminator.
    };
    static char narrow[8];
    static char16_t wide[8];
    const Row rows[] = {
        {"narrow", "\3\0\0\0abc"s, [](IFile& f, int size) { return f.GetString(narrow, size); }, 3},
        {"UTF-8", "\6\0\0\0a\xC3\xA9\xE2\x82\xAC"s, [](IFile& f, int size) { return f.GetString(wide, size); }, 3},
        {"1252", "\2\0\0\0\xE9\x80"s, [](IFile& f, int size) { return f.GetString(1252, wide, size); }, 2},
        {"unicode", "\2\0\0\0A\0B\0"s, [](IFile& f, int size) { return f.GetUnicodeString(wide, size); }, 2},
    };
    for (const Row& row : rows) {
        CMemFile file;
        fill(file, row.bytes);
        for (const int tooSmall : {row.units, 0, -1}) {
            EXPECT_FALSE(row.get(file, tooSmall)) << row.name;
            EXPECT_EQ(file.GetPosition(), 0) << row.name;
        }
        EXPECT_TRUE(row.get(file, row.units + 1)) << row.name;
        EXPECT_EQ(file.GetRemaining(), 0) << row.name;
    }
    EXPECT_EQ(std::string_view(narrow), "abc");
    EXPECT_EQ(std::u16string_view(wide), u"AB");
}

TEST(PrefixedStrings, ACutTextPutsThePositionBack) {
    struct Row {
        const char* name;
        bool (*get)(IFile&);
    };
    static CString wide;
    static CStringMB narrow;
    static char buffer[100];
    const Row rows[] = {
        {"CString", [](IFile& f) { return f.GetString(wide); }},
        {"CStringMB", [](IFile& f) { return f.GetString(narrow); }},
        {"buffer", [](IFile& f) { return f.GetString(buffer, 100); }},
        {"code page", [](IFile& f) { return f.GetString(1252, wide); }},
        {"unicode", [](IFile& f) { return f.GetUnicodeString(wide); }},
    };
    for (const std::string& body : {"\7\0\0\0abc"s, "\xFF\xFF\xFF\xFF"s, "\0\0\0\x10xyz"s}) {
        for (const Row& row : rows) {
            CMemFile file;
            fill(file, "??" + body);
            file.SetPosition(2);
            wide = u"kept";
            narrow = "kept";
            ClearDiagnostic();
            EXPECT_FALSE(row.get(file)) << row.name;
            EXPECT_EQ(file.GetPosition(), 2) << row.name;
            EXPECT_EQ(wide.view(), u"kept");
            EXPECT_EQ(narrow.view(), "kept");
            EXPECT_TRUE(LastDiagnostic().IsSet());
        }
    }
    CMemFile file;
    fill(file, "\1\0"s);
    EXPECT_FALSE(file.GetString(wide));
    EXPECT_EQ(file.GetPosition(), 2);  // A short prefix is not taken back.
}

TEST(PrefixedStrings, ACutWriteIsTakenBack) {
    CMemFile file;
    file.SetSize(6);
    file.SetGrow(false);
    EXPECT_FALSE(file.PutString("abc"));
    EXPECT_EQ(file.GetPosition(), 0);
    EXPECT_TRUE(file.PutString("ab"));
}

TEST(PrefixedStrings, SkippingUnicodeStopsInTheMiddle) {
    CMemFile file;
    file.PutUnicodeString(u"abcde");
    for (const auto skip : {&IFile::SkipUnicodeString, &IFile::SkipString}) {
        file.SeekToBegin();
        EXPECT_TRUE((file.*skip)());
        EXPECT_EQ(file.GetPosition(), 4 + 5);
    }
}

TEST(ArchiveStrings, PrefixWidthFollowsTheLength) {
    struct Row {
        size_t length;
        std::string prefix;
    };
    const Row rows[] = {{0, "\0"s},
                        {1, "\1"},
                        {254, "\xFE"},
                        {255, "\xFF\xFF\0"s},
                        {65534, "\xFF\xFE\xFF"},
                        {65535, "\xFF\xFF\xFF\xFF\xFF\0\0"s},
                        {70000, "\xFF\xFF\xFF\x70\x11\1\0"s}};
    for (const Row& row : rows) {
        const std::string text(row.length, 'x');
        CMemFile file;
        EXPECT_EQ(file.PutArchiveString(text.c_str()), row.length != 0) << row.length;
        EXPECT_TRUE(textOf(file) == row.prefix + text) << row.length;
        file.SeekToBegin();
        CString read;
        EXPECT_TRUE(file.GetArchiveString(read));
        EXPECT_TRUE(read == CString(text)) << row.length;
        EXPECT_EQ(file.GetRemaining(), 0);
        file.SeekToBegin();
        EXPECT_TRUE(file.SkipArchiveString());
        EXPECT_EQ(file.GetRemaining(), 0);
    }
}

TEST(ArchiveStrings, ACutOneReadsAsWhatIsThere) {
    CMemFile file;
    CString read = u"x";
    for (const std::string& bytes : {""s, "\xFF"s, "\xFF\xFF\xFF\xFF"s, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s}) {
        EXPECT_TRUE(rewound(file, bytes).GetArchiveString(read));
        EXPECT_TRUE(read.IsEmpty());
        file.SeekToBegin();
        EXPECT_EQ(file.SkipArchiveString(), bytes.size() == 7);
    }
    EXPECT_TRUE(rewound(file, "\tabc").GetArchiveString(read));
    EXPECT_EQ(read.view(), u"abc");
}

TEST(Lines, AreReadWithoutTheirEnds) {
    CMemFile file;
    fill(file, "ab\r\ncd\rx\n\nlast");
    char buffer[8];
    for (const char* expected : {"ab", "cd", "", "last"}) {
        EXPECT_TRUE(file.GetLine(buffer, sizeof buffer));
        EXPECT_STREQ(buffer, expected);
    }
    EXPECT_FALSE(file.GetLine(buffer, sizeof buffer));
    EXPECT_FALSE(file.GetLine(buffer, 0));
}

TEST(Lines, ThatDoNotFitAreRefused) {
    CMemFile file;
    char buffer[8];
    fill(file, "?12345678");
    file.SetPosition(1);
    EXPECT_FALSE(file.GetLine(buffer, 8));
    EXPECT_EQ(file.GetPosition(), 1);
    EXPECT_TRUE(rewound(file, "1234567\nx").GetLine(buffer, 8));
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(file.GetPosition(), 8);
}

TEST(FixedLengthStrings, ReadUpToTheirPadding) {
    CMemFile file;
    CStringMB narrow = "old";
    CString wide = u"old";
    EXPECT_TRUE(rewound(file, "ab\0\0"s).GetFixedLengthString(narrow, 4));
    EXPECT_EQ(narrow.view(), "ab");
    EXPECT_TRUE(rewound(file, "\xC3\xA9\0\0"s).GetFixedLengthString(wide, 4));
    EXPECT_EQ(wide.view(), u"\u00E9");
    for (const uint32_t n : {5u, 0xFFFFFFFFu}) {
        narrow = "old";
        wide = u"old";
        EXPECT_FALSE(rewound(file, "abcd").GetFixedLengthString(narrow, n));
        EXPECT_TRUE(narrow.IsEmpty());
        EXPECT_FALSE(rewound(file, "abcd").GetFixedLengthString(wide, n));
        EXPECT_EQ(wide.view(), u"old");
        EXPECT_EQ(file.GetRemaining(), 0);
    }
    char buffer[6] = {'~', '~', '~', '~', '~', '~'};
    EXPECT_FALSE(rewound(file, "abc").ReadString(buffer, 5));
    EXPECT_EQ(buffer[5], 0);
    EXPECT_TRUE(rewound(file, "abcde").GetFixedLengthString(buffer, 5));
    EXPECT_STREQ(buffer, "abcde");
}

TEST(FixedLengthStrings, ZerosGoInChunks) {
    for (const uint32_t count : {0u, 1u, 511u, 512u, 513u, 5000u}) {
        CMemFile file;
        EXPECT_TRUE(file.WriteZeros(count));
        EXPECT_EQ(bytesOf(file), Bytes(count, 0));
    }
    CMemFile full;
    full.SetSize(600);
    full.SetGrow(false);
    EXPECT_FALSE(full.WriteZeros(1000));
    EXPECT_EQ(full.GetPosition(), 512);
}

}  // namespace
}  // namespace qv::test
