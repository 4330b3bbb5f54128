// SPDX-License-Identifier: Apache-2.0
// Several small objects at once: a lane of a vector register belongs to one object.
//
//   Lanes      a number of each of `objectLanes` objects, always a double
//   LaneBits   64 bits of each: the answer of a comparison (all ones or all zeros), an integer, or
//              the bits of a number
//   gather     the same element of every object, wherever each of them has it
//
// A straight-line kernel written with these is a kernel over double with several results: lane l
// gets the very operations, in the very order, that object l alone would get. What differs between
// objects is said with masks instead of branches. Two things are the caller's to keep:
//
//   - Nothing may be stored before every object of the group has passed every test; a group that
//     holds a failure is done again by a scalar kernel, which alone knows the states of failure.
//   - A group reads all its objects before it writes the first. `forEachGroup` tests that this
//     cannot be told from one object after the other.
#pragma once

#include "frame/lanes.hpp"
#include "frame/operands.hpp"
#include "frame/unroll.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <tuple>
#include <utility>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zonm
{

#if defined(__SSE2__)

// Intrinsics, since a compiler that sees bits as integers regroups their operations, and moves
// numbers between the integer and the floating-point units.
inline constexpr int objectLanes = 2;
using LaneRegister = __m128d;
using LaneIntegers = Pack<std::int64_t, objectLanes>;
using LaneRegisterBits = __m128d;

inline bool anySet(__m128d mask) { return _mm_movemask_pd(mask) != 0; }
inline __m128d largerMask(__m128d a, __m128d b) { return _mm_cmpgt_pd(a, b); }
inline __m128d largerOf(__m128d a, __m128d b) { return _mm_max_pd(a, b); }
inline __m128d bitAnd(__m128d a, __m128d b) { return _mm_and_pd(a, b); }
inline __m128d bitOr(__m128d a, __m128d b) { return _mm_or_pd(a, b); }
inline __m128d bitXor(__m128d a, __m128d b) { return _mm_xor_pd(a, b); }
inline __m128d bitAndNot(__m128d a, __m128d b) { return _mm_andnot_pd(b, a); }
template <class T> inline auto narrowed(__m128d a)
{
    if constexpr (sizeof(T) == sizeof(double))
        return a;
    else
        return _mm_cvtpd_ps(a);
}
inline __m128d widened(__m128 a) { return _mm_cvtps_pd(a); }
template <class P> inline auto laneOf(const P &a, int l) { return a[l]; }

#elif defined(__GNUC__)

inline constexpr int objectLanes = registerBytes / int(sizeof(double));
using LaneRegister = Pack<double, objectLanes>;
using LaneIntegers = Pack<std::int64_t, objectLanes>;
using LaneRegisterBits = LaneIntegers;

inline bool anySet(LaneIntegers mask)
{
    std::int64_t found = 0;
    for (int l = 0; l < objectLanes; ++l)
        found |= mask[l];
    return found != 0;
}
inline LaneIntegers largerMask(LaneRegister a, LaneRegister b) { return a > b; }
inline LaneRegister largerOf(LaneRegister a, LaneRegister b) { return a > b ? a : b; }
inline LaneIntegers bitAnd(LaneIntegers a, LaneIntegers b) { return a & b; }
inline LaneIntegers bitOr(LaneIntegers a, LaneIntegers b) { return a | b; }
inline LaneIntegers bitXor(LaneIntegers a, LaneIntegers b) { return a ^ b; }
inline LaneIntegers bitAndNot(LaneIntegers a, LaneIntegers b) { return a & ~b; }
template <class T> inline auto narrowed(LaneRegister a)
{
    return __builtin_convertvector(a, Pack<T, objectLanes>);
}
template <class P> inline LaneRegister widened(P a)
{
    return __builtin_convertvector(a, LaneRegister);
}
template <class P> inline auto laneOf(const P &a, int l) { return a[l]; }

#else

inline constexpr int objectLanes = 1;
using LaneRegister = double;
using LaneIntegers = std::int64_t;
using LaneRegisterBits = std::int64_t;

inline bool anySet(std::int64_t mask) { return mask != 0; }
inline std::int64_t largerMask(double a, double b) { return -std::int64_t(a > b); }
inline double largerOf(double a, double b) { return a > b ? a : b; }
inline std::int64_t bitAnd(std::int64_t a, std::int64_t b) { return a & b; }
inline std::int64_t bitOr(std::int64_t a, std::int64_t b) { return a | b; }
inline std::int64_t bitXor(std::int64_t a, std::int64_t b) { return a ^ b; }
inline std::int64_t bitAndNot(std::int64_t a, std::int64_t b) { return a & ~b; }
template <class T> inline T narrowed(double a) { return T(a); }
template <class T> inline double widened(T a) { return a; }
template <class T> inline T laneOf(T a, int) { return a; }

#endif

// Values ---------------------------------------------------------------------------------------

struct LaneBits {
    LaneRegisterBits v;

    // The same integer in all lanes.
    ZONM_INLINED static LaneBits all(std::int64_t value)
    {
        return {std::bit_cast<LaneRegisterBits>(value - LaneIntegers{})};
    }
    ZONM_INLINED std::int64_t operator[](int lane) const
    {
        return laneOf(std::bit_cast<LaneIntegers>(v), lane);
    }
    // Whether a lane of a mask is set.
    ZONM_INLINED bool any() const { return anySet(v); }
    ZONM_INLINED friend LaneBits operator&(LaneBits a, LaneBits b) { return {bitAnd(a.v, b.v)}; }
    ZONM_INLINED friend LaneBits operator|(LaneBits a, LaneBits b) { return {bitOr(a.v, b.v)}; }
    ZONM_INLINED friend LaneBits operator^(LaneBits a, LaneBits b) { return {bitXor(a.v, b.v)}; }
    ZONM_INLINED friend LaneBits andNot(LaneBits a, LaneBits b) { return {bitAndNot(a.v, b.v)}; }
};

struct Lanes {
    LaneRegister v;

    ZONM_INLINED static Lanes all(double value) { return {value - LaneRegister{}}; }

    ZONM_INLINED friend Lanes operator+(Lanes a, Lanes b) { return {a.v + b.v}; }
    ZONM_INLINED friend Lanes operator-(Lanes a, Lanes b) { return {a.v - b.v}; }
    ZONM_INLINED friend Lanes operator*(Lanes a, Lanes b) { return {a.v * b.v}; }
    ZONM_INLINED friend Lanes operator/(Lanes a, Lanes b) { return {a.v / b.v}; }
    // False wherever one of the two is a NaN.
    ZONM_INLINED friend LaneBits operator>(Lanes a, Lanes b) { return {largerMask(a.v, b.v)}; }
    ZONM_INLINED friend LaneBits operator<(Lanes a, Lanes b) { return b > a; }

    ZONM_INLINED LaneBits bits() const { return {std::bit_cast<LaneRegisterBits>(v)}; }
    ZONM_INLINED static Lanes ofBits(LaneBits a) { return {std::bit_cast<LaneRegister>(a.v)}; }
    // The bits in which two numbers differ, and a number with such bits turned over.
    ZONM_INLINED friend LaneBits operator^(Lanes a, Lanes b) { return a.bits() ^ b.bits(); }
    ZONM_INLINED friend Lanes operator^(Lanes a, LaneBits b) { return ofBits(a.bits() ^ b); }
};

ZONM_INLINED inline Lanes abs(Lanes a)
{
    return Lanes::ofBits(a.bits() & LaneBits::all(0x7fffffffffffffff));
}
// a > b ? a : b, so b wherever one of the two is a NaN.
ZONM_INLINED inline Lanes larger(Lanes a, Lanes b) { return {largerOf(a.v, b.v)}; }

// The numbers element(0), element(1), ..., one for each lane. Compilers load rows that are gathered
// element by element in wider pieces.
template <class F> ZONM_INLINED inline Lanes gather(F element)
{
    return [&]<int... L>(std::integer_sequence<int, L...>) ZONM_INLINED
    {
        return Lanes{LaneRegister{double(element(L))...}};
    }
    (std::make_integer_sequence<int, objectLanes>{});
}

// The elements of type T at the addresses at(0), at(1), ...: better for elements that stand alone.
template <class T, class F> ZONM_INLINED inline Lanes gatherFrom(F at)
{
#if defined(__SSE2__)
    if constexpr (sizeof(T) == sizeof(double))
        return {_mm_loadh_pd(_mm_set_sd(load<T>(at(0))), reinterpret_cast<const double *>(at(1)))};
#endif
    return gather([&](int lane) ZONM_INLINED { return load<T>(at(lane)); });
}

// What an element of type T holds after `a` is stored to it.
template <class T> ZONM_INLINED inline Lanes rounded(Lanes a)
{
    if constexpr (sizeof(T) == sizeof(double))
        return a;
    else
        return {widened(narrowed<T>(a.v))};
}

// One lane as an element.
template <class T> ZONM_INLINED inline T element(Lanes a, int lane)
{
    return laneOf(narrowed<T>(a.v), lane);
}

// Groups ---------------------------------------------------------------------------------------

// A kernel takes its steps for several registers of objects in turn, so that the divisions and the
// searches of one hide behind those of the others.
inline constexpr int interleaved = 2;
inline constexpr int groupSize = interleaved * objectLanes;

// The objects `first`, ..., `first` + groupSize - 1.
struct Group {
    int32_t first;
    int32_t operator[](int place) const { return first + place; }
};

// The bytes from the first to the last element of an object.
struct Extent {
    std::uintptr_t begin, size;

    Extent(std::uintptr_t b, std::size_t n) : begin(b), size(n) {}
    template <class T> Extent(T *p, std::size_t n) : begin(std::uintptr_t(p)), size(n) {}
    friend bool meet(Extent a, Extent b)
    {
        return (b.begin - a.begin < a.size) | (a.begin - b.begin < b.size);
    }
};

template <std::size_t A, std::size_t B>
ZONM_INLINED inline bool anyMeet(const std::array<Extent, A> &a, const std::array<Extent, B> &b)
{
    bool met = false;
    for (const Extent x : a)
        for (const Extent y : b)
            met |= meet(x, y);
    return met;
}

// What a call writes, or what it reads, of its objects.
template <class... Objects> struct Covered {
    std::tuple<const Objects &...> objects;

    explicit Covered(const Objects &...o) : objects(o...) {}
    auto of(ptrdiff_t k) const
    {
        return std::apply([=](auto &...o) ZONM_INLINED { return std::array{o.extent(k)...}; },
                          objects);
    }
    auto all(int32_t count) const
    {
        return std::apply(
            [=](auto &...o) ZONM_INLINED { return std::array{o.wholeExtent(count)...}; }, objects);
    }
};

// Whether an object of the group writes what a later one reads.
template <class Written, class Read>
[[gnu::noinline]] bool groupMeets(Group group, const Written &written, const Read &read)
{
    bool met = false;
    for (int later = 1; later < groupSize; ++later)
        for (int earlier = 0; earlier < later; ++earlier)
            met |= anyMeet(written.of(group[earlier]), read.of(group[later]));
    return met;
}

// Runs over all objects, in groups where they are `apart`: where none writes what a later one of
// its group reads. `together(group)` returns false, with nothing stored, for a group that must be
// done again one by one; `single(k)` returns false to end the run. Within a group objects must be
// written one after the other, since what they write may meet.
template <class Written, class Read, class Together, class Single>
ZONM_INLINED inline bool forEachGroup(int32_t count, const Written &written, const Read &read,
                                      Together together, Single single)
{
    int32_t k = 0;
    if (count >= groupSize) {
        const bool apart = !anyMeet(written.all(count), read.all(count));
        for (; k <= count - groupSize; k += groupSize) {
            const Group group{k};
            if ((apart || !groupMeets(group, written, read)) && together(group)) [[likely]]
                continue;
            for (int place = 0; place < groupSize; ++place)
                if (!single(group[place]))
                    return false;
        }
    }
    for (; k < count; ++k)
        if (!single(k))
            return false;
    return true;
}

// Objects as views -----------------------------------------------------------------------------
//
// What a kernel over many objects needs of an operand: a view of object k, and the extents. Strided
// operands and object tables share one type, and so do arrays and single objects: kernels are
// instantiated per layout.

// From the lowest to the highest address in a table.
template <class T> Extent extentOf(T *const *table, ptrdiff_t entries)
{
    auto low = ~std::uintptr_t(0), high = std::uintptr_t(0);
    for (ptrdiff_t e = 0; e < entries; ++e) {
        low = std::min(low, std::uintptr_t(table[e]));
        high = std::max(high, std::uintptr_t(table[e]));
    }
    return {low, high - low};
}

// Strided objects and object tables. A base is a table with one entry for all objects, so that
// neither asks which of the two it is. Refers to the operand that it is made of.
template <class T> struct LocatedObjects {
    using Value = T;

    T *const *table;
    ptrdiff_t entries = 0; // a mask for indices
    ptrdiff_t shift = 0, step = 0;
    std::size_t size;

    template <class Block> LocatedObjects(const Block &o, std::size_t bytes) : size(bytes)
    {
        if constexpr (Block::description == Description::objectTable)
            table = o.table, entries = -1, shift = o.shift;
        else
            table = &o.base, step = o.objects().step;
    }
    Bytes<T> begin(ptrdiff_t k, int place) const
    {
        return bytes(table[(k + place) & entries]) + (shift + k * step + place * step);
    }
    Extent extent(ptrdiff_t k) const { return {begin(k, 0), size}; }
    // Whether it is certain that no object meets another.
    bool areApart() const { return !entries && std::size_t(step) >= size; }
    Extent wholeExtent(int32_t count) const
    {
        if (!entries)
            return {begin(0, 0), size + (count - 1) * std::size_t(step)};
        const Extent beginnings = extentOf(table, count);
        return {beginnings.begin + shift, beginnings.size + size};
    }
};

template <class T> struct DenseMatrices : LocatedObjects<T> {
    ptrdiff_t rowStep;

    template <class Block>
    DenseMatrices(const Block &o, int32_t rows, int32_t columns)
        : LocatedObjects<T>(o, (rows - 1) * o.rowStep() + columns * sizeof(T)), rowStep(o.rowStep())
    {
    }
    DenseMatrix<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return {this->begin(k, place), rowStep};
    }
};

template <class T> struct StridedMatrices : LocatedObjects<T> {
    ptrdiff_t rowStep, columnStep;

    template <class Block>
    StridedMatrices(const Block &o, int32_t rows, int32_t columns)
        : LocatedObjects<T>(o,
                            (rows - 1) * o.rowStep() + (columns - 1) * o.columnStep() + sizeof(T)),
          rowStep(o.rowStep()), columnStep(o.columnStep())
    {
    }
    StridedMatrix<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return {this->begin(k, place), rowStep, columnStep};
    }
};

template <class T> struct DenseVector : ElementAt<T> {
    Bytes<T> base;

    explicit DenseVector(Bytes<T> b) : base(b) {}
    Bytes<T> at(ptrdiff_t i) const { return base + i * ptrdiff_t(sizeof(T)); }
    auto operator()(ptrdiff_t i) const { return load<T>(at(i)); }
    void set(ptrdiff_t i, T value) const { store<T>(at(i), value); }
};

template <class T> struct DenseVectors : LocatedObjects<T> {
    template <class Block>
    DenseVectors(const Block &o, int32_t length) : LocatedObjects<T>(o, length * sizeof(T))
    {
    }
    DenseVector<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return DenseVector<T>(this->begin(k, place));
    }
};

template <class T> struct StridedVectors : LocatedObjects<T> {
    ptrdiff_t elementStep;

    template <class Block>
    StridedVectors(const Block &o, int32_t length)
        : LocatedObjects<T>(o, (length - 1) * o.step() + sizeof(T)), elementStep(o.step())
    {
    }
    StridedVector<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return {this->begin(k, place), elementStep};
    }
};

// Element tables: the elements of object 0 lie anywhere, those of object k k*step behind them.
template <class T> struct ScatteredObjects {
    using Value = T;

    T *const *table;
    ptrdiff_t shift, step;
    Extent first{0, 0}; // of object 0 without the shift; known where a group is filled

    template <class Block>
    ScatteredObjects(const Block &o, ptrdiff_t elements, int32_t count)
        : table(o.table), shift(o.shift), step(o.stride0)
    {
        if (count < groupSize)
            return;
        first = extentOf(table, elements);
        first.size += sizeof(T);
    }
    ptrdiff_t offset(ptrdiff_t k, int place) const { return shift + k * step + place * step; }
    Extent extent(ptrdiff_t k) const { return {first.begin + offset(k, 0), first.size}; }
    bool areApart() const { return std::size_t(step) >= first.size; }
    Extent wholeExtent(int32_t count) const
    {
        return {extent(0).begin, first.size + (count - 1) * std::size_t(step)};
    }
};

template <class T> struct ScatteredMatrices : ScatteredObjects<T> {
    ptrdiff_t width;

    template <class Block>
    ScatteredMatrices(const Block &o, int32_t rows, int32_t columns, int32_t count)
        : ScatteredObjects<T>(o, rows * ptrdiff_t(columns), count), width(columns)
    {
    }
    ScatteredMatrix<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return {this->table, this->offset(k, place), width, 1};
    }
};

template <class T> struct ScatteredVectors : ScatteredObjects<T> {
    template <class Block>
    ScatteredVectors(const Block &o, int32_t length, int32_t count)
        : ScatteredObjects<T>(o, length, count)
    {
    }
    ScatteredVector<T> operator()(ptrdiff_t k, int place = 0) const
    {
        return {this->table, this->offset(k, place)};
    }
};

// Runs of `length` integers back to back, or with a step of 0 the same one for every object.
template <class I> struct IntegerRuns {
    I *base;
    ptrdiff_t length, step = length;

    DenseVector<I> operator()(ptrdiff_t k, int place = 0) const
    {
        return DenseVector<I>(bytes(base) + (k * step + place * step) * ptrdiff_t(sizeof(I)));
    }
    Extent extent(ptrdiff_t k) const { return {(*this)(k).base, length * sizeof(I)}; }
    Extent wholeExtent(int32_t count) const
    {
        return {base, ((count - 1) * step + length) * sizeof(I)};
    }
};

// One object as scalar kernels take it, which are not instantiated for dense layouts.
template <class T> inline StridedMatrix<T> plainView(DenseMatrix<T> m)
{
    return {m.base, m.rowStep, sizeof(T)};
}
template <class T> inline StridedVector<T> plainView(DenseVector<T> v)
{
    return {v.base, sizeof(T)};
}
template <class View> inline View plainView(View v) { return v; }

// The view of an operand of one object.
template <class Block> inline auto onlyObject(const Block &o, int32_t columns)
{
    using T = typename Block::Value;
    if constexpr (isElementTable<Block> && Block::rank == 2)
        return o.object(0, columns);
    else if constexpr (isElementTable<Block>)
        return o.object(0);
    else if constexpr (Block::rank == 2)
        return StridedMatrix<T>(bytes(o.base), o.rowStep(), o.columnStep());
    else
        return StridedVector<T>(bytes(o.base), o.step());
}

// The views of a group, those of one register after those of another.
template <class View> using GroupViews = std::array<std::array<View, objectLanes>, interleaved>;

template <class Objects> ZONM_INLINED inline auto views(const Objects &objects, Group group)
{
    using View = decltype(objects(0));
    const auto ofRegister = [&]<int... L>(int r, std::integer_sequence<int, L...>) ZONM_INLINED
    {
        return std::array<View, objectLanes>{objects(group.first, r * objectLanes + L)...};
    };
    return [&]<int... R>(std::integer_sequence<int, R...>) ZONM_INLINED
    {
        constexpr std::make_integer_sequence<int, objectLanes> lanes;
        return GroupViews<View>{ofRegister(R, lanes)...};
    }
    (std::make_integer_sequence<int, interleaved>{});
}

} // namespace zonm
