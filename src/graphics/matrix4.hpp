// SPDX-License-Identifier: Apache-2.0
// Formulas on 4x4 matrices: 16 elements row after row, vectors as rows on the left.
#pragma once

#include "graphics/vectors.hpp"

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

// Gauss-Jordan elimination with a pivot search along each row. All that is kept between steps is
// rounded to 32f. False, with nothing written, if the largest candidate of a row is below the
// limit; a NaN is not below it. `inverse` may be `source`; `det` may be null.
bool invert(const Matrix4 &source, Matrix4 &inverse, double *det);

} // namespace zonm
