// SPDX-License-Identifier: Apache-2.0
// The symmetric eigenproblem by the letter, one object at a time: every stage written out, the QL
// and the QR form each on its own, and `R` around whatever is stored.
#pragma once

#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "support/manifest.hpp"
#include "support/values.hpp"
#include "zonm.h"

namespace test::eigen_sym
{

// What the forms do differently.
struct Form {
    bool vectors = false;
    bool smallColumnTest = false, reducedColumnTest = false;
    bool productAtEachStop = true;
    bool decidesAfterSort = false;
    bool rotatesByReciprocal = false;
    double eps = 0, determinantEps = 0, reductionEps = 0, shiftSignQL = 0, threshold = 0;
};

inline Form formOf(const Export &e, bool contiguous)
{
    const bool single = e.element == "32f", array = e.group == "ma";
    const double eps32 = 1.1920928955078125e-07, eps64 = 2.220446049250313e-16;
    Form f;
    f.vectors = e.operation == "zonmEigenValuesVectorsSym";
    f.smallColumnTest = array;
    f.reducedColumnTest = array || f.vectors;
    f.productAtEachStop = !(array && f.vectors);
    f.rotatesByReciprocal = array && f.vectors;
    f.decidesAfterSort = !array && f.vectors;
    f.eps = f.determinantEps = f.reductionEps = f.shiftSignQL = f.threshold =
        single ? eps32 : eps64;
    if (array && f.vectors)
        f.threshold = eps32;
    if (e.name == "zonmEigenValuesSym_ma_32f" && contiguous)
        f.determinantEps = eps64;
    if (e.name == "zonmEigenValuesVectorsSym_m_32f" && !contiguous) {
        f.shiftSignQL = 0;
        f.decidesAfterSort = false;
    }
    if (e.name == "zonmEigenValuesVectorsSym_ma_32f_L" && contiguous)
        f.reductionEps = eps64;
    return f;
}

struct Result {
    ZonStatus status = zonStsOk;
    std::vector<std::optional<double>> values;  // empty where nothing was written
    std::vector<std::optional<double>> vectors; // row by row
    double product = 0;
    bool isQL = false;
    int sweeps = 0, brokenSweeps = 0;
    // The 2-norm, at most, of what the stages left out of the matrix: the results are those of a
    // matrix that differs by as much, and by roundings.
    double neglected = 0;
};

class Solver
{
  public:
    Solver(const Form &f, Element type, int order, const std::vector<double> &matrix)
        : form(f), element(type), n(order), w(matrix)
    {
        out.values.resize(std::size_t(n));
        out.vectors.resize(std::size_t(n * n));
    }

    Result solve()
    {
        if (n == 1) {
            out.values[0] = w[0];
            out.vectors[0] = 1;
        } else if (n == 2)
            solveTwo();
        else
            solveMany();
        return out;
    }

  private:
    Form form;
    Element element;
    int n;
    std::vector<double> w;
    Result out;

    double R(double x) const { return rounded(element, x); }
    double &W(int i, int j) { return w[std::size_t(i * n + j)]; }
    double &d(int i) { return W(i, i); }
    double &e(int i) { return W(i + 1, i); }
    double &value(int i)
    {
        auto &v = out.values[std::size_t(i)];
        if (!v)
            v = 0;
        return *v;
    }
    double &Q(int i, int j) { return *out.vectors[std::size_t(i * n + j)]; }

    void solveTwo()
    {
        const double a = W(0, 0), b = W(0, 1), c = W(1, 1);
        const double det = R(a * c - b * b);
        if (std::abs(det) <= form.determinantEps) {
            out.status = zonStsSingular;
            return;
        }
        const double x = R(a - c), y = R(b + b), s = R(std::sqrt(x * x + y * y)), t = R(a + c);
        double e0, e1;
        int sign1 = 1, sign2 = 1;
        if (t > form.eps) {
            e0 = R(0.5 * (t + s));
            e1 = R(det / e0);
        } else if (t < -form.eps) {
            e0 = R(0.5 * (t - s));
            e1 = R(det / e0);
            sign1 = -1;
        } else {
            e0 = R(0.5 * s);
            e1 = R(-0.5 * s);
        }
        value(0) = e0;
        value(1) = e1;
        double z;
        if (x < -form.eps) {
            z = R(x - s);
            sign2 = -1;
        } else
            z = R(x + s);
        double cs = 1, sn = 0;
        if (std::abs(y) >= std::abs(z)) {
            if (std::abs(y) > form.eps) {
                const double q = R(-z / y);
                cs = R(1 / std::sqrt(q * q + 1));
                sn = R(q * cs);
            }
        }
        if (std::abs(y) < std::abs(z)) {
            const double q = R(-y / z);
            sn = R(1 / std::sqrt(q * q + 1));
            cs = R(q * sn);
        }
        if (sign1 == sign2) {
            const double c0 = cs, s0 = sn;
            cs = -s0;
            sn = c0;
        }
        out.vectors = {cs, -sn, sn, cs};
    }

    void solveMany()
    {
        for (auto &q : out.vectors)
            q = 0;
        for (int i = 0; i < n; ++i)
            Q(i, i) = 1;
        for (int k = 1; k <= n - 2; ++k)
            reduce(k);
        out.isQL = std::abs(d(0)) < std::abs(d(n - 1));
        out.product = 1;
        if (!(out.isQL ? iterateQL() : iterateQR())) {
            out.status = zonStsNoConvergence;
            return;
        }
        const bool singular = std::abs(out.product) <= form.threshold;
        if (singular && !form.decidesAfterSort) {
            out.status = zonStsSingular;
            return;
        }
        sort();
        if (singular)
            out.status = zonStsSingular;
    }

    // Column k-1 stays as it is, and what stands below its subdiagonal is not read again.
    void passOver(int k)
    {
        double tail = 0;
        for (int i = k + 1; i < n; ++i)
            tail += W(i, k - 1) * W(i, k - 1);
        out.neglected += std::sqrt(tail);
    }

    void reduce(int k)
    {
        double s = 0;
        for (int i = k; i < n; ++i)
            s += W(i, k - 1) * W(i, k - 1);
        s = R(s);
        if (form.smallColumnTest && s <= form.reductionEps)
            return passOver(k);
        const double r = R(std::sqrt(s));
        for (int i = k + 1; i < n; ++i)
            value(i) = W(i, k - 1);
        const double a = W(k, k - 1);
        if (form.reducedColumnTest && std::abs(r - a) <= form.reductionEps)
            return passOver(k);
        double h;
        if (a > form.reductionEps) {
            value(k) = R(a + r);
            h = R(2 * (r * a + s));
        } else if (std::abs(a) <= form.reductionEps) {
            value(k) = r;
            h = R(s + s);
        } else {
            value(k) = R(a - r);
            h = R(2 * (s - r * a));
        }
        if (h <= form.reductionEps)
            return passOver(k);
        const double beta = R(2 / h);
        std::vector<double> u(static_cast<std::size_t>(n));
        for (int i = k; i < n; ++i)
            u[std::size_t(i)] = value(i);
        const auto U = [&](int i) { return u[std::size_t(i)]; };

        for (int j = k - 1; j < n; ++j) { // from the left
            double p = 0;
            for (int i = k; i < n; ++i)
                p += W(i, j) * U(i);
            p = R(R(p) * beta);
            for (int i = k; i < n; ++i)
                W(i, j) = R(W(i, j) - p * U(i));
        }
        for (int j = k - 1; j < n; ++j) { // from the right
            double p = 0;
            for (int i = k; i < n; ++i)
                p += W(j, i) * U(i);
            p = R(R(p) * beta);
            for (int i = k; i < n; ++i)
                W(j, i) = R(W(j, i) - p * U(i));
        }
        if (k == 1) {
            for (int i = 1; i < n; ++i) {
                Q(i, 0) = 0;
                Q(i, i) = R(1 - beta * U(i) * U(i));
                for (int j = i + 1; j < n; ++j) {
                    Q(i, j) = R(-beta * U(i) * U(j));
                    Q(j, i) = Q(i, j);
                }
            }
            return;
        }
        for (int i = 1; i < n; ++i) {
            double p = 0;
            for (int j = k; j < n; ++j)
                p += U(j) * Q(i, j);
            p = R(R(p) * beta);
            for (int j = k; j < n; ++j)
                Q(i, j) = R(Q(i, j) - p * U(j));
        }
    }

    // A sweep that breaks off leaves elements as they were before it, or clears them, where the
    // rotations so far have made them others: by so much each.
    template <class... Differences> void breakOff(Differences... d)
    {
        ++out.brokenSweeps;
        out.neglected += (std::abs(d) + ...);
    }

    bool iterateQL()
    {
        const double eps = form.eps;
        for (int l = 0; l < n; ++l) {
            for (int iter = 0;;) {
                int m = l;
                while (m < n - 1 && !(std::abs(0.5 * e(m)) <= eps))
                    m = m + 1;
                if (m == l)
                    break;
                if (iter == 30)
                    return false;
                iter = iter + 1;
                ++out.sweeps;
                double g = R((d(l + 1) - d(l)) / (2 * e(l)));
                double r = R(std::sqrt(g * g + 1));
                const double wide = g > form.shiftSignQL ? R(g + r) : R(g - r);
                g = R(d(m) - d(l) + e(l) / wide);
                double s = 1, c = 1, p = 0;
                int i;
                for (i = m - 1; i >= l; --i) {
                    const double f = R(s * e(i)), b = R(c * e(i));
                    r = R(std::sqrt(g * g + f * f));
                    if (i != m - 1)
                        e(i + 1) = r;
                    if (std::abs(r) <= eps) {
                        breakOff(f, g, b - e(i), e(m - 1));
                        d(i + 1) = R(d(i + 1) - p);
                        e(m - 1) = 0;
                        break;
                    }
                    if (!form.rotatesByReciprocal) {
                        s = R(f / r);
                        c = R(g / r);
                        for (int q = 0; q < n; ++q) {
                            const double t = Q(q, i);
                            Q(q, i) = R(c * t - s * Q(q, i + 1));
                            Q(q, i + 1) = R(c * Q(q, i + 1) + s * t);
                        }
                    } else {
                        const double rho = R(1 / r);
                        s = R(f * rho);
                        c = R(g * rho);
                        for (int q = 0; q < n; ++q) {
                            const double x = R(Q(q, i) * rho), y = R(Q(q, i + 1) * rho);
                            Q(q, i) = R(g * x - f * y);
                            Q(q, i + 1) = R(g * y + f * x);
                        }
                    }
                    g = R(d(i + 1) - p);
                    r = R((d(i) - g) * s + 2 * c * b);
                    p = R(s * r);
                    d(i + 1) = R(g + p);
                    g = R(c * r - b);
                }
                if (std::abs(r) <= eps && i >= 0) {
                    if (i < l)
                        breakOff(p, g - e(l));
                    continue;
                }
                d(l) = R(d(l) - p);
                e(l) = g;
            }
        }
        for (int i = 0; i < n; ++i) {
            value(i) = d(i);
            out.product = R(out.product * d(i));
        }
        return true;
    }

    bool iterateQR()
    {
        const double eps = form.eps;
        for (int l = n - 1; l >= 0; --l) {
            for (int iter = 0;;) {
                int m = l;
                while (m >= 1) {
                    if (std::abs(0.5 * e(m - 1)) <= eps) {
                        if (form.productAtEachStop) {
                            value(m) = d(m);
                            out.product = R(out.product * d(m));
                        }
                        break;
                    }
                    m = m - 1;
                }
                if (m == l)
                    break;
                if (iter == 30)
                    return false;
                iter = iter + 1;
                ++out.sweeps;
                double g = R((d(l - 1) - d(l)) / (2 * e(l - 1)));
                double r = R(std::sqrt(g * g + 1));
                const double wide = g > eps ? R(g + r) : R(g - r);
                g = R(d(m) - d(l) + e(l - 1) / wide);
                double s = 1, c = 1, p = 0;
                bool wasLeft = false;
                for (int i = m; i <= l - 1; ++i) {
                    const double f = R(s * e(i)), b = R(c * e(i));
                    r = R(std::sqrt(g * g + f * f));
                    if (i != m)
                        e(i - 1) = r;
                    if (std::abs(r) <= eps) {
                        wasLeft = true;
                        breakOff(f, g, b - e(i), e(m));
                        d(i) = R(d(i) - p);
                        e(m) = 0;
                        break;
                    }
                    if (!form.rotatesByReciprocal) {
                        s = R(f / r);
                        c = R(g / r);
                        for (int q = 0; q < n; ++q) {
                            const double t = Q(q, i);
                            Q(q, i) = R(c * t + s * Q(q, i + 1));
                            Q(q, i + 1) = R(c * Q(q, i + 1) - s * t);
                        }
                    } else {
                        const double rho = R(1 / r);
                        s = R(f * rho);
                        c = R(g * rho);
                        for (int q = 0; q < n; ++q) {
                            const double x = R(Q(q, i) * rho), y = R(Q(q, i + 1) * rho);
                            Q(q, i) = R(g * x + f * y);
                            Q(q, i + 1) = R(g * y - f * x);
                        }
                    }
                    g = R(d(i) - p);
                    r = R((d(i + 1) - g) * s + 2 * c * b);
                    p = R(s * r);
                    d(i) = R(g + p);
                    g = R(c * r - b);
                }
                if (std::abs(r) <= eps) {
                    if (!wasLeft)
                        breakOff(p, g - e(l - 1));
                    continue;
                }
                d(l) = R(d(l) - p);
                e(l - 1) = g;
            }
        }
        if (form.productAtEachStop) {
            value(0) = d(0);
            out.product = R(out.product * d(0));
        } else
            for (int i = 0; i < n; ++i) {
                value(i) = d(i);
                out.product = R(out.product * d(i));
            }
        return true;
    }

    void sort()
    {
        for (int i = 1; i < n; ++i) {
            int best = i - 1;
            double v = value(i - 1);
            for (int j = i; j < n; ++j)
                if (v < value(j)) {
                    v = value(j);
                    best = j;
                }
            if (best == i - 1)
                continue;
            value(best) = value(i - 1);
            value(i - 1) = v;
            for (int q = 0; q < n; ++q)
                std::swap(Q(q, i - 1), Q(q, best));
        }
    }
};

inline Result solve(const Form &form, Element element, int n, const std::vector<double> &matrix)
{
    return Solver(form, element, n, matrix).solve();
}

} // namespace test::eigen_sym
