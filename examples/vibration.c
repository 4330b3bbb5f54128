/* SPDX-License-Identifier: Apache-2.0 */
#include <complex.h>
#include <math.h>
#include <stdio.h>
#include <zonm.h>

/* Two masses on springs, sampled every 0.05 s: x(k+1) = A x(k), x = (q1, q2, velocities). */
static const double step = 0.05;
static const double A[4][4] = {{0.766114, 0.056947, 0.044845, 0.001437},
                               {0.112717, 0.881186, 0.002873, 0.047035},
                               {-8.825287, 2.098575, 0.722419, 0.073736},
                               {4.128813, -4.559800, 0.147472, 0.844707}};

int main(void)
{
    double y[4][4], re[4], im[4], buffer[4 * (3 * 4 + 5)];

    /* A * conj(y) = z * conj(y): the usual vectors are those that the library calls left. */
    ZonStatus status =
        zonmEigenValuesVectorsLeft_m_64f(A[0], 32, 8, y[0], 32, 8, re, im, 4, buffer);
    puts(zonmStatusText(status));
    for (int c = 0; c < 4 && status == zonStsOk; ++c) {
        if (im[c] <= 0) /* real, or the conjugate of the value before */
            continue;
        const double complex pole = clog(re[c] + im[c] * I) / step;
        const double complex q1 = y[0][c] - y[0][c + 1] * I, q2 = y[1][c] - y[1][c + 1] * I;
        printf("values %d, %d: %.2f Hz, damping %.2f %%, q2/q1 = %.3f at %.1f degrees\n", c, c + 1,
               cabs(pole) / (2 * acos(-1)), -100 * creal(pole) / cabs(pole), cabs(q2 / q1),
               fabs(carg(q2 / q1)) * 180 / acos(-1));
    }
    return fflush(stdout) != 0;
}
