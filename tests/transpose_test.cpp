// SPDX-License-Identifier: Apache-2.0
// Transposes: bits that arrive as they were, and what an overlap leaves is the same in every path.
#include <gtest/gtest.h>

#include "support/bit_patterns.hpp"
#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

void checkOnce(const Export &e, std::uint64_t seed, Shape shape, int objects,
               Spread spread = Spread::any)
{
    const int count = e.argument("count") ? objects : 1;
    Call call(e, seed, count, spread);
    const Operand &a = call.source("src", shape, Values::uniform);
    const Operand &d = call.output("dst", {shape.columns, shape.rows});
    call.set("width", shape.columns).set("height", shape.rows);
    drawBits(a, call.random());
    ASSERT_EQ(call.run(), zonStsOk) << call;
    for (int k = 0; k < count; ++k)
        for (int i = 0; i < shape.rows; ++i)
            for (int j = 0; j < shape.columns; ++j)
                ASSERT_TRUE(haveSameBits(a, a.at(k, i, j), d.at(k, j, i)))
                    << call << ": object " << k << " (" << i << ", " << j << ')';
}

TEST(Transpose, MovesBits)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("transpose"))
        for (int width = 1; width <= 9; ++width)
            for (int height = 1; height <= 9; ++height)
                for (const int count : {1, 2, 5, 17})
                    for (int repeat = 0; repeat < 3; ++repeat)
                        checkOnce(*e, seed++, {height, width}, count);
}

TEST(Transpose, MovesLongRowsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("transpose"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const Shape shape : {Shape{1, 67},
                                      {2, 130},
                                      {67, 1},
                                      {12, 11},
                                      {33, 35},
                                      {3, 3},
                                      {4, 4},
                                      {5, 5},
                                      {6, 6},
                                      {8, 8}})
                for (const int count : {1, 7, 40})
                    checkOnce(*e, seed++, shape, count, spread);
}

// Every row, or element, flush with a page that cannot be accessed.
TEST(Transpose, TouchesElementsOnly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("transpose"))
        for (const Shape shape : {Shape{1, 1}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {3, 7}, {9, 2}})
            for (const int count : {1, 3})
                checkOnce(*e, seed++, shape, count, Spread::fenced);
}

// dst is filled row by row; with element tables in the order of src, and at the square sizes 3 to 6
// from an object that was read whole.
TEST(Transpose, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("transpose"))
        for (const Shape shape :
             {Shape{3, 3}, {4, 4}, {5, 5}, {6, 6}, {2, 5}, {7, 7}, {1, 4}, {4, 18}, {9, 8}})
            for (const int objects : {1, 3, 9}) {
                OneMemory call(*e, seed++, e->argument("count") ? objects : 1);
                const Operand &a = call.source("src", shape, Values::uniform);
                const Operand &d = call.output("dst", {shape.columns, shape.rows});
                call.set("width", shape.columns).set("height", shape.rows);
                const int n = shape.rows;
                const bool tables = e->description == "P";
                const bool whole = tables && n == shape.columns && 3 <= n && n <= 6;
                const auto reference = [&] {
                    std::vector<double> held(std::size_t(n * shape.columns));
                    for (int k = 0; k < call.count(); ++k) {
                        for (int i = 0; whole && i < n; ++i)
                            for (int j = 0; j < n; ++j)
                                held[std::size_t(i * n + j)] = a(k, i, j);
                        for (int x = 0; x < (tables ? n : shape.columns); ++x)
                            for (int y = 0; y < (tables ? shape.columns : n); ++y) {
                                const int i = tables ? x : y, j = tables ? y : x;
                                d.set(k, j, i, whole ? held[std::size_t(i * n + j)] : a(k, i, j));
                            }
                    }
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

TEST(Transpose, OfARectangle)
{
    const float src[2][3] = {{1, 2, 3}, {4, 5, 6}};
    float dst[3][2];
    ASSERT_EQ(zonmTranspose_m_32f(src[0], 12, 4, 3, 2, dst[0], 8, 4), zonStsOk);
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_EQ(dst[j][i], src[i][j]);
}

} // namespace
