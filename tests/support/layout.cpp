// SPDX-License-Identifier: Apache-2.0
#include "support/layout.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

namespace test
{
namespace
{

struct Dimension {
    int extent;
    std::int32_t *stride;
};

// Gives each dimension its stride, from the innermost (the last) outwards, and returns the bytes
// that the whole nest covers.
std::ptrdiff_t nest(std::vector<Dimension> dimensions, int element, Spread spread, Random &random)
{
    if (spread == Spread::strided)
        random.shuffle(dimensions);
    else if (spread == Spread::denseRows && dimensions.size() == 3 && random.oneIn(2))
        std::swap(dimensions[0], dimensions[1]);

    std::ptrdiff_t covered = element, step = element;
    const Dimension *innermost = &dimensions.back();
    for (auto d = dimensions.rbegin(); d != dimensions.rend(); ++d) {
        const bool padded =
            spread == Spread::strided || (spread == Spread::denseRows && &*d != innermost);
        if (padded)
            step += element * random.pick({0, 1, 1, 2, 3, 7});
        *d->stride = std::int32_t(step);
        covered += (d->extent - 1) * step;
        step *= d->extent;
        // Nothing is reached by the stride of a dimension of one.
        if (d->extent == 1 && padded && random.oneIn(3)) {
            *d->stride = std::numeric_limits<std::int32_t>::max() & ~7;
            step = element;
        }
        step = std::max(step, (covered + element - 1) / element * element);
    }
    return covered;
}

std::ptrdiff_t gap(int element, Spread spread, Random &random)
{
    return spread == Spread::dense
               ? 0
               : random.pick({0, 1, 2, 5}) * element + random.pick({0, 0, 1, 3});
}

// Places of `n` pieces in shuffled order.
std::vector<std::ptrdiff_t> scatter(std::size_t n, std::ptrdiff_t piece, int element, Spread spread,
                                    std::ptrdiff_t &extent, Random &random)
{
    std::vector<std::size_t> order(n);
    std::iota(order.begin(), order.end(), 0u);
    if (spread != Spread::dense)
        random.shuffle(order);
    std::vector<std::ptrdiff_t> places(n);
    std::ptrdiff_t end = 0;
    for (const std::size_t i : order) {
        places[i] = end + gap(element, spread, random);
        end = places[i] + piece;
    }
    extent = end;
    return places;
}

} // namespace

Layout layOut(Block block, Element type, int objects, Shape shape, Spread spread, Random &random)
{
    const int element = sizeOf(type);
    const int rows = block.transposed ? shape.columns : shape.rows;
    const int columns = block.transposed ? shape.rows : shape.columns;
    Layout l{objects, shape, 0, 0, 0, 0, {}, {}, 0};
    if (block.shift)
        l.shift = element * random.pick({0, 1, 3, 16, 1 << 20});

    const bool elementTable = block.table && !block.stride2 && !block.constant;
    std::vector<Dimension> inside; // an object's dimensions
    if (block.stride1) {
        inside = {{rows, &l.stride1}, {columns, &l.stride2}};
    } else {
        // A vector, or plain consecutive elements.
        inside = {{rows * columns, &l.stride2}};
    }

    // Where element (i, j) as stored lies in its object, and where the objects lie.
    std::vector<std::ptrdiff_t> place(std::size_t(rows) * std::size_t(columns)),
        object(std::size_t(objects), 0);
    if (elementTable) {
        // Object by object, or every element beside its fellows of the other objects.
        const bool together = random.oneIn(3);
        const int step = element * random.pick({1, 1, 3});
        const std::ptrdiff_t piece = together ? (objects - 1) * step + element : element;
        place = scatter(place.size(), piece, element, spread, l.extent, random);
        l.table = place;
        const std::ptrdiff_t whole = (l.extent + element - 1) / element * element;
        l.stride0 =
            together
                ? step
                : std::int32_t(whole + (spread == Spread::dense ? 0 : random.below(3) * element));
        if (!together)
            l.extent += (objects - 1) * std::ptrdiff_t(l.stride0);
        for (int k = 0; k < objects; ++k)
            object[std::size_t(k)] = k * std::ptrdiff_t(l.stride0);
    } else {
        if (block.table) {
            const std::ptrdiff_t piece = nest(inside, element, spread, random);
            object = scatter(object.size(), piece, element, spread, l.extent, random);
            l.table = object;
        } else {
            inside.insert(inside.begin(), {objects, &l.stride0});
            const Spread packed = block.stride2 || block.stride0 ? spread : Spread::dense;
            l.extent = nest(inside, element, packed, random);
            for (int k = 0; k < objects; ++k)
                object[std::size_t(k)] = k * std::ptrdiff_t(l.stride0);
        }
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < columns; ++j)
                place[std::size_t(i * columns + j)] =
                    block.stride1 ? i * std::ptrdiff_t(l.stride1) + j * std::ptrdiff_t(l.stride2)
                                  : (i * columns + j) * std::ptrdiff_t(l.stride2);
    }

    for (int k = 0; k < objects; ++k)
        for (int i = 0; i < shape.rows; ++i)
            for (int j = 0; j < shape.columns; ++j)
                l.elements.push_back(
                    object[std::size_t(k)] +
                    place[std::size_t(block.transposed ? j * columns + i : i * columns + j)]);
    return l;
}

} // namespace test
