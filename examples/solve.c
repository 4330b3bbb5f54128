/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <zonm.h>

enum { ELEMENT = sizeof(double), ROW = 3 * ELEMENT, MATRIX = 3 * ROW }; /* strides, in bytes */

static void solve(const double *matrices, const double *sides)
{
    double factors[2][3][3], x[2][3];
    int32_t pivots[2][3];

    ZonStatus status = zonmLUDecomp_ma_64f(matrices, MATRIX, ROW, ELEMENT, pivots[0], factors[0][0],
                                           MATRIX, ROW, ELEMENT, 3, 2);
    printf("decomposition: status %d\n", (int)status);
    if (status != zonStsOk)
        return;
    status = zonmLUBackSubst_mava_64f(factors[0][0], MATRIX, ROW, ELEMENT, pivots[0], sides, ROW,
                                      ELEMENT, x[0], ROW, ELEMENT, 3, 2);
    printf("substitution:  status %d\n", (int)status);
    for (int k = 0; k < 2; ++k)
        printf("x[%d] = (%g, %g, %g)\n", k, x[k][0], x[k][1], x[k][2]);
}

int main(void)
{
    double matrices[2][3][3] = {{{4, 1, 0}, {1, 4, 1}, {0, 1, 4}},
                                {{0, 2, 1}, {1, 0, 2}, {2, 1, 0}}};
    const double sides[2][3] = {{6, 12, 14}, {5, 5, 8}};

    solve(matrices[0][0], sides[0]);
    matrices[1][2][0] = 0; /* makes row 0 twice row 2: singular */
    matrices[1][2][2] = 0.5;
    solve(matrices[0][0], sides[0]);
    return 0;
}
