// SPDX-License-Identifier: Apache-2.0
// A status is ignored here, and a compiler has to say so. The kit's functions can tell of nothing.
#include "zonm.h"

void ignore(const float *a, const float *b, float *sum)
{
    zonmAdd_mm_32f(a, 4, 4, b, 4, 4, sum, 4, 4, 1, 1);
}

void nothingToIgnore(const float *a, const float *b, float *sum) { zonmAdd_v3_32f(a, b, sum); }
