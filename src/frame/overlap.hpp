// SPDX-License-Identifier: Apache-2.0
// What a call touches, and whether two such regions meet. Where they do, the literal order of reads
// and writes is the behaviour; where they are apart, no order can be seen.
#pragma once

#include "frame/objects.hpp"

#include <algorithm>
#include <array>
#include <tuple>

namespace zonm
{

// The bytes from the first to the last that an object, or a whole operand, can touch.
struct Extent {
    std::uintptr_t begin;
    std::size_t size;

    friend bool meet(Extent a, Extent b)
    {
        return (b.begin - a.begin < a.size) | (a.begin - b.begin < b.size);
    }
};

template <std::size_t A, std::size_t B>
inline bool anyMeet(const std::array<Extent, A> &a, const std::array<Extent, B> &b)
{
    bool met = false;
    for (const Extent x : a)
        for (const Extent y : b)
            met |= meet(x, y);
    return met;
}

// From the lowest to the highest address in a table.
template <class T> inline Extent rangeOf(T *const *table, ptrdiff_t entries)
{
    auto low = ~std::uintptr_t(0), high = std::uintptr_t(0);
    for (ptrdiff_t e = 0; e < entries; ++e) {
        low = std::min(low, std::uintptr_t(table[e]));
        high = std::max(high, std::uintptr_t(table[e]));
    }
    return {low, high - low};
}

// What an object touches, relative to its origin.
template <class T> Extent reachOf(const StridedMatrix<T> &m, ptrdiff_t rows, ptrdiff_t columns)
{
    return {0, (rows - 1) * m.rowStep + (columns - 1) * m.columnStep + sizeof(T)};
}
template <class T> Extent reachOf(const DenseMatrix<T> &m, ptrdiff_t rows, ptrdiff_t columns)
{
    return reachOf(stridedView(m), rows, columns);
}
template <class T> Extent reachOf(const DenseColumnMatrix<T> &m, ptrdiff_t rows, ptrdiff_t columns)
{
    return reachOf(stridedView(m), rows, columns);
}
template <class T> Extent reachOf(const StridedVector<T> &v, ptrdiff_t length, ptrdiff_t)
{
    return {0, (length - 1) * v.step + sizeof(T)};
}
template <class T> Extent reachOf(const DenseVector<T> &v, ptrdiff_t length, ptrdiff_t columns)
{
    return reachOf(stridedView(v), length, columns);
}
// An element table is looked through once.
template <class T> Extent reachOf(const ScatteredMatrix<T> &m, ptrdiff_t rows, ptrdiff_t columns)
{
    const Extent range = rangeOf(m.table, rows * columns);
    return {range.begin, range.size + sizeof(T)};
}
template <class T> Extent reachOf(const ScatteredVector<T> &v, ptrdiff_t length, ptrdiff_t)
{
    const Extent range = rangeOf(v.table, length);
    return {range.begin, range.size + sizeof(T)};
}

// From the lowest to the highest origin of `count` objects.
template <class T> Extent spreadOf(const SteppedOrigins<T> &o, int32_t count)
{
    return {std::uintptr_t(o.base), (count - 1) * std::size_t(o.step)};
}
template <class T> Extent spreadOf(const ScatteredOrigins<T> &o, int32_t count)
{
    return {std::uintptr_t(o.shift), (count - 1) * std::size_t(o.step)};
}
template <class T> Extent spreadOf(const LocatedOrigins<T> &o, int32_t count)
{
    if (!o.isTable())
        return {std::uintptr_t(o(0)), (count - 1) * std::size_t(o.step)};
    const Extent range = rangeOf(o.table, count);
    return {range.begin + std::uintptr_t(o.shift), range.size};
}

// The objects of one operand as regions of memory.
template <class Objects> struct Region {
    const Objects &objects;
    Extent reach, whole;

    Region(const Objects &o, int32_t count)
        : objects(o), reach(reachOf(o.first, o.rows, o.columns)), whole(spreadOf(o.origins, count))
    {
        whole.begin += reach.begin;
        whole.size += reach.size;
    }
    Extent ofObject(ptrdiff_t k) const
    {
        return {reach.begin + std::uintptr_t(objects.origins(k)), reach.size};
    }
};

// Several operands: what a call writes, or what it reads.
template <class... Objects> struct Regions {
    std::tuple<Region<Objects>...> regions;

    explicit Regions(int32_t count, const Objects &...o) : regions(Region<Objects>(o, count)...) {}
    auto ofObject(ptrdiff_t k) const
    {
        return std::apply([=](auto &...r) { return std::array{r.ofObject(k)...}; }, regions);
    }
};

template <class... Objects>
inline auto regionsOf(int32_t count, const std::tuple<Objects &...> &tied)
{
    return std::apply(
        [=](auto &...o) { return Regions<std::remove_const_t<Objects>...>(count, o...); }, tied);
}

// Whether it is certain that no two objects of an operand share a byte.
template <class Objects> inline bool areApart(const Objects &o)
{
    const auto reach = reachOf(o.first, o.rows, o.columns).size;
    if constexpr (requires { o.origins.isTable(); })
        if (o.origins.isTable())
            return false;
    return std::size_t(o.origins.step) >= reach;
}

// Whether no two entries of a table lie within an element of one another.
template <class T> [[gnu::noinline]] bool entriesAreApart(T *const *table, ptrdiff_t entries)
{
    const auto element = [=](ptrdiff_t e) { return Extent{std::uintptr_t(table[e]), sizeof(T)}; };
    bool ascend = true;
    for (ptrdiff_t e = 1; e < entries; ++e)
        ascend &= element(e).begin >= element(e - 1).begin + sizeof(T);
    bool met = false;
    for (ptrdiff_t e = 1; e < entries && !ascend; ++e)
        for (ptrdiff_t earlier = 0; earlier < e; ++earlier)
            met |= meet(element(earlier), element(e));
    return !met;
}

// Whether it is certain that no two elements of an object share an address.
template <class View, class Origins> inline bool elementsAreApart(const Objects<View, Origins> &o)
{
    if constexpr (requires { o.first.table; }) {
        return entriesAreApart(o.first.table, o.rows * o.columns);
    } else if constexpr (View::rank == 1) {
        return true; // a stride is no shorter than an element
    } else {
        const auto m = stridedView(o.first);
        const std::int64_t rowStep = m.rowStep, columnStep = m.columnStep;
        return (o.columns - 1) * columnStep < rowStep || (o.rows - 1) * rowStep < columnStep;
    }
}

// Whether two operands of equal shape are the very same objects. Then an element is read before it
// is written, and only for its own object.
template <class A, class B> inline bool areSame(const A &a, const B &b)
{
    const auto alike = [](const auto *p, const auto *q) {
        return static_cast<const void *>(p) == static_cast<const void *>(q);
    };
    if (a.origins.shift != b.origins.shift || a.origins.step != b.origins.step)
        return false;
    if constexpr (requires { a.first.table; }) {
        return alike(a.first.table, b.first.table);
    } else {
        const auto x = stridedView(a.first);
        const auto y = stridedView(b.first);
        if constexpr (std::remove_cvref_t<decltype(x)>::rank == 1) {
            if (x.step != y.step)
                return false;
        } else if (x.rowStep != y.rowStep || x.columnStep != y.columnStep) {
            return false;
        }
        return a.origins.isTable() || b.origins.isTable() ? alike(a.origins.table, b.origins.table)
                                                          : a.origins(0) == b.origins(0);
    }
}

// Whether objects are interleaved: all elements of one place lie together, and no two share a byte.
template <class T>
inline bool areInterleaved(const Objects<StridedMatrix<T>, LocatedOrigins<T>> &o, int32_t count)
{
    const auto &m = o.first;
    // Objects within the smaller of the two steps, and those of a line within the larger.
    const std::size_t place = (count - 1) * std::size_t(o.origins.step) + sizeof(T);
    const auto alongRow = place + (o.columns - 1) * std::size_t(m.columnStep);
    const auto alongColumn = place + (o.rows - 1) * std::size_t(m.rowStep);
    return !o.origins.isTable() && std::size_t(o.origins.step) >= sizeof(T) &&
           ((place <= std::size_t(m.columnStep) && alongRow <= std::size_t(m.rowStep)) ||
            (place <= std::size_t(m.rowStep) && alongColumn <= std::size_t(m.columnStep)));
}

// Whether two operands are the same and interleaved. Their extents meet, but an object shares bytes
// with itself only.
template <class A, class B> inline bool areSameInterleaved(const A &, const B &, int32_t)
{
    return false;
}
template <class TA, class TB>
inline bool areSameInterleaved(const Objects<StridedMatrix<TA>, LocatedOrigins<TA>> &a,
                               const Objects<StridedMatrix<TB>, LocatedOrigins<TB>> &b,
                               int32_t count)
{
    return areInterleaved(a, count) && areSame(a, b);
}

// Whether no object can write what another reads, whatever order they are taken in.
template <class... W, class... R>
inline bool areIndependent(const Regions<W...> &written, const Regions<R...> &read, int32_t count)
{
    const auto pair = [=](const auto &w, const auto &r) {
        return !meet(w.whole, r.whole) || areSameInterleaved(w.objects, r.objects, count);
    };
    const auto withAllRead = [&](const auto &w) {
        return std::apply([&](auto &...r) { return (... && pair(w, r)); }, read.regions);
    };
    return std::apply([&](auto &...w) { return (... && withAllRead(w)); }, written.regions);
}

// The same where the two may also be the very same objects, each read before it is written.
template <class D, class S>
inline bool areIndependentOrSame(const D &dst, const S &src, int32_t count)
{
    return areIndependent(Regions(count, dst), Regions(count, src), count) || areSame(src, dst);
}

} // namespace zonm
