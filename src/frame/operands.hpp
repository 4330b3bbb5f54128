// SPDX-License-Identifier: Apache-2.0
// Operand blocks: the arguments of one operand, in their order, as an export's letters and
// description name them. `objects.hpp` tells where the objects of an operand lie.
#pragma once

#include "frame/memory.hpp"

namespace zonm
{

enum class Description { strided, objectTable, elementTable };

struct Shape {
    int32_t width, height;
    friend bool operator==(Shape, Shape) = default;
};

// T is const for a source; `Many` says whether the operand is an array.
template <class T, bool Many, Description D, int Rank> struct OperandBlock {
    using Value = T;
    static constexpr bool many = Many;
    static constexpr bool transposed = false;
    static constexpr Description description = D;
    static constexpr int rank = Rank;
};

template <class T> struct Matrix : OperandBlock<T, false, Description::strided, 2> {
    T *base;
    int32_t stride1, stride2;

    Matrix(T *p, int32_t s1, int32_t s2) : base(p), stride1(s1), stride2(s2) {}
};

template <class T> struct MatrixArray : OperandBlock<T, true, Description::strided, 2> {
    T *base;
    int32_t stride0, stride1, stride2;

    MatrixArray(T *p, int32_t s0, int32_t s1, int32_t s2)
        : base(p), stride0(s0), stride1(s1), stride2(s2)
    {
    }
};

template <class T> struct MatrixTable : OperandBlock<T, true, Description::objectTable, 2> {
    T *const *table;
    int32_t shift, stride1, stride2;

    MatrixTable(T *const *t, int32_t sh, int32_t s1, int32_t s2)
        : table(t), shift(sh), stride1(s1), stride2(s2)
    {
    }
};

// One table serves all objects.
template <class T, bool Many>
struct MatrixElements : OperandBlock<T, Many, Description::elementTable, 2> {
    T *const *table;
    int32_t shift, stride0;

    MatrixElements(T *const *t, int32_t sh, int32_t s0 = 0) : table(t), shift(sh), stride0(s0) {}
};

template <class T> struct Vector : OperandBlock<T, false, Description::strided, 1> {
    T *base;
    int32_t stride2;

    Vector(T *p, int32_t s2) : base(p), stride2(s2) {}
};

template <class T> struct VectorArray : OperandBlock<T, true, Description::strided, 1> {
    T *base;
    int32_t stride0, stride2;

    VectorArray(T *p, int32_t s0, int32_t s2) : base(p), stride0(s0), stride2(s2) {}
};

template <class T> struct VectorTable : OperandBlock<T, true, Description::objectTable, 1> {
    T *const *table;
    int32_t shift, stride2;

    VectorTable(T *const *t, int32_t sh, int32_t s2) : table(t), shift(sh), stride2(s2) {}
};

template <class T, bool Many>
struct VectorElements : OperandBlock<T, Many, Description::elementTable, 1> {
    T *const *table;
    int32_t shift, stride0;

    VectorElements(T *const *t, int32_t sh, int32_t s0 = 0) : table(t), shift(sh), stride0(s0) {}
};

// The operand used as the transpose of what is stored.
template <class Block> struct Transposed : Block {
    static constexpr bool transposed = true;

    explicit Transposed(Block stored) : Block(stored) {}
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
    T *base;
    int32_t stride0;

    ConstantArray(T *p, int32_t s0) : base(p), stride0(s0) {}
    auto operator()(ptrdiff_t k) const { return load<T>(bytes(base) + k * stride0); }
};

template <class T> struct ConstantTable {
    using Value = T;
    static constexpr bool many = true;
    T *const *table;
    int32_t shift;

    ConstantTable(T *const *t, int32_t sh) : table(t), shift(sh) {}
    auto operator()(ptrdiff_t k) const { return load<T>(bytes(table[k]) + shift); }
};

template <class Block>
inline constexpr bool isElementTable = Block::description == Description::elementTable;
template <class Block>
inline constexpr bool isObjectTable = Block::description == Description::objectTable;

// Whether the elements of a stored row, or of a vector, lie side by side: whether the operand lets
// the call be contiguous.
template <class Block> inline bool isDense(const Block &o)
{
    return o.stride2 == sizeof(typename Block::Value);
}

} // namespace zonm
