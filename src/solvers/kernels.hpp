// SPDX-License-Identifier: Apache-2.0
// What lets a kernel be written once: over `double` for one object or over `GroupDouble` for all of
// a group, in loops of constant length, which are unrolled, or of run-time length.
//
// A kernel's matrix has element access m(i, j), in the working type, and m.set(i, j, value), where
// the value is one that an element can hold.
#pragma once

#include "frame/groups.hpp"

namespace zonm
{

// Loops ----------------------------------------------------------------------------------------

template <int N> inline constexpr std::integral_constant<int, N> constant{};

// The index behind i: a constant if i is one.
template <int I> constexpr auto next(std::integral_constant<int, I>) { return constant<I + 1>; }
constexpr int32_t next(int32_t i) { return i + 1; }

// body(from), ..., body(to - 1).
template <int From, int To, class F>
ZONM_INLINED inline void ascending(std::integral_constant<int, From>,
                                   std::integral_constant<int, To>, F body)
{
    unrolled<From, To>(body);
}
template <class F> ZONM_INLINED inline void ascending(int32_t from, int32_t to, F body)
{
    for (int32_t i = from; i < to; ++i)
        body(i);
}

// body(0), ..., body(to - 1), until one returns false; returns how many returned true.
template <int To, class F>
ZONM_INLINED inline int32_t whileTrue(std::integral_constant<int, To>, F body)
{
    int32_t passed = 0;
    [&]<int... I>(std::integer_sequence<int, I...>) ZONM_INLINED
    {
        (void)(... && (body(constant<I>) && (++passed, true)));
    }
    (std::make_integer_sequence<int, To>{});
    return passed;
}
template <class F> ZONM_INLINED inline int32_t whileTrue(int32_t to, F body)
{
    for (int32_t i = 0; i < to; ++i)
        if (!body(i))
            return i;
    return to;
}

// f(size) with the order of a square matrix of size 3 to 6 as a constant, otherwise 0.
template <class F> ZONM_INLINED inline auto withSquareSize(Shape shape, F f)
{
    return withSize(shape.width == shape.height ? shape.width : 0, f);
}

// Numbers --------------------------------------------------------------------------------------

// A number of every object of a group.
struct GroupDouble {
    Lanes of[interleaved];

    GroupDouble() = default;
    ZONM_INLINED explicit GroupDouble(double x)
    {
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { of[r] = Lanes::all(x); });
    }
    // register(0), register(1), ...
    template <class F> ZONM_INLINED static GroupDouble each(F register_)
    {
        GroupDouble x;
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { x.of[r] = register_(r); });
        return x;
    }
    ZONM_INLINED friend GroupDouble operator+(const GroupDouble &a, const GroupDouble &b)
    {
        return each([&](auto r) ZONM_INLINED { return a.of[r] + b.of[r]; });
    }
    ZONM_INLINED friend GroupDouble operator-(const GroupDouble &a, const GroupDouble &b)
    {
        return each([&](auto r) ZONM_INLINED { return a.of[r] - b.of[r]; });
    }
    ZONM_INLINED friend GroupDouble operator*(const GroupDouble &a, const GroupDouble &b)
    {
        return each([&](auto r) ZONM_INLINED { return a.of[r] * b.of[r]; });
    }
    ZONM_INLINED friend GroupDouble operator/(const GroupDouble &a, const GroupDouble &b)
    {
        return each([&](auto r) ZONM_INLINED { return a.of[r] / b.of[r]; });
    }
    ZONM_INLINED friend GroupDouble squareRoot(const GroupDouble &a)
    {
        return each([&](auto r) ZONM_INLINED { return squareRoot(a.of[r]); });
    }
};

// What an element of type T holds after `a` is stored to it.
template <class T> ZONM_INLINED inline double rounded(double a) { return rounded<T, 1>(a); }
template <class T> ZONM_INLINED inline GroupDouble rounded(const GroupDouble &a)
{
    return GroupDouble::each([&](auto r) ZONM_INLINED { return rounded<T>(a.of[r]); });
}

// a where b is positive, otherwise (zero and NaN included) -a.
ZONM_INLINED inline double signedLike(double a, double b) { return b > 0 ? a : -a; }
ZONM_INLINED inline GroupDouble signedLike(const GroupDouble &a, const GroupDouble &b)
{
    return GroupDouble::each([&](auto r) ZONM_INLINED {
        const LaneBits isPositive = b.of[r] > Lanes::all(0);
        return a.of[r] ^ andNot(LaneBits::all(INT64_MIN), isPositive);
    });
}

// Whether the number of any object is below the limit, or at most the limit. A NaN is neither.
ZONM_INLINED inline bool anyBelow(double a, double limit) { return a < limit; }
ZONM_INLINED inline bool anyAtMost(double a, double limit) { return a <= limit; }
ZONM_INLINED inline bool anyBelow(const GroupDouble &a, double limit)
{
    LaneBits found = LaneBits::all(0);
    unrolled<0, interleaved>([&](auto r)
                                 ZONM_INLINED { found = found | (a.of[r] < Lanes::all(limit)); });
    return found.any();
}
ZONM_INLINED inline bool anyAtMost(const GroupDouble &a, double limit)
{
    LaneBits found = LaneBits::all(0);
    unrolled<0, interleaved>([&](auto r)
                                 ZONM_INLINED { found = found | (a.of[r] <= Lanes::all(limit)); });
    return found.any();
}

// Matrices -------------------------------------------------------------------------------------

// A small square matrix in the function's own frame.
template <class V, int N> struct LocalMatrix {
    V element[N][N];

    ZONM_INLINED const V &operator()(int i, int j) const { return element[i][j]; }
    ZONM_INLINED void set(int i, int j, const V &value) { element[i][j] = value; }
};

// Rows of run-time length, one behind the other in memory that somebody else has.
template <class V> struct BorrowedMatrix {
    V *elements;
    int32_t columns;

    ZONM_INLINED const V &operator()(int32_t i, int32_t j) const
    {
        return elements[i * columns + j];
    }
    ZONM_INLINED void set(int32_t i, int32_t j, const V &value) const
    {
        elements[i * columns + j] = value;
    }
};

template <class V> struct BorrowedVector {
    V *elements;

    ZONM_INLINED const V &operator()(int32_t i) const { return elements[i]; }
    ZONM_INLINED void set(int32_t i, const V &value) const { elements[i] = value; }
};

// A view whose elements are widened when they are read and narrowed when they are written.
template <class View> struct Widened {
    using T = typename View::Element;
    View view;

    ZONM_INLINED double operator()(ptrdiff_t i, ptrdiff_t j) const { return view(i, j); }
    ZONM_INLINED double operator()(ptrdiff_t i) const { return view(i); }
    ZONM_INLINED void set(ptrdiff_t i, ptrdiff_t j, double x) const { view.set(i, j, T(x)); }
    ZONM_INLINED void set(ptrdiff_t i, double x) const { view.set(i, T(x)); }
};
template <class View> Widened(View) -> Widened<View>;

// An element of every object of a group, and back into one object.
template <class View, class At>
ZONM_INLINED inline GroupDouble gathered(const GroupViews<View> &views, At at)
{
    return GroupDouble::each([&](auto r) ZONM_INLINED {
        return gather([&](int lane) ZONM_INLINED { return at(views[r][lane]); });
    });
}
// Better for elements whose neighbours are not gathered beside them.
template <class View, class At>
ZONM_INLINED inline GroupDouble gatheredFrom(const GroupViews<View> &views, At at)
{
    return GroupDouble::each([&](auto r) ZONM_INLINED {
        return gatherFrom<typename View::Element>([&](int lane)
                                                      ZONM_INLINED { return at(views[r][lane]); });
    });
}

// store(view, element(x)) for the objects of a group one after the other, where `element` picks the
// object's part of a GroupDouble and narrows it.
template <class View, class Store>
ZONM_INLINED inline void scatterGroup(const GroupViews<View> &views, Store store)
{
    unrolled<0, groupSize>([&](auto place) ZONM_INLINED {
        constexpr int r = place / objectLanes, lane = place % objectLanes;
        store(views[r][lane], [](const GroupDouble &x) ZONM_INLINED {
            return element<typename View::Element>(x.of[r], lane);
        });
    });
}

} // namespace zonm
