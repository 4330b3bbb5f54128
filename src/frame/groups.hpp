// SPDX-License-Identifier: Apache-2.0
// Arrays of objects, a group at a time: each lane of a few registers belongs to one object. Two
// things are a kernel's to keep:
//
//   - Nothing may be stored before every object of the group has passed every test; a group that
//     holds a failure is done again by a scalar kernel, which alone knows the states of failure.
//   - A group reads all its objects before it writes the first. `forEachGroup` tests that this
//     cannot be told from one object after the other.
#pragma once

#include "frame/lanes.hpp"
#include "frame/overlap.hpp"

namespace zonm
{

// Most kernels take their steps for several registers of objects in turn, so that the divisions and
// the searches of one hide behind those of the others.
inline constexpr int interleaved = 2;

// The objects `first`, ..., `first` + size - 1.
template <int Registers> struct GroupOf {
    static constexpr int size = Registers * objectLanes;
    int32_t first;
    int32_t operator[](int place) const { return first + place; }
};
using Group = GroupOf<interleaved>;
inline constexpr int groupSize = Group::size;

// Runs over all objects ------------------------------------------------------------------------

// Whether an object of the group writes what a later one reads.
template <int Registers, class Written, class Read>
[[gnu::noinline]] bool groupMeets(GroupOf<Registers> group, const Written &written,
                                  const Read &read)
{
    bool met = false;
    for (int later = 1; later < group.size; ++later)
        for (int earlier = 0; earlier < later; ++earlier)
            met |= anyMeet(written.ofObject(group[earlier]), read.ofObject(group[later]));
    return met;
}

// Runs over all objects, in groups where they are apart: where none writes what a later one of its
// group reads. `written` and `read` are tied objects. `together(group)` returns false, with nothing
// stored, for a group that must be done again one by one; `single(k)` returns false to end the run.
// Within a group objects must be written one after the other, since what they write may meet.
template <int Registers = interleaved, class Written, class Read, class Together, class Single>
ZONM_INLINED inline bool forEachGroup(int32_t count, Written written, Read read, Together together,
                                      Single single)
{
    constexpr int size = GroupOf<Registers>::size;
    int32_t k = 0;
    if (count >= size) {
        const auto writes = regionsOf(count, written);
        const auto reads = regionsOf(count, read);
        const bool apart = areIndependent(writes, reads, count);
        for (; k <= count - size; k += size) {
            const GroupOf<Registers> group{k};
            if ((apart || !groupMeets(group, writes, reads)) && together(group)) [[likely]]
                continue;
            for (int place = 0; place < size; ++place)
                if (!single(group[place]))
                    return false;
        }
    }
    for (; k < count; ++k)
        if (!single(k))
            return false;
    return true;
}

// The views of a group ---------------------------------------------------------------------------

// Those of one register after those of another.
template <class View, int Registers = interleaved>
using GroupViews = std::array<std::array<View, objectLanes>, Registers>;

template <class Objects, int Registers>
ZONM_INLINED inline auto viewsOf(const Objects &objects, GroupOf<Registers> group)
{
    using View = decltype(objects(0));
    const auto ofRegister = [&]<int... L>(int r, std::integer_sequence<int, L...>) ZONM_INLINED
    {
        return std::array<View, objectLanes>{objects(group.first, r * objectLanes + L)...};
    };
    return [&]<int... R>(std::integer_sequence<int, R...>) ZONM_INLINED
    {
        constexpr std::make_integer_sequence<int, objectLanes> lanes;
        return GroupViews<View, Registers>{ofRegister(R, lanes)...};
    }
    (std::make_integer_sequence<int, Registers>{});
}

// Gather and scatter -----------------------------------------------------------------------------

#if defined(ZONM_SSE2)
// Row i of dense float matrices: a pair that is widened as it is loaded takes half the shuffles of
// two elements.
template <int Columns, class Views>
ZONM_INLINED inline void gatherRowInPairs(Lanes (&row)[Columns], const Views &views, ptrdiff_t i)
{
    const auto pair = [&](int lane, int j) ZONM_INLINED {
        return __m128d(loadDoubles<float, 2>(views[lane].at(i, j)));
    };
    unrolled<0, Columns / 2>([&](auto h) ZONM_INLINED {
        const __m128d first = pair(0, 2 * h), second = pair(1, 2 * h);
        row[2 * h] = {_mm_unpacklo_pd(first, second)};
        row[2 * h + 1] = {_mm_unpackhi_pd(first, second)};
    });
    if constexpr (Columns % 2 != 0)
        row[Columns - 1] = {_mm_unpackhi_pd(pair(0, Columns - 2), pair(1, Columns - 2))};
}
#endif

// x[i][j] = element (i, j) of the objects of one register.
template <int Rows, int Columns, class Views>
ZONM_INLINED inline void gatherMatrices(Lanes (&x)[Rows][Columns], const Views &views)
{
    unrolled<0, Rows>([&](auto i) ZONM_INLINED {
#if defined(ZONM_SSE2)
        using View = typename Views::value_type;
        if constexpr (hasDenseRows<View> && sizeof(typename View::Element) == 4 && Columns > 1)
            return gatherRowInPairs(x[i], views, i);
#endif
        unrolled<0, Columns>([&](auto j) ZONM_INLINED {
            x[i][j] = gather([&](int lane) ZONM_INLINED { return views[lane](i, j); });
        });
    });
}

// The same in one object after the other, each narrowed to the element type.
template <int Rows, int Columns, class Views>
ZONM_INLINED inline void scatterMatrices(const Lanes (&x)[Rows][Columns], const Views &views)
{
    using T = typename Views::value_type::Element;
    unrolled<0, objectLanes>([&](auto lane) ZONM_INLINED {
        unrolled<0, Rows>([&](auto i) ZONM_INLINED {
            unrolled<0, Columns>(
                [&](auto j) ZONM_INLINED { views[lane].set(i, j, element<T>(x[i][j], lane)); });
        });
    });
}

template <int Length, class Views>
ZONM_INLINED inline void scatterVectors(const Lanes (&x)[Length], const Views &views)
{
    using T = typename Views::value_type::Element;
    unrolled<0, objectLanes>([&](auto lane) ZONM_INLINED {
        unrolled<0, Length>([&](auto i)
                                ZONM_INLINED { views[lane].set(i, element<T>(x[i], lane)); });
    });
}

} // namespace zonm
