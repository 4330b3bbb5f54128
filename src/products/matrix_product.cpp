// SPDX-License-Identifier: Apache-2.0
// Matrix product: dst(i, j) = A(i, 0)*B(0, j) + A(i, 1)*B(1, j) + ...
//
// A is src1 or its transpose, B is src2 or its transpose. The sum is one chain in ascending order,
// in every path, never split and never contracted; the products of a `32f` chain and the chain itself
// are doubles, rounded at the store. The paths of an export can be told apart by three things only:
//   - a chain starts from its first product (sizes 3, 4, 5, 6, all square) or from 0.0 (otherwise):
//     seen in the sign of a zero;
//   - element tables keep the sum of other sizes in dst, so that `32f` rounds at every step;
//   - the order of the stores, seen where elements of dst coincide with one another.
// An overlap of dst with a source is not supported: sources may be read at any time.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/square_products.hpp"
#include "products/tiled_products.hpp"

namespace zonm {
namespace {

// Which paths an export has --------------------------------------------------------------------

enum class Order { rows, blocks };

template <class A, class B> struct Paths {
    static constexpr bool tables = A::description == Description::objectTable ||
                                   B::description == Description::objectTable;
    static constexpr bool manyByOne = A::many && !B::many;
    static constexpr bool doubles = sizeof(typename A::Value) == sizeof(double);

    // With dense rows: the sizes 3 to 6 on their own, and how the others store.
    static constexpr bool denseSquares = !tables || manyByOne;
    static constexpr bool rowOrder =
        !tables && (manyByOne ||
                    (doubles && A::many && B::many && !A::transposed && B::transposed));
    static constexpr Order denseOrder = rowOrder ? Order::rows : Order::blocks;
};

template <class A, class B>
inline constexpr Held held = A::many == B::many ? Held::none
                             : A::many          ? Held::second
                                                : Held::first;

bool isSquare(int32_t n, Shape a, Shape b) { return a.isSquare(n) && b.isSquare(n); }

// N of a call whose matrices are all N×N, N from 3 to 6, else 0.
int32_t squareSize(Shape a, Shape b)
{
    return a.width >= 3 && a.width <= 6 && isSquare(a.width, a, b) ? a.width : 0;
}

// f with the size as a constant.
template <class F> ZONM_INLINE ZonStatus withSize(int32_t n, F f)
{
    switch (n) {
    case 3:
        return f(std::integral_constant<int, 3>{});
    case 4:
        return f(std::integral_constant<int, 4>{});
    case 5:
        return f(std::integral_constant<int, 5>{});
    default:
        return f(std::integral_constant<int, 6>{});
    }
}

// Whether no two elements of dst share an address.
bool areApart(ptrdiff_t rowStep, ptrdiff_t columnStep, const Extents &e)
{
    return e.rows == 1 || (e.columns - 1) * columnStep < rowStep ||
           (e.rows - 1) * rowStep < columnStep;
}

// Any size -------------------------------------------------------------------------------------

template <Order O, Layout LA, Layout LB, class P> ZONM_APART ZonStatus denseProducts(const P &call)
{
    const bool apart = areApart(call.d.rowStep, call.d.columnStep, call.extents);
    for (ptrdiff_t k = 0; k < call.count; ++k) {
        if (apart)
            tiledProduct<2, 4, Sum::wide>(call.a.template view<LA>(k), call.b.template view<LB>(k),
                                          call.d.template view<Layout::denseRows>(k), call.extents);
        else if constexpr (O == Order::rows)
            tiledProduct<1, 4, Sum::wide>(call.a.template view<Layout::strided>(k),
                                          call.b.template view<Layout::strided>(k),
                                          call.d.template view<Layout::strided>(k), call.extents);
        else
            productInBlockOrder(call.a.template view<Layout::strided>(k),
                                call.b.template view<Layout::strided>(k),
                                call.d.template view<Layout::strided>(k), call.extents);
    }
    return zonStsOk;
}

// One row at a time, in row order: right for any dst.
template <Layout L, Sum S, class P> ZonStatus rowwiseProducts(const P &call)
{
    for (ptrdiff_t k = 0; k < call.count; ++k)
        tiledProduct<1, 4, S>(call.a.template view<L>(k), call.b.template view<L>(k),
                              call.d.template view<L>(k), call.extents);
    return zonStsOk;
}

template <Layout L, Sum S, class P> ZONM_APART ZonStatus generalProducts(const P &call, int32_t size)
{
    if (size == 0)
        return rowwiseProducts<L, S>(call);
    return withSize(size, [&](auto n) ZONM_UNROLLED {
        return squareProducts<n, Start::product, Held::none, L, L, L>(call);
    });
}

// Choice of the kernel -------------------------------------------------------------------------

// `zonmMul_mm_32f_P` and `zonmMul_tt_64f_P` take 3×3 for sizes whose bitwise OR is 3.
template <class A, class B>
inline constexpr bool hasOddSizeTest =
    !A::many && !B::many && A::transposed == B::transposed &&
    A::transposed == (sizeof(typename A::Value) == sizeof(double));

template <class A, class B> int32_t scatteredSize(Shape a, Shape b)
{
    if constexpr (hasOddSizeTest<A, B>) {
        const int32_t bits = a.width | a.height | b.width | b.height;
        if (bits == 3 || bits == 4)
            return bits;
    }
    return squareSize(a, b);
}

template <class A, class B, class D>
ZONM_INLINE ZonStatus multiplyElementTables(A src1, Shape shape1, B src2, Shape shape2, D dst,
                                            const Extents &e, int32_t count)
{
    const Product call{scatteredOperand(src1, shape1.width), scatteredOperand(src2, shape2.width),
                       scatteredOperand(dst, e.columns), e, count};
    return generalProducts<Layout::scattered, Sum::inDst>(call, scatteredSize<A, B>(shape1, shape2));
}

template <class A, class B, class D>
ZONM_INLINE ZonStatus multiplySteppedMatrices(A src1, Shape shape1, B src2, Shape shape2, D dst,
                                              const Extents &e, int32_t count)
{
    using P = Paths<A, B>;
    const auto call = [&] {
        if constexpr (P::tables)
            return Product{steppedOperand<Tabled>(src1), steppedOperand<Tabled>(src2),
                           steppedOperand<Tabled>(dst), e, count};
        else
            return Product{steppedOperand<Stepped>(src1), steppedOperand<Stepped>(src2),
                           steppedOperand<Stepped>(dst), e, count};
    }();
    const int32_t size = squareSize(shape1, shape2);
    if (!(src1.isDense() & src2.isDense() & dst.isDense()))
        return generalProducts<Layout::strided, Sum::wide>(call, size);

    constexpr Layout rowsOfA = A::transposed ? Layout::denseColumns : Layout::denseRows;
    constexpr Layout rowsOfB = B::transposed ? Layout::denseColumns : Layout::denseRows;
    if (size == 0 || (!P::denseSquares && !areApart(call.d.rowStep, call.d.columnStep, e)))
        return denseProducts<P::denseOrder, rowsOfA, rowsOfB>(call);
    return withSize(size, [&](auto n) ZONM_UNROLLED {
        constexpr Start start = P::denseSquares ? Start::product : Start::zero;
        constexpr Held hold = held<A, B>;
        return squareProducts<n, start, hold, hold == Held::first ? Layout::strided : rowsOfA,
                              hold == Held::second ? Layout::strided : rowsOfB, Layout::denseRows>(
            call);
    });
}

template <class A, class B, class D>
ZONM_INLINE ZonStatus multiplyMatrices(A src1, Shape shape1, B src2, Shape shape2, D dst,
                                       int32_t count)
{
    const Extents e{A::transposed ? shape1.width : shape1.height,
                    B::transposed ? shape2.height : shape2.width,
                    A::transposed ? shape1.height : shape1.width};
    if constexpr (isElementTable<A>)
        return multiplyElementTables(src1, shape1, src2, shape2, dst, e, count);
    else
        return multiplySteppedMatrices(src1, shape1, src2, shape2, dst, e, count);
}

} // namespace
} // namespace zonm

#include "products/generated/matrix_product.inc"
