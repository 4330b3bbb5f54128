// SPDX-License-Identifier: Apache-2.0
// Views: one object as an algorithm sees it, with element access x(i, j) or x(i) and nothing else.
//
//   at(i, j)          where the element lies
//   x(i, j), set      the element, loaded and stored
//   placedAt(origin)  the same view of another object
//   transposed(x)     the view with its indices exchanged, never a copy and never another kernel
//   partFrom(x, i, j) the part from row i and column j on
//
// The origin of a view is an address; that of an element table is the offset of all its entries.
#pragma once

#include "frame/memory.hpp"

namespace zonm
{

// What the views of matrices share; `View` has at(i, j).
template <class View, class T> struct MatrixAccess {
    using Value = T;
    using Element = std::remove_const_t<T>;
    static constexpr int rank = 2;

    Element operator()(ptrdiff_t i, ptrdiff_t j) const { return load<T>(self().at(i, j)); }
    void set(ptrdiff_t i, ptrdiff_t j, Element value) const { store<T>(self().at(i, j), value); }

  private:
    const View &self() const { return static_cast<const View &>(*this); }
};

template <class View, class T> struct VectorAccess {
    using Value = T;
    using Element = std::remove_const_t<T>;
    static constexpr int rank = 1;

    Element operator()(ptrdiff_t i) const { return load<T>(self().at(i)); }
    void set(ptrdiff_t i, Element value) const { store<T>(self().at(i), value); }

  private:
    const View &self() const { return static_cast<const View &>(*this); }
};

// Matrices -------------------------------------------------------------------------------------

template <class T> struct StridedMatrix : MatrixAccess<StridedMatrix<T>, T> {
    Bytes<T> base;
    ptrdiff_t rowStep, columnStep;

    StridedMatrix(Bytes<T> b, ptrdiff_t row, ptrdiff_t column)
        : base(b), rowStep(row), columnStep(column)
    {
    }
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const { return base + i * rowStep + j * columnStep; }
    StridedMatrix placedAt(Bytes<T> origin) const { return {origin, rowStep, columnStep}; }
    friend StridedMatrix transposed(const StridedMatrix &m)
    {
        return {m.base, m.columnStep, m.rowStep};
    }
    friend StridedMatrix partFrom(const StridedMatrix &m, ptrdiff_t i, ptrdiff_t j)
    {
        return m.placedAt(m.at(i, j));
    }
};

// The elements of a row lie side by side.
template <class T> struct DenseMatrix : MatrixAccess<DenseMatrix<T>, T> {
    Bytes<T> base;
    ptrdiff_t rowStep;

    DenseMatrix(Bytes<T> b, ptrdiff_t row) : base(b), rowStep(row) {}
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const
    {
        return base + i * rowStep + j * ptrdiff_t(sizeof(T));
    }
    DenseMatrix placedAt(Bytes<T> origin) const { return {origin, rowStep}; }
    friend DenseMatrix partFrom(const DenseMatrix &m, ptrdiff_t i, ptrdiff_t j)
    {
        return m.placedAt(m.at(i, j));
    }
};

// The elements of a column lie side by side: the transpose of a dense matrix.
template <class T> struct DenseColumnMatrix : MatrixAccess<DenseColumnMatrix<T>, T> {
    Bytes<T> base;
    ptrdiff_t columnStep;

    DenseColumnMatrix(Bytes<T> b, ptrdiff_t column) : base(b), columnStep(column) {}
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const
    {
        return base + i * ptrdiff_t(sizeof(T)) + j * columnStep;
    }
    DenseColumnMatrix placedAt(Bytes<T> origin) const { return {origin, columnStep}; }
    friend DenseColumnMatrix partFrom(const DenseColumnMatrix &m, ptrdiff_t i, ptrdiff_t j)
    {
        return m.placedAt(m.at(i, j));
    }
};

template <class T> DenseColumnMatrix<T> transposed(const DenseMatrix<T> &m)
{
    return {m.base, m.rowStep};
}
template <class T> DenseMatrix<T> transposed(const DenseColumnMatrix<T> &m)
{
    return {m.base, m.columnStep};
}

// Element (i, j) lies where table entry i*rowPitch + j*columnPitch points, plus an offset.
template <class T> struct ScatteredMatrix : MatrixAccess<ScatteredMatrix<T>, T> {
    T *const *table;
    ptrdiff_t offset, rowPitch, columnPitch;

    ScatteredMatrix(T *const *t, ptrdiff_t off, ptrdiff_t row, ptrdiff_t column)
        : table(t), offset(off), rowPitch(row), columnPitch(column)
    {
    }
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const
    {
        return bytes(table[i * rowPitch + j * columnPitch]) + offset;
    }
    ScatteredMatrix placedAt(ptrdiff_t origin) const
    {
        return {table, origin, rowPitch, columnPitch};
    }
    friend ScatteredMatrix transposed(const ScatteredMatrix &m)
    {
        return {m.table, m.offset, m.columnPitch, m.rowPitch};
    }
    friend ScatteredMatrix partFrom(const ScatteredMatrix &m, ptrdiff_t i, ptrdiff_t j)
    {
        return {m.table + (i * m.rowPitch + j * m.columnPitch), m.offset, m.rowPitch,
                m.columnPitch};
    }
};

// Vectors --------------------------------------------------------------------------------------

template <class T> struct StridedVector : VectorAccess<StridedVector<T>, T> {
    Bytes<T> base;
    ptrdiff_t step;

    StridedVector(Bytes<T> b, ptrdiff_t s) : base(b), step(s) {}
    Bytes<T> at(ptrdiff_t i) const { return base + i * step; }
    StridedVector placedAt(Bytes<T> origin) const { return {origin, step}; }
};

template <class T> struct DenseVector : VectorAccess<DenseVector<T>, T> {
    Bytes<T> base;

    explicit DenseVector(Bytes<T> b) : base(b) {}
    Bytes<T> at(ptrdiff_t i) const { return base + i * ptrdiff_t(sizeof(T)); }
    DenseVector placedAt(Bytes<T> origin) const { return DenseVector(origin); }
};

template <class T> struct ScatteredVector : VectorAccess<ScatteredVector<T>, T> {
    T *const *table;
    ptrdiff_t offset;

    ScatteredVector(T *const *t, ptrdiff_t off) : table(t), offset(off) {}
    Bytes<T> at(ptrdiff_t i) const { return bytes(table[i]) + offset; }
    ScatteredVector placedAt(ptrdiff_t origin) const { return {table, origin}; }
};

// Which kind -----------------------------------------------------------------------------------

template <class View> inline constexpr bool hasDenseRows = false;
template <class T> inline constexpr bool hasDenseRows<DenseMatrix<T>> = true;
template <class View> inline constexpr bool hasDenseColumns = false;
template <class T> inline constexpr bool hasDenseColumns<DenseColumnMatrix<T>> = true;

// Scalar kernels are not instantiated for dense layouts: they take this view of such an object.
template <class View> View stridedView(const View &x) { return x; }
template <class T> StridedMatrix<T> stridedView(const DenseMatrix<T> &m)
{
    return {m.base, m.rowStep, sizeof(T)};
}
template <class T> StridedMatrix<T> stridedView(const DenseColumnMatrix<T> &m)
{
    return {m.base, sizeof(T), m.columnStep};
}
template <class T> StridedVector<T> stridedView(const DenseVector<T> &v)
{
    return {v.base, sizeof(T)};
}

} // namespace zonm
