// SPDX-License-Identifier: Apache-2.0
// Matrix products into a dst whose elements coincide: the last store in the order of the path
// remains. And the two exports that take the 3×3 path for other sizes.
#include <gtest/gtest.h>

#include "support/invoke.hpp"
#include "support/one_memory.hpp"
#include "support/product_paths.hpp"

using namespace test;

namespace
{

// The elements of one object in the order of their stores.
std::vector<std::pair<int, int>> order(Path path, ProductShape shape)
{
    std::vector<std::pair<int, int>> all;
    if (path != Path::block) {
        for (int i = 0; i < shape.rows; ++i)
            for (int j = 0; j < shape.columns; ++j)
                all.push_back({i, j});
        return all;
    }
    const int rows4 = shape.rows / 4 * 4, columns2 = shape.columns / 2 * 2;
    for (int i0 = 0; i0 < rows4; i0 += 4)
        for (int j0 = 0; j0 < columns2; j0 += 2)
            for (int j = j0; j < j0 + 2; ++j)
                for (int i = i0; i < i0 + 4; ++i)
                    all.push_back({i, j});
    if (columns2 < shape.columns)
        for (int i = 0; i < rows4; ++i)
            all.push_back({i, columns2});
    for (int j = 0; j < shape.columns; ++j)
        for (int i = rows4; i < shape.rows; ++i)
            all.push_back({i, j});
    return all;
}

const ProductShape shapes[] = {{3, 3, 3},  {4, 4, 4}, {5, 5, 5},  {6, 6, 6},  {2, 2, 2},
                               {7, 7, 7},  {8, 8, 8}, {9, 11, 4}, {6, 10, 3}, {5, 17, 2},
                               {11, 3, 5}, {1, 9, 3}, {9, 1, 3},  {19, 20, 3}};

// A dst whose elements coincide, apart from the sources.
void checkInOneMemory(const Export &e, std::uint64_t seed, ProductShape shape)
{
    OneMemory call(e, seed, 3);
    const Operand &a = call.source("src1", {shape.rows, shape.inner}, Values::uniform);
    const Operand &b = call.source("src2", {shape.inner, shape.columns}, Values::uniform);
    const Operand &dst = call.output("dst", {shape.rows, shape.columns});
    const bool t1 = e.operand("src1")->transposed, t2 = e.operand("src2")->transposed;
    call.set("src1Width", t1 ? shape.rows : shape.inner)
        .set("src1Height", t1 ? shape.inner : shape.rows)
        .set("src2Width", t2 ? shape.inner : shape.columns)
        .set("src2Height", t2 ? shape.columns : shape.inner);
    const auto reference = [&] {
        bool contiguous = true;
        for (const Operand *o : {&a, &b, &dst})
            contiguous &= o->layout.stride2 == sizeOf(o->element);
        const Path path = pathOf(e, shape, contiguous);
        for (int k = 0; k < call.count(); ++k)
            for (const auto &[i, j] : order(path, shape))
                dst.set(k, i, j, chain(path, dst.element, shape.inner, [&, i = i, j = j](int p) {
                            return a(k, i, p) * b(k, p, j);
                        }));
        return zonStsOk;
    };
    call.check(Meeting::ofDst, reference);
    call.checkThreads(reference);
}

TEST(MatrixProduct, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const ProductShape shape : shapes)
            if (!readsPastItsTables(*e, shape))
                checkInOneMemory(*e, seed++, shape);
}

// The 3×3 path for a mix of sizes --------------------------------------------------------------

struct OddCase {
    int width1, height1, width2, height2; // as stored
};

// Tables long enough for whatever the path reaches, every entry an element of its own.
template <class T> struct LongTables {
    static constexpr std::size_t entries = 16;
    std::vector<T> a, b, d;
    std::vector<T *> tableA, tableB, tableD;

    LongTables()
    {
        for (std::size_t n = 0; n < entries; ++n) {
            a.push_back(T(n + 1));
            b.push_back(T(100 + 3 * n));
            d.push_back(T(-1) - T(n));
        }
        for (std::size_t n = 0; n < entries; ++n) {
            tableA.push_back(&a[n]);
            tableB.push_back(&b[n]);
            tableD.push_back(&d[n]);
        }
    }
    ZonStatus run(const std::string &name, OddCase c)
    {
        const Argument arguments[] = {tableA.data(), 0, c.width1, c.height1,
                                      tableB.data(), 0, c.width2, c.height2,
                                      tableD.data(), 0};
        return invoke(name, arguments, name);
    }
    // dst as the 3×3 path leaves it, each operand with its own width as the row step.
    std::vector<T> bySize3(OddCase c, bool transposed) const
    {
        return multiplied(c, transposed, 3, 3, 3);
    }
    std::vector<T> bySizes(OddCase c, bool t) const
    {
        return multiplied(c, t, t ? c.width1 : c.height1, t ? c.height2 : c.width2,
                          t ? c.height1 : c.width1);
    }

  private:
    std::vector<T> multiplied(OddCase c, bool t, int rows, int columns, int inner) const
    {
        const int step = t ? c.height2 : c.width2;
        std::vector<T> result = d;
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < columns; ++j) {
                T sum = 0;
                for (int p = 0; p < inner; ++p)
                    sum += a[std::size_t(t ? p * c.width1 + i : i * c.width1 + p)] *
                           b[std::size_t(t ? j * c.width2 + p : p * c.width2 + j)];
                result[std::size_t(i * step + j)] = sum;
            }
        return result;
    }
};

template <class T> void checkOddSizes(const std::string &name, bool transposed, bool odd)
{
    int cases = 0;
    for (int rows = 1; rows <= 3; ++rows)
        for (int columns = 1; columns <= 3; ++columns)
            for (int inner = 1; inner <= 3; ++inner) {
                if ((rows | columns | inner) != 3)
                    continue;
                const OddCase c = transposed ? OddCase{rows, inner, inner, columns}
                                             : OddCase{inner, rows, columns, inner};
                LongTables<T> m;
                const std::vector<T> bySize3 = m.bySize3(c, transposed);
                const std::vector<T> bySizes = m.bySizes(c, transposed);
                ASSERT_EQ(m.run(name, c), zonStsOk);
                EXPECT_EQ(m.d, odd ? bySize3 : bySizes)
                    << name << ' ' << rows << ' ' << columns << ' ' << inner;
                EXPECT_EQ(bySize3 == bySizes, rows * columns * inner == 27);
                ++cases;
            }
    EXPECT_EQ(cases, 25);
}

TEST(MatrixProductOddSizes, TwoExportsTakeThreeByThreeForSizesWhoseOrIsThree)
{
    checkOddSizes<float>("zonmMul_mm_32f_P", false, true);
    checkOddSizes<double>("zonmMul_tt_64f_P", true, true);
}

TEST(MatrixProductOddSizes, TheirFellowsDoNot)
{
    checkOddSizes<double>("zonmMul_mm_64f_P", false, false);
    checkOddSizes<float>("zonmMul_tt_32f_P", true, false);
}

// 5, 6 and other sizes whose OR is 5, 6 or 7 take the ordinary road.
TEST(MatrixProductOddSizes, OtherSizesAreTestedOnThemselves)
{
    for (const char *name : {"zonmMul_mm_32f_P", "zonmMul_tt_64f_P"})
        for (const ProductShape s : {ProductShape{4, 1, 4},
                                     {1, 4, 5},
                                     {4, 5, 1},
                                     {2, 4, 6},
                                     {4, 4, 2},
                                     {4, 3, 4},
                                     {2, 2, 2},
                                     {1, 1, 1},
                                     {4, 4, 4},
                                     {6, 6, 6}})
            checkInOneMemory(exportNamed(name), 1, s);
}

// The shape test --------------------------------------------------------------------------------

TEST(MatrixProductShapes, FollowTheStoredSizes)
{
    const float a[64] = {}, b[64] = {};
    float d[64];
    EXPECT_EQ(zonmMul_mt_32f(a, 20, 4, 5, 2, b, 20, 4, 5, 7, d, 28, 4), zonStsOk);
    EXPECT_EQ(zonmMul_mt_32f(a, 20, 4, 5, 2, b, 20, 4, 4, 7, d, 28, 4), zonStsShapeMismatch);
    EXPECT_EQ(zonmMul_tm_32f(a, 8, 4, 2, 5, b, 12, 4, 3, 5, d, 12, 4), zonStsOk);
    EXPECT_EQ(zonmMul_tm_32f(a, 8, 4, 5, 2, b, 12, 4, 3, 5, d, 12, 4), zonStsShapeMismatch);
    EXPECT_EQ(zonmMul_tt_32f(a, 16, 4, 4, 3, b, 12, 4, 3, 5, d, 20, 4), zonStsOk);
    EXPECT_EQ(zonmMul_tt_32f(a, 16, 4, 3, 4, b, 12, 4, 3, 5, d, 20, 4), zonStsShapeMismatch);
    // Before the strides, behind the sizes, and both behind the count.
    EXPECT_EQ(zonmMul_mm_32f(a, 6, 4, 3, 3, b, 12, 4, 3, 4, d, 12, 4), zonStsShapeMismatch);
    EXPECT_EQ(zonmMul_mm_32f(a, 6, 4, 3, 3, b, 12, 4, 3, 3, d, 12, 4), zonStsBadStride);
    EXPECT_EQ(zonmMul_mm_32f(a, 6, 4, 3, 0, b, 12, 4, 3, 4, d, 12, 4), zonStsBadSize);
    EXPECT_EQ(zonmMul_mama_32f(a, 36, 12, 4, 3, 0, b, 36, 12, 4, 3, 4, d, 36, 12, 4, 0),
              zonStsBadCount);
}

} // namespace
