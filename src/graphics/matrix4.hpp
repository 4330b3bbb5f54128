// SPDX-License-Identifier: Apache-2.0
// Formulas on 4x4 matrices: 16 elements row after row, vectors as rows on the left.
#pragma once

#include "graphics/vectors.hpp"

#include <bit>

namespace zonm
{

struct Matrix4 {
    Numbers<4> row[4];

    ZONM_INLINED double operator()(int r, int c) const { return row[r][c]; }
};

ZONM_INLINED inline Matrix4 loadMatrix(const float *p)
{
    return {loadNumbers<4>(p), loadNumbers<4>(p + 4), loadNumbers<4>(p + 8),
            loadNumbers<4>(p + 12)};
}

ZONM_INLINED inline void storeMatrix(float *p, const Matrix4 &m)
{
    unrolled<0, 4>([&](auto r) ZONM_INLINED { storeNumbers(p + 4 * r, m.row[r]); });
}

// The four rows times a point, completed with z = 0 and w = 1 where it has fewer elements.
template <int N>
ZONM_INLINED inline Numbers<4> transformed(const Matrix4 &m, const Numbers<N> &point)
{
    if constexpr (N == 4)
        return ((m.row[0] * point[0] + m.row[1] * point[1]) + m.row[2] * point[2]) +
               m.row[3] * point[3];
    const auto plane = m.row[1] * point[1] + (m.row[0] * point[0] + m.row[3]);
    if constexpr (N == 3)
        return plane + m.row[2] * point[2];
    return plane;
}

// The point that the transformed one stands for.
template <int N>
ZONM_INLINED inline Numbers<N> transformedPoint(const Matrix4 &m, const Numbers<N> &point)
{
    const auto t = transformed(m, point);
    return firstOf<N>(t) / t[3];
}

// A row of a product, the terms added in rising order.
ZONM_INLINED inline Numbers<4> rowOfProduct(const Numbers<4> &a, const Matrix4 &b)
{
    return transformed(b, a);
}

// A product whose terms are added from the last one down.
ZONM_INLINED inline Matrix4 productFromLast(const Matrix4 &a, const Matrix4 &b)
{
    Matrix4 product;
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        const auto &f = a.row[r];
        product.row[r] =
            rounded(((b.row[3] * f[3] + b.row[2] * f[2]) + b.row[1] * f[1]) + b.row[0] * f[0]);
    });
    return product;
}

// Two points at once ---------------------------------------------------------------------------

// Coordinate i of both.
struct TwoPoints {
    Pair coordinate[3];
};

// Of N elements each.
template <int N> ZONM_INLINED inline TwoPoints loadTwo(const float *p, const float *q)
{
    const auto at = [](const float *v, ptrdiff_t i) ZONM_INLINED {
        return loadDoubles<float, 2>(bytes(v) + i * ptrdiff_t(sizeof(float)));
    };
    const Pair a = at(p, 0), b = at(q, 0);
    TwoPoints t = {Pair{a[0], b[0]}, Pair{a[1], b[1]}, Pair{}};
    if constexpr (N == 3) {
        const Pair c = at(p, 1), d = at(q, 1);
        t.coordinate[2] = Pair{c[1], d[1]};
    }
    return t;
}

// One after the other, since they may share bytes.
template <int N> ZONM_INLINED inline void storeTwo(float *p, float *q, const TwoPoints &t)
{
    const auto x = narrowed<float, 2>(t.coordinate[0]), y = narrowed<float, 2>(t.coordinate[1]);
    const auto z = narrowed<float, 2>(t.coordinate[2]);
    const auto xy = std::bit_cast<Pair>(Row{x[0], y[0], x[1], y[1]});
    constexpr ptrdiff_t size = sizeof(float);
    store(bytes(p), xy[0]);
    if constexpr (N == 3)
        store(bytes(p) + 2 * size, z[0]);
    store(bytes(q), xy[1]);
    if constexpr (N == 3)
        store(bytes(q) + 2 * size, z[1]);
}

// A matrix for two points: each element stands in both lanes.
struct MatrixForTwo {
    Pair m[4][4];

    explicit MatrixForTwo(const float *p)
    {
        unrolled<0, 16>([&](auto e)
                            ZONM_INLINED { m[e / 4][e % 4] = inAllLanes<2>(element(p, e)); });
    }
};

// As `transformedPoint`.
ZONM_INLINED inline TwoPoints transformedPoint(const MatrixForTwo &matrix, const TwoPoints &t)
{
    const auto &m = matrix.m;
    const auto &x = t.coordinate[0];
    const auto &y = t.coordinate[1];
    [[maybe_unused]] const auto &z = t.coordinate[2];
    Pair sum[4];
    unrolled<0, 4>([&](auto j) ZONM_INLINED {
        sum[j] = (m[1][j] * y + (m[0][j] * x + m[3][j])) + m[2][j] * z;
    });
    return {sum[0] / sum[3], sum[1] / sum[3], sum[2] / sum[3]};
}

// Inverse --------------------------------------------------------------------------------------

// Gauss-Jordan elimination with a pivot search along each row. All that is kept between steps is
// rounded to 32f. False, with nothing written, if the largest candidate of a row is below the
// limit; a NaN is not below it. `inverse` may be `source`; `det` may be null.
bool invert(const float *source, float *inverse, double *det);

} // namespace zonm
