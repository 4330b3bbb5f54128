// SPDX-License-Identifier: Apache-2.0
// Copies between all pairs of descriptions: bits that arrive as they were, the literal order where
// operands meet, and every exchange of the loops.
#include <algorithm>
#include <array>
#include <gtest/gtest.h>

#include "support/bit_patterns.hpp"
#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

bool ofMatrices(const Export &e) { return e.group == "ma"; }

Shape shapeOf(const Export &e, Shape s) { return ofMatrices(e) ? s : Shape{s.columns}; }

template <class C> void setSizes(C &call, const Export &e, Shape s)
{
    if (ofMatrices(e))
        call.set("width", s.columns).set("height", s.rows);
    else
        call.set("len", s.rows);
}

void checkOnce(const Export &e, std::uint64_t seed, Shape any, int count,
               Spread spread = Spread::any)
{
    const Shape shape = shapeOf(e, any);
    Call call(e, seed, count, spread);
    const Operand &a = call.source("src", shape, Values::uniform);
    const Operand &d = call.output("dst", shape);
    setSizes(call, e, shape);
    drawBits(a, call.random());
    ASSERT_EQ(call.run(), zonStsOk) << call;
    for (int k = 0; k < count; ++k)
        for (int i = 0; i < shape.rows; ++i)
            for (int j = 0; j < shape.columns; ++j)
                ASSERT_TRUE(haveSameBits(a, a.at(k, i, j), d.at(k, i, j)))
                    << call << ": object " << k << " (" << i << ", " << j << ')';
}

TEST(Copy, MovesBits)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("copy"))
        for (int width = 1; width <= 9; ++width)
            for (const int height : {1, width, 10 - width})
                for (const int count : {1, 2, 5, 17})
                    for (int repeat = 0; repeat < 3; ++repeat)
                        checkOnce(*e, seed++, {height, width}, count);
}

TEST(Copy, MovesLongRunsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("copy"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const Shape shape : {Shape{1, 67}, {2, 130}, {67, 1}, {12, 11}, {3, 3}, {6, 6}})
                for (const int count : {1, 7, 8, 40})
                    checkOnce(*e, seed++, shape, count, spread);
}

// Every row, or element, flush with a page that cannot be accessed.
TEST(Copy, TouchesElementsOnly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("copy"))
        for (const Shape shape : {Shape{1, 1}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {3, 7}, {9, 2}})
            for (const int count : {1, 3})
                checkOnce(*e, seed++, shape, count, Spread::fenced);
}

TEST(Copy, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("copy"))
        for (const Shape any : {Shape{3, 3}, {2, 5}, {7, 7}, {1, 4}, {4, 40}, {6, 1}})
            for (const int objects : {1, 3, 9}) {
                const Shape shape = shapeOf(*e, any);
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src", shape, Values::uniform);
                const Operand &d = call.output("dst", shape);
                setSizes(call, *e, shape);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k)
                        for (int i = 0; i < shape.rows; ++i)
                            for (int j = 0; j < shape.columns; ++j)
                                d.set(k, i, j, a(k, i, j));
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

// Any nesting of objects, rows and elements on either side, with and without gaps, in either type:
// packed and interleaved arrays, columns, planes.
template <class T, class F> void checkNests(F copy)
{
    using Extents = std::array<int, 3>; // objects, rows, columns
    // Steps in elements, the loops nested as `order` says, the last the innermost.
    const auto stepsOf = [](const Extents &n, const Extents &order, int gap) {
        Extents steps{};
        int step = 1;
        for (int d = 2; d >= 0; --d) {
            const auto dimension = std::size_t(order[std::size_t(d)]);
            steps[dimension] = step;
            step = step * n[dimension] + gap;
        }
        return steps;
    };
    std::vector<Extents> orders;
    Extents order{0, 1, 2};
    do
        orders.push_back(order);
    while (std::ranges::next_permutation(order).found);
    for (const Extents &n : {Extents{2, 2, 2},
                             {17, 4, 4},
                             {40, 1, 9},
                             {9, 7, 5},
                             {33, 2, 3},
                             {70, 6, 6},
                             {1, 19, 35},
                             {5, 8, 8},
                             {129, 3, 1},
                             {16, 16, 17}})
        for (const Extents &from : orders)
            for (const Extents &to : orders)
                for (const int gap : {0, 1, 3}) {
                    const Extents s = stepsOf(n, from, gap), d = stepsOf(n, to, gap % 2);
                    const auto room = std::size_t((n[0] + gap) * (n[1] + gap) * (n[2] + gap) * 4);
                    std::vector<T> src(room), dst(room, T(-1)), expected = dst;
                    for (std::size_t i = 0; i < room; ++i)
                        src[i] = T(i);
                    for (int k = 0; k < n[0]; ++k)
                        for (int i = 0; i < n[1]; ++i)
                            for (int j = 0; j < n[2]; ++j)
                                expected[std::size_t(k * d[0] + i * d[1] + j * d[2])] =
                                    src[std::size_t(k * s[0] + i * s[1] + j * s[2])];
                    const int size = sizeof(T);
                    ASSERT_EQ(copy(src.data(), s[0] * size, s[1] * size, s[2] * size, dst.data(),
                                   d[0] * size, d[1] * size, d[2] * size, n[2], n[1], n[0]),
                              zonStsOk);
                    ASSERT_TRUE(dst == expected)
                        << n[0] << 'x' << n[1] << 'x' << n[2] << " from " << s[0] << ' ' << s[1]
                        << ' ' << s[2] << " to " << d[0] << ' ' << d[1] << ' ' << d[2];
                }
}
TEST(Copy, ExchangesLoops)
{
    checkNests<float>(zonmCopy_ma_32f_SS);
    checkNests<double>(zonmCopy_ma_64f_SS);
}

// One object may have any stride0, many may not.
TEST(Copy, JudgesStride0OfManyObjectsOnly)
{
    const float x[] = {1, 2, 3, 4};
    float y[4] = {};
    for (const std::int32_t stride0 : {0, -4, 2, 1 << 30})
        EXPECT_EQ(zonmCopy_ma_32f_SS(x, stride0, 8, 4, y, stride0, 8, 4, 2, 2, 1), zonStsOk);
    EXPECT_EQ(y[3], 4);
    EXPECT_EQ(zonmCopy_ma_32f_SS(x, 0, 8, 4, y, 8, 8, 4, 2, 1, 2), zonStsBadStride);
    EXPECT_EQ(zonmCopy_ma_32f_SS(x, 8, 8, 4, y, 0, 8, 4, 2, 1, 2), zonStsBadStride);
    const float *from[] = {x, x + 1};
    float *to[] = {y, y + 1};
    EXPECT_EQ(zonmCopy_va_32f_SP(x, 4, 6, to, -4, 4, 2, 2), zonStsBadShift);
    EXPECT_EQ(zonmCopy_va_32f_LP(from, -4, 6, to, 0, 4, 2, 2), zonStsBadShift);
    const double u[] = {1, 2, 3, 4};
    double v[4], *places[] = {v, v + 1};
    EXPECT_EQ(zonmCopy_va_64f_SP(u, 8, 6, places, -8, 8, 2, 2), zonStsBadStride);
}

} // namespace
