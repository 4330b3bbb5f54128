// SPDX-License-Identifier: Apache-2.0
// LU decomposition with row pivoting. Rows never move: pivots[i] is the row of src and dst that is
// row i of the factors,
//
//   src(pivots[i], j) = sum over k <= i of L(i, k) U(k, j)
//   dst(pivots[i], j) = L(i, j) for j < i, U(i, j) for j >= i; the unit diagonal of L is not stored
//
// At step k the pivot is the element of largest magnitude in column k, the earliest of equals; a
// NaN never replaces another element, and stays if the search begins with it. Multipliers are
// products with 1/pivot. Every element takes its updates w(i, j) - L(i, k) U(k, j) in ascending
// order of k. All this in double; an element of 32f is rounded whenever it is stored.
//
// There are two paths with limits of their own, and both limits are absolute:
//
//   sizes 3 to 6   a pivot below `straightLimit` is singular; the exchange comes before the test.
//                  The last multiplier is a quotient. src is read whole before dst is written.
//   other sizes    a pivot at or below `generalLimit` is singular; the exchange comes behind it.
//                  The elimination runs in dst.
//
// dst may be src, with the same strides. An array ends at its first singular object.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "solvers/decompositions.hpp"
#include "solvers/pivoting.hpp"
#include "solvers/rows.hpp"

namespace zonm
{
namespace
{

template <class T> struct Limits {
    static constexpr double straight = sizeof(T) == 4 ? 0x1p-125 : 0x1p-1021; // singular below
    static constexpr double general = sizeof(T) == 4 ? 0x1p-23 : 0x1p-52;     // singular up to it
};

using Pivots = DenseVector<int32_t>;
using PivotRuns = decltype(runsOf<int32_t>(nullptr, 0));

inline void exchange(Pivots pivots, int32_t k, int32_t m)
{
    const int32_t row = pivots(k);
    pivots.set(k, pivots(m));
    pivots.set(m, row);
}

// Sizes 3 to 6 ---------------------------------------------------------------------------------

// Factors the objects of a register column by column: a column is read in the current order of the
// rows, takes all its updates, and yields the next pivot. Every element thus passes through the
// registers once, and an exchange concerns only what is left of L.
template <class T, int N> struct Elimination {
    Lanes factors[N][N]; // [column][row]
    LaneBits order[N];
    LaneBits singular = LaneBits::all(0);

    ZONM_INLINED Elimination()
    {
        unrolled<0, N>([&](auto i) ZONM_INLINED { order[i] = LaneBits::all(i); });
    }

    template <class Views, int J>
    ZONM_INLINED void column(const Views &a, std::integral_constant<int, J> j)
    {
        Lanes(&w)[N] = factors[J];
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            w[i] =
                gatherFrom<T>([&](int lane) ZONM_INLINED { return a[lane].at(order[i][lane], j); });
        });
        unrolled<0, J>([&](auto k) ZONM_INLINED {
            unrolled<k + 1, N>(
                [&](auto i) ZONM_INLINED { w[i] = rounded<T>(w[i] - factors[k][i] * w[k]); });
        });
        const LaneSearch<J, N> pivot(w);
        singular = singular | (pivot.magnitude < Lanes::all(Limits<T>::straight));
        pivot.exchange(order);
        unrolled<0, J + 1>([&](auto k) ZONM_INLINED { pivot.exchange(factors[k]); });
        if constexpr (J < N - 2) {
            const Lanes r = Lanes::all(1) / w[J];
            unrolled<J + 1, N>([&](auto i) ZONM_INLINED { w[i] = rounded<T>(w[i] * r); });
        } else if constexpr (J == N - 2) {
            w[N - 1] = rounded<T>(w[N - 1] / w[J]);
        }
    }

    template <class View> ZONM_INLINED void write(int lane, Pivots pivots, const View &dst) const
    {
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            const auto row = order[i][lane];
            pivots.set(i, int32_t(row));
            unrolled<0, N>([&](auto j)
                               ZONM_INLINED { dst.set(row, j, element<T>(factors[j][i], lane)); });
        });
    }
};

// Returns false, with nothing stored, if an object of the group is singular.
template <class T, int N, class A, class D>
ZONM_INLINED inline bool factorGroup(const A &src, const PivotRuns &pivots, const D &dst,
                                     Group group)
{
    const auto a = viewsOf(src, group);
    Elimination<T, N> elimination[interleaved];
    unrolled<0, N>([&](auto j) ZONM_INLINED {
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { elimination[r].column(a[r], j); });
    });
    LaneBits singular = LaneBits::all(0);
    unrolled<0, interleaved>([&](auto r)
                                 ZONM_INLINED { singular = singular | elimination[r].singular; });
    if (singular.any())
        return false;

    const auto d = viewsOf(dst, group);
    unrolled<0, groupSize>([&](auto place) ZONM_INLINED {
        constexpr int r = place / objectLanes, lane = place % objectLanes;
        elimination[r].write(lane, pivots(group.first, place), d[r][lane]);
    });
    return true;
}

// One object. What stands in dst and pivots of a singular one is told here.
template <class T, int N, class A, class D>
[[gnu::noinline]] ZonStatus factorOne(const A &src, Pivots pivots, const D &dst)
{
    T w[N][N];
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            w[i][j] = src(i, j);
    for (int i = 0; i < N; ++i)
        pivots.set(i, i);
    for (int k = 0; k < N; ++k) {
        int m = k;
        double best = std::fabs(double(w[pivots(k)][k]));
        for (int i = k + 1; i < N; ++i) {
            const double magnitude = std::fabs(double(w[pivots(i)][k]));
            m = magnitude > best ? i : m;
            best = magnitude > best ? magnitude : best;
        }
        exchange(pivots, k, m);
        if (best < Limits<T>::straight)
            return zonStsSingular;
        const int32_t row = pivots(k);
        const T(&u)[N] = w[row];
        for (int j = 0; j < N; ++j)
            dst.set(row, j, u[j]);
        const double r = 1 / double(u[k]);
        for (int i = k + 1; i < N; ++i) {
            T(&l)[N] = w[pivots(i)];
            l[k] = T(k < N - 2 ? l[k] * r : double(l[k]) / u[k]);
            for (int j = k + 1; j < N; ++j)
                l[j] = T(l[j] - double(l[k]) * u[j]);
        }
    }
    return zonStsOk;
}

template <class T, int N, class A, class D>
[[gnu::noinline]] ZonStatus factorStraight(const A &src, const PivotRuns &pivots, const D &dst,
                                           int32_t count)
{
    return decomposeGroups(
        count, std::tie(dst, pivots), std::tie(src),
        [&](Group group) ZONM_INLINED { return factorGroup<T, N>(src, pivots, dst, group); },
        [&](int32_t k) ZONM_INLINED {
            return factorOne<T, N>(stridedView(src(k)), pivots(k), stridedView(dst(k)));
        });
}

// Other sizes ----------------------------------------------------------------------------------

// Steps 0 to n-2, to the letter: rows may even overlap.
template <class T, class D> ZonStatus eliminate(Pivots pivots, const D &dst, int32_t n)
{
    for (int32_t k = 0; k < n - 1; ++k) {
        RowSearch pivot(k, dst(pivots(k), k));
        for (int32_t i = k + 1; i < n; ++i)
            pivot.visit(i, dst(pivots(i), k));
        if (pivot.best <= Limits<T>::general)
            return zonStsSingular;
        exchange(pivots, k, pivot.row);
        const double r = 1 / double(dst(pivots(k), k));
        for (int32_t i = k + 1; i < n; ++i)
            dst.set(pivots(i), k, T(dst(pivots(i), k) * r));
        for (int32_t i = k + 1; i < n; ++i)
            for (int32_t j = k + 1; j < n; ++j)
                dst.set(pivots(i), j,
                        T(dst(pivots(i), j) - double(dst(pivots(i), k)) * dst(pivots(k), j)));
    }
    return zonStsOk;
}

// The same for dense rows that are apart: row by row, with the search of the next step on the way.
template <class T> ZonStatus eliminateDense(Pivots pivots, const DenseMatrix<T> &dst, int32_t n)
{
    RowSearch pivot(0, dst(0, 0));
    for (int32_t i = 1; i < n; ++i)
        pivot.visit(i, dst(i, 0));
    for (int32_t k = 0; k < n - 1; ++k) {
        if (pivot.best <= Limits<T>::general)
            return zonStsSingular;
        exchange(pivots, k, pivot.row);
        const std::byte *pivotRow = dst.at(pivots(k), k + 1);
        const double r = 1 / double(dst(pivots(k), k));
        for (int32_t i = k + 1; i < n; ++i) {
            std::byte *row = dst.at(pivots(i), k + 1);
            const T factor = T(load<T>(row - sizeof(T)) * r);
            store<T>(row - sizeof(T), factor);
            subtractRow<T>(row, factor, pivotRow, n - k - 1);
            const T next = load<T>(row);
            if (i == k + 1)
                pivot = RowSearch(i, next);
            else
                pivot.visit(i, next);
        }
    }
    return zonStsOk;
}

template <class T, class A, class D>
ZonStatus factorInPlace(const A &src, Pivots pivots, const D &dst, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        pivots.set(i, i);
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j < n; ++j)
            dst.set(i, j, src(i, j));
    const auto eliminated = [&] {
        if constexpr (hasDenseRows<D>)
            return eliminateDense<T>(pivots, dst, n);
        else
            return eliminate<T>(pivots, dst, n);
    };
    if (eliminated() != zonStsOk)
        return zonStsSingular;
    const RowSearch last(n - 1, dst(pivots(n - 1), n - 1));
    return last.best <= Limits<T>::general ? zonStsSingular : zonStsOk;
}

template <class T, class A, class D>
[[gnu::noinline]] ZonStatus factorGeneral(const A &src, Pivots pivots, const D &dst, int32_t n)
{
    if constexpr (requires { dst.columnStep; })
        if (dst.columnStep == sizeof(T) && dst.rowStep >= n * dst.columnStep)
            return factorInPlace<T>(src, pivots, DenseMatrix<T>(dst.base, dst.rowStep), n);
    return factorInPlace<T>(src, pivots, dst, n);
}

// Bindings -------------------------------------------------------------------------------------

// Views are made here, from the arguments as they come in registers: handed on through memory they
// would cost as much as a small decomposition.
template <class A, class D>
ZONM_INLINED inline ZonStatus factorObject(const A &src, Pivots pivots, const D &dst, int32_t size)
{
    using T = typename D::Element;
    return withSize(size, [&](auto n) ZONM_INLINED {
        if constexpr (n != 0)
            return factorOne<T, n>(src, pivots, dst);
        else
            return factorGeneral<T>(src, pivots, dst, size);
    });
}

template <class A, class D>
[[gnu::noinline]] ZonStatus factorObjects(const A &src, int32_t *pivots, const D &dst, int32_t size,
                                          int32_t count)
{
    using T = typename D::Element;
    const auto pivotRuns = runsOf(pivots, size);
    return withSize(size, [&](auto n) {
        // Dense rows pay where the steps of strided ones no longer fit the registers.
        if constexpr (n != 0 && (n <= 4 || sizeof(T) == sizeof(float)))
            return factorStraight<T, n>(stridedObjects(src), pivotRuns, stridedObjects(dst), count);
        else if constexpr (n != 0)
            return factorStraight<T, n>(src, pivotRuns, dst, count);
        else
            return decomposeEach(count, [&](int32_t k) {
                return factorGeneral<T>(stridedView(src(k)), pivotRuns(k), stridedView(dst(k)),
                                        size);
            });
    });
}

template <class A, class D>
ZonStatus luDecompose(const A &src, int32_t *pivots, const D &dst, int32_t size, int32_t count)
{
    if constexpr (!D::many)
        return factorObject(onlyObject(src, size, size), Pivots(bytes(pivots)),
                            onlyObject(dst, size, size), size);
    else
        return withLayout(
            [&](auto layout) {
                return factorObjects(objects<layout>(src, size, size), pivots,
                                     objects<layout>(dst, size, size), size, count);
            },
            src, dst);
}

} // namespace
} // namespace zonm

#include "solvers/generated/lu_decomp.inc"
