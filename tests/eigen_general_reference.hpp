// SPDX-License-Identifier: Apache-2.0
// The general eigenproblem by the letter, one object at a time: matrices as functions of row and
// column numbered from 1, `R` around whatever is stored, one long function for each stage.
#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <vector>

#include "support/manifest.hpp"
#include "support/values.hpp"
#include "zonm.h"

namespace test::eigen_general
{

enum class Kind { values, right, left, both };

inline Kind kindOf(const Export &e)
{
    return e.operation == "zonmEigenValues"               ? Kind::values
           : e.operation == "zonmEigenValuesVectorsRight" ? Kind::right
           : e.operation == "zonmEigenValuesVectorsLeft"  ? Kind::left
                                                          : Kind::both;
}

// Rows and columns from 1.
class Square
{
  public:
    explicit Square(int order = 0) : n(order), at(std::size_t(order * order)) {}
    double &operator()(int r, int c) { return at[std::size_t((r - 1) * n + (c - 1))]; }

  private:
    int n;
    std::vector<double> at;
};

struct Result {
    ZonStatus status = zonStsOk;
    std::vector<std::optional<double>> re, im; // from 0; empty where nothing was written
    bool writesVectors = false;
    Square right, left;
    // What happened on the way.
    int sweeps = 0;
    std::map<int, int> cases; // of the standardisation
    bool hadNoRotation = false, lostBlock = false, vanished = false, scaled = false;
};

// Up to the eigenvalues, and the Schur form where vectors are wanted.
class SchurSolver
{
  public:
    SchurSolver(Kind k, Element e) : kind(k), element(e)
    {
        if (kind == Kind::both)
            cs = 1;
    }

    // `matrix` row by row. One solver goes through all objects of a call.
    Result solveValues(int order, const std::vector<double> &matrix)
    {
        reduceToSchurForm(order, matrix);
        return out;
    }

  protected:
    // Returns false if the iteration does not converge.
    bool reduceToSchurForm(int order, const std::vector<double> &matrix)
    {
        n = order;
        out = Result();
        out.re.resize(std::size_t(n));
        out.im.resize(std::size_t(n));
        H = Square(n);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                H(j + 1, i + 1) = matrix[std::size_t(i * n + j)];
        hessenberg();
        if (kind != Kind::values)
            formZ();
        for (int c = 1; c <= n; ++c)
            for (int r = c + 2; r <= n; ++r)
                H(r, c) = 0;
        if (!iterate())
            out.status = zonStsNoConvergence;
        return out.status == zonStsOk;
    }

    Kind kind;
    Element element;
    int n = 0;
    Square H, Z;
    std::vector<double> tau;
    Result out;
    // These live as long as the call.
    double cs = 0, sn = 0, u1 = 0, u2 = 0, u3 = 0;

    double R(double x) const { return rounded(element, x); }
    bool f32() const { return element == Element::f32; }
    double eps() const { return f32() ? 1.1920928955078125e-07 : 2.220446049250313e-16; }
    double safmin() const { return f32() ? 2.350988701644575e-38 : 4.450147717014403e-308; }
    double low() const { return 2 * safmin(); }
    double high() const { return f32() ? 2.1267647932558654e+37 : 1.1235582092889474e+307; }
    double smlnum() const { return R(safmin() * (n / eps())); }
    double bignum() const
    {
        return R((f32() ? double(0.9999999f) : 0.9999999999999998) / smlnum());
    }
    static constexpr double small32 = 2.350988701644575e-38;
    static double sign(double x) { return x < 0 ? -1 : 1; }

    double hyp(double p, double q) const
    {
        double w, z;
        if (std::abs(p) > std::abs(q)) {
            w = std::abs(p);
            z = std::abs(q);
        } else {
            w = std::abs(q);
            z = std::abs(p);
        }
        const double result = z >= safmin() ? w * std::sqrt(z * z / (w * w) + 1) : w;
        return result < safmin() ? 2 * safmin() : result;
    }

    double reflector(double &alpha, std::vector<double *> x) const
    {
        if (x.empty())
            return 0;
        double sum = 0;
        for (const double *p : x)
            sum += *p * *p;
        const double xnorm = R(std::sqrt(sum));
        if (xnorm < safmin())
            return 0;
        const double r = R(hyp(alpha, xnorm));
        const double beta = alpha >= 0 ? -r : r;
        const double t = R((beta - alpha) / beta);
        for (double *p : x)
            *p = R(*p * (1 / (alpha - beta)));
        alpha = beta;
        return t;
    }

    void hessenberg()
    {
        tau.assign(std::size_t(n + 1), 0);
        for (int k = 1; k <= n - 1; ++k) {
            double alpha = H(k + 1, k);
            std::vector<double *> x;
            for (int r = k + 2; r <= n; ++r)
                x.push_back(&H(r, k));
            const double t = reflector(alpha, x);
            std::vector<double> v{0, 1};
            for (const double *p : x)
                v.push_back(*p);
            const auto V = [&](int i) { return v[std::size_t(i)]; };
            if (std::abs(t) > safmin()) {
                for (int i = 1; i <= n; ++i) {
                    double w = 0;
                    for (int j = 1; j <= n - k; ++j)
                        w += H(i, k + j) * V(j);
                    w = R(w);
                    for (int j = 1; j <= n - k; ++j)
                        H(i, k + j) = R(H(i, k + j) - (t * w) * V(j));
                }
                for (int j = 1; j <= n - k; ++j) {
                    double w = 0;
                    for (int i = 1; i <= n - k; ++i)
                        w += H(k + i, k + j) * V(i);
                    w = R(w);
                    for (int i = 1; i <= n - k; ++i)
                        H(k + i, k + j) = R(H(k + i, k + j) - (t * V(i)) * w);
                }
            }
            tau[std::size_t(k)] = t;
            H(k + 1, k) = alpha;
        }
    }

    void formZ()
    {
        Z = Square(n);
        Z(1, 1) = 1;
        for (int k = 1; k <= n - 2; ++k)
            for (int r = k + 2; r <= n; ++r)
                Z(r, k + 1) = H(r, k);
        for (int i = n - 1; i >= 1; --i) {
            const int p = i + 1;
            const double t = tau[std::size_t(i)];
            if (p < n) {
                Z(p, p) = 1;
                if (std::abs(t) > safmin()) {
                    std::vector<double> w(std::size_t(n + 1));
                    for (int j = p + 1; j <= n; ++j) {
                        double sum = 0;
                        for (int r = p; r <= n; ++r)
                            sum += Z(r, j) * Z(r, p);
                        w[std::size_t(j)] = R(sum);
                    }
                    for (int j = p + 1; j <= n; ++j)
                        for (int r = p; r <= n; ++r)
                            Z(r, j) = R(Z(r, j) - t * Z(r, p) * w[std::size_t(j)]);
                }
            }
            for (int r = p + 1; r <= n; ++r)
                Z(r, p) = R(-t * Z(r, p));
            Z(p, p) = R(1 - t);
            for (int r = 1; r <= p - 1; ++r)
                Z(r, p) = 0;
        }
    }

    bool negligible(int k, int L, int I)
    {
        if (kind == Kind::values)
            return std::abs(H(k, k - 1)) <= eps();
        double tst = R(std::abs(H(k - 1, k - 1)) + std::abs(H(k, k)));
        if (tst <= safmin()) {
            double largest = 0;
            for (int c = L; c <= I; ++c) {
                double sum = 0;
                for (int r = L; r <= std::min(c + 1, I); ++r)
                    sum += std::abs(H(r, c));
                if (sum > largest)
                    largest = sum;
            }
            tst = R(largest);
        }
        return std::abs(H(k, k - 1)) <= (eps() * tst > smlnum() ? eps() * tst : smlnum());
    }

    bool iterate()
    {
        const bool vectors = kind != Kind::values;
        const bool guarded = kind == Kind::right || kind == Kind::left;
        int I = n, itn = 30 * n;
        while (I >= 1) {
            int L = 1, its = 0;
            while (its < itn) {
                int k = I;
                while (k > L) {
                    if (negligible(k, L, I))
                        break;
                    k = k - 1;
                }
                L = k;
                if (L > 1)
                    H(L, L - 1) = 0;
                if (L >= I - 1)
                    break;
                double h44, h33, h43h34;
                if (its == 10 || its == 20) {
                    const double s = R(std::abs(H(I, I - 1)) + std::abs(H(I - 1, I - 2)));
                    h44 = R(0.75 * s + H(I, I));
                    h33 = h44;
                    h43h34 = R((-0.4375 * s) * s);
                } else {
                    h44 = H(I, I);
                    h33 = H(I - 1, I - 1);
                    h43h34 = R(H(I, I - 1) * H(I - 1, I));
                    const double halfDifference = (h33 - h44) * 0.5;
                    double disc = R(halfDifference * halfDifference + h43h34);
                    if (disc > (guarded ? small32 : 0.)) {
                        disc = R(std::sqrt(disc));
                        const double ave = R(0.5 * (h33 + h44));
                        const double sd = ave >= 0 ? disc : -disc;
                        if (guarded) {
                            const double w = R(sd + ave);
                            const double rho = std::abs(w) > small32 ? R(1 / w) : w;
                            if (std::abs(h33) > std::abs(h44))
                                h44 = R((h33 * h44 - h43h34) * rho);
                            else
                                h44 = w;
                        } else if (std::abs(h33) - std::abs(h44) > 0) {
                            h33 = R(h33 * h44 - h43h34);
                            h44 = R(h33 / (sd + ave));
                        } else
                            h44 = R(sd + ave);
                        h33 = h44;
                        h43h34 = 0;
                    }
                }
                int m = I - 2;
                for (; m >= L; --m) {
                    const double h11 = H(m, m), h22 = H(m + 1, m + 1), h21 = H(m + 1, m);
                    if (guarded && std::abs(h21) <= small32)
                        break;
                    const double h12 = H(m, m + 1), h44s = R(h44 - h11), h33s = R(h33 - h11);
                    u1 = R((h33s * h44s - h43h34) / h21 + h12);
                    u2 = R(h22 - h11 - h33s - h44s);
                    u3 = H(m + 2, m + 1);
                    const double s = R(std::abs(u1) + std::abs(u2) + std::abs(u3));
                    if (!guarded) {
                        u1 = R(u1 / s);
                        u2 = R(u2 / s);
                        u3 = R(u3 / s);
                    } else {
                        const double rho = std::abs(s) > small32 ? 1 / s : s;
                        u1 = R(u1 * rho);
                        u2 = R(u2 * rho);
                        u3 = R(u3 * rho);
                    }
                    if (m == L)
                        break;
                    const double h00 = H(m - 1, m - 1), h10 = H(m, m - 1);
                    if (eps() * (std::abs(u1) * (std::abs(h00) + std::abs(h11) + std::abs(h22))) >=
                        std::abs(h10) * (std::abs(u2) + std::abs(u3)))
                        break;
                }
                chase(m, L, I, vectors);
                its = its + 1;
                ++out.sweeps;
            }
            if (L < I - 1)
                return false;
            if (L == I) {
                out.re[std::size_t(I - 1)] = H(I, I);
                out.im[std::size_t(I - 1)] = 0;
            }
            if (L == I - 1)
                standardise(I, vectors);
            itn = itn - its;
            I = L - 1;
        }
        return true;
    }

    void chase(int m, int L, int I, bool vectors)
    {
        for (int q = m; q <= I - 1; ++q) {
            const int nr = q + 2 <= I ? 3 : 2;
            if (q > m) {
                u1 = H(q, q - 1);
                u2 = H(q + 1, q - 1);
                if (nr == 3)
                    u3 = H(q + 2, q - 1);
            }
            std::vector<double *> x{&u2};
            if (nr == 3)
                x.push_back(&u3);
            const double t1 = reflector(u1, x);
            if (q > m) {
                H(q, q - 1) = u1;
                H(q + 1, q - 1) = 0;
                if (q < I - 1)
                    H(q + 2, q - 1) = 0;
            }
            if (q == m && m > L)
                H(q, q - 1) = -H(q, q - 1);
            const double t2 = R(t1 * u2), t3 = nr == 3 ? R(t1 * u3) : 0;
            const auto apply = [&](double &a, double &b, double *c) {
                const double sum = nr == 3 ? R(u2 * b + a + u3 * *c) : R(u2 * b + a);
                a = R(a - sum * t1);
                b = R(b - sum * t2);
                if (nr == 3)
                    *c = R(*c - sum * t3);
            };
            for (int j = q; j <= (vectors ? n : I); ++j)
                apply(H(q, j), H(q + 1, j), nr == 3 ? &H(q + 2, j) : nullptr);
            for (int j = vectors ? 1 : L; j <= std::min(q + 3, I); ++j)
                apply(H(j, q), H(j, q + 1), nr == 3 ? &H(j, q + 2) : nullptr);
            for (int j = 1; vectors && j <= n; ++j)
                apply(Z(j, q), Z(j, q + 1), nr == 3 ? &Z(j, q + 2) : nullptr);
        }
    }

    void standardise(int I, bool vectors)
    {
        double a = H(I - 1, I - 1), b = H(I - 1, I), c = H(I, I - 1), d = H(I, I);
        if (std::abs(c) <= safmin()) {
            ++out.cases[1];
            cs = 1;
            sn = 0;
        } else if (std::abs(b) <= safmin()) {
            ++out.cases[2];
            std::swap(a, d);
            b = -c;
            c = 0;
            cs = 0;
            sn = 1;
        } else if (std::abs(a - d) <= safmin()) {
            if (sign(b) != sign(c)) {
                ++out.cases[3];
                cs = 1;
                sn = 0;
            } else {
                ++out.cases[30];
                out.hadNoRotation |= cs == 0 && sn == 0;
            }
        } else {
            double temp = R(a - d), p = R(0.5 * temp);
            double bcmax, bcmis;
            if (std::abs(b) > std::abs(c)) {
                bcmax = std::abs(b);
                bcmis = std::abs(c);
            } else {
                bcmax = std::abs(c);
                bcmis = std::abs(b);
            }
            if (sign(b) != sign(c))
                bcmis = -bcmis;
            const double scale = std::abs(p) > bcmax ? std::abs(p) : bcmax;
            double z = R((p / scale) * p + (bcmax / scale) * bcmis);
            if (z >= 4 * eps()) {
                ++out.cases[4];
                z = p > 0 ? R(p + std::sqrt(scale) * std::sqrt(z))
                          : R(p - std::sqrt(scale) * std::sqrt(z));
                const double tau2 = R(hyp(c, z));
                cs = R(z / tau2);
                sn = R(c / tau2);
                a = R(d + z);
                d = R(d - (bcmax / z) * bcmis);
                b = R(b - c);
                c = 0;
            } else {
                const double sigma = R(b + c);
                const double tau2 = R(hyp(sigma, temp));
                cs = R(std::sqrt(0.5 * (std::abs(sigma) / tau2 + 1)));
                sn = R(-p / (tau2 * cs));
                if (sigma < 0)
                    sn = -sn;
                const double aa = R(a * cs + b * sn), bb = R(b * cs - a * sn),
                             cc = R(c * cs + d * sn), dd = R(d * cs - c * sn);
                a = R(aa * cs + cc * sn);
                b = R(bb * cs + dd * sn);
                c = R(cc * cs - aa * sn);
                d = R(dd * cs - bb * sn);
                temp = R(0.5 * (a + d));
                a = temp;
                d = temp;
                if (std::abs(c) > safmin() && std::abs(b) > safmin()) {
                    ++out.cases[sign(b) != sign(c) ? 5 : 50];
                    if (sign(b) == sign(c)) {
                        if (c < 0)
                            p = -p;
                        const double sab = R(std::sqrt(std::abs(b))),
                                     sac = R(std::sqrt(std::abs(c)));
                        const double tau3 = R(1 / std::sqrt(std::abs(b + c)));
                        a = R(temp + p);
                        d = R(temp - p);
                        b = R(b - c);
                        c = 0;
                        const double cs1 = R((cs * sab - sn * sac) * tau3);
                        const double sn1 = R((cs * sac + sn * sab) * tau3);
                        cs = cs1;
                        sn = sn1;
                    }
                } else {
                    ++out.cases[51];
                    b = -c;
                    c = 0;
                    const double old = cs;
                    cs = -sn;
                    sn = old;
                }
            }
        }
        H(I - 1, I - 1) = a;
        H(I - 1, I) = b;
        H(I, I - 1) = c;
        H(I, I) = d;
        out.re[std::size_t(I - 2)] = a;
        out.re[std::size_t(I - 1)] = d;
        double imaginary = 0;
        if (std::abs(c) > safmin())
            imaginary = R(std::sqrt(std::abs(b)) * std::sqrt(std::abs(c)));
        out.im[std::size_t(I - 2)] = imaginary;
        out.im[std::size_t(I - 1)] = std::abs(c) > safmin() ? -imaginary : 0;
        if (!vectors)
            return;
        const auto turn = [&](double &x, double &y) {
            const double x0 = x, y0 = y;
            x = R(cs * x0 + sn * y0);
            y = R(cs * y0 - sn * x0);
        };
        for (int c2 = I + 1; c2 <= n; ++c2)
            turn(H(I - 1, c2), H(I, c2));
        for (int r = 1; r <= I - 2; ++r)
            turn(H(r, I - 1), H(r, I));
        for (int r = 1; r <= n; ++r)
            turn(Z(r, I - 1), Z(r, I));
    }
};

} // namespace test::eigen_general
