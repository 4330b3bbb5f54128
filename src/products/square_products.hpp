// SPDX-License-Identifier: Apache-2.0
// Products of N×N matrices in straight-line code, N a constant, for arrays of them.
//
// An operand comes as a function from k to the view of its object k. dst is written row by row.
#pragma once

#include "products/sums.hpp"

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

// Whether a row of B is as quickly loaded again for each row of A as kept.
template <class B> inline constexpr bool isCheapToReload =
    hasDenseRows<B> && sizeof(typename B::Element) == sizeof(double);

template <int N, Start S, Held H, class A, class B, class D>
void squareProducts(A a, B b, D d, ptrdiff_t count)
{
    if constexpr (H == Held::first) {
        const SpreadElements<N> held(a(0));
        for (ptrdiff_t k = 0; k < count; ++k) {
            if constexpr (N > 4 && isCheapToReload<decltype(b(k))>)
                squareProduct<N, S>(held, b(k), d(k));
            else
                squareProduct<N, S>(held, PackedRows<N>(b(k)), d(k));
        }
    } else if constexpr (H == Held::second) {
        const PackedRows<N> held(b(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            squareProduct<N, S>(a(k), held, d(k));
    } else {
        for (ptrdiff_t k = 0; k < count; ++k) {
            if constexpr (N > 4 && isCheapToReload<decltype(b(k))>)
                squareProduct<N, S>(a(k), b(k), d(k));
            else
                squareProduct<N, S>(a(k), PackedRows<N>(b(k)), d(k));
        }
    }
}

} // namespace zonm
