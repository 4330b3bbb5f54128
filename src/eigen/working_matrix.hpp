// SPDX-License-Identifier: Apache-2.0
// What the eigenproblems compute with, whatever the description of the operands: a matrix is
// gathered into a working copy, the stages run there, the results are scattered.
//
//   Place     where one object of an operand lies
//   Places    the same for all its objects
//   Number    a number that is stored as T and computed with in double
//   Stored    the same in memory at any address
#pragma once

#include "frame/overlap.hpp"
#include "frame/square_root.hpp"

#include <cmath>
#include <functional>

namespace zonm::eigen
{

// Places ---------------------------------------------------------------------------------------

// Any view, told apart at each access: kernels gather and scatter, and need no instance of their
// own for a layout. Element (i, j) at base + i*rowStep + j*columnStep, or where that table entry
// points, plus an offset.
template <class T> struct Place {
    T *const *table;
    Bytes<T> base;
    ptrdiff_t offset, rowStep, columnStep;

    Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const
    {
        const ptrdiff_t step = i * rowStep + j * columnStep;
        return table ? bytes(table[step]) + offset : base + step;
    }
};

// The objects of an operand under any description. The operand block must outlive this.
template <class T> struct Places {
    T *const *table; // of elements, or null
    LocatedOrigins<T> origins;
    ptrdiff_t rowStep, columnStep;
    Extent reach; // of an object, relative to its origin

    Place<T> operator()(ptrdiff_t k) const
    {
        if (table)
            return {table, nullptr, offset(k), rowStep, columnStep};
        return {nullptr, origins(k), 0, rowStep, columnStep};
    }
    Extent extentOf(ptrdiff_t k) const
    {
        const auto origin = table ? std::uintptr_t(offset(k)) : std::uintptr_t(origins(k));
        return {reach.begin + origin, reach.size};
    }

  private:
    ptrdiff_t offset(ptrdiff_t k) const { return origins.shift + k * origins.step; }
};

template <class Block> auto placesOf(const Block &operand, ptrdiff_t n)
{
    using T = typename Block::Value;
    const auto o = objects<Layout::strided>(operand, n, n);
    const Extent reach = reachOf(o.first, n, n);
    if constexpr (isElementTable<Block>)
        return Places<T>{o.first.table,
                         {nullptr, 0, o.origins.shift, o.origins.step},
                         o.first.rowPitch,
                         o.first.columnPitch,
                         reach};
    else
        return Places<T>{nullptr, o.origins, o.first.rowStep, o.first.columnStep, reach};
}

// Number k of runs that lie back to back.
template <class T> Extent extentOfRun(const T *runs, ptrdiff_t length, ptrdiff_t k)
{
    return {std::uintptr_t(runs) + k * length * sizeof(T), length * sizeof(T)};
}

// Numbers --------------------------------------------------------------------------------------

// A stored number: reading widens it, assigning rounds. Every name of a formula is one, so that an
// expression is rounded where, and only where, it gets its name.
template <class T> class Number;

// One operation on two stored numbers. Where it gets a name at once it is done in T: the same bits
// as in double and rounded.
template <class T, class Operation> struct OneOperation {
    T a, b;
    operator double() const { return Operation()(double(a), double(b)); }
};

template <class T> class Number
{
  public:
    Number() = default;
    template <class V> Number(const V &v) : value(T(double(v))) {}
    template <class O> Number(OneOperation<T, O> v) : value(O()(v.a, v.b)) {}
    operator double() const { return double(value); }
    void operator-=(double v) { *this = *this - v; }
    void operator*=(double v) { *this = *this * v; }

    T stored() const { return value; }

  private:
    T value;
};

template <class T> OneOperation<T, std::plus<>> operator+(Number<T> a, Number<T> b)
{
    return {a.stored(), b.stored()};
}
template <class T> OneOperation<T, std::minus<>> operator-(Number<T> a, Number<T> b)
{
    return {a.stored(), b.stored()};
}
template <class T> OneOperation<T, std::multiplies<>> operator*(Number<T> a, Number<T> b)
{
    return {a.stored(), b.stored()};
}
template <class T> OneOperation<T, std::divides<>> operator/(Number<T> a, Number<T> b)
{
    return {a.stored(), b.stored()};
}

template <class T> class Stored
{
  public:
    explicit Stored(std::byte *p) : place(p) {}
    Stored(const Stored &) = default;
    operator double() const { return double(load<T>(place)); }
    template <class V> void operator=(const V &v) const { store<T>(place, T(double(v))); }
    void operator=(const Stored &v) const { *this = double(v); }
    void operator-=(double v) const { *this = *this - v; }
    void operator*=(double v) const { *this = *this * v; }

  private:
    std::byte *place;
};

// Consecutive numbers: `v[i]` in an array of the kernel's own, or in the caller's memory.
template <class T> struct StoredRun {
    std::byte *base;

    Stored<T> operator[](ptrdiff_t i) const { return Stored<T>(base + i * ptrdiff_t(sizeof(T))); }
    StoredRun from(ptrdiff_t i) const { return {base + i * ptrdiff_t(sizeof(T))}; }
};

template <class T> StoredRun<T> runAt(T *p) { return {bytes(p)}; }
template <class T> StoredRun<T> runIn(void *buffer) { return {static_cast<std::byte *>(buffer)}; }

template <class T> void copyRun(StoredRun<T> from, StoredRun<T> to, ptrdiff_t length)
{
    for (ptrdiff_t i = 0; i < length; ++i)
        to[i] = from[i];
}

// Where two objects are taken together: the sizes that have sweeps, up to what the stack may hold.
inline constexpr int32_t smallestPaired = 3, largestPaired = 8;

inline double magnitude(double x) { return std::fabs(x); }

// Row by row, without gaps.
template <class T> void gatherRows(const Place<const T> &src, StoredRun<T> rows, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j < n; ++j)
            rows[ptrdiff_t(i) * n + j] = load<T>(src.at(i, j));
}

} // namespace zonm::eigen
