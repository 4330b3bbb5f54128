// SPDX-License-Identifier: Apache-2.0
// LU decomposition: factors, pivots, and what a singular object leaves, to the last bit.
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>

#include "lu_reference.hpp"
#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

Element elementOf(const Export &e) { return e.element == "32f" ? Element::f32 : Element::f64; }
bool isArray(const Export &e) { return e.argument("count") != nullptr; }

// A call with random layout, judged by the reference object after object: every element of dst and
// pivots has the reference's value, or its old bytes where the reference wrote nothing.
struct Decomposition {
    Call call;
    int n;
    Operand *src, *pivots, *dst;

    Decomposition(const Export &e, std::uint64_t seed, int size, int count,
                  const Call::Generator &matrix, Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), n(size)
    {
        src = &call.source("src", {n, n}, matrix);
        finish(inPlace);
    }
    Decomposition(const Export &e, std::uint64_t seed, int size, int count, Values values,
                  Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), n(size)
    {
        src = &call.source("src", {n, n}, values);
        finish(inPlace);
    }
    void finish(bool inPlace)
    {
        pivots = &call.plainOutput("pivots", n * call.count());
        dst = inPlace ? &call.outputInPlaceOf("src", "dst") : &call.output("dst", {n, n});
        call.set("size", n);
    }

    // The status, after all that the call left is compared.
    ZonStatus check()
    {
        const ZonStatus status = call.run();
        ZonStatus wanted = zonStsOk;
        for (int k = 0; k < call.count(); ++k) {
            std::vector<double> factors(std::size_t(n * n));
            std::vector<bool> written(std::size_t(n * n));
            std::vector<int> order(std::size_t(n), -1);
            const bool isReached = wanted == zonStsOk;
            if (isReached &&
                !lu::decompose(dst->element,
                               {[&](int i, int j) { return src->before(k, i, j); }, nullptr},
                               {[&](int i) { return order[std::size_t(i)]; },
                                [&](int i, int row) { order[std::size_t(i)] = row; }},
                               {[&](int i, int j) { return factors[std::size_t(i * n + j)]; },
                                [&](int i, int j, double value) {
                                    factors[std::size_t(i * n + j)] = value;
                                    written[std::size_t(i * n + j)] = true;
                                }},
                               n))
                wanted = zonStsSingular;
            compare(k, isReached, factors, written, order);
        }
        EXPECT_EQ(status, wanted) << call;
        return status;
    }

  private:
    void compare(int k, bool isReached, const std::vector<double> &factors,
                 const std::vector<bool> &written, const std::vector<int> &order) const
    {
        for (int i = 0; i < n; ++i) {
            if (isReached)
                EXPECT_EQ((*pivots)(0, k * n + i), order[std::size_t(i)])
                    << call << ": pivots of object " << k << ", entry " << i;
            else
                EXPECT_TRUE(pivots->isUntouched(0, k * n + i))
                    << call << ": pivots of object " << k << " behind the singular one";
            for (int j = 0; j < n; ++j) {
                const auto element = std::size_t(i * n + j);
                if (written[element])
                    EXPECT_TRUE(sameBits((*dst)(k, i, j), factors[element]))
                        << call << ": dst[" << k << "](" << i << ", " << j << ") is "
                        << show(dst->element, (*dst)(k, i, j)) << ", expected "
                        << show(dst->element, factors[element]);
                else
                    EXPECT_TRUE(dst->isUntouched(k, i, j))
                        << call << ": dst[" << k << "](" << i << ", " << j << ") was written";
            }
        }
    }
};

constexpr int sizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12};

TEST(LUDecomp, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9})
                for (const Values values : allValues()) {
                    Decomposition(*e, seed, n, count, values).check();
                    ++seed;
                    if (!isArray(*e) && count > 3)
                        break;
                }
}

TEST(LUDecomp, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : {3, 4, 5, 6, 7})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                EXPECT_EQ(Decomposition(*e, seed++, n, 150, Values::uniform, spread).check(),
                          zonStsOk);
}

TEST(LUDecomp, InPlaceIsTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : sizes)
            for (const int count : {1, 4, 7, 9})
                for (const Values values :
                     {Values::uniform, Values::smallIntegers, Values::signedZeros})
                    Decomposition(*e, seed++, n, count, values, Spread::any, true).check();
}

// Objects that need every exchange: permuted triangles, and ties in magnitude.
TEST(LUDecomp, ExchangesRowsAndKeepsTheEarlierOfEquals)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : sizes)
            for (int round = 0; round < 20; ++round) {
                Random random(seed);
                std::vector<int> row(std::size_t(n * 9));
                for (int k = 0; k < 9; ++k) {
                    std::vector<int> order(static_cast<std::size_t>(n));
                    std::iota(order.begin(), order.end(), 0);
                    random.shuffle(order);
                    std::copy(order.begin(), order.end(), row.begin() + k * n);
                }
                // Column 0 is zero but for one row, and so on: each step has one candidate.
                Decomposition triangle(*e, seed, n, 9, [&](int k, int i, int j) {
                    const int position = row[std::size_t(k * n + i)];
                    return position > j ? 0.0 : position == j ? 2.0 + i : 1.0 / (1 + i + j);
                });
                EXPECT_EQ(triangle.check(), zonStsOk);
                for (int k = 0; k < triangle.call.count(); ++k)
                    for (int i = 0; i < n; ++i)
                        EXPECT_EQ(row[std::size_t(k * n + int((*triangle.pivots)(0, k * n + i)))],
                                  i);
                // Nothing but ties at step 0, many later.
                Decomposition ties(*e, seed, n, 9, [&](int, int, int j) {
                    const double sign = random.oneIn(2) ? 1 : -1;
                    return j == 0 ? sign : sign * random.below(3);
                });
                ties.check();
                for (int k = 0; k < ties.call.count() && n > 1; ++k)
                    EXPECT_TRUE(ties.pivots->isUntouched(0, k * n) || (*ties.pivots)(0, k * n) == 0)
                        << ties.call;
                ++seed;
            }
}

// A diagonal with one element at a limit, in rows exchanged at random.
struct AtLimit {
    int n, object, step;
    double pivot;
    std::vector<int> position;

    AtLimit(int size, int k, int s, double value, Random &random)
        : n(size), object(k), step(s), pivot(value), position(std::size_t(size))
    {
        std::iota(position.begin(), position.end(), 0);
        random.shuffle(position);
    }
    double operator()(int k, int i, int j) const
    {
        const int p = position[std::size_t(i)];
        return p != j ? 0 : k == object && p == step ? pivot : 1 + i;
    }
};

TEST(LUDecomp, TestsPivotsAgainstTheLimits)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (int n = 1; n <= 8; ++n)
            for (int step = 0; step < n; ++step)
                for (const int object : {0, 1, 4, 6})
                    for (const int side : {-1, 0, 1})
                        for (const double sign : {1., -1.}) {
                            if (!isArray(*e) && object > 0)
                                continue;
                            const bool f32 = elementOf(*e) == Element::f32;
                            const double limit = lu::limit(elementOf(*e), n);
                            const double away = side < 0 ? 0 : 1e300;
                            const double pivot =
                                side == 0 ? limit
                                : f32 ? double(std::nextafter(float(limit), side < 0 ? 0.f : 1.f))
                                      : std::nextafter(limit, away);
                            Random random(seed);
                            Decomposition d(*e, seed++, n, 7,
                                            AtLimit(n, object, step, sign * pivot, random));
                            const bool straight = n >= 3 && n <= 6;
                            const bool fails = straight ? side < 0 : side <= 0;
                            EXPECT_EQ(d.check(), fails ? zonStsSingular : zonStsOk)
                                << d.call << " step " << step << " side " << side;
                        }
}

// A singular object at each place of an array, failing at each step: whole before it, the stated
// state in it, nothing behind it.
TEST(LUDecomp, EndsAtTheFirstSingularObject)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp")) {
        if (!isArray(*e))
            continue;
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8})
            for (int count = 1; count <= 9; ++count)
                for (int singular = 0; singular < count; ++singular) {
                    Random random(seed);
                    // A column of zeros stays one, and its step has no pivot.
                    const int step = random.below(n);
                    Decomposition d(*e, seed++, n, count, [&](int k, int i, int j) {
                        const double big = i == j ? 64 : random.between(-1, 1);
                        return k == singular && j == step ? 0 : big;
                    });
                    EXPECT_EQ(d.check(), zonStsSingular) << d.call;
                    EXPECT_FALSE(d.pivots->isUntouched(0, singular * n));
                    EXPECT_TRUE(singular + 1 == count ||
                                d.pivots->isUntouched(0, (singular + 1) * n));
                }
    }
}

TEST(LUDecomp, TakesNotANumberAndInfinitiesAtEachPlace)
{
    const double special[] = {std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()};
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (int n = 1; n <= 8; ++n)
            for (int place = 0; place < n * n; ++place)
                for (const double value : special) {
                    Random random(seed);
                    const int object = isArray(*e) ? random.below(9) : 0;
                    Decomposition d(*e, seed++, n, 9, [&](int k, int i, int j) {
                        return k == object && i * n + j == place ? value : random.unit() + (i == j);
                    });
                    d.check();
                    for (int k = 0; k < d.call.count(); ++k) {
                        std::vector<int> order;
                        for (int i = 0; i < n; ++i)
                            order.push_back(int((*d.pivots)(0, k * n + i)));
                        if (d.pivots->isUntouched(0, k * n))
                            continue;
                        std::sort(order.begin(), order.end());
                        for (int i = 0; i < n; ++i)
                            EXPECT_EQ(order[std::size_t(i)], i) << d.call;
                    }
                }
}

TEST(LUDecomp, OfANaNIsOk)
{
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : sizes) {
            Decomposition d(*e, 1, n, 5,
                            [](int, int, int) { return std::numeric_limits<double>::quiet_NaN(); });
            EXPECT_EQ(d.check(), zonStsOk) << d.call;
        }
}

// What the documentation tells.
TEST(LUDecomp, OfTheExamples)
{
    const auto all = [](double value) { return [=](int, int, int) { return value; }; };
    const auto diagonal = [](double value) {
        return [=](int, int i, int j) { return i == j ? value : 0; };
    };
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp")) {
        Decomposition small(*e, seed++, 2, 3, [](int, int i, int j) { return 1 + 2 * i + j; });
        EXPECT_EQ(small.check(), zonStsOk);
        EXPECT_EQ((*small.pivots)(0, 0), 1);
        EXPECT_EQ((*small.pivots)(0, 1), 0);
        const Operand &d = *small.dst;
        EXPECT_TRUE(sameBits(d(0, 0, 0), d.round(1. / 3)));
        EXPECT_EQ(d(0, 1, 0), 3);
        EXPECT_EQ(d(0, 1, 1), 4);
        EXPECT_NEAR(d(0, 0, 1), 2. / 3, 1e-7);
        for (const int n : sizes) {
            Decomposition identity(*e, seed++, n, 3, diagonal(1));
            EXPECT_EQ(identity.check(), zonStsOk);
            for (int i = 0; i < n; ++i)
                EXPECT_EQ((*identity.pivots)(0, i), i);
            identity.call.expect("dst", diagonal(1));
            EXPECT_EQ(Decomposition(*e, seed++, n, 3, all(0)).check(), zonStsSingular);
        }
        if (elementOf(*e) == Element::f32)
            continue;
        EXPECT_EQ(Decomposition(*e, seed++, 1, 1, all(2.220446049250313e-16)).check(),
                  zonStsSingular);
        EXPECT_EQ(Decomposition(*e, seed++, 1, 1, all(2.3e-16)).check(), zonStsOk);
        EXPECT_EQ(Decomposition(*e, seed++, 3, 3, diagonal(1e-300)).check(), zonStsOk);
        EXPECT_EQ(Decomposition(*e, seed++, 2, 3, diagonal(1e-300)).check(), zonStsSingular);
        EXPECT_EQ(Decomposition(*e, seed++, 7, 3, diagonal(1e-300)).check(), zonStsSingular);
    }
}

// |PA - LU| <= n eps |L| |U|, element by element.
TEST(LUDecomp, GivesTheMatrixBack)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (int n = 1; n <= 12; ++n)
            for (int round = 0; round < 10; ++round) {
                Decomposition d(*e, seed++, n, 9, Values::uniform);
                ASSERT_EQ(d.call.run(), zonStsOk) << d.call;
                const double eps = elementOf(*e) == Element::f32
                                       ? double(std::numeric_limits<float>::epsilon())
                                       : std::numeric_limits<double>::epsilon();
                for (int k = 0; k < d.call.count(); ++k)
                    for (int i = 0; i < n; ++i)
                        for (int j = 0; j < n; ++j) {
                            const auto row = [&](int r) { return int((*d.pivots)(0, k * n + r)); };
                            long double sum = 0, magnitude = 0;
                            for (int m = 0; m <= std::min(i, j); ++m) {
                                const long double l = m == i ? 1 : (*d.dst)(k, row(i), m);
                                const long double product = l * (*d.dst)(k, row(m), j);
                                sum += product;
                                magnitude += std::fabs(product);
                                EXPECT_LE(std::fabs(l), 1 + eps) << d.call;
                            }
                            EXPECT_LE(std::fabs(sum - (*d.src)(k, row(i), j)), n * eps * magnitude)
                                << d.call << " object " << k << " (" << i << ", " << j << ')';
                        }
            }
}

TEST(LUDecomp, ReadsAndWritesNoRowTooFar)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : sizes)
            for (const int count : {1, 5, 9})
                Decomposition(*e, seed++, n, count, Values::uniform, Spread::fenced).check();
}

TEST(LUDecomp, ReachesAllOfTheAddressSpace)
{
    if (!hasVastSpace)
        GTEST_SKIP();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : sizes)
            for (const int count : {1, 4, 9})
                for (int round = 0; round < 3; ++round)
                    Decomposition(*e, seed++, n, count, Values::uniform, Spread::vast).check();
}

// Objects whose results or pivots meet the sources of others behave as one object after the other,
// and rows that overlap as the reference's reads and writes do.
TEST(LUDecomp, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_decomp"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8})
            for (const int count : {1, 4, 9}) {
                if (!isArray(*e) && count > 1)
                    continue;
                OneMemory call(*e, seed++, count);
                const Operand &src = call.source("src", {n, n}, Values::uniform);
                const Operand &pivots = call.plainOutput("pivots", n * call.count());
                const Operand &dst = call.output("dst", {n, n});
                call.set("size", n);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k)
                        if (!lu::decompose(dst.element, lu::matrixOf(src, k),
                                           lu::pivotsOf(pivots, n * k), lu::matrixOf(dst, k), n))
                            return zonStsSingular;
                    return zonStsOk;
                };
                const bool isPathOfItsOwn = n == 2 || n == 3 || n == 6 || n == 7;
                call.check(isPathOfItsOwn ? Meeting::any : Meeting::none, reference);
                call.checkThreads(reference);
            }
}

} // namespace
