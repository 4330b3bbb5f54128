// SPDX-License-Identifier: Apache-2.0
// Systems of order 1 and 2 with complete pivoting, after LAPACK's dlaln2:
//
//   (A - (wr + i wi) I) X = scale B,  scale <= 1 where X would overflow
//
// It departs from the published routine: complex quotients are formed directly, and a matrix of
// order 2 whose elements are all below the limit has no solution instead of a perturbed one.
#pragma once

#include "eigen/schur.hpp"

namespace zonm::eigen
{

template <class T> struct Complex {
    Number<T> re, im;
};
template <class T> double size1(const Complex<T> &z) { return magnitude(z.re) + magnitude(z.im); }
inline double larger(double a, double b) { return a < b ? b : a; }

// (p + i q) / (r + i s)
template <class T> Complex<T> quotient(double p, double q, double r, double s)
{
    const double reciprocal = 1 / (r * r + s * s);
    return {(p * r + q * s) * reciprocal, (q * r - p * s) * reciprocal};
}

template <class T> struct SmallSolution {
    bool exists = true;
    Complex<T> x[2] = {{0.0, 0.0}, {0.0, 0.0}};
    Number<T> scale = 1, norm = 0;
};

template <class T> struct SmallSystem {
    using C = Complex<T>;

    static constexpr double low = Limits<T>::normFloor, high = 1 / low;

    int order;
    bool isComplex;
    Number<T> a11, a21, a12, a22; // those of order 1 have a11 alone
    Number<T> wr, wi, smallest;
    C b[2];

    SmallSolution<T> solve() const
    {
        const Number<T> limit = larger(smallest, low);
        return order == 1  ? solveOne(limit)
               : isComplex ? solvePairComplex(limit)
                           : solvePairReal(limit);
    }

  private:
    SmallSolution<T> solveOne(Number<T> limit) const
    {
        SmallSolution<T> s;
        C c{a11 - wr, isComplex ? -wi : 0};
        Number<T> size = size1(c);
        if (size < limit) {
            c = {limit, 0.0};
            size = limit;
        }
        const Number<T> right = size1(b[0]);
        if (size < 1 && right > 1 && right > high * size)
            s.scale = 1 / right;
        if (isComplex)
            s.x[0] = quotient<T>(s.scale * b[0].re, s.scale * b[0].im, c.re, c.im);
        else
            s.x[0].re = b[0].re * s.scale / c.re;
        s.norm = size1(s.x[0]);
        return s;
    }

    // The elements of order 2 in columns with the largest in front. Of equals the first is taken.
    struct Pivoted {
        C u11, c21, u12, c22;
        Number<T> largest = 0;
        bool rows = false, columns = false; // that were exchanged
    };
    Pivoted pivoted() const
    {
        static constexpr int places[4][4] = {
            {0, 1, 2, 3}, {1, 0, 3, 2}, {2, 3, 0, 1}, {3, 2, 1, 0}};
        const Number<T> imaginary = isComplex ? -wi : 0;
        const C c[4] = {{a11 - wr, imaginary}, {a21, 0.0}, {a12, 0.0}, {a22 - wr, imaginary}};
        Pivoted p;
        int pivot = 0;
        for (int i = 0; i < 4; ++i) {
            const Number<T> size = size1(c[i]);
            if (size > p.largest) {
                p.largest = size;
                pivot = i;
            }
        }
        const int(&place)[4] = places[pivot];
        p.u11 = c[place[0]];
        p.c21 = c[place[1]];
        p.u12 = c[place[2]];
        p.c22 = c[place[3]];
        p.rows = pivot % 2 == 1;
        p.columns = pivot / 2 == 1;
        return p;
    }
    static bool isVoid(const Pivoted &p, double limit)
    {
        return p.largest < limit || !(p.largest > 0);
    }

    SmallSolution<T> solvePairReal(double limit) const
    {
        SmallSolution<T> s;
        const Pivoted p = pivoted();
        if (isVoid(p, limit)) {
            s.exists = false;
            return s;
        }
        const Number<T> reciprocal = 1 / p.u11.re, l = reciprocal * p.c21.re;
        Number<T> u22 = p.c22.re - p.u12.re * l;
        if (magnitude(u22) < limit)
            u22 = limit;
        const Number<T> b1 = b[p.rows].re;
        const Number<T> b2 = b[!p.rows].re - l * b1;
        const Number<T> right = larger(magnitude(b1 * double(u22 * reciprocal)), magnitude(b2));
        if (right > 1 && magnitude(u22) < 1 && right >= high * magnitude(u22))
            s.scale = 1 / right;
        const Number<T> x2 = b2 * s.scale / u22;
        const Number<T> x1 = s.scale * b1 * reciprocal - x2 * double(p.u12.re * reciprocal);
        s.x[p.columns].re = x1;
        s.x[!p.columns].re = x2;
        s.norm = larger(magnitude(x1), magnitude(x2));
        return scaledDown(s, p.largest);
    }

    SmallSolution<T> solvePairComplex(double limit) const
    {
        SmallSolution<T> s;
        const Pivoted p = pivoted();
        if (isVoid(p, limit)) {
            s.exists = false;
            return s;
        }
        // r is the reciprocal of the pivot, l the multiplier, g the upper element times r.
        C r, l, g, u22;
        if (p.rows == p.columns) { // the pivot is on the diagonal, the other two are real
            if (magnitude(p.u11.re) > magnitude(p.u11.im)) {
                const Number<T> q = p.u11.im / p.u11.re;
                r.re = 1 / (p.u11.re * (1 + q * q));
                r.im = -q * r.re;
            } else {
                const Number<T> q = p.u11.re / p.u11.im;
                r.im = -1 / (p.u11.im * (1 + q * q));
                r.re = -q * r.im;
            }
            l = {p.c21.re * r.re, p.c21.re * r.im};
            g = {p.u12.re * r.re, p.u12.re * r.im};
            u22 = {p.c22.re - p.u12.re * l.re, p.c22.im - p.u12.re * l.im};
        } else { // it is off the diagonal and real, as is the last element
            r = {1 / p.u11.re, 0.0};
            l = {p.c21.re * r.re, p.c21.im * r.re};
            g = {p.u12.re * r.re, p.u12.im * r.re};
            u22 = {p.c22.re - p.u12.re * l.re + p.u12.im * l.im,
                   -p.u12.re * l.im - p.u12.im * l.re};
        }
        const Number<T> size = size1(u22);
        if (size < limit)
            u22 = {limit, 0.0};
        C b1 = b[p.rows], b2 = b[!p.rows];
        b2 = {b2.re - l.re * b1.re + l.im * b1.im, b2.im - l.im * b1.re - l.re * b1.im};
        const Number<T> right = larger(size1(b1) * (size * size1(r)), size1(b2));
        if (right > 1 && size < 1 && right >= high * size) {
            s.scale = 1 / right;
            for (C *z : {&b1, &b2})
                *z = {z->re * s.scale, z->im * s.scale};
        }
        const C x2 = quotient<T>(b2.re, b2.im, u22.re, u22.im);
        const C x1 = {r.re * b1.re - r.im * b1.im - g.re * x2.re + g.im * x2.im,
                      r.im * b1.re + r.re * b1.im - g.im * x2.re - g.re * x2.im};
        s.x[p.columns] = x1;
        s.x[!p.columns] = x2;
        s.norm = larger(size1(x1), size1(x2));
        return scaledDown(s, p.largest);
    }

    static SmallSolution<T> scaledDown(SmallSolution<T> s, double largest)
    {
        if (s.norm > 1 && largest > 1 && s.norm > high / largest) {
            const Number<T> factor = largest / high;
            for (C &z : s.x)
                z = {z.re * factor, z.im * factor};
            s.norm = s.norm * factor;
            s.scale = s.scale * factor;
        }
        return s;
    }
};

} // namespace zonm::eigen
