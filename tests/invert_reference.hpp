// SPDX-License-Identifier: Apache-2.0
// Inverses by the letter.
#pragma once

#include <bit>

#include "det_reference.hpp"

namespace test::inverse
{

// The minors without row i, each over all columns but one. Rows are added one by one, the other
// half's first and then those of the half that row i stands in; each expands the minors of the rows
// before it, over every set of as many columns, along itself.
inline std::vector<double> minorsWithout(const Square &m, int i)
{
    const int middle = m.n / 2;
    std::vector<int> rows;
    for (const bool otherHalf : {true, false})
        for (int r = 0; r < m.n; ++r)
            if (r != i && ((r < middle) != (i < middle)) == otherHalf)
                rows.push_back(r);
    const unsigned all = (1u << m.n) - 1;
    std::vector<double> minor(all); // by the set of columns, which is larger than its subsets
    for (unsigned columns = 1; columns < all; ++columns) {
        const int last = std::popcount(columns) - 1, row = rows[std::size_t(last)];
        int sign = 1;
        for (int r = 0; r < last; ++r)
            sign = rows[std::size_t(r)] < row ? -sign : sign;
        bool first = true;
        for (int j = 0; j < m.n; ++j) {
            const unsigned others = columns & ~(1u << j);
            if (others == columns)
                continue;
            const double product = others ? m(row, j) * minor[others] : m(row, j);
            const double term = sign > 0 ? product : -product;
            minor[columns] = first ? term : minor[columns] + term;
            first = false;
            sign = -sign;
        }
    }
    std::vector<double> withoutColumn;
    for (int j = 0; j < m.n; ++j)
        withoutColumn.push_back(minor[all & ~(1u << j)]);
    return withoutColumn;
}

// False where the matrix is singular; otherwise `x` is the inverse before it is rounded.
inline bool byFormula(Element e, const Square &m, Square &x)
{
    const int n = m.n;
    std::vector<std::vector<double>> minors;
    for (int i = 0; i < n; ++i)
        minors.push_back(minorsWithout(m, i));
    const auto minor = [&](int i, int j) { return minors[std::size_t(i)][std::size_t(j)]; };
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
