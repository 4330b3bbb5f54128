/* SPDX-License-Identifier: Apache-2.0 */
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <zonm.h>

typedef struct Body {
    int id;
    float pose[2][2];
} Body;

int main(void)
{
    Body bodies[2] = {{7, {{1, 2}, {3, 4}}}, {8, {{5, 6}, {7, 8}}}};
    const float offset[2][2] = {{1, 0}, {0, 1}};
    float a[2][2][2], b[2][2][2], c[2][2][2];
    enum { BODY = sizeof(Body), POSE = offsetof(Body, pose) };

    /* Strided: from pose to pose it is one body, from row to row two floats. */
    ZonStatus first =
        zonmSub_mam_32f(bodies[0].pose[0], BODY, 8, 4, offset[0], 8, 4, a[0][0], 16, 8, 4, 2, 2, 2);

    /* Objects: pointers to the bodies, the pose a shift behind; the single matrix has no table. */
    const float *objects[2] = {(const float *)&bodies[0], (const float *)&bodies[1]};
    float *results[2] = {b[0][0], b[1][0]};
    ZonStatus second =
        zonmSub_mam_32f_L(objects, POSE, 8, 4, offset[0], 8, 4, results, 0, 8, 4, 2, 2, 2);

    /* Elements: pointers to the elements of the first pose; the second is a body further on. */
    const float *p = bodies[0].pose[0], *q = offset[0];
    const float *elements[4] = {p, p + 1, p + 2, p + 3}, *offsets[4] = {q, q + 1, q + 2, q + 3};
    float *r = c[0][0], *sums[4] = {r, r + 1, r + 2, r + 3};
    ZonStatus third = zonmSub_mam_32f_P(elements, 0, BODY, offsets, 0, sums, 0, 16, 2, 2, 2);

    printf("%s; %s; %s\n", zonmStatusText(first), zonmStatusText(second), zonmStatusText(third));
    printf("%g %g / %g %g\n", a[1][0][0], a[1][0][1], a[1][1][0], a[1][1][1]);
    puts(memcmp(a, b, sizeof a) || memcmp(a, c, sizeof a) ? "different" : "the same");
    return fflush(stdout) != 0;
}
