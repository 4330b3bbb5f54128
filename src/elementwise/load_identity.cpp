// SPDX-License-Identifier: Apache-2.0
// Identity matrices: dst[k](i, j) = 1 if i == j, else 0. Row by row, the zeros of a row before its
// one: where the rows of dst overlap, that can be seen.
#include "elementwise/moves.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

template <class View> void loadRow(const View &dst, ptrdiff_t i, ptrdiff_t width)
{
    using T = typename View::Element;
    for (ptrdiff_t j = 0; j < width; ++j)
        dst.set(i, j, T(0));
    if (i < width)
        dst.set(i, i, T(1));
}

template <class T>
[[gnu::noinline]] void loadScattered(const Scattered<T> &dst, Shape shape, ptrdiff_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        for (ptrdiff_t i = 0; i < shape.height; ++i)
            loadRow(dst(k), i, shape.width);
}

// Objects without gaps inside: a run of zeros, and the ones.
template <class T>
[[gnu::noinline]] void loadPacked(const Placed<T> &dst, Shape shape, ptrdiff_t count)
{
    const ptrdiff_t elements = shape.width * ptrdiff_t(shape.height);
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto object = dst(k);
        writeRun<T>(object, elements, Repeated<T>{0});
        for (ptrdiff_t i = 0; i < std::min(shape.width, shape.height); ++i)
            store(object + i * (dst.rowStep + ptrdiff_t(sizeof(T))), T(1));
    }
}

// Objects without gaps between them either: copies of the first.
template <class T>
[[gnu::noinline]] void loadRun(const Placed<T> &dst, Shape shape, ptrdiff_t count)
{
    const ptrdiff_t elements = shape.width * ptrdiff_t(shape.height);
    loadPacked(dst, shape, 1);
    const Tile<T> tile(dst(0), elements);
    Tile<T>::forEach(elements, count, [&](ptrdiff_t first, ptrdiff_t length) {
        writeRun<T>(dst(0) + first * ptrdiff_t(sizeof(T)), length, tile.values());
    });
}

template <class T>
[[gnu::noinline]] ZonStatus loadObjects(const Placed<T> &dst, Shape shape, ptrdiff_t count)
{
    const auto [width, height] = shape;
    const bool gaps =
        dst.columnStep != sizeof(T) || (height > 1 && dst.rowStep != width * dst.columnStep);
    if (!gaps) {
        const ptrdiff_t elements = width * ptrdiff_t(height);
        if (!dst.isTable && dst.step == elements * ptrdiff_t(sizeof(T)) &&
            Tile<T>::serves(elements, count))
            loadRun(dst, shape, count);
        else
            loadPacked(dst, shape, count);
        return zonStsOk;
    }
    for (ptrdiff_t k = 0; k < count; ++k)
        for (ptrdiff_t i = 0; i < height; ++i)
            loadRow(StridedMatrix<T>(dst(k), dst.rowStep, dst.columnStep), i, width);
    return zonStsOk;
}

// Bindings ---------------------------------------------------------------------------------------

template <class D> ZonStatus loadIdentity(D dst, Shape shape, int32_t count)
{
    using T = typename D::Value;
    if constexpr (isElementTable<D>)
        return loadScattered(scattered(dst, shape), shape, count), zonStsOk;
    else
        return loadObjects(Placed<T>(dst), shape, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/load_identity.inc"
