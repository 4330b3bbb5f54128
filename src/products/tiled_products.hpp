// SPDX-License-Identifier: Apache-2.0
// Products of any size, cut into tiles of dst whose sums stay in registers while p ascends.
#pragma once

#include "frame/objects.hpp"
#include "products/chains.hpp"

namespace zonm
{

struct ProductShape {
    ptrdiff_t rows, columns, inner;
};

// Adds the products of the first Q columns of A to R rows and C*W columns of sums.
template <int Q, int R, int C, int W, Accumulation Kept, class T, class A, class B>
ZONM_INLINED inline void addProducts(Doubles<W> (&sum)[R][C], const A &a, const B &b)
{
    Doubles<doublesPerRegister> left[R][Q];
    spread(left, a, 0, 0);
    unrolled<0, C>([&](auto c) ZONM_INLINED {
        Doubles<W> right[Q];
        loadRows<Q, W>(right, b, 0, c * W);
        unrolled<0, Q>([&](auto q) ZONM_INLINED {
            unrolled<0, R>([&](auto r) ZONM_INLINED {
                sum[r][c] = sum[r][c] + firstLanes<W>(left[r][q]) * right[q];
                if constexpr (Kept == Accumulation::inDst)
                    sum[r][c] = rounded<T, W>(sum[r][c]);
            });
        });
    });
}

// The first R rows and C*W columns of dst, from as many rows of A and columns of B.
template <int R, int C, int W, Accumulation Kept, class A, class B, class D>
ZONM_INLINED inline void tile(A a, B b, const D &d, ptrdiff_t inner)
{
    using T = typename D::Element;
    Doubles<W> sum[R][C];
    unrolled<0, R>([&](auto r) ZONM_INLINED {
        unrolled<0, C>([&](auto c) ZONM_INLINED { sum[r][c] = inAllLanes<W>(0.0); });
    });
    for (; inner >= 2; inner -= 2) {
        addProducts<2, R, C, W, Kept, T>(sum, a, b);
        a = partFrom(a, 0, 2);
        b = partFrom(b, 2, 0);
    }
    if (inner > 0)
        addProducts<1, R, C, W, Kept, T>(sum, a, b);
    unrolled<0, R>([&](auto r) ZONM_INLINED {
        unrolled<0, C>([&](auto c) ZONM_INLINED { storeRow<W>(d, r, c * W, sum[r][c]); });
    });
}

// The first C*W columns of dst in tiles of R rows. The last tile overlaps the one before it rather
// than be smaller: what it computes again comes out the same.
template <int R, int C, int W, Accumulation Kept, class A, class B, class D>
ZONM_INLINED inline void panel(const A &a, const B &b, const D &d, const ProductShape &e)
{
    const auto rowsFrom = [&](ptrdiff_t i, auto rows) ZONM_INLINED {
        tile<rows, C, W, Kept>(partFrom(a, i, 0), b, partFrom(d, i, 0), e.inner);
    };
    constexpr std::integral_constant<int, R> full;
    constexpr std::integral_constant<int, 1> one;
    if (e.rows < R) {
        for (ptrdiff_t i = 0; i < e.rows; ++i)
            rowsFrom(i, one);
    } else {
        for (ptrdiff_t i = 0; i < e.rows; i += R)
            rowsFrom(i + R <= e.rows ? i : e.rows - R, full);
    }
}

// One object whose elements of dst are apart, in panels of eight, four and two columns; the last
// one may overlap the one before.
template <Accumulation Kept, class A, class B, class D>
[[gnu::noinline]] void tiledProduct(const A &a, const B &b, const D &d, const ProductShape &extents)
{
    const ProductShape e = extents;
    constexpr int W = doublesPerRegister;
    const auto columnsFrom = [&](ptrdiff_t j, auto rows, auto packs, auto width) ZONM_INLINED {
        panel<rows, packs, width, Kept>(a, partFrom(b, 0, j), partFrom(d, 0, j), e);
    };
    constexpr std::integral_constant<int, 1> one;
    constexpr std::integral_constant<int, 2> two;
    constexpr std::integral_constant<int, 4> four;
    constexpr std::integral_constant<int, W> wide;
    ptrdiff_t j = 0;
    for (; j + 4 * W <= e.columns; j += 4 * W)
        columnsFrom(j, two, four, wide);
    for (; j + 2 * W <= e.columns || (j + W < e.columns && e.columns >= 2 * W); j += 2 * W)
        columnsFrom(j + 2 * W <= e.columns ? j : e.columns - 2 * W, four, two, wide);
    for (; j < e.columns && e.columns >= W; j += W)
        columnsFrom(j + W <= e.columns ? j : e.columns - W, four, one, wide);
    for (; j < e.columns; ++j)
        columnsFrom(j, four, one, one);
}

// One object, stored in row order.
template <Accumulation Kept, class A, class B, class D>
[[gnu::noinline]] void productInRowOrder(const A &a, const B &b, const D &d,
                                         const ProductShape &extents)
{
    const ProductShape e = extents;
    for (ptrdiff_t i = 0; i < e.rows; ++i) {
        const auto columnsFrom = [&](ptrdiff_t j, auto packs, auto width) ZONM_INLINED {
            tile<1, packs, width, Kept>(partFrom(a, i, 0), partFrom(b, 0, j), partFrom(d, i, j),
                                        e.inner);
        };
        constexpr std::integral_constant<int, 1> one;
        constexpr std::integral_constant<int, 4> four;
        constexpr std::integral_constant<int, doublesPerRegister> wide;
        ptrdiff_t j = 0;
        for (; j + 4 * wide <= e.columns; j += 4 * wide)
            columnsFrom(j, four, wide);
        for (; j < e.columns; ++j)
            columnsFrom(j, one, one);
    }
}

// One object, stored in the order of the block of four rows and two columns: column after column in
// each block, then the odd column, then the rows below the blocks column by column.
template <class A, class B, class D>
[[gnu::noinline]] void productInBlockOrder(const A &a, const B &b, const D &d,
                                           const ProductShape &extents)
{
    const ProductShape e = extents;
    const auto column = [&](ptrdiff_t i, ptrdiff_t end, ptrdiff_t j) {
        for (; i < end; ++i)
            tile<1, 1, 1, Accumulation::wide>(partFrom(a, i, 0), partFrom(b, 0, j),
                                              partFrom(d, i, j), e.inner);
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
