// SPDX-License-Identifier: Apache-2.0
// Chains: running sums of products, doubles whatever the element type, several columns of dst at a
// time. A pack of chains takes its terms in the order that each of them would take alone.
#pragma once

#include "frame/packs.hpp"
#include "frame/sizes.hpp"
#include "frame/views.hpp"

#include <utility>

namespace zonm
{

// What a chain begins with: its first product, or the sum of 0.0 and that. The sign of a zero
// tells.
enum class Start { product, zero };
template <Start S> using StartConstant = std::integral_constant<Start, S>;

// Where the sum of an element lives while it grows: in a register, or in dst, which rounds it.
enum class Accumulation { wide, inDst };

// A row of `N` columns cut into packs, the widest first: f(first column, columns in the pack).
template <int N, int First = 0, int W = doublesPerRegister, class F>
ZONM_INLINED inline void forEachPack(F f)
{
    if constexpr (First + W <= N) {
        f(std::integral_constant<int, First>{}, std::integral_constant<int, W>{});
        forEachPack<N, First + W, W>(f);
    } else if constexpr (First < N) {
        forEachPack<N, First, W / 2>(f);
    }
}

// The sums of a row of `N` columns, as `forEachPack` cuts it.
template <int N, int First = 0, int W = doublesPerRegister> struct ChainRow {
    static constexpr bool fits = First + W <= N;
    struct None {
    };
    using Rest = std::conditional_t<(First + (fits ? W : 0) < N),
                                    ChainRow<N, First + (fits ? W : 0), fits ? W : W / 2>, None>;
    [[no_unique_address]] std::conditional_t<fits, Doubles<W>, None> pack;
    [[no_unique_address]] Rest rest;

    template <int J, int V> ZONM_INLINED inline auto &part()
    {
        if constexpr (J == First && V == W)
            return pack;
        else
            return rest.template part<J, V>();
    }
};

// The first `W` of a wider pack, for packs whose lanes are all the same.
template <int W, class V> ZONM_INLINED inline Doubles<W> firstLanes(const V &v)
{
    if constexpr (std::is_same_v<V, Doubles<W>>)
        return v;
    else
        return inAllLanes<W>(v[0]);
}

// Elements (i, j) to (i, j + W - 1).
template <int W, class M>
ZONM_INLINED inline Doubles<W> loadRow(const M &m, ptrdiff_t i, ptrdiff_t j)
{
    if constexpr (hasDenseRows<M> || W == 1)
        return loadDoubles<typename M::Element, W>(m.at(i, j));
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_INLINED
        {
            return Doubles<W>{double(m(i, j + I))...};
        }
    (std::make_integer_sequence<int, W>{});
}

template <int W, class M>
ZONM_INLINED inline void storeRow(const M &m, ptrdiff_t i, ptrdiff_t j, Doubles<W> sums)
{
    using T = typename M::Element;
    if constexpr (hasDenseRows<M> || W == 1)
        storeDoubles<T, W>(m.at(i, j), sums);
    else
        unrolled<0, W>([&](auto c) ZONM_INLINED { m.set(i, j + c, T(sums[int(c)])); });
}

// The same of rows i to i + R - 1. Narrow elements of dense columns come in pairs of a column.
template <int R, int W, class M>
ZONM_INLINED inline void loadRows(Doubles<W> (&rows)[R], const M &m, ptrdiff_t i, ptrdiff_t j)
{
    using T = typename M::Element;
    if constexpr (hasDenseColumns<M> && sizeof(T) < sizeof(double) && R == 2 && W == 2) {
        const auto left = loadDoubles<T, 2>(m.at(i, j)), right = loadDoubles<T, 2>(m.at(i, j + 1));
        rows[0] = Doubles<2>{left[0], right[0]};
        rows[1] = Doubles<2>{left[1], right[1]};
    } else {
        unrolled<0, R>([&](auto r) ZONM_INLINED { rows[r] = loadRow<W>(m, i + r, j); });
    }
}

// One lane of a pair in both.
template <int I> ZONM_INLINED inline Doubles<2> laneInBoth(Doubles<2> pair)
{
#if defined(ZONM_SSE2)
    // Unlike the unpacking instructions this one leaves the pair as it is.
    constexpr int both = I == 0 ? 0x44 : 0xee;
    return Doubles<2>(_mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(__m128d(pair)), both)));
#else
    return Doubles<2>{pair[I], pair[I]};
#endif
}

// Elements (i, j) to (i + R - 1, j + C - 1), each in all lanes.
template <int R, int C, class M>
ZONM_INLINED inline void spread(Doubles<doublesPerRegister> (&f)[R][C], const M &m, ptrdiff_t i,
                                ptrdiff_t j)
{
    using T = typename M::Element;
    if constexpr (doublesPerRegister == 2 && hasDenseRows<M> && C == 2) {
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            const auto pair = loadDoubles<T, 2>(m.at(i + r, j));
            f[r][0] = laneInBoth<0>(pair);
            f[r][1] = laneInBoth<1>(pair);
        });
    } else if constexpr (doublesPerRegister == 2 && hasDenseColumns<M> && R > 1) {
        unrolled<0, C>([&](auto c) ZONM_INLINED {
            unrolled<0, R / 2>([&](auto r) ZONM_INLINED {
                const auto pair = loadDoubles<T, 2>(m.at(i + 2 * r, j + c));
                f[2 * r][c] = laneInBoth<0>(pair);
                f[2 * r + 1][c] = laneInBoth<1>(pair);
            });
            if constexpr (R % 2 != 0)
                f[R - 1][c] = inAllLanes<2>(double(m(i + R - 1, j + c)));
        });
    } else {
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            unrolled<0, C>([&](auto c) ZONM_INLINED {
                f[r][c] = inAllLanes<doublesPerRegister>(double(m(i + r, j + c)));
            });
        });
    }
}

} // namespace zonm
