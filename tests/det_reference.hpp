// SPDX-License-Identifier: Apache-2.0
// Determinants by the letter: the formulas of sizes 3 and 4 as they stand in books, tables of
// minors for sizes 5 and 6, elimination elsewhere.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

#include "support/values.hpp"

namespace test
{

struct Square {
    int n;
    std::vector<double> elements;

    explicit Square(int size) : n(size), elements(std::size_t(size) * std::size_t(size)) {}
    template <class F> Square(int size, F element) : Square(size)
    {
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                (*this)(i, j) = element(i, j);
    }
    double &operator()(int i, int j)
    {
        return elements[std::size_t(i) * std::size_t(n) + std::size_t(j)];
    }
    double operator()(int i, int j) const
    {
        return elements[std::size_t(i) * std::size_t(n) + std::size_t(j)];
    }
};

inline bool hasClosedFormula(int n) { return n >= 3 && n <= 6; }

// 2 n^3 times the smallest normal number; 2 n^3 as 32 bits hold it.
inline double singularityLimit(Element e, int n)
{
    const std::int64_t exact = 2 * std::int64_t(n) * n * n;
    std::int64_t wrapped = exact % (std::int64_t(1) << 32);
    if (wrapped >= std::int64_t(1) << 31)
        wrapped -= std::int64_t(1) << 32;
    return double(wrapped) * (e == Element::f32 ? 1.1754943508222875e-38 : 2.2250738585072014e-308);
}

// The elimination of a copy, rows in an order that is kept aside.
struct Elimination {
    Element element;
    Square a;
    std::vector<int> row;
    double sign = 1;

    Elimination(Element e, Square m) : element(e), a(std::move(m)), row(std::size_t(a.n))
    {
        std::iota(row.begin(), row.end(), 0);
    }
    double &at(int i, int j) { return a(row[std::size_t(i)], j); }
    double exchange(int k)
    {
        int m = k;
        double best = std::fabs(at(k, k));
        for (int i = k + 1; i < a.n; ++i)
            if (std::fabs(at(i, k)) > best) {
                m = i;
                best = std::fabs(at(i, k));
            }
        if (m != k) {
            std::swap(row[std::size_t(m)], row[std::size_t(k)]);
            sign = -sign;
        }
        return at(k, k);
    }
    template <class F> void eliminate(int k, F factorOf)
    {
        for (int i = k + 1; i < a.n; ++i) {
            const double factor = factorOf(at(i, k));
            for (int j = k + 1; j < a.n; ++j)
                at(i, j) = rounded(element, at(i, j) - at(k, j) * factor);
        }
    }
};

namespace det
{

inline double ofSize3(const Square &m)
{
    return ((m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0)) * m(2, 2) -
            (m(0, 0) * m(1, 2) - m(1, 0) * m(0, 2)) * m(2, 1)) +
           (m(0, 1) * m(1, 2) - m(1, 1) * m(0, 2)) * m(2, 0);
}

inline double ofSize4(const Square &m)
{
    const auto M = [&](int p, int q) { return m(0, p) * m(1, q) - m(1, p) * m(0, q); };
    const double d0 = (m(2, 1) * M(2, 3) - m(2, 2) * M(1, 3)) + M(1, 2) * m(2, 3);
    const double d1 = (m(2, 3) * M(0, 2) - m(2, 2) * M(0, 3)) + M(2, 3) * m(2, 0);
    const double d2 = (m(2, 3) * M(0, 1) - M(0, 3) * m(2, 1)) + M(1, 3) * m(2, 0);
    const double d3 = (M(0, 1) * m(2, 2) - m(2, 1) * M(0, 2)) + m(2, 0) * M(1, 2);
    return ((d0 * -m(3, 0) + d1 * m(3, 1)) - d2 * m(3, 2)) + d3 * m(3, 3);
}

// Along the last row, by ascending columns; the minors of the rows above it in the same way, each
// formed once.
inline double byLastRow(const Square &m)
{
    std::vector<double> minor(std::size_t(1) << m.n); // by the set of columns
    for (unsigned columns = 1; columns < minor.size(); ++columns) {
        const int last = std::popcount(columns) - 1;
        int place = 0;
        for (int j = 0; j < m.n; ++j) {
            const unsigned others = columns & ~(1u << j);
            if (others == columns)
                continue;
            const double product = others ? m(last, j) * minor[others] : m(last, j);
            const double term = (last + place) % 2 == 0 ? product : -product;
            minor[columns] = place == 0 ? term : minor[columns] + term;
            ++place;
        }
    }
    return minor.back();
}

inline double byElimination(Element e, const Square &m, bool array)
{
    const double limit = singularityLimit(e, m.n);
    Elimination w(e, m);
    double dst = 1;
    for (int k = 0; k < m.n - 1; ++k) {
        const double v = w.exchange(k);
        if (std::fabs(v) < limit) {
            if (!array)
                return 0;
            w.sign = 0;
            break;
        }
        w.eliminate(k, [=](double x) { return x / v; });
        dst = rounded(e, v * dst);
    }
    const double last = w.at(m.n - 1, m.n - 1);
    return std::fabs(last) > limit ? rounded(e, (last * w.sign) * dst) : 0;
}

// What the exports of arrays, or of single matrices, give.
inline double of(Element e, const Square &m, bool array)
{
    return !hasClosedFormula(m.n) ? byElimination(e, m, array)
                                  : rounded(e, m.n == 3   ? ofSize3(m)
                                               : m.n == 4 ? ofSize4(m)
                                                          : byLastRow(m));
}

} // namespace det
} // namespace test
