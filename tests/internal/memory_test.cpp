#include "platform/memory.h"

#include <gtest/gtest.h>

#include <cstring>

#include "qv/memory.h"

namespace qv {
namespace {

TEST(LockLimit, MovesByAPageMoreThanAskedAndComesBack) {
    const size_t page = platform::pageSize();
    EXPECT_EQ(platform::wholePages(0), page);
    EXPECT_EQ(platform::wholePages(page - 1), page);
    EXPECT_EQ(platform::wholePages(page), 2 * page);

    const uint64_t before = platform::lockLimit();
    lockAlloc(page);
    const uint64_t raised = platform::lockLimit();
    // The system may refuse; then nothing moved.
    EXPECT_TRUE(raised == before || raised == before + 2 * page) << before << ' ' << raised;
    lockFree(page);
    EXPECT_EQ(platform::lockLimit(), before);
    lockFree(1u << 20);
    EXPECT_EQ(platform::lockLimit(), before);
}

TEST(PinnedMemory, IsZeroedAndWritable) {
    const size_t size = 3 * platform::pageSize() + 1;
    auto* bytes = static_cast<unsigned char*>(virtAlloc(size));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % platform::pageSize(), 0u);
    for (size_t i = 0; i < size; ++i) ASSERT_EQ(bytes[i], 0);
    std::memset(bytes, 1, size);
    virtFree(bytes, size);
    virtFree(nullptr, size);
}

}  // namespace
}  // namespace qv
