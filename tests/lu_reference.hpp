// SPDX-License-Identifier: Apache-2.0
// LU decomposition and back substitution by the letter, element by element through memory that may
// overlap in any way.
#pragma once

#include <cmath>
#include <functional>
#include <vector>

#include "support/operand.hpp"

namespace test::lu
{

inline bool isStraight(int n) { return n >= 3 && n <= 6; }

// The magnitudes below which, or at which, a pivot is singular.
inline double limit(Element e, int n)
{
    if (isStraight(n))
        return e == Element::f32 ? 2.350988701644575e-38 : 4.450147717014403e-308;
    return e == Element::f32 ? 1.1920928955078125e-07 : 2.220446049250313e-16;
}
inline bool isSingular(Element e, int n, double pivot)
{
    return isStraight(n) ? std::fabs(pivot) < limit(e, n) : std::fabs(pivot) <= limit(e, n);
}

struct MatrixIn {
    std::function<double(int i, int j)> get;
    std::function<void(int i, int j, double)> set;
};
struct PivotsIn {
    std::function<int(int i)> get;
    std::function<void(int i, int row)> set;

    void exchange(int k, int m) const
    {
        const int a = get(k), b = get(m);
        set(k, b);
        set(m, a);
    }
};

// The position whose row holds the pivot of step k.
inline int searchPivot(const MatrixIn &w, const PivotsIn &p, int n, int k)
{
    int m = k;
    double best = w.get(p.get(k), k);
    for (int i = k + 1; i < n; ++i) {
        const double candidate = w.get(p.get(i), k);
        if (std::fabs(candidate) > std::fabs(best)) {
            m = i;
            best = candidate;
        }
    }
    return m;
}

inline void update(Element e, const MatrixIn &w, const PivotsIn &p, int n, int k)
{
    for (int i = k + 1; i < n; ++i)
        for (int j = k + 1; j < n; ++j) {
            const double product = w.get(p.get(i), k) * w.get(p.get(k), j);
            w.set(p.get(i), j, rounded(e, w.get(p.get(i), j) - product));
        }
}

// Returns false if a pivot is singular.
inline bool decomposeGeneral(Element e, const MatrixIn &src, const PivotsIn &p, const MatrixIn &w,
                             int n)
{
    for (int i = 0; i < n; ++i)
        p.set(i, i);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            w.set(i, j, src.get(i, j));
    for (int k = 0; k < n - 1; ++k) {
        const int m = searchPivot(w, p, n, k);
        if (isSingular(e, n, w.get(p.get(m), k)))
            return false;
        p.exchange(k, m);
        const double r = 1 / w.get(p.get(k), k);
        for (int i = k + 1; i < n; ++i)
            w.set(p.get(i), k, rounded(e, w.get(p.get(i), k) * r));
        update(e, w, p, n, k);
    }
    return !isSingular(e, n, w.get(p.get(n - 1), n - 1));
}

inline bool decomposeStraight(Element e, const MatrixIn &src, const PivotsIn &p,
                              const MatrixIn &dst, int n)
{
    double copy[6][6];
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            copy[i][j] = src.get(i, j);
    const MatrixIn w{[&](int i, int j) { return copy[i][j]; },
                     [&](int i, int j, double value) { copy[i][j] = value; }};
    for (int i = 0; i < n; ++i)
        p.set(i, i);
    for (int k = 0; k < n; ++k) {
        p.exchange(k, searchPivot(w, p, n, k));
        const int row = p.get(k);
        if (isSingular(e, n, copy[row][k]))
            return false;
        for (int j = 0; j < n; ++j)
            dst.set(row, j, copy[row][j]);
        for (int i = k + 1; i < n; ++i) {
            double &l = copy[p.get(i)][k];
            l = rounded(e, k < n - 2 ? l * (1 / copy[row][k]) : l / copy[row][k]);
        }
        update(e, w, p, n, k);
    }
    return true;
}

inline bool decompose(Element e, const MatrixIn &src, const PivotsIn &p, const MatrixIn &dst, int n)
{
    return isStraight(n) ? decomposeStraight(e, src, p, dst, n)
                         : decomposeGeneral(e, src, p, dst, n);
}

struct VectorIn {
    std::function<double(int i)> get;
    std::function<void(int i, double)> set;
};

// `shared` is the form with one matrix for many vectors.
inline void substitute(Element e, const MatrixIn &a, const PivotsIn &p, const VectorIn &b,
                       const VectorIn &dst, int n, bool shared)
{
    const auto f = [&](int i, int j) { return a.get(p.get(i), j); };
    if (isStraight(n)) {
        double x[6];
        for (int i = 0; i < n; ++i) {
            x[i] = b.get(p.get(i));
            for (int j = i - 1; j >= 0; --j)
                x[i] = x[i] - f(i, j) * x[j];
        }
        for (int i = n - 1; i >= 0; --i) {
            for (int j = i + 1; j < n; ++j)
                x[i] = x[i] - f(i, j) * x[j];
            x[i] = shared ? x[i] * (1 / f(i, i)) : x[i] / f(i, i);
        }
        for (int i = 0; i < n; ++i)
            dst.set(i, rounded(e, x[i]));
        return;
    }
    dst.set(0, b.get(p.get(0)));
    for (int i = 1; i < n; ++i) {
        double s = 0;
        for (int j = 0; j < i; ++j)
            s += f(i, j) * dst.get(j);
        dst.set(i, rounded(e, b.get(p.get(i)) - s));
    }
    dst.set(n - 1, rounded(e, dst.get(n - 1) / f(n - 1, n - 1)));
    for (int i = n - 2; i >= 0; --i) {
        double s = 0;
        for (int j = i + 1; j < n; ++j)
            s += f(i, j) * dst.get(j);
        dst.set(i, rounded(e, (dst.get(i) - s) / f(i, i)));
    }
}

// Object k of an operand, and `pivots` from an entry on, as they lie in memory.
inline MatrixIn matrixOf(const Operand &o, int k)
{
    return {[&o, k](int i, int j) { return o(k, i, j); },
            [&o, k](int i, int j, double v) { o.set(k, i, j, v); }};
}
inline VectorIn vectorOf(const Operand &o, int k)
{
    return {[&o, k](int i) { return o(k, i); }, [&o, k](int i, double v) { o.set(k, i, 0, v); }};
}
inline PivotsIn pivotsOf(const Operand &o, int first)
{
    return {[&o, first](int i) { return int(o(0, first + i)); },
            [&o, first](int i, int row) { o.set(0, first + i, 0, row); }};
}

} // namespace test::lu
