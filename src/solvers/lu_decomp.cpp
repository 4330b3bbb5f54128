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
#include "frame/object_lanes.hpp"

#include <cmath>

namespace zonm
{
namespace
{

template <class T> inline constexpr double straightLimit = sizeof(T) == 4 ? 0x1p-125 : 0x1p-1021;
template <class T> inline constexpr double generalLimit = sizeof(T) == 4 ? 0x1p-23 : 0x1p-52;

using Pivots = DenseVector<int32_t>;

inline void exchange(Pivots pivots, int32_t k, int32_t m)
{
    const int32_t row = pivots(k);
    pivots.set(k, pivots(m));
    pivots.set(m, row);
}

// Sizes 3 to 6 ---------------------------------------------------------------------------------

// The pivot of step K in every lane: `isRow[i]` is set where row i is to change places with row K.
template <int K, int N> struct PivotSearch {
    LaneBits isRow[N];
    Lanes magnitude;

    ZONM_INLINED explicit PivotSearch(const Lanes (&column)[N]) : magnitude(abs(column[K]))
    {
        unrolled<K + 1, N>([&](auto i) ZONM_INLINED {
            const Lanes best = larger(abs(column[i]), magnitude);
            isRow[i] = best > magnitude;
            magnitude = best;
        });
        // Of the rows that were largest so far, the last one was largest of all.
        LaneBits later = LaneBits::all(0);
        unrolledDown<N, K + 1>([&](auto i) ZONM_INLINED {
            const LaneBits larger = isRow[i];
            isRow[i] = andNot(larger, later);
            later = later | larger;
        });
    }

    // All rows compare with the old row K, so that they need not wait for one another.
    template <class V> ZONM_INLINED void exchange(V (&row)[N]) const
    {
        const V old = row[K];
        unrolled<K + 1, N>([&](auto i) ZONM_INLINED {
            const LaneBits difference = isRow[i] & (old ^ row[i]);
            row[i] = row[i] ^ difference;
            row[K] = row[K] ^ difference;
        });
    }
};

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
        const PivotSearch<J, N> pivot(w);
        singular = singular | (pivot.magnitude < Lanes::all(straightLimit<T>));
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
ZONM_INLINED inline bool factorGroup(const A &src, const IntegerRuns<int32_t> &pivots, const D &dst,
                                     Group group)
{
    const auto a = views(src, group);
    Elimination<T, N> elimination[interleaved];
    unrolled<0, N>([&](auto j) ZONM_INLINED {
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { elimination[r].column(a[r], j); });
    });
    LaneBits singular = LaneBits::all(0);
    unrolled<0, interleaved>([&](auto r)
                                 ZONM_INLINED { singular = singular | elimination[r].singular; });
    if (singular.any())
        return false;

    const auto d = views(dst, group);
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
        if (best < straightLimit<T>)
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
[[gnu::noinline]] ZonStatus factorStraight(const A &src, int32_t *pivots, const D &dst,
                                           int32_t count)
{
    ZonStatus status = zonStsOk;
    const IntegerRuns<int32_t> pivotsOf{pivots, N};
    forEachGroup(
        count, Covered(dst, pivotsOf), Covered(src),
        [&](Group group) ZONM_INLINED { return factorGroup<T, N>(src, pivotsOf, dst, group); },
        [&](int32_t k) ZONM_INLINED {
            status = factorOne<T, N>(plainView(src(k)), pivotsOf(k), plainView(dst(k)));
            return status == zonStsOk;
        });
    return status;
}

// Other sizes ----------------------------------------------------------------------------------

// Finds the pivot of a column, one row after the other.
struct RowSearch {
    int32_t row;
    double best;

    RowSearch(int32_t i, double first) : row(i), best(std::fabs(first)) {}
    void visit(int32_t i, double element)
    {
        const double magnitude = std::fabs(element);
        row = magnitude > best ? i : row;
        best = magnitude > best ? magnitude : best;
    }
    bool isSingular(double limit) const { return best <= limit; }
};

// Steps 0 to n-2, to the letter: rows may even overlap.
template <class T, class D> ZonStatus eliminate(Pivots pivots, const D &dst, int32_t n)
{
    for (int32_t k = 0; k < n - 1; ++k) {
        RowSearch pivot(k, dst(pivots(k), k));
        for (int32_t i = k + 1; i < n; ++i)
            pivot.visit(i, dst(pivots(i), k));
        if (pivot.isSingular(generalLimit<T>))
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

// row[j] -= factor * pivot[j] for j = 0 .. n-1.
template <class T>
inline void subtractRow(std::byte *__restrict row, double factor, const std::byte *__restrict pivot,
                        int32_t n)
{
    constexpr ptrdiff_t size = sizeof(T);
    ptrdiff_t j = 0;
    if constexpr (sizeof(T) == sizeof(double)) {
        using Two = Pack<double, 2>;
        const Two factors{factor, factor};
        for (; j <= n - 2; j += 2)
            storePack(row + j * size, loadPack<double, 2>(row + j * size) -
                                          factors * loadPack<double, 2>(pivot + j * size));
    }
    for (; j < n; ++j)
        store<T>(row + j * size,
                 T(load<T>(row + j * size) - factor * double(load<T>(pivot + j * size))));
}

// The same for dense rows that are apart: row by row, with the search of the next step on the way.
template <class T> ZonStatus eliminateDense(Pivots pivots, const DenseMatrix<T> &dst, int32_t n)
{
    RowSearch pivot(0, dst(0, 0));
    for (int32_t i = 1; i < n; ++i)
        pivot.visit(i, dst(i, 0));
    for (int32_t k = 0; k < n - 1; ++k) {
        if (pivot.isSingular(generalLimit<T>))
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
        if constexpr (std::is_same_v<D, DenseMatrix<T>>)
            if (dst.rowStep >= n * ptrdiff_t(sizeof(T)))
                return eliminateDense<T>(pivots, dst, n);
        return eliminate<T>(pivots, dst, n);
    };
    if (eliminated() != zonStsOk)
        return zonStsSingular;
    const RowSearch last(n - 1, dst(pivots(n - 1), n - 1));
    return last.isSingular(generalLimit<T>) ? zonStsSingular : zonStsOk;
}

template <class T, class A, class D>
[[gnu::noinline]] ZonStatus factorGeneral(const A &src, int32_t *pivots, const D &dst, int32_t n,
                                          int32_t count)
{
    const IntegerRuns<int32_t> pivotsOf{pivots, n};
    for (int32_t k = 0; k < count; ++k) {
        const ZonStatus status = factorInPlace<T>(src(k), pivotsOf(k), dst(k), n);
        if (status != zonStsOk)
            return status;
    }
    return zonStsOk;
}

// Bindings -------------------------------------------------------------------------------------

template <class T, class A, class D>
ZonStatus factorAll(const A &src, int32_t *pivots, const D &dst, int32_t n, int32_t count)
{
    switch (n) {
    case 3: return factorStraight<T, 3>(src, pivots, dst, count);
    case 4: return factorStraight<T, 4>(src, pivots, dst, count);
    case 5: return factorStraight<T, 5>(src, pivots, dst, count);
    case 6: return factorStraight<T, 6>(src, pivots, dst, count);
    default: return factorGeneral<T>(src, pivots, dst, n, count);
    }
}

template <class T, class A, class D>
ZonStatus factorSingle(const A &src, Pivots pivots, const D &dst, int32_t n)
{
    switch (n) {
    case 3: return factorOne<T, 3>(src, pivots, dst);
    case 4: return factorOne<T, 4>(src, pivots, dst);
    case 5: return factorOne<T, 5>(src, pivots, dst);
    case 6: return factorOne<T, 6>(src, pivots, dst);
    default: return factorInPlace<T>(src, pivots, dst, n);
    }
}

template <class A, class D>
ZonStatus luDecompose(const A &src, int32_t *pivots, const D &dst, int32_t size, int32_t count)
{
    using T = typename D::Value;
    if constexpr (!D::many) {
        if constexpr (!isElementTable<A>)
            if (size > 6 && dst.isDense())
                return factorInPlace<T>(onlyObject(src, size), Pivots(bytes(pivots)),
                                        DenseMatrix<T>(bytes(dst.base), dst.rowStep()), size);
        return factorSingle<T>(onlyObject(src, size), Pivots(bytes(pivots)), onlyObject(dst, size),
                               size);
    } else if constexpr (isElementTable<A>)
        return factorAll<T>(ScatteredMatrices<const T>(src, size, size, count), pivots,
                            ScatteredMatrices<T>(dst, size, size, count), size, count);
    else if (src.isDense() && dst.isDense())
        return factorAll<T>(DenseMatrices<const T>(src, size, size), pivots,
                            DenseMatrices<T>(dst, size, size), size, count);
    else
        return factorAll<T>(StridedMatrices<const T>(src, size, size), pivots,
                            StridedMatrices<T>(dst, size, size), size, count);
}

} // namespace
} // namespace zonm

#include "solvers/generated/lu_decomp.inc"
