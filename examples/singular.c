/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <zonm.h>

enum { N = 3, COUNT = 7, ELEMENT = sizeof(double), ROW = N * ELEMENT, MATRIX = N * ROW };

int main(void)
{
    double matrices[COUNT][N][N], factors[COUNT][N][N];
    int32_t pivots[COUNT][N];

    for (int k = 0; k < COUNT; ++k)
        for (int i = 0; i < N; ++i)
            for (int j = 0; j < N; ++j)
                matrices[k][i][j] = i == j && k % 3 != 2 ? 5 : 1; /* 2 and 5 are all ones */

    for (int k = 0; k < COUNT; ++k)
        pivots[k][0] = -1; /* the mark: there is no such row */
    for (int first = 0; first < COUNT;) {
        ZonStatus status =
            zonmLUDecomp_ma_64f(matrices[first][0], MATRIX, ROW, ELEMENT, pivots[first],
                                factors[first][0], MATRIX, ROW, ELEMENT, N, COUNT - first);
        int end = first; /* behind the last matrix without a mark */
        while (end < COUNT && pivots[end][0] >= 0)
            ++end;
        printf("matrices %d to %d%s\n", first, end - 1,
               status == zonStsSingular ? ", the last of them singular" : "");
        first = end;
    }
    return 0;
}
