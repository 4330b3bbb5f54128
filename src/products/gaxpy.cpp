// SPDX-License-Identifier: Apache-2.0
// Matrix times vector plus vector: dst[k](i) = A(i, 0)*x(0) + A(i, 1)*x(1) + ... + y(i)
// with x = src2[k] and y = src3[k].
//
//   sizes 3 to 6   a row is one expression, narrowed once, in an order of `orders.hpp` that depends
//                  on the group, the size and the row
//   other sizes    the products are summed ascending from 0.0 (with element tables in dst, so that
//                  `32f` rounds at every step) and stored; then y(i) is added to what is stored
//
// dst must not overlap src1 and src2, which may be read at any time. It may meet src3: rows follow
// each other, and where dst is src3, y(i) is the sum of the products by the time that it is added,
// but for the sizes 3 to 6.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/overlap.hpp"
#include "products/orders.hpp"
#include "products/row_products.hpp"
#include "zonm.h"

namespace zonm
{
namespace
{

// The orders of an export: those of the last row, and those of the others.
template <class X, class Y> struct Form {
    static constexpr bool oneAdded = X::many && !Y::many;
    static constexpr const Orders &rows = oneAdded ? gaxpy::ofMvav : gaxpy::rows;
    static constexpr const Orders &lastRow = oneAdded ? gaxpy::ofMvav : gaxpy::lastRow;
};

template <class F, int N, int I>
inline constexpr Order orderOf = I + 1 < N ? F::rows[N] : F::lastRow[N];

// The term of a row that an order names.
template <int P, class V, int N>
ZONM_INLINED inline V termOf(const V (&factor)[N], const V (&x)[N], V y)
{
    if constexpr (P == gaxpy::c)
        return y;
    else
        return factor[P] * x[P];
}

// Sizes 3 to 6 ---------------------------------------------------------------------------------

template <class F, int N, class A, class X, class Y, class D>
ZONM_INLINED inline void addProducts(const A &a, const X &x, const Y &y, const D &d)
{
    double element[N];
    unrolled<0, N>([&](auto p) ZONM_INLINED { element[p] = x(p); });
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        double factor[N];
        unrolled<0, N>([&](auto p) ZONM_INLINED { factor[p] = a(i, p); });
        const double added = y(i);
        d.set(i, typename D::Element(sumInOrder<orderOf<F, N, i>>(
                     [&](auto p) ZONM_INLINED { return termOf<p>(factor, element, added); })));
    });
}

// The lanes of a register belong to vectors.
template <class F, int N, class X, class Y, class D>
[[gnu::noinline]] void addProductsDense(const SharedMatrix<N> &a, const X &src2, const Y &src3,
                                        const D &dst, int32_t count)
{
    constexpr int W = objectLanes;
    const X x = src2; // copies: a store into dst cannot change them
    const Y y = src3;
    const D d = dst;
    ptrdiff_t k = 0;
    const bool apart = areIndependent(Regions(count, d), Regions(count, y), count) ||
                       (areSame(d, y) && areApart(d));
    for (; apart && k + W <= count; k += W) {
        Doubles<W> element[N], added[N], sum[N];
        gatherTurned(element, laneViews(x, k));
        gatherTurned(added, laneViews(y, k));
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            sum[i] = sumInOrder<orderOf<F, N, i>>(
                [&](auto p) ZONM_INLINED { return termOf<p>(a.inLanes[i], element, added[i]); });
        });
        scatterTurned(sum, laneViews(d, k));
    }
    for (; k < count; ++k)
        addProducts<F, N>(a.view(), x(k), y(k), d(k));
}

// Layouts without straight-line code.
template <class A, class X, class Y, class D>
[[gnu::noinline]] void addProductsInOrder(const A &a, const X &x, const Y &y, const D &d,
                                          int32_t size, const Order &ofRows, const Order &ofLastRow,
                                          int32_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        for (int32_t i = 0; i < size; ++i) {
            const auto term = [&](int p) -> double {
                return p == gaxpy::c ? double(y(k)(i)) : double(a(k)(i, p)) * double(x(k)(p));
            };
            const double sum = sumInOrder(i + 1 < size ? ofRows : ofLastRow, term);
            d(k).set(i, typename D::Element(sum));
        }
}

// Other sizes ----------------------------------------------------------------------------------

// One row after the other: the sum stored, y(i) read behind it and added.
template <class Y, class D> struct SumRows {
    Y y;
    D d;

    template <int W> ZONM_INLINED void take(ptrdiff_t i, Doubles<W> sums) const
    {
        const auto narrow = narrowed<typename D::Element, W>(sums);
        if constexpr (W == 1)
            add(i, narrow);
        else
            unrolled<0, W>([&](auto l) ZONM_INLINED { add(i + l, laneOf(narrow, l)); });
    }

  private:
    using T = typename D::Element;
    ZONM_INLINED void add(ptrdiff_t i, T sum) const
    {
        d.set(i, sum);
        d.set(i, T(double(d(i)) + double(y(i))));
    }
};

template <Accumulation Kept, class A, class X, class Y, class D>
[[gnu::noinline]] void addProductsToStored(const A &src1, const X &src2, const Y &src3,
                                           const D &dst, int32_t count)
{
    const A a = src1;
    const X x = src2;
    const Y y = src3;
    const D d = dst;
    for (ptrdiff_t k = 0; k < count; ++k)
        multiplyRows<Kept>(a(k), x(k), beginningOf(Start::zero), 0, d.rows, a.columns,
                           SumRows<decltype(y(k)), decltype(d(k))>{y(k), d(k)});
}

// Choice of the kernel -------------------------------------------------------------------------

template <class F, class A, class X, class Y, class D>
[[gnu::noinline]] void addProductsDense(const A &a, const X &x, const Y &y, const D &d, int size,
                                        int32_t count)
{
    withSize(size, [&](auto n) ZONM_INLINED {
        if constexpr (n != 0)
            addProductsDense<F>(SharedMatrix<n>(a(0)), x, y, d, count);
        else
            addProductsToStored<Accumulation::wide>(a, x, y, d, count);
    });
}

// src2Len and src3Len are those of the shape.
template <class A, class B, class C, class D>
ZonStatus addMatrixVectorProducts(const A &src1, Shape shape, const B &src2, int32_t, const C &src3,
                                  int32_t, const D &dst, int32_t count)
{
    using F = Form<B, C>;
    const int32_t rows = shape.height, inner = shape.width;
    const bool square = rows == inner && smallestUnrolled <= rows && rows <= largestUnrolled;
    return withLayout(
        [&](auto layout) ZONM_INLINED {
            if constexpr (layout == Layout::dense && !D::many)
                if (square) {
                    withSize(rows, [&](auto n) ZONM_INLINED {
                        if constexpr (n != 0)
                            addProducts<F, n>(
                                onlyObject<layout>(src1, n, n), onlyObject<layout>(src2, n),
                                onlyObject<layout>(src3, n), onlyObject<layout>(dst, n));
                    });
                    return zonStsOk;
                }
            const auto a = objects<layout>(src1, rows, inner);
            const auto x = objects<layout>(src2, inner);
            const auto y = objects<layout>(src3, rows);
            const auto d = objects<layout>(dst, rows);
            if constexpr (layout == Layout::dense)
                addProductsDense<F>(a, x, y, d, square ? rows : 0, count);
            else if (square)
                addProductsInOrder(a, x, y, d, rows, F::rows[rows], F::lastRow[rows], count);
            else
                addProductsToStored<layout == Layout::scattered ? Accumulation::inDst
                                                                : Accumulation::wide>(a, x, y, d,
                                                                                      count);
            return zonStsOk;
        },
        src1, src2, src3, dst);
}

} // namespace
} // namespace zonm

#include "products/generated/gaxpy.inc"
