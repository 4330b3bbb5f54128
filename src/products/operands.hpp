// SPDX-License-Identifier: Apache-2.0
// The operands of a product as its kernels take them: steps as used, transposed or not.
#pragma once

#include "frame/operands.hpp"

namespace zonm
{

// How the elements of an operand, as used, lie in memory.
enum class Layout { denseRows, denseColumns, strided, scattered };

// A stored matrix with dense rows, used as its transpose.
template <class T> struct DenseColumns : ElementAt<T> {
    Bytes<T> base;
    ptrdiff_t columnStep;

    DenseColumns(Bytes<T> b, ptrdiff_t column) : base(b), columnStep(column) {}
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const
    {
        return base + i * ptrdiff_t(sizeof(T)) + j * columnStep;
    }
    auto operator()(ptrdiff_t i, ptrdiff_t j) const { return load<T>(at(i, j)); }
};

// The part of a matrix from row i and column j on.
template <class T> DenseMatrix<T> partFrom(const DenseMatrix<T> &m, ptrdiff_t i, ptrdiff_t j)
{
    return {m.at(i, j), m.rowStep};
}
template <class T> DenseColumns<T> partFrom(const DenseColumns<T> &m, ptrdiff_t i, ptrdiff_t j)
{
    return {m.at(i, j), m.columnStep};
}
template <class T> StridedMatrix<T> partFrom(const StridedMatrix<T> &m, ptrdiff_t i, ptrdiff_t j)
{
    return {m.at(i, j), m.rowStep, m.columnStep};
}
template <class T>
ScatteredMatrix<T> partFrom(const ScatteredMatrix<T> &m, ptrdiff_t i, ptrdiff_t j)
{
    return {m.table + (i * m.rowPitch + j * m.columnPitch), m.offset, m.rowPitch, m.columnPitch};
}

// Object k where table entry k points: `Tabled` of an operand that surely has a table.
template <class T> struct Listed {
    T *const *table;
    ptrdiff_t shift;

    Bytes<T> operator()(ptrdiff_t k) const { return bytes(table[k]) + shift; }
};

// Objects whose elements are reached by steps.
template <class T, template <class> class Objects> struct SteppedOperand {
    Objects<T> objects;
    ptrdiff_t rowStep, columnStep;

    template <Layout L> auto view(ptrdiff_t k) const
    {
        if constexpr (L == Layout::denseRows)
            return DenseMatrix<T>(objects(k), rowStep);
        else if constexpr (L == Layout::denseColumns)
            return DenseColumns<T>(objects(k), columnStep);
        else
            return StridedMatrix<T>(objects(k), rowStep, columnStep);
    }
};

// Objects whose elements are reached through one table.
template <class T> struct ScatteredOperand {
    T *const *table;
    ptrdiff_t offset, step, rowPitch, columnPitch;

    template <Layout> auto view(ptrdiff_t k) const
    {
        return ScatteredMatrix<T>(table, offset + k * step, rowPitch, columnPitch);
    }
};

struct Extents {
    ptrdiff_t rows, columns, inner;
};

// One call after its checks. Kernels copy what they use: as far as the compiler knows, a store into
// dst might change the original.
template <class A, class B, class D> struct Product {
    A a;
    B b;
    D d;
    Extents extents;
    ptrdiff_t count;
};
template <class A, class B, class D> Product(A, B, D, Extents, ptrdiff_t) -> Product<A, B, D>;

// The same call for the kernels that take tables and arrays alike.
template <class T, template <class> class Objects>
SteppedOperand<T, Tabled> tabled(const SteppedOperand<T, Objects> &o)
{
    return {Tabled<T>(o.objects), o.rowStep, o.columnStep};
}
template <class A, class B, class D> auto tabled(const Product<A, B, D> &p)
{
    return Product{tabled(p.a), tabled(p.b), tabled(p.d), p.extents, p.count};
}

template <template <class> class Objects, class Block> auto steppedOperand(Block o)
{
    using T = typename Block::Value;
    return SteppedOperand<T, Objects>{o.objects(), o.rowStep(), o.columnStep()};
}

template <class Block> auto scatteredOperand(Block o, ptrdiff_t width)
{
    const auto object = o.object(0, int32_t(width));
    return ScatteredOperand<typename Block::Value>{object.table, object.offset, o.stride0,
                                                   object.rowPitch, object.columnPitch};
}

} // namespace zonm
