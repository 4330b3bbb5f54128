// SPDX-License-Identifier: Apache-2.0
// Linear combination: dst[k](i) = src1[k](i) * val1 + src2[k](i) * val2
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "products/combinations.hpp"

namespace zonm
{
namespace
{

struct LinearCombination {
    double val1, val2;

    template <class V> ZONM_INLINED V operator()(V x, V y) const { return x * val1 + y * val2; }
};

template <class A, class B, class D, class T>
ZonStatus combineLinearly(const A &src1, T val1, const B &src2, T val2, const D &dst, int32_t len,
                          int32_t count)
{
    return combine(LinearCombination{val1, val2}, src1, src2, dst, len, count);
}

} // namespace
} // namespace zonm

#include "products/generated/lcomb.inc"
