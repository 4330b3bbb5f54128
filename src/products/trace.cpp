// SPDX-License-Identifier: Apache-2.0
// Trace: dst[k] = src[k](0, 0) + src[k](1, 1) + ...
//
//   sizes 3 to 6   in the order of `orders.hpp`, which differs between element tables and the rest
//   other sizes    ascending from 0.0: a trace of -0.0 only is +0.0
//
// A sum is a double, narrowed once. dst must not overlap src.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/objects.hpp"
#include "products/orders.hpp"
#include "zonm.h"

namespace zonm
{
namespace
{

template <class A> struct Form {
    static constexpr Orders orders = isElementTable<A> ? ascending : trace::lastTwoFirst;
};

template <int N, Orders O, class A>
ZONM_INLINED inline double diagonalSum(const A &a, [[maybe_unused]] int32_t width)
{
    if constexpr (N != 0) {
        return sumInOrder<O[N]>([&](auto i) ZONM_INLINED { return double(a(i, i)); });
    } else {
        double sum = 0;
        for (int32_t i = 0; i < width; ++i)
            sum = sum + a(i, i);
        return sum;
    }
}

// Bindings -------------------------------------------------------------------------------------

// Only the diagonal is read, so that dense rows are nothing special.
template <class A, class T> ZonStatus traces(const A &src, int32_t width, T *dst, int32_t count)
{
    withSize(width, [&](auto n) ZONM_INLINED {
        const auto trace = [=](const auto &object) ZONM_INLINED {
            return T(diagonalSum<n, Form<A>::orders>(object, width));
        };
        if constexpr (A::many) {
            const auto a = objects<Layout::strided>(src, width, width);
            for (ptrdiff_t k = 0; k < count; ++k)
                store<T>(bytes(dst + k), trace(a(k)));
        } else {
            store<T>(bytes(dst), trace(onlyObject(src, width, width)));
        }
    });
    return zonStsOk;
}

} // namespace
} // namespace zonm

#include "products/generated/trace.inc"
