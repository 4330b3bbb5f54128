// SPDX-License-Identifier: Apache-2.0
// Matrix sums on operands that do not overlap: every export equals the naive sum to the last bit.
#include <gtest/gtest.h>

#include "support/call.hpp"

using namespace test;

namespace
{

double combine(const Export &e, double a, double b)
{
    return e.operation == "zonmAdd" ? a + b : a - b;
}

void checkOnce(const Export &e, std::uint64_t seed, Shape shape, int count, Values values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", shape, values);
    const Operand &b = call.source("src2", shape, values);
    call.output("dst", shape);
    call.set("width", shape.columns).set("height", shape.rows);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int j) { return combine(e, a(k, i, j), b(k, i, j)); });
}

TEST(MatrixSums, AreTheNaiveSums)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_sums"))
        for (int width = 1; width <= 9; ++width)
            for (const int height : {width, 10 - width, width % 3 + 1})
                for (const int count : {1, 2, 3, 5})
                    for (const Values values : allValues())
                        checkOnce(*e, seed++, {height, width}, count, values);
}

// Long rows, long columns and many objects, where runs of elements are taken several at a time.
TEST(MatrixSums, AreTheNaiveSumsForLongRunsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_sums"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const Shape shape :
                 {Shape{1, 67}, {2, 33}, {67, 1}, {12, 11}, {3, 3}, {4, 4}, {8, 8}, {9, 8}})
                for (const int count : {1, 7, 8, 9, 25})
                    checkOnce(*e, seed++, shape, count, Values::manyExponents, spread);
}

// Packed objects are taken several at a time as one run, up to a number of elements.
TEST(MatrixSums, AreTheNaiveSumsForPackedObjectsOfAnyLength)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_sums"))
        for (int elements = 56; elements <= 140; ++elements) {
            const int rows = elements % 5 == 0 ? 5 : elements % 2 == 0 ? 2 : 1;
            checkOnce(*e, seed++, {rows, elements / rows}, 8, Values::uniform, Spread::dense);
        }
}

TEST(MatrixSums, ReadAndWriteNoRowTooFar)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_sums"))
        for (const Shape shape : {Shape{3, 3}, {4, 4}, {5, 5}, {6, 6}, {2, 7}, {1, 13}, {4, 3}})
            for (const int count : {1, 5})
                checkOnce(*e, seed++, shape, count, Values::uniform, Spread::fenced);
}

TEST(MatrixSums, ReachAllOfTheAddressSpace)
{
    if (!hasVastSpace)
        GTEST_SKIP();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_sums"))
        for (const Shape shape : {Shape{2, 2}, {3, 3}, {4, 4}, {6, 6}, {7, 7}, {3, 9}})
            for (int round = 0; round < 4; ++round)
                checkOnce(*e, seed++, shape, 4, Values::uniform, Spread::vast);
}

// An array is the sum of its objects: the single export on each of them gives the same.
TEST(MatrixSums, OfArraysAreTheSumsOfTheirObjects)
{
    std::uint64_t seed = 1;
    int compared = 0;
    for (const Export *e : exportsOf("matrix_sums")) {
        std::string single;
        for (const char letter : e->group)
            if (letter != 'a')
                single += letter;
        if (single == e->group || (single == "mt" && e->operation == "zonmAdd"))
            continue;
        const Export &one = exportNamed(e->operation + '_' + single + '_' + e->element +
                                        (e->description == "P" ? "_P" : ""));
        for (const Shape shape :
             {Shape{3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {3, 4}, {8, 2}, {1, 1}}) {
            Call array(*e, seed, 5);
            const Operand &a = array.source("src1", shape, Values::manyExponents);
            const Operand &b = array.source("src2", shape, Values::manyExponents);
            const Operand &sums = array.output("dst", shape);
            array.set("width", shape.columns).set("height", shape.rows);
            ASSERT_EQ(array.run(), zonStsOk) << array;
            for (int k = 0; k < 5; ++k) {
                Call object(one, seed++);
                object.source("src1", shape, [&](int, int i, int j) { return a(k, i, j); });
                object.source("src2", shape, [&](int, int i, int j) { return b(k, i, j); });
                object.output("dst", shape);
                object.set("width", shape.columns).set("height", shape.rows);
                ASSERT_EQ(object.run(), zonStsOk) << object;
                object.expect("dst", [&](int, int i, int j) { return sums(k, i, j); });
            }
            ++compared;
        }
    }
    EXPECT_GT(compared, 0);
}

} // namespace
