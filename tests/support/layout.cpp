// SPDX-License-Identifier: Apache-2.0
#include "support/layout.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

#include "support/memory.hpp"

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
    else if (spread == Spread::interleaved) // the objects come first
        std::rotate(dimensions.begin(), dimensions.begin() + 1, dimensions.end());
    else if (spread == Spread::denseRows && dimensions.size() == 3 && random.oneIn(2))
        std::swap(dimensions[0], dimensions[1]);

    std::ptrdiff_t covered = element, step = element;
    const Dimension *innermost = &dimensions.back();
    for (auto d = dimensions.rbegin(); d != dimensions.rend(); ++d) {
        const bool padded =
            spread == Spread::strided || (spread != Spread::dense && &*d != innermost);
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

// Where the elements of an operand lie: `object` k, and in it element (i, j) as stored at `place`.
void listElements(Layout &l, Block block, const std::vector<std::ptrdiff_t> &object,
                  const std::vector<std::ptrdiff_t> &place)
{
    const Shape shape = l.shape;
    for (int k = 0; k < l.objects; ++k)
        for (int i = 0; i < shape.rows; ++i)
            for (int j = 0; j < shape.columns; ++j)
                l.elements.push_back(object[std::size_t(k)] +
                                     place[std::size_t(block.transposed ? j * shape.rows + i
                                                                        : i * shape.columns + j)]);
}

bool isElementTable(Block block) { return block.table && !block.stride2 && !block.constant; }

std::vector<int> ascending(int n)
{
    std::vector<int> all(static_cast<std::size_t>(n));
    std::iota(all.begin(), all.end(), 0);
    return all;
}

// Every row alone in its pages, and each at the same place of them.
Layout layOutFenced(Block block, Element type, int objects, Shape shape, Random &random)
{
    const int element = sizeOf(type), page = int(Memory::pageBytes());
    const Shape stored = block.transposed ? Shape{shape.columns, shape.rows} : shape;
    const bool elements = isElementTable(block);
    const int rows = block.stride1 ? stored.rows : elements ? stored.rows * stored.columns : 1;
    const int columns = elements ? 1 : stored.rows * stored.columns / rows;
    const bool packed = !block.stride2;
    const int step2 = element * (packed ? 1 : random.pick({1, 1, 2, 3}));
    const int row = (columns - 1) * step2 + element;
    const int pages = (row + page - 1) / page;
    const std::ptrdiff_t step1 = (pages + 1) * page, step0 = rows * step1;

    Place p{0, step0, step1, step2, 0, {}};
    if (elements) {
        // The elements of one place of all objects lie behind one another.
        p = {0, step1, step1 * objects * stored.columns, step1 * objects, 0, {}};
        p.order = ascending(rows);
        random.shuffle(p.order);
    } else if (block.table) {
        p.order = ascending(objects);
        random.shuffle(p.order);
    }
    if (block.shift)
        p.shift = element * random.pick({0, 1, 3, page});
    Layout l = layOut(block, type, objects, shape, p);
    l.lead = random.oneIn(3) ? 0 : pages * page - row;
    return l;
}

// One or two dimensions with strides of a GiB, the rest packed.
Layout layOutVast(Block block, Element type, int objects, Shape shape, Random &random)
{
    const int element = sizeOf(type);
    const Shape stored = block.transposed ? Shape{shape.columns, shape.rows} : shape;
    // Far enough from one another that no two sums of multiples of them are equal.
    constexpr std::ptrdiff_t wide = (1 << 30) + (1 << 16), wider = (1 << 30) + (1 << 23);
    std::ptrdiff_t step2 = element, step1 = step2 * (block.stride1 ? stored.columns : 1),
                   step0 = element * stored.rows * stored.columns;
    if (isElementTable(block)) {
        step0 = wide;
        step1 = random.oneIn(2) ? wider : element * stored.columns;
    } else if (block.stride2 || block.stride0 || block.table) {
        std::vector<std::ptrdiff_t *> steps;
        if (objects > 1)
            steps.push_back(&step0);
        if (block.stride1 && stored.rows > 1)
            steps.push_back(&step1);
        if (block.stride2)
            steps.push_back(&step2);
        random.shuffle(steps);
        const std::size_t many = steps.size() > 1 && random.oneIn(2) ? 2 : 1;
        for (std::size_t s = 0; s < std::min(many, steps.size()); ++s)
            *steps[s] = s == 0 ? wide : wider;
    }
    Place p{0, step0, step1, step2, 0, {}};
    if (block.shift)
        p.shift = random.pick({0, element, 1 << 30});
    return layOut(block, type, objects, shape, p);
}

} // namespace

Layout layOut(Block block, Element type, int objects, Shape shape, const Place &p)
{
    const Shape stored = block.transposed ? Shape{shape.columns, shape.rows} : shape;
    Layout l{objects, shape, block.shift ? p.shift : 0, 0, 0, 0, {}, {}, 0, 0};
    std::vector<std::ptrdiff_t> object, place;
    for (int k = 0; k < objects; ++k)
        object.push_back(k * p.step0);
    for (int i = 0; i < stored.rows; ++i)
        for (int j = 0; j < stored.columns; ++j)
            place.push_back(stored.columns == 1 && !block.stride1 ? i * p.step2
                                                                  : i * p.step1 + j * p.step2);
    if (block.stride0)
        l.stride0 = std::int32_t(p.step0);
    if (block.stride1)
        l.stride1 = std::int32_t(p.step1);
    if (block.stride2)
        l.stride2 = std::int32_t(p.step2);
    if (block.table) {
        std::vector<std::ptrdiff_t> &named = isElementTable(block) ? place : object;
        const std::vector<std::ptrdiff_t> all = named;
        for (std::size_t n = 0; n < p.order.size(); ++n)
            named[n] = all[std::size_t(p.order[n])];
        l.table = named;
    }
    listElements(l, block, object, place);
    l.extent = *std::ranges::max_element(l.elements) + sizeOf(type);
    return l;
}

Layout layOut(Block block, Element type, int objects, Shape shape, Spread spread, Random &random)
{
    if (spread == Spread::fenced)
        return layOutFenced(block, type, objects, shape, random);
    if (spread == Spread::vast)
        return layOutVast(block, type, objects, shape, random);
    const int element = sizeOf(type);
    const int rows = block.transposed ? shape.columns : shape.rows;
    const int columns = block.transposed ? shape.rows : shape.columns;
    Layout l{objects, shape, 0, 0, 0, 0, {}, {}, 0, 0};
    if (block.shift)
        l.shift = element * random.pick({0, 1, 3, 16, 1 << 20});

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
    if (isElementTable(block)) {
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

    listElements(l, block, object, place);
    return l;
}

} // namespace test
