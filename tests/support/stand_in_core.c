/* SPDX-License-Identifier: Apache-2.0 */
/* Stands in for the core library: answers the one question and counts how often it is asked. */
#include <stdint.h>

int standInCoreCalls = 0;

uint32_t zonGetEnabledCpuFeatures(void)
{
    ++standInCoreCalls;
    return 32u | 16u;
}
