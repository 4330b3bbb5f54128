// SPDX-License-Identifier: Apache-2.0
// Inverses by the adjugate, at every size:
//
//   dst(j, i) = (minor without row i and column j) (1/det), negative for odd i + j
//
//   size 1         a reciprocal
//   sizes 3 to 6   det = sum over i of (-1)^i src(i, 0) minor(i, 0), by ascending i. A minor takes
//                  the rows of the half without row i first, the upper half being the smaller one
//                  of an odd size, then those of row i's own half, each time from the top; every
//                  row expands it, by ascending columns. All of src is read before dst is written,
//                  so dst may be src. All in double, rounded once.
//   other sizes    det and each minor by an elimination of their own in `buffer`, with row pivoting
//                  and multiples of 1/pivot as factors. dst must not be src.
//
// The limit T = 2 n^3 (smallest normal number) is absolute, and each path has its own sense of it.
// An array ends at the first object that fails, whose dst is untouched.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "solvers/buffered_elimination.hpp"
#include "solvers/decompositions.hpp"
#include "solvers/minors.hpp"

namespace zonm
{
namespace
{

struct Rules {
    // Size 1: up to the limit, and a NaN. Elsewhere a NaN passes.
    static bool isSingularElement(double x, double limit) { return !(std::fabs(x) > limit); }
    // Sizes 3 to 6: below the limit.
    static bool isSingularFormula(double det, double limit) { return std::fabs(det) < limit; }
    static bool isSingularFormula(Lanes det, double limit)
    {
        return (abs(det) < Lanes::all(limit)).any();
    }
    // Other sizes: a pivot below the limit, a determinant up to it.
    static bool isSingularPivot(double pivot, double limit) { return std::fabs(pivot) < limit; }
    static bool isSingularProduct(double det, double limit) { return std::fabs(det) <= limit; }
    // A pivot below the limit makes the product of a minor's pivots T and ends its elimination. A
    // last pivot up to the limit, or a NaN, makes the minor itself T. It never becomes 0.
    static bool isRegularAtLast(double pivot, double limit) { return std::fabs(pivot) > limit; }

    // Within a minor of sizes 3 to 6.
    struct Order {
        static constexpr bool ascends(unsigned) { return true; }
    };
};

// Sizes 3 to 6 ---------------------------------------------------------------------------------

// The minors of the rows in `Rows`, expanded along those in `More` as well.
template <unsigned Rows, unsigned More, int N, class V, class M>
ZONM_INLINED inline auto withRows(const V (&a)[N][N], const M &minors)
{
    if constexpr (More == 0) {
        return minors;
    } else {
        constexpr int row = std::countr_zero(More), above = std::popcount(Rows & ((1u << row) - 1));
        constexpr unsigned rest = More & (More - 1);
        if constexpr (Rows == 0)
            return withRows<1u << row, rest>(a, minorsOfRow(a[row]));
        else
            return withRows<Rows | 1u << row, rest>(a,
                                                    expanded<above, Rules::Order>(minors, a[row]));
    }
}

// The first `number` members of a set.
constexpr unsigned firstOf(unsigned set, int number)
{
    unsigned rest = set;
    for (; number > 0; --number)
        rest &= rest - 1;
    return set & ~rest;
}

// use(i, minors) for each row i in `Left`, with the minors of all rows but i. `minors` are those of
// the rows not in `Left`; each half of `Left` shares what the other half adds to them.
template <unsigned Left, int N, class V, class M, class Use>
ZONM_INLINED inline void leavingOutEach(const V (&a)[N][N], const M &minors, Use use)
{
    constexpr unsigned others = ((1u << N) - 1) & ~Left;
    if constexpr (std::has_single_bit(Left)) {
        use(std::integral_constant<int, std::countr_zero(Left)>{}, minors);
    } else {
        constexpr unsigned upper = firstOf(Left, std::popcount(Left) / 2), lower = Left & ~upper;
        leavingOutEach<upper>(a, withRows<others, lower>(a, minors), use);
        leavingOutEach<lower>(a, withRows<others, upper>(a, minors), use);
    }
}

// A number, or a register, as the value of a kernel.
template <class V> inline V inEachLane(double x)
{
    if constexpr (std::is_same_v<V, Lanes>)
        return Lanes::all(x);
    else
        return x;
}
template <class T> inline T firstLane(double x) { return T(x); }
template <class T> inline T firstLane(Lanes x) { return element<T>(x, 0); }

// Turns a into its inverse. Returns false if that of a lane is singular.
template <int N, class V> ZONM_INLINED inline bool invertInline(V (&a)[N][N], double limit)
{
    constexpr unsigned all = (1u << N) - 1;
    constexpr struct {
    } none;
    V minor[N][N]; // without row i and column j
    leavingOutEach<all>(a, none, [&](auto i, const auto &minors) ZONM_INLINED {
        unrolled<0, N>(
            [&](auto j) ZONM_INLINED { minor[i][j] = minors.template over<all & ~(1u << j)>(); });
    });

    V det = a[0][0] * minor[0][0];
    unrolled<1, N>([&](auto i) ZONM_INLINED {
        const V product = a[i][0] * minor[i][0];
        det = i % 2 == 0 ? det + product : det - product;
    });
    const V reciprocal = inEachLane<V>(1) / det, negative = -reciprocal;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED {
            a[j][i] = minor[i][j] * ((i + j) % 2 == 0 ? reciprocal : negative);
        });
    });
    return !Rules::isSingularFormula(det, limit);
}

// The long ones exist once, for all layouts and for single objects too: a register takes as long as
// a number.
inline constexpr int longestInline = 4;

template <int N> [[gnu::noinline]] bool invertShared(Lanes (&a)[N][N], double limit)
{
    return invertInline(a, limit);
}
template <int N, class V> ZONM_INLINED inline bool invertRegister(V (&a)[N][N], double limit)
{
    if constexpr (N <= longestInline)
        return invertInline(a, limit);
    else
        return invertShared(a, limit);
}

// Returns false, with nothing stored, if an object of the group is singular.
template <int N, class A, class D>
ZONM_INLINED inline bool invertGroup(const A &src, const D &dst, Group group)
{
    const double limit = singularityLimit<typename D::Element>(N);
    const auto sources = viewsOf(src, group);
    Lanes a[interleaved][N][N];
    bool isRegular = true;
    for (int r = 0; r < interleaved; ++r) {
        gatherMatrices(a[r], sources[r]);
        isRegular &= invertRegister(a[r], limit);
    }
    if (!isRegular)
        return false;
    const auto results = viewsOf(dst, group);
    for (int r = 0; r < interleaved; ++r)
        scatterMatrices(a[r], results[r]);
    return true;
}

template <int N, class A, class D> [[gnu::noinline]] ZonStatus invertOne(const A &src, const D &dst)
{
    using T = typename D::Element;
    using V = std::conditional_t<N <= longestInline, double, Lanes>;
    V a[N][N];
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            a[i][j] = inEachLane<V>(src(i, j));
    if (!invertRegister(a, singularityLimit<T>(N)))
        return zonStsSingular;
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            dst.set(i, j, firstLane<T>(a[i][j]));
    return zonStsOk;
}

// Other sizes ----------------------------------------------------------------------------------

template <class A, class D> ZonStatus invertElement(const A &src, const D &dst)
{
    using T = typename D::Element;
    const double x = src(0, 0);
    if (Rules::isSingularElement(x, singularityLimit<T>(1)))
        return zonStsSingular;
    dst.set(0, 0, T(1 / x));
    return zonStsOk;
}

// The minor of src without row i and column j.
template <class T, class A>
double minorWithout(int32_t i, int32_t j, const A &src, BufferedMatrix<T> &c, int32_t n,
                    double limit)
{
    double product = 1;
    c.fill(n - 1, [=](int32_t r, int32_t s) { return src(r + (r >= i), s + (s >= j)); });
    for (int32_t k = 0; k < n - 2; ++k) {
        const double pivot = c.pivot(k), reciprocal = 1 / pivot;
        if (Rules::isSingularPivot(pivot, limit)) {
            product = limit;
            break;
        }
        c.eliminate(k, [=](double x) { return x * reciprocal; });
        product *= pivot;
    }
    const double last = c.last();
    return Rules::isRegularAtLast(last, limit) ? product * (last * c.sign) : limit;
}

template <class A, class D>
[[gnu::noinline]] ZonStatus invertGeneral(const A &src, void *buffer, const D &dst, int32_t n)
{
    using T = typename D::Element;
    const double limit = singularityLimit<T>(n);
    BufferedMatrix<T> b(buffer, n);
    double det = 1;
    b.fill(n, src);
    for (int32_t k = 0; k < n - 1; ++k) {
        const double pivot = b.pivot(k), reciprocal = 1 / pivot;
        if (Rules::isSingularPivot(pivot, limit))
            return zonStsSingular;
        b.eliminate(k, [=](double x) { return x * reciprocal; });
        det *= pivot;
    }
    det *= b.sign * b.last();
    if (Rules::isSingularProduct(det, limit))
        return zonStsSingular;

    const double reciprocal = 1 / det;
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j < n; ++j) {
            const double x = minorWithout(i, j, src, b, n, limit) * reciprocal;
            dst.set(j, i, T((i + j) % 2 == 0 ? x : -x));
        }
    return zonStsOk;
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class D>
ZonStatus invertOther(const A &src, void *buffer, const D &dst, int32_t n)
{
    return n == 1 ? invertElement(src, dst) : invertGeneral(src, buffer, dst, n);
}

template <class A, class D>
[[gnu::noinline]] ZonStatus invertOnly(const A &src, void *buffer, const D &dst, int32_t size)
{
    return withSize(size, [&](auto n) {
        if constexpr (n != 0)
            return invertOne<n>(src, dst);
        else
            return invertOther(src, buffer, dst, size);
    });
}

template <class A, class D>
[[gnu::noinline]] ZonStatus invertAll(const A &src, void *buffer, const D &dst, int32_t size,
                                      int32_t count)
{
    return withSize(size, [&](auto n) {
        if constexpr (n != 0)
            return decomposeGroups(
                count, std::tie(dst), std::tie(src),
                [&](Group group) ZONM_INLINED { return invertGroup<n>(src, dst, group); },
                [&](int32_t k) ZONM_INLINED {
                    return invertOne<n>(stridedView(src(k)), stridedView(dst(k)));
                });
        else
            return decomposeEach(count, [&](int32_t k) {
                return invertOther(stridedView(src(k)), buffer, stridedView(dst(k)), size);
            });
    });
}

template <class A, class D>
ZonStatus invert(const A &src, void *buffer, const D &dst, int32_t size, int32_t count)
{
    if constexpr (D::many)
        return withLayout(
            [&](auto layout) {
                return invertAll(objects<layout>(src, size, size), buffer,
                                 objects<layout>(dst, size, size), size, count);
            },
            src, dst);
    else
        return invertOnly(onlyObject(src, size, size), buffer, onlyObject(dst, size, size), size);
}

} // namespace
} // namespace zonm

#include "solvers/generated/invert.inc"
