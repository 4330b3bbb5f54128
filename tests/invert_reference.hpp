// SPDX-License-Identifier: Apache-2.0
// Inverses by the letter.
#pragma once

#include "det_reference.hpp"

namespace test::inverse
{

// The minor of some rows over some columns, expanded along the row that comes last in `added`, the
// others before it having been expanded in the same way.
inline double minorOf(const Square &m, const std::vector<int> &added,
                      const std::vector<int> &columns)
{
    const int row = added.back();
    if (added.size() == 1)
        return m(row, columns[0]);
    const std::vector<int> before(added.begin(), added.end() - 1);
    int above = 0;
    for (const int r : before)
        above += r < row;
    double sum = 0;
    for (std::size_t j = 0; j < columns.size(); ++j) {
        std::vector<int> others = columns;
        others.erase(others.begin() + std::ptrdiff_t(j));
        const double product = m(row, columns[j]) * minorOf(m, before, others);
        const double term = (above + int(j)) % 2 == 0 ? product : -product;
        sum = j == 0 ? term : sum + term;
    }
    return sum;
}

// The other half's rows first, then those of the half that row i stands in.
inline double minorWithout(const Square &m, int i, int j)
{
    const int middle = m.n / 2;
    std::vector<int> added, columns;
    for (const bool otherHalf : {true, false})
        for (int r = 0; r < m.n; ++r)
            if (r != i && ((r < middle) != (i < middle)) == otherHalf)
                added.push_back(r);
    for (int c = 0; c < m.n; ++c)
        if (c != j)
            columns.push_back(c);
    return minorOf(m, added, columns);
}

// False where the matrix is singular; otherwise `x` is the inverse before it is rounded.
inline bool byFormula(Element e, const Square &m, Square &x)
{
    const int n = m.n;
    const Square minor(n, [&](int i, int j) { return minorWithout(m, i, j); });
    double det = 0;
    for (int i = 0; i < n; ++i) {
        const double product = m(i, 0) * minor(i, 0);
        det = i == 0 ? product : i % 2 == 0 ? det + product : det - product;
    }
    if (std::fabs(det) < singularityLimit(e, n))
        return false;
    const double r = 1 / det;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            x(j, i) = (i + j) % 2 == 0 ? minor(i, j) * r : -(minor(i, j) * r);
    return true;
}

inline bool ofSize3(Element e, const Square &a, Square &x)
{
    const double c0 = a(2, 2) * a(1, 1) - a(1, 2) * a(2, 1);
    const double c1 = a(0, 1) * a(2, 2) - a(0, 2) * a(2, 1);
    const double c2 = a(1, 2) * a(0, 1) - a(0, 2) * a(1, 1);
    const double det = (c0 * a(0, 0) - a(1, 0) * c1) + c2 * a(2, 0);
    if (std::fabs(det) < singularityLimit(e, 3))
        return false;
    const double r = 1 / det;
    x(0, 0) = c0 * r;
    x(0, 1) = -(c1 * r);
    x(0, 2) = c2 * r;
    x(1, 0) = -(a(2, 2) * a(1, 0) - a(1, 2) * a(2, 0)) * r;
    x(1, 1) = (a(2, 2) * a(0, 0) - a(0, 2) * a(2, 0)) * r;
    x(1, 2) = -(a(1, 2) * a(0, 0) - a(0, 2) * a(1, 0)) * r;
    x(2, 0) = (a(2, 1) * a(1, 0) - a(1, 1) * a(2, 0)) * r;
    x(2, 1) = -(a(2, 1) * a(0, 0) - a(2, 0) * a(0, 1)) * r;
    x(2, 2) = r * (a(1, 1) * a(0, 0) - a(1, 0) * a(0, 1));
    return true;
}

// A minor whose elimination fails, or whose last pivot does, is the limit.
inline double minorByElimination(Element e, const Square &m, int i, int j)
{
    const double limit = singularityLimit(e, m.n);
    Elimination w(
        e, Square(m.n - 1, [&](int r, int c) { return m(r < i ? r : r + 1, c < j ? c : c + 1); }));
    double product = 1;
    for (int k = 0; k < m.n - 2; ++k) {
        const double v = w.exchange(k);
        if (std::fabs(v) < limit) {
            product = limit;
            break;
        }
        w.eliminate(k, [=](double x) { return x * (1 / v); });
        product = product * v;
    }
    const double last = w.at(m.n - 2, m.n - 2);
    return std::fabs(last) > limit ? product * (last * w.sign) : limit;
}

inline bool byElimination(Element e, const Square &m, Square &x)
{
    const double limit = singularityLimit(e, m.n);
    Elimination w(e, m);
    double d = 1;
    for (int k = 0; k < m.n - 1; ++k) {
        const double v = w.exchange(k);
        if (std::fabs(v) < limit)
            return false;
        w.eliminate(k, [=](double f) { return f * (1 / v); });
        d = d * v;
    }
    d = d * (w.sign * w.at(m.n - 1, m.n - 1));
    if (std::fabs(d) <= limit)
        return false;
    for (int i = 0; i < m.n; ++i)
        for (int j = 0; j < m.n; ++j)
            x(j, i) = (minorByElimination(e, m, i, j) * (1 / d)) * ((i + j) % 2 == 0 ? 1 : -1);
    return true;
}

inline bool of(Element e, const Square &m, Square &x)
{
    if (m.n == 1) {
        x(0, 0) = 1 / m(0, 0);
        return std::fabs(m(0, 0)) > singularityLimit(e, 1);
    }
    return m.n == 3                ? ofSize3(e, m, x)
           : hasClosedFormula(m.n) ? byFormula(e, m, x)
                                   : byElimination(e, m, x);
}

} // namespace test::inverse
