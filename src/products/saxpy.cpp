// SPDX-License-Identifier: Apache-2.0
// Scaled vector plus vector: dst[k](i) = src1[k](i) * val + src2[k](i)
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/combinations.hpp"

namespace zonm
{
namespace
{

struct ScaledPlus {
    double val;

    template <class V> ZONM_INLINED V operator()(V x, V y) const { return x * val + y; }
};

template <class A, class B, class D, class T>
ZonStatus addScaled(const A &src1, T val, const B &src2, const D &dst, int32_t len, int32_t count)
{
    return combine(ScaledPlus{val}, src1, src2, dst, len, count);
}

} // namespace
} // namespace zonm

#include "products/generated/saxpy.inc"
