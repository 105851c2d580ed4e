#include "file_conformance.h"

#include <algorithm>
#include <random>

#include "qv/aff_file.h"
#include "qv/cd_file_system.h"
#include "qv/gz_file.h"
#include "qv/kmr_file.h"
#include "qv/memory_file_system.h"
#include "qv/merged_file_system.h"
#include "qv/resource_file_system.h"
#include "support.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

std::string randomText(std::mt19937& random, size_t length) {
    std::string text(length, 0);
    for (char& c : text) c = static_cast<char>(random());
    return text;
}

/// A file as the interface describes it.
struct Model {
    std::string bytes;
    size_t position = 0;

    std::string read(size_t count) {
        const std::string found = position < bytes.size() ? bytes.substr(position, count) : std::string();
        position += found.size();
        return found;
    }
    void write(const std::string& text) {
        if (position + text.size() > bytes.size()) bytes.resize(position + text.size());
        std::copy(text.begin(), text.end(), bytes.begin() + static_cast<ptrdiff_t>(position));
        position += text.size();
    }
};

class Walk {
public:
    Walk(const FileKind& kind, std::string contents, unsigned seed)
        : m_kind(kind), m_random(seed), m_open(kind.make(contents)), m_model{std::move(contents), 0} {}

    void step() {
        const auto action = m_random() % 8;
        if (action < 3) return read();
        if (action < 5) return seek();
        if (action < 7 || !m_kind.resizes) return m_kind.writes ? write() : refuse();
        resize();
    }
    void checkState() {
        ASSERT_EQ(file().GetPosition(), static_cast<int64_t>(m_model.position));
        ASSERT_EQ(file().GetSize(), static_cast<int64_t>(m_model.bytes.size()));
    }
    void checkAll() { ASSERT_EQ(bytesOf(file()), m_model.bytes); }

private:
    IFile& file() { return *m_open.file; }
    size_t upTo(size_t limit) { return m_random() % (limit + 1); }

    void read() {
        const size_t count = upTo(200);
        std::string buffer(count, 0);
        buffer.resize(file().Read(buffer.data(), static_cast<uint32_t>(count)));
        ASSERT_EQ(buffer, m_model.read(count));
    }
    void seek() {
        const bool behind = m_kind.seeksBehind && upTo(3) == 0;
        const size_t target = behind ? m_model.bytes.size() + upTo(50) : upTo(m_model.bytes.size());
        const auto origin = static_cast<uint32_t>(1 + upTo(2));
        const size_t bases[] = {0, m_model.position, m_model.bytes.size()};
        const auto offset = static_cast<int64_t>(target) - static_cast<int64_t>(bases[origin - 1]);
        ASSERT_EQ(file().Seek(offset, origin), static_cast<int64_t>(target));
        m_model.position = target;
    }
    void write() {
        const bool gap = m_model.position > m_model.bytes.size() && !m_kind.gapsAreZero;
        if (gap) return;
        size_t count = upTo(200);
        if (!m_kind.resizes) count = std::min(count, m_model.bytes.size() - m_model.position);
        const std::string text = randomText(m_random, count);
        ASSERT_EQ(file().Write(text.data(), static_cast<uint32_t>(count)), count);
        if (count != 0) m_model.write(text);
    }
    void resize() {
        const size_t size = upTo(m_model.bytes.size() + 50);
        if (size > m_model.bytes.size() && !m_kind.gapsAreZero) return;
        ASSERT_TRUE(file().SetSize(static_cast<int64_t>(size)));
        m_model.bytes.resize(size);
    }
    void refuse() {
        EXPECT_EQ(file().Write("x", 1), 0u);
        EXPECT_FALSE(file().SetSize(0));
    }

    const FileKind& m_kind;
    std::mt19937 m_random;
    OpenFile m_open;
    Model m_model;
};

TEST_P(FileConformance, FollowsAModel) {
    std::mt19937 random(11);
    for (const size_t size : {size_t{0}, size_t{1}, size_t{1000}, size_t{70000}}) {
        Walk walk(GetParam(), randomText(random, size), static_cast<unsigned>(size));
        for (int i = 0; i < 1500; ++i) {
            ASSERT_NO_FATAL_FAILURE(walk.step()) << i;
            ASSERT_NO_FATAL_FAILURE(walk.checkState()) << i;
        }
        walk.checkAll();
    }
}

TEST_P(FileConformance, ReadsAreShortAtTheEndAlone) {
    const OpenFile open = GetParam().make("0123456789");
    char buffer[32] = {};
    EXPECT_EQ(open.file->Read(buffer, 4), 4u);
    EXPECT_EQ(open.file->Read(buffer, 32), 6u);
    EXPECT_EQ(std::string(buffer, 6), "456789");
    EXPECT_EQ(open.file->Read(buffer, 1), 0u);
    EXPECT_EQ(open.file->GetRemaining(), 0);
    EXPECT_TRUE(open.file->ReadBytes(buffer, 0));
    EXPECT_FALSE(open.file->ReadBytes(buffer, 1));
}

TEST_P(FileConformance, SeeksToNowhereAreHarmless) {
    const OpenFile open = GetParam().make("0123456789");
    open.file->SetPosition(4);
    for (const uint32_t origin : {0u, 4u, 0xFFFFFFFFu}) {
        open.file->Seek(1, origin);
        EXPECT_EQ(open.file->GetPosition(), 4) << origin;
    }
    const int64_t before[][2] = {{-1, 1}, {-5, 2}, {-11, 3}, {INT64_MIN, 1}, {INT64_MIN, 2}, {INT64_MIN, 3}};
    for (const auto& [offset, origin] : before) {  // Refused, or held at the beginning.
        open.file->SetPosition(4);
        const int64_t result = open.file->Seek(offset, static_cast<uint32_t>(origin));
        EXPECT_EQ(open.file->GetPosition(), result == -1 ? 4 : 0) << offset;
        EXPECT_TRUE(result == -1 || result == 0) << offset;
    }
    open.file->SetPosition(4);
    open.file->Seek(INT64_MAX, IFile::fromCurrent);
    char byte = 0;
    const bool moved = open.file->GetPosition() != 4;
    EXPECT_EQ(open.file->Read(&byte, 1), moved ? 0u : 1u);
    open.file->SetPosition(9);
    EXPECT_EQ(open.file->Read(&byte, 1), 1u);
    EXPECT_EQ(byte, '9');
}

TEST_P(FileConformance, TypedValuesAreReadInBothByteOrders) {
    const std::string bytes("\x01\x02\x03\x04\x05\x06\x07\x08\x02\x00\x00\x00xyline\r\nlast", 24);
    const OpenFile open = GetParam().make(bytes);
    EXPECT_EQ(open.file->GetUInt32(), 0x04030201u);
    swapFlag(*open.file) = true;
    EXPECT_EQ(open.file->GetUInt32(), 0x05060708u);
    swapFlag(*open.file) = false;
    EXPECT_EQ(open.file->GetString(), CString(u"xy"));
    char line[16];
    EXPECT_TRUE(open.file->GetLine(line, sizeof line));
    EXPECT_STREQ(line, "line");
    EXPECT_TRUE(open.file->GetLine(line, sizeof line));
    EXPECT_STREQ(line, "last");
    EXPECT_FALSE(open.file->GetLine(line, sizeof line));
}

TEST_P(FileConformance, NamesAreCutToTheirBuffer) {
    const OpenFile open = GetParam().make("x");
    char16_t whole[512], cut[4] = {1, 1, 1, 1}, one[2] = {1, 1};
    const std::u16string name = open.file->GetFilename(whole, 512);
    EXPECT_EQ(open.file->GetFilename(cut, 4), cut);
    EXPECT_EQ(std::u16string(cut), name.substr(0, 3));
    open.file->GetFilename(one, 1);
    EXPECT_EQ(one[0], 0);
    EXPECT_EQ(one[1], 1);
}

TEST_P(FileConformance, IsEditedInPlace) {
    if (!GetParam().resizes) GTEST_SKIP();
    std::mt19937 random(5);
    std::string model = randomText(random, 3000);
    const OpenFile open = GetParam().make(model);
    for (int i = 0; i < 100; ++i) {
        const size_t position = random() % model.size(),
                     count = random() % std::min<size_t>(40, model.size() - position);
        if (i % 2 == 0) {
            ASSERT_TRUE(open.file->Insert(static_cast<int64_t>(position), static_cast<int64_t>(count)));
            model.insert(position, model.substr(position, count));
        } else {
            ASSERT_TRUE(open.file->Remove(static_cast<int64_t>(position), static_cast<int64_t>(count)));
            model.erase(position, count);
        }
        ASSERT_EQ(bytesOf(*open.file), model) << i;
    }
}

TEST_P(FileConformance, ClosesTwice) {
    const OpenFile open = GetParam().make("x");
    open.file->Flush();
    open.file->Close();
    open.file->Close();
}

// The library's own files -------------------------------------------------------------------------------------------

/// A file in a file system that is kept with it.
template <class System>
OpenFile openIn(std::shared_ptr<System> keeper, IFileSystem& system, const CString& path, const std::string& contents) {
    system.CreateFileW(path.c_str(), 0x24)->WriteBytes(contents.data(), static_cast<uint32_t>(contents.size()));
    return {keeper, system.CreateFileW(path.c_str(), 0x32)};
}

OpenFile onDisk(const std::string& contents) {
    const auto folder = std::make_shared<TempFolder>();
    return openIn(folder, fileSystem(), folder->path(u"file.bin"), contents);
}

OpenFile inMemoryFileSystem(const std::string& contents) {
    const auto system = std::make_shared<CMemoryFileSystem>();
    return openIn(system, *system, u"/file.bin", contents);
}

/// Copied up from a lower layer by the open.
OpenFile inMergedFileSystem(const std::string& contents) {
    struct Both {
        CMemoryFileSystem upper, lower;
        CMergedFileSystem merged;
    };
    const auto both = std::make_shared<Both>();
    both->merged.AddLayer(both->lower, 0);
    both->merged.AddLayer(both->upper, 1, true);
    (void)openIn(both, both->lower, u"/file.bin", contents);
    return {both, both->merged.CreateFileW(u"/file.bin", 0x32)};
}

OpenFile inResources(const std::string& contents) {
    struct Held {
        std::string contents;
        SResource table{"/file.bin", nullptr, 0, 0};
        CRFSFileSystem system;
    };
    const auto held = std::make_shared<Held>();
    held->contents = contents;
    held->table.data = held->contents.data();
    held->table.size = contents.size();
    held->system.Register(&held->table, 1);
    return {held, held->system.CreateFileW(u"/file.bin", 0x12)};
}

OpenFile inWindow(const std::string& contents) {
    const TSharedPtr<IFile> whole = memoryFile("front" + contents + "back");
    return {nullptr, CBoundedFile::Create(whole, 5, static_cast<int64_t>(contents.size()))};
}

OpenFile compressed(const std::string& contents) {
    const TSharedPtr<IFile> inner = CMemFile::Create();
    CGZFile(inner, CFile::accessWrite).WriteBytes(contents.data(), static_cast<uint32_t>(contents.size()));
    inner->SeekToBegin();
    return {nullptr, CGZFile::Create(inner, CFile::accessRead)};
}

OpenFile inContainer(const std::string& contents) {
    struct Held {
        CMemoryFileSystem disk;
        CCDFileSystem container;
    };
    const auto held = std::make_shared<Held>();
    EXPECT_TRUE(held->container.Create(&held->disk, u"/host", false));
    (void)openIn(held, held->container, u"/behind.bin", "behind");
    return openIn(held, held->container, u"/file.bin", contents);
}

template <class Composite>
OpenFile inComposite(const std::string& contents) {
    struct Held {
        CMemoryFileSystem disk;
        Composite composite;
    };
    const auto held = std::make_shared<Held>();
    EXPECT_TRUE(held->composite.Create(&held->disk, u"/host"));
    IFile& file = held->composite.GetIndex(held->composite.CreateIndex(1, 0, 100, Composite::automaticId))->file;
    EXPECT_TRUE(file.WriteBytes(contents.data(), static_cast<uint32_t>(contents.size())));
    file.SeekToBegin();
    return {held, TSharedPtr<IFile>(&file, TSharedPtr<IFile>::notOwned())};
}

const FileKind file_kinds[] = {
    {"CFile", onDisk},
    {"CMemFile",
     [](const std::string& contents) {
         return OpenFile{nullptr, memoryFile(contents)};
     },
     true, true, true, false},
    {"CBoundedFile", inWindow, true, false, false},
    {"CGZFile", compressed, false, false, false},
    {"MemoryFileSystem", inMemoryFileSystem},
    {"MergedFileSystem", inMergedFileSystem},
    {"Resources", inResources, false, false},
    {"CDFS", inContainer, true, true, true, false},
    {"AFF", inComposite<CAFFFile>, true, true, true, false},
    {"KMR", inComposite<CKMRFile>, true, true, true, false},
};

INSTANTIATE_TEST_SUITE_P(Files, FileConformance, ::testing::ValuesIn(file_kinds), nameOfFile);

}  // namespace
}  // namespace qv::test
