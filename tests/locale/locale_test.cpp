// Catalogues in the MO format and the selection of locales.
#include "qv/locale.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/thread.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using Messages = std::vector<std::pair<std::string, std::string>>;

void putWord(std::string& to, uint32_t word, bool bigEndian) {
    for (int i = 0; i < 4; ++i) to += static_cast<char>(word >> (bigEndian ? 24 - 8 * i : 8 * i));
}

/// A catalogue of these messages, which are given in the order of their bytes.
std::string makeMo(const Messages& messages, bool bigEndian = false) {
    const auto count = static_cast<uint32_t>(messages.size());
    std::string head, keys, values, texts;
    for (const uint32_t word : {0x950412DEu, 0u, count, 28u, 28 + 8 * count, 0u, 28 + 16 * count}) {
        putWord(head, word, bigEndian);
    }
    const auto add = [&](std::string& table, const std::string& text) {
        putWord(table, static_cast<uint32_t>(text.size()), bigEndian);
        putWord(table, static_cast<uint32_t>(28 + 16 * count + texts.size()), bigEndian);
        texts += text + '\0';
    };
    for (const auto& [key, value] : messages) add(keys, key);
    for (const auto& [key, value] : messages) add(values, value);
    return head + keys + values + texts;
}

bool load(CMoTranslator& translator, std::string bytes) {
    CMemFile file;
    file.WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file.SeekToBegin();
    return translator.Load(&file);
}

std::string narrow(const char16_t* text) { return text == nullptr ? "(null)" : CStringMB(CString(text)).c_str(); }

const std::string utf8Header = "Content-Type: text/plain; charset=UTF-8\nPlural-Forms: nplurals=2; plural=(n != 1);\n";

TEST(MoTranslator, ReadsBothByteOrders) {
    const Messages messages = {{"", utf8Header},
                               {std::string("%d file\0%d files", 16), std::string("%d Datei\0%d Dateien", 19)},
                               {"Open", "Öffnen"},
                               {std::string("menu\4Open"), "Öffnen …"},
                               {"empty", ""}};
    for (const bool bigEndian : {false, true}) {
        CMoTranslator translator;
        ASSERT_TRUE(load(translator, makeMo(messages, bigEndian)));
        EXPECT_EQ(translator.GetMessageCount(), 4u);
        EXPECT_EQ(narrow(translator.GetHeader().c_str()), utf8Header);
        EXPECT_EQ(narrow(translator.Translate(nullptr, u"Open")), "Öffnen");
        EXPECT_EQ(narrow(translator.Translate(u"menu", u"Open")), "Öffnen …");
        EXPECT_EQ(narrow(translator.Translate(u"other", u"Open")), "(null)");
        EXPECT_EQ(narrow(translator.Translate(nullptr, u"empty")), "(null)");
        EXPECT_EQ(narrow(translator.Translate(nullptr, u"")), "(null)");
        EXPECT_EQ(narrow(translator.TranslatePlural(nullptr, u"%d file", 1)), "%d Datei");
        EXPECT_EQ(narrow(translator.TranslatePlural(nullptr, u"%d file", 0)), "%d Dateien");
        EXPECT_EQ(narrow(translator.TranslatePlural(nullptr, u"Open", 5)), "Öffnen");  // Fewer forms than announced.
    }
}

/// A catalogue of one message, byte for byte: "yes" is "ja".
TEST(MoTranslator, ReadsASmallCatalogueAsOthersWriteIt) {
    const unsigned char bytes[] = {0xDE, 0x12, 0x04, 0x95, 0, 0, 0,  0,  1, 0, 0,   0,   28,  0, 0,   0,   36,
                                   0,    0,    0,    0,    0, 0, 0,  44, 0, 0, 0,   3,   0,   0, 0,   44,  0,
                                   0,    0,    2,    0,    0, 0, 48, 0,  0, 0, 'y', 'e', 's', 0, 'j', 'a', 0};
    CMoTranslator translator;
    ASSERT_TRUE(load(translator, std::string(bytes, bytes + sizeof bytes)));
    EXPECT_EQ(narrow(translator.Translate(nullptr, u"yes")), "ja");
}

TEST(MoTranslator, ChoosesPluralFormsAsLanguagesDo) {
    struct Row {
        const char* rule;
        std::vector<std::pair<uint64_t, const char*>> forms;
    };
    const Row rows[] = {
        {"nplurals=1; plural=0;", {{0, "a"}, {1, "a"}, {7, "a"}}},
        {"nplurals=2; plural=n>1;", {{0, "a"}, {1, "a"}, {2, "b"}}},
        // Polish
        {"nplurals=3; plural=(n==1 ? 0 : n%10>=2 && n%10<=4 && (n%100<10 || n%100>=20) ? 1 : 2);",
         {{1, "a"}, {2, "b"}, {5, "c"}, {12, "c"}, {22, "b"}, {25, "c"}, {1000003, "b"}}},
        // Slovenian
        {"nplurals=4; plural=n%100==1 ? 0 : n%100==2 ? 1 : n%100==3 || n%100==4 ? 2 : 3;",
         {{101, "a"}, {2, "b"}, {204, "c"}, {5, "d"}}},
        {"nplurals=3; plural=(n+1)*2-2-n-n+!n;", {{0, "b"}, {4, "a"}}},
        {"nplurals=2; plural=n/0;", {{3, "a"}}},
        {"nplurals=2; plural=n;", {{1, "b"}, {9, "a"}}},  // No such form: the first.
        // Not understood: as "n != 1".
        {"nplurals=2; plural=n &;", {{1, "a"}, {2, "b"}}},
        {"nplurals=2; plural=system(1);", {{1, "a"}, {2, "b"}}},
        {"", {{1, "a"}, {2, "b"}}},
    };
    for (const Row& row : rows) {
        const std::string header = std::string("Plural-Forms: ") + row.rule + "\n";
        CMoTranslator translator;
        ASSERT_TRUE(load(translator, makeMo({{"", header}, {std::string("x\0xs", 4), std::string("a\0b\0c\0d", 7)}})));
        for (const auto& [n, form] : row.forms) {
            EXPECT_EQ(narrow(translator.TranslatePlural(nullptr, u"x", n)), form) << row.rule << " " << n;
        }
    }
    const std::string deep = "Plural-Forms: nplurals=2; plural=" + std::string(100'000, '(') + "n;\n";
    CMoTranslator translator;
    EXPECT_TRUE(load(translator, makeMo({{"", deep}})));
}

TEST(MoTranslator, ConvertsOtherCharsets) {
    const auto withCharset = [](const char* name, const char* translation) {
        CMoTranslator translator;
        const std::string header = std::string("Content-Type: text/plain; charset=") + name + "\n";
        return load(translator, makeMo({{"", header}, {"hot", translation}}))
                   ? narrow(translator.Translate(nullptr, u"hot"))
                   : std::string("refused");
    };
    EXPECT_EQ(withCharset("ISO-8859-1", "hei\xDF"), "heiß");
    EXPECT_EQ(withCharset("KOI8-R", "\xCB\xCF\xD4"), "кот");
    EXPECT_EQ(withCharset("Shift_JIS", "\x94\x4D\x82\xA2"), "熱い");
    EXPECT_EQ(withCharset("CHARSET", "plain"), "plain");
    EXPECT_EQ(withCharset("utf-8",
                          "a\xFF"
                          "b"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(withCharset("UTF-16LE", "ab"), "refused");
    EXPECT_EQ(withCharset("no-such-set", "ab"), "refused");
    EXPECT_EQ(withCharset("UTF-8//IGNORE", "ab"), "refused");
}

TEST(MoTranslator, RefusesHostileFiles) {
    const std::string whole = makeMo({{"", utf8Header}, {"a", "1"}, {"b", "2"}, {"long text", "another"}});
    CMoTranslator translator;
    for (size_t size = 0; size + 1 < whole.size(); ++size) {
        EXPECT_FALSE(load(translator, whole.substr(0, size))) << size;
        EXPECT_EQ(translator.Translate(nullptr, u"a"), nullptr);
    }
    ClearDiagnostic();
    std::string many = whole;
    many.replace(8, 4, "\xFF\xFF\xFF\x7F");  // The count.
    EXPECT_FALSE(load(translator, many));
    EXPECT_EQ(LastDiagnostic().byteOffset, 12);
    // A thousand messages that share one long text would need a thousand times its room.
    std::string shared = makeMo(Messages(1000, {"k", "v"}));
    shared += std::string(100'000, 'x');
    for (size_t i = 0; i < 1000; ++i) shared.replace(28 + 8000 + 8 * i, 4, std::string("\x00\x80\x01\x00", 4));
    EXPECT_FALSE(load(translator, shared));
    // A look-up for each of very many equal keys does not pass all that came before.
    ASSERT_TRUE(load(translator, makeMo(Messages(500'000, {"k", "v"}))));
    EXPECT_EQ(narrow(translator.Translate(nullptr, u"k")), "v");
    std::minstd_rand random(7);
    for (int i = 0; i < 20'000; ++i) {
        std::string bent = whole;
        for (int k = 0; k < 3; ++k) bent[random() % bent.size()] = static_cast<char>(random());
        if (load(translator, bent)) {
            (void)translator.TranslatePlural(nullptr, u"a", random());
            (void)translator.Translate(u"a", u"b");
        }
    }
}

class LocaleSelection : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG", "LANGUAGE"}) unsetenv(name);
        put("de", "hot", "heiß");
        put("de_AT", "servus", "Servus");
        put("fr", "hot", "chaud");
        put("sr@latin", "hot", "vruće");
        domain = CString(u"domain") + CString(std::to_string(++serial).c_str());
        for (const auto& [folder, bytes] : files) {
            const std::string path =
                (std::filesystem::path(CStringMB(root.path()).c_str()) / folder / "LC_MESSAGES").string();
            std::filesystem::create_directories(path);
            write(path + "/" + CStringMB(domain).c_str() + ".mo", bytes);
        }
        bindtextdomain(domain.c_str(), root.path().c_str());
        textdomain(domain.c_str());
    }
    void TearDown() override { locale().SetLocale(u"C"); }
    void put(const std::string& folder, const std::string& key, const std::string& value) {
        files.emplace_back(folder, makeMo({{"", utf8Header}, {key, value}}));
    }
    static void write(const std::string& path, const std::string& bytes) {
        fileSystem()
            .CreateFileW(CString(path).c_str(), 0x8 | 0x20)
            ->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    test::TempFolder root;
    CString domain;
    Messages files;
    static inline int serial = 0;
};

TEST_F(LocaleSelection, FollowsNameAndEnvironment) {
    struct Row {
        const char16_t* name;  // Null: the environment.
        const char *all, *messages, *lang, *language;
        const char *hot, *servus;
        const char* selected;
    };
    const Row rows[] = {
        {u"de_AT.UTF-8", "", "", "", "", "heiß", "Servus", "de_AT.UTF-8"},
        {u"de_DE", "", "", "", "", "heiß", "servus", "de_DE"},
        {u"sr_RS.UTF-8@latin", "", "", "", "", "vruće", "servus", "sr_RS.UTF-8@latin"},
        {u"sr_RS", "", "", "", "", "hot", "servus", "sr_RS"},
        {u"C", "", "", "", "", "hot", "servus", "C"},
        {nullptr, "", "", "", "", "hot", "servus", "C"},
        {nullptr, "fr_FR", "de_DE", "de_DE", "", "chaud", "servus", "fr_FR"},
        {nullptr, "", "de_DE", "fr_FR", "", "heiß", "servus", "de_DE"},
        {nullptr, "", "", "fr_FR.UTF-8", "", "chaud", "servus", "fr_FR.UTF-8"},
        {nullptr, "", "", "en_US", "xx:de:fr", "heiß", "servus", "en_US"},
        {nullptr, "", "", "C.UTF-8", "de", "hot", "servus", "C.UTF-8"},
        {nullptr, "../../etc", "", "de", "", "hot", "servus", "C"},
    };
    for (const Row& row : rows) {
        setenv("LC_ALL", row.all, 1), setenv("LC_MESSAGES", row.messages, 1);
        setenv("LANG", row.lang, 1), setenv("LANGUAGE", row.language, 1);
        ASSERT_TRUE(locale().SetLocale(row.name));
        EXPECT_EQ(narrow(gettext(u"hot")), row.hot) << row.selected;
        EXPECT_EQ(narrow(dgettext(domain.c_str(), u"servus")), row.servus) << row.selected;
        EXPECT_EQ(narrow(locale().GetLocale().c_str()), row.selected);
    }
    EXPECT_FALSE(locale().SetLocale(u"../de"));
    EXPECT_FALSE(locale().BindTextDomain(u"a/b", u"x"));
    locale().SetLocale(u"de_AT@euro");
    EXPECT_EQ(narrow(locale().GetLanguage().c_str()), "de");
    EXPECT_EQ(narrow(locale().GetTerritory().c_str()), "AT");
}

TEST_F(LocaleSelection, FallsBackToTheTextItself) {
    locale().SetLocale(u"de");
    const char16_t* unknown = u"nobody knows this";
    EXPECT_EQ(gettext(unknown), unknown);
    EXPECT_EQ(gettext(nullptr), nullptr);
    EXPECT_EQ(dpgettext(u"no such domain", u"menu", unknown), unknown);
    const char16_t *one = u"one", *more = u"more";
    EXPECT_EQ(ngettext(one, more, 1), one);
    EXPECT_EQ(npgettext(u"c", one, more, 0), more);
    EXPECT_EQ(narrow(pgettext(nullptr, u"hot")), "heiß");

    struct Own : ITranslator {
        const char16_t* Translate(const char16_t*, const char16_t* text) const override {
            return std::u16string_view(text) == u"hot" ? u"glühend" : nullptr;
        }
        const char16_t* TranslatePlural(const char16_t*, const char16_t*, uint64_t) const override { return nullptr; }
    };
    ASSERT_TRUE(locale().AddTranslator(domain.c_str(), TSharedPtr<ITranslator>(new Own)));
    EXPECT_EQ(narrow(gettext(u"hot")), "glühend");
}

TEST_F(LocaleSelection, ThreadsLookUpWhileTheLocaleChanges) {
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    locale().SetLocale(u"de");
    CThread readers[3];
    for (CThread& reader : readers) {
        reader.Create([&] {
            while (!stop) {
                const std::u16string_view hot = gettext(u"hot");
                if (hot != u"heiß" && hot != u"chaud" && hot != u"hot") ++wrong;
            }
        });
    }
    for (int i = 0; i < 300; ++i) locale().SetLocale(i % 3 == 0 ? u"fr_FR" : i % 3 == 1 ? u"C" : u"de_DE");
    stop = true;
    for (CThread& reader : readers) reader.Join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace qv
