// SPDX-License-Identifier: Apache-2.0
// Rows of a matrix times a vector, several at a time: each lane of a register belongs to a row and
// takes the row's products in ascending order, as the row alone would.
//
// What becomes of a sum is told by rows.take<W>(i, sums), which gets those of rows i to i + W - 1.
#pragma once

#include "frame/objects.hpp"
#include "products/terms.hpp"

namespace zonm
{

// What a sum begins with when it is not begun with its first product: adding to -0.0 leaves a
// product as it is.
constexpr double beginningOf(Start s) { return s == Start::product ? -0.0 : 0.0; }

// Lanes of sums where there is something to gain, else single numbers.
template <class A>
inline constexpr int rowLanes = hasDenseRows<A> || hasDenseColumns<A> ? objectLanes : 1;

// t[e] = A(i + l, p + e) * x(p + e) in lane l.
template <int W, class A, class X>
ZONM_INLINED inline void productsOfRows(Doubles<W> (&t)[W], const A &a, const X &x, ptrdiff_t i,
                                        ptrdiff_t p)
{
    if constexpr (W > 1 && hasDenseRows<A>) {
        const Doubles<W> elements = loadElements<W>(x, p);
        unrolled<0, W>([&](auto l) ZONM_INLINED { t[l] = loadRow<W>(a, i + l, p) * elements; });
        turn(t);
    } else {
        unrolled<0, W>([&](auto e) ZONM_INLINED {
            t[e] = loadColumn<W>(a, i, p + e) * inAllLanes<W>(double(x(p + e)));
        });
    }
}

// P packs of rows -------------------------------------------------------------------------------

template <int W, Accumulation Kept, class T>
ZONM_INLINED inline void addProduct(Doubles<W> &sum, Doubles<W> product)
{
    sum = sum + product;
    if constexpr (Kept == Accumulation::inDst)
        sum = rounded<T, W>(sum);
}

template <int P, int W, Accumulation Kept, class A, class X, class Rows>
ZONM_INLINED inline void multiplyRows(const A &a, const X &x, double beginning, ptrdiff_t i,
                                      ptrdiff_t inner, const Rows &rows)
{
    using T = typename A::Element;
    Doubles<W> sum[P];
    unrolled<0, P>([&](auto r) ZONM_INLINED { sum[r] = inAllLanes<W>(beginning); });
    ptrdiff_t p = 0;
    for (; p + W <= inner; p += W)
        unrolled<0, P>([&](auto r) ZONM_INLINED {
            Doubles<W> t[W];
            productsOfRows<W>(t, a, x, i + r * W, p);
            unrolled<0, W>([&](auto e) ZONM_INLINED { addProduct<W, Kept, T>(sum[r], t[e]); });
        });
    for (; p < inner; ++p) {
        const Doubles<W> element = inAllLanes<W>(double(x(p)));
        unrolled<0, P>([&](auto r) ZONM_INLINED {
            addProduct<W, Kept, T>(sum[r], loadColumn<W>(a, i + r * W, p) * element);
        });
    }
    unrolled<0, P>([&](auto r) ZONM_INLINED { rows.template take<W>(i + r * W, sum[r]); });
}

// Rows `i` to `end` - 1 in ascending order.
template <Accumulation Kept, class A, class X, class Rows>
ZONM_INLINED inline void multiplyRows(const A &a, const X &x, double beginning, ptrdiff_t i,
                                      ptrdiff_t end, ptrdiff_t inner, const Rows &rows)
{
    constexpr int W = rowLanes<A>, packs = 4;
    for (; i + packs * W <= end; i += packs * W)
        multiplyRows<packs, W, Kept>(a, x, beginning, i, inner, rows);
    if constexpr (W > 1)
        for (; i + W <= end; i += W)
            multiplyRows<1, W, Kept>(a, x, beginning, i, inner, rows);
    for (; i < end; ++i)
        multiplyRows<1, 1, Kept>(a, x, beginning, i, inner, rows);
}

// N rows of N columns ---------------------------------------------------------------------------

template <int N, int W, Start S> ZONM_INLINED inline Doubles<W> chain(const Doubles<W> (&t)[N])
{
    Doubles<W> sum = t[0];
    if constexpr (S == Start::zero)
        sum = inAllLanes<W>(0.0) + t[0];
    unrolled<1, N>([&](auto p) ZONM_INLINED { sum = sum + t[p]; });
    return sum;
}

// The products of rows i to i + W - 1.
template <int N, int W, class A, class X>
ZONM_INLINED inline void allProductsOfRows(Doubles<W> (&t)[N], const A &a, const X &x, ptrdiff_t i)
{
    unrolled<0, N / W>([&](auto pack) ZONM_INLINED {
        Doubles<W> products[W];
        productsOfRows<W>(products, a, x, i, pack * W);
        unrolled<0, W>([&](auto e) ZONM_INLINED { t[pack * W + e] = products[e]; });
    });
    unrolled<N / W * W, N>(
        [&](auto p) ZONM_INLINED { t[p] = loadColumn<W>(a, i, p) * inAllLanes<W>(double(x(p))); });
}

// All sums are formed before the first is stored.
template <int N, Start S, class A, class X, class D>
ZONM_INLINED inline void multiplySquare(const A &a, const X &x, const D &d)
{
    constexpr int W = rowLanes<A>, packs = N / W;
    Doubles<W> sum[packs];
    double last[N % W + 1];
    unrolled<0, packs>([&](auto r) ZONM_INLINED {
        Doubles<W> t[N];
        allProductsOfRows<N, W>(t, a, x, r * W);
        sum[r] = chain<N, W, S>(t);
    });
    unrolled<packs * W, N>([&](auto i) ZONM_INLINED {
        double t[N];
        allProductsOfRows<N, 1>(t, a, x, i);
        last[i - packs * W] = chain<N, 1, S>(t);
    });
    unrolled<0, packs>([&](auto r) ZONM_INLINED { storeElements<W>(d, r * W, sum[r]); });
    unrolled<packs * W, N>([&](auto i)
                               ZONM_INLINED { storeElements<1>(d, i, last[i - packs * W]); });
}

// One N×N matrix for many vectors, read before the first of them: doubles, whatever the element
// type, also in all lanes.
template <int N> struct SharedMatrix {
    double element[N][N];
    Doubles<objectLanes> inLanes[N][N];

    template <class A> explicit SharedMatrix(const A &a)
    {
        for (int i = 0; i < N; ++i)
            for (int j = 0; j < N; ++j) {
                element[i][j] = a(i, j);
                inLanes[i][j] = inAllLanes<objectLanes>(element[i][j]);
            }
    }
    auto view() const
    {
        return DenseMatrix<const double>(bytes(&element[0][0]), sizeof element[0]);
    }
};

} // namespace zonm
