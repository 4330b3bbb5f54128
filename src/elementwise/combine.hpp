// SPDX-License-Identifier: Apache-2.0
// dst[k](i, j) = a[k](i, j) op b[k](i, j), where either side is an array or the same for every k,
// and b may be a number for each k.
//
// What a caller can see is the order of reads and writes where `dst` overlaps a source: k, then i,
// then j, each element read just before it is written, but a number read once for its object. A
// fast path runs only where it cannot be told from that.
#pragma once

#include "elementwise/placed.hpp"
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
struct Times {
    template <class V> static V apply(V a, V b) { return a * b; }
};
template <class Op> struct Swapped {
    template <class V> static V apply(V a, V b) { return Op::apply(b, a); }
};

// Strided operands and object tables ------------------------------------------------------------

template <class T> struct Combination {
    Placed<const T> a, b;
    Placed<T> dst;
    ptrdiff_t width; // of rows that follow each other without a gap, of all of them together
    ptrdiff_t height, count;

    bool hasTable() const { return a.isTable || b.isTable || dst.isTable; }
};

// What b may be: `values` for packs, and where the literal order begins to read. A number is held
// for the length of its object.
template <class T> struct ObjectOperand {
    static constexpr bool isConstant = false;
    static RunAt<T> values(const std::byte *b) { return {b}; }
    static const std::byte *held(const std::byte *b) { return b; }
    static const std::byte *begin(const std::byte *const &held) { return held; }
};
template <class T> struct ConstantOperand {
    static constexpr bool isConstant = true;
    static Repeated<T> values(const std::byte *b) { return {load<T>(b)}; }
    static T held(const std::byte *b) { return load<T>(b); }
    static const std::byte *begin(const T &held) { return bytes(&held); }
};

// The literal order, for any steps and any overlap. `Width` is that of the rows where it is known,
// else 0.
template <class Op, class B, int Width = 0, class T>
inline void combineObject(const Combination<T> &c, std::byte *dstBase, const std::byte *aBase,
                          const std::byte *bBase)
{
    const auto held = B::held(bBase);
    const StridedMatrix<const T> a(aBase, c.a.rowStep, c.a.columnStep);
    const StridedMatrix<const T> b(B::begin(held), c.b.rowStep, c.b.columnStep);
    const StridedMatrix<T> dst(dstBase, c.dst.rowStep, c.dst.columnStep);
    for (ptrdiff_t i = 0; i < c.height; ++i)
        for (ptrdiff_t j = 0; j < (Width ? Width : c.width); ++j)
            dst.set(i, j, Op::apply(a(i, j), b(i, j)));
}

// Here and below a kernel copies its call, to have it out of reach of what is stored.
template <class Op, class B, int Width, class T>
[[gnu::noinline]] void combineByElement(const Combination<T> &call)
{
    const Combination<T> c = call;
    for (ptrdiff_t k = 0; k < c.count; ++k)
        combineObject<Op, B, Width>(c, c.dst(k), c.a(k), c.b(k));
}

template <class Op, class B, class T> void combineByElement(const Combination<T> &c)
{
    if constexpr (!B::isConstant) {
        switch (c.width) {
        case 3: return combineByElement<Op, B, 3>(c);
        case 4: return combineByElement<Op, B, 4>(c);
        case 5: return combineByElement<Op, B, 5>(c);
        case 6: return combineByElement<Op, B, 6>(c);
        }
    }
    combineByElement<Op, B, 0>(c);
}

template <class Op, class B, class T>
[[gnu::noinline]] void combineUnorderedObject(const Combination<T> &c, std::byte *dst,
                                              const std::byte *a, const std::byte *b)
{
    combineObject<Op, B>(c, dst, a, b);
}

// Dense rows, of a known width or 0.
template <class Op, class B, int Width, class T>
[[gnu::noinline]] void combineRows(const Combination<T> &call, ptrdiff_t width, ptrdiff_t height)
{
    const Combination<T> c = call;
    auto first = c.dst(0);
    auto a = c.a(0), b = c.b(0);
    for (ptrdiff_t k = c.count; k > 0; --k) {
        auto dst = first;
        auto values = combined<Op>(RunAt<T>{a}, B::values(b));
        for (ptrdiff_t i = height;;) {
            if constexpr (Width)
                writeRun<T, Width>(dst, values);
            else
                writeRun<T>(dst, width, values);
            if (--i == 0)
                break;
            dst += c.dst.rowStep, values.a.advance(c.a.rowStep), values.b.advance(c.b.rowStep);
        }
        first += c.dst.step, a += c.a.step, b += c.b.step;
    }
}

// The objects of an operand beside tables, without a branch for each: one without a table is taken
// as a table with one entry, at which the mask keeps every index.
template <class T> struct TableObjects {
    const Bytes<T> *table;
    ptrdiff_t indexMask, shift, step;

    TableObjects(const Placed<T> &o, const Bytes<T> &first)
        : table(o.isTable ? static_cast<const Bytes<T> *>(o.place) : &first),
          indexMask(o.isTable ? -1 : 0), shift(o.isTable ? o.step : 0), step(o.isTable ? 0 : o.step)
    {
    }
    Bytes<T> operator()(ptrdiff_t k) const { return table[k & indexMask] + (shift + k * step); }
};

// The same where objects stand in tables and may lie anywhere: each is tested on its way, and those
// whose order packs would not keep are done literally. With a known width there is one row.
template <class Op, class B, int Width, class T>
[[gnu::noinline]] void combineTables(const Combination<T> &call, ptrdiff_t width, ptrdiff_t height)
{
    const Combination<T> c = call;
    const auto firstDst = c.dst.first();
    const auto firstA = c.a.first(), firstB = c.b.first();
    const TableObjects<T> dstObjects(c.dst, firstDst);
    const TableObjects<const T> aObjects(c.a, firstA), bObjects(c.b, firstB);
    const auto driftOf = [&](const auto &src) {
        return Width ? Drift() : Drift(0, (height - 1) * (c.dst.rowStep - src.rowStep));
    };
    const Drift driftOfA = driftOf(c.a), driftOfB = driftOf(c.b);
    for (ptrdiff_t k = 0; k < c.count; ++k) {
        auto dst = dstObjects(k);
        const auto a = aObjects(k), b = bObjects(k);
        if (!keepsOrder(dst, a, driftOfA) || (!B::isConstant && !keepsOrder(dst, b, driftOfB))) {
            combineUnorderedObject<Op, B>(call, dst, a, b);
            continue;
        }
        auto values = combined<Op>(RunAt<T>{a}, B::values(b));
        if constexpr (Width) {
            writeRun<T, Width>(dst, values);
        } else {
            for (ptrdiff_t i = 0; i < height; ++i) {
                writeRun<T>(dst, width, values);
                dst += c.dst.rowStep, values.a.advance(c.a.rowStep), values.b.advance(c.b.rowStep);
            }
        }
    }
}

template <class Op, class B, int Width, class T>
inline void combineDense(const Combination<T> &c, ptrdiff_t width, ptrdiff_t height)
{
    if (!c.hasTable())
        combineRows<Op, B, Width>(c, width, height);
    else if (height == 1 && !B::isConstant)
        combineTables<Op, B, B::isConstant ? 0 : Width>(c, width, height);
    else
        combineTables<Op, B, 0>(c, width, height);
}

// The widths 3 to 6, and those of square matrices of these sizes whose rows are joined: rows
// without gaps are one longer row, and the order of the elements stays what it was.
template <class Op, class B, class T> void combineDense(const Combination<T> &c)
{
    const ptrdiff_t row = c.width * ptrdiff_t(sizeof(T));
    ptrdiff_t width = c.width, height = c.height;
    if (c.a.rowStep == row && c.dst.rowStep == row && (B::isConstant || c.b.rowStep == row))
        width *= height, height = 1;
    switch (width) {
    case 3: return combineDense<Op, B, 3>(c, width, height);
    case 4: return combineDense<Op, B, 4>(c, width, height);
    case 5: return combineDense<Op, B, 5>(c, width, height);
    case 6: return combineDense<Op, B, 6>(c, width, height);
    }
    if constexpr (!B::isConstant) {
        switch (width) {
        case 9: return combineDense<Op, B, 9>(c, width, height);
        case 16: return combineDense<Op, B, 16>(c, width, height);
        case 25: return combineDense<Op, B, 25>(c, width, height);
        }
    }
    combineDense<Op, B, 0>(c, width, height);
}

// Interleaved objects, the same element of all of them side by side: where no other order can be
// told from the literal one, the runs are taken across the objects. A number of all objects, or an
// element of a single one, is the same along a run; numbers of each object lie in a run of theirs.
template <class Op, class B, class T> [[gnu::noinline]] void combineAcross(const Combination<T> &c)
{
    for (ptrdiff_t i = 0; i < c.height; ++i)
        combineRows<Op, B, 0>(
            Combination<T>{c.a.across(i), c.b.across(i), c.dst.across(i), c.count, 1, c.width},
            c.count, 1);
}

template <class T> inline bool mayCombineAcross(const Combination<T> &c)
{
    constexpr ptrdiff_t element = sizeof(T), few = 8;
    const auto isAcross = [&](const auto &o) { return o.step == element; };
    if (c.hasTable() || c.count < few || !isAcross(c.a) || !isAcross(c.dst) ||
        (!isAcross(c.b) && c.b.step != 0))
        return false;
    const auto size = [&](const auto &o) { return o.size(c.width, c.height, c.count); };
    const auto keeps = [&](const Placed<const T> &src) {
        return haveSamePlace(src, c.dst) || areApart(c.dst(0), size(c.dst), src(0), size(src));
    };
    return keeps(c.a) && keeps(c.b) &&
           Nest(c.a, c.dst, c.width, c.height, c.count).isDistinct(element);
}

template <class Op, class B, class T> void combineSteps(const Combination<T> &c)
{
    const auto ordered = [&](const Placed<const T> &src) {
        return keepsOrder(c.dst(0), src(0),
                          {(c.count - 1) * (c.dst.step - src.step),
                           (c.height - 1) * (c.dst.rowStep - src.rowStep)});
    };
    const bool dense = c.a.isDense() && c.dst.isDense() && (B::isConstant || c.b.isDense());
    if (dense && (c.hasTable() || (ordered(c.a) && (B::isConstant || ordered(c.b))))) {
        combineDense<Op, B>(c);
    } else if (!mayCombineAcross(c)) {
        combineByElement<Op, B>(c);
    } else if (c.b.step == 0) {
        combineAcross<Op, ConstantOperand<T>>(c);
    } else {
        combineAcross<Op, ObjectOperand<T>>(c);
    }
}

// Zero where the rows of an operand follow each other without a gap, from its first object on.
template <class T> ptrdiff_t gapsInside(const Placed<T> &o, ptrdiff_t width, ptrdiff_t height)
{
    constexpr auto element = ptrdiff_t(sizeof(T));
    return (o.columnStep - element) | (height > 1 ? o.rowStep - width * element : 0) | o.isTable;
}

// Packed operands, the common case: all objects are one run of elements, in their order.
template <class Op, class T>
[[gnu::noinline]] ZonStatus combineRun(std::byte *dst, const std::byte *a, const std::byte *b,
                                       ptrdiff_t length)
{
    const auto values = combined<Op>(RunAt<T>{a}, RunAt<T>{b});
    switch (length) {
    case 9: writeRun<T, 9>(dst, values); break;
    case 16: writeRun<T, 16>(dst, values); break;
    case 25: writeRun<T, 25>(dst, values); break;
    case 36: writeRun<T, 36>(dst, values); break;
    default: writeRun<T>(dst, length, values);
    }
    return zonStsOk;
}
template <class Op, class T>
[[gnu::noinline]] ZonStatus combineRun(std::byte *dst, const std::byte *a, T number,
                                       ptrdiff_t length)
{
    writeRun<T>(dst, length, combined<Op>(RunAt<T>{a}, Repeated<T>{number}));
    return zonStsOk;
}

// Whether an operand is one run. In 32 bits the size of an object whose rows overlap may overflow,
// so rows are looked at first.
template <class Block> inline bool isPacked(const Block &o, Shape shape, int32_t count)
{
    constexpr ptrdiff_t element = sizeof(typename Block::Value);
    if (o.stride2 != element)
        return false;
    if constexpr (Block::rank == 2)
        if (o.stride1 != shape.width * element)
            return false;
    if constexpr (Block::many)
        return count == 1 || o.stride0 == shape.width * element * shape.height;
    return true;
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
    return Tile<T>::serves(elements, count) &&
           areApart(dst, object * std::uintptr_t(count), single, object) && keepsOrder(dst, array);
}

// Objects with objects.
template <class Op, class T> [[gnu::noinline]] ZonStatus combineObjects(const Combination<T> &c)
{
    if ((gapsInside(c.a, c.width, c.height) | gapsInside(c.b, c.width, c.height) |
         gapsInside(c.dst, c.width, c.height)) == 0) {
        // Only now: in 32 bits the size of an object whose rows overlap may overflow.
        const ptrdiff_t elements = c.width * c.height, object = elements * ptrdiff_t(sizeof(T));
        const auto isPacked = [&](const auto &o) { return o.step == object; };
        const auto dst = c.dst(0);
        const auto a = c.a(0), b = c.b(0);
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
    combineSteps<Op, ObjectOperand<T>>(c);
    return zonStsOk;
}

// Objects with numbers.
template <class Op, class T> [[gnu::noinline]] ZonStatus combineConstants(const Combination<T> &c)
{
    combineSteps<Op, ConstantOperand<T>>(c);
    return zonStsOk;
}

// Element tables ---------------------------------------------------------------------------------

// How far the loops over an object go. Tables that are not transposed are one row.
struct Extents {
    ptrdiff_t width, height;

    explicit Extents(Shape s) : width(s.width), height(s.height) {}
    Extents joined() const
    {
        Extents row = *this;
        row.width *= height, row.height = 1;
        return row;
    }
};

// A number as a matrix that has it everywhere.
template <class T> struct Uniform {
    T value;
    T operator()(ptrdiff_t, ptrdiff_t) const { return value; }
};

template <class T> struct ScatteredCombination {
    Scattered<const T> a, b;
    Scattered<T> dst;
    ptrdiff_t width, height, count;
    bool readsWholeObjects; // the sources before the first store, a single one once for all
};

// Where the entries of a transposed object stand in its table, in the order of its rows.
struct TransposedEntries {
    std::uint8_t entry[largestUnrolled * largestUnrolled] = {};

    explicit constexpr TransposedEntries(int size)
    {
        for (int i = 0; i < size; ++i)
            for (int j = 0; j < size; ++j)
                entry[i * size + j] = std::uint8_t(j * size + i);
    }
};
inline constexpr TransposedEntries transposedEntries[] = {
    TransposedEntries(3), TransposedEntries(4), TransposedEntries(5), TransposedEntries(6)};

template <class Op, class T>
[[gnu::noinline]] ZonStatus combineWholeObjects(const ScatteredCombination<T> &call, ptrdiff_t size)
{
    const ScatteredCombination<T> c = call;
    const ptrdiff_t elements = size * size;
    T a[largestUnrolled * largestUnrolled], b[largestUnrolled * largestUnrolled];
    // A square of 3 to 6 is a number of fours, and one if it is odd.
    const auto forEach = [elements](auto f) ZONM_INLINED {
        if (elements % 2 != 0)
            f(0);
        for (ptrdiff_t e = elements % 2; e < elements; e += 4)
            unrolled<0, 4>([&](auto next) ZONM_INLINED { f(e + next); });
    };
    const auto read = [&](T *values, const ScatteredMatrix<const T> &object) ZONM_INLINED {
        const auto value = [&](ptrdiff_t entry) ZONM_INLINED {
            return load<T>(bytes(object.table[entry]) + object.offset);
        };
        const auto order = transposedEntries[size - smallestUnrolled].entry;
        if (object.columnPitch == 1)
            forEach([&](ptrdiff_t e) ZONM_INLINED { values[e] = value(e); });
        else
            forEach([&](ptrdiff_t e) ZONM_INLINED { values[e] = value(order[e]); });
    };
    for (ptrdiff_t k = 0; k < c.count; ++k) {
        if (k == 0 || c.a.step != 0)
            read(a, c.a(k));
        if (k == 0 || c.b.step != 0)
            read(b, c.b(k));
        const auto dst = c.dst(k);
        forEach([&](ptrdiff_t e) ZONM_INLINED {
            store(bytes(dst.table[e]) + dst.offset, Op::apply(a[e], b[e]));
        });
    }
    return zonStsOk;
}

template <class Op, class Dst, class A, class B>
inline void combineViews(const Dst &dst, const A &a, const B &b, ptrdiff_t width, ptrdiff_t height)
{
    for (ptrdiff_t i = 0; i < height; ++i)
        for (ptrdiff_t j = 0; j < width; ++j)
            dst.set(i, j, Op::apply(a(i, j), b(i, j)));
}

template <class Op, class T>
[[gnu::noinline]] ZonStatus combineScattered(const ScatteredCombination<T> &call)
{
    if (call.readsWholeObjects)
        return combineWholeObjects<Op>(call, call.height);
    const ScatteredCombination<T> c = call;
    for (ptrdiff_t k = 0; k < c.count; ++k)
        combineViews<Op>(c.dst(k), c.a(k), c.b(k), c.width, c.height);
    return zonStsOk;
}

template <class T> struct ScatteredConstantCombination {
    Scattered<const T> a;
    Placed<const T> b;
    Scattered<T> dst;
    ptrdiff_t width, height, count;
};

template <class Op, class T>
[[gnu::noinline]] ZonStatus combineScatteredConstants(const ScatteredConstantCombination<T> &call)
{
    const ScatteredConstantCombination<T> c = call;
    for (ptrdiff_t k = 0; k < c.count; ++k)
        combineViews<Op>(c.dst(k), c.a(k), Uniform<T>{load<T>(c.b(k))}, c.width, c.height);
    return zonStsOk;
}

// Each description
// ---------------------------------------------------------------------------------

// dst = a op c, with the constant on the right.
template <class Op, class A, class C, class D>
ZonStatus combineWithConstant(const A &a, const C &constants, const D &dst, Shape shape,
                              int32_t count)
{
    using T = typename D::Value;
    const auto [width, height] = shape;
    if constexpr (isElementTable<D>) {
        const auto [columns, rows] = A::transposed ? Extents(shape) : Extents(shape).joined();
        return combineScatteredConstants<Op>(
            ScatteredConstantCombination<T>{scattered(a, shape), Placed<const T>(constants),
                                            scattered(dst, shape), columns, rows, count});
    } else {
        if constexpr (D::description == Description::strided && !A::transposed && !C::many)
            if (isPacked(a, shape, count) && isPacked(dst, shape, count) &&
                keepsOrder(bytes(dst.base), bytes(a.base)))
                return combineRun<Op, T>(bytes(dst.base), bytes(a.base), constants.value,
                                         ptrdiff_t(width) * height * count);
        return combineConstants<Op>(Combination<T>{Placed<const T>(a), Placed<const T>(constants),
                                                   Placed<T>(dst), width, height, count});
    }
}

// dst = a op b.
template <class Op, class A, class B, class D>
ZonStatus combineWithObject(const A &a, const B &b, const D &dst, Shape shape, int32_t count,
                            bool readsWholeObjects = false)
{
    using T = typename D::Value;
    const auto [width, height] = shape;
    if constexpr (isElementTable<D>) {
        const auto [columns, rows] = A::transposed || B::transposed || readsWholeObjects
                                         ? Extents(shape)
                                         : Extents(shape).joined();
        return combineScattered<Op>(
            ScatteredCombination<T>{scattered(a, shape), scattered(b, shape), scattered(dst, shape),
                                    columns, rows, count, readsWholeObjects});
    } else {
        if constexpr (D::description == Description::strided && !A::transposed && !B::transposed)
            if ((A::many == B::many || count == 1) && isPacked(a, shape, count) &&
                isPacked(b, shape, count) && isPacked(dst, shape, count) &&
                keepsOrder(bytes(dst.base), bytes(a.base)) &&
                keepsOrder(bytes(dst.base), bytes(b.base)))
                return combineRun<Op, T>(bytes(dst.base), bytes(a.base), bytes(b.base),
                                         ptrdiff_t(width) * height * count);
        return combineObjects<Op>(Combination<T>{Placed<const T>(a), Placed<const T>(b),
                                                 Placed<T>(dst), width, height, count});
    }
}

} // namespace zonm
