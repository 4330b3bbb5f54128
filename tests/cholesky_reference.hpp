// SPDX-License-Identifier: Apache-2.0
// Cholesky decomposition and back substitution by the letter, element by element.
#pragma once

#include <cmath>

#include "solver_reference.hpp"

namespace test::cholesky
{

inline bool isStraight(int n) { return n >= 3 && n <= 6; }

// A pivot at or below the limit fails.
inline double pivotLimit(const Export &e, int n, bool adjacentElements)
{
    if (e.description == "P")
        return n == 3 ? 1.1920928955078125e-07 : 0;
    if (e.name == "zonmCholeskyDecomp_ma_64f" && !adjacentElements)
        return n >= 3 && n <= 5 ? 0 : 2.220446049250313e-16;
    return 0;
}

inline bool writesLate(const Export &e, int n) { return e.description == "P" && n == 3; }

// Returns false if a pivot fails.
inline bool decompose(Element e, double limit, bool late, const MatrixIn &src, const MatrixIn &dst,
                      int n)
{
    if (isStraight(n)) {
        double a[6][6], l[6][6];
        for (int i = 0; i < n; ++i)
            for (int j = 0; j <= i; ++j)
                a[i][j] = src.get(i, j);
        const auto write = [&](int i, int columns) {
            for (int j = 0; j < columns; ++j)
                dst.set(i, j, l[i][j]);
        };
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < i; ++j) {
                double t = a[i][j];
                for (int k = 0; k < j; ++k)
                    t = t - l[i][k] * l[j][k];
                l[i][j] = rounded(e, t * l[j][j]);
            }
            if (!late)
                write(i, i);
            double p = a[i][i];
            for (int k = 0; k < i; ++k)
                p = p - l[i][k] * l[i][k];
            if (p <= limit)
                return false;
            l[i][i] = rounded(e, 1 / std::sqrt(p));
            if (late && i == 1) {
                write(0, 1);
                write(1, 2);
            } else if (!late || i == 2) {
                write(i, i + 1);
            }
        }
        return true;
    }
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < i; ++j) {
            double t = src.get(i, j);
            for (int k = 0; k < j; ++k)
                t = t - dst.get(i, k) * dst.get(j, k);
            dst.set(i, j, rounded(e, t * dst.get(j, j)));
        }
        double p = src.get(i, i);
        for (int k = 0; k < i; ++k)
            p = p - dst.get(i, k) * dst.get(i, k);
        if (p <= limit)
            return false;
        dst.set(i, i, rounded(e, 1 / std::sqrt(p)));
    }
    return true;
}

// Size 3 subtracts the nearest column first on the way back, the others the farthest.
inline void substitute(Element e, const MatrixIn &l, const VectorIn &b, const VectorIn &dst, int n)
{
    if (isStraight(n)) {
        double x[6];
        for (int i = 0; i < n; ++i)
            x[i] = b.get(i);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < i; ++j)
                x[i] = x[i] - l.get(i, j) * x[j];
            x[i] = x[i] * l.get(i, i);
        }
        for (int i = n - 1; i >= 0; --i) {
            if (n == 3)
                for (int j = i + 1; j < n; ++j)
                    x[i] = x[i] - l.get(j, i) * x[j];
            else
                for (int j = n - 1; j > i; --j)
                    x[i] = x[i] - l.get(j, i) * x[j];
            x[i] = x[i] * l.get(i, i);
        }
        for (int i = 0; i < n; ++i)
            dst.set(i, rounded(e, x[i]));
        return;
    }
    for (int i = 0; i < n; ++i) {
        double t = b.get(i);
        for (int j = 0; j < i; ++j)
            t = t - l.get(i, j) * dst.get(j);
        dst.set(i, rounded(e, t * l.get(i, i)));
    }
    for (int i = n - 1; i >= 0; --i) {
        double t = dst.get(i);
        for (int j = n - 1; j > i; --j)
            t = t - l.get(j, i) * dst.get(j);
        dst.set(i, rounded(e, t * l.get(i, i)));
    }
}

} // namespace test::cholesky
