// The kernels for AVX-512 (F, BW, DQ, VL).
#if defined(__x86_64__)
// What the intrinsics leave undefined on purpose, g++ 12 takes for a mistake.
#ifndef __clang__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>
#ifndef __clang__
#pragma GCC diagnostic pop
#endif

#include <cstring>
#include <utility>

#include "numerics/double_double.h"
#include "numerics/kernels/kernel_table.h"
#include "qv/spectral.h"

#define QV_KERNEL_SET avx512
#define QV_KERNEL_FEATURES featureAvx512
#define QV_VECTOR_BYTES 64
#define QV_HAS_VECTOR_TRUNCATION true
#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx2,fma,avx512f,avx512bw,avx512dq,avx512vl"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512bw,avx512dq,avx512vl,prefer-vector-width=512")
#endif
#include "numerics/kernels/loops.h"
#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif
