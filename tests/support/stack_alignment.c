/* SPDX-License-Identifier: Apache-2.0 */
/* 32-bit x86: exports are called with the stack at every multiple of 4 bytes, which is all that the
 * oldest conventions promise, and give the same results. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <zonm.h>

/* All arguments are words. */
__attribute__((noinline)) static int call(void *function, int words, const intptr_t *arguments,
                                          int shift)
{
    int status, bytes = words * 4;
    __asm__ volatile("movl %%esp, %%ebx\n\t"
                     "andl $-16, %%esp\n\t"
                     "subl %[shift], %%esp\n\t"
                     "subl $256, %%esp\n\t"
                     "movl %%esp, %%edi\n\t"
                     "rep movsb\n\t"
                     "call *%%eax\n\t"
                     "movl %%ebx, %%esp"
                     : "=a"(status), "+S"(arguments), "+c"(bytes)
                     : "a"(function), [shift] "d"(shift)
                     : "ebx", "edi", "memory", "cc");
    return status;
}

#define WORDS(a) ((int)(sizeof(a) / sizeof *(a)))

int main(void)
{
    static double a[8 * 36], b[8 * 36], d[4][8 * 36], x[4][8 * 6];
    static int32_t pivots[8 * 6];
    int failures = 0;
    for (int i = 0; i < 8 * 36; ++i) {
        a[i] = (i * 7919 % 101) / 101.0;
        b[i] = (i * 104729 % 97) / 97.0;
    }
    for (int s = 0; s < 4; ++s) {
        const intptr_t pa = (intptr_t)a, pb = (intptr_t)b, pp = (intptr_t)pivots;
        const intptr_t pd = (intptr_t)d[s], px = (intptr_t)x[s];
        const intptr_t product[] = {pa, 288, 48, 8, 6, 6, pb, 288, 48, 8, 6, 6, pd, 288, 48, 8, 8};
        const intptr_t factors[] = {pa, 288, 48, 8, pp, pd, 288, 48, 8, 6, 8};
        const intptr_t solution[] = {pd, 288, 48, 8, pp, pb, 48, 8, px, 48, 8, 6, 8};
        int status = call((void *)(intptr_t)zonmMul_mama_64f, WORDS(product), product, 4 * s);
        status |= call((void *)(intptr_t)zonmLUDecomp_ma_64f, WORDS(factors), factors, 4 * s);
        status |=
            call((void *)(intptr_t)zonmLUBackSubst_mava_64f, WORDS(solution), solution, 4 * s);
        const int same = status == 0 && memcmp(x[s], x[0], sizeof x[0]) == 0;
        printf("stack at 16n - %d: %s\n", 4 * s, same ? "the same" : "DIFFERS");
        failures += !same;
    }
    return failures != 0;
}
