// SPDX-License-Identifier: Apache-2.0
// Products of any size, cut into tiles of dst whose sums stay in registers while p ascends.
#pragma once

#include "products/sums.hpp"

namespace zonm {

// Where the sum of an element lives while it grows: in a register, or in dst, which rounds it.
enum class Sum { wide, inDst };

template <Sum Kept, class T, int W> ZONM_INLINE Sums<W> kept(Sums<W> sum)
{
    if constexpr (Kept == Sum::inDst)
        return rounded<T, W>(sum);
    else
        return sum;
}

// Rows i to i + R - 1, columns j to j + C*W - 1.
template <int R, int C, int W, Sum Kept, class A, class B, class D>
ZONM_INLINE void tile(const A &a, const B &b, const D &d, ptrdiff_t i, ptrdiff_t j, ptrdiff_t inner)
{
    using T = typename D::Element;
    Sums<W> sum[R][C];
    unrolled<R>([&](auto r) ZONM_UNROLLED {
        unrolled<C>([&](auto c) ZONM_UNROLLED { sum[r][c] = all<W>(0.0); });
    });
    for (ptrdiff_t p = 0; p < inner; ++p) {
        Sums<W> factor[R];
        unrolled<R>([&](auto r) ZONM_UNROLLED { factor[r] = spread<W>(a, i + r, p); });
        unrolled<C>([&](auto c) ZONM_UNROLLED {
            const auto right = row<W>(b, p, j + c * W);
            unrolled<R>([&](auto r) ZONM_UNROLLED {
                sum[r][c] = kept<Kept, T, W>(sum[r][c] + factor[r] * right);
            });
        });
    }
    unrolled<R>([&](auto r) ZONM_UNROLLED {
        unrolled<C>([&](auto c) ZONM_UNROLLED { setRow<W>(d, i + r, j + c * W, sum[r][c]); });
    });
}

// All columns of rows i to i + R - 1, in ascending order.
template <int R, int C, int W, Sum Kept, class A, class B, class D>
ZONM_INLINE void band(const A &a, const B &b, const D &d, ptrdiff_t i, ptrdiff_t j, Extents e)
{
    for (; j + C * W <= e.columns; j += C * W)
        tile<R, C, W, Kept>(a, b, d, i, j, e.inner);
    if constexpr (C > 1)
        band<R, C / 2, W, Kept>(a, b, d, i, j, e);
    else if constexpr (W > 1)
        band<R, 1, W / 2, Kept>(a, b, d, i, j, e);
}

// One object. With one row at a time the elements of dst are stored in row order.
template <int R, int C, Sum Kept, class A, class B, class D>
ZONM_APART void tiledProduct(A a, B b, D d, const Extents &extents)
{
    const Extents e = extents;
    ptrdiff_t i = 0;
    for (; i + R <= e.rows; i += R)
        band<R, C, sumLanes, Kept>(a, b, d, i, 0, e);
    if constexpr (R > 1)
        for (; i < e.rows; ++i)
            band<1, C, sumLanes, Kept>(a, b, d, i, 0, e);
}

// Element after element, in the order in which the block of four rows and two columns stores them:
// for a dst whose elements coincide.
template <class A, class B, class D>
ZONM_APART void productInBlockOrder(A a, B b, D d, const Extents &extents)
{
    const Extents e = extents;
    const auto column = [&](ptrdiff_t i, ptrdiff_t end, ptrdiff_t j) {
        for (; i < end; ++i)
            tile<1, 1, 1, Sum::wide>(a, b, d, i, j, e.inner);
    };
    const ptrdiff_t rows4 = e.rows & ~ptrdiff_t(3), columns2 = e.columns & ~ptrdiff_t(1);
    for (ptrdiff_t i = 0; i < rows4; i += 4)
        for (ptrdiff_t j = 0; j < columns2; ++j)
            column(i, i + 4, j);
    if (columns2 < e.columns)
        for (ptrdiff_t i = 0; i < rows4; i += 4)
            column(i, i + 4, columns2);
    for (ptrdiff_t j = 0; j < e.columns; ++j)
        column(rows4, e.rows, j);
}

} // namespace zonm
