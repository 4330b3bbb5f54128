// SPDX-License-Identifier: Apache-2.0
// QR decomposition by Householder reflections I + b v transpose(v), b = -2 / (transpose(v) v), for
// height >= width. Reflection k zeroes column k below the diagonal. With x = a(k, k) and q, the sum
// of squares of column k from its diagonal down:
//
//   v(k) = 1,  v(i) = a(i, k) c for i > k,  c = 1 / (x + r),  r = sqrt(q), or -sqrt(q) unless x > 0
//   a(i, j) = a(i, j) + v(i) t,  t = b (a(k, j) + sum over i > k of a(i, j) v(i)),  for all j >= k
//
// There are `width` reflections, one less for a square matrix. dst holds R on and above the
// diagonal, and below it the elements of v but the first; b is not kept.
//
// All sums are formed in ascending order of i, in double. An element of 32f is rounded when it is
// stored, elements of v among them; but b is that of the unrounded ones. All sizes and forms share
// this one order.
//
// A column whose q is below the limit fails; a NaN is none. dst is then src with the reflections
// before it applied. src is copied to dst first, so dst may be src, with the same strides. An array
// ends at its first object that fails. The reflection stands in dst from the start: the buffer is
// not needed.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "solvers/decompositions.hpp"
#include "solvers/kernels.hpp"

namespace zonm
{
namespace
{

// Absolute, and of the sum of squares.
template <class T> struct Limits {
    static constexpr double column = sizeof(T) == 4 ? 0x1p-23 : 0x1p-52;
};

// The number of reflections: of a square matrix, whose size may be a constant, and of any other.
template <int N>
constexpr auto reflections(std::integral_constant<int, N>, std::integral_constant<int, N>)
{
    return constant<N - 1>;
}
constexpr int32_t reflections(int32_t width, int32_t height)
{
    return width == height ? width - 1 : width;
}

// In place. Returns the number of columns that passed.
template <class T, class V, class A, class Width, class Height>
ZONM_INLINED inline int32_t reflect(A &a, Width width, Height height)
{
    return whileTrue(reflections(width, height), [&](auto k) ZONM_INLINED {
        const V x = a(k, k);
        V q = x * x;
        ascending(next(k), height, [&](auto i) ZONM_INLINED { q = q + a(i, k) * a(i, k); });
        if (anyBelow(q, Limits<T>::column))
            return false;
        const V c = V(1) / (x + signedLike(squareRoot(q), x));

        // Column k takes its reflection as it gives way to v.
        V n = V(1), t = x;
        ascending(next(k), height, [&](auto i) ZONM_INLINED {
            const V element = a(i, k), u = element * c, v = rounded<T>(u);
            n = n + u * u;
            t = t + element * v;
            a.set(i, k, v);
        });
        const V b = V(-2) / n;
        a.set(k, k, rounded<T>(x + t * b));

        ascending(next(k), width, [&](auto j) ZONM_INLINED {
            V s = a(k, j);
            ascending(next(k), height, [&](auto i) ZONM_INLINED { s = s + a(i, j) * a(i, k); });
            s = s * b;
            a.set(k, j, rounded<T>(a(k, j) + s));
            ascending(next(k), height,
                      [&](auto i) ZONM_INLINED { a.set(i, j, rounded<T>(a(i, j) + a(i, k) * s)); });
        });
        return true;
    });
}

template <class A, class D> void copy(const A &src, const D &dst, Shape shape)
{
    for (int32_t i = 0; i < shape.height; ++i)
        for (int32_t j = 0; j < shape.width; ++j)
            dst.set(i, j, src(i, j));
}

// The square sizes 3 to 6 ----------------------------------------------------------------------

// For all layouts.
template <class T, class V, int N> [[gnu::noinline]] bool reflectLocal(LocalMatrix<V, N> &w)
{
    return reflect<T, V>(w, constant<N>, constant<N>) == reflections(N, N);
}

template <int N, class A, class D> [[gnu::noinline]] ZonStatus factorOne(const A &src, const D &dst)
{
    using T = typename D::Element;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED { dst.set(i, j, src(i, j)); });
    });
    LocalMatrix<double, N> w;
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED { w.set(i, j, dst(i, j)); });
    });
    const bool passed = reflectLocal<T>(w);
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED { dst.set(i, j, T(w(i, j))); });
    });
    return passed ? zonStsOk : zonStsDivByZero;
}

// Returns false, with nothing stored, if an object of the group fails.
template <int N, class A, class D>
ZONM_INLINED inline bool factorGroup(const A &src, const D &dst, Group group)
{
    LocalMatrix<GroupDouble, N> w;
    const auto a = viewsOf(src, group);
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED {
            w.set(i, j, gathered(a, [&](auto &x) ZONM_INLINED { return x(i, j); }));
        });
    });
    if (!reflectLocal<typename D::Element>(w))
        return false;
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            unrolled<0, N>([&](auto j) ZONM_INLINED { d.set(i, j, element(w(i, j))); });
        });
    });
    return true;
}

// Other sizes ----------------------------------------------------------------------------------

template <class A, class D>
[[gnu::noinline]] ZonStatus factorInDst(const A &src, const D &dst, Shape shape)
{
    copy(src, dst, shape);
    const Widened a{dst};
    const auto passed = reflect<typename D::Element, double>(a, shape.width, shape.height);
    return passed == reflections(shape.width, shape.height) ? zonStsOk : zonStsDivByZero;
}

// Matrices that are factored in groups, in this frame's memory, have at most so many elements.
inline constexpr int32_t largestTogether = 400;

template <class T>
[[gnu::noinline]] bool reflectBorrowed(const BorrowedMatrix<GroupDouble> &w, Shape shape)
{
    return reflect<T, GroupDouble>(w, shape.width, shape.height) ==
           reflections(shape.width, shape.height);
}

template <class A, class D>
[[gnu::noinline]] bool factorLargeGroup(const A &src, const D &dst, Group group, Shape shape)
{
    GroupDouble memory[largestTogether];
    const BorrowedMatrix<GroupDouble> w{memory, shape.width};
    const auto a = viewsOf(src, group);
    for (int32_t i = 0; i < shape.height; ++i)
        for (int32_t j = 0; j < shape.width; ++j)
            w.set(i, j, gatheredFrom(a, [&](auto &x) ZONM_INLINED { return x.at(i, j); }));
    if (!reflectBorrowed<typename D::Element>(w, shape))
        return false;
    scatterGroup(viewsOf(dst, group), [&](auto &d, auto element) ZONM_INLINED {
        for (int32_t i = 0; i < shape.height; ++i)
            for (int32_t j = 0; j < shape.width; ++j)
                d.set(i, j, element(w(i, j)));
    });
    return true;
}

// Bindings -------------------------------------------------------------------------------------

template <class A, class D>
[[gnu::noinline]] ZonStatus factorObject(const A &src, const D &dst, Shape shape)
{
    return withSquareSize(shape, [&](auto n) {
        if constexpr (n != 0)
            return factorOne<n>(src, dst);
        else
            return factorInDst(src, dst, shape);
    });
}

template <class A, class D>
[[gnu::noinline]] ZonStatus factorObjects(const A &src, const D &dst, Shape shape, int32_t count)
{
    const auto one = [&](int32_t k) ZONM_INLINED {
        return factorObject(stridedView(src(k)), stridedView(dst(k)), shape);
    };
    // A group reads its objects whole and works on copies; where they overlap otherwise, or the
    // elements of one do, that could be seen.
    if (std::int64_t(shape.width) * shape.height > largestTogether || !elementsAreApart(dst) ||
        !areIndependentOrSame(dst, src, count))
        return decomposeEach(count, one);
    return withSquareSize(shape, [&](auto n) {
        return decomposeGroups(
            count, std::tie(dst), std::tie(src),
            [&](Group group) ZONM_INLINED {
                if constexpr (n != 0)
                    return factorGroup<n>(src, dst, group);
                else
                    return factorLargeGroup(src, dst, group, shape);
            },
            one);
    });
}

template <class A, class D>
ZonStatus qrDecompose(const A &src, void *, const D &dst, Shape shape, int32_t count)
{
    const int32_t width = shape.width, height = shape.height;
    return withLayout(
        [&](auto layout) {
            if constexpr (D::many)
                return factorObjects(objects<layout>(src, height, width),
                                     objects<layout>(dst, height, width), shape, count);
            else
                return factorObject(onlyObject(src, height, width), onlyObject(dst, height, width),
                                    shape);
        },
        src, dst);
}

} // namespace
} // namespace zonm

#include "solvers/generated/qr_decomp.inc"
