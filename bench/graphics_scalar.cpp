// SPDX-License-Identifier: Apache-2.0
// GLM once more, compiled without vectors. Under a name of its own: the linker keeps one of two
// functions that are called alike.
#define BENCH_SCALAR
#define glm glm_scalar
#include "graphics.cpp"
