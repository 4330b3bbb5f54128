// SPDX-License-Identifier: Apache-2.0
// The check steps. An entry judges its arguments in the order that its export prescribes; each step
// judges a whole class of them with one branch.
#pragma once

#include "frame/memory.hpp"
#include "zonm.h"

namespace zonm
{

template <class... P> inline bool anyNull(const P *...p) { return (... | (p == nullptr)); }

template <class... I> inline bool anyBelowOne(I... value)
{
    return (... | (std::int64_t(value) - 1)) < 0;
}

// A stride is a positive multiple of the element size. Less one element it must not be negative,
// and that leaves its low bits as they were.
template <class T, class... I> inline bool anyBadStride(I... stride)
{
    const auto bits = (... | (std::int64_t(stride) - std::int64_t(sizeof(T))));
    return (bits < 0) | ((bits & (sizeof(T) - 1)) != 0);
}

// A shift is zero or a positive multiple of the element size.
template <class T, class... I> inline bool anyBadShift(I... shift)
{
    const auto bits = (... | shift);
    return (bits < 0) | ((bits & int32_t(sizeof(T) - 1)) != 0);
}

} // namespace zonm
