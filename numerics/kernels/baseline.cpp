// The kernels for the instruction set that the whole library is compiled for.
#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include <cstring>
#include <utility>

#include "numerics/double_double.h"
#include "numerics/kernels/kernel_table.h"
#include "qv/spectral.h"

#define QV_KERNEL_SET baseline
#define QV_KERNEL_FEATURES 0
#define QV_VECTOR_BYTES 16
#if defined(__SSE2__)
#define QV_HAS_VECTOR_TRUNCATION true
#else
#define QV_HAS_VECTOR_TRUNCATION false
#endif
#include "numerics/kernels/loops.h"
