// SPDX-License-Identifier: Apache-2.0
// How a decomposition goes through its objects. All end at the first object that fails and return
// its status; the objects behind it are untouched.
#pragma once

#include "frame/groups.hpp"
#include "zonm.h"

namespace zonm
{

// One object after the other: one(k) returns its status.
template <class One> inline ZonStatus decomposeEach(int32_t count, One one)
{
    for (int32_t k = 0; k < count; ++k) {
        const ZonStatus status = one(k);
        if (status != zonStsOk)
            return status;
    }
    return zonStsOk;
}

// In groups: together(group) returns false, with nothing stored, if an object of the group fails.
// `written` and `read` are the tied objects that a call writes and reads.
template <int Registers = interleaved, class Written, class Read, class Together, class One>
ZONM_INLINED inline ZonStatus decomposeGroups(int32_t count, Written written, Read read,
                                              Together together, One one)
{
    ZonStatus status = zonStsOk;
    forEachGroup<Registers>(count, written, read, together, [&](int32_t k) ZONM_INLINED {
        status = one(k);
        return status == zonStsOk;
    });
    return status;
}

} // namespace zonm
