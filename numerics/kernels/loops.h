// Every kernel of one instruction set, and their table. The source of a set includes this inside the region that is
// compiled for it, with
//   QV_KERNEL_SET             the namespace in which all of it then lies, and the table's name
//   QV_KERNEL_FEATURES        what the set asks of the machine
//   QV_VECTOR_BYTES           the width of its registers
//   QV_HAS_VECTOR_TRUNCATION  whether vectors.h has instructions for it
// The files below include nothing: a function that other code shares must not be compiled inside the region.
// Each builds on those before it.
// clang-format off
#include "numerics/kernels/vectors.h"
#include "numerics/kernels/array_loops.h"
#include "numerics/kernels/minmax_loops.h"
#include "numerics/kernels/division_loops.h"
#include "numerics/kernels/exponential.h"
#include "numerics/kernels/planck_loops.h"
#include "numerics/kernels/frame_loops.h"
#include "numerics/kernels/table.h"
// clang-format on
