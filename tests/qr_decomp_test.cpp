// SPDX-License-Identifier: Apache-2.0
// QR decomposition: R and the reflections to the last bit, what a failing column leaves, residuals.
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

// Columns and rows.
struct Size {
    int width, height;
};
constexpr Size sizes[] = {{1, 1}, {2, 2}, {3, 3},  {4, 4},  {5, 5},   {6, 6},  {7, 7},  {8, 8},
                          {9, 9}, {1, 2}, {1, 4},  {2, 3},  {3, 4},   {2, 7},  {3, 8},  {4, 5},
                          {5, 9}, {6, 7}, {3, 20}, {6, 12}, {12, 12}, {3, 40}, {9, 14}, {17, 19}};

// A call with random layout, judged by the reference object after object.
struct Decomposition {
    Call call;
    Size size;
    Operand *src, *dst;

    template <class M>
    Decomposition(const Export &e, std::uint64_t seed, Size s, int count, M matrix,
                  Spread spread = Spread::any, bool inPlace = false)
        : call(e, seed, isArray(e) ? count : 1, spread), size(s)
    {
        src = &call.source("src", {size.height, size.width}, matrix);
        dst = inPlace ? &call.outputInPlaceOf("src", "dst")
                      : &call.output("dst", {size.height, size.width});
        call.scratch("buffer", std::size_t(size.height * sizeOf(dst->element)));
        call.set("width", size.width).set("height", size.height);
    }

    // The status, after all that the call left is compared.
    ZonStatus check()
    {
        const int w = size.width, h = size.height;
        const ZonStatus status = call.run();
        ZonStatus wanted = zonStsOk;
        for (int k = 0; k < call.count(); ++k) {
            std::vector<double> factor(std::size_t(w * h));
            const auto at = [w](int i, int j) { return std::size_t(i * w + j); };
            const bool isReached = wanted == zonStsOk;
            if (isReached &&
                !qr::decompose(dst->element,
                               {[&](int i, int j) { return src->before(k, i, j); }, nullptr},
                               {[&](int i, int j) { return factor[at(i, j)]; },
                                [&](int i, int j, double value) { factor[at(i, j)] = value; }},
                               w, h))
                wanted = zonStsDivByZero;
            for (int i = 0; i < h; ++i)
                for (int j = 0; j < w; ++j)
                    if (isReached)
                        EXPECT_TRUE(sameBits((*dst)(k, i, j), factor[at(i, j)]))
                            << call << ": dst[" << k << "](" << i << ", " << j << ") is "
                            << show(dst->element, (*dst)(k, i, j)) << ", expected "
                            << show(dst->element, factor[at(i, j)]);
                    else
                        EXPECT_TRUE(dst->isUntouched(k, i, j))
                            << call << ": dst[" << k << "](" << i << ", " << j << ") was written";
        }
        EXPECT_EQ(status, wanted) << call;
        return status;
    }
};

TEST(QRDecomp, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9}) {
                for (const Values values : allValues())
                    Decomposition(*e, seed++, size, count, values).check();
                if (!isArray(*e) && count > 3)
                    break;
            }
}

TEST(QRDecomp, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size :
             {Size{3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {8, 8}, {3, 11}, {3, 111}})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                EXPECT_EQ(Decomposition(*e, seed++, size, 50, Values::uniform, spread).check(),
                          zonStsOk);
}

TEST(QRDecomp, InPlaceIsTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size : sizes)
            for (const int count : {1, 4, 7, 9})
                for (const Values values : {Values::uniform, Values::signedZeros})
                    Decomposition(*e, seed++, size, count, values, Spread::any, true).check();
}

// The sum of squares of a column at the limit, one step below and one above.
TEST(QRDecomp, TestsSumsOfSquaresAgainstTheLimit)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size : {Size{1, 2}, {2, 2}, {3, 3}, {4, 4}, {6, 6}, {7, 7}, {3, 5}})
            for (int step = 0; step < size.width; ++step)
                for (const int object : {0, 1, 4, 6})
                    for (const int side : {-1, 0, 1}) {
                        if (!isArray(*e) && object > 0)
                            continue;
                        // Roots on either side of the limit whose squares round to it or beyond.
                        const bool f32 = elementOf(*e) == Element::f32;
                        double root = std::sqrt(qr::limit(elementOf(*e)));
                        if (f32) // 2^-23 is no square: the sum of two
                            root = 0x1p-12;
                        const auto next = [&](double value, double to) {
                            return f32 ? double(std::nextafter(float(value), float(to)))
                                       : std::nextafter(value, to);
                        };
                        const auto element = [&](int k, int i, int j) {
                            if (k != object || j != step)
                                return i == j ? 1. : 0.;
                            const double x = side == 0 ? root : next(root, side);
                            if (f32)
                                return i == step ? x : i == step + 1 ? root : 0.;
                            return i == step ? x : 0.;
                        };
                        const bool hasReflection = step < qr::reflections(size.width, size.height);
                        const bool fails = side < 0 && hasReflection;
                        EXPECT_EQ(Decomposition(*e, seed++, size, 7, element).check(),
                                  fails ? zonStsDivByZero : zonStsOk)
                            << e->name << ' ' << size.width << ' ' << size.height << " step "
                            << step << " side " << side;
                    }
}

// A failing object at each place of an array, at each column.
TEST(QRDecomp, EndsAtTheFirstFailingObject)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp")) {
        if (!isArray(*e))
            continue;
        for (const Size size :
             {Size{2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {1, 3}, {3, 20}, {6, 12}})
            for (int count = 1; count <= 9; ++count)
                for (int failing = 0; failing < count; ++failing) {
                    Random random(seed);
                    // A column of zeros stays one.
                    const int step = random.below(qr::reflections(size.width, size.height));
                    Decomposition d(*e, seed++, size, count, [&](int k, int i, int j) {
                        const double value = random.unit() + (i == j);
                        return k == failing && j == step ? 0 : value;
                    });
                    EXPECT_EQ(d.check(), zonStsDivByZero) << d.call;
                    EXPECT_FALSE(d.dst->isUntouched(failing, size.height - 1, size.width - 1));
                    EXPECT_TRUE(failing + 1 == count || d.dst->isUntouched(failing + 1, 0, 0));
                }
    }
}

TEST(QRDecomp, TakesNotANumberAndInfinitiesAtEachPlace)
{
    const double infinity = std::numeric_limits<double>::infinity();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size : {Size{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {3, 7}})
            for (int place = 0; place < size.width * size.height; ++place)
                for (const double value :
                     {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity}) {
                    Random random(seed);
                    const int object = isArray(*e) ? random.below(9) : 0;
                    Decomposition d(*e, seed++, size, 9, [&](int k, int i, int j) {
                        return k == object && i * size.width + j == place
                                   ? value
                                   : random.unit() + 2 * (i == j);
                    });
                    EXPECT_EQ(d.check(), zonStsOk) << d.call;
                }
}

// What the documentation tells.
TEST(QRDecomp, OfTheExamples)
{
    std::uint64_t seed = 1;
    const auto all = [](double value) { return [=](int, int, int) { return value; }; };
    for (const Export *e : exportsOf("qr_decomp")) {
        Decomposition identity(*e, seed++, {2, 2}, 3, [](int, int i, int j) { return i == j; });
        EXPECT_EQ(identity.check(), zonStsOk);
        const double r[2][2] = {{-1, 0}, {0, 1}};
        identity.call.expect("dst", [&](int, int i, int j) { return r[i][j]; });
        const auto zeroFirst = [](int, int i, int j) { return j == 0 ? 0. : 1. + i; };
        EXPECT_EQ(Decomposition(*e, seed++, {2, 3}, 3, zeroFirst).check(), zonStsDivByZero);
        const auto zeroLast = [](int, int i, int j) {
            return j == 2 ? 0. : 1. + i + 3 * j * (i == 1);
        };
        EXPECT_EQ(Decomposition(*e, seed++, {3, 3}, 3, zeroLast).check(), zonStsOk);
        EXPECT_EQ(Decomposition(*e, seed++, {3, 4}, 3, zeroLast).check(), zonStsDivByZero);
        for (const double value : {0., 5., std::numeric_limits<double>::quiet_NaN()}) {
            Decomposition one(*e, seed++, {1, 1}, 3, all(value));
            EXPECT_EQ(one.check(), zonStsOk);
            EXPECT_TRUE(sameBits((*one.dst)(0, 0, 0), value));
        }
        // The sign is opposite to the element's, plus for zero.
        for (const double x : {1., -1., 0., -0.}) {
            Decomposition column(*e, seed++, {1, 4}, 1, [&](int, int i, int) {
                return i == 0 ? x : i == 1 ? 2. : 0.;
            });
            EXPECT_EQ(column.check(), zonStsOk);
            EXPECT_NEAR((*column.dst)(0, 0, 0), std::hypot(x, 2) * (x > 0 ? -1 : 1), 1e-6);
        }
        const bool f32 = elementOf(*e) == Element::f32;
        const auto column = [](double squares) {
            return [=](int, int i, int j) {
                return i == 0 && j == 0 ? std::sqrt(squares) : double(i == 1 && j == 1);
            };
        };
        EXPECT_EQ(Decomposition(*e, seed++, {2, 2}, 3, column(f32 ? 1e-8 : 1e-16)).check(),
                  zonStsDivByZero);
        EXPECT_EQ(Decomposition(*e, seed++, {2, 2}, 3, column(f32 ? 3e-7 : 3e-16)).check(),
                  zonStsOk);
    }
}

// |A - Q R| stays within a multiple of n roundings of |A|, with Q applied reflection by reflection:
// random, graded and nearly singular matrices.
TEST(QRDecomp, GivesTheMatrixBack)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size : sizes)
            for (int kind = 0; kind < 3; ++kind) {
                const int w = size.width, h = size.height;
                // The columns of a nearly singular matrix stay above the limit.
                const double nearly = elementOf(*e) == Element::f32 ? 0.25 : 0.001;
                Random random(seed);
                std::vector<double> first(static_cast<std::size_t>(h));
                Decomposition d(*e, seed++, size, 9, [&](int, int i, int j) {
                    const double value = random.unit() - 0.5;
                    if (j == 0)
                        first[std::size_t(i)] = value;
                    return kind == 0   ? value
                           : kind == 1 ? std::ldexp(value, 4 - 8 * j / w)
                                       : first[std::size_t(i)] + nearly * value * (j > 0);
                });
                ASSERT_EQ(d.call.run(), zonStsOk) << d.call;
                const double eps = elementOf(*e) == Element::f32
                                       ? double(std::numeric_limits<float>::epsilon())
                                       : std::numeric_limits<double>::epsilon();
                for (int k = 0; k < d.call.count(); ++k)
                    for (int j = 0; j < w; ++j) {
                        std::vector<long double> column(std::size_t(h), 0);
                        for (int i = 0; i <= j; ++i)
                            column[std::size_t(i)] = (*d.dst)(k, i, j);
                        for (int r = qr::reflections(w, h) - 1; r >= 0; --r) {
                            const auto v = [&](int i) -> long double {
                                return i == r ? 1 : (*d.dst)(k, i, r);
                            };
                            long double dot = 0, squares = 0;
                            for (int i = r; i < h; ++i) {
                                dot += v(i) * column[std::size_t(i)];
                                squares += v(i) * v(i);
                            }
                            for (int i = r; i < h; ++i)
                                column[std::size_t(i)] -= 2 * dot / squares * v(i);
                        }
                        long double norm = 0, error = 0;
                        for (int i = 0; i < h; ++i) {
                            norm += std::pow((long double)((*d.src)(k, i, j)), 2);
                            error += std::pow(column[std::size_t(i)] - (*d.src)(k, i, j), 2);
                        }
                        EXPECT_LE(std::sqrt(error), 8 * (w + 4) * eps * std::sqrt(norm))
                            << d.call << " object " << k << " column " << j << " kind " << kind;
                    }
            }
}

// Shapes come last: everything else that is wrong is found before.
TEST(QRDecomp, OfMoreColumnsThanRowsIsNone)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp")) {
        Call call(*e, seed++, isArray(*e) ? 3 : 1);
        call.source("src", {3, 3}, Values::uniform);
        call.output("dst", {3, 3});
        call.scratch("buffer", 24);
        call.set("width", 3).set("height", 2);
        EXPECT_EQ(call.run(), zonStsShapeMismatch) << call;
        call.expectNothingTouched();
    }
}

// Objects whose results meet the sources of others behave as one object after the other.
TEST(QRDecomp, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("qr_decomp"))
        for (const Size size : {Size{1, 1}, {2, 2}, {3, 3}, {4, 4}, {6, 6}, {7, 7}, {3, 8}, {2, 5}})
            for (const int count : {1, 4, 9}) {
                if (!isArray(*e) && count > 1)
                    continue;
                OneMemory call(*e, seed++, count);
                const int w = size.width, h = size.height;
                const Operand &src = call.source("src", {h, w}, Values::uniform);
                const Operand &dst = call.output("dst", {h, w});
                call.scratch("buffer", std::size_t(h * sizeOf(elementOf(*e))));
                call.set("width", w).set("height", h);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k)
                        if (!qr::decompose(dst.element, matrixOf(src, k), matrixOf(dst, k), w, h))
                            return zonStsDivByZero;
                    return zonStsOk;
                };
                const bool isPathOfItsOwn = w != 4 && w * h != 1 && w * h != 10;
                call.check(isPathOfItsOwn ? Meeting::anyButWithinObjects : Meeting::none,
                           reference);
                call.checkThreads(reference);
            }
}

// An array is a loop of single calls, also of large objects, and where rows of dst overlap.
TEST(QRDecomp, OfAnArrayIsThatOfEach)
{
    for (const Size size :
         {Size{3, 3}, {4, 4}, {6, 6}, {8, 8}, {20, 20}, {2, 201}, {3, 111}, {6, 300}, {40, 41}})
        for (const int pitch : {size.width, size.width - 1, 1}) {
            const int w = size.width, h = size.height;
            const int count = 11, element = sizeof(double), row = w * element, object = h * row;
            Random random(std::uint64_t(w * 1000 + h));
            std::vector<double> a(std::size_t(count * w * h)), array(a), one(a),
                buffer(static_cast<std::size_t>(h));
            for (double &v : a)
                v = random.unit() - 0.5;
            const ZonStatus status =
                zonmQRDecomp_ma_64f(a.data(), object, row, element, buffer.data(), array.data(),
                                    object, pitch * element, element, w, h, count);
            if (pitch == w) {
                ASSERT_EQ(status, zonStsOk);
            }
            ZonStatus each = zonStsOk;
            for (int k = 0; k < count && each == zonStsOk; ++k)
                each = zonmQRDecomp_m_64f(&a[std::size_t(k * w * h)], row, element, buffer.data(),
                                          &one[std::size_t(k * w * h)], pitch * element, element, w,
                                          h);
            ASSERT_EQ(status, each) << w << ' ' << h << ", pitch " << pitch;
            for (std::size_t i = 0; i < a.size(); ++i)
                ASSERT_TRUE(sameBits(array[i], one[i]))
                    << w << ' ' << h << ", pitch " << pitch << ": element " << i;
        }
}

} // namespace
