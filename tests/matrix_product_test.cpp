// SPDX-License-Identifier: Apache-2.0
// Matrix products on operands that do not overlap: every export equals, to the last bit, the sum
// that its path prescribes.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>
#include <stdexcept>

#include "support/call.hpp"
#include "support/product_paths.hpp"

using namespace test;

namespace
{

// The sizes as stored.
void setSizes(Call &call, const Export &e, ProductShape shape)
{
    const bool t1 = e.operand("src1")->transposed, t2 = e.operand("src2")->transposed;
    call.set("src1Width", t1 ? shape.rows : shape.inner)
        .set("src1Height", t1 ? shape.inner : shape.rows)
        .set("src2Width", t2 ? shape.inner : shape.columns)
        .set("src2Height", t2 ? shape.columns : shape.inner);
}

bool isContiguous(const Export &e, Call &call)
{
    for (const char *name : {"src1", "src2", "dst"}) {
        const Operand &o = call[name];
        if (e.argument(std::string(name) + "Stride2") && o.layout.stride2 != sizeOf(o.element))
            return false;
    }
    return true;
}

// Runs a call whose sources are laid out and compares it with its path.
void runAndCompare(Call &call, const Export &e, ProductShape shape)
{
    const Operand &a = call["src1"], &b = call["src2"];
    call.output("dst", {shape.rows, shape.columns});
    setSizes(call, e, shape);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    const Path path = pathOf(e, shape, isContiguous(e, call));
    call.expect("dst", [&](int k, int i, int j) {
        return chain(path, a.element, shape.inner, [&](int p) { return a(k, i, p) * b(k, p, j); });
    });
}

int countFor(const Export &e, int count) { return e.argument("count") ? count : 1; }

void checkOnce(const Export &e, std::uint64_t seed, ProductShape shape, int count, Values values,
               Spread spread = Spread::any)
{
    if (readsPastItsTables(e, shape))
        return;
    Call call(e, seed, countFor(e, count), spread);
    call.source("src1", {shape.rows, shape.inner}, values);
    call.source("src2", {shape.inner, shape.columns}, values);
    runAndCompare(call, e, shape);
}

TEST(MatrixProduct, OfSquareMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (int n = 1; n <= 9; ++n)
            for (const int count : {1, 2, 3, 5})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, {n, n, n}, count, values);
}

TEST(MatrixProduct, OfSquareMatricesByLayout)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int n = 1; n <= 9; ++n)
                for (const Values values : {Values::manyExponents, Values::signedZeros})
                    checkOnce(*e, seed++, {n, n, n}, 2, values, spread);
}

// Every remainder of rows by four and of columns by eight, before every inner length.
TEST(MatrixProduct, OfAnyShape)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const Spread spread : {Spread::denseRows, Spread::strided})
            for (int inner = 1; inner <= 17; ++inner)
                for (int round = 0; round < 8; ++round, ++seed)
                    checkOnce(*e, seed, {1 + int(seed * 7 % 11), 1 + int(seed * 5 % 13), inner}, 2,
                              seed % 3 ? Values::manyExponents : Values::uniform, spread);
}

TEST(MatrixProduct, OfOneRowOrOneColumnOrOneProduct)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const ProductShape shape : {ProductShape{1, 9, 4},
                                         {9, 1, 4},
                                         {1, 1, 12},
                                         {9, 9, 1},
                                         {1, 17, 1},
                                         {17, 1, 1},
                                         {2, 7, 3},
                                         {3, 4, 4},
                                         {4, 3, 4}})
            for (const Values values : allValues())
                checkOnce(*e, seed++, shape, 3, values);
}

TEST(MatrixProduct, OfLargerMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (const ProductShape shape : {ProductShape{16, 16, 16},
                                             {17, 16, 5},
                                             {5, 17, 16},
                                             {16, 5, 17},
                                             {33, 21, 40},
                                             {10, 70, 3}})
                checkOnce(*e, seed++, shape, 2, Values::manyExponents, spread);
}

TEST(MatrixProduct, OfManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (int n = 1; n <= 7; ++n)
                checkOnce(*e, seed++, {n, n, n}, 40, Values::uniform, spread);
}

// Registers of several objects, and the last ones again.
TEST(MatrixProduct, OfInterleavedObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product")) {
        for (int n = 1; n <= 9; ++n)
            for (const int count : {1, 3, 4, 5, 6, 7, 8, 9, 17})
                checkOnce(*e, seed++, {n, n, n}, count,
                          n % 2 ? Values::manyExponents : Values::signedZeros, Spread::interleaved);
        for (const ProductShape shape : {ProductShape{1, 9, 4}, {9, 1, 4}, {2, 7, 3}, {5, 3, 1}})
            checkOnce(*e, seed++, shape, 9, Values::manyExponents, Spread::interleaved);
    }
}

TEST(MatrixProduct, ReadsAndWritesNoRowTooFar)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const ProductShape shape : {ProductShape{1, 1, 1},
                                         {3, 3, 3},
                                         {4, 4, 4},
                                         {5, 5, 5},
                                         {6, 6, 6},
                                         {7, 7, 7},
                                         {5, 9, 3},
                                         {9, 6, 2}})
            for (int round = 0; round < 3; ++round)
                checkOnce(*e, seed++, shape, 3, Values::uniform, Spread::fenced);
}

TEST(MatrixProduct, ReachesAllOfTheAddressSpace)
{
    if (!hasVastSpace)
        GTEST_SKIP();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const ProductShape shape :
             {ProductShape{2, 2, 2}, {3, 3, 3}, {4, 4, 4}, {6, 6, 6}, {7, 7, 7}, {5, 3, 4}})
            for (int round = 0; round < 4; ++round)
                checkOnce(*e, seed++, shape, 4, Values::uniform, Spread::vast);
}

// The sign of a zero --------------------------------------------------------------------------

// Where every product is -0.0, the chain that starts from 0.0 ends in +0.0.
TEST(MatrixProduct, OfNegativeZerosTellsWhereTheChainStarts)
{
    std::set<std::string> negative, positive;
    for (const Export *e : exportsOf("matrix_product"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (const ProductShape shape :
                 {ProductShape{3, 3, 3}, {6, 6, 6}, {2, 2, 2}, {3, 3, 4}}) {
                Call call(*e, 1, countFor(*e, 2), spread);
                call.source("src1", {shape.rows, shape.inner}, [](int, int, int) { return -0.0; });
                call.source("src2", {shape.inner, shape.columns},
                            [](int, int, int) { return 1.0; });
                const Operand &d = call.output("dst", {shape.rows, shape.columns});
                setSizes(call, *e, shape);
                ASSERT_EQ(call.run(), zonStsOk) << call;
                const bool sign = std::signbit(d(0, 0, 0));
                for (int k = 0; k < call.count(); ++k)
                    for (int i = 0; i < shape.rows; ++i)
                        for (int j = 0; j < shape.columns; ++j) {
                            ASSERT_EQ(d(k, i, j), 0.0) << call;
                            ASSERT_EQ(std::signbit(d(k, i, j)), sign) << call;
                        }
                if (shape.columns == 3 && shape.inner == 3)
                    (sign ? negative : positive)
                        .insert(e->name + (spread == Spread::dense ? " dense" : " strided"));
                else
                    EXPECT_EQ(sign,
                              shape.columns == 6 &&
                                  negative.contains(
                                      e->name + (spread == Spread::dense ? " dense" : " strided")))
                        << call;
            }
    // All but the object tables with an array on the right, and those only where rows are dense.
    std::set<std::string> expected;
    for (const char *group : {"mma", "mta", "tma", "tta", "mama", "mata", "tama", "tata"})
        for (const char *type : {"32f", "64f"})
            expected.insert(std::string("zonmMul_") + group + '_' + type + "_L dense");
    EXPECT_EQ(positive, expected);
    EXPECT_EQ(negative.size(), 2 * 88 - expected.size());
}

// 64f: whatever the path, the same number.
TEST(MatrixProduct, Of64fIsTheSameInEveryPath)
{
    for (const Values values : {Values::manyExponents, Values::signedZeros, Values::uniform})
        for (const ProductShape shape : {ProductShape{2, 2, 2},
                                         {3, 3, 3},
                                         {4, 4, 4},
                                         {5, 5, 5},
                                         {6, 6, 6},
                                         {7, 7, 7},
                                         {8, 8, 8},
                                         {5, 9, 6}}) {
            Random random(7);
            std::vector<double> left, right, first;
            for (int n = 0; n < shape.rows * shape.inner; ++n)
                left.push_back(draw(values, Element::f64, random));
            for (int n = 0; n < shape.inner * shape.columns; ++n)
                right.push_back(draw(values, Element::f64, random));
            for (const Export *e : exportsOf("matrix_product"))
                for (const Spread spread : {Spread::dense, Spread::strided}) {
                    if (e->element != "64f")
                        continue;
                    Call call(*e, 1, countFor(*e, 2), spread);
                    call.source("src1", {shape.rows, shape.inner}, [&](int, int i, int j) {
                        return left[std::size_t(i * shape.inner + j)];
                    });
                    call.source("src2", {shape.inner, shape.columns}, [&](int, int i, int j) {
                        return right[std::size_t(i * shape.columns + j)];
                    });
                    const Operand &d = call.output("dst", {shape.rows, shape.columns});
                    setSizes(call, *e, shape);
                    ASSERT_EQ(call.run(), zonStsOk) << call;
                    std::vector<double> result;
                    for (int k = 0; k < call.count(); ++k)
                        for (int n = 0; n < shape.rows * shape.columns; ++n)
                            result.push_back(d(k, n / shape.columns, n % shape.columns));
                    if (first.empty())
                        first.assign(result.begin(), result.begin() + shape.rows * shape.columns);
                    for (std::size_t n = 0; n < result.size(); ++n) {
                        const double x = result[n], y = first[n % first.size()];
                        ASSERT_TRUE(x == y || (std::isnan(x) && std::isnan(y)))
                            << call << ": " << show(Element::f64, x) << " and "
                            << show(Element::f64, y);
                    }
                }
        }
}

// The order of the additions ------------------------------------------------------------------

using Terms = std::vector<std::pair<double, double>>;

double product(const std::pair<double, double> &t) { return t.first * t.second; }

double sumOf(const Terms &t, std::size_t begin, std::size_t end, std::size_t step = 1)
{
    double sum = product(t[begin]);
    for (std::size_t p = begin + step; p < end; p += step)
        sum = sum + product(t[p]);
    return sum;
}

double pairwise(const Terms &t, std::size_t begin, std::size_t end)
{
    if (end - begin == 1)
        return product(t[begin]);
    const std::size_t middle = (begin + end) / 2;
    return pairwise(t, begin, middle) + pairwise(t, middle, end);
}

// Everything that is not the chain and that a compiler or a hand might make of it.
std::vector<double> otherSums(const Terms &t, Element type)
{
    const std::size_t n = t.size();
    double fused = product(t[0]), fusedFromZero = 0, narrowed = 0, fromFloats = 0;
    for (std::size_t p = 0; p < n; ++p) {
        fusedFromZero = fusedStep(t[p].first, t[p].second, fusedFromZero);
        if (p > 0)
            fused = fusedStep(t[p].first, t[p].second, fused);
        narrowed = rounded(type, narrowed + product(t[p]));
        fromFloats += rounded(type, product(t[p]));
    }
    const Terms reversed(t.rbegin(), t.rend());
    Terms exchanged = t, last = t;
    std::swap(exchanged[0], exchanged[2]);
    std::swap(last[n - 1], last[n - 2]);
    std::vector<double> sums = {sumOf(reversed, 0, n), sumOf(exchanged, 0, n), sumOf(last, 0, n),
                                sumOf(t, 0, n, 2) + sumOf(t, 1, n, 2), pairwise(t, 0, n)};
    for (std::size_t split = 2; split + 1 < n; ++split)
        sums.push_back(sumOf(t, 0, split) + sumOf(t, split, n));
    if (type == Element::f64)
        sums.insert(sums.end(), {fused, fusedFromZero});
    else // the product of two 32f is exact in double: fused or not is the same there
        sums.insert(sums.end(), {narrowed, fromFloats});
    return sums;
}

// Terms whose chain differs, in the element type, from every other sum of them.
Terms searchTellingTerms(Element type, std::size_t n)
{
    Random random(n);
    for (int attempt = 0; attempt < 1000000; ++attempt) {
        Terms t;
        const auto number = [&] {
            const double x = (random.unit() - 0.5) * std::ldexp(1, random.between(-12, 12));
            return rounded(type, x);
        };
        for (std::size_t p = 0; p < n; ++p)
            t.push_back({number(), number()});
        if (type == Element::f32) {
            // Large terms that cancel in the end, so that the additions are seen behind 24 bits.
            const double large = std::ldexp(1 + random.between(0, 7) / 8.0, 20);
            t[std::size_t(random.below(int(n) - 1))] = {large, large};
            t[n - 1] = {large, -large};
        }
        const double sum = rounded(type, sumOf(t, 0, n));
        bool telling = sum != 0;
        for (const double other : otherSums(t, type))
            telling = telling && rounded(type, other) != sum;
        if (telling)
            return t;
    }
    throw std::runtime_error("no telling terms");
}

const Terms &tellingTerms(Element type, int n)
{
    static std::map<std::pair<Element, int>, Terms> found;
    Terms &t = found[{type, n}];
    if (t.empty())
        t = searchTellingTerms(type, std::size_t(n));
    return t;
}

// All rows of A and all columns of B the same: so must be all elements of dst. A chain that is
// split, reordered or fused anywhere, in a remainder or in some of the sums of a block, shows.
TEST(MatrixProduct, IsOneChainInAscendingOrder)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_product"))
        for (const ProductShape shape : {ProductShape{4, 4, 4},
                                         {5, 5, 5},
                                         {6, 6, 6},
                                         {7, 7, 7},
                                         {8, 8, 8},
                                         {7, 11, 4},
                                         {11, 7, 5},
                                         {6, 13, 6},
                                         {3, 5, 9},
                                         {17, 19, 8}})
            for (const Spread spread : {Spread::dense, Spread::strided}) {
                const Element type = e->element == "32f" ? Element::f32 : Element::f64;
                const Terms &terms = tellingTerms(type, shape.inner);
                Call call(*e, seed++, countFor(*e, 2), spread);
                call.source("src1", {shape.rows, shape.inner},
                            [&](int, int, int p) { return terms[std::size_t(p)].first; });
                call.source("src2", {shape.inner, shape.columns},
                            [&](int, int p, int) { return terms[std::size_t(p)].second; });
                runAndCompare(call, *e, shape);
                if (pathOf(*e, shape, isContiguous(*e, call)) != Path::sumInDst) {
                    EXPECT_EQ(call["dst"](0, shape.rows - 1, shape.columns - 1),
                              rounded(type, sumOf(terms, 0, terms.size())))
                        << call;
                }
            }
}

// 32f only, other sizes than 3 to 6: the sum in dst is rounded after every product.
TEST(MatrixProduct, ByElementTablesRoundsEverySum)
{
    int compared = 0;
    for (const Export *e : exportsOf("matrix_product")) {
        if (e->element != "32f" || e->description != "P")
            continue;
        for (const ProductShape shape :
             {ProductShape{4, 4, 4}, {6, 6, 6}, {7, 7, 7}, {4, 3, 4}, {20, 9, 5}}) {
            const Terms &terms = tellingTerms(Element::f32, shape.inner);
            Call call(*e, 1, countFor(*e, 2));
            call.source("src1", {shape.rows, shape.inner},
                        [&](int, int, int p) { return terms[std::size_t(p)].first; });
            call.source("src2", {shape.inner, shape.columns},
                        [&](int, int p, int) { return terms[std::size_t(p)].second; });
            const Operand &d = call.output("dst", {shape.rows, shape.columns});
            setSizes(call, *e, shape);
            ASSERT_EQ(call.run(), zonStsOk) << call;
            const bool wide = shape.rows == shape.columns && shape.rows <= 6;
            float narrow = 0;
            for (const auto &t : terms)
                narrow = float(double(narrow) + product(t));
            const float exact = float(sumOf(terms, 0, terms.size()));
            ASSERT_NE(narrow, exact);
            for (int i = 0; i < shape.rows; ++i)
                for (int j = 0; j < shape.columns; ++j)
                    ASSERT_EQ(d(0, i, j), wide ? exact : narrow) << call;
            ++compared;
        }
    }
    EXPECT_GT(compared, 0);
}

} // namespace
