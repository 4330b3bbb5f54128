// SPDX-License-Identifier: Apache-2.0
// Sums and differences of matrices: dst[k](i, j) = src1[k](i, j) + or - src2[k](i, j).
//
// One operation and one rounding per element, so no path can differ from another in a value. What a
// caller can see is the order of reads and writes where `dst` overlaps a source: k, then i, then j,
// each element read just before it is written. A fast path runs only where it cannot be told from
// that. The `_P` paths of sizes 3 to 6 read an object whole before they write it, and hold a single
// operand across all objects; that can be seen as well, and is part of the interface.
#include "elementwise/dense_runs.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/objects.hpp"

namespace zonm
{
namespace
{

struct Plus {
    template <class V> static V apply(V a, V b) { return a + b; }
};
struct Minus {
    template <class V> static V apply(V a, V b) { return a - b; }
};

// Where object k begins.
template <class T> using Stepped = SteppedOrigins<T>;
template <class T> struct Tabled {
    T *const *table;
    Bytes<T> base;
    ptrdiff_t step; // the shift, where there is a table

    Bytes<T> operator()(ptrdiff_t k) const
    {
        return table ? bytes(table[k]) + step : base + k * step;
    }
};

template <template <class> class Origins, class Block> auto originsOf(const Block &o)
{
    using T = typename Block::Value;
    if constexpr (std::is_same_v<Origins<T>, Stepped<T>>)
        return steppedOrigins(o);
    else if constexpr (isObjectTable<Block>)
        return Tabled<T>{o.table, nullptr, o.shift};
    else
        return Tabled<T>{nullptr, bytes(o.base), steppedOrigins(o).step};
}

// Object tables and strided arrays under one description: where objects begin, and two steps each.
template <class T, template <class> class Objects> struct SumOfSteps {
    Objects<const T> src1, src2;
    Objects<T> dst;
    ptrdiff_t rowStep1, columnStep1, rowStep2, columnStep2, rowStepDst, columnStepDst;
    ptrdiff_t width, height, count;
};

// The literal order, for any steps and any overlap. N is the size where that is a constant, else 0.
template <class Op, class T, int N = 0, template <class> class Objects>
inline void sumObject(const SumOfSteps<T, Objects> &s, std::byte *dstBase, const std::byte *base1,
                      const std::byte *base2)
{
    const StridedMatrix<const T> a(base1, s.rowStep1, s.columnStep1);
    const StridedMatrix<const T> b(base2, s.rowStep2, s.columnStep2);
    const StridedMatrix<T> dst(dstBase, s.rowStepDst, s.columnStepDst);
    for (ptrdiff_t i = 0; i < (N ? N : s.height); ++i)
        for (ptrdiff_t j = 0; j < (N ? N : s.width); ++j)
            dst.set(i, j, Op::apply(a(i, j), b(i, j)));
}

template <class Op, int N, class T, template <class> class Objects>
void sumObjects(const SumOfSteps<T, Objects> &s)
{
    for (ptrdiff_t k = 0; k < s.count; ++k)
        sumObject<Op, T, N>(s, s.dst(k), s.src1(k), s.src2(k));
}

template <class Op, class T, template <class> class Objects>
void sumByElement(const SumOfSteps<T, Objects> &s)
{
    constexpr bool tables = std::is_same_v<Objects<T>, Tabled<T>>;
    switch (!tables && s.width == s.height ? s.width : 0) {
    case 3: return sumObjects<Op, 3>(s);
    case 4: return sumObjects<Op, 4>(s);
    case 5: return sumObjects<Op, 5>(s);
    case 6: return sumObjects<Op, 6>(s);
    default: return sumObjects<Op, 0>(s);
    }
}

// Dense rows ------------------------------------------------------------------------------------

// Whether rows of `dst` can be written a pack at a time, whatever else overlaps: element by
// element, `dst` must not begin inside the pack that is being read. Objects and rows keep their
// order in any case. The distance of the two grows evenly with k and with i, so the corners tell.
inline bool keepsOrder(const std::byte *dst, const std::byte *src, ptrdiff_t growthOverObjects,
                       ptrdiff_t growthOverRows)
{
    const auto distance = ptrdiff_t(std::uintptr_t(dst) - std::uintptr_t(src));
    const auto least = distance + std::min<ptrdiff_t>(growthOverObjects, 0) +
                       std::min<ptrdiff_t>(growthOverRows, 0);
    const auto most = distance + std::max<ptrdiff_t>(growthOverObjects, 0) +
                      std::max<ptrdiff_t>(growthOverRows, 0);
    return most <= 0 || least >= registerBytes;
}

template <class Op, class T, template <class> class Objects>
[[gnu::noinline]] void sumUnorderedObject(const SumOfSteps<T, Objects> &s, std::byte *dst,
                                          const std::byte *a, const std::byte *b)
{
    sumObject<Op, T>(s, dst, a, b);
}

// Calls `rows(dst, src1, src2)` for each object whose order survives packs, and does others
// literally.
template <class Op, class T, template <class> class Objects, class Rows>
inline void forEachObject(const SumOfSteps<T, Objects> &s, Rows rows)
{
    for (ptrdiff_t k = 0; k < s.count; ++k) {
        const auto a = s.src1(k), b = s.src2(k);
        const auto dst = s.dst(k);
        if constexpr (std::is_same_v<Objects<T>, Tabled<T>>) {
            const auto ordered = [&](const std::byte *src, ptrdiff_t rowStep) {
                return keepsOrder(dst, src, 0, (s.height - 1) * (s.rowStepDst - rowStep));
            };
            if (!ordered(a, s.rowStep1) || !ordered(b, s.rowStep2)) {
                sumUnorderedObject<Op>(s, dst, a, b);
                continue;
            }
        }
        rows(dst, a, b);
    }
}

// `Rows` runs of `Length` elements per object.
template <class Op, int Rows, ptrdiff_t Length, class T, template <class> class Objects>
void sumFixedRows(const SumOfSteps<T, Objects> &s)
{
    forEachObject<Op>(s, [&](std::byte *dst, const std::byte *a, const std::byte *b) {
        for (int i = 0; i < Rows; ++i) {
            combineRun<Op, T, Length>(dst, a, b);
            a += s.rowStep1, b += s.rowStep2, dst += s.rowStepDst;
        }
    });
}

template <class Op, class T, template <class> class Objects>
void sumRows(const SumOfSteps<T, Objects> &s)
{
    forEachObject<Op>(s, [&](std::byte *dst, const std::byte *a, const std::byte *b) {
        for (ptrdiff_t i = 0; i < s.height; ++i) {
            combineRun<Op, T>(dst, a, b, s.width);
            a += s.rowStep1, b += s.rowStep2, dst += s.rowStepDst;
        }
    });
}

template <class Op, class T, template <class> class Objects>
void sumDense(const SumOfSteps<T, Objects> &s)
{
    if (s.height == 1) {
        switch (s.width) {
        case 9: return sumFixedRows<Op, 1, 9>(s);
        case 16: return sumFixedRows<Op, 1, 16>(s);
        case 25: return sumFixedRows<Op, 1, 25>(s);
        case 36: return sumFixedRows<Op, 1, 36>(s);
        }
    } else if constexpr (std::is_same_v<Objects<T>, Stepped<T>>) {
        switch (s.width == s.height ? s.width : 0) {
        case 3: return sumFixedRows<Op, 3, 3>(s);
        case 4: return sumFixedRows<Op, 4, 4>(s);
        case 5: return sumFixedRows<Op, 5, 5>(s);
        case 6: return sumFixedRows<Op, 6, 6>(s);
        }
    }
    sumRows<Op>(s);
}

// Rows without gaps are one longer row: the order of the elements stays what it was.
template <class T, template <class> class Objects> void joinRows(SumOfSteps<T, Objects> &s)
{
    const ptrdiff_t row = s.width * ptrdiff_t(sizeof(T));
    if (s.rowStep1 == row && s.rowStep2 == row && s.rowStepDst == row) {
        s.width *= s.height;
        s.height = 1;
    }
}

// Strided arrays and single objects: one test for the whole call.
template <class Op, class T>
[[gnu::noinline]] void sumSteps(const SumOfSteps<T, Stepped> &s, bool dense)
{
    const auto ordered = [&](const Stepped<const T> &src, ptrdiff_t rowStep) {
        return keepsOrder(s.dst.base, src.base, (s.count - 1) * (s.dst.step - src.step),
                          (s.height - 1) * (s.rowStepDst - rowStep));
    };
    if (dense && ordered(s.src1, s.rowStep1) && ordered(s.src2, s.rowStep2)) {
        auto joined = s;
        joinRows(joined);
        sumDense<Op>(joined);
    } else {
        sumByElement<Op>(s);
    }
}

// Object tables: the objects may lie anywhere, so each is tested on its way.
template <class Op, class T>
[[gnu::noinline]] void sumSteps(const SumOfSteps<T, Tabled> &s, bool dense)
{
    if (dense) {
        auto joined = s;
        joinRows(joined);
        sumDense<Op>(joined);
    } else {
        sumByElement<Op>(s);
    }
}

// Element tables ---------------------------------------------------------------------------------

template <class T> struct SumOfElements {
    ScatteredMatrix<const T> src1, src2;
    ScatteredMatrix<T> dst;
    ptrdiff_t step1, step2, stepDst; // from object to object; 0 for a single operand
    ptrdiff_t count;

    // The call as object k sees it.
    SumOfElements at(ptrdiff_t k) const
    {
        SumOfElements object = *this;
        object.src1.offset += k * step1;
        object.src2.offset += k * step2;
        object.dst.offset += k * stepDst;
        return object;
    }
};

template <class Op, class T> void sumByElement(const SumOfElements<T> &s, Shape shape)
{
    for (ptrdiff_t k = 0; k < s.count; ++k) {
        const auto object = s.at(k);
        for (ptrdiff_t i = 0; i < shape.height; ++i)
            for (ptrdiff_t j = 0; j < shape.width; ++j)
                object.dst.set(i, j, Op::apply(object.src1(i, j), object.src2(i, j)));
    }
}

// Sizes 3 to 6: the sources are read before the first store, a single one once for all objects.
template <class Op, class T> void sumWholeObjects(const SumOfElements<T> &s, ptrdiff_t n)
{
    T a[6 * 6], b[6 * 6];
    const auto read = [n](T *values, const ScatteredMatrix<const T> src) {
        for (ptrdiff_t i = 0; i < n; ++i)
            for (ptrdiff_t j = 0; j < n; ++j)
                *values++ = src(i, j);
    };
    auto src1 = s.src1, src2 = s.src2;
    auto dst = s.dst;
    read(a, src1);
    read(b, src2);
    for (ptrdiff_t k = 0; k < s.count; ++k) {
        if (k > 0) {
            src1.offset += s.step1, src2.offset += s.step2, dst.offset += s.stepDst;
            if (s.step1 != 0)
                read(a, src1);
            if (s.step2 != 0)
                read(b, src2);
        }
        for (ptrdiff_t i = 0; i < n; ++i)
            for (ptrdiff_t j = 0; j < n; ++j)
                dst.set(i, j, Op::apply(a[i * n + j], b[i * n + j]));
    }
}

// A plain array with a transposed second operand (mat, mata) has no whole-object path.
template <class A, class B>
inline constexpr bool readsWholeObjects = !(A::many && !A::transposed && B::transposed);

template <class Op, bool WholeObjects, class T>
[[gnu::noinline]] void sumElements(const SumOfElements<T> &s, Shape shape)
{
    const bool whole =
        WholeObjects && shape.width == shape.height && 3 <= shape.width && shape.width <= 6;
    if (whole)
        sumWholeObjects<Op>(s, shape.width);
    else
        sumByElement<Op>(s, shape);
}

// Objects without any gap, the common case: all of them are one run of elements, in their order.
template <class Op, class T>
[[gnu::noinline]] ZonStatus sumRun(std::byte *dst, const std::byte *a, const std::byte *b,
                                   ptrdiff_t length)
{
    switch (length) {
    case 9: combineRun<Op, T, 9>(dst, a, b); break;
    case 16: combineRun<Op, T, 16>(dst, a, b); break;
    case 25: combineRun<Op, T, 25>(dst, a, b); break;
    case 36: combineRun<Op, T, 36>(dst, a, b); break;
    default: combineRun<Op, T>(dst, a, b, length);
    }
    return zonStsOk;
}

// One matrix with all of a packed array: some copies of it side by side make long runs of these
// too.
inline constexpr ptrdiff_t tileObjects = 8, tileLargest = 8 * 8;

template <class Op, class T>
[[gnu::noinline]] ZonStatus sumTiled(std::byte *dst, const std::byte *array,
                                     const std::byte *single, ptrdiff_t elements, ptrdiff_t count)
{
    std::byte tile[tileObjects * tileLargest * sizeof(T)];
    const ptrdiff_t object = elements * ptrdiff_t(sizeof(T));
    for (ptrdiff_t k = 0; k < tileObjects; ++k)
        std::memcpy(tile + k * object, single, std::size_t(object));
    for (; count > 0; count -= tileObjects) {
        combineRun<Op, T>(dst, array, tile, elements * std::min(count, tileObjects));
        dst += tileObjects * object, array += tileObjects * object;
    }
    return zonStsOk;
}

template <class Op> struct Swapped {
    template <class V> static V apply(V a, V b) { return Op::apply(b, a); }
};

// Where the tiles would pay, and nobody could tell that the single matrix was read but once.
template <class T>
inline bool mayTile(const std::byte *dst, const std::byte *array, const std::byte *single,
                    ptrdiff_t elements, ptrdiff_t count)
{
    const auto object = std::uintptr_t(elements) * sizeof(T);
    const auto from = std::uintptr_t(dst), to = from + object * std::uintptr_t(count);
    const bool apart = std::uintptr_t(single) >= to || std::uintptr_t(single) + object <= from;
    return count >= tileObjects && elements <= tileLargest && apart && keepsOrder(dst, array, 0, 0);
}

// Zero where rows and objects follow each other without a gap, in one test for all operands.
// Without a sign, since the bytes of rows that overlap may be more than an address counts.
template <class Operand> std::uintptr_t gaps(const Operand &o, Shape shape, int32_t count)
{
    constexpr std::uintptr_t element = sizeof(typename Operand::Value);
    const std::uintptr_t row = shape.width * element;
    std::uintptr_t gaps = (o.stride2 - element) | (o.stride1 - row);
    if (Operand::many && count > 1)
        gaps |= steppedOrigins(o).step - row * shape.height;
    return gaps;
}

// Bindings ---------------------------------------------------------------------------------------

template <class Op, class A, class B, class D>
ZonStatus sumElementTables(A src1, B src2, D dst, Shape shape, int32_t count)
{
    const auto object = [&](const auto &o) { return onlyObject(o, shape.height, shape.width); };
    const SumOfElements<typename D::Value> s = {
        object(src1), object(src2), object(dst), src1.stride0, src2.stride0, dst.stride0, count};
    sumElements<Op, readsWholeObjects<A, B>>(s, shape);
    return zonStsOk;
}

template <class Op, class A, class B, class D>
ZonStatus sumStrided(A src1, B src2, D dst, Shape shape, int32_t count)
{
    using T = typename D::Value;
    constexpr bool plain = !A::transposed && !B::transposed;
    if constexpr (plain && D::description == Description::strided) {
        const auto d = bytes(dst.base);
        const auto a = bytes(src1.base), b = bytes(src2.base);
        const auto elements = ptrdiff_t(std::uintptr_t(shape.width) * shape.height); // if packed
        const bool packed =
            (gaps(src1, shape, count) | gaps(src2, shape, count) | gaps(dst, shape, count)) == 0;
        const bool ordered = keepsOrder(d, a, 0, 0) && keepsOrder(d, b, 0, 0);
        if (packed && (A::many == B::many || count == 1) && ordered)
            return sumRun<Op, T>(d, a, b, elements * count);
        if constexpr (A::many && !B::many) {
            if (packed && mayTile<T>(d, a, b, elements, count))
                return sumTiled<Op, T>(d, a, b, elements, count);
        } else if constexpr (B::many && !A::many) {
            if (packed && mayTile<T>(d, b, a, elements, count))
                return sumTiled<Swapped<Op>, T>(d, b, a, elements, count);
        }
    }
    const bool dense = plain && isDense(src1) && isDense(src2) && isDense(dst);
    const auto rows = [&](const auto &o) { return viewOf<Layout::strided>(o, 0, 0); };
    const auto a = rows(src1), b = rows(src2);
    const auto d = rows(dst);
    const auto steps = [&]<template <class> class Origins>(Origins<T> origins) {
        sumSteps<Op>(SumOfSteps<T, Origins>{originsOf<Origins>(src1), originsOf<Origins>(src2),
                                            origins, a.rowStep, a.columnStep, b.rowStep,
                                            b.columnStep, d.rowStep, d.columnStep, shape.width,
                                            shape.height, count},
                     dense);
    };
    if constexpr (isObjectTable<D>)
        steps(originsOf<Tabled>(dst));
    else
        steps(originsOf<Stepped>(dst));
    return zonStsOk;
}

template <class Op, class A, class B, class D>
ZonStatus sum(A src1, B src2, D dst, Shape shape, int32_t count)
{
    if constexpr (isElementTable<D>)
        return sumElementTables<Op>(src1, src2, dst, shape, count);
    else
        return sumStrided<Op>(src1, src2, dst, shape, count);
}

template <class A, class B, class D>
ZonStatus addMatrices(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return sum<Plus>(src1, src2, dst, shape, count);
}

template <class A, class B, class D>
ZonStatus subtractMatrices(A src1, B src2, D dst, Shape shape, int32_t count)
{
    return sum<Minus>(src1, src2, dst, shape, count);
}

} // namespace
} // namespace zonm

#include "elementwise/generated/matrix_sums.inc"
