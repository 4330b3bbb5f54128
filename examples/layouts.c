/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zonm.h>

enum { COUNT = 10000, ELEMENT = sizeof(double), ROW = 3 * ELEMENT, MATRIX = 3 * ROW };

typedef struct Body {
    int id;
    double pose[3][3];
    double mass;
} Body;

static double packed[COUNT][3][3], interleaved[3][3][COUNT], pool[COUNT][3][3], columns[9][COUNT];
static Body bodies[COUNT];
static double *objects[COUNT], *elements[9];
static const double *sourceObjects[COUNT], *sourceElements[9];

static void must(ZonStatus status)
{
    if (status != zonStsOk) {
        fprintf(stderr, "%s\n", zonmStatusText(status));
        exit(1);
    }
}

/* Takes the matrices out of their layout again, all in a row, and compares. */
static void report(const char *layout, ZonStatus status, const double *dense)
{
    printf("%-12s status %d, %s\n", layout, (int)status,
           memcmp(dense, packed, sizeof packed) ? "different" : "the same");
}

int main(void)
{
    static double dense[COUNT][3][3];
    double *const first = packed[0][0], *const plane = interleaved[0][0], *const out = dense[0][0];
    double *const pose = bodies[0].pose[0];
    const int32_t line = COUNT * ELEMENT, body = sizeof(Body);

    for (int e = 0; e < COUNT * 9; ++e)
        first[e] = e;
    for (int k = 0; k < COUNT; ++k)
        sourceObjects[k] = objects[k] = pool[(k * 7) % COUNT][0]; /* anywhere */
    for (int e = 0; e < 9; ++e)
        sourceElements[e] = elements[e] = columns[8 - e]; /* anywhere */

    /* From the packed array to each of the others. */
    must(zonmCopy_ma_64f_SS(first, MATRIX, ROW, ELEMENT, plane, ELEMENT, 3 * line, line, 3, 3,
                            COUNT));
    must(zonmCopy_ma_64f_SS(first, MATRIX, ROW, ELEMENT, pose, body, ROW, ELEMENT, 3, 3, COUNT));
    must(zonmCopy_ma_64f_SL(first, MATRIX, ROW, ELEMENT, objects, 0, ROW, ELEMENT, 3, 3, COUNT));
    must(zonmCopy_ma_64f_SP(first, MATRIX, ROW, ELEMENT, elements, 0, ELEMENT, 3, 3, COUNT));

    /* The same work where they lie: all of them doubled, in place. */
    must(zonmMul_mac_64f(first, MATRIX, ROW, ELEMENT, 2, first, MATRIX, ROW, ELEMENT, 3, 3, COUNT));
    must(zonmMul_mac_64f(plane, ELEMENT, 3 * line, line, 2, plane, ELEMENT, 3 * line, line, 3, 3,
                         COUNT));
    must(zonmMul_mac_64f(pose, body, ROW, ELEMENT, 2, pose, body, ROW, ELEMENT, 3, 3, COUNT));
    must(zonmMul_mac_64f_L(sourceObjects, 0, ROW, ELEMENT, 2, objects, 0, ROW, ELEMENT, 3, 3,
                           COUNT));
    must(zonmMul_mac_64f_P(sourceElements, 0, ELEMENT, 2, elements, 0, ELEMENT, 3, 3, COUNT));

    /* And back, without gaps. */
    report("interleaved", zonmExtract_ma_64f(plane, ELEMENT, 3 * line, line, out, 3, 3, COUNT),
           out);
    report("records", zonmExtract_ma_64f(pose, body, ROW, ELEMENT, out, 3, 3, COUNT), out);
    report("objects", zonmExtract_ma_64f_L(sourceObjects, 0, ROW, ELEMENT, out, 3, 3, COUNT), out);
    report("elements", zonmExtract_ma_64f_P(sourceElements, 0, ELEMENT, out, 3, 3, COUNT), out);
    printf("the last element: %g\n", dense[COUNT - 1][2][2]);
    return 0;
}
