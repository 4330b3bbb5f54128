// SPDX-License-Identifier: Apache-2.0
// The pivot of a step: the element of largest magnitude in a column, the earliest of equals. A NaN
// never replaces another element, and stays if the search begins with it. Rows never move: their
// numbers do.
#pragma once

#include "frame/lanes.hpp"
#include "frame/views.hpp"

#include <cmath>

namespace zonm
{

// One row after the other.
struct RowSearch {
    int32_t row;
    double best;

    RowSearch(int32_t i, double element) : row(i), best(std::fabs(element)) {}
    void visit(int32_t i, double element)
    {
        const double magnitude = std::fabs(element);
        row = magnitude > best ? i : row;
        best = magnitude > best ? magnitude : best;
    }
};

inline void exchange(const DenseVector<int32_t> &order, int32_t i, int32_t k)
{
    const int32_t row = order(i);
    order.set(i, order(k));
    order.set(k, row);
}

// Of a column in lanes, rows K to N - 1: `isRow[i]` is set where row i is to change places with
// row K.
template <int K, int N> struct LaneSearch {
    LaneBits isRow[N];
    Lanes magnitude;

    ZONM_INLINED explicit LaneSearch(const Lanes (&column)[N]) : magnitude(abs(column[K]))
    {
        unrolled<K + 1, N>([&](auto i) ZONM_INLINED {
            const Lanes best = larger(abs(column[i]), magnitude);
            isRow[i] = best > magnitude;
            magnitude = best;
        });
        // Of the rows that were largest so far, the last one was largest of all.
        LaneBits later = LaneBits::all(0);
        unrolledDown<N, K + 1>([&](auto i) ZONM_INLINED {
            const LaneBits larger = isRow[i];
            isRow[i] = andNot(larger, later);
            later = later | larger;
        });
    }

    // All rows compare with the old row K, so that they need not wait for one another.
    template <class V> ZONM_INLINED void exchange(V (&row)[N]) const
    {
        const V old = row[K];
        unrolled<K + 1, N>([&](auto i) ZONM_INLINED {
            const LaneBits difference = isRow[i] & (old ^ row[i]);
            row[i] = row[i] ^ difference;
            row[K] = row[K] ^ difference;
        });
    }
};

} // namespace zonm
