// SPDX-License-Identifier: Apache-2.0
// Operands as an export's letters and description name them, and what a kernel sees of them.
//
// Three layers, each a small trivially copyable value:
//   operand   the arguments of one operand block, in their order
//   objects   where object k of the operand begins: `Stepped` or `Tabled`
//   view      one object with element access `x(i, j)` or `x(i)` and nothing else
//
// A transposed operand is the same operand with its two steps exchanged, never another kernel.
#pragma once

#include "frame/memory.hpp"

namespace zonm
{

enum class Description { strided, objectTable, elementTable };

struct Shape {
    int32_t width, height;
    friend bool operator==(Shape, Shape) = default;
    bool isSquare(int32_t n) const { return width == n && height == n; }
};

// Views ----------------------------------------------------------------------------------------

template <class T> struct ElementAt {
    using Element = std::remove_const_t<T>;
};

// Element (i, j) at base + i*rowStep + j*columnStep.
template <class T> struct StridedMatrix : ElementAt<T> {
    Bytes<T> base;
    ptrdiff_t rowStep, columnStep;

    StridedMatrix(Bytes<T> b, ptrdiff_t row, ptrdiff_t column)
        : base(b), rowStep(row), columnStep(column)
    {
    }
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const { return base + i * rowStep + j * columnStep; }
    auto operator()(ptrdiff_t i, ptrdiff_t j) const { return load<T>(at(i, j)); }
    void set(ptrdiff_t i, ptrdiff_t j, T value) const { store<T>(at(i, j), value); }
};

// As `StridedMatrix`, with the elements of a row side by side.
template <class T> struct DenseMatrix : ElementAt<T> {
    Bytes<T> base;
    ptrdiff_t rowStep;

    DenseMatrix(Bytes<T> b, ptrdiff_t row) : base(b), rowStep(row) {}
    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const
    {
        return base + i * rowStep + j * ptrdiff_t(sizeof(T));
    }
    auto operator()(ptrdiff_t i, ptrdiff_t j) const { return load<T>(at(i, j)); }
    void set(ptrdiff_t i, ptrdiff_t j, T value) const { store<T>(at(i, j), value); }
};

// Element (i, j) where table entry i*rowPitch + j*columnPitch points, plus an offset.
template <class T> struct ScatteredMatrix : ElementAt<T> {
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
    auto operator()(ptrdiff_t i, ptrdiff_t j) const { return load<T>(at(i, j)); }
    void set(ptrdiff_t i, ptrdiff_t j, T value) const { store<T>(at(i, j), value); }
};

template <class T> struct StridedVector : ElementAt<T> {
    Bytes<T> base;
    ptrdiff_t step;

    StridedVector(Bytes<T> b, ptrdiff_t s) : base(b), step(s) {}
    Bytes<T> at(ptrdiff_t i) const { return base + i * step; }
    auto operator()(ptrdiff_t i) const { return load<T>(at(i)); }
    void set(ptrdiff_t i, T value) const { store<T>(at(i), value); }
};

template <class T> struct ScatteredVector : ElementAt<T> {
    T *const *table;
    ptrdiff_t offset;

    ScatteredVector(T *const *t, ptrdiff_t off) : table(t), offset(off) {}
    Bytes<T> at(ptrdiff_t i) const { return bytes(table[i]) + offset; }
    auto operator()(ptrdiff_t i) const { return load<T>(at(i)); }
    void set(ptrdiff_t i, T value) const { store<T>(at(i), value); }
};

// Objects --------------------------------------------------------------------------------------

// Object k at base + k*step; a single object has step 0.
template <class T> struct Stepped {
    Bytes<T> base;
    ptrdiff_t step;

    Bytes<T> operator()(ptrdiff_t k) const { return base + k * step; }
};

// Object k where table entry k points, plus a shift. A single operand beside tables has no table.
template <class T> struct Tabled {
    T *const *table;
    Bytes<T> base;
    ptrdiff_t step; // the shift, where there is a table

    Tabled(T *const *t, ptrdiff_t shift) : table(t), base(nullptr), step(shift) {}
    Tabled(Stepped<T> s) : table(nullptr), base(s.base), step(s.step) {}

    Bytes<T> operator()(ptrdiff_t k) const
    {
        return table ? bytes(table[k]) + step : base + k * step;
    }
};

// Operand blocks -------------------------------------------------------------------------------

template <class T, bool Many, Description D, int Rank> struct OperandKind {
    using Value = T;
    static constexpr bool many = Many;
    static constexpr bool transposed = false;
    static constexpr Description description = D;
    static constexpr int rank = Rank;
};

// What strided and object-table matrices share: the two steps inside an object.
template <class Block> struct MatrixSteps {
    ptrdiff_t rowStep() const { return self().stride1; }
    ptrdiff_t columnStep() const { return self().stride2; }
    // Whether the elements of a stored row lie side by side.
    bool isDense() const { return self().stride2 == sizeof(typename Block::Value); }

  private:
    const Block &self() const { return static_cast<const Block &>(*this); }
};

template <class T>
struct Matrix : OperandKind<T, false, Description::strided, 2>, MatrixSteps<Matrix<T>> {
    T *base;
    int32_t stride1, stride2;

    Matrix(T *p, int32_t s1, int32_t s2) : base(p), stride1(s1), stride2(s2) {}
    Stepped<T> objects() const { return {bytes(base), 0}; }
};

template <class T>
struct MatrixArray : OperandKind<T, true, Description::strided, 2>, MatrixSteps<MatrixArray<T>> {
    T *base;
    int32_t stride0, stride1, stride2;

    MatrixArray(T *p, int32_t s0, int32_t s1, int32_t s2)
        : base(p), stride0(s0), stride1(s1), stride2(s2)
    {
    }
    Stepped<T> objects() const { return {bytes(base), stride0}; }
};

template <class T>
struct MatrixTable : OperandKind<T, true, Description::objectTable, 2>,
                     MatrixSteps<MatrixTable<T>> {
    T *const *table;
    int32_t shift, stride1, stride2;

    MatrixTable(T *const *t, int32_t sh, int32_t s1, int32_t s2)
        : table(t), shift(sh), stride1(s1), stride2(s2)
    {
    }
    Tabled<T> objects() const { return {table, shift}; }
};

// One table serves all objects; `width` is that of the matrix as stored.
template <class T, bool Many>
struct MatrixElements : OperandKind<T, Many, Description::elementTable, 2> {
    T *const *table;
    int32_t shift, stride0;

    MatrixElements(T *const *t, int32_t sh, int32_t s0 = 0) : table(t), shift(sh), stride0(s0) {}
    ptrdiff_t offset(ptrdiff_t k) const { return shift + k * stride0; }
    ScatteredMatrix<T> object(ptrdiff_t k, int32_t width) const
    {
        return {table, offset(k), width, 1};
    }
};

template <class T> struct Vector : OperandKind<T, false, Description::strided, 1> {
    T *base;
    int32_t stride2;

    Vector(T *p, int32_t s2) : base(p), stride2(s2) {}
    Stepped<T> objects() const { return {bytes(base), 0}; }
    ptrdiff_t step() const { return stride2; }
    bool isDense() const { return stride2 == sizeof(T); }
};

template <class T> struct VectorArray : OperandKind<T, true, Description::strided, 1> {
    T *base;
    int32_t stride0, stride2;

    VectorArray(T *p, int32_t s0, int32_t s2) : base(p), stride0(s0), stride2(s2) {}
    Stepped<T> objects() const { return {bytes(base), stride0}; }
    ptrdiff_t step() const { return stride2; }
    bool isDense() const { return stride2 == sizeof(T); }
};

template <class T> struct VectorTable : OperandKind<T, true, Description::objectTable, 1> {
    T *const *table;
    int32_t shift, stride2;

    VectorTable(T *const *t, int32_t sh, int32_t s2) : table(t), shift(sh), stride2(s2) {}
    Tabled<T> objects() const { return {table, shift}; }
    ptrdiff_t step() const { return stride2; }
    bool isDense() const { return stride2 == sizeof(T); }
};

template <class T, bool Many>
struct VectorElements : OperandKind<T, Many, Description::elementTable, 1> {
    T *const *table;
    int32_t shift, stride0;

    VectorElements(T *const *t, int32_t sh, int32_t s0 = 0) : table(t), shift(sh), stride0(s0) {}
    ptrdiff_t offset(ptrdiff_t k) const { return shift + k * stride0; }
    ScatteredVector<T> object(ptrdiff_t k) const { return {table, offset(k)}; }
};

// The operand used as the transpose of what is stored.
template <class Block> struct Transposed : Block {
    static constexpr bool transposed = true;

    explicit Transposed(Block stored) : Block(stored) {}
    ptrdiff_t rowStep() const { return Block::columnStep(); }
    ptrdiff_t columnStep() const { return Block::rowStep(); }
    auto object(ptrdiff_t k, int32_t width) const
    {
        auto m = Block::object(k, width);
        return decltype(m){m.table, m.offset, m.columnPitch, m.rowPitch};
    }
};

// Constants: the number that goes with object k.
template <class T> struct Constant {
    using Value = T;
    static constexpr bool many = false;
    T value;

    explicit Constant(T v) : value(v) {}
    T operator()(ptrdiff_t) const { return value; }
};

template <class T> struct ConstantArray {
    using Value = T;
    static constexpr bool many = true;
    Stepped<T> objects;

    ConstantArray(T *p, int32_t stride0) : objects{bytes(p), stride0} {}
    auto operator()(ptrdiff_t k) const { return load<T>(objects(k)); }
};

template <class T> struct ConstantTable {
    using Value = T;
    static constexpr bool many = true;
    Tabled<T> objects;

    ConstantTable(T *const *t, int32_t shift) : objects(t, shift) {}
    auto operator()(ptrdiff_t k) const { return load<T>(objects(k)); }
};

template <class Block>
inline constexpr bool isElementTable = Block::description == Description::elementTable;

} // namespace zonm
