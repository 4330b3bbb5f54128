// SPDX-License-Identifier: Apache-2.0
// Solves A x = b, or minimises |A x - b| if A is tall, with the factors of a QR decomposition. The
// reflections, v(k) = 1 and v(i) = src1(i, k) for i > k, are applied to b one after the other:
//
//   b(i) = b(i) + v(i) t,  t = s (b(k) + sum over i > k of v(i) b(i)),  s = -2 / (transpose(v) v)
//
// and the triangle R gives x(i) = (b(i) - sum over j > i of R(i, j) x(j)) / R(i, i). All sums run
// in ascending order but for the sum over j:
//
//   square, sizes 3 to 6   b and x are kept in double and x is rounded once. Products are
//                          subtracted one by one in descending order of j, so that the element
//                          that was found last comes last. At size 3 they are subtracted in
//                          ascending order, and the second reflection's t is added to b(1) behind
//                          them. dst is written after all of src1 and src2 is read. One matrix for
//                          many vectors (mva) has its s formed once. The buffer is not touched.
//   other sizes            the sum over j is formed in ascending order from 0, then subtracted. b
//                          stands in the buffer, or in this frame, and is rounded whenever it is
//                          stored; so is x, in dst.
//
// All forms share these orders, and in all of them dst may be src2, with the same layout. Nothing
// is tested: a zero on the diagonal of R gives infinities or NaN.
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
    // The reflection that reaches its own element late.
    static constexpr bool addsLate(int n, int k) { return n == 3 && k == 1; }
};

// The factors s of the reflections.
template <int N, class V, class A> ZONM_INLINED inline void formScales(const A &a, V (&s)[N])
{
    unrolled<0, N - 1>([&](auto k) ZONM_INLINED {
        V n = V(1);
        unrolled<k + 1, N>([&](auto i) ZONM_INLINED { n = n + a(i, k) * a(i, k); });
        s[k] = V(-2) / n;
    });
}

// Turns b into x, in double.
template <int N, class V, class A, class S>
ZONM_INLINED inline void substitute(const A &a, const S &s, V (&x)[N])
{
    V late = V(0);
    unrolled<0, N - 1>([&](auto k) ZONM_INLINED {
        V t = x[k];
        unrolled<k + 1, N>([&](auto i) ZONM_INLINED { t = t + a(i, k) * x[i]; });
        t = t * s(k);
        if constexpr (Exceptions::addsLate(N, k))
            late = t;
        else
            x[k] = x[k] + t;
        unrolled<k + 1, N>([&](auto i) ZONM_INLINED { x[i] = x[i] + a(i, k) * t; });
    });
    unrolledDown<N, 0>([&](auto i) ZONM_INLINED {
        const auto subtract = [&](auto j) ZONM_INLINED { x[i] = x[i] - a(i, j) * x[j]; };
        if constexpr (Exceptions::nearestFirst(N))
            unrolled<i + 1, N>(subtract);
        else
            unrolledDown<N, i + 1>(subtract);
        if constexpr (Exceptions::addsLate(N, i))
            x[i] = x[i] + late;
        x[i] = x[i] / a(i, i);
    });
}

// The same with every element rounded when it is stored, b in `y`.
template <class T, class V, class A, class B, class Y, class X>
ZONM_INLINED inline void substituteRounding(const A &a, const B &b, const Y &y, const X &x,
                                            Shape shape)
{
    const int32_t w = shape.width, h = shape.height;
    for (int32_t i = 0; i < h; ++i)
        y.set(i, b(i));
    for (int32_t k = 0; k < (w == h ? w - 1 : w); ++k) {
        V n = V(1), t = y(k);
        for (int32_t i = k + 1; i < h; ++i) {
            const V v = a(i, k);
            n = n + v * v;
            t = t + v * y(i);
        }
        t = t * (V(-2) / n);
        y.set(k, rounded<T>(y(k) + t));
        for (int32_t i = k + 1; i < h; ++i)
            y.set(i, rounded<T>(a(i, k) * t + y(i)));
    }
    x.set(w - 1, rounded<T>(y(w - 1) / a(w - 1, w - 1)));
    for (int32_t i = w - 2; i >= 0; --i) {
        V f = V(0);
        for (int32_t j = i + 1; j < w; ++j)
            f = f + a(i, j) * x(j);
        x.set(i, rounded<T>((y(i) - f) / a(i, i)));
    }
}

// The square sizes 3 to 6 ----------------------------------------------------------------------

// A matrix in double with its scales, of one object or of all of a group.
template <class V, int N> struct Factors {
    LocalMatrix<V, N> a;
    V s[N];

    ZONM_INLINED const V &operator()(int i, int j) const { return a(i, j); }
    ZONM_INLINED const V &operator()(int k) const { return s[k]; }
};

// For all layouts.
template <class V, int N> [[gnu::noinline]] void substituteLocal(Factors<V, N> &factors, V (&x)[N])
{
    formScales(factors.a, factors.s);
    substitute(factors.a, factors, x);
}

template <int N, class A> ZONM_INLINED inline Factors<double, N> factorsOf(const A &a)
{
    Factors<double, N> factors;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED { factors.a.set(i, j, a(i, j)); });
    });
    formScales(factors.a, factors.s);
    return factors;
}

template <int N, class B, class D>
ZONM_INLINED inline void solveOne(const Factors<double, N> &factors, const B &b, const D &dst)
{
    double x[N];
    unrolled<0, N>([&](auto i) ZONM_INLINED { x[i] = b(i); });
    substitute(factors, factors, x);
    unrolled<0, N>([&](auto i) ZONM_INLINED { dst.set(i, typename D::Element(x[i])); });
}

template <int N, class A, class B, class D>
[[gnu::noinline]] void solveOwnOne(const A &a, const B &b, const D &dst)
{
    solveOne<N>(factorsOf<N>(a), b, dst);
}

template <int N, class B, class D>
[[gnu::noinline]] void solveSharedOne(const Factors<double, N> &factors, const B &b, const D &dst)
{
    solveOne<N>(factors, b, dst);
}

// Every vector has a matrix of its own.
template <int N, class A, class B, class D>
[[gnu::noinline]] void solveOwn(const A &src1, const B &src2, const D &dst, int32_t count)
{
    substituteGroups(
        count, std::tie(dst), std::tie(src1, src2),
        [&](Group group) ZONM_INLINED {
            Factors<GroupDouble, N> factors;
            const auto a = viewsOf(src1, group);
            unrolled<0, N>([&](auto i) ZONM_INLINED {
                unrolled<0, N>([&](auto j) ZONM_INLINED {
                    factors.a.set(i, j, gathered(a, [&](auto &m) ZONM_INLINED { return m(i, j); }));
                });
            });
            solveGroup<N>(src2, dst, group,
                          [&](auto &x) ZONM_INLINED { substituteLocal(factors, x); });
        },
        [&](int32_t k) ZONM_INLINED {
            solveOwnOne<N>(stridedView(src1(k)), stridedView(src2(k)), stridedView(dst(k)));
        });
}

// All vectors share one matrix, which is read before the first of them.
template <int N, class B, class D>
[[gnu::noinline]] void solveShared(const Factors<double, N> &shared, const B &src2, const D &dst,
                                   int32_t count)
{
    Lanes a[N][N], s[N];
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED { a[i][j] = Lanes::all(shared(i, j)); });
        if constexpr (i < N - 1)
            s[i] = Lanes::all(shared(i));
    });
    const auto everywhere = [](const Lanes &x) ZONM_INLINED {
        return GroupDouble::each([&](auto) ZONM_INLINED { return x; });
    };
    substituteGroups(
        count, std::tie(dst), std::tie(src2),
        [&](Group group) ZONM_INLINED {
            solveGroup<N>(src2, dst, group, [&](auto &x) ZONM_INLINED {
                substitute([&](int i, int j) ZONM_INLINED { return everywhere(a[i][j]); },
                           [&](int k) ZONM_INLINED { return everywhere(s[k]); }, x);
            });
        },
        [&](int32_t k)
            ZONM_INLINED { solveSharedOne(shared, stridedView(src2(k)), stridedView(dst(k))); });
}

// Other sizes ----------------------------------------------------------------------------------

template <class A, class B, class D>
[[gnu::noinline]] void solveInBuffer(const A &a, void *buffer, const B &b, const D &dst,
                                     Shape shape)
{
    using T = typename D::Element;
    const DenseVector<T> y(static_cast<std::byte *>(buffer));
    substituteRounding<T, double>(Widened{a}, Widened{b}, Widened{y}, Widened{dst}, shape);
}

// Systems that are solved in groups, in this frame's memory, have at most this height.
inline constexpr int32_t largestTogether = 128;

template <class A, class B, class D>
[[gnu::noinline]] void solveLargeGroup(const A &src1, const B &src2, const D &dst, Group group,
                                       Shape shape)
{
    const auto a = viewsOf(src1, group);
    const auto b = viewsOf(src2, group);
    GroupDouble y[largestTogether], x[largestTogether];
    substituteRounding<typename D::Element, GroupDouble>(
        [&](int32_t i, int32_t j) ZONM_INLINED {
            return gatheredFrom(a, [&](auto &m) ZONM_INLINED { return m.at(i, j); });
        },
        [&](int32_t i)
            ZONM_INLINED { return gatheredFrom(b, [&](auto &v) ZONM_INLINED { return v.at(i); }); },
        BorrowedVector<GroupDouble>{y}, BorrowedVector<GroupDouble>{x}, shape);
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        for (int32_t i = 0; i < shape.width; ++i)
            d.set(i, element(x[i]));
    });
}

template <class A, class B, class D>
[[gnu::noinline]] void solveGeneral(const A &src1, void *buffer, const B &src2, const D &dst,
                                    Shape shape, int32_t count)
{
    const auto one = [&](int32_t k) ZONM_INLINED {
        solveInBuffer(stridedView(src1(k)), buffer, stridedView(src2(k)), stridedView(dst(k)),
                      shape);
    };
    // A group reads its matrices before it writes, and works on copies, which could be seen where
    // dst lies in them, or the elements of one dst overlap.
    if (shape.height <= largestTogether && elementsAreApart(dst) &&
        areIndependent(Regions(count, dst), Regions(count, src1), count))
        substituteGroups(
            count, std::tie(dst), std::tie(src1, src2),
            [&](Group group) ZONM_INLINED { solveLargeGroup(src1, src2, dst, group, shape); }, one);
    else
        for (int32_t k = 0; k < count; ++k)
            one(k);
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class B, class D>
[[gnu::noinline]] ZonStatus solveObject(const A &src1, void *buffer, const B &src2, const D &dst,
                                        Shape shape)
{
    withSquareSize(shape, [&](auto n) {
        if constexpr (n != 0)
            solveOwnOne<n>(src1, src2, dst);
        else
            solveInBuffer(src1, buffer, src2, dst, shape);
    });
    return zonStsOk;
}

template <bool Shared, class A, class B, class D>
[[gnu::noinline]] ZonStatus solveObjects(const A &src1, void *buffer, const B &src2, const D &dst,
                                         Shape shape, int32_t count)
{
    withSquareSize(shape, [&](auto n) {
        // Dense rows pay where a small matrix is read for each vector.
        const auto a = stridedObjects(src1);
        const auto b = stridedObjects(src2);
        const auto d = stridedObjects(dst);
        if constexpr (n == 0)
            solveGeneral(a, buffer, b, d, shape, count);
        else if constexpr (Shared)
            solveShared<n>(factorsOf<n>(a(0)), b, d, count);
        else
            solveOwn<n>(src1, src2, dst, count);
    });
    return zonStsOk;
}

template <class A, class B, class D>
ZonStatus qrBackSubstitute(const A &src1, void *buffer, const B &src2, const D &dst, Shape shape,
                           int32_t count)
{
    return withLayout(
        [&](auto layout) {
            if constexpr (D::many)
                return solveObjects<!A::many>(objects<layout>(src1, shape.height, shape.width),
                                              buffer, objects<layout>(src2, shape.height),
                                              objects<layout>(dst, shape.width), shape, count);
            else
                return solveObject(onlyObject(src1, shape.height, shape.width), buffer,
                                   onlyObject(src2, shape.height), onlyObject(dst, shape.width),
                                   shape);
        },
        src1, src2, dst);
}

} // namespace
} // namespace zonm

#include "solvers/generated/qr_back_subst.inc"
