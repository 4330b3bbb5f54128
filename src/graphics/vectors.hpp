// SPDX-License-Identifier: Apache-2.0
// Formulas on vectors of fixed length. Elements are widened as they are read and rounded as they
// are stored; in between, numbers stand two to a register.
#pragma once

#include "frame/overlap.hpp"
#include "frame/packs.hpp"
#include "frame/square_root.hpp"

#include <algorithm>

namespace zonm
{

// Memory ---------------------------------------------------------------------------------------

// Element i of a dense object, which may lie at any address.
ZONM_INLINED inline double element(const float *p, int i)
{
    return load<float>(bytes(p) + i * ptrdiff_t(sizeof(float)));
}
ZONM_INLINED inline void setElement(float *p, int i, double value)
{
    store(bytes(p) + i * ptrdiff_t(sizeof(float)), float(value));
}

// What `count` objects touch that lie `stride` bytes apart.
ZONM_INLINED inline Extent extentOf(const float *p, ptrdiff_t elements, ptrdiff_t stride = 0,
                                    ptrdiff_t count = 1)
{
    const ptrdiff_t spread = stride * (count - 1);
    return {std::uintptr_t(p) + std::uintptr_t(std::min<ptrdiff_t>(spread, 0)),
            std::size_t(spread < 0 ? -spread : spread) + std::size_t(elements) * sizeof(float)};
}

// Whether an object of N elements and one of M share a byte.
template <int N, int M = N> ZONM_INLINED inline bool overlap(const float *p, const float *q)
{
    constexpr std::uintptr_t before = N * sizeof(float) - 1, behind = M * sizeof(float) - 1;
    return std::uintptr_t(p) - std::uintptr_t(q) + before <= before + behind;
}

// Numbers --------------------------------------------------------------------------------------

using Pair = Doubles<2>;

// N doubles. The second lane of an odd last pair is no part of them.
template <int N> struct Numbers {
    static constexpr int pairs = (N + 1) / 2;
    Pair pair[pairs];

    ZONM_INLINED double operator[](int i) const { return pair[i / 2][i % 2]; }

    ZONM_INLINED friend Numbers operator+(Numbers a, const Numbers &b)
    {
        unrolled<0, pairs>([&](auto h) ZONM_INLINED { a.pair[h] = a.pair[h] + b.pair[h]; });
        return a;
    }
    ZONM_INLINED friend Numbers operator-(Numbers a, const Numbers &b)
    {
        unrolled<0, pairs>([&](auto h) ZONM_INLINED { a.pair[h] = a.pair[h] - b.pair[h]; });
        return a;
    }
    ZONM_INLINED friend Numbers operator*(Numbers a, double b)
    {
        const Pair factor = inAllLanes<2>(b);
        unrolled<0, pairs>([&](auto h) ZONM_INLINED { a.pair[h] = a.pair[h] * factor; });
        return a;
    }
    ZONM_INLINED friend Numbers operator/(Numbers a, double b)
    {
        const Pair divisor = inAllLanes<2>(b);
        unrolled<0, pairs>([&](auto h) ZONM_INLINED { a.pair[h] = a.pair[h] / divisor; });
        return a;
    }
};

template <int N> ZONM_INLINED inline Numbers<N> loadNumbers(const float *p)
{
    Numbers<N> v;
    unrolled<0, N / 2>([&](auto h) ZONM_INLINED {
        v.pair[h] = loadDoubles<float, 2>(bytes(p) + h * ptrdiff_t(2 * sizeof(float)));
    });
    if constexpr (N % 2 == 1)
        v.pair[N / 2] = Pair{element(p, N - 1), 0};
    return v;
}

template <int N> ZONM_INLINED inline void storeNumbers(float *p, const Numbers<N> &v)
{
    unrolled<0, N / 2>([&](auto h) ZONM_INLINED {
        storeDoubles<float, 2>(bytes(p) + h * ptrdiff_t(2 * sizeof(float)), v.pair[h]);
    });
    if constexpr (N % 2 == 1)
        setElement(p, N - 1, v[N - 1]);
}

// What elements hold after the numbers are stored to them.
template <int N> ZONM_INLINED inline Numbers<N> rounded(Numbers<N> v)
{
    unrolled<0, Numbers<N>::pairs>([&](auto h)
                                       ZONM_INLINED { v.pair[h] = rounded<float, 2>(v.pair[h]); });
    return v;
}

// The first M of N numbers.
template <int M, int N> ZONM_INLINED inline Numbers<M> firstOf(const Numbers<N> &v)
{
    Numbers<M> first;
    unrolled<0, Numbers<M>::pairs>([&](auto h) ZONM_INLINED { first.pair[h] = v.pair[h]; });
    return first;
}

// Four elements ----------------------------------------------------------------------------------

using Row = Pack<float, 4>;

// By name, since compilers move what they know only as bytes in halves.
ZONM_INLINED inline Row loadRow(const float *p)
{
#if defined(ZONM_SSE2)
    return Row(_mm_loadu_ps(p));
#else
    return loadPack<float, 4>(bytes(p));
#endif
}

ZONM_INLINED inline void storeRow(float *p, const Row &row) { storePack(bytes(p), row); }

template <int... L> ZONM_INLINED inline Row shuffled(const Row &row) { return Row{row[L]...}; }

ZONM_INLINED inline Numbers<4> widened(const Row &row)
{
#if defined(ZONM_SSE2)
    return {Pair(_mm_cvtps_pd(__m128(row))),
            Pair(_mm_cvtps_pd(_mm_movehl_ps(__m128(row), __m128(row))))};
#else
    float elements[4];
    storeRow(elements, row);
    return loadNumbers<4>(elements);
#endif
}

ZONM_INLINED inline Row narrowed(const Numbers<4> &v)
{
#if defined(ZONM_SSE2)
    return Row(_mm_movelh_ps(_mm_cvtpd_ps(__m128d(v.pair[0])), _mm_cvtpd_ps(__m128d(v.pair[1]))));
#else
    float elements[4];
    storeNumbers(elements, v);
    return loadRow(elements);
#endif
}

// Formulas -------------------------------------------------------------------------------------

template <int N> ZONM_INLINED inline double dot(const Numbers<N> &a, const Numbers<N> &b)
{
    Numbers<N> products;
    unrolled<0, Numbers<N>::pairs>([&](auto h)
                                       ZONM_INLINED { products.pair[h] = a.pair[h] * b.pair[h]; });
    double sum = products[0];
    unrolled<1, N>([&](auto i) ZONM_INLINED { sum = sum + products[i]; });
    return sum;
}

template <int N> ZONM_INLINED inline double length(const Numbers<N> &a)
{
    return squareRoot(dot(a, a));
}

template <int N> ZONM_INLINED inline Numbers<N> normalized(const Numbers<N> &a)
{
    return a / length(a);
}

ZONM_INLINED inline Numbers<3> cross(const Numbers<3> &a, const Numbers<3> &b)
{
    Numbers<3> c;
    c.pair[0] = Pair{a[1], a[2]} * Pair{b[2], b[0]} - Pair{a[2], a[0]} * Pair{b[1], b[2]};
    c.pair[1] = Pair{a[0] * b[1] - a[1] * b[0], 0};
    return c;
}

} // namespace zonm
