// SPDX-License-Identifier: Apache-2.0
// Frobenius norm: dst[k] = square root of the sum of src[k](i, j)^2
//
//   strided, tables of objects   in row order; arrays of 3×3 matrices in the order of `orders.hpp`
//   tables of elements           in pairs of neighbouring entries, across the ends of rows:
//                                (t0^2 + t1^2) + (t2^2 + t3^2) + ..., an odd last one alone; arrays
//                                of 3×3 matrices in row order
//
// The sum is a double, and so is its root until it is narrowed; nothing is scaled. dst must not
// overlap src.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/reductions.hpp"

namespace zonm
{
namespace
{

struct Form {
    static constexpr Order of3x3(Layout layout)
    {
        return layout == Layout::scattered ? Order{0, 1, 2, 3, 4, 5, 6, 7, 8} : norm::of3x3;
    }
};

struct Squares : RootOfSquares {
    template <int W, class A>
    ZONM_INLINED static Doubles<W> terms(ptrdiff_t i, ptrdiff_t j, const A &a)
    {
        const Doubles<W> x = loadRow<W>(a, i, j);
        return x * x;
    }
};

// `entries` is the whole table as one row.
template <class A> double rootOfPairedSquares(const A &entries, ptrdiff_t elements)
{
    const auto square = [&](ptrdiff_t e) {
        const double x = entries(e);
        return x * x;
    };
    double sum = 0;
    ptrdiff_t e = 0;
    for (; e + 1 < elements; e += 2)
        sum = sum + (square(e) + square(e + 1));
    if (e < elements)
        sum = sum + square(e);
    return squareRoot(sum);
}

// Rows without gaps are one longer row.
template <class Objects> inline bool joinsRows(const Objects &o)
{
    const auto view = stridedView(o.first);
    return view.rowStep == o.columns * view.columnStep;
}

template <Layout L, class T, class Objects>
[[gnu::noinline]] ZonStatus norms(T *dst, Shape shape, int32_t count, const Objects &source)
{
    const Objects src = source; // a copy: a store into dst cannot change it
    if (shape == Shape{3, 3})
        reduceAllInOrder<Squares, 3, 3, Form::of3x3(L), Form::of3x3(L)>(dst, count, src);
    else if constexpr (L != Layout::scattered)
        reduceAllAscending<Squares>(dst, joinsRows(src) ? 1 : src.rows,
                                    joinsRows(src) ? src.rows * src.columns : src.columns, count,
                                    src);
    else
        for (ptrdiff_t k = 0; k < count; ++k)
            store<T>(bytes(dst + k),
                     T(rootOfPairedSquares(ScatteredVector(src.first.table, src.origins(k)),
                                           ptrdiff_t(shape.width) * shape.height)));
    return zonStsOk;
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class T>
ZonStatus frobeniusNorms(const A &src, Shape shape, T *dst, int32_t count)
{
    if constexpr (A::many)
        return withLayout(
            [&](auto layout) {
                const auto all = objects<layout>(src, shape.height, shape.width);
                if constexpr (layout == Layout::dense && !haveTables<A>)
                    return norms<layout>(dst, shape, count, withoutTable(all));
                else
                    return norms<layout>(dst, shape, count, all);
            },
            src);
    else if constexpr (isElementTable<A>)
        store<T>(bytes(dst), T(rootOfPairedSquares(ScatteredVector(src.table, src.shift),
                                                   ptrdiff_t(shape.width) * shape.height)));
    else
        store<T>(bytes(dst),
                 T(reduceAscending<Squares>(shape.height, shape.width,
                                            onlyObject(src, shape.height, shape.width))));
    return zonStsOk;
}

} // namespace
} // namespace zonm

#include "products/generated/frob_norm.inc"
