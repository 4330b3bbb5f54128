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
#include "frame/overlap.hpp"
#include "products/interleaved_products.hpp"
#include "products/square_products.hpp"
#include "products/tiled_products.hpp"

namespace zonm
{
namespace
{

// What differs between the exports ---------------------------------------------------------------

enum class Order { rows, blocks };

// Contiguous calls.
struct DensePaths {
    bool squares; // sizes 3 to 6 start from the first product
    Order order;  // in which other sizes store
};

template <class A, class B> struct Form {
    static constexpr bool tables = isObjectTable<A> || isObjectTable<B>;
    static constexpr bool manyByOne = A::many && !B::many;
    static constexpr bool doubles = sizeof(typename A::Value) == sizeof(double);
    static constexpr bool inRowOrder =
        manyByOne || (doubles && A::many && B::many && !A::transposed && B::transposed);

    static constexpr DensePaths dense = {.squares = !tables || manyByOne,
                                         .order =
                                             !tables && inRowOrder ? Order::rows : Order::blocks};

    // `zonmMul_mm_32f_P` and `zonmMul_tt_64f_P` take 3×3 for sizes whose bitwise OR is 3, and 4×4
    // for those whose is 4.
    static constexpr bool hasOddSizeTest = !A::many && !B::many && isElementTable<A> &&
                                           A::transposed == B::transposed &&
                                           A::transposed == doubles;

    // The single operand beside arrays, which the N×N kernels keep in registers up to N = 4.
    static constexpr Held held = A::many == B::many ? Held::none
                                 : A::many          ? Held::second
                                                    : Held::first;
};

// N of a call whose matrices are all N×N, N from 3 to 6, else 0.
template <class F> int squareSize(Shape a, Shape b)
{
    const int32_t bits = a.width | a.height | b.width | b.height;
    if (F::hasOddSizeTest && (bits == 3 || bits == 4))
        return bits;
    const bool square = a == b && a.width == a.height;
    return square && isUnrolled(a.width) ? a.width : 0;
}

// Any size -------------------------------------------------------------------------------------

template <Order O, class A, class B, class D>
[[gnu::noinline]] ZonStatus steppedProducts(const A &a, const B &b, const D &d, ptrdiff_t count)
{
    const ProductShape shape{d.rows, d.columns, a.columns};
    const bool apart = elementsAreApart(d);
    for (ptrdiff_t k = 0; k < count; ++k) {
        if (apart)
            tiledProduct<Accumulation::wide>(a(k), b(k), d(k), shape);
        else if constexpr (O == Order::rows)
            productInRowOrder<Accumulation::wide>(stridedView(a(k)), stridedView(b(k)),
                                                  stridedView(d(k)), shape);
        else
            productInBlockOrder(stridedView(a(k)), stridedView(b(k)), stridedView(d(k)), shape);
    }
    return zonStsOk;
}

// Up to this size the operands are gathered beforehand.
constexpr int gatheredSize = 16;

template <class T> struct Gathered {
    alignas(registerBytes) T element[gatheredSize][gatheredSize];

    DenseMatrix<T> view() { return {bytes(&element[0][0]), sizeof element[0]}; }
};

template <class To, class From>
void copyElements(const To &to, const From &from, ptrdiff_t rows, ptrdiff_t columns)
{
    for (ptrdiff_t i = 0; i < rows; ++i)
        for (ptrdiff_t j = 0; j < columns; ++j)
            to.set(i, j, typename To::Element(from(i, j)));
}

template <class A, class B, class D>
[[gnu::noinline]] ZonStatus scatteredProducts(const A &a, const B &b, const D &d, ptrdiff_t count)
{
    const ProductShape s{d.rows, d.columns, a.columns};
    const bool small =
        s.rows <= gatheredSize && s.columns <= gatheredSize && s.inner <= gatheredSize;
    Gathered<double> left, right;
    Gathered<typename D::Element> product;
    for (ptrdiff_t k = 0; k < count; ++k) {
        if (small) {
            copyElements(left.view(), a(k), s.rows, s.inner);
            copyElements(right.view(), b(k), s.inner, s.columns);
            tiledProduct<Accumulation::inDst>(left.view(), right.view(), product.view(), s);
            copyElements(d(k), product.view(), s.rows, s.columns);
        } else {
            productInRowOrder<Accumulation::inDst>(a(k), b(k), d(k), s);
        }
    }
    return zonStsOk;
}

// Choice of the kernel -------------------------------------------------------------------------

template <int N, Held H> inline constexpr Held heldAt = N <= 4 ? H : Held::none;

// A held operand is loaded once: a kernel for dense ones would not pay.
template <bool IsHeld, class Operand> decltype(auto) stridedIf(const Operand &o)
{
    if constexpr (IsHeld)
        return stridedObjects(o);
    else
        return (o);
}

template <DensePaths P, Held H, bool Many, class A, class B, class D>
[[gnu::noinline]] ZonStatus multiplyDense(const A &a, const B &b, const D &d, int size,
                                          int32_t count)
{
    return withSize(size, [&](auto n) {
        constexpr Held held = heldAt<n, H>;
        const auto squares = [&](auto start) {
            return squareProducts<n, start, held>(stridedIf<held == Held::first>(a),
                                                  stridedIf<held == Held::second>(b), d, count);
        };
        if constexpr (n != 0 && Many && P.squares)
            return squares(StartConstant<Start::product>{});
        else {
            if constexpr (n != 0 && Many)
                if (elementsAreApart(d))
                    return squares(StartConstant<Start::zero>{});
            return steppedProducts<P.order>(a, b, d, count);
        }
    });
}

template <class A, class B, class D>
[[gnu::noinline]] ZonStatus multiplyStrided(const A &a, const B &b, const D &d, int size,
                                            int32_t count)
{
    // A chain that begins with its first product begins with -0.0 here: added to that, it changes
    // nothing.
    if (areInterleavedProducts(a, b, d, count))
        return multiplyInterleaved(a, b, d, size != 0 ? -0.0 : 0.0, count);
    return withSize(size, [&](auto n) {
        if constexpr (n != 0)
            return squareProducts<n, Start::product, Held::none>(a, b, d, count);
        else
            return steppedProducts<Order::rows>(a, b, d, count);
    });
}

template <Held H, class A, class B, class D>
[[gnu::noinline]] ZonStatus multiplyScattered(const A &a, const B &b, const D &d, int size,
                                              int32_t count)
{
    return withSize(size, [&](auto n) {
        if constexpr (n != 0)
            return squareProducts<n, Start::product, heldAt<n, H>>(a, b, d, count);
        else
            return scatteredProducts(a, b, d, count);
    });
}

template <class A, class B, class D>
ZonStatus multiplyMatrices(const A &src1, Shape shape1, const B &src2, Shape shape2, const D &dst,
                           int32_t count)
{
    using F = Form<A, B>;
    const ptrdiff_t rows = A::transposed ? shape1.width : shape1.height;
    const ptrdiff_t inner = A::transposed ? shape1.height : shape1.width;
    const ptrdiff_t columns = B::transposed ? shape2.height : shape2.width;
    const int size = squareSize<F>(shape1, shape2);
    return withLayout(
        [&](auto layout) {
            if constexpr (layout == Layout::dense && !D::many)
                if (size != 0)
                    return withSize(size, [&](auto n) ZONM_INLINED -> ZonStatus {
                        if constexpr (n != 0)
                            return squareObject<n, Start::product>(onlyObject<layout>(src1, n, n),
                                                                   onlyObject<layout>(src2, n, n),
                                                                   onlyObject<layout>(dst, n, n));
                        return zonStsOk;
                    });
            if constexpr (layout == Layout::dense && !F::tables)
                return multiplyDense<F::dense, F::held, D::many>(
                    steppedObjects<layout>(src1, rows, inner),
                    steppedObjects<layout>(src2, inner, columns),
                    steppedObjects<layout>(dst, rows, columns), size, count);
            else {
                const auto a = objects<layout>(src1, rows, inner);
                const auto b = objects<layout>(src2, inner, columns);
                const auto d = objects<layout>(dst, rows, columns);
                if constexpr (layout == Layout::dense)
                    return multiplyDense<F::dense, F::held, true>(a, b, d, size, count);
                else if constexpr (layout == Layout::strided)
                    return multiplyStrided(a, b, d, size, count);
                else
                    return multiplyScattered<F::held>(a, b, d, size, count);
            }
        },
        src1, src2, dst);
}

} // namespace
} // namespace zonm

#include "products/generated/matrix_product.inc"
