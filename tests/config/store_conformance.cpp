#include "config/store_conformance.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <optional>
#include <random>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/values.h"

namespace qv::test {
namespace {

/// "name", "name/" for a section, "name=" for a value, "name=/" for both, joined by blanks.
std::string listing(const IConfigStore& store, const char16_t* path = u"") {
    std::string all;
    for (const IConfigStore::SChild& child : store.GetChildren(path)) {
        all.append(all.empty() ? "" : " ").append(child.name.GetUTF8());
        all.append(child.hasValue ? "=" : "").append(child.isSection ? "/" : "");
    }
    return all;
}

TEST_P(StoreConformance, EveryTypeComesBackBitForBit) {
    using Limits = std::numeric_limits<double>;
    const float narrowNan = std::bit_cast<float>(0xFFC12345u);
    const double wideNan = std::bit_cast<double>(0xFFF0000000000001);
    const double reals[] = {0.1, -0.0, Limits::denorm_min(), Limits::max(), -Limits::infinity(), Limits::quiet_NaN()};
    uint8_t bytes[256];
    for (int i = 0; i < 256; ++i) bytes[i] = static_cast<uint8_t>(i);

    store().SetBool(u"t/bool", true);
    store().SetInt8(u"t/i8", -128);
    store().SetUInt8(u"t/u8", 255);
    store().SetInt16(u"t/i16", -32768);
    store().SetUInt16(u"t/u16", 65535);
    store().SetInt32(u"t/i32", std::numeric_limits<int32_t>::min());
    store().SetUInt32(u"t/u32", 4294967295u);
    store().SetInt64(u"t/i64", std::numeric_limits<int64_t>::min());
    store().SetUInt64(u"t/u64", ~uint64_t{0});
    store().SetFlt32(u"t/f32", narrowNan);
    store().SetFlt64(u"t/f64", wideNan);
    for (int i = 0; i < 6; ++i) store().SetFlt64(CString::FromFormat(u"t/reals/%d", i), reals[i]);
    EXPECT_TRUE(store().SetBlob(u"t/blob", bytes, sizeof bytes));
    for (const bool again : {false, true}) {
        if (again) reopen();
        EXPECT_TRUE(store().GetBool(u"t/bool"));
        EXPECT_EQ(store().GetInt8(u"t/i8"), -128);
        EXPECT_EQ(store().GetUInt8(u"t/u8"), 255);
        EXPECT_EQ(store().GetInt16(u"t/i16"), -32768);
        EXPECT_EQ(store().GetUInt16(u"t/u16"), 65535);
        EXPECT_EQ(store().GetInt32(u"t/i32"), std::numeric_limits<int32_t>::min());
        EXPECT_EQ(store().GetUInt32(u"t/u32"), 4294967295u);
        EXPECT_EQ(store().GetInt64(u"t/i64"), std::numeric_limits<int64_t>::min());
        EXPECT_EQ(store().GetUInt64(u"t/u64"), ~uint64_t{0});
        EXPECT_EQ(std::bit_cast<uint32_t>(store().GetFlt32(u"t/f32")), std::bit_cast<uint32_t>(narrowNan));
        EXPECT_EQ(std::bit_cast<uint64_t>(store().GetFlt64(u"t/f64")), std::bit_cast<uint64_t>(wideNan));
        for (int i = 0; i < 6; ++i) {
            const double real = store().GetFlt64(CString::FromFormat(u"t/reals/%d", i));
            EXPECT_EQ(std::bit_cast<uint64_t>(real), std::bit_cast<uint64_t>(reals[i])) << reals[i];
        }
        CMemFile blob;
        ASSERT_TRUE(store().ReadBlob(u"t/blob", blob));
        EXPECT_EQ(std::string(blob.data(), blob.data() + blob.size()), std::string(bytes, bytes + 256));
        for (const auto& [path, type] : {std::pair(u"t/i16", CVariant::typeInt16), {u"t/blob", CVariant::typeBlob}}) {
            const CVariant::EType found = store().GetType(path);
            EXPECT_TRUE(found == type || (!GetParam().keepsTypes && found == CVariant::typeString)) << found;
        }
        EXPECT_EQ(store().GetType(u"t"), CVariant::typeUndefined);
    }
}

TEST_P(StoreConformance, EveryTextComesBack) {
    std::vector<CString> texts{u"plain",
                               u"; no comment",
                               u"# none",
                               u"[x]",
                               u"a=b",
                               u"\"quoted\"",
                               u"'",
                               u"a\\nb\\",
                               u"\\",
                               u"<&amp;>\"'",
                               u"]]>",
                               u"two\nlines",
                               u"cr\rlf\r\nend",
                               u"\u00B0\u20AC\U0001F321",
                               u"a\tb",
                               u"null",
                               u"%s%n",
                               u"a;b#c",
                               u"$(x)"};
    if (GetParam().keepsEmptyText) texts.push_back(u"");
    if (GetParam().keepsSpaceAround) {
        for (const char16_t* text : {u" ", u" both ", u"\ttab", u"end\n", u"\r"}) texts.push_back(text);
    }
    std::string order;
    for (size_t i = 0; i < texts.size(); ++i) {
        EXPECT_TRUE(store().SetString(CString::FromFormat(u"texts/v%d", static_cast<int>(i)), texts[i]));
        order.append(i == 0 ? "v" : " v").append(std::to_string(i)).append("=");
    }
    const CString longText(100000, u'\u00E4');
    store().SetString(u"long", longText);
    store().SetString(u"cut", std::u16string_view(u"a\xD800z\0b", 5));
    for (const bool again : {false, true}) {
        if (again) reopen();
        for (size_t i = 0; i < texts.size(); ++i) {
            CString back = u"absent";
            EXPECT_TRUE(store().ReadString(CString::FromFormat(u"texts/v%d", static_cast<int>(i)), back));
            EXPECT_EQ(back, texts[i]) << texts[i].GetUTF8();
        }
        EXPECT_EQ(store().GetString(u"long"), longText);
        EXPECT_EQ(store().GetString(u"cut"), u"a\uFFFDz");
        if (GetParam().order != StoreKind::orderNone) {
            EXPECT_EQ(listing(store(), u"texts"), order);
        }
    }
}

TEST_P(StoreConformance, NamesNeedNoEscape) {
    const char16_t* names[] = {
        u" ",   u"a b",   u".",           u"..",    u"a.b", u"\\",  u"c:\\d",          u"[s]",
        u"k=v", u";c",    u"#",           u"\"q\"", u"*?",  u"%41", u"<x a='1'>&amp;", u"\u00C4\u20AC\U0001F321",
        u"con", u"tab\t", u"line\nbreak", u"\r",    u"@",   u"="};
    for (const char16_t* name : names) {
        const CString path = u"names/" + CString(name), value = path + u".";
        EXPECT_TRUE(store().SetString(path, value)) << path.GetUTF8();
        if (!GetParam().keepsSlashAtEnd && CString(name) == u"\\") continue;
        EXPECT_TRUE(store().SetString(u"sections/" + CString(name) + u"/leaf", value)) << path.GetUTF8();
    }
    for (const bool again : {false, true}) {
        if (again) reopen();
        for (const char16_t* name : names) {
            const CString path = u"names/" + CString(name), value = path + u".";
            EXPECT_EQ(store().GetString(path), value) << path.GetUTF8();
            if (!GetParam().keepsSlashAtEnd && CString(name) == u"\\") continue;
            EXPECT_EQ(store().GetString(u"sections/" + CString(name) + u"/leaf"), value) << path.GetUTF8();
        }
        EXPECT_EQ(store().GetChildren(u"names").size(), std::size(names));
        EXPECT_EQ(store().GetChildren(u"sections").size(), std::size(names) - (GetParam().keepsSlashAtEnd ? 0 : 1));
    }
}

TEST_P(StoreConformance, PathsAreNamesBetweenSlashes) {
    store().SetInt32(u"/View//Palette/Name/", 1);
    store().SetInt32(u"view/PALETTE/name", 2);
    store().SetInt32(u"\u00C4rger", 3);
    for (const bool again : {false, true}) {
        if (again) reopen();
        EXPECT_EQ(store().GetInt32(u"View/palette//NAME"), 2);
        EXPECT_EQ(store().GetInt32(u"\u00E4RGER"), 3);
        EXPECT_EQ(listing(store(), u"/VIEW/"), "Palette/");
        EXPECT_EQ(listing(store(), u"view/palette"), "Name=");
        EXPECT_EQ(listing(store(), u"view/palette/name"), "");
        EXPECT_EQ(store().GetChildren().size(), 2u);
    }
    ClearDiagnostic();
    EXPECT_FALSE(store().SetInt32(u"//", 1));
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_FALSE(store().HasValue(u""));
    EXPECT_TRUE(store().HasSection(u"/"));
}

TEST_P(StoreConformance, AReadGivesItsFallbackForWhatIsNoSuchValue) {
    store().SetString(u"text", u"12 apples");
    store().SetInt32(u"number", 300);
    EXPECT_EQ(store().GetInt32(u"absent", -1), -1);
    EXPECT_EQ(store().GetString(u"absent", u"none"), u"none");
    ClearDiagnostic();
    EXPECT_EQ(store().GetInt32(u"text", -1), -1);
    EXPECT_EQ(LastDiagnostic().found, u"12 apples");
    EXPECT_EQ(store().GetUInt8(u"number", 7), 7);
    EXPECT_EQ(store().GetFlt64(u"number"), 300.0);
    EXPECT_TRUE(store().GetBool(u"number"));
    EXPECT_EQ(store().GetString(u"number"), u"300");
    CMemFile blob;
    EXPECT_FALSE(store().ReadBlob(u"number", blob));
    store().SetString(u"number", u"replaced");
    EXPECT_EQ(store().GetString(u"number"), u"replaced");
    EXPECT_FALSE(store().SetValue(u"number", {CVariant::typeEnum, u"1"}));
}

TEST_P(StoreConformance, SectionsAreStoresOfTheirOwn) {
    CConfigSection section = store().Section(u"a//b/");
    EXPECT_FALSE(store().HasSection(u"a"));
    section.SetInt32(u"c/d", 4);
    CConfigSection inner = section.Section(u"c").Section(u"");
    EXPECT_EQ(inner.GetPath(), u"a/b/c");
    EXPECT_EQ(inner.GetInt32(u"d"), 4);
    EXPECT_FALSE(inner.SetInt32(u"", 1));
    EXPECT_EQ(listing(section), "c/");
    EXPECT_TRUE(inner.Remove(u""));
    EXPECT_FALSE(store().Exists(u"a"));
    EXPECT_TRUE(CVariant(2, TArray<CVariant::SEnumValue>{{u"one", 1}, {u"two", 2}}).Save(section));
    reopen();
    CVariant back;
    EXPECT_TRUE(back.Load(store().Section(u"A/B")));
    EXPECT_EQ(back.ToString(), u"two");
    EXPECT_EQ(back.GetEnumCount(), 2u);
}

/// The tree in its simplest form, against which random operations are checked.
struct Model {
    CString name;
    std::optional<CString> value;
    std::vector<Model> children;

    Model* child(const CString& wanted, bool create) {
        for (Model& one : children) {
            if (one.name.EqualsNoCase(wanted)) return &one;
        }
        if (!create) return nullptr;
        children.push_back({wanted, {}, {}});
        return &children.back();
    }
    /// Drops what is empty; true when nothing is left.
    bool prune() {
        std::erase_if(children, [](Model& one) { return one.prune(); });
        return children.empty() && !value;
    }
    void dropValuesOfSections() {
        if (!children.empty()) value.reset();
        for (Model& one : children) one.dropValuesOfSections();
    }
    /// The whole tree, as exactly as a store of that kind keeps it.
    std::string text(const StoreKind& kind) const {
        std::vector<std::string> parts;
        for (const Model& one : children) {
            std::string part = one.name.GetUTF8();
            if (!kind.keepsNewSpelling) std::transform(part.begin(), part.end(), part.begin(), ::tolower);
            if (one.value) part.append("=").append(one.value->GetUTF8());
            parts.push_back(part.append("{").append(one.text(kind)).append("}"));
        }
        if (kind.order != StoreKind::orderAsSet) std::sort(parts.begin(), parts.end());
        std::string all;
        for (const std::string& part : parts) all += part;
        return all;
    }
};

Model contents(const IConfigStore& store, const CString& path = u"") {
    Model model;
    CString value;
    if (store.ReadString(path, value)) model.value = value;
    for (const IConfigStore::SChild& child : store.GetChildren(path)) {
        const CString below = path + u"/" + child.name;
        model.children.push_back(contents(store, below));
        model.children.back().name = child.name;
        EXPECT_EQ(child.hasValue, store.HasValue(below));
        EXPECT_EQ(child.isSection, store.HasSection(below));
    }
    return model;
}

TEST_P(StoreConformance, RandomOperationsAgreeWithAModel) {
    const char16_t* names[] = {u"a", u"B", u"c", u"A", u"b"};
    std::mt19937 engine(4);
    const auto random = [&](unsigned below) { return static_cast<unsigned>(engine() % below); };
    Model model;
    for (int step = 0; step < 1500; ++step) {
        CString path;
        Model* at = &model;
        std::vector<CString> way;
        for (unsigned depth = 1 + random(3); depth-- > 0;) way.push_back(names[random(5)]);
        for (const CString& name : way) path += u"/" + name;
        const unsigned what = random(10);
        for (const CString& name : way) at = at == nullptr ? nullptr : at->child(name, what < 6);
        if (what < 6) {
            at->value = CString::FromFormat(u"%d", step);
            EXPECT_TRUE(store().SetInt32(path, step));
        } else if (what == 6) {
            if (at != nullptr) at->value.reset();
            EXPECT_TRUE(store().RemoveValue(path));
        } else if (what == 7) {
            if (at != nullptr) at->children.clear();
            EXPECT_TRUE(store().RemoveSection(path));
        } else if (what == 8) {
            if (at != nullptr) *at = {at->name, {}, {}};
            EXPECT_TRUE(store().Remove(path));
        } else if (step % 50 == 9) {
            reopen();
            if (!GetParam().keepsValuesOfSections) model.dropValuesOfSections();
        }
        model.prune();
        ASSERT_EQ(contents(store()).text(GetParam()), model.text(GetParam())) << "step " << step;
    }
    CMemStore copy;
    EXPECT_TRUE(copy.CopyFrom(store()));
    EXPECT_EQ(contents(copy).text({}), contents(store()).text({}));
    EXPECT_TRUE(store().Remove(u""));
    EXPECT_EQ(listing(store()), "");
    EXPECT_TRUE(store().CopyFrom(copy));
    EXPECT_EQ(contents(store()).text(GetParam()), contents(copy).text(GetParam()));
}

TEST_P(StoreConformance, DeepAndWideTrees) {
    CString deep;
    for (int i = 0; i < 127; ++i) deep += u"d/";
    EXPECT_TRUE(store().SetInt32(deep + u"leaf", 1));
    EXPECT_FALSE(store().SetInt32(deep + u"too/deep", 1));
    EXPECT_FALSE(store().Section(deep).SetInt32(u"too/deep", 1));
    for (int i = 0; i < 1000; ++i) store().SetInt32(CString::FromFormat(u"wide/%d", i), i);
    reopen();
    EXPECT_EQ(store().GetInt32(deep + u"leaf"), 1);
    EXPECT_EQ(store().GetChildren(u"wide").size(), 1000u);
    EXPECT_EQ(store().GetInt32(u"wide/999"), 999);
}

class MemStoreUnderTest : public StoreUnderTest {
public:
    IConfigStore& store() override { return *m_store; }
    void reopen() override {
        auto copy = std::make_unique<CMemStore>(*m_store);
        m_store->Clear();
        EXPECT_TRUE(m_store->GetChildren().empty());
        m_store = std::move(copy);
    }

private:
    std::unique_ptr<CMemStore> m_store = std::make_unique<CMemStore>();
};

INSTANTIATE_TEST_SUITE_P(Memory, StoreConformance,
                         ::testing::Values(StoreKind{.name = "CMemStore",
                                                     .make = [] { return std::make_unique<MemStoreUnderTest>(); },
                                                     .keepsTypes = true}),
                         nameOfStore);

}  // namespace
}  // namespace qv::test
