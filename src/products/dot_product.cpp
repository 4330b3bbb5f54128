// SPDX-License-Identifier: Apache-2.0
// Scalar product: dst[k] = sum over i of src1[k](i) * src2[k](i)
//
//   lengths 3 to 6   begin with a product and go on in an order of `orders.hpp`
//   other lengths    ascending from 0.0
//
// A sum is a double, narrowed once. dst must not overlap a source.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/reductions.hpp"

namespace zonm
{
namespace
{

// The orders of an export: that of object 0, and that of the others.
template <class A, class B> struct Form {
    static constexpr bool onlySecondSingle = A::many && !B::many;

    static constexpr const Orders &first(Layout layout)
    {
        return layout == Layout::dense && onlySecondSingle && !isObjectTable<A> ? dot::lastFirst
                                                                                : others(layout);
    }
    static constexpr const Orders &others(Layout layout)
    {
        if (layout != Layout::strided)
            return ascending;
        if (!A::many)
            return dot::ofStridedVv;
        if (!onlySecondSingle)
            return dot::lastFirst;
        return isObjectTable<A> ? dot::ofStridedVavTables : dot::ofStridedVav;
    }
};

struct Products {
    template <int W, class X, class Y>
    ZONM_INLINED static Doubles<W> terms(ptrdiff_t, ptrdiff_t i, const X &x, const Y &y)
    {
        return loadElements<W>(x, i) * loadElements<W>(y, i);
    }
    template <class V> ZONM_INLINED static V finish(V sum) { return sum; }
};

// Bindings -------------------------------------------------------------------------------------

template <class A, class B, class T>
ZonStatus dotProducts(const A &src1, const B &src2, T *dst, int32_t len, int32_t count)
{
    using F = Form<A, B>;
    return withLayout(
        [&](auto layout) ZONM_INLINED {
            const auto all = [&](const auto &o) { return objects<layout>(o, len); };
            const auto only = [&](const auto &o) { return onlyObject<layout>(o, len); };
            if constexpr (!A::many)
                store<T>(bytes(dst), T(reduceVector<Products, F::others(layout), layout>(
                                         len, only(src1), only(src2))));
            else if constexpr (layout == Layout::dense)
                reduceDense<Products, haveTables<A, B>, F::first(layout), F::others(layout)>(
                    dst, len, count, all(src1), all(src2));
            else
                reduceEach<Products>(dst, len, count, F::others(layout)[len], all(src1), all(src2));
            return zonStsOk;
        },
        src1, src2);
}

} // namespace
} // namespace zonm

#include "products/generated/dot_product.inc"
