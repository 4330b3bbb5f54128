// SPDX-License-Identifier: Apache-2.0
// Reductions: one number per object, dst[k] = finish(sum of the object's terms). A sum is a double,
// whatever the element type. Dense objects are taken several at a time: each lane of a register
// sums the terms of one object, in the order that it would take alone.
//
// A reduction brings
//   terms<W>(i, j, object...)   W neighbouring terms, in row i from column j on; vectors are rows
//   finish(sum)                 of a double or of a pack of them
//
// dst must not overlap a source: sources may be read at any time.
#pragma once

#include "frame/lanes.hpp"
#include "frame/objects.hpp"
#include "frame/square_root.hpp"
#include "products/orders.hpp"
#include "products/terms.hpp"
#include "zonm.h"

namespace zonm
{

using LaneSums = Doubles<objectLanes>;

inline LaneSums squareRoots(LaneSums x)
{
#if defined(ZONM_SSE2)
    return LaneSums(_mm_sqrt_pd(__m128d(x)));
#else
    for (int l = 0; l < objectLanes; ++l)
        x[l] = squareRoot(x[l]);
    return x;
#endif
}

// The square root of a sum of squares. Squares are never -0.0, so that a sum may begin with 0.0 or
// with its first term.
struct RootOfSquares {
    static double finish(double sum) { return squareRoot(sum); }
    static LaneSums finish(LaneSums sums) { return squareRoots(sums); }
};

// One object -----------------------------------------------------------------------------------

template <class R, int Rows, int Columns, Order O, class... Views>
ZONM_INLINED inline double reduceInOrder(const Views &...object)
{
    return R::finish(sumInOrder<O>([&](auto e) ZONM_INLINED {
        return R::template terms<1>(e / Columns, e % Columns, object...);
    }));
}

template <class R, class... Views>
ZONM_INLINED inline double reduceAscending(ptrdiff_t rows, ptrdiff_t columns,
                                           const Views &...object)
{
    double sum = 0;
    for (ptrdiff_t i = 0; i < rows; ++i)
        for (ptrdiff_t j = 0; j < columns; ++j)
            sum = sum + R::template terms<1>(i, j, object...);
    return R::finish(sum);
}

template <class R, class... Views>
ZONM_INLINED inline double reduceVector(int32_t len, const Order &order, const Views &...object)
{
    if (order.length == 0)
        return reduceAscending<R>(1, len, object...);
    return R::finish(
        sumInOrder(order, [&](int i) { return R::template terms<1>(0, i, object...); }));
}

// A vector of any length, in straight-line code if it is dense.
template <class R, const Orders &O, Layout L, class... Views>
ZONM_INLINED inline double reduceVector(int32_t len, const Views &...object)
{
    if constexpr (L == Layout::dense)
        return withSize(len, [&](auto n) ZONM_INLINED {
            if constexpr (n != 0)
                return reduceInOrder<R, 1, n, O[n]>(object...);
            else
                return reduceAscending<R>(1, len, object...);
        });
    else
        return reduceVector<R>(len, O[len], object...);
}

// Several objects ------------------------------------------------------------------------------

// Term (i, j) of the objects of one register, the first of them `place` behind object k.
template <class R, class... Objects>
ZONM_INLINED inline LaneSums termOfEach(ptrdiff_t k, int place, ptrdiff_t i, ptrdiff_t j,
                                        const Objects &...o)
{
    return gather([&](int l)
                      ZONM_INLINED { return R::template terms<1>(i, j, o(k, place + l)...); })
        .v;
}

// Terms (i, j) to (i, j + objectLanes - 1) of each.
template <class R, class... Objects>
ZONM_INLINED inline void termsOfEach(LaneSums (&t)[objectLanes], ptrdiff_t k, int place,
                                     ptrdiff_t i, ptrdiff_t j, const Objects &...o)
{
    unrolled<0, objectLanes>([&](auto l) ZONM_INLINED {
        t[l] = R::template terms<objectLanes>(i, j, o(k, place + l)...);
    });
    turn(t);
}

template <class R, int Rows, int Columns, Order O, class... Objects>
ZONM_INLINED inline LaneSums reduceTogether(ptrdiff_t k, const Objects &...o)
{
    constexpr int W = objectLanes;
    LaneSums term[Rows * Columns];
    unrolled<0, Rows>([&](auto i) ZONM_INLINED {
        unrolled<0, Columns / W>([&](auto pack) ZONM_INLINED {
            LaneSums t[W];
            termsOfEach<R>(t, k, 0, i, pack * W, o...);
            unrolled<0, W>([&](auto e) ZONM_INLINED { term[i * Columns + pack * W + e] = t[e]; });
        });
        unrolled<Columns / W * W, Columns>(
            [&](auto j) ZONM_INLINED { term[i * Columns + j] = termOfEach<R>(k, 0, i, j, o...); });
    });
    return R::finish(sumInOrder<O>([&](auto e) ZONM_INLINED { return term[e]; }));
}

// `Registers` of them, whose additions hide behind one another's.
template <class R, int Registers, class T, class... Objects>
ZONM_INLINED inline void reduceTogether(T *dst, ptrdiff_t k, ptrdiff_t rows, ptrdiff_t columns,
                                        const Objects &...o)
{
    constexpr int W = objectLanes;
    LaneSums sum[Registers];
    unrolled<0, Registers>([&](auto r) ZONM_INLINED { sum[r] = inAllLanes<W>(0.0); });
    for (ptrdiff_t i = 0; i < rows; ++i) {
        ptrdiff_t j = 0;
        for (; j + W <= columns; j += W)
            unrolled<0, Registers>([&](auto r) ZONM_INLINED {
                LaneSums t[W];
                termsOfEach<R>(t, k, r * W, i, j, o...);
                unrolled<0, W>([&](auto e) ZONM_INLINED { sum[r] = sum[r] + t[e]; });
            });
        for (; j < columns; ++j)
            unrolled<0, Registers>([&](auto r) ZONM_INLINED {
                sum[r] = sum[r] + termOfEach<R>(k, r * W, i, j, o...);
            });
    }
    unrolled<0, Registers>([&](auto r) ZONM_INLINED {
        storeDoubles<T, W>(bytes(dst + k + r * W), R::finish(sum[r]));
    });
}

// All objects ----------------------------------------------------------------------------------

// Object 0 may have an order of its own.
template <class R, int Rows, int Columns, Order First, Order Others, class T, class... Objects>
ZONM_INLINED inline void reduceAllInOrder(T *dst, int32_t count, const Objects &...o)
{
    ptrdiff_t k = 0;
    if constexpr (First != Others) {
        store<T>(bytes(dst), T(reduceInOrder<R, Rows, Columns, First>(o(0)...)));
        k = 1;
    }
    for (; k <= count - objectLanes; k += objectLanes)
        storeDoubles<T, objectLanes>(bytes(dst + k),
                                     reduceTogether<R, Rows, Columns, Others>(k, o...));
    for (; k < count; ++k)
        store<T>(bytes(dst + k), T(reduceInOrder<R, Rows, Columns, Others>(o(k)...)));
}

template <class R, class T, class... Objects>
[[gnu::noinline]] void reduceAllAscending(T *dst, ptrdiff_t rows, ptrdiff_t columns, int32_t count,
                                          const Objects &...source)
{
    const auto run = [=](const auto... o) ZONM_INLINED {
        constexpr int registers = 4;
        ptrdiff_t k = 0;
        for (; k <= count - registers * objectLanes; k += registers * objectLanes)
            reduceTogether<R, registers>(dst, k, rows, columns, o...);
        for (; k <= count - objectLanes; k += objectLanes)
            reduceTogether<R, 1>(dst, k, rows, columns, o...);
        for (; k < count; ++k)
            store<T>(bytes(dst + k), T(reduceAscending<R>(rows, columns, o(k)...)));
    };
    run(source...); // copies: a store into dst cannot change them
}

// Dense vectors of any length. Object 0 has an order of its own.
template <class R, bool Tables, const Orders &First, const Orders &Others, class T,
          class... Objects>
[[gnu::noinline]] void reduceDense(T *dst, int32_t len, int32_t count, const Objects &...source)
{
    withSize(len, [&](auto n) ZONM_INLINED {
        if constexpr (n != 0) {
            const auto run = [=](const auto... o) ZONM_INLINED {
                reduceAllInOrder<R, 1, n, First[n], Others[n]>(dst, count, o...);
            };
            if constexpr (Tables)
                run(source...);
            else
                run(withoutTable(source)...);
        } else {
            reduceAllAscending<R>(dst, 1, len, count, source...);
        }
    });
}

// Vectors of any layout, one after the other.
template <class R, class T, class... Objects>
[[gnu::noinline]] void reduceEach(T *dst, int32_t len, int32_t count, const Order &order,
                                  const Objects &...source)
{
    for (ptrdiff_t k = 0; k < count; ++k)
        store<T>(bytes(dst + k), T(reduceVector<R>(len, order, source(k)...)));
}

} // namespace zonm
