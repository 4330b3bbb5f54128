// SPDX-License-Identifier: Apache-2.0
// Products of any size, cut into tiles of dst whose sums stay in registers while p ascends.
#pragma once

#include "products/operands.hpp"
#include "products/sums.hpp"

namespace zonm {

// Where the sum of an element lives while it grows: in a register, or in dst, which rounds it.
enum class Sum { wide, inDst };

// Adds the products of columns p to p + Q - 1 of A.
template <int Q, int R, int C, int W, Sum Kept, class T, class A, class B>
ZONM_INLINE void addProducts(Sums<W> (&sum)[R][C], const A &a, const B &b, ptrdiff_t i, ptrdiff_t j,
                             ptrdiff_t p)
{
    Sums<sumLanes> left[R][Q];
    spread(left, a, i, p);
    unrolled<C>([&](auto c) ZONM_UNROLLED {
        Sums<W> right[Q];
        loadRows<Q, W>(right, b, p, j + c * W);
        unrolled<Q>([&](auto q) ZONM_UNROLLED {
            unrolled<R>([&](auto r) ZONM_UNROLLED {
                sum[r][c] = sum[r][c] + first<W>(left[r][q]) * right[q];
                if constexpr (Kept == Sum::inDst)
                    sum[r][c] = rounded<T, W>(sum[r][c]);
            });
        });
    });
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
    ptrdiff_t p = 0;
    for (; p + 2 <= inner; p += 2)
        addProducts<2, R, C, W, Kept, T>(sum, a, b, i, j, p);
    if (p < inner)
        addProducts<1, R, C, W, Kept, T>(sum, a, b, i, j, p);
    unrolled<R>([&](auto r) ZONM_UNROLLED {
        unrolled<C>([&](auto c) ZONM_UNROLLED { setRow<W>(d, i + r, j + c * W, sum[r][c]); });
    });
}

// All rows of columns j to j + C*W - 1, R of them at a time and then fewer.
template <int R, int C, int W, Sum Kept, class A, class B, class D>
ZONM_INLINE void panel(const A &a, const B &b, const D &d, ptrdiff_t i, ptrdiff_t j, const Extents &e)
{
    for (; i + R <= e.rows; i += R)
        tile<R, C, W, Kept>(a, b, d, i, j, e.inner);
    if constexpr (R > 1)
        panel<R / 2, C, W, Kept>(a, b, d, i, j, e);
}

// The columns from j on in panels of C packs and then fewer.
template <int C, int W, Sum Kept, class A, class B, class D>
ZONM_INLINE void panels(const A &a, const B &b, const D &d, ptrdiff_t j, const Extents &e)
{
    constexpr int rows = C == 4 ? 2 : 4;
    for (; j + C * W <= e.columns; j += C * W)
        panel<rows, C, W, Kept>(a, b, d, 0, j, e);
    if constexpr (C > 1)
        panels<C / 2, W, Kept>(a, b, d, j, e);
    else if constexpr (W > 1)
        panels<1, W / 2, Kept>(a, b, d, j, e);
}

// One object whose elements of dst are apart.
template <Sum Kept, class A, class B, class D>
ZONM_APART void tiledProduct(A a, B b, D d, const Extents &extents)
{
    panels<4, sumLanes, Kept>(a, b, d, 0, Extents(extents));
}

// The columns from j on of row i, in ascending order.
template <int C, int W, Sum Kept, class A, class B, class D>
ZONM_INLINE void productRow(const A &a, const B &b, const D &d, ptrdiff_t i, ptrdiff_t j,
                            const Extents &e)
{
    for (; j + C * W <= e.columns; j += C * W)
        tile<1, C, W, Kept>(a, b, d, i, j, e.inner);
    if constexpr (C > 1)
        productRow<1, W, Kept>(a, b, d, i, j, e);
    else if constexpr (W > 1)
        productRow<1, W / 2, Kept>(a, b, d, i, j, e);
}

// One object, stored in row order.
template <Sum Kept, class A, class B, class D>
ZONM_APART void productInRowOrder(A a, B b, D d, const Extents &extents)
{
    const Extents e = extents;
    for (ptrdiff_t i = 0; i < e.rows; ++i)
        productRow<4, sumLanes, Kept>(a, b, d, i, 0, e);
}

// One object, stored in the order of the block of four rows and two columns: column after column in
// each block, then the odd column, then the rows below the blocks column by column.
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
