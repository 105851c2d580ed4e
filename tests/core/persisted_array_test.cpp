#include "qv/persisted_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/exception.h"
#include "qv/file.h"

namespace qv {
namespace {

using Record = std::vector<unsigned char>;

/// A file that holds what is no element.
TSharedPtr<IFile> usedFile() {
    const TSharedPtr<IFile> file = fileSystem().CreateTempFile();
    const Record old(5000, 0xEE);
    EXPECT_TRUE(file->WriteBytes(old.data(), 5000));
    return file;
}

/// The array against a vector of byte records, which does by hand what the array promises.
class PersistedModel {
public:
    PersistedModel(uint32_t seed, uint32_t cacheBytes, uint32_t largestSize, uint32_t largestCount)
        : m_random(seed),
          m_cacheBytes(cacheBytes),
          m_largestSize(largestSize),
          m_largestCount(largestCount),
          m_array(seed % 2 == 0 ? TSharedPtr<IFile>() : usedFile(), cacheBytes) {}

    void step() {
        const uint32_t i = pick(size() + 2);
        switch (pick(100)) {
            case 0: return setElementSize(1 + pick(m_largestSize));
            case 1: return setElementSize(m_size + 1);
            case 2: return (void)m_array.Flush();
            case 3: return m_array.SetTruncate(pick(2) == 0);
            case 4: return write(size() + pick(m_largestCount / 4));  // leaves a gap
            case 5: return pick(40) == 0 ? empty() : compareAll();
            case 6: return (void)m_array.SetCacheBytes(pick(2) == 0 ? m_cacheBytes : 1 + pick(m_cacheBytes));
            default: break;
        }
        const uint32_t what = pick(10);
        if (what < 2 || size() >= m_largestCount) return remove(i);
        if (what < 6) return write(i);
        if (size() != 0) compare(std::min(i, size() - 1));
    }
    void compareAll() {
        for (uint32_t i = 0; i < size(); ++i) compare(i);
    }

private:
    uint32_t pick(uint32_t n) { return static_cast<uint32_t>(m_random() % n); }
    uint32_t size() const { return static_cast<uint32_t>(m_model.size()); }

    void write(uint32_t i) {
        if (i >= size()) m_model.resize(i + 1, Record(m_size));
        for (unsigned char& byte : m_model[i]) byte = static_cast<unsigned char>(m_random());
        std::memcpy(m_array.GetBytes(i), m_model[i].data(), m_size);
    }
    void compare(uint32_t i) {
        ASSERT_EQ(m_array.size(), size());
        ASSERT_EQ(std::memcmp(m_array.GetBytes(i), m_model[i].data(), m_size), 0)
            << "element " << i << " of " << size();
    }
    void remove(uint32_t i) {
        m_array.Remove(i);
        if (i < size()) m_model.erase(m_model.begin() + i);
        ASSERT_EQ(m_array.size(), size());
    }
    void setElementSize(uint32_t to) {
        to = std::min(to, m_largestSize);
        ASSERT_EQ(m_array.SetElementSize(to), m_size);
        for (Record& record : m_model) record.resize(to);
        m_size = to;
    }
    void empty() {
        m_array.Empty();
        m_model.clear();
    }

    std::mt19937 m_random;
    uint32_t m_cacheBytes, m_largestSize, m_largestCount;
    uint32_t m_size = 16;
    TPersistedArray<unsigned char> m_array;
    std::vector<Record> m_model;
};

TEST(PersistedArrayModel, RandomOperationsLoseAndDoubleNothing) {
    const struct {
        uint32_t seed, cacheBytes, largestSize, largestCount, steps;
    } rows[] = {
        {1, 64, 30, 200, 100000},  // windows of 2 to 64 elements
        {2, 64, 30, 200, 40000},      {3, 1000, 100, 300, 20000},
        {4, 10, 40, 60, 20000},        // records larger than the cache
        {5, 0x80000, 60000, 40, 600},  // the window as it is in use
    };
    for (const auto& row : rows) {
        PersistedModel model(row.seed, row.cacheBytes, row.largestSize, row.largestCount);
        for (uint32_t i = 0; i < row.steps; ++i) {
            model.step();
            ASSERT_FALSE(testing::Test::HasFatalFailure()) << "seed " << row.seed << ", step " << i;
        }
        model.compareAll();
    }
}

TEST(PersistedArray, TheWindowFollowsTheElementSize) {
    TPersistedArray<uint32_t> array;
    EXPECT_EQ(array.GetElementSize(), 16u);
    EXPECT_EQ(array.GetCacheCapacity(), 32768u);
    EXPECT_EQ(array.GetBlockSize(), 4096u);
    const struct {
        uint32_t size, capacity, block;
    } rows[] = {{4, 131072, 16384}, {75000, 6, 1}, {65536, 8, 1}, {0x80000, 1, 1}, {0x80001, 1, 1}};
    uint32_t before = 16;
    for (const auto& row : rows) {
        EXPECT_EQ(array.SetElementSize(row.size), before);
        EXPECT_EQ(array.GetCacheCapacity(), row.capacity);
        EXPECT_EQ(array.GetBlockSize(), row.block);
        before = row.size;
    }
    EXPECT_EQ(array.SetElementSize(0), before);
    EXPECT_EQ(array.GetElementSize(), before);
    // A type above 16 bytes begins with its own size; the last of a window's records ends where the window does.
    TPersistedArray<std::array<uint64_t, 5>> records;
    EXPECT_EQ(records.GetElementSize(), 40u);
    for (uint64_t i = 0; i < 14000; ++i) records.Add({i, i, i, i, i});
    for (uint64_t i : {0u, 1u, 13106u, 13107u, 13999u}) EXPECT_EQ(records[static_cast<uint32_t>(i)][4], i);
}

TEST(PersistedArray, AMillionElementsSurviveTheWindow) {
    TPersistedArray<uint32_t> array;
    array.SetElementSize(sizeof(uint32_t));
    for (uint32_t i = 0; i < 1000000; ++i) array.Add(i * 3);
    for (uint32_t i = 0; i < 1000000; i += 50021) EXPECT_EQ(array[999999 - i], (999999 - i) * 3);
    EXPECT_EQ(array[1000005], 0u);
    EXPECT_EQ(array.size(), 1000006u);
    EXPECT_THROW(array.GetItem(0xFFFFFFFF), CException);
}

TEST(PersistedArray, FlushWritesInOrderAndCutsOnlyWithTheFlag) {
    TSharedPtr<CMemFile> file = CMemFile::Create();
    const std::vector<unsigned char> old(100, 0xEE);
    file->WriteBytes(old.data(), 100);
    TPersistedArray<unsigned char> array{TSharedPtr<IFile>(file), 64};  // four elements of sixteen bytes
    for (uint32_t i = 0; i < 6; ++i) std::memset(array.GetBytes(i), static_cast<int>(i + 1), 16);
    array.Remove(0);
    EXPECT_TRUE(array.Flush());
    EXPECT_EQ(file->GetSize(), 84);
    array.SetTruncate(true);
    EXPECT_TRUE(array.Flush());
    ASSERT_EQ(file->GetSize(), 80);
    for (int i = 0; i < 80; ++i) EXPECT_EQ(file->GetData()[i], i / 16 + 2);
}

TEST(PersistedArray, AGapReadsAsZeroAlsoOverAUsedFile) {
    TPersistedArray<unsigned char> array{usedFile(), 64};
    array[100] = 1;
    for (uint32_t i = 0; i < 100; ++i) EXPECT_EQ(std::count(array.GetBytes(i), array.GetBytes(i) + 16, 0), 16) << i;
    EXPECT_EQ(array[100], 1);
}

struct FailingFile : CMemFile {
    uint32_t Write(const void* data, uint32_t count) override { return fails ? 0 : CMemFile::Write(data, count); }
    bool fails = false;
};

TEST(PersistedArray, AFileThatTakesNothingThrowsAndKeepsTheElements) {
    auto* const file = new FailingFile;
    TPersistedArray<unsigned char> array{TSharedPtr<IFile>(file), 64};
    for (uint32_t i = 0; i < 4; ++i) array[i] = static_cast<unsigned char>(i);
    file->fails = true;
    ClearDiagnostic();
    EXPECT_FALSE(array.Flush());
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_THROW(array[4], CRuntimeErrorException);
    EXPECT_THROW(array.Remove(0), CRuntimeErrorException);
    EXPECT_THROW(array.SetElementSize(8), CRuntimeErrorException);
    file->fails = false;
    EXPECT_EQ(array.size(), 4u);
    array[4] = 4;
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(array[i], i);
}

}  // namespace
}  // namespace qv
