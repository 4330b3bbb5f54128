// SPDX-License-Identifier: Apache-2.0
// Combinations of two vectors, element by element: dst[k](i) = f(src1[k](i), src2[k](i)), evaluated
// in double and narrowed once. `f` takes two numbers or two packs.
//
// Each element is read before it is written and never again, so dst may be a source. Under any
// overlap the results are those of one element after the other.
#pragma once

#include "frame/objects.hpp"
#include "frame/runs.hpp"
#include "products/terms.hpp"
#include "zonm.h"

namespace zonm
{

// Whether packs keep the order of one element after the other: the distance of two operands grows
// evenly from the first object to the last, but objects of a table may lie anywhere.
template <class D, class S> inline bool keepOrder(const D &dst, const S &src, int32_t count)
{
    if constexpr (requires { dst.origins.isTable(); })
        if (dst.origins.isTable() || src.origins.isTable()) {
            bool kept = true;
            for (ptrdiff_t k = 0; k < count; ++k)
                kept &= keepsOrder(dst.origins(k), src.origins(k));
            return kept;
        }
    return keepsOrder(dst.origins(0), src.origins(0),
                      {(count - 1) * (dst.origins.step - src.origins.step), 0});
}

// The elements from `begin` to `end` of one object, W at a time.
template <int W, class F, class X, class Y, class D>
ZONM_INLINED inline void combineElements(const F &f, const X &x, const Y &y, const D &d,
                                         ptrdiff_t i)
{
    storeDoubles<typename D::Element, W>(d.at(i), f(loadElements<W>(x, i), loadElements<W>(y, i)));
}

template <int N, class F, class X, class Y, class D>
ZONM_INLINED inline void combinePacks(const F &f, const X &x, const Y &y, const D &d,
                                      [[maybe_unused]] ptrdiff_t len)
{
    constexpr int W = objectLanes;
    if constexpr (N != 0) {
        unrolled<0, N / W>([&](auto pack)
                               ZONM_INLINED { combineElements<W>(f, x, y, d, pack * W); });
        unrolled<N / W * W, N>([&](auto i) ZONM_INLINED { combineElements<1>(f, x, y, d, i); });
    } else {
        constexpr int packs = 4;
        ptrdiff_t i = 0;
        for (; i + packs * W <= len; i += packs * W)
            unrolled<0, packs>([&](auto pack)
                                   ZONM_INLINED { combineElements<W>(f, x, y, d, i + pack * W); });
        for (; i + W <= len; i += W)
            combineElements<W>(f, x, y, d, i);
        for (; i < len; ++i)
            combineElements<1>(f, x, y, d, i);
    }
}

template <class F, class X, class Y, class D>
ZONM_INLINED inline void combineEach(const F &f, const X &x, const Y &y, const D &d, ptrdiff_t len)
{
    for (ptrdiff_t i = 0; i < len; ++i)
        combineElements<1>(f, x, y, d, i);
}

// All objects ----------------------------------------------------------------------------------

template <class F, class X, class Y, class D>
[[gnu::noinline]] void combineObjects(F f, X x, Y y, D d, int32_t len, int32_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        combineEach(f, x(k), y(k), d(k), len);
}

// Whether the objects of an operand follow each other without gaps.
template <class O> inline bool isOneRun(const O &o)
{
    if constexpr (requires { o.origins.isTable(); })
        if (o.origins.isTable())
            return false;
    return o.origins.step == o.rows * ptrdiff_t(sizeof(typename O::Value));
}

template <class F, class X, class Y, class D>
[[gnu::noinline]] void combineDense(F f, X x, Y y, D d, int32_t len, int32_t count)
{
    if (!keepOrder(d, x, count) || !keepOrder(d, y, count))
        return combineObjects(f, stridedObjects(x), stridedObjects(y), stridedObjects(d), len,
                              count);
    if (isOneRun(x) && isOneRun(y) && isOneRun(d))
        return combinePacks<0>(f, x(0), y(0), d(0), ptrdiff_t(len) * count);
    withSize(len, [&](auto n) ZONM_INLINED {
        for (ptrdiff_t k = 0; k < count; ++k)
            combinePacks<n>(f, x(k), y(k), d(k), len);
    });
}

template <class F, class X, class Y, class D>
ZONM_INLINED inline void combineOneDense(const F &f, const X &x, const Y &y, const D &d,
                                         int32_t len)
{
    if (keepsOrder(d.base, x.base) && keepsOrder(d.base, y.base))
        combinePacks<0>(f, x, y, d, len);
    else
        combineEach(f, x, y, d, len);
}

template <class F, class A, class B, class D>
ZONM_INLINED inline ZonStatus combine(const F &f, const A &src1, const B &src2, const D &dst,
                                      int32_t len, int32_t count)
{
    return withLayout(
        [&](auto layout) ZONM_INLINED {
            const auto all = [&](const auto &o) { return objects<layout>(o, len); };
            const auto only = [&](const auto &o) { return onlyObject<layout>(o, len); };
            if constexpr (D::many && layout == Layout::dense && !haveTables<A, B, D>)
                combineDense(f, withoutTable(all(src1)), withoutTable(all(src2)),
                             withoutTable(all(dst)), len, count);
            else if constexpr (D::many && layout == Layout::dense)
                combineDense(f, all(src1), all(src2), all(dst), len, count);
            else if constexpr (D::many)
                combineObjects(f, all(src1), all(src2), all(dst), len, count);
            else if constexpr (layout == Layout::dense)
                combineOneDense(f, only(src1), only(src2), only(dst), len);
            else
                combineEach(f, only(src1), only(src2), only(dst), len);
            return zonStsOk;
        },
        src1, src2, dst);
}

} // namespace zonm
