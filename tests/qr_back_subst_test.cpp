// SPDX-License-Identifier: Apache-2.0
// QR back substitution: solutions to the last bit, residuals, in-place use, overlap.
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>

#include "qr_reference.hpp"
#include "support/call.hpp"

using namespace test;

namespace
{

Element elementOf(const Export &e) { return e.element == "32f" ? Element::f32 : Element::f64; }
bool isArray(const Export &e) { return e.argument("count") != nullptr; }
bool isShared(const Export &e) { return e.group == "mva"; }

// Columns and rows.
struct Size {
    int width, height;
};
constexpr Size sizes[] = {{1, 1}, {2, 2}, {3, 3},  {4, 4},  {5, 5},   {6, 6},  {7, 7},  {8, 8},
                          {9, 9}, {1, 2}, {1, 4},  {2, 3},  {3, 4},   {2, 7},  {3, 8},  {4, 5},
                          {5, 9}, {6, 7}, {3, 20}, {6, 12}, {12, 12}, {3, 40}, {9, 14}, {17, 19}};

// A call with random layout.
struct Substitution {
    Call call;
    Size size;
    const Operand *factor, *b, *dst, *buffer;

    template <class M, class V>
    Substitution(const Export &e, std::uint64_t seed, Size s, int count, M matrix, V vector,
                 Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), size(s)
    {
        factor = &call.source("src1", {size.height, size.width}, matrix);
        b = &call.source("src2", {size.height}, vector);
        dst = inPlace ? &call.outputInPlaceOf("src2", "dst") : &call.output("dst", {size.width});
        call.scratch("buffer", std::size_t(size.height * sizeOf(dst->element)));
        call.set("width", size.width).set("height", size.height);
    }
    void check()
    {
        ASSERT_EQ(call.run(), zonStsOk) << call;
        const int w = size.width;
        std::vector<double> x(static_cast<std::size_t>(w * call.count()));
        for (int k = 0; k < call.count(); ++k) {
            double *const xk = &x[std::size_t(k * w)];
            qr::substitute(dst->element,
                           {[&](int i, int j) { return (*factor)(k, i, j); }, nullptr},
                           {[&](int i) { return b->before(k, i); }, nullptr},
                           {[=](int i) { return xk[i]; }, [=](int i, double v) { xk[i] = v; }}, w,
                           size.height);
        }
        call.expect("dst", [&](int k, int i, int) {
            return i < w ? x[std::size_t(k * w + i)] : b->before(k, i);
        });
    }
};

TEST(QRBackSubst, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (const Size size : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9}) {
                for (const Values values : allValues()) {
                    Substitution(*e, seed++, size, count, values, values).check();
                    Substitution(*e, seed++, size, count, Values::uniform, values).check();
                }
                if (!isArray(*e) && count > 3)
                    break;
            }
}

TEST(QRBackSubst, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (const Size size : {Size{3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {3, 11}, {3, 111}})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                Substitution(*e, seed++, size, 50, Values::uniform, Values::uniform, spread)
                    .check();
}

// src2 has `height` elements and dst the first `width` of the same memory.
TEST(QRBackSubst, InPlaceIsTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (const Size size : sizes)
            for (const int count : {1, 3, 4, 7, 9, 13})
                Substitution(*e, seed++, size, count, Values::uniform, Values::uniform, Spread::any,
                             true)
                    .check();
}

// The order of size 3, as it is stated.
TEST(QRBackSubst, OfSize3AddsTheSecondReflectionLate)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (int round = 0; round < 50; ++round) {
            Substitution s(*e, seed++, {3, 3}, 9, Values::uniform, Values::uniform);
            ASSERT_EQ(s.call.run(), zonStsOk);
            s.call.expect("dst", [&](int k, int element, int) {
                const auto a = [&](int i, int j) { return (*s.factor)(k, i, j); };
                const double b0 = (*s.b)(k, 0), b1 = (*s.b)(k, 1), b2 = (*s.b)(k, 2);
                const double t = (b0 + a(1, 0) * b1 + a(2, 0) * b2) *
                                 (-2 / (1 + a(1, 0) * a(1, 0) + a(2, 0) * a(2, 0)));
                const double c0 = b0 + t, c1 = b1 + a(1, 0) * t, c2 = b2 + a(2, 0) * t;
                const double t2 = (c1 + a(2, 1) * c2) * (-2 / (1 + a(2, 1) * a(2, 1)));
                const double x2 = (c2 + a(2, 1) * t2) / a(2, 2);
                const double x1 = ((c1 - a(1, 2) * x2) + t2) / a(1, 1);
                const double x0 = ((c0 - a(0, 1) * x1) - a(0, 2) * x2) / a(0, 0);
                return element == 0 ? x0 : element == 1 ? x1 : x2;
            });
        }
}

// The square sizes 3 to 6 leave the buffer alone: it need not even be memory.
TEST(QRBackSubst, OfSizes3To6DoesNotTouchTheBuffer)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (const int n : {3, 4, 5, 6})
            for (const int count : {1, 4, 7}) {
                Call call(*e, seed++, isArray(*e) ? count : 1);
                call.source("src1", {n, n}, Values::uniform);
                call.source("src2", {n}, Values::uniform);
                call.output("dst", {n});
                static const char nowhere = 0;
                call.set("buffer", &nowhere); // read-only
                call.set("width", n).set("height", n);
                EXPECT_EQ(call.run(), zonStsOk) << call;
            }
}

TEST(QRBackSubst, DividesByZeroWithoutComplaint)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (const Size size : sizes) {
            const int w = size.width;
            Substitution s(
                *e, seed++, size, 9,
                [&](int, int i, int j) { return i != j       ? 0.
                                                : i == w - 1 ? 0.
                                                             : 2.; },
                [](int, int i, int) { return i + 1.; });
            s.check();
            for (int k = 0; k < s.call.count(); ++k)
                EXPECT_FALSE(std::isfinite((*s.dst)(k, w - 1))) << s.call;
        }
}

TEST(QRBackSubst, OfSize1IsAQuotient)
{
    for (const Export *e : exportsOf("qr_back_subst")) {
        Substitution s(
            *e, 1, {1, 1}, 5, [](int, int, int) { return 3.; }, [](int, int, int) { return 10.; });
        s.check();
        EXPECT_TRUE(sameBits((*s.dst)(0, 0), s.dst->round(10. / 3)));
    }
}

// Decomposes, then solves: square systems give back what was put in; of tall ones the residual is
// orthogonal to the columns. Random, graded and nearly singular matrices.
TEST(QRBackSubst, SolvesWhatWasDecomposed)
{
    std::uint64_t seed = 1;
    for (const char *element : {"32f", "64f"})
        for (const char *tail : {"", "_L", "_P"})
            for (const Size size : sizes)
                for (int kind = 0; kind < 3; ++kind) {
                    const int w = size.width, h = size.height, count = 9;
                    const std::string type = std::string(element) + tail;
                    const bool f32 = std::string(element) == "32f";
                    // The columns of a nearly singular matrix stay above the limit.
                    const double nearly = f32 ? 0.25 : 0.001;
                    Random random(seed);
                    const auto buffer = std::size_t(h * 8);
                    std::vector<double> first(static_cast<std::size_t>(h));
                    Call decompose(exportNamed("zonmQRDecomp_ma_" + type), seed, count);
                    const Operand &a = decompose.source("src", {h, w}, [&](int, int i, int j) {
                        const double value = random.unit() - 0.5;
                        if (j == 0)
                            first[std::size_t(i)] = value;
                        return kind == 0   ? value
                               : kind == 1 ? std::ldexp(value, 4 - 8 * j / w)
                                           : first[std::size_t(i)] + nearly * value * (j > 0);
                    });
                    const Operand &factor = decompose.output("dst", {h, w});
                    decompose.scratch("buffer", buffer);
                    decompose.set("width", w).set("height", h);
                    ASSERT_EQ(decompose.run(), zonStsOk) << decompose;

                    Call solve(exportNamed("zonmQRBackSubst_mava_" + type), seed++, count);
                    solve.source("src1", {h, w},
                                 [&](int k, int i, int j) { return factor(k, i, j); });
                    const Operand &b = solve.source("src2", {h}, Values::uniform);
                    const Operand &x = solve.output("dst", {w});
                    solve.scratch("buffer", buffer);
                    solve.set("width", w).set("height", h);
                    ASSERT_EQ(solve.run(), zonStsOk) << solve;

                    const double eps = f32 ? double(std::numeric_limits<float>::epsilon())
                                           : std::numeric_limits<double>::epsilon();
                    for (int k = 0; k < count; ++k) {
                        std::vector<long double> residual(static_cast<std::size_t>(h));
                        long double normA = 0, normX = 0, normB = 0;
                        for (int i = 0; i < h; ++i) {
                            long double sum = -b(k, i);
                            for (int j = 0; j < w; ++j) {
                                sum += (long double)(a(k, i, j)) * x(k, j);
                                normA += std::pow(a(k, i, j), 2);
                            }
                            residual[std::size_t(i)] = sum;
                            normB += std::pow(b(k, i), 2);
                        }
                        for (int j = 0; j < w; ++j)
                            normX += std::pow(x(k, j), 2);
                        normA = std::sqrt(normA);
                        const long double scale = normA * std::sqrt(normX) + std::sqrt(normB);
                        const long double permitted = 4 * (h + 8) * eps * scale;
                        if (w == h) {
                            for (const long double r : residual)
                                EXPECT_LE(std::fabs(r), permitted) << solve << " kind " << kind;
                        }
                        for (int j = 0; j < w; ++j) {
                            long double dot = 0;
                            for (int i = 0; i < h; ++i)
                                dot += a(k, i, j) * residual[std::size_t(i)];
                            EXPECT_LE(std::fabs(dot), normA * permitted)
                                << solve << " kind " << kind;
                        }
                    }
                }
}

// An array is a loop of single calls, also of large systems and with one matrix for all.
TEST(QRBackSubst, OfAnArrayIsThatOfEach)
{
    for (const Size size :
         {Size{3, 3}, {6, 6}, {8, 8}, {3, 111}, {3, 128}, {3, 129}, {6, 700}, {40, 41}}) {
        const int w = size.width, h = size.height, count = 11;
        const int element = sizeof(double), row = w * element, object = h * row;
        Random random(std::uint64_t(w * 1000 + h));
        std::vector<double> a(std::size_t(count * w * h)), b(std::size_t(count * h)),
            own(std::size_t(count * w)), shared(own), one(static_cast<std::size_t>(w)),
            buffer(static_cast<std::size_t>(h));
        for (std::vector<double> *v : {&a, &b})
            for (double &value : *v)
                value = random.unit() - 0.5;
        ASSERT_EQ(zonmQRBackSubst_mava_64f(a.data(), object, row, element, buffer.data(), b.data(),
                                           h * element, element, own.data(), row, element, w, h,
                                           count),
                  zonStsOk);
        ASSERT_EQ(zonmQRBackSubst_mva_64f(a.data(), row, element, buffer.data(), b.data(),
                                          h * element, element, shared.data(), row, element, w, h,
                                          count),
                  zonStsOk);
        for (int k = 0; k < count; ++k)
            for (const bool isShared : {false, true}) {
                ASSERT_EQ(zonmQRBackSubst_mv_64f(&a[std::size_t(isShared ? 0 : k * w * h)], row,
                                                 element, buffer.data(), &b[std::size_t(k * h)],
                                                 element, one.data(), element, w, h),
                          zonStsOk);
                for (int i = 0; i < w; ++i)
                    ASSERT_TRUE(sameBits(one[std::size_t(i)],
                                         (isShared ? shared : own)[std::size_t(k * w + i)]))
                        << w << ' ' << h << ": system " << k << ", " << i;
            }
    }
}

TEST(QRBackSubst, OfMoreColumnsThanRowsIsNone)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst")) {
        Call call(*e, seed++, isArray(*e) ? 3 : 1);
        call.source("src1", {3, 3}, Values::uniform);
        call.source("src2", {3}, Values::uniform);
        call.output("dst", {3});
        call.scratch("buffer", 24);
        call.set("width", 3).set("height", 2);
        EXPECT_EQ(call.run(), zonStsShapeMismatch) << call;
        call.expectNothingTouched();
    }
}

// One matrix for all vectors is read before the first of them at the sizes 3 to 6. Beyond that,
// systems go one after the other, each read whole before it is written at these sizes.
TEST(QRBackSubst, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_back_subst"))
        for (const Size size : {Size{1, 1}, {2, 2}, {3, 3}, {4, 4}, {6, 6}, {7, 7}, {3, 8}, {2, 5}})
            for (const int count : {1, 4, 9}) {
                if (!isArray(*e) && count > 1)
                    continue;
                OneMemory call(*e, seed++, count);
                const int w = size.width, h = size.height;
                const Operand &factor = call.source("src1", {h, w}, Values::uniform);
                const Operand &b = call.source("src2", {h}, Values::uniform);
                const Operand &dst = call.output("dst", {w});
                call.scratch("buffer", std::size_t(h * sizeOf(elementOf(*e))));
                call.set("width", w).set("height", h);
                const auto reference = [&] {
                    std::vector<double> first;
                    for (int i = 0; i < w * h; ++i)
                        first.push_back(factor(0, i / w, i % w));
                    const MatrixIn shared{
                        [&](int i, int j) { return first[std::size_t(i * w + j)]; }, nullptr};
                    for (int k = 0; k < call.count(); ++k)
                        qr::substitute(dst.element,
                                       isShared(*e) && qr::isStraight(w, h) ? shared
                                                                            : matrixOf(factor, k),
                                       vectorOf(b, k), vectorOf(dst, k), w, h);
                    return zonStsOk;
                };
                call.check(w != 4 && w * h != 1 && w * h != 10 ? Meeting::any : Meeting::none,
                           reference);
                call.checkThreads(reference);
            }
}

} // namespace
