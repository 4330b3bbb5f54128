// SPDX-License-Identifier: Apache-2.0
// Eigenvectors from the real Schur form M = Z T transpose(Z), after LAPACK's dorghr, dtrevc and the
// end of dgeev: back substitution on T, multiplication by Z in place, normalisation.
#pragma once

#include "eigen/small_solves.hpp"

namespace zonm::eigen
{

// The product of the reflectors that `reduceToHessenberg` left below the subdiagonal of h.
template <class T> void formTransform(ColumnMatrix<T> z, ColumnMatrix<T> h, StoredRun<T> tau)
{
    const int n = z.n;
    z(1, 1) = 1;
    for (int r = 2; r <= n; ++r)
        z(r, 1) = 0;
    for (int k = 1; k <= n - 2; ++k)
        for (int r = k + 2; r <= n; ++r)
            z(r, k + 1) = h(r, k);
    for (int p = n; p >= 2; --p) {
        const Number<T> t = tau[p - 2];
        if (p < n) {
            z(p, p) = 1;
            const StoredRun<T> v = z.columnFrom(p, p);
            for (int c = p + 1; c <= n && magnitude(t) > Limits<T>::safeMinimum; ++c) {
                const StoredRun<T> column = z.columnFrom(p, c);
                double sum = 0;
                for (int i = 0; i <= n - p; ++i)
                    sum += column[i] * v[i];
                const Number<T> w = sum;
                for (int i = 0; i <= n - p; ++i)
                    column[i] -= t * double(v[i]) * w;
            }
        }
        for (int r = p + 1; r <= n; ++r)
            z(r, p) = -t * z(r, p);
        z(p, p) = 1 - t;
        for (int r = 1; r < p; ++r)
            z(r, p) = 0;
    }
}

// How a side ends: with all its vectors, or with the call.
struct SideResult {
    bool isComplete;
    ZonStatus status;
};

template <class T> class SchurVectors
{
  public:
    // `work` holds three vectors of n elements.
    SchurVectors(ColumnMatrix<T> schurForm, StoredRun<T> work)
        : t(schurForm), n(t.n), norms(work), x(work.from(n)), y(work.from(2 * ptrdiff_t(n)))
    {
    }

    SideResult transformRight(ColumnMatrix<T> v)
    {
        takeColumnNorms();
        for (int k = n; k >= 1;) {
            const bool isPair = k > 1 && isBlockAt(k - 1);
            const SideResult r = isPair ? rightPair(v, k) : rightReal(v, k);
            if (!r.isComplete)
                return r;
            k -= isPair ? 2 : 1;
        }
        return {true, zonStsOk};
    }

    SideResult transformLeft(ColumnMatrix<T> v)
    {
        for (int k = 1; k <= n;) {
            const bool isPair = k < n && isBlockAt(k);
            const SideResult r = isPair ? leftPair(v, k) : leftReal(v, k);
            if (!r.isComplete)
                return r;
            k += isPair ? 2 : 1;
        }
        return {true, zonStsOk};
    }

  private:
    ColumnMatrix<T> t;
    const int n;
    StoredRun<T> norms, x, y; // column norms above the diagonal; real and imaginary part
    const Number<T> smallest = Limits<T>::safeMinimum * (n / Limits<T>::epsilon);
    const Number<T> biggest = (1 - Limits<T>::epsilon) / smallest;

    // Whether rows and columns r, r+1 are a block of order 2.
    bool isBlockAt(int r) const { return magnitude(t(r + 1, r)) > Limits<T>::safeMinimum; }

    void takeColumnNorms()
    {
        for (int c = 1; c <= n; ++c) {
            double sum = 0;
            for (int r = 1; r < c; ++r)
                sum += magnitude(t(r, c));
            norms[c - 1] = sum;
        }
    }

    // What the systems of one eigenvector have in common.
    SmallSystem<T> systemOf(int k, int other, bool isPair) const
    {
        SmallSystem<T> s;
        s.isComplex = isPair;
        s.wr = t(k, k);
        s.wi = isPair ? squareRoot(magnitude(t(k, other))) * squareRoot(magnitude(t(other, k))) : 0;
        const double relative = Limits<T>::epsilon * (magnitude(s.wr) + magnitude(s.wi));
        s.smallest = relative > smallest ? relative : double(smallest);
        return s;
    }
    SideResult broken(const SmallSystem<T> &s) const
    {
        return {false, s.isComplex ? zonStsBlockSingular : zonStsOk};
    }
    void takeRightSide(SmallSystem<T> &s, int row) const
    {
        for (int i = 0; i < s.order; ++i)
            s.b[i] = {x[row - 1 + i], s.isComplex ? double(y[row - 1 + i]) : 0};
    }
    // Scales rows first .. last and puts the solution to its rows.
    void takeSolution(const SmallSystem<T> &system, const SmallSolution<T> &s, int row, int first,
                      int last)
    {
        if (magnitude(s.scale - 1.) > Limits<T>::safeMinimum)
            for (int k = first - 1; k < last; ++k) {
                x[k] *= s.scale;
                if (system.isComplex)
                    y[k] *= s.scale;
            }
        for (int i = 0; i < system.order; ++i) {
            x[row - 1 + i] = s.x[i].re;
            if (system.isComplex)
                y[row - 1 + i] = s.x[i].im;
        }
    }

    // Right ------------------------------------------------------------------------------------

    // (T - w) x = 0 on rows 1 .. last, from row `from` upwards.
    bool substituteUp(SmallSystem<T> &system, int from, int last)
    {
        for (int j = from; j >= 1;) {
            system.order = j > 1 && isBlockAt(j - 1) ? 2 : 1;
            const int row = j - system.order + 1;
            system.a11 = t(row, row);
            double growth = norms[row - 1];
            if (system.order == 2) {
                system.a21 = t(j, row);
                system.a12 = t(row, j);
                system.a22 = t(j, j);
                growth = larger(growth, norms[j - 1]);
            }
            takeRightSide(system, row);
            SmallSolution<T> s = system.solve();
            if (!s.exists)
                return false;
            if (s.norm > 1 && growth > biggest / s.norm) {
                for (Complex<T> &z : s.x)
                    z = {z.re / s.norm, z.im / s.norm};
                s.scale = s.scale / s.norm;
            }
            takeSolution(system, s, row, 1, last);
            for (int i = 0; i < system.order; ++i)
                for (int k = 1; k < row; ++k) {
                    x[k - 1] -= s.x[i].re * double(t(k, row + i));
                    if (system.isComplex)
                        y[k - 1] -= s.x[i].im * double(t(k, row + i));
                }
            j = row - 1;
        }
        return true;
    }

    SideResult rightReal(ColumnMatrix<T> v, int k)
    {
        SmallSystem<T> system = systemOf(k, k, false);
        x[k - 1] = 1;
        for (int r = 1; r < k; ++r)
            x[r - 1] = -t(r, k);
        if (!substituteUp(system, k - 1, k))
            return broken(system);
        multiply(v, x, 1, k - 1, k);
        return {true, zonStsOk};
    }

    SideResult rightPair(ColumnMatrix<T> v, int k)
    {
        SmallSystem<T> system = systemOf(k, k - 1, true);
        if (magnitude(t(k - 1, k)) > magnitude(t(k, k - 1))) {
            x[k - 2] = 1;
            y[k - 1] = system.wi / t(k - 1, k);
        } else {
            x[k - 2] = -system.wi / t(k, k - 1);
            y[k - 1] = 1;
        }
        x[k - 1] = 0;
        y[k - 2] = 0;
        for (int r = 1; r < k - 1; ++r) {
            x[r - 1] = -x[k - 2] * t(r, k - 1);
            y[r - 1] = -y[k - 1] * t(r, k);
        }
        if (!substituteUp(system, k - 2, k))
            return broken(system);
        multiply(v, x, 1, k - 2, k - 1);
        multiply(v, y, 1, k - 2, k);
        const Number<T> largest = largestIn(v, k - 1, 2);
        if (isNegligible(largest, Limits<T>::epsilon))
            return {false, zonStsNoConvergence};
        scaleColumns(v, k - 1, 2, 1 / largest);
        return {true, zonStsOk};
    }

    // Left -------------------------------------------------------------------------------------

    // transpose(T - w) x = 0 on rows first .. n, from row `from` downwards.
    bool substituteDown(SmallSystem<T> &system, int from, int first)
    {
        system.wi = -system.wi;
        for (int j = from; j <= n;) {
            system.order = j < n && isBlockAt(j) ? 2 : 1;
            for (int c = j; c < j + system.order; ++c) {
                double re = 0, im = 0;
                for (int k = from; k < j; ++k) {
                    re += t(k, c) * x[k - 1];
                    if (system.isComplex)
                        im += t(k, c) * y[k - 1];
                }
                x[c - 1] -= re;
                if (system.isComplex)
                    y[c - 1] -= im;
            }
            system.a11 = t(j, j);
            if (system.order == 2) {
                system.a21 = t(j, j + 1);
                system.a12 = t(j + 1, j);
                system.a22 = t(j + 1, j + 1);
            }
            takeRightSide(system, j);
            const SmallSolution<T> s = system.solve();
            if (!s.exists)
                return false;
            takeSolution(system, s, j, first, n);
            j += system.order;
        }
        return true;
    }

    SideResult leftReal(ColumnMatrix<T> v, int k)
    {
        SmallSystem<T> system = systemOf(k, k, false);
        x[k - 1] = 1;
        for (int c = k + 1; c <= n; ++c)
            x[c - 1] = -t(k, c);
        if (!substituteDown(system, k + 1, k))
            return broken(system);
        multiply(v, x, k + 1, n, k);
        scaleToOne(v, k, 1);
        return {true, zonStsOk};
    }

    SideResult leftPair(ColumnMatrix<T> v, int k)
    {
        SmallSystem<T> system = systemOf(k, k + 1, true);
        if (magnitude(t(k, k + 1)) < magnitude(t(k + 1, k))) {
            x[k - 1] = 1;
            y[k] = -system.wi / t(k + 1, k);
        } else {
            x[k - 1] = system.wi / t(k, k + 1);
            y[k] = 1;
        }
        x[k] = 0;
        y[k - 1] = 0;
        for (int c = k + 2; c <= n; ++c) {
            x[c - 1] = -x[k - 1] * t(k, c);
            y[c - 1] = -y[k] * t(k + 1, c);
        }
        if (!substituteDown(system, k + 2, k))
            return broken(system);
        multiply(v, x, k + 2, n, k);
        multiply(v, y, k + 2, n, k + 1);
        scaleToOne(v, k, 2);
        return {true, zonStsOk};
    }

    // In place ---------------------------------------------------------------------------------

    // Column c becomes the combination of columns first .. last, then c, with the factors of s.
    void multiply(ColumnMatrix<T> v, StoredRun<T> s, int first, int last, int c) const
    {
        for (int r = 1; r <= n; ++r) {
            double sum = 0;
            for (int k = first; k <= last; ++k)
                sum += v(r, k) * s[k - 1];
            v(r, c) = sum + v(r, c) * s[c - 1];
        }
    }

    Number<T> largestIn(ColumnMatrix<T> v, int c, int columns) const
    {
        Number<T> largest = 0;
        for (int r = 1; r <= n; ++r) {
            const Number<T> size = magnitude(v(r, c)) + (columns == 2 ? magnitude(v(r, c + 1)) : 0);
            if (size > largest)
                largest = size;
        }
        return largest;
    }
    void scaleColumns(ColumnMatrix<T> v, int c, int columns, double factor) const
    {
        for (int k = c; k < c + columns; ++k)
            for (int r = 1; r <= n; ++r)
                v(r, k) *= factor;
    }
    void scaleToOne(ColumnMatrix<T> v, int c, int columns) const
    {
        const Number<T> largest = largestIn(v, c, columns);
        if (largest > Limits<T>::safeMinimum)
            scaleColumns(v, c, columns, 1 / largest);
    }
};

// Unit length; of a pair over both columns, with its largest component real.
template <class T> void normalise(ColumnMatrix<T> v, StoredRun<T> im)
{
    const int n = v.n;
    const auto squares = [&](int c) {
        double sum = 0;
        for (int r = 1; r <= n; ++r)
            sum += v(r, c) * v(r, c);
        return Number<T>(sum);
    };
    for (int c = 1; c <= n; ++c) {
        if (magnitude(im[c - 1]) < Limits<T>::safeMinimum) {
            const Number<T> sum = squares(c);
            const double factor = 1 / squareRoot(sum);
            for (int r = 1; r <= n && sum > Limits<T>::safeMinimum; ++r)
                v(r, c) *= factor;
            continue;
        }
        const Number<T> a = squares(c), b = squares(c + 1);
        const double factor = 1 / squareRoot(a + b);
        int q = 1;
        double largest = 0;
        for (int r = 1; r <= n; ++r) {
            v(r, c) *= factor;
            v(r, c + 1) *= factor;
            const double size = v(r, c) * v(r, c) + v(r, c + 1) * v(r, c + 1);
            if (r == 1 || size > largest) {
                q = r;
                largest = size;
            }
        }
        const Number<T> f = v(q, c), g = v(q, c + 1), r = squareRoot(f * f + g * g);
        Number<T> cosine = f / r, sine = g / r;
        if (magnitude(f) > magnitude(g) && cosine < 0) {
            cosine = -cosine;
            sine = -sine;
        }
        for (int row = 1; row <= n; ++row) {
            const Number<T> re = v(row, c), imaginary = v(row, c + 1);
            v(row, c) = cosine * re + sine * imaginary;
            v(row, c + 1) = cosine * imaginary - sine * re;
        }
        ++c;
    }
}

} // namespace zonm::eigen
