// The kernels for AVX2.
#if defined(__x86_64__)
#include <immintrin.h>

#include <cstring>
#include <utility>

#include "numerics/double_double.h"
#include "numerics/kernels/kernel_table.h"
#include "qv/spectral.h"

#define QV_KERNEL_SET avx2
#define QV_KERNEL_FEATURES featureAvx2
#define QV_VECTOR_BYTES 32
#define QV_HAS_VECTOR_TRUNCATION true
#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx2,fma"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#endif
#include "numerics/kernels/loops.h"
#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif
