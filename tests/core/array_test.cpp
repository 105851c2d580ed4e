#include "qv/array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "core/counting_heap.h"
#include "qv/exception.h"
#include "qv/string.h"

namespace qv {
namespace {

using qv_test::CountingHeap;

TArray<int> numbers(int count) {
    TArray<int> array;
    for (int i = 0; i < count; ++i) array.Add(i);
    return array;
}

std::vector<int> contents(const TArray<int>& array) { return {array.begin(), array.end()}; }

TEST(ArrayGrowth, CapacityFollowsTheRate) {
    struct Row {
        uint16_t rate;
        uint32_t before, wanted, after;
    };
    const Row rows[] = {
        {5, 0, 0, 0},      {5, 0, 1, 5},      {5, 0, 4, 5},       {5, 0, 5, 10},          {5, 0, 9, 10},
        {5, 0, 10, 15},    {5, 10, 10, 10},   {1, 0, 7, 8},       {100, 0, 100, 200},     {0xFFFF, 0, 1, 1},
        {0xFFFF, 0, 3, 4}, {0xFFFF, 4, 5, 8}, {0xFFFF, 5, 6, 10}, {0xFFFE, 0, 1, 0xFFFE}, {0xFFFF, 0, 1000, 1024},
    };
    for (const Row& row : rows) {
        TArray<int> array;
        TSimpleArray<char> simple;
        if (row.before != 0) {
            array.Attach(static_cast<int*>(HeapAlloc(row.before * sizeof(int))), row.before);
            simple.Attach(static_cast<char*>(HeapAlloc(row.before)), row.before);
        }
        array.SetGrowthRate(row.rate);
        simple.SetGrowthRate(row.rate);
        EXPECT_TRUE(array.Dimension(row.wanted));
        EXPECT_TRUE(simple.Dimension(row.wanted));
        EXPECT_EQ(array.capacity(), row.after) << row.rate << ' ' << row.before << ' ' << row.wanted;
        EXPECT_EQ(simple.capacity(), row.after);
        EXPECT_EQ(array.size(), row.before);
        EXPECT_EQ(array.data() == nullptr, row.after == 0);
    }
    EXPECT_EQ(TArray<int>().SetGrowthRate(7), 5);
}

TEST(ArrayGrowth, ASizeBeyond32BitsFailsAndLeavesTheArray) {
    TArray<double> array;
    array.Add(1.5);
    EXPECT_FALSE(array.Dimension(0x20000000));
    EXPECT_FALSE(array.SetSize(0xFFFFFFFF));
    EXPECT_FALSE(array.Insert(0xFFFFFFFF));
    EXPECT_EQ(array.size(), 1u);
    EXPECT_EQ(array.ConstGetItem(0), 1.5);
    struct Tag {
        char bytes[96];
    };
    EXPECT_EQ(TArray<Tag>::max_size(), 44739242u);
}

TEST(Array, AnArgumentMayBeItsOwnElement) {
    TArray<CString> array;
    for (int i = 0; i < 4; ++i) array.Add(CString::FromInt(i));
    array.Add(array.ConstGetItem(1));                      // into the last free place
    for (int i = 0; i < 6; ++i) array.Add(array.front());  // across a growth
    EXPECT_EQ(array.size(), 11u);
    EXPECT_EQ(array.back(), u"0");
    EXPECT_TRUE(array.Insert(array.ConstGetItem(3), 1, 9));  // the source moves up by the gap
    EXPECT_TRUE(array.Insert(array.ConstGetItem(0), 2));
    EXPECT_EQ(array.ConstGetItem(1), u"3");
    EXPECT_EQ(array.ConstGetItem(2), u"0");
    EXPECT_EQ(array.ConstGetItem(10), u"3");
    EXPECT_TRUE(array.Replace(array.ConstGetItem(10), 40));
    EXPECT_EQ(array.ConstGetItem(40), u"3");
    EXPECT_EQ(array.ConstGetItem(39), u"");
}

TEST(Array, RemovalFollowsItsOwnRules) {
    TArray<int> array = numbers(6);
    const int* next = array.erase(array.cbegin() + 1, array.cbegin() + 3);  // the last is removed as well
    EXPECT_EQ(contents(array), (std::vector<int>{0, 4, 5}));
    EXPECT_EQ(*next, 4);
    array.erase(array.cbegin() + 1, array.cbegin() + 1);
    EXPECT_EQ(contents(array), (std::vector<int>{0, 5}));
    EXPECT_TRUE(array.Remove(2, 1));
    EXPECT_TRUE(array.Remove(1, 0xFFFFFFFF));
    EXPECT_EQ(contents(array), (std::vector<int>{0}));
    EXPECT_TRUE(array.Remove(0, 1));
    array.pop_back();
    EXPECT_TRUE(array.empty());
    EXPECT_EQ(array.capacity(), 10u);
}

TEST(Array, PastTheEndGrowsOrThrows) {
    TArray<int> array;
    EXPECT_EQ(array[9], 0);
    EXPECT_EQ(array.size(), 10u);
    EXPECT_TRUE(array.Insert(7, 12, 0));
    EXPECT_EQ(array.size(), 12u);
    EXPECT_TRUE(array.Move(15, 15));
    EXPECT_EQ(array.size(), 16u);
    EXPECT_TRUE(array.ImplicitAddition(3));
    EXPECT_EQ(array.size(), 16u);
    EXPECT_TRUE(array.SetSize(3));
    EXPECT_EQ(array.capacity(), 20u);
    const TArray<int>& fixed = array;
    for (const auto& read :
         {+[](const TArray<int>& a) { return a[3]; }, +[](const TArray<int>& a) { return a.GetAt(3); }}) {
        try {
            read(fixed);
            FAIL() << "no exception";
        } catch (const CException& e) {
            EXPECT_EQ(e.message(), u"Index out of bounds.");
        }
    }
}

TEST(Array, WholeArraysChangeHandsAsTold) {
    const CountingHeap heap;
    {
        TArray<CString> array{u"a", u"b"};
        array = *&array;
        EXPECT_TRUE(array.empty());
        array = TArray<CString>::MakeArray(2, u"a", u"b", u"c");
        EXPECT_EQ(array.size(), 2u);

        TArray<CString> copy;
        array.SetGrowthRate(9);
        EXPECT_TRUE(array.MakeDuplicate(copy));
        EXPECT_TRUE(array.empty());
        EXPECT_EQ(array.data(), nullptr);
        EXPECT_TRUE(copy.empty());
        EXPECT_NE(copy.data(), nullptr);
        EXPECT_EQ(copy.SetGrowthRate(5), 9);
        EXPECT_TRUE(copy.Add(u"again"));

        CString* buffer = copy.Detach();
        EXPECT_EQ(copy.size(), 0u);
        EXPECT_EQ(CountingHeap::liveBlocks(), 1);
        array.Attach(buffer, 1);
        EXPECT_EQ(array.capacity(), 1u);
        EXPECT_EQ(array.back(), u"again");
    }
    EXPECT_EQ(CountingHeap::liveBlocks(), 0);
}

TEST(Array, SortsWithAndWithoutContext) {
    TArray<int> array{3, 1, 2};
    array.Sort([](const void* a, const void* b) { return *static_cast<const int*>(a) - *static_cast<const int*>(b); });
    EXPECT_EQ(contents(array), (std::vector<int>{1, 2, 3}));
    int sign = -1;
    array.Sort(
        [](void* context, const void* a, const void* b) {
            return *static_cast<int*>(context) * (*static_cast<const int*>(a) - *static_cast<const int*>(b));
        },
        &sign);
    EXPECT_EQ(contents(array), (std::vector<int>{3, 2, 1}));
}

TEST(Array, StackAndQueueKeepTheirDiscipline) {
    TStack<int> stack;
    TQueue<int> queue;
    int out = 0;
    EXPECT_FALSE(stack.Pop(out));
    for (int i = 1; i < 4; ++i) stack.Push(i), queue.Enqueue(i);
    EXPECT_TRUE(stack.Pop(out));
    EXPECT_EQ(out, 3);
    EXPECT_EQ(stack.Top(), 2);
    EXPECT_TRUE(queue.Dequeue(out));
    EXPECT_EQ(out, 1);
}

TEST(SimpleArray, CopiesBytesAndReportsAFailedGrowth) {
    const CountingHeap heap;
    TSimpleArray<char> array;
    for (const char ch : std::string("bytes")) array.Add(ch);
    TSimpleArray<char> copy;
    CountingHeap::failAfter(0);
    testing::internal::CaptureStderr();
    copy = array;
    EXPECT_FALSE(array.SetSize(100));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "TSimpleArray::Alloc failed\nTSimpleArray::ReAlloc failed\n");
    EXPECT_EQ(array.size(), 5u);
    CountingHeap::succeed();
    copy = array;
    EXPECT_EQ(std::string(copy.begin(), copy.end()), "bytes");
}

// Random operations against a vector, while a quarter of them meets a heap that is about to fail: an operation that
// reports failure has changed nothing.

template <class T>
T makeItem(uint32_t seed);
template <>
int makeItem(uint32_t seed) {
    return static_cast<int>(seed);
}
template <>
CString makeItem(uint32_t seed) {
    return CString::FromInt(static_cast<int>(seed));
}

template <class T>
class ArrayModel {
public:
    explicit ArrayModel(uint32_t seed) : m_random(seed) {}

    void step() {
        const bool mayFail = pick(4) == 0;
        if (mayFail) CountingHeap::failAfter(0);
        const uint32_t i = pick(size() + 3);
        const uint32_t j = pick(size() + 3);
        const T item = makeItem<T>(pick(1000));
        // Each pair: the operation, and what it means for a vector.
        switch (pick(11)) {
            case 0: return check(m_array.Add(item), [&] { m_model.push_back(item); });
            case 1: return check(m_array.Insert(i), [&] { insert(i, 1, T()); });
            case 2: return check(m_array.Insert(item, i, j % 4), [&] { insert(i, j % 4, item); });
            case 3: return check(m_array.Remove(i, j), [&] { remove(i, j); });
            case 4: return check(m_array.Replace(item, i), [&] { grow(i + 1), m_model[i] = item; });
            case 5: return check(m_array.Move(i, j), [&] { move(i, j); });
            case 6:
                return check(m_array.Swap(i, j), [&] { grow(std::max(i, j) + 1), std::swap(m_model[i], m_model[j]); });
            case 7: return check(m_array.SetSize(j), [&] { m_model.resize(j, T()); });
            case 8: return check(m_array.ImplicitAddition(j), [&] { grow(j); });
            case 9: m_array.SetGrowthRate(static_cast<uint16_t>(pick(3) == 0 ? 0xFFFF : 1 + pick(9))); break;
            default: return check(m_array.Remove(i), [&] { remove(i, 1); });
        }
        CountingHeap::succeed();
    }

private:
    uint32_t pick(uint32_t n) { return static_cast<uint32_t>(m_random() % n); }
    uint32_t size() const { return static_cast<uint32_t>(m_model.size()); }
    auto at(uint32_t i) { return m_model.begin() + static_cast<ptrdiff_t>(i); }
    void grow(uint32_t n) { m_model.resize(std::max<size_t>(n, m_model.size()), T()); }
    void insert(uint32_t i, uint32_t n, const T& item) {
        if (i < size()) {
            m_model.insert(at(i), n, item);
        } else {
            grow(i + n);
            std::fill(at(i), m_model.end(), item);
        }
    }
    void remove(uint32_t i, uint32_t n) {
        if (i < size()) m_model.erase(at(i), at(i + std::min(n, size() - i)));
    }
    void move(uint32_t from, uint32_t to) {
        grow(std::max(from, to) + 1);
        if (from < to) std::rotate(at(from), at(from + 1), at(to + 1));
        if (to < from) std::rotate(at(to), at(from), at(from + 1));
    }
    template <class Operation>
    void check(bool done, Operation operation) {
        CountingHeap::succeed();
        if (done) operation();
        ASSERT_EQ(m_array.size(), m_model.size());
        ASSERT_LE(m_array.size(), m_array.capacity());
        ASSERT_TRUE(std::equal(m_array.cbegin(), m_array.cend(), m_model.begin()));
        if (m_model.size() > 60) m_array.SetSize(9), m_model.resize(9, T());
    }

    std::mt19937 m_random;
    TArray<T> m_array;
    std::vector<T> m_model;
};

template <class T>
void runModel() {
    const CountingHeap heap;
    for (uint32_t seed = 1; seed <= 3; ++seed) {
        ArrayModel<T> model(seed);
        for (int i = 0; i < 10000 && !testing::Test::HasFatalFailure(); ++i) model.step();
    }
    EXPECT_EQ(CountingHeap::liveBlocks(), 0);
}

TEST(ArrayModel, NumbersBehaveLikeAVector) { runModel<int>(); }
TEST(ArrayModel, StringsBehaveLikeAVector) { runModel<CString>(); }

}  // namespace
}  // namespace qv
