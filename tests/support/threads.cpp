// SPDX-License-Identifier: Apache-2.0
// Eight threads make the same calls on shared sources, each into memory of its own: for
// ThreadSanitizer, and all results are compared. With an argument all of them write to the same
// memory, which it has to report.
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "zonm.h"

namespace
{

constexpr int n = 6, count = 37, size = n * n, threads = 8, rounds = 100;
constexpr int row = n * 8, object = size * 8, narrowRow = n * 4, narrowObject = size * 4;
double a[count * size], b[count * size], v[count * n];
float f[count * size];

struct Results {
    double sum[count * size], product[count * size], lu[count * size], x[count * n];
    double vectors[count * size], values[count * n], buffer[2 * size];
    float elements[count * size], determinants[count], narrow[2 * size + 2 * n],
        inverse[count * size];
    int32_t pivots[count * n], status[8];
};

void work(Results *r)
{
    const float *from[size];
    float *to[size];
    for (int i = 0; i < size; ++i)
        from[i] = &f[i], to[i] = &r->elements[i];
    for (int round = 0; round < rounds; ++round) {
        r->status[0] = zonmAdd_mama_64f(a, object, row, 8, b, object, row, 8, r->sum, object, row,
                                        8, n, n, count);
        r->status[1] = zonmMul_mama_64f(a, object, row, 8, n, n, b, object, row, 8, n, n,
                                        r->product, object, row, 8, count);
        r->status[2] =
            zonmLUDecomp_ma_64f(a, object, row, 8, r->pivots, r->lu, object, row, 8, n, count);
        r->status[3] = zonmLUBackSubst_mava_64f(r->lu, object, row, 8, r->pivots, v, row, 8, r->x,
                                                row, 8, n, count);
        r->status[4] = zonmAdd_mama_32f_P(from, 0, narrowObject, from, 0, narrowObject, to, 0,
                                          narrowObject, n, n, count);
        r->status[5] =
            zonmDet_ma_32f(f, narrowObject, narrowRow, 4, n, r->narrow, r->determinants, count);
        r->status[6] = zonmCopy_ma_32f_SS(f, narrowObject, narrowRow, 4, r->inverse, narrowObject,
                                          narrowRow, 4, n, n, count);
        const ZonStatus null =
            zonmAdd_mama_64f(nullptr, 8, 8, 8, b, 8, 8, 8, r->sum, 8, 8, 8, 1, 1, 1);
        if (zonmGetLibVersion()->major != 8 || null != zonStsNullPointer)
            r->status[7] = 1;
    }
}

} // namespace

int main(int arguments, char **)
{
    unsigned s = 1;
    const auto next = [&] { return int(s = s * 1664525u + 1013904223u) * 0x1p-31; };
    for (int i = 0; i < count * size; ++i) {
        a[i] = next();
        b[i] = next();
        f[i] = float(a[i]);
    }
    for (int i = 0; i < count * n; ++i)
        v[i] = i;
    std::vector<Results> results(threads); // zeroed: no padding differs
    std::vector<std::thread> running;
    for (Results &r : results)
        running.emplace_back(work, arguments > 1 ? &results[0] : &r);
    for (std::thread &t : running)
        t.join();
    int wrong = 0;
    for (const Results &r : results) {
        wrong += std::memcmp(&r, &results[0], sizeof r) != 0;
        for (const int status : r.status)
            wrong += status != 0;
    }
    std::printf("%d threads, %d rounds, %d differences or failures\n", threads, rounds, wrong);
    return wrong != 0;
}
