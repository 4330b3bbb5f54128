// SPDX-License-Identifier: Apache-2.0
// The three stages of the symmetric eigenproblem from size 3 on: reduction to tridiagonal form by
// reflections, implicit iteration with shifts, selection sort. Sums run in ascending order from 0.
//
// A storage gives the stages the working matrix `w(i, j)`, the accumulated transform `q(i, j)`, the
// tridiagonal `d[i]`, `e[i]`, and `values[i]`, the caller's eigenvalues, where the reduction keeps
// its reflector.
#pragma once

#include "eigen/working_matrix.hpp"
#include "zonm.h"

namespace zonm::eigen
{

enum class ProductOf { stops, finalDiagonal };
enum class DecidedBy { diagonalOrder, sortedOrder };
enum class Rotation { ofValues, divided, reciprocal };

// What the forms of the symmetric eigenproblem do differently.
struct SymmetricForm {
    bool skipsSmallColumns;   // reduction: a column whose sum of squares is within the tolerance
    bool skipsReducedColumns; // reduction: a column that is its own reflection
    ProductOf product;   // of what the QR form takes the product that decides about singularity
    DecidedBy decidedBy; // the decision stands before or after the sort
    Rotation rotation;   // of values alone, of vectors by quotients or by a reciprocal
    double tolerance;
    double determinant; // size 2: at or below it the matrix is singular
    double reduction;   // the tolerance of the reduction
    double shiftSign;   // QL form: above it the shift takes the positive root
    double singular;    // from size 3 on: the product at or below which a matrix is singular
};

inline bool isWithin(double x, double limit) { return magnitude(x) <= limit; }

// Reduction ------------------------------------------------------------------------------------

template <class T, class Storage> struct Reduction {
    Storage &s;
    const SymmetricForm &form;
    const bool withVectors;
    const int n = s.order();

    void run() const
    {
        for (int k = 1; k < n - 1; ++k)
            reduceColumn(k);
    }

  private:
    // Clears column k-1 below its subdiagonal.
    void reduceColumn(int k) const
    {
        const auto u = s.values;
        double sum = 0;
        for (int i = k; i < n; ++i)
            sum += s.w(i, k - 1) * s.w(i, k - 1);
        const Number<T> square = sum;
        if (form.skipsSmallColumns && square <= form.reduction)
            return;
        const Number<T> r = squareRoot(square);
        for (int i = k + 1; i < n; ++i)
            u[i] = s.w(i, k - 1);
        const Number<T> a = s.w(k, k - 1);
        if (form.skipsReducedColumns && isWithin(r - a, form.reduction))
            return;
        Number<T> h;
        if (a > form.reduction) {
            u[k] = a + r;
            h = 2 * (r * a + square);
        } else if (isWithin(a, form.reduction)) {
            u[k] = r;
            h = square + square;
        } else {
            u[k] = a - r;
            h = 2 * (square - r * a);
        }
        if (h <= form.reduction)
            return;
        const Number<T> beta = 2 / h;
        reflect(k, beta);
        if (withVectors)
            k == 1 ? beginTransform(beta) : accumulate(k, beta);
    }

    // Both sides of the similarity. Of column k-1 only the subdiagonal element is read again, and
    // row k-1 behind the diagonal is not.
    void reflect(int k, double beta) const
    {
        const auto u = s.values;
        for (int j = k - 1; j < n; ++j) {
            double sum = 0;
            for (int i = k; i < n; ++i)
                sum += s.w(i, j) * u[i];
            Number<T> p = sum;
            p *= beta;
            for (int i = k; i < (j < k ? k + 1 : n); ++i)
                s.w(i, j) -= p * u[i];
        }
        for (int j = k; j < n; ++j) {
            double sum = 0;
            for (int i = k; i < n; ++i)
                sum += s.w(j, i) * u[i];
            Number<T> p = sum;
            p *= beta;
            for (int i = k; i < n; ++i)
                s.w(j, i) -= p * u[i];
        }
    }

    void beginTransform(double beta) const
    {
        const auto u = s.values;
        for (int i = 1; i < n; ++i) {
            s.q(i, i) = 1 - beta * u[i] * u[i];
            for (int j = i + 1; j < n; ++j) {
                s.q(i, j) = -beta * u[i] * u[j];
                s.q(j, i) = s.q(i, j);
            }
        }
    }
    void accumulate(int k, double beta) const
    {
        const auto u = s.values;
        for (int i = 1; i < n; ++i) {
            double sum = 0;
            for (int j = k; j < n; ++j)
                sum += u[j] * s.q(i, j);
            Number<T> p = sum;
            p *= beta;
            for (int j = k; j < n; ++j)
                s.q(i, j) -= p * u[j];
        }
    }
};

// Iteration ------------------------------------------------------------------------------------

// Implicit QL. The QR form is its mirror image to the last bit: with rows and columns numbered from
// the other end it does the same operations. `isMirrored` tells what stands at position i.
//
// A sweep is a chain of rotations, each with a division behind a square root, and mostly waits. It
// is cut into steps so that two objects can take theirs in turn.
template <class T, Rotation rotation, class Storage> class Iteration
{
  public:
    ZonStatus status = zonStsOk;
    Number<T> product = 1; // that decides about singularity

    Iteration(Storage &storage, const SymmetricForm &f)
        : s(storage), form(f),
          isMirrored(!(magnitude(s.w(0, 0)) < magnitude(s.w(s.order() - 1, s.order() - 1)))),
          n(s.order()), shiftSign(isMirrored ? f.tolerance : f.shiftSign)
    {
        s.takeTridiagonal(isMirrored);
        findSweep();
    }

    [[gnu::noinline]] void run()
    {
        while (goesOn) {
            begin();
            finish();
        }
    }
    friend void runTogether(Iteration &a, Iteration &b)
    {
        while (a.goesOn && b.goesOn) {
            a.begin();
            b.begin();
            while (a.isAtRotation() && b.isAtRotation()) {
                a.rotate();
                b.rotate();
            }
            a.finish();
            b.finish();
        }
        a.run();
        b.run();
    }

  private:
    static constexpr int sweepsPerValue = 30;

    Storage &s;
    const SymmetricForm &form;
    const bool isMirrored;
    const int n;
    const double shiftSign;
    bool goesOn = true; // there is a sweep to be done, over l .. m
    int l = 0, m = 0, sweeps = 0;
    int i = 0; // the sweep's place, from m-1 down to l
    bool isBroken = false;
    Number<T> g, r, sine, cosine, p;

    int place(int position) const { return isMirrored ? n - 1 - position : position; }
    bool takesAtStops() const { return isMirrored && form.product == ProductOf::stops; }
    void take(int position)
    {
        s.values[place(position)] = s.d[position];
        product = product * s.d[position];
    }

    void findSweep()
    {
        for (; l < n; ++l, sweeps = 0) {
            m = l;
            while (m < n - 1 && !isWithin(0.5 * s.e[m], form.tolerance))
                ++m;
            if (takesAtStops() && m < n - 1)
                take(m);
            if (m == l)
                continue;
            if (sweeps == sweepsPerValue)
                status = zonStsNoConvergence;
            goesOn = sweeps < sweepsPerValue;
            ++sweeps;
            return;
        }
        goesOn = false;
        if (takesAtStops())
            take(n - 1);
        else
            for (int position = 0; position < n; ++position)
                take(place(position));
    }

    void begin()
    {
        const Number<T> first = s.d[l], next = s.d[l + 1], between = s.e[l];
        g = (next - first) / (2 * between);
        r = squareRoot(g * g + 1);
        const double sign = g > shiftSign ? 1 : -1;
        const Number<T> w = g + sign * r;
        g = s.d[m] - first + between / w;
        sine = cosine = 1;
        p = 0;
        i = m - 1;
    }

    bool isAtRotation() const { return i >= l && !isBroken; }

    void rotate()
    {
        const Number<T> subdiagonal = s.e[i], f = sine * subdiagonal, b = cosine * subdiagonal;
        r = squareRoot(g * g + f * f);
        if (i != m - 1)
            s.e[i + 1] = r;
        if (isWithin(r, form.tolerance)) {
            s.d[i + 1] -= p;
            s.e[m - 1] = 0;
            isBroken = true;
            return;
        }
        rotateVectors(f);
        const Number<T> last = s.d[i + 1], next = s.d[i];
        g = last - p;
        r = (next - g) * sine + 2 * cosine * b;
        p = sine * r;
        s.d[i + 1] = g + p;
        g = cosine * r - b;
        --i;
    }

    // A sweep that ran to its end is taken as broken too if its last r is small, but for the last
    // value of QL.
    [[gnu::noinline]] void finish()
    {
        while (isAtRotation())
            rotate();
        isBroken = false;
        if (!(isWithin(r, form.tolerance) && (isMirrored || i >= 0))) {
            s.d[l] -= p;
            s.e[l] = g;
        }
        findSweep();
    }

    void rotateVectors(Number<T> f)
    {
        if constexpr (rotation != Rotation::reciprocal) {
            sine = f / r;
            cosine = g / r;
            if constexpr (rotation == Rotation::divided)
                s.forRows(place(i), place(i + 1), [&](auto &&near, auto &&far) {
                    const double t = near, last = far;
                    near = cosine * t - sine * last;
                    far = cosine * last + sine * t;
                });
        } else {
            const Number<T> rho = 1 / r;
            sine = f * rho;
            cosine = g * rho;
            s.forRows(place(i), place(i + 1), [&](auto &&near, auto &&far) {
                const Number<T> x = near * rho, y = far * rho;
                near = g * x - f * y;
                far = g * y + f * x;
            });
        }
    }
};

// Sort -----------------------------------------------------------------------------------------

// Into descending order; of equal values the earlier stays in front, and a NaN stays.
template <bool WithVectors, class Storage> void sortDescending(Storage &s)
{
    const int n = s.order();
    for (int i = 0; i < n - 1; ++i) {
        int best = i;
        double largest = s.values[i];
        for (int j = i + 1; j < n; ++j)
            if (largest < s.values[j]) {
                largest = s.values[j];
                best = j;
            }
        if (best == i)
            continue;
        s.values[best] = s.values[i];
        s.values[i] = largest;
        if constexpr (WithVectors)
            s.forRows(i, best, [](auto &&one, auto &&other) {
                const double t = one;
                one = other;
                other = t;
            });
    }
}

} // namespace zonm::eigen
