#include <algorithm>
#include <cstring>
#include <random>

#include "qv/file.h"
#include "qv/memory.h"
#include "support.h"

namespace qv::test {
namespace {

/// What a memory file is to do, told plainly.
struct Model {
    Bytes block;  // What was ever written, zeros elsewhere.
    size_t size = 0, position = 0;

    void cover(size_t end) { block.resize(std::max(block.size(), end)); }
    void write(const uint8_t* data, size_t count) {
        cover(position + count);
        std::copy_n(data, count, block.begin() + static_cast<ptrdiff_t>(position));
        position += count;
        size = std::max(size, position);
    }
    Bytes read(size_t count) {
        const size_t end = std::max(position, std::min(size, position + count));
        const Bytes found(block.data() + std::min(position, end), block.data() + end);
        position = end;
        return found;
    }
    int64_t seek(int64_t offset, uint32_t origin) {
        const size_t base = origin == 1 ? 0 : (origin == 2 ? position : size);
        position = static_cast<size_t>(std::max<int64_t>(static_cast<int64_t>(base) + offset, 0));
        return static_cast<int64_t>(position);
    }
};

TEST(MemFile, FollowsAModel) {
    std::mt19937 random(7);
    for (const uint32_t rate : {0xFFFFFFFFu, 7u}) {
        CMemFile file;
        file.SetGrowthRate(rate);
        Model model;
        for (int step = 0; step < 20000; ++step) {
            Bytes data(random() % 65);
            const auto count = static_cast<uint32_t>(data.size());
            const auto action = random() % 8;
            if (action < 3) {
                for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
                ASSERT_EQ(file.Write(data.data(), count), count);
                model.write(data.data(), count);
            } else if (action < 5) {
                data.resize(file.Read(data.data(), count));
                ASSERT_EQ(data, model.read(count));
            } else if (action < 7) {
                const auto origin = static_cast<uint32_t>(1 + random() % 3);
                const int64_t offset = model.position > 2000 ? -4000 : static_cast<int64_t>(random() % 400) - 100;
                ASSERT_EQ(file.Seek(offset, origin), model.seek(offset, origin));
            } else {
                model.size = random() % 2 == 0 ? random() % 1000 : 0;
                model.cover(model.size);
                if (model.size == 0) file.Empty();
                ASSERT_TRUE(file.SetSize(static_cast<int64_t>(model.size)));
            }
            ASSERT_EQ(file.GetSize(), static_cast<int64_t>(model.size));
            ASSERT_EQ(file.GetPosition(), static_cast<int64_t>(model.position));
        }
        model.position = 0;
        ASSERT_EQ(bytesOf(file), model.read(model.size));
    }
}

TEST(MemFile, AGapKeepsTheBlocksOldBytes) {
    CMemFile file;
    fill(file, "abcdef");
    file.Empty();
    file.SetPosition(8);
    file.PutBYTE('!');
    EXPECT_EQ(textOf(file), std::string("abcdef\0\0!", 9));
}

TEST(MemFile, ItsOwnBytesMayBeWritten) {
    std::string model = "abcdefg";
    CMemFile file;
    fill(file, model);
    for (int i = 0; i < 8; ++i) {  // Through several growths of the block.
        const auto half = static_cast<uint32_t>(model.size() / 2);
        file.SeekToEnd();
        ASSERT_EQ(file.Write(file.data() + 1, half), half);
        model += model.substr(1, half);
        ASSERT_EQ(textOf(file), model);
    }
    file.SetPosition(2);
    file.Write(file.data(), 6);
    EXPECT_EQ(textOf(file).substr(0, 9), "ababcdef" + model.substr(8, 1));
}

TEST(MemFile, AFixedSizeTakesNoPartialWrite) {
    CMemFile file;
    file.SetSize(4);
    file.SetGrow(false);
    file.SetPosition(2);
    EXPECT_EQ(file.Write("xyz", 3), 0u);
    EXPECT_EQ(bytesOf(file), Bytes(4, 0));
    EXPECT_EQ(file.Write("xy", 2), 2u);
    EXPECT_EQ(file.Write("z", 1), 0u);
}

TEST(MemFile, SizesAboveTheLimitAreRefused) {
    CMemFile file;
    fill(file, "ab");
    EXPECT_FALSE(file.SetSize(0x40000001));
    EXPECT_FALSE(file.SetSize(-1));
    EXPECT_EQ(file.GetSize(), 2);
}

TEST(MemFile, SizesUpToTheLimitAreTrueEvenWithoutMemory) {
    static const Private::HeapHooks small = {[](size_t n) { return n > 1000 ? nullptr : Alloc(n); },
                                             [](void* p, size_t n) { return n > 1000 ? nullptr : Realloc(p, n); },
                                             &Free};
    Private::setHeapHooks(&small);
    {
        CMemFile file;
        fill(file, "ab");
        EXPECT_TRUE(file.SetSize(0x40000000));
        EXPECT_EQ(file.GetSize(), 2);
        file.SetPosition(2000);
        EXPECT_EQ(file.Write("x", 1), 0u);
        EXPECT_EQ(textOf(file), "ab");
    }
    Private::setHeapHooks(nullptr);
}

TEST(MemFile, ThePositionIsHeldTo32Bits) {
    CMemFile file;
    fill(file, "ab");
    EXPECT_EQ(file.Seek(int64_t{1} << 40, IFile::fromBegin), 0xFFFFFFFF);
    EXPECT_EQ(file.Seek(INT64_MAX, IFile::fromCurrent), 0xFFFFFFFF);
    uint8_t byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0u);
    EXPECT_EQ(file.Write("xy", 2), 0u);
    EXPECT_EQ(file.Seek(7, 0), 0xFFFFFFFF);
    EXPECT_EQ(file.Seek(INT64_MIN, IFile::fromEnd), 0);
}

TEST(MemFile, BlocksComeAndGo) {
    auto* block = static_cast<uint8_t*>(HeapAlloc(4));
    std::memcpy(block, "abcd", 4);
    CMemFile file;
    file.Attach(block, 4, true);
    EXPECT_EQ(textOf(file), "abcd");
    uint8_t* taken = file.Detach();
    EXPECT_EQ(taken, block);
    EXPECT_EQ(file.GetData(), nullptr);
    EXPECT_EQ(file.ConstGetSize(), 4u);
    uint8_t byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0u);
    file.Attach(taken, 4, true);
    file.Destroy();
    EXPECT_EQ(file.nItems(), 0u);
}

TEST(MemFile, AForeignBlockIsNeverResized) {
    uint8_t foreign[4] = {'a', 'b', 'c', 'd'};
    CMemFile file;
    file.Attach(foreign, 4, false);
    file.SeekToEnd();
    EXPECT_EQ(file.Write("e", 1), 1u);
    EXPECT_EQ(textOf(file), "abcde");
    EXPECT_NE(file.data(), foreign);
}

TEST(MemFile, ACopyIsIndependent) {
    CMemFile file;
    fill(file, "abc");
    file.SetPosition(1);
    file.SetGrow(false);
    swapFlag(file) = true;
    CMemFile copy(file);
    EXPECT_TRUE(swapFlag(copy));
    EXPECT_EQ(copy.GetPosition(), 1);
    EXPECT_EQ(copy.Write("12345", 5), 0u);
    EXPECT_EQ(copy.Write("X", 1), 1u);
    EXPECT_EQ(textOf(copy), "aXc");
    EXPECT_EQ(textOf(file), "abc");
    char16_t name[4] = u"abc";
    EXPECT_EQ(copy.GetFilename(name, 4)[0], 0);
}

TEST(BoundedFile, IsAWindow) {
    const TSharedPtr<CMemFile> memory = CMemFile::Create();
    fill(*memory, "0123456789ABCDEF");
    CBoundedFile window(memory, 3, 10);
    EXPECT_EQ(window.GetSize(), 10);
    EXPECT_EQ(window.GetStartPos(), 3);
    char buffer[20] = {};
    EXPECT_EQ(window.Read(buffer, 4), 4u);
    EXPECT_EQ(std::string(buffer, 4), "3456");
    EXPECT_EQ(window.Seek(8, IFile::fromBegin), 8);
    EXPECT_EQ(window.Read(buffer, 20), 2u);
    EXPECT_EQ(std::string(buffer, 2), "BC");
    EXPECT_EQ(window.Read(buffer, 1), 0u);
    EXPECT_EQ(window.Seek(-2, IFile::fromCurrent), 8);
    EXPECT_EQ(window.Write("xyz", 3), 2u);
    EXPECT_EQ(textOf(*memory), "0123456789AxyDEF");
    EXPECT_EQ(memory->GetPosition(), 13);
    EXPECT_FALSE(window.SetSize(5));
    CBoundedFile before(memory, -5, 10);
    EXPECT_EQ(before.Write("xyz", 3), 0u);
    EXPECT_EQ(before.Read(buffer, 3), 0u);
    EXPECT_EQ(textOf(*memory), "0123456789AxyDEF");
}

TEST(BoundedFile, SeekClamps) {
    CBoundedFile window(CMemFile::Create(), 0, 10);
    struct Row {
        int64_t offset;
        uint32_t origin;
        int64_t position;
    };
    const Row rows[] = {{-5, 1, 0}, {99, 1, 10}, {-3, 3, 7}, {5, 0, 7}, {INT64_MAX, 2, 10}, {INT64_MIN, 3, 0}};
    for (const Row& row : rows) EXPECT_EQ(window.Seek(row.offset, row.origin), row.position);
    CBoundedFile none;
    uint8_t byte = 0;
    EXPECT_EQ(none.Read(&byte, 1), 0u);
    EXPECT_EQ(none.Write(&byte, 1), 0u);
    none.Flush();
}

}  // namespace
}  // namespace qv::test
