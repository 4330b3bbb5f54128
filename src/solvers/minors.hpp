// SPDX-License-Identifier: Apache-2.0
// Minors of a small matrix, built row by row: those of one row are its elements, and every further
// row expands all minors of the rows before it. Each minor is formed once, for numbers or for lanes
// of numbers.
#pragma once

#include "frame/sizes.hpp"

#include <array>
#include <bit>

namespace zonm
{

// The choices of K among N columns, each a set of bits, in ascending order.
template <int N, int K> struct ColumnSets {
    static constexpr int count = [] {
        int found = 0;
        for (unsigned s = 0; s < 1u << N; ++s)
            found += std::popcount(s) == K;
        return found;
    }();
    static constexpr auto set = [] {
        std::array<unsigned, count> sets{};
        int found = 0;
        for (unsigned s = 0; s < 1u << N; ++s)
            if (std::popcount(s) == K)
                sets[found++] = s;
        return sets;
    }();
    static constexpr int indexOf(unsigned columns)
    {
        int index = 0;
        while (set[index] != columns)
            ++index;
        return index;
    }
};

// Member number `place` of a set.
constexpr int memberOf(unsigned set, int place)
{
    for (; place > 0; --place)
        set &= set - 1;
    return std::countr_zero(set);
}

template <class V, int N, int K> struct Minors {
    V of[ColumnSets<N, K>::count];

    template <unsigned Columns> ZONM_INLINED const V &over() const
    {
        return of[ColumnSets<N, K>::indexOf(Columns)];
    }
};

template <int N, class V> ZONM_INLINED inline Minors<V, N, 1> minorsOfRow(const V (&row)[N])
{
    Minors<V, N, 1> m;
    unrolled<0, N>([&](auto j) ZONM_INLINED { m.of[j] = row[j]; });
    return m;
}

// The minors of the rows of `m` and one more, which has `Above` of them above it: expansions along
// that row, whose products are added one by one, by ascending columns where `Order` says so, else
// by descending ones.
template <int Above, class Order, class V, int N, int K>
ZONM_INLINED inline Minors<V, N, K + 1> expanded(const Minors<V, N, K> &m, const V (&row)[N])
{
    using Sets = ColumnSets<N, K + 1>;
    Minors<V, N, K + 1> result;
    unrolled<0, Sets::count>([&](auto s) ZONM_INLINED {
        constexpr unsigned columns = Sets::set[s];
        constexpr bool ascends = Order::ascends(columns);
        constexpr auto place = [](int step) { return ascends ? step : K - step; };
        constexpr auto isAdded = [](int step) {
            return (Above + (ascends ? step : K - step)) % 2 == 0;
        };
        const auto product = [&]<int Step>(std::integral_constant<int, Step>) ZONM_INLINED {
            constexpr int column = memberOf(columns, place(Step));
            return row[column] * m.template over<columns & ~(1u << column)>();
        };
        constexpr std::integral_constant<int, 0> first;
        constexpr std::integral_constant<int, 1> second;
        V sum = isAdded(0) ? product(first) - product(second) : product(second) - product(first);
        unrolled<2, K + 1>([&](auto step) ZONM_INLINED {
            sum = isAdded(step) ? sum + product(step) : sum - product(step);
        });
        result.of[s] = sum;
    });
    return result;
}

} // namespace zonm
