// SPDX-License-Identifier: Apache-2.0
// Matrix sums whose operands overlap in every way. The reference is a literal interpreter on a copy
// of the memory: it takes the addresses from the grammar and reads and writes in the stated order.
#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>

#include "support/invoke.hpp"
#include "support/manifest.hpp"
#include "support/values.hpp"

using namespace test;

namespace
{

struct Sizes {
    int width, height, count;
};

// One operand, in byte offsets from the start of the memory that all operands share.
struct Place {
    enum Form { strided, objectTable, elementTable } form;
    bool array, transposed;
    std::ptrdiff_t base = 0;
    std::int32_t stride0 = 0, stride1 = 0, stride2 = 0, shift = 0;
    std::vector<std::ptrdiff_t> table;
    int storedWidth = 0;

    // Element (i, j) as used of object k.
    std::ptrdiff_t at(std::ptrdiff_t k, std::ptrdiff_t i, std::ptrdiff_t j) const
    {
        if (transposed)
            std::swap(i, j);
        if (!array)
            k = 0;
        switch (form) {
        case strided: return base + k * stride0 + i * stride1 + j * stride2;
        case objectTable: return table[std::size_t(k)] + shift + i * stride1 + j * stride2;
        case elementTable: return table[std::size_t(i * storedWidth + j)] + shift + k * stride0;
        }
        return 0;
    }
};

struct Problem {
    const Export &callee;
    Element element;
    Sizes sizes;
    std::array<Place, 3> places; // src1, src2, dst

    Problem(const Export &e, Sizes s)
        : callee(e), element(e.element == "32f" ? Element::f32 : Element::f64), sizes(s)
    {
        for (std::size_t o = 0; o < 3; ++o) {
            const OperandInfo &info = e.operands[o];
            Place &p = places[o];
            p.form = e.description == "P"                 ? Place::elementTable
                     : e.description == "L" && info.array ? Place::objectTable
                                                          : Place::strided;
            p.array = info.array;
            p.transposed = info.transposed;
            p.storedWidth = p.transposed ? s.height : s.width;
        }
    }

    int storedHeight(const Place &p) const { return p.transposed ? sizes.width : sizes.height; }
    std::size_t tableLength(const Place &p) const
    {
        return p.form == Place::objectTable    ? std::size_t(sizes.count)
               : p.form == Place::elementTable ? std::size_t(sizes.width * sizes.height)
                                               : 0;
    }

    // The objects of a strided arrangement, whatever the description.
    void arrange(Place &p, std::ptrdiff_t base, std::int32_t s0, std::int32_t s1,
                 std::int32_t s2) const
    {
        p.base = base;
        p.stride0 = s0, p.stride1 = s1, p.stride2 = s2;
        p.table.clear();
        if (p.form == Place::objectTable)
            for (int k = 0; k < sizes.count; ++k)
                p.table.push_back(base + std::ptrdiff_t(k) * s0 - p.shift);
        else if (p.form == Place::elementTable)
            for (int i = 0; i < storedHeight(p); ++i)
                for (int j = 0; j < p.storedWidth; ++j)
                    p.table.push_back(base + std::ptrdiff_t(i) * s1 + std::ptrdiff_t(j) * s2 -
                                      p.shift);
    }
    void arrangeDense(Place &p, std::ptrdiff_t base) const
    {
        const int size = sizeOf(element);
        arrange(p, base, sizes.width * sizes.height * size, p.storedWidth * size, size);
    }

    std::size_t extent() const
    {
        std::ptrdiff_t last = 0;
        for (const Place &p : places)
            for (int k = 0; k < sizes.count; ++k)
                for (int i = 0; i < sizes.height; ++i)
                    for (int j = 0; j < sizes.width; ++j)
                        last = std::max(last, p.at(k, i, j) + sizeOf(element));
        return std::size_t(last);
    }

    std::vector<std::byte> drawMemory(Random &random) const
    {
        std::vector<std::byte> memory((extent() + 7) / 8 * 8);
        for (std::size_t i = 0; i < memory.size(); i += std::size_t(sizeOf(element)))
            store(element, &memory[i], draw(Values::uniform, element, random));
        return memory;
    }

    // The path for sizes 3 to 6 of the element tables reads all of an object before it writes.
    bool readsWholeObjects() const
    {
        return callee.description == "P" && sizes.width == sizes.height && sizes.width >= 3 &&
               sizes.width <= 6 && callee.group != "mat" && callee.group != "mata";
    }

    double combine(double a, double b) const
    {
        return rounded(element, callee.operation == "zonmAdd" ? a + b : a - b);
    }

    // False if a NaN turned up, whose bits the interface does not state.
    bool interpret(std::vector<std::byte> &memory) const
    {
        const auto &[src1, src2, dst] = places;
        const auto elements = std::size_t(sizes.width * sizes.height);
        std::vector<double> a(elements), b(elements);
        bool sound = true;
        auto read = [&](std::vector<double> &held, const Place &p, int k, int i, int j) {
            double &value = held[std::size_t(i * sizes.width + j)];
            value = load(element, &memory[std::size_t(p.at(k, i, j))]);
            sound &= !std::isnan(value);
        };
        auto readObject = [&](std::vector<double> &held, const Place &p, int k) {
            for (int i = 0; i < sizes.height; ++i)
                for (int j = 0; j < sizes.width; ++j)
                    read(held, p, k, i, j);
        };
        const bool whole = readsWholeObjects();
        for (int k = 0; k < sizes.count; ++k) {
            if (whole && (k == 0 || src1.array))
                readObject(a, src1, k);
            if (whole && (k == 0 || src2.array))
                readObject(b, src2, k);
            for (int i = 0; i < sizes.height; ++i)
                for (int j = 0; j < sizes.width; ++j) {
                    if (!whole) {
                        read(a, src1, k, i, j);
                        read(b, src2, k, i, j);
                    }
                    const auto e = std::size_t(i * sizes.width + j);
                    store(element, &memory[std::size_t(dst.at(k, i, j))], combine(a[e], b[e]));
                }
        }
        return sound;
    }

    void call(std::vector<std::byte> &memory) const
    {
        std::vector<Argument> arguments;
        std::array<std::vector<const std::byte *>, 3> tables;
        for (const ArgumentInfo &a : callee.arguments) {
            const auto o = std::size_t(a.operand == "src1" ? 0 : a.operand == "src2" ? 1 : 2);
            const Place &p = places[o];
            if (a.role == "pointer") {
                arguments.push_back(memory.data() + p.base);
            } else if (a.role == "table") {
                for (const std::ptrdiff_t entry : p.table)
                    tables[o].push_back(memory.data() + entry);
                arguments.push_back(tables[o].data());
            } else {
                arguments.push_back(a.role == "shift"     ? p.shift
                                    : a.role == "stride0" ? p.stride0
                                    : a.role == "stride1" ? p.stride1
                                    : a.role == "stride2" ? p.stride2
                                    : a.name == "width"   ? sizes.width
                                    : a.name == "height"  ? sizes.height
                                                          : sizes.count);
            }
        }
        EXPECT_EQ(invoke(callee.name, arguments), zonStsOk) << callee.name;
    }

    std::string describe(std::uint64_t seed) const
    {
        std::string text = callee.name + " (seed " + std::to_string(seed) + ", width " +
                           std::to_string(sizes.width) + ", height " +
                           std::to_string(sizes.height) + ", count " + std::to_string(sizes.count) +
                           ')';
        const char *const names[] = {"src1", "src2", "dst"};
        for (std::size_t o = 0; o < 3; ++o)
            text += std::string("\n  ") + names[o] + " at " +
                    std::to_string(places[o].at(0, 0, 0)) + ", strides " +
                    std::to_string(places[o].stride0) + ' ' + std::to_string(places[o].stride1) +
                    ' ' + std::to_string(places[o].stride2);
        return text;
    }

    // Whether the comparison could be made.
    bool check(std::uint64_t seed) const
    {
        Random random(seed);
        auto expected = drawMemory(random);
        auto memory = expected;
        if (!interpret(expected))
            return false;
        call(memory);
        const auto at = std::ranges::mismatch(memory, expected).in1 - memory.begin();
        EXPECT_EQ(std::size_t(at), memory.size())
            << describe(seed) << "\n  byte " << at << " is "
            << std::to_integer<int>(memory[std::size_t(at)]) << ", expected "
            << std::to_integer<int>(expected[std::size_t(at)]);
        return true;
    }
};

Sizes drawSizes(const Export &e, Random &random)
{
    const int n = random.between(1, 8);
    const Sizes s = random.pick({Sizes{n, n, 0}, Sizes{n, n, 0}, Sizes{random.between(1, 20), n, 0},
                                 Sizes{n, random.between(1, 9), 0}});
    return {s.width, s.height, e.argument("count") ? random.pick({1, 2, 3, 4, 9, 17}) : 1};
}

void checkMany(int repeats, void (*arrange)(Problem &, Random &))
{
    std::uint64_t seed = 1;
    int compared = 0, tried = 0;
    for (const Export *e : builtExports("matrix_sums"))
        for (int repeat = 0; repeat < repeats; ++repeat, ++seed) {
            Random random(seed);
            Problem problem(*e, drawSizes(*e, random));
            arrange(problem, random);
            compared += problem.check(seed);
            ++tried;
        }
    EXPECT_GT(compared, tried * 3 / 4);
}

constexpr std::ptrdiff_t middle = 8192;

// Everything without gaps, `dst` displaced against the sources by anything from nothing to an
// object.
TEST(MatrixSumsOverlap, DenseOperandsAtAnyDisplacement)
{
    checkMany(120, [](Problem &p, Random &random) {
        const int size = sizeOf(p.element), row = p.sizes.width * size;
        auto displacement = [&] {
            return random.pick({0,
                                size,
                                -size,
                                2 * size,
                                -2 * size,
                                3 * size,
                                15,
                                -15,
                                16,
                                -16,
                                17,
                                32,
                                -32,
                                1,
                                -1,
                                row,
                                -row,
                                row + size,
                                row * p.sizes.height,
                                -row * p.sizes.height,
                                random.between(-600, 600),
                                random.between(-100, 100) * size});
        };
        p.arrangeDense(p.places[2], middle);
        p.arrangeDense(p.places[0], middle + displacement());
        p.arrangeDense(p.places[1], middle + displacement());
    });
}

// Dense rows whose distances differ, so that `dst` overtakes or falls behind a source on the way.
TEST(MatrixSumsOverlap, DenseRowsWithAnyRowAndObjectStrides)
{
    checkMany(120, [](Problem &p, Random &random) {
        const int size = sizeOf(p.element);
        for (Place &place : p.places)
            p.arrange(place, middle + random.between(-20, 20) * random.pick({1, size}),
                      size * random.between(1, 3 * p.sizes.width * p.sizes.height),
                      size * random.between(1, 2 * place.storedWidth + 2), size);
    });
}

// Strides of any size: rows, elements and objects overlap within an operand as well.
TEST(MatrixSumsOverlap, AnyStrides)
{
    checkMany(120, [](Problem &p, Random &random) {
        const int size = sizeOf(p.element);
        for (Place &place : p.places) {
            place.shift = size * random.below(5);
            p.arrange(place, middle + random.between(-60, 60) * random.pick({1, size, size}),
                      size * random.between(1, 40), size * random.between(1, 20),
                      size * random.between(1, 9));
        }
    });
}

// Tables with entries that lie anywhere, share elements or name the same object twice.
TEST(MatrixSumsOverlap, ScatteredAndSharedTableEntries)
{
    checkMany(120, [](Problem &p, Random &random) {
        const int size = sizeOf(p.element), room = random.pick({6, 40, 200});
        for (Place &place : p.places) {
            p.arrange(place, middle + size * random.below(room), size * random.between(1, 30),
                      size * random.between(1, 9), size * random.pick({1, 1, 2}));
            for (std::ptrdiff_t &entry : place.table)
                entry = middle + size * random.below(room);
        }
    });
}

// An array of structures: the operands' elements alternate in memory.
TEST(MatrixSumsOverlap, InterleavedStructures)
{
    checkMany(20, [](Problem &p, Random &) {
        const int size = sizeOf(p.element), object = p.sizes.width * p.sizes.height * size;
        for (int o = 0; o < 3; ++o) {
            Place &place = p.places[std::size_t(o)];
            p.arrange(place, middle + o * object, 3 * object + size, place.storedWidth * size,
                      size);
        }
    });
}

// Object k's result is object k + 1's source.
TEST(MatrixSumsOverlap, ChainOfObjects)
{
    checkMany(20, [](Problem &p, Random &random) {
        const int size = sizeOf(p.element), object = p.sizes.width * p.sizes.height * size;
        for (Place &place : p.places)
            p.arrangeDense(place, middle);
        p.arrangeDense(p.places[2], middle + object);
        p.arrangeDense(p.places[random.oneIn(2)], 0);
    });
}

// dst = src1 - src2 with dst on src1, element by element: the plain difference in every path.
TEST(MatrixSumsOverlap, InPlaceIsThePlainResult)
{
    int compared = 0;
    for (const Export *e : builtExports("matrix_sums"))
        for (const Sizes sizes :
             {Sizes{3, 3, 4}, {4, 4, 1}, {6, 6, 9}, {7, 7, 2}, {5, 3, 3}, {19, 1, 2}})
            for (const bool second : {false, true}) {
                Problem p(*e, {sizes.width, sizes.height, e->argument("count") ? sizes.count : 1});
                Place &place = p.places[second];
                if (place.transposed || place.array != p.places[2].array)
                    continue;
                p.arrangeDense(p.places[0], 0);
                p.arrangeDense(p.places[1], middle);
                p.arrangeDense(p.places[2], second ? middle : 0);
                Random random(1);
                const auto before = p.drawMemory(random);
                auto after = before;
                p.call(after);
                for (int k = 0; k < p.sizes.count; ++k)
                    for (int i = 0; i < sizes.height; ++i)
                        for (int j = 0; j < sizes.width; ++j) {
                            auto value = [&](const auto &memory, int o) {
                                return load(
                                    p.element,
                                    &memory[std::size_t(p.places[std::size_t(o)].at(k, i, j))]);
                            };
                            const double expected = p.combine(value(before, 0), value(before, 1));
                            ASSERT_TRUE(sameBits(value(after, 2), expected))
                                << p.describe(1) << "\n  object " << k << " (" << i << ", " << j
                                << "): " << show(p.element, value(after, 2)) << ", expected "
                                << show(p.element, expected);
                        }
                ++compared;
            }
    EXPECT_GT(compared, 0);
}

// The single matrix is src1, and object 0's result lies on it: held by the path for size 4, read
// anew in the loop for size 7.
TEST(MatrixSumsOverlap, SingleMatrixHeldOrReadAnew)
{
    for (const int n : {4, 7}) {
        std::vector<float> memory(std::size_t(3 * n * n)), array(std::size_t(3 * n * n));
        for (int i = 0; i < n * n; ++i)
            memory[std::size_t(i)] = float(100 + i);
        std::ranges::fill(array, 1.0f);
        std::vector<float *> single, many;
        for (int i = 0; i < n * n; ++i) {
            single.push_back(&memory[std::size_t(i)]);
            many.push_back(&array[std::size_t(i)]);
        }
        const std::int32_t object = n * n * std::int32_t(sizeof(float));
        ASSERT_EQ(zonmSub_mma_32f_P(single.data(), 0, many.data(), 0, object, single.data(), 0,
                                    object, n, n, 3),
                  zonStsOk);
        for (int i = 0; i < n * n; ++i) {
            EXPECT_EQ(memory[std::size_t(i)], float(99 + i));
            EXPECT_EQ(memory[std::size_t(n * n + i)], float(n == 4 ? 99 + i : 98 + i))
                << "size " << n;
        }
    }
}

// In place on a transposed operand: the element-table path of size 3 sees the old values, the
// strided path the ones that it has already written.
TEST(MatrixSumsOverlap, TransposedInPlace)
{
    const std::array<double, 9> zero = {};
    std::array<double, 9> strided = {1, 2, 3, 4, 5, 6, 7, 8, 9}, tabled = strided;
    ASSERT_EQ(
        zonmAdd_tm_64f(strided.data(), 24, 8, zero.data(), 24, 8, strided.data(), 24, 8, 3, 3),
        zonStsOk);
    EXPECT_EQ(strided, (std::array<double, 9>{1, 4, 7, 4, 5, 8, 7, 8, 9}));
    std::array<double *, 9> table;
    std::array<const double *, 9> zeros;
    for (std::size_t i = 0; i < 9; ++i)
        table[i] = &tabled[i], zeros[i] = &zero[i];
    ASSERT_EQ(zonmAdd_tm_64f_P(table.data(), 0, zeros.data(), 0, table.data(), 0, 3, 3), zonStsOk);
    EXPECT_EQ(tabled, (std::array<double, 9>{1, 4, 7, 2, 5, 8, 3, 6, 9}));
}

} // namespace
