// SPDX-License-Identifier: Apache-2.0
// Identity matrices, also where rows or objects of dst share elements.
#include <gtest/gtest.h>

#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

void checkOnce(const Export &e, std::uint64_t seed, Shape shape, int count,
               Spread spread = Spread::any)
{
    Call call(e, seed, count, spread);
    call.output("dst", shape);
    call.set("width", shape.columns).set("height", shape.rows);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int, int i, int j) { return i == j ? 1 : 0; });
}

TEST(LoadIdentity, IsTheIdentity)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("load_identity"))
        for (int width = 1; width <= 9; ++width)
            for (int height = 1; height <= 9; ++height)
                for (const int count : {1, 2, 7, 8, 9, 25})
                    for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                        checkOnce(*e, seed++, {height, width}, count, spread);
}

TEST(LoadIdentity, IsTheIdentityOfLargeMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("load_identity"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (const Shape shape : {Shape{1, 67}, {67, 1}, {13, 5}, {40, 41}})
                for (const int count : {1, 8, 20})
                    checkOnce(*e, seed++, shape, count, spread);
}

// Every row, or element, flush with a page that cannot be accessed.
TEST(LoadIdentity, TouchesElementsOnly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("load_identity"))
        for (const Shape shape : {Shape{1, 1}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {3, 7}, {9, 2}})
            for (const int count : {1, 3})
                checkOnce(*e, seed++, shape, count, Spread::fenced);
}

TEST(LoadIdentity, WritesTheZerosOfARowBeforeItsOne)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("load_identity"))
        for (const Shape shape : {Shape{3, 3}, {2, 5}, {7, 7}, {1, 4}, {9, 4}, {6, 1}})
            for (const int objects : {1, 3, 9}) {
                OneMemory call(*e, seed++, objects);
                const Operand &d = call.output("dst", shape);
                call.set("width", shape.columns).set("height", shape.rows);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k)
                        for (int i = 0; i < shape.rows; ++i) {
                            for (int j = 0; j < shape.columns; ++j)
                                d.set(k, i, j, 0);
                            if (i < shape.columns)
                                d.set(k, i, i, 1);
                        }
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

TEST(LoadIdentity, JudgesStride0OfManyObjectsOnly)
{
    float x[2][2][2];
    EXPECT_EQ(zonmLoadIdentity_ma_32f(x[0][0], 0, 8, 4, 2, 2, 1), zonStsOk);
    EXPECT_EQ(x[0][1][1], 1);
    EXPECT_EQ(zonmLoadIdentity_ma_32f(x[0][0], 0, 8, 4, 2, 2, 2), zonStsBadStride);
    EXPECT_EQ(zonmLoadIdentity_ma_32f(x[0][0], 0, 8, 6, 2, 2, 1), zonStsBadStride);
}

} // namespace
