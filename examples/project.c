/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <zonm.h>

typedef struct Vertex {
    unsigned colour;
    float position[3];
} Vertex;

int main(void)
{
    const Vertex vertices[3] = {
        {0xff0000, {0, 0, 0}}, {0x00ff00, {1, 0, 0}}, {0x0000ff, {0, 1, 0}}};
    const float eye[3] = {0, 0, 5}, at[3] = {0, 0, 0}, up[3] = {0, 1, 0};
    float world[16], view[16], projection[16], screen[3][3];

    zonmIdentity_m4_32f(world);
    zonmLookAtRH_m4_32f(eye, at, up, view);
    zonmPerspectiveRH_m4_32f(1, 1, 1, 9, projection);
    zonmProject_m4v3a_32f(projection, view, world, vertices[0].position, sizeof(Vertex), 600, 600,
                          0, 1, screen[0], sizeof screen[0], 3);
    for (int k = 0; k < 3; ++k)
        printf("%g %g %g\n", screen[k][0], screen[k][1], screen[k][2]);
    return 0;
}
