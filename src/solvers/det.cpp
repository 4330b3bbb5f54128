// SPDX-License-Identifier: Apache-2.0
// Determinants.
//
//   sizes 3 to 6   cofactors along the last row, from minors that are built from the top: level by
//                  level each minor of one row more is expanded along that row, its products added
//                  one by one in the order of `Rules::Order`. All in double, rounded once; nothing
//                  is tested and `buffer` is not touched.
//   other sizes    an elimination in `buffer` with row pivoting and true quotients as factors. The
//                  product of the pivots runs in dst and is rounded there at every step. Below the
//                  limit T = 2 n^3 (smallest normal number) a pivot makes the result 0.
//
// There are no failures: a singular matrix has the determinant 0, and no object ends an array.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/groups.hpp"
#include "solvers/buffered_elimination.hpp"
#include "solvers/minors.hpp"

namespace zonm
{
namespace
{

enum class Form { single, array };

struct Rules {
    // By ascending columns, except where the closed formula fixes another order.
    template <int N> struct Order {
        static constexpr bool ascends(unsigned columns)
        {
            const bool isResult = columns == (1u << N) - 1;
            const bool leavesOutTheFirst = columns == 0b1110;
            return N >= 5 || (N == 4 && (isResult || leavesOutTheFirst));
        }
    };
    // A NaN passes as a pivot, but not as the last one; at the limit it is the other way round.
    static bool isSingular(double pivot, double limit) { return std::fabs(pivot) < limit; }
    static bool isRegularAtLast(double pivot, double limit) { return std::fabs(pivot) > limit; }
    // After a singular pivot a single matrix has the determinant +0. One of an array goes on to the
    // last pivot with a sign of 0: the result may be -0, or a NaN.
    static constexpr bool endsAtSingularPivot(Form form) { return form == Form::single; }
};

// Sizes 3 to 6 ---------------------------------------------------------------------------------

template <int Row, int N, class V, class M>
ZONM_INLINED inline V expandedFrom(const V (&a)[N][N], const M &minorsAbove)
{
    const auto minors = expanded<Row, Rules::Order<N>>(minorsAbove, a[Row]);
    if constexpr (Row == N - 1)
        return minors.of[0];
    else
        return expandedFrom<Row + 1>(a, minors);
}

template <int N, class V> ZONM_INLINED inline V determinantInline(const V (&a)[N][N])
{
    return expandedFrom<1>(a, minorsOfRow(a[0]));
}

// The long ones exist once for all layouts.
template <int N, class V> [[gnu::noinline]] V determinantShared(const V (&a)[N][N])
{
    return determinantInline(a);
}
template <int N, class V> ZONM_INLINED inline V determinantOf(const V (&a)[N][N])
{
    return N <= 4 ? determinantInline(a) : determinantShared(a);
}

template <int N, class A> [[gnu::noinline]] double determinantOfObject(const A &src)
{
    double a[N][N];
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            a[i][j] = src(i, j);
    return determinantOf(a);
}

template <int N, class A, class D>
void determinantsInGroups(const A &src, const D &dst, int32_t count)
{
    using T = typename D::Element;
    const auto together = [&](Group group) ZONM_INLINED {
        const auto views = viewsOf(src, group);
        Lanes result[interleaved];
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED {
            Lanes a[N][N];
            gatherMatrices(a, views[r]);
            result[r] = determinantOf(a);
        });
        unrolled<0, interleaved>([&](auto r) ZONM_INLINED {
            storeDoubles<T, objectLanes>(dst(group[r * objectLanes]).at(0), result[r].v);
        });
        return true;
    };
    const auto one = [&](int32_t k) {
        dst(k).set(0, T(determinantOfObject<N>(stridedView(src(k)))));
        return true;
    };
    forEachGroup(count, std::tie(dst), std::tie(src), together, one);
}

// Other sizes ----------------------------------------------------------------------------------

template <Form F, class A, class D>
[[gnu::noinline]] void eliminate(const A &src, void *buffer, const D &dst, int32_t n)
{
    using T = typename D::Element;
    const double limit = singularityLimit<T>(n);
    BufferedMatrix<T> a(buffer, n);
    dst.set(0, T(1));
    a.fill(n, src);
    for (int32_t k = 0; k < n - 1; ++k) {
        const double pivot = a.pivot(k);
        if (Rules::isSingular(pivot, limit)) {
            if (Rules::endsAtSingularPivot(F))
                return dst.set(0, T(0));
            a.sign = 0;
            break;
        }
        a.eliminate(k, [=](double x) { return x / pivot; });
        dst.set(0, T(pivot * dst(0)));
    }
    const double last = a.last();
    dst.set(0, Rules::isRegularAtLast(last, limit) ? T(last * a.sign * dst(0)) : T(0));
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class T>
[[gnu::noinline]] void determinantOfOnly(const A &src, int32_t size, void *buffer, T *dst)
{
    const DenseVector<T> result(bytes(dst));
    withSize(size, [&](auto n) {
        if constexpr (n != 0)
            result.set(0, T(determinantOfObject<n>(src)));
        else
            eliminate<Form::single>(src, buffer, result, size);
    });
}

template <class A, class D>
[[gnu::noinline]] void determinantsOfAll(const A &src, int32_t size, void *buffer, const D &dst,
                                         int32_t count)
{
    withSize(size, [&](auto n) {
        if constexpr (n != 0)
            determinantsInGroups<n>(src, dst, count);
        else
            for (int32_t k = 0; k < count; ++k)
                eliminate<Form::array>(stridedView(src(k)), buffer, dst(k), size);
    });
}

template <class A, class T>
ZonStatus determinant(const A &src, int32_t size, void *buffer, T *dst, int32_t count)
{
    if constexpr (A::many)
        withLayout(
            [&](auto layout) {
                determinantsOfAll(objects<layout>(src, size, size), size, buffer, runsOf(dst, 1),
                                  count);
            },
            src);
    else
        determinantOfOnly(onlyObject(src, size, size), size, buffer, dst);
    return zonStsOk;
}

} // namespace
} // namespace zonm

#include "solvers/generated/det.inc"
