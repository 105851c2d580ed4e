// Insert and Remove on a file that fails.
#include <gtest/gtest.h>

#include <string>

#include "qv/file.h"
#include "support/faulty_file.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

/// Three steps of the smallest buffer and a bit.
std::string numbered(size_t count) {
    std::string bytes(count, 0);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 2654435761u >> 24);
    return bytes;
}

constexpr int64_t position = 1000, count = 300;

/// Whether `now` is `before` but for the bytes that a removal was to close.
bool isAsBefore(const std::string& now, const std::string& before, bool inserted) {
    const size_t open = inserted ? 0 : count;
    return now.size() == before.size() && now.compare(0, position, before, 0, position) == 0 &&
           now.compare(position + open, std::string::npos, before, position + open) == 0;
}

bool isDone(const std::string& now, const std::string& before, bool inserted) {
    const size_t from = position + (inserted ? 0 : count), to = position + (inserted ? count : 0);
    // A file that could not be cut is longer by what was removed.
    const size_t bytes = before.size() - from;
    return now.size() >= to + bytes && now.compare(0, position, before, 0, position) == 0 &&
           now.compare(to, bytes, before, from) == 0;
}

TEST(EditingWithFaults, GoesBackToWhatWasThere) {
    const std::string before = numbered(3 * 0x80000 + 77);
    for (const bool inserts : {true, false}) {
        for (const FaultyFile::Fault fault : FaultyFile::faults) {
            for (uint64_t n = 1;; ++n) {
                const TSharedPtr<IFile> inner = memoryFile(before);
                FaultyFile file(inner);
                file.failAt(n, fault);
                ASSERT_TRUE(inserts ? file.Insert(position, count) : file.Remove(position, count));
                const std::string now = bytesOf(*inner);
                if (!file.hasFailed()) {
                    EXPECT_TRUE(isDone(now, before, inserts));
                    EXPECT_GT(n, 12u);
                    break;
                }
                EXPECT_TRUE(isAsBefore(now, before, inserts) || (!inserts && isDone(now, before, inserts)))
                    << n << (inserts ? " insert" : " remove");
            }
        }
    }
}

TEST(EditingWithFaults, AFullDiskLosesNothing) {
    const std::string before = numbered(0x80000 + 77);
    for (const int64_t room : {0, 1, 150, 299}) {
        const TSharedPtr<IFile> inner = memoryFile(before);
        FaultyFile file(inner);
        file.limitSize(static_cast<int64_t>(before.size()) + room);
        ASSERT_TRUE(file.Insert(position, count));
        EXPECT_EQ(bytesOf(*inner), before) << room;
    }
}

}  // namespace
}  // namespace qv::test
