#include "numerics/kernels/kernel_table.h"

#include <cstdlib>
#include <cstring>

#include "qv/typed_data.h"

namespace qv::kernels {

namespace {

constexpr const KernelTable* tables[] = {
    &baseline::table,
#if defined(__x86_64__)
    &avx2::table,
    &avx512::table,
#endif
};

// Reading it here makes the choice when the library is loaded, whether or not an array operation runs.
[[maybe_unused]] const KernelTable& chosenAtLoad = kernels();

}  // namespace

std::span<const KernelTable* const> allKernels() { return tables; }

uint32_t machineFeatures() {
    uint32_t features = 0;
#if defined(__x86_64__)
    // Both include the operating system's promise to save the wide registers.
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) features |= featureAvx2;
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl")) {
        features |= featureAvx512;
    }
#endif
    return features;
}

const KernelTable& chooseKernels(uint32_t features, const char* forced) {
    const KernelTable* best = &baseline::table;
    for (const KernelTable* table : tables) {
        if ((table->features & ~features) != 0) continue;
        if (forced != nullptr && std::strcmp(forced, table->name) == 0) return *table;
        best = table;
    }
    return *best;
}

const KernelTable& kernels() {
    static const KernelTable& chosen = chooseKernels(machineFeatures(), std::getenv("QV_KERNELS"));
    return chosen;
}

}  // namespace qv::kernels

const char* qv::Private::kernelName() { return kernels::kernels().name; }
