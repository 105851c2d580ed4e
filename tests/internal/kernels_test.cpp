#include <gtest/gtest.h>

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

TEST(KernelTables, WriteTheirElementsAndNothingBehindThem) {
    for (const KernelTable* table : allKernels()) {
        for (const size_t count : {0u, 1u, 3u, 8u, 15u, 16u, 17u, 33u, 65u}) {
            std::vector<float> source(count + 1);
            for (size_t i = 0; i < count; ++i) source[i] = 100.7f * float(i) - 1000.0f;
            std::vector<unsigned char> out(2 * count + 3, 0xEE);
            table->convert[3][8](out.data() + 1, source.data(), count);
            for (size_t i = 0; i < count; ++i) {
                ASSERT_EQ(load<uint16_t>(out.data() + 1, i), convert<uint16_t>(source[i])) << table->name << i;
            }
            EXPECT_TRUE(out[0] == 0xEE && out[2 * count + 1] == 0xEE && out[2 * count + 2] == 0xEE) << count;
        }
    }
}

}  // namespace
