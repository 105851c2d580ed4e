// Insert and Remove on a file that fails.
#include <gtest/gtest.h>

#include <string>

#include "qv/file.h"
#include "support/faulty_file.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

constexpr size_t position = 1000, count = 300;

/// The bytes of `whole`, with a gap of `count` bytes at `position` where there is none, whose value is nobody's matter.
std::string opened(std::string whole, bool isOpen) {
    if (!isOpen) whole.insert(position, count, '?');
    return whole.replace(position, count, count, '?');
}

TEST(EditingWithFaults, GoesBackToWhatWasThere) {
    std::string before(3 * 0x80000 + 77, '\0');  // three steps and a bit
    for (size_t i = 0; i < before.size(); ++i) before[i] = static_cast<char>(i * 2654435761u >> 24);
    for (const bool inserts : {true, false}) {
        for (const FaultyFile::Fault fault : FaultyFile::faults) {
            bool hasFailed = true;
            for (uint64_t n = 1; hasFailed; ++n) {
                const TSharedPtr<IFile> inner = memoryFile(before);
                FaultyFile file(inner);
                file.failAt(n, fault);
                ASSERT_TRUE(inserts ? file.Insert(position, count) : file.Remove(position, count));
                hasFailed = file.hasFailed();
                const std::string now = bytesOf(*inner);
                const auto is = [&](bool done) {
                    const std::string whole = now.substr(0, !done     ? now.size()
                                                            : inserts ? before.size() + count
                                                                      : before.size() - count);
                    return opened(whole, inserts == done) == opened(before, !inserts);
                };
                // A file that could not be cut is longer than it should be.
                EXPECT_TRUE(hasFailed ? is(false) || (!inserts && is(true)) : is(true)) << n << inserts;
                EXPECT_TRUE(!inserts || !hasFailed || now == before) << n;
                EXPECT_TRUE(hasFailed || n > 12);
            }
        }
    }
}

}  // namespace
}  // namespace qv::test
