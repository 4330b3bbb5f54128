// SPDX-License-Identifier: Apache-2.0
// QR decomposition by reflections and its back substitution by the letter, element by element.
#pragma once

#include <cmath>
#include <vector>

#include "solver_reference.hpp"

namespace test::qr
{

inline bool isStraight(int width, int height)
{
    return width == height && width >= 3 && width <= 6;
}
inline int reflections(int width, int height) { return width == height ? width - 1 : width; }

// A column whose sum of squares is strictly below it has no reflection.
inline double limit(Element e)
{
    return e == Element::f32 ? 1.1920928955078125e-07 : 2.220446049250313e-16;
}

// Returns false if a column fails.
inline bool decompose(Element e, const MatrixIn &src, const MatrixIn &dst, int width, int height)
{
    std::vector<double> buffer(static_cast<std::size_t>(height));
    for (int i = 0; i < height; ++i)
        for (int j = 0; j < width; ++j)
            dst.set(i, j, src.get(i, j));
    for (int k = 0; k < reflections(width, height); ++k) {
        double q = 0;
        for (int i = k; i < height; ++i)
            q += dst.get(i, k) * dst.get(i, k);
        if (std::fabs(q) < limit(e))
            return false;
        const double x = dst.get(k, k);
        double r = std::sqrt(q);
        if (!(x > 0))
            r = -r;
        const double c = 1 / (x + r);
        double n = 1;
        buffer[std::size_t(k)] = 1;
        for (int i = k + 1; i < height; ++i) {
            const double u = dst.get(i, k) * c;
            buffer[std::size_t(i)] = rounded(e, u);
            n += u * u;
        }
        const double b = -2 / n;
        for (int j = k; j < width; ++j) {
            double t = dst.get(k, j);
            for (int i = k + 1; i < height; ++i)
                t += dst.get(i, j) * buffer[std::size_t(i)];
            t = t * b;
            for (int i = k; i < height; ++i)
                dst.set(i, j, rounded(e, dst.get(i, j) + buffer[std::size_t(i)] * t));
        }
        for (int i = k + 1; i < height; ++i)
            dst.set(i, k, buffer[std::size_t(i)]);
    }
    return true;
}

inline void substituteStraight(Element e, const MatrixIn &a, const VectorIn &b, const VectorIn &dst,
                               int n)
{
    double x[6], factor[6];
    for (int i = 0; i < n; ++i)
        x[i] = b.get(i);
    for (int k = 0; k < n - 1; ++k) {
        double squares = 1;
        for (int i = k + 1; i < n; ++i)
            squares = squares + a.get(i, k) * a.get(i, k);
        factor[k] = -2 / squares;
    }
    if (n == 3) {
        const double t = (x[0] + a.get(1, 0) * x[1] + a.get(2, 0) * x[2]) * factor[0];
        const double c0 = x[0] + t, c1 = x[1] + a.get(1, 0) * t, c2 = x[2] + a.get(2, 0) * t;
        const double t2 = (c1 + a.get(2, 1) * c2) * factor[1];
        const double d2 = c2 + a.get(2, 1) * t2;
        x[2] = d2 / a.get(2, 2);
        x[1] = ((c1 - a.get(1, 2) * x[2]) + t2) / a.get(1, 1);
        x[0] = ((c0 - a.get(0, 1) * x[1]) - a.get(0, 2) * x[2]) / a.get(0, 0);
    } else {
        for (int k = 0; k < n - 1; ++k) {
            double t = x[k];
            for (int i = k + 1; i < n; ++i)
                t = t + a.get(i, k) * x[i];
            t = t * factor[k];
            x[k] = x[k] + t;
            for (int i = k + 1; i < n; ++i)
                x[i] = x[i] + a.get(i, k) * t;
        }
        for (int i = n - 1; i >= 0; --i) {
            for (int j = n - 1; j > i; --j)
                x[i] = x[i] - a.get(i, j) * x[j];
            x[i] = x[i] / a.get(i, i);
        }
    }
    for (int i = 0; i < n; ++i)
        dst.set(i, rounded(e, x[i]));
}

inline void substitute(Element e, const MatrixIn &a, const VectorIn &b, const VectorIn &dst,
                       int width, int height)
{
    if (isStraight(width, height))
        return substituteStraight(e, a, b, dst, width);
    std::vector<double> buffer(static_cast<std::size_t>(height));
    for (int i = 0; i < height; ++i)
        buffer[std::size_t(i)] = b.get(i);
    for (int k = 0; k < reflections(width, height); ++k) {
        double n = 1, t = buffer[std::size_t(k)];
        for (int i = k + 1; i < height; ++i) {
            const double u = a.get(i, k);
            n = n + u * u;
            t = t + u * buffer[std::size_t(i)];
        }
        t = t * (-2 / n);
        buffer[std::size_t(k)] = rounded(e, buffer[std::size_t(k)] + t);
        for (int i = k + 1; i < height; ++i)
            buffer[std::size_t(i)] = rounded(e, a.get(i, k) * t + buffer[std::size_t(i)]);
    }
    dst.set(width - 1, rounded(e, buffer[std::size_t(width - 1)] / a.get(width - 1, width - 1)));
    for (int i = width - 2; i >= 0; --i) {
        double f = 0;
        for (int j = i + 1; j < width; ++j)
            f += a.get(i, j) * dst.get(j);
        dst.set(i, rounded(e, (buffer[std::size_t(i)] - f) / a.get(i, i)));
    }
}

} // namespace test::qr
