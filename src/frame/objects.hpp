// SPDX-License-Identifier: Apache-2.0
// The objects of an operand: x(k) is the view of object k. An operand becomes objects under one of
// three layouts, which is chosen once per call; a single operand beside arrays is the same object
// for every k.
//
//   const auto src = objects<Layout::strided>(block, rows, columns); // as used
//   src(k)(i, j)
#pragma once

#include "frame/operands.hpp"
#include "frame/views.hpp"

#include <utility>

namespace zonm
{

// dense: rows, or vectors, without gaps (the columns of a transposed operand). Scattered: through a
// table of elements.
enum class Layout { dense, strided, scattered };

// Origins --------------------------------------------------------------------------------------
//
// The origin of object k. `place` is a constant added to k: compilers fold it into an address.

template <class T> struct SteppedOrigins {
    Bytes<T> base;
    ptrdiff_t step; // 0 for a single object

    Bytes<T> operator()(ptrdiff_t k, int place = 0) const { return base + k * step + place * step; }
};

// Strided objects and object tables under one type, for kernels that take both. A strided operand
// is a table with one entry, its base, at which the mask keeps every index: no branch per object.
// The operand block must outlive this.
template <class T> struct LocatedOrigins {
    T *const *table;
    ptrdiff_t indexMask; // all ones for a table, else zero
    ptrdiff_t shift, step;

    Bytes<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return bytes(table[(k + place) & indexMask]) + (shift + k * step + place * step);
    }
    bool isTable() const { return indexMask != 0; }
};

// Element tables: the offset of all entries.
template <class T> struct ScatteredOrigins {
    ptrdiff_t shift, step;

    ptrdiff_t operator()(ptrdiff_t k, int place = 0) const
    {
        return shift + k * step + place * step;
    }
};

template <class Block> auto steppedOrigins(const Block &o)
{
    using T = typename Block::Value;
    if constexpr (Block::many)
        return SteppedOrigins<T>{bytes(o.base), o.stride0};
    else
        return SteppedOrigins<T>{bytes(o.base), 0};
}

template <class Block> auto locatedOrigins(const Block &o)
{
    using T = typename Block::Value;
    if constexpr (isObjectTable<Block>)
        return LocatedOrigins<T>{o.table, -1, o.shift, 0};
    else
        return LocatedOrigins<T>{&o.base, 0, 0, steppedOrigins(o).step};
}

template <class Block> auto scatteredOrigins(const Block &o)
{
    return ScatteredOrigins<typename Block::Value>{o.shift, o.stride0};
}

// Objects --------------------------------------------------------------------------------------

// `rows` and `columns` as used; a vector of length n has n rows and one column.
template <class View, class Origins> struct Objects {
    using Value = typename View::Value;
    using Element = typename View::Element;

    Origins origins;
    View first; // its origin does not matter
    ptrdiff_t rows, columns;

    View operator()(ptrdiff_t k, int place = 0) const { return first.placedAt(origins(k, place)); }
};
template <class View, class Origins>
Objects(Origins, View, ptrdiff_t, ptrdiff_t) -> Objects<View, Origins>;

// Dense objects for kernels that take them as strided ones.
template <class View, class Origins> inline auto stridedObjects(const Objects<View, Origins> &o)
{
    return Objects{o.origins, stridedView(o.first), o.rows, o.columns};
}

template <class Block> inline auto transposedIfSo(auto stored)
{
    if constexpr (Block::transposed)
        return transposed(stored);
    else
        return stored;
}

// The view of a block's stored object with the steps that it has under a layout, without origin.
template <Layout L, class Block>
inline auto viewOf(const Block &o, [[maybe_unused]] ptrdiff_t rows,
                   [[maybe_unused]] ptrdiff_t columns)
{
    using T = typename Block::Value;
    if constexpr (isElementTable<Block> && Block::rank == 2)
        return transposedIfSo<Block>(
            ScatteredMatrix<T>(o.table, 0, Block::transposed ? rows : columns, 1));
    else if constexpr (isElementTable<Block>)
        return ScatteredVector<T>(o.table, 0);
    else if constexpr (L == Layout::dense && Block::rank == 2)
        return transposedIfSo<Block>(DenseMatrix<T>(nullptr, o.stride1));
    else if constexpr (L == Layout::dense)
        return DenseVector<T>(nullptr);
    else if constexpr (Block::rank == 2)
        return transposedIfSo<Block>(StridedMatrix<T>(nullptr, o.stride1, o.stride2));
    else
        return StridedVector<T>(nullptr, o.stride2);
}

// The objects of strided operands and object tables alike, or of element tables.
template <Layout L, class Block>
inline auto objects(const Block &o, ptrdiff_t rows, ptrdiff_t columns = 1)
{
    if constexpr (isElementTable<Block>)
        return Objects{scatteredOrigins(o), viewOf<L>(o, rows, columns), rows, columns};
    else
        return Objects{locatedOrigins(o), viewOf<L>(o, rows, columns), rows, columns};
}

// The same for kernels that take no object table, which saves a look at one.
template <Layout L, class Block>
inline auto steppedObjects(const Block &o, ptrdiff_t rows, ptrdiff_t columns = 1)
{
    return Objects{steppedOrigins(o), viewOf<L>(o, rows, columns), rows, columns};
}

// Objects that are known to stand in no table, for such a kernel.
template <class View, class T> inline auto withoutTable(const Objects<View, LocatedOrigins<T>> &o)
{
    return Objects{SteppedOrigins<T>{o.origins(0), o.origins.step}, o.first, o.rows, o.columns};
}

// Whether any of a call's operands is a table of objects.
template <class... Blocks> inline constexpr bool haveTables = (... || isObjectTable<Blocks>);

// The view of a single operand. Strided, unless the layout is given: scalar kernels take dense
// objects as strided ones.
template <Layout L = Layout::strided, class Block>
inline auto onlyObject(const Block &o, ptrdiff_t rows, ptrdiff_t columns = 1)
{
    if constexpr (isElementTable<Block>)
        return viewOf<L>(o, rows, columns).placedAt(o.shift);
    else
        return viewOf<L>(o, rows, columns).placedAt(bytes(o.base));
}

// Runs of `length` plain elements, back to back in object order; `step` in elements, 0 where all
// objects share one run.
template <class T> inline auto runsOf(T *base, ptrdiff_t length, ptrdiff_t step)
{
    return Objects{SteppedOrigins<T>{bytes(base), step * ptrdiff_t(sizeof(T))},
                   DenseVector<T>(nullptr), length, ptrdiff_t(1)};
}
template <class T> inline auto runsOf(T *base, ptrdiff_t length)
{
    return runsOf(base, length, length);
}

// The layout of a call ---------------------------------------------------------------------------

template <Layout L> using LayoutConstant = std::integral_constant<Layout, L>;

// f(layout) with the layout of the call as a constant: dense only if every operand is.
template <class F, class... Blocks> inline auto withLayout(F f, const Blocks &...operand)
{
    if constexpr ((... || isElementTable<Blocks>))
        return f(LayoutConstant<Layout::scattered>{});
    else if ((... && isDense(operand)))
        return f(LayoutConstant<Layout::dense>{});
    else
        return f(LayoutConstant<Layout::strided>{});
}

} // namespace zonm
