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

// Operands as the kernels take them ------------------------------------------------------------

template <class T, class Objects> struct DenseRowsOf {
    Objects objects;
    ptrdiff_t rowStep;
    DenseMatrix<T> operator()(ptrdiff_t k) const { return {objects(k), rowStep}; }
};

template <class T, class Objects> struct DenseColumnsOf {
    Objects objects;
    ptrdiff_t columnStep;
    DenseColumns<T> operator()(ptrdiff_t k) const { return {objects(k), columnStep}; }
};

template <class T, class Objects> struct StridedOf {
    Objects objects;
    ptrdiff_t rowStep, columnStep;
    StridedMatrix<T> operator()(ptrdiff_t k) const { return {objects(k), rowStep, columnStep}; }
};

template <class T> struct ScatteredOf {
    ScatteredMatrix<T> first;
    ptrdiff_t step;
    ScatteredMatrix<T> operator()(ptrdiff_t k) const
    {
        return {first.table, first.offset + k * step, first.rowPitch, first.columnPitch};
    }
};

template <template <class> class Objects, class Operand> auto dense(Operand o)
{
    using T = typename Operand::Value;
    if constexpr (Operand::transposed)
        return DenseColumnsOf<T, Objects<T>>{o.objects(), o.columnStep()};
    else
        return DenseRowsOf<T, Objects<T>>{o.objects(), o.rowStep()};
}

template <template <class> class Objects, class Operand> auto strided(Operand o)
{
    using T = typename Operand::Value;
    return StridedOf<T, Objects<T>>{o.objects(), o.rowStep(), o.columnStep()};
}

template <class Operand> auto scattered(Operand o, ptrdiff_t width)
{
    using T = typename Operand::Value;
    return ScatteredOf<T>{o.object(0, int32_t(width)), o.stride0};
}

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

// Calls f with the size as a constant.
template <class F> ZONM_INLINE ZonStatus withSize(int32_t n, F f)
{
    switch (n) {
    case 3:
        f(std::integral_constant<int, 3>{});
        break;
    case 4:
        f(std::integral_constant<int, 4>{});
        break;
    case 5:
        f(std::integral_constant<int, 5>{});
        break;
    default:
        f(std::integral_constant<int, 6>{});
        break;
    }
    return zonStsOk;
}

// Whether no two elements of dst share an address.
bool areApart(ptrdiff_t rowStep, ptrdiff_t columnStep, Extents e)
{
    return e.rows == 1 || (e.columns - 1) * columnStep < rowStep ||
           (e.rows - 1) * rowStep < columnStep;
}

// Any size -------------------------------------------------------------------------------------

template <Order O, class A, class B, class D>
ZonStatus denseProducts(A a, B b, D d, Extents e, ptrdiff_t count)
{
    const bool apart = areApart(d.rowStep, sizeof(typename decltype(d(0))::Element), e);
    for (ptrdiff_t k = 0; k < count; ++k) {
        if (apart)
            tiledProduct<2, 4, Sum::wide>(a(k), b(k), d(k), e);
        else if (O == Order::rows)
            tiledProduct<1, 1, Sum::wide>(a(k), b(k), d(k), e);
        else
            productInBlockOrder(a(k), b(k), d(k), e);
    }
    return zonStsOk;
}

template <class A, class B, class D>
ZonStatus stridedProducts(A a, B b, D d, Extents e, ptrdiff_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        tiledProduct<1, 4, Sum::wide>(a(k), b(k), d(k), e);
    return zonStsOk;
}

template <class A, class B, class D>
ZonStatus scatteredProducts(A a, B b, D d, Extents e, ptrdiff_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        tiledProduct<1, 4, Sum::inDst>(a(k), b(k), d(k), e);
    return zonStsOk;
}

// Choice of the kernel -------------------------------------------------------------------------

template <template <class> class Objects, class A, class B, class D>
ZonStatus multiplyStrided(A src1, Shape shape1, B src2, Shape shape2, D dst, Extents e,
                          int32_t count)
{
    const int32_t size = squareSize(shape1, shape2);
    if (src1.isDense() & src2.isDense() & dst.isDense()) {
        const auto a = dense<Objects>(src1);
        const auto b = dense<Objects>(src2);
        const auto d = dense<Objects>(dst);
        constexpr Start start = Paths<A, B>::denseSquares ? Start::product : Start::zero;
        if (size != 0 && (start == Start::product || areApart(d.rowStep, sizeof(typename D::Value), e)))
            return withSize(size, [&](auto n) ZONM_UNROLLED {
                squareProducts<n, start, held<A, B>>(a, b, d, count);
            });
        return denseProducts<Paths<A, B>::denseOrder>(dense<Tabled>(src1), dense<Tabled>(src2),
                                                      dense<Tabled>(dst), e, count);
    }
    if (size != 0)
        return withSize(size, [&](auto n) ZONM_UNROLLED {
            squareProducts<n, Start::product, Held::none>(
                strided<Objects>(src1), strided<Objects>(src2), strided<Objects>(dst), count);
        });
    return stridedProducts(strided<Tabled>(src1), strided<Tabled>(src2), strided<Tabled>(dst), e,
                           count);
}

// `zonmMul_mm_32f_P` and `zonmMul_tt_64f_P` take 3×3 for sizes whose bitwise OR is 3.
template <class A, class B>
inline constexpr bool hasOddSizeTest =
    !A::many && !B::many && A::transposed == B::transposed &&
    A::transposed == (sizeof(typename A::Value) == sizeof(double));

template <class A, class B>
int32_t scatteredSize(Shape a, Shape b)
{
    if constexpr (hasOddSizeTest<A, B>) {
        const int32_t bits = a.width | a.height | b.width | b.height;
        if (bits == 3 || bits == 4)
            return bits;
    }
    return squareSize(a, b);
}

template <class A, class B, class D>
ZonStatus multiplyMatrices(A src1, Shape shape1, B src2, Shape shape2, D dst, int32_t count)
{
    const Extents e{A::transposed ? shape1.width : shape1.height,
                    B::transposed ? shape2.height : shape2.width,
                    A::transposed ? shape1.height : shape1.width};
    if constexpr (!isElementTable<A>) {
        if constexpr (Paths<A, B>::tables)
            return multiplyStrided<Tabled>(src1, shape1, src2, shape2, dst, e, count);
        else
            return multiplyStrided<Stepped>(src1, shape1, src2, shape2, dst, e, count);
    } else {
        const auto a = scattered(src1, shape1.width);
        const auto b = scattered(src2, shape2.width);
        const auto d = scattered(dst, e.columns);
        if (const int32_t size = scatteredSize<A, B>(shape1, shape2))
            return withSize(size, [&](auto n) ZONM_UNROLLED {
                squareProducts<n, Start::product, Held::none>(a, b, d, count);
            });
        return scatteredProducts(a, b, d, e, count);
    }
}

} // namespace
} // namespace zonm

#include "products/generated/matrix_product.inc"
