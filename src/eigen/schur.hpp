// SPDX-License-Identifier: Apache-2.0
// Hessenberg reduction and double-shift QR iteration of a general matrix, after LAPACK's dgehd2,
// dlarfg, dlahqr and dlanv2 of release 3.0, without balancing. The formulas are numbered as
// published: rows and columns from 1. Sums run in ascending order from 0.
//
// It departs from the published routines, and has to:
//   - no test is for zero: all compare with the safe minimum;
//   - a reflector is not scaled against overflow, its norm has a floor instead;
//   - for eigenvalues alone a subdiagonal element is negligible absolutely, whatever its
//   neighbours;
//   - a 2x2 block with equal diagonal elements is left as it stands, also if its eigenvalues are
//     real, and two cases of a block with nearly equal eigenvalues are told apart otherwise.
#pragma once

#include "eigen/working_matrix.hpp"
#include "zonm.h"

#include <bit>

namespace zonm::eigen
{

template <class T> struct Limits {
    static constexpr bool isSingle = sizeof(T) == 4;
    static constexpr double epsilon = isSingle ? 0x1p-23 : 0x1p-52;
    static constexpr double safeMinimum = isSingle ? 0x1p-125 : 0x1p-1021;
    static constexpr double normFloor = 2 * safeMinimum;
};

// What the kernels with vectors do otherwise, and the one of both sides otherwise than the two of
// one side each.
struct SchurForm {
    bool withVectors;     // deflates relatively, transforms the whole matrix and Z
    bool guardsDivisions; // of the shifts and of the sweep's start, against `guardLimit`
};
inline constexpr double guardLimit = 0x1p-125; // also in 64f

inline constexpr SchurForm valuesOnly = {.withVectors = false, .guardsDivisions = false};
inline constexpr SchurForm vectorsOfOneSide = {.withVectors = true, .guardsDivisions = true};
inline constexpr SchurForm vectorsOfBothSides = {.withVectors = true, .guardsDivisions = false};

// An n by n matrix in columns, in consecutive memory, rows and columns numbered from 1.
template <class T> struct ColumnMatrix {
    StoredRun<T> elements;
    int n;

    Stored<T> operator()(int r, int c) const { return elements[place(r, c)]; }
    StoredRun<T> columnFrom(int r, int c) const { return elements.from(place(r, c)); }

  private:
    ptrdiff_t place(int r, int c) const { return ptrdiff_t(c - 1) * n + (r - 1); }
};

inline bool isNegligible(double x, double limit) { return magnitude(x) <= limit; }
inline double signOf(double x) { return x < 0 ? -1 : 1; }

// Reflectors -----------------------------------------------------------------------------------

// Of the two the one that `x` is not.
inline double otherOf(double a, double b, double x)
{
    const auto bits = [](double v) { return std::bit_cast<std::uint64_t>(v); };
    return std::bit_cast<double>(bits(a) ^ bits(b) ^ bits(x));
}

// sqrt(p*p + q*q), with a floor.
template <class T> double hypotenuse(double p, double q)
{
    const double a = magnitude(p), b = magnitude(q);
    // The other one by its bits: a branch here is a guess.
    const double larger = a > b ? a : b, smaller = otherOf(a, b, larger);
    const double result = smaller >= Limits<T>::safeMinimum
                              ? larger * squareRoot(smaller * smaller / (larger * larger) + 1)
                              : larger;
    return result < Limits<T>::safeMinimum ? Limits<T>::normFloor : result;
}

// I - t*v*transpose(v) with v = (1, x) takes (alpha, x) to (beta, 0). Returns t; alpha becomes
// beta.
// `length` is a number, or a constant.
template <class T, class X, class N> inline Number<T> makeReflector(Number<T> &alpha, X x, N length)
{
    if (length == 0)
        return 0.0;
    double sum = 0;
    for (int i = 0; i < length; ++i)
        sum += x[i] * x[i];
    const Number<T> norm = squareRoot(sum);
    if (norm < Limits<T>::safeMinimum)
        return 0.0;
    const Number<T> r = hypotenuse<T>(alpha, norm);
    const Number<T> beta = alpha >= 0 ? -r : double(r);
    const Number<T> t = (beta - alpha) / beta;
    const double factor = 1 / (alpha - beta);
    for (int i = 0; i < length; ++i)
        x[i] *= factor;
    alpha = beta;
    return t;
}

// The tails of the reflectors stay below the subdiagonal; `w` is work memory.
template <class T> void reduceToHessenberg(ColumnMatrix<T> h, StoredRun<T> tau, StoredRun<T> w)
{
    const int n = h.n;
    for (int k = 1; k < n; ++k) {
        Number<T> beta = h(k + 1, k);
        const Number<T> t = makeReflector(beta, h.columnFrom(k + 1, k).from(1), n - k - 1);
        h(k + 1, k) = 1;
        const StoredRun<T> v = h.columnFrom(k + 1, k);
        if (magnitude(t) > Limits<T>::safeMinimum) {
            for (int i = 1; i <= n; ++i) {
                double sum = 0;
                for (int j = 1; j <= n - k; ++j)
                    sum += h(i, k + j) * v[j - 1];
                w[i - 1] = sum;
            }
            for (int j = 1; j <= n - k; ++j) {
                const double vj = v[j - 1];
                for (int i = 1; i <= n; ++i)
                    h(i, k + j) -= t * double(w[i - 1]) * vj;
            }
            for (int j = 1; j <= n - k; ++j) {
                const StoredRun<T> column = h.columnFrom(k + 1, k + j);
                double sum = 0;
                for (int i = 0; i < n - k; ++i)
                    sum += column[i] * v[i];
                const Number<T> p = sum;
                for (int i = 0; i < n - k; ++i)
                    column[i] -= t * double(v[i]) * p;
            }
        }
        tau[k - 1] = t;
        h(k + 1, k) = beta;
    }
}

template <class T> void clearBelowSubdiagonal(ColumnMatrix<T> h)
{
    for (int c = 1; c <= h.n; ++c)
        for (int r = c + 2; r <= h.n; ++r)
            h(r, c) = 0;
}

// 2x2 blocks -----------------------------------------------------------------------------------

template <class T> struct PlaneRotation {
    Number<T> cosine, sine;
};

// Makes the block upper triangular or its diagonal elements equal.
template <class T> struct Block {
    Number<T> a, b, c, d;

    // Whether there is a rotation; if not, the last one stays in force.
    bool standardise(PlaneRotation<T> &rotation)
    {
        constexpr double zero = Limits<T>::safeMinimum;
        if (isNegligible(c, zero)) {
            rotation = {1.0, 0.0};
        } else if (isNegligible(b, zero)) {
            rotation = {0.0, 1.0};
            const Number<T> first = a;
            a = d;
            d = first;
            b = -c;
            c = 0.0;
        } else if (isNegligible(a - d, zero)) {
            if (signOf(b) == signOf(c))
                return false;
            rotation = {1.0, 0.0};
        } else {
            const Number<T> difference = a - d, p = 0.5 * difference;
            const double absB = magnitude(b), absC = magnitude(c);
            const Number<T> larger = absB > absC ? absB : absC;
            const Number<T> smaller =
                (absB > absC ? absC : absB) * (signOf(b) != signOf(c) ? -1 : 1);
            const Number<T> scale = magnitude(p) > larger ? magnitude(p) : double(larger);
            const Number<T> z = p / scale * p + larger / scale * smaller;
            if (z >= 4 * Limits<T>::epsilon)
                makeTriangular(rotation, p, larger, smaller, scale, z);
            else
                equaliseDiagonal(rotation, difference, p);
        }
        return true;
    }

  private:
    void makeTriangular(PlaneRotation<T> &rotation, Number<T> p, double larger, double smaller,
                        double scale, Number<T> z)
    {
        const double r = squareRoot(scale) * squareRoot(z);
        z = p > 0 ? p + r : p - r;
        const Number<T> tau = hypotenuse<T>(c, z);
        rotation = {z / tau, c / tau};
        a = d + z;
        d -= larger / z * smaller;
        b = b - c;
        c = 0.0;
    }

    void equaliseDiagonal(PlaneRotation<T> &rotation, Number<T> difference, Number<T> p)
    {
        const Number<T> sigma = b + c;
        Number<T> tau = hypotenuse<T>(sigma, difference);
        Number<T> cosine = squareRoot(0.5 * (magnitude(sigma) / tau + 1));
        Number<T> sine = -p / (tau * cosine) * (sigma < 0 ? -1 : 1);
        const Number<T> aa = a * cosine + b * sine, bb = b * cosine - a * sine,
                        cc = c * cosine + d * sine, dd = d * cosine - c * sine;
        a = aa * cosine + cc * sine;
        b = bb * cosine + dd * sine;
        c = cc * cosine - aa * sine;
        d = dd * cosine - bb * sine;
        const Number<T> mean = 0.5 * (a + d);
        a = d = mean;
        constexpr double zero = Limits<T>::safeMinimum;
        if (magnitude(c) > zero && magnitude(b) > zero) {
            if (signOf(b) == signOf(c)) {
                if (c < 0)
                    p = -p;
                const Number<T> rootB = squareRoot(magnitude(b)), rootC = squareRoot(magnitude(c));
                tau = 1 / squareRoot(magnitude(b + c));
                a = mean + p;
                d = mean - p;
                b = b - c;
                c = 0.0;
                const Number<T> old = cosine;
                cosine = (old * rootB - sine * rootC) * tau;
                sine = (old * rootC + sine * rootB) * tau;
            }
        } else {
            b = -c;
            c = 0.0;
            const Number<T> old = cosine;
            cosine = -sine;
            sine = old;
        }
        rotation = {cosine, sine};
    }
};

// Iteration ------------------------------------------------------------------------------------

// What outlives an object within a call: kernels of one side may use what an object before left.
template <class T> struct Carried {
    PlaneRotation<T> rotation = {0.0, 0.0};
    Number<T> u[3] = {0.0, 0.0, 0.0};
    // Of the object at hand: whether it has set them, and whether it has used them before.
    bool hasRotation = false, hasStart = false, usesFormer = false;

    Carried forNext() const
    {
        Carried next = *this;
        next.hasRotation = next.hasStart = next.usesFormer = false;
        return next;
    }
    // What is left behind this object and the next one, which began with the same.
    Carried followedBy(const Carried &next) const
    {
        Carried both = forNext();
        if (next.hasRotation)
            both.rotation = next.rotation;
        for (int i = 0; i < 3 && next.hasStart; ++i)
            both.u[i] = next.u[i];
        return both;
    }
};

// A reflector of a sweep is a chain of roots and divisions, and mostly waits: a sweep goes in steps
// of one reflector, so that two objects can take theirs in turn.
template <class T, bool withVectors> class QrIteration
{
  public:
    ZonStatus status = zonStsOk;

    QrIteration(const SchurForm &f, ColumnMatrix<T> matrix, ColumnMatrix<T> transform,
                StoredRun<T> valuesRe, StoredRun<T> valuesIm, Carried<T> &c)
        : form(f), h(matrix), z(transform), re(valuesRe), im(valuesIm), carried(c), n(matrix.n),
          budget(30 * n), last(n)
    {
        findSweep();
    }

    void run()
    {
        while (goesOn)
            step();
    }
    friend void runTogether(QrIteration &a, QrIteration &b)
    {
        while (a.goesOn && b.goesOn) {
            a.step();
            b.step();
        }
        a.run();
        b.run();
    }

  private:
    const SchurForm &form;
    const ColumnMatrix<T> h, z;
    const StoredRun<T> re, im;
    Carried<T> &carried;
    const int n;
    int budget; // of sweeps, for all values that are left
    int sweeps = 0;
    bool goesOn = true;     // there is a sweep to be done
    int first = 1, last;    // the active block
    int begin = 1, row = 1; // where the sweep began, and where it stands
    Number<T> h33, h44, h43h34;

    void step()
    {
        row + 2 <= last ? reflect<3>() : reflect<2>();
        if (++row == last) {
            ++sweeps;
            findSweep();
        }
    }

    // Takes all values that have split off.
    [[gnu::noinline]] void findSweep()
    {
        for (; last >= 1; last = first - 1, first = 1, sweeps = 0) {
            if (sweeps < budget)
                split();
            if (first < last - 1) {
                goesOn = sweeps < budget;
                if (goesOn) {
                    chooseShifts(sweeps == 10 || sweeps == 20);
                    begin = row = beginSweep();
                } else
                    status = zonStsNoConvergence;
                return;
            }
            if (first == last) {
                re[last - 1] = h(last, last);
                im[last - 1] = 0;
            } else
                takeBlock();
            budget -= sweeps;
        }
        goesOn = false;
    }

    bool isSplitAt(int k) const
    {
        using L = Limits<T>;
        if constexpr (!withVectors)
            return isNegligible(h(k, k - 1), L::epsilon);
        const Number<T> smallest = L::safeMinimum * (n / L::epsilon);
        Number<T> neighbours = magnitude(h(k - 1, k - 1)) + magnitude(h(k, k));
        if (neighbours <= L::safeMinimum)
            neighbours = largestColumnSum();
        const double relative = L::epsilon * neighbours;
        return isNegligible(h(k, k - 1), relative > smallest ? relative : double(smallest));
    }
    double largestColumnSum() const
    {
        double largest = 0;
        for (int c = first; c <= last; ++c) {
            double sum = 0;
            for (int r = first; r <= (c < last ? c + 1 : last); ++r)
                sum += magnitude(h(r, c));
            largest = sum > largest ? sum : largest;
        }
        return largest;
    }
    void split()
    {
        int k = last;
        while (k > first && !isSplitAt(k))
            --k;
        first = k;
        if (first > 1)
            h(first, first - 1) = 0;
    }

    void chooseShifts(bool exceptional)
    {
        const int i = last;
        if (exceptional) {
            const Number<T> s = magnitude(h(i, i - 1)) + magnitude(h(i - 1, i - 2));
            h44 = 0.75 * s + h(i, i);
            h33 = h44;
            h43h34 = -0.4375 * s * s;
            return;
        }
        h44 = h(i, i);
        h33 = h(i - 1, i - 1);
        h43h34 = h(i, i - 1) * h(i - 1, i);
        const double half = (h33 - h44) * 0.5;
        Number<T> discriminant = half * half + h43h34;
        if (!(discriminant > (form.guardsDivisions ? guardLimit : 0)))
            return;
        // Real roots: the one closer to h44 twice.
        discriminant = squareRoot(discriminant);
        const Number<T> average = 0.5 * (h33 + h44);
        const double signedRoot = discriminant * (average >= 0 ? 1. : -1.);
        const bool isFirstLarger = magnitude(h33) - magnitude(h44) > 0;
        if (!form.guardsDivisions) {
            if (isFirstLarger) {
                h33 = h33 * h44 - h43h34;
                h44 = h33 / (signedRoot + average);
            } else
                h44 = signedRoot + average;
        } else {
            const Number<T> w = signedRoot + average;
            const Number<T> reciprocal = magnitude(w) > guardLimit ? 1 / w : double(w);
            h44 = magnitude(h33) > magnitude(h44) ? (h33 * h44 - h43h34) * reciprocal : double(w);
        }
        h33 = h44;
        h43h34 = 0.0;
    }

    // The row where the sweep begins: the lowest of two small consecutive subdiagonal elements.
    int beginSweep()
    {
        Number<T>(&u)[3] = carried.u;
        for (int m = last - 2;; --m) {
            const Number<T> h11 = h(m, m), h22 = h(m + 1, m + 1), h21 = h(m + 1, m),
                            h12 = h(m, m + 1);
            if (form.guardsDivisions && isNegligible(h21, guardLimit)) {
                carried.usesFormer |= !carried.hasStart;
                return m;
            }
            carried.hasStart = true;
            const Number<T> h44s = h44 - h11, h33s = h33 - h11;
            u[0] = (h33s * h44s - h43h34) / h21 + h12;
            u[1] = h22 - h11 - h33s - h44s;
            u[2] = h(m + 2, m + 1);
            const Number<T> s = magnitude(u[0]) + magnitude(u[1]) + magnitude(u[2]);
            const double scale = magnitude(s) > guardLimit ? 1 / s : double(s);
            for (Number<T> &x : u)
                x = form.guardsDivisions ? x * scale : x / s;
            if (m == first)
                return m;
            const double h00 = h(m - 1, m - 1), h10 = h(m, m - 1);
            if (Limits<T>::epsilon *
                    (magnitude(u[0]) * (magnitude(h00) + magnitude(h11) + magnitude(h22))) >=
                magnitude(h10) * (magnitude(u[1]) + magnitude(u[2])))
                return m;
        }
    }

    // One reflector on `rows` rows and columns from `row` on.
    template <int rows> [[gnu::noinline]] void reflect()
    {
        const int q = row;
        const ColumnMatrix<T> m = h;
        Number<T> u[3] = {carried.u[0], carried.u[1], carried.u[2]};
        if (q > begin)
            for (int i = 0; i < rows; ++i)
                u[i] = m(q + i, q - 1);
        const Number<T> t1 = makeReflector<T>(u[0], &u[1], std::integral_constant<int, rows - 1>{});
        if (q > begin) {
            m(q, q - 1) = u[0];
            m(q + 1, q - 1) = 0;
            if (rows == 3)
                m(q + 2, q - 1) = 0;
        } else if (begin > first)
            m(q, q - 1) = -m(q, q - 1);
        for (int i = 0; i < rows; ++i)
            carried.u[i] = u[i];
        const Reflection<rows> reflection{u[1], u[2], t1, t1 * u[1], t1 * u[2]};
        reflection.onRows(m, q, q, withVectors ? n : last);
        reflection.onColumns(m, q, withVectors ? 1 : first, q + 3 < last ? q + 3 : last);
        if constexpr (withVectors)
            reflection.onColumns(z, q, 1, n);
    }

    // Values of its own: a store to the caller's memory could change others.
    template <int rows> struct Reflection {
        Number<T> u2, u3, t1, t2, t3;

        void of(Stored<T> x, Stored<T> y, Stored<T> w) const
        {
            const double one = x, two = y;
            if constexpr (rows == 3) {
                const double three = w;
                const Number<T> sum = u2 * two + one + u3 * three;
                x = one - sum * t1;
                y = two - sum * t2;
                w = three - sum * t3;
            } else {
                const Number<T> sum = u2 * two + one;
                x = one - sum * t1;
                y = two - sum * t2;
            }
        }
        // Rows or columns q, q+1 and q+2 of m, from element `from` to element `to`.
        void onRows(ColumnMatrix<T> m, int q, int from, int to) const
        {
            const Reflection self = *this;
            for (int c = from; c <= to; ++c) {
                const StoredRun<T> x = m.columnFrom(q, c);
                self.of(x[0], x[1], x[2]);
            }
        }
        void onColumns(ColumnMatrix<T> m, int q, int from, int to) const
        {
            const Reflection self = *this;
            const StoredRun<T> x = m.columnFrom(from, q), y = x.from(m.n), w = y.from(m.n);
            for (int r = 0; r <= to - from; ++r)
                self.of(x[r], y[r], w[r]);
        }
    };

    // Both eigenvalues of the block at the end.
    void takeBlock()
    {
        const int i = last;
        Block<T> block{h(i - 1, i - 1), h(i - 1, i), h(i, i - 1), h(i, i)};
        if (block.standardise(carried.rotation))
            carried.hasRotation = true;
        else
            carried.usesFormer |= !carried.hasRotation;
        h(i - 1, i - 1) = block.a;
        h(i - 1, i) = block.b;
        h(i, i - 1) = block.c;
        h(i, i) = block.d;
        re[i - 2] = block.a;
        re[i - 1] = block.d;
        const bool isPair = magnitude(block.c) > Limits<T>::safeMinimum;
        const Number<T> imaginary =
            isPair ? squareRoot(magnitude(block.b)) * squareRoot(magnitude(block.c)) : 0;
        im[i - 2] = imaginary;
        im[i - 1] = isPair ? -imaginary : 0;
        if constexpr (withVectors) {
            for (int c = i + 1; c <= n; ++c)
                rotate(h(i - 1, c), h(i, c));
            for (int r = 1; r <= i - 2; ++r)
                rotate(h(r, i - 1), h(r, i));
            for (int r = 1; r <= n; ++r)
                rotate(z(r, i - 1), z(r, i));
        }
    }
    void rotate(Stored<T> x, Stored<T> y) const
    {
        const double cosine = carried.rotation.cosine, sine = carried.rotation.sine;
        const double one = x, two = y;
        x = cosine * one + sine * two;
        y = cosine * two - sine * one;
    }
};

} // namespace zonm::eigen
