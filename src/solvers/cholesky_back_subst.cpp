// SPDX-License-Identifier: Apache-2.0
// Solves A x = b with the factor of a Cholesky decomposition, whose diagonal holds the reciprocals
// d(i) = 1 / L(i, i):
//
//   y(i) = (b(i) - sum over j < i of L(i, j) y(j)) d(i)
//   x(i) = (y(i) - sum over j > i of L(j, i) x(j)) d(i)
//
// Products are subtracted one by one: for y in ascending order of j, for x in descending order, so
// that the element that was found last comes last; but at size 3 x subtracts in ascending order.
//
//   sizes 3 to 6   y and x are kept in double and x is rounded once. dst is written after all of
//                  src1 and src2 is read.
//   other sizes    dst holds y, then x, each element rounded when it is stored.
//
// All forms share these orders, and in all of them dst may be src2, with the same layout. Nothing
// is divided and nothing is tested; the upper triangle of src1 is not read.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "solvers/kernels.hpp"
#include "solvers/substitution.hpp"

namespace zonm
{
namespace
{

struct Exceptions {
    // The order in which x subtracts.
    static constexpr bool nearestFirst(int n) { return n == 3; }
};

// Turns b into x, in double.
template <int N, class V, class L> ZONM_INLINED inline void substitute(const L &l, V (&x)[N])
{
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, i>([&](auto j) ZONM_INLINED { x[i] = x[i] - l(i, j) * x[j]; });
        x[i] = x[i] * l(i, i);
    });
    unrolledDown<N, 0>([&](auto i) ZONM_INLINED {
        const auto subtract = [&](auto j) ZONM_INLINED { x[i] = x[i] - l(j, i) * x[j]; };
        if constexpr (Exceptions::nearestFirst(N))
            unrolled<i + 1, N>(subtract);
        else
            unrolledDown<N, i + 1>(subtract);
        x[i] = x[i] * l(i, i);
    });
}

// The same with every element of x rounded when it is stored.
template <class T, class V, class L, class B, class X>
ZONM_INLINED inline void substituteRounding(const L &l, const B &b, X &x, int32_t n)
{
    for (int32_t i = 0; i < n; ++i) {
        V t = b(i);
        for (int32_t j = 0; j < i; ++j)
            t = t - l(i, j) * x(j);
        x.set(i, rounded<T>(t * l(i, i)));
    }
    for (int32_t i = n - 1; i >= 0; --i) {
        V t = x(i);
        for (int32_t j = n - 1; j > i; --j)
            t = t - l(j, i) * x(j);
        x.set(i, rounded<T>(t * l(i, i)));
    }
}

// Sizes 3 to 6 ---------------------------------------------------------------------------------

// For all layouts.
template <class V, int N>
[[gnu::noinline]] void substituteLocal(const LocalMatrix<V, N> &l, V (&x)[N])
{
    substitute(l, x);
}

template <int N, class L, class B, class D>
ZONM_INLINED inline void solveOne(const L &l, const B &b, const D &dst)
{
    double x[N];
    unrolled<0, N>([&](auto i) ZONM_INLINED { x[i] = b(i); });
    substitute(l, x);
    unrolled<0, N>([&](auto i) ZONM_INLINED { dst.set(i, typename D::Element(x[i])); });
}

// A matrix in double, once for one object or for all vectors.
template <int N, class A> ZONM_INLINED inline LocalMatrix<double, N> lowerTriangle(const A &a)
{
    LocalMatrix<double, N> l;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, i + 1>([&](auto j) ZONM_INLINED { l.set(i, j, a(i, j)); });
    });
    return l;
}

template <int N, class A, class B, class D>
[[gnu::noinline]] void solveOwnOne(const A &a, const B &b, const D &dst)
{
    solveOne<N>(lowerTriangle<N>(a), b, dst);
}

template <int N, class B, class D>
[[gnu::noinline]] void solveSharedOne(const LocalMatrix<double, N> &l, const B &b, const D &dst)
{
    solveOne<N>(l, b, dst);
}

// Every vector has a matrix of its own.
template <int N, class A, class B, class D>
[[gnu::noinline]] void solveOwn(const A &src1, const B &src2, const D &dst, int32_t count)
{
    substituteGroups(
        count, std::tie(dst), std::tie(src1, src2),
        [&](Group group) ZONM_INLINED {
            LocalMatrix<GroupDouble, N> l;
            const auto a = viewsOf(src1, group);
            unrolled<0, N>([&](auto i) ZONM_INLINED {
                unrolled<0, i + 1>([&](auto j) ZONM_INLINED {
                    l.set(i, j, gathered(a, [&](auto &m) ZONM_INLINED { return m(i, j); }));
                });
            });
            solveGroup<N>(src2, dst, group, [&](auto &x) ZONM_INLINED { substituteLocal(l, x); });
        },
        [&](int32_t k) ZONM_INLINED {
            solveOwnOne<N>(stridedView(src1(k)), stridedView(src2(k)), stridedView(dst(k)));
        });
}

// All vectors share one matrix, which is read before the first of them.
template <int N, class B, class D>
[[gnu::noinline]] void solveShared(const LocalMatrix<double, N> &shared, const B &src2,
                                   const D &dst, int32_t count)
{
    LocalMatrix<Lanes, N> lanes;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, i + 1>([&](auto j) ZONM_INLINED { lanes.set(i, j, Lanes::all(shared(i, j))); });
    });
    const auto l = [&](int i, int j) ZONM_INLINED {
        return GroupDouble::each([&](auto) ZONM_INLINED { return lanes(i, j); });
    };
    substituteGroups(
        count, std::tie(dst), std::tie(src2),
        [&](Group group) ZONM_INLINED {
            solveGroup<N>(src2, dst, group, [&](auto &x) ZONM_INLINED { substitute(l, x); });
        },
        [&](int32_t k)
            ZONM_INLINED { solveSharedOne(shared, stridedView(src2(k)), stridedView(dst(k))); });
}

// Other sizes ----------------------------------------------------------------------------------

template <class A, class B, class D>
[[gnu::noinline]] void solveInDst(const A &a, const B &b, const D &dst, int32_t n)
{
    const Widened x{dst};
    substituteRounding<typename D::Element, double>(Widened{a}, Widened{b}, x, n);
}

// Systems that are solved in groups, in this frame's memory, have at most this size.
inline constexpr int32_t largestTogether = 64;

template <class A, class B, class D>
[[gnu::noinline]] void solveLargeGroup(const A &src1, const B &src2, const D &dst, Group group,
                                       int32_t n)
{
    const auto a = viewsOf(src1, group);
    const auto b = viewsOf(src2, group);
    GroupDouble memory[largestTogether];
    const BorrowedVector<GroupDouble> x{memory};
    substituteRounding<typename D::Element, GroupDouble>(
        [&](int32_t i, int32_t j) ZONM_INLINED {
            return gatheredFrom(a, [&](auto &m) ZONM_INLINED { return m.at(i, j); });
        },
        [&](int32_t i)
            ZONM_INLINED { return gatheredFrom(b, [&](auto &v) ZONM_INLINED { return v.at(i); }); },
        x, n);
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        for (int32_t i = 0; i < n; ++i)
            d.set(i, element(x(i)));
    });
}

template <bool Shared, class A, class B, class D>
[[gnu::noinline]] void solveGeneral(const A &src1, const B &src2, const D &dst, int32_t n,
                                    int32_t count)
{
    const auto one = [&](int32_t k) ZONM_INLINED {
        solveInDst(stridedView(src1(k)), stridedView(src2(k)), stridedView(dst(k)), n);
    };
    const ptrdiff_t matrix = ptrdiff_t(n) * n * ptrdiff_t(sizeof(typename D::Element));
    // A group reads its systems whole and works on copies; where they overlap otherwise, or the
    // elements of one dst do, that could be seen.
    if (n <= largestTogether && (Shared || !isStreamed(matrix, count)) && elementsAreApart(dst) &&
        areIndependent(Regions(count, dst), Regions(count, src1), count) &&
        areIndependentOrSame(dst, src2, count))
        substituteGroups(
            count, std::tie(dst), std::tie(src1, src2),
            [&](Group group) ZONM_INLINED { solveLargeGroup(src1, src2, dst, group, n); }, one);
    else
        for (int32_t k = 0; k < count; ++k)
            one(k);
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class B, class D>
[[gnu::noinline]] ZonStatus solveObject(const A &src1, const B &src2, const D &dst, int32_t size)
{
    withSize(size, [&](auto n) {
        if constexpr (n != 0)
            solveOwnOne<n>(src1, src2, dst);
        else
            solveInDst(src1, src2, dst, size);
    });
    return zonStsOk;
}

template <bool Shared, class A, class B, class D>
[[gnu::noinline]] ZonStatus solveObjects(const A &src1, const B &src2, const D &dst, int32_t size,
                                         int32_t count)
{
    withSize(size, [&](auto n) {
        // Dense rows pay where a small matrix is read for each vector.
        const auto a = stridedObjects(src1);
        const auto b = stridedObjects(src2);
        const auto d = stridedObjects(dst);
        if constexpr (n == 0)
            solveGeneral<Shared>(a, b, d, size, count);
        else if constexpr (Shared)
            solveShared<n>(lowerTriangle<n>(a(0)), b, d, count);
        else
            solveOwn<n>(src1, src2, dst, count);
    });
    return zonStsOk;
}

template <class A, class B, class D>
ZonStatus choleskyBackSubstitute(const A &src1, const B &src2, const D &dst, int32_t size,
                                 int32_t count)
{
    return withLayout(
        [&](auto layout) {
            if constexpr (D::many)
                return solveObjects<!A::many>(objects<layout>(src1, size, size),
                                              objects<layout>(src2, size),
                                              objects<layout>(dst, size), size, count);
            else
                return solveObject(onlyObject(src1, size, size), onlyObject(src2, size),
                                   onlyObject(dst, size), size);
        },
        src1, src2, dst);
}

} // namespace
} // namespace zonm

#include "solvers/generated/cholesky_back_subst.inc"
