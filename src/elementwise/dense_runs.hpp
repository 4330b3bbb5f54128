// SPDX-License-Identifier: Apache-2.0
// Element-wise work on runs of neighbouring elements, a pack at a time. Each pack is read whole
// before it is written, and packs follow each other in ascending order.
#pragma once

#include "frame/packs.hpp"

#include <algorithm>
#include <utility>

namespace zonm
{

// dst[x] = a[x] op b[x] for W neighbouring elements.
template <class Op, class T, int W>
inline void combinePack(std::byte *dst, const std::byte *a, const std::byte *b)
{
    if constexpr (W == 1)
        store<T>(dst, Op::apply(load<T>(a), load<T>(b)));
    else
        storePack(dst, Op::apply(loadPack<T, W>(a), loadPack<T, W>(b)));
}

// A run whose length is known at compile time: the widest packs that fit, then narrower ones.
template <class Op, class T, ptrdiff_t Length, int W = registerBytes / int(sizeof(T))>
inline void combineRun(std::byte *dst, const std::byte *a, const std::byte *b)
{
    constexpr ptrdiff_t packs = Length / W, packBytes = W * ptrdiff_t(sizeof(T));
    [&]<ptrdiff_t... P>(std::integer_sequence<ptrdiff_t, P...>)
    {
        (combinePack<Op, T, W>(dst + P * packBytes, a + P * packBytes, b + P * packBytes), ...);
    }
    (std::make_integer_sequence<ptrdiff_t, packs>());
    if constexpr (Length % W != 0)
        combineRun<Op, T, Length % W, W / 2>(dst + packs * packBytes, a + packs * packBytes,
                                             b + packs * packBytes);
}

template <class Op, class T>
inline void combineRun(std::byte *dst, const std::byte *a, const std::byte *b, ptrdiff_t length)
{
    constexpr int pack = registerBytes / int(sizeof(T)), unrolled = 4;
    for (; length >= unrolled * pack; length -= unrolled * pack) {
        combineRun<Op, T, unrolled * pack>(dst, a, b);
        dst += unrolled * registerBytes, a += unrolled * registerBytes,
            b += unrolled * registerBytes;
    }
    for (; length >= pack; length -= pack) {
        combinePack<Op, T, pack>(dst, a, b);
        dst += registerBytes, a += registerBytes, b += registerBytes;
    }
    for (; length > 0; --length) {
        combinePack<Op, T, 1>(dst, a, b);
        dst += sizeof(T), a += sizeof(T), b += sizeof(T);
    }
}

} // namespace zonm
