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
// objects is said with masks instead of branches.
#pragma once

#include "frame/packs.hpp"
#include "frame/sizes.hpp"
#include "frame/square_root.hpp"

#include <bit>

namespace zonm
{

#if defined(ZONM_SSE2)

// Intrinsics, since a compiler that sees bits as integers regroups their operations, and moves
// numbers between the integer and the floating-point units.
inline constexpr int objectLanes = 2;
using LaneRegister = Doubles<objectLanes>;
using LaneIntegers = Pack<std::int64_t, objectLanes>;
using LaneRegisterBits = __m128d;

inline bool anySet(__m128d mask) { return _mm_movemask_pd(mask) != 0; }
inline __m128d largerMask(__m128d a, __m128d b) { return _mm_cmpgt_pd(a, b); }
inline __m128d notLargerMask(__m128d a, __m128d b) { return _mm_cmple_pd(a, b); }
inline __m128d rootsOf(__m128d a) { return _mm_sqrt_pd(a); }
inline __m128d largerOf(__m128d a, __m128d b) { return _mm_max_pd(a, b); }
inline __m128d bitAnd(__m128d a, __m128d b) { return _mm_and_pd(a, b); }
inline __m128d bitOr(__m128d a, __m128d b) { return _mm_or_pd(a, b); }
inline __m128d bitXor(__m128d a, __m128d b) { return _mm_xor_pd(a, b); }
inline __m128d bitAndNot(__m128d a, __m128d b) { return _mm_andnot_pd(b, a); }
template <class P> inline auto laneOf(const P &a, int l) { return a[l]; }

#else

inline constexpr int objectLanes = doublesPerRegister;
using LaneRegister = Doubles<objectLanes>;
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
inline LaneIntegers notLargerMask(LaneRegister a, LaneRegister b) { return a <= b; }
inline LaneRegister rootsOf(LaneRegister a)
{
    for (int l = 0; l < objectLanes; ++l)
        a[l] = squareRoot(a[l]);
    return a;
}
inline LaneRegister largerOf(LaneRegister a, LaneRegister b)
{
#if defined(ZONM_VECTORS)
    return a > b ? a : b;
#else
    for (int l = 0; l < objectLanes; ++l)
        a[l] = a[l] > b[l] ? a[l] : b[l];
    return a;
#endif
}
inline LaneIntegers bitAnd(LaneIntegers a, LaneIntegers b) { return a & b; }
inline LaneIntegers bitOr(LaneIntegers a, LaneIntegers b) { return a | b; }
inline LaneIntegers bitXor(LaneIntegers a, LaneIntegers b) { return a ^ b; }
inline LaneIntegers bitAndNot(LaneIntegers a, LaneIntegers b) { return a & ~b; }
template <class P> inline auto laneOf(const P &a, int l) { return a[l]; }

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
    ZONM_INLINED friend Lanes operator-(Lanes a) { return {-a.v}; }
    // False wherever one of the two is a NaN.
    ZONM_INLINED friend LaneBits operator>(Lanes a, Lanes b) { return {largerMask(a.v, b.v)}; }
    ZONM_INLINED friend LaneBits operator<(Lanes a, Lanes b) { return b > a; }
    ZONM_INLINED friend LaneBits operator<=(Lanes a, Lanes b) { return {notLargerMask(a.v, b.v)}; }

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

ZONM_INLINED inline Lanes squareRoot(Lanes a) { return {rootsOf(a.v)}; }

// The lanes of a register of two, exchanged.
ZONM_INLINED inline Lanes swapped(Lanes a) { return {LaneRegister{a.v[1], a.v[0]}}; }

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

// The elements of type T at the addresses at(0), at(1), ...: better for elements whose neighbours
// are not gathered beside them.
template <class T, class F> ZONM_INLINED inline Lanes gatherFrom(F at)
{
#if defined(ZONM_SSE2)
    if constexpr (sizeof(T) == sizeof(double))
        return {_mm_loadh_pd(_mm_set_sd(load<T>(at(0))), reinterpret_cast<const double *>(at(1)))};
#endif
    return gather([&](int lane) ZONM_INLINED { return load<T>(at(lane)); });
}

// What an element of type T holds after `a` is stored to it.
template <class T> ZONM_INLINED inline Lanes rounded(Lanes a)
{
    return {rounded<T, objectLanes>(a.v)};
}

// One lane as an element.
template <class T> ZONM_INLINED inline T element(Lanes a, int lane)
{
    return laneOf(narrowed<T, objectLanes>(a.v), lane);
}

} // namespace zonm
