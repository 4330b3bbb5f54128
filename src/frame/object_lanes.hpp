// SPDX-License-Identifier: Apache-2.0
// Several small objects at once: a lane of a vector register belongs to one object.
//
//   Lanes      a number of each of `objectLanes` objects, always a double
//   LaneBits   64 bits of each: the answer of a comparison (all ones or all zeros), an integer, or
//              the bits of a number
//   gather     the same element of every object, wherever each of them has it
//   unrolled   a loop over compile-time indices
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

#include <algorithm>
#include <array>
#include <bit>
#include <tuple>
#include <utility>

namespace zonm
{

#if defined(__GNUC__)

inline constexpr int objectLanes = registerBytes / int(sizeof(double));
using LaneRegister = Pack<double, objectLanes>;
using LaneIntegers = Pack<std::int64_t, objectLanes>;
// In 32-bit pieces: SSE2 compares no 64-bit integers, and a compiler that takes masks for such
// comparisons falls back to scalars.
using LaneRegisterBits = Pack<std::int32_t, 2 * objectLanes>;

inline LaneRegisterBits largerMask(LaneRegister a, LaneRegister b)
{
    return std::bit_cast<LaneRegisterBits>(a > b);
}
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

inline LaneRegisterBits largerMask(double a, double b) { return -std::int64_t(a > b); }
template <class T> inline T narrowed(double a) { return T(a); }
template <class T> inline double widened(T a) { return a; }
template <class T> inline T laneOf(T a, int) { return a; }

#endif

// Loops ----------------------------------------------------------------------------------------

template <int From, int Step, int... I, class F>
[[gnu::always_inline]] inline void unrolledOver(std::integer_sequence<int, I...>, F &body)
{
    (body(std::integral_constant<int, From + Step * I>{}), ...);
}

// body(From), ..., body(To - 1), each index a constant.
template <int From, int To, class F> [[gnu::always_inline]] inline void unrolled(F body)
{
    if constexpr (From < To)
        unrolledOver<From, 1>(std::make_integer_sequence<int, To - From>{}, body);
}

// body(From - 1), ..., body(To).
template <int From, int To, class F> [[gnu::always_inline]] inline void unrolledDown(F body)
{
    if constexpr (From > To)
        unrolledOver<From - 1, -1>(std::make_integer_sequence<int, From - To>{}, body);
}

// Values ---------------------------------------------------------------------------------------

struct LaneBits {
    LaneRegisterBits v;

    // The same integer in all lanes.
    [[gnu::always_inline]] static LaneBits all(std::int64_t value)
    {
        return {std::bit_cast<LaneRegisterBits>(value - LaneIntegers{})};
    }
    [[gnu::always_inline]] std::int64_t operator[](int lane) const
    {
        return laneOf(std::bit_cast<LaneIntegers>(v), lane);
    }
    // Whether a bit is set in any lane.
    [[gnu::always_inline]] bool any() const
    {
        std::int64_t found = 0;
        unrolled<0, objectLanes>([&](auto lane) { found |= (*this)[lane]; });
        return found != 0;
    }
    [[gnu::always_inline]] friend LaneBits operator&(LaneBits a, LaneBits b) { return {a.v & b.v}; }
    [[gnu::always_inline]] friend LaneBits operator|(LaneBits a, LaneBits b) { return {a.v | b.v}; }
    [[gnu::always_inline]] friend LaneBits operator^(LaneBits a, LaneBits b) { return {a.v ^ b.v}; }
    [[gnu::always_inline]] friend LaneBits operator~(LaneBits a) { return {~a.v}; }
};

struct Lanes {
    LaneRegister v;

    [[gnu::always_inline]] static Lanes all(double value) { return {value - LaneRegister{}}; }

    [[gnu::always_inline]] friend Lanes operator+(Lanes a, Lanes b) { return {a.v + b.v}; }
    [[gnu::always_inline]] friend Lanes operator-(Lanes a, Lanes b) { return {a.v - b.v}; }
    [[gnu::always_inline]] friend Lanes operator*(Lanes a, Lanes b) { return {a.v * b.v}; }
    [[gnu::always_inline]] friend Lanes operator/(Lanes a, Lanes b) { return {a.v / b.v}; }
    // False wherever one of the two is a NaN.
    [[gnu::always_inline]] friend LaneBits operator>(Lanes a, Lanes b)
    {
        return {largerMask(a.v, b.v)};
    }
    [[gnu::always_inline]] friend LaneBits operator<(Lanes a, Lanes b) { return b > a; }

    [[gnu::always_inline]] LaneBits bits() const { return {std::bit_cast<LaneRegisterBits>(v)}; }
    [[gnu::always_inline]] static Lanes ofBits(LaneBits a)
    {
        return {std::bit_cast<LaneRegister>(a.v)};
    }
    // The bits in which two numbers differ, and a number with such bits turned over.
    [[gnu::always_inline]] friend LaneBits operator^(Lanes a, Lanes b)
    {
        return a.bits() ^ b.bits();
    }
    [[gnu::always_inline]] friend Lanes operator^(Lanes a, LaneBits b)
    {
        return ofBits(a.bits() ^ b);
    }
};

[[gnu::always_inline]] inline Lanes abs(Lanes a)
{
    return Lanes::ofBits(a.bits() & LaneBits::all(0x7fffffffffffffff));
}
// a > b ? a : b, so b wherever one of the two is a NaN.
[[gnu::always_inline]] inline Lanes larger(Lanes a, Lanes b) { return {a.v > b.v ? a.v : b.v}; }

// a where the mask is set, else b.
[[gnu::always_inline]] inline Lanes select(LaneBits mask, Lanes a, Lanes b)
{
    return b ^ (mask & (a ^ b));
}

// The elements element(0), element(1), ... of the objects in the lanes.
template <class F> [[gnu::always_inline]] inline Lanes gather(F element)
{
    return [&]<int... L>(std::integer_sequence<int, L...>)
    {
        return Lanes{LaneRegister{double(element(L))...}};
    }
    (std::make_integer_sequence<int, objectLanes>{});
}

// What an element of type T holds after `a` is stored to it.
template <class T> [[gnu::always_inline]] inline Lanes rounded(Lanes a)
{
    if constexpr (sizeof(T) == sizeof(double))
        return a;
    else
        return {widened(narrowed<T>(a.v))};
}

// One lane as an element.
template <class T> [[gnu::always_inline]] inline T element(Lanes a, int lane)
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
    // That of objects anywhere in memory.
    static Extent everything() { return {0, ~std::uintptr_t(0)}; }
    template <class T> Extent(const T *p, std::size_t n) : begin(std::uintptr_t(p)), size(n) {}
    friend bool meet(Extent a, Extent b)
    {
        return (b.begin - a.begin < a.size) | (a.begin - b.begin < b.size);
    }
};

template <std::size_t A, std::size_t B>
[[gnu::always_inline]] inline bool anyMeet(const std::array<Extent, A> &a,
                                           const std::array<Extent, B> &b)
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
        return std::apply([=](auto &...o) { return std::array{o.extent(k)...}; }, objects);
    }
    auto all(int32_t count) const
    {
        return std::apply([=](auto &...o) { return std::array{o.wholeExtent(count)...}; }, objects);
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
[[gnu::always_inline]] inline bool forEachGroup(int32_t count, const Written &written,
                                                const Read &read, Together together, Single single)
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
// What a kernel over many objects needs of an operand: the view of object k, and its extent.
// Strided operands and object tables share one type, and so the instances of the kernels.

// Where object k begins, without a branch: a base is a table with one entry for all objects. It
// refers to its operand.
template <class T> struct Beginnings {
    T *const *table;
    ptrdiff_t entries; // a mask
    ptrdiff_t shift, step;

    template <class Block> explicit Beginnings(const Block &o)
    {
        if constexpr (Block::description == Description::objectTable) {
            table = o.table, entries = -1, shift = o.shift, step = 0;
        } else {
            table = &o.base, entries = 0, shift = 0, step = o.objects().step;
        }
    }
    Bytes<T> operator()(ptrdiff_t k) const
    {
        return bytes(table[k & entries]) + (shift + k * step);
    }
    Extent whole(std::size_t size, int32_t count) const
    {
        if (entries)
            return Extent::everything();
        return {(*this)(0), size + (count - 1) * std::size_t(step)};
    }
};

template <class T> struct DenseMatrices {
    using Value = T;
    Beginnings<T> objects;
    ptrdiff_t rowStep;
    std::size_t size;

    template <class Block>
    DenseMatrices(const Block &o, int32_t rows, int32_t columns)
        : objects(o), rowStep(o.rowStep()), size((rows - 1) * rowStep + columns * sizeof(T))
    {
    }
    DenseMatrix<T> operator()(ptrdiff_t k) const { return {objects(k), rowStep}; }
    Extent extent(ptrdiff_t k) const { return {objects(k), size}; }
    Extent wholeExtent(int32_t count) const { return objects.whole(size, count); }
};

template <class T> struct StridedMatrices {
    using Value = T;
    Beginnings<T> objects;
    ptrdiff_t rowStep, columnStep;
    std::size_t size;

    template <class Block>
    StridedMatrices(const Block &o, int32_t rows, int32_t columns)
        : objects(o), rowStep(o.rowStep()), columnStep(o.columnStep()),
          size((rows - 1) * rowStep + (columns - 1) * columnStep + sizeof(T))
    {
    }
    StridedMatrix<T> operator()(ptrdiff_t k) const { return {objects(k), rowStep, columnStep}; }
    Extent extent(ptrdiff_t k) const { return {objects(k), size}; }
    Extent wholeExtent(int32_t count) const { return objects.whole(size, count); }
};

template <class T> struct StridedVectors {
    using Value = T;
    Beginnings<T> objects;
    ptrdiff_t step;
    std::size_t size;

    template <class Block>
    StridedVectors(const Block &o, int32_t length)
        : objects(o), step(o.step()), size((length - 1) * step + sizeof(T))
    {
    }
    StridedVector<T> operator()(ptrdiff_t k) const { return {objects(k), step}; }
    Extent extent(ptrdiff_t k) const { return {objects(k), size}; }
    Extent wholeExtent(int32_t count) const { return objects.whole(size, count); }
};

// Runs of `length` integers back to back.
template <class I> struct IntegerRuns {
    I *base;
    ptrdiff_t length;

    I *operator()(ptrdiff_t k) const { return base + k * length; }
    Extent extent(ptrdiff_t k) const { return {(*this)(k), length * sizeof(I)}; }
    Extent wholeExtent(int32_t count) const { return {base, count * length * sizeof(I)}; }
};

// The elements of object 0 may lie anywhere; all objects have them in the same places.
template <class Block> struct Scattered : Block {
    using T = typename Block::Value;

    Scattered(const Block &o, int32_t rows, int32_t columns, int32_t count)
        : Block(o), width(columns),
          whole(count >= groupSize ? all(rows * ptrdiff_t(columns)) : Extent(0, 0))
    {
    }
    Scattered(const Block &o, int32_t length, int32_t count) : Scattered(o, 1, length, count) {}
    auto operator()(ptrdiff_t k) const
    {
        if constexpr (Block::rank == 2)
            return Block::object(k, width);
        else
            return Block::object(k);
    }
    // Of arrays that fill a group only.
    Extent extent(ptrdiff_t k) const { return {whole.begin + Block::offset(k), whole.size}; }
    Extent wholeExtent(int32_t count) const
    {
        return {extent(0).begin, whole.size + (count - 1) * std::size_t(Block::stride0)};
    }

  private:
    int32_t width;
    Extent whole;

    Extent all(ptrdiff_t elements) const
    {
        auto low = ~std::uintptr_t(0), high = std::uintptr_t(0);
        for (ptrdiff_t e = 0; e < elements; ++e) {
            low = std::min(low, std::uintptr_t(Block::table[e]));
            high = std::max(high, std::uintptr_t(Block::table[e]));
        }
        return {low, high - low + sizeof(T)};
    }
};

// The views of a group, those of one register after those of another.
template <class View> using GroupViews = std::array<std::array<View, objectLanes>, interleaved>;

template <class Objects>
[[gnu::always_inline]] inline auto views(const Objects &objects, Group group)
{
    return [&]<int... P>(std::integer_sequence<int, P...>)
    {
        return GroupViews<decltype(objects(0))>{objects(group[P])...};
    }
    (std::make_integer_sequence<int, groupSize>{});
}

} // namespace zonm
