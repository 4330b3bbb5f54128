// SPDX-License-Identifier: Apache-2.0
// Copies into dense memory: dst[k*width*height + i*width + j] = src[k](i, j), bit by bit, in the
// order k, i, j wherever dst meets src; another order runs only where that cannot show.
#include "elementwise/moves.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

struct Form {
    // The `_P` forms of m and ma take the table as one run, and form its length in 32 bits.
    template <class S>
    static constexpr bool takesTableAsRun = isElementTable<S> &&S::rank == 2 && !S::transposed;

    static int32_t length(Shape s)
    {
        return int32_t(std::uint32_t(s.width) * std::uint32_t(s.height));
    }
};

// Bindings ---------------------------------------------------------------------------------------

template <class S, class T> ZonStatus extractObjects(S src, T *dst, Shape shape, int32_t count)
{
    if constexpr (Form::takesTableAsRun<S>) {
        shape = {Form::length(shape), 1};
        if (shape.width < 1)
            return zonStsOk;
    }
    using Bits = BitsOf<T>;
    const ptrdiff_t element = sizeof(T), row = shape.width * element;
    return move<Bits>(placed(src, shape), Placed<Bits>(dst, row * shape.height, row, element),
                      shape.width, shape.height, count);
}

template <class S, class T> ZonStatus extractObjects(S src, T *dst, int32_t len, int32_t count)
{
    return extractObjects(src, dst, Shape{len, 1}, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/extract.inc"
