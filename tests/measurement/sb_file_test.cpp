#include "qv/sb_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using test::bytesOf;
using test::memoryFile;
using CElement = CSBFile::CElement;

std::string operator""_b(const char* text, size_t size) { return std::string(text, size); }

std::string number(uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
    return text;
}

/// The reflected CRC-32 of polynomial 0x04C11DB7, bit by bit.
uint32_t crc32(const std::string& bytes) {
    uint32_t sum = ~0u;
    for (const char byte : bytes) {
        sum ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (0xEDB88320u & (0u - (sum & 1)));
    }
    return ~sum;
}

/// The file around a content: header in front, checksum behind.
std::string wrap(const std::string& content, char version = 0x10) {
    const std::string file = std::string("SBF") + version + "TEST" + number(content.size(), 8) + content;
    return file + number(crc32(file), 4);
}

std::string saved(const CSBFile& tree) {
    const TSharedPtr<IFile> file = CMemFile::Create();
    EXPECT_TRUE(tree.Save(file));
    return bytesOf(*file);
}

bool load(CSBFile& tree, const std::string& bytes) { return tree.Load(memoryFile(bytes)); }

// Every type; the names in the order of their first use.
const std::string goldenContent =
    "\x12\x00\x03"_b + "all\x01"_b + "b\x02i1\x02u1\x02i2\x02u2\x02i4\x02u4\x02i8\x02u8\x02"_b + "f4\x02"_b +
    "f8\x01g\x01s\x01x\x02\xC3\xA9\x05other"_b +
    "\x02\x00"_b                                                              // the root, with children
    "\x07\x0E"_b                                                              // all: children, a sibling, 14 attributes
    "\x02\x10\x01\x03\x11\xFE\x04\x12\xFE\x05\x21\xFE\xFF\x06\x22\x02\x01"_b  // b i1 u1 i2 u2
    "\x07\x41\xFE\xFF\xFF\xFF\x08\x42\x04\x03\x02\x01"_b                      // i4 u4
    "\x09\x81\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x0A\x82\x08\x07\x06\x05\x04\x03\x02\x01"_b  // i8 u8
    "\x0B\x43\x00\x00\xC0\x3F\x0C\x83\x00\x00\x00\x00\x00\x00\x04\xC0"_b                  // f4 f8
    "\x0D\x90\x04\x03\x02\x01\x06\x05\x08\x07\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10"_b          // g
    "\x0E\xA0\x02\xC3\xA9\x0F\xA1\x11"_b +                                                // s and the blob x
    std::string(17, '\xEE') +
    "\x40\x00\x44\x00"_b;  // the child; other

void buildGolden(CSBFile& tree) {
    tree.SetIdentifier("TEST");
    tree.InsertChild(new CElement(u"all"), true);
    CElement& all = *tree.Curr();
    all.SetBool(u"b", true);
    all.SetInt8(u"i1", -2);
    all.SetUInt8(u"u1", 254);
    all.SetInt16(u"i2", -2);
    all.SetUInt16(u"u2", 0x0102);
    all.SetInt32(u"i4", -2);
    all.SetUInt32(u"u4", 0x01020304);
    all.SetInt64(u"i8", -2);
    all.SetUInt64(u"u8", 0x0102030405060708);
    all.SetFlt32(u"f4", 1.5F);
    all.SetFlt64(u"f8", -2.5);
    all.SetGUID(u"g", GUID{0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}});
    all.SetString(u"s", u"\u00E9");
    all.SetBlob(u"x", std::string(17, '\xEE').data(), 17);
    tree.Insert(new CElement(u"other"), true);
    tree.Prev();
    tree.InsertChild(new CElement(u"\u00E9"), true);
}

TEST(SbFile, MatchesGoldenBytesAndReadsThemBack) {
    CSBFile tree, read;
    buildGolden(tree);
    EXPECT_EQ(saved(tree), wrap(goldenContent));
    TSharedPtr<IFile> file = memoryFile("junk" + wrap(goldenContent) + "more");
    file->SetPosition(4);
    swapFlag(*file) = true;
    ASSERT_TRUE(read.Load(file));
    EXPECT_EQ(file->GetRemaining(), 4);
    EXPECT_STREQ(read.GetIdentifier(), "TEST");
    ASSERT_TRUE(read.FindFirstChild(u"ALL"));
    const CElement& all = *read.Curr();
    EXPECT_TRUE(all.GetBool(u"B"));
    EXPECT_EQ(all.GetInt8(u"i1"), -2);
    EXPECT_EQ(all.GetUInt16(u"u2"), 0x0102);
    EXPECT_EQ(all.GetUInt64(u"u8"), 0x0102030405060708u);
    EXPECT_EQ(all.GetFlt32(u"f4"), 1.5F);
    EXPECT_EQ(all.GetFlt64(u"f8"), -2.5);
    EXPECT_EQ(all.GetGUID(u"g").Data4[7], 16);
    EXPECT_EQ(all.GetString(u"s"), u"\u00E9");
    uint32_t size = 0;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(all.GetBlob(u"x", size)), 17), std::string(17, '\xEE'));
    EXPECT_EQ(size, 17u);
    EXPECT_EQ(all.GetInt32(u"absent", 5), 5);
    EXPECT_EQ(all.GetString(u"b", u"no text"), u"no text");
    EXPECT_EQ(saved(read), wrap(goldenContent));
}

TEST(SbFile, NumbersReadInEveryTypeThatHoldsThem) {
    CElement e;
    const auto as = [&e](auto set) {
        set();
        return std::vector<double>{e.GetInt8(u"n", 99) * 1.0,  e.GetUInt8(u"n", 99) * 1.0,
                                   e.GetInt32(u"n", 99) * 1.0, static_cast<double>(e.GetUInt64(u"n", 99)),
                                   e.GetFlt32(u"n", 99),       e.GetFlt64(u"n", 99)};
    };
    const double inf = std::numeric_limits<double>::infinity();
    using Row = std::vector<double>;  // Int8, UInt8, Int32, UInt64, Flt32, Flt64; 99 where it does not fit
    EXPECT_EQ(as([&] { e.SetInt32(u"n", 7); }), (Row{7, 7, 7, 7, 7, 7}));
    EXPECT_EQ(as([&] { e.SetInt16(u"n", -128); }), (Row{-128, 99, -128, 99, -128, -128}));
    EXPECT_EQ(as([&] { e.SetUInt64(u"n", ~uint64_t{0}); }), (Row{99, 99, 99, 18446744073709551615.0, 99, 99}));
    EXPECT_EQ(as([&] { e.SetInt64(u"n", INT64_MAX); }), (Row{99, 99, 99, 9223372036854775807.0, 99, 99}));
    EXPECT_EQ(as([&] { e.SetInt32(u"n", 16777217); }), (Row{99, 99, 16777217, 16777217, 99, 16777217}));
    EXPECT_EQ(as([&] { e.SetFlt32(u"n", 2147483648.0F); }),
              (Row{99, 99, 99, 2147483648.0, 2147483648.0, 2147483648.0}));
    EXPECT_EQ(as([&] { e.SetFlt64(u"n", 0.1); }), (Row{99, 99, 99, 99, 99, 0.1}));
    EXPECT_EQ(as([&] { e.SetFlt64(u"n", 1e300); }), (Row{99, 99, 99, 99, 99, 1e300}));
    EXPECT_EQ(as([&] { e.SetFlt64(u"n", -inf); }), (Row{99, 99, 99, 99, -inf, -inf}));
    EXPECT_EQ(as([&] { e.SetBool(u"n", true); }), Row(6, 99));
    e.SetFlt32(u"n", std::nanf(""));
    EXPECT_TRUE(std::isnan(e.GetFlt64(u"n")) && e.GetInt32(u"n", 99) == 99);
    EXPECT_EQ(e.attributes.size(), 1u);
    EXPECT_FALSE(e.attributes[0].value.Assign(CSBFile::TYPE_BOOL, "\2", 1)) << "no file may have it";
    EXPECT_TRUE(std::isnan(e.GetFlt32(u"n")));
}

/// A tree that is nothing but its bytes: an encoder on its own beside the one under test.
struct Model {
    std::vector<std::string> names;
    std::string elements;

    static std::string varint(size_t n) {
        return n < 128 ? std::string(1, static_cast<char>(n)) : static_cast<char>(n | 128) + varint(n >> 7);
    }
    size_t nameIndex(const std::string& name) {
        const auto at = std::find(names.begin(), names.end(), name);
        return at != names.end() ? static_cast<size_t>(at - names.begin()) : (names.push_back(name), names.size() - 1);
    }
    void addRandom(std::mt19937& random, CElement& to, bool hasNext, int depth) {
        const size_t children = depth == 0 ? 0 : random() % 5;
        elements += varint(nameIndex(CStringMB(to.name).c_str()) * 4 + (children != 0 ? 2 : 0) + hasNext);
        const size_t attributes = random() % 4;
        elements += varint(attributes);
        for (size_t i = 0; i < attributes; ++i) {
            // Unique within the element, repeated among elements.
            const std::string name = std::string(i + 1, static_cast<char>('A' + random() % 20));
            const std::string payload(random() % 300, static_cast<char>(random()));
            const bool known = random() % 2 != 0;
            const auto type = static_cast<CSBFile::TYPE>(known ? CSBFile::TYPE_BLOB : 0xAF);
            to.attributes.Ensure(CString(name.c_str()))
                ->Assign(type, payload.data(), static_cast<uint32_t>(payload.size()));
            elements += varint(nameIndex(name)) + static_cast<char>(type) + varint(payload.size()) + payload;
        }
        for (size_t i = 0; i < children; ++i) {
            to.InsertChild(new CElement(CString(std::to_string(random() % 60).c_str())), true);
            addRandom(random, *to.LastChild(), i + 1 < children, depth - 1);
        }
    }
    std::string content() const {
        std::string table = varint(names.size());
        for (const std::string& name : names) table += varint(name.size()) + name;
        return table + elements;
    }
};

TEST(SbFile, RandomTreesMatchAnEncoderOfTheirOwnAndSurviveTheRoundTrip) {
    std::mt19937 random(1);
    for (int run = 0; run < 60; ++run) {
        Model model;
        CSBFile tree("TEST"), read;
        model.addRandom(random, *tree.GetRoot(), false, run % 7);
        ASSERT_EQ(saved(tree), wrap(model.content())) << run;
        ASSERT_TRUE(load(read, wrap(model.content())));
        EXPECT_EQ(saved(read), wrap(model.content()));
        CSBFile holder("TEST");
        holder.InsertChild(tree.GetRoot()->Duplicate(), true);
        tree.Destroy();  // the copy shares nothing with it
        model.elements.insert(0, "\x02\x00"_b);
        EXPECT_EQ(saved(holder), wrap(model.content()));
    }
}

/// The cursor's tree again, in a form that cannot go wrong in the same way.
struct Node {
    std::string id;
    Node* parent = nullptr;
    std::vector<std::unique_ptr<Node>> children;

    std::vector<std::unique_ptr<Node>>& peers() { return parent->children; }
    size_t place() {
        size_t i = 0;
        while (parent != nullptr && peers()[i].get() != this) ++i;
        return i;
    }
    Node* peer(size_t i) { return parent != nullptr && i < peers().size() ? peers()[i].get() : nullptr; }
    Node* child(size_t i) { return i < children.size() ? children[i].get() : nullptr; }
    Node* add(size_t i, const std::string& name) {
        return children
            .insert(children.begin() + static_cast<ptrdiff_t>(i), std::make_unique<Node>(Node{name, this, {}}))
            ->get();
    }
};

TEST(SbFile, TheCursorFollowsASimpleModel) {
    std::mt19937 random(2);
    CSBFile tree;
    Node root;
    Node* at = &root;
    for (int step = 0; step < 20000; ++step) {
        const std::string id = std::to_string(step);
        const bool flag = random() % 2 != 0;
        bool moved = true;
        Node* to = nullptr;
        switch (random() % 10) {
            case 0:
                moved = tree.InsertChild(new CElement(CString(id.c_str())), flag);
                to = at->add(flag ? at->children.size() : 0, id);
                break;
            case 1:
                if (at == &root) continue;
                moved = tree.Insert(new CElement(CString(id.c_str())), flag);
                to = at->parent->add(at->place() + flag, id);
                break;
            case 2: {
                moved = flag ? tree.Remove() : [&] {
                    const std::unique_ptr<CElement> taken(tree.Detatch());
                    return taken != nullptr && taken->Parent() == nullptr && taken->Next() == nullptr;
                }();
                if (at == &root) break;
                const size_t i = at->place();
                Node* const parent = at->parent;
                parent->children.erase(parent->children.begin() + static_cast<ptrdiff_t>(i));
                to = parent->child(i) != nullptr ? parent->child(i) : i != 0 ? parent->child(i - 1) : parent;
                break;
            }
            case 3: moved = tree.Next(), to = at->peer(at->place() + 1); break;
            case 4: moved = tree.Prev(), to = at->peer(at->place() - 1); break;
            case 5: moved = tree.First(), to = at == &root ? at : at->peer(0); break;
            case 6: moved = tree.Last(), to = at == &root ? at : at->peer(at->peers().size() - 1); break;
            case 7: moved = tree.Parent(), to = at->parent; break;
            case 8: moved = tree.Child(), to = at->child(0); break;
            default:
                to = at->child(at->children.size() / 2);
                moved = tree.FindFirstChild(to == nullptr ? u"none" : CString(to->id.c_str()));
        }
        ASSERT_EQ(moved, to != nullptr) << step;
        if (to != nullptr) at = to;
        ASSERT_EQ(tree.Curr()->name, CString(at->id.c_str()).view()) << step;
        ASSERT_EQ(tree.NumPeers(), at == &root ? 1 : at->peers().size());
    }
}

TEST(SbFile, RefusesHostileFilesAtTheByteAndLoadsAgain) {
    const struct {
        const char* what;
        std::string file;
        int64_t byte;
    } rows[] = {
        {"major version", wrap("\x01\x00\x00\x00"_b, 0x20), 3},
        {"length", "SBF\x10TEST\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01\x00\x00\x00sum!"_b, 8},
        {"number of names", wrap("\xFF\xFF\xFF\xFF\x0F\x00\x00"_b), 16},
        {"length of a name", wrap("\x01\xFF\xFF\xFF\xFF\x0F\x00\x00"_b), 17},
        {"number above 32 bits", wrap("\xFF\xFF\xFF\xFF\x1F\x00\x00"_b), 16},
        {"number without end", wrap("\x80\x80\x80\x80\x80\x80\x00"_b), 16},
        {"no names", wrap("\x00\x00\x00"_b), 17},
        {"name of an element", wrap("\x01\x00\x04\x00"_b), 18},
        {"sibling of the root", wrap("\x01\x00\x01\x00\x00\x00"_b), 18},
        {"absent child", wrap("\x01\x00\x02\x00"_b), 20},
        {"number of attributes", wrap("\x01\x00\x00\xFF\xFF\xFF\xFF\x0F\x00\x10"_b), 19},
        {"name of an attribute", wrap("\x01\x00\x00\x01\x01\x10\x01"_b), 20},
        {"type of unknown length", wrap("\x01\x00\x00\x01\x00\xB0\x01"_b), 21},
        {"truth value", wrap("\x01\x00\x00\x01\x00\x10\x02"_b), 22},
        {"short number", wrap("\x01\x00\x00\x01\x00\x41\x01\x02\x03"_b), 22},
        {"length of a blob", wrap("\x01\x00\x00\x01\x00\xA1\xFF\xFF\xFF\xFF\x0F"_b), 22},
        {"bytes behind the root", wrap("\x01\x00\x00\x00\x00"_b), 20},
    };
    CSBFile tree;
    for (const auto& row : rows) {
        ASSERT_TRUE(load(tree, wrap(goldenContent)));
        ClearDiagnostic();
        EXPECT_FALSE(load(tree, row.file)) << row.what;
        EXPECT_EQ(LastDiagnostic().byteOffset, row.byte)
            << row.what << ": " << CStringMB(LastDiagnostic().ToString()).c_str();
        EXPECT_FALSE(tree.Root() && tree.Child()) << row.what;
    }
    const std::string whole = wrap(goldenContent);
    for (size_t n = 0; n < whole.size(); ++n) {
        EXPECT_FALSE(load(tree, whole.substr(0, n))) << n;
        EXPECT_FALSE(n < goldenContent.size() && load(tree, wrap(goldenContent.substr(0, n)))) << n;
        std::string flipped = whole;
        flipped[n] = static_cast<char>(flipped[n] ^ 1 << n % 8);
        EXPECT_FALSE(load(tree, flipped)) << n;
    }
    EXPECT_TRUE(load(tree, whole));
    EXPECT_TRUE(load(tree, wrap("\x01\x00\x00\x01\x00\x35\x01\x02\x03"_b, 0x1F)));  // a type of a later version
    EXPECT_EQ(saved(tree), wrap("\x01\x00\x00\x01\x00\x35\x01\x02\x03"_b));
    EXPECT_EQ(tree.Curr()->GetInt32(u"", 9), 9);
}

TEST(SbFile, IsReadWrittenCopiedAndDestroyedAMillionLevelsDeep) {
    constexpr int levels = 1000000;
    CSBFile tree("DEEP"), read;
    for (int i = 0; i < levels; ++i) {
        tree.InsertChild(new CElement(u"leaf"), true);  // a sibling that waits while the level is written and read
        tree.Insert(new CElement(u"level"), false);
    }
    const std::string bytes = saved(tree);
    ASSERT_TRUE(load(read, bytes));
    EXPECT_TRUE(saved(read) == bytes);
    const std::unique_ptr<CElement> copy(read.GetRoot()->Duplicate());
    read.Destroy();
    int depth = 0;
    for (const CElement* e = copy.get(); e->HasChildren(); e = e->Child()) depth += e->LastChild()->name == u"leaf";
    EXPECT_EQ(depth, levels);
}

std::string repeated(size_t count, const std::string& piece) {
    std::string text;
    text.reserve(count * piece.size());
    for (size_t i = 0; i < count; ++i) text += piece;
    return text;
}

/// Ends with 0 when a file loads, and with 1 when it does not, while the process may take `each` bytes for each byte of
/// the file, and the file's own.
[[noreturn]] void loadInBoundedMemory(const std::string& bytes, size_t each) {
    const TSharedPtr<IFile> file = memoryFile(bytes);
    CSBFile tree;
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + (each + 1) * bytes.size() + (1 << 20);
    const rlimit bound{limit, limit};
    const bool loaded = setrlimit(RLIMIT_AS, &bound) == 0 && tree.Load(file);
    std::_Exit(loaded ? 0 : 1);
}

TEST(SbFileDeathTest, TakesNoMoreMemoryThanItPromisesAndFailsWithLess) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer takes memory of its own";
#endif
    constexpr size_t count = (1 << 18) + 1;  // just behind a doubling
    const std::string n = Model::varint(count), root = "\x01\x00"_b;
    const std::pair<const char*, std::string> rows[] = {
        {"siblings", root + "\x02\x00"_b + repeated(count, "\x01\x00"_b) + "\x00\x00"_b},
        {"levels", root + repeated(count, "\x02\x00"_b) + "\x00\x00"_b},
        {"levels that wait",
         root + "\x02\x00"_b + repeated(count, "\x03\x00"_b) + "\x00\x00"_b + repeated(count, "\x00\x00"_b)},
        {"attributes", root + "\x00"_b + n + repeated(count, "\x00\x00"_b)},
        {"an attribute each", root + "\x02\x00"_b + repeated(count, "\x01\x01\x00\x00"_b) + "\x00\x00"_b},
        {"blobs", root + "\x00"_b + n + repeated(count, "\x00\xA1\x11"_b + std::string(17, 'b'))},
        {"empty names", n + repeated(count, "\x00"_b) + "\x00\x00"_b},
        {"names", n + repeated(count, "\x01x"_b) + "\x00\x00"_b},
    };
    for (const auto& [what, content] : rows) {
        EXPECT_EXIT(loadInBoundedMemory(wrap(content), 64), testing::ExitedWithCode(0), "") << what;
        EXPECT_EXIT(loadInBoundedMemory(wrap(content), 1), testing::ExitedWithCode(1), "") << what;
    }
}

TEST(SbFile, GoesThroughPathsAndReportsShortWrites) {
    const test::TempFolder folder;
    const CString path = folder.path(u"tree.sbf");
    CSBFile tree, read;
    buildGolden(tree);
    ASSERT_TRUE(tree.Save(path.c_str()) && read.Load(path.c_str()));
    EXPECT_EQ(saved(read), wrap(goldenContent));
    ClearDiagnostic();
    EXPECT_FALSE(read.Load(folder.path(u"absent").c_str()));
    EXPECT_EQ(LastDiagnostic().file, folder.path(u"absent").view());
    EXPECT_EQ(LastDiagnostic().found, u"No such file or directory");
    const TSharedPtr<CMemFile> full = CMemFile::Create();
    full->SetGrow(false);
    EXPECT_FALSE(tree.Save(TSharedPtr<IFile>(full)));
    // A device that fills up leaves the file that was there.
    rlimit room{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &room), 0);
    const rlimit little{100, room.rlim_max};
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    const bool taken = tree.Save(path.c_str());
    setrlimit(RLIMIT_FSIZE, &room);
    std::signal(SIGXFSZ, before);
    EXPECT_FALSE(taken);
    EXPECT_EQ(LastDiagnostic().file, path.view());
    ASSERT_TRUE(read.Load(path.c_str()));
    EXPECT_EQ(saved(read), wrap(goldenContent));
    EXPECT_FALSE(tree.Save(folder.path().c_str()));
    EXPECT_FALSE(tree.SetIdentifier("long!") || tree.SetIdentifier("a\nbc") || tree.SetIdentifier(nullptr));
}

}  // namespace
}  // namespace qv
