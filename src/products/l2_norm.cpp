// SPDX-License-Identifier: Apache-2.0
// Euclidean length: dst[k] = square root of the sum of src[k](i)^2
//
//   lengths 3 to 6   in an order of `orders.hpp`
//   other lengths    ascending
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

// The orders of an export: that of object 0 of dense arrays, and that of all others.
template <class A> struct Form {
    static constexpr const Orders &firstOfDense =
        isObjectTable<A> ? norm::firstOfTable : norm::firstOfArray;
    static constexpr const Orders &others = norm::lastSecond;
};

struct Squares : RootOfSquares {
    template <int W, class X>
    ZONM_INLINED static Doubles<W> terms(ptrdiff_t, ptrdiff_t i, const X &x)
    {
        const Doubles<W> element = loadElements<W>(x, i);
        return element * element;
    }
};

// Bindings -------------------------------------------------------------------------------------

template <class A, class T>
ZonStatus euclideanNorms(const A &src, T *dst, int32_t len, int32_t count)
{
    using F = Form<A>;
    return withLayout(
        [&](auto layout) ZONM_INLINED {
            if constexpr (!A::many)
                store<T>(bytes(dst), T(reduceVector<Squares, F::others, layout>(
                                         len, onlyObject<layout>(src, len))));
            else if constexpr (layout == Layout::dense)
                reduceDense<Squares, haveTables<A>, F::firstOfDense, F::others>(
                    dst, len, count, objects<layout>(src, len));
            else
                reduceEach<Squares>(dst, len, count, F::others[len], objects<layout>(src, len));
            return zonStsOk;
        },
        src);
}

} // namespace
} // namespace zonm

#include "products/generated/l2_norm.inc"
