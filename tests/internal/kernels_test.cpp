#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "numerics/kernels/kernel_table.h"

namespace {

using namespace qv::kernels;

TEST(KernelChoice, TakesTheForcedTableOnlyWhenTheMachineHasIt) {
    EXPECT_EQ(&chooseKernels(0, "baseline"), &baselineKernels);
    EXPECT_EQ(&chooseKernels(0, nullptr), &baselineKernels);
    EXPECT_EQ(&chooseKernels(0, "no such table"), &baselineKernels);
    for (const KernelTable* table : allKernels()) {
        EXPECT_EQ(&chooseKernels(~0u, table->name), table);
        if (table->features != 0) {
            EXPECT_NE(&chooseKernels(0, table->name), table);
        }
    }
}

TEST(KernelTables, HandleEveryTypeButUInt64) {
    for (const KernelTable* table : allKernels()) {
        for (size_t a = 0; a < typeCount; ++a) {
            for (size_t b = 0; b < typeCount; ++b) {
                const bool handled = a != tagUInt64 && b != tagUInt64;
                EXPECT_EQ(table->convert[a][b] != nullptr, handled) << table->name << a << ' ' << b;
                EXPECT_EQ(table->min[a][b] != nullptr, handled);
                EXPECT_EQ(table->max[a][b] != nullptr, handled);
                EXPECT_EQ(table->sum[a][b] != nullptr, handled);
                EXPECT_EQ(table->span[a][b] != nullptr, handled);
            }
            EXPECT_EQ(table->div[a] != nullptr, a != tagUInt64);
            for (const auto& row : table->minMax) EXPECT_EQ(row[a] != nullptr, a != tagUInt64);
        }
    }
}

/// Bytes that are numbers of every size in every type, with the special values of float among them.
std::vector<unsigned char> randomBytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i + 8 <= size; i += 8) {
        const double value = std::ldexp(double(random()) - 2147483648.0, int(random() % 90) - 40);
        const float single = static_cast<float>(value);
        const uint64_t integer = (uint64_t{random()} << 32 | random()) >> random() % 64;
        std::memcpy(&bytes[i], &integer, 8);
        if (random() % 3 == 0) std::memcpy(&bytes[i], &value, 8);
        if (random() % 3 == 0) std::memcpy(&bytes[i + 4], &single, 4);
    }
    return bytes;
}

TEST(KernelTables, EveryLengthAndAlignmentGivesTheElementRule) {
    const auto bits = [](double x) {
        uint64_t b;
        std::memcpy(&b, &x, sizeof b);
        return std::isnan(x) ? ~uint64_t{0} : b;
    };
    for (const KernelTable* table : allKernels()) {
        for (size_t offset = 0; offset < 3; ++offset) {
            for (const size_t count : {0u, 1u, 2u, 3u, 7u, 8u, 15u, 16u, 17u, 31u, 33u, 65u, 200u}) {
                const std::vector<unsigned char> source = randomBytes(8 * count + 64, unsigned(count));
                std::vector<unsigned char> out(8 * count + 64, 0xEE);
                table->convert[0][tagFlt64](out.data() + offset, source.data() + offset, count);
                table->span[8][4](reinterpret_cast<double*>(out.data() + 32), source.data(), source.data() + offset, 0);
                for (size_t i = 0; i < out.size(); ++i) {
                    const bool written = i >= offset && i < offset + count;
                    const auto want =
                        written ? convert<int8_t>(load<double>(source.data() + offset, i - offset)) : int8_t(0xEE);
                    ASSERT_EQ(static_cast<int8_t>(out[i]), want) << table->name << " byte " << i << " of " << count;
                }
                std::vector<double> spans(count + 1, -1.0);
                table->span[8][4](spans.data(), source.data() + offset, source.data(), count);
                for (size_t i = 0; i < count; ++i) {
                    const double want = span(load<float>(source.data() + offset, i), load<int32_t>(source.data(), i));
                    ASSERT_EQ(bits(spans[i]), bits(want)) << table->name << " element " << i << " of " << count;
                }
                EXPECT_EQ(spans[count], -1.0);
            }
        }
    }
}

}  // namespace
