// SPDX-License-Identifier: Apache-2.0
// Cholesky back substitution: solutions to the last bit, error bounds, in-place use, overlap.
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>

#include "cholesky_reference.hpp"
#include "support/call.hpp"
#include "support/posix.hpp"

using namespace test;

namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr int sizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 20};

Element elementOf(const Export &e) { return e.element == "32f" ? Element::f32 : Element::f64; }
bool isArray(const Export &e) { return e.argument("count") != nullptr; }
bool isShared(const Export &e) { return e.group == "mva"; }

// A call with random layout. Whatever the values, NaN stands above the diagonal.
struct Substitution {
    Call call;
    int n;
    const Operand *factor, *b, *dst;

    template <class V>
    Substitution(const Export &e, std::uint64_t seed, int size, int count, Values matrix, V vector,
                 Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), n(size)
    {
        Random random(seed);
        factor = &call.source("src1", {n, n}, [&](int, int i, int j) {
            return j > i ? nan : draw(matrix, elementOf(e), random);
        });
        b = &call.source("src2", {n}, vector);
        dst = inPlace ? &call.outputInPlaceOf("src2", "dst") : &call.output("dst", {n});
        call.set("size", n);
    }
    void check()
    {
        ASSERT_EQ(call.run(), zonStsOk) << call;
        std::vector<double> x(static_cast<std::size_t>(n * call.count()));
        for (int k = 0; k < call.count(); ++k) {
            double *const xk = &x[std::size_t(k * n)];
            cholesky::substitute(
                dst->element, {[&](int i, int j) { return (*factor)(k, i, j); }, nullptr},
                {[&](int i) { return b->before(k, i); }, nullptr},
                {[=](int i) { return xk[i]; }, [=](int i, double v) { xk[i] = v; }}, n);
        }
        call.expect("dst", [&](int k, int i, int) { return x[std::size_t(k * n + i)]; });
    }
};

TEST(CholeskyBackSubst, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9}) {
                for (const Values values : allValues()) {
                    Substitution(*e, seed++, n, count, values, values).check();
                    Substitution(*e, seed++, n, count, Values::uniform, values).check();
                }
                if (!isArray(*e) && count > 3)
                    break;
            }
}

TEST(CholeskyBackSubst, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (const int n : sizes)
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                Substitution(*e, seed++, n, 150, Values::uniform, Values::uniform, spread).check();
}

TEST(CholeskyBackSubst, InPlaceIsTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (const int n : sizes)
            for (const int count : {1, 3, 4, 7, 9, 13})
                Substitution(*e, seed++, n, count, Values::uniform, Values::uniform, Spread::any,
                             true)
                    .check();
}

// The order of size 3, as it is stated.
TEST(CholeskyBackSubst, OfSize3SubtractsTheNearestColumnFirst)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (int round = 0; round < 50; ++round) {
            Substitution s(*e, seed++, 3, 9, Values::uniform, Values::uniform);
            ASSERT_EQ(s.call.run(), zonStsOk);
            s.call.expect("dst", [&](int k, int element, int) {
                const auto l = [&](int i, int j) { return (*s.factor)(k, i, j); };
                const auto b = [&](int i) { return (*s.b)(k, i); };
                const double y0 = b(0) * l(0, 0);
                const double y1 = (b(1) - l(1, 0) * y0) * l(1, 1);
                const double y2 = ((b(2) - l(2, 0) * y0) - l(2, 1) * y1) * l(2, 2);
                const double x2 = y2 * l(2, 2);
                const double x1 = (y1 - l(2, 1) * x2) * l(1, 1);
                const double x0 = ((y0 - l(1, 0) * x1) - l(2, 0) * x2) * l(0, 0);
                return element == 0 ? x0 : element == 1 ? x1 : x2;
            });
        }
}

TEST(CholeskyBackSubst, TakesAZeroOnTheDiagonalWithoutComplaint)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (const int n : sizes)
            for (int zero = 0; zero < n; ++zero) {
                Call call(*e, seed++, isArray(*e) ? 9 : 1);
                call.source("src1", {n, n}, [&](int, int i, int j) {
                    return i != j ? 0. : i == zero ? 0. : 2.;
                });
                call.source("src2", {n}, [](int, int i, int) { return i + 1; });
                call.output("dst", {n});
                call.set("size", n);
                EXPECT_EQ(call.run(), zonStsOk) << call;
                call.expect("dst", [&](int, int i, int) { return i == zero ? 0. : 4. * (i + 1); });
            }
}

// Decomposes, multiplies a known vector, solves: random, graded and nearly singular matrices. The
// residual |A x - b| stays within 8 n roundings of |A| |x| + |b|.
TEST(CholeskyBackSubst, SolvesWhatWasDecomposed)
{
    std::uint64_t seed = 1;
    for (const char *element : {"32f", "64f"})
        for (const char *tail : {"", "_L", "_P"})
            for (int n = 1; n <= 12; ++n)
                for (int kind = 0; kind < 3; ++kind) {
                    const std::string type = std::string(element) + tail;
                    const bool f32 = std::string(element) == "32f";
                    // The pivots of a nearly singular matrix stay above all limits.
                    const double nearly = f32 || type.back() == 'P' ? 1e-4 : 1e-11;
                    const int count = 9;
                    Random random(seed);
                    std::vector<double> a(std::size_t(count * n * n));
                    const auto at = [&](int k, int i, int j) {
                        return std::size_t((k * n + i) * n + j);
                    };
                    for (int k = 0; k < count; ++k) {
                        std::vector<double> g(std::size_t(n * n));
                        for (double &v : g)
                            v = random.unit() - 0.5;
                        for (int i = 0; i < n; ++i)
                            for (int j = 0; j < n; ++j) {
                                double sum = i == j ? (kind == 2 ? nearly : 0.1) : 0;
                                for (int m = 0; m < (kind == 2 ? (n + 1) / 2 : n); ++m)
                                    sum += g[std::size_t(i * n + m)] * g[std::size_t(j * n + m)];
                                sum = kind == 1 ? std::ldexp(sum, 10 - i - j) : sum;
                                a[at(k, i, j)] = f32 ? double(float(sum)) : sum;
                            }
                    }
                    Call decompose(exportNamed("zonmCholeskyDecomp_ma_" + type), seed, count);
                    decompose.source("src", {n, n},
                                     [&](int k, int i, int j) { return a[at(k, i, j)]; });
                    const Operand &factor = decompose.output("dst", {n, n});
                    decompose.set("size", n);
                    ASSERT_EQ(decompose.run(), zonStsOk) << decompose;

                    Call solve(exportNamed("zonmCholeskyBackSubst_mava_" + type), seed++, count);
                    solve.source("src1", {n, n}, [&](int k, int i, int j) {
                        return j > i ? nan : factor(k, i, j);
                    });
                    const Operand &b = solve.source("src2", {n}, Values::uniform);
                    const Operand &x = solve.output("dst", {n});
                    solve.set("size", n);
                    ASSERT_EQ(solve.run(), zonStsOk) << solve;
                    const double eps = f32 ? double(std::numeric_limits<float>::epsilon())
                                           : std::numeric_limits<double>::epsilon();
                    for (int k = 0; k < count; ++k) {
                        long double residual = 0, normA = 0, normX = 0, normB = 0;
                        for (int i = 0; i < n; ++i) {
                            long double sum = -b(k, i), row = 0;
                            for (int j = 0; j < n; ++j) {
                                sum += (long double)(a[at(k, i, j)]) * x(k, j);
                                row += std::fabs(a[at(k, i, j)]);
                            }
                            residual = std::max(residual, std::fabs(sum));
                            normA = std::max(normA, row);
                            normX = std::max(normX, (long double)(std::fabs(x(k, i))));
                            normB = std::max(normB, (long double)(std::fabs(b(k, i))));
                        }
                        EXPECT_LE(residual, 8 * n * eps * (normA * normX + normB))
                            << solve << " kind " << kind;
                    }
                }
}

// So many large systems that another path would pay, and vectors on one matrix: each is still what
// a call of its own gives.
TEST(CholeskyBackSubst, OfManyLargeSystemsIsThatOfEach)
{
    for (const auto &[size, number] : {std::pair{12, 4000}, {64, 20}, {65, 20}}) {
        const int n = size, count = number; // lambdas cannot hold a binding
        const int element = sizeof(double), row = n * element;
        Random random(1);
        std::vector<double> a(std::size_t(n * n * count)), b(std::size_t(n * count)), x(b),
            shared(b), one(static_cast<std::size_t>(n));
        for (std::vector<double> *values : {&a, &b})
            for (double &v : *values)
                v = random.unit() - 0.5;
        ASSERT_EQ(zonmCholeskyBackSubst_mava_64f(a.data(), n * row, row, element, b.data(), row,
                                                 element, x.data(), row, element, n, count),
                  zonStsOk);
        ASSERT_EQ(zonmCholeskyBackSubst_mva_64f(a.data(), row, element, b.data(), row, element,
                                                shared.data(), row, element, n, count),
                  zonStsOk);
        for (int k = 0; k < count; ++k) {
            const auto compare = [&](const double *matrix, const std::vector<double> &solved) {
                ASSERT_EQ(zonmCholeskyBackSubst_mv_64f(matrix, row, element, &b[std::size_t(k * n)],
                                                       element, one.data(), element, n),
                          zonStsOk);
                for (int i = 0; i < n; ++i)
                    ASSERT_TRUE(sameBits(one[std::size_t(i)], solved[std::size_t(k * n + i)]))
                        << "system " << k << " of size " << n << ", " << i;
            };
            compare(&a[std::size_t(k * n * n)], x);
            compare(a.data(), shared);
        }
    }
}

// The upper triangle may lie where nobody can read: entries that point nowhere, rows that end
// before a page without access.
TEST(CholeskyBackSubst, DoesNotReadTheUpperTriangle)
{
    const auto page = std::ptrdiff_t(sysconf(_SC_PAGESIZE));
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (const int n : sizes) {
            const Element element = elementOf(*e);
            const int size = sizeOf(element), count = 5;
            const std::size_t bytes = std::size_t(2 * n * page);
            // Matrices of all objects end each row at the same pages, so that there is one.
            auto *memory = static_cast<std::byte *>(
                mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            std::byte *base = memory + page - size;
            const int stride1 = int(2 * page) - size;
            for (int i = 0; i < n; ++i) {
                for (int j = 0; j <= i; ++j)
                    store(element, base + i * stride1 + j * size, i == j ? 0.5 : 0.);
                mprotect(memory + (2 * i + 1) * page, std::size_t(page), PROT_NONE);
            }
            std::vector<std::byte> b(std::size_t(n * count * size)), x(b);
            for (int i = 0; i < n * count; ++i)
                store(element, &b[std::size_t(i * size)], i);
            std::vector<std::byte *> matrices(count, base), bs, xs;
            const bool elements = e->description == "P";
            if (elements) {
                matrices.clear();
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j < n; ++j)
                        matrices.push_back(j > i ? nullptr : base + i * stride1 + j * size);
            }
            for (int i = 0; i < (elements ? n : count); ++i) {
                bs.push_back(b.data() + i * size * (elements ? 1 : n));
                xs.push_back(x.data() + i * size * (elements ? 1 : n));
            }
            // Strided arrays of matrices step over pages: one object.
            const int objects = e->group == "mava" && e->description != "L" ? 1 : count;
            std::vector<Argument> arguments;
            for (const ArgumentInfo &a : e->arguments) {
                const bool matrix = a.operand == "src1", isDst = a.operand == "dst";
                arguments.push_back(a.role == "pointer"   ? Argument(matrix  ? base
                                                                     : isDst ? x.data()
                                                                             : b.data())
                                    : a.role == "table"   ? Argument((matrix  ? matrices
                                                                      : isDst ? xs
                                                                              : bs)
                                                                         .data())
                                    : a.role == "shift"   ? Argument(0)
                                    : a.role == "stride0" ? Argument(matrix ? size : n * size)
                                    : a.role == "stride1" ? Argument(stride1)
                                    : a.role == "stride2" ? Argument(size)
                                    : a.name == "count"   ? Argument(objects)
                                                          : Argument(n));
            }
            ASSERT_EQ(invoke(e->name, arguments, e->name + " on a staircase"), zonStsOk);
            for (int i = 0; i < n * (isArray(*e) ? objects : 1); ++i)
                EXPECT_EQ(load(element, &x[std::size_t(i * size)]), i * 0.25)
                    << e->name << ' ' << n;
            munmap(memory, bytes);
        }
}

// One matrix for all vectors is read before the first of them at the sizes 3 to 6. Beyond that,
// systems go one after the other, each read whole before it is written at these sizes.
TEST(CholeskyBackSubst, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_back_subst"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8})
            for (const int count : {1, 4, 9}) {
                if (!isArray(*e) && count > 1)
                    continue;
                OneMemory call(*e, seed++, count);
                const Operand &factor = call.source("src1", {n, n}, Values::uniform);
                const Operand &b = call.source("src2", {n}, Values::uniform);
                const Operand &dst = call.output("dst", {n});
                call.set("size", n);
                const auto reference = [&] {
                    std::vector<double> first;
                    for (int i = 0; i < n * n; ++i)
                        first.push_back(factor(0, i / n, i % n));
                    const MatrixIn shared{
                        [&](int i, int j) { return first[std::size_t(i * n + j)]; }, nullptr};
                    for (int k = 0; k < call.count(); ++k)
                        cholesky::substitute(
                            dst.element,
                            isShared(*e) && cholesky::isStraight(n) ? shared : matrixOf(factor, k),
                            vectorOf(b, k), vectorOf(dst, k), n);
                    return zonStsOk;
                };
                call.check(n == 2 || n == 3 || n == 6 || n == 7 ? Meeting::any : Meeting::none,
                           reference);
                call.checkThreads(reference);
            }
}

} // namespace
