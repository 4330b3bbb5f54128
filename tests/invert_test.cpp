// SPDX-License-Identifier: Apache-2.0
// Inverses, and what a singular matrix leaves, to the last bit.
#include <gtest/gtest.h>
#include <limits>

#include "invert_reference.hpp"
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
bool mayBeInPlace(int n) { return n == 1 || hasClosedFormula(n); }

double next(Element e, double x, double towards)
{
    return e == Element::f32 ? double(std::nextafter(float(x), float(towards)))
                             : std::nextafter(x, towards);
}

struct Inverses {
    Call call;
    int n;
    Operand *src, *dst;

    template <class Source>
    Inverses(const Export &e, std::uint64_t seed, int size, int count, Source source,
             Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), n(size)
    {
        src = &call.source("src", {n, n}, source);
        dst = inPlace ? &call.outputInPlaceOf("src", "dst") : &call.output("dst", {n, n});
        if (mayBeInPlace(n)) // does not touch the buffer
            call.set("buffer", reinterpret_cast<std::byte *>(std::uintptr_t(16)));
        else
            call.scratch("buffer",
                         std::size_t(n) * std::size_t(n) * std::size_t(sizeOf(dst->element)) +
                             4 * std::size_t(n));
        call.set("size", n);
    }

    // The status, after all that the call left is compared.
    ZonStatus check()
    {
        const ZonStatus status = call.run();
        ZonStatus wanted = zonStsOk;
        for (int k = 0; k < call.count(); ++k) {
            Square x(n);
            if (wanted == zonStsOk &&
                !inverse::of(dst->element,
                             Square(n, [&](int i, int j) { return src->before(k, i, j); }), x))
                wanted = zonStsSingular;
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j) {
                    if (wanted != zonStsOk)
                        EXPECT_TRUE(dst->isUntouched(k, i, j)) << call << " object " << k;
                    else
                        EXPECT_TRUE(sameBits((*dst)(k, i, j), dst->round(x(i, j))))
                            << call << ": dst[" << k << "](" << i << ", " << j << ") is "
                            << show(dst->element, (*dst)(k, i, j)) << ", expected "
                            << show(dst->element, dst->round(x(i, j)));
                }
        }
        EXPECT_EQ(status, wanted) << call;
        return status;
    }
};

auto diagonal(double first, double second)
{
    return [=](int, int i, int j) { return i != j ? 0 : i == 0 ? first : second; };
}

TEST(Invert, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9})
                for (const Values values : allValues()) {
                    if (count > (n == 12 ? 1 : n > 7 ? 3 : 9))
                        break;
                    Inverses(*e, seed++, n, count, values).check();
                    if (!isArray(*e) && count > 3)
                        break;
                }
}

TEST(Invert, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                EXPECT_EQ(
                    Inverses(*e, seed++, n, n < 7 ? 150 : 20, Values::uniform, spread).check(),
                    zonStsOk);
}

TEST(Invert, InPlaceIsTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (const int n : {1, 3, 4, 5, 6})
            for (const int count : {1, 4, 7, 9})
                for (const Values values :
                     {Values::uniform, Values::smallIntegers, Values::signedZeros})
                    Inverses(*e, seed++, n, count, values, Spread::any, true).check();
}

// Each path has its own sense of the limit.
TEST(Invert, TestsAgainstTheLimit)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (int n = 1; n <= 8; ++n)
            for (const int object : {0, 1, 4, 6})
                for (const int side : {-1, 0, 1})
                    for (const double sign : {1., -1.}) {
                        if (!isArray(*e) && object > 0)
                            continue;
                        const double limit = singularityLimit(elementOf(*e), n);
                        const double value =
                            sign *
                            (side == 0 ? limit : next(elementOf(*e), limit, side < 0 ? 0 : 1));
                        const auto with = [&](int step, double others) {
                            return [=](int k, int i, int j) {
                                return i != j ? 0 : k == object && i == step ? value : others;
                            };
                        };
                        // The determinant, by way of its last pivot.
                        Inverses det(*e, seed++, n, 7, with(n - 1, 1));
                        const bool isStrict = hasClosedFormula(n);
                        EXPECT_EQ(det.check(),
                                  (isStrict ? side < 0 : side <= 0) ? zonStsSingular : zonStsOk)
                            << det.call << " side " << side;
                        // A pivot, of a determinant that is far from the limit. Formulas have none,
                        // and other sizes no groups.
                        for (int step = 0; step < (isStrict ? 1 : n - 1); ++step) {
                            if (!isStrict && object > 1)
                                break;
                            Inverses pivot(*e, seed++, n, 7, with(step, 16));
                            EXPECT_EQ(pivot.check(),
                                      !hasClosedFormula(n) && side < 0 ? zonStsSingular : zonStsOk)
                                << pivot.call << " step " << step << " side " << side;
                        }
                    }
}

// Whole before the singular object, nothing written in it and behind it.
TEST(Invert, EndsAtTheFirstSingularObject)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert")) {
        if (!isArray(*e))
            continue;
        for (int n = 1; n <= 8; ++n)
            for (int count = 1; count <= 9; ++count)
                for (int singular = 0; singular < count; ++singular)
                    for (const bool inPlace : {false, true}) {
                        if (inPlace && !mayBeInPlace(n))
                            continue;
                        Random random(seed);
                        const int empty = random.below(n);
                        Inverses x(
                            *e, seed++, n, count,
                            [&](int k, int i, int j) {
                                const double big = i == j ? 64 : random.between(-1, 1);
                                return k == singular && j == empty ? 0 : big;
                            },
                            Spread::any, inPlace);
                        EXPECT_EQ(x.check(), zonStsSingular) << x.call;
                    }
    }
}

TEST(Invert, TakesNotANumberAndInfinitiesAtEachPlace)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (int n = 1; n <= 7; ++n)
            for (int place = 0; place < n * n; ++place)
                for (const double value : {nan, infinity, -infinity}) {
                    Random random(seed);
                    const int object = isArray(*e) ? random.below(5) : 0;
                    Inverses x(*e, seed++, n, 5, [&](int k, int i, int j) {
                        return k == object && i * n + j == place ? value : random.unit() + (i == j);
                    });
                    const ZonStatus status = x.check();
                    if (!std::isnan(value))
                        continue;
                    EXPECT_EQ(status, n == 1 ? zonStsSingular : zonStsOk) << x.call;
                    for (int i = 0; i < n && n > 1; ++i)
                        for (int j = 0; j < n; ++j)
                            EXPECT_TRUE(std::isnan((*x.dst)(object, i, j))) << x.call;
                }
}

// A minor that is 0 counts as the limit where it is found by elimination, and is 0 elsewhere, with
// the sign that the negated product leaves.
TEST(Invert, OfADiagonalHasNoZerosBySizes2And7)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (const int n : {2, 3, 4, 5, 6, 7, 8})
            for (const double d : {1., 4.}) {
                Inverses x(*e, seed++, n, 6, diagonal(2, d));
                EXPECT_EQ(x.check(), zonStsOk);
                const double det = 2 * std::pow(d, n - 1);
                const double limit = singularityLimit(elementOf(*e), n);
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j < n; ++j) {
                        const double sign = (i + j) % 2 == 0 ? 1 : -1;
                        const double got = (*x.dst)(0, i, j);
                        if (i == j)
                            EXPECT_EQ(got, i == 0 ? 0.5 : 1 / d) << x.call;
                        else if (hasClosedFormula(n))
                            EXPECT_TRUE(sameBits(got, sign * 0.)) << x.call;
                        else if (n == 2)
                            EXPECT_EQ(got, -limit / det) << x.call;
                        else
                            EXPECT_TRUE(got != 0 && std::fabs(got) < 1e-30) << x.call;
                    }
            }
}

// Products of integer triangles with ones on the diagonal have integer inverses.
TEST(Invert, OfAUnimodularMatrixIsExact)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (int n = 3; n <= 6; ++n)
            for (int round = 0; round < 20; ++round) {
                Random random(seed);
                const auto triangle = [&](bool upper) {
                    return Square(n, [&](int i, int j) {
                        return i == j ? 1. : (i < j) == upper ? double(random.between(-1, 1)) : 0.;
                    });
                };
                const Square l = triangle(false), u = triangle(true);
                Inverses x(*e, seed++, n, 5, [&](int, int i, int j) {
                    double sum = 0;
                    for (int p = 0; p < n; ++p)
                        sum += l(i, p) * u(p, j);
                    return sum;
                });
                EXPECT_EQ(x.check(), zonStsOk);
                for (int k = 0; k < x.call.count(); ++k)
                    for (int i = 0; i < n; ++i)
                        for (int j = 0; j < n; ++j) {
                            double sum = 0;
                            for (int p = 0; p < n; ++p)
                                sum += (*x.src)(k, i, p) * (*x.dst)(k, p, j);
                            EXPECT_EQ(sum, i == j) << x.call;
                        }
            }
}

// Powers of two that multiply the rows divide the columns of the inverse, without rounding.
TEST(Invert, OfAGradedMatrixIsScaledExactly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (int n = 3; n <= 6; ++n) {
            Random random(seed);
            const Square m(n,
                           [&](int, int) { return draw(Values::uniform, elementOf(*e), random); });
            const auto scale = [](int i) { return std::ldexp(1, 5 - 3 * i); };
            Inverses plain(*e, seed++, n, 5, [&](int, int i, int j) { return m(i, j); });
            Inverses graded(*e, seed++, n, 5,
                            [&](int, int i, int j) { return m(i, j) * scale(i); });
            EXPECT_EQ(plain.check(), zonStsOk);
            EXPECT_EQ(graded.check(), zonStsOk);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    EXPECT_EQ((*graded.dst)(0, i, j) * scale(j), (*plain.dst)(0, i, j))
                        << graded.call;
        }
}

// |A X - I| for matrices whose last row is the sum of the others but for a small part.
TEST(Invert, IsTheInverse)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (int n = 1; n <= 9; ++n)
            for (const double apart : {1., 1e-1, 1e-3}) {
                Random random(seed);
                Square m(n);
                Inverses x(*e, seed++, n, 5, [&](int, int i, int j) {
                    if (i == 0 && j == 0)
                        for (int r = 0; r < n; ++r)
                            for (int c = 0; c < n; ++c) {
                                m(r, c) = random.unit() / n + (r == c);
                                for (int p = 0; p < r && r == n - 1; ++p)
                                    m(r, c) = m(r, c) * (p == 0 ? apart : 1) + m(p, c);
                            }
                    return m(i, j);
                });
                ASSERT_EQ(x.check(), zonStsOk) << x.call;
                const double eps = elementOf(*e) == Element::f32 ? 0x1p-23 : 0x1p-52;
                for (int k = 0; k < x.call.count(); ++k)
                    for (int i = 0; i < n; ++i)
                        for (int j = 0; j < n; ++j) {
                            double sum = 0;
                            for (int p = 0; p < n; ++p)
                                sum += (*x.src)(k, i, p) * (*x.dst)(k, p, j);
                            EXPECT_LE(std::fabs(sum - (i == j)), 4 * n * eps / apart)
                                << x.call << " object " << k << " (" << i << ", " << j << ')';
                        }
            }
}

// What the documentation tells.
TEST(Invert, OfTheExamples)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert")) {
        const double smallest = elementOf(*e) == Element::f32 ? 0x1p-126 : 0x1p-1022;
        EXPECT_EQ(Inverses(*e, seed++, 1, 3, diagonal(2 * smallest, 0)).check(), zonStsSingular);
        EXPECT_EQ(Inverses(*e, seed++, 1, 3, diagonal(nan, 0)).check(), zonStsSingular);
        Inverses identity(*e, seed++, 2, 3, diagonal(1, 1));
        EXPECT_EQ(identity.check(), zonStsOk);
        EXPECT_EQ((*identity.dst)(0, 0, 1), -16 * smallest);
        EXPECT_EQ((*identity.dst)(0, 1, 0), -16 * smallest);
        Inverses two(*e, seed++, 2, 3, diagonal(2, 4));
        EXPECT_EQ(two.check(), zonStsOk);
        EXPECT_EQ((*two.dst)(0, 0, 0), 0.5);
        EXPECT_EQ((*two.dst)(0, 1, 1), 0.25);
        EXPECT_EQ((*two.dst)(0, 0, 1), -2 * smallest);
    }
}

TEST(Invert, ReadsAndWritesNoRowTooFar)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (const int n : sizes)
            for (const int count : {1, 5, 9})
                Inverses(*e, seed++, n, n < 8 ? count : 1, Values::uniform, Spread::fenced).check();
}

TEST(Invert, ReachesAllOfTheAddressSpace)
{
    if (!hasVastSpace)
        GTEST_SKIP();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7})
            for (const int count : {1, 4, 9})
                for (int round = 0; round < 3; ++round)
                    Inverses(*e, seed++, n, count, Values::uniform, Spread::vast).check();
}

// Where dst may be src, objects whose results meet the sources of others behave as one object after
// the other, each read whole before it is written.
TEST(Invert, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("invert"))
        for (int n = 1; n <= 7; ++n)
            for (const int count : {1, 4, 9}) {
                // Sizes without a formula have no groups.
                if (count > (isArray(*e) ? hasClosedFormula(n) ? 9 : 4 : 1))
                    continue;
                OneMemory call(*e, seed++, count);
                const Operand &src = call.source("src", {n, n}, Values::uniform);
                call.scratch("buffer", std::size_t(n * n * sizeOf(elementOf(*e)) + 4 * n));
                const Operand &dst = call.output("dst", {n, n});
                call.set("size", n);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k) {
                        Square x(n);
                        if (!inverse::of(dst.element,
                                         Square(n, [&](int i, int j) { return src(k, i, j); }), x))
                            return zonStsSingular;
                        // By rows, but cofactor by cofactor where each is an elimination.
                        for (int i = 0; i < n; ++i)
                            for (int j = 0; j < n; ++j)
                                if (mayBeInPlace(n))
                                    dst.set(k, i, j, x(i, j));
                                else
                                    dst.set(k, j, i, x(j, i));
                    }
                    return zonStsOk;
                };
                call.check(mayBeInPlace(n) ? Meeting::any : Meeting::ofDst, reference);
                call.checkThreads(reference);
            }
}

} // namespace
