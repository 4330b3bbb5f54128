// SPDX-License-Identifier: Apache-2.0
// Determinants, to the last bit.
#include <gtest/gtest.h>
#include <limits>

#include "det_reference.hpp"
#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

constexpr int sizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12};
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

bool isArray(const Export &e) { return e.argument("count") != nullptr; }
Element elementOf(const Export &e) { return e.element == "32f" ? Element::f32 : Element::f64; }

// A neighbour of an element, upwards or downwards.
double next(Element e, double x, double towards)
{
    return e == Element::f32 ? double(std::nextafter(float(x), float(towards)))
                             : std::nextafter(x, towards);
}

struct Determinants {
    Call call;
    int n;
    bool array;
    Operand *src, *dst;

    template <class Source>
    Determinants(const Export &e, std::uint64_t seed, int size, int count, Source source,
                 Spread spread = Spread::any)
        : call(e, seed, isArray(e) ? count : 1, spread), n(size), array(isArray(e))
    {
        src = &call.source("src", {n, n}, source);
        dst = &call.plainOutput("dst", call.count());
        if (hasClosedFormula(n)) // any access to it faults
            call.set("buffer", reinterpret_cast<std::byte *>(std::uintptr_t(16)));
        else
            call.scratch("buffer",
                         std::size_t(n) * std::size_t(n) * std::size_t(sizeOf(src->element)) +
                             4 * std::size_t(n));
        call.set("size", n);
    }
    double operator()(int k) const { return (*dst)(0, k); }

    void check()
    {
        ASSERT_EQ(call.run(), zonStsOk) << call;
        call.expect("dst", [&](int, int k, int) {
            return det::of(src->element, Square(n, [&](int i, int j) { return (*src)(k, i, j); }),
                           array);
        });
    }
};

TEST(Det, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9})
                for (const Values values : allValues()) {
                    Determinants(*e, seed++, n, count, values).check();
                    if (!isArray(*e) && count > 3)
                        break;
                }
}

TEST(Det, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : {2, 3, 4, 5, 6, 7})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                Determinants(*e, seed++, n, 150, Values::uniform, spread).check();
}

// Diagonals of powers of two in rows that are exchanged at random.
struct PermutedDiagonal {
    std::vector<int> column;
    std::vector<double> value;

    PermutedDiagonal(int n, Random &random) : column(std::size_t(n)), value(std::size_t(n))
    {
        std::iota(column.begin(), column.end(), 0);
        random.shuffle(column);
        for (double &v : value)
            v = std::ldexp(random.oneIn(2) ? 1 : -1, random.between(-3, 3));
    }
    // `value` goes with the column, so that it is the pivot of that step.
    double operator()(int i, int j) const
    {
        return column[std::size_t(i)] == j ? value[std::size_t(j)] : 0;
    }
    double determinant() const
    {
        double product = 1;
        for (std::size_t i = 0; i < column.size(); ++i) {
            product *= value[i];
            for (std::size_t j = i + 1; j < column.size(); ++j)
                product = column[i] > column[j] ? -product : product;
        }
        return product;
    }
};

TEST(Det, OfAPermutedDiagonalIsItsSignedProduct)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (int n = 1; n <= 12; ++n)
            for (int round = 0; round < 20; ++round) {
                Random random(seed);
                std::vector<PermutedDiagonal> matrix;
                for (int k = 0; k < 5; ++k)
                    matrix.emplace_back(n, random);
                Determinants d(*e, seed++, n, 5,
                               [&](int k, int i, int j) { return matrix[std::size_t(k)](i, j); });
                d.check();
                for (int k = 0; k < d.call.count(); ++k)
                    EXPECT_EQ(d(k), matrix[std::size_t(k)].determinant()) << d.call;
            }
}

// Products of integer triangles with ones on the diagonal.
TEST(Det, OfAUnimodularMatrixIsOne)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (int n = 3; n <= 6; ++n)
            for (int round = 0; round < 20; ++round) {
                Random random(seed);
                const auto triangle = [&](bool upper) {
                    return Square(n, [&](int i, int j) {
                        return i == j ? 1. : (i < j) == upper ? double(random.between(-2, 2)) : 0.;
                    });
                };
                const Square l = triangle(false), u = triangle(true);
                Determinants d(*e, seed++, n, 5, [&](int, int i, int j) {
                    double sum = 0;
                    for (int p = 0; p < n; ++p)
                        sum += l(i, p) * u(p, j);
                    return sum;
                });
                d.check();
                for (int k = 0; k < d.call.count(); ++k)
                    EXPECT_EQ(d(k), 1) << d.call;
            }
}

// A pivot at the limit passes, but not the last one.
TEST(Det, TestsPivotsAgainstTheLimit)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : {1, 2, 7, 8})
            for (int step = 0; step < n; ++step)
                for (const int side : {-1, 0, 1})
                    for (const double sign : {1., -1.}) {
                        const double limit = singularityLimit(elementOf(*e), n);
                        const double pivot =
                            side == 0 ? limit : next(elementOf(*e), limit, side < 0 ? 0 : 1);
                        Random random(seed);
                        PermutedDiagonal matrix(n, random);
                        matrix.value[std::size_t(step)] = sign * pivot;
                        // The product comes out near 1, and no pivot but that one is small.
                        if (n > 1)
                            matrix.value[std::size_t((step + 1) % n)] = 1 / limit;
                        Determinants d(*e, seed++, n, 6,
                                       [&](int, int i, int j) { return matrix(i, j); });
                        d.check();
                        const bool passes = step == n - 1 ? side > 0 : side >= 0;
                        for (int k = 0; k < d.call.count(); ++k)
                            EXPECT_EQ(d(k) != 0, passes) << d.call << " step " << step;
                    }
}

TEST(Det, HasNoLimitAtSizes3To6)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (int n = 3; n <= 6; ++n) {
            const double tiny = elementOf(*e) == Element::f32 ? 0x1p-140 : 0x1p-1060;
            Determinants d(*e, seed++, n, 6, [&](int, int i, int j) {
                return i != j ? 0 : i == 0 ? tiny : i == 1 ? 4 : 1;
            });
            d.check();
            EXPECT_EQ(d(0), 4 * tiny);
        }
}

// What a singular matrix leaves: a single one +0, one of an array its last element times 0.
TEST(Det, OfASingularMatrixDiffersBetweenFormsInZeroAndNaN)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : {2, 7, 8})
            for (int step = 0; step < n - 1; ++step)
                for (const double last : {3., -3., infinity, -infinity, nan, 0.}) {
                    // Column `step` is empty; the product before it is positive.
                    Determinants d(*e, seed++, n, 6, [&](int, int i, int j) {
                        return i != j || i == step ? 0 : i == n - 1 ? last : 2;
                    });
                    d.check();
                    const bool isNaN = isArray(*e) && std::isinf(last);
                    const bool isNegative = isArray(*e) && last == -3;
                    for (int k = 0; k < d.call.count(); ++k)
                        EXPECT_TRUE(sameBits(d(k), isNaN        ? nan
                                                   : isNegative ? -0.
                                                                : 0.))
                            << d.call << ": last " << last << ": " << show(d.dst->element, d(k));
                }
}

TEST(Det, TakesNotANumberAndInfinitiesAtEachPlace)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (int n = 1; n <= 8; ++n)
            for (int place = 0; place < n * n; ++place)
                for (const double value : {nan, infinity, -infinity}) {
                    Random random(seed);
                    const int object = isArray(*e) ? random.below(9) : 0;
                    Determinants d(*e, seed++, n, 9, [&](int k, int i, int j) {
                        return k == object && i * n + j == place ? value : random.unit() + (i == j);
                    });
                    d.check();
                    if (!std::isnan(value))
                        continue;
                    if (hasClosedFormula(n)) {
                        EXPECT_TRUE(std::isnan(d(object))) << d.call;
                    } else if (place % (n + 1) == 0) { // on the diagonal
                        EXPECT_TRUE(sameBits(d(object), 0)) << d.call;
                    }
                }
}

// The factor of the limit wraps: at 1023 it is near its maximum, at 1024 it is negative. There each
// call is a long elimination: one of each type and form.
TEST(Det, HasANegativeLimitFromSize1024On)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : {1023, 1024}) {
            if (n == 1024 && e->name != "zonmDet_m_64f" && e->name != "zonmDet_ma_32f")
                continue;
            const double small = elementOf(*e) == Element::f32 ? 0x1p-100 : 0x1p-995;
            Determinants d(*e, seed++, n, 1, [&](int, int i, int j) {
                return i != j ? 0 : i == 0 || i == n - 1 ? small : i == 1 ? 1 / small : 1;
            });
            ASSERT_EQ(d.call.run(), zonStsOk);
            EXPECT_TRUE(sameBits(d(0), n == 1024 ? small : 0)) << d.call;
        }
    EXPECT_GT(singularityLimit(Element::f64, 1023), 0x1p-995);
    EXPECT_LT(singularityLimit(Element::f64, 1024), 0);
}

// What the documentation tells.
TEST(Det, OfTheExamples)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det")) {
        const double smallest = elementOf(*e) == Element::f32 ? 0x1p-126 : 0x1p-1022;
        const auto only = [&](double x) { return [=](int, int, int) { return x; }; };
        Determinants at(*e, seed++, 1, 3, only(2 * smallest));
        at.check();
        EXPECT_TRUE(sameBits(at(0), 0));
        const double above = next(elementOf(*e), 2 * smallest, 1);
        Determinants over(*e, seed++, 1, 3, only(above));
        over.check();
        EXPECT_EQ(over(0), above);
        Determinants exchange(*e, seed++, 2, 3, [](int, int i, int j) { return double(i != j); });
        exchange.check();
        EXPECT_EQ(exchange(0), -1);
        Determinants integers(*e, seed++, 3, 3,
                              [](int, int i, int j) { return i * 3 + j + (i == j); });
        integers.check();
        EXPECT_EQ(integers(0), -5);
    }
}

TEST(Det, ReadsNoRowTooFar)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : sizes)
            for (const int count : {1, 5, 9})
                Determinants(*e, seed++, n, count, Values::uniform, Spread::fenced).check();
}

TEST(Det, ReachesAllOfTheAddressSpace)
{
    if (!hasVastSpace)
        GTEST_SKIP();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7})
            for (const int count : {1, 4, 9})
                for (int round = 0; round < 3; ++round)
                    Determinants(*e, seed++, n, count, Values::uniform, Spread::vast).check();
}

// Objects go one after the other. Without a closed formula the result is 1 before anything is read.
TEST(Det, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("det"))
        for (int n = 1; n <= 7; ++n)
            for (const int count : {1, 4, 9}) {
                // Sizes without a formula have no groups.
                if (count > (isArray(*e) ? hasClosedFormula(n) ? 9 : 4 : 1))
                    continue;
                OneMemory call(*e, seed++, count);
                const Operand &src = call.source("src", {n, n}, Values::uniform);
                call.scratch("buffer", std::size_t(n * n * sizeOf(elementOf(*e)) + 4 * n));
                const Operand &dst = call.plainOutput("dst", call.count());
                call.set("size", n);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k) {
                        if (!hasClosedFormula(n))
                            dst.set(0, k, 0, 1);
                        const Square m(n, [&](int i, int j) { return src(k, i, j); });
                        dst.set(0, k, 0, det::of(elementOf(*e), m, isArray(*e)));
                    }
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

} // namespace
