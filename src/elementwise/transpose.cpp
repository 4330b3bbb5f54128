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
    static bool readsWholeObjects(Shape s) { return s.width == s.height && isUnrolled(s.width); }
};

template <class T>
[[gnu::noinline]] void moveWholeObjects(Scattered<const T> src, Scattered<T> dst, ptrdiff_t size,
                                        ptrdiff_t count)
{
    using Bits = BitsOf<T>;
    Bits object[largestUnrolled * largestUnrolled];
    const Placed<Bits> held(object, 0, size * ptrdiff_t(sizeof(Bits)), sizeof(Bits));
    for (ptrdiff_t k = 0; k < count; ++k) {
        moveElements<Bits>(src, held, size, size, 1);
        moveElements<Bits>(held, dst, size, size, 1);
        src.first.offset += src.step, dst.first.offset += dst.step;
    }
}

// Bindings ---------------------------------------------------------------------------------------

template <class S, class D> ZonStatus transpose(S src, Shape shape, D dst, int32_t count)
{
    using T = typename D::Value;
    const auto [width, height] = shape;
    if constexpr (isElementTable<D>) {
        // In the order of src.
        const auto from = scattered(src, shape);
        const auto to = scattered(Transposed<D>(dst), shape);
        if (Form::readsWholeObjects(shape))
            return moveWholeObjects<T>(from, to, width, count), zonStsOk;
        return move<BitsOf<T>>(from, to, width, height, count);
    } else {
        if constexpr (!D::many)
            if (width == height && width <= largestUnrolled && isDense(src) && isDense(dst) &&
                transposeOne<BitsOf<T>>(bytes(dst.base), dst.stride1, bytes(src.base), src.stride1,
                                        width))
                return zonStsOk;
        // In the order of dst.
        const Shape result{height, width};
        return move<BitsOf<T>>(placed(Transposed(src), result), placed(dst, result), height, width,
                               count);
    }
}

} // namespace
} // namespace zonm

#include "elementwise/generated/transpose.inc"
