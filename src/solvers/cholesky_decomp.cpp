// SPDX-License-Identifier: Apache-2.0
// Cholesky decomposition of a symmetric positive definite matrix, A = L transpose(L), by rows. With
// d(j) = 1 / L(j, j), which stands on the diagonal of dst in place of L(j, j):
//
//   L(i, j) = (A(i, j) - sum over k < j of L(i, k) L(j, k)) d(j)
//   d(i)    = 1 / sqrt(p),  p = A(i, i) - sum over k < i of L(i, k)^2
//
// Products are subtracted one by one in ascending order of k, in double; an element of 32f is
// rounded when it is stored, and what is stored is what later rows use. All sizes and forms share
// this one order.
//
// A pivot p at or below the limit fails; a NaN is none. The rows above the failing one are then
// final, and so is its own part left of the diagonal. Only the lower triangle of src is read, and
// only that of dst is written; dst may be src, with the same strides. At sizes 3 to 6 src is read
// whole before dst is written. An array ends at its first object that fails.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "solvers/decompositions.hpp"
#include "solvers/kernels.hpp"

namespace zonm
{
namespace
{

// Where forms and sizes differ: all limits are absolute.
struct Exceptions {
    // The limit of nearly all forms.
    static constexpr double usualLimit = 0;
    // Element pointers at size 3, of either element type.
    static constexpr double scatteredLimit = 0x1p-23;
    // Arrays of 64f matrices, strided, with elements that do not all lie side by side: size 6 and
    // the sizes without straight-line code.
    static constexpr double stridedLimit = 0x1p-52;
    static constexpr bool hasStridedLimit(int32_t n) { return n < 3 || n > 5; }
    // Element pointers at size 3 store rows 0 and 1 once both have passed, and row 2 once it has.
    template <class View> static constexpr bool writesLate(int n)
    {
        return n == 3 && requires(View view) { view.table; };
    }
};

template <class A, class D> double limitOf(const A &src, const D &dst, int32_t n)
{
    if constexpr (isElementTable<A>)
        return n == 3 ? Exceptions::scatteredLimit : Exceptions::usualLimit;
    else if constexpr (A::many && !isObjectTable<A> && sizeof(typename A::Value) == sizeof(double))
        return Exceptions::hasStridedLimit(n) && !(isDense(src) && isDense(dst))
                   ? Exceptions::stridedLimit
                   : Exceptions::usualLimit;
    else
        return Exceptions::usualLimit;
}

// Returns the number of rows that passed, all or those above the first that fails.
template <class T, class V, class A, class L, class N>
ZONM_INLINED inline int32_t factor(const A &a, L &l, N n, double limit)
{
    return whileTrue(n, [&](auto i) ZONM_INLINED {
        ascending(constant<0>, i, [&](auto j) ZONM_INLINED {
            V t = a(i, j);
            ascending(constant<0>, j, [&](auto k) ZONM_INLINED { t = t - l(i, k) * l(j, k); });
            l.set(i, j, rounded<T>(t * l(j, j)));
        });
        V p = a(i, i);
        ascending(constant<0>, i, [&](auto k) ZONM_INLINED { p = p - l(i, k) * l(i, k); });
        if (anyAtMost(p, limit))
            return false;
        l.set(i, i, rounded<T>(V(1) / squareRoot(p)));
        return true;
    });
}

// Sizes 3 to 6 ---------------------------------------------------------------------------------

// A group in place, for all layouts.
template <class T, int N>
[[gnu::noinline]] int32_t factorLocal(LocalMatrix<GroupDouble, N> &w, double limit)
{
    return factor<T, GroupDouble>(w, w, constant<N>, limit);
}

// What the rows that passed leave of an object that fails.
template <int N, class D>
[[gnu::noinline, gnu::cold]] void writeFailed(const LocalMatrix<double, N> &w, const D &dst,
                                              int32_t passed)
{
    constexpr bool late = Exceptions::writesLate<D>(N);
    for (int32_t i = 0; i < (late && passed < 2 ? 0 : passed + !late); ++i)
        for (int32_t j = 0; j < (i < passed ? i + 1 : passed); ++j)
            dst.set(i, j, typename D::Element(w(i, j)));
}

template <int N, class A, class D>
[[gnu::noinline]] ZonStatus factorOne(const A &src, const D &dst, double limit)
{
    using T = typename D::Element;
    LocalMatrix<double, N> w;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, i + 1>([&](auto j) ZONM_INLINED { w.set(i, j, src(i, j)); });
    });
    const int32_t passed = factor<T, double>(w, w, constant<N>, limit);
    if (passed != N) {
        writeFailed(w, dst, passed);
        return zonStsNotPositiveDefinite;
    }
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, i + 1>([&](auto j) ZONM_INLINED { dst.set(i, j, T(w(i, j))); });
    });
    return zonStsOk;
}

// Returns false, with nothing stored, if an object of the group fails.
template <int N, class A, class D>
ZONM_INLINED inline bool factorGroup(const A &src, const D &dst, Group group, double limit)
{
    LocalMatrix<GroupDouble, N> w;
    const auto a = viewsOf(src, group);
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, i + 1>([&](auto j) ZONM_INLINED {
            w.set(i, j, gathered(a, [&](auto &x) ZONM_INLINED { return x(i, j); }));
        });
    });
    if (factorLocal<typename D::Element>(w, limit) != N)
        return false;
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            unrolled<0, i + 1>([&](auto j) ZONM_INLINED { d.set(i, j, element(w(i, j))); });
        });
    });
    return true;
}

// Other sizes ----------------------------------------------------------------------------------

// In dst, which is read back.
template <class A, class D>
[[gnu::noinline]] ZonStatus factorInDst(const A &src, const D &dst, int32_t n, double limit)
{
    const Widened l{dst};
    const int32_t passed = factor<typename D::Element, double>(Widened{src}, l, n, limit);
    return passed == n ? zonStsOk : zonStsNotPositiveDefinite;
}

// Matrices that are factored in groups, in this frame's memory, have at most this size.
inline constexpr int32_t largestTogether = 16;

template <class T>
[[gnu::noinline]] int32_t factorBorrowed(const BorrowedMatrix<GroupDouble> &w, int32_t n,
                                         double limit)
{
    return factor<T, GroupDouble>(w, w, n, limit);
}

template <class A, class D>
[[gnu::noinline]] bool factorLargeGroup(const A &src, const D &dst, Group group, int32_t n,
                                        double limit)
{
    GroupDouble memory[largestTogether * largestTogether];
    const BorrowedMatrix<GroupDouble> w{memory, n};
    const auto a = viewsOf(src, group);
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j <= i; ++j)
            w.set(i, j, gatheredFrom(a, [&](auto &x) ZONM_INLINED { return x.at(i, j); }));
    if (factorBorrowed<typename D::Element>(w, n, limit) != n)
        return false;
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        for (int32_t i = 0; i < n; ++i)
            for (int32_t j = 0; j <= i; ++j)
                d.set(i, j, element(w(i, j)));
    });
    return true;
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class D>
[[gnu::noinline]] ZonStatus factorObject(const A &src, const D &dst, int32_t size, double limit)
{
    return withSize(size, [&](auto n) {
        if constexpr (n != 0)
            return factorOne<n>(src, dst, limit);
        else
            return factorInDst(src, dst, size, limit);
    });
}

template <class A, class D>
[[gnu::noinline]] ZonStatus factorObjects(const A &src, const D &dst, int32_t size, int32_t count,
                                          double limit)
{
    return withSize(size, [&](auto n) {
        const auto one = [&](int32_t k) ZONM_INLINED {
            return factorObject(stridedView(src(k)), stridedView(dst(k)), size, limit);
        };
        if constexpr (n != 0)
            return decomposeGroups(
                count, std::tie(dst), std::tie(src),
                [&](Group group) ZONM_INLINED { return factorGroup<n>(src, dst, group, limit); },
                one);
        // A group reads its objects whole and works on copies; where they overlap otherwise, or
        // the rows of one do, that could be seen.
        else if (size <= largestTogether && elementsAreApart(dst) &&
                 areIndependentOrSame(dst, src, count))
            return decomposeGroups(
                count, std::tie(dst), std::tie(src),
                [&](Group group)
                    ZONM_INLINED { return factorLargeGroup(src, dst, group, size, limit); },
                one);
        else
            return decomposeEach(count, one);
    });
}

template <class A, class D>
ZonStatus choleskyDecompose(const A &src, const D &dst, int32_t size, int32_t count)
{
    const double limit = limitOf(src, dst, size);
    return withLayout(
        [&](auto layout) {
            if constexpr (D::many)
                return factorObjects(objects<layout>(src, size, size),
                                     objects<layout>(dst, size, size), size, count, limit);
            else
                return factorObject(onlyObject(src, size, size), onlyObject(dst, size, size), size,
                                    limit);
        },
        src, dst);
}

} // namespace
} // namespace zonm

#include "solvers/generated/cholesky_decomp.inc"
