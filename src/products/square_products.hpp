// SPDX-License-Identifier: Apache-2.0
// Products of N×N matrices in straight-line code, N a constant, for arrays of them.
//
// An operand comes as a function from k to the view of its object k. dst is written row by row.
#pragma once

#include "products/operands.hpp"
#include "products/sums.hpp"
#include "zonm.h"

namespace zonm {

// What a chain begins with: its first product, or the sum of 0.0 and that. The sign of a zero tells.
enum class Start { product, zero };

// The operand that is one matrix for all k, if its elements stay in registers.
enum class Held { none, first, second };

// B as rows of packs, widened.
template <int N> struct PackedRows {
    static constexpr int padded = (N + sumLanes - 1) / sumLanes * sumLanes;
    using Element = double;
    alignas(registerBytes) double element[N][padded];

    template <class B> explicit ZONM_INLINE PackedRows(const B &b)
    {
        cut<N>([&](auto j, auto w) ZONM_UNROLLED {
            unrolled<N>([&](auto p) ZONM_UNROLLED {
                storeNarrowed<double, w>(bytes(&element[p][j]), row<w>(b, p, j));
            });
        });
    }
    const std::byte *at(int i, int j) const { return bytes(&element[i][j]); }
};
template <int N> inline constexpr bool hasDenseRows<PackedRows<N>> = true;

// A with every element in all lanes.
template <int N> struct SpreadElements {
    Sums<sumLanes> element[N][N];

    template <class A> explicit ZONM_INLINE SpreadElements(const A &a)
    {
        unrolled<N>([&](auto i) ZONM_UNROLLED {
            unrolled<N>([&](auto p) ZONM_UNROLLED { element[i][p] = spread<sumLanes>(a, i, p); });
        });
    }
};
template <int W, int N>
ZONM_INLINE Sums<W> spread(const SpreadElements<N> &a, ptrdiff_t i, ptrdiff_t p)
{
    return first<W>(a.element[i][p]);
}

template <int N, Start S, class A, class B, class D>
ZONM_INLINE void squareProduct(const A &a, const B &b, const D &d)
{
    unrolled<N>([&](auto i) ZONM_UNROLLED {
        Sums<sumLanes> factor[N];
        unrolled<N>([&](auto p) ZONM_UNROLLED { factor[p] = spread<sumLanes>(a, i, p); });
        cut<N>([&](auto j, auto w) ZONM_UNROLLED {
            Sums<w> sum = first<w>(factor[0]) * row<w>(b, 0, j);
            if constexpr (S == Start::zero)
                sum = all<w>(0.0) + sum;
            unrolled<N - 1>([&](auto p) ZONM_UNROLLED {
                sum = sum + first<w>(factor[p + 1]) * row<w>(b, p + 1, j);
            });
            setRow<w>(d, i, j, sum);
        });
    });
}

template <int N, Start S, class A, class B, class D>
ZONM_INLINE void multiplyRows(const A &a, const B &b, const D &d)
{
    // Rows of doubles are as quickly loaded again for each row of A as kept, when there are many.
    if constexpr (std::is_same_v<B, PackedRows<N>> ||
                  (N > 4 && hasDenseRows<B> && sizeof(typename B::Element) == sizeof(double)))
        squareProduct<N, S>(a, b, d);
    else
        squareProduct<N, S>(a, PackedRows<N>(b), d);
}

// With rows of `LA`, `LB` and `LD`; a held operand has any layout, since it is read once.
template <int N, Start S, Held H, Layout LA, Layout LB, Layout LD, class P>
ZONM_APART ZonStatus squareProducts(const P &call)
{
    const auto a = call.a, b = call.b;
    const auto d = call.d;
    const ptrdiff_t count = call.count;
    if constexpr (H == Held::first) {
        const SpreadElements<N> held(a.template view<LA>(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            multiplyRows<N, S>(held, b.template view<LB>(k), d.template view<LD>(k));
    } else if constexpr (H == Held::second) {
        const PackedRows<N> held(b.template view<LB>(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            multiplyRows<N, S>(a.template view<LA>(k), held, d.template view<LD>(k));
    } else {
        for (ptrdiff_t k = 0; k < count; ++k)
            multiplyRows<N, S>(a.template view<LA>(k), b.template view<LB>(k),
                               d.template view<LD>(k));
    }
    return zonStsOk;
}

} // namespace zonm
