// SPDX-License-Identifier: Apache-2.0
// Runs of elements that lie side by side, a pack at a time: each pack is read whole before it is
// written, and packs follow each other in ascending order.
//
// What is written is given as values: an object with `pack<W>(offset)`, the W elements at an offset
// of so many bytes, and `advance(bytes)`.
#pragma once

#include "frame/packs.hpp"

#include <algorithm>
#include <utility>

namespace zonm
{

// The elements of a run in memory.
template <class T> struct RunAt {
    const std::byte *begin;

    template <int W> auto pack(ptrdiff_t offset) const
    {
        if constexpr (W == 1)
            return load<T>(begin + offset);
        else
            return loadPack<T, W>(begin + offset);
    }
    void advance(ptrdiff_t bytes) { begin += bytes; }
};

// The same number everywhere.
template <class T> struct Repeated {
    T value;

    template <int W> auto pack(ptrdiff_t) const
    {
        if constexpr (W == 1)
            return value;
        else
            return [this]<int... I>(std::integer_sequence<int, I...>)
            {
                return Pack<T, W>{((void)I, value)...};
            }
        (std::make_integer_sequence<int, W>{});
    }
    void advance(ptrdiff_t) {}
};

// a op b, element by element.
template <class Op, class A, class B> struct Combined {
    A a;
    B b;

    template <int W> auto pack(ptrdiff_t offset) const
    {
        return Op::apply(a.template pack<W>(offset), b.template pack<W>(offset));
    }
    void advance(ptrdiff_t bytes) { a.advance(bytes), b.advance(bytes); }
};
template <class Op, class A, class B> inline Combined<Op, A, B> combined(A a, B b)
{
    return {a, b};
}

template <int W, class Values>
ZONM_INLINED inline void writePack(std::byte *dst, const Values &values, ptrdiff_t offset)
{
    const auto pack = values.template pack<W>(offset);
    std::memcpy(dst + offset, &pack, sizeof pack);
}

// A run whose length is known at compile time: the widest packs that fit, then narrower ones.
template <class T, ptrdiff_t Length, int W = registerBytes / int(sizeof(T)), class Values>
ZONM_INLINED inline void writeRun(std::byte *dst, const Values &values, ptrdiff_t offset = 0)
{
    constexpr ptrdiff_t packs = Length / W, packBytes = W * ptrdiff_t(sizeof(T));
    [&]<ptrdiff_t... P>(std::integer_sequence<ptrdiff_t, P...>) ZONM_INLINED
    {
        (writePack<W>(dst, values, offset + P * packBytes), ...);
    }
    (std::make_integer_sequence<ptrdiff_t, packs>());
    if constexpr (Length % W != 0)
        writeRun<T, Length % W, W / 2>(dst, values, offset + packs * packBytes);
}

// What is left of a run: fewer than 2*W elements, the widest packs first.
template <class T, int W, class Values>
inline void writeRest(std::byte *dst, ptrdiff_t length, Values &values)
{
    if (length & W) {
        writeRun<T, W>(dst, values);
        dst += W * sizeof(T), values.advance(W * sizeof(T));
    }
    if constexpr (W > 1)
        writeRest<T, W / 2>(dst, length, values);
}

template <class T, class Values>
inline void writeRun(std::byte *dst, ptrdiff_t length, Values values)
{
    constexpr int unrolled = 4 * registerBytes / int(sizeof(T));
    for (; length >= unrolled; length -= unrolled) {
        writeRun<T, unrolled>(dst, values);
        dst += unrolled * sizeof(T), values.advance(unrolled * sizeof(T));
    }
    writeRest<T, unrolled / 2>(dst, length, values);
}

// Overlap --------------------------------------------------------------------------------------

// How far the distance of two operands drifts from that of their first rows: it grows evenly over
// objects and over rows, so that the corners tell.
struct Drift {
    ptrdiff_t least = 0, most = 0;

    Drift() = default;
    Drift(ptrdiff_t overObjects, ptrdiff_t overRows)
        : least(std::min<ptrdiff_t>(overObjects, 0) + std::min<ptrdiff_t>(overRows, 0)),
          most(std::max<ptrdiff_t>(overObjects, 0) + std::max<ptrdiff_t>(overRows, 0))
    {
    }
};

// Whether runs of `dst` can be written a pack at a time, whatever else overlaps: element by
// element, `dst` must not begin inside the pack that is being read, 1 to registerBytes - 1 ahead.
// Objects and rows keep their order in any case.
inline bool keepsOrder(const std::byte *dst, const std::byte *src, Drift drift = {})
{
    const auto most = std::uintptr_t(dst) - std::uintptr_t(src) + std::uintptr_t(drift.most);
    return most - 1 >= std::uintptr_t(drift.most - drift.least) + (registerBytes - 1);
}

// Tiles ----------------------------------------------------------------------------------------

// Some copies of a packed object side by side, so that one object beside a packed array makes long
// runs too.
template <class T> struct Tile {
    static constexpr ptrdiff_t objects = 8, largest = 8 * 8;

    std::byte copies[objects * largest * sizeof(T)];
    ptrdiff_t elements;

    Tile(const std::byte *object, ptrdiff_t n) : elements(n)
    {
        const ptrdiff_t bytes = elements * ptrdiff_t(sizeof(T));
        for (ptrdiff_t k = 0; k < objects; ++k)
            std::memcpy(copies + k * bytes, object, std::size_t(bytes));
    }
    RunAt<T> values() const { return {copies}; }

    // Where tiles pay.
    static bool serves(ptrdiff_t elements, ptrdiff_t count)
    {
        return count >= objects && elements <= largest;
    }
    // Calls write(first, length) for runs of a packed array of `count` objects: from element
    // `first` on, `length` of them.
    template <class Write> static void forEach(ptrdiff_t elements, ptrdiff_t count, Write write)
    {
        for (ptrdiff_t k = 0; k < count; k += objects)
            write(k * elements, elements * std::min(count - k, objects));
    }
};

} // namespace zonm
