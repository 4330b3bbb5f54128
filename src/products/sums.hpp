// SPDX-License-Identifier: Apache-2.0
// Running sums of products: doubles, several columns of dst at a time, whatever the element type.
// Elements are widened as they are loaded and narrowed as they are stored.
#pragma once

#include "frame/lanes.hpp"
#include "frame/unroll.hpp"
#include "products/operands.hpp"

#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zonm
{

// The number of sums that fill a register.
inline constexpr int sumLanes = registerBytes / int(sizeof(double));

template <int W> struct SumsOf {
    using type = Pack<double, W>;
};
template <> struct SumsOf<1> {
    using type = double;
};
// `W` neighbouring sums of a row.
template <int W> using Sums = typename SumsOf<W>::type;

// A row of `N` columns cut into packs, the widest first: f(first column, columns in the pack).
template <int N, int First = 0, int W = sumLanes, class F> ZONM_INLINED inline void cut(F f)
{
    if constexpr (First + W <= N) {
        f(std::integral_constant<int, First>{}, std::integral_constant<int, W>{});
        cut<N, First + W, W>(f);
    } else if constexpr (First < N) {
        cut<N, First, W / 2>(f);
    }
}

// The sums of a row of `N` columns, as `cut` cuts it.
template <int N, int First = 0, int W = sumLanes> struct PackedSums {
    static constexpr bool fits = First + W <= N;
    struct None {
    };
    using Rest = std::conditional_t<(First + (fits ? W : 0) < N),
                                    PackedSums<N, First + (fits ? W : 0), fits ? W : W / 2>, None>;
    [[no_unique_address]] std::conditional_t<fits, Sums<W>, None> pack;
    [[no_unique_address]] Rest rest;

    template <int J, int V> ZONM_INLINED inline auto &part()
    {
        if constexpr (J == First && V == W)
            return pack;
        else
            return rest.template part<J, V>();
    }
};

template <int W> ZONM_INLINED inline Sums<W> all(double x)
{
    if constexpr (W == 1)
        return x;
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_INLINED
        {
            return Sums<W>{((void)I, x)...};
        }
    (std::make_integer_sequence<int, W>{});
}

// Lane by lane in another type.
template <class To, class From> ZONM_INLINED inline To converted(const From &from)
{
#if defined(__GNUC__)
    return __builtin_convertvector(from, To);
#else
    To to;
    for (int i = 0; i < int(sizeof to / sizeof to[0]); ++i)
        to[i] = static_cast<std::remove_reference_t<decltype(to[0])>>(from[i]);
    return to;
#endif
}

// The first `W` of a wider pack, for packs whose lanes are all the same.
template <int W, class V> ZONM_INLINED inline Sums<W> first(const V &v)
{
    if constexpr (std::is_same_v<V, Sums<W>>)
        return v;
    else
        return all<W>(v[0]);
}

// Narrow elements and sums, `W` at a time. The compilers know the conversion of a pair, alone in
// its register, only by name. Lanes are never converted one by one: GCC 12 takes a pack of doubles
// made of doubles rounded to float for the pack that they came from.
template <int W> ZONM_INLINED inline Sums<W> fromFloats(const std::byte *p)
{
#if defined(__SSE2__)
    if constexpr (W == 2)
        return Sums<2>(
            _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)))));
#endif
    return converted<Sums<W>>(loadPack<float, W>(p));
}

template <int W> ZONM_INLINED inline void storeFloats(std::byte *p, Sums<W> sums)
{
#if defined(__SSE2__)
    if constexpr (W == 2) {
        _mm_storel_epi64(reinterpret_cast<__m128i *>(p),
                         _mm_castps_si128(_mm_cvtpd_ps(__m128d(sums))));
        return;
    }
#endif
    storePack(p, converted<Pack<float, W>>(sums));
}

template <int W> ZONM_INLINED inline Sums<W> roundedToFloat(Sums<W> sums)
{
#if defined(__SSE2__)
    if constexpr (W == 2)
        return Sums<2>(_mm_cvtps_pd(_mm_cvtpd_ps(__m128d(sums))));
#endif
    return converted<Sums<W>>(converted<Pack<float, W>>(sums));
}

// Neighbouring elements.
template <class T, int W> ZONM_INLINED inline Sums<W> widened(const std::byte *p)
{
    if constexpr (W == 1)
        return double(load<T>(p));
    else if constexpr (sizeof(T) == sizeof(double))
        return loadPack<double, W>(p);
    else
        return fromFloats<W>(p);
}

template <class T, int W> ZONM_INLINED inline void storeNarrowed(std::byte *p, Sums<W> sums)
{
    if constexpr (W == 1)
        store<T>(p, T(sums));
    else if constexpr (sizeof(T) == sizeof(double))
        storePack(p, sums);
    else
        storeFloats<W>(p, sums);
}

// Sums that live in memory of the element type.
template <class T, int W> ZONM_INLINED inline Sums<W> rounded(Sums<W> sums)
{
    if constexpr (sizeof(T) == sizeof(double))
        return sums;
    else if constexpr (W == 1)
        return double(float(sums));
    else
        return roundedToFloat<W>(sums);
}

template <class M> inline constexpr bool hasDenseRows = false;
template <class T> inline constexpr bool hasDenseRows<DenseMatrix<T>> = true;
template <class M> inline constexpr bool hasDenseColumns = false;
template <class T> inline constexpr bool hasDenseColumns<DenseColumns<T>> = true;

// Elements (i, j) to (i, j + W - 1).
template <int W, class M> ZONM_INLINED inline Sums<W> row(const M &m, ptrdiff_t i, ptrdiff_t j)
{
    if constexpr (hasDenseRows<M> || W == 1)
        return widened<typename M::Element, W>(m.at(i, j));
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_INLINED
        {
            return Sums<W>{double(m(i, j + I))...};
        }
    (std::make_integer_sequence<int, W>{});
}

template <int W, class M>
ZONM_INLINED inline void setRow(const M &m, ptrdiff_t i, ptrdiff_t j, Sums<W> sums)
{
    using T = typename M::Element;
    if constexpr (hasDenseRows<M> || W == 1)
        storeNarrowed<T, W>(m.at(i, j), sums);
    else
        unrolled<0, W>([&](auto c) ZONM_INLINED { m.set(i, j + c, T(sums[int(c)])); });
}

// The same of rows i to i + R - 1. Narrow elements of dense columns come in pairs of a column.
template <int R, int W, class M>
ZONM_INLINED inline void loadRows(Sums<W> (&rows)[R], const M &m, ptrdiff_t i, ptrdiff_t j)
{
    using T = typename M::Element;
    if constexpr (hasDenseColumns<M> && sizeof(T) < sizeof(double) && R == 2 && W == 2) {
        const auto left = widened<T, 2>(m.at(i, j)), right = widened<T, 2>(m.at(i, j + 1));
        rows[0] = Sums<2>{left[0], right[0]};
        rows[1] = Sums<2>{left[1], right[1]};
    } else {
        unrolled<0, R>([&](auto r) ZONM_INLINED { rows[r] = row<W>(m, i + r, j); });
    }
}

// One lane of a pair in both.
template <int I> ZONM_INLINED inline Sums<2> lane(Sums<2> pair)
{
#if defined(__SSE2__)
    // Unlike the unpacking instructions this one leaves the pair as it is.
    constexpr int both = I == 0 ? 0x44 : 0xee;
    return Sums<2>(_mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(__m128d(pair)), both)));
#else
    return Sums<2>{pair[I], pair[I]};
#endif
}

// Elements (i, j) to (i + R - 1, j + C - 1), each in all lanes.
template <int R, int C, class M>
ZONM_INLINED inline void spread(Sums<sumLanes> (&f)[R][C], const M &m, ptrdiff_t i, ptrdiff_t j)
{
    using T = typename M::Element;
    if constexpr (sumLanes == 2 && hasDenseRows<M> && C == 2) {
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            const auto pair = widened<T, 2>(m.at(i + r, j));
            f[r][0] = lane<0>(pair);
            f[r][1] = lane<1>(pair);
        });
    } else if constexpr (sumLanes == 2 && hasDenseColumns<M> && R > 1) {
        unrolled<0, C>([&](auto c) ZONM_INLINED {
            unrolled<0, R / 2>([&](auto r) ZONM_INLINED {
                const auto pair = widened<T, 2>(m.at(i + 2 * r, j + c));
                f[2 * r][c] = lane<0>(pair);
                f[2 * r + 1][c] = lane<1>(pair);
            });
            if constexpr (R % 2 != 0)
                f[R - 1][c] = all<2>(double(m(i + R - 1, j + c)));
        });
    } else {
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            unrolled<0, C>([&](auto c)
                               ZONM_INLINED { f[r][c] = all<sumLanes>(double(m(i + r, j + c))); });
        });
    }
}

} // namespace zonm
