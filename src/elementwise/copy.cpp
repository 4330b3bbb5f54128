// SPDX-License-Identifier: Apache-2.0
// Copies between descriptions: dst[k](i, j) = src[k](i, j), bit by bit, in the order k, i, j
// wherever dst meets src; another order runs only where that cannot show.
#include "elementwise/moves.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

// Bindings ---------------------------------------------------------------------------------------

template <class S, class D> ZonStatus copyObjects(S src, D dst, Shape shape, int32_t count)
{
    return move<BitsOf<typename D::Value>>(placed(src, shape), placed(dst, shape), shape.width,
                                           shape.height, count);
}

template <class S, class D> ZonStatus copyObjects(S src, D dst, int32_t len, int32_t count)
{
    return copyObjects(src, dst, Shape{len, 1}, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/copy.inc"
