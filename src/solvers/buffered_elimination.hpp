// SPDX-License-Identifier: Apache-2.0
// The elimination of determinants and inverses at sizes without closed formulas: of a copy in the
// caller's buffer, whose rows never move. Elements are rounded when they are stored; everything
// else is double.
#pragma once

#include "solvers/pivoting.hpp"
#include "solvers/rows.hpp"

#include <limits>

namespace zonm
{

// 2 n^3 times the smallest normal number, with the factor wrapped to 32 bits: from n = 1024 on it
// may be negative or zero, and then no pivot is below it.
template <class T> inline double singularityLimit(int32_t n)
{
    const auto size = std::uint32_t(n);
    return double(int32_t(2 * size * size * size)) * double(std::numeric_limits<T>::min());
}

// A square matrix of order n or less: n*n elements with a pitch of n, and behind them the order of
// the rows.
template <class T> class BufferedMatrix
{
  public:
    double sign; // of the row order

    BufferedMatrix(void *buffer, int32_t n)
        : rows(bytes(static_cast<T *>(buffer)), n * ptrdiff_t(sizeof(T))), order(rows.at(n, 0))
    {
    }

    // element(i, j) for a matrix of order n.
    template <class F> void fill(int32_t n, F element)
    {
        size = n;
        sign = 1;
        for (int32_t i = 0; i < n; ++i) {
            order.set(i, i);
            for (int32_t j = 0; j < n; ++j)
                rows.set(i, j, element(i, j));
        }
    }

    // Row i in the present order, column j.
    double operator()(int32_t i, int32_t j) const { return double(rows(order(i), j)); }
    double last() const { return (*this)(size - 1, size - 1); }

    // Brings the pivot of step k to row k, and returns it.
    double pivot(int32_t k)
    {
        RowSearch search(k, (*this)(k, k));
        for (int32_t i = k + 1; i < size; ++i)
            search.visit(i, (*this)(i, k));
        if (search.row != k) {
            exchange(order, k, search.row);
            sign = -sign;
        }
        return (*this)(k, k);
    }

    // Subtracts factor(x) times row k from each row below it, x being that row's element in column
    // k, in the columns behind k.
    template <class F> void eliminate(int32_t k, F factor)
    {
        const std::byte *pivotRow = rows.at(order(k), k + 1);
        for (int32_t i = k + 1; i < size; ++i) {
            std::byte *row = rows.at(order(i), k + 1);
            subtractRow<T>(row, factor((*this)(i, k)), pivotRow, size - k - 1);
        }
    }

  private:
    DenseMatrix<T> rows;
    DenseVector<int32_t> order;
    int32_t size = 0;
};

} // namespace zonm
