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

// A register at a time: two would not stay in registers. Returns false, with nothing stored, if an
// object of the group is singular.
template <int N, class A, class D>
ZONM_INLINED inline bool invertGroup(const A &src, const D &dst, GroupOf<1> group)
{
    Lanes a[N][N];
    gatherMatrices(a, viewsOf(src, group)[0]);
    if (!invertRegister(a, singularityLimit<typename D::Element>(N)))
        return false;
    scatterMatrices(a, viewsOf(dst, group)[0]);
    return true;
}

// A single matrix of size 3 or 4 in both lanes, with the operations of `invertInline`:
//
//   size 3   a lane works without row 0 and one without row 1; what is without row 2 stands alone
//   size 4   a lane works without a row of the upper half, and one without the same row of the
//   lower
//            half. Above two rows a row has the signs that it has below them.
template <class A, class D>
ZONM_INLINED inline ZonStatus invertInLanesOf3(const A &src, const D &dst)
{
    using T = typename D::Element;
    Lanes rest[3], last[3];
    double row0[3], row1[3];
    unrolled<0, 3>([&](auto j) ZONM_INLINED {
        row0[j] = src(0, j);
        row1[j] = src(1, j);
        rest[j] = {LaneRegister{row1[j], row0[j]}};
        last[j] = Lanes::all(src(2, j));
    });
    const auto minors = expanded<1, Rules::Order>(minorsOfRow(rest), last);
    const auto alone = expanded<1, Rules::Order>(minorsOfRow(row0), row1);
    constexpr unsigned withoutColumn[] = {0b110, 0b101, 0b011};

    const Lanes products = swapped(rest[0]) * minors.template over<withoutColumn[0]>();
    const double det =
        (products.v[0] - products.v[1]) + last[0].v[0] * alone.template over<withoutColumn[0]>();
    if (Rules::isSingularFormula(det, singularityLimit<T>(3)))
        return zonStsSingular;
    const double r = 1 / det;
    const Lanes even{LaneRegister{r, -r}}, odd{LaneRegister{-r, r}};
    unrolled<0, 3>([&](auto j) ZONM_INLINED {
        const Lanes x = minors.template over<withoutColumn[j]>() * (j % 2 == 0 ? even : odd);
        dst.set(j, 0, element<T>(x, 0));
        dst.set(j, 1, element<T>(x, 1));
        dst.set(j, 2, T(alone.template over<withoutColumn[j]>() * (j % 2 == 0 ? r : -r)));
    });
    return zonStsOk;
}

template <class A, class D>
ZONM_INLINED inline ZonStatus invertInLanesOf4(const A &src, const D &dst)
{
    using T = typename D::Element;
    Lanes first[4], second[4]; // rows of the halves
    unrolled<0, 4>([&](auto j) ZONM_INLINED {
        first[j] = {LaneRegister{double(src(0, j)), double(src(2, j))}};
        second[j] = {LaneRegister{double(src(1, j)), double(src(3, j))}};
    });
    auto minors = expanded<1, Rules::Order>(minorsOfRow(first), second);
    for (Lanes &minor : minors.of)
        minor = swapped(minor); // those of the other half
    const auto withoutFirst = expanded<0, Rules::Order>(minors, second);
    const auto withoutSecond = expanded<0, Rules::Order>(minors, first);

    const Lanes added = first[0] * withoutFirst.template over<0b1110>();
    const Lanes subtracted = second[0] * withoutSecond.template over<0b1110>();
    const double det = ((added.v[0] - subtracted.v[0]) + added.v[1]) - subtracted.v[1];
    if (Rules::isSingularFormula(det, singularityLimit<T>(4)))
        return zonStsSingular;
    const Lanes r = Lanes::all(1 / det), negative = -r;
    unrolled<0, 4>([&](auto j) ZONM_INLINED {
        constexpr unsigned columns = 0b1111 & ~(1u << j);
        const Lanes even = withoutFirst.template over<columns>() * (j % 2 == 0 ? r : negative);
        const Lanes odd = withoutSecond.template over<columns>() * (j % 2 == 0 ? negative : r);
        dst.set(j, 0, element<T>(even, 0));
        dst.set(j, 1, element<T>(odd, 0));
        dst.set(j, 2, element<T>(even, 1));
        dst.set(j, 3, element<T>(odd, 1));
    });
    return zonStsOk;
}

template <int N, class A, class D>
ZONM_INLINED inline ZonStatus invertOneInline(const A &src, const D &dst)
{
    using T = typename D::Element;
    if constexpr (N == 3 && objectLanes == 2)
        return invertInLanesOf3(src, dst);
    else if constexpr (N == 4 && objectLanes == 2)
        return invertInLanesOf4(src, dst);
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

template <int N, class A, class D> [[gnu::noinline]] ZonStatus invertOne(const A &src, const D &dst)
{
    return invertOneInline<N>(src, dst);
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
            return decomposeGroups<1>(
                count, std::tie(dst), std::tie(src),
                [&](auto group) ZONM_INLINED { return invertGroup<n>(src, dst, group); },
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
    else {
        const auto a = onlyObject(src, size, size);
        const auto x = onlyObject(dst, size, size);
        // A further call would cost as much as the formula.
        return size == 3 ? invertOneInline<3>(a, x) : invertOnly(a, buffer, x, size);
    }
}

} // namespace
} // namespace zonm

#include "solvers/generated/invert.inc"
