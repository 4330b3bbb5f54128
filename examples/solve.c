/* SPDX-License-Identifier: Apache-2.0 */
#include <math.h>
#include <stdio.h>
#include <zonm.h>

enum { ELEMENT = sizeof(double), ROW = 3 * ELEMENT, MATRIX = 3 * ROW }; /* strides, in bytes */

static void solve(const double *matrices, const double *sides)
{
    double factors[2][3][3], x[2][3];
    int32_t pivots[2][3];

    ZonStatus status = zonmLUDecomp_ma_64f(matrices, MATRIX, ROW, ELEMENT, pivots[0], factors[0][0],
                                           MATRIX, ROW, ELEMENT, 3, 2);
    if (status == zonStsOk)
        status = zonmLUBackSubst_mava_64f(factors[0][0], MATRIX, ROW, ELEMENT, pivots[0], sides,
                                          ROW, ELEMENT, x[0], ROW, ELEMENT, 3, 2);
    puts(zonmStatusText(status));
    for (int k = 0; k < 2 && status == zonStsOk; ++k) {
        double smallest = INFINITY; /* pivot i is U(i, i), in row pivots[i] */
        for (int i = 0; i < 3; ++i)
            smallest = fmin(smallest, fabs(factors[k][pivots[k][i]][i]));
        printf("x[%d] = (%g, %g, %g), smallest pivot %.2g\n", k, x[k][0], x[k][1], x[k][2],
               smallest);
    }
}

int main(void)
{
    const double regular[2][3][3] = {{{4, 1, 0}, {1, 4, 1}, {0, 1, 4}},
                                     {{0, 2, 1}, {1, 0, 2}, {2, 1, 0}}};
    const double singular[2][3][3] = {{{4, 1, 0}, {1, 4, 1}, {0, 1, 4}},
                                      {{0, 2, 1}, {1, 0, 2}, {0, 1, 0.5}}};
    const double unnoticed[2][3][3] = {{{4, 1, 0}, {1, 4, 1}, {0, 1, 4}},
                                       {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}};
    const double sides[2][3] = {{6, 12, 14}, {5, 5, 8}};

    solve(regular[0][0], sides[0]);
    solve(singular[0][0], sides[0]);  /* row 0 is twice row 2 */
    solve(unnoticed[0][0], sides[0]); /* singular as well, but for a residue of rounding */
    return fflush(stdout) != 0;
}
