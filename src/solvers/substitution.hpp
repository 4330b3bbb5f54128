// SPDX-License-Identifier: Apache-2.0
// How a substitution goes through its systems: a matrix for each vector, one matrix for all, or
// sizes without straight-line code. Nothing is tested and nothing can fail.
//
// A family brings its kernels:
//   together(group)   solves a group, read whole before it is written
//   one(k)            solves one system
#pragma once

#include "solvers/kernels.hpp"

namespace zonm
{

// `written` and `read` are the tied objects that a call writes and reads.
template <class Written, class Read, class Together, class One>
ZONM_INLINED inline void substituteGroups(int32_t count, Written written, Read read,
                                          Together together, One one)
{
    forEachGroup(
        count, written, read,
        [&](Group group) ZONM_INLINED {
            together(group);
            return true;
        },
        [&](int32_t k) ZONM_INLINED {
            one(k);
            return true;
        });
}

// The vectors of a group, read whole; solve(x) turns them into the solutions.
template <int N, class B, class D, class Solve>
ZONM_INLINED inline void solveGroup(const B &src2, const D &dst, Group group, Solve solve)
{
    GroupDouble x[N];
    const auto b = viewsOf(src2, group);
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        x[i] = gathered(b, [&](auto &v) ZONM_INLINED { return v(i); });
    });
    solve(x);
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        unrolled<0, N>([&](auto i) ZONM_INLINED { d.set(i, element(x[i])); });
    });
}

// Large matrices that come from memory are better read one after the other: the hardware then reads
// ahead.
inline bool isStreamed(ptrdiff_t bytesPerMatrix, int32_t matrices)
{
    return bytesPerMatrix > 1024 && bytesPerMatrix > (ptrdiff_t(4) << 20) / matrices;
}

// For kernels that read back what they have written to `dst`, so that it must be apart from all
// that is read, and its objects from one another.
template <class D, class Read, class Together, class One>
ZONM_INLINED inline void substituteGroupsInDst(int32_t count, bool mayGroup, const D &dst,
                                               Read read, Together together, One one)
{
    int32_t k = 0;
    if (mayGroup && count >= groupSize && areApart(dst) &&
        areIndependent(Regions(count, dst), regionsOf(count, read), count))
        for (; k <= count - groupSize; k += groupSize)
            together(Group{k});
    for (; k < count; ++k)
        one(k);
}

} // namespace zonm
