// SPDX-License-Identifier: Apache-2.0
// dst[k](i, j) = a[k](i, j) op b[k](i, j), where either side is an array or the same for every k.
//
// What a caller can see is the order of reads and writes where `dst` overlaps a source: k, then i,
// then j, each element read just before it is written. A fast path runs only where it cannot be
// told from that.
#pragma once

#include "frame/operands.hpp"
#include "frame/runs.hpp"
#include "zonm.h"

namespace zonm
{

struct Plus {
    template <class V> static V apply(V a, V b) { return a + b; }
};
struct Minus {
    template <class V> static V apply(V a, V b) { return a - b; }
};
template <class Op> struct Swapped {
    template <class V> static V apply(V a, V b) { return Op::apply(b, a); }
};

// Strided operands and object tables ------------------------------------------------------------

// An operand as the entries hand it over: where its objects begin, and two steps inside each. A
// single operand has step 0. One type for all of them lets the kernels be shared.
template <class T> struct Placed {
    const void *place; // the first object, or a table of objects
    int32_t step;      // from object to object, or the shift of a table
    int32_t rowStep, columnStep;
    bool isTable;

    template <class Block>
    explicit Placed(const Block &o)
        : rowStep(int32_t(o.rowStep())), columnStep(int32_t(o.columnStep())),
          isTable(Block::description == Description::objectTable)
    {
        if constexpr (Block::description == Description::objectTable)
            place = o.table, step = o.shift;
        else
            place = o.base, step = int32_t(o.objects().step);
    }
    Bytes<T> operator()(ptrdiff_t k) const
    {
        return isTable ? bytes(static_cast<T *const *>(place)[k]) + step
                       : bytes(static_cast<T *>(const_cast<void *>(place))) + k * step;
    }
    bool isDense() const { return columnStep == sizeof(T); }
};

template <class T> struct Combination {
    Placed<const T> a, b;
    Placed<T> dst;
    ptrdiff_t width; // of rows that follow each other without a gap, of all of them together
    int32_t height, count;
};

// The literal order, for any steps and any overlap. N is the size where that is a constant, else 0.
template <class Op, int N = 0, class T>
inline void combineObject(const Combination<T> &c, std::byte *dstBase, const std::byte *aBase,
                          const std::byte *bBase)
{
    const StridedMatrix<const T> a(aBase, c.a.rowStep, c.a.columnStep);
    const StridedMatrix<const T> b(bBase, c.b.rowStep, c.b.columnStep);
    const StridedMatrix<T> dst(dstBase, c.dst.rowStep, c.dst.columnStep);
    for (ptrdiff_t i = 0; i < (N ? N : c.height); ++i)
        for (ptrdiff_t j = 0; j < (N ? N : c.width); ++j)
            dst.set(i, j, Op::apply(a(i, j), b(i, j)));
}

template <class Op, int N, class T> void combineObjects(const Combination<T> &c)
{
    for (ptrdiff_t k = 0; k < c.count; ++k)
        combineObject<Op, N>(c, c.dst(k), c.a(k), c.b(k));
}

template <class Op, class T> void combineByElement(const Combination<T> &c)
{
    switch (c.width == c.height ? c.width : 0) {
    case 3: return combineObjects<Op, 3>(c);
    case 4: return combineObjects<Op, 4>(c);
    case 5: return combineObjects<Op, 5>(c);
    case 6: return combineObjects<Op, 6>(c);
    default: return combineObjects<Op, 0>(c);
    }
}

template <class Op, class T>
[[gnu::noinline]] void combineUnorderedObject(const Combination<T> &c, std::byte *dst,
                                              const std::byte *a, const std::byte *b)
{
    combineObject<Op>(c, dst, a, b);
}

// Calls `rows(dst, a, b)` for each object. Objects of a table may lie anywhere, so each is tested
// on its way, and those whose order packs would not keep are done literally.
template <class Op, class T, class Rows>
inline void forEachDenseObject(const Combination<T> &c, Rows rows)
{
    const bool tested = c.dst.isTable;
    for (ptrdiff_t k = 0; k < c.count; ++k) {
        const auto a = c.a(k), b = c.b(k);
        const auto dst = c.dst(k);
        const auto ordered = [&](const std::byte *src, ptrdiff_t rowStep) {
            return keepsOrder(dst, src, 0, (c.height - 1) * (c.dst.rowStep - rowStep));
        };
        if (tested && !(ordered(a, c.a.rowStep) && ordered(b, c.b.rowStep)))
            combineUnorderedObject<Op>(c, dst, a, b);
        else
            rows(dst, a, b);
    }
}

// Rows of `Length` elements, `Rows` of them per object.
template <class Op, int Rows, ptrdiff_t Length, class T>
void combineFixedRows(const Combination<T> &c)
{
    forEachDenseObject<Op>(c, [&](std::byte *dst, const std::byte *a, const std::byte *b) {
        for (int i = 0; i < Rows; ++i) {
            writeRun<T, Length>(dst, combined<Op>(RunAt<T>{a}, RunAt<T>{b}));
            a += c.a.rowStep, b += c.b.rowStep, dst += c.dst.rowStep;
        }
    });
}

template <class Op, class T> void combineRows(const Combination<T> &c)
{
    forEachDenseObject<Op>(c, [&](std::byte *dst, const std::byte *a, const std::byte *b) {
        for (ptrdiff_t i = 0; i < c.height; ++i) {
            writeRun<T>(dst, c.width, combined<Op>(RunAt<T>{a}, RunAt<T>{b}));
            a += c.a.rowStep, b += c.b.rowStep, dst += c.dst.rowStep;
        }
    });
}

template <class Op, class T> void combineDense(const Combination<T> &c)
{
    if (c.height == 1) {
        switch (c.width) {
        case 9: return combineFixedRows<Op, 1, 9>(c);
        case 16: return combineFixedRows<Op, 1, 16>(c);
        case 25: return combineFixedRows<Op, 1, 25>(c);
        case 36: return combineFixedRows<Op, 1, 36>(c);
        }
    } else {
        switch (c.width == c.height ? c.width : 0) {
        case 3: return combineFixedRows<Op, 3, 3>(c);
        case 4: return combineFixedRows<Op, 4, 4>(c);
        case 5: return combineFixedRows<Op, 5, 5>(c);
        case 6: return combineFixedRows<Op, 6, 6>(c);
        }
    }
    combineRows<Op>(c);
}

// Rows without gaps are one longer row: the order of the elements stays what it was.
template <class T> void joinRows(Combination<T> &c)
{
    const ptrdiff_t row = c.width * ptrdiff_t(sizeof(T));
    if (c.a.rowStep == row && c.b.rowStep == row && c.dst.rowStep == row) {
        c.width *= c.height;
        c.height = 1;
    }
}

template <class Op, class T> void combineSteps(const Combination<T> &c)
{
    const auto ordered = [&](const Placed<const T> &src) {
        return keepsOrder(c.dst(0), src(0), ptrdiff_t(c.count - 1) * (c.dst.step - src.step),
                          ptrdiff_t(c.height - 1) * (c.dst.rowStep - src.rowStep));
    };
    const bool dense = c.a.isDense() && c.b.isDense() && c.dst.isDense();
    if (dense && (c.dst.isTable || (ordered(c.a) && ordered(c.b)))) {
        auto joined = c;
        joinRows(joined);
        combineDense<Op>(joined);
    } else {
        combineByElement<Op>(c);
    }
}

// Packed operands, the common case: all objects are one run of elements, in their order.
template <class Op, class T>
inline void combineRun(std::byte *dst, const std::byte *a, const std::byte *b, ptrdiff_t length)
{
    const auto values = combined<Op>(RunAt<T>{a}, RunAt<T>{b});
    switch (length) {
    case 9: return writeRun<T, 9>(dst, values);
    case 16: return writeRun<T, 16>(dst, values);
    case 25: return writeRun<T, 25>(dst, values);
    case 36: return writeRun<T, 36>(dst, values);
    default: return writeRun<T>(dst, length, values);
    }
}

// One object with all of a packed array.
template <class Op, class T>
[[gnu::noinline]] void combineTiled(std::byte *dst, const std::byte *array, const std::byte *single,
                                    ptrdiff_t elements, ptrdiff_t count)
{
    const Tile<T> tile(single, elements);
    Tile<T>::forEach(elements, count, [&](ptrdiff_t first, ptrdiff_t length) {
        const ptrdiff_t at = first * ptrdiff_t(sizeof(T));
        writeRun<T>(dst + at, length, combined<Op>(RunAt<T>{array + at}, tile.values()));
    });
}

// Where tiles pay, and nobody could tell that the single object was read but once.
template <class T>
inline bool mayTile(const std::byte *dst, const std::byte *array, const std::byte *single,
                    ptrdiff_t elements, ptrdiff_t count)
{
    const auto object = std::uintptr_t(elements) * sizeof(T);
    const auto from = std::uintptr_t(dst), to = from + object * std::uintptr_t(count);
    const bool apart = std::uintptr_t(single) >= to || std::uintptr_t(single) + object <= from;
    return Tile<T>::serves(elements, count) && apart && keepsOrder(dst, array);
}

template <class Op, class T> [[gnu::noinline]] ZonStatus combineStrided(const Combination<T> &c)
{
    constexpr auto element = ptrdiff_t(sizeof(T));
    const ptrdiff_t row = c.width * element;
    const auto gapsInside = [&](const auto &o) {
        return (o.columnStep - element) | (o.rowStep - row) | ptrdiff_t(o.isTable);
    };
    if ((gapsInside(c.a) | gapsInside(c.b) | gapsInside(c.dst)) == 0) {
        // Only now: in 32 bits the size of an object whose rows overlap may overflow.
        const ptrdiff_t elements = c.width * ptrdiff_t(c.height), object = row * c.height;
        const auto isPacked = [&](const auto &o) { return o.step == object; };
        const auto dst = c.dst(0);
        const auto a = c.a(0), b = c.b(0);
        if ((c.count == 1 || (isPacked(c.a) && isPacked(c.b) && isPacked(c.dst))) &&
            keepsOrder(dst, a) && keepsOrder(dst, b)) {
            combineRun<Op, T>(dst, a, b, elements * c.count);
            return zonStsOk;
        }
        if (isPacked(c.dst) && isPacked(c.a) && c.b.step == 0 &&
            mayTile<T>(dst, a, b, elements, c.count)) {
            combineTiled<Op, T>(dst, a, b, elements, c.count);
            return zonStsOk;
        }
        if (isPacked(c.dst) && isPacked(c.b) && c.a.step == 0 &&
            mayTile<T>(dst, b, a, elements, c.count)) {
            combineTiled<Swapped<Op>, T>(dst, b, a, elements, c.count);
            return zonStsOk;
        }
    }
    combineSteps<Op>(c);
    return zonStsOk;
}

// Element tables ---------------------------------------------------------------------------------

// An operand whose elements stand in a table: entry i*rowPitch + j*columnPitch is that of (i, j) in
// object 0. A single operand has step 0.
template <class T> struct Scattered {
    T *const *table;
    int32_t shift, step, rowPitch, columnPitch;

    template <class Block>
    Scattered(const Block &o, Shape shape)
        : table(o.table), shift(o.shift), step(o.stride0),
          rowPitch(Block::transposed ? 1 : shape.width),
          columnPitch(Block::transposed ? shape.height : 1)
    {
    }
    ScatteredMatrix<T> operator()(ptrdiff_t k) const
    {
        return {table, shift + k * step, rowPitch, columnPitch};
    }
};

template <class T> struct ScatteredCombination {
    Scattered<const T> a, b;
    Scattered<T> dst;
    int32_t width, height, count;
    bool readsWholeObjects; // the sources before the first store, a single one once for all
};

template <class Op, class T> void combineWholeObjects(const ScatteredCombination<T> &c)
{
    constexpr ptrdiff_t largest = 6 * 6;
    T a[largest], b[largest];
    const auto read = [&](T *values, const Scattered<const T> &src, ptrdiff_t k) {
        if (k > 0 && src.step == 0)
            return;
        const auto object = src(k);
        for (ptrdiff_t i = 0; i < c.height; ++i)
            for (ptrdiff_t j = 0; j < c.width; ++j)
                *values++ = object(i, j);
    };
    for (ptrdiff_t k = 0; k < c.count; ++k) {
        read(a, c.a, k);
        read(b, c.b, k);
        const auto dst = c.dst(k);
        for (ptrdiff_t i = 0, e = 0; i < c.height; ++i)
            for (ptrdiff_t j = 0; j < c.width; ++j, ++e)
                dst.set(i, j, Op::apply(a[e], b[e]));
    }
}

template <class Op, class T>
[[gnu::noinline]] ZonStatus combineScattered(const ScatteredCombination<T> &c)
{
    if (c.readsWholeObjects) {
        combineWholeObjects<Op>(c);
        return zonStsOk;
    }
    for (ptrdiff_t k = 0; k < c.count; ++k) {
        const auto a = c.a(k), b = c.b(k);
        const auto dst = c.dst(k);
        for (ptrdiff_t i = 0; i < c.height; ++i)
            for (ptrdiff_t j = 0; j < c.width; ++j)
                dst.set(i, j, Op::apply(a(i, j), b(i, j)));
    }
    return zonStsOk;
}

} // namespace zonm
