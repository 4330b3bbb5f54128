// SPDX-License-Identifier: Apache-2.0
// How a substitution goes through its systems: a matrix for each vector, one matrix for all, or
// sizes without straight-line code. Nothing is tested and nothing can fail.
//
// A family brings its kernels:
//   together(group)   solves a group, read whole before it is written
//   one(k)            solves one system
#pragma once

#include "frame/groups.hpp"

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
