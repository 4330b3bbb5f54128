// SPDX-License-Identifier: Apache-2.0
// The check steps. An entry judges its arguments in the order that its export prescribes; each step
// judges a whole class of them with one branch.
#pragma once

#include "frame/memory.hpp"
#include "zonm.h"

namespace zonm {

inline constexpr std::uint32_t signBit = 0x80000000u;

template <class... P> inline bool anyNull(const P *...p) { return (... | (p == nullptr)); }

// A value below 1 has the sign bit set either in itself or in its predecessor.
template <class... I> inline bool anyBelowOne(I... value)
{
    const auto bits = (... | (std::uint32_t(value) | (std::uint32_t(value) - 1u)));
    return (bits & signBit) != 0;
}

// A stride is a positive multiple of the element size.
template <class T, class... I> inline bool anyBadStride(I... stride)
{
    const auto bits = (... | std::uint32_t(stride));
    return ((bits & (sizeof(T) - 1)) != 0) | anyBelowOne(stride...);
}

// A shift is zero or a positive multiple of the element size.
template <class T, class... I> inline bool anyBadShift(I... shift)
{
    const auto bits = (... | std::uint32_t(shift));
    return (bits & (signBit | (sizeof(T) - 1))) != 0;
}

} // namespace zonm
