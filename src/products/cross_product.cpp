// SPDX-License-Identifier: Apache-2.0
// Vector product of three elements:
//
//   dst(0) = src1(1)*src2(2) - src1(2)*src2(1)
//   dst(1) = src1(2)*src2(0) - src1(0)*src2(2)
//   dst(2) = src1(0)*src2(1) - src1(1)*src2(0)
//
// One path gives what another does: a 32f element is a double, narrowed once. There is no
// temporary: where dst overlaps a source, later elements come from what earlier ones have left.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/overlap.hpp"
#include "products/terms.hpp"
#include "zonm.h"

namespace zonm
{
namespace
{

// Element i of numbers or packs x(0), x(1), x(2) and y(0), y(1), y(2).
template <int I, class X, class Y> ZONM_INLINED inline auto crossElement(X x, Y y)
{
    constexpr int j = (I + 1) % 3, k = (I + 2) % 3;
    return x(j) * y(k) - x(k) * y(j);
}

template <class A, class B, class D>
ZONM_INLINED inline void crossOne(const A &a, const B &b, const D &d)
{
    const auto x = [&](int i) ZONM_INLINED { return double(a(i)); };
    const auto y = [&](int i) ZONM_INLINED { return double(b(i)); };
    unrolled<0, 3>([&](auto i)
                       ZONM_INLINED { d.set(i, typename D::Element(crossElement<i>(x, y))); });
}

template <class A, class B, class D>
[[gnu::noinline]] void crossGroups(A src1, B src2, D dst, int32_t count)
{
    int32_t k = 0;
    // Within an object too, what is written must not be what is read.
    if (areIndependent(Regions(count, dst), Regions(count, src1, src2), count))
        for (; k <= count - objectLanes; k += objectLanes) {
            Doubles<objectLanes> left[3], right[3], result[3];
            gatherTurned(left, laneViews(src1, k));
            gatherTurned(right, laneViews(src2, k));
            unrolled<0, 3>([&](auto i) ZONM_INLINED {
                result[i] = crossElement<i>([&](int p) ZONM_INLINED { return left[p]; },
                                            [&](int p) ZONM_INLINED { return right[p]; });
            });
            scatterTurned(result, laneViews(dst, k));
        }
    for (; k < count; ++k)
        crossOne(src1(k), src2(k), dst(k));
}

template <class A, class B, class D>
[[gnu::noinline]] void crossEach(A src1, B src2, D dst, int32_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        crossOne(src1(k), src2(k), dst(k));
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class B, class D>
ZonStatus crossProducts(const A &src1, const B &src2, const D &dst, int32_t count)
{
    return withLayout(
        [&](auto layout) ZONM_INLINED {
            const auto all = [&](const auto &o) { return objects<layout>(o, 3); };
            if constexpr (!D::many)
                crossOne(onlyObject<layout>(src1, 3), onlyObject<layout>(src2, 3),
                         onlyObject<layout>(dst, 3));
            else if constexpr (layout == Layout::dense && !haveTables<A, B, D>)
                crossGroups(withoutTable(all(src1)), withoutTable(all(src2)),
                            withoutTable(all(dst)), count);
            else if constexpr (layout == Layout::dense)
                crossGroups(all(src1), all(src2), all(dst), count);
            else
                crossEach(all(src1), all(src2), all(dst), count);
            return zonStsOk;
        },
        src1, src2, dst);
}

} // namespace
} // namespace zonm

#include "products/generated/cross_product.inc"
