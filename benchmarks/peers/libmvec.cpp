#define QV_PLACE libmvec
#include "peers/planck_loops.h"
