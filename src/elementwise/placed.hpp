// SPDX-License-Identifier: Apache-2.0
// Operands as the element-wise families take them: few types, so that kernels are shared, and what
// has to be known of them before a loop may be taken in another order.
#pragma once

#include "frame/overlap.hpp"

namespace zonm
{

// Strided operands and object tables: where the objects begin, and two steps inside each. A
// vector is a matrix of one row, a single operand has step 0. One type for all lets the kernels be
// shared.
template <class T> struct Placed {
    const void *place; // the first object, or a table of objects
    ptrdiff_t step;    // from object to object, or the shift of a table
    ptrdiff_t rowStep, columnStep;
    bool isTable;

    Placed(const void *first, ptrdiff_t objectStep, ptrdiff_t row, ptrdiff_t column,
           bool table = false)
        : place(first), step(objectStep), rowStep(row), columnStep(column), isTable(table)
    {
    }
    template <class Block> explicit Placed(const Block &o) : Placed(nullptr, 0, 0, o.stride2)
    {
        if constexpr (Block::rank == 2)
            rowStep = o.stride1;
        if constexpr (Block::transposed)
            std::swap(rowStep, columnStep);
        isTable = isObjectTable<Block>;
        if constexpr (isObjectTable<Block>)
            place = o.table, step = o.shift;
        else
            place = o.base, step = steppedOrigins(o).step;
    }
    // One number for all objects; refers to it.
    explicit Placed(const Constant<std::remove_const_t<T>> &c) : Placed(&c.value, 0, 0, 0) {}
    explicit Placed(const ConstantArray<T> &c) : Placed(c.base, c.stride0, 0, 0) {}
    explicit Placed(const ConstantTable<T> &c) : Placed(c.table, c.shift, 0, 0) { isTable = true; }

    // Object k. Elements that only move are taken as integers: neither they nor the entries of
    // their table are what T says.
    Bytes<T> operator()(ptrdiff_t k) const
    {
        auto base = static_cast<Bytes<T>>(const_cast<void *>(place));
        if (!isTable)
            return base + k * step;
        std::memcpy(&base, static_cast<const std::byte *>(place) + k * ptrdiff_t(sizeof base),
                    sizeof base);
        return base + step;
    }
    // The first object of an operand without a table.
    Bytes<T> first() const { return static_cast<Bytes<T>>(const_cast<void *>(place)); }
    bool isDense() const { return columnStep == sizeof(T); }
    // The bytes from the first element to the last, without a table.
    std::uintptr_t size(ptrdiff_t width, ptrdiff_t height, ptrdiff_t count) const
    {
        return std::uintptr_t((count - 1) * step + (height - 1) * rowStep +
                              (width - 1) * columnStep) +
               sizeof(T);
    }
    // Row i as a matrix: the elements of its columns, each of all objects.
    Placed across(ptrdiff_t i) const
    {
        return {static_cast<const std::byte *>(place) + i * rowStep, columnStep, 0, step};
    }
};

template <class A, class B> inline bool haveSamePlace(const Placed<A> &a, const Placed<B> &b)
{
    return a.place == b.place && a.step == b.step && a.rowStep == b.rowStep &&
           a.columnStep == b.columnStep;
}

// Whether two regions of memory have no byte in common.
inline bool areApart(const std::byte *a, std::uintptr_t sizeOfA, const std::byte *b,
                     std::uintptr_t sizeOfB)
{
    return !meet(Extent{std::uintptr_t(a), std::size_t(sizeOfA)},
                 Extent{std::uintptr_t(b), std::size_t(sizeOfB)});
}

// Loops ------------------------------------------------------------------------------------------

// One loop over the elements of two operands: how often, and the steps on both sides.
struct Dimension {
    ptrdiff_t extent, src, dst;
};

// The loops over objects, rows and columns by descending steps in dst.
struct Nest {
    Dimension dimensions[3];
    int depth = 0;

    template <class T>
    Nest(const Placed<const T> &src, const Placed<T> &dst, ptrdiff_t width, ptrdiff_t height,
         ptrdiff_t count)
    {
        for (const Dimension &d : {Dimension{count, src.step, dst.step},
                                   {height, src.rowStep, dst.rowStep},
                                   {width, src.columnStep, dst.columnStep}}) {
            if (d.extent == 1)
                continue;
            int at = depth++;
            for (; at > 0 && dimensions[at - 1].dst < d.dst; --at)
                dimensions[at] = dimensions[at - 1];
            dimensions[at] = d;
        }
    }
    // Whether no two turns write the same byte: each loop steps over all that those inside cover.
    bool isDistinct(ptrdiff_t element) const
    {
        ptrdiff_t covered = element;
        for (int d = depth - 1; d >= 0; --d) {
            if (dimensions[d].dst < covered)
                return false;
            covered += (dimensions[d].extent - 1) * dimensions[d].dst;
        }
        return true;
    }
    // Loops that follow each other without a gap on both sides become one.
    void join()
    {
        int last = 0;
        for (int d = 1; d < depth; ++d) {
            Dimension &outer = dimensions[last];
            const Dimension &inner = dimensions[d];
            if (outer.dst == inner.extent * inner.dst && outer.src == inner.extent * inner.src)
                outer = {outer.extent * inner.extent, inner.src, inner.dst};
            else
                dimensions[++last] = inner;
        }
        depth = last + 1;
    }
};

// Element tables ---------------------------------------------------------------------------------

// The objects of an element table, `step` apart; a vector is a matrix of one row here too.
template <class T> struct Scattered {
    ScatteredMatrix<T> first;
    ptrdiff_t step;

    ScatteredMatrix<T> operator()(ptrdiff_t k) const
    {
        return first.placedAt(first.offset + k * step);
    }
};

template <class Block> inline auto scattered(const Block &o, Shape shape)
{
    using T = typename Block::Value;
    if constexpr (Block::rank == 2)
        return Scattered<T>{onlyObject(o, shape.height, shape.width), o.stride0};
    else
        return Scattered<T>{{o.table, o.shift, 0, 1}, o.stride0};
}

} // namespace zonm
