// SPDX-License-Identifier: Apache-2.0
// Sums and differences of matrices: dst[k](i, j) = src1[k](i, j) + or - src2[k](i, j).
//
// One operation and one rounding per element, so no path can differ from another in a value. The
// order of reads and writes is the literal one of `combine.hpp`, but for the `_P` forms named here.
#include "elementwise/combine.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

struct Form {
    // At these sizes the `_P` forms read an object whole before they write it, and hold a single
    // operand across all objects. That can be seen where operands overlap, and is part of the
    // interface; a plain array with a transposed second operand (mat, mata) does not.
    static bool readsWholeObjects(Shape s) { return s.width == s.height && isUnrolled(s.width); }
    template <class A, class B>
    static constexpr bool mayReadWholeObjects = !(A::many && !A::transposed && B::transposed);
};

template <class Op, class A, class B, class D>
ZonStatus combine(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return combineWithObject<Op>(src1, src2, dst, shape, count,
                                 Form::mayReadWholeObjects<A, B> && Form::readsWholeObjects(shape));
}

// Bindings ---------------------------------------------------------------------------------------

template <class A, class B, class D>
ZonStatus addMatrices(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return combine<Plus>(src1, src2, dst, shape, count);
}

template <class A, class B, class D>
ZonStatus subtractMatrices(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return combine<Minus>(src1, src2, dst, shape, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/matrix_sums.inc"
