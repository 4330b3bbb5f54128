/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <zonm.h>

int main(void)
{
    double a[2][3][3] = {{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}, {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    double b[2][3][3] = {{{9, 8, 7}, {6, 5, 4}, {3, 2, 1}}, {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}}};
    double sum[2][3][3];

    /* Matrices lie 72 bytes apart, rows 24, elements 8; width 3, height 3, count 2. */
    ZonStatus status =
        zonmAdd_mama_64f(a[0][0], 72, 24, 8, b[0][0], 72, 24, 8, sum[0][0], 72, 24, 8, 3, 3, 2);
    puts(zonmStatusText(status));
    if (status != zonStsOk)
        return 1;
    for (int k = 0; k < 2; ++k)
        for (int i = 0; i < 3; ++i)
            printf("%g %g %g\n", sum[k][i][0], sum[k][i][1], sum[k][i][2]);
    return fflush(stdout) != 0; /* a full disk shows here */
}
