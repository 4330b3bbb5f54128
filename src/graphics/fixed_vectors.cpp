// SPDX-License-Identifier: Apache-2.0
// Vectors of 2, 3 and 4 elements: sums, products, lengths, interpolation. Nothing is judged and
// nothing can fail. dst may be a source, except in the cross products, which store each element
// before they read the sources for the next.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "graphics/vectors.hpp"

namespace zonm
{
namespace
{

// Element by element ---------------------------------------------------------------------------

// One operation on stored values, or a choice between them: float is as exact as double here, and
// keeps the bits of a NaN that is merely copied. All sources are read before the first store.
template <int N, class F>
ZONM_INLINED inline ZonStatus combine(const float *src1, const float *src2, float *dst, F operation)
{
    constexpr auto size = ptrdiff_t(sizeof(float));
    float results[N];
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        results[i] =
            operation(load<float>(bytes(src1) + i * size), load<float>(bytes(src2) + i * size));
    });
    unrolled<0, N>([&](auto i) ZONM_INLINED { store(bytes(dst) + i * size, results[i]); });
    return zonStsOk;
}

// The same for what the language does with vectors, four elements at once. Compilers without them
// have no choice by lanes.
template <class P> inline constexpr bool hasChoice = requires(P a, P b) { a < b ? a : b; };

template <int N, bool packed = true, class F>
ZONM_INLINED inline ZonStatus combinePacked(const float *src1, const float *src2, float *dst,
                                            F operation)
{
    if constexpr (N == 4 && packed) {
        storePack(bytes(dst),
                  operation(loadPack<float, 4>(bytes(src1)), loadPack<float, 4>(bytes(src2))));
        return zonStsOk;
    } else {
        return combine<N>(src1, src2, dst, operation);
    }
}

template <int N> ZonStatus addVectors(const float *src1, const float *src2, float *dst)
{
    return combinePacked<N>(src1, src2, dst, [](auto a, auto b) ZONM_INLINED { return a + b; });
}

template <int N> ZonStatus subtractVectors(const float *src1, const float *src2, float *dst)
{
    return combinePacked<N>(src1, src2, dst, [](auto a, auto b) ZONM_INLINED { return a - b; });
}

template <int N> ZonStatus scaleVector(const float *src, float val, float *dst)
{
    storeNumbers(dst, loadNumbers<N>(src) * double(val));
    return zonStsOk;
}

// Equal elements and NaNs give that of src2.
template <int N> ZonStatus minimum(const float *src1, const float *src2, float *dst)
{
    return combinePacked<N, hasChoice<Row>>(
        src1, src2, dst, [](auto a, auto b) ZONM_INLINED { return b > a ? a : b; });
}

template <int N> ZonStatus maximum(const float *src1, const float *src2, float *dst)
{
    return combinePacked<N, hasChoice<Row>>(
        src1, src2, dst, [](auto a, auto b) ZONM_INLINED { return b < a ? a : b; });
}

// Products and lengths -------------------------------------------------------------------------

template <int N> ZonStatus dotProduct(const float *src1, const float *src2, float *dst)
{
    setElement(dst, 0, dot(loadNumbers<N>(src1), loadNumbers<N>(src2)));
    return zonStsOk;
}

template <int N> ZonStatus crossProduct(const float *a, const float *b, float *dst);

template <> ZonStatus crossProduct<2>(const float *a, const float *b, float *dst)
{
    setElement(dst, 0, element(a, 0) * element(b, 1) - element(a, 1) * element(b, 0));
    return zonStsOk;
}

template <> ZonStatus crossProduct<3>(const float *a, const float *b, float *dst)
{
    if (!overlap<3>(dst, a) && !overlap<3>(dst, b)) {
        storeNumbers(dst, cross(loadNumbers<3>(a), loadNumbers<3>(b)));
        return zonStsOk;
    }
    setElement(dst, 0, element(a, 1) * element(b, 2) - element(a, 2) * element(b, 1));
    setElement(dst, 1, element(a, 2) * element(b, 0) - element(a, 0) * element(b, 2));
    setElement(dst, 2, element(a, 0) * element(b, 1) - element(a, 1) * element(b, 0));
    return zonStsOk;
}

// The vector normal to three: along row 0, the expansion of the determinant whose other rows they
// are, with its sign turned in the odd columns.
template <int N>
ZonStatus crossProduct(const float *src1, const float *src2, const float *src3, float *dst)
{
    static_assert(N == 4);
    const auto a = [=](int i) { return element(src1, i); };
    const auto b = [=](int i) { return element(src2, i); };
    const auto c = [=](int i) { return element(src3, i); };
    const auto minor = [=](int i, int j) { return c(j) * b(i) - b(j) * c(i); };
    setElement(dst, 0, (minor(2, 3) * a(1) - minor(1, 3) * a(2)) + minor(1, 2) * a(3));
    setElement(dst, 1, -((minor(2, 3) * a(0) - minor(0, 3) * a(2)) + minor(0, 2) * a(3)));
    setElement(dst, 2, (minor(1, 3) * a(0) - minor(0, 3) * a(1)) + minor(0, 1) * a(3));
    setElement(dst, 3, -((minor(1, 2) * a(0) - minor(0, 2) * a(1)) + minor(0, 1) * a(2)));
    return zonStsOk;
}

template <int N> ZonStatus squaredLength(const float *src, float *dst)
{
    const auto a = loadNumbers<N>(src);
    setElement(dst, 0, dot(a, a));
    return zonStsOk;
}

template <int N> ZonStatus lengthOf(const float *src, float *dst)
{
    setElement(dst, 0, length(loadNumbers<N>(src)));
    return zonStsOk;
}

template <int N> ZonStatus normalize(const float *src, float *dst)
{
    storeNumbers(dst, normalized(loadNumbers<N>(src)));
    return zonStsOk;
}

// Interpolation --------------------------------------------------------------------------------

template <int N>
ZonStatus interpolateLinearly(const float *src1, const float *src2, float s, float *dst)
{
    const auto a = loadNumbers<N>(src1), b = loadNumbers<N>(src2);
    storeNumbers(dst, a + (b - a) * s);
    return zonStsOk;
}

template <int N>
ZonStatus baryCentric(const float *src1, const float *src2, const float *src3, float f, float g,
                      float *dst)
{
    const auto a = loadNumbers<N>(src1), b = loadNumbers<N>(src2), c = loadNumbers<N>(src3);
    storeNumbers(dst, ((b - a) * f + a) + (c - a) * g);
    return zonStsOk;
}

template <int N>
ZONM_INLINED inline Numbers<N> hermiteCurve(const Numbers<N> &pos1, const Numbers<N> &tan1,
                                            const Numbers<N> &pos2, const Numbers<N> &tan2,
                                            double s)
{
    const double s2 = s * s, s3 = s * s2;
    const double w1 = ((s - s2) - s2) + s3, w2 = s3 - s2, w3 = (s3 - 3 * s2) + s3;
    return ((pos1 + tan1 * w1) + tan2 * w2) + (pos1 - pos2) * w3;
}

template <int N>
ZonStatus hermite(const float *pos1, const float *tan1, const float *pos2, const float *tan2,
                  float s, float *dst)
{
    storeNumbers(dst, hermiteCurve(loadNumbers<N>(pos1), loadNumbers<N>(tan1), loadNumbers<N>(pos2),
                                   loadNumbers<N>(tan2), s));
    return zonStsOk;
}

// Through src2 and src3; the tangents are 32f vectors.
template <int N>
ZonStatus catmullRom(const float *src1, const float *src2, const float *src3, const float *src4,
                     float s, float *dst)
{
    const auto p1 = loadNumbers<N>(src1), p2 = loadNumbers<N>(src2);
    const auto p3 = loadNumbers<N>(src3), p4 = loadNumbers<N>(src4);
    const auto t1 = rounded((p3 - p1) * 0.5), t2 = rounded((p4 - p2) * 0.5);
    storeNumbers(dst, hermiteCurve(p2, t1, p3, t2, s));
    return zonStsOk;
}

} // namespace
} // namespace zonm

#include "graphics/generated/fixed_vectors.inc"
