// SPDX-License-Identifier: Apache-2.0
// Products with constants: dst[k](i, j) = src[k](i, j) * c[k], for matrices, their transposes and
// vectors, with one number for all objects or one for each.
//
// One multiplication and one rounding per element, in every path and at every size; nothing is
// short-cut, so that zero times infinity is a NaN. In place where dst and a plain src have the same
// layout.
#include "elementwise/combine.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

// Bindings ---------------------------------------------------------------------------------------

template <class A, class C, class D>
ZonStatus multiplyByConstant(A src, C constants, D dst, Shape shape, int32_t count)
{
    return combineWithConstant<Times>(src, constants, dst, shape, count);
}

template <class A, class C, class D>
ZonStatus multiplyByConstant(A src, C constants, D dst, int32_t len, int32_t count)
{
    return combineWithConstant<Times>(src, constants, dst, Shape{len, 1}, count);
}

} // namespace
} // namespace zonm

#include "products/generated/constant_product.inc"
