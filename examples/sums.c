/* SPDX-License-Identifier: Apache-2.0 */
/* Adds two arrays of thousands of small matrices in one call, and once more through object tables.
 */
#define _POSIX_C_SOURCE 199309L
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <zonm.h>

enum { N = 3, COUNT = 20000 };
typedef double Matrix[N][N];

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

int main(void)
{
    static Matrix a[COUNT], b[COUNT], sum[COUNT], again[COUNT];
    static const double *tableA[COUNT], *tableB[COUNT];
    static double *tableSum[COUNT];
    const int32_t object = sizeof(Matrix), row = sizeof a[0][0], element = sizeof a[0][0][0];

    for (int k = 0; k < COUNT; ++k) {
        for (int i = 0; i < N; ++i)
            for (int j = 0; j < N; ++j) {
                a[k][i][j] = k + 10 * i + j;
                b[k][i][j] = 0.5;
            }
        /* The objects may lie anywhere; here the table visits them backwards. */
        tableA[k] = a[COUNT - 1 - k][0];
        tableB[k] = b[COUNT - 1 - k][0];
        tableSum[k] = again[COUNT - 1 - k][0];
    }

    ZonStatus status = zonStsOk;
    double best = 1e9;
    for (int repeat = 0; repeat < 20; ++repeat) {
        const double start = now();
        status = zonmAdd_mama_64f(a[0][0], object, row, element, b[0][0], object, row, element,
                                  sum[0][0], object, row, element, N, N, COUNT);
        const double seconds = now() - start;
        best = seconds < best ? seconds : best;
    }
    printf("%d sums of %dx%d matrices, %.2f ns each: %s\n", COUNT, N, N, best / COUNT * 1e9,
           zonmStatusText(status));

    status = zonmAdd_mama_64f_L(tableA, 0, row, element, tableB, 0, row, element, tableSum, 0, row,
                                element, N, N, COUNT);
    int equal = 1;
    for (int k = 0; k < COUNT; ++k)
        for (int e = 0; e < N * N; ++e)
            equal &= sum[k][e / N][e % N] == again[k][e / N][e % N];
    printf("through object tables, %s sums: %s\n", equal ? "the same" : "OTHER",
           zonmStatusText(status));
    printf("the last of them: %g %g %g ...\n", sum[COUNT - 1][0][0], sum[COUNT - 1][0][1],
           sum[COUNT - 1][0][2]);

    status = zonmAdd_mama_64f(a[0][0], object, 6, element, b[0][0], object, row, element, sum[0][0],
                              object, row, element, N, N, COUNT);
    const int refused = status == zonStsBadStride;
    printf("a row stride of 6 bytes is %s: %s\n", refused ? "refused" : "NOT REFUSED",
           zonmStatusText(status));
    return equal && refused && fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
