// SPDX-License-Identifier: Apache-2.0
// Neighbouring elements of vectors and columns as packs, and packs turned: from those of objects
// or rows, which lie in memory, to those of terms, which are added.
#pragma once

#include "frame/lanes.hpp"
#include "frame/views.hpp"
#include "products/chains.hpp"

#include <array>

namespace zonm
{

template <class View> inline constexpr bool isDenseVector = false;
template <class T> inline constexpr bool isDenseVector<DenseVector<T>> = true;

// Elements i to i + W - 1.
template <int W, class V> ZONM_INLINED inline Doubles<W> loadElements(const V &x, ptrdiff_t i)
{
    if constexpr (isDenseVector<V> || W == 1)
        return loadDoubles<typename V::Element, W>(x.at(i));
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_INLINED
        {
            return Doubles<W>{double(x(i + I))...};
        }
    (std::make_integer_sequence<int, W>{});
}

template <int W, class V>
ZONM_INLINED inline void storeElements(const V &x, ptrdiff_t i, Doubles<W> v)
{
    using T = typename V::Element;
    if constexpr (isDenseVector<V> || W == 1) {
        storeDoubles<T, W>(x.at(i), v);
    } else {
        const auto elements = narrowed<T, W>(v);
        unrolled<0, W>([&](auto l) ZONM_INLINED { x.set(i + l, T(elements[int(l)])); });
    }
}

// Elements (i, j) to (i + W - 1, j).
template <int W, class M>
ZONM_INLINED inline Doubles<W> loadColumn(const M &m, ptrdiff_t i, ptrdiff_t j)
{
    return loadRow<W>(transposed(m), j, i);
}

// v[e] becomes element e of each of v[0], v[1], ...
ZONM_INLINED inline void turn(Doubles<objectLanes> (&v)[objectLanes])
{
    Doubles<objectLanes> turned[objectLanes];
    unrolled<0, objectLanes>([&](auto e) ZONM_INLINED {
        turned[e] = gather([&](int l) ZONM_INLINED { return laneOf(v[l], e); }).v;
    });
    unrolled<0, objectLanes>([&](auto e) ZONM_INLINED { v[e] = turned[e]; });
}

// x[i] = element i of the vectors of one register, a lane for each.
template <int Length, class Views>
ZONM_INLINED inline void gatherTurned(Doubles<objectLanes> (&x)[Length], const Views &views)
{
    constexpr int W = objectLanes;
    unrolled<0, Length / W>([&](auto pack) ZONM_INLINED {
        Doubles<W> v[W];
        unrolled<0, W>([&](auto l) ZONM_INLINED { v[l] = loadElements<W>(views[l], pack * W); });
        turn(v);
        unrolled<0, W>([&](auto e) ZONM_INLINED { x[pack * W + e] = v[e]; });
    });
    unrolled<Length / W * W, Length>([&](auto i) ZONM_INLINED {
        x[i] = gather([&](int l) ZONM_INLINED { return views[l](i); }).v;
    });
}

// The same back into one vector after the other.
template <int Length, class Views>
ZONM_INLINED inline void scatterTurned(const Doubles<objectLanes> (&x)[Length], const Views &views)
{
    constexpr int W = objectLanes;
    Doubles<W> pack[Length / W][W];
    unrolled<0, Length / W>([&](auto p) ZONM_INLINED {
        unrolled<0, W>([&](auto e) ZONM_INLINED { pack[p][e] = x[p * W + e]; });
        turn(pack[p]);
    });
    unrolled<0, W>([&](auto l) ZONM_INLINED {
        using T = typename Views::value_type::Element;
        unrolled<0, Length / W>(
            [&](auto p) ZONM_INLINED { storeElements<W>(views[l], p * W, pack[p][l]); });
        unrolled<Length / W * W, Length>(
            [&](auto i) ZONM_INLINED { views[l].set(i, T(laneOf(narrowed<T, W>(x[i]), l))); });
    });
}

// The views of the objects of one register, from object k on.
template <class Objects> ZONM_INLINED inline auto laneViews(const Objects &objects, ptrdiff_t k)
{
    return [&]<int... L>(std::integer_sequence<int, L...>) ZONM_INLINED
    {
        return std::array<decltype(objects(0)), objectLanes>{objects(k, L)...};
    }
    (std::make_integer_sequence<int, objectLanes>{});
}

} // namespace zonm
