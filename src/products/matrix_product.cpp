// SPDX-License-Identifier: Apache-2.0
// Matrix product: dst(i, j) = A(i, 0)*B(0, j) + A(i, 1)*B(1, j) + ...
//
// A is src1 or its transpose, B is src2 or its transpose. The sum is one chain in ascending order,
// in every path, never split and never contracted; the products of a `32f` chain and the chain
// itself are doubles, rounded at the store. The paths of an export can be told apart by three
// things only:
//   - a chain starts from its first product (sizes 3, 4, 5, 6, all square) or from 0.0 (otherwise):
//     seen in the sign of a zero;
//   - element tables keep the sum of other sizes in dst, so that `32f` rounds at every step;
//   - the order of the stores, seen where elements of dst coincide with one another.
// An overlap of dst with a source is not supported: sources may be read at any time.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/square_products.hpp"
#include "products/tiled_products.hpp"

namespace zonm
{
namespace
{

// Which paths an export has --------------------------------------------------------------------

enum class Order { rows, blocks };

template <class A, class B> struct Paths {
    static constexpr bool tables =
        A::description == Description::objectTable || B::description == Description::objectTable;
    static constexpr bool manyByOne = A::many && !B::many;
    static constexpr bool doubles = sizeof(typename A::Value) == sizeof(double);

    // With dense rows: the sizes 3 to 6 on their own, and how the others store.
    static constexpr bool denseSquares = !tables || manyByOne;
    static constexpr bool rowOrder =
        !tables &&
        (manyByOne || (doubles && A::many && B::many && !A::transposed && B::transposed));
    static constexpr Order denseOrder = rowOrder ? Order::rows : Order::blocks;
};

bool isSquare(int32_t n, Shape a, Shape b) { return a.isSquare(n) && b.isSquare(n); }

// N of a call whose matrices are all N×N, N from 3 to 6, else 0.
int32_t squareSize(Shape a, Shape b)
{
    return a.width >= 3 && a.width <= 6 && isSquare(a.width, a, b) ? a.width : 0;
}

// f with the size as a constant.
template <class F> ZONM_INLINED inline ZonStatus withSize(int32_t n, F f)
{
    switch (n) {
    case 3: return f(std::integral_constant<int, 3>{});
    case 4: return f(std::integral_constant<int, 4>{});
    case 5: return f(std::integral_constant<int, 5>{});
    default: return f(std::integral_constant<int, 6>{});
    }
}

// Whether no two elements of dst share an address.
bool areApart(std::int64_t rowStep, std::int64_t columnStep, const Extents &e)
{
    return e.rows == 1 || (e.columns - 1) * columnStep < rowStep ||
           (e.rows - 1) * rowStep < columnStep;
}

// Any size -------------------------------------------------------------------------------------

// Rows of A and B as `LA` and `LB`, dense where the call is contiguous.
template <Order O, Layout LA, Layout LB, Layout LD, class P>
[[gnu::noinline]] ZonStatus steppedProducts(const P &call)
{
    const bool apart = areApart(call.d.rowStep, call.d.columnStep, call.extents);
    constexpr Layout any = Layout::strided;
    for (ptrdiff_t k = 0; k < call.count; ++k) {
        if (apart)
            tiledProduct<Sum::wide>(call.a.template view<LA>(k), call.b.template view<LB>(k),
                                    call.d.template view<LD>(k), call.extents);
        else if constexpr (O == Order::rows)
            productInRowOrder<Sum::wide>(call.a.template view<any>(k), call.b.template view<any>(k),
                                         call.d.template view<any>(k), call.extents);
        else
            productInBlockOrder(call.a.template view<any>(k), call.b.template view<any>(k),
                                call.d.template view<any>(k), call.extents);
    }
    return zonStsOk;
}

// Up to this size the operands are gathered beforehand.
constexpr int gatheredSize = 16;

template <class T> struct Gathered {
    alignas(registerBytes) T element[gatheredSize][gatheredSize];

    DenseMatrix<T> view() { return {bytes(&element[0][0]), sizeof element[0]}; }
};

template <class View, class M>
void gather(View to, const M &from, ptrdiff_t rows, ptrdiff_t columns)
{
    for (ptrdiff_t i = 0; i < rows; ++i)
        for (ptrdiff_t j = 0; j < columns; ++j)
            to.set(i, j, typename View::Element(from(i, j)));
}

template <class P> [[gnu::noinline]] ZonStatus scatteredProducts(const P &call)
{
    using T = typename decltype(call.d.template view<Layout::scattered>(0))::Element;
    const Extents e = call.extents;
    const bool small =
        e.rows <= gatheredSize && e.columns <= gatheredSize && e.inner <= gatheredSize;
    Gathered<double> left, right;
    Gathered<T> product;
    for (ptrdiff_t k = 0; k < call.count; ++k) {
        const auto a = call.a.template view<Layout::scattered>(k);
        const auto b = call.b.template view<Layout::scattered>(k);
        const auto d = call.d.template view<Layout::scattered>(k);
        if (small) {
            gather(left.view(), a, e.rows, e.inner);
            gather(right.view(), b, e.inner, e.columns);
            tiledProduct<Sum::inDst>(left.view(), right.view(), product.view(), e);
            gather(d, product.view(), e.rows, e.columns);
        } else {
            productInRowOrder<Sum::inDst>(a, b, d, e);
        }
    }
    return zonStsOk;
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

// Which single operand the N×N kernels keep.
template <int N, class A, class B>
inline constexpr Held held = A::many == B::many || N > 4 ? Held::none
                             : A::many                   ? Held::second
                                                         : Held::first;

template <class A, class B>
inline constexpr Arrays arraysOf = !B::many   ? Arrays::first
                                   : !A::many ? Arrays::second
                                              : Arrays::both;

template <class A, class B, class D>
ZONM_INLINED inline ZonStatus multiplyElementTables(A src1, Shape shape1, B src2, Shape shape2,
                                                    D dst, const Extents &e, int32_t count)
{
    const Product call{scatteredOperand(src1, shape1.width), scatteredOperand(src2, shape2.width),
                       scatteredOperand(dst, e.columns), e, count};
    if (const int32_t size = scatteredSize<A, B>(shape1, shape2))
        return withSize(size, [&](auto n) ZONM_INLINED {
            return squareProducts<n, Start::product, held<n, A, B>, Arrays::unknown,
                                  Layout::scattered, Layout::scattered, Layout::scattered>(call);
        });
    return scatteredProducts(call);
}

template <class P> [[gnu::noinline]] ZonStatus stridedProducts(const P &call, int32_t size)
{
    constexpr Layout strided = Layout::strided;
    if (size == 0)
        return steppedProducts<Order::rows, strided, strided, strided>(call);
    return withSize(size, [&](auto n) ZONM_INLINED {
        constexpr Held none = Held::none;
        constexpr Arrays any = Arrays::unknown;
        // Where the kernel is large, one for tables and arrays alike.
        if constexpr (n <= 4)
            return squareProducts<n, Start::product, none, any, strided, strided, strided>(call);
        else
            return squareProducts<n, Start::product, none, any, strided, strided, strided>(
                tabled(call));
    });
}

template <class A, class B, class D>
ZONM_INLINED inline ZonStatus multiplySteppedMatrices(A src1, Shape shape1, B src2, Shape shape2,
                                                      D dst, const Extents &e, int32_t count)
{
    using P = Paths<A, B>;
    constexpr Layout rowsOfA = A::transposed ? Layout::denseColumns : Layout::denseRows;
    constexpr Layout rowsOfB = B::transposed ? Layout::denseColumns : Layout::denseRows;
    const int32_t size = squareSize(shape1, shape2);
    const bool contiguous = src1.isDense() && src2.isDense() && dst.isDense();
    if constexpr (!D::many) {
        if (contiguous && size != 0)
            return withSize(size, [&](auto n) ZONM_INLINED {
                return squareObject<n, Start::product>(
                    steppedOperand<Stepped>(src1).template view<rowsOfA>(0),
                    steppedOperand<Stepped>(src2).template view<rowsOfB>(0),
                    steppedOperand<Stepped>(dst).template view<Layout::denseRows>(0));
            });
    }
    const auto call = [&] {
        if constexpr (P::tables)
            return Product{steppedOperand<Tabled>(src1), steppedOperand<Tabled>(src2),
                           steppedOperand<Tabled>(dst), e, count};
        else
            return Product{steppedOperand<Stepped>(src1), steppedOperand<Stepped>(src2),
                           steppedOperand<Stepped>(dst), e, count};
    }();
    if (!contiguous)
        return stridedProducts(call, size);
    if constexpr (D::many) {
        if (size != 0 && (P::denseSquares || areApart(call.d.rowStep, call.d.columnStep, e)))
            return withSize(size, [&](auto n) ZONM_INLINED {
                constexpr Start start = P::denseSquares ? Start::product : Start::zero;
                constexpr Held hold = held<n, A, B>;
                constexpr Arrays arrays = !P::tables ? Arrays::unknown : arraysOf<A, B>;
                constexpr Layout la = hold == Held::first ? Layout::strided : rowsOfA;
                constexpr Layout lb = hold == Held::second ? Layout::strided : rowsOfB;
                return squareProducts<n, start, hold, arrays, la, lb, Layout::denseRows>(call);
            });
    }
    return steppedProducts<P::denseOrder, rowsOfA, rowsOfB, Layout::denseRows>(call);
}

template <class A, class B, class D>
ZONM_INLINED inline ZonStatus multiplyMatrices(A src1, Shape shape1, B src2, Shape shape2, D dst,
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
