// SPDX-License-Identifier: Apache-2.0
// Solves A x = b with the factors and the pivots of an LU decomposition. With p = pivots,
// L(i, j) and U(i, j) stand at src1(p[i], j), and b(i) at src2(p[i]):
//
//   y(i) = b(i) - sum over j < i of L(i, j) y(j)
//   x(i) = (y(i) - sum over j > i of U(i, j) x(j)) / U(i, i)
//
//   sizes 3 to 6   y and x are kept in double and x is rounded once. Products are subtracted one by
//                  one, the nearest column first: j = i-1 down to 0 for y, i+1 up to N-1 for x.
//                  dst is written after all of src1 and src2 is read, so it may be src2. One matrix
//                  for many vectors (mva) is multiplied with the reciprocals of its diagonal.
//   other sizes    the sum is formed in ascending order of j, then subtracted. dst holds y, then x,
//                  each element rounded when it is stored; it must not be src2.
//
// Nothing is tested: a zero on the diagonal of U gives infinities or NaN, and pivots are taken as
// they are.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "solvers/substitution.hpp"

namespace zonm
{
namespace
{

using Pivots = DenseVector<const int32_t>;
using PivotRuns = decltype(runsOf<const int32_t>(nullptr, 0));

// Sizes 3 to 6 ---------------------------------------------------------------------------------

// Turns b, in the order of the pivots, into x, for R systems: numbers, or lanes of systems. Each
// row is done for all R before the next. `factor(r, i, j)` is that of system r.
template <int N, int R, class V, class Factor, class Divide>
ZONM_INLINED inline void substitute(V (&x)[R][N], Factor factor, Divide byDiagonal)
{
    unrolled<1, N>([&](auto i) ZONM_INLINED {
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            unrolledDown<i, 0>([&](auto j)
                                   ZONM_INLINED { x[r][i] = x[r][i] - factor(r, i, j) * x[r][j]; });
        });
    });
    unrolledDown<N, 0>([&](auto i) ZONM_INLINED {
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            unrolled<i + 1, N>([&](auto j)
                                   ZONM_INLINED { x[r][i] = x[r][i] - factor(r, i, j) * x[r][j]; });
            x[r][i] = byDiagonal(x[r][i], r, i);
        });
    });
}

// One object with a matrix of its own.
template <int N, class A, class B, class D>
[[gnu::noinline]] void solveOne(const A &a, Pivots pivots, const B &b, const D &dst)
{
    double x[1][N];
    unrolled<0, N>([&](auto i) ZONM_INLINED { x[0][i] = b(pivots(i)); });
    substitute(
        x, [&](auto, auto i, auto j) ZONM_INLINED { return double(a(pivots(i), j)); },
        [&](double s, auto, auto i) ZONM_INLINED { return s / a(pivots(i), i); });
    unrolled<0, N>([&](auto i) ZONM_INLINED { dst.set(i, typename D::Element(x[0][i])); });
}

// Every vector has a matrix of its own.
template <int N, class A, class B, class D>
[[gnu::noinline]] void solveOwn(const A &src1, const PivotRuns &pivots, const B &src2, const D &dst,
                                int32_t count)
{
    const auto together = [&](Group group) ZONM_INLINED {
        const auto a = viewsOf(src1, group);
        const auto b = viewsOf(src2, group);
        const auto p = viewsOf(pivots, group);
        Lanes factors[interleaved][N][N], x[interleaved][N];
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            unrolled<0, interleaved>([&](auto r) ZONM_INLINED {
                unrolled<0, N>([&](auto j) ZONM_INLINED {
                    factors[r][i][j] =
                        gather([&](int l) ZONM_INLINED { return a[r][l](p[r][l](i), j); });
                });
                x[r][i] = gather([&](int l) ZONM_INLINED { return b[r][l](p[r][l](i)); });
            });
        });
        substitute(
            x, [&](auto r, auto i, auto j) ZONM_INLINED { return factors[r][i][j]; },
            [&](Lanes s, auto r, auto i) ZONM_INLINED { return s / factors[r][i][i]; });
        const auto d = viewsOf(dst, group);
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { scatterVectors(x[r], d[r]); });
    };
    const auto one = [&](int32_t k) ZONM_INLINED {
        solveOne<N>(stridedView(src1(k)), pivots(k), stridedView(src2(k)), stridedView(dst(k)));
    };
    substituteGroups(count, std::tie(dst), std::tie(src1, src2, pivots), together, one);
}

// All vectors share one matrix, which is read before the first of them.
template <int N> struct SharedFactors {
    double factor[N][N]; // the rows in the order of the pivots
    double reciprocal[N];
    int32_t order[N];

    template <class A> SharedFactors(const A &a, Pivots pivots)
    {
        for (int i = 0; i < N; ++i) {
            order[i] = pivots(i);
            for (int j = 0; j < N; ++j)
                factor[i][j] = a(order[i], j);
            reciprocal[i] = 1 / factor[i][i];
        }
    }
};

template <int N, class B, class D>
[[gnu::noinline]] void solveWithShared(const SharedFactors<N> &a, const B &b, const D &dst)
{
    double x[1][N];
    unrolled<0, N>([&](auto i) ZONM_INLINED { x[0][i] = b(a.order[i]); });
    substitute(
        x, [&](auto, auto i, auto j) ZONM_INLINED { return a.factor[i][j]; },
        [&](double s, auto, auto i) ZONM_INLINED { return s * a.reciprocal[i]; });
    unrolled<0, N>([&](auto i) ZONM_INLINED { dst.set(i, typename D::Element(x[0][i])); });
}

template <int N, class B, class D>
[[gnu::noinline]] void solveShared(const SharedFactors<N> &shared, const B &src2, const D &dst,
                                   int32_t count)
{
    Lanes factors[N][N], reciprocals[N];
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j)
                           ZONM_INLINED { factors[i][j] = Lanes::all(shared.factor[i][j]); });
        reciprocals[i] = Lanes::all(shared.reciprocal[i]);
    });
    const auto together = [&](Group group) ZONM_INLINED {
        const auto b = viewsOf(src2, group);
        Lanes x[interleaved][N];
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            unrolled<0, interleaved>([&](auto r) ZONM_INLINED {
                x[r][i] = gather([&](int l) ZONM_INLINED { return b[r][l](shared.order[i]); });
            });
        });
        substitute(
            x, [&](auto, auto i, auto j) ZONM_INLINED { return factors[i][j]; },
            [&](Lanes s, auto, auto i) ZONM_INLINED { return s * reciprocals[i]; });
        const auto d = viewsOf(dst, group);
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { scatterVectors(x[r], d[r]); });
    };
    const auto one = [&](int32_t k) ZONM_INLINED {
        solveWithShared(shared, stridedView(src2(k)), stridedView(dst(k)));
    };
    substituteGroups(count, std::tie(dst), std::tie(src2), together, one);
}

// Other sizes ----------------------------------------------------------------------------------

template <class A, class B, class D>
void solveGeneralOne(const A &a, Pivots pivots, const B &b, const D &x, int32_t n)
{
    using T = typename D::Element;
    for (int32_t i = 0; i < n; ++i) {
        double s = 0;
        for (int32_t j = 0; j < i; ++j)
            s += double(a(pivots(i), j)) * x(j);
        x.set(i, T(b(pivots(i)) - s));
    }
    x.set(n - 1, T(double(x(n - 1)) / a(pivots(n - 1), n - 1)));
    for (int32_t i = n - 2; i >= 0; --i) {
        double s = 0;
        for (int32_t j = i + 1; j < n; ++j)
            s += double(a(pivots(i), j)) * x(j);
        x.set(i, T((x(i) - s) / a(pivots(i), i)));
    }
}

// The same for a group whose results are apart from all that it reads.
template <class A, class B, class D>
ZONM_INLINED inline void solveTogether(const A &a, const GroupViews<Pivots> &p, const B &b,
                                       const D &x, int32_t n)
{
    using T = typename std::remove_cvref_t<decltype(x[0][0])>::Element;
    const auto factor = [&](int r, int32_t i, int32_t j) ZONM_INLINED {
        return gatherFrom<T>([&](int l) ZONM_INLINED { return a[r][l].at(p[r][l](i), j); });
    };
    const auto known = [&](int r, int32_t j) ZONM_INLINED {
        return gatherFrom<T>([&](int l) ZONM_INLINED { return x[r][l].at(j); });
    };
    const auto set = [&](int r, int32_t i, Lanes value) ZONM_INLINED {
        unrolled<0, objectLanes>([&](auto l)
                                     ZONM_INLINED { x[r][l].set(i, element<T>(value, l)); });
    };
    Lanes s[interleaved];
    const auto sum = [&](int32_t i, int32_t from, int32_t to) ZONM_INLINED {
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED { s[r] = Lanes::all(0); });
        for (int32_t j = from; j < to; ++j)
            unrolled<0, interleaved>(
                [&](auto r) ZONM_INLINED { s[r] = s[r] + factor(r, i, j) * known(r, j); });
    };
    for (int32_t i = 0; i < n; ++i) {
        sum(i, 0, i);
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED {
            set(r, i,
                gatherFrom<T>([&](int l) ZONM_INLINED { return b[r][l].at(p[r][l](i)); }) - s[r]);
        });
    }
    for (int32_t i = n - 1; i >= 0; --i) {
        sum(i, i + 1, n);
        unrolled<0, interleaved>(
            [&](auto r) ZONM_INLINED { set(r, i, (known(r, i) - s[r]) / factor(r, i, i)); });
    }
}

template <class A, class B, class D>
[[gnu::noinline]] void solveGeneral(const A &src1, const PivotRuns &pivots, const B &src2,
                                    const D &dst, int32_t n, int32_t count)
{
    const bool ownMatrices = pivots.origins.step != 0;
    const ptrdiff_t matrix = ptrdiff_t(n) * n * ptrdiff_t(sizeof(typename D::Element));
    substituteGroupsInDst(
        count, !(ownMatrices && isStreamed(matrix, count)), dst, std::tie(src1, src2, pivots),
        [&](Group group) ZONM_INLINED {
            solveTogether(viewsOf(src1, group), viewsOf(pivots, group), viewsOf(src2, group),
                          viewsOf(dst, group), n);
        },
        [&](int32_t k) ZONM_INLINED {
            solveGeneralOne(stridedView(src1(k)), pivots(k), stridedView(src2(k)),
                            stridedView(dst(k)), n);
        });
}

// Bindings -------------------------------------------------------------------------------------

// Views are made here, from the arguments as they come in registers: handed on through memory they
// would cost as much as a small solve.
template <class A, class B, class D>
ZONM_INLINED inline ZonStatus solveObject(const A &src1, Pivots pivots, const B &src2, const D &dst,
                                          int32_t size)
{
    withSize(size, [&](auto n) ZONM_INLINED {
        if constexpr (n != 0)
            solveOne<n>(src1, pivots, src2, dst);
        else
            solveGeneralOne(src1, pivots, src2, dst, size);
    });
    return zonStsOk;
}

template <bool Shared, class A, class B, class D>
[[gnu::noinline]] ZonStatus solveObjects(const A &src1, const int32_t *pivots, const B &src2,
                                         const D &dst, int32_t size, int32_t count)
{
    const auto pivotRuns = runsOf(pivots, size, Shared ? 0 : size);
    withSize(size, [&](auto n) {
        // Dense rows pay where a large matrix is read for each vector.
        const auto a = stridedObjects(src1);
        const auto b = stridedObjects(src2);
        const auto d = stridedObjects(dst);
        if constexpr (n == 0)
            solveGeneral(a, pivotRuns, b, d, size, count);
        else if constexpr (Shared)
            solveShared<n>(SharedFactors<n>(a(0), pivotRuns(0)), b, d, count);
        else if constexpr (n <= 4)
            solveOwn<n>(a, pivotRuns, b, d, count);
        else
            solveOwn<n>(src1, pivotRuns, src2, dst, count);
    });
    return zonStsOk;
}

template <class A, class B, class D>
ZonStatus luBackSubstitute(const A &src1, const int32_t *pivots, const B &src2, const D &dst,
                           int32_t size, int32_t count)
{
    constexpr bool shared = B::many && !A::many;
    return withLayout(
        [&](auto layout) {
            if constexpr (D::many)
                return solveObjects<shared>(objects<layout>(src1, size, size), pivots,
                                            objects<layout>(src2, size), objects<layout>(dst, size),
                                            size, count);
            else
                return solveObject(onlyObject(src1, size, size), Pivots(bytes(pivots)),
                                   onlyObject(src2, size), onlyObject(dst, size), size);
        },
        src1, src2, dst);
}

} // namespace
} // namespace zonm

#include "solvers/generated/lu_back_subst.inc"
