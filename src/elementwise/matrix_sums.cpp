// SPDX-License-Identifier: Apache-2.0
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/operands.hpp"

namespace zonm {
namespace {

struct Add {
    template <class T> static T apply(T a, T b) { return a + b; }
};
struct Subtract {
    template <class T> static T apply(T a, T b) { return a - b; }
};

template <class Op, class A, class B, class D>
ZonStatus sum(A src1, B src2, D dst, Shape shape, int32_t count)
{
    for (int32_t k = 0; k < count; ++k) {
        auto view = [&](auto o, int32_t storedWidth) {
            if constexpr (isElementTable<decltype(o)>)
                return o.object(k, storedWidth);
            else
                return StridedMatrix<typename decltype(o)::Value>(o.objects()(k), o.rowStep(),
                                                                  o.columnStep());
        };
        const auto a = view(src1, A::transposed ? shape.height : shape.width);
        const auto b = view(src2, B::transposed ? shape.height : shape.width);
        const auto d = view(dst, shape.width);
        for (int32_t i = 0; i < shape.height; ++i)
            for (int32_t j = 0; j < shape.width; ++j)
                d.set(i, j, Op::apply(a(i, j), b(i, j)));
    }
    return zonStsOk;
}

template <class A, class B, class D>
ZonStatus addMatrices(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return sum<Add>(src1, src2, dst, shape, count);
}

template <class A, class B, class D>
ZonStatus subtractMatrices(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return sum<Subtract>(src1, src2, dst, shape, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/matrix_sums.inc"
