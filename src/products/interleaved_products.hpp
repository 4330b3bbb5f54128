// SPDX-License-Identifier: Apache-2.0
// Products of interleaved objects, of any size: the elements of one place lie side by side for all
// objects, so that registers are loaded with those of several, and a lane forms the chains of its
// own object.
#pragma once

#include "frame/overlap.hpp"
#include "products/chains.hpp"
#include "zonm.h"

#include <algorithm>

namespace zonm
{

// How many objects are multiplied together: those of two registers.
inline constexpr int interleavedAtATime = 2 * doublesPerRegister;

using InterleavedElements = Doubles<doublesPerRegister>[2];

// The elements of one place; a single operand has but one.
template <class T, bool Many>
ZONM_INLINED inline void loadPlace(InterleavedElements &x, const std::byte *at)
{
    constexpr int W = doublesPerRegister;
    if constexpr (Many)
        unrolled<0, 2>([&](auto r) ZONM_INLINED {
            x[r] = loadDoubles<T, W>(at + r * W * ptrdiff_t(sizeof(T)));
        });
    else
        x[0] = x[1] = inAllLanes<W>(double(load<T>(at)));
}

// C neighbouring elements of a row of dst, from a row of A and C columns of B.
template <int C, bool ManyA, bool ManyB, class A, class B, class D>
ZONM_INLINED inline void interleavedTile(A a, B b, const D &d, ptrdiff_t inner, double start)
{
    using T = typename D::Element;
    constexpr int W = doublesPerRegister;
    InterleavedElements sum[C];
    unrolled<0, C>([&](auto c) ZONM_INLINED { sum[c][0] = sum[c][1] = inAllLanes<W>(start); });
    for (; inner > 0; --inner, a = partFrom(a, 0, 1), b = partFrom(b, 1, 0)) {
        InterleavedElements left, right;
        loadPlace<T, ManyA>(left, a.base);
        unrolled<0, C>([&](auto c) ZONM_INLINED {
            loadPlace<T, ManyB>(right, b.at(0, c));
            unrolled<0, 2>([&](auto r)
                               ZONM_INLINED { sum[c][r] = sum[c][r] + left[r] * right[r]; });
        });
    }
    unrolled<0, C>([&](auto c) ZONM_INLINED {
        unrolled<0, 2>([&](auto r) ZONM_INLINED {
            storeDoubles<T, W>(d.at(0, c) + r * W * ptrdiff_t(sizeof(T)), sum[c][r]);
        });
    });
}

// Whether a source's objects follow each other element by element, or there is only one.
template <class Objects> inline bool isSideBySide(const Objects &o)
{
    return !o.origins.isTable() &&
           (o.origins.step == 0 || o.origins.step == sizeof(typename Objects::Value));
}

// Whether all operands allow it; nothing of dst may lie in two places.
template <class A, class B, class D>
inline bool areInterleavedProducts(const A &a, const B &b, const D &d, ptrdiff_t count)
{
    return count >= interleavedAtATime && isSideBySide(d) &&
           (a.origins.step != 0 || b.origins.step != 0) && isSideBySide(a) && isSideBySide(b) &&
           areInterleaved(d, count);
}

// The last objects may be multiplied twice: what comes out is the same.
template <bool ManyA, bool ManyB, class A, class B, class D>
[[gnu::noinline]] ZonStatus interleavedProducts(const A &src1, const B &src2, const D &dst,
                                                double start, ptrdiff_t count)
{
    const A a = src1;
    const B b = src2;
    const D d = dst;
    for (ptrdiff_t k = 0; k < count; k += interleavedAtATime) {
        const ptrdiff_t first = std::min<ptrdiff_t>(k, count - interleavedAtATime);
        for (ptrdiff_t i = 0; i < d.rows; ++i) {
            const auto columnsFrom = [&](ptrdiff_t j, auto columns) ZONM_INLINED {
                interleavedTile<columns, ManyA, ManyB>(partFrom(a(first), i, 0),
                                                       partFrom(b(first), 0, j),
                                                       partFrom(d(first), i, j), a.columns, start);
                return columns;
            };
            for (ptrdiff_t j = 0; j < d.columns;) {
                switch (d.columns - j) {
                case 1: j += columnsFrom(j, std::integral_constant<int, 1>{}); break;
                case 2: j += columnsFrom(j, std::integral_constant<int, 2>{}); break;
                case 3:
                case 5: j += columnsFrom(j, std::integral_constant<int, 3>{}); break;
                default: j += columnsFrom(j, std::integral_constant<int, 4>{}); break;
                }
            }
        }
    }
    return zonStsOk;
}

// The same with its operands told apart.
template <class A, class B, class D>
inline ZonStatus multiplyInterleaved(const A &a, const B &b, const D &d, double start,
                                     ptrdiff_t count)
{
    if (a.origins.step == 0)
        return interleavedProducts<false, true>(a, b, d, start, count);
    if (b.origins.step == 0)
        return interleavedProducts<true, false>(a, b, d, start, count);
    return interleavedProducts<true, true>(a, b, d, start, count);
}

} // namespace zonm
