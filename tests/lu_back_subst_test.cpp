// SPDX-License-Identifier: Apache-2.0
// LU back substitution: solutions to the last bit, error bounds, in-place use, overlap.
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
bool isShared(const Export &e) { return e.group == "mva"; }

// A call with random layout and random pivots.
struct Substitution {
    Call call;
    int n;
    bool shared;
    const Operand *factors, *b, *dst;
    std::vector<int> pivots;

    template <class M, class V>
    Substitution(const Export &e, std::uint64_t seed, int size, int count, M matrix, V vector,
                 Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), n(size), shared(isShared(e))
    {
        factors = &call.source("src1", {n, n}, matrix);
        b = &call.source("src2", {n}, vector);
        for (int k = 0; k < (shared ? 1 : call.count()); ++k) {
            std::vector<int> order(static_cast<std::size_t>(n));
            std::iota(order.begin(), order.end(), 0);
            call.random().shuffle(order);
            pivots.insert(pivots.end(), order.begin(), order.end());
        }
        call.plainSource("pivots", int(pivots.size()),
                         [&](int, int i, int) { return pivots[std::size_t(i)]; });
        dst = inPlace ? &call.outputInPlaceOf("src2", "dst") : &call.output("dst", {n});
        call.set("size", n);
    }
    int pivot(int k, int i) const { return pivots[std::size_t((shared ? 0 : k * n) + i)]; }

    void check()
    {
        ASSERT_EQ(call.run(), zonStsOk) << call;
        std::vector<double> x(static_cast<std::size_t>(n * call.count()));
        for (int k = 0; k < call.count(); ++k) {
            double *const xk = &x[std::size_t(k * n)];
            lu::substitute(
                dst->element, {[&](int i, int j) { return (*factors)(k, i, j); }, nullptr},
                {[&](int i) { return pivot(k, i); }, nullptr},
                {[&](int i) { return b->before(k, i); }, nullptr},
                {[=](int i) { return xk[i]; }, [=](int i, double v) { xk[i] = v; }}, n, shared);
        }
        call.expect("dst", [&](int k, int i, int) { return x[std::size_t(k * n + i)]; });
    }
};

constexpr int sizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12};

TEST(LUBackSubst, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9})
                for (const Values values : allValues()) {
                    Substitution(*e, seed++, n, count, values, values).check();
                    Substitution(*e, seed++, n, count, Values::uniform, values).check();
                    if (!isArray(*e) && count > 3)
                        break;
                }
}

TEST(LUBackSubst, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : sizes)
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                Substitution(*e, seed++, n, 150, Values::uniform, Values::uniform, spread).check();
}

TEST(LUBackSubst, InPlaceIsTheSameForSizes3To6)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : {3, 4, 5, 6})
            for (const int count : {1, 3, 4, 7, 9, 13})
                Substitution(*e, seed++, n, count, Values::uniform, Values::uniform, Spread::any,
                             true)
                    .check();
}

// The order of size 3, as it is stated.
TEST(LUBackSubst, OfSize3SubtractsTheNearestColumnFirst)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (int round = 0; round < 50; ++round) {
            Substitution s(*e, seed++, 3, 9, Values::uniform, Values::uniform);
            ASSERT_EQ(s.call.run(), zonStsOk);
            s.call.expect("dst", [&](int k, int element, int) {
                const auto f = [&](int i, int j) { return (*s.factors)(k, s.pivot(k, i), j); };
                const auto divided = [&](double a, int i) {
                    return s.shared ? a * (1 / f(i, i)) : a / f(i, i);
                };
                const double y0 = (*s.b)(k, s.pivot(k, 0));
                const double y1 = (*s.b)(k, s.pivot(k, 1)) - f(1, 0) * y0;
                const double y2 = ((*s.b)(k, s.pivot(k, 2)) - f(2, 1) * y1) - f(2, 0) * y0;
                const double x2 = divided(y2, 2);
                const double x1 = divided(y1 - f(1, 2) * x2, 1);
                const double x0 = divided((y0 - f(0, 1) * x1) - f(0, 2) * x2, 0);
                return element == 0 ? x0 : element == 1 ? x1 : x2;
            });
        }
}

// Whatever the order of the subtractions: |L U x - P b| <= gamma (|L| |U| |x| + |L| |y|), with
// gamma of 3n roundings in double, and one rounding of x more where it is stored as 32f.
TEST(LUBackSubst, IsBackwardStable)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : sizes)
            for (int round = 0; round < 10; ++round) {
                Substitution s(
                    *e, seed++, n, 9,
                    [&](int, int i, int j) { return std::sin(1 + i * 7 + j * j) + 0.1; },
                    Values::uniform);
                ASSERT_EQ(s.call.run(), zonStsOk);
                const bool f32 = elementOf(*e) == Element::f32;
                const bool roundsInside = f32 && !lu::isStraight(n);
                const long double eps = roundsInside ? std::numeric_limits<float>::epsilon()
                                                     : std::numeric_limits<double>::epsilon();
                const long double atStore = f32 ? std::numeric_limits<float>::epsilon() : 0;
                for (int k = 0; k < s.call.count(); ++k) {
                    const auto f = [&](int i, int j) {
                        return (long double)((*s.factors)(k, s.pivot(k, i), j));
                    };
                    std::vector<long double> ux(std::size_t(n), 0), uxMagnitude(std::size_t(n), 0);
                    for (int i = 0; i < n; ++i)
                        for (int j = i; j < n; ++j) {
                            const long double product = f(i, j) * (*s.dst)(k, j);
                            ux[std::size_t(i)] += product;
                            uxMagnitude[std::size_t(i)] += std::fabs(product);
                        }
                    for (int i = 0; i < n; ++i) {
                        long double sum = ux[std::size_t(i)],
                                    magnitude = uxMagnitude[std::size_t(i)];
                        for (int j = 0; j < i; ++j) {
                            sum += f(i, j) * ux[std::size_t(j)];
                            magnitude += std::fabs(f(i, j)) * uxMagnitude[std::size_t(j)];
                        }
                        const long double residual = std::fabs(sum - (*s.b)(k, s.pivot(k, i)));
                        EXPECT_LE(residual, (3 * n * eps + atStore) * magnitude)
                            << s.call << " object " << k << " row " << i;
                    }
                }
            }
}

// The name of the same export for another group.
std::string inGroup(const Export &e, const std::string &group)
{
    return e.operation + '_' + group + '_' + e.element +
           (e.description.empty() ? "" : '_' + e.description);
}

// One matrix for many vectors multiplies with reciprocals at sizes 3 to 6 and divides elsewhere; a
// matrix for each divides always. Also with one vector.
TEST(LUBackSubst, OfASharedMatrixMultipliesWithReciprocals)
{
    for (const Export *e : exportsOf("lu_back_subst")) {
        if (e->group != "mva")
            continue;
        for (int n = 1; n <= 8; ++n)
            for (const int count : {1, 3, 4, 9}) {
                int different = 0;
                for (std::uint64_t seed = 1; seed <= 40; ++seed) {
                    // x = b / 3: with a diagonal matrix nothing else rounds.
                    const auto matrix = [&](int, int i, int j) { return i == j ? 3. : 0.; };
                    const auto vector = [&](int, int, int) { return double(seed * 4 + 1); };
                    const Export &own = exportNamed(inGroup(*e, "mava"));
                    Call a(*e, seed, count), b(own, seed, count);
                    for (Call *call : {&a, &b}) {
                        call->source("src1", {n, n}, matrix);
                        call->source("src2", {n}, vector);
                        call->plainSource("pivots", n * count,
                                          [&](int, int i, int) { return i % n; });
                        call->output("dst", {n});
                        call->set("size", n);
                        ASSERT_EQ(call->run(), zonStsOk);
                    }
                    for (int k = 0; k < count; ++k)
                        for (int i = 0; i < n; ++i) {
                            const double exact = a["dst"].round(double(seed * 4 + 1) / 3);
                            EXPECT_TRUE(sameBits(b["dst"](k, i), exact)) << b;
                            different += !sameBits(a["dst"](k, i), exact);
                        }
                }
                // In 32f both round to the same: the quotient is correct in double to the last bit
                // or its neighbour.
                if (e->element == "64f" && n >= 3 && n <= 6)
                    EXPECT_GT(different, 0) << e->name << ' ' << n;
                else
                    EXPECT_EQ(different, 0) << e->name << ' ' << n;
            }
    }
}

TEST(LUBackSubst, DividesByZeroWithoutComplaint)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : sizes)
            for (int zero = 0; zero < n; ++zero) {
                const auto matrix = [&](int, int i, int j) { return i == j && i != zero ? 2 : 0; };
                Call call(*e, seed++, isArray(*e) ? 9 : 1);
                call.source("src1", {n, n}, matrix);
                call.source("src2", {n}, [](int, int i, int) { return i + 1; });
                const int runs = isShared(*e) ? 1 : call.count();
                call.plainSource("pivots", n * runs, [&](int, int i, int) { return i % n; });
                const Operand &dst = call.output("dst", {n});
                call.set("size", n);
                EXPECT_EQ(call.run(), zonStsOk) << call;
                for (int k = 0; k < call.count(); ++k)
                    EXPECT_FALSE(std::isfinite(dst(k, zero))) << call;
            }
}

// Decomposes, multiplies a known vector, solves.
TEST(LUBackSubst, SolvesWhatWasDecomposed)
{
    std::uint64_t seed = 1;
    for (const char *element : {"32f", "64f"})
        for (const char *tail : {"", "_L", "_P"})
            for (int n = 1; n <= 12; ++n) {
                const std::string type = std::string(element) + tail;
                const int count = 9;
                Call decompose(exportNamed("zonmLUDecomp_ma_" + type), seed, count);
                Random random(seed);
                const Operand &a = decompose.source("src", {n, n}, [&](int, int i, int j) {
                    return random.unit() - 0.5 + (i == (j + 1) % n ? n : 0);
                });
                const Operand &pivots = decompose.plainOutput("pivots", n * count);
                const Operand &factors = decompose.output("dst", {n, n});
                decompose.set("size", n);
                ASSERT_EQ(decompose.run(), zonStsOk) << decompose;

                Call solve(exportNamed("zonmLUBackSubst_mava_" + type), seed++, count);
                solve.source("src1", {n, n}, [&](int k, int i, int j) { return factors(k, i, j); });
                solve.plainSource("pivots", n * count,
                                  [&](int, int i, int) { return pivots(0, i); });
                const auto x = [](int k, int i) { return 1 + (k + 2 * i) % 5; };
                solve.source("src2", {n}, [&](int k, int i, int) {
                    double sum = 0;
                    for (int j = 0; j < n; ++j)
                        sum += a(k, i, j) * x(k, j);
                    return sum;
                });
                const Operand &dst = solve.output("dst", {n});
                solve.set("size", n);
                ASSERT_EQ(solve.run(), zonStsOk) << solve;
                const double tolerance = std::string(element) == "32f" ? 1e-4 : 1e-12;
                for (int k = 0; k < count; ++k)
                    for (int i = 0; i < n; ++i)
                        EXPECT_NEAR(dst(k, i), x(k, i), tolerance) << solve;
            }
}

// So many large systems that another path would pay: each is still what a call of its own gives.
TEST(LUBackSubst, OfManyLargeSystemsIsThatOfEach)
{
    constexpr int n = 12, count = 4000, row = n * sizeof(double), element = sizeof(double);
    Random random(1);
    std::vector<double> a(std::size_t(n * n * count)), b(std::size_t(n * count)), x(b), one(n);
    std::vector<std::int32_t> pivots(std::size_t(n * count));
    for (double &v : a)
        v = random.unit() - 0.5;
    for (double &v : b)
        v = random.unit() - 0.5;
    ASSERT_EQ(zonmLUDecomp_ma_64f(a.data(), n * row, row, element, pivots.data(), a.data(), n * row,
                                  row, element, n, count),
              zonStsOk);
    ASSERT_EQ(zonmLUBackSubst_mava_64f(a.data(), n * row, row, element, pivots.data(), b.data(),
                                       row, element, x.data(), row, element, n, count),
              zonStsOk);
    for (std::size_t k = 0; k < count; ++k) {
        ASSERT_EQ(zonmLUBackSubst_mv_64f(&a[k * n * n], row, element, &pivots[k * n], &b[k * n],
                                         element, one.data(), element, n),
                  zonStsOk);
        for (std::size_t i = 0; i < n; ++i)
            ASSERT_TRUE(sameBits(one[i], x[k * n + i])) << "system " << k << ", element " << i;
    }
}

TEST(LUBackSubst, ReadsAndWritesNoRowTooFar)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : sizes)
            for (const int count : {1, 5, 9})
                Substitution(*e, seed++, n, count, Values::uniform, Values::uniform, Spread::fenced)
                    .check();
}

TEST(LUBackSubst, ReachesAllOfTheAddressSpace)
{
    if (!hasVastSpace)
        GTEST_SKIP();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : sizes)
            for (const int count : {1, 4, 9})
                for (int round = 0; round < 3; ++round)
                    Substitution(*e, seed++, n, count, Values::uniform, Values::uniform,
                                 Spread::vast)
                        .check();
}

// All objects in their order. At sizes 3 to 6 a shared matrix is read once.
void substituteAll(const OneMemory &call, const Operand &a, const Operand &pivots, const Operand &b,
                   const Operand &dst, int n, bool shared)
{
    const bool held = shared && lu::isStraight(n);
    std::vector<double> copy;
    for (int i = 0; i < n * n && held; ++i)
        copy.push_back(a(0, i / n, i % n));
    const lu::MatrixIn heldMatrix{[&](int i, int j) { return copy[std::size_t(i * n + j)]; },
                                  nullptr};
    for (int k = 0; k < call.count(); ++k)
        lu::substitute(dst.element, held ? heldMatrix : lu::matrixOf(a, k),
                       lu::pivotsOf(pivots, shared ? 0 : n * k), lu::vectorOf(b, k),
                       lu::vectorOf(dst, k), n, shared);
}

TEST(LUBackSubst, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("lu_back_subst"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8})
            for (const int count : {1, 4, 9}) {
                if (!isArray(*e) && count > 1)
                    continue;
                OneMemory call(*e, seed++, count);
                const Operand &a = call.source("src1", {n, n}, Values::uniform);
                const Operand &pivots =
                    call.plainSource("pivots", n * (isShared(*e) ? 1 : call.count()),
                                     [&](int, int i, int) { return n - 1 - i % n; });
                const Operand &b = call.source("src2", {n}, Values::uniform);
                const Operand &dst = call.output("dst", {n});
                call.set("size", n);
                const auto reference = [&] {
                    substituteAll(call, a, pivots, b, dst, n, isShared(*e));
                    return zonStsOk;
                };
                const bool isPathOfItsOwn = n == 2 || n == 3 || n == 6 || n == 7;
                call.check(isPathOfItsOwn ? Meeting::any : Meeting::none, reference);
                call.checkThreads(reference);
            }
}

// The solution of object 0 is the pivots of a later object, also of the last one: the bits of a
// number are row numbers.
TEST(LUBackSubst, OfPivotsThatAnEarlierObjectWrites)
{
    for (const Export *e : exportsOf("lu_back_subst")) {
        if (e->group != "mava")
            continue;
        for (const auto &[order, later] : {std::pair{2, 1}, {2, 3}, {3, 1}, {3, 3}}) {
            constexpr int count = 4;
            const int n = order; // lambdas cannot hold a binding
            OneMemory call(*e, 1, count);
            const Element element = elementOf(*e);
            const int size = sizeOf(element);
            // Row numbers other than those that stand there, for that object and the next.
            const std::vector<std::int32_t> rows =
                n == 2 ? std::vector<std::int32_t>{1, 0, 1, 0}
                       : std::vector<std::int32_t>{2, 0, 1, 1, 2, 0};
            const Operand &a = call.source("src1", {n, n}, [&](int k, int i, int j) {
                return k == 0 ? i == j : call.random().unit() + 1;
            });
            const Operand &pivots =
                call.plainSource("pivots", n * count, [&](int, int i, int) { return i % n; });
            const Operand &b = call.source("src2", {n}, [&](int k, int i, int) {
                return k == 0 ? load(element,
                                     reinterpret_cast<const std::byte *>(rows.data()) + i * size)
                              : call.random().unit();
            });
            const Operand &dst = call.output("dst", {n});
            call.set("size", n);
            const std::vector<Place> places = {{0, 80, n * size, size},
                                               {1024, 0, 0, 4},
                                               {512, 48, 0, size},
                                               {1024 + 4 * n * later, 256, 0, size}};
            EXPECT_TRUE(call.checkAt(places, "dst of object 0 on later pivots", [&] {
                substituteAll(call, a, pivots, b, dst, n, false);
                return zonStsOk;
            })) << e->name;
        }
    }
}

} // namespace
