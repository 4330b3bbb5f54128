/* SPDX-License-Identifier: Apache-2.0 */
/* The header as strict C99 sees it. */
#include "zonm.h"

#include <stddef.h>

size_t recordSizeInC(void) { return sizeof(ZonVersionRecord); }

int32_t majorVersionInC(void)
{
    const ZonVersionRecord *(*query)(void) = zonmGetLibVersion;
    return query()->major;
}

ZonStatus addInC(const float *a, const float *b, float *sum)
{
    return zonmAdd_mm_32f(a, 4, 4, b, 4, 4, sum, 4, 4, 1, 1);
}
