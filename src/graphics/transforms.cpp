// SPDX-License-Identifier: Apache-2.0
// Points and normals through a 4x4 matrix, to a viewport and back. The matrix stands on the right
// of a row vector; in `transformColumns` it stands on the left of a column.
//
// In place: the single forms of the points with division, projection and its way back. Where an
// operand of the other stated orders meets dst, each element is stored before the next is read.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "frame/operands.hpp"
#include "graphics/matrix4.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zonm
{
namespace
{

// Limits of the general transformation: a fourth component up to `smallest` is no divisor, and
// `nowhere` is where such a point goes.
struct Homogeneous {
    static constexpr double smallest = std::numeric_limits<float>::min();
    static constexpr float nowhere = std::numeric_limits<float>::max();
};

// Vector k of an array with any stride.
template <class T> ZONM_INLINED inline T *vectorAt(T *p, int32_t stride0, ptrdiff_t k)
{
    return reinterpret_cast<T *>(bytes(p) + k * stride0);
}

// An array through one matrix, two by two. Where dst meets a source, `inOrder` takes one vector
// after the other.
template <int N, class F>
ZONM_INLINED inline ZonStatus
transformEach(const float *src1, const float *src2, int32_t src2Stride0, float *dst,
              int32_t dstStride0, int32_t count,
              void (*inOrder)(const float *matrix, const float *src, float *dst), F ofTwo)
{
    if (count < 1)
        return zonStsOk;
    const Extent written = extentOf(dst, N, dstStride0, count);
    if (meet(written, extentOf(src1, 16)) || meet(written, extentOf(src2, N, src2Stride0, count))) {
        for (ptrdiff_t k = 0; k < count; ++k)
            inOrder(src1, vectorAt(src2, src2Stride0, k), vectorAt(dst, dstStride0, k));
        return zonStsOk;
    }
    const MatrixForTwo matrix(src1);
    const auto two = [&](ptrdiff_t k, ptrdiff_t l) ZONM_INLINED {
        const auto t = loadTwo<N>(vectorAt(src2, src2Stride0, k), vectorAt(src2, src2Stride0, l));
        const auto &[x, y, z] = t.coordinate;
        storeTwo<N>(vectorAt(dst, dstStride0, k), vectorAt(dst, dstStride0, l),
                    ofTwo(matrix.m, x, y, z));
    };
    ptrdiff_t k = 0;
    for (; k + 1 < count; k += 2)
        two(k, k + 1);
    if (k < count) // the last one by itself, as both
        two(k, k);
    return zonStsOk;
}

// Whole vectors --------------------------------------------------------------------------------

template <int N> ZonStatus transform(const float *src1, const float *src2, float *dst)
{
    storeNumbers(dst, transformed(loadMatrix(src1), loadNumbers<N>(src2)));
    return zonStsOk;
}

template <int N>
ZonStatus transform(const float *src1, const float *src2, int32_t src2Stride0, float *dst,
                    int32_t dstStride0, int32_t count)
{
    if (count < 1)
        return zonStsOk;
    const Matrix4 m = loadMatrix(src1);
    for (ptrdiff_t k = 0; k < count; ++k)
        storeNumbers(vectorAt(dst, dstStride0, k),
                     transformed(m, loadNumbers<N>(vectorAt(src2, src2Stride0, k))));
    return zonStsOk;
}

// Points with division -------------------------------------------------------------------------

template <int N> ZonStatus transformPoint(const float *src1, const float *src2, float *dst)
{
    storeNumbers(dst, transformedPoint(loadMatrix(src1), loadNumbers<N>(src2)));
    return zonStsOk;
}

// In arrays the first and the fourth component add y before x, the others x before y.
template <int N>
[[gnu::noinline]] void transformPointInOrder(const float *matrix, const float *src, float *dst)
{
    const auto m = [=](int r, int c) { return element(matrix, 4 * r + c); };
    const auto v = [=](int i) { return element(src, i); };
    const auto outer = [=](int c) {
        const double line = v(1) * m(1, c) + m(3, c);
        return N == 2 ? line + v(0) * m(0, c) : (line + v(2) * m(2, c)) + v(0) * m(0, c);
    };
    const double w = outer(3);
    setElement(dst, 0, outer(0) / w);
    for (int j = 1; j < N; ++j) {
        const double plane = m(1, j) * v(1) + (m(0, j) * v(0) + m(3, j));
        setElement(dst, j, (N == 2 ? plane : plane + m(2, j) * v(2)) / w);
    }
}

template <int N>
ZonStatus transformPoint(const float *src1, const float *src2, int32_t src2Stride0, float *dst,
                         int32_t dstStride0, int32_t count)
{
    const auto ofTwo = [](const auto &m, Pair x, Pair y, [[maybe_unused]] Pair z) ZONM_INLINED {
        Pair outer[4], inner[4];
        unrolled<0, 4>([&](auto j) ZONM_INLINED {
            outer[j] = y * m[1][j] + m[3][j];
            inner[j] = m[1][j] * y + (m[0][j] * x + m[3][j]);
            if constexpr (N == 3) {
                outer[j] = outer[j] + z * m[2][j];
                inner[j] = inner[j] + m[2][j] * z;
            }
            outer[j] = outer[j] + x * m[0][j];
        });
        const Pair w = outer[3];
        return TwoPoints{outer[0] / w, inner[1] / w, inner[2] / w};
    };
    return transformEach<N>(src1, src2, src2Stride0, dst, dstStride0, count,
                            transformPointInOrder<N>, ofTwo);
}

// Normals --------------------------------------------------------------------------------------

template <int N>
[[gnu::noinline]] void transformNormalInOrder(const float *matrix, const float *src, float *dst)
{
    for (int j = 0; j < N; ++j) {
        const auto term = [=](int i) { return element(matrix, 4 * i + j) * element(src, i); };
        setElement(dst, j, N == 2 ? term(0) + term(1) : (term(0) + term(1)) + term(2));
    }
}

// The upper rows, N elements of each.
template <int N> struct Linear {
    Numbers<N> row[N];

    ZONM_INLINED explicit Linear(const float *matrix)
    {
        unrolled<0, N>([&](auto r) ZONM_INLINED { row[r] = loadNumbers<N>(matrix + 4 * r); });
    }
    ZONM_INLINED Numbers<N> operator()(const Numbers<N> &v) const
    {
        const auto plane = row[0] * v[0] + row[1] * v[1];
        if constexpr (N == 3)
            return plane + row[2] * v[2];
        return plane;
    }
};

template <int N> ZonStatus transformNormal(const float *src1, const float *src2, float *dst)
{
    if (overlap<N, 16>(dst, src1) || overlap<N>(dst, src2))
        transformNormalInOrder<N>(src1, src2, dst);
    else
        storeNumbers(dst, Linear<N>(src1)(loadNumbers<N>(src2)));
    return zonStsOk;
}

template <int N>
ZonStatus transformNormal(const float *src1, const float *src2, int32_t src2Stride0, float *dst,
                          int32_t dstStride0, int32_t count)
{
    const auto ofTwo = [](const auto &m, Pair x, Pair y, [[maybe_unused]] Pair z) ZONM_INLINED {
        TwoPoints normals = {};
        unrolled<0, N>([&](auto j) ZONM_INLINED {
            normals.coordinate[j] = m[0][j] * x + m[1][j] * y;
            if constexpr (N == 3)
                normals.coordinate[j] = normals.coordinate[j] + m[2][j] * z;
        });
        return normals;
    };
    return transformEach<N>(src1, src2, src2Stride0, dst, dstStride0, count,
                            transformNormalInOrder<N>, ofTwo);
}

// Projection -----------------------------------------------------------------------------------

// T is double or a pair.
template <class T> struct Viewport {
    T width, height, zMin, zMax, one, half;

    ZONM_INLINED T x(T t) const { return ((t + one) * width) * half; }
    ZONM_INLINED T y(T t) const { return half * ((one - t) * height); }
    ZONM_INLINED T z(T t) const { return t * zMax + (one - t) * zMin; }
};

ZonStatus project(const float *proj, const float *view, const float *world, const float *src,
                  float width, float height, float zMin, float zMax, float *dst)
{
    // Between the matrices stands a 32f vector.
    auto t = loadNumbers<3>(src);
    for (const float *matrix : {world, view, proj})
        t = rounded(transformedPoint(loadMatrix(matrix), t));
    const Viewport<double> viewport = {width, height, zMin, zMax, 1, 0.5};
    storeNumbers(dst,
                 Numbers<3>{Pair{viewport.x(t[0]), viewport.y(t[1])}, Pair{viewport.z(t[2]), 0}});
    return zonStsOk;
}

ZonStatus project(const float *proj, const float *view, const float *world, const float *src,
                  int32_t srcStride0, float width, float height, float zMin, float zMax, float *dst,
                  int32_t dstStride0, int32_t count)
{
    if (count < 1)
        return zonStsOk;
    const Extent written = extentOf(dst, 3, dstStride0, count);
    if (meet(written, extentOf(proj, 16)) || meet(written, extentOf(view, 16)) ||
        meet(written, extentOf(world, 16)) || meet(written, extentOf(src, 3, srcStride0, count))) {
        for (ptrdiff_t k = 0; k < count; ++k)
            project(proj, view, world, vectorAt(src, srcStride0, k), width, height, zMin, zMax,
                    vectorAt(dst, dstStride0, k));
        return zonStsOk;
    }
    const MatrixForTwo matrices[] = {MatrixForTwo(world), MatrixForTwo(view), MatrixForTwo(proj)};
    const auto both = [](double x) { return inAllLanes<2>(x); };
    const Viewport<Pair> viewport = {both(width), both(height), both(zMin),
                                     both(zMax),  both(1),      both(0.5)};
    // Some points through one matrix after the other: those of one step do not wait for each other.
    // Between the matrices they are 32f.
    constexpr int pairs = 16;
    float points[pairs][3][2];
    const auto keep = [&](int i, const TwoPoints &t) ZONM_INLINED {
        unrolled<0, 3>([&](auto c) ZONM_INLINED {
            storeDoubles<float, 2>(bytes(points[i][c]), t.coordinate[c]);
        });
    };
    const auto kept = [&](int i) ZONM_INLINED {
        TwoPoints t;
        unrolled<0, 3>([&](auto c) ZONM_INLINED {
            t.coordinate[c] = loadDoubles<float, 2>(bytes(points[i][c]));
        });
        return t;
    };
    const auto at = [=](ptrdiff_t k) ZONM_INLINED { return std::min<ptrdiff_t>(k, count - 1); };
    for (ptrdiff_t k = 0; k < count; k += 2 * pairs) {
        const int n = int(std::min<ptrdiff_t>(pairs, (count - k + 1) / 2));
        for (int i = 0; i < n; ++i)
            keep(i, transformedPoint(matrices[0],
                                     loadTwo<3>(vectorAt(src, srcStride0, k + 2 * i),
                                                vectorAt(src, srcStride0, at(k + 2 * i + 1)))));
        for (int i = 0; i < n; ++i)
            keep(i, transformedPoint(matrices[1], kept(i)));
        for (int i = 0; i < n; ++i)
            keep(i, transformedPoint(matrices[2], kept(i)));
        for (int i = 0; i < n; ++i) {
            const auto t = kept(i);
            const auto &[x, y, z] = t.coordinate;
            storeTwo<3>(vectorAt(dst, dstStride0, k + 2 * i),
                        vectorAt(dst, dstStride0, at(k + 2 * i + 1)),
                        TwoPoints{viewport.x(x), viewport.y(y), viewport.z(z)});
        }
    }
    return zonStsOk;
}

// The way back ---------------------------------------------------------------------------------

// A point of the viewport in normalised coordinates. `depth` is zMax - zMin.
ZONM_INLINED inline Numbers<3> normalizedCoordinates(const Numbers<3> &point, double width,
                                                     double height, double zMin, double depth)
{
    return rounded(Numbers<3>{Pair{(2 * point[0]) / width - 1, 1 + (-2 * point[1]) / height},
                              Pair{(point[2] - zMin) / depth, 0}});
}

bool invertScene(const float *proj, const float *view, const float *world, float *inverse)
{
    const Matrix4 toCamera = productFromLast(loadMatrix(world), loadMatrix(view));
    storeMatrix(inverse, productFromLast(toCamera, loadMatrix(proj)));
    return invert(inverse, inverse, nullptr);
}

ZonStatus unproject(const float *proj, const float *view, const float *world, const float *src,
                    float width, float height, float zMin, float zMax, float *dst)
{
    const auto point = normalizedCoordinates(loadNumbers<3>(src), width, height, zMin,
                                             double(zMax) - double(zMin));
    storeNumbers(dst, point); // what a singular scene leaves
    float inverse[16];
    if (!invertScene(proj, view, world, inverse))
        return zonStsSingular;
    storeNumbers(dst, transformedPoint(loadMatrix(inverse), point));
    return zonStsOk;
}

ZonStatus unproject(const float *proj, const float *view, const float *world, const float *src,
                    int32_t srcStride0, float width, float height, float zMin, float zMax,
                    float *dst, int32_t dstStride0, int32_t count)
{
    float inverse[16];
    if (!invertScene(proj, view, world, inverse))
        return zonStsSingular;
    const Matrix4 m = loadMatrix(inverse);
    const float depth = zMax - zMin; // rounded, unlike that of the single form
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto point = normalizedCoordinates(loadNumbers<3>(vectorAt(src, srcStride0, k)),
                                                 width, height, zMin, depth);
        storeNumbers(vectorAt(dst, dstStride0, k), transformedPoint(m, point));
    }
    return zonStsOk;
}

// Column vectors -------------------------------------------------------------------------------

// The columns of the matrix, read once, play the part of the rows.
ZonStatus transformColumns(Matrix<const float> matrix, VectorArray<const float> src,
                           VectorArray<float> dst, int32_t count)
{
    const auto m = [&](int r, int c) ZONM_INLINED {
        return double(load<float>(bytes(matrix.base) + r * ptrdiff_t(matrix.stride1) +
                                  c * ptrdiff_t(matrix.stride2)));
    };
    Matrix4 columns;
    unrolled<0, 4>([&](auto c) ZONM_INLINED {
        columns.row[c] = {Pair{m(0, c), m(1, c)}, Pair{m(2, c), m(3, c)}};
    });
    ZonStatus status = zonStsOk;
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto v = [&, p = bytes(src.base) + k * src.stride0](int i) ZONM_INLINED {
            return double(load<float>(p + i * ptrdiff_t(src.stride2)));
        };
        const auto t = transformed(columns, Numbers<3>{Pair{v(0), v(1)}, Pair{v(2), 0}});
        const bool divisible = std::fabs(t[3]) > Homogeneous::smallest;
        const auto point = t * (1 / t[3]);
        unrolled<0, 3>([&](auto i) ZONM_INLINED {
            store(bytes(dst.base) + k * dst.stride0 + i * ptrdiff_t(dst.stride2),
                  divisible ? float(point[i]) : Homogeneous::nowhere);
        });
        if (!divisible)
            status = zonStsDivByZero;
    }
    return status;
}

} // namespace
} // namespace zonm

#include "graphics/generated/transforms.inc"
