// SPDX-License-Identifier: Apache-2.0
// dst[k](i, j) = src[k](i, j), bit by bit: elements are taken as integers of their size, so that no
// floating-point unit looks at them.
//
// A move is an operation that takes its left operand: `combine.hpp` has its literal order, its runs
// and its rows. What is added here are moves in another order, between objects that are apart:
// transpositions inside objects, and the exchange of the objects' step with that of the elements.
#pragma once

#include "elementwise/combine.hpp"

namespace zonm
{

struct Moved {
    template <class V, class W> static V apply(V a, W) { return a; }
};

template <class T>
using BitsOf = std::conditional_t<sizeof(T) == sizeof(std::uint32_t), std::uint32_t, std::uint64_t>;

template <class Bits> using Movement = Combination<Bits>;

// What stands in the place of the right operand.
template <class Bits> inline constexpr Bits unused = 0;

// Built in place: kernels read it at once, and a copy in wider pieces would wait for its stores.
template <class Bits>
inline Movement<Bits> movement(const Placed<const Bits> &src, const Placed<Bits> &dst,
                               ptrdiff_t width, ptrdiff_t height, ptrdiff_t count)
{
    return {{src.place, src.step, src.rowStep, src.columnStep, src.isTable},
            {&unused<Bits>, 0, 0, 0},
            {dst.place, dst.step, dst.rowStep, dst.columnStep, dst.isTable},
            width,
            height,
            count};
}

template <class Bits> void moveSteps(const Movement<Bits> &m)
{
    combineSteps<Moved, ConstantOperand<Bits>>(m);
}
template <class Bits> void moveByElement(const Movement<Bits> &m)
{
    combineByElement<Moved, ConstantOperand<Bits>, 0>(m);
}

// Tiles: W elements of each of W rows, rows becoming columns -------------------------------------

template <class Bits> inline constexpr int tileWidth = 16 / int(sizeof(Bits));

#if defined(ZONM_VECTORS)

inline void moveTile(std::byte *dst, ptrdiff_t dstStep, const std::byte *src, ptrdiff_t srcStep,
                     std::uint64_t)
{
    const auto a = loadPack<std::uint64_t, 2>(src), b = loadPack<std::uint64_t, 2>(src + srcStep);
    storePack(dst, __builtin_shufflevector(a, b, 0, 2));
    storePack(dst + dstStep, __builtin_shufflevector(a, b, 1, 3));
}

inline void moveTile(std::byte *dst, ptrdiff_t dstStep, const std::byte *src, ptrdiff_t srcStep,
                     std::uint32_t)
{
    const auto row = [&](int i) { return loadPack<std::uint32_t, 4>(src + i * srcStep); };
    const auto a = row(0), b = row(1), c = row(2), d = row(3);
    const auto ab = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    const auto cd = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    const auto ab2 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const auto cd2 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    storePack(dst, __builtin_shufflevector(ab, cd, 0, 1, 4, 5));
    storePack(dst + dstStep, __builtin_shufflevector(ab, cd, 2, 3, 6, 7));
    storePack(dst + 2 * dstStep, __builtin_shufflevector(ab2, cd2, 0, 1, 4, 5));
    storePack(dst + 3 * dstStep, __builtin_shufflevector(ab2, cd2, 2, 3, 6, 7));
}

#else

template <class Bits>
inline void moveTile(std::byte *dst, ptrdiff_t dstStep, const std::byte *src, ptrdiff_t srcStep,
                     Bits)
{
    constexpr ptrdiff_t element = sizeof(Bits);
    for (int i = 0; i < tileWidth<Bits>; ++i)
        for (int j = 0; j < tileWidth<Bits>; ++j)
            store(dst + j * dstStep + i * element, load<Bits>(src + i * srcStep + j * element));
}

#endif

// Transposition of small square objects with dense rows on both sides ----------------------------

template <class Bits, int N>
inline void transposeObject(std::byte *dst, ptrdiff_t dstStep, const std::byte *src,
                            ptrdiff_t srcStep)
{
    constexpr int tile = tileWidth<Bits>, tiled = N / tile * tile;
    constexpr ptrdiff_t element = sizeof(Bits);
    unrolled<0, N>([&](auto i) ZONM_INLINED {
        unrolled<0, N>([&](auto j) ZONM_INLINED {
            const auto from = src + i * srcStep + j * element;
            const auto to = dst + j * dstStep + i * element;
            if constexpr (i >= tiled || j >= tiled)
                store(to, load<Bits>(from));
            else if constexpr (i % tile == 0 && j % tile == 0)
                moveTile(to, dstStep, from, srcStep, Bits{});
        });
    });
}

#if defined(ZONM_VECTORS)

// Without gaps an object is a run of packs on both sides, and each pack of the result is gathered
// from packs of the source. Of the first two elements and the last two, each pair takes a shuffle
// of two packs.
template <class Bits, int N> struct PackedTranspose {
    static constexpr int width = tileWidth<Bits>, packs = N * N / width;

    // Where the element of the result stands in the source: its pack, and the lane.
    static constexpr int source(int element) { return element % N * N + element / N; }
    static constexpr int packOf(int element) { return source(element) / width; }
    static constexpr int laneOf(int element) { return source(element) % width; }

    template <int First, class P> static auto gather(const P &in)
    {
        if constexpr (width == 2) {
            return __builtin_shufflevector(in[packOf(First)], in[packOf(First + 1)], laneOf(First),
                                           width + laneOf(First + 1));
        } else {
            const auto pair = [&](auto first) ZONM_INLINED {
                return __builtin_shufflevector(
                    in[packOf(first)], in[packOf(first + 1)], laneOf(first), laneOf(first),
                    width + laneOf(first + 1), width + laneOf(first + 1));
            };
            return __builtin_shufflevector(pair(std::integral_constant<int, First>{}),
                                           pair(std::integral_constant<int, First + 2>{}), 0, 2, 4,
                                           6);
        }
    }
    static void move(std::byte *dst, const std::byte *src)
    {
        // The last element of an odd size stands outside the packs, alone.
        constexpr ptrdiff_t element = sizeof(Bits), last = (N * N - 1) * element;
        Pack<Bits, width> in[packs + 1];
        unrolled<0, packs>(
            [&](auto p) ZONM_INLINED { in[p] = loadPack<Bits, width>(src + p * width * element); });
        unrolled<0, packs>([&](auto p) ZONM_INLINED {
            storePack(dst + p * width * element, gather<p * width>(in));
        });
        if constexpr (packs * width < N * N)
            store(dst + last, load<Bits>(src + last));
    }
};

#endif

template <class Bits, int N> inline void transposePacked(std::byte *dst, const std::byte *src)
{
    constexpr ptrdiff_t row = N * sizeof(Bits);
#if defined(ZONM_VECTORS)
    if constexpr (N % 4 != 0)
        return PackedTranspose<Bits, N>::move(dst, src);
#endif
    transposeObject<Bits, N>(dst, row, src, row);
}

// Object by object: an object is read while it is written, so it has to lie apart from its result.
template <int N, class Bits> [[gnu::noinline]] void transposeObjects(const Movement<Bits> &m)
{
    const ptrdiff_t srcStep = m.a.columnStep, dstStep = m.dst.rowStep;
    const bool packed = srcStep == N * sizeof(Bits) && dstStep == srcStep;
    const auto src0 = m.a(0);
    const auto dst0 = m.dst(0);
    if (packed && !m.hasTable() &&
        areApart(dst0, m.dst.size(N, N, m.count), src0, m.a.size(N, N, m.count))) {
        auto src = src0;
        auto dst = dst0;
        for (ptrdiff_t k = m.count; k > 0; --k) {
            transposePacked<Bits, N>(dst, src);
            src += m.a.step, dst += m.dst.step;
        }
        return;
    }
    const auto srcSize = m.a.size(N, N, 1), dstSize = m.dst.size(N, N, 1);
    for (ptrdiff_t k = 0; k < m.count; ++k) {
        const auto src = m.a(k);
        const auto dst = m.dst(k);
        const bool apart = areApart(dst, dstSize, src, srcSize);
        if (apart && packed)
            transposePacked<Bits, N>(dst, src);
        else if (apart)
            transposeObject<Bits, N>(dst, dstStep, src, srcStep);
        else
            combineUnorderedObject<Moved, ConstantOperand<Bits>>(m, dst, src, m.b(0));
    }
}

// The same for one object; false where it is none of these.
template <class Bits>
[[gnu::noinline]] bool transposeOne(std::byte *dst, ptrdiff_t dstStep, const std::byte *src,
                                    ptrdiff_t srcStep, ptrdiff_t size)
{
    constexpr ptrdiff_t element = sizeof(Bits);
    const auto covered = [&](ptrdiff_t step) {
        return std::uintptr_t((size - 1) * step + size * element);
    };
    if (dstStep < size * element || !areApart(dst, covered(dstStep), src, covered(srcStep)))
        return false;
    return withSize(int(size), [&](auto n) {
        if constexpr (n == 0)
            return false;
        else if (srcStep == n * element && dstStep == srcStep)
            transposePacked<Bits, n>(dst, src);
        else
            transposeObject<Bits, n>(dst, dstStep, src, srcStep);
        return true;
    });
}

// Any order --------------------------------------------------------------------------------------

// A plane whose elements lie side by side along x in dst and along y in src, by blocks that take
// whole cache lines on both sides: the lines of many rows may not stay in the cache together.
template <class Bits> struct Plane {
    static constexpr ptrdiff_t element = sizeof(Bits), tile = tileWidth<Bits>, line = 64 / element;

    ptrdiff_t xs, ys, dstStep, srcStep; // of y in dst, of x in src

    void moveBlock(std::byte *dst, const std::byte *src, ptrdiff_t fromX, ptrdiff_t toX,
                   ptrdiff_t fromY, ptrdiff_t toY) const
    {
        ptrdiff_t x = fromX;
        for (; x + tile <= toX; x += tile) {
            auto to = dst + x * element + fromY * dstStep;
            auto from = src + x * srcStep + fromY * element;
            ptrdiff_t y = fromY;
            for (; y + line <= toY; y += line)
                for (ptrdiff_t at = 0; at < line; at += tile) {
                    moveTile(to, dstStep, from, srcStep, Bits{});
                    to += tile * dstStep, from += tile * element;
                }
            for (; y + tile <= toY; y += tile) {
                moveTile(to, dstStep, from, srcStep, Bits{});
                to += tile * dstStep, from += tile * element;
            }
            moveElements(dst, src, x, x + tile, y, toY);
        }
        moveElements(dst, src, x, toX, fromY, toY);
    }
    void moveElements(std::byte *dst, const std::byte *src, ptrdiff_t fromX, ptrdiff_t toX,
                      ptrdiff_t fromY, ptrdiff_t toY) const
    {
        for (ptrdiff_t x = fromX; x < toX; ++x)
            for (ptrdiff_t y = fromY; y < toY; ++y)
                store(dst + x * element + y * dstStep, load<Bits>(src + x * srcStep + y * element));
    }
};

// `across` is the third loop, inside the blocks or, where its steps are the largest, around them.
template <class Bits>
[[gnu::noinline]] void movePlanes(std::byte *dst, const std::byte *src, const Plane<Bits> &p,
                                  Dimension across)
{
    constexpr ptrdiff_t line = Plane<Bits>::line;
    const bool around = across.dst > p.dstStep && across.src > p.srcStep;
    const ptrdiff_t planes = around ? across.extent : 1, inside = around ? 1 : across.extent;
    const bool alongX = p.xs > p.ys;
    for (ptrdiff_t plane = 0; plane < planes; ++plane) {
        for (ptrdiff_t at = 0; at < (alongX ? p.xs : p.ys); at += line)
            for (ptrdiff_t z = 0; z < inside; ++z) {
                const ptrdiff_t step = plane + z, x = alongX ? at : 0, y = alongX ? 0 : at;
                p.moveBlock(dst + step * across.dst, src + step * across.src, x,
                            alongX ? std::min(x + line, p.xs) : p.xs, y,
                            alongX ? p.ys : std::min(y + line, p.ys));
            }
    }
}

template <class Bits> bool moveInAnyOrder(const Movement<Bits> &m)
{
    constexpr ptrdiff_t element = sizeof(Bits);
    Nest nest(m.a, m.dst, m.width, m.height, m.count);
    const auto size = [&](const auto &o) { return o.size(m.width, m.height, m.count); };
    if (!nest.isDistinct(element) || !areApart(m.dst(0), size(m.dst), m.a(0), size(m.a)))
        return false;
    nest.join();
    const int inner = nest.depth - 1;
    const auto &d = nest.dimensions;
    for (int y = 0; y < inner; ++y)
        if (d[inner].dst == element && d[inner].src != element && d[y].src == element) {
            const Dimension across = nest.depth == 3 ? d[1 - y] : Dimension{1, 0, 0};
            movePlanes<Bits>(m.dst(0), m.a(0),
                             {d[inner].extent, d[y].extent, d[y].dst, d[inner].src}, across);
            return true;
        }
    const auto dimension = [&](int at) { return at < 0 ? Dimension{1, 0, 0} : d[at]; };
    const Dimension column = dimension(inner), row = dimension(inner - 1),
                    object = dimension(inner - 2);
    moveSteps(movement<Bits>({m.a.place, object.src, row.src, column.src},
                             {m.dst.place, object.dst, row.dst, column.dst}, column.extent,
                             row.extent, object.extent));
    return true;
}

// With fewer elements the preparation of another order does not pay.
template <class Bits> inline bool hasManyElements(const Movement<Bits> &m)
{
    constexpr ptrdiff_t many = 64;
    return m.width >= many || m.height >= many || m.count >= many ||
           m.width * m.height * m.count >= many;
}

template <class Bits> void moveApart(const Movement<Bits> &m)
{
    if (!hasManyElements(m) || !moveInAnyOrder(m))
        moveByElement(m);
}

// Long runs are the business of the C library, which knows the processor.
template <class Bits> inline void moveRun(std::byte *dst, const std::byte *src, ptrdiff_t length)
{
    constexpr ptrdiff_t many = 512 / ptrdiff_t(sizeof(Bits));
    const auto size = std::size_t(length) * sizeof(Bits);
    const auto ahead = std::uintptr_t(dst) - std::uintptr_t(src);
    if (length >= many && (ahead >= size || ahead == 0)) // also where dst lies before src
        std::memmove(dst, src, size);
    else
        writeRun<Bits>(dst, length, RunAt<Bits>{src});
}

// Strided operands and object tables.
template <class Bits> [[gnu::noinline]] ZonStatus moveObjects(const Movement<Bits> &m)
{
    constexpr ptrdiff_t element = sizeof(Bits);
    if ((gapsInside(m.a, m.width, m.height) | gapsInside(m.dst, m.width, m.height)) == 0) {
        const ptrdiff_t elements = m.width * m.height, object = elements * element;
        const auto src = m.a(0);
        const auto dst = m.dst(0);
        if ((m.count == 1 || (m.a.step == object && m.dst.step == object)) &&
            keepsOrder(dst, src)) {
            moveRun<Bits>(dst, src, elements * m.count);
            return zonStsOk;
        }
    }
    const bool denseRows = m.a.isDense() && m.dst.isDense();
    const bool transposes = m.width == m.height && m.dst.isDense() && m.a.rowStep == element &&
                            m.dst.rowStep >= m.width * element;
    if (transposes && !denseRows) {
        switch (m.width) {
        case 3: return transposeObjects<3>(m), zonStsOk;
        case 4: return transposeObjects<4>(m), zonStsOk;
        case 5: return transposeObjects<5>(m), zonStsOk;
        case 6: return transposeObjects<6>(m), zonStsOk;
        }
    }
    if (denseRows && m.width > 1)
        moveSteps(m);
    else if (!m.hasTable())
        moveApart(m);
    else
        for (ptrdiff_t k = 0; k < m.count; ++k)
            moveApart(movement<Bits>({m.a(k), 0, m.a.rowStep, m.a.columnStep},
                                     {m.dst(k), 0, m.dst.rowStep, m.dst.columnStep}, m.width,
                                     m.height, 1));
    return zonStsOk;
}

// Element tables on one side or both --------------------------------------------------------------

template <class Bits> inline StridedMatrix<Bits> objectOf(const Placed<Bits> &o, ptrdiff_t k)
{
    return {o(k), o.rowStep, o.columnStep};
}
template <class T> inline ScatteredMatrix<T> objectOf(const Scattered<T> &o, ptrdiff_t k)
{
    return o(k);
}

template <class Bits, class Src, class Dst>
[[gnu::noinline]] ZonStatus moveElements(const Src &src, const Dst &dst, ptrdiff_t width,
                                         ptrdiff_t height, ptrdiff_t count)
{
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto from = objectOf(src, k);
        const auto to = objectOf(dst, k);
        for (ptrdiff_t i = 0; i < height; ++i)
            for (ptrdiff_t j = 0; j < width; ++j)
                store(to.at(i, j), load<Bits>(from.at(i, j)));
    }
    return zonStsOk;
}

// An operand of any description, its elements as integers.
template <class Block> inline auto placed(const Block &o, Shape shape)
{
    using T = typename Block::Value;
    using Bits = BitsOf<T>;
    if constexpr (isElementTable<Block>)
        return scattered(o, shape);
    else
        return Placed<std::conditional_t<std::is_const_v<T>, const Bits, Bits>>(o);
}

template <class Bits, class Src, class Dst>
inline ZonStatus move(const Src &src, const Dst &dst, ptrdiff_t width, ptrdiff_t height,
                      ptrdiff_t count)
{
    if constexpr (std::is_same_v<Src, Placed<const Bits>> && std::is_same_v<Dst, Placed<Bits>>)
        return moveObjects(movement<Bits>(src, dst, width, height, count));
    else
        return moveElements<Bits>(src, dst, width, height, count);
}

} // namespace zonm
