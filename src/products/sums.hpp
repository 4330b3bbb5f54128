// SPDX-License-Identifier: Apache-2.0
// Running sums of products: doubles, several columns of dst at a time, whatever the element type.
// Elements are widened as they are loaded and narrowed as they are stored.
#pragma once

#include "frame/lanes.hpp"
#include "products/operands.hpp"

#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zonm {

#if defined(__GNUC__)
#define ZONM_INLINE inline __attribute__((always_inline))
#define ZONM_UNROLLED __attribute__((always_inline))
#define ZONM_APART __attribute__((noinline))
#else
#define ZONM_INLINE inline
#define ZONM_UNROLLED
#define ZONM_APART
#endif

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

// f(0), f(1), ... f(N - 1), each with its index as a constant.
template <int N, class F> ZONM_INLINE void unrolled(F f)
{
    [&]<int... I>(std::integer_sequence<int, I...>) ZONM_UNROLLED {
        (f(std::integral_constant<int, I>{}), ...);
    }(std::make_integer_sequence<int, N>{});
}

// A row of `N` columns cut into packs, the widest first: f(first column, columns in the pack).
template <int N, int First = 0, int W = sumLanes, class F> ZONM_INLINE void cut(F f)
{
    if constexpr (First + W <= N) {
        f(std::integral_constant<int, First>{}, std::integral_constant<int, W>{});
        cut<N, First + W, W>(f);
    } else if constexpr (First < N) {
        cut<N, First, W / 2>(f);
    }
}

template <int W> ZONM_INLINE Sums<W> all(double x)
{
    if constexpr (W == 1)
        return x;
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_UNROLLED {
            return Sums<W>{((void)I, x)...};
        }(std::make_integer_sequence<int, W>{});
}

// The first `W` of a wider pack, for packs whose lanes are all the same.
template <int W, class V> ZONM_INLINE Sums<W> first(const V &v)
{
    if constexpr (std::is_same_v<V, Sums<W>>)
        return v;
    else
        return all<W>(v[0]);
}

// Neighbouring elements.
template <class T, int W> ZONM_INLINE Sums<W> widened(const std::byte *p)
{
    if constexpr (W == 1) {
        return double(load<T>(p));
    } else if constexpr (sizeof(T) == sizeof(double)) {
        return loadPack<double, W>(p);
    } else {
#if defined(__SSE2__)
        // The compilers know this one instruction only by its name.
        if constexpr (W == 2)
            return Sums<W>(_mm_cvtps_pd(
                _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)))));
#endif
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_UNROLLED {
            return Sums<W>{double(load<T>(p + I * ptrdiff_t(sizeof(T))))...};
        }(std::make_integer_sequence<int, W>{});
    }
}

template <class T, int W> ZONM_INLINE void storeNarrowed(std::byte *p, Sums<W> sums)
{
    if constexpr (W == 1) {
        store<T>(p, T(sums));
    } else if constexpr (sizeof(T) == sizeof(double)) {
        storePack(p, sums);
    } else {
#if defined(__SSE2__)
        if constexpr (W == 2) {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(p),
                             _mm_castps_si128(_mm_cvtpd_ps(__m128d(sums))));
            return;
        }
#endif
        unrolled<W>([&](auto c) ZONM_UNROLLED { store<T>(p + c * ptrdiff_t(sizeof(T)), T(sums[int(c)])); });
    }
}

// Sums that live in memory of the element type.
template <class T, int W> ZONM_INLINE Sums<W> rounded(Sums<W> sums)
{
    if constexpr (sizeof(T) == sizeof(double)) {
        return sums;
    } else if constexpr (W == 1) {
        return double(T(sums));
    } else {
#if defined(__SSE2__)
        if constexpr (W == 2)
            return Sums<W>(_mm_cvtps_pd(_mm_cvtpd_ps(__m128d(sums))));
#endif
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_UNROLLED {
            return Sums<W>{double(T(sums[I]))...};
        }(std::make_integer_sequence<int, W>{});
    }
}

template <class M> inline constexpr bool hasDenseRows = false;
template <class T> inline constexpr bool hasDenseRows<DenseMatrix<T>> = true;
template <class M> inline constexpr bool hasDenseColumns = false;
template <class T> inline constexpr bool hasDenseColumns<DenseColumns<T>> = true;

// Elements (i, j) to (i, j + W - 1).
template <int W, class M> ZONM_INLINE Sums<W> row(const M &m, ptrdiff_t i, ptrdiff_t j)
{
    if constexpr (hasDenseRows<M> || W == 1)
        return widened<typename M::Element, W>(m.at(i, j));
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_UNROLLED {
            return Sums<W>{double(m(i, j + I))...};
        }(std::make_integer_sequence<int, W>{});
}

template <int W, class M>
ZONM_INLINE void setRow(const M &m, ptrdiff_t i, ptrdiff_t j, Sums<W> sums)
{
    using T = typename M::Element;
    if constexpr (hasDenseRows<M> || W == 1)
        storeNarrowed<T, W>(m.at(i, j), sums);
    else
        unrolled<W>([&](auto c) ZONM_UNROLLED { m.set(i, j + c, T(sums[int(c)])); });
}

// Element (i, j) in every lane.
template <int W, class M> ZONM_INLINE Sums<W> spread(const M &m, ptrdiff_t i, ptrdiff_t j)
{
    return all<W>(double(m(i, j)));
}

} // namespace zonm
