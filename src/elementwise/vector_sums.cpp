// SPDX-License-Identifier: Apache-2.0
// Sums and differences of vectors and constants: dst[k](i) = a[k](i) + or - b[k](i), where a or b
// may be a number for all objects or one for each.
//
// One operation and one rounding per element, so no path can differ from another in a value. The
// order of reads and writes is the literal one of `combine.hpp`, but for the single vectors that
// are held.
#include "elementwise/combine.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

struct Form {
    // At these lengths some strided forms read a single vector once, before the first object.
    static bool holds(int32_t len) { return isUnrolled(len); }
    // vav does, and vva in 32f alone.
    template <class A, class B, class D>
    static constexpr bool holdsSingle = D::description == Description::strided &&
                                        ((A::many && !B::many) ||
                                         (!A::many && B::many &&
                                          std::is_same_v<typename D::Value, float>));
};

// A single vector read now, to stand in its place.
template <class T> struct HeldVector {
    T elements[largestUnrolled];

    HeldVector(const Vector<const T> &v, int32_t len)
    {
        const auto view = onlyObject(v, len);
        for (int32_t i = 0; i < len; ++i)
            elements[i] = view(i);
    }
    Vector<const T> vector() const { return {elements, sizeof(T)}; }
};

template <class Block> inline constexpr bool isConstant = requires(Block b) { b(0); };

template <class Op, class A, class B, class D>
ZonStatus combine(A a, B b, D dst, int32_t len, int32_t count)
{
    const Shape row{len, 1};
    if constexpr (isConstant<A>)
        return combineWithConstant<Swapped<Op>>(b, a, dst, row, count);
    else if constexpr (isConstant<B>)
        return combineWithConstant<Op>(a, b, dst, row, count);
    else if constexpr (Form::holdsSingle<A, B, D>) {
        if (Form::holds(len)) {
            if constexpr (A::many)
                return combineWithObject<Op>(a, HeldVector(b, len).vector(), dst, row, count);
            else
                return combineWithObject<Op>(HeldVector(a, len).vector(), b, dst, row, count);
        }
        return combineWithObject<Op>(a, b, dst, row, count);
    } else
        return combineWithObject<Op>(a, b, dst, row, count);
}

// Bindings ---------------------------------------------------------------------------------------

template <class A, class B, class D>
ZonStatus addVectors(A a, B b, D dst, int32_t len, int32_t count)
{
    return combine<Plus>(a, b, dst, len, count);
}

template <class A, class B, class D>
ZonStatus subtractVectors(A a, B b, D dst, int32_t len, int32_t count)
{
    return combine<Minus>(a, b, dst, len, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/vector_sums.inc"
