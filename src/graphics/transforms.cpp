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
    if (count < 1)
        return zonStsOk;
    const Extent written = extentOf(dst, N, dstStride0, count);
    if (meet(written, extentOf(src1, 16)) || meet(written, extentOf(src2, N, src2Stride0, count))) {
        for (ptrdiff_t k = 0; k < count; ++k)
            transformPointInOrder<N>(src1, vectorAt(src2, src2Stride0, k),
                                     vectorAt(dst, dstStride0, k));
        return zonStsOk;
    }
    Pair outer[4], inner[4];
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        const auto row = loadNumbers<4>(src1 + 4 * r);
        outer[r] = Pair{row[0], row[3]};
        inner[r] = Pair{row[1], row[2]};
    });
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto v = loadNumbers<N>(vectorAt(src2, src2Stride0, k));
        const Pair x = inAllLanes<2>(v[0]), y = inAllLanes<2>(v[1]);
        Pair o = y * outer[1] + outer[3], i = y * inner[1] + (x * inner[0] + inner[3]);
        if constexpr (N == 3) {
            const Pair z = inAllLanes<2>(v[2]);
            o = o + z * outer[2];
            i = i + z * inner[2];
        }
        o = o + x * outer[0];
        const double w = o[1];
        Numbers<N> point;
        point.pair[0] = Pair{o[0], i[0]} / inAllLanes<2>(w);
        if constexpr (N == 3)
            point.pair[1] = Pair{i[1] / w, 0};
        storeNumbers(vectorAt(dst, dstStride0, k), point);
    }
    return zonStsOk;
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
    if (meet(extentOf(dst, N), extentOf(src1, 16)) || meet(extentOf(dst, N), extentOf(src2, N)))
        transformNormalInOrder<N>(src1, src2, dst);
    else
        storeNumbers(dst, Linear<N>(src1)(loadNumbers<N>(src2)));
    return zonStsOk;
}

template <int N>
ZonStatus transformNormal(const float *src1, const float *src2, int32_t src2Stride0, float *dst,
                          int32_t dstStride0, int32_t count)
{
    if (count < 1)
        return zonStsOk;
    const Extent written = extentOf(dst, N, dstStride0, count);
    if (meet(written, extentOf(src1, 16)) || meet(written, extentOf(src2, N, src2Stride0, count))) {
        for (ptrdiff_t k = 0; k < count; ++k)
            transformNormalInOrder<N>(src1, vectorAt(src2, src2Stride0, k),
                                      vectorAt(dst, dstStride0, k));
        return zonStsOk;
    }
    const Linear<N> matrix(src1);
    for (ptrdiff_t k = 0; k < count; ++k)
        storeNumbers(vectorAt(dst, dstStride0, k),
                     matrix(loadNumbers<N>(vectorAt(src2, src2Stride0, k))));
    return zonStsOk;
}

// Projection -----------------------------------------------------------------------------------

struct Viewport {
    double width, height, zMin, zMax;
};

struct Scene {
    Matrix4 proj, view, world;

    ZONM_INLINED Numbers<3> project(Numbers<3> point, const Viewport &v) const
    {
        point = rounded(transformedPoint(world, point));
        point = rounded(transformedPoint(view, point));
        point = rounded(transformedPoint(proj, point));
        const double x = ((point[0] + 1) * v.width) * 0.5;
        const double y = 0.5 * ((1 - point[1]) * v.height);
        return {Pair{x, y}, Pair{point[2] * v.zMax + (1 - point[2]) * v.zMin, 0}};
    }
};

ZonStatus project(const float *proj, const float *view, const float *world, const float *src,
                  float width, float height, float zMin, float zMax, float *dst)
{
    const Scene scene = {loadMatrix(proj), loadMatrix(view), loadMatrix(world)};
    storeNumbers(dst, scene.project(loadNumbers<3>(src), {width, height, zMin, zMax}));
    return zonStsOk;
}

ZonStatus project(const float *proj, const float *view, const float *world, const float *src,
                  int32_t srcStride0, float width, float height, float zMin, float zMax, float *dst,
                  int32_t dstStride0, int32_t count)
{
    if (count < 1)
        return zonStsOk;
    const Extent written = extentOf(dst, 3, dstStride0, count);
    const bool matrixWritten = meet(written, extentOf(proj, 16)) ||
                               meet(written, extentOf(view, 16)) ||
                               meet(written, extentOf(world, 16));
    if (matrixWritten) { // the matrices count as they are when each vector's turn comes
        for (ptrdiff_t k = 0; k < count; ++k)
            project(proj, view, world, vectorAt(src, srcStride0, k), width, height, zMin, zMax,
                    vectorAt(dst, dstStride0, k));
        return zonStsOk;
    }
    const Scene scene = {loadMatrix(proj), loadMatrix(view), loadMatrix(world)};
    for (ptrdiff_t k = 0; k < count; ++k)
        storeNumbers(vectorAt(dst, dstStride0, k),
                     scene.project(loadNumbers<3>(vectorAt(src, srcStride0, k)),
                                   {width, height, zMin, zMax}));
    return zonStsOk;
}

// The way back ---------------------------------------------------------------------------------

// A point of the viewport in normalised coordinates. `depth` is zMax - zMin.
ZONM_INLINED inline Numbers<3> normalizedCoordinates(const Numbers<3> &point, const Viewport &v,
                                                     double depth)
{
    return rounded(Numbers<3>{Pair{(2 * point[0]) / v.width - 1, 1 + (-2 * point[1]) / v.height},
                              Pair{(point[2] - v.zMin) / depth, 0}});
}

bool invertScene(const float *proj, const float *view, const float *world, Matrix4 &inverse)
{
    const Matrix4 toCamera = productFromLast(loadMatrix(world), loadMatrix(view));
    return invert(productFromLast(toCamera, loadMatrix(proj)), inverse, nullptr);
}

ZonStatus unproject(const float *proj, const float *view, const float *world, const float *src,
                    float width, float height, float zMin, float zMax, float *dst)
{
    const Viewport viewport = {width, height, zMin, zMax};
    const auto point =
        normalizedCoordinates(loadNumbers<3>(src), viewport, viewport.zMax - viewport.zMin);
    storeNumbers(dst, point); // what a singular scene leaves
    Matrix4 inverse;
    if (!invertScene(proj, view, world, inverse))
        return zonStsSingular;
    storeNumbers(dst, transformedPoint(inverse, point));
    return zonStsOk;
}

ZonStatus unproject(const float *proj, const float *view, const float *world, const float *src,
                    int32_t srcStride0, float width, float height, float zMin, float zMax,
                    float *dst, int32_t dstStride0, int32_t count)
{
    Matrix4 inverse;
    if (!invertScene(proj, view, world, inverse))
        return zonStsSingular;
    const Viewport viewport = {width, height, zMin, zMax};
    const float depth = float(viewport.zMax - viewport.zMin);
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto point =
            normalizedCoordinates(loadNumbers<3>(vectorAt(src, srcStride0, k)), viewport, depth);
        storeNumbers(vectorAt(dst, dstStride0, k), transformedPoint(inverse, point));
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
