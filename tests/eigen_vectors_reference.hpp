// SPDX-License-Identifier: Apache-2.0
// The vectors of the general eigenproblem by the letter, from the Schur form on. The comments name
// the steps of the published routines that a passage follows.
#pragma once

#include <complex>

#include "eigen_general_reference.hpp"

namespace test::eigen_general
{

class Solver : public SchurSolver
{
  public:
    using SchurSolver::SchurSolver;

    Result solve(int order, const std::vector<double> &matrix)
    {
        if (kind == Kind::values)
            return solveValues(order, matrix);
        if (order == 1) {
            out = Result();
            out.re = {matrix[0]};
            out.im = {0.};
            out.right = out.left = Square(1);
            out.right(1, 1) = out.left(1, 1) = 1;
            out.writesVectors = true;
            return out;
        }
        if (!reduceToSchurForm(order, matrix))
            return out;
        out.right = out.left = Z;
        if (kind != Kind::left && !rightVectors(out.right))
            return out;
        if (kind != Kind::right && !leftVectors(out.left))
            return out;
        if (kind != Kind::left)
            normalise(out.right);
        if (kind != Kind::right)
            normalise(out.left);
        out.writesVectors = true;
        return out;
    }

  private:
    using Column = std::vector<double>; // from 1

    struct Solution {
        bool ends = false;
        double x[2] = {}, y[2] = {}, scale = 1, norm = 0;
    };

    double cabs1(double a, double b) const { return std::abs(a) + std::abs(b); }

    void divide(double p, double q, double r, double s, double &re, double &im) const
    {
        const double reciprocal = 1 / (r * r + s * s);
        re = R((p * r + q * s) * reciprocal);
        im = R((q * r - p * s) * reciprocal);
    }

    // dlaln2 for the block at row and column j, of order na.
    Solution smallSolve(int na, bool isComplex, bool transposed, double smin, int j, double wr,
                        double wi, const double *b, const double *e)
    {
        Solution out2 = na == 1 ? solveOne(isComplex, smin, H(j, j), wr, wi, b[0], e[0])
                                : solveTwo(isComplex, transposed, smin, j, wr, wi, b, e);
        out.scaled |= out2.scale != 1;
        return out2;
    }

    Solution solveOne(bool isComplex, double smin, double a, double wr, double wi, double b,
                      double e)
    {
        Solution s;
        const double smini = smin > low() ? smin : low();
        double cr = R(a - wr), ci = isComplex ? -wi : 0;
        double cn = isComplex ? R(cabs1(cr, ci)) : std::abs(cr);
        if (cn < smini) {
            cr = smini;
            ci = 0;
            cn = smini;
        }
        const double bn = isComplex ? R(cabs1(b, e)) : std::abs(b);
        if (cn < 1 && bn > 1 && bn > high() * cn)
            s.scale = R(1 / bn);
        if (isComplex) {
            divide(s.scale * b, s.scale * e, cr, ci, s.x[0], s.y[0]);
            s.norm = R(cabs1(s.x[0], s.y[0]));
        } else {
            s.x[0] = R((b * s.scale) / cr);
            s.norm = std::abs(s.x[0]);
        }
        return s;
    }

    Solution solveTwo(bool isComplex, bool transposed, double smin, int j, double wr, double wi,
                      const double *b, const double *e)
    {
        Solution s;
        const double smini = smin > low() ? smin : low();
        const double offLower = transposed ? H(j, j + 1) : H(j + 1, j);
        const double offUpper = transposed ? H(j + 1, j) : H(j, j + 1);
        const double im = isComplex ? -wi : 0;
        const double re4[4] = {R(H(j, j) - wr), offLower, offUpper, R(H(j + 1, j + 1) - wr)};
        const double im4[4] = {im, 0, 0, im};
        double cmax = 0;
        int ic = 0;
        for (int i = 0; i < 4; ++i) {
            const double size = R(cabs1(re4[i], im4[i]));
            if (size > cmax) {
                cmax = size;
                ic = i + 1;
            }
        }
        if (cmax < smini || ic == 0) {
            s.ends = true;
            return s;
        }
        static const int order[4][4] = {{1, 2, 3, 4}, {2, 1, 4, 3}, {3, 4, 1, 2}, {4, 3, 2, 1}};
        const bool rows = ic == 2 || ic == 4, columns = ic == 3 || ic == 4;
        const auto re = [&](int i) { return re4[order[ic - 1][i - 1] - 1]; };
        const auto imag = [&](int i) { return im4[order[ic - 1][i - 1] - 1]; };
        double b1 = b[rows ? 1 : 0], b2 = b[rows ? 0 : 1];
        double x1, x2, y1 = 0, y2 = 0;
        if (!isComplex) {
            const double u11 = re(1), c21 = re(2), u12 = re(3), c22 = re(4);
            const double u11r = R(1 / u11), l = R(u11r * c21);
            double u22 = R(c22 - u12 * l);
            if (std::abs(u22) < smini)
                u22 = smini;
            b2 = R(b2 - l * b1);
            const double bb = R(std::max(std::abs(b1 * (u22 * u11r)), std::abs(b2)));
            if (bb > 1 && std::abs(u22) < 1 && bb >= high() * std::abs(u22))
                s.scale = R(1 / bb);
            x2 = R((b2 * s.scale) / u22);
            x1 = R((s.scale * b1) * u11r - x2 * (u11r * u12));
            s.norm = std::max(std::abs(x1), std::abs(x2));
        } else {
            double e1 = e[rows ? 1 : 0], e2 = e[rows ? 0 : 1];
            double r, i, l, m, g, h, u22, v22;
            if (ic == 1 || ic == 4) {
                const double u11 = re(1), v11 = imag(1), c21 = re(2), u12 = re(3);
                if (std::abs(u11) > std::abs(v11)) {
                    const double q = R(v11 / u11);
                    r = R(1 / (u11 * (1 + q * q)));
                    i = R(-q * r);
                } else {
                    const double q = R(u11 / v11);
                    i = R(-1 / (v11 * (1 + q * q)));
                    r = R(-q * i);
                }
                l = R(c21 * r);
                m = R(c21 * i);
                g = R(u12 * r);
                h = R(u12 * i);
                u22 = R(re(4) - u12 * l);
                v22 = R(imag(4) - u12 * m);
            } else {
                const double c21 = re(2), d21 = imag(2), u12 = re(3), v12 = imag(3);
                r = R(1 / re(1));
                i = 0;
                l = R(c21 * r);
                m = R(d21 * r);
                g = R(u12 * r);
                h = R(v12 * r);
                u22 = R(re(4) - u12 * l + v12 * m);
                v22 = R(-u12 * m - v12 * l);
            }
            const double ua = R(cabs1(u22, v22));
            if (ua < smini) {
                u22 = smini;
                v22 = 0;
            }
            const double b20 = b2, e20 = e2;
            b2 = R(b20 - l * b1 + m * e1);
            e2 = R(e20 - m * b1 - l * e1);
            const double bb = R(std::max(cabs1(b1, e1) * (ua * cabs1(r, i)), cabs1(b2, e2)));
            if (bb > 1 && ua < 1 && bb >= high() * ua) {
                s.scale = R(1 / bb);
                b1 = R(b1 * s.scale);
                e1 = R(e1 * s.scale);
                b2 = R(b2 * s.scale);
                e2 = R(e2 * s.scale);
            }
            divide(b2, e2, u22, v22, x2, y2);
            x1 = R(r * b1 - i * e1 - g * x2 + h * y2);
            y1 = R(i * b1 + r * e1 - h * x2 - g * y2);
            s.norm = R(std::max(cabs1(x1, y1), cabs1(x2, y2)));
        }
        s.x[columns ? 1 : 0] = x1;
        s.x[columns ? 0 : 1] = x2;
        s.y[columns ? 1 : 0] = y1;
        s.y[columns ? 0 : 1] = y2;
        if (s.norm > 1 && cmax > 1 && s.norm > high() / cmax) {
            const double f = R(cmax / high());
            for (double *v : {&s.x[0], &s.x[1], &s.y[0], &s.y[1], &s.norm, &s.scale})
                *v = R(*v * f);
        }
        return s;
    }

    double sminOf(double wr, double wi) const
    {
        const double relative = eps() * (std::abs(wr) + std::abs(wi));
        return R(relative > smlnum() ? relative : smlnum());
    }

    bool endsWith(bool isComplex)
    {
        out.lostBlock = true;
        out.status = isComplex ? zonStsBlockSingular : zonStsOk;
        return false;
    }

    bool rightVectors(Square &V)
    {
        Column w(std::size_t(n + 1)), xr(std::size_t(n + 1)), xi(std::size_t(n + 1));
        const auto X = [&](int k) -> double & { return xr[std::size_t(k)]; };
        const auto Y = [&](int k) -> double & { return xi[std::size_t(k)]; };
        for (int j = 2; j <= n; ++j) {
            double sum = 0;
            for (int i = 1; i < j; ++i)
                sum += std::abs(H(i, j));
            w[std::size_t(j)] = R(sum);
        }
        for (int ki = n; ki >= 1;) {
            const bool pair = ki > 1 && std::abs(H(ki, ki - 1)) > safmin();
            const double wr = H(ki, ki);
            const double wi =
                pair ? R(std::sqrt(std::abs(H(ki, ki - 1))) * std::sqrt(std::abs(H(ki - 1, ki))))
                     : 0;
            const double smin = sminOf(wr, wi);
            int j;
            if (!pair) {
                X(ki) = 1;
                for (int k = 1; k < ki; ++k)
                    X(k) = -H(k, ki);
                j = ki - 1;
            } else {
                if (std::abs(H(ki - 1, ki)) > std::abs(H(ki, ki - 1))) {
                    X(ki - 1) = 1;
                    Y(ki) = R(wi / H(ki - 1, ki));
                } else {
                    X(ki - 1) = R(-wi / H(ki, ki - 1));
                    Y(ki) = 1;
                }
                X(ki) = 0;
                Y(ki - 1) = 0;
                for (int k = 1; k < ki - 1; ++k) {
                    X(k) = R(-X(ki - 1) * H(k, ki - 1));
                    Y(k) = R(-Y(ki) * H(k, ki));
                }
                j = ki - 2;
            }
            while (j >= 1) {
                const int na = j > 1 && std::abs(H(j, j - 1)) > safmin() ? 2 : 1;
                const int j1 = j - na + 1;
                double b[2] = {}, e[2] = {}, growth = 0;
                for (int i = 0; i < na; ++i) {
                    b[i] = X(j1 + i);
                    e[i] = Y(j1 + i);
                    if (w[std::size_t(j1 + i)] > growth)
                        growth = w[std::size_t(j1 + i)];
                }
                Solution s = smallSolve(na, pair, false, smin, j1, wr, wi, b, e);
                if (s.ends)
                    return endsWith(pair);
                if (s.norm > 1 && growth > bignum() / s.norm) {
                    for (double *v : {&s.x[0], &s.x[1], &s.y[0], &s.y[1], &s.scale})
                        *v = R(*v / s.norm);
                    out.scaled = true;
                }
                if (std::abs(s.scale - 1) > safmin())
                    for (int k = 1; k <= ki; ++k) {
                        X(k) = R(X(k) * s.scale);
                        if (pair)
                            Y(k) = R(Y(k) * s.scale);
                    }
                for (int i = 0; i < na; ++i) {
                    X(j1 + i) = s.x[i];
                    if (pair)
                        Y(j1 + i) = s.y[i];
                }
                for (int i = 0; i < na; ++i)
                    for (int k = 1; k < j1; ++k) {
                        X(k) = R(X(k) - s.x[i] * H(k, j1 + i));
                        if (pair)
                            Y(k) = R(Y(k) - s.y[i] * H(k, j1 + i));
                    }
                j = j1 - 1;
            }
            if (!pair) {
                for (int r = 1; r <= n; ++r) {
                    double sum = 0;
                    for (int k = 1; k < ki; ++k)
                        sum += V(r, k) * X(k);
                    V(r, ki) = R(sum + V(r, ki) * X(ki));
                }
                ki -= 1;
                continue;
            }
            double emax = 0;
            for (int r = 1; r <= n; ++r) {
                double re = 0, im = 0;
                for (int k = 1; k < ki - 1; ++k) {
                    re += V(r, k) * X(k);
                    im += V(r, k) * Y(k);
                }
                V(r, ki - 1) = R(re + V(r, ki - 1) * X(ki - 1));
                V(r, ki) = R(im + V(r, ki) * Y(ki));
                const double size = R(std::abs(V(r, ki - 1)) + std::abs(V(r, ki)));
                if (size > emax)
                    emax = size;
            }
            if (emax <= eps()) {
                out.vanished = true;
                out.status = zonStsNoConvergence;
                return false;
            }
            for (int r = 1; r <= n; ++r) {
                V(r, ki - 1) = R(V(r, ki - 1) * (1 / emax));
                V(r, ki) = R(V(r, ki) * (1 / emax));
            }
            ki -= 2;
        }
        return true;
    }

    bool leftVectors(Square &V)
    {
        Column xr(std::size_t(n + 1)), xi(std::size_t(n + 1));
        const auto X = [&](int k) -> double & { return xr[std::size_t(k)]; };
        const auto Y = [&](int k) -> double & { return xi[std::size_t(k)]; };
        for (int ki = 1; ki <= n;) {
            const bool pair = ki < n && std::abs(H(ki + 1, ki)) > safmin();
            const double wr = H(ki, ki);
            const double wi =
                pair ? R(std::sqrt(std::abs(H(ki, ki + 1))) * std::sqrt(std::abs(H(ki + 1, ki))))
                     : 0;
            const double smin = sminOf(wr, wi);
            const int firstRow = ki + (pair ? 2 : 1);
            if (!pair) {
                X(ki) = 1;
                for (int k = ki + 1; k <= n; ++k)
                    X(k) = -H(ki, k);
            } else {
                if (std::abs(H(ki, ki + 1)) < std::abs(H(ki + 1, ki))) {
                    X(ki) = 1;
                    Y(ki + 1) = R(-wi / H(ki + 1, ki));
                } else {
                    X(ki) = R(wi / H(ki, ki + 1));
                    Y(ki + 1) = 1;
                }
                X(ki + 1) = 0;
                Y(ki) = 0;
                for (int k = ki + 2; k <= n; ++k) {
                    X(k) = R(-X(ki) * H(ki, k));
                    Y(k) = R(-Y(ki + 1) * H(ki + 1, k));
                }
            }
            for (int j = firstRow; j <= n;) {
                const int na = j < n && std::abs(H(j + 1, j)) > safmin() ? 2 : 1;
                for (int i = j; i < j + na; ++i) {
                    double re = 0, im = 0;
                    for (int k = firstRow; k < j; ++k) {
                        re += H(k, i) * X(k);
                        im += H(k, i) * Y(k);
                    }
                    X(i) = R(X(i) - re);
                    if (pair)
                        Y(i) = R(Y(i) - im);
                }
                double b[2] = {}, e[2] = {};
                for (int i = 0; i < na; ++i) {
                    b[i] = X(j + i);
                    e[i] = Y(j + i);
                }
                const Solution s = smallSolve(na, pair, true, smin, j, wr, -wi, b, e);
                if (s.ends)
                    return endsWith(pair);
                if (std::abs(s.scale - 1) > safmin())
                    for (int k = ki; k <= n; ++k) {
                        X(k) = R(X(k) * s.scale);
                        if (pair)
                            Y(k) = R(Y(k) * s.scale);
                    }
                for (int i = 0; i < na; ++i) {
                    X(j + i) = s.x[i];
                    if (pair)
                        Y(j + i) = s.y[i];
                }
                j += na;
            }
            double emax = 0;
            for (int r = 1; r <= n; ++r) {
                double re = 0, im = 0;
                for (int k = firstRow; k <= n; ++k) {
                    re += V(r, k) * X(k);
                    im += V(r, k) * Y(k);
                }
                V(r, ki) = R(re + V(r, ki) * X(ki));
                double size = std::abs(V(r, ki));
                if (pair) {
                    V(r, ki + 1) = R(im + V(r, ki + 1) * Y(ki + 1));
                    size = R(size + std::abs(V(r, ki + 1)));
                }
                if (size > emax)
                    emax = size;
            }
            if (emax > safmin())
                for (int r = 1; r <= n; ++r)
                    for (int c = ki; c < firstRow; ++c)
                        V(r, c) = R(V(r, c) * (1 / emax));
            ki = firstRow;
        }
        return true;
    }

    void normalise(Square &V)
    {
        for (int c = 1; c <= n;) {
            if (std::abs(*out.im[std::size_t(c - 1)]) < safmin()) {
                double sum = 0;
                for (int r = 1; r <= n; ++r)
                    sum += V(r, c) * V(r, c);
                sum = R(sum);
                for (int r = 1; sum > safmin() && r <= n; ++r)
                    V(r, c) = R(V(r, c) * (1 / std::sqrt(sum)));
                ++c;
                continue;
            }
            double a = 0, b = 0;
            for (int r = 1; r <= n; ++r) {
                a += V(r, c) * V(r, c);
                b += V(r, c + 1) * V(r, c + 1);
            }
            a = R(a);
            b = R(b);
            for (int r = 1; r <= n; ++r)
                for (int k = c; k <= c + 1; ++k)
                    V(r, k) = R(V(r, k) * (1 / std::sqrt(a + b)));
            int q = 1;
            const auto size = [&](int r) { return V(r, c) * V(r, c) + V(r, c + 1) * V(r, c + 1); };
            for (int r = 2; r <= n; ++r)
                if (size(r) > size(q))
                    q = r;
            const double f = V(q, c), g = V(q, c + 1), r0 = R(std::sqrt(f * f + g * g));
            double cosine = R(f / r0), sine = R(g / r0);
            if (std::abs(f) > std::abs(g) && cosine < 0) {
                cosine = -cosine;
                sine = -sine;
            }
            for (int r = 1; r <= n; ++r) {
                const double re = V(r, c), im = V(r, c + 1);
                V(r, c) = R(cosine * re + sine * im);
                V(r, c + 1) = R(cosine * im - sine * re);
            }
            c += 2;
        }
    }
};

} // namespace test::eigen_general
