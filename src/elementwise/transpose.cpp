// SPDX-License-Identifier: Apache-2.0
// Transposes: dst[k](j, i) = src[k](i, j), bit by bit. dst is memory of its own; what an overlap
// leaves is that of the loops named here, whatever the path.
#include "elementwise/moves.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

struct Form {
    // At these sizes the `_P` forms read an object whole before they write it.
    static constexpr int32_t leastWhole = 3, largestWhole = 6;
    static bool readsWholeObjects(Shape s)
    {
        return s.width == s.height && leastWhole <= s.width && s.width <= largestWhole;
    }
};

template <class T>
[[gnu::noinline]] void moveWholeObjects(const Scattered<const T> &src, const Scattered<T> &dst,
                                        ptrdiff_t size, ptrdiff_t count)
{
    using Bits = BitsOf<T>;
    for (ptrdiff_t k = 0; k < count; ++k) {
        Bits object[Form::largestWhole * Form::largestWhole];
        const Placed<Bits> held(object, 0, size * ptrdiff_t(sizeof(Bits)), sizeof(Bits));
        const auto next = [k](auto o) { return o.shift += k * o.step, o; };
        moveElements<Bits>(next(src), held, size, size, 1);
        moveElements<Bits>(held, next(dst), size, size, 1);
    }
}

// Bindings ---------------------------------------------------------------------------------------

template <class S, class D> ZonStatus transpose(S src, Shape shape, D dst, int32_t count)
{
    using T = typename D::Value;
    const auto [width, height] = shape;
    if constexpr (isElementTable<D>) {
        // In the order of src.
        const Scattered<const T> from(src, shape);
        const Scattered<T> to{Transposed<D>(dst), shape};
        if (Form::readsWholeObjects(shape))
            return moveWholeObjects<T>(from, to, width, count), zonStsOk;
        return move<BitsOf<T>>(from, to, width, height, count);
    } else {
        // In the order of dst.
        const Shape result{height, width};
        return move<BitsOf<T>>(placed(Transposed(src), result), placed(dst, result), height, width,
                               count);
    }
}

} // namespace
} // namespace zonm

#include "elementwise/generated/transpose.inc"
