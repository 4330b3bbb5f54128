// SPDX-License-Identifier: Apache-2.0
// Matrix times vector: dst(i) = A(i, 0)*x(0) + A(i, 1)*x(1) + ..., A being src1 or its transpose.
//
// The sum is one chain in ascending order in every path. It is a double, narrowed once. The paths
// of an export can be told apart by three things only:
//   - a chain starts from its first product (sizes 3, 4, 5, 6, square) or from 0.0 (otherwise):
//     seen in the sign of a zero;
//   - element tables keep the sum of other sizes in dst, so that `32f` rounds at every step;
//   - contiguous arrays take objects in pairs, four rows of each in turn: seen where objects of dst
//     overlap one another.
// dst must not overlap a source: sources may be read at any time.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/row_products.hpp"
#include "zonm.h"

namespace zonm
{
namespace
{

// What differs between the exports: the paths of contiguous arrays.
struct DensePaths {
    bool shared;       // one matrix for many vectors
    Start start;       // of the sizes with straight-line code
    int largestSquare; // that has it
    bool pairs;        // other sizes take objects in pairs
    bool tables;
};

template <class A, class B> struct Form {
    static constexpr bool tables = isObjectTable<A> || isObjectTable<B>;
    static constexpr bool shared = !A::many && B::many;
    static constexpr bool doubles = sizeof(typename A::Value) == sizeof(double);

    // Tables have no sizes of their own: what is a pair of up to 4 rows is stored in order.
    static constexpr DensePaths dense = {.shared = shared,
                                         .start = tables ? Start::zero : Start::product,
                                         .largestSquare = tables ? 4 : largestUnrolled,
                                         .pairs = tables || !shared || A::transposed || doubles,
                                         .tables = tables};
};

template <class D> struct ProductRows {
    D d;

    template <int W> ZONM_INLINED void take(ptrdiff_t i, Doubles<W> sums) const
    {
        storeElements<W>(d, i, sums);
    }
};

// Sizes 3 to 6, dense ---------------------------------------------------------------------------

template <int N, Start S, class A, class X, class D>
[[gnu::noinline]] void multiplySquares(const A &src1, const X &src2, const D &dst, int32_t count)
{
    const A a = src1; // copies: a store into dst cannot change them
    const X x = src2;
    const D d = dst;
    for (ptrdiff_t k = 0; k < count; ++k)
        multiplySquare<N, S>(a(k), x(k), d(k));
}

// The lanes of a register belong to vectors.
template <int N, Start S, class X, class D>
[[gnu::noinline]] void multiplyShared(const SharedMatrix<N> &a, const X &src2, const D &dst,
                                      int32_t count)
{
    constexpr int W = objectLanes;
    const X x = src2;
    const D d = dst;
    ptrdiff_t k = 0;
    for (; k + W <= count; k += W) {
        Doubles<W> element[N], sum[N];
        gatherTurned(element, laneViews(x, k));
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            Doubles<W> t[N];
            unrolled<0, N>([&](auto p) ZONM_INLINED { t[p] = a.inLanes[i][p] * element[p]; });
            sum[i] = chain<N, W, S>(t);
        });
        scatterTurned(sum, laneViews(d, k));
    }
    for (; k < count; ++k)
        multiplySquare<N, S>(a.view(), x(k), d(k));
}

// Any size and layout ----------------------------------------------------------------------------

template <Accumulation Kept, class A, class X, class D>
[[gnu::noinline]] void multiplyEach(const A &src1, const X &src2, const D &dst, int32_t count,
                                    Start start)
{
    const A a = src1;
    const X x = src2;
    const D d = dst;
    for (ptrdiff_t k = 0; k < count; ++k)
        multiplyRows<Kept>(a(k), x(k), beginningOf(start), 0, d.rows, a.columns,
                           ProductRows<decltype(d(k))>{d(k)});
}

// Four rows of each of two objects in turn; the last one of an odd number row after row.
template <class A, class X, class D>
[[gnu::noinline]] void multiplyPairs(const A &src1, const X &src2, const D &dst, int32_t count)
{
    constexpr int block = 4;
    constexpr double zero = beginningOf(Start::zero);
    const A a = src1;
    const X x = src2;
    const D d = dst;
    for (ptrdiff_t k = 0; k < count; k += 2) {
        const bool isPair = k + 1 < count;
        const ptrdiff_t inBlocks = isPair ? d.rows & ~ptrdiff_t(block - 1) : 0;
        for (ptrdiff_t i = 0; i < inBlocks; i += block)
            for (ptrdiff_t o = k; o < k + 2; ++o)
                multiplyRows<block / objectLanes, objectLanes, Accumulation::wide>(
                    a(o), x(o), zero, i, a.columns, ProductRows<decltype(d(o))>{d(o)});
        for (ptrdiff_t o = k; o <= k + isPair; ++o)
            multiplyRows<Accumulation::wide>(a(o), x(o), zero, inBlocks, d.rows, a.columns,
                                             ProductRows<decltype(d(o))>{d(o)});
    }
}

// Choice of the kernel -------------------------------------------------------------------------

template <DensePaths P, class A, class X, class D>
[[gnu::noinline]] void multiplyDense(const A &a, const X &x, const D &d, int size, int32_t count)
{
    withSize(size, [&](auto n) ZONM_INLINED {
        // These kernels are not shared with tables in any case.
        if constexpr (n != 0 && n <= P.largestSquare && P.shared && !P.tables)
            multiplyShared<n, P.start>(SharedMatrix<n>(a(0)), withoutTable(x), withoutTable(d),
                                       count);
        else if constexpr (n != 0 && n <= P.largestSquare && P.shared)
            multiplyShared<n, P.start>(SharedMatrix<n>(a(0)), x, d, count);
        else if constexpr (n != 0 && n <= P.largestSquare && !P.tables)
            multiplySquares<n, P.start>(withoutTable(a), withoutTable(x), withoutTable(d), count);
        else if constexpr (n != 0 && n <= P.largestSquare)
            multiplySquares<n, P.start>(a, x, d, count);
        else if constexpr (P.pairs)
            multiplyPairs(a, x, d, count);
        else
            multiplyEach<Accumulation::wide>(a, x, d, count, Start::zero);
    });
}

template <class A, class B, class D>
ZonStatus multiplyVectors(const A &src1, Shape shape, const B &src2, int32_t inner, const D &dst,
                          int32_t count)
{
    const int32_t rows = A::transposed ? shape.width : shape.height;
    const bool square = rows == inner && smallestUnrolled <= rows && rows <= largestUnrolled;
    return withLayout(
        [&](auto layout) ZONM_INLINED {
            constexpr bool dense = layout == Layout::dense;
            if constexpr (dense && !D::many)
                if (square) {
                    withSize(rows, [&](auto n) ZONM_INLINED {
                        if constexpr (n != 0)
                            multiplySquare<n, Start::product>(onlyObject<layout>(src1, n, n),
                                                              onlyObject<layout>(src2, n),
                                                              onlyObject<layout>(dst, n));
                    });
                    return zonStsOk;
                }
            const auto a = objects<layout>(src1, rows, inner);
            const auto x = objects<layout>(src2, inner);
            const auto d = objects<layout>(dst, rows);
            if constexpr (dense && D::many)
                multiplyDense<Form<A, B>::dense>(a, x, d, square ? rows : 0, count);
            else if constexpr (dense)
                multiplyPairs(a, x, d, count);
            else if (layout == Layout::strided || square)
                multiplyEach<Accumulation::wide>(a, x, d, count,
                                                 square ? Start::product : Start::zero);
            else
                multiplyEach<Accumulation::inDst>(a, x, d, count, Start::zero);
            return zonStsOk;
        },
        src1, src2, dst);
}

} // namespace
} // namespace zonm

#include "products/generated/matrix_vector_product.inc"
