// SPDX-License-Identifier: Apache-2.0
// Copies into dense memory: bits that arrive as they were, the literal order where operands meet,
// and the 32-bit product of the sizes.
#include <gtest/gtest.h>
#include <limits>

#include "support/bit_patterns.hpp"
#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

bool ofMatrices(const Export &e) { return e.operands[0].kind == "matrix"; }

Shape shapeOf(const Export &e, Shape s) { return ofMatrices(e) ? s : Shape{s.columns}; }

template <class C> void setSizes(C &call, const Export &e, Shape s)
{
    if (ofMatrices(e))
        call.set("width", s.columns).set("height", s.rows);
    else
        call.set("len", s.rows);
}

void checkOnce(const Export &e, std::uint64_t seed, Shape any, int objects,
               Spread spread = Spread::any)
{
    const Shape shape = shapeOf(e, any);
    const int count = e.argument("count") ? objects : 1;
    Call call(e, seed, count, spread);
    const Operand &a = call.source("src", shape, Values::uniform);
    const Operand &d = call.plainOutput("dst", count * shape.rows * shape.columns);
    setSizes(call, e, shape);
    drawBits(a, call.random());
    ASSERT_EQ(call.run(), zonStsOk) << call;
    for (int k = 0, n = 0; k < count; ++k)
        for (int i = 0; i < shape.rows; ++i)
            for (int j = 0; j < shape.columns; ++j, ++n)
                ASSERT_TRUE(haveSameBits(a, a.at(k, i, j), d.at(0, n)))
                    << call << ": object " << k << " (" << i << ", " << j << ')';
}

TEST(Extract, MovesBits)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("extract"))
        for (int width = 1; width <= 9; ++width)
            for (const int height : {1, width, 10 - width})
                for (const int count : {1, 2, 5, 17})
                    for (int repeat = 0; repeat < 3; ++repeat)
                        checkOnce(*e, seed++, {height, width}, count);
}

TEST(Extract, MovesLongRunsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("extract"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const Shape shape : {Shape{1, 67}, {2, 130}, {67, 1}, {12, 11}, {3, 3}, {6, 6}})
                for (const int count : {1, 7, 8, 40})
                    checkOnce(*e, seed++, shape, count, spread);
}

// Every row, or element, flush with a page that cannot be accessed.
TEST(Extract, TouchesElementsOnly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("extract"))
        for (const Shape shape : {Shape{1, 1}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {3, 7}, {9, 2}})
            for (const int count : {1, 3})
                checkOnce(*e, seed++, shape, count, Spread::fenced);
}

TEST(Extract, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("extract"))
        for (const Shape any : {Shape{3, 3}, {2, 5}, {7, 7}, {1, 4}, {4, 18}, {6, 6}})
            for (const int objects : {1, 3, 9}) {
                const Shape shape = shapeOf(*e, any);
                OneMemory call(*e, seed++, e->argument("count") ? objects : 1);
                const Operand &a = call.source("src", shape, Values::uniform);
                const Operand &d =
                    call.plainOutput("dst", call.count() * shape.rows * shape.columns);
                setSizes(call, *e, shape);
                const auto reference = [&] {
                    for (int k = 0, n = 0; k < call.count(); ++k)
                        for (int i = 0; i < shape.rows; ++i)
                            for (int j = 0; j < shape.columns; ++j)
                                d.set(0, n++, 0, a(k, i, j));
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
            }
}

TEST(Extract, OfATransposeIsDense)
{
    const float src[2][3] = {{1, 2, 3}, {4, 5, 6}};
    float dst[3][2];
    ASSERT_EQ(zonmExtract_t_32f(src[0], 12, 4, dst[0], 2, 3), zonStsOk);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 2; ++j)
            EXPECT_EQ(dst[i][j], src[j][i]);
}

// The table's length is formed in 32 bits. Where it wraps below 1 nothing is touched, and where it
// wraps to a small number so many elements are taken.
template <class T, class One, class Many> void checkLength(One one, Many many)
{
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    // No table could be so long: anything that is read of this one is out of its bounds.
    const Memory tables(sizeof(T *)), results(2 * sizeof(T));
    const auto table = reinterpret_cast<const T **>(tables.end() - sizeof(T *));
    const auto dst = reinterpret_cast<T *>(results.end() - 2 * sizeof(T));
    const T values[] = {5, 6};
    table[0] = values;
    dst[0] = dst[1] = 1;
    for (const auto &[width, height] : {std::pair{1 << 16, 1 << 15},
                                        {1 << 16, 1 << 16},
                                        {65537, 65535},
                                        {most, 2},
                                        {1 << 30, 2}}) {
        ASSERT_EQ(one(table, 0, dst, width, height), zonStsOk);
        ASSERT_EQ(many(table, 0, sizeof(T), dst, width, height, 2), zonStsOk);
        ASSERT_EQ(dst[0], 1);
        ASSERT_EQ(dst[1], 1);
    }
    ASSERT_EQ(one(table, 0, dst, most, most), zonStsOk);
    EXPECT_EQ(dst[0], 5);
    EXPECT_EQ(dst[1], 1);
    dst[0] = 1;
    ASSERT_EQ(many(table, 0, sizeof(T), dst, most, most, 2), zonStsOk);
    EXPECT_EQ(dst[0], 5);
    EXPECT_EQ(dst[1], 6);
}

TEST(Extract, FormsTheLengthOfATableIn32Bits)
{
    checkLength<float>(zonmExtract_m_32f_P, zonmExtract_ma_32f_P);
    checkLength<double>(zonmExtract_m_64f_P, zonmExtract_ma_64f_P);
}

// What is judged first differs between forms that are alike otherwise.
TEST(Extract, JudgesInItsOwnOrders)
{
    float x[1];
    double y[1];
    EXPECT_EQ(zonmExtract_m_32f_P(nullptr, 0, x, 0, 1), zonStsBadSize);
    EXPECT_EQ(zonmExtract_v_32f_P(nullptr, 0, x, 0), zonStsNullPointer);
    EXPECT_EQ(zonmExtract_v_64f_P(nullptr, 0, y, 0), zonStsBadSize);
}

} // namespace
