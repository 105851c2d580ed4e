#include "qv/xml_file.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qv/diagnostic.h"

namespace qv {
namespace {

using CNode = CXMLFile::CNode;

TSharedPtr<IFile> memoryFile(const std::string& bytes) {
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return file;
}

bool load(CXMLFile& xml, const std::string& bytes) { return xml.Load(memoryFile(bytes)); }

std::string saved(const CXMLFile& xml) {
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    EXPECT_TRUE(xml.Save(TSharedPtr<IFile>(file)));
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

/// What a document looks like after a load and a save; "(refused)" when it does not load.
std::string reformatted(const std::string& bytes) {
    CXMLFile xml;
    if (load(xml, bytes)) return saved(xml);
    EXPECT_EQ(xml.GetRoot(), nullptr);
    EXPECT_FALSE(xml.IsValid());
    EXPECT_FALSE(LastDiagnostic().expected.IsEmpty()) << bytes;
    return "(refused)";
}

const std::string everything =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding='UTF-8'?>\n"
    "<!-- a - b -- c <raw> & --->\n"
    "<Root one=bare two='it\"s' three=\"&quot;&APOS;&lt;&gt;&amp;&#13;&#10;\" two = \"again\">\n"
    "  head &amp;lt; &unknown; \xC2\xB0\xF0\x9F\x8C\xA1\n"
    "  <empty/><leaf >text\nline</LEAF><?go now='1'?>\n"
    "  <!---->tail\n"
    "</Root >\n"
    "<second></second>";

const std::string everythingSaved =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<!-- a - b -- c <raw> & --->\r\n"
    "<Root one=\"bare\" two=\"it&quot;s\" three=\"&quot;&apos;&lt;&gt;&amp;&#13;&#10;\" two=\"again\">\r\n"
    "head &amp;lt; &amp;unknown; \xC2\xB0\xF0\x9F\x8C\xA1tail\r\n"
    "\t<empty/>\r\n"
    "\t<leaf>text\nline</leaf>\r\n"
    "\t<?go now=\"1\"?>\r\n"
    "\t<!---->\r\n"
    "</Root>\r\n"
    "<second/>\r\n";

TEST(XmlFile, EveryConstructIsSavedInTheFixedLayout) {
    EXPECT_EQ(reformatted(everything), everythingSaved);
    EXPECT_EQ(reformatted(everythingSaved), everythingSaved);
}

TEST(XmlFile, EveryPrefixLoadsOrFailsWithAReason) {
    for (size_t size = 0; size < everything.size(); ++size) reformatted(everything.substr(0, size));
}

TEST(XmlLoad, ReadsByItsOwnRules) {
    const struct {
        const char* document;
        const char* layout;
    } rows[] = {
        {"", ""},
        {" \r\n\t\v\f", ""},
        {"\xEF\xBB\xBF", ""},
        {"<a/> \n", "<a/>\r\n"},
        {"<a></A>", "<a/>\r\n"},
        {"<a></ a >", "<a/>\r\n"},
        {"<a></b>", "(refused)"},
        {"<a><b></a></b>", "(refused)"},
        {"<a", "(refused)"},
        {"<a>", "(refused)"},
        {"text", "(refused)"},
        {"<a/>text", "(refused)"},
        {"<a>1 > 0</a>", "(refused)"},
        {"<a b></a>", "(refused)"},
        {"<a b='1></a>", "(refused)"},
        {"<a/ >", "(refused)"},
        {"<!DOCTYPE a><a/>", "(refused)"},
        {"<![CDATA[x]]>", "(refused)"},
        {"<!-- a", "(refused)"},
        {"<!-->", "(refused)"},
        {"<!--->", "(refused)"},
        {"<!------>", "<!------>\r\n"},
        {"< a b = c/>", "<a b=\"c\"/>\r\n"},
        {"<a b=c d='e'f=\"g\"/>", "<a b=\"c\" d=\"e\" f=\"g\"/>\r\n"},
        {"<?xml?><a/>", "<?xml?>\r\n<a/>\r\n"},
        {"<?a?b c='1'?>", "<?a?b c=\"1\"?>\r\n"},
        {"<a> text <b/> more </a>", "<a>\r\ntextmore\r\n\t<b/>\r\n</a>\r\n"},
        {"<a>&#10; x &#13;</a>", "<a>\n x \r</a>\r\n"},
        {"<a&amp;b></a&AMP;b>", "<a&amp;b/>\r\n"},
        {"<a>&amp</a>", "<a>&amp;amp</a>\r\n"},
        {"<a>&x&lt;</a>", "<a>&amp;x&amp;lt;</a>\r\n"},
        {"<a>&23456789012345;</a>", "<a>&amp;23456789012345;</a>\r\n"},
        {"<a>&234567890123456;</a>", "(refused)"},
        {"<a>&23456789012345</a>", "<a>&amp;23456789012345</a>\r\n"},
        {"<a b='&234567890123456'/>", "(refused)"},
        {"<a>\xFF</a>", "<a>\xEF\xBF\xBD</a>\r\n"},
    };
    for (const auto& row : rows) EXPECT_EQ(reformatted(row.document), row.layout) << row.document;
}

TEST(XmlLoad, AFailureSaysWhereAndLeavesThePosition) {
    CXMLFile xml;
    ASSERT_TRUE(load(xml, "<old/>"));
    const TSharedPtr<IFile> file = memoryFile("<a>\n  <b c=\"\n\"/>\n  <d e></d>\n</a>");
    ClearDiagnostic();
    EXPECT_FALSE(xml.Load(file));
    EXPECT_FALSE(xml.IsValid());
    EXPECT_STREQ(LastDiagnostic().ToString().GetUTF8(),
                 "expected '=' behind the name of an attribute, found '>' (line 4) (byte 23)");
    EXPECT_EQ(file->GetPosition(), 23);
    EXPECT_FALSE(xml.Load(TSharedPtr<IFile>()));
}

TEST(XmlFile, PathsGoThroughTheFileSystem) {
    const CString path = fileSystem().GetTempFilename();
    CXMLFile xml;
    ASSERT_TRUE(load(xml, everything));
    EXPECT_TRUE(xml.Save(path.c_str()));
    CXMLFile back;
    EXPECT_TRUE(back.Load(&fileSystem(), path.c_str()));
    EXPECT_EQ(saved(back), everythingSaved);
    EXPECT_TRUE(fileSystem().DeleteFileW(path.c_str()));
    ClearDiagnostic();
    EXPECT_FALSE(back.Load(path.c_str()));
    EXPECT_FALSE(back.IsValid());
    EXPECT_STREQ(LastDiagnostic().file.GetUTF8(), path.GetUTF8());
    EXPECT_FALSE(
        xml.Load(xml.Curr()->attributes[u"version"].c_str()));  // no such file, and the text goes with the tree
    EXPECT_FALSE(back.Load(nullptr, path.c_str()));
    EXPECT_FALSE(back.Save(u"/no such folder/x.xml"));
}

TEST(XmlLoad, ItemsMayBeLongerThanABlock) {
    const std::string text(700000, 'x');
    const std::string name(300000, 'n');
    const std::string document =
        "<" + name + " a=\"" + text + "&lt;\">\r\n" + text + "\r\n<!--" + text + "-->\r\n</" + name + ">\r\n";
    CXMLFile xml;
    ASSERT_TRUE(load(xml, document));
    EXPECT_EQ(xml.GetAttribute(u"a").length(), text.size() + 1);
    EXPECT_EQ(xml.GetValue().length(), text.size());
    EXPECT_EQ(xml.Curr()->Child()->value.length(), text.size());
    EXPECT_EQ(xml.Curr()->name.length(), name.size());
}

TEST(XmlLoad, ABlockMayEndAnywhere) {
    using namespace std::string_literals;
    const std::string nuls = "<nul a=\"1\0&lt;\">\0x\0</nul>"s;
    const std::string document = everything.substr(3) + nuls, layout = everythingSaved + nuls + "\r\n";
    for (size_t shift = 0; shift <= document.size(); ++shift) {
        ASSERT_EQ(reformatted(std::string(0x40000 - shift, ' ') + document), layout) << shift;
    }
}

TEST(XmlLoad, KeptTextBecomesChildrenThatAreNotSaved) {
    CXMLFile xml;
    xml.SetKeepText(true);
    ASSERT_TRUE(load(xml, "<a>one<b/>two</a>"));
    ASSERT_EQ(xml.Curr()->NumChildren(), 3u);
    EXPECT_EQ(xml.Curr()->FirstChild()->type, CXMLFile::NODETYPE_TEXT);
    EXPECT_EQ(xml.Curr()->FirstChild()->value, u"one");
    EXPECT_EQ(xml.Curr()->LastChild()->value, u"two");
    EXPECT_EQ(saved(xml), "<a>\r\nonetwo\r\n\t<b/>\r\n</a>\r\n");
}

TEST(XmlNode, OneNodeIsReadWhereTheFileStandsAndWrittenWithItsIndent) {
    const TSharedPtr<IFile> file = memoryFile("<a/> <b x='1'><c/></b>rest");
    CNode node(u"old", u"value");
    ASSERT_TRUE(node.Load(*file));
    EXPECT_EQ(node.name, u"a");
    EXPECT_TRUE(node.value.IsEmpty());
    ASSERT_TRUE(node.Load(*file));
    EXPECT_EQ(file->GetPosition(), 22);
    EXPECT_EQ(node.Child()->Parent(), &node);
    const TSharedPtr<CMemFile> out = CMemFile::Create();
    EXPECT_TRUE(node.Save(*out, 1));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(out->GetData()), out->size()),
              "\t<b x=\"1\">\r\n\t\t<c/>\r\n\t</b>\r\n");
    EXPECT_FALSE(node.Load(*file));
    EXPECT_FALSE(node.HasChildren());
}

TEST(XmlNode, DepthIsBoundedByMemoryAlone) {
    constexpr int depth = 1000000;
    std::string document;
    for (int i = 0; i < depth; ++i) document += "<a>";
    CXMLFile xml;
    EXPECT_FALSE(load(xml, document));
    for (int i = 0; i < depth; ++i) document += "</a>";
    ASSERT_TRUE(load(xml, document));
    std::unique_ptr<CNode> copy(xml.Curr()->Duplicate());
    int levels = 1;
    for (const CNode* node = copy.get(); (node = node->Child()) != nullptr;) ++levels;
    EXPECT_EQ(levels, depth);

    // One tab for each level: a document this deep is saved only in a small form.
    document.clear();
    for (int i = 0; i < 3000; ++i) document = "<a>" + document + "</a>";
    EXPECT_EQ(reformatted(reformatted(document)), reformatted(document));
}

TEST(XmlNode, ANodeOutlivesItsDocument) {
    std::vector<std::unique_ptr<CNode>> kept;
    for (const int nodes : {1, 20, 21, 3000}) {
        std::string document;
        for (int i = 0; i < nodes; ++i) document += "<n a='" + std::to_string(i) + "'/>";
        CXMLFile xml;
        ASSERT_TRUE(load(xml, document) && xml.Last());
        kept.emplace_back(xml.Detatch());
    }
    std::thread([&kept] {
        for (const auto& node : kept) EXPECT_EQ(node->name, u"n");
        EXPECT_EQ(kept.back()->GetAttribute(u"a"), u"2999");
        kept.clear();
    }).join();
}

TEST(XmlNode, FindsByNameInAnyCase) {
    CXMLFile xml;
    ASSERT_TRUE(load(xml, "<r><a n='1'/><B n='2'/><A n='3'/></r>"));
    const CNode* const first = xml.Curr()->FirstChild();
    EXPECT_EQ(first->Next()->Find(u"a"), first->Last());
    EXPECT_EQ(first->Last()->FindFirst(u"A"), first);
    EXPECT_EQ(first->FindNext(u"b"), first->Next());
    EXPECT_EQ(first->FindNext(u"c"), nullptr);
    EXPECT_EQ(first->Root(), xml.GetRoot());
    EXPECT_EQ(xml.Curr()->FindChild(u"b"), first->Next());
    EXPECT_EQ(xml.Curr()->NumChildren(u"a"), 2u);
    EXPECT_EQ(first->GetAttribute(u"N"), u"1");
    EXPECT_EQ(first->GetAttribute(u"m", u"none"), u"none");
    EXPECT_EQ(first->GetAttribute(u"m"), u"");
}

TEST(XmlNode, AttributesAreAddedWhenTheyAreMissing) {
    CNode node(CXMLFile::NODETYPE_PI, u"xml");
    node.attributes[u"version"] = u"1.0";
    node.attributes[u"VERSION"] = u"1.1";
    node.attributes[u"encoding"] = u"UTF-8";
    EXPECT_EQ(node.attributes.size(), 2u);
    EXPECT_EQ(node.attributes.ConstGetItem(0).value, u"1.1");
    EXPECT_TRUE(node.attributes.Exists(u"Encoding"));
    EXPECT_TRUE(node.attributes.Remove(u"encoding"));
    EXPECT_FALSE(node.attributes.Remove(u"encoding"));
    EXPECT_EQ(node.attributes.size(), 1u);
}

/// The names of the tree in one line, children in brackets, the cursor marked by '*' (past the end: "*]").
std::string drawn(const CXMLFile& xml) {
    std::string text;
    const std::function<void(const CNode*)> draw = [&](const CNode* node) {
        for (; node != nullptr; node = node->Next()) {
            EXPECT_TRUE(node->Next() == nullptr || node->Next()->Prev() == node);
            EXPECT_TRUE(node->Next() != nullptr || node->Last() == node);
            text += node->name.GetUTF8();
            const bool here = node == xml.GetCurr();
            if (here && !xml.IsPastTheEnd()) text += '*';
            if (node->HasChildren()) text += '[', draw(node->Child()), text += ']';
            if (here && xml.IsPastTheEnd()) text += "[*]";
        }
    };
    draw(xml.GetRoot());
    return text;
}

TEST(XmlCursor, InsertsAndRemovesWhereItStands) {
    CXMLFile xml;
    const auto node = [](const char16_t* name) { return new CNode(CString(name)); };
    EXPECT_FALSE(xml.Root() || xml.Parent() || xml.Child(true) || xml.Next() || xml.First() || xml.Remove());
    EXPECT_EQ(xml.Detatch(), nullptr);
    EXPECT_NE(xml.Curr(), nullptr);
    EXPECT_TRUE(xml.Curr()->name.IsEmpty());
    EXPECT_FALSE(xml.Insert(nullptr, true));

    EXPECT_TRUE(xml.InsertChild(node(u"b"), false));
    EXPECT_EQ(drawn(xml), "b*");
    EXPECT_TRUE(xml.Insert(node(u"c"), true));  // behind
    EXPECT_EQ(drawn(xml), "bc*");
    EXPECT_TRUE(xml.Root());
    EXPECT_TRUE(xml.Insert(node(u"a"), false));  // in front
    EXPECT_EQ(drawn(xml), "a*bc");
    EXPECT_FALSE(xml.Child());
    EXPECT_FALSE(xml.IsPastTheEnd());
    EXPECT_FALSE(xml.Child(true));
    EXPECT_EQ(drawn(xml), "a[*]bc");
    EXPECT_EQ(xml.Detatch(), nullptr);
    EXPECT_TRUE(xml.Insert(node(u"1"), false));
    EXPECT_EQ(drawn(xml), "a[1*]bc");
    EXPECT_TRUE(xml.Insert(node(u"0"), false));
    EXPECT_TRUE(xml.Parent());
    EXPECT_TRUE(xml.InsertChild(node(u"2"), true));
    EXPECT_EQ(drawn(xml), "a[012*]bc");
    EXPECT_EQ(xml.NumPeers(), 3u);
    EXPECT_TRUE(xml.Prev());
    const std::unique_ptr<CNode> taken(xml.Detatch());
    EXPECT_EQ(taken->name, u"1");
    EXPECT_EQ(taken->Parent(), nullptr);
    EXPECT_EQ(drawn(xml), "a[02*]bc");
    EXPECT_TRUE(xml.Remove());
    EXPECT_EQ(drawn(xml), "a[0*]bc");
    EXPECT_TRUE(xml.Remove());
    EXPECT_EQ(drawn(xml), "a[*]bc");
    EXPECT_TRUE(xml.Parent());  // out of the empty list
    EXPECT_EQ(drawn(xml), "a*bc");
    EXPECT_FALSE(xml.Child(true));
    EXPECT_TRUE(xml.Next());
    EXPECT_EQ(drawn(xml), "ab*c");
    EXPECT_TRUE(xml.First() && xml.Remove());
    EXPECT_EQ(drawn(xml), "b*c");
    EXPECT_TRUE(xml.Remove() && xml.Remove());
    EXPECT_FALSE(xml.IsValid());
    EXPECT_EQ(xml.GetRoot(), nullptr);
}

TEST(XmlCursor, FindLeavesTheCursorAsTold) {
    CXMLFile xml;
    ASSERT_TRUE(load(xml, "<r><a/><b/><A/><d/></r>"));
    EXPECT_TRUE(xml.FindFirstChild(u"B"));
    EXPECT_EQ(drawn(xml), "r[ab*Ad]");
    EXPECT_TRUE(xml.FindFirst(u"a"));
    EXPECT_EQ(drawn(xml), "r[a*bAd]");
    EXPECT_TRUE(xml.FindNext(u"a"));
    EXPECT_EQ(drawn(xml), "r[abA*d]");
    EXPECT_FALSE(xml.FindFirst(u"x"));
    EXPECT_EQ(drawn(xml), "r[abAd*]");
    EXPECT_FALSE(xml.Next());
    EXPECT_TRUE(xml.Last());
    EXPECT_TRUE(xml.Parent());
    EXPECT_FALSE(xml.FindFirstChild(u"x"));
    EXPECT_EQ(drawn(xml), "r*[abAd]");
}

// Random trees: what is saved loads as the same tree.

class RandomTree {
public:
    explicit RandomTree(uint32_t seed) : m_random(seed) {}

    CNode* node(int depth) {
        const uint32_t kind = pick(10);
        if (kind == 0) return new CNode(CXMLFile::NODETYPE_COMMENT, CString(), word(u" <&-x\n", 6) + u".");
        const bool instruction = kind == 1;
        auto* made = new CNode(instruction ? CXMLFile::NODETYPE_PI : CXMLFile::NODETYPE_ELEMENT, name());
        for (uint32_t i = pick(4); i != 0; --i)
            made->attributes.Add({name(), word(u"<>&\"'\r\n \tz\u00B0\u20AC\U0001F321", 12)});
        if (instruction) return made;
        if (pick(2) == 0) made->value = u"." + word(u"<>&\"'\r\n \tz\u00B0\u20AC\U0001F321", 12) + u".";
        for (uint32_t i = depth == 0 ? 0 : pick(5); i != 0; --i) made->InsertChild(node(depth - 1), pick(2) == 0);
        return made;
    }

private:
    uint32_t pick(uint32_t n) { return static_cast<uint32_t>(m_random() % n); }
    CString name() { return u"n" + word(u"abc&\"'\u00B0", 5); }
    CString word(std::u16string_view letters, uint32_t longest) {
        CString text;
        for (uint32_t i = pick(longest); i != 0; --i) {
            const size_t at = pick(static_cast<uint32_t>(letters.size()));
            // Halves of a pair only come together.
            if ((letters[at] & 0xF800) == 0xD800) {
                text += u"\U0001F321";
            } else {
                text += letters[at];
            }
        }
        return text;
    }

    std::mt19937 m_random;
};

void expectSame(const CNode* a, const CNode* b) {
    for (; a != nullptr && b != nullptr; a = a->Next(), b = b->Next()) {
        EXPECT_EQ(a->type, b->type);
        EXPECT_EQ(a->name, b->name);
        EXPECT_EQ(a->value, b->value);
        ASSERT_EQ(a->attributes.size(), b->attributes.size());
        for (uint32_t i = 0; i < a->attributes.size(); ++i) {
            EXPECT_EQ(a->attributes.ConstGetItem(i).name, b->attributes.ConstGetItem(i).name);
            EXPECT_EQ(a->attributes.ConstGetItem(i).value, b->attributes.ConstGetItem(i).value);
        }
        expectSame(a->Child(), b->Child());
    }
    EXPECT_TRUE(a == nullptr && b == nullptr);
}

TEST(XmlModel, RandomTreesComeBackFromTheFile) {
    for (uint32_t seed = 0; seed < 200; ++seed) {
        RandomTree random(seed);
        CXMLFile xml;
        for (int i = 0; i < 3; ++i) xml.Insert(random.node(4), true);
        CXMLFile back;
        const std::string bytes = saved(xml);
        ASSERT_TRUE(load(back, bytes)) << LastDiagnostic().ToString().GetUTF8() << '\n' << bytes;
        expectSame(xml.GetRoot(), back.GetRoot());
        const std::unique_ptr<CNode> copy(xml.GetRoot()->Duplicate());
        const std::unique_ptr<CNode> other(back.GetRoot()->Duplicate());
        expectSame(copy.get(), other.get());
        ASSERT_FALSE(HasFailure()) << "seed " << seed << '\n' << bytes;
    }
}

}  // namespace
}  // namespace qv
